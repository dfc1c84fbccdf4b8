#pragma once

#include <QHostAddress>
#include <QtGlobal>
#include <vector>

namespace linkhop::server {

// Where a datagram comes from, as the limits count it: one IPv4 address, or the /64 network of an
// IPv6 address, since one machine there commonly holds a whole /64. IPv4 addresses seen through a
// dual-stack socket (::ffff:a.b.c.d) are the same source as the plain address.
struct Source
{
    quint64 High = 0; // IPv6: the network; IPv4: 0
    quint64 Low = 0;  // IPv4: 0xffff'aabbccdd; IPv6: 0

    bool IsV4() const { return High == 0; }
    quint32 V4() const { return quint32(Low); }
    friend bool operator==(const Source& a, const Source& b) = default;
    QString ToString() const;
};
Source SourceOf(const QHostAddress& address);
Source SourceOfV4(quint32 address);
Source SourceOfV6(const quint8 (&bytes)[16]);

struct FloodLimits
{
    double Rate = 200;           // datagrams per second per source
    double Burst = 200;          // datagrams one source may send at once
    double ByteRate = 64 * 1024; // bytes per second per source, each datagram counted with its headers
    double ByteBurst = 128 * 1024;
    // Datagrams per second from all sources together that hold no player: a spray from fresh
    // addresses, each within its own limits, cannot take the room's whole time. Half of it is kept
    // for sources that have sent next to nothing lately, such as someone joining: busy strangers
    // cannot crowd them out.
    double StrangerRate = 5000;
    // A source refused this many datagrams within one second is blocked outright: a player sends a
    // few a second.
    int BlockAfter = 500;
};

// Token buckets per source, in datagrams and in bytes, in a table of fixed size: memory stays the
// same however many addresses send. When a new source finds no room, the source in its neighbourhood
// that has sent least lately gives up its place; sources refused lately, blocked or holding a player
// keep theirs.
class FloodGate final
{
    Q_DISABLE_COPY_MOVE(FloodGate)

public:
    enum class Verdict
    {
        Admit,
        OverSource,   // this source is over its own limits
        OverStrangers // every source without a player together is over its limit
    };
    static constexpr qsizetype kCapacity = 1 << 15;

    explicit FloodGate(const FloodLimits& limits, quint64 seed = 0);

    // Whether a datagram of `bytes` (payload and headers) from `source` may be handled; spends its
    // cost when it may.
    Verdict Admit(const Source& source, qint64 bytes, qint64 nowMs);
    // Sources refused BlockAfter datagrams within a second since the last call, each once, with
    // the number of blocks they had before.
    bool TakeBlockCandidate(Source* source, int* strikes);
    int BlockAfter() const { return m_limits.BlockAfter; }
    void SetBlockedUntil(const Source& source, qint64 untilMs);

    // A player at this source: it keeps its place in the table and does not count as a stranger.
    void Pin(const Source& source, qint64 nowMs);
    void Unpin(const Source& source);

    struct Report
    {
        quint64 Refused = 0; // since the last report
        Source Worst;        // the source refused most since the last report
        quint64 WorstRefused = 0;
    };
    Report TakeReport();
    qsizetype Tracked() const { return m_used; }

private:
    struct Entry
    {
        Source key;
        qint64 lastMs = 0;
        qint64 windowMs = 0;       // start of the second whose refusals windowRefused counts
        qint64 blockedUntilMs = 0; // blocked in the kernel until then
        float tokens = 0;
        float byteTokens = 0;
        quint32 windowRefused = 0;
        quint32 reportRefused = 0;
        quint32 reportEpoch = 0;
        quint16 pins = 0;
        quint8 strikes = 0; // blocks so far, each twice as long as the one before
        bool used = false;
        bool candidate = false;
    };
    static constexpr int kWindow = 16; // slots a source may occupy, from its hash on

    Entry* Find(const Source& source);
    Entry* Place(const Source& source, qint64 nowMs);
    void Refill(Entry& entry, qint64 nowMs) const;
    void Refuse(Entry& entry, qint64 nowMs);
    bool AdmitStranger(bool quiet, qint64 nowMs);
    quint64 Hash(const Source& source) const;

    FloodLimits m_limits;
    quint64 m_seed;
    std::vector<Entry> m_entries;
    // Beside each slot a few bits of its source's hash, 0 when free: most look-ups, those of fresh
    // sources above all, end in this one cache line without touching the entries.
    std::vector<quint32> m_tags;
    qsizetype m_used = 0;
    double m_busyTokens;
    double m_quietTokens;
    qint64 m_strangerMs = 0;
    std::vector<size_t> m_candidates;
    quint32 m_epoch = 1;
    quint64 m_refused = 0;
    size_t m_worst = SIZE_MAX;
};

} // namespace linkhop::server
