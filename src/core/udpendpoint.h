#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QHostAddress>
#include <QList>
#include <QNetworkDatagram>
#include <QObject>
#include <QString>

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

    // Datagrams handled per event-loop turn before the rest wait for the next turn, so that a
    // flood cannot hold the event loop; a turn also ends once its handlers have taken kBatchMs.
    static constexpr int kBatch = 64;
    static constexpr int kBatchMs = 10;
    // Received datagrams waiting for their turn; a flood beyond this is dropped.
    static constexpr qsizetype kInboxLimitBytes = 8 << 20;
    // A datagram that has waited this long for its turn is dropped unhandled: however far a
    // flood outruns the handlers, what arrives after it is handled at most this late.
    static constexpr int kInboxMaxAgeMs = 1000;

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
    void Drain();
    void ScheduleDelivery();
    void Deliver();
    void FlushQueue();
    void ReportSocketError();
    struct Received
    {
        QNetworkDatagram datagram;
        qint64 atMs; // on m_clock
    };
    QUdpSocket* m_socket = nullptr;
    QElapsedTimer m_clock;
    QList<Received> m_inbox;
    qsizetype m_inboxBytes = 0;
    bool m_deliveryScheduled = false;
    QHash<QString, QHostAddress> m_resolved;
    QList<Pending> m_queue;
    int m_lookupId = -1;
};

} // namespace linkhop
