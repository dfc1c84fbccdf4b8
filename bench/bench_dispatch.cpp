// One client session under a flood of "SCOREIS" or "PINGIS": how many datagrams a second it
// handles, and how long its event loop is kept from other events meanwhile, with 16, 100 and a
// full roster of players (these datagrams mark one column of the scoreboard, which is refreshed
// once after the datagrams of one event-loop turn).
//
// The flood comes over loopback from a second socket in a thread of its own, as fast as the
// session drains it: the sender keeps at most kInFlight datagrams sent but not yet handled, so
// none is lost to a full buffer and the figure is the session's own rate. The event loop is
// watched by a 10 ms timer on the user-interface thread (the time the thread waited for a
// processor left out, where Linux tells it). Each case runs several times; the median and the
// worst run are printed, with where the user-interface thread's time went.
//
// Usage: bench_dispatch [seconds per run, default 2] [runs, default 5]
// The session's address is LINKHOP_TEST_ADDRESS (default 127.0.0.1); nothing listens at port 7200.
#include "clientfakes.h"
#include "core/localport.h"
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "core/wire.h"
#include "flood.h"
#include "game/frmgame.h"
#include "panels/frmscores.h"
#include "scriptedserver.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>
#include <QUdpSocket>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <thread>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

constexpr int kInFlight = 1024;

QString PlayerName(int i)
{
    return u"player%1"_s.arg(i, 3, 10, QChar(u'0'));
}

// Adds up the time events take: the session socket's hand-overs to the dispatcher, the
// scoreboard's refreshes (a queued call to its window) and its repaints (all of them start from an
// update request to its window).
class TimingApplication final : public QApplication
{
public:
    using QApplication::QApplication;

    QObject* scoreboard = nullptr;
    QObject* endpoint = nullptr;
    qint64 dispatchNs = 0;
    qint64 refreshNs = 0;
    qint64 paintNs = 0;
    int refreshes = 0;
    int paints = 0;

    void Reset() { dispatchNs = refreshNs = paintNs = refreshes = paints = 0; }

    bool notify(QObject* receiver, QEvent* event) override
    {
        qint64* ns = nullptr;
        if (receiver == endpoint && event->type() == QEvent::MetaCall)
            ns = &dispatchNs;
        else if (receiver == scoreboard && event->type() == QEvent::MetaCall)
            ns = &refreshNs, ++refreshes;
        else if (receiver == scoreboard && event->type() == QEvent::UpdateRequest)
            ns = &paintNs, ++paints;
        if (!ns) return QApplication::notify(receiver, event);
        QElapsedTimer timer;
        timer.start();
        const bool result = QApplication::notify(receiver, event);
        *ns += timer.nsecsElapsed();
        return result;
    }
};

struct Run
{
    double perSecond = 0;
    double costUs = 0; // the user-interface thread's time below, per datagram handled
    double heldMs = 0;
    double dispatchShare = 0; // of the run's wall-clock time
    double refreshShare = 0;
    double paintShare = 0;
    double refreshesPerSecond = 0;
    double paintsPerSecond = 0;
    quint64 lost = 0;
};

void LetEventsRunFor(int ms)
{
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
}

Run FloodOnce(TimingApplication& app, Session& session, frmGame& game, const QList<QByteArray>& flood,
              int seconds)
{
    std::atomic<quint64> handled{0};
    const QMetaObject::Connection counting =
        QObject::connect(game.wsGame, &UdpEndpoint::DataArrival, &game,
                         [&] { handled.fetch_add(1, std::memory_order_relaxed); });
    std::atomic<bool> stop{false};
    std::atomic<quint64> lost{0};
    const QHostAddress to = TestAddress();
    const quint16 port = session.LocalPort.toUShort();
    std::thread sender([&] {
        QUdpSocket socket;
        socket.bind(to, 0);
        qint64 sent = 0;
        qsizetype next = 0;
        QElapsedTimer stalled;
        stalled.start();
        quint64 lastHandled = 0;
        while (!stop.load(std::memory_order_relaxed)) {
            const quint64 now = handled.load(std::memory_order_relaxed);
            if (now != lastHandled) {
                lastHandled = now;
                stalled.restart();
            }
            if (sent - qint64(now) >= kInFlight) {
                // Nothing handled for a second and a half: what is in flight was lost before the
                // session read it.
                if (stalled.elapsed() > 1500) {
                    lost.fetch_add(quint64(sent - qint64(now)));
                    sent = qint64(now);
                }
                std::this_thread::yield();
                continue;
            }
            if (socket.writeDatagram(flood[next], to, port) >= 0) ++sent;
            next = (next + 1) % flood.size();
        }
    });

    LetEventsRunFor(200); // the flood settles before it is measured
    Heartbeat heartbeat;
    app.Reset();
    const quint64 before = handled.load();
    QElapsedTimer clock;
    clock.start();
    LetEventsRunFor(seconds * 1000);
    const double elapsedNs = double(clock.nsecsElapsed());
    Run run;
    run.perSecond = double(handled.load() - before) / elapsedNs * 1e9;
    run.costUs = double(app.dispatchNs + app.refreshNs + app.paintNs) / 1e3 / double(handled.load() - before);
    run.heldMs = heartbeat.LongestHeldMs();
    run.dispatchShare = double(app.dispatchNs) / elapsedNs;
    run.refreshShare = double(app.refreshNs) / elapsedNs;
    run.paintShare = double(app.paintNs) / elapsedNs;
    run.refreshesPerSecond = app.refreshes / elapsedNs * 1e9;
    run.paintsPerSecond = app.paints / elapsedNs * 1e9;

    stop = true;
    sender.join();
    run.lost = lost.load();
    QObject::disconnect(counting);
    LetEventsRunFor(300); // what is still in flight is handled before the next run
    return run;
}

