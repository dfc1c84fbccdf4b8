// The server over loopback, as clients see it: every datagram checked byte for byte; and the real
// LinkhopServer program: its ready line, its log, SIGTERM, and the port already taken.
#include "core/sessiondata.h"
#include "scriptedclient.h"
#include "server/gameserver.h"

#include <QtTest>
#include <list>
#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;
using namespace linkhop::test;

namespace {

constexpr quint16 kAnn = 47301, kBo = 47302, kCy = 47303, kEve = 47304, kStranger = 47305;

QString Score(const QString& name, int wins, int clicks, int roundClicks, bool inGame = true)
{
    return msg::ScoreIs(name, wins, clicks, roundClicks, inGame);
}

} // namespace

class tst_server : public QObject
{
    Q_OBJECT

    std::unique_ptr<GameServer> m_server;

    bool StartServer(void (*configure)(ServerConfig&) = nullptr)
    {
        ServerConfig config;
        config.Welcome = u"Welcome! %p playing on %v"_s;
        config.Articles = {u"Apple"_s, u"Banana"_s, u"Cherry"_s};
        config.Seed = 7;
        config.BannedNames = {u"Eve"_s, u"Mallory"_s};
        config.BannedSubnets = ParseBannedAddresses({u"10.0.0.1"_s, u"127.201.0.0/16"_s});
        if (configure) configure(config);
        m_server = std::make_unique<GameServer>(config);
        // Another program's test may hold port 7200 on every address for a moment.
        return WaitUntil([&] { return m_server->Start(TestAddress()); }, 5000);
    }
    const Room& room() const { return m_server->GameRoom(); }

    // Ann joins first (host and chooser), then Bo; both have read everything so far.
    static bool AnnAndBo(ScriptedClient& ann, ScriptedClient& bo)
    {
        const QString accept = u"CONNECTACCEPT PLAYING=no;"_s,
                      welcome = u"MESSAGE Welcome! %1 playing on 1.04 (beta)"_s;
        return ann.Join(u"Ann"_s) == QStringList{accept, u"ISHOST NAME=Ann;"_s, welcome.arg(1),
                                                 u"PLAYERLIST COUNT=1;P1=Ann;"_s} &&
               bo.Join(u"Bo"_s) ==
                   QStringList{accept, welcome.arg(2), u"PLAYERLIST COUNT=2;P1=Ann;P2=Bo;"_s} &&
               ann.Next() == msg::Join(u"Bo");
    }
    static bool StartRound(ScriptedClient& chooser, ScriptedClient& other)
    {
        chooser.Send(msg::SetWords(u"Apple", u"Banana"));
        const QString start = msg::StartGame({u"Apple"_s, u"Banana"_s});
        return chooser.Next() == start && other.Next() == start;
    }

private Q_SLOTS:
    void cleanup() { m_server.reset(); }

