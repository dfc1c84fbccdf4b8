// Only the server speaks to its clients. A stranger who knows a player's address and guesses the
// client's port (7200-7220) sends whatever a server could: into a running session, a running
// handshake and a running server search. Nothing of it changes anything, nothing is answered, and
// the client counts each one. The real client and the real server's room on loopback; strangers on
// 127.77.0.0/16, or at the server's own address from another port.
#include "clientfakes.h"
#include "core/udpendpoint.h"
#include "game/frmgame.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "panels/frmchat.h"
#include "panels/frmwinner.h"
#include "scriptedclient.h"
#include "server/gameserver.h"

#include <QLabel>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>
#include <QUdpSocket>
#include <QtTest>
#include <arpa/inet.h>
#include <csignal>
#include <cstring>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

constexpr quint16 kBo = 47801;

void SourceColumns()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QHostAddress>("address");
    QTest::addColumn<quint16>("port");
}

// Where strangers send from: a machine of their own at the server's port, or the server's machine
// from another port. The client's port is guessed right.
void Sources(const char* what, const QString& message)
{
    QTest::addRow("%s from another machine", what)
        << message << QHostAddress(u"127.77.0.1"_s) << quint16(7200);
    QTest::addRow("%s from the server's address", what) << message << TestAddress() << quint16(47900);
}

// A stranger's socket: one datagram to the player's port, and whatever comes back is kept.
struct Stranger
{
    Stranger(const QHostAddress& address, quint16 port)
    {
        if (!socket.bind(address, port))
            qFatal("the stranger cannot bind %s", qPrintable(address.toString()));
    }
    void Send(const QString& text, const QString& playerPort)
    {
        socket.writeDatagram(ToWire(text), QHostAddress(QHostAddress::LocalHost), playerPort.toUShort());
    }
    bool Answered()
    {
        WaitUntil([] { return false; }, 100);
        return socket.hasPendingDatagrams();
    }
    QUdpSocket socket;
};

// Join Game as `name`, the server's address typed into the browser; returns once the handshake has
// begun, with the main window that runs it.
QPointer<frmMain> Join(Session& s, const QString& name, const QString& address)
{
    s.SaveOption(u"Name"_s, name);
    auto* main = new frmMain(s);
    main->show();
    WhenModal<frmServers>([address](frmServers* d) {
        Find<SimpleCombo>(d, u"cmbServers"_s)->setText(address);
        Find<QPushButton>(d, u"cmdJoin"_s)->click();
    });
    Find<QPushButton>(main, u"cmdJoin"_s)->click();
    return main;
}

// Sends `payload` to `to`:`toPort` as if from `from`:`fromPort`, headers written by hand on a raw
// socket. False where forging is not allowed (without CAP_NET_RAW).
bool Forge(const QHostAddress& from, quint16 fromPort, const QHostAddress& to, quint16 toPort,
           const QByteArray& payload)
{
    const int fd = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW);
    if (fd < 0) return false;
    QByteArray packet(int(sizeof(iphdr) + sizeof(udphdr)), '\0');
    packet += payload;
    iphdr ip{};
    ip.version = 4;
    ip.ihl = sizeof ip / 4;
    ip.ttl = 64;
    ip.protocol = IPPROTO_UDP;
    ip.tot_len = htons(quint16(packet.size()));
    ip.saddr = htonl(from.toIPv4Address());
    ip.daddr = htonl(to.toIPv4Address());
    udphdr udp{};
    udp.source = htons(fromPort);
    udp.dest = htons(toPort);
    udp.len = htons(quint16(sizeof udp + size_t(payload.size()))); // no checksum: allowed over IPv4
    std::memcpy(packet.data(), &ip, sizeof ip);
    std::memcpy(packet.data() + sizeof ip, &udp, sizeof udp);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_addr.s_addr = ip.daddr;
    const bool sent = ::sendto(fd, packet.constData(), size_t(packet.size()), 0,
                               reinterpret_cast<const sockaddr*>(&target), sizeof target) == packet.size();
    ::close(fd);
    return sent;
}

