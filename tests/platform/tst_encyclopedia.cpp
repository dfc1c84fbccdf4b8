#include "encyclopedia.h"

#include <QTcpSocket>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop::test;

namespace {

struct Reply
{
    int status = 0;
    QByteArray location;
    QString body;
    bool closed = false;
};

// One raw exchange; the server runs on its own thread, so blocking here is fine.
Reply Exchange(const Encyclopedia& wiki, const QList<QByteArray>& pieces)
{
    QTcpSocket socket;
    socket.connectToHost(TestAddress(), wiki.Port());
    if (!socket.waitForConnected(3000)) return {};
    for (const QByteArray& piece : pieces) {
        socket.write(piece);
        socket.waitForBytesWritten(1000);
        QTest::qWait(20);
    }
    QByteArray bytes;
    while (socket.state() == QAbstractSocket::ConnectedState && socket.waitForReadyRead(3000))
        bytes += socket.readAll();
    bytes += socket.readAll();
    Reply reply;
    reply.closed = socket.state() != QAbstractSocket::ConnectedState;
    const qsizetype end = bytes.indexOf("\r\n\r\n");
    const QList<QByteArray> head = bytes.left(end).split('\n');
    if (head.isEmpty() || head[0].split(' ').size() < 2) return reply;
    reply.status = head[0].split(' ')[1].toInt();
    for (const QByteArray& line : head)
        if (line.startsWith("Location: ")) reply.location = line.mid(10).trimmed();
    reply.body = QString::fromUtf8(bytes.mid(end + 4));
    return reply;
}

Reply Get(const Encyclopedia& wiki, const QByteArray& target)
{
    return Exchange(wiki, {"GET " + target + " HTTP/1.1\r\nHost: x\r\n\r\n"});
}

QString TitleOf(const QString& html)
{
    const qsizetype start = html.indexOf(u"<title>"_s);
    return start < 0 ? QString() : html.mid(start + 7, html.indexOf(u"</title>"_s) - start - 7);
}

} // namespace

class tst_encyclopedia : public QObject
{
    Q_OBJECT

