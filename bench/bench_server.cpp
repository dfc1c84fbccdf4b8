// LinkhopServer under load: 50, 200 and 500 simulated players over loopback, each reporting two
// pages a second during a round. Prints datagrams in and out per second, the time from a
// "NAVIGATE" to its "SCOREIS" back at the sender, how long the other players wait for that score,
// the server thread's CPU share, and the loopback UDP echo round trip as the floor.
//
// The server runs in its own thread with its own event loop, exactly as in the program; the
// players are plain non-blocking sockets driven by epoll in the main thread, each on its own
// loopback address (127.77.x.y) so that the per-address flood limit sees real senders.
//
// Usage: bench_server [seconds per run, default 10] [--every-address]
// The server address is LINKHOP_TEST_ADDRESS (default 127.0.0.1), port 7200. With --every-address
// the server listens on every IPv4 address, as the program does by default, and answers each
// player from the address it sent to.
#include "benchsupport.h"
#include "core/localport.h"
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "server/gameserver.h"

#include <QCoreApplication>
#include <QSemaphore>
#include <QThread>
#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;
using namespace linkhop::bench;

namespace {

// --- the server in its own thread -----------------------------------------------------------------

class ServerThread final : public QThread
{
public:
    ServerThread(ServerConfig config, QHostAddress address) : m_config(std::move(config)), m_address(address)
    {
    }

    bool Launch()
    {
        start();
        m_ready.acquire();
        return m_server != nullptr;
    }
    GameServer& Server() { return *m_server; }
    // CPU seconds the server thread has used, read on that thread.
    double CpuSeconds()
    {
        double seconds = 0;
        QMetaObject::invokeMethod(
            m_server, [&] { seconds = ThreadCpuSeconds(); }, Qt::BlockingQueuedConnection);
        return seconds;
    }

protected:
    void run() override
    {
        GameServer server(m_config);
        bool bound = false;
        // Another program's test may hold the port for a moment.
        for (int attempt = 0; attempt < 50 && !bound; ++attempt)
            if (!(bound = server.Start(m_address, kServerPort))) msleep(100);
        if (!bound) std::fprintf(stderr, "cannot bind %s:7200\n", qPrintable(m_address.toString()));
        m_server = bound ? &server : nullptr;
        m_ready.release();
        if (bound) exec();
        m_server = nullptr;
    }

private:
    ServerConfig m_config;
    QHostAddress m_address;
    QSemaphore m_ready;
    GameServer* m_server = nullptr;
};

// --- the simulated players ------------------------------------------------------------------------

struct SimPlayer
{
    int fd = -1;
    QString name;
    std::vector<qint64> sentAt; // by round click: when the "NAVIGATE" left
    std::vector<bool> answered;
    int clicks = 0;
    qint64 nextNavigate = 0;
    qint64 nextPing = 0;
};

struct RunResult
{
    int players = 0;
    double seconds = 0;
    quint64 serverIn = 0;
    quint64 serverOut = 0;
    quint64 clientsReceived = 0;
    quint64 sendFailures = 0;
    double cpuShare = 0;
    Percentiles own;
    Percentiles others;
    size_t unanswered = 0;
};

class Simulation
{
public:
    Simulation(int players, quint32 serverIp) : m_server(Address(serverIp, kServerPort))
    {
        m_epoll = epoll_create1(EPOLL_CLOEXEC);
        m_players.resize(size_t(players));
        m_seen.assign(size_t(players) * size_t(players), 0);
        for (int i = 0; i < players; ++i) {
            SimPlayer& p = m_players[size_t(i)];
            // 127.77.0.2 onwards: one loopback address per player.
            const quint32 ip = (127u << 24) | (77u << 16) | quint32(2 + i);
            p.fd = OpenSocket(ip);
            p.name = u"P%1"_s.arg(i + 1, 4, 10, QLatin1Char('0'));
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u32 = quint32(i);
            epoll_ctl(m_epoll, EPOLL_CTL_ADD, p.fd, &event);
        }
    }
    ~Simulation()
    {
        for (SimPlayer& p : m_players)
            close(p.fd);
        close(m_epoll);
    }

    bool JoinAll()
    {
        for (size_t i = 0; i < m_players.size(); ++i) {
            SimPlayer& p = m_players[i];
            const QString port = QString::number(LocalPort(p.fd));
            Send(p, msg::Connect(ClientVersion, p.name, port));
            if (!AwaitVerb(p, "CONNECTACCEPT")) return false;
            Send(p, msg::GetPlayerList(port));
            if (!AwaitVerb(p, "PLAYERLIST")) return false;
        }
        Pump(200 * 1000000LL); // let the join notices drain
        Send(m_players[0], msg::SetWords(u"Start page", u"A destination nobody reaches"));
        Pump(500 * 1000000LL);
        return true;
    }

