// The server over loopback, as clients see it: every datagram checked byte for byte.
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "scriptedclient.h"
#include "scriptedserver.h"
#include "server/gameserver.h"

#include <QRegularExpression>
#include <QtTest>
#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;
using linkhop::test::OtherAddress;
using linkhop::test::ScriptedClient;
using linkhop::test::TestAddress;

namespace {

enum Port : quint16
{
    kAnn = 47301,
    kBo,
    kCy,
    kEve,
    kStranger
};

ServerConfig TestConfig()
{
    ServerConfig config;
    config.Welcome = u"Welcome! %p playing on %v"_s;
    config.Articles = {u"Apple"_s, u"Banana"_s, u"Cherry"_s};
    config.Seed = 7;
    return config;
}

QString Score(const QString& name, int wins, int clicks, int roundClicks, bool inGame = true)
{
    return msg::ScoreIs(name, wins, clicks, roundClicks, inGame);
}

} // namespace

class tst_server : public QObject
{
    Q_OBJECT

    std::unique_ptr<GameServer> m_server;
    QStringList m_events;

    bool StartServer(const ServerConfig& config = TestConfig())
    {
        m_server = std::make_unique<GameServer>(config);
        m_events.clear();
        connect(m_server.get(), &GameServer::EventLogged, this,
                [this](const QString& line) { m_events.append(line); });
        // Another program's test may hold port 7200 on every address for a moment.
        return linkhop::test::WaitUntil([&] { return m_server->Start(TestAddress()); }, 5000);
    }
    const Room& room() const { return m_server->GameRoom(); }

    // Ann joins first (host and chooser), then Bo; both have read everything so far.
    static bool AnnAndBo(ScriptedClient& ann, ScriptedClient& bo)
    {
        const bool joined = ann.Join(u"Ann"_s).size() == 4 && bo.Join(u"Bo"_s).size() == 3;
        const bool told = ann.Next() == msg::Join(u"Bo");
        return joined && told;
    }

    static bool StartRound(ScriptedClient& chooser, ScriptedClient& other)
    {
        chooser.Send(msg::SetWords(u"Apple", u"Banana"));
        const QString start = msg::StartGame({u"Apple"_s, u"Banana"_s});
        const bool a = chooser.Next() == start;
        const bool b = other.Next() == start;
        return a && b;
    }

private Q_SLOTS:
    void cleanup() { m_server.reset(); }

