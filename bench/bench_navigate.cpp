// From the engine's title of a new page in the real WebEngine browser to its "NAVIGATE" datagram
// arriving at a loopback server, over pages of the test encyclopedia followed by script; with the
// floors under it measured in the same run: loopback UDP, and a bare WebEngine view's time to its
// first title.
//
// Run headless: QT_QPA_PLATFORM=offscreen (and QTWEBENGINE_DISABLE_SANDBOX=1 when run as root).
// LINKHOP_TEST_ADDRESS picks the loopback address; the first argument the number of pages.
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "game/navigationmonitor.h"
#include "game/session.h"
#include "mediawiki.h"
#include "platform/webenginebrowser.h"
#include "scriptedserver.h"

#include <QApplication>
#include <QHash>
#include <QMutex>
#include <QMutexLocker>
#include <QTemporaryDir>
#include <QThread>
#include <QUdpSocket>
#include <QWebEnginePage>
#include <QWebEngineView>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

using Clock = std::chrono::steady_clock;

double Micros(Clock::duration d)
{
    return std::chrono::duration<double, std::micro>(d).count();
}

struct Stats
{
    double median = 0, p99 = 0, min = 0, max = 0;
    size_t n = 0;
};

Stats Summarise(std::vector<double> values)
{
    Stats s;
    if (values.empty()) return s;
    std::sort(values.begin(), values.end());
    s.n = values.size();
    s.median = values[values.size() / 2];
    s.p99 = values[size_t(std::ceil(0.99 * double(values.size()))) - 1];
    s.min = values.front();
    s.max = values.back();
    return s;
}

// A UDP server on its own thread, so that arrivals are stamped when they arrive rather than when
// the user-interface thread gets round to them. "ECHO ..." datagrams go back to their sender.
class LoopbackServer
{
public:
    LoopbackServer()
    {
        m_thread.reset(QThread::create([this] { Run(); }));
        m_thread->start();
        while (m_port.load() == 0)
            QThread::usleep(100);
    }
    ~LoopbackServer()
    {
        m_stop = true;
        m_thread->wait();
    }
    quint16 Port() const { return quint16(m_port.load()); }
    // Arrival time of the first datagram with this text, if it has come.
    bool ArrivalOf(const QString& text, Clock::time_point* when)
    {
        QMutexLocker lock(&m_mutex);
        const auto it = m_arrivals.constFind(text);
        if (it == m_arrivals.cend()) return false;
        *when = *it;
        return true;
    }

private:
    void Run()
    {
        QUdpSocket socket;
        if (!socket.bind(TestAddress(), 0)) {
            std::fprintf(stderr, "cannot bind the loopback server\n");
            std::exit(1);
        }
        m_port = socket.localPort();
        while (!m_stop) {
            if (!socket.waitForReadyRead(50)) continue;
            while (socket.hasPendingDatagrams()) {
                QByteArray data(int(socket.pendingDatagramSize()), Qt::Uninitialized);
                QHostAddress from;
                quint16 port = 0;
                socket.readDatagram(data.data(), data.size(), &from, &port);
                const Clock::time_point now = Clock::now();
                if (data.startsWith("ECHO ")) {
                    socket.writeDatagram(data, from, port);
                    continue;
                }
                QMutexLocker lock(&m_mutex);
                m_arrivals.insert(QString::fromLatin1(data), now);
            }
        }
    }

    std::unique_ptr<QThread> m_thread;
    std::atomic<int> m_port{0};
    std::atomic<bool> m_stop{false};
    QMutex m_mutex;
    QHash<QString, Clock::time_point> m_arrivals;
};

// Loopback UDP from this thread to the server thread: one way (send to arrival) and echo.
void MeasureUdp(LoopbackServer& server, int samples, Stats* oneWay, Stats* echo)
{
    QUdpSocket socket;
    socket.bind(TestAddress(), 0);
    std::vector<double> ways, echoes;
    for (int i = 0; i < samples; ++i) {
        const QString probe = u"PROBE "_s + QString::number(i);
        const Clock::time_point sent = Clock::now();
        socket.writeDatagram(probe.toLatin1(), TestAddress(), server.Port());
        Clock::time_point arrived;
        while (!server.ArrivalOf(probe, &arrived))
            QThread::yieldCurrentThread();
        ways.push_back(Micros(arrived - sent));

        const QByteArray ping = "ECHO " + QByteArray::number(i);
        const Clock::time_point start = Clock::now();
        socket.writeDatagram(ping, TestAddress(), server.Port());
        QByteArray back;
        while (back != ping) {
            if (!socket.waitForReadyRead(1000)) break;
            back.resize(int(socket.pendingDatagramSize()));
            socket.readDatagram(back.data(), back.size());
        }
        echoes.push_back(Micros(Clock::now() - start));
    }
    *oneWay = Summarise(ways);
    *echo = Summarise(echoes);
}

