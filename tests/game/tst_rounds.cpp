#include "browserlog.h"
#include "encyclopedia.h"
#include "panels/frmwinner.h"
#include "platform/webenginebrowser.h"
#include "sessionfixture.h"

#include <QWebEnginePage>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

// The real browser in a game window on the test encyclopedia, against a scripted server.
class tst_rounds : public QObject
{
    Q_OBJECT

    Encyclopedia m_wiki{Encyclopedia::Style::Today};
    Encyclopedia m_elsewhere{Encyclopedia::Style::Today};
    std::unique_ptr<RunningSession> m_client;
    std::unique_ptr<BrowserLog> m_log;
    WebEngineBrowser* m_browser = nullptr;
    const QString kSuffix = u" - Wikipedia, the free encyclopedia"_s;

    Session& S() { return m_client->S(); }
    QString Report(int n) { return m_client->server.WaitForVerb(u"NAVIGATE"_s, n, 15000); }
    bool Open(const QString& url, const QString& title)
    {
        m_browser->Navigate(url);
        return m_log->WaitForTitle(title);
    }
    bool Click(QStringView article, const QString& title)
    {
        return ClickLink(*m_browser, Encyclopedia::LinkId(article)) && m_log->WaitForTitle(title + kSuffix);
    }
    bool StartRound()
    {
        m_client->server.SendTo(u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;"_s, m_client->Port());
        return WaitUntil([&] { return S().InRound; }, 20000) && m_log->WaitForTitle(u"Apple"_s + kSuffix);
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_wiki.Listen() && m_elsewhere.Listen()); }
    void init()
    {
        m_wiki.SetStyle(Encyclopedia::Style::Today);
        m_client = std::make_unique<RunningSession>(
            RunningSession::Options{.names = {u"ann"_s, u"bo"_s}, .encyclopedia = m_wiki.Host()});
        m_browser = qobject_cast<WebEngineBrowser*>(m_client->game->wbMain);
        m_log = std::make_unique<BrowserLog>(*m_browser);
    }
    void cleanup() { m_client.reset(); } // before the next one binds the server port

    // The encyclopedia's pages in either style reach the rules in the classic form, reported once.
    void titlesAndReports_data()
    {
        QTest::addColumn<bool>("today");
        QTest::addColumn<QString>("address"); // a path, "search:" and the words, or "elsewhere"
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("report"); // empty: none
        // clang-format off
        const char* const rows[][3] = {
            {"/wiki/Apple", "Apple - Wikipedia, the free encyclopedia", "Apple"},
            {"/wiki/Main_Page", "Wikipedia, the free encyclopedia", ""},
            {"/wiki/Talk:Apple", "Talk:Apple - Wikipedia, the free encyclopedia", "talk"},
            {"/w/index.php?title=Apple&action=history", "Apple - History - Wikipedia, the free encyclopedia", "history"},
            {"/w/index.php?title=A&action=edit", "Editing A - Wikipedia, the free encyclopedia", "edit"},
            {"search:big apple", "New York City - Wikipedia, the free encyclopedia", "New York City"},
            {"search:no such thing", "Search - Wikipedia, the free encyclopedia", "search"},
            {"elsewhere", "Apple - Wikipedia", "nowiki"},
        };
        // clang-format on
        for (const bool today : {false, true})
            for (const auto& [address, title, report] : rows)
                QTest::addRow("%s %s", today ? "today" : "classic", address)
                    << today << QString::fromUtf8(address) << QString::fromUtf8(title)
                    << QString::fromUtf8(report);
    }
    void titlesAndReports()
    {
        QFETCH(bool, today);
        QFETCH(QString, address);
        QFETCH(QString, title);
        QFETCH(QString, report);
        m_wiki.SetStyle(today ? Encyclopedia::Style::Today : Encyclopedia::Style::Classic);
        S().InRound = true;
        const QString url = address == u"elsewhere"          ? m_elsewhere.ArticleUrl(u"Apple")
                            : address.startsWith(u"search:") ? S().Site().Search(QStringView(address).mid(7))
                                                             : m_wiki.Url(address);
        QVERIFY2(Open(url, title), qPrintable(m_log->titles.join(u" | ")));
        if (!report.isEmpty()) QCOMPARE(Report(1), u"NAVIGATE NAME=ann;URL="_s + report + u';');
        QTest::qWait(100);
        QCOMPARE(m_client->Sent(u"NAVIGATE"_s).size(), report.isEmpty() ? 0 : 1);
    }

