// The server facing a client that means it harm: floods of spoofed names, broken fields, datagrams
// of the largest size and storms of connections, while three players play a round. The players'
// replies must keep coming in time, the round must complete and the room stay consistent.
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "flood.h"
#include "scriptedclient.h"
#include "scriptedserver.h"
#include "server/gameserver.h"

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QtTest>
#include <algorithm>
#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;
using namespace linkhop::test;

namespace {

enum Port : quint16
{
    kAnn = 47401,
    kBo,
    kCy,
    kDi,
    kEcho // where the flood asks the server to answer it
};

constexpr int kMaxPayload = 65507;
// A reply the players wait for comes within this, flood or not.
constexpr qint64 kReplyWithinMs = 500;
// Datagrams per second, from all flooding machines together.
constexpr int kFloodPerSecond = 20000;

// "Other machines": 127.200.<k>.<last octet of the test address>.
QHostAddress Machine(int k)
{
    return QHostAddress(OtherAddress().toIPv4Address() + (quint32(k) << 8));
}

QString Repeat(QStringView piece, qsizetype size)
{
    QString text;
    text.reserve(size);
    while (text.size() < size)
        text += piece;
    text.truncate(size);
    return text;
}

QString Connect(const QString& name, int port)
{
    return msg::Connect(ClientVersion, name, QString::number(port));
}

// What one flood sends, by kind.
QList<QByteArray> Flood(const QString& kind)
{
    QStringList texts;
    QRandomGenerator random(3);
    const QString echo = QString::number(kEcho);
    if (kind == u"spoofed names") {
        for (const QString& name : {u"Ann"_s, u"Bo"_s, u"Cy"_s, u"ann"_s}) {
            texts << msg::Navigate(name, u"Banana") << msg::Navigate(name, u"talk") << msg::Disconnect(name)
                  << msg::SetWords(u"Moon", u"Sun") << msg::Chat(name, u"I give up")
                  << msg::DisqualifiedNotice(name, u"talk") << msg::SendMyPath(name, u"Fake")
                  << msg::Pong(name, u"0") << msg::GetWords(name)
                  << msg::GetScore(QString::number(kAnn), name) << msg::GetRandom(1)
                  << msg::PingMe(QString::number(kAnn)) << msg::GetPlayerList(QString::number(kAnn))
                  << Connect(name, kAnn) << msg::Status(u"x", echo);
        }
    } else if (kind == u"broken fields") {
        const QStringList values = {QString(),
                                    u"x"_s,
                                    u"-1"_s,
                                    u"0"_s,
                                    u"65536"_s,
                                    u"2147483648"_s,
                                    u"99999999999999999999"_s,
                                    u"\r\n"_s,
                                    u"Ann"_s,
                                    u"GAME"_s,
                                    u"PORT=1"_s,
                                    Repeat(u"n", 70)};
        for (const QString& v : values) {
            texts << u"CONNECT VER=1.04 (beta);NAME=%1;PORT=%1;PWD=%1;"_s.arg(v)
                  << u"CONNECT VER=%1;NAME=x;PORT=%2;"_s.arg(v, echo) << u"GETPLAYERLIST PORT=%1;"_s.arg(v)
                  << u"STATUS SERVER=%1;PORT=%1;"_s.arg(v) << u"PINGME "_s + v
                  << u"PONG NAME=Ann;TIME=%1;"_s.arg(v) << u"SETWORDS COUNT=%1;WORD0=%1;WORD1=%1;"_s.arg(v)
                  << u"GETSCORE PORT=%1;NAME=%1;"_s.arg(v) << u"NAVIGATE NAME=%1;URL=%1;"_s.arg(v)
                  << u"GETRANDOM SRC=%1;"_s.arg(v) << u"STATUS SERVER=x;PORT=%1;"_s.arg(echo) + v;
        }
        texts << u""_s << u" "_s << u"CONNECT"_s << u"connect VER=1.04 (beta);NAME=z;PORT=1;PWD=;"_s
              << u"STATUS"_s;
    } else if (kind == u"64 KiB datagrams") {
        for (const QString& head :
             {u"CONNECT VER=1.04 (beta);NAME="_s, u"STATUS SERVER="_s, u"CHAT NAME=Ann;TEXT="_s,
              u"NAVIGATE NAME=Ann;URL="_s, u"GETPLAYERLIST PORT="_s, u"PINGME "_s, u""_s})
            texts << head + Repeat(u"9;", kMaxPayload - head.size());
    } else if (kind.startsWith(u"connect storm")) {
        // Connections that complete, or that only ever hold a place.
        const bool complete = kind == u"connect storm";
        const bool toPrivate = kind.endsWith(u"private");
        for (int i = 0; i < 2000; ++i) {
            const QString name = u"storm"_s + QString::number(i);
            texts << Connect(name, 20000 + i);
            if (toPrivate) texts << msg::ConnectWithPassword(ClientVersion, name, u"guess");
            if (complete) texts << msg::GetPlayerList(QString::number(20000 + i));
        }
    }
    QList<QByteArray> datagrams;
    for (const QString& text : std::as_const(texts))
        datagrams.append(ToWire(text));
    if (kind == u"64 KiB datagrams")
        for (int i = 0; i < 8; ++i) {
            QByteArray garbage(kMaxPayload, '\0');
            for (char& c : garbage)
                c = char(random.bounded(256));
            datagrams.append(garbage);
        }
    return datagrams;
}

ServerConfig Config()
{
    ServerConfig config;
    config.Articles = {u"Apple"_s, u"Banana"_s, u"Cherry"_s};
    config.Seed = 7;
    return config;
}

} // namespace

