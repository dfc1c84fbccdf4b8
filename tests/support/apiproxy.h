#pragma once

#include <QByteArray>
#include <QElapsedTimer>
#include <QList>
#include <QObject>
#include <QString>
#include <QTcpServer>

namespace linkhop::test {

// Stands between the server and a test wiki's web server, on the test address: counts every
// request as the wiki would see it, can hold each one back before passing it on (an encyclopedia
// that answers slowly), and can answer the next few itself with an error and a "Retry-After", as a
// busy site does. Requests pass one per connection; the wiki's answer goes back as it came.
class ApiProxy final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ApiProxy)

public:
    struct Request
    {
        qint64 ms;          // since the proxy began listening
        QByteArray target;  // the request line's path and query
        QByteArray userAgent;
    };

    explicit ApiProxy(QObject* parent = nullptr);

    // Listens on the test address, passing requests on to `upstream` ("address:port").
    bool Listen(const QString& upstream);
    QString Url() const; // the base address to give the server as its site

    void SetDelay(int ms) { m_delayMs = ms; }
    // The next `count` requests get `status` with this Retry-After (none when empty), not the wiki.
    void Refuse(int count, int status, const QByteArray& retryAfter);

    // Requests so far.
    qsizetype Requests() const { return m_seen.size(); }
    const QList<Request>& RequestLog() const { return m_seen; }
    void Clear() { m_seen.clear(); }
    // The most requests that arrived within any `windowMs` so far.
    qsizetype MostWithin(qint64 windowMs) const;

private:
    void Accepted();

    QTcpServer m_server;
    QString m_upstreamHost;
    quint16 m_upstreamPort = 0;
    int m_delayMs = 0;
    int m_refuse = 0;
    int m_refuseStatus = 0;
    QByteArray m_retryAfter;
    QElapsedTimer m_clock;
    QList<Request> m_seen;
};

} // namespace linkhop::test