    void handshake_data()
    {
        QTest::addColumn<QString>("connect"); // "%port" stands for the sender's port
        QTest::addColumn<QString>("expected");
        QTest::addColumn<int>("from"); // 0: a new machine, 1: where Ann plays, 2: a banned machine
        const auto row = [](const char* tag, const QString& connect, const char* expected, int from = 0) {
            QTest::newRow(tag) << connect << QString::fromUtf8(expected) << from;
        };
        // Names as they arrive decoded, also with characters that Windows-1252 lacks.
        const auto name = [](const char* tag, const QString& name, const char* code) {
            QTest::newRow(tag) << u"CONNECT VER=1.04 (beta);NAME=%1;PORT=%port;PWD=;"_s.arg(name)
                               << u"CONNECTREJECT ERROR=%1;"_s.arg(QLatin1StringView(code)) << 0;
        };
        name("trailing space", u"Bo "_s, "-1");
        name("leading space", u" Bo"_s, "-1");
        name("two spaces", u"B  o"_s, "-1");
        name("no-break space", u"Bo\u00A0"_s, "-1");
        name("soft hyphen", u"B\u00ADo"_s, "-1");
        name("zero-width space", u"B\u200Bo"_s, "-1");
        name("line break", u"Bo\r\nGAME"_s, "-1");
        name("GAME and a no-break space", u"GAME\u00A0"_s, "-1");
        name("GAME in full-width letters", u"\uFF27\uFF21\uFF2D\uFF25"_s, "-11");
        name("GAME with a colon", u"Game: Bo"_s, "-11");
        name("Current Time, other case", u"current TIME"_s, "-11");
        name("Ann with a Cyrillic A", u"\u0410nn"_s, "-10");
        name("Ann in full-width letters", u"\uFF21\uFF4E\uFF4E"_s, "-10");
        name("banned name with ones for l", u"Ma11ory"_s, "-11");
        const QString first = u"CONNECT VER=1.04 (beta);NAME=%1;PORT=%port;PWD=;"_s;
        row("other version", u"CONNECT VER=1.03;NAME=Bo;PORT=%port;PWD=;"_s,
            "CONNECTREJECT VER=1.04 (beta);");
        row("empty name", first.arg(u""), "CONNECTREJECT ERROR=-1;");
        row("name in use, other case", first.arg(u"aNN"), "CONNECTREJECT ERROR=-10;");
        row("same address and port", first.arg(u"Bo"), "CONNECTREJECT ERROR=-20;", 1);
        row("banned name, other case", first.arg(u"mallory"), "CONNECTREJECT ERROR=-11;");
        row("game notices' speaker", first.arg(u"Game"), "CONNECTREJECT ERROR=-11;");
        row("banned subnet", first.arg(u"Bo"), "CONNECTREJECT ERROR=-21;", 2);
        const QString withPassword = u"CONNECT VER=1.04 (beta);NAME=Bo;PWD=%1;"_s;
        row("public, password ignored", withPassword.arg(u"x"), "CONNECTACCEPT PLAYING=no;");
        row("private, first form", first.arg(u"Bo"), "NEEDPWD");
        row("private, wrong password", withPassword.arg(u"PW"), "CONNECTREJECT ERROR=-100;");
        row("private, right password", withPassword.arg(u"pw"), "CONNECTACCEPT PLAYING=no;");
    }
    void handshake()
    {
        QFETCH(QString, connect);
        QFETCH(QString, expected);
        QFETCH(int, from);
        QVERIFY(StartServer([](ServerConfig& config) {
            if (QByteArray(QTest::currentDataTag()).startsWith("private")) config.Password = u"pw"_s;
        }));
        ScriptedClient ann(kAnn), newcomer(kBo, OtherAddress()), banned(kBo, QHostAddress(u"127.201.0.1"_s));
        QCOMPARE(ann.Join(u"Ann"_s, u"pw"_s).constFirst(), u"CONNECTACCEPT PLAYING=no;"_s);
        ann.Skip();
        ScriptedClient& sender = from == 0 ? newcomer : from == 1 ? ann : banned;
        const QString text = QString(connect).replace(u"%port"_s, sender.PortText());
        // What Windows-1252 cannot carry reaches the room as the wire decodes it.
        if (FromWire(ToWire(text)) == text)
            sender.Send(text);
        else
            m_server->GameRoom().Handle(text, from == 0 ? OtherAddress() : TestAddress(),
                                        sender.PortText().toUShort());
        QCOMPARE(sender.Next(), expected);
        QCOMPARE(sender.Collect(100), QStringList());
        QCOMPARE(room().Players().size(), 1);
    }