template <typename F> double Median(const std::vector<Run>& runs, F field)
{
    std::vector<double> values;
    for (const Run& r : runs)
        values.push_back(field(r));
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// One refresh of a column alone, in microseconds, with a changed figure each time.
double RefreshUs(Session& s, bool ping)
{
    const int refreshes = 20000;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < refreshes; ++i) {
        PlayerRecord& p = s.Player(1 + i % s.PlayerCount());
        (ping ? p.Ping : p.Clicks) = i;
        s.Scores().UpdateList(false, !ping, ping, false, false);
    }
    return double(timer.nsecsElapsed()) / 1e3 / refreshes;
}

// One synchronous repaint of a widget, in milliseconds.
double RepaintMs(QWidget& widget)
{
    const int repaints = 200;
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < repaints; ++i)
        widget.repaint();
    return double(timer.nsecsElapsed()) / 1e6 / repaints;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    TimingApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 2;
    const int runs = argc > 2 ? std::max(1, std::atoi(argv[2])) : 5;

    std::printf(
        "bench_dispatch: one client session, flooded over loopback from a second socket as fast as the\n"
        "session drains it (at most %d datagrams in flight); %d runs of %d s per case.\n"
        "handled/s: datagrams handled a second, median and worst run. held: the longest the event loop\n"
        "was kept from a 10 ms timer, median and worst run. The user-interface thread's time, medians:\n"
        "dispatch = handing datagrams to the dispatcher and its reactions; refresh = rebuilding the\n"
        "marked scoreboard columns, once after each event-loop turn's datagrams; paint = repainting\n"
        "the scoreboard, with the refreshes and repaints per second; us/datagram = the three together\n"
        "per datagram handled, which stays put when the flood's pace moves the rest.\n\n",
        kInFlight, runs, seconds);
    std::printf("%-8s %7s | %9s %9s | %8s %8s | %8s %8s %8s %10s %8s | %11s | %4s\n", "flood", "players",
                "handled/s", "worst", "held ms", "worst", "dispatch", "refresh", "paint", "refresh/s",
                "paints/s", "us/datagram", "lost");

    QStringList costs;
    for (const int players : {16, 100, int(SessionData::kMaxPlayers)}) {
        TestClient client;
        Session& s = *client.session;
        s.ServerAddress = TestAddress().toString();
        UdpEndpoint probe;
        s.LocalPort = FindLocalPort(probe);
        s.PlayerName = PlayerName(0);
        for (int i = 0; i < players; ++i)
            s.AddPlayer(PlayerName(i));
        s.ResetGameData();
        OpenSessionWindows(s, false, QString());
        frmGame& game = *s.Game();
        game.tmrGetScores->stop();
        app.scoreboard = &s.Scores();
        app.endpoint = game.wsGame;
        LetEventsRunFor(300);

        QList<QByteArray> scores, pings;
        for (int i = 0; i < 4096; ++i) {
            const QString name = PlayerName(i % players);
            scores.append(ToWire(msg::ScoreIs(name, i % 50, i, i % 30, i % 2)));
            pings.append(ToWire(msg::PingIs(name, 20 + i % 400)));
        }
        // The scoreboard on its own, for the figures below the table.
        const double repaintMs = RepaintMs(s.Scores());
        const double columnRepaintMs = RepaintMs(*s.Scores().findChild<QWidget*>(u"lblScores"_s));
        const double refreshUs[] = {RefreshUs(s, false), RefreshUs(s, true)};
        costs.append(
            u"  %1 players: one refresh of the score column %2 us, of the ping column %3 us; a repaint of "
            u"the scoreboard window %4 ms, of the score column alone %5 ms"_s.arg(players, 3)
                .arg(refreshUs[0], 0, 'f', 1)
                .arg(refreshUs[1], 0, 'f', 1)
                .arg(repaintMs, 0, 'f', 2)
                .arg(columnRepaintMs, 0, 'f', 2));
        for (const bool ping : {false, true}) {
            std::vector<Run> results;
            quint64 lost = 0;
            for (int r = 0; r < runs; ++r) {
                results.push_back(FloodOnce(app, s, game, ping ? pings : scores, seconds));
                lost += results.back().lost;
            }
            const double rate = Median(results, [](const Run& r) { return r.perSecond; });
            const auto worstRate = std::min_element(results.begin(), results.end(), [](auto& a, auto& b) {
                                       return a.perSecond < b.perSecond;
                                   })->perSecond;
            const auto worstHeld = std::max_element(results.begin(), results.end(), [](auto& a, auto& b) {
                                       return a.heldMs < b.heldMs;
                                   })->heldMs;
            std::printf("%-8s %7d | %9.0f %9.0f | %8.1f %8.1f | %7.0f%% %7.0f%% %7.0f%% %10.0f %8.0f | "
                        "%11.2f | %4llu\n",
                        ping ? "PINGIS" : "SCOREIS", players, rate, worstRate,
                        Median(results, [](const Run& r) { return r.heldMs; }), worstHeld,
                        100 * Median(results, [](const Run& r) { return r.dispatchShare; }),
                        100 * Median(results, [](const Run& r) { return r.refreshShare; }),
                        100 * Median(results, [](const Run& r) { return r.paintShare; }),
                        Median(results, [](const Run& r) { return r.refreshesPerSecond; }),
                        Median(results, [](const Run& r) { return r.paintsPerSecond; }),
                        Median(results, [](const Run& r) { return r.costUs; }), lost);
            std::fflush(stdout);
        }
        app.scoreboard = app.endpoint = nullptr;
    }
    std::printf("\nthe scoreboard on its own, no flood:\n%s\n", qPrintable(costs.join(u'\n')));
    return 0;
}
