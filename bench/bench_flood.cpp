// LinkhopServer under attack from this machine: the real program, started from a folder of its own,
// while one sending thread floods it as fast as it can (sendmmsg, 64 datagrams a call), strangers
// hold places or guess the password, or players chat as much as they are allowed. Prints what the
// attacker reached (datagrams per second), what ten honest players racing beside it lost and how
// long their answers took (median and p99, beside the loopback UDP echo round trip), whether status
// queries from elsewhere were answered, and the server's memory (RSS) and processor share.
//
// Every address is in 127.68.0.0/16 and 127.96.0.0/14, which no test uses; run it inside a network
// namespace of its own to be alone on loopback (unshare -n, as scripts/bench.sh does when it may).
//
// Usage: bench_flood [seconds per flood, default 10]
#include "benchsupport.h"
#include "core/localport.h"
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "flood.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>
#include <QtEndian>
#include <csignal>
#include <functional>
#include <list>
#include <map>
#include <sys/epoll.h>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::bench;
using namespace linkhop::test;

namespace {

constexpr quint32 Ip(quint32 a, quint32 b, quint32 c, quint32 d)
{
    return a << 24 | b << 16 | c << 8 | d;
}

const quint32 kServer = Ip(127, 68, 0, 1);
const quint32 kFloodSource = Ip(127, 68, 3, 1);
const quint32 kSprayFirst = Ip(127, 96, 0, 1);
constexpr int kHonest = 10;

double Seconds(qint64 ns)
{
    return double(ns) / 1e9;
}

// --- the real server, from a folder of its own --------------------------------------------------

class ServerProcess
{
public:
    explicit ServerProcess(const QString& password = {})
    {
        const QString bin = QCoreApplication::applicationDirPath();
        QFile::copy(bin + u"/LinkhopServer"_s, m_folder.filePath(u"LinkhopServer"_s));
        QFile::copy(bin + u"/articles.txt"_s, m_folder.filePath(u"articles.txt"_s));
        if (!password.isEmpty()) {
            QFile file(m_folder.filePath(u"Password.dat"_s));
            if (file.open(QIODevice::WriteOnly)) file.write(password.toLatin1() + "\r\n");
        }
        m_process.setStandardOutputFile(m_folder.filePath(u"log.txt"_s));
        m_process.setStandardErrorFile(m_folder.filePath(u"errors.txt"_s));
        m_process.start(m_folder.filePath(u"LinkhopServer"_s),
                        {u"--bind"_s, QHostAddress(kServer).toString()});
        const qint64 deadline = NowNs() + 10 * 1000000000LL;
        while (NowNs() < deadline && !Log().join(u'\n').contains(u"ready on"_s))
            QThread::msleep(20);
        m_ready = Log().join(u'\n').contains(u"ready on"_s);
        if (!m_ready)
            std::fprintf(stderr, "LinkhopServer did not start on %s:7200\n",
                         qPrintable(QHostAddress(kServer).toString()));
    }
    ~ServerProcess()
    {
        if (m_process.state() != QProcess::NotRunning) {
            m_process.terminate();
            if (!m_process.waitForFinished(5000)) m_process.kill();
        }
    }
    bool Ready() const { return m_ready; }
    QStringList Log() const
    {
        QFile file(m_folder.filePath(u"log.txt"_s));
        if (!file.open(QIODevice::ReadOnly)) return {};
        return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }
    double RssMiB() const { return StatusField("VmRSS:") / 1024; }
    double PeakRssMiB() const { return StatusField("VmHWM:") / 1024; }
    double CpuSeconds() const
    {
        QFile stat(u"/proc/%1/stat"_s.arg(m_process.processId()));
        if (!stat.open(QIODevice::ReadOnly)) return 0;
        const QByteArray text = stat.readAll();
        const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
        return double(fields.value(11).toLongLong() + fields.value(12).toLongLong()) /
               double(sysconf(_SC_CLK_TCK));
    }
    // Datagrams the kernel dropped for the server's socket: blocked sources and a full buffer.
    quint64 KernelDrops() const
    {
        QFile udp(u"/proc/net/udp"_s);
        if (!udp.open(QIODevice::ReadOnly)) return 0;
        // The address as the kernel prints it: its bytes in network order, read as a number here.
        const QByteArray local =
            QByteArray::number(qToBigEndian(kServer), 16).toUpper().rightJustified(8, '0') + ":1C20";
        for (const QByteArray& line : udp.readAll().split('\n')) {
            const QList<QByteArray> fields = line.simplified().split(' ');
            if (fields.value(1) == local) return fields.constLast().toULongLong();
        }
        return 0;
    }

private:
    double StatusField(const char* key) const
    {
        QFile status(u"/proc/%1/status"_s.arg(m_process.processId()));
        if (!status.open(QIODevice::ReadOnly)) return 0;
        for (const QByteArray& line : status.readAll().split('\n'))
            if (line.startsWith(key))
                return line.mid(qsizetype(std::strlen(key))).trimmed().split(' ').value(0).toDouble();
        return 0;
    }