    void aRound()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo), cy(kCy);
        QVERIFY(AnnAndBo(ann, bo));
        ann.Send(msg::SetWords(u"New York", u"new_york")); // refused, to the chooser alone: the same page
        QVERIFY(ann.Next().contains(u"must differ"_s));
        QCOMPARE(ann.Next(), u"NEWGAME NAME=Ann;"_s);
        QVERIFY(StartRound(ann, bo));

        // Someone joining late races once they have asked for the words, which they get once.
        QCOMPARE(cy.Join(u"Cy"_s),
                 (QStringList{u"CONNECTACCEPT PLAYING=yes;"_s, u"MESSAGE Welcome! 3 playing on 1.04 (beta)"_s,
                              u"PLAYERLIST COUNT=3;P1=Ann;P2=Bo;P3=Cy;"_s}));
        bo.Send(msg::GetWords(u"Cy"));           // not Bo's to ask
        cy.Send(msg::Navigate(u"Cy", u"Fruit")); // not in the round yet
        QCOMPARE(cy.Collect(), QStringList());
        QCOMPARE(ann.Collect(), QStringList{msg::Join(u"Cy")});
        cy.Send(msg::GetWords(u"Cy"));
        QCOMPARE(cy.Next(), u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;"_s);
        QCOMPARE(ann.Next(), Score(u"Cy"_s, 0, 0, 0));
        cy.Send(msg::GetWords(u"Cy"));
        QCOMPARE(cy.NextWithVerb(u"STARTGAME"_s, 200), QString());

        // A forbidden page disqualifies; the notice goes out once, later reports change nothing.
        cy.Send(msg::Navigate(u"Cy", u"talk"));
        QCOMPARE(cy.NextWithVerb(u"DISQUALIFY"_s), u"DISQUALIFY"_s);
        QCOMPARE(ann.Next(), Score(u"Cy"_s, 0, 0, 0, false));
        cy.Send(msg::Chat(u"GAME", u"Cy wins everything"));
        cy.Send(msg::DisqualifiedNotice(u"Cy", u"talk"));
        cy.Send(msg::DisqualifiedNotice(u"Cy", u"talk"));
        ann.Send(msg::DisqualifiedNotice(u"Ann", u"talk")); // Ann was never disqualified
        cy.Send(msg::Navigate(u"Cy", u"Banana"));
        QCOMPARE(ann.Collect(), QStringList{msg::DisqualifiedNotice(u"Cy", u"talk")});
        QCOMPARE(room().FindPlayer(u"Cy")->Clicks, 0);

        bo.Skip();
        bo.Send(msg::Navigate(u"Bo", u"Fruit"));
        QCOMPARE(bo.Next(), Score(u"Bo"_s, 0, 1, 1));
        QCOMPARE(ann.Next(), Score(u"Bo"_s, 0, 1, 1));
        bo.Send(msg::Navigate(u"Bo", u"BANANA")); // the destination, as a client might see it
        const QStringList won = {Score(u"Bo"_s, 1, 2, 2), u"WINNER NAME=Bo;"_s, Score(u"Bo"_s, 1, 2, 2)};
        QCOMPARE(ann.Next(3, 3000), won);
        QCOMPARE(bo.Next(3, 3000), won);
        QVERIFY(!room().RoundRunning());

        // Only the winner's route goes out, once.
        ann.Send(msg::Navigate(u"Ann", u"Banana")); // too late
        ann.Send(msg::SendMyPath(u"Ann", u"Apple\rBanana"));
        QCOMPARE(ann.Collect(), QStringList());
        bo.Send(msg::SendMyPath(u"Bo", u"Apple\rFruit\rBANANA"));
        bo.Send(msg::SendMyPath(u"Bo", u"again"));
        const QStringList path = {u"PATHIS NAME=Bo;PATH=Apple\rFruit\rBANANA;"_s};
        QCOMPARE(ann.Collect(), path);
        QCOMPARE(bo.Collect(0), path);

        ann.Send(msg::SetWords(u"Moon", u"Sun")); // the winner chooses next
        QCOMPARE(ann.Collect(), QStringList());
        QVERIFY(StartRound(bo, ann));
    }

    // A title no page of the encyclopedia can have puts the racer out before anything is asked,
    // with a game line naming the step; a title a page can have is a click.
    void titles_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("why"); // the game line's reason, empty: a click
        const auto out = [](const char* tag, const QString& title, const QString& shown, const char* problem) {
            QTest::newRow(tag) << title
                               << u"no link leads from \"Apple\" to \"%1\": no page can have %2"_s.arg(
                                      shown, QString::fromUtf8(problem));
        };
        out("a link's text", u"Fig|figs"_s, u"Fig|figs"_s, "a title holding \"|\"");
        out("sixty titles in one", u"A|B|C"_s.repeated(20), u"A|B|C"_s.repeated(12) + u"..."_s,
            "a title holding \"|\"");
        out("a section", u"Fig#History"_s, u"Fig#History"_s, "a title holding \"#\"");
        out("markup", u"<b>Fig</b>"_s, u"<b>Fig</b>"_s, "a title holding \"<\"");
        out("a template", u"{{Fig}}"_s, u"{{Fig}}"_s, "a title holding \"{\"");
        out("a control character", u"Fig\tTree"_s, u"Fig?Tree"_s, "a title holding a control character");
        out("a line break and a notice", u"Fig\r\nGAME: Bo wins"_s, u"Fig??GAME: Bo wins"_s,
            "a title holding a control character");
        out("a percent escape", u"Fig%41"_s, u"Fig%41"_s, "a title holding a percent escape");
        out("the replacement character", u"Fig\uFFFD"_s, u"Fig\uFFFD"_s, "a title holding a character that is none");
        out("a signature", u"Fig~~~"_s, u"Fig~~~"_s, "a title holding \"~~~\"");
        out("a relative path", u"../Fig"_s, u"../Fig"_s, "a relative path");
        out("4,000 characters", QString(4000, u'x'), QString(60, u'x') + u"..."_s, "a title longer than 255 bytes");
        out("256 bytes", QString(128, u'\u00E9'), QString(60, u'\u00E9') + u"..."_s, "a title longer than 255 bytes");
        const auto click = [](const char* tag, const QString& title) { QTest::newRow(tag) << title << QString(); };
        click("escapes in the address", u"AT&T"_s);
        click("plus signs", u"C++"_s);
        click("letters Windows-1252 lacks", u"\u0141\u00F3d\u017A"_s);
        click("another namespace", u"User talk:Ann"_s);
        click("255 bytes", QString(255, u'x'));
        click("255 bytes after a namespace", u"User talk:"_s + QString(255, u'y'));
    }
    void titles()
    {
        QFETCH(QString, title);
        QFETCH(QString, why);
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        QVERIFY(StartRound(ann, bo));
        m_server->GameRoom().Handle(msg::Navigate(u"Bo", title), TestAddress(), kBo);
        if (why.isEmpty()) {
            QCOMPARE(ann.Next(), Score(u"Bo"_s, 0, 1, 1));
            return;
        }
        QCOMPARE(ann.Next(), msg::Chat(msg::GameSpeaker, u"Bo is out of the round: %1."_s.arg(why)));
        QCOMPARE(ann.Next(), Score(u"Bo"_s, 0, 0, 0, false));
        QCOMPARE(bo.NextWithVerb(u"DISQUALIFY"_s), msg::Disqualify());
        QCOMPARE(room().FindPlayer(u"Bo")->Clicks, 0);
    }

    // Nobody clicks faster than a page every 2 s for long: 20 new pages at once, then one more
    // every 2 s. Back and Forward to pages of the route are never too many.
    void fasterThanAnyoneClicks()
    {
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        QVERIFY(StartRound(ann, bo));
        for (int page = 1; page <= 20; ++page)
            bo.Send(msg::Navigate(u"Bo", u"Page %1"_s.arg(page)));
        for (int again = 0; again < 30; ++again)
            bo.Send(msg::Navigate(u"Bo", u"Page %1"_s.arg(again % 2 + 1)));
        QVERIFY(WaitUntil([&] { return room().FindPlayer(u"Bo")->RoundClicks == 50; }));
        ann.Skip();
        bo.Send(msg::Navigate(u"Bo", u"Page 21"));
        QCOMPARE(ann.NextWithVerb(u"CHAT"_s),
                 msg::Chat(msg::GameSpeaker, u"Bo is out of the round: 21 new pages in 1 second are more than "
                                             u"anyone clicks."_s));
        QCOMPARE(bo.NextWithVerb(u"DISQUALIFY"_s), msg::Disqualify());
        QCOMPARE(room().FindPlayer(u"Bo")->RoundClicks, 50);
    }

    // A round nobody wins ends in time; its chooser chooses again.
    void roundTimeLimit()
    {
        QVERIFY(StartServer([](ServerConfig& config) { config.RoundMs = 1000; }));
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        QElapsedTimer clock;
        QVERIFY(StartRound(ann, bo));
        clock.start();
        bo.Send(msg::Navigate(u"Bo", u"Fruit"));
        QCOMPARE(ann.NextWithVerb(u"CHAT"_s, 5000),
                 msg::Chat(msg::GameSpeaker, u"Time is up: nobody reached \"Banana\" in 1 second."));
        QVERIFY(clock.elapsed() >= 900);
        QCOMPARE(ann.Next(), u"NEWGAME NAME=Ann;"_s);
        QCOMPARE(bo.NextWithVerb(u"NEWGAME"_s), u"NEWGAME NAME=Ann;"_s);
        QVERIFY(!room().RoundRunning());
        QVERIFY(StartRound(ann, bo));
    }

    void silentPlayerIsDropped()
    {
        QVERIFY(StartServer([](ServerConfig& config) { config.SilenceMs = 400; }));
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        QElapsedTimer timer; // Bo keeps talking; Ann says nothing
        timer.start();
        QString drop;
        while (drop.isEmpty() && timer.elapsed() < 3000) {
            bo.Send(msg::PingMe(bo.PortText()));
            drop = bo.NextWithVerb(u"DROP"_s, 100);
        }
        QCOMPARE(drop, u"DROP NAME=Ann;"_s);
        QVERIFY(timer.elapsed() >= 300);                                // not before the silence
        QCOMPARE(bo.NextWithVerb(u"NEWGAME"_s), u"NEWGAME NAME=Bo;"_s); // the next chooser, at once
    }

    // Ignored: a spoofed datagram from a player, a stranger, a stranger on Ann's machine; a malformed one.
    void ignored_data()
    {
        QTest::addColumn<QString>("datagram");
        QTest::addColumn<bool>("spoofed");
        for (const QString& datagram :
             {msg::Navigate(u"Ann", u"Banana"), msg::Pong(u"Ann", u"0"), msg::Chat(u"Ann", u"I give up"),
              msg::DisqualifiedNotice(u"Ann", u"talk"), msg::SetWords(u"Moon", u"Sun"), msg::GetRandom(1),
              msg::GetWords(u"Ann"), msg::SendMyPath(u"Ann", u"Apple\rBanana"), msg::Disconnect(u"Ann")})
            QTest::newRow(qPrintable(u"spoofed "_s + datagram.left(30))) << datagram << true;
        for (const QString& datagram :
             QStringList{u""_s, u"chat NAME=Ann;TEXT=hi"_s, u"SHUTDOWN NOW"_s, u"WINNER NAME=Ann;"_s,
                         u"CHAT NAME=Ann;TEXT="_s + QString(4100, u'x'),
                         u"CONNECT VER=1.04 (beta);NAME=Zed;PORT=abc;PWD=;"_s, u"PINGME soon"_s,
                         u"PONG NAME=Ann;TIME=zz;"_s, u"SETWORDS COUNT=2;WORD0=A;WORD1=B;WORD2=C;"_s,
                         u"GETRANDOM SRC=3;"_s, u"STATUS SERVER=x;"_s, u"NAVIGATE NAME=Ann;URL=;"_s})
            QTest::newRow(qPrintable(datagram.left(40))) << datagram << false;
    }
    void ignored()
    {
        QFETCH(QString, datagram);
        QFETCH(bool, spoofed);
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo), eve(kEve, OtherAddress()), annsNeighbour(kStranger);
        QVERIFY(AnnAndBo(ann, bo));
        QVERIFY(!spoofed || StartRound(ann, bo));
        for (ScriptedClient* sender : spoofed ? QList{&bo, &eve, &annsNeighbour} : QList{&ann})
            sender->Send(datagram);
        QCOMPARE(ann.Collect(), QStringList());
        QCOMPARE(bo.Collect(), QStringList());
        QCOMPARE(room().RoundRunning(), spoofed);
        ann.Send(msg::GetScore(ann.PortText(), u"Ann")); // and the room still works
        QCOMPARE(ann.Next(), Score(u"Ann"_s, 0, 0, 0));
        QCOMPARE(room().Players().size(), 2);
    }

    // A player's message from an endpoint that holds no place (a client of the room before the
    // server restarted) is answered with the classic "DISCONNECT", once in a while: never to an
    // endpoint that holds a place or an acceptance, whatever its message, never to one leaving,
    // never with more bytes than came.
    void staleEndpoints_data()
    {
        QTest::addColumn<QStringList>("datagrams"); // each from an endpoint of its own
        QTest::addColumn<int>("sender"); // 0 strangers, 1 Ann's machine at other ports, 2 Ann, 3 accepted
        QTest::addColumn<bool>("told");
        QTest::newRow("every player's message from strangers")
            << QStringList{msg::PingMe(u"47305"),
                           msg::GetScore(u"47305", u"Ann"),
                           msg::Navigate(u"Eve", u"Banana"),
                           msg::Chat(u"Eve", u"hi"),
                           msg::Pong(u"Eve", u"1"),
                           msg::SetWords(u"Moon", u"Sun"),
                           msg::GetRandom(1),
                           msg::SendMyPath(u"Eve", u"A\rB"),
                           msg::TimeRequest(u"47305"),
                           msg::GetWords(u"Eve")}
            << 0 << true;
        QTest::newRow("as long as the notice") << QStringList{u"PINGME 720"_s} << 0 << true;
        QTest::newRow("shorter than the notice") << QStringList{u"PINGME 72"_s} << 0 << false;
        QTest::newRow("a stranger leaving") << QStringList{msg::Disconnect(u"Eve")} << 0 << false;
        QTest::newRow("Ann's machine, another port") << QStringList{msg::PingMe(u"47305")} << 1 << true;
        QTest::newRow("Ann, as herself") << QStringList{msg::PingMe(u"47301")} << 2 << false;
        QTest::newRow("Ann, as another") << QStringList{msg::Navigate(u"Bo", u"Banana")} << 2 << false;
        QTest::newRow("Ann, leaving as another") << QStringList{msg::Disconnect(u"Bo")} << 2 << false;
        QTest::newRow("accepted, not yet seated") << QStringList{msg::PingMe(u"47303")} << 3 << false;
    }
    void staleEndpoints()
    {
        QFETCH(QStringList, datagrams);
        QFETCH(int, sender);
        QFETCH(bool, told);
        QVERIFY(StartServer([](ServerConfig& config) { config.StaleNoticeMs = 300; }));
        ScriptedClient ann(kAnn), bo(kBo), cy(kCy);
        QVERIFY(AnnAndBo(ann, bo));
        cy.Send(msg::Connect(ClientVersion, u"Cy", cy.PortText()));
        QCOMPARE(cy.Next(), u"CONNECTACCEPT PLAYING=no;"_s);
        std::list<ScriptedClient> others;
        QList<ScriptedClient*> from;
        for (quint16 i = 0; i < datagrams.size(); ++i) {
            if (sender < 2)
                from << &others.emplace_back(quint16(kStranger + 20 + i),
                                             sender == 0 ? OtherAddress() : TestAddress());
            else
                from << (sender == 2 ? &ann : &cy);
        }
        const auto notices = [&] {
            WaitUntil([] { return false; }, 150);
            QList<qsizetype> counts;
            for (ScriptedClient* client : from)
                counts << client->Collect(0).count(msg::Disconnected());
            return counts;
        };
        const QList<qsizetype> once(datagrams.size(), told ? 1 : 0);
        for (int i = 0; i < 3; ++i)
            for (qsizetype k = 0; k < datagrams.size(); ++k)
                from[k]->Send(datagrams[k]);
        QCOMPARE(notices(), once); // once in a while, however often it speaks
        QTest::qWait(300);
        for (qsizetype k = 0; k < datagrams.size(); ++k)
            from[k]->Send(datagrams[k]);
        QCOMPARE(notices(), once);
        QVERIFY(!bo.Collect(0).contains(msg::Disconnected()));
        QVERIFY(!ann.Collect(0).contains(msg::Disconnected()));
        QCOMPARE(room().Players().size(), 2);
    }

    // Fresh endpoints sprayed at the server: the notices to all of them together keep within their
    // budget.
    void staleNoticesWithinBudget()
    {
        QVERIFY(StartServer([](ServerConfig& config) { config.StaleNoticeRate = 5; }));
        std::list<ScriptedClient> strangers;
        for (quint16 i = 0; i < 40; ++i)
            strangers.emplace_back(quint16(47320 + i), OtherAddress()).Send(msg::PingMe(u"7201"));
        int told = 0;
        for (ScriptedClient& stranger : strangers)
            told += int(stranger.Collect(0).count(msg::Disconnected()));
        QTest::qWait(200);
        for (ScriptedClient& stranger : strangers)
            told += int(stranger.Collect(0).count(msg::Disconnected()));
        QVERIFY2(told >= 5 && told <= 7, qPrintable(QString::number(told)));
    }

    // Words the chooser may not start a round on: told why, alone, and nothing starts.
    void refusedWords_data()
    {
        QTest::addColumn<QString>("word");
        QTest::addColumn<QString>("because");
        QTest::newRow("NUL inside") << u"Ban\0ana"_s << u"control or invisible"_s;
        QTest::newRow("line break inside") << u"Ban\r\nana"_s << u"control or invisible"_s;
        QTest::newRow("soft hyphen inside") << u"Ban\u00ADana"_s << u"control or invisible"_s;
        QTest::newRow("no-break space") << u"New\u00A0York"_s << u"other than the ordinary"_s;
        QTest::newRow("a forbidden page's word") << u"talk"_s << u"no round may visit"_s;
        QTest::newRow("the same, as an address writes it") << u"nowiki"_s << u"no round may visit"_s;
        QTest::newRow("a forbidden page") << u"Talk:Apple"_s << u"no round may visit"_s;
        QTest::newRow("a title no page can have")
            << u"Fig|figs"_s << u"\"Fig|figs\" cannot be a page's title: no page can have a title holding \"|\"."_s;
    }
    void refusedWords()
    {
        QFETCH(QString, word);
        QFETCH(QString, because);
        QVERIFY(StartServer());
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        ann.Send(msg::SetWords(word, u"Apple"));
        const QString why = ann.Next();
        QVERIFY2(why.startsWith(u"CHAT NAME=GAME;TEXT="_s) && why.contains(because), qPrintable(why));
        QCOMPARE(ann.Next(), u"NEWGAME NAME=Ann;"_s);
        QCOMPARE(bo.Collect(), QStringList());
        QVERIFY(!room().RoundRunning());
    }

    // A player's chat goes out a few lines at once and then a line a second, within the room's
    // budget, and never with characters that make it pass for other lines.
    void chatRelay_data()
    {
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<double>("fanOutRate");
        QTest::addColumn<int>("relayed");  // the first so many lines reach Bo
        QTest::addColumn<QString>("note"); // what Ann is told about the others, once
        const QStringList eight(8, u"gg"_s);
        QTest::newRow("five at once") << eight << 20000.0 << 5 << u"faster than the server relays"_s;
        QTest::newRow("bytes") << QStringList(3, QString(4000, u'x')) << 20000.0 << 2
                               << u"faster than the server relays"_s;
        QTest::newRow("line break") << QStringList{u"hi\r\nGAME: Ann has won"_s} << 20000.0 << 0
                                    << u"line breaks"_s;
        QTest::newRow("direction override")
            << QStringList{u"\u202Eniw I"_s} << 20000.0 << 0 << u"line breaks"_s;
        QTest::newRow("busy room") << QStringList(3, u"gg"_s) << 1.0 << 0 << u"server is busy"_s;
    }
    void chatRelay()
    {
        QFETCH(QStringList, lines);
        QFETCH(double, fanOutRate);
        QFETCH(int, relayed);
        QFETCH(QString, note);
        static double rate;
        rate = fanOutRate;
        QVERIFY(StartServer([](ServerConfig& config) { config.FanOutRate = rate; }));
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(AnnAndBo(ann, bo));
        for (const QString& line : lines) {
            const QString text = msg::Chat(u"Ann", line);
            if (FromWire(ToWire(text)) == text)
                ann.Send(text);
            else
                m_server->GameRoom().Handle(text, TestAddress(), kAnn);
        }
        QStringList expected;
        for (int i = 0; i < relayed; ++i)
            expected.append(msg::Chat(u"Ann", lines[i]));
        QCOMPARE(bo.Collect(300), expected);
        const QStringList told = ann.Collect(0);
        QCOMPARE(told.mid(0, relayed), expected);
        QCOMPARE(told.size(), relayed + 1);
        QVERIFY2(told.constLast().startsWith(u"CHAT NAME=GAME;TEXT="_s) && told.constLast().contains(note),
                 qPrintable(told.constLast()));
    }

    // Places go in the order players complete the handshake: an acceptance holds no name.
    void sameNameAcceptedTwice()
    {
        QVERIFY(StartServer());
        ScriptedClient first(kCy), second(kCy, OtherAddress());
        first.Send(msg::Connect(ClientVersion, u"Zed", first.PortText()));
        second.Send(msg::Connect(ClientVersion, u"zed", second.PortText()));
        QCOMPARE(first.Next(), u"CONNECTACCEPT PLAYING=no;"_s);
        QCOMPARE(second.Next(), u"CONNECTACCEPT PLAYING=no;"_s);
        second.Send(msg::GetPlayerList(second.PortText()));
        QCOMPARE(second.NextWithVerb(u"PLAYERLIST"_s), u"PLAYERLIST COUNT=1;P1=zed;"_s);
        first.Send(msg::GetPlayerList(first.PortText()));
        QCOMPARE(first.Next(), u"CONNECTREJECT ERROR=-10;"_s);
        QCOMPARE(room().Players().size(), 1);
        QCOMPARE(room().PendingCount(), 0);
    }

    // A room takes no more players than one "PLAYERLIST" datagram can name.
    void playerListFitsOneDatagram()
    {
        QVERIFY(StartServer([](ServerConfig& config) { config.MaxPerAddress = config.MaxPlayers; }));
        Room& bulk = m_server->GameRoom();
        const auto longName = [](int i) {
            return u"P%1"_s.arg(i, 4, 10, QLatin1Char('0')).leftJustified(64, u'x');
        };
        // Players that are no sockets, at ports where nobody listens: the room's answers go nowhere.
        int n = 0;
        for (;; ++n) {
            const quint16 port = quint16(20000 + n);
            bulk.Handle(msg::Connect(ClientVersion, longName(n), QString::number(port)), OtherAddress(),
                        port);
            bulk.Handle(msg::GetPlayerList(QString::number(port)), OtherAddress(), port);
            if (room().Players().size() == n) break;
        }
        QVERIFY(n > 900 && n < int(SessionData::kMaxPlayers));
        QCOMPARE(room().PendingCount(), 0);
        bulk.Handle(msg::Disconnect(longName(0)), OtherAddress(), 20000);

        ScriptedClient last(kAnn), oneTooMany(kBo);
        const QString list = last.Join(longName(n)).constLast();
        QVERIFY2(list.startsWith(u"PLAYERLIST COUNT=%1;P1=%2;"_s.arg(n).arg(longName(1))),
                 qPrintable(list.left(80)));
        QVERIFY(list.endsWith(u"P%1=%2;"_s.arg(n).arg(longName(n))));
        QCOMPARE_LE(ToWire(list).size(), 65507);
        QCOMPARE(oneTooMany.Join(longName(n + 1)), QStringList{u"CONNECTREJECT ERROR=-1;"_s});
        QCOMPARE(room().Players().size(), n);
        QCOMPARE(room().PendingCount(), 0);
        QCOMPARE(room().CheckInvariants(), QString());
    }

    // A status query asking for the answer at the server's own endpoint gets none: no loop.
    void noAnswerToItself()
    {
        QVERIFY(StartServer());
        ScriptedClient stranger(kStranger);
        const quint64 in = m_server->DatagramsIn(), out = m_server->DatagramsOut();
        stranger.Send(u"STATUS SERVER=PORT=7200;PORT=7200;"_s);
        stranger.Send(msg::Status(u"x", u"7200"));
        QCOMPARE(stranger.Collect(300), QStringList());
        QCOMPARE(m_server->DatagramsIn(), in + 2);
        QCOMPARE(m_server->DatagramsOut(), out);
    }

    void program()
    {
        const auto start = [](QProcess& server) {
            server.start(QCoreApplication::applicationDirPath() + u"/LinkhopServer"_s,
                         {u"--bind"_s, TestAddress().toString()});
            return server.waitForStarted(5000);
        };
        QProcess server;
        const QByteArray ready = u"LinkhopServer ready on %1:7200\n"_s.arg(TestAddress().toString()).toUtf8();
        QByteArray output;
        // Another program's test may hold port 7200 on every address for a moment: try again.
        QVERIFY2(WaitUntil(
                     [&] {
                         if (server.state() == QProcess::NotRunning && start(server)) output.clear();
                         return (output += server.readAllStandardOutput()).startsWith(ready);
                     },
                     10000),
                 output.constData());
        ScriptedClient ann(kAnn), bo(kBo);
        QCOMPARE(ann.Join(u"Ann"_s).constLast(), u"PLAYERLIST COUNT=1;P1=Ann;"_s);
        QCOMPARE(bo.Join(u"Bo"_s).constLast(), u"PLAYERLIST COUNT=2;P1=Ann;P2=Bo;"_s);
        ann.Skip();

        ScriptedClient stranger(kStranger), listener(kEve);
        stranger.Send(msg::Status(u"linkhop.example", listener.PortText())); // answered at the port asked
        QCOMPARE(listener.Next(), u"STATUS SERVER=linkhop.example;#=2;"_s);
        QProcess second; // on the same port: ends at once
        QVERIFY(start(second) && second.waitForFinished(5000));
        QCOMPARE(second.exitCode(), 1);
        QVERIFY(QString::fromUtf8(second.readAllStandardError()).contains(u"cannot listen on UDP"_s));

        server.terminate(); // SIGTERM
        QCOMPARE(ann.Next(), u"DISCONNECT"_s);
        QCOMPARE(bo.Next(), u"DISCONNECT"_s);
        QVERIFY(server.state() == QProcess::NotRunning || server.waitForFinished(5000));
        QVERIFY(server.exitStatus() == QProcess::NormalExit && server.exitCode() == 0);
        // The shipped article list and the option files beside the program load without a warning.
        QCOMPARE(server.readAllStandardError(), QByteArray());
        const QStringList log =
            QString::fromUtf8(server.readAllStandardOutput()).split(u'\n', Qt::SkipEmptyParts);
        QCOMPARE(log.filter(QRegularExpression(
                                u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} join \"Bo\""_s))
                     .size(),
                 1);
    }
};

QTEST_GUILESS_MAIN(tst_server)
#include "tst_server.moc"
