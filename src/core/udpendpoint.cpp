#include "udpendpoint.h"

#include "wire.h"

#include <QDeadlineTimer>
#include <QHostInfo>
#include <QNetworkDatagram>
#include <QPointer>
#include <QSet>
#include <QTimer>
#include <QUdpSocket>
#include <QVariant>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

// Socket errors carry the numbers players know from other network programs.
int ErrorNumber(QAbstractSocket::SocketError error)
{
    switch (error) {
    case QAbstractSocket::HostNotFoundError: return 11001;
    case QAbstractSocket::ConnectionRefusedError: return 10061;
    case QAbstractSocket::AddressInUseError: return 10048;
    case QAbstractSocket::SocketAccessError: return 10013;
    case QAbstractSocket::DatagramTooLargeError: return 10040;
    case QAbstractSocket::NetworkError: return 10050;
    case QAbstractSocket::SocketResourceError: return 10055;
    case QAbstractSocket::UnsupportedSocketOperationError: return 10045;
    default: return 10000 + int(error);
    }
}

QHostAddress FirstIPv4(const QHostInfo& info)
{
    for (const QHostAddress& address : info.addresses())
        if (address.protocol() == QAbstractSocket::IPv4Protocol) return address;
    return {};
}

// ::ffff:a.b.c.d is a.b.c.d: one form for the sources a reply may come from. "::" stays what it is.
QHostAddress Plain(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 && v4 != 0 ? QHostAddress(v4) : address;
}

} // namespace

UdpEndpoint::UdpEndpoint(QObject* parent) : QObject(parent), m_socket(new QUdpSocket(this))
{
    // Datagrams are read as soon as the socket has them, but handed over from a queued call,
    // never from inside readyRead: a handler that lets events run (waiting for a page) then still
    // receives the datagrams arriving meanwhile, which readyRead, never raised recursively, would
    // hold back.
    connect(m_socket, &QUdpSocket::readyRead, this, &UdpEndpoint::Drain);
    connect(m_socket, &QUdpSocket::errorOccurred, this, &UdpEndpoint::ReportSocketError);
}

UdpEndpoint::~UdpEndpoint()
{
    if (m_lookupId >= 0) QHostInfo::abortHostLookup(m_lookupId);
}

bool UdpEndpoint::Bind(const QString& port, const QHostAddress& address)
{
    bool ok = false;
    const uint number = port.toUInt(&ok);
    if (!ok || number == 0 || number > 65535) return false;
    if (m_socket->state() != QAbstractSocket::UnconnectedState) m_socket->close();
    // No address sharing: a port held by anyone else must fail to bind here.
    if (!m_socket->bind(address, quint16(number), QAbstractSocket::DontShareAddress)) return false;
    // Room for bursts (a round's start, a flood) while the event loop is busy elsewhere.
    m_socket->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, QVariant(1 << 20));
    return true;
}

int UdpEndpoint::State() const { return int(m_socket->state()); }

quint16 UdpEndpoint::LocalPort() const { return m_socket->localPort(); }

void UdpEndpoint::Close()
{
    m_socket->close();
    m_inbox.clear();
    m_inboxBytes = 0;
    m_reserveBytes = 0;
    m_queue.clear();
    m_sources.clear();
    if (m_lookupId >= 0) QHostInfo::abortHostLookup(m_lookupId);
    m_lookupId = -1;
}

void UdpEndpoint::AcceptFrom(const QHostAddress& address, quint16 port)
{
    m_sources.insert({Plain(address), port});
}

void UdpEndpoint::SetHostAddress(const QString& host, const QHostAddress& address)
{
    m_resolved.insert(host.trimmed().toLower(), address);
}

qintptr UdpEndpoint::SocketDescriptor() const { return m_socket->socketDescriptor(); }

bool UdpEndpoint::Accepts(const QNetworkDatagram& datagram) const
{
    return !m_repliesOnly ||
           m_sources.contains({Plain(datagram.senderAddress()), quint16(datagram.senderPort())});
}

void UdpEndpoint::SendData(const QString& text)
{
    m_queue.append({RemoteHost, RemotePort, ToWire(text)});
    FlushQueue();
}

void UdpEndpoint::SendTo(const QString& text, const QHostAddress& address, quint16 port)
{
    if (m_repliesOnly) AcceptFrom(address, port);
    m_socket->writeDatagram(ToWire(text), address, port);
}