    QTemporaryDir m_folder;
    QProcess m_process;
    bool m_ready = false;
};

// --- players and other clients on plain sockets -------------------------------------------------

struct Client
{
    int fd = -1;
    QString name;
    QString port;
    std::function<void(QByteArrayView, qint64)> received;
};

class Clients
{
public:
    Clients() : m_epoll(epoll_create1(EPOLL_CLOEXEC)) {}
    ~Clients()
    {
        for (Client& c : m_clients)
            close(c.fd);
        close(m_epoll);
    }
    Client& Add(quint32 ip, const QString& name = {})
    {
        Client& c = m_clients.emplace_back();
        c.fd = OpenSocket(ip);
        c.name = name;
        c.port = QString::number(LocalPort(c.fd));
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.ptr = &c;
        epoll_ctl(m_epoll, EPOLL_CTL_ADD, c.fd, &event);
        return c;
    }
    void Send(const Client& c, const QString& text) const
    {
        const QByteArray bytes = ToWire(text);
        const sockaddr_in to = Address(kServer, kServerPort);
        sendto(c.fd, bytes.constData(), size_t(bytes.size()), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to);
    }
    // Reads whatever arrives until `until` (monotonic nanoseconds), or until `done` holds.
    void Pump(qint64 until, const std::function<bool()>& done = {})
    {
        epoll_event events[64];
        static char buffer[65536];
        do {
            const int ready = epoll_wait(m_epoll, events, 64, 1);
            for (int e = 0; e < ready; ++e) {
                Client& c = *static_cast<Client*>(events[e].data.ptr);
                ssize_t n;
                while ((n = recv(c.fd, buffer, sizeof buffer, MSG_DONTWAIT)) >= 0)
                    if (c.received) c.received(QByteArrayView(buffer, n), NowNs());
            }
            if (done && done()) return;
        } while (NowNs() < until);
    }
    // Connects and asks for the players; the time to "PLAYERLIST" in ms, or -1 without one.
    double Join(Client& c, const QString& password = {}, int timeoutMs = 3000)
    {
        QByteArray last;
        auto before = std::move(c.received);
        c.received = [&](QByteArrayView text, qint64) { last = text.toByteArray(); };
        const qint64 start = NowNs();
        const qint64 until = start + qint64(timeoutMs) * 1000000;
        Send(c, msg::Connect(ClientVersion, c.name, c.port));
        double took = -1;
        while (NowNs() < until) {
            last.clear();
            Pump(until, [&] { return !last.isEmpty(); });
            if (last == "NEEDPWD") {
                Send(c, msg::ConnectWithPassword(ClientVersion, c.name, password));
            } else if (last.startsWith("CONNECTACCEPT")) {
                Send(c, msg::GetPlayerList(c.port));
            } else if (last.startsWith("PLAYERLIST")) {
                took = double(NowNs() - start) / 1e6;
                break;
            } else if (last.startsWith("CONNECTREJECT")) {
                break;
            }
        }
        c.received = std::move(before);
        return took;
    }

private:
    int m_epoll;
    std::list<Client> m_clients;
};

// --- one flood beside ten racing players --------------------------------------------------------

struct Figures
{
    QString what;
    double senderRate = 0; // datagrams per second the flooding thread sent
    quint64 sent = 0;
    int reports = 0;
    int lost = 0;
    Percentiles reply;
    int statusAsked = 0;
    int statusAnswered = 0;
    double rssBefore = 0;
    double rssPeak = 0;
    double cpuShare = 0;
    quint64 kernelDrops = 0;
    int blocks = 0;
};

void Print(const Figures& f)
{
    std::printf("%-46s %10.0f %6d %5d %6.2f%% %8.3f %8.3f %5d/%-5d %6.1f %6.1f %6.1f%% %10llu %4d\n",
                qPrintable(f.what), f.senderRate, f.reports, f.lost,
                f.reports > 0 ? 100.0 * f.lost / f.reports : 0.0, f.reply.median, f.reply.p99,
                f.statusAnswered, f.statusAsked, f.rssBefore, f.rssPeak, f.cpuShare * 100,
                static_cast<unsigned long long>(f.kernelDrops), f.blocks);
    std::fflush(stdout);
}

Figures RaceUnderFlood(const QString& what, const QByteArray& datagram, quint32 sources, int seconds)
{
    Figures f;
    f.what = what;
    ServerProcess server;
    if (!server.Ready()) return f;
    Clients clients;
    struct Racer
    {
        Client* client;
        std::vector<qint64> sentAt; // by round click
        std::vector<bool> answered;
    };
    std::vector<Racer> racers;
    std::vector<double> replies;
    bool measuring = false;
    for (int i = 0; i < kHonest; ++i) {
        Client& c = clients.Add(Ip(127, 68, 1, quint32(2 + i)), u"R%1"_s.arg(i + 1, 2, 10, QLatin1Char('0')));
        if (clients.Join(c) < 0) {
            std::fprintf(stderr, "%s could not join\n", qPrintable(c.name));
            return f;
        }
        racers.push_back({&c, {0}, {false}});
    }
    for (size_t i = 0; i < racers.size(); ++i) {
        Racer& r = racers[i];
        const QByteArray own = "SCOREIS NAME=" + r.client->name.toLatin1() + ";";
        r.client->received = [&r, own, &replies, &measuring](QByteArrayView text, qint64 now) {
            if (!text.startsWith(own)) return;
            const qsizetype at = text.indexOf(";RCLICK=");
            const size_t k = size_t(std::atoi(text.sliced(at + 8).toByteArray().constData()));
            if (at < 0 || k >= r.sentAt.size() || r.answered[k]) return;
            r.answered[k] = true;
            if (measuring && r.sentAt[k] != 0) replies.push_back(double(now - r.sentAt[k]) / 1e6);
        };
    }
    clients.Send(*racers[0].client, msg::SetWords(u"Start page", u"A destination nobody reaches"));
    clients.Pump(NowNs() + 500 * 1000000LL);

    Client& asker = clients.Add(Ip(127, 68, 2, 1));
    std::map<int, qint64> asked;
    asker.received = [&](QByteArrayView text, qint64) {
        if (text.startsWith("STATUS SERVER=q"))
            asked.erase(std::atoi(text.sliced(15).toByteArray().constData()));
    };

    f.rssBefore = server.RssMiB();
    const double cpu0 = server.CpuSeconds();
    const quint64 drops0 = server.KernelDrops();
    const qint64 start = NowNs();
    std::unique_ptr<FastFlooder> flood;
    if (sources > 0)
        flood = std::make_unique<FastFlooder>(datagram, QHostAddress(kServer), kServerPort,
                                              QHostAddress(sources > 1 ? kSprayFirst : kFloodSource), sources,
                                              seconds + 1);
    // Reports spread evenly: every racer twice a second, the asker ten times a second.
    const qint64 end = start + qint64(seconds) * 1000000000LL;
    const qint64 period = 500 * 1000000LL;
    std::vector<qint64> next(racers.size());
    for (size_t i = 0; i < racers.size(); ++i)
        next[i] = start + qint64(i) * period / qint64(racers.size());
    qint64 nextAsk = start;
    qint64 nextRss = start;
    measuring = true;
    while (NowNs() < end) {
        const qint64 now = NowNs();
        for (size_t i = 0; i < racers.size(); ++i) {
            if (next[i] > now) continue;
            Racer& r = racers[i];
            r.sentAt.push_back(NowNs());
            r.answered.push_back(false);
            clients.Send(*r.client, msg::Navigate(r.client->name, u"Page %1"_s.arg(r.sentAt.size() - 1)));
            next[i] += period;
            ++f.reports;
        }
        if (nextAsk <= now) {
            asked[f.statusAsked] = now;
            clients.Send(asker, msg::Status(u"q%1"_s.arg(f.statusAsked++), asker.port));
            nextAsk += 100 * 1000000LL;
        }
        if (nextRss <= now) {
            f.rssPeak = std::max(f.rssPeak, server.RssMiB());
            nextRss += 100 * 1000000LL;
        }
        clients.Pump(std::min({*std::min_element(next.begin(), next.end()), nextAsk, end}));
    }
    if (flood) {
        flood->Stop();
        f.sent = flood->Sent();
        f.senderRate = double(flood->Sent()) / flood->Seconds();
    }
    const double wall = Seconds(NowNs() - start);
    f.cpuShare = (server.CpuSeconds() - cpu0) / wall;
    f.kernelDrops = server.KernelDrops() - drops0;
    f.rssPeak = std::max({f.rssPeak, server.RssMiB()});
    clients.Pump(NowNs() + 500 * 1000000LL); // late answers count as answered, not as lost
    measuring = false;
    for (const Racer& r : racers)
        for (size_t k = 1; k < r.sentAt.size(); ++k)
            if (!r.answered[k]) ++f.lost;
    f.statusAnswered = f.statusAsked - int(asked.size());
    f.reply = Summarise(replies);
    f.blocks = int(server.Log().filter(u"flood: blocking"_s).size());
    return f;
}

// --- joins beside strangers ---------------------------------------------------------------------

struct JoinFigures
{
    QString what;
    int joined = 0;
    int tried = 0;
    Percentiles took;
    double rssPeak = 0;
    QString extra;
};

void Print(const JoinFigures& f)
{
    std::printf("%-58s %3d/%-3d %8.3f %8.3f %6.1f  %s\n", qPrintable(f.what), f.joined, f.tried,
                f.took.median, f.took.p99, f.rssPeak, qPrintable(f.extra));
    std::fflush(stdout);
}

JoinFigures JoinsUnderAttack(const QString& what, int kind)
{
    JoinFigures f;
    f.what = what;
    const bool privateServer = kind >= 2;
    ServerProcess server(privateServer ? u"pw"_s : QString());
    if (!server.Ready()) return f;
    Clients clients;
    std::unique_ptr<FastFlooder> flood;
    std::vector<Client*> strangers;
    // Strangers on plain sockets: each connects from `ports` ports it never listens on.
    const auto connectFrom = [&](int addresses, int ports, const QString& prefix) {
        for (int a = 0; a < addresses; ++a)
            strangers.push_back(&clients.Add(Ip(127, 68, 4 + quint32(a) / 250, 1 + quint32(a) % 250)));
        for (size_t a = 0; a < strangers.size(); ++a)
            for (int k = 0; k < ports; ++k)
                clients.Send(*strangers[a],
                             msg::Connect(ClientVersion, u"%1%2"_s.arg(prefix).arg(int(a) * ports + k),
                                          QString::number(40000 + k)));
    };
    qint64 nextSquat = 0;
    switch (kind) {
    case 0: // squatters, again every 5 s as the attack went
        connectFrom(8, 8, u"sq"_s);
        nextSquat = NowNs() + 5000 * 1000000LL;
        break;
    case 1: { // 20,000 connections under as many names from fresh addresses, as fast as one thread sends
        QList<QByteArray> storm;
        for (int i = 0; i < 20000; ++i)
            storm.append(ToWire(msg::Connect(ClientVersion, u"storm%1"_s.arg(i), u"40000")));
        flood = std::make_unique<FastFlooder>(storm, QHostAddress(kServer), kServerPort,
                                              QHostAddress(kSprayFirst), 20000, 60);
        while (flood->Sent() < 20000)
            QThread::usleep(100);
        flood->Stop();
        f.extra = u"storm: %1 connections in %2 s"_s.arg(flood->Sent()).arg(flood->Seconds(), 0, 'f', 2);
        break;
    }
    case 2: // password prompts from 130 addresses x 8 ports, each port let go at once
        for (quint32 a = 0; a < 130; ++a) {
            for (int k = 0; k < 8; ++k) {
                const int fd = OpenSocket(Ip(127, 68, 4, 1 + a));
                const QByteArray bytes = ToWire(msg::Connect(
                    ClientVersion, u"prompt%1"_s.arg(a * 8 + quint32(k)), QString::number(LocalPort(fd))));
                const sockaddr_in to = Address(kServer, kServerPort);
                sendto(fd, bytes.constData(), size_t(bytes.size()), 0, reinterpret_cast<const sockaddr*>(&to),
                       sizeof to);
                close(fd);
            }
        }
        break;
    case 3: // wrong passwords from 64 addresses, as fast as one thread sends them
        flood = std::make_unique<FastFlooder>(
            ToWire(msg::ConnectWithPassword(ClientVersion, u"guess", u"wrong")), QHostAddress(kServer),
            kServerPort, QHostAddress(kSprayFirst), 64, 60);
        break;
    default:
        break;
    }
    clients.Pump(NowNs() + 200 * 1000000LL);
    std::vector<double> took;
    for (int k = 1; k <= 25; ++k) {
        Client& joiner = clients.Add(Ip(127, 68, 5, quint32(k)), u"J%1"_s.arg(k));
        ++f.tried;
        const double ms = clients.Join(joiner, u"pw"_s);
        if (ms >= 0) {
            ++f.joined;
            took.push_back(ms);
        }
        f.rssPeak = std::max(f.rssPeak, server.RssMiB());
        if (nextSquat != 0 && NowNs() >= nextSquat) {
            connectFrom(0, 8, u"sq"_s);
            nextSquat += 5000 * 1000000LL;
        }
        clients.Pump(NowNs() + 200 * 1000000LL); // 25 joins over five seconds and more
    }
    if (flood) {
        flood->Stop();
        if (kind == 3)
            f.extra = u"storm: %1 guesses/s from 64 addresses for %2 s"_s
                          .arg(double(flood->Sent()) / flood->Seconds(), 0, 'f', 0)
                          .arg(flood->Seconds(), 0, 'f', 1);
    }
    f.took = Summarise(took);
    return f;
}

// Wrong passwords from one address, one every 6 ms (600 in 3.6 s, as fast as the server once
// answered them), then nothing until `seconds` have passed: how many were checked ("-100") and
// when the last of them was, how many refused unchecked ("-1").
QString GuessFromOneAddress(int guesses, int seconds)
{
    ServerProcess server(u"pw"_s);
    if (!server.Ready()) return {};
    Clients clients;
    Client& guesser = clients.Add(Ip(127, 68, 6, 1));
    int checked = 0, unchecked = 0;
    qint64 lastChecked = 0;
    guesser.received = [&](QByteArrayView text, qint64 now) {
        if (text == "CONNECTREJECT ERROR=-100;") {
            ++checked;
            lastChecked = now;
        } else if (text == "CONNECTREJECT ERROR=-1;") {
            ++unchecked;
        }
    };
    const qint64 start = NowNs(), end = start + qint64(seconds) * 1000000000LL;
    for (int i = 0; i < guesses; ++i) {
        clients.Send(guesser, msg::ConnectWithPassword(ClientVersion, u"Mallory", u"guess%1"_s.arg(i)));
        clients.Pump(start + qint64(i + 1) * 6 * 1000000LL);
    }
    const double sending = Seconds(NowNs() - start);
    clients.Pump(end);
    return u"%1 wrong guesses from one address in %2 s: %3 checked, the last %4 s after the first was sent; "
           u"%5 refused unchecked"_s.arg(guesses)
               .arg(sending, 0, 'f', 1)
               .arg(checked)
               .arg(Seconds(lastChecked - start), 0, 'f', 1)
               .arg(unchecked);
}

// --- chat beside a crowd ------------------------------------------------------------------------

// `players` join; `chatters` of them send 4 KB lines `perSecond` each for `seconds`. Prints what
// the server sent to everyone, per second, and its processor share.
QString ChatAmplification(int players, int chatters, double perSecond, int seconds)
{
    ServerProcess server;
    if (!server.Ready()) return {};
    Clients clients;
    std::vector<Client*> crowd;
    quint64 datagrams = 0, bytes = 0;
    bool counting = false;
    for (int i = 0; i < players; ++i) {
        Client& c =
            clients.Add(Ip(127, 68, 16 + quint32(i) / 250, 1 + quint32(i) % 250), u"C%1"_s.arg(i + 1));
        if (clients.Join(c) < 0) return u"player %1 could not join"_s.arg(i + 1);
        c.received = [&](QByteArrayView text, qint64) {
            if (counting && text.startsWith("CHAT ")) {
                ++datagrams;
                bytes += quint64(text.size());
            }
        };
        crowd.push_back(&c);
    }
    clients.Pump(NowNs() + 500 * 1000000LL);
    const QString line(4000, u'x');
    const double cpu0 = server.CpuSeconds();
    const qint64 start = NowNs(), end = start + qint64(seconds) * 1000000000LL;
    const qint64 period = qint64(1e9 / perSecond);
    qint64 next = start;
    quint64 lines = 0;
    counting = true;
    while (NowNs() < end) {
        for (int c = 0; c < chatters; ++c)
            clients.Send(*crowd[size_t(c)], msg::Chat(crowd[size_t(c)]->name, line));
        lines += quint64(chatters);
        next += period;
        clients.Pump(std::min(next, end));
    }
    const double wall = Seconds(NowNs() - start);
    const double cpu = (server.CpuSeconds() - cpu0) / wall;
    clients.Pump(NowNs() + 300 * 1000000LL);
    counting = false;
    return u"%1 lines/s sent, the server relayed %2 datagrams/s (%3 MB/s) at %4% of a processor"_s
        .arg(double(lines) / wall, 0, 'f', 0)
        .arg(double(datagrams) / wall, 0, 'f', 0)
        .arg(double(bytes) / wall / 1e6, 0, 'f', 2)
        .arg(cpu * 100, 0, 'f', 1);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    std::signal(SIGPIPE, SIG_IGN);
    const int seconds = argc > 1 ? std::max(2, std::atoi(argv[1])) : 10;

    const Percentiles floor = EchoFloor(Ip(127, 68, 0, 2), 5000, Ip(127, 68, 1, 250));
    std::printf("Loopback UDP echo round trip (floor): median %.3f ms, p99 %.3f ms (%zu samples)\n\n",
                floor.median, floor.p99, floor.count);

    std::printf("Ten players report a page twice a second each for %d s; a status query comes ten times a "
                "second from "
                "elsewhere.\n",
                seconds);
    std::printf("%-46s %10s %6s %5s %7s %8s %8s %11s %6s %6s %7s %10s %4s\n", "flood", "sent/s", "report",
                "lost", "", "median", "p99 ms", "status", "RSS", "peak", "CPU", "kern.drops", "blks");
    Print(RaceUnderFlood(u"none"_s, {}, 0, seconds));
    Print(RaceUnderFlood(u"empty datagrams, one address"_s, {}, 1, seconds));
    Print(
        RaceUnderFlood(u"\"STATUS SERVER=x;PORT=9;\", one address"_s, "STATUS SERVER=x;PORT=9;", 1, seconds));
    Print(RaceUnderFlood(u"64-byte junk, one address"_s, QByteArray(64, 'j'), 1, seconds));
    Print(RaceUnderFlood(u"\"STATUS ...\" from 70,000 addresses in turn"_s, "STATUS SERVER=x;PORT=9;", 70000,
                         seconds));
    Print(RaceUnderFlood(u"empty datagrams from 70,000 addresses in turn"_s, {}, 70000, seconds));

    std::printf("\n25 players join one after the other, 200 ms apart, beside strangers.\n");
    std::printf("%-58s %7s %8s %8s %6s\n", "strangers", "joined", "median", "p99 ms", "RSS");
    Print(JoinsUnderAttack(u"none"_s, -1));
    Print(JoinsUnderAttack(u"8 addresses x 8 pending places, again every 5 s"_s, 0));
    Print(JoinsUnderAttack(u"20,000 connections from fresh addresses, at once"_s, 1));
    Print(JoinsUnderAttack(u"private: 130 addresses x 8 ports ask for the prompt"_s, 2));
    Print(JoinsUnderAttack(u"private: wrong passwords from 64 addresses, full speed"_s, 3));
    std::printf("%s\n", qPrintable(GuessFromOneAddress(600, seconds)));

    std::printf("\nChat, 4,000-character lines.\n");
    std::printf("1 of 301 players sends 189 lines/s: %s\n",
                qPrintable(ChatAmplification(301, 1, 189, seconds)));
    std::printf("all 301 players send 1 line/s each: %s\n",
                qPrintable(ChatAmplification(301, 301, 1, seconds)));
    return 0;
}
