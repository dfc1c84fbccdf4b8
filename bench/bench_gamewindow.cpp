// The game window's start and memory: the time from creating the game window to the first title
// of the encyclopedia's main page (the test encyclopedia on loopback), and the client's memory once
// that page shows, with WebEngine's helper processes counted. Floors measured in the same run: a
// bare Qt window's start, and a bare Qt WebEngine view's first title on the same page.
//
// Run headless: QT_QPA_PLATFORM=offscreen (and QTWEBENGINE_DISABLE_SANDBOX=1 when run as root).
// The first argument is the number of warm samples. Memory is measured in fresh processes of this
// program (it calls itself with --memory <what> <encyclopedia host>).
#include "clientfakes.h"
#include "game/frmgame.h"
#include "mediawiki.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "platform/webenginebrowser.h"
#include "scriptedserver.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <QWindow>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

const QString kMainTitle = u"Wikipedia, the free encyclopedia"_s;

// Nearest-rank percentile.
double Percentile(std::vector<double> v, double p)
{
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const auto rank = static_cast<std::size_t>(std::ceil(p / 100.0 * static_cast<double>(v.size())));
    return v[std::clamp<std::size_t>(rank, 1, v.size()) - 1];
}

double Median(const std::vector<double>& v) { return Percentile(v, 50); }

// Milliseconds from creating a game window to its browser's first title of the main page.
double GameWindowToFirstTitle(const MediaWiki& wiki)
{
    TestClient client(WebEngineBrowserFactory({wiki.Host()}));
    Session& s = *client.session;
    s.SetSite({wiki.Host()});
    s.ServerAddress = u"127.0.0.1"_s;
    s.PlayerName = u"ann"_s;
    s.LocalPort = u"7219"_s;
    s.AddPlayer(u"ann"_s);
    s.Chat().show();
    s.Scores().show();
    bool titled = false;
    QElapsedTimer clock;
    clock.start();
    auto* game = new frmGame(s);
    QObject::connect(game->wbMain, &Browser::TitleChange, game, [&](const QString& t) { titled |= t == kMainTitle; });
    game->show();
    WaitUntil([&] { return titled; }, 60000);
    const double ms = double(clock.nsecsElapsed()) / 1e6;
    game->tmrGetScores->stop();
    delete game;
    return titled ? ms : -1;
}

double BareWindowShown()
{
    QElapsedTimer clock;
    clock.start();
    QWidget window;
    window.resize(800, 600);
    window.show();
    WaitUntil([&] { return window.isVisible() && window.windowHandle() && window.windowHandle()->isExposed(); }, 10000);
    QCoreApplication::processEvents();
    return double(clock.nsecsElapsed()) / 1e6;
}

double BareViewToFirstTitle(const MediaWiki& wiki)
{
    QElapsedTimer clock;
    clock.start();
    // A profile of its own that keeps nothing, as the game's browser has: the page's styles and
    // scripts come afresh, not from an earlier sample's cache. It outlives the view and its page.
    QWebEngineProfile profile;
    QWebEngineView view;
    view.setPage(new QWebEnginePage(&profile, &view));
    bool titled = false;
    QObject::connect(view.page(), &QWebEnginePage::titleChanged, &view, [&](const QString& t) { titled |= t == kMainTitle; });
    view.resize(800, 600);
    view.show();
    view.load(QUrl(wiki.Url(u"/wiki/Main_Page")));
    WaitUntil([&] { return titled; }, 60000);
    return titled ? double(clock.nsecsElapsed()) / 1e6 : -1;
}

// Resident and proportional set sizes (KiB) of this process and every process below it.
QPair<qint64, qint64> TreeMemory()
{
    QHash<qint64, qint64> parentOf;
    for (const QString& entry : QDir(u"/proc"_s).entryList(QDir::Dirs)) {
        bool numeric = false;
        const qint64 pid = entry.toLongLong(&numeric);
        if (!numeric) continue;
        QFile status(u"/proc/"_s + entry + u"/status"_s);
        if (!status.open(QIODevice::ReadOnly)) continue;
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith("PPid:")) parentOf.insert(pid, line.mid(5).trimmed().toLongLong());
    }
    const qint64 self = QCoreApplication::applicationPid();
    qint64 rss = 0, pss = 0;
    for (auto it = parentOf.cbegin(); it != parentOf.cend(); ++it) {
        qint64 p = it.key();
        while (p > 1 && p != self) p = parentOf.value(p, 0);
        if (p != self) continue;
        QFile rollup(u"/proc/"_s + QString::number(it.key()) + u"/smaps_rollup"_s);
        if (!rollup.open(QIODevice::ReadOnly)) continue;
        for (const QByteArray& line : rollup.readAll().split('\n')) {
            const QList<QByteArray> parts = line.simplified().split(' ');
            if (parts.size() < 2) continue;
            if (parts[0] == "Rss:") rss += parts[1].toLongLong();
            if (parts[0] == "Pss:") pss += parts[1].toLongLong();
        }
    }
    return {rss, pss};
}

