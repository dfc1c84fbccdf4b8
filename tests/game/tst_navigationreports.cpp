#include "browserlog.h"
#include "clientfakes.h"
#include "core/udpendpoint.h"
#include "encyclopedia.h"
#include "game/navigationmonitor.h"
#include "platform/webenginebrowser.h"
#include "scriptedserver.h"

#include <QtTest>
#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

// The real browser on the test encyclopedia, a monitor wired to it as the game window wires it,
// and a scripted server at port 7200 receiving the reports.
class tst_navigationreports : public QObject
{
    Q_OBJECT

    Encyclopedia m_wiki;
    Encyclopedia m_elsewhere{Encyclopedia::Style::Today};
    ScriptedServer m_server;
    UdpEndpoint m_socket;
    std::unique_ptr<TestClient> m_client;
    std::unique_ptr<WebEngineBrowser> m_browser;
    std::unique_ptr<BrowserLog> m_log;
    NavigationRecord m_record;
    std::unique_ptr<NavigationMonitor> m_monitor;

    Session& session() { return *m_client->session; }
    QString Classic(const QString& article) const
    {
        return article + u" - Wikipedia, the free encyclopedia"_s;
    }

    // Waits for the n-th report and returns its text.
    QString Report(int n) { return m_server.WaitForVerb(u"NAVIGATE"_s, n, 15000); }
    QStringList Reports() const { return m_server.ReceivedWithVerb(u"NAVIGATE"_s); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_server.Listen());
        QVERIFY(m_wiki.Listen());
        QVERIFY(m_elsewhere.Listen());
        m_wiki.SetExternalLink(m_elsewhere.ArticleUrl(u"Apple"));
        m_socket.RemoteHost = TestAddress().toString();
        m_socket.RemotePort = 7200;
    }
    void init()
    {
        m_client = std::make_unique<TestClient>();
        session().SetSite({m_wiki.Host(), m_wiki.Host()});
        session().PlayerName = u"ann"_s;
        m_browser = std::make_unique<WebEngineBrowser>(m_wiki.Host());
        m_browser->resize(800, 600);
        m_browser->show();
        m_log = std::make_unique<BrowserLog>(*m_browser);
        m_record = {};
        m_monitor = std::make_unique<NavigationMonitor>(
            session(), m_record, [this](const QString& text) { m_socket.SendData(text); },
            [](const QString&) {});
        m_monitor->Watch(*m_browser);
        m_server.ClearReceived();
    }
    void cleanup()
    {
        m_monitor.reset();
        m_log.reset();
        m_browser.reset();
        m_client.reset();
    }

    void roundOnTheEncyclopedia_data()
    {
        QTest::addColumn<bool>("today");
        QTest::newRow("classic titles") << false;
        QTest::newRow("today's titles") << true;
    }
    void roundOnTheEncyclopedia()
    {
        QFETCH(bool, today);
        m_wiki.SetStyle(today ? Encyclopedia::Style::Today : Encyclopedia::Style::Classic);
        const SiteConfig site = session().Site();

        // The round's first page loads before the round counts, as the dispatcher does it.
        session().CurrentArticle = u"Apple"_s;
        session().RoutePath = u"Apple\r"_s;
        m_browser->Navigate(site.Search(u"apple"));
        QVERIFY(m_log->WaitForTitle(Classic(u"Apple"_s)));
        session().Words = WordList::FromStartGame(u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Fruit;");
        session().InRound = true;

        const auto click = [&](const char* id) { QVERIFY(ClickLink(*m_browser, QString::fromLatin1(id))); };
        const QString prefix = u"NAVIGATE NAME=ann;URL="_s;
        click("to-Banana");
        QCOMPARE(Report(1), prefix + u"Banana;");
        QVERIFY(ClickLink(*m_browser, Encyclopedia::LinkId(u"Fruit")));
        QCOMPARE(Report(2), prefix + u"Fruit;");
        click("history");
        QCOMPARE(Report(3), prefix + u"history;");
        m_browser->GoBack();
        QCOMPARE(Report(4), prefix + u"Fruit;");
        click("to-Banana");
        QCOMPARE(Report(5), prefix + u"Banana;");
        // Today's editor retitles its page once more: still one report.
        click("redlink");
        QCOMPARE(Report(6), prefix + u"edit;");
        m_browser->GoBack();
        QCOMPARE(Report(7), prefix + u"Banana;");
        click("external");
        QCOMPARE(Report(8), prefix + u"nowiki;");
        QVERIFY(m_log->WaitForTitle(u"Apple - Wikipedia"_s));
        // Back on the page reported last: nothing new.
        m_browser->GoBack();
        QVERIFY(m_log->WaitForTitle(Classic(u"Banana"_s)));
        m_browser->Navigate(site.Search(u"no such thing"));
        QCOMPARE(Report(9), prefix + u"search;");
        m_browser->Navigate(site.Search(u"big apple"));
        QCOMPARE(Report(10), prefix + u"New York City;");
        m_browser->Navigate(site.Search(u"1984"));
        QCOMPARE(Report(11), prefix + u"number;");
        // The initial article is where the round started, never a click.
        click("to-Apple");
        QVERIFY(m_log->WaitForTitle(Classic(u"Apple"_s)));
        QTest::qWait(300);

        QCOMPARE(Reports().size(), 11);
        QCOMPARE(session().RoutePath, u"Apple\rBanana\rFruit\rFruit\rBanana\rBanana\rNew York City\r"_s);
        QCOMPARE(session().CurrentArticle, u"Apple"_s);
        QCOMPARE(m_record.LastReported, u"Apple"_s);
    }

    // Outside a round the monitor only follows the article shown, which the word chooser reads.
    void outsideRoundNothingIsSent()
    {
        m_browser->Navigate(session().Site().Search(u"big apple"));
        QVERIFY(m_log->WaitForTitle(Classic(u"New York City"_s)));
        QCOMPARE(session().CurrentArticle, u"New York City"_s);
        m_browser->Navigate(session().Site().Search(u"no such thing"));
        QVERIFY(m_log->WaitForTitle(Classic(u"Search"_s)));
        QCOMPARE(session().CurrentArticle, u"Search"_s);
        m_browser->Navigate(m_elsewhere.ArticleUrl(u"Banana"));
        QVERIFY(m_log->WaitForTitle(u"Banana - Wikipedia"_s));
        QCOMPARE(session().CurrentArticle, u"Search"_s);
        QTest::qWait(200);
        QVERIFY(Reports().isEmpty());
    }
};

QTEST_MAIN(tst_navigationreports)
#include "tst_navigationreports.moc"
