// The game window's dispatcher on arbitrary datagrams, one per line, handed over one per queued
// call as the session socket does, so that a round's start waiting for its first page receives the
// following ones nested. After every datagram no two roster names may be equal ignoring case, and
// every input must be handled within seconds. A first line "#nobrowser" gives the session no browser.
#include "clientfakes.h"
#include "core/wire.h"
#include "game/frmgame.h"
#include "platform/eventwait.h"

#include <QApplication>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;

namespace {

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "fuzz_dispatcher: %s\n", what);
    std::abort();
}

// Nobody looks at the windows: painting them would only cost the fuzzer its speed.
struct NoPainting final : QObject
{
    bool eventFilter(QObject*, QEvent* e) override
    {
        return e->type() == QEvent::Paint || e->type() == QEvent::UpdateRequest;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    [[maybe_unused]] static const bool started = [] {
        static int argc = 1;
        static char name[] = "fuzz_dispatcher";
        static char* argv[] = {name, nullptr};
        if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
        qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& text) {
            if (type == QtCriticalMsg || type == QtFatalMsg) std::fprintf(stderr, "%s\n", qPrintable(text));
        });
        (new QApplication(argc, argv))->installEventFilter(new NoPainting); // lives until the process ends
        QApplication::setQuitOnLastWindowClosed(false);
        return true;
    }();
    constexpr QByteArrayView kNoBrowser = "#nobrowser\n";
    QByteArrayView input(reinterpret_cast<const char*>(data), qsizetype(size));
    const bool withBrowser = !input.startsWith(kNoBrowser);
    if (!withBrowser) input = input.sliced(kNoBrowser.size());
    QStringList datagrams;
    for (const QByteArray& line : input.toByteArray().split('\n'))
        datagrams << FromWire(line);
    {
        test::TestClient client;
        client.giveBrowsers = withBrowser;
        Session& s = *client.session;
        s.PlayerName = u"ann"_s;
        for (const QString& name : {u"ann"_s, u"Bo"_s, u"cy"_s})
            s.AddPlayer(name);
        s.ResetGameData();
        OpenSessionWindows(s, false, QString());
        QPointer<frmGame> game = s.Game();
        game->tmrGetScores->stop(); // the input alone decides what happens
        game->tmrPing->stop();
        game->Dispatcher().SetFirstPageWaitMs(20); // keeps an input with many round starts quick
        if (test::ScriptedBrowser* browser = client.LastBrowser()) {
            browser->titleFor = [](const QString& url) {
                const qsizetype at = url.indexOf(u"search="_s);
                return at < 0
                           ? u"Wikipedia, the free encyclopedia"_s
                           : url.mid(at + 7).section(u'&', 0, 0) + u" - Wikipedia, the free encyclopedia"_s;
            };
        }
        // One datagram per queued call, until the session ends as its closed socket would.
        QObject context;
        bool scheduled = false;
        std::function<void()> deliver = [&] {
            scheduled = false;
            if (!game || s.Ended()) return;
            const QString datagram = datagrams.takeFirst();
            if ((scheduled = !datagrams.empty()))
                QMetaObject::invokeMethod(&context, deliver, Qt::QueuedConnection);
            game->Dispatcher().Handle(datagram);
            QSet<QString> lowerNames;
            for (const PlayerRecord& player : s.Players())
                lowerNames.insert(player.Name.toLower());
            if (lowerNames.size() != s.PlayerCount()) Fail("two roster names equal ignoring case");
        };
        scheduled = true;
        QMetaObject::invokeMethod(&context, deliver, Qt::QueuedConnection);
        if (!LetEventsRunUntil([&] { return !scheduled; }, 5000)) Fail("input not handled in time");
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
