// A client facing a server that means it harm: floods, every verb with broken fields, 64 KiB
// datagrams, rounds announced over and over, disconnections repeated. The client must keep its
// event loop turning and its state consistent, and end only when told to disconnect.
#include "clientfakes.h"
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "core/wire.h"
#include "flood.h"
#include "game/frmgame.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "scriptedserver.h"

#include <QtTest>
#include <QtWidgets>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

constexpr int kMaxPayload = 65507; // of one UDP datagram over IPv4
constexpr double kMaxHeldMs = 100; // the event loop is never kept from other events longer

// `head`, then `filler` repeated, then `tail`: as long as one datagram can be.
QString Huge(const QString& head, const QString& tail = {}, const QString& filler = u"x"_s)
{
    return QString(head + filler.repeated(kMaxPayload)).left(kMaxPayload - tail.size()) + tail;
}

// What must hold for a session whatever its server sent; empty when it does.
QString Broken(Session& s, const RecordingProgramEnd& programEnd)
{
    if (s.Ended() || !programEnd.endings.isEmpty() || !s.OpenChat() || !s.OpenScores()) return u"it ended"_s;
    QStringList names;
    for (const PlayerRecord& p : s.Players())
        names << p.Name.toLower();
    if (names.removeDuplicates() > 0) return u"two players of one name"_s;
    if (s.PlayerCount() > SessionData::kMaxPlayers) return u"%1 players"_s.arg(s.PlayerCount());
    s.OpenChat()->AddChat(u"check"_s, u"line"_s); // whatever came before, one more leaves at most 100 lines
    if (s.OpenChat()->Transcript().count(u"\r\n"_s) >= 100) return u"more than 100 lines in the chat"_s;
    s.OpenScores()->UpdateList(true, true, true, true);
    for (const QString& label : {u"lblPlayers"_s, u"lblScores"_s, u"lblPings"_s})
        if (s.OpenScores()->findChild<QLabel*>(label)->text().count(u"\r\n"_s) != s.PlayerCount())
            return label + u" differs from the roster";
    return {};
}

// A client after its handshake, talking to a scripted server from a port away from 7200-7220.
struct InSession
{
    InSession()
    {
        if (!server.Listen()) qFatal("the scripted server cannot bind port 7200");
        S().ServerAddress = TestAddress().toString();
        S().PlayerName = u"ann"_s;
        for (int port = 47600; S().LocalPort.isEmpty() && port < 47700; ++port)
            if (UdpEndpoint probe; probe.Bind(QString::number(port))) S().LocalPort = QString::number(port);
        for (const QString& name : {u"ann"_s, u"bo"_s, u"cy"_s})
            S().AddPlayer(name);
        S().ResetGameData();
        OpenSessionWindows(S(), false, QString());
        browser = client.LastBrowser();
        QTest::qWait(50); // the first paint of new windows is no flood's doing
    }

    Session& S() { return *client.session; }
    // Whether the client answers a PING sent behind everything so far: then it has handled all it
    // read. A PING lost to a full socket buffer is sent again.
    bool Answers()
    {
        for (QDeadlineTimer deadline(10000); !deadline.hasExpired();) {
            const QString mark = u"mark"_s + QString::number(++marks);
            Send({msg::Ping(mark)});
            const QString pong = msg::Pong(S().PlayerName, mark);
            if (WaitUntil([&] { return server.ReceivedTexts().contains(pong); }, 1000)) return true;
        }
        return false;
    }
    void Send(const QStringList& datagrams)
    {
        for (const QString& d : datagrams)
            server.SendTo(d, S().LocalPort.toUShort());
    }

    TestClient client;
    ScriptedServer server;
    QPointer<ScriptedBrowser> browser;
    int marks = 0;
};

// `valid` with one field at a time missing, empty, non-numeric, out of range, huge, another's name
// in capitals, or 64 KiB of digits; and whole datagrams gone wrong.
QStringList BrokenForms(const QString& valid)
{
    const QString verb = Verb(valid);
    const QStringList fields = valid.mid(verb.size() + 1).split(u';', Qt::SkipEmptyParts);
    const auto with = [&](qsizetype i, const QString& field) -> QString {
        QStringList changed = fields;
        changed[i] = field;
        changed.removeAll(QString());
        return verb + u' ' + changed.join(u';') + u';';
    };
    QStringList forms = {verb, valid.chopped(1), valid + valid, Huge(valid)};
    for (qsizetype i = 0; i < fields.size(); ++i) {
        const QString key = fields[i].section(u'=', 0, 0) + u'=';
        for (const QString& value :
             {QString(), u"abc"_s, u"-1"_s, u"2147483648"_s, u"99999999999999999999"_s, u"ANN"_s})
            forms << with(i, key + value);
        forms << with(i, {}) << Huge(verb + u' ' + key, u";"_s + with(i, {}).mid(verb.size() + 1), u"9"_s);
    }
    return forms;
}

} // namespace