void UdpEndpoint::FlushQueue()
{
    while (!m_queue.isEmpty() && m_lookupId < 0) {
        const Pending& next = m_queue.front();
        QHostAddress address;
        if (address.setAddress(next.host.trimmed())) {
            // A literal address: send as it is.
        } else if (auto it = m_resolved.constFind(next.host.trimmed().toLower()); it != m_resolved.cend()) {
            address = *it;
        } else {
            const QString name = next.host.trimmed().toLower();
            if (name.isEmpty()) {
                m_queue.removeFirst();
                Q_EMIT Error(11001, u"Host not found"_s);
                continue;
            }
            QPointer<UdpEndpoint> self(this);
            m_lookupId = QHostInfo::lookupHost(name, this, [self, name](const QHostInfo& info) {
                if (!self) return;
                self->m_lookupId = -1;
                const QHostAddress found = FirstIPv4(info);
                if (found.isNull()) {
                    // Drop every queued datagram for the name that failed.
                    self->m_queue.removeIf([&](const Pending& p) { return p.host.trimmed().toLower() == name; });
                    Q_EMIT self->Error(11001, u"Host not found: "_s + name);
                } else {
                    self->m_resolved.insert(name, found);
                }
                self->FlushQueue();
            });
            return;
        }
        // The socket is IPv4: ::ffff:a.b.c.d goes to a.b.c.d, and replies come from there.
        address = Plain(address);
        if (address.protocol() == QAbstractSocket::IPv6Protocol) {
            m_queue.removeFirst();
            Q_EMIT Error(10047, u"Address family not supported: "_s + address.toString());
            continue;
        }
        const Pending datagram = m_queue.takeFirst();
        if (m_repliesOnly) AcceptFrom(address, datagram.port);
        m_socket->writeDatagram(datagram.bytes, address, datagram.port);
    }
}

void UdpEndpoint::Drain()
{
    while (m_socket->hasPendingDatagrams()) {
        QNetworkDatagram datagram = m_socket->receiveDatagram();
        if (!datagram.isValid()) continue;
        if (!Accepts(datagram)) {
            ++m_strangers;
            continue;
        }
        Triage triage = m_triage ? m_triage(datagram.data()) : Triage();
        const qsizetype cost = datagram.data().size() + kEntryBytes;
        if (triage.kind == Triage::Kept) {
            // Beyond its reserve, a flood of datagrams that read as kept ones: the first stay.
            if (m_reserveBytes + cost > m_reserveLimit) continue;
            m_reserveBytes += cost;
        } else {
            if (m_inboxBytes + cost > m_inboxLimit) Shed();
            if (m_inboxBytes + cost > m_inboxLimit) continue; // larger than half the inbox
            m_inboxBytes += cost;
        }
        m_inbox.append({std::move(datagram), std::move(triage), cost});
    }
    ScheduleDelivery();
}

void UdpEndpoint::Shed()
{
    // Down to half the inbox at once, so that a flood costs one pass over it per half inbox.
    qsizetype excess = m_inboxBytes - m_inboxLimit / 2;
    QList<bool> go(m_inbox.size(), false);
    // From the newest back: a Latest datagram goes when a later one of its key follows it with no
    // kept datagram between them.
    QSet<QString> later;
    for (qsizetype i = m_inbox.size() - 1; i >= 0 && excess > 0; --i) {
        const Received& r = m_inbox[i];
        if (r.triage.kind == Triage::Kept) {
            later.clear();
        } else if (r.triage.kind == Triage::Latest) {
            if (later.contains(r.triage.key)) {
                go[i] = true;
                excess -= r.cost;
            } else {
                later.insert(r.triage.key);
            }
        }
    }
    // Then the oldest expendable ones, then the oldest of the rest.
    for (const Triage::Kind kind : {Triage::Expendable, Triage::Latest}) {
        for (qsizetype i = 0; i < m_inbox.size() && excess > 0; ++i) {
            if (go[i] || m_inbox[i].triage.kind != kind) continue;
            go[i] = true;
            excess -= m_inbox[i].cost;
        }
    }
    qsizetype i = 0;
    m_inbox.removeIf([&](const Received& r) {
        if (!go[i++]) return false;
        m_inboxBytes -= r.cost;
        return true;
    });
}

void UdpEndpoint::ScheduleDelivery()
{
    if (m_deliveryScheduled || m_inbox.isEmpty()) return;
    m_deliveryScheduled = true;
    QMetaObject::invokeMethod(this, &UdpEndpoint::Deliver, Qt::QueuedConnection);
}

void UdpEndpoint::Deliver()
{
    m_deliveryScheduled = false;
    QPointer<UdpEndpoint> self(this);
    // Handlers that take long (a long chat line, a long roster to show) count by time as well.
    const QDeadlineTimer turn(kBatchMs, Qt::PreciseTimer);
    for (int handled = 0; handled < kBatch && !turn.hasExpired() && !m_inbox.isEmpty(); ++handled) {
        const Received next = m_inbox.takeFirst();
        (next.triage.kind == Triage::Kept ? m_reserveBytes : m_inboxBytes) -= next.cost;
        const QNetworkDatagram& datagram = next.datagram;
        // The rest follow after other events had their turn, or nested when this handler lets
        // events run.
        ScheduleDelivery();
        Q_EMIT DataArrival(FromWire(datagram.data()), datagram.senderAddress(), quint16(datagram.senderPort()));
        if (!self) return;
    }
    ScheduleDelivery();
}

void UdpEndpoint::ReportSocketError()
{
    Q_EMIT Error(ErrorNumber(m_socket->error()), m_socket->errorString());
}

} // namespace linkhop