    // One BeforeNavigate2 per navigation (none for an address rewritten by script); a page loaded
    // again raises its title.
    void navigationsAndGoBack()
    {
        const QString banana = m_wiki.ArticleUrl(u"Banana"), apple = m_wiki.ArticleUrl(u"Apple");
        QVERIFY(Open(S().Site().Search(u"banana"), u"Banana"_s + kSuffix));
        const qsizetype titles = m_log->titles.size();
        QVERIFY(Open(banana, u"Banana"_s + kSuffix));
        QCOMPARE(m_log->titles.mid(titles), QStringList{u"Banana"_s + kSuffix});
        QVERIFY(Click(u"Apple", u"Apple"_s));
        QVERIFY(Click(u"Big Apple", u"New York City"_s));
        QVERIFY(
            WaitUntil([&] { return m_browser->Page()->url() == QUrl(m_wiki.ArticleUrl(u"New York City")); }));
        m_browser->GoBack();
        QVERIFY(m_browser->Busy());
        QVERIFY(m_log->WaitForTitle(u"Apple"_s + kSuffix));
        m_browser->GoBack();
        QVERIFY(m_log->WaitForTitle(u"Banana"_s + kSuffix));
        m_browser->Navigate(u"about:blank"_s);
        QVERIFY(WaitUntil([&] { return !m_browser->Busy() && m_log->requests.last() == u"about:blank"; }));
        QCOMPARE(m_log->requests,
                 (QStringList{S().Site().Search(u"banana"), banana, banana, apple,
                              m_wiki.ArticleUrl(u"Big Apple"), apple, banana, u"about:blank"_s}));
        WebEngineBrowser fresh(m_wiki.Host());
        fresh.GoBack();
        QVERIFY(!fresh.Busy());
    }

