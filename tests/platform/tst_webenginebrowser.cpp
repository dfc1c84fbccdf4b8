#include "browserlog.h"
#include "encyclopedia.h"
#include "platform/site.h"
#include "platform/webenginebrowser.h"

#include <QElapsedTimer>
#include <QTcpServer>
#include <QTcpSocket>
#include <QWebEngineView>
#include <QtTest>
#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

const QString kSuffix = u" - Wikipedia, the free encyclopedia"_s;

// Answers "/204" with No Content and never answers anything else.
class OddServer final : public QTcpServer
{
public:
    OddServer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                    if (!socket->readAll().contains(" /204 ")) return;
                    socket->write("HTTP/1.1 204 No Content\r\nConnection: close\r\n\r\n");
                    socket->disconnectFromHost();
                });
            }
        });
    }
    QString Url(QStringView path) const
    {
        return u"http://"_s % serverAddress().toString() % u':' % QString::number(serverPort()) % path;
    }
};

} // namespace

class tst_webenginebrowser : public QObject
{
    Q_OBJECT

    Encyclopedia m_wiki{Encyclopedia::Style::Today};
    Encyclopedia m_elsewhere{Encyclopedia::Style::Today};
    OddServer m_odd;
    std::unique_ptr<WebEngineBrowser> m_browser;
    std::unique_ptr<BrowserLog> m_log;

