#pragma once

#include <QHostAddress>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

namespace linkhop::test {

// Loopback address for scripted servers and the test encyclopedia: 127.0.0.2 unless the
// environment variable LINKHOP_TEST_ADDRESS names another loopback address, so that several
// test runs can share a machine. Not 127.0.0.1, which the host dialog refuses to host at.
QHostAddress TestAddress();

// Lets events run until `done` holds or `timeoutMs` passes; returns whether `done` held.
bool WaitUntil(const std::function<bool()>& done, int timeoutMs = 5000);

// A stand-in game server: binds the test address at port 7200 (or another), records every
// datagram it receives, and answers from a script keyed by verb.
class ScriptedServer final : public QObject
{
    Q_OBJECT

public:
    struct Datagram
    {
        QString text;
        QHostAddress from;
        quint16 port = 0;
    };
    using Script = std::function<QStringList(const Datagram&)>;

    explicit ScriptedServer(QObject* parent = nullptr);
    ~ScriptedServer() override;

    bool Listen(quint16 port = 7200, const QHostAddress& address = TestAddress());
    QHostAddress Address() const;
    void Close();

    // Answers every datagram with this verb by sending the returned texts back to its sender.
    void OnVerb(const QString& verb, Script script);
    void OnVerb(const QString& verb, const QStringList& replies);

    const QList<Datagram>& Received() const { return m_received; }
    QStringList ReceivedTexts() const;
    QStringList ReceivedWithVerb(const QString& verb) const;
    void ClearReceived() { m_received.clear(); }

    // Waits for the n-th datagram (1-based) with this verb; returns its text or empty on time-out.
    QString WaitForVerb(const QString& verb, int n = 1, int timeoutMs = 5000);

    // Sends to the last client that spoke, or to an explicit port on the test address.
    void Send(const QString& text);
    void SendTo(const QString& text, quint16 port, const QHostAddress& address = TestAddress());
    quint16 LastSenderPort() const { return m_lastPort; }

private:
    class Impl;
    Impl* m_impl;
    QList<Datagram> m_received;
    QHostAddress m_lastAddress;
    quint16 m_lastPort = 0;
};

} // namespace linkhop::test
