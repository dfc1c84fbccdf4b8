#include "serversocket.h"

#include "core/wire.h"

#include <QLocale>
#include <QNetworkInterface>
#include <QSocketNotifier>
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

// Bytes the network adds to each datagram, counted by the limits so that empty datagrams cost too.
constexpr qint64 kV4Headers = 20 + 8;
constexpr qint64 kV6Headers = 40 + 8;
// Room in the kernel for a burst while the event loop is busy; more where the system allows it.
constexpr int kReceiveBuffer = 4 << 20;
constexpr int kSendBuffer = 1 << 20;
constexpr qint64 kLocalAddressesMs = 30000; // how long the list of this machine's addresses is kept
constexpr int kBlockLinesPerReport = 10;
// Room for a datagram's destination address, as ancillary data of either family.
constexpr size_t kControl = CMSG_SPACE(sizeof(in_pktinfo)) + CMSG_SPACE(sizeof(in6_pktinfo));

QHostAddress PlainAddress(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 && address.protocol() != QAbstractSocket::IPv4Protocol ? QHostAddress(v4) : address;
}

QString Count(quint64 n)
{
    return QLocale::c().toString(n);
}

sock_filter Statement(quint16 code, quint32 k)
{
    return sock_filter{code, 0, 0, k};
}
sock_filter Jump(quint16 code, quint32 k, quint8 jt, quint8 jf)
{
    return sock_filter{code, jt, jf, k};
}

// One socket address for `address`, in the socket's own family; false when it has none there.
bool ToSockAddr(const QHostAddress& address, quint16 port, bool dualStack, sockaddr_storage* out,
                socklen_t* length)
{
    std::memset(out, 0, sizeof *out);
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    if (!dualStack) {
        if (!isV4) return false;
        auto* sin = reinterpret_cast<sockaddr_in*>(out);
        sin->sin_family = AF_INET;
        sin->sin_port = htons(port);
        sin->sin_addr.s_addr = htonl(v4);
        *length = sizeof(sockaddr_in);
        return true;
    }
    auto* sin6 = reinterpret_cast<sockaddr_in6*>(out);
    sin6->sin6_family = AF_INET6;
    sin6->sin6_port = htons(port);
    if (isV4) {
        // IPv4 through the dual-stack socket: ::ffff:a.b.c.d
        sin6->sin6_addr.s6_addr[10] = sin6->sin6_addr.s6_addr[11] = 0xff;
        const quint32 big = htonl(v4);
        std::memcpy(&sin6->sin6_addr.s6_addr[12], &big, 4);
    } else {
        const Q_IPV6ADDR bytes = address.toIPv6Address();
        std::memcpy(&sin6->sin6_addr, bytes.c, 16);
    }
    *length = sizeof(sockaddr_in6);
    return true;
}

} // namespace

ServerSocket::ServerSocket(const FloodLimits& limits, int maxDatagram, QObject* parent)
    : QObject(parent), m_gate(limits), m_maxDatagram(maxDatagram), m_messages(kBatch), m_vectors(kBatch),
      m_names(kBatch), m_buffer(size_t(kBatch) * size_t(maxDatagram + 1)),
      m_controls(size_t(kBatch) * kControl)
{
    m_clock.start();
    for (int i = 0; i < kBatch; ++i) {
        m_vectors[size_t(i)] =
            iovec{m_buffer.data() + size_t(i) * size_t(maxDatagram + 1), size_t(maxDatagram + 1)};
        std::memset(&m_messages[size_t(i)], 0, sizeof(mmsghdr));
        m_messages[size_t(i)].msg_hdr.msg_iov = &m_vectors[size_t(i)];
        m_messages[size_t(i)].msg_hdr.msg_iovlen = 1;
        m_messages[size_t(i)].msg_hdr.msg_name = &m_names[size_t(i)];
        m_messages[size_t(i)].msg_hdr.msg_control = m_controls.data() + size_t(i) * kControl;
    }
    m_unblock.setSingleShot(true);
    connect(&m_unblock, &QTimer::timeout, this, [this] { ExpireBlocks(NowMs()); });
}

ServerSocket::~ServerSocket()
{
    Close();
}

