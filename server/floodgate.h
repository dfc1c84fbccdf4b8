#pragma once

#include <QHash>
#include <QHostAddress>

namespace linkhop::server {

// A token bucket per sender address: each address may send `burst` datagrams at once and `rate`
// per second after that, whatever the others do.
class FloodGate
{
public:
    FloodGate(double rate, double burst) : m_rate(rate), m_burst(burst) {}

    // Whether a datagram from `address` at `nowMs` may be handled; spends one token when it may.
    bool Admit(const QHostAddress& address, qint64 nowMs);
    // Forgets addresses whose bucket has refilled, so spoofed senders cannot grow the table.
    void Prune(qint64 nowMs);
    qsizetype Tracked() const { return m_buckets.size(); }

private:
    struct Bucket
    {
        double tokens;
        qint64 lastMs;
    };
    double m_rate;
    double m_burst;
    QHash<QHostAddress, Bucket> m_buckets;
};

} // namespace linkhop::server
