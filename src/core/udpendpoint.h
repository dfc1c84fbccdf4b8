#pragma once

#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QNetworkDatagram>
#include <QObject>
#include <QSet>
#include <QString>
#include <functional>
#include <utility>

class QUdpSocket;

namespace linkhop {

// One UDP socket: binds a local port exclusively, sends text datagrams to RemoteHost:RemotePort,
// and raises DataArrival once per received datagram. Text is Windows-1252 on the wire.
class UdpEndpoint final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UdpEndpoint)

public:
    explicit UdpEndpoint(QObject* parent = nullptr);
    ~UdpEndpoint() override;

    QString RemoteHost;
    quint16 RemotePort = 0;

    // Binds the port (decimal text) on all IPv4 addresses, or on `address` when given. Fails when
    // any other socket holds the port.
    bool Bind(const QString& port, const QHostAddress& address = QHostAddress::AnyIPv4);
    // 0 when closed.
    int State() const;
    quint16 LocalPort() const;
    void Close();

    // Sends one datagram to RemoteHost:RemotePort. A host name is resolved first, without
    // blocking; datagrams keep their order. A name that cannot be resolved raises Error.
    void SendData(const QString& text);
    void SendTo(const QString& text, const QHostAddress& address, quint16 port);

    // Replies only: a datagram is handed over only when it comes from an address and port that
    // this endpoint has sent to (a host name counts as the address it led to) or that AcceptFrom
    // named. Every other one is dropped where it is read, before it takes room in the inbox, and
    // counted in Strangers(). Off until set: anyone may speak. Close forgets the sources.
    void SetRepliesOnly(bool on) { m_repliesOnly = on; }
    void AcceptFrom(const QHostAddress& address, quint16 port);
    // Sends to `host` go to `address`, without asking the name service again.
    void SetHostAddress(const QString& host, const QHostAddress& address);
    quint64 Strangers() const { return m_strangers; }
    // The native socket, for a test that sends from this endpoint's address and port.
    qintptr SocketDescriptor() const;

    // What a received datagram is to its handlers, from its bytes on the wire, for when a flood
    // fills the inbox. Kept datagrams wait in a reserve of their own that nothing else can fill,
    // and are never let go. Of the others, a Latest datagram goes first when a later one of its key
    // follows it with no kept datagram between them (handling the later one alone leaves the same
    // state as handling both); then, oldest first, the Expendable ones; then the oldest Latest
    // ones. Without a triage every datagram is Expendable.
    struct Triage
    {
        enum Kind : quint8
        {
            Expendable,
            Latest,
            Kept,
        };
        Kind kind = Expendable;
        QString key; // of a Latest datagram
    };
    using Triager = std::function<Triage(QByteArrayView datagram)>;
    void SetTriage(Triager triage) { m_triage = std::move(triage); }

    // Datagrams handled per event-loop turn before the rest wait for the next turn, so that a
    // flood cannot hold the event loop; a turn also ends once its handlers have taken kBatchMs.
    // Every datagram read waits for its turn, however long that takes, unless a flood makes it go.
    static constexpr int kBatch = 64;
    static constexpr int kBatchMs = 10;
    // What waiting datagrams may hold, counted as their bytes on the wire and kEntryBytes each
    // (what keeping one costs besides its bytes): the kept ones in their reserve, the others in
    // the inbox. A full inbox lets go of the least needed until it is half full; a full reserve
    // takes no more kept datagrams until some are handled. Tests shorten both.
    static constexpr qsizetype kEntryBytes = 256;
    static constexpr qsizetype kInboxLimitBytes = 8 << 20;
    static constexpr qsizetype kReserveLimitBytes = 2 << 20;
    void SetInboxLimit(qsizetype bytes) { m_inboxLimit = bytes; }
    void SetReserveLimit(qsizetype bytes) { m_reserveLimit = bytes; }
    // What the waiting datagrams hold now, counted so.
    qsizetype InboxBytes() const { return m_inboxBytes; }
    qsizetype ReserveBytes() const { return m_reserveBytes; }

Q_SIGNALS:
    void DataArrival(const QString& text, const QHostAddress& sender, quint16 senderPort);
    void Error(int number, const QString& description);

private:
    struct Pending
    {
        QString host;
        quint16 port;
        QByteArray bytes;
    };
    struct Received
    {
        QNetworkDatagram datagram;
        Triage triage;
        qsizetype cost = 0; // its bytes and kEntryBytes
    };
    void Drain();
    void Shed();
    void ScheduleDelivery();
    void Deliver();
    void FlushQueue();
    void ReportSocketError();
    bool Accepts(const QNetworkDatagram& datagram) const;
    QUdpSocket* m_socket = nullptr;
    QList<Received> m_inbox; // in the order received, kept ones among the others
    qsizetype m_inboxBytes = 0;
    qsizetype m_reserveBytes = 0;
    qsizetype m_inboxLimit = kInboxLimitBytes;
    qsizetype m_reserveLimit = kReserveLimitBytes;
    Triager m_triage;
    bool m_deliveryScheduled = false;
    QHash<QString, QHostAddress> m_resolved;
    bool m_repliesOnly = false;
    QSet<std::pair<QHostAddress, quint16>> m_sources; // those a reply may come from
    quint64 m_strangers = 0;
    QList<Pending> m_queue;
    int m_lookupId = -1;
};

} // namespace linkhop