bool ServerSocket::Bind(const QHostAddress& address, quint16 port)
{
    Close();
    const bool dualStack = address.protocol() != QAbstractSocket::IPv4Protocol;
    const int fd = socket(dualStack ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    if (dualStack) {
        // QHostAddress::Any takes both families; a given IPv6 address only its own.
        const int v6Only = address == QHostAddress(QHostAddress::Any) ? 0 : 1;
        setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &v6Only, sizeof v6Only);
    }
    sockaddr_storage local{};
    socklen_t length = 0;
    const QHostAddress bindTo =
        address == QHostAddress(QHostAddress::Any) ? QHostAddress(QHostAddress::AnyIPv6) : address;
    // No SO_REUSEADDR: a port that another socket holds must fail to bind here.
    if (!ToSockAddr(bindTo, port, dualStack, &local, &length) ||
        bind(fd, reinterpret_cast<const sockaddr*>(&local), length) != 0) {
        close(fd);
        return false;
    }
    // Beyond the system's limit where the server may, otherwise as far as the limit goes.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBuffer, sizeof kReceiveBuffer) != 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &kReceiveBuffer, sizeof kReceiveBuffer);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    // Bound to every address: learn where each datagram was sent, to answer from there.
    m_anyAddress =
        bindTo == QHostAddress(QHostAddress::AnyIPv4) || bindTo == QHostAddress(QHostAddress::AnyIPv6);
    if (m_anyAddress) {
        const int on = 1;
        if (dualStack)
            setsockopt(fd, IPPROTO_IPV6, IPV6_RECVPKTINFO, &on, sizeof on); // IPv4 ones too, as ::ffff:
        else
            setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on);
    }
    m_fd = fd;
    m_dualStack = dualStack;
    m_port = port;
    m_bound = address;
    m_notifier = new QSocketNotifier(qintptr(fd), QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &ServerSocket::Drain);
    return true;
}

void ServerSocket::Close()
{
    // Later: Close may run from a handler of a datagram that this notifier's signal delivered.
    if (m_notifier) {
        m_notifier->setEnabled(false);
        m_notifier->deleteLater();
    }
    m_notifier = nullptr;
    if (m_fd >= 0) close(m_fd);
    m_fd = -1;
    m_blocked.clear();
    m_unblock.stop();
    m_reached.clear();
    m_anyAddress = false;
}

quint64 ServerSocket::KernelDrops() const
{
    quint32 info[SK_MEMINFO_VARS] = {};
    socklen_t length = sizeof info;
    if (m_fd < 0 || getsockopt(m_fd, SOL_SOCKET, SO_MEMINFO, info, &length) != 0) return 0;
    return info[SK_MEMINFO_DROPS];
}

void ServerSocket::Drain()
{
    const qint64 start = NowMs();
    while (m_fd >= 0) {
        for (int i = 0; i < kBatch; ++i) {
            m_messages[size_t(i)].msg_hdr.msg_namelen = sizeof(sockaddr_storage);
            m_messages[size_t(i)].msg_hdr.msg_controllen = m_anyAddress ? kControl : 0;
            m_messages[size_t(i)].msg_hdr.msg_flags = 0;
        }
        // MSG_TRUNC: the length read is the datagram's own, also when it did not fit.
        const int n = recvmmsg(m_fd, m_messages.data(), kBatch, MSG_DONTWAIT | MSG_TRUNC, nullptr);
        if (n <= 0) break;
        const qint64 now = NowMs();
        for (int i = 0; i < n && m_fd >= 0; ++i)
            Take(i, now);
        BlockCandidates(now);
        if (n < kBatch || NowMs() - start >= kTurnMs) break;
    }
}

