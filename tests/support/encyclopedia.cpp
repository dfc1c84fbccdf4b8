#include "encyclopedia.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>
#include <QPointer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>
#include <QUrlQuery>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

namespace {

constexpr QStringView kClassicSuffix = u" - Wikipedia, the free encyclopedia";
constexpr QStringView kTodaySuffix = u" - Wikipedia";
constexpr QStringView kMainPage = u"Main Page";
constexpr qsizetype kMaxRequestHead = 16 * 1024;

struct Article
{
    QString title;
    QStringList links;
    QString text;
    bool numbered = false; // its link carries the id "next"
};

struct Response
{
    int status = 200;
    QByteArray location;
    QString html;
};

QString Escape(QStringView text)
{
    return text.toString().toHtmlEscaped();
}

// MediaWiki's view of a title: spaces and underscores alike, first letter in capitals.
QString Normal(QStringView title)
{
    QString normal = title.trimmed().toString().replace(u'_', u' ');
    if (!normal.isEmpty()) normal[0] = normal[0].toUpper();
    return normal;
}

QString SearchKey(QStringView title)
{
    return Normal(title).toLower();
}

QByteArray StatusLine(int status)
{
    switch (status) {
    case 200:
        return "HTTP/1.1 200 OK";
    case 301:
        return "HTTP/1.1 301 Moved Permanently";
    case 302:
        return "HTTP/1.1 302 Found";
    case 400:
        return "HTTP/1.1 400 Bad Request";
    case 405:
        return "HTTP/1.1 405 Method Not Allowed";
    default:
        return "HTTP/1.1 404 Not Found";
    }
}

QString Page(const QString& title, const QString& heading, const QString& body, const QString& script = {})
{
    return u"<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>"_s % Escape(title) %
           u"</title></head>\n<body><h1 id=\"firstHeading\">" % Escape(heading) %
           u"</h1>\n<div id=\"content\">" % body % u"</div>\n" %
           (script.isEmpty() ? QString() : QString(u"<script>" % script % u"</script>\n")) %
           u"</body></html>\n";
}

QString Link(const QString& id, const QString& href, const QString& text)
{
    return u"<li><a id=\""_s % Escape(id) % u"\" href=\"" % Escape(href) % u"\">" % Escape(text) %
           u"</a></li>\n";
}

} // namespace

class Encyclopedia::Impl : public QObject
{
public:
    explicit Impl(Style style) : m_style(style) {}

    // Shared with the server thread.
    mutable QMutex mutex;
    Style m_style;
    QHash<QString, Article> articles;  // by Normal(title)
    QHash<QString, QString> redirects; // Normal(from) -> target title
    QString external;
    QStringList requests;
    QString host;

    // Server thread only.
    QTcpServer* server = nullptr;

    QString Suffixed(QStringView name) const
    {
        return name % (m_style == Style::Classic ? kClassicSuffix : kTodaySuffix);
    }
    QString ArticleTitle(QStringView title) const
    {
        if (title == kMainPage) return u"Wikipedia, the free encyclopedia"_s;
        return m_style == Style::Classic ? QString(title % kClassicSuffix) : QString(title % kTodaySuffix);
    }

