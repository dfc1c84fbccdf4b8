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

    // A key for each received datagram, from its bytes on the wire. A later datagram with the
    // same non-empty key supersedes an earlier one when only keyed datagrams come between them:
    // handling the later one alone leaves the same state as handling both. Every other datagram
    // has the empty key.
    using SupersedeKey = std::function<QString(QByteArrayView datagram)>;
    void SetSupersedeKey(SupersedeKey key) { m_supersedeKey = std::move(key); }

    // Datagrams handled per event-loop turn before the rest wait for the next turn, so that a
    // flood cannot hold the event loop; a turn also ends once its handlers have taken kBatchMs.
    // Every datagram read is handled, however long it waits for its turn.
    static constexpr int kBatch = 64;
    static constexpr int kBatchMs = 10;
    // Received datagrams waiting for their turn, by their bytes on the wire. When a flood fills
    // the inbox, the waiting datagrams that later ones supersede make room; only what nothing
    // supersedes is dropped beyond it. Tests shorten it.
    static constexpr qsizetype kInboxLimitBytes = 8 << 20;
    void SetInboxLimit(qsizetype bytes) { m_inboxLimit = bytes; }

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
        QString key; // empty unless a later datagram may supersede it
    };
    void Drain();
    void Shed();
    void ScheduleDelivery();
    void Deliver();
    void FlushQueue();
    void ReportSocketError();
    bool Accepts(const QNetworkDatagram& datagram) const;
    QUdpSocket* m_socket = nullptr;
    QList<Received> m_inbox;
    qsizetype m_inboxBytes = 0;
    qsizetype m_inboxLimit = kInboxLimitBytes;
    // After shedding that left the inbox nearly full, what the handlers take from it before the
    // next attempt: shedding that frees little does not run again and again for nothing.
    qsizetype m_shedAfterBytes = 0;
    SupersedeKey m_supersedeKey;
    bool m_deliveryScheduled = false;
    QHash<QString, QHostAddress> m_resolved;
    bool m_repliesOnly = false;
    QSet<std::pair<QHostAddress, quint16>> m_sources; // those a reply may come from
    quint64 m_strangers = 0;
    QList<Pending> m_queue;
    int m_lookupId = -1;
};

} // namespace linkhop