// The real LinkhopServer program at TestAddress():7200, asking no encyclopedia and no router. It
// dies with the test program.
struct ServerProgram
{
    ~ServerProgram()
    {
        process.kill();
        process.waitForFinished(3000);
    }
    bool Start()
    {
        process.setProgram(QCoreApplication::applicationDirPath() + u"/LinkhopServer"_s);
        process.setArguments(
            {u"--bind"_s, TestAddress().toString(), u"--site"_s, u"none"_s, u"--no-port-mapping"_s});
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
        // The port of a server just killed may be held a moment longer.
        const qsizetype started = Log().count(u"LinkhopServer ready on"_s);
        for (QDeadlineTimer deadline(10000); !deadline.hasExpired(); QThread::msleep(100)) {
            process.start();
            process.waitForStarted();
            while (process.state() == QProcess::Running &&
                   Log().count(u"LinkhopServer ready on"_s) == started)
                process.waitForReadyRead(100);
            if (process.state() == QProcess::Running) return true;
        }
        return false;
    }
    void Signal(int number) { ::kill(pid_t(process.processId()), number); }
    QString Log() { return log += QString::fromLocal8Bit(process.readAll()); }

    QProcess process;
    QString log;
};

// The real server's room at TestAddress():7200, which Bo, played by the test, hosts; Ann, the real
// client, joins it through her lobby.
struct Room
{
    explicit Room(const QString& password = {}) : server(Config(password)), bo(kBo)
    {
        if (!WaitUntil([&] { return server.Start(TestAddress()); }))
            qFatal("port 7200 of the test address is held");
        if (!bo.Join(u"Bo"_s, password).constLast().startsWith(u"PLAYERLIST"_s)) qFatal("Bo cannot join");
        S().SaveOption(u"Servers"_s, TestAddress().toString());
    }
    ~Room() { delete main.data(); }
    static server::ServerConfig Config(const QString& password)
    {
        server::ServerConfig config;
        config.Articles = {u"Apple"_s, u"Banana"_s};
        config.Password = password;
        return config;
    }

    Session& S() { return *ann.session; }
    QString Transcript() { return S().OpenChat() ? S().OpenChat()->Transcript() : QString(); }

    void Join() { main = ::Join(S(), u"Ann"_s, TestAddress().toString()); }
    bool Joined()
    {
        return WaitUntil([&] { return S().Game() && S().PlayerCount() == 2; });
    }
    // Ann joins, Bo chooses, both race.
    bool JoinAndRace()
    {
        Join();
        if (!Joined()) return false;
        bo.Send(msg::SetWords(u"Apple", u"Banana"));
        return !bo.NextWithVerb(u"STARTGAME"_s).isEmpty() && WaitUntil([&] { return S().InRound; });
    }
    // Everything Ann's session shows or keeps, but the chat.
    QString State()
    {
        Session& s = S();
        QStringList state{u"round %1: %2 -> %3, chooser %4, on %5, route %6"_s.arg(s.InRound).arg(
            s.Words.at(0), s.Words.at(1), s.ChooserName, s.CurrentArticle, s.RoutePath)};
        for (const PlayerRecord& p : s.Players())
            state << u"%1 %2/%3/%4 %5 %6"_s.arg(p.Name)
                         .arg(p.Wins)
                         .arg(p.Clicks)
                         .arg(p.RoundClicks)
                         .arg(p.InGame)
                         .arg(p.Ping);
        state << u"chooser shown: %1, ended: %2, boxes: "_s.arg(s.OpenWinner() && s.OpenWinner()->isVisible())
                         .arg(s.Ended()) +
                     ann.prompts.MessageTexts().join(u'|');
        if (ScriptedBrowser* browser = ann.LastBrowser()) state << browser->navigations;
        return state.join(u'\n');
    }

    server::GameServer server;
    ScriptedClient bo;
    TestClient ann;
    QPointer<frmMain> main;
};

} // namespace

