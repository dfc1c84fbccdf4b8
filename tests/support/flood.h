#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QTimer>
#include <QUdpSocket>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace linkhop::test {

// Sends `datagrams` round robin to `to`:`port`, `perSecond`, from a thread of its own, whatever the
// receiving event loop does; behind by more than a twentieth of a second, it skips ahead. Sends from
// a socket of its own on `from`, or from `socket` when given: another endpoint's, whose address and
// port the datagrams then carry.
class Flooder final
{
public:
    Flooder(QList<QByteArray> datagrams, QHostAddress to, quint16 port, int perSecond,
            QHostAddress from = QHostAddress(QHostAddress::AnyIPv4), qintptr socket = -1)
        : m_thread([=, this] {
              QUdpSocket own;
              if (datagrams.isEmpty() || (socket < 0 && !own.bind(from, 0))) return;
              sockaddr_in target{};
              target.sin_family = AF_INET;
              target.sin_port = htons(port);
              target.sin_addr.s_addr = htonl(to.toIPv4Address());
              const auto send = [&](const QByteArray& datagram) {
                  if (socket < 0) return own.writeDatagram(datagram, to, port) >= 0;
                  return ::sendto(int(socket), datagram.data(), size_t(datagram.size()), MSG_DONTWAIT,
                                  reinterpret_cast<const sockaddr*>(&target), sizeof target) >= 0;
              };
              const auto start = std::chrono::steady_clock::now();
              for (qint64 done = 0; !m_stop;) {
                  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
                  const auto due = qint64(elapsed.count() * perSecond);
                  done = std::max(done, due - std::max(1, perSecond / 20));
                  if (done >= due) std::this_thread::sleep_for(std::chrono::microseconds(200));
                  for (; done < due; ++done)
                      if (send(datagrams[done % datagrams.size()])) ++m_sent;
              }
          })
    {
    }
    ~Flooder() { Stop(); }
    void Stop()
    {
        if (!m_stop.exchange(true)) m_thread.join();
    }
    quint64 Sent() const { return m_sent; }

private:
    std::atomic<bool> m_stop{false};
    std::atomic<quint64> m_sent{0};
    std::thread m_thread; // last: it starts running in the constructor
};

// Addresses no other test uses, for floods: one flooding machine, and a spray of fresh sources.
inline QHostAddress FloodMachine()
{
    return QHostAddress(QStringLiteral("127.66.0.1"));
}
inline QHostAddress SprayFirst()
{
    return QHostAddress(QStringLiteral("127.98.0.1"));
}

