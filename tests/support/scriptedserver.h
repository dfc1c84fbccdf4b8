#pragma once

#include "core/udpendpoint.h"

#include <QStringList>
#include <functional>

namespace linkhop::test {

// LINKHOP_TEST_ADDRESS, or 127.0.0.2 (the host dialog refuses 127.0.0.1).
QHostAddress TestAddress();

// Lets events run until `done` holds or `timeoutMs` passes; returns whether `done` held.
bool WaitUntil(const std::function<bool()>& done, int timeoutMs = 5000);

// A stand-in game server on TestAddress():7200: records every datagram and answers by verb.
class ScriptedServer final : public QObject
{
    Q_OBJECT

public:
    struct Datagram
    {
        QString text;
        quint16 port = 0;
    };
    using Script = std::function<QStringList(const Datagram&)>;

    ScriptedServer();
    bool Listen();
    QHostAddress Address() const { return TestAddress(); }

    // Answers every datagram with this verb by sending the returned texts back to its sender.
    void OnVerb(const QString& verb, Script script) { m_scripts.insert(verb, std::move(script)); }
    void OnVerb(const QString& verb, const QStringList& r)
    {
        OnVerb(verb, [r](const Datagram&) { return r; });
    }

    const QList<Datagram>& Received() const { return m_received; }
    QStringList ReceivedTexts() const { return ReceivedWithVerb({}); }
    QStringList ReceivedWithVerb(const QString& verb) const; // every datagram when `verb` is empty
    // The n-th datagram (1-based) with this verb once it has come; empty on time-out.
    QString WaitForVerb(const QString& verb, int n = 1, int timeoutMs = 5000);

    // To the last client that spoke, or to a port on the test address.
    void Send(const QString& text) { m_endpoint.SendTo(text, m_lastAddress, m_lastPort); }
    void SendTo(const QString& text, quint16 port) { m_endpoint.SendTo(text, TestAddress(), port); }
    // The socket at TestAddress():7200, for floods the server sends from another thread.
    qintptr Socket() const { return m_endpoint.SocketDescriptor(); }

private:
    UdpEndpoint m_endpoint;
    QHash<QString, Script> m_scripts;
    QList<Datagram> m_received;
    QHostAddress m_lastAddress;
    quint16 m_lastPort = 0;
};

} // namespace linkhop::test