    // Every player reports a page every 500 ms, spread evenly, and asks for a ping every 10 s.
    void Race(qint64 warmUpNs, qint64 measureNs, ServerThread& server, RunResult& result)
    {
        const qint64 start = NowNs();
        const qint64 period = 500 * 1000000LL;
        for (size_t i = 0; i < m_players.size(); ++i) {
            m_players[i].nextNavigate = start + qint64(i) * period / qint64(m_players.size());
            m_players[i].nextPing = start + qint64(i) * 10000 * 1000000LL / qint64(m_players.size());
        }
        const qint64 measureFrom = start + warmUpNs;
        const qint64 end = measureFrom + measureNs;
        bool measuring = false;
        quint64 in0 = 0, out0 = 0, failures0 = 0;
        double cpu0 = 0;
        while (true) {
            const qint64 now = NowNs();
            if (!measuring && now >= measureFrom) {
                measuring = true;
                m_recording = true;
                m_received = 0;
                in0 = server.Server().DatagramsIn();
                out0 = server.Server().DatagramsOut();
                failures0 = server.Server().SendFailures();
                cpu0 = server.CpuSeconds();
            }
            if (now >= end) break;
            qint64 next = end;
            for (SimPlayer& p : m_players) {
                if (p.nextNavigate <= now) {
                    ++p.clicks;
                    p.sentAt.resize(size_t(p.clicks) + 1, 0);
                    p.answered.resize(size_t(p.clicks) + 1, false);
                    p.sentAt[size_t(p.clicks)] = m_recording ? NowNs() : 0;
                    Send(p, msg::Navigate(p.name, QString(u"Page "_s + QString::number(p.clicks))));
                    p.nextNavigate += period;
                }
                if (p.nextPing <= now) {
                    Send(p, msg::PingMe(QString::number(LocalPort(p.fd))));
                    p.nextPing += 10000 * 1000000LL;
                }
                next = std::min({next, p.nextNavigate, p.nextPing});
            }
            Pump(std::max<qint64>(0, next - NowNs()));
        }
        const double seconds = double(NowNs() - measureFrom) / 1e9;
        result.seconds = seconds;
        result.cpuShare = (server.CpuSeconds() - cpu0) / seconds;
        result.serverIn = server.Server().DatagramsIn() - in0;
        result.serverOut = server.Server().DatagramsOut() - out0;
        result.sendFailures = server.Server().SendFailures() - failures0;
        result.clientsReceived = m_received;
        m_recording = false;
        Pump(300 * 1000000LL); // late answers still count as answered, not as lost
        for (const SimPlayer& p : m_players)
            for (size_t k = 1; k < p.sentAt.size(); ++k)
                if (p.sentAt[k] != 0 && !p.answered[k]) ++result.unanswered;
        result.own = Summarise(m_own);
        result.others = Summarise(m_others);
    }

private:
    void Send(const SimPlayer& p, const QString& text)
    {
        const QByteArray bytes = ToWire(text);
        sendto(p.fd, bytes.constData(), size_t(bytes.size()), 0, reinterpret_cast<const sockaddr*>(&m_server),
               sizeof m_server);
    }

    bool AwaitVerb(SimPlayer& p, const char* verb)
    {
        const qint64 deadline = NowNs() + 5000 * 1000000LL;
        char buffer[65536];
        while (NowNs() < deadline) {
            const ssize_t n = recv(p.fd, buffer, sizeof buffer, 0);
            if (n < 0) {
                std::this_thread::sleep_for(std::chrono::microseconds(50));
                continue;
            }
            if (size_t(n) >= std::strlen(verb) && std::memcmp(buffer, verb, std::strlen(verb)) == 0)
                return true;
        }
        std::fprintf(stderr, "%s: no %s\n", qPrintable(p.name), verb);
        return false;
    }

    // Reads whatever arrives for `waitNs`.
    void Pump(qint64 waitNs)
    {
        const qint64 until = NowNs() + waitNs;
        epoll_event events[256];
        do {
            const int timeoutMs = int(std::max<qint64>(0, (until - NowNs() + 999999) / 1000000));
            const int ready = epoll_wait(m_epoll, events, 256, std::min(timeoutMs, 1));
            for (int e = 0; e < ready; ++e)
                Drain(m_players[events[e].data.u32]);
        } while (NowNs() < until);
    }