class tst_strangers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { StopModalWaits(); }

    void strangersInASession_data()
    {
        SourceColumns();
        Sources("a game line", u"CHAT NAME=GAME;TEXT=Ann has been disqualified for cheating."_s);
        Sources("a winner", msg::Winner(u"Ann"));
        Sources("a round's start", msg::StartGame({u"Tarpit"_s, u"Quicksand"_s}));
        Sources("a disqualification", msg::Disqualify());
        Sources("a ping", msg::Ping(u"1"));
        Sources("a disconnection", msg::Disconnected());
        Sources("a new round", msg::NewGame(u"Ann"));
        Sources("a player list", u"PLAYERLIST COUNT=1;P1=Eve;"_s);
        Sources("a player joining", msg::Join(u"Eve"));
        Sources("a score", msg::ScoreIs(u"Bo", 99, 99, 99, false));
        Sources("a page to open", msg::NavigateTo(u"Special:Random"));
    }
    void strangersInASession()
    {
        QFETCH(QString, message);
        QFETCH(QHostAddress, address);
        QFETCH(quint16, port);
        Room r;
        QVERIFY(r.JoinAndRace());
        r.bo.Collect(0);
        const UdpEndpoint& socket = *r.S().Game()->wsGame;
        const quint64 strangers = socket.Strangers();
        const QString state = r.State(), transcript = r.Transcript();

        Stranger stranger(address, port);
        stranger.Send(message, r.S().LocalPort);
        QVERIFY(WaitUntil([&] { return socket.Strangers() == strangers + 1; }));
        // Whatever it could have caused has happened once a line the server relays is shown.
        r.bo.Send(msg::Chat(u"Bo", u"still racing?"));
        QVERIFY(WaitUntil([&] { return r.Transcript().endsWith(u"Bo: still racing?"_s); }));
        QCOMPARE(r.Transcript(), transcript + u"\r\nBo: still racing?"_s);
        QCOMPARE(r.State(), state);
        QVERIFY(!stranger.Answered());
        // Nor did the server hear of it.
        QCOMPARE(r.bo.Collect(0), QStringList{msg::Chat(u"Bo", u"still racing?")});
    }

    void strangersInAHandshake_data()
    {
        SourceColumns();
        Sources("an acceptance", msg::ConnectAccept(true));
        Sources("a refusal", u"CONNECTREJECT ERROR=-100;"_s);
        Sources("a version refusal", u"CONNECTREJECT VER=9.99;"_s);
        Sources("a password prompt", msg::NeedPassword());
        Sources("the host", msg::IsHost(u"Ann"));
        Sources("a welcome", msg::Message(u"Welcome to the trap."));
        Sources("a player list", u"PLAYERLIST COUNT=1;P1=Eve;"_s);
    }
    void strangersInAHandshake()
    {
        QFETCH(QString, message);
        QFETCH(QHostAddress, address);
        QFETCH(quint16, port);
        // The handshake waits while Ann types the password; the stranger speaks meanwhile.
        Room r(u"pw"_s);
        Stranger stranger(address, port);
        QString status;
        r.ann.prompts.inputAnswers = {u"pw"_s};
        r.ann.prompts.onInputBox = [&](const QString&) {
            const auto* socket = Find<UdpEndpoint>(r.main, u"wsConnect"_s);
            stranger.Send(message, r.S().LocalPort);
            if (!WaitUntil([&] { return socket->Strangers() == 1; })) return;
            WaitUntil([] { return false; }, 50);
            status = Find<QLabel>(r.main, u"lblStatus"_s)->text();
        };
        r.Join();
        QVERIFY(r.Joined());
        QCOMPARE(status, u"Connecting to "_s + TestAddress().toString() + u"..."_s);
        QCOMPARE(r.S().Players().size(), 2);
        QCOMPARE(r.S().Player(1).Name, u"Bo"_s);
        QVERIFY(!r.S().OpenWinner()); // Bo hosts
        QCOMPARE(r.Transcript(), QString());
        QVERIFY(r.ann.prompts.messageBoxes.isEmpty());
        QCOMPARE(r.ann.prompts.inputPrompts.size(), 1);
        QVERIFY(!stranger.Answered());
    }

    void strangersInAServerSearch_data()
    {
        SourceColumns();
        Sources("a status", msg::StatusReply(u"game.example", u"99"));
        Sources("a status naming the server", msg::StatusReply(TestAddress().toString(), u"99"));
    }
    void strangersInAServerSearch()
    {
        QFETCH(QString, message);
        QFETCH(QHostAddress, address);
        QFETCH(quint16, port);
        Room r;
        r.S().SaveOption(u"Name"_s, u"Ann"_s);
        Stranger stranger(address, port);
        QStringList listed;
        WhenModal<frmServers>([&](frmServers* d) {
            const auto* active = Find<QListWidget>(d, u"lstActive"_s);
            const auto* socket = Find<UdpEndpoint>(d, u"wsFind"_s);
            // The server asked has answered; the stranger answers too.
            if (WaitUntil([&] { return active->count() > 0; })) {
                stranger.Send(message, r.S().LocalPort);
                WaitUntil([&] { return socket->Strangers() == 1; });
                WaitUntil([] { return false; }, 100);
            }
            for (int i = 0; i < active->count(); ++i)
                listed << active->item(i)->text();
            Find<QPushButton>(d, u"cmdCancel"_s)->click();
        });
        r.main = new frmMain(r.S());
        r.main->show();
        Find<QPushButton>(r.main, u"cmdJoin"_s)->click();
        QCOMPARE(listed, QStringList{TestAddress().toString() + u" (1)"_s});
        QVERIFY(!stranger.Answered());
    }

    // The server stalls in the middle of a round and comes back; then it crashes and is started
    // again. The player is told when it stops answering and when it answers again, and the
    // restarted server's "DISCONNECT" ends the old session, as a server's always has.
    void serverGoneAndBack()
    {
        ServerProgram server;
        QVERIFY2(server.Start(), qPrintable(server.Log()));
        TestClient ann;
        Session& s = *ann.session;
        Join(s, u"Ann"_s, TestAddress().toString());
        QVERIFY(WaitUntil([&] { return s.Game() != nullptr; }));
        s.Game()->SetServerSilenceMs(1000);
        s.Game()->tmrPing->setInterval(200);
        s.SendData(msg::SetWords(u"Apple", u"Banana")); // the only player chooses
        QVERIFY(WaitUntil([&] { return s.InRound; }));
        const auto told = [&](const QString& line) {
            return s.OpenChat() ? s.OpenChat()->Transcript().count(line) : -1;
        };
        const QString gone = u"GAME: The server has stopped answering"_s,
                      back = u"GAME: The server answers again."_s;

        server.Signal(SIGSTOP);
        QVERIFY(WaitUntil([&] { return told(gone) == 1; }));
        QVERIFY(s.InRound && !s.Ended());
        server.Signal(SIGCONT);
        QVERIFY(WaitUntil([&] { return told(back) == 1; }));

        server.process.kill();
        QVERIFY(server.process.waitForFinished(5000));
        QVERIFY(WaitUntil([&] { return told(gone) == 2; }));
        QVERIFY(s.InRound && !s.Ended());
        QVERIFY2(server.Start(), qPrintable(server.Log()));
        QVERIFY(WaitUntil([&] { return s.Ended(); }));
        QCOMPARE(ann.prompts.MessageTexts(), QStringList{u"You have been disconnected from the game."_s});
        QCOMPARE(ann.programEnd.endings, QList<int>{0});
        QVERIFY2(
            server.Log().contains(
                u"disconnect 127.0.0.1:%1: \"PINGME\" from an endpoint without a place"_s.arg(s.LocalPort)),
            qPrintable(server.Log()));
    }

    // Datagrams forged in the name of a seated player's endpoint are the player's to the server,
    // as nothing tells them apart; but none is answered with "DISCONNECT", and the player plays on
    // at once. One forged from the player's address at another port is answered there, alone.
    void forgedPlayer_data()
    {
        QTest::addColumn<QString>("datagram");
        QTest::addColumn<bool>("otherPort");
        for (const QString& datagram :
             {msg::PingMe(u"7201"), msg::GetScore(u"7201", u"Zed"), msg::Chat(u"Zed", u"hi"),
              msg::Disconnect(u"Bo"), msg::Navigate(u"Bo", u"Banana"), msg::GetRandom(1),
              msg::TimeRequest(u"7201"), msg::SetWords(u"Moon", u"Sun"), u"PINGME soon"_s})
            QTest::newRow(qPrintable(datagram)) << datagram << false;
        QTest::newRow("from her address, another port") << msg::PingMe(u"47950") << true;
    }
    void forgedPlayer()
    {
        QFETCH(QString, datagram);
        QFETCH(bool, otherPort);
        Room r;
        QVERIFY(r.JoinAndRace());
        const server::Player* seat = r.server.GameRoom().FindPlayer(u"Ann");
        QVERIFY(seat);
        const server::Endpoint ann = seat->Where;
        QUdpSocket elsewhere; // her machine, another port
        QVERIFY(elsewhere.bind(ann.Address, 47950));
        const quint16 port = otherPort ? 47950 : ann.Port;
        if (!Forge(ann.Address, port, TestAddress(), kServerPort, ToWire(datagram)))
            QSKIP("forging a source address needs CAP_NET_RAW");
        for (int i = 1; i < 20; ++i)
            QVERIFY(Forge(ann.Address, port, TestAddress(), kServerPort, ToWire(datagram)));
        r.bo.Collect(200);
        r.S().SendData(msg::Chat(u"Ann", u"still here"));
        QCOMPARE(r.bo.NextWithVerb(u"CHAT"_s), msg::Chat(u"Ann", u"still here"));
        QCOMPARE(r.server.GameRoom().Players().size(), 2);
        QVERIFY(r.S().InRound && !r.S().Ended() && r.ann.prompts.messageBoxes.isEmpty());
        QStringList there;
        while (elsewhere.hasPendingDatagrams())
            there << FromWire(elsewhere.receiveDatagram().data());
        QCOMPARE(there, otherPort ? QStringList{msg::Disconnected()} : QStringList());
    }

    // A server bound to every address of a machine that has several answers each client from the
    // address that client sent to, which the kernel, choosing by route, would not: from 127.0.0.1.
    // Otherwise the clients, hearing their server alone, would hear nothing.
    void serverAnswersFromTheAddressReached_data()
    {
        QTest::addColumn<QHostAddress>("bound");
        QTest::newRow("every IPv4 address") << QHostAddress(QHostAddress::AnyIPv4);
        QTest::newRow("every address of both families") << QHostAddress(QHostAddress::Any);
    }
    void serverAnswersFromTheAddressReached()
    {
        QFETCH(QHostAddress, bound);
        server::GameServer server(Room::Config({}));
        QVERIFY2(WaitUntil([&] { return server.Start(bound); }), "port 7200 is held");
        TestClient ann, bo;
        Session &a = *ann.session, &b = *bo.session;
        Join(a, u"Ann"_s, TestAddress().toString());
        QVERIFY(WaitUntil([&] { return a.Game() != nullptr; }));
        Join(b, u"Bo"_s, u"127.0.0.4"_s);
        QVERIFY(WaitUntil([&] { return b.Game() && a.PlayerCount() == 2; }));
        // Relayed to each at the address it reached the server at.
        a.SendData(msg::Chat(u"Ann", u"hi Bo"));
        b.SendData(msg::Chat(u"Bo", u"hi Ann"));
        QVERIFY(WaitUntil([&] { return a.OpenChat()->Transcript().endsWith(u"Bo: hi Ann"_s); }));
        QVERIFY(WaitUntil([&] { return b.OpenChat()->Transcript().contains(u"Ann: hi Bo"_s); }));
        QCOMPARE(a.Game()->wsGame->Strangers() + b.Game()->wsGame->Strangers(), quint64(0));
    }
};

QTEST_MAIN(tst_strangers)
#include "tst_strangers.moc"