    Encyclopedia m_wiki;

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_wiki.Listen()); }

    void pages_data()
    {
        QTest::addColumn<bool>("today");
        QTest::addColumn<QByteArray>("target");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QByteArray>("location");
        const auto rows = [](bool today) {
            const char* style = today ? "today: " : "classic: ";
            const QString s = today ? u" - Wikipedia"_s : u" - Wikipedia, the free encyclopedia"_s;
            auto row = [&](const char* name) {
                return &QTest::newRow(QByteArray(QByteArray(style) + name).constData());
            };
            *row("article") << today << "/wiki/Apple"_ba << 200 << u"Apple"_s + s << QByteArray();
            *row("first letter in lower case")
                << today << "/wiki/apple"_ba << 200 << u"Apple"_s + s << QByteArray();
            *row("namespace") << today << "/wiki/Talk:Apple"_ba << 200 << u"Talk:Apple"_s + s << QByteArray();
            *row("spaces encoded") << today << "/wiki/List%20of%20fruits"_ba << 200 << u"List of fruits"_s + s
                                   << QByteArray();
            *row("main page") << today << "/wiki/Main_Page"_ba << 200 << u"Wikipedia, the free encyclopedia"_s
                              << QByteArray();
            *row("site root") << today << "/"_ba << 301 << QString() << "/wiki/Main_Page"_ba;
            *row("missing article") << today << "/wiki/Qqq"_ba << 404 << u"Qqq"_s + s << QByteArray();
            *row("redirect serves its target")
                << today << "/wiki/Big_Apple"_ba << 200 << u"New York City"_s + s << QByteArray();
            *row("search finds an article") << today << "/wiki/Special:Search?search=bAnAnA&go=Go"_ba << 302
                                            << QString() << "/wiki/Banana"_ba;
            *row("search with spaces") << today << "/wiki/Special:Search?search=new%20york_city&go=Go"_ba
                                       << 302 << QString() << "/wiki/New_York_City"_ba;
            *row("search with plus signs") << today << "/w/index.php?search=new+york+city"_ba << 302
                                           << QString() << "/wiki/New_York_City"_ba;
            *row("search finds a redirect") << today << "/wiki/Special:Search?search=big%20apple&go=Go"_ba
                                            << 302 << QString() << "/wiki/Big_Apple"_ba;
            *row("search finds nothing") << today << "/wiki/Special:Search?search=Qqq&go=Go"_ba << 200
                                         << (today ? u"Qqq - Search results - Wikipedia"_s
                                                   : u"Search - Wikipedia, the free encyclopedia"_s)
                                         << QByteArray();
            *row("full-text search") << today << "/wiki/Special:Search?search=Apple&fulltext=1"_ba << 200
                                     << (today ? u"Apple - Search results - Wikipedia"_s
                                               : u"Search - Wikipedia, the free encyclopedia"_s)
                                     << QByteArray();
            *row("history") << today << "/w/index.php?title=Apple&action=history"_ba << 200
                            << (today ? u"Apple: Revision history - Wikipedia"_s
                                      : u"Apple - History - Wikipedia, the free encyclopedia"_s)
                            << QByteArray();
            *row("edit") << today << "/w/index.php?title=Apple&action=edit"_ba << 200
                         << u"Editing Apple"_s + s << QByteArray();
            *row("red link") << today << "/w/index.php?title=Nothing_here&action=edit&redlink=1"_ba << 200
                             << (today ? u"Creating Nothing here"_s : u"Editing Nothing here"_s) + s
                             << QByteArray();
            *row("elsewhere") << today << "/favicon.ico"_ba << 404 << QString() << QByteArray();
        };
        rows(false);
        rows(true);
    }
    void pages()
    {
        QFETCH(bool, today);
        QFETCH(QByteArray, target);
        QFETCH(int, status);
        QFETCH(QString, title);
        QFETCH(QByteArray, location);
        m_wiki.SetStyle(today ? Encyclopedia::Style::Today : Encyclopedia::Style::Classic);
        const Reply reply = Get(m_wiki, target);
        QCOMPARE(reply.status, status);
        QCOMPARE(TitleOf(reply.body), title.toHtmlEscaped());
        QCOMPARE(reply.location, location);
        QVERIFY(reply.closed);
        QCOMPARE(m_wiki.Requests().last(), QString::fromLatin1(target));
    }

    void articleLinksAndScripts()
    {
        m_wiki.SetStyle(Encyclopedia::Style::Today);
        const QString apple = Get(m_wiki, "/wiki/Apple").body;
        for (const QString& id : {u"to-Banana"_s, u"to-Talk:Apple"_s, u"to-List_of_fruits"_s, u"history"_s,
                                  u"edit"_s, u"redlink"_s, u"external"_s, u"section"_s})
            QVERIFY2(apple.contains(u"id=\""_s + id + u'"'), qPrintable(id));
        QVERIFY(apple.contains(u"href=\"/wiki/List_of_fruits\""_s));
        QVERIFY(Get(m_wiki, "/wiki/Big_Apple")
                    .body.contains(u"history.replaceState(null, \"\", \"/wiki/New_York_City\")"_s));
        QVERIFY(Get(m_wiki, "/w/index.php?title=Qqq&action=edit&redlink=1")
                    .body.contains(u"Editing Qqq - Wikipedia"_s));

        m_wiki.AddNumberedPages(3);
        QVERIFY(Get(m_wiki, "/wiki/Page_2").body.contains(u"id=\"next\" href=\"/wiki/Page_3\""_s));
        QVERIFY(Get(m_wiki, "/wiki/Page_3").body.contains(u"id=\"next\" href=\"/wiki/Page_1\""_s));
    }

    void hostileRequests_data()
    {
        QTest::addColumn<QList<QByteArray>>("pieces");
        QTest::addColumn<int>("status");
        QTest::newRow("garbage") << QList<QByteArray>{"\x01\x02 nonsense\r\n\r\n"_ba} << 400;
        QTest::newRow("no version") << QList<QByteArray>{"GET /wiki/Apple\r\n\r\n"_ba} << 400;
        QTest::newRow("post") << QList<QByteArray>{"POST /wiki/Apple HTTP/1.1\r\n\r\n"_ba} << 405;
        QTest::newRow("endless head") << QList<QByteArray>{"GET /" + QByteArray(20000, 'a')} << 400;
        QTest::newRow("bad escapes") << QList<QByteArray>{"GET /wiki/%zz%%% HTTP/1.1\r\n\r\n"_ba} << 400;
        QTest::newRow("in pieces") << QList<QByteArray>{"GET /wiki/Ban"_ba, "ana HTTP/1.1\r\n"_ba, "\r\n"_ba}
                                   << 200;
    }
    void hostileRequests()
    {
        QFETCH(QList<QByteArray>, pieces);
        QFETCH(int, status);
        const Reply reply = Exchange(m_wiki, pieces);
        QCOMPARE(reply.status, status);
        QVERIFY(reply.closed);
    }

    void concurrentRequests()
    {
        QList<QTcpSocket*> sockets;
        for (int i = 0; i < 20; ++i) {
            auto* socket = new QTcpSocket(this);
            socket->connectToHost(TestAddress(), m_wiki.Port());
            sockets.append(socket);
        }
        for (QTcpSocket* socket : sockets) {
            QVERIFY(socket->waitForConnected(3000));
            socket->write("GET /wiki/Fruit HTTP/1.1\r\n\r\n");
        }
        for (QTcpSocket* socket : sockets) {
            QByteArray bytes;
            while (socket->state() == QAbstractSocket::ConnectedState && socket->waitForReadyRead(3000))
                bytes += socket->readAll();
            QVERIFY(bytes.startsWith("HTTP/1.1 200 OK"));
            delete socket;
        }
    }
};

QTEST_GUILESS_MAIN(tst_encyclopedia)
#include "tst_encyclopedia.moc"
