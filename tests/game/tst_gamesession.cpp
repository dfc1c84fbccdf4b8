#include "clientfakes.h"
#include "core/localport.h"
#include "core/udpendpoint.h"
#include "game/frmgame.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "scriptedserver.h"
#include "sessionfixture.h"

#include <QLabel>
#include <QPointer>
#include <QtTest>

#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

// The fixture with a roster of its own and, optionally, a round already running at the join.
struct Fixture : RunningSession
{
    explicit Fixture(const QStringList& names = {u"ann"_s, u"bo"_s, u"cy"_s}, bool joinInProgress = false,
                     bool withBrowser = true)
        : RunningSession(Make(names, joinInProgress, withBrowser))
    {
    }
    static Options Make(const QStringList& names, bool joinInProgress, bool withBrowser)
    {
        Options options;
        options.names = names;
        options.joinInProgress = joinInProgress;
        options.withBrowser = withBrowser;
        return options;
    }
    QString Label(const char* name) { return ScoreLabel(name); }
};

} // namespace

class tst_gamesession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void layoutOfTheSessionWindows()
    {
        Fixture f;
        frmChat* chat = f.S().OpenChat();
        frmScores* scores = f.S().OpenScores();
        QVERIFY(chat && scores && f.game);
        QCOMPARE(chat->frameGeometry().topLeft(), chat->screen()->geometry().topLeft());
        QCOMPARE(scores->frameGeometry().top(), chat->frameGeometry().bottom() + 1);
        QCOMPARE(f.game->frameGeometry().left(), scores->frameGeometry().right() + 1);
        QCOMPARE(f.game->frameGeometry().top(), f.game->screen()->geometry().top());
        QCOMPARE(f.game->frameGeometry().right(), f.game->screen()->geometry().right());
        QCOMPARE(f.game->frameGeometry().bottom(), f.game->screen()->geometry().bottom() - 32);
        QCOMPARE(f.game->windowTitle(), u"Linkhop"_s);
        QCOMPARE(f.browser->navigations.value(0), u"http://wiki.test/wiki/Main_Page"_s);
        // The browser leaves 8 pixels around it in the normal state, and keeps its size otherwise.
        f.game->resize(400, 300);
        QCOMPARE(f.browser->geometry(), QRect(8, 8, 384, 284));
        f.game->setWindowState(Qt::WindowMaximized);
        QVERIFY(WaitUntil([&] { return f.game->width() > 400; }));
        QCOMPARE(f.browser->size(), QSize(384, 284));
        f.game->setWindowState(Qt::WindowNoState);
        f.game->resize(60, 10);
        QCOMPARE(f.browser->size(), QSize(44, 0));
    }

    void scorePollAsksOncePerPlayer()
    {
        {
            Fixture f;
            QVERIFY(f.Deliver(u"JOIN NAME=di;"_s)); // joins before the sweep reaches the end: polled too
            QVERIFY(WaitUntil([&] { return f.Sent(u"GETSCORE"_s).size() == 4; }));
            QTest::qWait(400);
            const QString port = f.S().LocalPort;
            QCOMPARE(f.Sent(u"GETSCORE"_s), (QStringList{u"GETSCORE PORT="_s + port + u";NAME=ann;",
                                                        u"GETSCORE PORT="_s + port + u";NAME=bo;",
                                                        u"GETSCORE PORT="_s + port + u";NAME=cy;",
                                                        u"GETSCORE PORT="_s + port + u";NAME=di;"}));
            QVERIFY(!f.game->tmrGetScores->isActive());
        }
        Fixture shrinking({u"ann"_s, u"bo"_s, u"cy"_s});
        QVERIFY(shrinking.Deliver({u"LEAVE NAME=bo;"_s, u"LEAVE NAME=cy;"_s}));
        QTest::qWait(400);
        QVERIFY(!shrinking.game->tmrGetScores->isActive());
        QVERIFY(shrinking.Sent(u"GETSCORE"_s).size() <= 2);
    }

    void pingRequests()
    {
        Fixture f;
        f.game->tmrPing->setInterval(50);
        QVERIFY(WaitUntil([&] { return f.Sent(u"PINGME"_s).size() >= 2; }));
        QCOMPARE(f.Sent(u"PINGME"_s).first(), u"PINGME "_s + f.S().LocalPort);
    }

    void joiningARunningGame()
    {
        {
            Fixture joining({u"ann"_s}, true);
            QVERIFY(joining.Transcript().contains(u"GAME: Game is in progress; joining..."_s));
            QVERIFY(!joining.S().JoinInProgress);
            QCOMPARE(joining.server.WaitForVerb(u"GETWORDS"_s), u"GETWORDS NAME=ann;"_s);
            QTest::qWait(100);
            QCOMPARE(joining.Sent(u"GETWORDS"_s).size(), 1);
        }

        Fixture between({u"ann"_s}, false);
        QVERIFY(between.Deliver(u"CHAT NAME=x;TEXT=y"_s));
        QVERIFY(between.Sent(u"GETWORDS"_s).isEmpty());
        QVERIFY(!between.Transcript().contains(u"joining"_s));
    }

    void pingIsAnsweredWithItsTime()
    {
        Fixture f;
        const QString time = u"12:00:01 \u00e9;x"_s; // a ";" ends the field; the rest is not part of it
        f.server.SendTo(u"PING TIME="_s + time + u';', f.Port());
        QCOMPARE(f.server.WaitForVerb(u"PONG"_s), u"PONG NAME=ann;TIME=12:00:01 \u00e9;"_s);
        QCOMPARE(f.server.Received().last().port, f.Port());
    }

    void rosterMessages_data()
    {
        QTest::addColumn<QStringList>("datagrams");
        QTest::addColumn<QStringList>("roster");
        QTest::addColumn<QString>("line");
        QTest::newRow("join") << QStringList{u"JOIN NAME=di;"_s} << QStringList{u"ann"_s, u"bo"_s, u"cy"_s, u"di"_s}
                              << u"GAME: di has joined the game."_s;
        QTest::newRow("join twin") << QStringList{u"JOIN NAME=BO;"_s} << QStringList{u"ann"_s, u"bo"_s, u"cy"_s}
                                   << u"GAME: BO has joined the game."_s;
        QTest::newRow("leave") << QStringList{u"LEAVE NAME=Bo;"_s} << QStringList{u"ann"_s, u"cy"_s}
                               << u"GAME: Bo has left the game."_s;
        QTest::newRow("drop") << QStringList{u"DROP NAME=cy;"_s} << QStringList{u"ann"_s, u"bo"_s}
                              << u"GAME: cy was dropped from the game."_s;
        QTest::newRow("leave stranger") << QStringList{u"LEAVE NAME=zed;"_s} << QStringList{u"ann"_s, u"bo"_s, u"cy"_s}
                                        << u"GAME: zed has left the game."_s;
    }
    void rosterMessages()
    {
        QFETCH(QStringList, datagrams);
        QFETCH(QStringList, roster);
        QFETCH(QString, line);
        Fixture f;
        QVERIFY(f.Deliver(datagrams));
        QStringList names;
        for (const PlayerRecord& p : f.S().Players()) names.append(p.Name);
        QCOMPARE(names, roster);
        QVERIFY(f.Transcript().endsWith(line));
        QCOMPARE(f.Label("lblPlayers"), roster.join(u"\r\n"_s) + u"\r\n"_s);
        auto* players = f.S().OpenChat()->findChild<QLabel*>(u"lblPlayers"_s);
        QCOMPARE(players->text(), u"Players ("_s + QString::number(roster.size()) + u"):");
    }

    void scoresPingsAndFaults()
    {
        Fixture f;
        QVERIFY(f.Deliver(u"SCOREIS NAME=bo;WINS=2;CLICK=37;RCLICK=5;INGAME=no;"_s));
        const PlayerRecord& bo = f.S().Player(2);
        QCOMPARE(QList<int>({bo.Wins, bo.Clicks, bo.RoundClicks}), QList<int>({2, 37, 5}));
        QCOMPARE(bo.InGame, u"no"_s);
        QCOMPARE(f.Label("lblScores"), u"0 / 0 / 0\r\n2 / 37 / 5\r\n0 / 0 / 0\r\n"_s);
        QVERIFY(f.Deliver(u"PINGIS NAME=cy;PING=95;"_s));
        QCOMPARE(f.Label("lblPings"), u"0ms\r\n0ms\r\n95ms\r\n"_s);

        // Unknown names and bad numbers: the datagram stops at its fault, earlier changes stay.
        f.S().Player(1).Clicks = 99;
        QVERIFY(f.Deliver({u"SCOREIS NAME=zed;WINS=1;CLICK=1;RCLICK=1;INGAME=yes;"_s, u"PINGIS NAME=Bo;PING=1;"_s,
                   u"SCOREIS NAME=ann;WINS=7;CLICK=x;RCLICK=1;INGAME=yes;"_s, u"PINGIS NAME=cy;PING=;"_s,
                   u"SCOREIS NAME=cy;WINS=1;CLICK=2;RCLICK=99999999999;INGAME=yes;"_s}));
        QCOMPARE(f.S().Player(1).Wins, 7);
        QCOMPARE(f.S().Player(1).Clicks, 99);
        QCOMPARE(f.S().Player(2).Ping, 0);
        QCOMPARE(f.S().Player(3).Ping, 95);
        QCOMPARE(f.S().Player(3).Clicks, 2);
        QCOMPARE(f.Label("lblScores"), u"0 / 0 / 0\r\n2 / 37 / 5\r\n0 / 0 / 0\r\n"_s); // never refreshed
    }

    void chatLines_data()
    {
        QTest::addColumn<QString>("datagram");
        QTest::addColumn<QString>("line");
        QTest::newRow("chat") << u"CHAT NAME=bo;TEXT=hi; a=b TEXT=c"_s << u"bo: hi; a=b TEXT=c"_s;
        QTest::newRow("game notice") << u"CHAT NAME=GAME;TEXT=x"_s << u"GAME: x"_s;
        QTest::newRow("time") << u"TIME TIME=10:00:00;DATE=11/23/2026;"_s << u"Current Time: 10:00:00 on 11/23/2026"_s;
        QTest::newRow("message") << u"MESSAGE 3 user(s) here; hi"_s << u"GAME: 3 user(s) here; hi"_s;
        QTest::newRow("empty message") << u"MESSAGE "_s << u"GAME: "_s;
        QTest::newRow("bare message") << u"MESSAGE"_s << QString();
        QTest::newRow("lower-case verb") << u"chat NAME=bo;TEXT=x"_s << QString();
        QTest::newRow("path") << u"PATHIS NAME=bo;PATH=Apple\rFruit\rBanana;"_s
                              << u"GAME: The winning route was: \r\nApple --> Fruit --> Banana\r\nGAME: bo now chooses the next words."_s;
    }
    void chatLines()
    {
        QFETCH(QString, datagram);
        QFETCH(QString, line);
        Fixture f;
        const QString before = f.Transcript();
        QVERIFY(f.Deliver(datagram));
        if (line.isEmpty())
            QCOMPARE(f.Transcript(), before);
        else
            QVERIFY2(f.Transcript().endsWith(line), qPrintable(f.Transcript()));
    }

    void winners()
    {
        Fixture f;
        f.S().InRound = true;
        f.S().Player(2).RoundClicks = 3;
        QVERIFY(f.Deliver(u"WINNER NAME=bo;"_s));
        QVERIFY(!f.S().InRound);
        QVERIFY(f.Transcript().endsWith(u"GAME: bo has won the round in 3 clicks!"_s));
        QCOMPARE(f.S().Player(2).Wins, 1);
        QCOMPARE(f.Label("lblScores"), u"0 / 0 / 0\r\n1 / 0 / 3\r\n0 / 0 / 0\r\n"_s);
        QVERIFY(f.Sent(u"SENDMYPATH"_s).isEmpty());
        QVERIFY(!f.S().OpenWinner());

        f.S().InRound = true;
        f.S().RoutePath = u"Apple\rBanana\r"_s;
        QVERIFY(f.Deliver(u"WINNER NAME=ann;"_s));
        QCOMPARE(f.Sent(u"SENDMYPATH"_s), QStringList{u"SENDMYPATH NAME=ann;PATH=Apple\rBanana;"_s});
        QVERIFY(f.S().OpenWinner() && f.S().OpenWinner()->isVisible());

        // A stranger ends the round and nothing else.
        f.S().InRound = true;
        const QString before = f.Transcript();
        QVERIFY(f.Deliver(u"WINNER NAME=zed;"_s));
        QVERIFY(!f.S().InRound);
        QCOMPARE(f.Transcript(), before);
    }

    void newGameNamesTheChooser()
    {
        Fixture f;
        f.S().InRound = true;
        f.S().RoutePath = u"A\r"_s;
        QVERIFY(f.Deliver(u"NEWGAME NAME=bo;"_s));
        QCOMPARE(f.S().ChooserName, u"bo"_s);
        QVERIFY(!f.S().InRound);
        QCOMPARE(f.S().Words.size(), 1);
        QCOMPARE(f.S().RoutePath, u"A\r"_s);
        QVERIFY(!f.S().OpenWinner());
        QVERIFY(f.Deliver(u"NEWGAME NAME=Ann;"_s));
        QVERIFY(!f.S().OpenWinner());
        QVERIFY(f.Deliver(u"NEWGAME NAME=ann;"_s));
        QVERIFY(f.S().OpenWinner() && f.S().OpenWinner()->isVisible());
    }

    void disqualification()
    {
        Fixture f;
        f.S().InRound = true;
        f.S().CurrentArticle = u"talk"_s;
        QVERIFY(f.Deliver(u"DISQUALIFY"_s));
        QCOMPARE(f.S().Player(1).InGame, u"no"_s);
        QVERIFY(f.S().InRound);
        QCOMPARE(f.browser->navigations.last(), u"http://wiki.test/wiki/Main_Page"_s);
        QCOMPARE(f.Sent(u"CHAT"_s),
                 QStringList{u"CHAT NAME=GAME;TEXT=ann has been disqualified for visiting an illegal page: \"talk\""_s});
    }

    void pagesOpenedByTheServer()
    {
        Fixture f;
        QVERIFY(f.Deliver(u"NAVIGATE URL=New York;"_s));
        QCOMPARE(f.browser->navigations.last(), u"http://wiki.test/wiki/Special:Search?search=New York&go=Go"_s);

        QVERIFY(f.Deliver(u"SETRANDOM SRC=3;URL=Pear;"_s));
        QCOMPARE(f.browser->navigations.last(), u"http://wiki.test/wiki/Special:Search?search=Pear&go=Go"_s);
        QCOMPARE(f.game->Navigation.LastReported, u"Pear"_s);
        QVERIFY(!f.Transcript().contains(u"Pear"_s));

        QVERIFY(f.Deliver(u"SETRANDOM SRC=1;URL=Apple;"_s)); // the chooser is not shown: no box, no window
        QVERIFY(f.Transcript().endsWith(u"GAME: Initial page randomized: \"Apple\""_s));
        QVERIFY(!f.S().OpenWinner());

        frmWinner& chooser = f.S().Winner();
        chooser.show();
        QVERIFY(f.Deliver({u"SETRANDOM SRC=1;URL=Apple;"_s, u"SETRANDOM SRC=2;URL=Banana split;"_s}));
        QVERIFY(f.Transcript().endsWith(u"GAME: Destination page randomized: \"Banana split\""_s));
        QCOMPARE(chooser.txtInitial->text(), u"Apple"_s);
        QCOMPARE(chooser.txtDestination->text(), u"Banana split"_s);
    }

    // The client's browser factory may give none: reactions that open pages do all the rest.
    void reactionsWithoutABrowser()
    {
        Fixture f({u"ann"_s, u"bo"_s}, false, false);
        QVERIFY(!f.game->wbMain);
        f.Deliver({u"NAVIGATE URL=Pear;"_s, u"NEWGAME NAME=ann;"_s, u"SETRANDOM SRC=1;URL=Apple;"_s,
                   u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;"_s});
        QCOMPARE(f.S().OpenWinner()->txtInitial->text(), u"Apple"_s);
        QCOMPARE(f.game->Navigation.LastReported, u"Apple"_s);
        QVERIFY(f.S().InRound);
        QCOMPARE(f.S().RoutePath, u"Apple\r"_s);
        QCOMPARE(f.S().Words.at(1), u"Banana"_s);

        f.S().CurrentArticle = u"talk"_s;
        f.Deliver(u"DISQUALIFY"_s);
        QCOMPARE(f.S().Player(1).InGame, u"no"_s);
        QCOMPARE(f.Sent(u"CHAT"_s),
                 QStringList{u"CHAT NAME=GAME;TEXT=ann has been disqualified for visiting an illegal page: \"talk\""_s});
    }

    void startGame_data()
    {
        QTest::addColumn<QString>("datagram");
        QTest::addColumn<bool>("wordsSet");
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::newRow("two words") << u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;"_s << true << u"Apple"_s << u"Banana"_s;
        QTest::newRow("one word") << u"STARTGAME COUNT=0;WORD0=Apple;WORD1=Banana;"_s << true << u"Apple"_s << QString();
        QTest::newRow("huge count") << u"STARTGAME COUNT=2147483647;WORD0=Apple;WORD1=Banana;"_s << true << u"Apple"_s
                                    << u"Banana"_s;
        QTest::newRow("negative count") << u"STARTGAME COUNT=-1;WORD0=Apple;WORD1=Banana;"_s << false << u"Apple"_s
                                        << QString();
    }
    void startGame()
    {
        QFETCH(QString, datagram);
        QFETCH(bool, wordsSet);
        QFETCH(QString, first);
        QFETCH(QString, second);
        Fixture f;
        f.S().Player(2).RoundClicks = 4;
        f.S().Player(3).InGame = u"no"_s;
        f.browser->loadDelayMs = 300;
        // A datagram arriving while the first page loads is handled to completion meanwhile.
        f.server.SendTo(datagram, f.Port());
        f.server.SendTo(u"CHAT NAME=bo;TEXT=go!"_s, f.Port());
        QVERIFY(WaitUntil([&] { return f.S().InRound; }));
        QCOMPARE(f.browser->navigations.last(), u"http://wiki.test/wiki/Special:Search?search=Apple&go=Go"_s);
        QCOMPARE(f.S().RoutePath, u"Apple\r"_s);
        QCOMPARE(f.S().Player(2).RoundClicks, 0);
        QCOMPARE(f.S().Player(3).InGame, u"yes"_s);
        QVERIFY2(f.Transcript().endsWith(u"bo: go!\r\nGAME: The game has begun!"_s), qPrintable(f.Transcript()));
        QCOMPARE(f.S().TargetWordIndex, wordsSet ? 1 : 0);
        if (wordsSet) {
            QCOMPARE(f.S().Words.at(0), first);
            QCOMPARE(f.S().Words.at(1), second);
            QCOMPARE(f.Label("lblStartWord"), first);
            QCOMPARE(f.Label("lblNextWord"), second);
        }
    }

    void serverDisconnects()
    {
        Fixture f;
        f.server.SendTo(u"DISCONNECT"_s, f.Port());
        QVERIFY(WaitUntil([&] { return !f.client.programEnd.endings.isEmpty(); }));
        QCOMPARE(f.client.prompts.MessageTexts(), QStringList{u"You have been disconnected from the game."_s});
        QCOMPARE(f.client.prompts.messageBoxes.first().icon, Icon::Information);
        QVERIFY(f.game->Disconnected);
        QVERIFY(!f.S().OpenChat() && !f.S().OpenScores());
        QTest::qWait(100);
        QVERIFY(f.Sent(u"DISCONNECT"_s).isEmpty());
    }

    void closingTellsTheServerOnce()
    {
        Fixture f;
        f.S().Winner().show();
        f.game->close();
        QCOMPARE(f.server.WaitForVerb(u"DISCONNECT"_s), u"DISCONNECT NAME=ann;"_s);
        QCOMPARE(f.client.programEnd.endings, QList<int>{0});
        QVERIFY(!f.S().OpenChat() && !f.S().OpenScores() && !f.S().OpenWinner());
        QTest::qWait(100);
        QCOMPARE(f.Sent(u"DISCONNECT"_s).size(), 1);
    }
};

QTEST_MAIN(tst_gamesession)
#include "tst_gamesession.moc"