// One measurement in this fresh process, on the encyclopedia at `host` (served by the parent, so
// that its processes are not counted): prints "rss pss" in KiB.
int MeasureMemory(const QString& what, const QString& host)
{
    std::unique_ptr<TestClient> client;
    std::unique_ptr<QWidget> holder;
    if (what == u"game"_s) {
        client = std::make_unique<TestClient>(WebEngineBrowserFactory({host}));
        Session& s = *client->session;
        s.SetSite({host});
        s.ServerAddress = u"127.0.0.1"_s;
        s.PlayerName = u"ann"_s;
        s.LocalPort = u"7218"_s;
        s.AddPlayer(u"ann"_s);
        OpenSessionWindows(s, false, QString());
        bool titled = false;
        QObject::connect(s.Game()->wbMain, &Browser::TitleChange, s.Game(), [&](const QString& t) { titled |= t == kMainTitle; });
        WaitUntil([&] { return titled; }, 60000);
    } else if (what == u"webview"_s) {
        auto* view = new QWebEngineView;
        holder.reset(view);
        bool titled = false;
        QObject::connect(view->page(), &QWebEnginePage::titleChanged, view, [&](const QString& t) { titled |= t == kMainTitle; });
        view->resize(800, 600);
        view->show();
        view->load(QUrl(u"http://"_s + host + u"/wiki/Main_Page"_s));
        WaitUntil([&] { return titled; }, 60000);
    } else {
        holder = std::make_unique<QWidget>();
        holder->resize(800, 600);
        holder->show();
    }
    WaitUntil([] { return false; }, 1500); // let the page settle
    const auto [rss, pss] = TreeMemory();
    std::printf("%lld %lld\n", rss, pss);
    return 0;
}

QPair<double, double> MemoryOf(const QString& what, const QString& host)
{
    QProcess child;
    child.start(QCoreApplication::applicationFilePath(), {u"--memory"_s, what, host});
    child.waitForFinished(120000);
    const QList<QByteArray> parts = child.readAllStandardOutput().trimmed().split(' ');
    if (parts.size() != 2) return {-1, -1};
    return {parts[0].toDouble() / 1024, parts[1].toDouble() / 1024};
}

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    if (argc == 4 && QByteArray(argv[1]) == "--memory")
        return MeasureMemory(QString::fromLatin1(argv[2]), QString::fromLatin1(argv[3]));
    const int samples = argc > 1 ? std::max(3, atoi(argv[1])) : 100;

    MediaWiki wiki;
    if (!wiki.Start()) {
        std::fprintf(stderr, "cannot start the test encyclopedia: %s\n", qPrintable(wiki.Error()));
        return 1;
    }
    // Cold: the first WebEngine page of this process starts the engine.
    const double coldView = BareViewToFirstTitle(wiki);
    const double coldGame = GameWindowToFirstTitle(wiki);
    std::vector<double> game, view, window;
    for (int i = 0; i < samples; ++i) {
        game.push_back(GameWindowToFirstTitle(wiki));
        view.push_back(BareViewToFirstTitle(wiki));
        window.push_back(BareWindowShown());
    }
    const auto gameMemory = MemoryOf(u"game"_s, wiki.Host());
    const auto viewMemory = MemoryOf(u"webview"_s, wiki.Host());
    const auto windowMemory = MemoryOf(u"window"_s, wiki.Host());

    std::printf("game window benchmark (%d warm samples; MediaWiki on loopback)\n", samples);
    std::printf("                                                 median      p99   cold engine\n");
    std::printf("  game window created -> first main-page title: %6.1f ms %6.1f ms  %6.1f ms\n",
                Median(game), Percentile(game, 99), coldGame);
    std::printf("  floor: bare WebEngine view -> first title:    %6.1f ms %6.1f ms  %6.1f ms\n",
                Median(view), Percentile(view, 99), coldView);
    std::printf("  floor: bare Qt window shown:                  %6.1f ms %6.1f ms\n", Median(window),
                Percentile(window, 99));
    std::printf("  ratio game window / bare view:                  %8.2f\n", Median(game) / Median(view));
    std::printf("memory once the page shows (this process and its helpers, MiB)\n");
    std::printf("  client with its session windows:   RSS %7.1f   PSS %7.1f\n", gameMemory.first, gameMemory.second);
    std::printf("  floor: bare WebEngine view:        RSS %7.1f   PSS %7.1f\n", viewMemory.first, viewMemory.second);
    std::printf("  floor: bare Qt window:             RSS %7.1f   PSS %7.1f\n", windowMemory.first, windowMemory.second);
    return 0;
}
