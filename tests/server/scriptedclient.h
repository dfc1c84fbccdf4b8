#pragma once

#include "core/udpendpoint.h"

#include <QHostAddress>
#include <QObject>
#include <QStringList>

namespace linkhop::test {

// A second loopback address for "another machine", distinct per test address: 127.200.0.<last
// octet of TestAddress()>.
QHostAddress OtherAddress();

// A client played by the test: a plain UDP socket that sends to the server at TestAddress():7200
// and keeps every datagram that reaches it, read in order.
class ScriptedClient final : public QObject
{
    Q_OBJECT

public:
    explicit ScriptedClient(quint16 port, const QHostAddress& address = QHostAddress());

    bool Bound() const { return m_bound; }
    quint16 Port() const { return m_port; }
    QString PortText() const { return QString::number(m_port); }

    void Send(const QString& text);
    // The next unread datagram, or empty text when none arrives in time.
    QString Next(int timeoutMs = 3000);
    // The next `n` unread datagrams (fewer on time-out).
    QStringList Next(int n, int timeoutMs);
    // The next unread datagram with this verb, skipping others; empty on time-out.
    QString NextWithVerb(const QString& verb, int timeoutMs = 3000);
    // Everything that arrives within `ms`, marked read.
    QStringList Collect(int ms = 200);
    void Skip() { m_read = m_received.size(); }
    const QStringList& Received() const { return m_received; }

    // The first form of "CONNECT" from this socket, announcing its own port.
    void Connect(const QString& name);
    // Connects and completes the handshake; returns every reply, "CONNECTACCEPT" to "PLAYERLIST".
    QStringList Join(const QString& name, const QString& password = {});

private:
    UdpEndpoint m_endpoint;
    QStringList m_received;
    qsizetype m_read = 0;
    quint16 m_port;
    bool m_bound = false;
};

} // namespace linkhop::test
