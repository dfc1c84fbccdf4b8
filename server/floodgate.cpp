#include "floodgate.h"

#include <QRandomGenerator>
#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

constexpr quint64 kV4Marker = quint64(0xffff) << 32;
// A source whose blocks ended this long ago starts again from the shortest block.
constexpr qint64 kStrikesForgottenMs = 5 * 60 * 1000;
constexpr int kMaxStrikes = 6; // blocks of 1, 2, 4 ... 64 seconds
// A source that has sent at most this many datagrams lately, beyond what its rate refilled, is quiet.
constexpr float kQuiet = 4;

quint64 Mix(quint64 x)
{
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

} // namespace

QString Source::ToString() const
{
    if (IsV4()) return QHostAddress(V4()).toString();
    Q_IPV6ADDR bytes{};
    for (int i = 0; i < 8; ++i)
        bytes[i] = quint8(High >> (56 - 8 * i));
    return QHostAddress(bytes).toString() + u"/64"_s;
}

Source SourceOfV4(quint32 address)
{
    return Source{0, kV4Marker | address};
}

Source SourceOfV6(const quint8 (&bytes)[16])
{
    quint64 high = 0;
    for (int i = 0; i < 8; ++i)
        high = (high << 8) | bytes[i];
    if (high == 0 && bytes[8] == 0 && bytes[9] == 0 && bytes[10] == 0xff && bytes[11] == 0xff)
        return SourceOfV4(quint32(bytes[12]) << 24 | quint32(bytes[13]) << 16 | quint32(bytes[14]) << 8 |
                          bytes[15]);
    return Source{high, 0};
}

Source SourceOf(const QHostAddress& address)
{
    if (address.protocol() == QAbstractSocket::IPv4Protocol) return SourceOfV4(address.toIPv4Address());
    const Q_IPV6ADDR v6 = address.toIPv6Address();
    quint8 bytes[16];
    std::copy(std::begin(v6.c), std::end(v6.c), bytes);
    return SourceOfV6(bytes);
}

FloodGate::FloodGate(const FloodLimits& limits, quint64 seed)
    : m_limits(limits), m_seed(seed != 0 ? seed : QRandomGenerator::system()->generate64()),
      m_entries(size_t(kCapacity)), m_tags(size_t(kCapacity), 0), m_busyTokens(limits.StrangerRate / 2),
      m_quietTokens(limits.StrangerRate / 2)
{
}

quint64 FloodGate::Hash(const Source& source) const
{
    return Mix(source.High ^ m_seed) ^ Mix(source.Low + m_seed);
}

namespace {
quint32 TagOf(quint64 hash)
{
    return quint32(hash >> 32) | 1;
}
} // namespace

FloodGate::Entry* FloodGate::Find(const Source& source)
{
    const quint64 hash = Hash(source);
    const quint32 tag = TagOf(hash);
    for (int i = 0; i < kWindow; ++i) {
        const size_t slot = (size_t(hash) + size_t(i)) & size_t(kCapacity - 1);
        if (m_tags[slot] == tag && m_entries[slot].key == source) return &m_entries[slot];
    }
    return nullptr;
}

void FloodGate::Refill(Entry& e, qint64 nowMs) const
{
    const double seconds = double(std::max<qint64>(0, nowMs - e.lastMs)) / 1000.0;
    e.tokens = float(std::min(m_limits.Burst, double(e.tokens) + seconds * m_limits.Rate));
    e.byteTokens = float(std::min(m_limits.ByteBurst, double(e.byteTokens) + seconds * m_limits.ByteRate));
    e.lastMs = std::max(e.lastMs, nowMs);
}

FloodGate::Entry* FloodGate::Place(const Source& source, qint64 nowMs)
{
    const quint64 hash = Hash(source);
    Entry* chosen = nullptr;
    for (int i = 0; i < kWindow; ++i) {
        Entry& e = m_entries[(size_t(hash) + size_t(i)) & size_t(kCapacity - 1)];
        if (!e.used) {
            chosen = &e;
            ++m_used;
            break;
        }
        // Never the sources that hold a player, are blocked, or are being refused now.
        if (e.pins > 0 || e.candidate || e.blockedUntilMs > nowMs ||
            (e.windowRefused > 0 && nowMs - e.windowMs < 1000))
            continue;
        Refill(e, nowMs);
        if (!chosen || e.tokens > chosen->tokens || (e.tokens == chosen->tokens && e.lastMs < chosen->lastMs))
            chosen = &e;
    }
    if (!chosen) return nullptr;
    *chosen = Entry{};
    chosen->used = true;
    chosen->key = source;
    chosen->lastMs = nowMs;
    chosen->tokens = float(m_limits.Burst);
    chosen->byteTokens = float(m_limits.ByteBurst);
    m_tags[size_t(chosen - m_entries.data())] = TagOf(hash);
    return chosen;
}