    SiteConfig Site() const { return {m_wiki.Host(), m_wiki.Host()}; }
    bool Open(const QString& url, const QString& title)
    {
        m_browser->Navigate(url);
        return m_log->WaitForTitle(title);
    }
    bool Click(const QString& id, const QString& title)
    {
        return ClickLink(*m_browser, id) && m_log->WaitForTitle(title);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_wiki.Listen());
        QVERIFY(m_elsewhere.Listen());
        QVERIFY(m_odd.listen(TestAddress()));
        m_wiki.SetExternalLink(m_elsewhere.ArticleUrl(u"Apple"));
        m_browser = std::make_unique<WebEngineBrowser>(m_wiki.Host());
        m_browser->resize(800, 600);
        m_browser->show();
        m_log = std::make_unique<BrowserLog>(*m_browser);
    }
    void init()
    {
        m_wiki.SetStyle(Encyclopedia::Style::Today);
        m_log->Clear();
    }

    // Every page of the encyclopedia reaches the rules in the classic form, whichever style it
    // is served in; pages of another site never are rewritten.
    void titles_data()
    {
        QTest::addColumn<bool>("today");
        QTest::addColumn<QString>("address"); // a path, or "search:" and the word
        QTest::addColumn<QString>("title");
        for (const bool today : {false, true}) {
            const QByteArray style = today ? "today: " : "classic: ";
            const auto row = [&](const char* name) -> QTestData& {
                return QTest::newRow(QByteArray(style + name).constData());
            };
            row("article") << today << u"/wiki/Apple"_s << u"Apple"_s + kSuffix;
            row("main page") << today << u"/wiki/Main_Page"_s << u"Wikipedia, the free encyclopedia"_s;
            row("talk") << today << u"/wiki/Talk:Apple"_s << u"Talk:Apple"_s + kSuffix;
            row("category") << today << u"/wiki/Category:Fruit"_s << u"Category:Fruit"_s + kSuffix;
            row("history") << today << u"/w/index.php?title=Apple&action=history"_s
                           << u"Apple - History"_s + kSuffix;
            row("edit") << today << u"/w/index.php?title=Apple&action=edit"_s << u"Editing Apple"_s + kSuffix;
            row("red link retitled by script")
                << today << u"/w/index.php?title=Nothing_here&action=edit&redlink=1"_s
                << u"Editing Nothing here"_s + kSuffix;
            row("redirect") << today << u"/wiki/Big_Apple"_s << u"New York City"_s + kSuffix;
            row("search to an article") << today << u"search:aPPLE"_s << u"Apple"_s + kSuffix;
            row("search with spaces, unescaped")
                << today << u"search:new york city"_s << u"New York City"_s + kSuffix;
            row("search to the results") << today << u"search:no such thing"_s << u"Search"_s + kSuffix;
            row("another site") << today << u"elsewhere"_s << u"Apple - Wikipedia"_s;
        }
    }
    void titles()
    {
        QFETCH(bool, today);
        QFETCH(QString, address);
        QFETCH(QString, title);
        m_wiki.SetStyle(today ? Encyclopedia::Style::Today : Encyclopedia::Style::Classic);
        const QString url = address == u"elsewhere"          ? m_elsewhere.ArticleUrl(u"Apple")
                            : address.startsWith(u"search:") ? Site().Search(QStringView(address).mid(7))
                                                             : m_wiki.Url(address);
        QVERIFY2(Open(url, title), qPrintable(m_log->titles.join(u" | ")));
        if (address == u"elsewhere") return;
        for (const QString& seen : std::as_const(m_log->titles))
            QVERIFY2(!seen.endsWith(u" - Wikipedia"), qPrintable(seen));
    }

    void searchWordIsEncodedByTheBrowser()
    {
        m_wiki.ClearRequests();
        QVERIFY(Open(Site().Search(u"new york city"), u"New York City"_s + kSuffix));
        QVERIFY(m_wiki.Requests().contains(u"/wiki/Special:Search?search=new%20york%20city&go=Go"_s));
    }

    // One BeforeNavigate2 per main-frame navigation: typed, followed by script, redirected by the
    // server, back, the blank page and links to other sites.
    void navigationRequests()
    {
        QVERIFY(Open(Site().Search(u"banana"), u"Banana"_s + kSuffix));
        QCOMPARE(m_log->requests, (QStringList{Site().Search(u"banana"), m_wiki.ArticleUrl(u"Banana")}));
        m_log->Clear();
        QVERIFY(Click(u"to-Apple"_s, u"Apple"_s + kSuffix));
        QCOMPARE(m_log->requests, QStringList{m_wiki.ArticleUrl(u"Apple")});
        m_log->Clear();
        m_browser->GoBack();
        QVERIFY(m_log->WaitForTitle(u"Banana"_s + kSuffix));
        QCOMPARE(m_log->requests, QStringList{m_wiki.ArticleUrl(u"Banana")});
        m_log->Clear();
        QVERIFY(Click(u"external"_s, u"Apple - Wikipedia"_s));
        QCOMPARE(m_log->requests, QStringList{m_elsewhere.ArticleUrl(u"Apple")});
        m_log->Clear();
        m_browser->Navigate(u"about:blank"_s);
        QVERIFY(WaitUntil([&] { return !m_browser->Busy() && !m_log->requests.isEmpty(); }));
        QCOMPARE(m_log->requests, QStringList{u"about:blank"_s});
    }

    void addressRewrittenByScriptIsNoNavigation()
    {
        QVERIFY(Open(m_wiki.ArticleUrl(u"Apple"), u"Apple"_s + kSuffix));
        m_log->Clear();
        QVERIFY(Click(u"to-Big_Apple"_s, u"New York City"_s + kSuffix));
        QVERIFY(
            WaitUntil([&] { return m_browser->Page()->url() == QUrl(m_wiki.ArticleUrl(u"New York City")); }));
        QCOMPARE(m_log->requests, QStringList{m_wiki.ArticleUrl(u"Big Apple")});
    }

    // The word chooser waits for a title after every search: a page loaded again must say so.
    void samePageAgainRaisesItsTitle()
    {
        QVERIFY(Open(m_wiki.ArticleUrl(u"Banana"), u"Banana"_s + kSuffix));
        m_log->Clear();
        QVERIFY(Open(m_wiki.ArticleUrl(u"Banana"), u"Banana"_s + kSuffix));
        QCOMPARE(m_log->titles, QStringList{u"Banana"_s + kSuffix});
    }

    void busy()
    {
        QVERIFY(Open(m_wiki.ArticleUrl(u"Apple"), u"Apple"_s + kSuffix));
        QVERIFY(!m_browser->Busy());
        m_browser->Navigate(m_wiki.ArticleUrl(u"Banana"));
        QVERIFY(m_browser->Busy());
        QVERIFY(m_log->WaitForTitle(u"Banana"_s + kSuffix));

        // A jump within the page starts no load.
        QElapsedTimer clock;
        clock.start();
        m_browser->Navigate(m_wiki.ArticleUrl(u"Banana") + u"#Section"_s);
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }));
        QVERIFY(clock.elapsed() < WebEngineBrowser::kStartLimitMs);

        // A load superseded by another: busy until the second has loaded.
        m_browser->Navigate(m_odd.Url(u"/stall"));
        QTest::qWait(100);
        QVERIFY(m_browser->Busy());
        m_browser->Navigate(m_wiki.ArticleUrl(u"Fruit"));
        QVERIFY(m_log->WaitForTitle(u"Fruit"_s + kSuffix));
        QTest::qWait(100);
        QVERIFY(!m_browser->Busy());

        // Loads that end without a page, or never start.
        for (const QString& url :
             QStringList{m_odd.Url(u"/204"), u"http://"_s + TestAddress().toString() + u":9/"_s, u"foo:bar"_s,
                         u"http://"_s}) {
            m_browser->Navigate(url);
            QVERIFY2(WaitUntil([&] { return !m_browser->Busy(); }, 10000), qPrintable(url));
        }

        // A server that never answers holds the browser busy only up to the stall limit.
        m_browser->SetStallLimit(300);
        m_browser->Navigate(m_odd.Url(u"/stall"));
        QTest::qWait(100);
        QVERIFY(m_browser->Busy());
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }, 5000));
        m_browser->SetStallLimit(WebEngineBrowser::kDefaultStallLimitMs);
        QVERIFY(Open(m_wiki.ArticleUrl(u"Apple"), u"Apple"_s + kSuffix));
    }

    // Going back while a page still loads. The engine may fold the back navigation into the load
    // under way and report only that load's end, just before the page from the back cache shows.
    void goBackWhileLoading_data()
    {
        QTest::addColumn<int>("delayMs");
        for (const int delay : {0, 1, 3, 6, 10, 20})
            QTest::addRow("back %d ms after the page changed", delay) << delay;
    }
    void goBackWhileLoading()
    {
        QFETCH(int, delayMs);
        QVERIFY(Open(m_wiki.ArticleUrl(u"Banana"), u"Banana"_s + kSuffix));
        QVERIFY(Open(m_wiki.ArticleUrl(u"Apple"), u"Apple"_s + kSuffix));
        bool wentBack = false;
        QMetaObject::Connection goBack = connect(m_browser->Page(), &QWebEnginePage::urlChanged, this, [&] {
            disconnect(goBack);
            QTimer::singleShot(delayMs, this, [&] {
                m_browser->GoBack();
                wentBack = true;
            });
        });
        m_browser->Navigate(m_wiki.Url(u"/w/index.php?title=Apple&action=history"));
        QVERIFY(WaitUntil([&] { return wentBack; }));
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }, 10000));
        QCOMPARE(m_browser->Page()->url(), QUrl(m_wiki.ArticleUrl(u"Apple")));
        QCOMPARE(m_log->LastTitle(), u"Apple"_s + kSuffix);
        QString state;
        m_browser->Page()->runJavaScript(u"document.readyState"_s,
                                         [&](const QVariant& v) { state = v.toString(); });
        QVERIFY(WaitUntil([&] { return !state.isEmpty(); }));
        QCOMPARE(state, u"complete"_s);
    }

    void goBack()
    {
        QVERIFY(Open(m_wiki.ArticleUrl(u"Big Apple"), u"New York City"_s + kSuffix));
        QVERIFY(Click(u"to-Apple"_s, u"Apple"_s + kSuffix));
        QVERIFY(Click(u"to-Banana"_s, u"Banana"_s + kSuffix));
        m_browser->GoBack();
        QVERIFY(m_browser->Busy());
        QVERIFY(m_log->WaitForTitle(u"Apple"_s + kSuffix));
        m_browser->GoBack();
        QVERIFY(m_log->WaitForTitle(u"New York City"_s + kSuffix));
        QCOMPARE(m_browser->Page()->url(), QUrl(m_wiki.ArticleUrl(u"New York City")));

        WebEngineBrowser fresh(m_wiki.Host());
        fresh.GoBack();
        QVERIFY(!fresh.Busy());
    }

    void fillsItsGeometry()
    {
        auto* view = m_browser->findChild<QWebEngineView*>();
        QVERIFY(view);
        m_browser->setGeometry(8, 8, 640, 480);
        QCOMPARE(view->geometry(), QRect(0, 0, 640, 480));
        m_browser->resize(300, 200);
        QCOMPARE(view->geometry(), QRect(0, 0, 300, 200));
    }

    void factoryBuildsForTheDomain()
    {
        QWidget parent;
        Browser* browser = WebEngineBrowserFactory(u"wiki.test"_s)(&parent);
        QCOMPARE(browser->parent(), &parent);
        QCOMPARE(qobject_cast<WebEngineBrowser*>(browser)->Domain(), u"wiki.test"_s);
    }

    // A build for a local encyclopedia (LINKHOP_SITE_HOST and LINKHOP_SITE_DOMAIN 127.0.0.1:8080)
    // plays on it with the compiled site; other builds skip this.
    void compiledSiteOnLoopback()
    {
        const SiteConfig site = SiteConfig::Compiled();
        const QUrl root(u"http://"_s + site.host);
        const QHostAddress address(root.host());
        if (address.isNull() || !address.isLoopback() || root.port() <= 0)
            QSKIP("the compiled site is not a loopback address with a port");
        Encyclopedia local(Encyclopedia::Style::Today);
        if (!local.Listen(quint16(root.port()), address)) QSKIP("the compiled site's port is taken");
        std::unique_ptr<Browser> browser(WebEngineBrowserFactory(site.domain)(nullptr));
        BrowserLog log(*browser);
        browser->Navigate(site.MainPage());
        QVERIFY(log.WaitForTitle(u"Wikipedia, the free encyclopedia"_s));
        browser->Navigate(site.Search(u"new york city"));
        QVERIFY(log.WaitForTitle(u"New York City"_s + kSuffix));
        QCOMPARE(log.requests.last(), QString(u"http://"_s + site.host + u"/wiki/New_York_City"));
    }

    void cleanupTestCase()
    {
        m_log.reset();
        m_browser.reset();
    }
};

QTEST_MAIN(tst_webenginebrowser)
#include "tst_webenginebrowser.moc"
