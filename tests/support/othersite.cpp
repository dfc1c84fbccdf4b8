#include "othersite.h"

#include <QSemaphore>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

namespace {

QByteArray Reply(const QByteArray& status, const QString& html = {})
{
    const QByteArray body = html.toUtf8();
    return "HTTP/1.1 " + status + "\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n" +
           body;
}

QByteArray Page(const QString& title, const QString& body = {})
{
    return Reply("200 OK", u"<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>"_s %
                               title.toHtmlEscaped() % u"</title></head><body>" % body % u"</body></html>");
}

QByteArray Answer(const QByteArray& target)
{
    const QString path = QUrl(QString::fromLatin1(target)).path(QUrl::FullyDecoded);
    if (path == u"/204") return Reply("204 No Content");
    if (path == u"/late-title")
        return Page(u"Loading"_s,
                    u"<a id=\"stall\" href=\"/stall\">Wait forever</a><script>setTimeout(function () {"
                    u" document.title = \"Late - Wikipedia, the free encyclopedia\"; }, %1);</script>"_s.arg(
                        OtherSite::kLateTitleMs));
    if (path.startsWith(u"/wiki/")) return Page(path.mid(6).replace(u'_', u' ') + u" - Wikipedia"_s);
    if (path == u"/w/api.php") return Page(u"Not an API"_s, u"<p>Nothing to see here.</p>"_s);
    return Reply("404 Not Found");
}

} // namespace

class OtherSite::Server final : public QThread
{
public:
    QSemaphore ready;
    quint16 port = 0;

    void run() override
    {
        QTcpServer server;
        connect(&server, &QTcpServer::newConnection, &server, [&] {
            while (QTcpSocket* socket = server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                    const QByteArray head = socket->property("head").toByteArray() + socket->readAll();
                    socket->setProperty("head", head);
                    if (!head.contains("\r\n\r\n")) return;
                    const QByteArray target = head.split(' ').value(1);
                    if (target == "/stall") return;
                    socket->write(Answer(target));
                    socket->disconnectFromHost();
                });
            }
        });
        port = server.listen(TestAddress()) ? server.serverPort() : 0;
        ready.release();
        if (port) exec();
    }
};

OtherSite::OtherSite() : m_server(std::make_unique<Server>()) {}

OtherSite::~OtherSite()
{
    m_server->quit();
    m_server->wait();
}

bool OtherSite::Listen()
{
    m_server->start();
    m_server->ready.acquire();
    m_host = TestAddress().toString() + u':' + QString::number(m_server->port);
    return m_server->port != 0;
}

QString OtherSite::Url(QStringView pathAndQuery) const
{
    return u"http://"_s % m_host % pathAndQuery;
}

} // namespace linkhop::test
