#include "clientfakes.h"
#include "game/navigationmonitor.h"
#include "scriptedserver.h"

#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

const QString kSuffix = u" - Wikipedia, the free encyclopedia"_s;

// A monitor over a test client, recording what it sends and every caption it sets.
struct Rig
{
    TestClient client;
    Session& session = *client.session;
    NavigationRecord record;
    QStringList sent;
    QStringList captions;
    NavigationMonitor monitor{session, record, [this](const QString& text) { sent.append(text); },
                              [this](const QString& caption) { captions.append(caption); }};

    Rig()
    {
        session.PlayerName = u"ann"_s;
        session.SetSite({u"wiki.test"_s, u"wiki.test"_s});
    }
    // The round as "STARTGAME" leaves it: words, route, and the flag.
    void StartRound(const QString& initial)
    {
        session.Words =
            WordList::FromStartGame(QString(u"STARTGAME COUNT=1;WORD0="_s % initial % u";WORD1=Zebra;"));
        session.CurrentArticle = initial;
        session.RoutePath = initial + u'\r';
        session.InRound = true;
    }
    QStringList SentUrls() const
    {
        QStringList urls;
        for (const QString& text : sent)
            urls.append(text.section(u"URL="_s, 1).chopped(1));
        return urls;
    }
};

} // namespace