    void handshake_data()
    {
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("bannedNames");
        QTest::addColumn<QString>("bannedIPs");
        QTest::addColumn<bool>("fromAnn");    // sent from the endpoint Ann plays from
        QTest::addColumn<QString>("connect"); // "%port" stands for the sender's port
        QTest::addColumn<QString>("expected");

        const QString first = u"CONNECT VER=1.04 (beta);NAME=%1;PORT=%port;PWD=;"_s;
        const QString withPassword = u"CONNECT VER=1.04 (beta);NAME=Bo;PWD=%1;"_s;
        const QString accepted = u"CONNECTACCEPT PLAYING=no;"_s;
        QTest::newRow("accepted") << u""_s << u""_s << u""_s << false << first.arg(u"Bo") << accepted;
        QTest::newRow("other version")
            << u""_s << u""_s << u""_s << false << u"CONNECT VER=1.03;NAME=Bo;PORT=%port;PWD=;"_s
            << u"CONNECTREJECT VER=1.04 (beta);"_s;
        QTest::newRow("no version") << u""_s << u""_s << u""_s << false
                                    << u"CONNECT NAME=Bo;PORT=%port;PWD=;"_s
                                    << u"CONNECTREJECT VER=1.04 (beta);"_s;
        QTest::newRow("empty name") << u""_s << u""_s << u""_s << false << first.arg(u"")
                                    << u"CONNECTREJECT ERROR=-1;"_s;
        QTest::newRow("blank name") << u""_s << u""_s << u""_s << false << first.arg(u"   ")
                                    << u"CONNECTREJECT ERROR=-1;"_s;
        QTest::newRow("name with =") << u""_s << u""_s << u""_s << false << first.arg(u"B=o")
                                     << u"CONNECTREJECT ERROR=-1;"_s;
        QTest::newRow("name in use, other case")
            << u""_s << u""_s << u""_s << false << first.arg(u"aNN") << u"CONNECTREJECT ERROR=-10;"_s;
        QTest::newRow("same address and port")
            << u""_s << u""_s << u""_s << true << first.arg(u"Bo") << u"CONNECTREJECT ERROR=-20;"_s;
        QTest::newRow("banned name, other case")
            << u""_s << u"eve,bO"_s << u""_s << false << first.arg(u"Bo") << u"CONNECTREJECT ERROR=-11;"_s;
        QTest::newRow("game notices' speaker")
            << u""_s << u""_s << u""_s << false << first.arg(u"Game") << u"CONNECTREJECT ERROR=-11;"_s;
        QTest::newRow("banned address") << u""_s << u""_s << (u"10.0.0.1,"_s + OtherAddress().toString())
                                        << false << first.arg(u"Bo") << u"CONNECTREJECT ERROR=-21;"_s;
        QTest::newRow("banned subnet") << u""_s << u""_s << u"127.200.0.0/16"_s << false << first.arg(u"Bo")
                                       << u"CONNECTREJECT ERROR=-21;"_s;
        QTest::newRow("private, first form")
            << u"pw"_s << u""_s << u""_s << false << first.arg(u"Bo") << u"NEEDPWD"_s;
        QTest::newRow("private, wrong password") << u"pw"_s << u""_s << u""_s << false
                                                 << withPassword.arg(u"PW") << u"CONNECTREJECT ERROR=-100;"_s;
        QTest::newRow("private, right password")
            << u"pw"_s << u""_s << u""_s << false << withPassword.arg(u"pw") << accepted;
        QTest::newRow("public, password ignored")
            << u""_s << u""_s << u""_s << false << withPassword.arg(u"x") << accepted;
    }
    void handshake()
    {
        QFETCH(QString, password);
        QFETCH(QString, bannedNames);
        QFETCH(QString, bannedIPs);
        QFETCH(bool, fromAnn);
        QFETCH(QString, connect);
        QFETCH(QString, expected);
        ServerConfig config = TestConfig();
        config.Password = password;
        config.BannedNames = bannedNames.split(u',', Qt::SkipEmptyParts);
        config.BannedSubnets = ParseBannedAddresses(bannedIPs.split(u','));
        QVERIFY(StartServer(config));
        ScriptedClient ann(kAnn);
        ScriptedClient newcomer(kBo, OtherAddress());
        QVERIFY(ann.Bound() && newcomer.Bound());
        QCOMPARE(ann.Join(u"Ann"_s, password).constFirst(), u"CONNECTACCEPT PLAYING=no;"_s);
        ann.Skip();

        ScriptedClient& sender = fromAnn ? ann : newcomer;
        sender.Send(QString(connect).replace(u"%port"_s, sender.PortText()));
        QCOMPARE(sender.Next(), expected);
        QCOMPARE(sender.Collect(100), QStringList());
        QCOMPARE(room().Players().size(), 1);
    }

    void passwordAnswerGoesToTheAnnouncedPort()
    {
        // The password form carries no port: its answer goes where the first form's went.
        ServerConfig config = TestConfig();
        config.Password = u"pw"_s;
        QVERIFY(StartServer(config));
        ScriptedClient sender(kAnn), listener(kBo);
        sender.Send(msg::Connect(ClientVersion, u"Ann", listener.PortText()));
        QCOMPARE(listener.Next(), u"NEEDPWD"_s);
        sender.Send(msg::ConnectWithPassword(ClientVersion, u"Ann", u"nope"));
        QCOMPARE(listener.Next(), u"CONNECTREJECT ERROR=-100;"_s);
        sender.Send(msg::ConnectWithPassword(ClientVersion, u"Ann", u"pw"));
        QCOMPARE(listener.Next(), u"CONNECTACCEPT PLAYING=no;"_s);
        QCOMPARE(sender.Collect(100), QStringList());
    }

