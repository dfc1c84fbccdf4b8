#include "stalenotices.h"

#include <QRandomGenerator>
#include <algorithm>
#include <limits>

namespace linkhop::server {

StaleNotices::StaleNotices(qint64 everyMs, double perSecond)
    : m_everyMs(everyMs), m_perSecond(perSecond), m_tokens(perSecond),
      m_seed(QRandomGenerator::system()->generate64()),
      m_toldMs(kSlots, std::numeric_limits<qint64>::min() / 2)
{
}

bool StaleNotices::Allow(const QHostAddress& address, quint16 port, qint64 nowMs)
{
    // IPv4 as ::ffff:a.b.c.d, so both forms of one address are one endpoint.
    const Q_IPV6ADDR bytes = address.toIPv6Address();
    // A seeded hash: nobody can aim at another endpoint's slot to get it told sooner.
    quint64 hash = m_seed ^ port;
    for (const quint8 byte : bytes.c)
        hash = (hash ^ byte) * 0x100000001b3ULL;
    qint64& toldMs = m_toldMs[size_t((hash ^ (hash >> 29)) % kSlots)];
    if (nowMs - toldMs < m_everyMs) return false; // this one told lately, or another of its slot
    m_tokens = std::min(m_perSecond, m_tokens + double(nowMs - m_refilledMs) * m_perSecond / 1000);
    m_refilledMs = nowMs;
    if (m_tokens < 1) return false;
    m_tokens -= 1;
    toldMs = nowMs;
    return true;
}

} // namespace linkhop::server