void ServerSocket::Take(int index, qint64 nowMs)
{
    const mmsghdr& message = m_messages[size_t(index)];
    const auto& name = m_names[size_t(index)];
    Source source;
    quint16 port = 0;
    qint64 headers = kV4Headers;
    if (name.ss_family == AF_INET) {
        const auto& sin = reinterpret_cast<const sockaddr_in&>(name);
        source = SourceOfV4(ntohl(sin.sin_addr.s_addr));
        port = ntohs(sin.sin_port);
    } else if (name.ss_family == AF_INET6) {
        const auto& sin6 = reinterpret_cast<const sockaddr_in6&>(name);
        quint8 bytes[16];
        std::memcpy(bytes, &sin6.sin6_addr, 16);
        source = SourceOfV6(bytes);
        port = ntohs(sin6.sin6_port);
        if (!source.IsV4()) headers = kV6Headers;
    } else {
        return;
    }
    m_received.fetch_add(1, std::memory_order_relaxed);
    const qint64 length = message.msg_len;
    if (m_gate.Admit(source, length + headers, nowMs) != FloodGate::Verdict::Admit) {
        m_refused.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    if ((message.msg_hdr.msg_flags & MSG_TRUNC) || length > m_maxDatagram) {
        ++m_oversized;
        return;
    }
    QHostAddress from(reinterpret_cast<const sockaddr*>(&name));
    if (bool isV4 = false; from.protocol() != QAbstractSocket::IPv4Protocol) {
        const quint32 v4 = from.toIPv4Address(&isV4);
        if (isV4) from = QHostAddress(v4);
    }
    // Nobody can be answered there; and the server's own endpoint is never a client.
    if (port == 0 || from.isMulticast() || from.isBroadcast() || from.isNull() ||
        from == QHostAddress(QHostAddress::AnyIPv4) || (port == m_port && IsLocal(from))) {
        ++m_own;
        return;
    }
    const char* data = static_cast<const char*>(message.msg_hdr.msg_iov->iov_base);
    m_speakingTo = LocalAddress{};
    if (m_anyAddress && DestinationOf(message, &m_speakingTo)) {
        m_speaking = from;
        // A player may come to another of this machine's addresses (its route changed): follow it.
        if (const auto it = m_reached.find({from, port}); it != m_reached.end()) it->to = m_speakingTo;
    }
    Q_EMIT Arrived(FromWire(QByteArrayView(data, length)), from, port);
    m_speaking.clear();
}

bool ServerSocket::DestinationOf(const mmsghdr& message, LocalAddress* to)
{
    auto& header = const_cast<msghdr&>(message.msg_hdr); // the macros take no const
    if (header.msg_flags & MSG_CTRUNC) return false;
    for (cmsghdr* c = CMSG_FIRSTHDR(&header); c; c = CMSG_NXTHDR(&header, c)) {
        if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
            in_pktinfo info;
            std::memcpy(&info, CMSG_DATA(c), sizeof info);
            // The local address that took the datagram; the same as its destination, unless that
            // was a broadcast address, which no answer can come from.
            *to = LocalAddress{};
            std::memcpy(to->bytes, &info.ipi_spec_dst, 4);
            return true;
        }
        if (c->cmsg_level == IPPROTO_IPV6 && c->cmsg_type == IPV6_PKTINFO) {
            in6_pktinfo info;
            std::memcpy(&info, CMSG_DATA(c), sizeof info);
            if (IN6_IS_ADDR_MULTICAST(&info.ipi6_addr)) return false;
            to->v6 = !IN6_IS_ADDR_V4MAPPED(&info.ipi6_addr);
            if (to->v6)
                std::memcpy(to->bytes, &info.ipi6_addr, 16);
            else
                std::memcpy(to->bytes, &info.ipi6_addr.s6_addr[12], 4);
            return true;
        }
    }
    return false;
}

ServerSocket::Sent ServerSocket::SendTo(QByteArrayView bytes, const QHostAddress& to, quint16 port)
{
    if (m_fd < 0 || port == 0) return Sent::Failed;
    if (port == m_port && IsLocal(to)) return Sent::Own;
    sockaddr_storage address{};
    socklen_t length = 0;
    if (!ToSockAddr(to, port, m_dualStack, &address, &length)) return Sent::Failed;
    if (m_anyAddress) {
        // A player's seat first: its address may hold other clients, that reach other addresses.
        const LocalAddress* from = nullptr;
        if (const auto it = m_reached.constFind({to, port}); it != m_reached.cend())
            from = &it->to;
        else if (!m_speaking.isNull() && to == m_speaking)
            from = &m_speakingTo; // an answer to the datagram being handled, at whatever port
        if (from && SendFrom(bytes, address, length, *from)) return Sent::Ok;
    }
    const ssize_t sent = sendto(m_fd, bytes.data(), size_t(bytes.size()), MSG_DONTWAIT,
                                reinterpret_cast<const sockaddr*>(&address), length);
    return sent == bytes.size() ? Sent::Ok : Sent::Failed;
}

