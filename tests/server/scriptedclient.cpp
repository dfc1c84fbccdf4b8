#include "scriptedclient.h"

#include "core/localport.h"
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "scriptedserver.h"

#include <QElapsedTimer>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

QHostAddress OtherAddress()
{
    return QHostAddress((127u << 24) | (200u << 16) | (TestAddress().toIPv4Address() & 0xFFu));
}

ScriptedClient::ScriptedClient(quint16 port, const QHostAddress& address) : m_port(port)
{
    connect(&m_endpoint, &UdpEndpoint::DataArrival, this,
            [this](const QString& text, const QHostAddress&, quint16) { m_received.append(text); });
    m_bound = m_endpoint.Bind(QString::number(port), address.isNull() ? TestAddress() : address);
}

void ScriptedClient::Send(const QString& text)
{
    m_endpoint.SendTo(text, TestAddress(), kServerPort);
}

QString ScriptedClient::Next(int timeoutMs)
{
    if (!WaitUntil([&] { return m_received.size() > m_read; }, timeoutMs)) return {};
    return m_received[m_read++];
}

QStringList ScriptedClient::Next(int n, int timeoutMs)
{
    WaitUntil([&] { return m_received.size() >= m_read + n; }, timeoutMs);
    const QStringList texts = m_received.mid(m_read, n);
    m_read += texts.size();
    return texts;
}

QString ScriptedClient::NextWithVerb(const QString& verb, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (true) {
        const QString text = Next(int(std::max<qint64>(1, timeoutMs - timer.elapsed())));
        if (text.isEmpty() || Verb(text) == verb) return text;
    }
}

QStringList ScriptedClient::Collect(int ms)
{
    WaitUntil([] { return false; }, ms);
    const QStringList texts = m_received.mid(m_read);
    m_read = m_received.size();
    return texts;
}

void ScriptedClient::Connect(const QString& name)
{
    Send(msg::Connect(ClientVersion, name, PortText()));
}

QStringList ScriptedClient::Join(const QString& name, const QString& password)
{
    QStringList replies;
    Connect(name);
    QString reply = Next();
    if (reply == msg::NeedPassword()) {
        Send(msg::ConnectWithPassword(ClientVersion, name, password));
        reply = Next();
    }
    replies.append(reply);
    if (Verb(reply) != verb::CONNECTACCEPT) return replies;
    Send(msg::GetPlayerList(PortText()));
    do {
        reply = Next();
        if (!reply.isEmpty()) replies.append(reply);
    } while (!reply.isEmpty() && Verb(reply) != verb::PLAYERLIST);
    return replies;
}

} // namespace linkhop::test
