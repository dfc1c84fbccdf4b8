#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QTimer>
#include <atomic>
#include <thread>

namespace linkhop::test {

// Sends datagrams to one address and port from a thread of its own, at a steady rate, round robin
// over a list, so that the flood goes on whatever the receiving event loop does. Stops when
// destroyed.
class Flooder final
{
    Q_DISABLE_COPY_MOVE(Flooder)

public:
    // perSecond 0: as fast as the socket takes them. `from` picks the sender's address.
    Flooder(QList<QByteArray> datagrams, const QHostAddress& to, quint16 port, int perSecond,
            const QHostAddress& from = QHostAddress(QHostAddress::AnyIPv4));
    ~Flooder();

    void Stop();
    quint64 Sent() const { return m_sent.load(std::memory_order_relaxed); }
    // Datagrams the socket refused (its buffer full); not counted in Sent().
    quint64 Refused() const { return m_refused.load(std::memory_order_relaxed); }

private:
    void Run(QHostAddress to, quint16 port, QHostAddress from);

    QList<QByteArray> m_datagrams;
    int m_perSecond;
    std::atomic<bool> m_stop{false};
    std::atomic<quint64> m_sent{0};
    std::atomic<quint64> m_refused{0};
    std::thread m_thread;
};

// Ticks every `intervalMs` on the thread that creates it and keeps the longest time between two
// ticks. LongestHeldMs leaves out the time the thread was ready to run but the machine ran
// something else (Linux tells it per thread), so that it measures what this program did: held
// the event loop, busy or blocked. Elsewhere it is the wall-clock gap.
class Heartbeat final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Heartbeat)

public:
    explicit Heartbeat(int intervalMs = 10, QObject* parent = nullptr);

    void Restart();
    void Stop() { m_timer.stop(); }
    double LongestGapMs() const { return m_longestGapMs; }
    double LongestHeldMs() const { return m_longestHeldMs; }
    int Ticks() const { return m_ticks; }

private:
    void Tick();
    QTimer m_timer;
    QElapsedTimer m_wall;
    qint64 m_lastWallNs = 0;
    qint64 m_lastWaitNs = 0;
    double m_longestGapMs = 0;
    double m_longestHeldMs = 0;
    int m_ticks = 0;
};

// Nanoseconds the calling thread has spent ready to run but waiting for a processor; 0 where the
// platform does not tell.
qint64 RunQueueWaitNs();

} // namespace linkhop::test