FloodGate::Verdict FloodGate::Admit(const Source& source, qint64 bytes, qint64 nowMs)
{
    Entry* e = Find(source);
    if (!e) {
        // A source not seen lately is quiet. While the quiet strangers' share is spent, it is
        // refused before it takes a place: a spray of fresh addresses costs a look-up each.
        if (!AdmitStranger(true, nowMs)) {
            ++m_refused;
            return Verdict::OverStrangers;
        }
        if ((e = Place(source, nowMs))) {
            e->tokens -= 1;
            e->byteTokens -= float(bytes);
        }
        return Verdict::Admit;
    }
    Refill(*e, nowMs);
    if (e->tokens < 1 || double(e->byteTokens) < double(bytes)) {
        Refuse(*e, nowMs);
        return Verdict::OverSource;
    }
    // Spent also when the strangers' share refuses it: it was sent all the same.
    e->tokens -= 1;
    e->byteTokens -= float(bytes);
    if (e->pins == 0 && !AdmitStranger(e->tokens + 1 >= float(m_limits.Burst) - kQuiet, nowMs)) {
        ++m_refused;
        return Verdict::OverStrangers;
    }
    return Verdict::Admit;
}

void FloodGate::Refuse(Entry& e, qint64 nowMs)
{
    ++m_refused;
    if (e.reportEpoch != m_epoch) {
        e.reportEpoch = m_epoch;
        e.reportRefused = 0;
    }
    ++e.reportRefused;
    if (m_worst >= m_entries.size() || m_entries[m_worst].reportEpoch != m_epoch ||
        e.reportRefused > m_entries[m_worst].reportRefused)
        m_worst = size_t(&e - m_entries.data());
    if (nowMs - e.windowMs >= 1000) {
        e.windowMs = nowMs;
        e.windowRefused = 0;
    }
    // A player's address is only ever limited: whoever spoofs it must not get it blocked for longer.
    if (++e.windowRefused == quint32(m_limits.BlockAfter) && !e.candidate && e.pins == 0) {
        e.candidate = true;
        m_candidates.push_back(size_t(&e - m_entries.data()));
    }
}

bool FloodGate::AdmitStranger(bool quiet, qint64 nowMs)
{
    const double seconds = double(std::max<qint64>(0, nowMs - m_strangerMs)) / 1000.0;
    const double lane = m_limits.StrangerRate / 2;
    m_busyTokens = std::min(lane, m_busyTokens + seconds * lane);
    m_quietTokens = std::min(lane, m_quietTokens + seconds * lane);
    m_strangerMs = std::max(m_strangerMs, nowMs);
    double& tokens = quiet ? m_quietTokens : m_busyTokens;
    if (tokens < 1) return false;
    tokens -= 1;
    return true;
}

bool FloodGate::TakeBlockCandidate(Source* source, int* strikes)
{
    while (!m_candidates.empty()) {
        Entry& e = m_entries[m_candidates.back()];
        m_candidates.pop_back();
        if (!e.used || !e.candidate) continue;
        e.candidate = false;
        if (e.blockedUntilMs != 0 && e.lastMs - e.blockedUntilMs > kStrikesForgottenMs) e.strikes = 0;
        *source = e.key;
        *strikes = e.strikes;
        e.strikes = quint8(std::min(kMaxStrikes, e.strikes + 1));
        return true;
    }
    return false;
}

void FloodGate::SetBlockedUntil(const Source& source, qint64 untilMs)
{
    if (Entry* e = Find(source)) {
        e->blockedUntilMs = untilMs;
        // Back from a block, the source starts with what it had: nothing.
        e->windowRefused = 0;
    }
}

void FloodGate::Pin(const Source& source, qint64 nowMs)
{
    Entry* e = Find(source);
    if (!e) e = Place(source, nowMs);
    if (e && e->pins < std::numeric_limits<quint16>::max()) ++e->pins;
}

void FloodGate::Unpin(const Source& source)
{
    if (Entry* e = Find(source); e && e->pins > 0) --e->pins;
}

FloodGate::Report FloodGate::TakeReport()
{
    Report report;
    report.Refused = m_refused;
    if (m_worst < m_entries.size() && m_entries[m_worst].used && m_entries[m_worst].reportEpoch == m_epoch) {
        report.Worst = m_entries[m_worst].key;
        report.WorstRefused = m_entries[m_worst].reportRefused;
    }
    m_refused = 0;
    m_worst = SIZE_MAX;
    ++m_epoch;
    return report;
}

} // namespace linkhop::server