    void joiningTellsEveryone()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo), cy(kCy);
        QCOMPARE(ann.Join(u"Ann"_s), (QStringList{u"CONNECTACCEPT PLAYING=no;"_s, u"ISHOST NAME=Ann;"_s,
                                                  u"MESSAGE Welcome! 1 playing on 1.04 (beta)"_s,
                                                  u"PLAYERLIST COUNT=1;P1=Ann;"_s}));
        QCOMPARE(bo.Join(u"Bo"_s),
                 (QStringList{u"CONNECTACCEPT PLAYING=no;"_s, u"MESSAGE Welcome! 2 playing on 1.04 (beta)"_s,
                              u"PLAYERLIST COUNT=2;P1=Ann;P2=Bo;"_s}));
        QCOMPARE(ann.Collect(), QStringList{u"JOIN NAME=Bo;"_s});
        QCOMPARE(cy.Join(u"Cy"_s).constLast(), u"PLAYERLIST COUNT=3;P1=Ann;P2=Bo;P3=Cy;"_s);
        QCOMPARE(ann.Collect(), QStringList{u"JOIN NAME=Cy;"_s});
        QCOMPARE(bo.Collect(), QStringList{u"JOIN NAME=Cy;"_s});
        QCOMPARE(room().Chooser(), u"Ann"_s);
        QVERIFY(m_events.filter(u"join \"Cy\""_s).size() == 1);
    }

    void noWelcomeNoMessage()
    {
        ServerConfig config = TestConfig();
        config.Welcome.clear();
        QVERIFY(StartServer(config));
        ScriptedClient ann(kAnn);
        QCOMPARE(ann.Join(u"Ann"_s), (QStringList{u"CONNECTACCEPT PLAYING=no;"_s, u"ISHOST NAME=Ann;"_s,
                                                  u"PLAYERLIST COUNT=1;P1=Ann;"_s}));
    }

    void acceptedConnectionExpires()
    {
        ServerConfig config = TestConfig();
        config.PendingMs = 100;
        config.SilenceMs = 1000; // ticks every 100 ms
        QVERIFY(StartServer(config));
        ScriptedClient ann(kAnn), other(kBo);
        ann.Connect(u"Ann"_s);
        QCOMPARE(ann.Next(), u"CONNECTACCEPT PLAYING=no;"_s);
        other.Connect(u"ANN"_s); // the name is held while the connection is pending
        QCOMPARE(other.Next(), u"CONNECTREJECT ERROR=-10;"_s);
        QTRY_COMPARE(room().PendingCount(), 0);
        ann.Send(msg::GetPlayerList(ann.PortText()));
        QCOMPARE(ann.Collect(), QStringList());
        other.Connect(u"ANN"_s);
        QCOMPARE(other.Next(), u"CONNECTACCEPT PLAYING=no;"_s);
    }

    void sessionReplies()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo), stranger(kStranger);
        QVERIFY(AnnAndBo(ann, bo));

        ann.Send(msg::GetScore(ann.PortText(), u"bo"));
        QCOMPARE(ann.Next(), Score(u"Bo"_s, 0, 0, 0));

        ann.Send(msg::PingMe(ann.PortText()));
        const QString ping = ann.Next();
        QVERIFY2(ping.startsWith(u"PING TIME="_s), qPrintable(ping));
        ann.Send(msg::Pong(u"Ann", GetParam(ping, u"TIME")));
        const QString pingIs = ann.Next();
        QVERIFY2(QRegularExpression(u"^PINGIS NAME=Ann;PING=\\d+;$"_s).match(pingIs).hasMatch(),
                 qPrintable(pingIs));
        QCOMPARE(bo.Next(), pingIs);

        bo.Send(msg::Chat(u"Bo", u"hi; a=b"));
        QCOMPARE(ann.Next(), u"CHAT NAME=Bo;TEXT=hi; a=b"_s);
        QCOMPARE(bo.Next(), u"CHAT NAME=Bo;TEXT=hi; a=b"_s);

        bo.Send(msg::TimeRequest(bo.PortText()));
        const QString time = bo.Next();
        QVERIFY2(QRegularExpression(u"^TIME TIME=\\d\\d:\\d\\d:\\d\\d;DATE=\\w+day, \\w+ \\d+, \\d{4};$"_s)
                     .match(time)
                     .hasMatch(),
                 qPrintable(time));

        // Anyone may ask for the status; the answer goes to the port in the question.
        ScriptedClient listener(kEve);
        stranger.Send(msg::Status(u"linkhop.example", listener.PortText()));
        QCOMPARE(listener.Next(), u"STATUS SERVER=linkhop.example;#=2;"_s);
        // Other questions from someone who is not playing go unanswered.
        stranger.Send(msg::GetScore(stranger.PortText(), u"Ann"));
        stranger.Send(msg::TimeRequest(stranger.PortText()));
        QCOMPARE(stranger.Collect(), QStringList());

        bo.Send(msg::Disconnect(u"Bo"));
        QCOMPARE(ann.Next(), u"LEAVE NAME=Bo;"_s);
        QCOMPARE(room().Players().size(), 1);
    }

    void fullRound()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));

        // Only the chooser gets random words, and may start the round.
        ann.Send(msg::GetRandom(2));
        const QString random = ann.Next();
        QVERIFY2(
            QRegularExpression(u"^SETRANDOM SRC=2;URL=(Apple|Banana|Cherry);$"_s).match(random).hasMatch(),
            qPrintable(random));
        bo.Send(msg::GetRandom(1));
        bo.Send(msg::SetWords(u"Apple", u"Cherry"));
        QCOMPARE(bo.Collect(), QStringList());
        QVERIFY(!room().RoundRunning());

        QVERIFY(StartRound(ann, bo));
        bo.Send(msg::Navigate(u"Bo", u"Fruit"));
        QCOMPARE(bo.Next(), Score(u"Bo"_s, 0, 1, 1));
        QCOMPARE(ann.Next(), Score(u"Bo"_s, 0, 1, 1));
        ann.Send(msg::Navigate(u"Ann", u"Tree"));
        QCOMPARE(ann.Next(), Score(u"Ann"_s, 0, 1, 1));
        QCOMPARE(bo.Next(), Score(u"Ann"_s, 0, 1, 1));

        // The destination, written as a client might see it.
        bo.Send(msg::Navigate(u"Bo", u"BANANA"));
        const QStringList won = {Score(u"Bo"_s, 1, 2, 2), u"WINNER NAME=Bo;"_s, Score(u"Bo"_s, 1, 2, 2)};
        QCOMPARE(ann.Next(3, 3000), won);
        QCOMPARE(bo.Next(3, 3000), won);
        QVERIFY(!room().RoundRunning());
        QCOMPARE(room().Chooser(), u"Bo"_s);

        ann.Send(msg::Navigate(u"Ann", u"Banana")); // too late
        ann.Send(msg::SendMyPath(u"Ann", u"Apple\rBanana"));
        QCOMPARE(ann.Collect(), QStringList());
        bo.Send(msg::SendMyPath(u"Bo", u"Apple\rFruit\rBANANA"));
        const QString path = u"PATHIS NAME=Bo;PATH=Apple\rFruit\rBANANA;"_s;
        QCOMPARE(ann.Next(), path);
        QCOMPARE(bo.Next(), path);
        bo.Send(msg::SendMyPath(u"Bo", u"again"));
        QCOMPARE(ann.Collect(), QStringList());

        // The winner chooses the next round; the counts carry over, the round's clicks start anew.
        ann.Send(msg::SetWords(u"Moon", u"Sun"));
        QCOMPARE(bo.Collect(), QStringList());
        QVERIFY(StartRound(bo, ann));
        ann.Send(msg::GetScore(ann.PortText(), u"Bo"));
        QCOMPARE(ann.Next(), Score(u"Bo"_s, 1, 2, 0));
        QVERIFY(m_events.filter(u"winner \"Bo\" in 2 clicks"_s).size() == 1);
    }

    void wordsRefused_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QString>("why");
        QTest::newRow("empty") << u"Apple"_s << u"  "_s << u"Both an initial and a destination"_s;
        QTest::newRow("same") << u"apple"_s << u"APPLE"_s << u"must differ"_s;
        QTest::newRow("same but _") << u"New York"_s << u"new_york"_s << u"must differ"_s;
        QTest::newRow("list") << u"List of rivers"_s << u"Apple"_s
                              << u"\"List of rivers\" is a page no round"_s;
        QTest::newRow("talk") << u"Apple"_s << u"Talk:Apple"_s << u"\"Talk:Apple\" is a page no round"_s;
        QTest::newRow("number") << u"Apple"_s << u"1984"_s << u"\"1984\" is a page no round"_s;
        QTest::newRow("key inside") << u"xWORD1=y"_s << u"Apple"_s << u"\"=\""_s;
    }
    void wordsRefused()
    {
        QFETCH(QString, initial);
        QFETCH(QString, destination);
        QFETCH(QString, why);
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        ann.Send(msg::SetWords(initial, destination));
        const QString chat = ann.Next();
        QVERIFY2(chat.startsWith(u"CHAT NAME=GAME;TEXT="_s) && chat.contains(why), qPrintable(chat));
        QCOMPARE(ann.Next(), u"NEWGAME NAME=Ann;"_s);
        QCOMPARE(bo.Collect(), QStringList());
        QVERIFY(!room().RoundRunning());
    }

    void disqualification()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        QVERIFY(StartRound(ann, bo));

        bo.Send(msg::Navigate(u"Bo", u"talk"));
        QCOMPARE(bo.Next(), u"DISQUALIFY"_s);
        QCOMPARE(bo.Next(), Score(u"Bo"_s, 0, 0, 0, false));
        QCOMPARE(ann.Next(), Score(u"Bo"_s, 0, 0, 0, false));

        // The client's notice, once, and nothing else under the game's name.
        bo.Send(msg::Chat(u"GAME", u"Bo wins everything"));
        bo.Send(msg::DisqualifiedNotice(u"Bo", u"talk"));
        const QString notice =
            u"CHAT NAME=GAME;TEXT=Bo has been disqualified for visiting an illegal page: \"talk\""_s;
        QCOMPARE(ann.Next(), notice);
        QCOMPARE(bo.Next(), notice);
        bo.Send(msg::DisqualifiedNotice(u"Bo", u"talk"));
        ann.Send(msg::DisqualifiedNotice(u"Ann", u"talk")); // Ann was never disqualified
        QCOMPARE(ann.Collect(), QStringList());

        // A disqualified player's reports change nothing, not even reaching the destination.
        bo.Send(msg::Navigate(u"Bo", u"Banana"));
        QCOMPARE(ann.Collect(), QStringList());
        QCOMPARE(room().FindPlayer(u"Bo")->Clicks, 0);

        // With nobody left racing, the same chooser picks again.
        ann.Send(msg::Navigate(u"Ann", u"nowiki"));
        QCOMPARE(ann.Next(3, 3000),
                 (QStringList{u"DISQUALIFY"_s, Score(u"Ann"_s, 0, 0, 0, false), u"NEWGAME NAME=Ann;"_s}));
        QCOMPARE(bo.Next(2, 3000), (QStringList{Score(u"Ann"_s, 0, 0, 0, false), u"NEWGAME NAME=Ann;"_s}));
        QVERIFY(!room().RoundRunning());
        QCOMPARE(m_events.filter(u"disqualify"_s).size(), 2);
    }

    void lateJoinerAsksForTheWords()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo), cy(kCy);
        QVERIFY(AnnAndBo(ann, bo));
        QVERIFY(StartRound(ann, bo));

        QCOMPARE(cy.Join(u"Cy"_s).constFirst(), u"CONNECTACCEPT PLAYING=yes;"_s);
        ann.Skip();
        bo.Skip();
        bo.Send(msg::GetWords(u"Cy")); // not Cy's to ask
        QCOMPARE(cy.Collect(), QStringList());
        cy.Send(msg::Navigate(u"Cy", u"Fruit")); // not in the round yet
        QCOMPARE(ann.Collect(), QStringList());

        cy.Send(msg::GetWords(u"Cy"));
        QCOMPARE(cy.Next(), u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;"_s);
        QCOMPARE(ann.Next(), Score(u"Cy"_s, 0, 0, 0));
        cy.Send(msg::GetWords(u"Cy"));
        QCOMPARE(cy.NextWithVerb(u"STARTGAME"_s, 200), QString());
        cy.Send(msg::Navigate(u"Cy", u"Fruit"));
        QCOMPARE(ann.Next(), Score(u"Cy"_s, 0, 1, 1));
    }

    void chooserLeaving()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo), cy(kCy);
        QVERIFY(AnnAndBo(ann, bo));
        cy.Join(u"Cy"_s);
        ann.Skip();
        bo.Skip();

        // Between rounds the next player in order of arrival is named at once.
        ann.Send(msg::Disconnect(u"Ann"));
        QCOMPARE(bo.Next(2, 3000), (QStringList{u"LEAVE NAME=Ann;"_s, u"NEWGAME NAME=Bo;"_s}));
        QCOMPARE(cy.Next(2, 3000), (QStringList{u"LEAVE NAME=Ann;"_s, u"NEWGAME NAME=Bo;"_s}));

        // During a round the round goes on; the new chooser is named when it ends without a winner.
        QVERIFY(StartRound(bo, cy));
        bo.Send(msg::Disconnect(u"Bo"));
        QCOMPARE(cy.Next(), u"LEAVE NAME=Bo;"_s);
        QVERIFY(room().RoundRunning());
        QCOMPARE(room().Chooser(), u"Cy"_s);
        cy.Send(msg::Navigate(u"Cy", u"special"));
        QCOMPARE(cy.Next(3, 3000),
                 (QStringList{u"DISQUALIFY"_s, Score(u"Cy"_s, 0, 0, 0, false), u"NEWGAME NAME=Cy;"_s}));
    }

    void silentPlayerIsDropped()
    {
        ServerConfig config = TestConfig();
        config.SilenceMs = 400;
        QVERIFY(StartServer(config));
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        // Bo keeps talking; Ann says nothing.
        QElapsedTimer timer;
        timer.start();
        QString drop;
        while (drop.isEmpty() && timer.elapsed() < 3000) {
            bo.Send(msg::PingMe(bo.PortText()));
            drop = bo.NextWithVerb(u"DROP"_s, 100);
        }
        QCOMPARE(drop, u"DROP NAME=Ann;"_s);
        QVERIFY(timer.elapsed() >= 300);
        QCOMPARE(bo.NextWithVerb(u"NEWGAME"_s), u"NEWGAME NAME=Bo;"_s);
        QCOMPARE(room().Players().size(), 1);
        QCOMPARE(room().Chooser(), u"Bo"_s);
    }

    void nobodyPlaysForSomeoneElse_data()
    {
        QTest::addColumn<QString>("message");
        QTest::newRow("NAVIGATE") << msg::Navigate(u"Ann", u"Banana");
        QTest::newRow("PONG") << msg::Pong(u"Ann", u"0");
        QTest::newRow("CHAT") << msg::Chat(u"Ann", u"I give up");
        QTest::newRow("CHAT as GAME") << msg::DisqualifiedNotice(u"Ann", u"talk");
        QTest::newRow("SETWORDS") << msg::SetWords(u"Moon", u"Sun");
        QTest::newRow("GETRANDOM") << msg::GetRandom(1);
        QTest::newRow("GETWORDS") << msg::GetWords(u"Ann");
        QTest::newRow("SENDMYPATH") << msg::SendMyPath(u"Ann", u"Apple\rBanana");
        QTest::newRow("DISCONNECT") << msg::Disconnect(u"Ann");
    }
    void nobodyPlaysForSomeoneElse()
    {
        QFETCH(QString, message);
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo), eve(kEve, OtherAddress()), annsNeighbour(kStranger);
        QVERIFY(AnnAndBo(ann, bo));
        QVERIFY(StartRound(ann, bo));
        // From another player, from a stranger elsewhere, from a stranger on Ann's own machine.
        bo.Send(message);
        eve.Send(message);
        annsNeighbour.Send(message);
        QCOMPARE(ann.Collect(), QStringList());
        QCOMPARE(bo.Collect(), QStringList());
        QCOMPARE(room().Players().size(), 2);
        QCOMPARE(room().FindPlayer(u"Ann")->Clicks, 0);
        QVERIFY(room().RoundRunning());
    }

    void hostileDatagramsAreDropped_data()
    {
        QTest::addColumn<QString>("datagram");
        QTest::newRow("empty") << u""_s;
        QTest::newRow("lower-case verb") << u"chat NAME=Ann;TEXT=hi"_s;
        QTest::newRow("unknown verb") << u"SHUTDOWN NOW"_s;
        QTest::newRow("server's verb") << u"WINNER NAME=Ann;"_s;
        QTest::newRow("oversized") << (u"CHAT NAME=Ann;TEXT="_s + QString(4100, u'x'));
        QTest::newRow("port not a number") << u"CONNECT VER=1.04 (beta);NAME=Zed;PORT=abc;PWD=;"_s;
        QTest::newRow("port out of range") << u"CONNECT VER=1.04 (beta);NAME=Zed;PORT=70000;PWD=;"_s;
        QTest::newRow("port empty") << u"CONNECT VER=1.04 (beta);NAME=Zed;PORT=;PWD=;"_s;
        QTest::newRow("bare PINGME") << u"PINGME"_s;
        QTest::newRow("PINGME text") << u"PINGME soon"_s;
        QTest::newRow("PONG bad stamp") << u"PONG NAME=Ann;TIME=zz;"_s;
        QTest::newRow("PONG future stamp") << u"PONG NAME=Ann;TIME=999999999999;"_s;
        QTest::newRow("SETWORDS bad count") << u"SETWORDS COUNT=x;WORD0=A;WORD1=B;"_s;
        QTest::newRow("SETWORDS three") << u"SETWORDS COUNT=2;WORD0=A;WORD1=B;WORD2=C;"_s;
        QTest::newRow("GETRANDOM bad source") << u"GETRANDOM SRC=3;"_s;
        QTest::newRow("GETSCORE unknown") << u"GETSCORE PORT=1;NAME=Nobody;"_s;
        QTest::newRow("STATUS no port") << u"STATUS SERVER=x;"_s;
        QTest::newRow("unsolicited player list") << u"GETPLAYERLIST PORT=47305;"_s;
        QTest::newRow("CHAT without text") << u"CHAT NAME=Ann;"_s;
        QTest::newRow("NAVIGATE empty") << u"NAVIGATE NAME=Ann;URL=;"_s;
    }
    void hostileDatagramsAreDropped()
    {
        QFETCH(QString, datagram);
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        ann.Send(datagram);
        QCOMPARE(ann.Collect(), QStringList());
        QCOMPARE(bo.Collect(), QStringList());
        ann.Send(msg::GetScore(ann.PortText(), u"Ann")); // and the room still works
        QCOMPARE(ann.Next(), Score(u"Ann"_s, 0, 0, 0));
    }

    void floodIsLimitedPerAddress()
    {
        ServerConfig config = TestConfig();
        config.FloodRate = 20;
        config.FloodBurst = 10;
        QVERIFY(StartServer(config));
        ScriptedClient ann(kAnn), bo(kBo, OtherAddress());
        QVERIFY(AnnAndBo(ann, bo));
        for (int i = 0; i < 200; ++i)
            ann.Send(msg::Chat(u"Ann", QString::number(i)));
        bo.Send(msg::Chat(u"Bo", u"still here"));
        const QStringList seen = bo.Collect(300);
        // The burst, less what the handshake spent, and Bo's line.
        QVERIFY2(seen.size() >= 6 && seen.size() <= 20, qPrintable(QString::number(seen.size())));
        QVERIFY(seen.contains(u"CHAT NAME=Bo;TEXT=still here"_s));
        QVERIFY(seen.contains(u"CHAT NAME=Ann;TEXT=0"_s));
        QVERIFY(!seen.contains(u"CHAT NAME=Ann;TEXT=199"_s));
    }

    void shutdownDisconnectsEveryone()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        m_server->Shutdown();
        QCOMPARE(ann.Next(), u"DISCONNECT"_s);
        QCOMPARE(bo.Next(), u"DISCONNECT"_s);
        QVERIFY(room().Players().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_server)
#include "tst_server.moc"