class tst_hostileserver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { StopModalWaits(); }

    void floodKeepsTheSessionResponsive_data()
    {
        QTest::addColumn<bool>("huge");
        QTest::addColumn<int>("perSecond");
        QTest::newRow("small datagrams") << false << 5000;
        QTest::newRow("64 KiB datagrams") << true << 500;
    }
    void floodKeepsTheSessionResponsive()
    {
        QFETCH(bool, huge);
        QFETCH(int, perSecond);
        InSession f;
        QList<QByteArray> datagrams; // the session's busiest verbs, broken every way
        for (const QString& valid : {msg::ScoreIs(u"bo", 1, 2, 3, true), msg::PingIs(u"cy", 40),
                                     msg::Chat(u"bo", u"hi"), msg::Join(u"di"), msg::Leave(u"DI")})
            for (const QString& form : BrokenForms(valid))
                if ((form.size() == kMaxPayload) == huge) datagrams << ToWire(form);
        Heartbeat heartbeat;
        Flooder flood(datagrams, TestAddress(), f.S().LocalPort.toUShort(), perSecond, {}, f.server.Socket());
        QTest::qWait(2000);
        flood.Stop();
        QCOMPARE_LT(heartbeat.LongestHeldMs(), kMaxHeldMs);
        QVERIFY(f.Answers());
        QCOMPARE(Broken(f.S(), f.client.programEnd), QString());
    }

    // Score updates for a full roster, sent faster than the client takes its turns to handle them,
    // with a round's start among them: none is lost, however long it waits for its turn; an inbox
    // that fills lets go of old scores only.
    void roundStartInAScoreFlood_data()
    {
        QTest::addColumn<int>("inboxLimit"); // 0: the endpoint's own
        QTest::newRow("every update waits its turn") << 0;
        QTest::newRow("a full inbox lets old scores go") << (1 << 20);
    }
    void roundStartInAScoreFlood()
    {
        QFETCH(int, inboxLimit);
        InSession f;
        if (inboxLimit > 0) f.S().Game()->wsGame->SetInboxLimit(inboxLimit);
        for (int i = f.S().PlayerCount(); i < SessionData::kMaxPlayers; ++i)
            f.S().AddPlayer(u"p"_s + QString::number(i));
        const QList<PlayerRecord> players = f.S().Players();
        const int total = 80 * SessionData::kMaxPlayers;
        QStringList expected(players.size());
        for (int sent = 0; sent < total;) {
            QStringList chunk;
            for (; chunk.size() < 200 && sent < total; ++sent) {
                const qsizetype i = sent % players.size();
                const int wins = sent / 7919, clicks = sent, round = sent % 97;
                chunk << msg::ScoreIs(players[i].Name, wins, clicks, round, sent % 3);
                expected[i] = u"%1 / %2 / %3\r\n"_s.arg(wins).arg(clicks).arg(round);
            }
            if (sent == total / 2) chunk << msg::StartGame({u"Apple"_s, u"Banana"_s});
            f.Send(chunk);
            // The client reads each chunk before the next, so none is lost to a full socket buffer.
            QCoreApplication::processEvents();
        }
        QVERIFY(f.Answers());
        QVERIFY(f.S().InRound);
        QCOMPARE(f.S().Words.at(1), u"Banana"_s);
        QVERIFY(f.S().OpenChat()->Transcript().endsWith(u"GAME: The game has begun!"_s));
        const auto* scores = f.S().OpenScores()->findChild<QLabel*>(u"lblScores"_s);
        QVERIFY(WaitUntil([&] { return scores->text() == expected.join(QString()); }));
        QCOMPARE(Broken(f.S(), f.client.programEnd), QString());
    }

    // 16 MiB of chat lines and junk from the server's own address and port (a flood of others'
    // chat relayed, or a hostile server), twice what the session's inbox holds, with a round's
    // messages among them: the inbox lets chat and junk go, never the round, and stays within its
    // bounds; the round is played, won, and the next one begins.
    void roundThroughAFlood()
    {
        InSession f;
        UdpEndpoint& inbox = *f.S().Game()->wsGame;
        f.browser->titleFor = EveryArticleTitle;
        sockaddr_in client{};
        client.sin_family = AF_INET;
        client.sin_port = htons(f.S().LocalPort.toUShort());
        client.sin_addr.s_addr = htonl(TestAddress().toIPv4Address());
        const auto sendAsServer = [&](const QByteArray& datagram) {
            return ::sendto(int(f.server.Socket()), datagram.data(), size_t(datagram.size()), MSG_DONTWAIT,
                            reinterpret_cast<const sockaddr*>(&client), sizeof client) >= 0;
        };
        const QByteArray text(1000, 'x');
        const QList<QByteArray> chat = {"CHAT NAME=bo;TEXT=" + text,
                                        "CHAT NAME=cy;TEXT=GAME " + text.left(100)};
        const QList<QByteArray> junk = {"XYZZY " + text, QByteArray(300, '\xff'),
                                        "SCOREIS NAME=zed;WINS=1;CLICK=x;RCLICK=1;", "startgame COUNT=1;"};
        qsizetype mostInbox = 0, mostReserve = 0;
        // Once the inbox is full, a round message after every few hundred KiB of the rest; the
        // socket is read before each, so that none is lost before it reaches the inbox.
        const auto flood = [&](qsizetype bytes, QStringList round, const QList<QByteArray>& rest) {
            for (qsizetype sent = 0, i = 0; sent < bytes || !round.isEmpty();) {
                QCoreApplication::processEvents();
                mostInbox = std::max(mostInbox, inbox.InboxBytes());
                mostReserve = std::max(mostReserve, inbox.ReserveBytes());
                if (!round.isEmpty() && sent >= bytes / 2) f.Send({round.takeFirst()});
                for (int k = 0; k < 200; ++k, ++i) {
                    const QByteArray& datagram = rest[i % rest.size()];
                    if (sendAsServer(datagram)) sent += datagram.size();
                }
            }
        };
        flood(8 << 20,
              {msg::NewGame(u"bo"), msg::SetRandom(u"Pear", 1), msg::StartGame({u"Apple"_s, u"Banana"_s})},
              chat + junk);
        QVERIFY(WaitUntil([&] { return f.S().InRound; }, 60000));
        QCOMPARE(f.S().ChooserName, u"bo"_s);
        QCOMPARE(f.S().Game()->Navigation.LastReported, u"Pear"_s);
        QCOMPARE(f.S().Words.at(1), u"Banana"_s);
        f.browser->Navigate(u"http://wiki.test/wiki/Banana"_s); // the player clicks
        QCOMPARE(f.server.WaitForVerb(u"NAVIGATE"_s), msg::Navigate(u"ann", u"Banana"));
        // The rest is junk only, so that the chat shows what the round wrote.
        flood(8 << 20,
              {msg::Winner(u"ann"), msg::PathIs(u"Apple\rBanana", u"ann"),
               msg::Chat(msg::GameSpeaker, u"The shortest route takes 1 click."), msg::NewGame(u"ann"),
               msg::StartGame({u"Pear"_s, u"Apple"_s}), msg::Disqualify()},
              junk);
        QVERIFY(f.Answers());
        QCOMPARE(f.server.ReceivedWithVerb(u"SENDMYPATH"_s),
                 QStringList{msg::SendMyPath(u"ann", u"Apple\rBanana")});
        const QStringList notices = f.server.ReceivedWithVerb(u"CHAT"_s);
        QVERIFY2(notices.size() == 1 && notices[0].startsWith(msg::DisqualifiedNotice(u"ann", {}).chopped(2)),
                 qPrintable(notices.join(u'\n')));
        QVERIFY(f.S().InRound && f.S().Words.at(0) == u"Pear"_s);
        QVERIFY(f.S().OpenWinner() && f.S().OpenWinner()->isVisible());
        QVERIFY(f.S().OpenChat()->Transcript().endsWith(
            u"GAME: ann has won the round in 0 clicks!\r\nGAME: The winning route was: \r\nApple --> "
            u"Banana\r\n"
            u"GAME: ann now chooses the next words.\r\nGAME: The shortest route takes 1 click.\r\n"
            u"GAME: The game has begun!"_s));
        // The flood filled the inbox, which let go of chat and junk; nothing ever held more.
        QCOMPARE_GT(mostInbox, UdpEndpoint::kInboxLimitBytes / 2);
        QCOMPARE_LE(mostInbox, UdpEndpoint::kInboxLimitBytes);
        QCOMPARE_LE(mostReserve, UdpEndpoint::kReserveLimitBytes);
        QCOMPARE(Broken(f.S(), f.client.programEnd), QString());
    }

    void everyVerbWithBrokenFields_data()
    {
        QTest::addColumn<QStringList>("datagrams");
        for (const QString& valid :
             {msg::Ping(u"12"), msg::ScoreIs(u"bo", 1, 2, 3, true), msg::PingIs(u"cy", 40), msg::Join(u"di"),
              msg::Leave(u"di"), msg::Drop(u"cy"), msg::Chat(u"bo", u"hi"),
              msg::TimeIs(u"10:00:00", u"today"), msg::Winner(u"ann"), msg::PathIs(u"A\rB", u"bo"),
              msg::NewGame(u"ann"), msg::Disqualify(), msg::NavigateTo(u"Apple"), msg::SetRandom(u"Pear", 1),
              msg::StartGame({u"Apple"_s, u"Banana"_s})})
            QTest::newRow(qPrintable(Verb(valid))) << BrokenForms(valid);
    }
    void everyVerbWithBrokenFields()
    {
        QFETCH(QStringList, datagrams);
        InSession f;
        f.S().InRound = true;
        f.S().RoutePath = u"Apple\r"_s;
        f.S().Winner().show(); // for the words that SETRANDOM puts into it
        Heartbeat heartbeat;
        for (qsizetype i = 0; i < datagrams.size(); i += 16) { // none lost to a full socket buffer
            f.Send(datagrams.mid(i, 16));
            QVERIFY2(f.Answers(), qPrintable(u"no answer after "_s + datagrams[i].left(60)));
        }
        QCOMPARE_LT(heartbeat.LongestHeldMs(), kMaxHeldMs);
        QCOMPARE(Broken(f.S(), f.client.programEnd), QString());
    }

    void roundsAndDisconnectionsWhilePagesLoad()
    {
        // The dispatcher's waits for a round's first page run this test's timer nested inside them.
        InSession f;
        f.browser->loadDelayMs = 400;
        int sent = 0;
        // Far more rounds than the stack would hold waits for, each while the last one's page loads.
        QTimer bursts;
        connect(&bursts, &QTimer::timeout, &f.server, [&] {
            QStringList starts;
            for (int k = 0; k < 200; ++k, ++sent)
                starts << msg::StartGame({u"A"_s + QString::number(sent), u"B"_s + QString::number(sent)});
            f.Send(starts << msg::Ping(u"t"_s));
            if (sent >= 6000) bursts.stop();
        });
        Heartbeat heartbeat;
        bursts.start(20);
        QVERIFY(WaitUntil([&] { return sent >= 6000 && !f.browser->Busy(); }, 30000));
        // And a round announced once the bursts are over.
        f.Send(QStringList{msg::StartGame({u"Last"_s, u"B"_s})});
        QVERIFY(WaitUntil([&] { return f.S().CurrentArticle == u"Last"_s && !f.browser->Busy(); }));
        QVERIFY(f.Answers());
        QCOMPARE_LT(heartbeat.LongestHeldMs(), kMaxHeldMs);
        QCOMPARE(f.S().OpenChat()->Transcript().count(u"GAME: The game has begun!"_s), 100);
        QCOMPARE(Broken(f.S(), f.client.programEnd), QString());

        // Then disconnections, over and over, while a round's first page loads.
        const QStringList disconnects(20, msg::Disconnected());
        int depth = 0, deepest = 0;
        f.client.prompts.onMessageBox = [&](const QString&) {
            // The box runs an event loop of its own until the player closes it; whatever the server
            // sends meanwhile belongs to a session that is over.
            deepest = std::max(deepest, ++depth);
            f.Send(disconnects + QStringList{msg::Ping(u"late"_s), msg::StartGame({u"X"_s, u"Y"_s}),
                                             msg::NavigateTo(u"Z"_s)});
            WaitUntil([] { return false; }, 300);
            --depth;
        };
        f.browser->loadDelayMs = 10000; // far longer than the wait for the end
        f.Send(QStringList{msg::StartGame({u"Apple"_s, u"Banana"_s})} + disconnects);
        QVERIFY(WaitUntil([&] { return f.S().Ended(); }));
        QTest::qWait(300);
        QVERIFY(f.browser && f.browser->Busy()); // it all came during the wait for the page
        QCOMPARE(f.client.prompts.MessageTexts(),
                 QStringList{u"You have been disconnected from the game."_s});
        QCOMPARE(deepest, 1);
        QCOMPARE(f.client.programEnd.endings, QList<int>{0});
        QVERIFY(f.server.ReceivedWithVerb(u"DISCONNECT"_s).isEmpty());
        QVERIFY(!f.server.ReceivedTexts().contains(msg::Pong(u"ann"_s, u"late"_s)));
    }

    void lobbyUnderFlood()
    {
        // Both lobby sockets flooded by the server asked: the server browser's with replies, 64 KiB
        // replies and junk, the handshake's with everything but the replies that end it.
        TestClient client;
        Session& s = *client.session;
        s.SaveOption(u"Servers"_s, TestAddress().toString());
        QList<QByteArray> datagrams;
        for (const QString& text :
             {Huge(u"MESSAGE "_s), u"MESSAGE"_s, msg::IsHost(u"ANN"), u"ISHOST NAME=ann"_s,
              msg::ConnectAccept(true), u"CONNECTACCEPT PLAYING=maybe;"_s, u"PLAYERLIST COUNT=x;P1=ann;"_s,
              u"playerlist COUNT=1;P1=ann;"_s, Huge(u"PLAYERLIST COUNT=99999999999;P1="_s, u";"_s),
              u"CONNECTREJECTED"_s, u"NEEDPWDS"_s})
            datagrams << ToWire(text);
        for (int i = 0; i < 500; ++i) // with bytes of every value, in datagrams of every size
            datagrams << ToWire(msg::StatusReply(u"10.0.0.%1"_s.arg(i), QString::number(i)))
                      << ToWire(Huge(u"STATUS SERVER="_s + QString::number(i), u";#=1;"_s))
                      << ToWire(u"STATUS #=;SERVER=x;"_s) << QByteArray(1 + i * 131, char(i));
        ScriptedServer server;
        QVERIFY(server.Listen());
        server.OnVerb(u"CONNECT"_s, QStringList{msg::ConnectAccept(false)});
        const QPointer<frmMain> window = new frmMain(s); // closes for good once it hands over
        const auto closeWindow = qScopeGuard([&] { delete window.data(); });
        window->show();
        Find<QLineEdit>(window, u"txtName"_s)->setText(u"ann"_s);
        QStringList listed;
        std::unique_ptr<Flooder> flood;
        Heartbeat heartbeat;
        WhenModal<frmServers>([&](frmServers* d) { // which picked the port to flood
            flood = std::make_unique<Flooder>(datagrams, TestAddress(), s.LocalPort.toUShort(), 3000,
                                              QHostAddress(), server.Socket());
            QTest::qWait(1500);
            const auto* active = Find<QListWidget>(d, u"lstActive"_s);
            for (int i = 0; i < active->count(); ++i)
                listed << active->item(i)->text();
            Find<SimpleCombo>(d, u"cmbServers"_s)->setText(TestAddress().toString());
            Find<QPushButton>(d, u"cmdJoin"_s)->click();
        });
        Find<QPushButton>(window, u"cmdJoin"_s)->click();
        QVERIFY(!server.WaitForVerb(u"CONNECT"_s).isEmpty());
        QTest::qWait(1500);
        flood->Stop();
        QCOMPARE_LT(heartbeat.LongestHeldMs(), kMaxHeldMs);
        QVERIFY(!listed.isEmpty() && listed.size() <= frmServers::kMaxEntries);
        QCOMPARE(listed.filter(QRegularExpression(u"\\)$"_s)), listed);
        QVERIFY(window && window->isVisible() && !s.Game()); // nothing in the flood ended the handshake

        // Far more players than a roster takes, in every letter case, some named too long.
        QString list = u"PLAYERLIST COUNT=2147483647;P1=ann;P2=ANN;"_s;
        for (int i = 3; list.size() < kMaxPayload - 200; ++i)
            list += u"P%1=%2;"_s.arg(i).arg(i % 10 ? u"p"_s + QString::number(i % 4000) : QString(65, u'n'));
        server.SendTo(list, s.LocalPort.toUShort());
        QVERIFY(WaitUntil([&] { return s.Game() != nullptr; }));
        QCOMPARE(s.PlayerCount(), SessionData::kMaxPlayers);
        QCOMPARE(Broken(s, client.programEnd), QString());
    }
};

QTEST_MAIN(tst_hostileserver)
#include "tst_hostileserver.moc"
