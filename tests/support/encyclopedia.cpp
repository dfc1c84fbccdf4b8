#include "encyclopedia.h"

#include <QHash>
#include <QSemaphore>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>
#include <QUrlQuery>
#include <atomic>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

namespace {

QString Key(QStringView title) { return title.trimmed().toString().replace(u'_', u' ').toLower(); }

QString ArticlePath(QStringView title)
{
    QString name = title.trimmed().toString().replace(u' ', u'_');
    if (!name.isEmpty()) name[0] = name[0].toUpper();
    return u"/wiki/"_s + QString::fromLatin1(QUrl::toPercentEncoding(name, ":/(),!*"));
}

struct Article
{
    QString title;
    QStringList links;
    QString text;
    bool numbered = false;
    QString redirectTo{};
};

QByteArray Reply(const QByteArray& status, const QString& html = {}, const QByteArray& location = {})
{
    const QByteArray body = html.toUtf8();
    return "HTTP/1.1 " + status + "\r\nLocation: " + location +
           "\r\nContent-Type: text/html; charset=utf-8\r\nContent-Length: " +
           QByteArray::number(body.size()) +
           "\r\nCache-Control: private, max-age=0, must-revalidate\r\nConnection: close\r\n\r\n" + body;
}

QByteArray Page(const QString& title, const QString& body = {}, const QString& script = {})
{
    return Reply("200 OK", u"<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>"_s %
                               title.toHtmlEscaped() % u"</title></head><body>" % body % u"<script>" %
                               script % u"</script></body></html>");
}

} // namespace

class Encyclopedia::Server final : public QThread
{
public:
    QSemaphore ready;
    quint16 port = 0;
    std::atomic<Style> style = Style::Classic;
    QHash<QString, Article> articles; // by Key(title)

    QString Suffixed(const QString& name) const
    {
        return name % (style == Style::Classic ? u" - Wikipedia, the free encyclopedia" : u" - Wikipedia");
    }
    QString ArticleTitle(const QString& title) const
    {
        return title == u"Main Page" ? u"Wikipedia, the free encyclopedia"_s : Suffixed(title);
    }

    void run() override
    {
        QTcpServer server;
        connect(&server, &QTcpServer::newConnection, &server, [&] {
            while (QTcpSocket* socket = server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { Read(socket); });
            }
        });
        port = server.listen(TestAddress()) ? server.serverPort() : 0;
        ready.release();
        if (port) exec();
    }

    void Read(QTcpSocket* socket)
    {
        const QByteArray head = socket->property("head").toByteArray() + socket->readAll();
        socket->setProperty("head", head);
        if (!head.contains("\r\n\r\n")) return;
        const QByteArray target = head.split(' ').value(1);
        if (target == "/stall") return;
        socket->write(target == "/204" ? Reply("204 No Content") : Answer(target));
        socket->disconnectFromHost();
    }

    QByteArray Answer(const QByteArray& target)
    {
        const QUrl url(QString::fromLatin1(target));
        const QUrlQuery query(url);
        const QString path = url.path(QUrl::FullyDecoded);
        const QString name = query.queryItemValue(u"title"_s, QUrl::FullyDecoded).replace(u'_', u' ');
        const QString action = query.queryItemValue(u"action"_s);
        const bool classic = style == Style::Classic;
        if (path == u"/w/index.php" && action == u"history")
            return Page(classic ? Suffixed(name + u" - History") : name + u": Revision history - Wikipedia");
        if (path == u"/w/index.php" && action == u"edit") {
            if (classic) return Page(Suffixed(u"Editing "_s + name));
            return Page(Suffixed(u"Creating "_s + name), {},
                        u"setTimeout(function () { document.title = \"Editing "_s + name +
                            u" - Wikipedia\"; });");
        }
        const bool search = path == u"/wiki/Special:Search";
        const QString text = search ? query.queryItemValue(u"search"_s, QUrl::FullyDecoded) : path.mid(6);
        auto found = articles.constFind(Key(text));
        if (search && found != articles.cend())
            return Reply("302 Found", {}, ArticlePath(found->title).toLatin1());
        if (search) return Page(classic ? Suffixed(u"Search"_s) : text + u" - Search results - Wikipedia");
        QString script;
        if (found != articles.cend() && !found->redirectTo.isEmpty()) {
            // Like the real site: the target at the redirect's address, then the address rewritten.
            found = articles.constFind(Key(found->redirectTo));
            if (found != articles.cend())
                script = u"history.replaceState(null, \"\", \""_s + ArticlePath(found->title) + u"\");";
        }
        if (!path.startsWith(u"/wiki/") || found == articles.cend()) return Reply("404 Not Found");
        QString links;
        for (const QString& link : found->links)
            links += u"<a id=\""_s + (found->numbered ? u"next"_s : LinkId(link)) + u"\" href=\"" +
                     ArticlePath(link) + u"\">" + link.toHtmlEscaped() + u"</a> ";
        links += u"<a id=\"external\" href=\"http://"_s + TestAddress().toString() + u":9/\">Elsewhere</a>";
        return Page(ArticleTitle(found->title), u"<p>"_s + found->text.toHtmlEscaped() + u"</p>" + links,
                    script);
    }
};

Encyclopedia::Encyclopedia(Style style) : m_server(std::make_unique<Server>())
{
    m_server->style = style;
    AddArticle(u"Main Page"_s, {u"Apple"_s, u"Banana"_s});
    AddArticle(u"Apple"_s, {u"Banana"_s, u"Fruit"_s, u"Talk:Apple"_s, u"Big Apple"_s});
    AddArticle(u"Banana"_s, {u"Apple"_s, u"Fruit"_s, u"Talk:Apple"_s});
    AddArticle(u"Fruit"_s, {u"Apple"_s, u"Banana"_s});
    AddArticle(u"Talk:Apple"_s, {u"Apple"_s});
    AddArticle(u"New York City"_s, {u"Apple"_s});
    m_server->articles.insert(Key(u"Big Apple"), {u"Big Apple"_s, {}, {}, false, u"New York City"_s});
}

Encyclopedia::~Encyclopedia()
{
    m_server->quit();
    m_server->wait();
}

bool Encyclopedia::Listen()
{
    m_server->start();
    m_server->ready.acquire();
    m_host = TestAddress().toString() + u':' + QString::number(m_server->port);
    return m_server->port != 0;
}

QString Encyclopedia::Url(QStringView pathAndQuery) const { return u"http://"_s % m_host % pathAndQuery; }

QString Encyclopedia::ArticleUrl(QStringView title) const { return Url(ArticlePath(title)); }

void Encyclopedia::SetStyle(Style style) { m_server->style = style; }

QString Encyclopedia::ArticleTitle(QStringView title) const
{
    return m_server->ArticleTitle(title.toString());
}

void Encyclopedia::AddArticle(const QString& title, const QStringList& links, const QString& text)
{
    m_server->articles.insert(Key(title), {title, links, text, false, {}});
}

void Encyclopedia::AddNumberedPages(int count)
{
    for (int i = 1; i <= count; ++i) {
        const QString title = u"Page "_s + QString::number(i);
        m_server->articles.insert(Key(title),
                                  {title, {u"Page "_s + QString::number(i % count + 1)}, {}, true});
    }
}

QString Encyclopedia::LinkId(QStringView target) { return u"to-"_s + ArticlePath(target).mid(6); }

} // namespace linkhop::test
