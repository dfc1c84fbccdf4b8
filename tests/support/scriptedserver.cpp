#include "scriptedserver.h"

#include "core/udpendpoint.h"
#include "core/wire.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QHash>
#include <QThread>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

QHostAddress TestAddress()
{
    const QByteArray configured = qgetenv("LINKHOP_TEST_ADDRESS");
    return QHostAddress(configured.isEmpty() ? u"127.0.0.2"_s : QString::fromLatin1(configured));
}

bool WaitUntil(const std::function<bool()>& done, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        QThread::usleep(200);
    }
    return true;
}

class ScriptedServer::Impl
{
public:
    UdpEndpoint endpoint;
    QHash<QString, Script> scripts;
};

ScriptedServer::ScriptedServer(QObject* parent) : QObject(parent), m_impl(new Impl)
{
    connect(&m_impl->endpoint, &UdpEndpoint::DataArrival, this,
            [this](const QString& text, const QHostAddress& from, quint16 port) {
                m_lastAddress = from;
                m_lastPort = port;
                const Datagram datagram{text, from, port};
                m_received.append(datagram);
                const auto script = m_impl->scripts.constFind(Verb(text));
                if (script == m_impl->scripts.cend()) return;
                const QStringList replies = (*script)(datagram);
                for (const QString& reply : replies) m_impl->endpoint.SendTo(reply, from, port);
            });
}

ScriptedServer::~ScriptedServer() { delete m_impl; }

bool ScriptedServer::Listen(quint16 port, const QHostAddress& address)
{
    return m_impl->endpoint.Bind(QString::number(port), address);
}

QHostAddress ScriptedServer::Address() const { return TestAddress(); }

void ScriptedServer::Close() { m_impl->endpoint.Close(); }

void ScriptedServer::OnVerb(const QString& verb, Script script) { m_impl->scripts.insert(verb, std::move(script)); }

void ScriptedServer::OnVerb(const QString& verb, const QStringList& replies)
{
    OnVerb(verb, [replies](const Datagram&) { return replies; });
}

QStringList ScriptedServer::ReceivedTexts() const
{
    QStringList texts;
    for (const Datagram& d : m_received) texts.append(d.text);
    return texts;
}

QStringList ScriptedServer::ReceivedWithVerb(const QString& verb) const
{
    QStringList texts;
    for (const Datagram& d : m_received)
        if (Verb(d.text) == verb) texts.append(d.text);
    return texts;
}

QString ScriptedServer::WaitForVerb(const QString& verb, int n, int timeoutMs)
{
    WaitUntil([&] { return ReceivedWithVerb(verb).size() >= n; }, timeoutMs);
    const QStringList found = ReceivedWithVerb(verb);
    return found.size() >= n ? found[n - 1] : QString();
}

void ScriptedServer::Send(const QString& text) { m_impl->endpoint.SendTo(text, m_lastAddress, m_lastPort); }

void ScriptedServer::SendTo(const QString& text, quint16 port, const QHostAddress& address)
{
    m_impl->endpoint.SendTo(text, address, port);
}

} // namespace linkhop::test