    void Accept()
    {
        while (QTcpSocket* socket = server->nextPendingConnection()) {
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, socket, [this, socket] { Read(socket); });
        }
    }

    void Read(QTcpSocket* socket)
    {
        if (socket->property("answered").toBool()) {
            socket->readAll();
            return;
        }
        QByteArray head = socket->property("head").toByteArray() + socket->readAll();
        const qsizetype end = head.indexOf("\r\n\r\n");
        if (end < 0 && head.size() <= kMaxRequestHead) {
            socket->setProperty("head", head);
            return;
        }
        socket->setProperty("answered", true);
        socket->setProperty("head", QVariant());
        Response response;
        if (end < 0) {
            response.status = 400;
        } else {
            const QList<QByteArray> request = head.left(head.indexOf("\r\n")).split(' ');
            if (request.size() != 3 || !request[2].startsWith("HTTP/"))
                response.status = 400;
            else if (request[0] != "GET")
                response.status = 405;
            else
                response = Answer(request[1]);
        }
        Send(socket, response);
    }

    void Send(QTcpSocket* socket, const Response& response)
    {
        const QByteArray body = response.html.toUtf8();
        QByteArray bytes = StatusLine(response.status) + "\r\n";
        if (!response.location.isEmpty()) bytes += "Location: " + response.location + "\r\n";
        bytes +=
            "Content-Type: text/html; charset=utf-8\r\nContent-Length: " + QByteArray::number(body.size()) +
            "\r\nCache-Control: private, max-age=0, must-revalidate\r\nConnection: close\r\n\r\n" + body;
        socket->write(bytes);
        socket->disconnectFromHost();
    }

    Response Answer(const QByteArray& target)
    {
        QMutexLocker lock(&mutex);
        requests.append(QString::fromLatin1(target));
        const QUrl url(QString::fromLatin1(target), QUrl::StrictMode);
        if (!url.isValid()) return {400, {}, {}};
        // Form submissions write spaces as "+".
        QUrlQuery query(url.query(QUrl::FullyEncoded).replace(u'+', u"%20"_s));
        const QString path = url.path(QUrl::FullyDecoded);
        if (path == u"/") return {301, ArticlePath(kMainPage).toLatin1(), {}};
        if (path.startsWith(u"/wiki/")) {
            const QString name = Normal(QStringView(path).mid(6));
            if (name == u"Special:Search") return Search(query);
            if (name.startsWith(u"Special:Search/")) return Search(name.mid(15), false);
            return ArticleAt(name);
        }
        if (path == u"/w/index.php") {
            const QString action = query.queryItemValue(u"action"_s, QUrl::FullyDecoded);
            const QString name = Normal(query.queryItemValue(u"title"_s, QUrl::FullyDecoded));
            if (action == u"history") return History(name);
            if (action == u"edit") return Edit(name);
            if (query.hasQueryItem(u"search"_s)) return Search(query);
            return ArticleAt(name);
        }
        return {404, {}, {}};
    }

    Response Search(const QUrlQuery& query)
    {
        return Search(query.queryItemValue(u"search"_s, QUrl::FullyDecoded),
                      query.hasQueryItem(u"fulltext"_s));
    }

    Response Search(const QString& text, bool fullText)
    {
        if (!fullText) {
            const QString key = SearchKey(text);
            for (auto it = articles.cbegin(); it != articles.cend(); ++it)
                if (SearchKey(it.key()) == key) return {302, ArticlePath(it->title).toLatin1(), {}};
            for (auto it = redirects.cbegin(); it != redirects.cend(); ++it)
                if (SearchKey(it.key()) == key) return {302, ArticlePath(it.key()).toLatin1(), {}};
        }
        QString found;
        for (const Article& article : std::as_const(articles))
            if (!text.isEmpty() && article.title.contains(text, Qt::CaseInsensitive))
                found += Link(LinkId(article.title), ArticlePath(article.title), article.title);
        const QString title = m_style == Style::Classic ? QString(u"Search"_s % kClassicSuffix)
                                                        : QString(text % u" - Search results" % kTodaySuffix);
        const QString body = found.isEmpty() ? u"<p>There were no results matching the query.</p>"_s
                                             : QString(u"<ul>\n" % found % u"</ul>\n");
        return {200, {}, Page(title, u"Search results"_s, body)};
    }

    Response ArticleAt(const QString& name)
    {
        QString script;
        const Article* article = nullptr;
        if (auto redirect = redirects.constFind(name); redirect != redirects.cend()) {
            const auto target = articles.constFind(Normal(*redirect));
            if (target == articles.cend()) return {404, {}, {}};
            article = &*target;
            // Like the real site: the target at the redirect's address, then the address rewritten.
            script = u"history.replaceState(null, \"\", \""_s % ArticlePath(article->title) % u"\");";
        } else if (auto found = articles.constFind(name); found != articles.cend()) {
            article = &*found;
        }
        if (!article) {
            return {404,
                    {},
                    Page(Suffixed(name), name,
                         u"<p>Wikipedia does not have an article with this exact name.</p>"_s)};
        }
        QString links;
        for (const QString& target : article->links)
            links += Link(article->numbered ? u"next"_s : LinkId(target), ArticlePath(target), target);
        const QString& title = article->title;
        const QString body =
            u"<p>"_s % Escape(article->text) % u"</p>\n<ul>\n" % links %
            Link(u"history"_s, u"/w/index.php?title="_s % ArticlePath(title).mid(6) % u"&action=history",
                 u"View history"_s) %
            Link(u"edit"_s, u"/w/index.php?title="_s % ArticlePath(title).mid(6) % u"&action=edit", u"Edit"_s) %
            Link(u"redlink"_s, u"/w/index.php?title=Nothing_here&action=edit&redlink=1"_s, u"Nothing here"_s) %
            Link(u"external"_s, external, u"Elsewhere"_s) % Link(u"section"_s, u"#Section"_s, u"Section"_s) %
            u"</ul>\n<h2 id=\"Section\">Section</h2>\n";
        return {200, {}, Page(ArticleTitle(title), title, body, script)};
    }

    Response History(const QString& name)
    {
        const QString title = m_style == Style::Classic
                                  ? QString(name % u" - History" % kClassicSuffix)
                                  : QString(name % u": Revision history" % kTodaySuffix);
        return {200, {}, Page(title, name, Link(u"to-article"_s, ArticlePath(name), name))};
    }

    Response Edit(const QString& name)
    {
        if (m_style == Style::Classic)
            return {200, {}, Page(u"Editing "_s % name % kClassicSuffix, name, {})};
        if (articles.contains(name)) return {200, {}, Page(u"Editing "_s % name % kTodaySuffix, name, {})};
        // The editor of a missing article retitles its page once its script has run.
        const QString editing = u"Editing "_s % name % kTodaySuffix;
        return {200,
                {},
                Page(u"Creating "_s % name % kTodaySuffix, name, {},
                     u"setTimeout(function () { document.title = \""_s % editing % u"\"; }, 0);")};
    }
};