class tst_hostileclients : public QObject
{
    Q_OBJECT

    std::unique_ptr<GameServer> m_server;
    qint64 m_slowestReplyMs = 0;
    quint64 m_requests = 0; // datagrams the players sent while the flood ran

    // Sends `request` and waits for the next datagram with `verb`, keeping the slowest wait.
    QString Ask(ScriptedClient& client, const QString& request, const QString& verb)
    {
        QElapsedTimer timer;
        timer.start();
        client.Send(request);
        ++m_requests;
        const QString reply = client.NextWithVerb(verb, 5000);
        m_slowestReplyMs = std::max(m_slowestReplyMs, reply.isEmpty() ? qint64(5000) : timer.elapsed());
        return reply;
    }

private Q_SLOTS:
    void cleanup() { m_server.reset(); }

    void aRoundUnderFlood_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("machines");
        QTest::newRow("spoofed names") << u"spoofed names"_s << 1;
        QTest::newRow("broken fields") << u"broken fields"_s << 1;
        QTest::newRow("64 KiB datagrams") << u"64 KiB datagrams"_s << 1;
        QTest::newRow("connect storm from four machines") << u"connect storm"_s << 4;
        QTest::newRow("connections left pending") << u"connect storm, pending"_s << 1;
        QTest::newRow("password prompts, private server") << u"connect storm, private"_s << 1;
    }
    void aRoundUnderFlood()
    {
        QFETCH(QString, kind);
        QFETCH(int, machines);
        ServerConfig config = Config();
        if (kind.endsWith(u"private")) config.Password = u"pw"_s;
        m_server = std::make_unique<GameServer>(config);
        QVERIFY(WaitUntil([&] { return m_server->Start(TestAddress()); }));
        const Room& room = m_server->GameRoom();
        ScriptedClient ann(kAnn), bo(kBo), cy(kCy), echo(kEcho, Machine(0));
        QVERIFY(ann.Bound() && bo.Bound() && cy.Bound() && echo.Bound());
        QVERIFY(ann.Join(u"Ann"_s, config.Password).last().startsWith(u"PLAYERLIST"_s));
        QVERIFY(bo.Join(u"Bo"_s, config.Password).last().startsWith(u"PLAYERLIST"_s));
        QVERIFY(cy.Join(u"Cy"_s, config.Password).last().startsWith(u"PLAYERLIST"_s));
        ann.Skip();
        bo.Skip();

        const QList<QByteArray> datagrams = Flood(kind);
        QElapsedTimer flooding;
        flooding.start();
        std::vector<std::unique_ptr<Flooder>> floods;
        for (int k = 0; k < machines; ++k)
            floods.push_back(std::make_unique<Flooder>(datagrams, TestAddress(), kServerPort,
                                                       kFloodPerSecond / machines, Machine(k)));
        const quint64 droppedBefore = room.Dropped();
        const quint64 inBefore = m_server->DatagramsIn();
        m_requests = 0;
        m_slowestReplyMs = 0;

        // Every player's requests are answered in time, while the flood goes on.
        while (flooding.elapsed() < 1500) {
            for (ScriptedClient* c : {&ann, &bo, &cy}) {
                QVERIFY(!Ask(*c, msg::PingMe(c->PortText()), u"PING"_s).isEmpty());
                QCOMPARE(Ask(*c, msg::GetScore(c->PortText(), u"Bo"), u"SCOREIS"_s),
                         msg::ScoreIs(u"Bo", 0, 0, 0, true));
            }
            QTest::qWait(50);
        }

        // A round from its words to its winner's route.
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

        // Someone new still gets in.
        ScriptedClient di(kDi, Machine(machines));
        const QStringList joined = di.Join(u"Di"_s, config.Password);
        m_requests += config.Password.isEmpty() ? 2 : 3;
        QVERIFY2(joined.last().startsWith(u"PLAYERLIST"_s) && joined.last().contains(u"=Di;"_s),
                 qPrintable(joined.join(u" | ")));
        quint64 sent = 0;
        for (auto& flood : floods) {
            flood->Stop();
            sent += flood->Sent();
        }
        const double seconds = double(flooding.elapsed()) / 1000;

        const quint64 in = m_server->DatagramsIn() - inBefore, dropped = room.Dropped() - droppedBefore;
        qInfo(
            "%llu datagrams in %.1f s from %d machine(s): %llu reached the room, %llu dropped there; slowest "
            "reply %lld ms; %lld players",
            sent, seconds, machines, in, dropped, m_slowestReplyMs, qint64(room.Players().size()));
        QVERIFY2(m_slowestReplyMs < kReplyWithinMs, qPrintable(QString::number(m_slowestReplyMs)));
        const QString broken = room.CheckInvariants();
        QVERIFY2(broken.isEmpty(), qPrintable(broken));
        QCOMPARE(room.Chooser(), u"Bo"_s);
        QCOMPARE(room.FindPlayer(u"Bo")->Wins, 1);
        QVERIFY(!room.RoundRunning());
        QVERIFY(room.Players().size() <= 4 + machines * config.MaxPerAddress);
        for (int k = 0; k < machines; ++k) {
            const auto held = std::count_if(room.Players().cbegin(), room.Players().cend(),
                                            [&](const Player& p) { return p.Where.Address == Machine(k); });
            QVERIFY2(held <= config.MaxPerAddress, qPrintable(QString::number(held)));
        }
        // Each machine had its share of the room's attention and no more.
        const double limit = double(machines) * (config.FloodBurst + config.FloodRate * seconds);
        QVERIFY2(double(sent) > 2 * limit, "the flood was no flood");
        QVERIFY2(double(in - dropped - m_requests) <= limit,
                 qPrintable(u"%1 acted on"_s.arg(in - dropped - m_requests)));
        QVERIFY(double(echo.Collect(100).size()) <= limit);
    }
};

QTEST_GUILESS_MAIN(tst_hostileclients)
#include "tst_hostileclients.moc"