bool ServerSocket::SendFrom(QByteArrayView bytes, const sockaddr_storage& address, unsigned length,
                            const LocalAddress& from)
{
    alignas(cmsghdr) char control[kControl] = {};
    iovec vector{const_cast<char*>(bytes.data()), size_t(bytes.size())};
    msghdr header{};
    header.msg_name = const_cast<sockaddr_storage*>(&address);
    header.msg_namelen = length;
    header.msg_iov = &vector;
    header.msg_iovlen = 1;
    header.msg_control = control;
    cmsghdr* c = reinterpret_cast<cmsghdr*>(control);
    if (!m_dualStack) {
        in_pktinfo info{};
        std::memcpy(&info.ipi_spec_dst, from.bytes, 4);
        c->cmsg_level = IPPROTO_IP;
        c->cmsg_type = IP_PKTINFO;
        c->cmsg_len = CMSG_LEN(sizeof info);
        std::memcpy(CMSG_DATA(c), &info, sizeof info);
        header.msg_controllen = CMSG_SPACE(sizeof info);
    } else {
        // An IPv4 address through the dual-stack socket: ::ffff:a.b.c.d.
        in6_pktinfo info{};
        if (from.v6) {
            std::memcpy(&info.ipi6_addr, from.bytes, 16);
        } else {
            info.ipi6_addr.s6_addr[10] = info.ipi6_addr.s6_addr[11] = 0xff;
            std::memcpy(&info.ipi6_addr.s6_addr[12], from.bytes, 4);
        }
        c->cmsg_level = IPPROTO_IPV6;
        c->cmsg_type = IPV6_PKTINFO;
        c->cmsg_len = CMSG_LEN(sizeof info);
        std::memcpy(CMSG_DATA(c), &info, sizeof info);
        header.msg_controllen = CMSG_SPACE(sizeof info);
    }
    // An address gone meanwhile, or one the kernel will not send from (a link-local one without
    // its interface): the kernel's own choice then, as without the answer's address.
    return sendmsg(m_fd, &header, MSG_DONTWAIT) == bytes.size();
}

bool ServerSocket::IsLocal(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    const QHostAddress plain = isV4 ? QHostAddress(v4) : address;
    if (plain.isLoopback() || plain == m_bound) return true;
    const qint64 now = NowMs();
    if (m_localMs < 0 || now - m_localMs > kLocalAddressesMs) {
        m_local = QNetworkInterface::allAddresses();
        m_localMs = now;
    }
    return std::any_of(m_local.cbegin(), m_local.cend(), [&](const QHostAddress& local) {
        return local.isEqual(plain, QHostAddress::TolerantConversion);
    });
}

void ServerSocket::PlayerAt(const QHostAddress& address, quint16 port, bool present)
{
    const Source source = SourceOf(address);
    if (present)
        m_gate.Pin(source, NowMs());
    else
        m_gate.Unpin(source);
    if (!m_anyAddress) return;
    // A player is seated while its datagram is handled: where that datagram went is where the
    // player sends.
    const Peer peer{PlainAddress(address), port};
    if (present) {
        Reached& reached = m_reached[peer];
        if (peer.first == m_speaking) reached.to = m_speakingTo;
        ++reached.players;
    } else if (const auto it = m_reached.find(peer); it != m_reached.end() && --it->players <= 0) {
        m_reached.erase(it);
    }
}

void ServerSocket::BlockCandidates(qint64 nowMs)
{
    Source source;
    int strikes = 0;
    bool changed = false;
    while (m_gate.TakeBlockCandidate(&source, &strikes)) {
        const qint64 forMs = 1000LL << strikes;
        const auto sameFamily = [&](const Blocked& b) { return b.source.IsV4() == source.IsV4(); };
        const qsizetype v6 = std::count_if(m_blocked.cbegin(), m_blocked.cend(),
                                           [](const Blocked& b) { return !b.source.IsV4(); });
        if (m_blocked.size() >= kMaxBlocked || (!source.IsV4() && v6 >= kMaxBlockedV6)) {
            // Full: the block of the same kind that would end soonest makes way.
            auto soonest = m_blocked.end();
            for (auto it = m_blocked.begin(); it != m_blocked.end(); ++it)
                if ((source.IsV4() || sameFamily(*it)) &&
                    (soonest == m_blocked.end() || it->untilMs < soonest->untilMs))
                    soonest = it;
            m_gate.SetBlockedUntil(soonest->source, 0);
            m_blocked.erase(soonest);
        }
        m_blocked.append(Blocked{source, nowMs + forMs});
        m_gate.SetBlockedUntil(source, nowMs + forMs);
        m_blocks.fetch_add(1, std::memory_order_relaxed);
        changed = true;
        if (m_blockLines < kBlockLinesPerReport) {
            ++m_blockLines;
            Q_EMIT Event(u"flood: blocking %1 for %2 s (over its limits %3 times within a second)"_s
                             .arg(source.ToString())
                             .arg(forMs / 1000)
                             .arg(m_gate.BlockAfter()));
        } else {
            ++m_blockLinesLeft;
        }
    }
    if (changed) InstallFilter();
}

