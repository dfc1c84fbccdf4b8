#pragma once

#include "floodgate.h"

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QTimer>
#include <atomic>
#include <utility>
#include <vector>

class QSocketNotifier;
struct mmsghdr;
struct iovec;
struct sockaddr_storage;

namespace linkhop::server {

// The server's UDP socket. Reads datagrams in batches straight from the kernel and weighs each
// against its source's limits before anything else is done with it: a refused datagram costs one
// table look-up and is never decoded or queued. A source that keeps sending far over its limits
// is blocked in the kernel for a while (a socket filter), so that a flood from it no longer
// reaches the server at all. Never talks to its own endpoint. Bound to every address of a machine
// that has several, it answers each client from the address that client sent to.
class ServerSocket final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ServerSocket)

public:
    ServerSocket(const FloodLimits& limits, int maxDatagram, QObject* parent = nullptr);
    ~ServerSocket() override;

    // Binds `port` on `address` exclusively; false when another socket holds it.
    bool Bind(const QHostAddress& address, quint16 port);
    void Close();

    enum class Sent
    {
        Ok,
        Own,   // refused: the server's own endpoint
        Failed // the kernel refused it (no room in the send buffer, no route)
    };
    Sent SendTo(QByteArrayView bytes, const QHostAddress& to, quint16 port);

    // A player's address and port: the address is kept by the limits, and not counted with the
    // strangers; what the player is sent leaves from the address it sends to.
    void PlayerAt(const QHostAddress& address, quint16 port, bool present);

    // Lines for the log about what the limits refused and blocked since the last call.
    QStringList TakeReport();

    // Read by benchmarks from another thread.
    quint64 Received() const { return m_received.load(std::memory_order_relaxed); }
    quint64 Refused() const { return m_refused.load(std::memory_order_relaxed); }
    quint64 Blocks() const { return m_blocks.load(std::memory_order_relaxed); }
    // Datagrams the kernel dropped for this socket: blocked sources and a full receive buffer.
    quint64 KernelDrops() const;

    static constexpr int kBatch = 64; // datagrams per read from the kernel
    static constexpr int kTurnMs = 5; // then other events have their turn
    // Sources blocked at once; of them IPv6 networks, which take more of the filter.
    static constexpr int kMaxBlocked = 256;
    static constexpr int kMaxBlockedV6 = 48;

Q_SIGNALS:
    void Arrived(const QString& text, const QHostAddress& from, quint16 port);
    void Event(const QString& line);

private:
    struct Blocked
    {
        Source source;
        qint64 untilMs;
    };
    // One of this machine's addresses, as a datagram's destination: IPv4 in the first 4 bytes.
    struct LocalAddress
    {
        bool v6 = false;
        quint8 bytes[16] = {};
    };
    struct Reached // where a player sends to
    {
        LocalAddress to;
        int players = 0; // at this endpoint: 1, unless a room seats one endpoint twice
    };
    using Peer = std::pair<QHostAddress, quint16>;
    static bool DestinationOf(const mmsghdr& message, LocalAddress* to);
    bool SendFrom(QByteArrayView bytes, const sockaddr_storage& address, unsigned length,
                  const LocalAddress& from);
    void Drain();
    void Take(int index, qint64 nowMs);
    void BlockCandidates(qint64 nowMs);
    void ExpireBlocks(qint64 nowMs);
    void InstallFilter();
    bool IsLocal(const QHostAddress& address);
    qint64 NowMs() const { return m_clock.elapsed(); }

    FloodGate m_gate;
    int m_maxDatagram;
    int m_fd = -1;
    bool m_dualStack = false;
    quint16 m_port = 0;
    QHostAddress m_bound;
    QSocketNotifier* m_notifier = nullptr;
    QElapsedTimer m_clock;
    QTimer m_unblock;

    std::vector<mmsghdr> m_messages;
    std::vector<iovec> m_vectors;
    std::vector<sockaddr_storage> m_names;
    std::vector<char> m_buffer;
    std::vector<char> m_controls; // each datagram's destination address

    // Bound to every address: each answer leaves from the address its client sent to, which the
    // kernel, choosing by route, would not always pick.
    bool m_anyAddress = false;
    QHostAddress m_speaking;   // the source of the datagram being handled
    LocalAddress m_speakingTo; // and where it was sent
    QHash<Peer, Reached> m_reached;

    QList<Blocked> m_blocked;
    QList<QHostAddress> m_local;
    qint64 m_localMs = -1;
    int m_blockLines = 0;
    quint64 m_blockLinesLeft = 0;

    std::atomic<quint64> m_received{0};
    std::atomic<quint64> m_refused{0};
    std::atomic<quint64> m_blocks{0};
    quint64 m_own = 0;
    quint64 m_oversized = 0;
};

} // namespace linkhop::server