    void busyEnds()
    {
        // A jump within the page starts no load.
        QElapsedTimer clock;
        clock.start();
        m_browser->Navigate(S().Site().MainPage() + u"#Section"_s);
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }));
        QVERIFY(clock.elapsed() < WebEngineBrowser::kStartLimitMs);
        // A load superseded by another: busy until the second has loaded.
        m_browser->Navigate(m_wiki.Url(u"/stall"));
        QTest::qWait(100);
        QVERIFY(m_browser->Busy());
        QVERIFY(Open(m_wiki.ArticleUrl(u"Fruit"), u"Fruit"_s + kSuffix));
        QTest::qWait(100);
        QVERIFY(!m_browser->Busy());
        // Loads that end without a page, or never start.
        for (const QString& url :
             QStringList{m_wiki.Url(u"/204"), u"http://"_s + TestAddress().toString() + u":9/", u"foo:bar"_s,
                         u"http://"_s}) {
            m_browser->Navigate(url);
            QVERIFY2(WaitUntil([&] { return !m_browser->Busy(); }, 10000), qPrintable(url));
        }
        // A server that never answers holds the browser busy only up to the stall limit.
        m_browser->SetStallLimit(300);
        m_browser->Navigate(m_wiki.Url(u"/stall"));
        QTest::qWait(100);
        QVERIFY(m_browser->Busy());
        QVERIFY(WaitUntil([&] { return !m_browser->Busy(); }, 5000));
    }

    // Back while loading: the engine may fold it into the load under way and end that first.
    void goBackWhileLoading()
    {
        for (const int delayMs : {0, 3, 10}) {
            QVERIFY(Open(m_wiki.ArticleUrl(u"Apple"), u"Apple"_s + kSuffix));
            bool wentBack = false;
            QMetaObject::Connection back = connect(m_browser->Page(), &QWebEnginePage::urlChanged, this, [&] {
                disconnect(back);
                QTimer::singleShot(delayMs, this, [&] {
                    m_browser->GoBack();
                    wentBack = true;
                });
            });
            m_browser->Navigate(m_wiki.Url(u"/w/index.php?title=Apple&action=history"));
            QVERIFY(WaitUntil([&] { return wentBack; }) &&
                    WaitUntil([&] { return !m_browser->Busy(); }, 10000));
            QCOMPARE(m_browser->Page()->url(), QUrl(m_wiki.ArticleUrl(u"Apple")));
            QCOMPARE(m_log->titles.last(), u"Apple"_s + kSuffix);
            QString state;
            m_browser->Page()->runJavaScript(u"document.readyState"_s,
                                             [&](const QVariant& v) { state = v.toString(); });
            QVERIFY(WaitUntil([&] { return !state.isEmpty(); }));
            QCOMPARE(state, u"complete"_s);
        }
    }

    void wholeRounds()
    {
        RunningSession& c = *m_client;
        // The first page is no click; every page after it is reported once.
        QVERIFY(StartRound());
        QVERIFY(Click(u"Fruit", u"Fruit"_s));
        QCOMPARE(Report(1), u"NAVIGATE NAME=ann;URL=Fruit;"_s);
        QCOMPARE(c.game->windowTitle(), u"Linkhop - Fruit"_s);
        QVERIFY(Click(u"Banana", u"Banana"_s));
        QCOMPARE(Report(2), u"NAVIGATE NAME=ann;URL=Banana;"_s);
        // We win: the route goes to the server, the chooser opens, later pages are not reported.
        QVERIFY(c.Deliver(u"WINNER NAME=ann;"_s));
        QCOMPARE(c.Sent(u"SENDMYPATH"_s), QStringList{u"SENDMYPATH NAME=ann;PATH=Apple\rFruit\rBanana;"_s});
        QVERIFY(S().OpenWinner() && S().OpenWinner()->isVisible());
        // Outside a round the rules do not apply and nothing is reported; the article is still kept.
        QVERIFY(Click(u"Talk:Apple", u"Talk:Apple"_s));
        QCOMPARE(S().CurrentArticle, u"Talk:Apple"_s);
        QVERIFY(ClickLink(*m_browser, u"external"_s) && WaitUntil([&] { return !m_browser->Busy(); }));
        QCOMPARE(S().CurrentArticle, u"Talk:Apple"_s);
        QCOMPARE(c.Sent(u"NAVIGATE"_s).size(), 2);
        QCOMPARE(c.game->windowTitle(), u"Linkhop - Banana"_s);

        // The next round: disqualified on a talk page, back on the main page, still watched.
        QVERIFY(StartRound());
        QVERIFY(Click(u"Talk:Apple", u"Talk:Apple"_s));
        QCOMPARE(Report(3), u"NAVIGATE NAME=ann;URL=talk;"_s);
        QVERIFY(c.Deliver(u"DISQUALIFY"_s));
        QCOMPARE(c.Sent(u"CHAT"_s), QStringList{u"CHAT NAME=GAME;TEXT=ann has been disqualified for visiting "
                                                u"an illegal page: \"talk\""_s});
        QVERIFY(m_log->WaitForTitle(u"Wikipedia, the free encyclopedia"_s));
        QVERIFY(S().InRound && S().CurrentArticle.isEmpty() && c.game->windowTitle() == u"Linkhop"_s);
        QVERIFY(Click(u"Banana", u"Banana"_s));
        QCOMPARE(Report(4), u"NAVIGATE NAME=ann;URL=Banana;"_s);
    }
};

QTEST_MAIN(tst_rounds)
#include "tst_rounds.moc"
