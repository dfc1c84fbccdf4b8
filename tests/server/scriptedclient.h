#pragma once

#include "core/localport.h"
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "core/version.h"
#include "core/wire.h"
#include "scriptedserver.h"

namespace linkhop::test {

inline QHostAddress OtherAddress() // "another machine": 127.200.0.<last octet of TestAddress()>
{
    return QHostAddress((127u << 24) | (200u << 16) | (TestAddress().toIPv4Address() & 0xFFu));
}

// A client played by the test: talks to the server at `server`:7200 (TestAddress() unless told)
// and reads in order every datagram that reaches it.
class ScriptedClient final
{
public:
    explicit ScriptedClient(quint16 port, const QHostAddress& address = TestAddress(),
                            const QHostAddress& server = TestAddress())
        : m_port(QString::number(port)), m_server(server)
    {
        QObject::connect(&m_endpoint, &UdpEndpoint::DataArrival, &m_endpoint,
                         [this](const QString& text) { m_received.append(text); });
        m_endpoint.Bind(m_port, address);
    }
    bool Bound() const { return m_endpoint.State() != 0; }
    const QString& PortText() const { return m_port; }
    void Send(const QString& text) { m_endpoint.SendTo(text, m_server, kServerPort); }
    void Skip() { m_read = m_received.size(); }

    QStringList Next(int n, int timeoutMs) // fewer on time-out
    {
        WaitUntil([&] { return m_received.size() >= m_read + n; }, timeoutMs);
        const QStringList texts = m_received.mid(m_read, n);
        m_read += texts.size();
        return texts;
    }
    QString Next(int timeoutMs = 3000) { return Next(1, timeoutMs).value(0); }
    QString NextWithVerb(const QString& verb, int timeoutMs = 3000)
    {
        QString text;
        while (!(text = Next(timeoutMs)).isEmpty() && Verb(text) != verb) {
        }
        return text;
    }
    QStringList Collect(int ms = 200)
    {
        WaitUntil([] { return false; }, ms);
        return Next(int(m_received.size() - m_read), 0);
    }

    // Connects and completes the handshake; returns every reply, "CONNECTACCEPT" to "PLAYERLIST".
    QStringList Join(const QString& name, const QString& password = {})
    {
        Send(msg::Connect(ClientVersion, name, m_port));
        QStringList replies{Next()};
        if (replies[0] == msg::NeedPassword()) {
            Send(msg::ConnectWithPassword(ClientVersion, name, password));
            replies = {Next()};
        }
        if (Verb(replies[0]) != verb::CONNECTACCEPT) return replies;
        Send(msg::GetPlayerList(m_port));
        while (Verb(replies.constLast()) != verb::PLAYERLIST && !replies.constLast().isEmpty())
            replies.append(Next());
        return replies;
    }

private:
    UdpEndpoint m_endpoint;
    QString m_port;
    QHostAddress m_server;
    QStringList m_received;
    qsizetype m_read = 0;
};

} // namespace linkhop::test