// Sends `datagrams` round robin to `to`:`port` as fast as one thread can, 64 at a time, until
// Stop() or `maxSeconds`: from `from`, or, with `sources` > 1, each datagram from the next of that
// many consecutive IPv4 addresses starting at `from` (all of 127.0.0.0/8 is this machine's).
class FastFlooder final
{
public:
    FastFlooder(QList<QByteArray> datagrams, QHostAddress to, quint16 port, QHostAddress from,
                quint32 sources = 1, double maxSeconds = 10)
        : m_thread([=, this] { Run(datagrams, to, port, from, sources, maxSeconds); })
    {
    }
    FastFlooder(const QByteArray& datagram, QHostAddress to, quint16 port, QHostAddress from,
                quint32 sources = 1, double maxSeconds = 10)
        : FastFlooder(QList<QByteArray>{datagram}, to, port, from, sources, maxSeconds)
    {
    }
    ~FastFlooder() { Stop(); }
    void Stop()
    {
        if (!m_stop.exchange(true)) m_thread.join();
    }
    quint64 Sent() const { return m_sent; }
    double Seconds() const { return m_seconds; }

private:
    void Run(QList<QByteArray> datagrams, QHostAddress to, quint16 port, QHostAddress from, quint32 sources,
             double maxSeconds)
    {
        constexpr int kBatch = 64;
        if (datagrams.isEmpty()) return;
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in local{};
        local.sin_family = AF_INET;
        local.sin_addr.s_addr = htonl(sources > 1 ? INADDR_ANY : from.toIPv4Address());
        sockaddr_in target{};
        target.sin_family = AF_INET;
        target.sin_port = htons(port);
        target.sin_addr.s_addr = htonl(to.toIPv4Address());
        if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
            if (fd >= 0) close(fd);
            return;
        }
        // From one address the socket is connected: no route to look up for each datagram.
        const bool connected =
            sources <= 1 && ::connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) == 0;
        // Room for one source address per datagram, as ancillary data.
        constexpr size_t kControl = CMSG_SPACE(sizeof(in_pktinfo));
        std::vector<mmsghdr> messages(kBatch);
        std::vector<iovec> vectors(kBatch);
        std::vector<char> controls(kBatch * kControl, 0);
        const auto info = [&](int i) {
            return reinterpret_cast<in_pktinfo*>(
                CMSG_DATA(reinterpret_cast<cmsghdr*>(&controls[size_t(i) * kControl])));
        };
        for (int i = 0; i < kBatch; ++i) {
            vectors[size_t(i)] = iovec{datagrams[0].data(), size_t(datagrams[0].size())};
            msghdr& h = messages[size_t(i)].msg_hdr;
            h = msghdr{};
            h.msg_name = connected ? nullptr : &target;
            h.msg_namelen = connected ? 0 : sizeof target;
            h.msg_iov = &vectors[size_t(i)];
            h.msg_iovlen = 1;
            if (sources > 1) {
                auto* c = reinterpret_cast<cmsghdr*>(&controls[size_t(i) * kControl]);
                c->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
                c->cmsg_level = IPPROTO_IP;
                c->cmsg_type = IP_PKTINFO;
                h.msg_control = c;
                h.msg_controllen = kControl;
            }
        }
        const auto start = std::chrono::steady_clock::now();
        const quint32 first = from.toIPv4Address();
        quint32 next = 0;
        while (!m_stop) {
            for (int i = 0; i < kBatch && (sources > 1 || datagrams.size() > 1); ++i, ++next) {
                if (sources > 1) info(i)->ipi_spec_dst.s_addr = htonl(first + next % sources);
                QByteArray& datagram = datagrams[qsizetype(next % quint32(datagrams.size()))];
                vectors[size_t(i)] = iovec{datagram.data(), size_t(datagram.size())};
            }
            const int sent = sendmmsg(fd, messages.data(), kBatch, 0);
            if (sent > 0) m_sent += quint64(sent);
            const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
            m_seconds = elapsed.count();
            if (m_seconds >= maxSeconds) break;
        }
        close(fd);
    }

    std::atomic<bool> m_stop{false};
    std::atomic<quint64> m_sent{0};
    std::atomic<double> m_seconds{0};
    std::thread m_thread; // last: it starts running in the constructor
};

// Ticks every 10 ms and keeps the longest time between two ticks, less the time this thread was
// ready to run while the machine ran something else: how long the program held its event loop.
class Heartbeat final
{
public:
    Heartbeat()
    {
        m_clock.start();
        m_lastNs = HeldNs();
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, [this] {
            const qint64 last = std::exchange(m_lastNs, HeldNs());
            m_longestHeldMs = std::max(m_longestHeldMs, double(m_lastNs - last) / 1e6);
        });
        m_timer.start(10);
    }
    double LongestHeldMs() const { return m_longestHeldMs; }

private:
    qint64 HeldNs() const
    {
        // Linux tells per thread: time running, time waiting for a processor, time slices.
        QFile stat(QStringLiteral("/proc/thread-self/schedstat"));
        const bool told = stat.open(QIODevice::ReadOnly);
        return m_clock.nsecsElapsed() - (told ? stat.readLine().split(' ').value(1).toLongLong() : 0);
    }
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_lastNs = 0;
    double m_longestHeldMs = 0;
};

} // namespace linkhop::test
