#include "apiproxy.h"

#include "scriptedserver.h" // TestAddress

#include <QTcpSocket>
#include <QTimer>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

namespace {

QByteArray Reason(int status)
{
    switch (status) {
    case 429:
        return "Too Many Requests";
    case 503:
        return "Service Unavailable";
    default:
        return "Error";
    }
}

} // namespace

ApiProxy::ApiProxy(QObject* parent) : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, &ApiProxy::Accepted);
}

bool ApiProxy::Listen(const QString& upstream)
{
    m_upstreamHost = upstream.section(u':', 0, 0);
    m_upstreamPort = upstream.section(u':', 1).toUShort();
    m_clock.start();
    return m_server.listen(TestAddress());
}

QString ApiProxy::Url() const
{
    return u"http://"_s + TestAddress().toString() + u':' + QString::number(m_server.serverPort());
}

void ApiProxy::Refuse(int count, int status, const QByteArray& retryAfter)
{
    m_refuse = count;
    m_refuseStatus = status;
    m_retryAfter = retryAfter;
}

qsizetype ApiProxy::MostWithin(qint64 windowMs) const
{
    qsizetype most = 0;
    for (qsizetype first = 0, last = 0; last < m_seen.size(); ++last) {
        while (m_seen[last].ms - m_seen[first].ms >= windowMs)
            ++first;
        most = std::max(most, last - first + 1);
    }
    return most;
}

void ApiProxy::Accepted()
{
    while (QTcpSocket* client = m_server.nextPendingConnection()) {
        connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
        auto head = std::make_shared<QByteArray>();
        connect(client, &QTcpSocket::readyRead, this, [this, client, head] {
            const bool whole = head->contains("\r\n\r\n");
            *head += client->readAll();
            if (whole || !head->contains("\r\n\r\n")) return; // one request a connection, GET only
            const QList<QByteArray> lines = head->left(head->indexOf("\r\n\r\n")).split('\n');
            Request seen{m_clock.elapsed(), lines.value(0).split(' ').value(1), {}};
            QByteArray forwarded = lines.value(0).trimmed() + "\r\n";
            for (qsizetype i = 1; i < lines.size(); ++i) {
                const QByteArray line = lines[i].trimmed();
                const qsizetype colon = line.indexOf(':');
                const QByteArray name = line.left(colon).trimmed().toLower();
                if (name == "user-agent") seen.userAgent = line.mid(colon + 1).trimmed();
                if (name != "connection") forwarded += line + "\r\n";
            }
            forwarded += "Connection: close\r\n\r\n";
            m_seen.append(seen);
            const bool refuse = m_refuse > 0;
            if (refuse) --m_refuse;
            const int status = m_refuseStatus;
            const QByteArray retryAfter = m_retryAfter;
            QTimer::singleShot(m_delayMs, client, [this, client, forwarded, refuse, status, retryAfter] {
                if (refuse) {
                    client->write("HTTP/1.1 " + QByteArray::number(status) + ' ' + Reason(status) + "\r\n" +
                                  (retryAfter.isEmpty() ? QByteArray() : "Retry-After: " + retryAfter + "\r\n") +
                                  "Content-Type: text/plain\r\nContent-Length: 4\r\nConnection: close\r\n\r\nbusy");
                    client->disconnectFromHost();
                    return;
                }
                auto* upstream = new QTcpSocket(client);
                connect(upstream, &QTcpSocket::connected, upstream, [upstream, forwarded] { upstream->write(forwarded); });
                connect(upstream, &QTcpSocket::readyRead, client, [upstream, client] { client->write(upstream->readAll()); });
                connect(upstream, &QTcpSocket::disconnected, client, [upstream, client] {
                    client->write(upstream->readAll());
                    client->disconnectFromHost();
                });
                connect(upstream, &QTcpSocket::errorOccurred, client, [upstream, client](QAbstractSocket::SocketError error) {
                    if (error != QAbstractSocket::RemoteHostClosedError) client->abort();
                    Q_UNUSED(upstream);
                });
                upstream->connectToHost(m_upstreamHost, m_upstreamPort);
            });
        });
    }
}

} // namespace linkhop::test