    void Drain(SimPlayer& p)
    {
        char buffer[65536];
        while (true) {
            const ssize_t n = recv(p.fd, buffer, sizeof buffer - 1, 0);
            if (n < 0) return;
            buffer[n] = 0;
            const qint64 now = NowNs();
            if (m_recording) ++m_received;
            const QByteArrayView text(buffer, n);
            if (text.startsWith("PING ")) {
                Send(p, msg::Pong(p.name, GetParam(FromWire(text), u"TIME")));
            } else if (text.startsWith("SCOREIS NAME=P")) {
                // "SCOREIS NAME=Pnnnn;...RCLICK=k;": whose click, and which.
                const int who = std::atoi(buffer + 14) - 1;
                const char* rclick = std::strstr(buffer, ";RCLICK=");
                if (who < 0 || size_t(who) >= m_players.size() || !rclick) continue;
                const size_t k = size_t(std::atoi(rclick + 8));
                SimPlayer& clicker = m_players[size_t(who)];
                if (k >= clicker.sentAt.size()) continue;
                if (&clicker == &p) {
                    if (!p.answered[k] && clicker.sentAt[k] != 0)
                        m_own.push_back(double(now - clicker.sentAt[k]) / 1e6);
                    p.answered[k] = true;
                    continue;
                }
                // On another board: every click up to k is visible from now on.
                int& seen = m_seen[size_t(&p - m_players.data()) * m_players.size() + size_t(who)];
                for (size_t c = size_t(seen) + 1; c <= k; ++c)
                    if (m_recording && clicker.sentAt[c] != 0)
                        m_others.push_back(double(now - clicker.sentAt[c]) / 1e6);
                seen = std::max(seen, int(k));
            }
        }
    }

    sockaddr_in m_server;
    int m_epoll = -1;
    std::vector<SimPlayer> m_players;
    bool m_recording = false;
    quint64 m_received = 0;
    std::vector<double> m_own;
    std::vector<double> m_others;
    std::vector<int> m_seen; // [observer * players + clicker]: the highest round click shown
};

RunResult RunOnce(int players, double fanOutRate, quint32 serverIp, bool everyAddress, int seconds)
{
    ServerConfig config;
    config.FanOutRate = fanOutRate;
    config.Articles = {u"Start page"_s};
    ServerThread thread(config, everyAddress ? QHostAddress(QHostAddress::AnyIPv4) : QHostAddress(serverIp));
    RunResult result;
    result.players = players;
    if (!thread.Launch()) return result;
    {
        Simulation simulation(players, serverIp);
        if (simulation.JoinAll())
            simulation.Race(2000 * 1000000LL, qint64(seconds) * 1000000000LL, thread, result);
        else
            std::fprintf(stderr, "joining failed for %d players\n", players);
    }
    thread.quit();
    thread.wait();
    return result;
}

void Print(const RunResult& r)
{
    std::printf("%7d %10.0f %10.0f %10.0f %8llu   %7.2f %7.2f   %8.1f %8.1f   %6.1f%%  %6zu\n", r.players,
                double(r.serverIn) / r.seconds, double(r.serverOut) / r.seconds,
                double(r.clientsReceived) / r.seconds, static_cast<unsigned long long>(r.sendFailures),
                r.own.median, r.own.p99, r.others.median, r.others.p99, r.cpuShare * 100, r.unanswered);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 10;
    const bool everyAddress = argc > 2 && std::strcmp(argv[2], "--every-address") == 0;
    const QByteArray configured = qgetenv("LINKHOP_TEST_ADDRESS");
    const quint32 serverIp =
        QHostAddress(configured.isEmpty() ? u"127.0.0.1"_s : QString::fromLatin1(configured)).toIPv4Address();

    const Percentiles floor = EchoFloor(serverIp, 5000);
    std::printf("Loopback UDP echo round trip (floor): median %.3f ms, p99 %.3f ms (%zu samples)\n\n",
                floor.median, floor.p99, floor.count);

    const auto table = [&](double fanOutRate, const char* title) {
        std::printf("%s\n", title);
        std::printf("%7s %10s %10s %10s %8s   %15s   %17s   %7s  %6s\n", "players", "in/s", "out/s", "recv/s",
                    "sendfail", "own SCOREIS ms", "others see it ms", "CPU", "lost");
        std::printf("%7s %10s %10s %10s %8s   %7s %7s   %8s %8s   %7s  %6s\n", "", "", "", "", "", "median",
                    "p99", "median", "p99", "", "");
        for (int players : {50, 200, 500})
            Print(RunOnce(players, fanOutRate, serverIp, everyAddress, seconds));
        std::printf("\n");
    };
    table(ServerConfig().FanOutRate, "Default fan-out budget (updates to the others merged above it):");
    table(1e9, "No budget (every score to everyone at once):");
    return 0;
}