bool WaitFor(const std::function<bool()>& done, int timeoutMs = 20000)
{
    return WaitUntil(done, timeoutMs);
}

// A bare view with the default profile, from its creation to the first title of a local page.
std::vector<double> MeasureBareViews(const MediaWiki& wiki, int views)
{
    std::vector<double> times;
    const QString expected = u"Page 1 - Wikipedia"_s;
    for (int i = 0; i < views; ++i) {
        bool titled = false;
        Clock::time_point titledAt;
        const Clock::time_point start = Clock::now();
        auto* view = new QWebEngineView;
        QObject::connect(view, &QWebEngineView::titleChanged, view, [&](const QString& title) {
            if (title == expected && !titled) {
                titled = true;
                titledAt = Clock::now();
            }
        });
        view->resize(800, 600);
        view->show();
        view->load(QUrl(wiki.ArticleUrl(u"Page 1")));
        if (!WaitFor([&] { return titled; })) {
            std::fprintf(stderr, "a bare view never showed its title\n");
            std::exit(1);
        }
        times.push_back(Micros(titledAt - start) / 1000.0);
        delete view;
    }
    return times;
}

} // namespace

int main(int argc, char** argv)
{
    // The engine lets a page navigate by script at most 200 times in 10 seconds; the benchmark
    // clicks far faster than any player would.
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS",
            qgetenv("QTWEBENGINE_CHROMIUM_FLAGS") + " --disable-ipc-flooding-protection");
    QApplication app(argc, argv);
    const int pages = argc > 1 ? std::max(10, QString::fromLocal8Bit(argv[1]).toInt()) : 1000;

    MediaWiki wiki;
    if (!wiki.Start(MediaWiki::NumberedPages(pages + 1))) {
        std::fprintf(stderr, "cannot start the test encyclopedia: %s\n", qPrintable(wiki.Error()));
        return 1;
    }
    LoopbackServer server;

    // Floor: a bare view's first title, cold (the engine starting) and then warm.
    const std::vector<double> bare = MeasureBareViews(wiki, 11);
    const Stats bareWarm = Summarise(std::vector<double>(bare.begin() + 1, bare.end()));

    // The game's path: WebEngineBrowser -> NavigationMonitor -> UdpEndpoint -> the server.
    QTemporaryDir folder;
    Session session(folder.path(), Services{}, SiteConfig{wiki.Host()});
    session.PlayerName = u"bench"_s;
    NavigationRecord record;
    UdpEndpoint socket;
    socket.RemoteHost = TestAddress().toString();
    socket.RemotePort = server.Port();
    WebEngineBrowser browser({wiki.Host()});
    browser.resize(800, 600);
    browser.show();

    // The engine's title of a new page, once its document has it: where the browser starts to ask
    // the document for the title its server sent.
    QHash<QString, Clock::time_point> engineTitledAt;
    QObject::connect(browser.Page(), &QWebEnginePage::titleChanged, &browser, [&](const QString& title) {
        if (!engineTitledAt.contains(title)) engineTitledAt.insert(title, Clock::now());
    });
    // Stamped before the monitor runs: slots run in the order they were connected.
    QHash<QString, Clock::time_point> titledAt;
    QObject::connect(&browser, &Browser::TitleChange, &browser, [&](const QString& title) {
        if (!titledAt.contains(title)) titledAt.insert(title, Clock::now());
    });
    QHash<QString, Clock::time_point> sentAt;
    NavigationMonitor monitor(
        session, record,
        [&](const QString& text) {
            sentAt.insert(text, Clock::now());
            socket.SendData(text);
        },
        [](const QString&) {});
    monitor.Watch(browser);

    const auto classic = [](int page) -> QString {
        return u"Page "_s + QString::number(page) + u" - Wikipedia, the free encyclopedia";
    };
    browser.Navigate(wiki.ArticleUrl(u"Page 1"));
    if (!WaitFor([&] { return titledAt.contains(classic(1)) && !browser.Busy(); })) return 1;
    session.Words = WordList::FromStartGame(u"STARTGAME COUNT=1;WORD0=Page 1;WORD1=Page 0;");
    session.CurrentArticle = u"Page 1"_s;
    session.RoutePath = u"Page 1\r"_s;
    session.InRound = true;

    std::vector<double> latencies, askTimes, monitorTimes, clicks;
    const Clock::time_point runStart = Clock::now();
    for (int page = 2; page <= pages + 1; ++page) {
        const Clock::time_point clicked = Clock::now();
        browser.Page()->runJavaScript(
            u"document.querySelector('#mw-content-text a[title=\"Page %1\"]').click();"_s.arg(page));
        const QString datagram = msg::Navigate(u"bench", QString(u"Page "_s + QString::number(page)));
        Clock::time_point arrived;
        if (!WaitFor([&] { return server.ArrivalOf(datagram, &arrived) && !browser.Busy(); })) {
            std::fprintf(stderr, "page %d was not reported (the browser shows %s)\n", page,
                         qPrintable(browser.Page()->url().toString()));
            return 1;
        }
        const Clock::time_point engineTitled =
            engineTitledAt.value(u"Page "_s + QString::number(page) + u" - Wikipedia");
        const Clock::time_point titled = titledAt.value(classic(page));
        latencies.push_back(Micros(arrived - engineTitled));
        askTimes.push_back(Micros(titled - engineTitled));
        monitorTimes.push_back(Micros(sentAt.value(datagram) - titled));
        clicks.push_back(Micros(engineTitled - clicked) / 1000.0);
    }
    const double runSeconds = Micros(Clock::now() - runStart) / 1e6;

    Stats udpOneWay, udpEcho;
    MeasureUdp(server, 2000, &udpOneWay, &udpEcho);
    const Stats latency = Summarise(latencies);
    const Stats click = Summarise(clicks);
    const Stats inProcess = Summarise(monitorTimes);
    const Stats ask = Summarise(askTimes);

    std::printf("navigation report benchmark: %d pages of MediaWiki on loopback (today's titles),\n", pages);
    std::printf("each followed by a script click on its link to the next page\n\n");
    std::printf("  the engine's title of the new page -> NAVIGATE datagram at the loopback server\n");
    std::printf("      median %8.1f us    p99 %8.1f us    min %8.1f us    max %8.1f us    (n=%zu)\n\n",
                latency.median, latency.p99, latency.min, latency.max, latency.n);
    std::printf("  of which: the browser asks the page's document for its server's title (TitleChange)\n");
    std::printf("      median %8.1f us    p99 %8.1f us\n", ask.median, ask.p99);
    std::printf("  and: TitleChange -> the monitor's send (rules, message; before the socket)\n");
    std::printf("      median %8.1f us    p99 %8.1f us\n\n", inProcess.median, inProcess.p99);
    std::printf("floors measured in the same run\n");
    std::printf("  loopback UDP one way (send -> arrival on the server thread)\n");
    std::printf("      median %8.1f us    p99 %8.1f us    (n=%zu)\n", udpOneWay.median, udpOneWay.p99,
                udpOneWay.n);
    std::printf("  loopback UDP echo round trip\n");
    std::printf("      median %8.1f us    p99 %8.1f us    (n=%zu)\n", udpEcho.median, udpEcho.p99, udpEcho.n);
    std::printf("  bare QWebEngineView, creation -> first title of a local page\n");
    std::printf("      first (engine cold) %8.1f ms    later: median %8.1f ms    p99 %8.1f ms    (n=%zu)\n\n",
                bare.front(), bareWarm.median, bareWarm.p99, bareWarm.n);
    std::printf("for context\n");
    std::printf("  script click -> the engine's title of the next page\n");
    std::printf("      median %8.1f ms    p99 %8.1f ms    (%.1f pages/s over %.1f s)\n", click.median,
                click.p99, double(pages) / runSeconds, runSeconds);
    return 0;
}
