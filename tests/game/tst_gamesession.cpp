#include "core/messages.h"
#include "core/wire.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "sessionfixture.h"

#include <QLabel>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

QString Label(const QWidget& w, const char* name)
{
    return w.findChild<QLabel*>(QString::fromLatin1(name))->text();
}
// The search address of an escaped text.
QString Search(const QString& w)
{
    return u"http://wiki.test/wiki/Special:Search?search="_s + w + u"&go=Go";
}

} // namespace

class tst_gamesession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void gameWindow()
    {
        {
            RunningSession f;
            QCOMPARE(f.browser->navigations, QStringList{u"http://wiki.test/wiki/Main_Page"_s});
            f.game->tmrPing->setInterval(50);
            f.game->tmrGetScores->stop(); // a player joining before the poll reaches the end is polled too
            QVERIFY(f.Deliver(u"JOIN NAME=di;"_s));
            f.game->tmrGetScores->start();
            QCOMPARE(f.server.WaitForVerb(u"PINGME"_s, 2), u"PINGME "_s + f.S().LocalPort);
            QVERIFY(WaitUntil([&] { return !f.game->tmrGetScores->isActive(); }));
            QTest::qWait(200);
            const QString poll = u"GETSCORE PORT="_s + f.S().LocalPort + u";NAME=";
            QCOMPARE(f.Sent(u"GETSCORE"_s),
                     (QStringList{poll + u"ann;", poll + u"bo;", poll + u"cy;", poll + u"di;"}));
            QVERIFY(f.Sent(u"GETWORDS"_s).isEmpty()); // no round to join
            // The browser leaves 8 pixels around it in the normal state, and keeps its size otherwise.
            f.game->resize(400, 300);
            QCOMPARE(f.browser->geometry(), QRect(8, 8, 384, 284));
            // A side too short for the margins is skipped; the other side still follows.
            f.game->resize(12, 200);
            QCOMPARE(f.browser->geometry(), QRect(8, 8, 384, 184));
            f.game->resize(300, 15);
            QCOMPARE(f.browser->geometry(), QRect(8, 8, 284, 184));
            f.game->resize(400, 300);
            f.game->setWindowState(Qt::WindowMaximized);
            QVERIFY(WaitUntil([&] { return f.game->width() > 400; }));
            QCOMPARE(f.browser->size(), QSize(384, 284));
        }
        // The roster shrinks under the poll: it never reads past the end.
        RunningSession f;
        QVERIFY(f.Deliver({u"LEAVE NAME=bo;"_s, u"LEAVE NAME=cy;"_s}));
        QVERIFY(WaitUntil([&] { return !f.game->tmrGetScores->isActive(); }));
        QVERIFY(f.Sent(u"GETSCORE"_s).size() <= 2);
    }

    void chatAndRoster()
    {
        RunningSession f;
        // Whether the datagram ends the transcript with `line`, or leaves it as it was.
        const auto said = [&](const QString& datagram, const QString& line) {
            const QString before = f.Transcript();
            const bool ok = f.Deliver(datagram) &&
                            (line.isEmpty() ? f.Transcript() == before : f.Transcript().endsWith(line));
            if (!ok) qWarning() << datagram << f.Transcript();
            return ok;
        };
        QVERIFY(said(u"JOIN NAME=di;"_s, u"GAME: di has joined the game."_s));
        QVERIFY(said(u"LEAVE NAME=Bo;"_s, u"GAME: Bo has left the game."_s));
        QVERIFY(said(u"DROP NAME=cy;"_s, u"GAME: cy was dropped from the game."_s));
        QVERIFY(said(u"LEAVE NAME=zed;"_s, u"GAME: zed has left the game."_s));
        QCOMPARE(Label(f.S().Scores(), "lblPlayers"), u"ann\r\ndi\r\n"_s);
        QCOMPARE(Label(f.S().Chat(), "lblPlayers"), u"Players (2):"_s);
        QVERIFY(said(u"CHAT NAME=bo;TEXT=hi; a=b TEXT=c"_s, u"bo: hi; a=b TEXT=c"_s));
        QVERIFY(said(u"TIME TIME=10:00:00;DATE=11/23/2026;"_s, u"Current Time: 10:00:00 on 11/23/2026"_s));
        QVERIFY(said(u"MESSAGE 3 user(s) here; hi"_s, u"GAME: 3 user(s) here; hi"_s));
        QVERIFY(said(u"MESSAGE"_s, {}));
        QVERIFY(said(u"chat NAME=bo;TEXT=x"_s, {}));
        QVERIFY(said(u"PATHIS NAME=bo;PATH=Apple\rFruit\rBanana;"_s,
                     u"GAME: The winning route was: \r\nApple --> Fruit --> Banana\r\n"
                     u"GAME: bo now chooses the next words."_s));
    }

    void scoresPingsAndFaults()
    {
        RunningSession f;
        QVERIFY(f.Deliver(
            {u"SCOREIS NAME=bo;WINS=2;CLICK=37;RCLICK=5;INGAME=no;"_s, u"PINGIS NAME=cy;PING=95;"_s}));
        QCOMPARE(f.S().Player(2).InGame, u"no"_s);
        const QString scores = u"0 / 0 / 0\r\n2 / 37 / 5\r\n0 / 0 / 0\r\n"_s;
        QCOMPARE(Label(f.S().Scores(), "lblScores"), scores);
        QCOMPARE(Label(f.S().Scores(), "lblPings"), u"0ms\r\n0ms\r\n95ms\r\n"_s);
        // Unknown names (matched exactly) and bad numbers: the datagram stops at its fault.
        f.S().Player(1).Clicks = 99;
        QVERIFY(
            f.Deliver({u"SCOREIS NAME=zed;WINS=1;CLICK=1;RCLICK=1;INGAME=yes;"_s, u"PINGIS NAME=Bo;PING=1;"_s,
                       u"SCOREIS NAME=ann;WINS=7;CLICK=x;RCLICK=1;INGAME=yes;"_s, u"PINGIS NAME=cy;PING=;"_s,
                       u"SCOREIS NAME=cy;WINS=1;CLICK=2;RCLICK=99999999999;INGAME=yes;"_s}));
        QCOMPARE(QList<int>({f.S().Player(1).Wins, f.S().Player(1).Clicks, f.S().Player(3).Clicks}),
                 QList<int>({7, 99, 2}));
        QCOMPARE(QList<int>({f.S().Player(2).Ping, f.S().Player(3).Ping}), QList<int>({0, 95}));
        QCOMPARE(Label(f.S().Scores(), "lblScores"), scores); // never refreshed
    }

    // What each datagram is when a flood fills the inbox: the round's messages and the game's own
    // lines are kept; scores and pings that set every field they carry, and the server's ping, are
    // superseded by a later one of their kind and player; chat and everything else is expendable.
    void triage_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("key");
        const int expendable = UdpEndpoint::Triage::Expendable, latest = UdpEndpoint::Triage::Latest,
                  kept = UdpEndpoint::Triage::Kept;
        QTest::newRow("score") << u"SCOREIS NAME=bo;WINS=1;CLICK=2;RCLICK=3;INGAME=no;"_s << latest
                               << u"SCOREIS bo"_s;
        QTest::newRow("score faulting half-way")
            << u"SCOREIS NAME=bo;WINS=1;CLICK=x;RCLICK=3;"_s << expendable << QString();
        QTest::newRow("score without round clicks")
            << u"SCOREIS NAME=bo;WINS=1;CLICK=2;"_s << expendable << QString();
        QTest::newRow("ping") << u"PINGIS NAME=Bo;PING=40;"_s << latest << u"PINGIS Bo"_s;
        QTest::newRow("ping out of range") << u"PINGIS NAME=bo;PING=2147483648;"_s << expendable << QString();
        QTest::newRow("the server's ping") << u"PING TIME=12;"_s << latest << u"PING"_s;
        for (const QString& message :
             {msg::StartGame({u"A"_s, u"B"_s}), msg::Winner(u"bo"), msg::NewGame(u"bo"), msg::Disqualify(),
              msg::PathIs(u"A\rB", u"bo"), msg::SetRandom(u"A", 1), msg::NavigateTo(u"A"), msg::Join(u"di"),
              msg::Leave(u"di"), msg::Drop(u"di"), u"MESSAGE Welcome"_s, msg::Disconnected()})
            QTest::newRow(qPrintable(Verb(message))) << message << kept << QString();
        QTest::newRow("a game line") << u"CHAT NAME=GAME;TEXT=bo is out of the round."_s << kept << QString();
        QTest::newRow("chat") << u"CHAT NAME=bo;TEXT=NAME=GAME;"_s << expendable << QString();
        QTest::newRow("chat about scores")
            << u"CHAT NAME=bo;TEXT=SCOREIS NAME=bo;PING=1;"_s << expendable << QString();
        QTest::newRow("the time") << u"TIME TIME=10:00;DATE=today;"_s << expendable << QString();
        QTest::newRow("a verb in other letters")
            << u"startgame COUNT=1;WORD0=A;WORD1=B;"_s << expendable << QString();
        QTest::newRow("a verb run on") << u"STARTGAMES COUNT=1;"_s << expendable << QString();
        QTest::newRow("nothing") << QString() << expendable << QString();
    }
    void triage()
    {
        QFETCH(QString, message);
        QFETCH(int, kind);
        QFETCH(QString, key);
        const UdpEndpoint::Triage triage = SessionDispatcher::TriageOf(ToWire(message));
        QCOMPARE(int(triage.kind), kind);
        QCOMPARE(triage.key, key);
    }

    void winnersNewGameAndPages()
    {
        RunningSession f;
        f.S().InRound = true;
        f.S().Player(2).RoundClicks = 3;
        QVERIFY(f.Deliver(u"WINNER NAME=bo;"_s));
        QVERIFY(!f.S().InRound);
        QVERIFY(f.Transcript().endsWith(u"GAME: bo has won the round in 3 clicks!"_s));
        QCOMPARE(Label(f.S().Scores(), "lblScores"), u"0 / 0 / 0\r\n1 / 0 / 3\r\n0 / 0 / 0\r\n"_s);
        // A stranger ends the round and nothing else.
        f.S().InRound = true;
        const QString before = f.Transcript();
        QVERIFY(f.Deliver(u"WINNER NAME=zed;"_s));
        QVERIFY(!f.S().InRound);
        QCOMPARE(f.Transcript(), before);
        // Others choose the next words (names match exactly); the round's route stays.
        f.S().InRound = true;
        f.S().RoutePath = u"Apple\r"_s;
        QVERIFY(f.Deliver({u"NEWGAME NAME=bo;"_s, u"NEWGAME NAME=Ann;"_s}));
        QCOMPARE(f.S().ChooserName, u"Ann"_s);
        QVERIFY(!f.S().InRound && f.S().RoutePath == u"Apple\r"_s);
        // Pages the server opens.
        QVERIFY(f.Deliver({u"NAVIGATE URL=New York;"_s, u"SETRANDOM SRC=3;URL=Pear;"_s}));
        QCOMPARE(f.browser->navigations.mid(1), (QStringList{Search(u"New%20York"_s), Search(u"Pear"_s)}));
        QCOMPARE(f.game->Navigation.LastReported, u"Pear"_s);
        QVERIFY(!f.Transcript().contains(u"Pear"_s));
        QVERIFY(f.Deliver({u"SETRANDOM SRC=1;URL=Apple;"_s, u"SETRANDOM SRC=2;URL=Banana split;"_s}));
        QVERIFY(f.Transcript().endsWith(u"GAME: Initial page randomized: \"Apple\"\r\n"
                                        u"GAME: Destination page randomized: \"Banana split\""_s));
        QVERIFY(!f.S().OpenWinner()); // not ours to choose: no chooser, no window
    }

    // Joining a running round, with no browser: reactions that open pages do all the rest.
    void joiningWithoutABrowser()
    {
        RunningSession f({.names = {u"ann"_s, u"bo"_s}, .joinInProgress = true, .withBrowser = false});
        QVERIFY(!f.game->wbMain);
        QVERIFY(f.Transcript().contains(u"GAME: Game is in progress; joining..."_s));
        QVERIFY(!f.S().JoinInProgress);
        // A negative count sets no words but starts the round all the same.
        QVERIFY(f.Deliver({u"NAVIGATE URL=Pear;"_s, u"NEWGAME NAME=ann;"_s, u"SETRANDOM SRC=1;URL=Apple;"_s,
                           u"STARTGAME COUNT=-1;WORD0=Apple;WORD1=Banana;"_s}));
        QVERIFY(f.S().OpenWinner() && f.S().OpenWinner()->isVisible()); // ours to choose
        QCOMPARE(f.S().OpenWinner()->txtInitial->text(), u"Apple"_s);
        QVERIFY(f.S().InRound);
        QCOMPARE(f.S().RoutePath, u"Apple\r"_s);
        QCOMPARE(f.S().Words.at(1), QString());
        QCOMPARE(f.Sent(u"GETWORDS"_s), QStringList{u"GETWORDS NAME=ann;"_s});
        f.S().CurrentArticle = u"talk"_s;
        QVERIFY(f.Deliver(u"DISQUALIFY"_s));
        QCOMPARE(f.S().Player(1).InGame, u"no"_s);
        QCOMPARE(f.Sent(u"CHAT"_s),
                 QStringList{u"CHAT NAME=GAME;TEXT=ann has been disqualified for visiting an "
                             u"illegal page: \"talk\""_s});
    }

    // A name longer than the roster takes from others: the server accepted it, so it is ours.
    void longOwnName()
    {
        const QString name(SessionData::kMaxNameLength + 1, u'a');
        RunningSession f({.names = {name, u"bo"_s}});
        QCOMPARE(Label(f.S().Scores(), "lblPlayers"), name + u"\r\nbo\r\n"_s);
        f.S().InRound = true;
        f.S().RoutePath = u"Apple\rBanana\r"_s;
        f.S().CurrentArticle = u"talk"_s;
        QVERIFY(f.Deliver(
            {u"DISQUALIFY"_s, u"JOIN NAME="_s + name.toUpper() + u';', u"WINNER NAME="_s + name + u';'}));
        QCOMPARE(f.S().PlayerCount(), 2);
        QCOMPARE(f.S().Player(1).InGame, u"no"_s);
        QCOMPARE(f.S().Player(1).Wins, 1);
        QCOMPARE(f.Sent(u"SENDMYPATH"_s),
                 QStringList{u"SENDMYPATH NAME="_s + name + u";PATH=Apple\rBanana;"});
        QVERIFY(f.S().OpenWinner() && f.S().OpenWinner()->isVisible());
    }

    void startGame()
    {
        RunningSession f;
        f.S().Player(2).RoundClicks = 4;
        f.S().Player(3).InGame = u"no"_s;
        f.browser->loadDelayMs = 1000;
        // A datagram arriving while the first page loads is handled to completion meanwhile.
        f.server.SendTo(u"STARTGAME COUNT=2147483647;WORD0=Apple;WORD1=Banana;"_s, f.Port());
        f.server.SendTo(u"CHAT NAME=bo;TEXT=go!"_s, f.Port());
        QVERIFY(WaitUntil([&] { return f.S().InRound; }));
        QCOMPARE(f.browser->navigations.last(), Search(u"Apple"_s));
        QCOMPARE(f.S().RoutePath, u"Apple\r"_s);
        QCOMPARE(f.S().Player(2).RoundClicks, 0);
        QCOMPARE(f.S().Player(3).InGame, u"yes"_s);
        QVERIFY2(f.Transcript().endsWith(u"bo: go!\r\nGAME: The game has begun!"_s),
                 qPrintable(f.Transcript()));
        QCOMPARE(Label(f.S().Scores(), "lblStartWord") + Label(f.S().Scores(), "lblNextWord"),
                 u"AppleBanana"_s);
    }

    // A server that sends nothing for as long as the limit, although every ping asks it to, is
    // told gone in a game line; when it answers again, that too. The session goes on meanwhile.
    void serverSilence_data()
    {
        QTest::addColumn<QStringList>("phases"); // 0.8 s each: the server "answers" pings or is "silent"
        QTest::addColumn<QStringList>("lines");
        const QString gone =
            u"GAME: The server has stopped answering: nothing has come from it for 1 second."_s;
        const QString back = u"GAME: The server answers again."_s;
        QTest::newRow("answering") << QStringList{u"answers"_s} << QStringList();
        QTest::newRow("gone") << QStringList{u"silent"_s} << QStringList{gone};
        QTest::newRow("gone, back and gone again")
            << QStringList{u"silent"_s, u"answers"_s, u"silent"_s} << QStringList{gone, back, gone};
    }
    void serverSilence()
    {
        QFETCH(QStringList, phases);
        QFETCH(QStringList, lines);
        RunningSession f;
        f.game->SetServerSilenceMs(400);
        f.game->tmrPing->setInterval(40);
        bool answering = false;
        f.server.OnVerb(u"PINGME"_s, [&](const ScriptedServer::Datagram&) {
            return answering ? QStringList{msg::Ping(u"1")} : QStringList();
        });
        for (const QString& phase : phases) {
            answering = phase == u"answers"_s;
            QTest::qWait(800);
        }
        QCOMPARE(f.Transcript().split(u"\r\n"_s).filter(u"GAME: The server"_s), lines);
        QVERIFY(!f.S().Ended());
        QCOMPARE(f.server.ReceivedWithVerb(u"PONG"_s).size() > 0, phases.contains(u"answers"_s));
    }

    void disconnecting()
    {
        {
            RunningSession f;
            f.S().Winner().show();
            // Notifications of a page still loading are queued when the window closes, in a round.
            f.S().InRound = true;
            f.browser->titleFor = [](const QString&) {
                return u"Banana - Wikipedia, the free encyclopedia"_s;
            };
            f.browser->Navigate(u"http://elsewhere.test/"_s);
            f.game->close();
            QCOMPARE(f.server.WaitForVerb(u"DISCONNECT"_s), u"DISCONNECT NAME=ann;"_s);
            QCOMPARE(f.client.programEnd.endings, QList<int>{0});
            QVERIFY(!f.S().OpenChat() && !f.S().OpenScores() && !f.S().OpenWinner());
            f.S().SendData(msg::Chat(u"ann", u"late")); // a panel that would still speak
            QTest::qWait(200);
            QCOMPARE(f.server.ReceivedTexts().last(), u"DISCONNECT NAME=ann;"_s); // nothing after it
            QCOMPARE(f.Sent(u"DISCONNECT"_s).size(), 1);
        }
        RunningSession f;
        f.server.SendTo(u"DISCONNECT"_s, f.Port());
        QVERIFY(WaitUntil([&] { return !f.client.programEnd.endings.isEmpty(); }));
        QCOMPARE(f.client.prompts.MessageTexts(),
                 QStringList{u"You have been disconnected from the game."_s});
        QCOMPARE(f.client.prompts.messageBoxes.first().icon, Icon::Information);
        QVERIFY(f.game->Disconnected && !f.S().OpenChat() && !f.S().OpenScores());
        QTest::qWait(100);
        QVERIFY(f.Sent(u"DISCONNECT"_s).isEmpty());
    }
};

QTEST_MAIN(tst_gamesession)
#include "tst_gamesession.moc"