Encyclopedia::Encyclopedia(Style style) : m_impl(std::make_unique<Impl>(style))
{
    const QList<Article> world = {
        {kMainPage.toString(), {u"Apple"_s, u"Banana"_s}, u"Welcome."_s},
        {u"Apple"_s,
         {u"Banana"_s, u"Fruit"_s, u"Talk:Apple"_s, u"Category:Fruit"_s, u"List of fruits"_s, u"1984"_s,
          u"Search engine"_s, u"Portal:Science"_s, u"Big Apple"_s},
         u"An apple is a fruit."_s},
        {u"Banana"_s, {u"Apple"_s, u"Fruit"_s}, u"A banana is a fruit."_s},
        {u"Fruit"_s, {u"Apple"_s, u"Banana"_s}, {}},
        {u"Talk:Apple"_s, {u"Apple"_s}, {}},
        {u"Category:Fruit"_s, {u"Apple"_s, u"Banana"_s}, {}},
        {u"List of fruits"_s, {u"Apple"_s, u"Banana"_s}, {}},
        {u"1984"_s, {u"Apple"_s}, {}},
        {u"Search engine"_s, {u"Apple"_s}, {}},
        {u"Portal:Science"_s, {u"Apple"_s}, {}},
        {u"New York City"_s, {u"Apple"_s}, u"Also known as the Big Apple."_s},
    };
    for (const Article& article : world)
        AddArticle(article.title, article.links, article.text);
    AddRedirect(u"Big Apple"_s, u"New York City"_s);
    SetExternalLink(u"http://"_s % TestAddress().toString() % u":9/");
}

Encyclopedia::~Encyclopedia()
{
    Close();
}

