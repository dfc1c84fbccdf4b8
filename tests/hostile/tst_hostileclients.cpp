// The server facing clients that mean it harm: floods of spoofed names, broken fields, 64 KiB
// datagrams, and storms of connections, while three players play a round. The players' replies must
// keep coming in time, the round must complete, and each address keep within its limits. Then
// floods as fast as a thread can send, from one machine or from tens of thousands of addresses,
// and strangers holding places or guessing the password while players join.
//
// The floods come from addresses that no other test uses (127.66.0.0/16, 127.98.0.0/15 and
// 127.203-205.x.x) and stop by themselves after a few seconds.
#include "core/messages.h"
#include "core/version.h"
#include "flood.h"
#include "scriptedclient.h"
#include "scriptedserver.h"
#include "server/gameserver.h"

#include <QtTest>
#include <list>
#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;
using namespace linkhop::test;

namespace {

constexpr quint16 kAnn = 47401, kBo = 47402, kCy = 47403, kEcho = 47404, kAsker = 47405, kRacer = 47410;
constexpr quint16 kJoiner = 47500;
constexpr int kMaxPayload = 65507;
constexpr int kRacers = 10;

// "Other machines": 127.200.<k>.<last octet of the test address>.
QHostAddress Machine(int k)
{
    return QHostAddress(OtherAddress().toIPv4Address() + (quint32(k) << 8));
}

// Every verb about the players, fields broken every way up to 64 KiB, after a connect storm or not.
QList<QByteArray> Flood(bool storm)
{
    QStringList texts;
    const QString ann = QString::number(kAnn), echo = QString::number(kEcho); // echo: answer there
    for (int i = 0; storm && i < 2000; ++i) { // half of them complete, half only hold a place
        texts << msg::Connect(ClientVersion, QString(u"storm"_s + QString::number(i)),
                              QString::number(20000 + i));
        if (i % 2) texts << msg::GetPlayerList(QString::number(20000 + i));
    }
    for (const QString& name : {u"Ann"_s, u"Bo"_s, u"ann"_s})
        texts << msg::Navigate(name, u"Banana") << msg::Navigate(name, u"talk") << msg::Disconnect(name)
              << msg::SetWords(u"Moon", u"Sun") << msg::Chat(name, u"I give up") << msg::GetWords(name)
              << msg::SendMyPath(name, u"Fake") << msg::Pong(name, u"0") << msg::GetScore(ann, name)
              << msg::GetRandom(1) << msg::PingMe(ann) << msg::GetPlayerList(ann)
              << msg::Connect(ClientVersion, name, ann) << msg::Status(u"x", echo);
    for (const QString& v : {QString(), u"x"_s, u"-1"_s, u"65536"_s, u"99999999999999999999"_s, u"Ann"_s,
                             u"PORT=1"_s, QString(70, u'n'), u"9;"_s.repeated(kMaxPayload / 2)})
        texts << u"CONNECT VER=1.04 (beta);NAME=%1;PORT=%1;PWD=%1;"_s.arg(v)
              << u"CONNECT VER=%1;NAME=x;PORT=%2;"_s.arg(v, echo) << u"GETPLAYERLIST PORT=%1;"_s.arg(v)
              << u"STATUS SERVER=%1;PORT=%1;"_s.arg(v) << u"PONG NAME=Ann;TIME=%1;"_s.arg(v)
              << u"SETWORDS COUNT=%1;WORD0=%1;WORD1=%1;"_s.arg(v) << u"GETSCORE PORT=%1;NAME=%1;"_s.arg(v)
              << u"NAVIGATE NAME=%1;URL=%1;"_s.arg(v) << u"GETRANDOM SRC=%1;"_s.arg(v) << u"PINGME "_s + v
              << u"CHAT NAME=Ann;TEXT="_s + v;
    QList<QByteArray> datagrams;
    for (const QString& text : std::as_const(texts))
        datagrams << text.toLatin1().left(kMaxPayload);
    return datagrams;
}

QHostAddress At(quint32 a, quint32 b, quint32 c, quint32 d)
{
    return QHostAddress(a << 24 | b << 16 | c << 8 | d);
}

double RssMiB()
{
    QFile status(u"/proc/self/status"_s);
    if (!status.open(QIODevice::ReadOnly)) return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:")) return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024;
    return 0;
}

enum class Attack
{
    Squatters,         // 8 addresses, 8 pending places each, again every 200 ms
    ConnectStorm,      // 20,000 connections from as many addresses, as fast as a thread sends
    PasswordlessStorm, // 130 addresses x 8 ports ask for the password prompt
    PasswordStorm      // 64 addresses guess the password as fast as a thread sends
};

} // namespace

