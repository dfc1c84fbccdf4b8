#include "flood.h"

#include <QUdpSocket>
#include <chrono>
#include <cstdio>

namespace linkhop::test {

qint64 RunQueueWaitNs()
{
#ifdef Q_OS_LINUX
    // Time on the processor, time waiting on a run queue, time slices.
    FILE* file = std::fopen("/proc/thread-self/schedstat", "r");
    if (!file) return 0;
    unsigned long long running = 0, waiting = 0;
    const int read = std::fscanf(file, "%llu %llu", &running, &waiting);
    std::fclose(file);
    return read == 2 ? qint64(waiting) : 0;
#else
    return 0;
#endif
}

Flooder::Flooder(QList<QByteArray> datagrams, const QHostAddress& to, quint16 port, int perSecond,
                 const QHostAddress& from)
    : m_datagrams(std::move(datagrams)), m_perSecond(perSecond)
{
    if (m_datagrams.isEmpty()) return;
    m_thread = std::thread([this, to, port, from] { Run(to, port, from); });
}

Flooder::~Flooder()
{
    Stop();
}

void Flooder::Stop()
{
    m_stop.store(true);
    if (m_thread.joinable()) m_thread.join();
}

void Flooder::Run(QHostAddress to, quint16 port, QHostAddress from)
{
    QUdpSocket socket;
    if (!socket.bind(from, 0)) return;
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    // Behind by more than a twentieth of a second (this thread was not running), the flood skips
    // ahead instead of catching up in one burst.
    const qint64 slack = std::max(1, m_perSecond / 20);
    qint64 done = 0;
    qsizetype next = 0;
    while (!m_stop.load(std::memory_order_relaxed)) {
        qint64 due = done + 64;
        if (m_perSecond > 0) {
            const auto elapsed = std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start);
            due = qint64(double(elapsed.count()) * m_perSecond / 1e9);
            if (due - done > slack) done = due - slack;
            if (done >= due) {
                std::this_thread::sleep_for(std::chrono::microseconds(200));
                continue;
            }
        }
        for (; done < due; ++done) {
            if (socket.writeDatagram(m_datagrams[next], to, port) < 0)
                m_refused.fetch_add(1, std::memory_order_relaxed);
            else
                m_sent.fetch_add(1, std::memory_order_relaxed);
            next = (next + 1) % m_datagrams.size();
        }
        if (m_perSecond <= 0) std::this_thread::yield();
    }
}

Heartbeat::Heartbeat(int intervalMs, QObject* parent) : QObject(parent)
{
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(intervalMs);
    connect(&m_timer, &QTimer::timeout, this, &Heartbeat::Tick);
    Restart();
}

void Heartbeat::Restart()
{
    m_wall.start();
    m_lastWallNs = 0;
    m_lastWaitNs = RunQueueWaitNs();
    m_longestGapMs = m_longestHeldMs = 0;
    m_ticks = 0;
    m_timer.start();
}

void Heartbeat::Tick()
{
    const qint64 wall = m_wall.nsecsElapsed();
    const qint64 wait = RunQueueWaitNs();
    const qint64 gap = wall - m_lastWallNs;
    m_longestGapMs = std::max(m_longestGapMs, double(gap) / 1e6);
    m_longestHeldMs = std::max(m_longestHeldMs, double(gap - (wait - m_lastWaitNs)) / 1e6);
    m_lastWallNs = wall;
    m_lastWaitNs = wait;
    ++m_ticks;
}

} // namespace linkhop::test