bool Encyclopedia::Listen(quint16 port, const QHostAddress& address)
{
    Close();
    auto* thread = new QThread;
    thread->setObjectName(u"encyclopedia"_s);
    m_impl->moveToThread(thread);
    thread->start();
    Impl* impl = m_impl.get();
    bool listening = false;
    QMetaObject::invokeMethod(
        impl,
        [impl, port, address] {
            impl->server = new QTcpServer(impl);
            QObject::connect(impl->server, &QTcpServer::newConnection, impl, [impl] { impl->Accept(); });
            impl->server->setMaxPendingConnections(64);
            return impl->server->listen(address, port);
        },
        Qt::BlockingQueuedConnection, &listening);
    QMutexLocker lock(&m_impl->mutex);
    if (listening) {
        m_impl->host = address.toString() % u':' % QString::number(m_impl->server->serverPort());
    } else {
        lock.unlock();
        Close();
    }
    return listening;
}

void Encyclopedia::Close()
{
    Impl* impl = m_impl.get();
    QThread* thread = impl->thread();
    if (thread == QThread::currentThread()) return; // never listened
    // Sockets and the server belong to the server thread: delete them there, then bring the
    // object home before the thread ends.
    QThread* home = QThread::currentThread();
    QMetaObject::invokeMethod(
        impl,
        [impl, home] {
            delete impl->server;
            impl->server = nullptr;
            impl->moveToThread(home);
        },
        Qt::BlockingQueuedConnection);
    thread->quit();
    thread->wait();
    delete thread;
    QMutexLocker lock(&impl->mutex);
    impl->host.clear();
}

quint16 Encyclopedia::Port() const
{
    QMutexLocker lock(&m_impl->mutex);
    return quint16(m_impl->host.section(u':', -1).toUInt());
}

QString Encyclopedia::Host() const
{
    QMutexLocker lock(&m_impl->mutex);
    return m_impl->host;
}

QString Encyclopedia::Url(QStringView pathAndQuery) const
{
    return u"http://"_s % Host() % pathAndQuery;
}

QString Encyclopedia::ArticleUrl(QStringView title) const
{
    return Url(ArticlePath(title));
}

void Encyclopedia::SetStyle(Style style)
{
    QMutexLocker lock(&m_impl->mutex);
    m_impl->m_style = style;
}

Encyclopedia::Style Encyclopedia::CurrentStyle() const
{
    QMutexLocker lock(&m_impl->mutex);
    return m_impl->m_style;
}

QString Encyclopedia::ArticleTitle(QStringView title) const
{
    QMutexLocker lock(&m_impl->mutex);
    return m_impl->ArticleTitle(title);
}

void Encyclopedia::AddArticle(const QString& title, const QStringList& links, const QString& text)
{
    QMutexLocker lock(&m_impl->mutex);
    m_impl->articles.insert(Normal(title), {title, links, text, false});
}

void Encyclopedia::AddRedirect(const QString& from, const QString& to)
{
    QMutexLocker lock(&m_impl->mutex);
    m_impl->redirects.insert(Normal(from), to);
}

void Encyclopedia::AddNumberedPages(int count)
{
    QMutexLocker lock(&m_impl->mutex);
    for (int i = 1; i <= count; ++i) {
        const QString next = u"Page "_s + QString::number(i % count + 1);
        const QString title = u"Page "_s + QString::number(i);
        m_impl->articles.insert(title, {title, {next}, {}, true});
    }
}

void Encyclopedia::SetExternalLink(const QString& url)
{
    QMutexLocker lock(&m_impl->mutex);
    m_impl->external = url;
}

QStringList Encyclopedia::Requests() const
{
    QMutexLocker lock(&m_impl->mutex);
    return m_impl->requests;
}

void Encyclopedia::ClearRequests()
{
    QMutexLocker lock(&m_impl->mutex);
    m_impl->requests.clear();
}

QString Encyclopedia::LinkId(QStringView target)
{
    return u"to-"_s % Normal(target).replace(u' ', u'_');
}

QString Encyclopedia::ArticlePath(QStringView title)
{
    return u"/wiki/"_s %
           QString::fromLatin1(QUrl::toPercentEncoding(Normal(title).replace(u' ', u'_'), ":/(),'!*"));
}

} // namespace linkhop::test
