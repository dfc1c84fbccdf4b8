#include "floodgate.h"

#include <algorithm>

namespace linkhop::server {

namespace {
// Beyond this many tracked addresses the full buckets are forgotten at once.
constexpr qsizetype kPruneAbove = 1 << 16;
} // namespace

bool FloodGate::Admit(const QHostAddress& address, qint64 nowMs)
{
    auto it = m_buckets.find(address);
    if (it == m_buckets.end()) {
        if (m_buckets.size() >= kPruneAbove) Prune(nowMs);
        // Still full: so many fresh senders at once are spoofed; start over rather than grow.
        if (m_buckets.size() >= kPruneAbove) m_buckets.clear();
        it = m_buckets.insert(address, Bucket{m_burst, nowMs});
    }
    Bucket& bucket = *it;
    const qint64 elapsed = std::max<qint64>(0, nowMs - bucket.lastMs);
    bucket.tokens = std::min(m_burst, bucket.tokens + double(elapsed) * m_rate / 1000.0);
    bucket.lastMs = std::max(bucket.lastMs, nowMs);
    if (bucket.tokens < 1.0) return false;
    bucket.tokens -= 1.0;
    return true;
}

void FloodGate::Prune(qint64 nowMs)
{
    m_buckets.removeIf([&](const QHash<QHostAddress, Bucket>::iterator& it) {
        const double refilled =
            it->tokens + double(std::max<qint64>(0, nowMs - it->lastMs)) * m_rate / 1000.0;
        return refilled >= m_burst;
    });
}

} // namespace linkhop::server
