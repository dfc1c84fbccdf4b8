// The game window's dispatcher on arbitrary datagrams, one per line, in a client session whose
// browser is scripted. The datagrams are handed over as the session socket hands them: one per
// queued call, so that a round's start waiting for its first page receives the following ones
// nested. After every datagram the roster must hold no two names equal ignoring case, and every
// input must be handled within a few seconds.
//
// An input whose first line is "#nobrowser" runs in a session whose browser factory gives none,
// as the client's does until it has a browser to give.
#include "clientfakes.h"
#include "core/wire.h"
#include "game/dispatcher.h"
#include "game/frmgame.h"
#include "platform/eventwait.h"

#include <QApplication>
#include <QByteArrayView>
#include <QEvent>
#include <QPointer>
#include <QSet>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

// Short waits for the round's first page keep an input with many round starts quick.
constexpr int kFirstPageWaitMs = 20;
constexpr int kInputLimitMs = 5000;
constexpr QByteArrayView kNoBrowser = "#nobrowser\n";

[[noreturn]] void Fail(const char* what)
{
    std::fprintf(stderr, "fuzz_dispatcher: %s\n", what);
    std::abort();
}

void CheckRoster(const Session& session)
{
    QSet<QString> lowerNames;
    for (const PlayerRecord& player : session.Players()) {
        const QString lower = player.Name.toLower();
        if (lowerNames.contains(lower)) Fail("two roster names equal ignoring case");
        lowerNames.insert(lower);
    }
}

// Nobody looks at the windows: painting them would only cost the fuzzer its speed.
class NoPainting final : public QObject
{
protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        return event->type() == QEvent::Paint || event->type() == QEvent::UpdateRequest;
    }
};

void StartApplication()
{
    static int argc = 1;
    static char name[] = "fuzz_dispatcher";
    static char* argv[] = {name, nullptr};
    if (QCoreApplication::instance()) return;
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    // The headless platform's notes (windows cannot be raised) would drown the fuzzer's output.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& text) {
        if (type == QtCriticalMsg || type == QtFatalMsg) std::fprintf(stderr, "%s\n", qPrintable(text));
    });
    // Lives until the process ends, as in a program.
    auto* application = new QApplication(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    application->installEventFilter(new NoPainting);
}

// Hands datagrams to the dispatcher one per queued call; stops once the session has ended, as
// the closed session socket would.
class Feeder final : public QObject
{
public:
    Feeder(Session& session, frmGame& game, std::deque<QString> datagrams)
        : m_session(session), m_game(&game), m_queue(std::move(datagrams))
    {
    }

    void Schedule()
    {
        if (m_scheduled || m_queue.empty()) return;
        m_scheduled = true;
        QMetaObject::invokeMethod(this, [this] { Deliver(); }, Qt::QueuedConnection);
    }
    bool Done() const { return !m_scheduled && m_queue.empty(); }

private:
    void Deliver()
    {
        m_scheduled = false;
        if (!m_game || m_session.Ended()) {
            m_queue.clear();
            return;
        }
        const QString datagram = m_queue.front();
        m_queue.pop_front();
        Schedule();
        m_game->Dispatcher().Handle(datagram);
        CheckRoster(m_session);
    }

    Session& m_session;
    QPointer<frmGame> m_game;
    std::deque<QString> m_queue;
    bool m_scheduled = false;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    StartApplication();

    std::deque<QString> datagrams;
    QByteArrayView input(reinterpret_cast<const char*>(data), qsizetype(size));
    const bool withBrowser = !input.startsWith(kNoBrowser);
    if (!withBrowser) input = input.sliced(kNoBrowser.size());
    qsizetype from = 0;
    while (from <= input.size()) {
        qsizetype end = input.sliced(from).indexOf('\n');
        end = end < 0 ? input.size() : from + end;
        datagrams.push_back(FromWire(input.sliced(from, end - from)));
        from = end + 1;
    }

    {
        TestClient client;
        client.giveBrowsers = withBrowser;
        Session& s = *client.session;
        s.PlayerName = u"ann"_s;
        for (const QString& name : {u"ann"_s, u"Bo"_s, u"cy"_s}) s.AddPlayer(name);
        s.ResetGameData();
        OpenSessionWindows(s, false, QString());
        frmGame* game = s.Game();
        if (!game) Fail("no game window");
        // Timers tick by the clock; the input alone decides what happens.
        game->tmrGetScores->stop();
        game->tmrPing->stop();
        game->Dispatcher().SetFirstPageWaitMs(kFirstPageWaitMs);
        if (ScriptedBrowser* browser = client.LastBrowser()) {
            browser->titleFor = [](const QString& url) {
                const qsizetype at = url.indexOf(u"search="_s);
                return at < 0 ? u"Wikipedia, the free encyclopedia"_s
                              : url.mid(at + 7).section(u'&', 0, 0) + u" - Wikipedia, the free encyclopedia"_s;
            };
        }

        Feeder feeder(s, *game, std::move(datagrams));
        feeder.Schedule();
        if (!LetEventsRunUntil([&] { return feeder.Done(); }, kInputLimitMs)) Fail("input not handled in time");
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return 0;
}