class tst_navigationmonitor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A round: titles arrive in order; what was sent, the route, the caption and the state after.
    void titlesInRound_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("lastReportedBefore");
        QTest::addColumn<QStringList>("titles");
        QTest::addColumn<QStringList>("sentUrls");
        QTest::addColumn<QString>("route");
        QTest::addColumn<QString>("caption");
        QTest::addColumn<QString>("current");
        QTest::addColumn<QString>("lastReported");
        const QString s = kSuffix;

        QTest::newRow("article once for two title changes")
            << u"Start"_s << QString() << QStringList{u"Apple"_s + s, u"Apple"_s + s}
            << QStringList{u"Apple"_s} << u"Start\rApple\r"_s << u"Linkhop - Apple"_s << u"Apple"_s
            << u"Apple"_s;
        QTest::newRow("forbidden once, route untouched")
            << u"Start"_s << QString() << QStringList{u"Talk:Apple"_s + s, u"Talk:Apple"_s + s}
            << QStringList{u"talk"_s} << u"Start\r"_s << u"Linkhop - talk"_s << u"talk"_s << u"talk"_s;
        QTest::newRow("the initial article is no click")
            << u"Apple"_s << QString() << QStringList{u"Apple"_s + s} << QStringList{} << u"Apple\r"_s
            << u"Linkhop - Apple"_s << u"Apple"_s << u"Apple"_s;
        QTest::newRow("forbidden and back reports the article again")
            << u"Start"_s << QString() << QStringList{u"Apple"_s + s, u"Talk:Apple"_s + s, u"Apple"_s + s}
            << QStringList{u"Apple"_s, u"talk"_s, u"Apple"_s} << u"Start\rApple\rApple\r"_s
            << u"Linkhop - Apple"_s << u"Apple"_s << u"Apple"_s;
        QTest::newRow("two forbidden pages of one kind")
            << u"Start"_s << QString() << QStringList{u"Talk:Apple"_s + s, u"Talk:Banana"_s + s}
            << QStringList{u"talk"_s} << u"Start\r"_s << u"Linkhop - talk"_s << u"talk"_s << u"talk"_s;
        QTest::newRow("word chosen at random already counts as reported")
            << u"Start"_s << u"Apple"_s << QStringList{u"Apple"_s + s} << QStringList{} << u"Start\r"_s
            << u"Linkhop - Apple"_s << u"Apple"_s << u"Apple"_s;
        QTest::newRow("history page")
            << u"Start"_s << QString() << QStringList{u"Apple - History"_s + s} << QStringList{u"history"_s}
            << u"Start\r"_s << u"Linkhop - history"_s << u"history"_s << u"history"_s;
        QTest::newRow("number") << u"Start"_s << QString() << QStringList{u"1984"_s + s}
                                << QStringList{u"number"_s} << u"Start\r"_s << u"Linkhop - number"_s
                                << u"number"_s << u"number"_s;
        QTest::newRow("hyphens inside the article")
            << u"Start"_s << QString() << QStringList{u"Jean-Paul - Sartre"_s + s}
            << QStringList{u"Jean-Paul - Sartre"_s} << u"Start\rJean-Paul - Sartre\r"_s
            << u"Linkhop - Jean-Paul - Sartre"_s << u"Jean-Paul - Sartre"_s << u"Jean-Paul - Sartre"_s;
        QTest::newRow("main page names no article")
            << u"Start"_s << u"Apple"_s << QStringList{u"Wikipedia, the free encyclopedia"_s} << QStringList{}
            << u"Start\r"_s << u"Linkhop"_s << QString() << u"Apple"_s;
        QTest::newRow("hyphen without a space before it")
            << u"Start"_s << u"Apple"_s << QStringList{u"Wikipedia, the free encyclopedia-x"_s}
            << QStringList{} << u"Start\r"_s << u"Linkhop"_s << QString() << u"Apple"_s;
        QTest::newRow("title without the suffix")
            << u"Start"_s << QString() << QStringList{u"Apple - Wikipedia"_s, u"Apple"_s} << QStringList{}
            << u"Start\r"_s << QString() << u"Start"_s << QString();
        QTest::newRow("suffix in other letter case")
            << u"Start"_s << QString() << QStringList{u"Apple - wikipedia, the free encyclopedia"_s}
            << QStringList{} << u"Start\r"_s << QString() << u"Start"_s << QString();
        QTest::newRow("article differing only in case is new")
            << u"Start"_s << QString() << QStringList{u"Apple"_s + s, u"APPLE"_s + s}
            << QStringList{u"Apple"_s, u"APPLE"_s} << u"Start\rApple\rAPPLE\r"_s << u"Linkhop - APPLE"_s
            << u"APPLE"_s << u"APPLE"_s;
        QTest::newRow("hostile article sent as read")
            << u"Start"_s << QString() << QStringList{u"a;URL=b;NAME=c"_s + s}
            << QStringList{u"a;URL=b;NAME=c"_s} << u"Start\ra;URL=b;NAME=c\r"_s
            << u"Linkhop - a;URL=b;NAME=c"_s << u"a;URL=b;NAME=c"_s << u"a;URL=b;NAME=c"_s;
    }
    void titlesInRound()
    {
        QFETCH(QString, initial);
        QFETCH(QString, lastReportedBefore);
        QFETCH(QStringList, titles);
        QFETCH(QStringList, sentUrls);
        QFETCH(QString, route);
        QFETCH(QString, caption);
        QFETCH(QString, current);
        QFETCH(QString, lastReported);
        Rig rig;
        rig.StartRound(initial);
        rig.record.LastReported = lastReportedBefore;
        for (const QString& title : titles)
            rig.monitor.OnTitleChange(title);

        QCOMPARE(rig.SentUrls(), sentUrls);
        for (const QString& text : rig.sent)
            QVERIFY(text.startsWith(u"NAVIGATE NAME=ann;URL="_s));
        QCOMPARE(rig.session.RoutePath, route);
        QCOMPARE(rig.captions.isEmpty() ? QString() : rig.captions.last(), caption);
        QCOMPARE(rig.session.CurrentArticle, current);
        QCOMPARE(rig.record.LastReported, lastReported);
    }

    void exactMessage()
    {
        Rig rig;
        rig.StartRound(u"Start"_s);
        rig.monitor.OnTitleChange(u"Apple pie"_s + kSuffix);
        rig.monitor.OnBeforeNavigate2(u"http://example.com/"_s);
        QCOMPARE(rig.sent,
                 (QStringList{u"NAVIGATE NAME=ann;URL=Apple pie;"_s, u"NAVIGATE NAME=ann;URL=nowiki;"_s}));
    }

    void outsideRound()
    {
        Rig rig;
        rig.session.CurrentArticle = u"Before"_s;
        rig.session.RoutePath = u"Start\r"_s;
        rig.monitor.OnTitleChange(u"Apple"_s + kSuffix);
        QCOMPARE(rig.session.CurrentArticle, u"Apple"_s);
        rig.monitor.OnTitleChange(u"Talk:Apple"_s + kSuffix);
        QCOMPARE(rig.session.CurrentArticle, u"Talk:Apple"_s); // the rules apply only in a round
        rig.monitor.OnTitleChange(u"Wikipedia, the free encyclopedia"_s);
        rig.monitor.OnTitleChange(u"Wikipedia, the free encyclopedia-x"_s);
        rig.monitor.OnTitleChange(u"about:blank"_s);
        rig.monitor.OnTitleChange(u"Banana - Wikipedia"_s);
        QCOMPARE(rig.session.CurrentArticle, u"Talk:Apple"_s);
        rig.monitor.OnBeforeNavigate2(u"http://example.com/"_s);
        QCOMPARE(rig.session.CurrentArticle, u"Talk:Apple"_s);
        QVERIFY(rig.sent.isEmpty());
        QVERIFY(rig.captions.isEmpty());
        QCOMPARE(rig.record.LastReported, QString());
        QCOMPARE(rig.session.RoutePath, u"Start\r"_s);
    }

    void beforeNavigate2_data()
    {
        QTest::addColumn<QString>("domain");
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("leaves");
        QTest::newRow("article") << u"wiki.test"_s << u"http://wiki.test/wiki/Apple"_s << false;
        QTest::newRow("script address")
            << u"wiki.test"_s << u"http://wiki.test/w/index.php?action=history"_s << false;
        QTest::newRow("capitals") << u"wiki.test"_s << u"HTTP://WIKI.TEST/WIKI/APPLE"_s << false;
        QTest::newRow("domain in capitals") << u"Wiki.Test"_s << u"http://wiki.test/wiki/Apple"_s << false;
        QTest::newRow("mobile site") << u"wiki.test"_s << u"http://en.m.wiki.test/wiki/Apple"_s << false;
        QTest::newRow("with port") << u"127.0.0.1:8080"_s << u"http://127.0.0.1:8080/wiki/Apple"_s << false;
        QTest::newRow("other port") << u"127.0.0.1:8080"_s << u"http://127.0.0.1:8081/wiki/Apple"_s << true;
        QTest::newRow("other site") << u"wiki.test"_s << u"http://example.com/wiki/Apple"_s << true;
        QTest::newRow("site root") << u"wiki.test"_s << u"http://wiki.test/"_s << true;
        QTest::newRow("blank page") << u"wiki.test"_s << u"about:blank"_s << true;
        QTest::newRow("empty address") << u"wiki.test"_s << QString() << true;
        QTest::newRow("domain and /w anywhere")
            << u"wiki.test"_s << u"http://example.com/?u=wiki.test/w"_s << false;
    }
    void beforeNavigate2()
    {
        QFETCH(QString, domain);
        QFETCH(QString, url);
        QFETCH(bool, leaves);
        Rig rig;
        rig.session.SetSite({domain, domain});
        rig.StartRound(u"Start"_s);
        rig.record.LastReported = u"Apple"_s;
        rig.monitor.OnBeforeNavigate2(url);
        rig.monitor.OnBeforeNavigate2(url);
        // Leaving is reported every time and touches neither the route nor LastReported.
        QCOMPARE(rig.sent, leaves ? QStringList(2, u"NAVIGATE NAME=ann;URL=nowiki;"_s) : QStringList());
        QCOMPARE(rig.session.CurrentArticle, leaves ? u"nowiki"_s : u"Start"_s);
        QCOMPARE(rig.record.LastReported, u"Apple"_s);
        QCOMPARE(rig.session.RoutePath, u"Start\r"_s);
        QVERIFY(rig.captions.isEmpty());
    }

    // Leaving and coming back to the article just reported sends nothing new: LastReported stays.
    void leavingKeepsLastReported()
    {
        Rig rig;
        rig.StartRound(u"Start"_s);
        rig.monitor.OnTitleChange(u"Apple"_s + kSuffix);
        rig.monitor.OnBeforeNavigate2(u"http://example.com/"_s);
        rig.monitor.OnTitleChange(u"Apple"_s + kSuffix);
        QCOMPARE(rig.SentUrls(), (QStringList{u"Apple"_s, u"nowiki"_s}));
        QCOMPARE(rig.session.CurrentArticle, u"Apple"_s);
    }

    void roundEndsAndStartsAgain()
    {
        Rig rig;
        rig.StartRound(u"Start"_s);
        rig.monitor.OnTitleChange(u"Apple"_s + kSuffix);
        rig.session.InRound = false;
        rig.monitor.OnTitleChange(u"Banana"_s + kSuffix);
        rig.monitor.OnBeforeNavigate2(u"http://example.com/"_s);
        QCOMPARE(rig.SentUrls(), QStringList{u"Apple"_s});
        // LastReported carries over into the next round.
        rig.StartRound(u"Fruit"_s);
        rig.monitor.OnTitleChange(u"Apple"_s + kSuffix);
        rig.monitor.OnTitleChange(u"Banana"_s + kSuffix);
        QCOMPARE(rig.SentUrls(), (QStringList{u"Apple"_s, u"Banana"_s}));
        QCOMPARE(rig.session.RoutePath, u"Fruit\rBanana\r"_s);
    }

    void watchesABrowser()
    {
        Rig rig;
        rig.StartRound(u"Start"_s);
        ScriptedBrowser browser;
        browser.titleFor = [](const QString& url) -> QString { return url.section(u'/', -1) + kSuffix; };
        rig.monitor.Watch(browser);
        browser.Navigate(u"http://wiki.test/wiki/Apple"_s);
        browser.Follow(u"http://example.com/Banana"_s);
        QVERIFY(WaitUntil([&] { return rig.sent.size() == 2; }));
        QCOMPARE(rig.SentUrls(), (QStringList{u"nowiki"_s, u"Banana"_s}));
    }
};

QTEST_MAIN(tst_navigationmonitor)
#include "tst_navigationmonitor.moc"