class tst_hostileclients : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aRoundUnderFlood_data()
    {
        QTest::addColumn<bool>("storm");
        QTest::addColumn<int>("machines");
        QTest::newRow("from one machine") << false << 1;
        QTest::newRow("with a connect storm from four machines") << true << 4;
    }
    void aRoundUnderFlood()
    {
        QFETCH(bool, storm);
        QFETCH(int, machines);
        ServerConfig config;
        config.Articles = {u"Apple"_s, u"Banana"_s, u"Cherry"_s};
        GameServer server(config);
        QVERIFY(WaitUntil([&] { return server.Start(TestAddress()); }));
        const Room& room = server.GameRoom();
        ScriptedClient ann(kAnn), bo(kBo), cy(kCy), echo(kEcho, Machine(0));
        for (auto [client, name] : {std::pair{&ann, u"Ann"_s}, {&bo, u"Bo"_s}, {&cy, u"Cy"_s}})
            QVERIFY(client->Join(name).last().startsWith(u"PLAYERLIST"_s));
        ann.Skip();
        bo.Skip();

        const QList<QByteArray> datagrams = Flood(storm);
        QElapsedTimer flooding;
        flooding.start();
        std::list<Flooder> floods; // 20000 a second from all machines together
        for (int k = 0; k < machines; ++k)
            floods.emplace_back(datagrams, TestAddress(), kServerPort, 20000 / machines, Machine(k));
        const quint64 inBefore = server.DatagramsIn();
        quint64 requests = 0; // the players' own datagrams while the flood ran
        // Sends `request`: the answer with `verb` comes within half a second, flood or not.
        const auto Ask = [&](ScriptedClient& client, const QString& request, const QString& verb) {
            client.Send(request);
            ++requests;
            return client.NextWithVerb(verb, 500);
        };
        QTest::qWait(1000);

        // A round from its words to its winner's route.
        QVERIFY(!Ask(cy, msg::PingMe(cy.PortText()), u"PING"_s).isEmpty());
        const QString start = msg::StartGame({u"Apple"_s, u"Banana"_s});
        QCOMPARE(Ask(ann, msg::SetWords(u"Apple", u"Banana"), u"STARTGAME"_s), start);
        QCOMPARE(bo.NextWithVerb(u"STARTGAME"_s), start);
        QCOMPARE(cy.NextWithVerb(u"STARTGAME"_s), start);
        QCOMPARE(Ask(bo, msg::Navigate(u"Bo", u"Fruit"), u"SCOREIS"_s), msg::ScoreIs(u"Bo", 0, 1, 1, true));
        QCOMPARE(Ask(cy, msg::Navigate(u"Cy", u"talk"), u"DISQUALIFY"_s), msg::Disqualify());
        QCOMPARE(Ask(bo, msg::Navigate(u"Bo", u"Banana"), u"WINNER"_s), msg::Winner(u"Bo"));
        QCOMPARE(ann.NextWithVerb(u"WINNER"_s), msg::Winner(u"Bo"));
        const QString path = msg::PathIs(u"Apple\rFruit\rBanana", u"Bo");
        QCOMPARE(Ask(bo, msg::SendMyPath(u"Bo", u"Apple\rFruit\rBanana"), u"PATHIS"_s), path);
        QCOMPARE(cy.NextWithVerb(u"PATHIS"_s), path);
        quint64 sent = 0;
        for (Flooder& flood : floods) {
            flood.Stop();
            sent += flood.Sent();
        }
        const double seconds = double(flooding.elapsed()) / 1000;

        QCOMPARE(room.CheckInvariants(), QString());
        QCOMPARE(room.Chooser(), u"Bo"_s);
        QVERIFY(!room.RoundRunning());
        for (int k = 0; k < machines; ++k)
            QCOMPARE_LE(std::count_if(room.Players().cbegin(), room.Players().cend(),
                                      [&](const Player& p) { return p.Where.Address == Machine(k); }),
                        config.MaxPerAddress);
        // Each machine had its share of the room's attention and no more.
        const double limit = machines * (config.FloodBurst + config.FloodRate * seconds);
        QVERIFY2(sent > 2 * limit, "the flood was no flood");
        QCOMPARE_LE(double(server.DatagramsIn() - inBefore - requests), limit);
        QCOMPARE_LE(double(echo.Collect(100).size()), limit);
    }

    // Ten players race while one machine sends as fast as a thread can, alone or amid a spray from
    // 70,000 fresh addresses: the players' reports are answered, the machine gets no more than its
    // share, however many addresses pass through the limits' table, and memory stays put.
    void playersServedUnderFlood_data()
    {
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<int>("spray"); // fresh addresses sending the same beside it
        const QByteArray status = "STATUS SERVER=x;PORT=" + QByteArray::number(kEcho) + ";";
        QTest::newRow("empty datagrams from one machine") << QByteArray() << 0;
        QTest::newRow("status queries from one machine") << status << 0;
        QTest::newRow("status queries from one machine and 70,000 addresses") << status << 70000;
    }
    void playersServedUnderFlood()
    {
        QFETCH(QByteArray, datagram);
        QFETCH(int, spray);
        ServerConfig config;
        config.Articles = {u"Apple"_s, u"Banana"_s};
        GameServer server(config);
        QVERIFY(WaitUntil([&] { return server.Start(TestAddress()); }));
        std::list<ScriptedClient> racers;
        for (int i = 0; i < kRacers; ++i) {
            ScriptedClient& racer = racers.emplace_back(quint16(kRacer + i), Machine(i + 1));
            QVERIFY(racer.Join(u"R%1"_s.arg(i)).constLast().startsWith(u"PLAYERLIST"_s));
        }
        racers.front().Send(msg::SetWords(u"Apple", u"Banana"));
        for (ScriptedClient& racer : racers)
            QVERIFY(!racer.NextWithVerb(u"STARTGAME"_s).isEmpty());
        ScriptedClient asker(kAsker, Machine(20)), echo(kEcho, FloodMachine());

        const double rssBefore = RssMiB();
        double rssMost = rssBefore;
        FastFlooder flood(datagram, TestAddress(), kServerPort, FloodMachine(), 1, 5);
        std::unique_ptr<FastFlooder> sprayer;
        if (spray > 0)
            sprayer = std::make_unique<FastFlooder>(datagram, TestAddress(), kServerPort, SprayFirst(),
                                                    quint32(spray), 5);
        constexpr int kRounds = 20;
        for (int round = 1; round <= kRounds; ++round) {
            int i = 0;
            for (ScriptedClient& racer : racers)
                racer.Send(msg::Navigate(u"R%1"_s.arg(i++), u"Page %1"_s.arg(round)));
            asker.Send(msg::Status(u"here", asker.PortText()));
            WaitUntil([] { return false; }, 100);
            rssMost = std::max(rssMost, RssMiB());
        }
        WaitUntil([] { return false; }, 300);
        flood.Stop();
        if (sprayer) sprayer->Stop();
        QVERIFY2(flood.Sent() > 20000, "the flood was no flood");

        int answered = 0, i = 0;
        for (ScriptedClient& racer : racers) {
            QSet<QString> clicks;
            const QString own = u"SCOREIS NAME=R%1;"_s.arg(i++);
            for (const QString& text : racer.Collect(0))
                if (text.startsWith(own)) clicks.insert(GetParam(text, u"RCLICK"));
            answered += int(clicks.size());
        }
        const int statuses = int(asker.Collect(0).filter(u"STATUS SERVER=here;"_s).size());
        const int echoed = int(echo.Collect(100).size());
        qInfo("%llu + %llu datagrams: %d of %d reports, %d of %d status queries answered; %d echoed; RSS "
              "%.1f -> %.1f MiB",
              static_cast<unsigned long long>(flood.Sent()),
              static_cast<unsigned long long>(sprayer ? sprayer->Sent() : 0), answered, kRacers * kRounds,
              statuses, kRounds, echoed, rssBefore, rssMost);
        // Beside a spray the players share two processors with two flooding threads here.
        QCOMPARE_GE(answered, kRacers * kRounds * (spray == 0 ? 9 : 3) / (spray == 0 ? 10 : 4));
        QCOMPARE_LT(rssMost - rssBefore, 64.0);
        QCOMPARE_GE(server.Blocks(), 1u);
        QCOMPARE_LE(double(echoed), config.FloodBurst + config.FloodRate * flood.Seconds());
        // A stranger's query competes with a spray from fresh addresses, and only with that.
        if (spray == 0) QCOMPARE_GE(statuses, kRounds * 9 / 10);
    }

    // A flood from a player's address, spoofed or not, is limited but never blocked: the player is
    // answered again as soon as it stops.
    void playerAddressNeverBlocked()
    {
        ServerConfig config;
        config.Articles = {u"Apple"_s};
        GameServer server(config);
        QVERIFY(WaitUntil([&] { return server.Start(TestAddress()); }));
        ScriptedClient victim(kAnn, FloodMachine());
        QVERIFY(victim.Join(u"Vic"_s).constLast().startsWith(u"PLAYERLIST"_s));
        FastFlooder flood(QByteArray(), TestAddress(), kServerPort, FloodMachine(), 1, 5);
        QVERIFY(WaitUntil([&] { return flood.Sent() > 20000; }));
        flood.Stop();
        WaitUntil([] { return false; }, 50);
        victim.Skip();
        victim.Send(msg::PingMe(victim.PortText()));
        QVERIFY(!victim.NextWithVerb(u"PING"_s, 500).isEmpty());
        QCOMPARE(server.Blocks(), 0u);
    }

    void joinsUnderAttack_data()
    {
        QTest::addColumn<Attack>("attack");
        QTest::newRow("eight addresses squatting pending places") << Attack::Squatters;
        QTest::newRow("20,000 connections from fresh addresses") << Attack::ConnectStorm;
        QTest::newRow("1,040 password prompts") << Attack::PasswordlessStorm;
        QTest::newRow("password guesses from 64 addresses") << Attack::PasswordStorm;
    }
    void joinsUnderAttack()
    {
        QFETCH(Attack, attack);
        const bool privateServer = attack == Attack::PasswordlessStorm || attack == Attack::PasswordStorm;
        ServerConfig config;
        config.Articles = {u"Apple"_s};
        if (privateServer) config.Password = u"pw"_s;
        GameServer server(config);
        QVERIFY(WaitUntil([&] { return server.Start(TestAddress()); }));

        // Squatters: plain sockets, each announcing ports it never listens on.
        std::list<QUdpSocket> strangers;
        QTimer again;
        const auto connectFrom = [&](int addresses, int ports, const QString& prefix) {
            for (int a = 0; a < addresses; ++a) {
                QUdpSocket& socket = strangers.emplace_back();
                QVERIFY(socket.bind(At(127, 203, quint32(a) >> 8, quint32(a) & 0xff), 0));
            }
            const auto send = [&strangers, ports, prefix] {
                int a = 0;
                for (QUdpSocket& socket : strangers) {
                    for (int k = 0; k < ports; ++k)
                        socket.writeDatagram(
                            ToWire(msg::Connect(ClientVersion, u"%1%2"_s.arg(prefix).arg(a * ports + k),
                                                QString::number(40000 + k))),
                            TestAddress(), kServerPort);
                    ++a;
                }
            };
            send();
            QObject::connect(&again, &QTimer::timeout, &again, send);
        };
        std::unique_ptr<FastFlooder> flood;
        switch (attack) {
        case Attack::Squatters:
            connectFrom(8, 8, u"sq"_s);
            again.start(200);
            break;
        case Attack::ConnectStorm: {
            QList<QByteArray> storm;
            for (int i = 0; i < 20000; ++i)
                storm.append(ToWire(msg::Connect(ClientVersion, u"storm%1"_s.arg(i), u"40000")));
            flood =
                std::make_unique<FastFlooder>(storm, TestAddress(), kServerPort, SprayFirst(), 20000, 0.6);
            WaitUntil([&] { return flood->Seconds() >= 0.6 && flood->Sent() >= 20000; }, 5000);
            break;
        }
        case Attack::PasswordlessStorm:
            // Each from a port of its own, which it lets go at once.
            for (int a = 0; a < 130; ++a) {
                for (int k = 0; k < 8; ++k) {
                    QUdpSocket socket;
                    QVERIFY(socket.bind(At(127, 204, 0, quint32(a + 1)), 0));
                    socket.writeDatagram(ToWire(msg::Connect(ClientVersion, u"prompt%1"_s.arg(a * 8 + k),
                                                             QString::number(socket.localPort()))),
                                         TestAddress(), kServerPort);
                }
            }
            break;
        case Attack::PasswordStorm:
            flood = std::make_unique<FastFlooder>(
                ToWire(msg::ConnectWithPassword(ClientVersion, u"guess", u"wrong")), TestAddress(),
                kServerPort, SprayFirst(), 64, 10);
            // Until every guesser is blocked, a slow build may drop any datagram, a joiner's too.
            QVERIFY(WaitUntil([&] { return server.Blocks() >= 64; }, 5000));
            break;
        }
        WaitUntil([] { return false; }, 200);

        // 25 players join one after the other from machines of their own, during or right after it.
        std::list<ScriptedClient> joiners;
        for (int k = 1; k <= 25; ++k) {
            ScriptedClient& joiner = joiners.emplace_back(quint16(kJoiner + k), At(127, 205, 0, quint32(k)));
            const QStringList replies = joiner.Join(u"J%1"_s.arg(k), u"pw"_s);
            QVERIFY2(replies.constLast().startsWith(u"PLAYERLIST"_s), qPrintable(replies.join(u" | ")));
        }
        QCOMPARE(server.GameRoom().Players().size(), 25);
        QCOMPARE_LE(server.GameRoom().PendingCount(), qsizetype(config.MaxPending));
        QCOMPARE(server.GameRoom().CheckInvariants(), QString());

        if (attack == Attack::PasswordStorm) {
            // Wrong guesses from one address are checked three at a time, then ever more slowly.
            ScriptedClient guesser(kJoiner, At(127, 205, 1, 1));
            for (const char* expected : {"-100", "-100", "-100", "-1"}) {
                guesser.Send(msg::ConnectWithPassword(ClientVersion, u"Mallory", u"guess"));
                QCOMPARE(guesser.Next(), u"CONNECTREJECT ERROR=%1;"_s.arg(QLatin1StringView(expected)));
            }
            guesser.Send(msg::ConnectWithPassword(ClientVersion, u"Mallory", u"pw"));
            QCOMPARE(guesser.Next(), u"CONNECTREJECT ERROR=-1;"_s);
        }
    }
};

QTEST_GUILESS_MAIN(tst_hostileclients)
#include "tst_hostileclients.moc"