void ServerSocket::ExpireBlocks(qint64 nowMs)
{
    const qsizetype before = m_blocked.size();
    m_blocked.removeIf([&](const Blocked& b) { return b.untilMs <= nowMs; });
    if (m_blocked.size() != before) InstallFilter();
}

void ServerSocket::InstallFilter()
{
    m_unblock.stop();
    if (m_fd < 0) return;
    if (m_blocked.isEmpty()) {
        setsockopt(m_fd, SOL_SOCKET, SO_DETACH_FILTER, nullptr, 0);
        return;
    }
    qint64 soonest = std::numeric_limits<qint64>::max();
    for (const Blocked& b : std::as_const(m_blocked))
        soonest = std::min(soonest, b.untilMs);
    m_unblock.start(int(std::clamp<qint64>(soonest - NowMs(), 0, 3600 * 1000)));

    // Offsets from the network header: the IPv4 source address, and the first half of the IPv6 one.
    constexpr quint32 kNet = quint32(SKF_NET_OFF);
    const sock_filter drop = Statement(BPF_RET | BPF_K, 0);
    const sock_filter keep = Statement(BPF_RET | BPF_K, 0xffffffffu);
    std::vector<sock_filter> v4{Statement(BPF_LD | BPF_W | BPF_ABS, kNet + 12)};
    std::vector<sock_filter> v6;
    for (const Blocked& b : std::as_const(m_blocked)) {
        if (b.source.IsV4()) {
            v4.push_back(Jump(BPF_JMP | BPF_JEQ | BPF_K, b.source.V4(), 0, 1));
            v4.push_back(drop);
        } else {
            v6.push_back(Statement(BPF_LD | BPF_W | BPF_ABS, kNet + 8));
            v6.push_back(Jump(BPF_JMP | BPF_JEQ | BPF_K, quint32(b.source.High >> 32), 0, 3));
            v6.push_back(Statement(BPF_LD | BPF_W | BPF_ABS, kNet + 12));
            v6.push_back(Jump(BPF_JMP | BPF_JEQ | BPF_K, quint32(b.source.High), 0, 1));
            v6.push_back(drop);
        }
    }
    v4.push_back(keep);
    v6.push_back(keep);
    std::vector<sock_filter> program;
    if (m_dualStack) {
        // The IP version decides which addresses to look at: IPv4 datagrams reach an IPv6 socket too.
        program.push_back(Statement(BPF_LD | BPF_B | BPF_ABS, kNet));
        program.push_back(Statement(BPF_ALU | BPF_RSH | BPF_K, 4));
        program.push_back(Jump(BPF_JMP | BPF_JEQ | BPF_K, 6, 0, quint8(v6.size())));
        program.insert(program.end(), v6.begin(), v6.end());
    }
    program.insert(program.end(), v4.begin(), v4.end());
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (setsockopt(m_fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) != 0)
        Q_EMIT Event(u"flood: the kernel refused the socket filter (%1); the limits still apply"_s.arg(
            QString::fromLocal8Bit(std::strerror(errno))));
}

QStringList ServerSocket::TakeReport()
{
    QStringList lines;
    const FloodGate::Report report = m_gate.TakeReport();
    if (report.Refused > 0) {
        QString line = u"flood: refused %1 datagrams over the limits"_s.arg(Count(report.Refused));
        if (report.WorstRefused > 0)
            line += u", %1 of them from %2"_s.arg(Count(report.WorstRefused), report.Worst.ToString());
        lines.append(line);
    }
    if (m_blockLinesLeft > 0) lines.append(u"flood: %1 more sources blocked"_s.arg(Count(m_blockLinesLeft)));
    if (m_oversized > 0)
        lines.append(
            u"refused %1 datagrams longer than %2 bytes"_s.arg(Count(m_oversized)).arg(m_maxDatagram));
    if (m_own > 0)
        lines.append(u"ignored %1 datagrams from the server's own endpoint or from no usable address"_s.arg(
            Count(m_own)));
    m_blockLines = 0;
    m_blockLinesLeft = 0;
    m_oversized = 0;
    m_own = 0;
    return lines;
}

} // namespace linkhop::server
