#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QTimer>
#include <QUdpSocket>
#include <atomic>
#include <chrono>
#include <thread>

namespace linkhop::test {

// Sends `datagrams` round robin to `to`:`port`, `perSecond`, from a thread of its own, whatever the
// receiving event loop does; behind by more than a twentieth of a second, it skips ahead.
class Flooder final
{
public:
    Flooder(QList<QByteArray> datagrams, QHostAddress to, quint16 port, int perSecond,
            QHostAddress from = QHostAddress(QHostAddress::AnyIPv4))
        : m_thread([=, this] {
              QUdpSocket socket;
              if (datagrams.isEmpty() || !socket.bind(from, 0)) return;
              const auto start = std::chrono::steady_clock::now();
              for (qint64 done = 0; !m_stop;) {
                  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
                  const auto due = qint64(elapsed.count() * perSecond);
                  done = std::max(done, due - std::max(1, perSecond / 20));
                  if (done >= due) std::this_thread::sleep_for(std::chrono::microseconds(200));
                  for (; done < due; ++done)
                      if (socket.writeDatagram(datagrams[done % datagrams.size()], to, port) >= 0) ++m_sent;
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
