#include "scriptedserver.h"

#include "core/wire.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

QHostAddress TestAddress()
{
    const QString configured = qEnvironmentVariable("LINKHOP_TEST_ADDRESS");
    return QHostAddress(configured.isEmpty() ? u"127.0.0.2"_s : configured);
}

bool WaitUntil(const std::function<bool()>& done, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(200);
    }
    return true;
}

ScriptedServer::ScriptedServer()
{
    connect(&m_endpoint, &UdpEndpoint::DataArrival, this,
            [this](const QString& text, const QHostAddress& from, quint16 port) {
                m_lastAddress = from;
                m_lastPort = port;
                const Datagram datagram{text, port};
                m_received.append(datagram);
                const Script script = m_scripts.value(Verb(text));
                if (script)
                    for (const QString& reply : script(datagram))
                        m_endpoint.SendTo(reply, from, port);
            });
}

bool ScriptedServer::Listen() { return m_endpoint.Bind(u"7200"_s, TestAddress()); }

QStringList ScriptedServer::ReceivedWithVerb(const QString& verb) const
{
    QStringList texts;
    for (const Datagram& d : m_received)
        if (verb.isEmpty() || Verb(d.text) == verb) texts.append(d.text);
    return texts;
}

QString ScriptedServer::WaitForVerb(const QString& verb, int n, int timeoutMs)
{
    WaitUntil([&] { return ReceivedWithVerb(verb).size() >= n; }, timeoutMs);
    return ReceivedWithVerb(verb).value(n - 1);
}

} // namespace linkhop::test
