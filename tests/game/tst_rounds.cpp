#include "browserlog.h"
#include "encyclopedia.h"
#include "game/frmgame.h"
#include "panels/frmchat.h"
#include "panels/frmwinner.h"
#include "platform/webenginebrowser.h"
#include "sessionfixture.h"

#include <QtTest>

#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

QString Classic(const QString& article) { return article + u" - Wikipedia, the free encyclopedia"_s; }

} // namespace

// Whole rounds, as the server would lead them, played by a client with the real browser on the
// test encyclopedia (in today's title style), against a scripted server.
class tst_rounds : public QObject
{
    Q_OBJECT

    Encyclopedia m_wiki{Encyclopedia::Style::Today};
    std::unique_ptr<RunningSession> m_client;
    std::unique_ptr<BrowserLog> m_log;

    Session& S() { return m_client->S(); }
    WebEngineBrowser& Browser() { return *qobject_cast<WebEngineBrowser*>(m_client->game->wbMain); }
    QString Report(int n) { return m_client->server.WaitForVerb(u"NAVIGATE"_s, n, 15000); }
    void Click(const QString& article) { QVERIFY(ClickLink(Browser(), Encyclopedia::LinkId(article))); }
    frmWinner* Chooser() { return S().OpenWinner(); }

    void StartRound(const QString& initial, const QString& destination)
    {
        m_client->server.SendTo(
            u"STARTGAME COUNT=1;WORD0="_s + initial + u";WORD1=" + destination + u';', m_client->Port());
        QVERIFY(WaitUntil([&] { return S().InRound; }, 20000));
        QVERIFY(m_log->WaitForTitle(Classic(initial)));
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_wiki.Listen());
        m_wiki.AddRedirect(u"Malus"_s, u"Apple"_s);
    }
    void init()
    {
        RunningSession::Options options;
        options.names = {u"ann"_s, u"bo"_s};
        options.browsers = WebEngineBrowserFactory(m_wiki.Host());
        options.site = {m_wiki.Host(), m_wiki.Host()};
        m_client = std::make_unique<RunningSession>(std::move(options));
        m_log = std::make_unique<BrowserLog>(Browser());
    }
    void cleanup()
    {
        m_log.reset();
        m_client.reset();
    }

    void roundFromChosenWordsToTheNextChooser()
    {
        RunningSession& c = *m_client;
        c.server.OnVerb(u"GETRANDOM"_s, QStringList{u"SETRANDOM SRC=1;URL=apple;"_s});

        // The server names us chooser; a random initial word, a destination by redirect.
        QVERIFY(c.Deliver(u"NEWGAME NAME=ann;"_s));
        QVERIFY(Chooser() && Chooser()->isVisible());
        Chooser()->cmdRandom1->click();
        QVERIFY(WaitUntil([&] { return Chooser()->txtInitial->text() == u"apple"_s; }));
        QVERIFY(c.Transcript().endsWith(u"GAME: Initial page randomized: \"apple\""_s));
        Chooser()->txtDestination->setText(u"big apple"_s);
        Chooser()->cmdVerify->click();
        QCOMPARE(Chooser()->txtInitial->text(), u"Apple"_s);
        QCOMPARE(Chooser()->txtDestination->text(), u"New York City"_s);
        QVERIFY(Chooser()->cmdStartGame->isEnabled());
        Chooser()->cmdStartGame->click();
        QCOMPARE(c.server.WaitForVerb(u"SETWORDS"_s), u"SETWORDS COUNT=1;WORD0=Apple;WORD1=New York City;"_s);
        QTRY_VERIFY(!Chooser());

        // The round: the first page is not a click, every page after it is reported once.
        StartRound(u"Apple"_s, u"Banana"_s);
        QCOMPARE(S().RoutePath, u"Apple\r"_s);
        QCOMPARE(c.ScoreLabel("lblStartWord"), u"Apple"_s);
        QCOMPARE(c.ScoreLabel("lblNextWord"), u"Banana"_s);
        Click(u"Fruit"_s);
        QCOMPARE(Report(1), u"NAVIGATE NAME=ann;URL=Fruit;"_s);
        QCOMPARE(c.game->windowTitle(), u"Linkhop - Fruit"_s);
        Click(u"Banana"_s);
        QCOMPARE(Report(2), u"NAVIGATE NAME=ann;URL=Banana;"_s);

        // We win: the route goes to the server, the chooser opens, the chat tells everyone.
        QVERIFY(c.Deliver({u"SCOREIS NAME=ann;WINS=0;CLICK=2;RCLICK=2;INGAME=yes;"_s, u"WINNER NAME=ann;"_s}));
        QCOMPARE(c.Sent(u"SENDMYPATH"_s), QStringList{u"SENDMYPATH NAME=ann;PATH=Apple\rFruit\rBanana;"_s});
        QVERIFY(!S().InRound);
        QVERIFY(Chooser() && Chooser()->isVisible());
        QCOMPARE(c.ScoreLabel("lblScores"), u"1 / 2 / 2\r\n0 / 0 / 0\r\n"_s);
        QVERIFY(c.Deliver(u"PATHIS NAME=ann;PATH=Apple\rFruit\rBanana;"_s));
        QVERIFY(c.Transcript().endsWith(u"GAME: ann has won the round in 2 clicks!\r\n"
                                        u"GAME: The winning route was: \r\nApple --> Fruit --> Banana\r\n"
                                        u"GAME: ann now chooses the next words."_s));
        // Pages after the round are not reported.
        Click(u"Apple"_s);
        QVERIFY(m_log->WaitForTitle(Classic(u"Apple"_s)));
        QCOMPARE(c.Sent(u"NAVIGATE"_s).size(), 2);
    }

    void chooserRefusesWhatCannotBePlayed()
    {
        RunningSession& c = *m_client;
        QVERIFY(c.Deliver(u"NEWGAME NAME=ann;"_s));
        Chooser()->txtInitial->setText(u"no such article"_s);
        Chooser()->txtDestination->setText(u"Banana"_s);
        Chooser()->cmdVerify->click();
        QCOMPARE(c.client.prompts.MessageTexts(), QStringList{u"This article doesn't exist."_s});
        QVERIFY(Chooser()->cmdVerify->isEnabled());

        // A destination that leads back to the initial article is searched four times.
        Chooser()->txtInitial->setText(u"apple"_s);
        Chooser()->txtDestination->setText(u"Malus"_s);
        Chooser()->cmdVerify->click();
        QCOMPARE(c.client.prompts.MessageTexts().last(), u"There was a problem verifying the destination article."_s);
        QCOMPARE(Chooser()->txtInitial->text(), u"Apple"_s);
        QVERIFY(!Chooser()->cmdVerify->isEnabled() && !Chooser()->cmdStartGame->isEnabled());
        QCOMPARE(Chooser()->VerifyAttempts(), 5);
    }

    void disqualifiedThenBeatenThenDisconnected()
    {
        RunningSession& c = *m_client;
        StartRound(u"Apple"_s, u"Banana"_s);
        Click(u"Talk:Apple"_s);
        QCOMPARE(Report(1), u"NAVIGATE NAME=ann;URL=talk;"_s);
        QCOMPARE(c.game->windowTitle(), u"Linkhop - talk"_s);

        QVERIFY(c.Deliver(u"DISQUALIFY"_s));
        QCOMPARE(c.Sent(u"CHAT"_s), QStringList{u"CHAT NAME=GAME;TEXT=ann has been disqualified for visiting "
                                                u"an illegal page: \"talk\""_s});
        QCOMPARE(S().Player(1).InGame, u"no"_s);
        QVERIFY(S().InRound);
        QVERIFY(m_log->WaitForTitle(u"Wikipedia, the free encyclopedia"_s)); // the main page

        // Still watched until the round ends: leaving the encyclopedia is reported.
        Click(u"Banana"_s);
        QCOMPARE(Report(2), u"NAVIGATE NAME=ann;URL=Banana;"_s);
        QVERIFY(ClickLink(Browser(), u"external"_s));
        QCOMPARE(Report(3), u"NAVIGATE NAME=ann;URL=nowiki;"_s);

        QVERIFY(c.Deliver({u"SCOREIS NAME=bo;WINS=0;CLICK=3;RCLICK=3;INGAME=yes;"_s, u"WINNER NAME=bo;"_s}));
        QVERIFY(c.Sent(u"SENDMYPATH"_s).isEmpty());
        QVERIFY(!Chooser());
        QVERIFY(c.Transcript().endsWith(u"GAME: bo has won the round in 3 clicks!"_s));

        c.server.SendTo(u"DISCONNECT"_s, c.Port());
        QVERIFY(WaitUntil([&] { return !c.client.programEnd.endings.isEmpty(); }));
        QCOMPARE(c.client.prompts.MessageTexts().last(), u"You have been disconnected from the game."_s);
        QTest::qWait(100);
        QVERIFY(c.Sent(u"DISCONNECT"_s).isEmpty());
    }
};

QTEST_MAIN(tst_rounds)
#include "tst_rounds.moc"
