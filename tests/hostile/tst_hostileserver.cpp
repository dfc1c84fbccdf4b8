// A client facing a server that means it harm: floods, every verb with broken fields, datagrams of
// the largest size, rounds announced over and over, disconnections repeated. The client must keep
// its event loop turning and its state consistent, and end only when told to disconnect.
#include "clientfakes.h"
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "core/wire.h"
#include "flood.h"
#include "game/dispatcher.h"
#include "game/frmgame.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "scriptedserver.h"

#include <QDeadlineTimer>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QRandomGenerator>
#include <QSet>
#include <QUdpSocket>
#include <QtTest>
#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

// The largest payload of one UDP datagram over IPv4.
constexpr int kMaxPayload = 65507;
// However the server behaves, the event loop is never kept from other events longer than this.
constexpr double kMaxHeldMs = 100;

#define VERIFY_RESPONSIVE(heartbeat)                                                                         \
    QVERIFY2((heartbeat).LongestHeldMs() < kMaxHeldMs,                                                       \
             qPrintable(u"event loop held for %1 ms"_s.arg((heartbeat).LongestHeldMs())))
#define VERIFY_CONSISTENT(broken)                                                                            \
    do {                                                                                                     \
        const QString what = (broken);                                                                       \
        QVERIFY2(what.isEmpty(), qPrintable(what));                                                          \
    } while (false)

QString Repeat(QStringView piece, qsizetype size)
{
    QString text;
    text.reserve(size);
    while (text.size() < size)
        text += piece;
    text.truncate(size);
    return text;
}

// `head` + filler + `tail`, as long as one datagram can be.
QString Huge(const QString& head, const QString& tail = {}, QStringView filler = u"x")
{
    return head + Repeat(filler, kMaxPayload - head.size() - tail.size()) + tail;
}

// Every byte value but ";", so that a field holding it still ends where it should.
QString Binary()
{
    QByteArray bytes;
    for (int b = 0; b < 256; ++b)
        if (b != ';') bytes.append(char(b));
    return FromWire(bytes);
}

QByteArray Garbage(QRandomGenerator& random, int size)
{
    QByteArray bytes(size, '\0');
    for (char& c : bytes)
        c = char(random.bounded(256));
    return bytes;
}

// A local port for a session, away from 7200-7220, which other programs' tests on this machine
// may hold at any moment: the game window's bind would fail, and the datagrams go to them.
QString SessionPort()
{
    UdpEndpoint probe;
    for (int port = 47600; port < 47700; ++port)
        if (probe.Bind(QString::number(port))) return QString::number(port);
    qFatal("no free port for the session");
    return {};
}

QStringList Names(const SessionData& s)
{
    QStringList names;
    for (const PlayerRecord& p : s.Players())
        names.append(p.Name);
    return names;
}

// What must hold for a session whatever its server sent; empty when it does. Refreshes the panels
// as their owners would, and checks that what they show follows the roster.
QString Broken(Session& s, const RecordingProgramEnd& programEnd)
{
    if (s.Ended() || !programEnd.endings.isEmpty()) return u"the program ended"_s;
    QSet<QString> seen;
    for (const PlayerRecord& p : s.Players()) {
        if (seen.contains(p.Name.toLower())) return u"two players named "_s + p.Name.left(40);
        seen.insert(p.Name.toLower());
    }
    if (s.PlayerCount() > SessionData::kMaxPlayers) return u"%1 players"_s.arg(s.PlayerCount());
    frmChat* chat = s.OpenChat();
    frmScores* scores = s.OpenScores();
    if (!chat || !scores || !s.Game()) return u"a session window closed"_s;

    const auto* list = chat->findChild<QListWidget*>(u"lstPlayers"_s);
    QStringList listed;
    for (int i = 0; i < list->count(); ++i)
        listed.append(list->item(i)->text());
    if (listed != Names(s))
        return u"the chat lists %1 names for %2 players"_s.arg(listed.size()).arg(s.PlayerCount());
    const QString caption = chat->findChild<QLabel*>(u"lblPlayers"_s)->text();
    if (caption != u"Players ("_s + QString::number(s.PlayerCount()) + u"):")
        return u"the chat's count reads "_s + caption;

    // Whatever lines came before, one more leaves at most 100.
    chat->AddChat(u"check"_s, u"line"_s);
    if (const qsizetype lines = chat->Transcript().count(u"\r\n"_s) + 1; lines > 100)
        return u"the transcript holds %1 lines"_s.arg(lines);
    // The text box shows the transcript as a fresh box would.
    QPlainTextEdit fresh;
    fresh.setPlainText(chat->Transcript());
    if (chat->findChild<QPlainTextEdit*>(u"txtChat"_s)->toPlainText() != fresh.toPlainText())
        return u"the chat's text box differs from its transcript"_s;

    scores->UpdateList(true, true, true, true);
    QString names, points, pings;
    for (const PlayerRecord& p : s.Players()) {
        names += p.Name + u"\r\n";
        points += u"%1 / %2 / %3\r\n"_s.arg(p.Wins).arg(p.Clicks).arg(p.RoundClicks);
        pings += QString::number(p.Ping) + u"ms\r\n";
    }
    const auto column = [&](const QString& name) { return scores->findChild<QLabel*>(name)->text(); };
    if (column(u"lblPlayers"_s) != names) return u"the scoreboard's names differ from the roster"_s;
    if (column(u"lblScores"_s) != points) return u"the scoreboard's scores differ from the roster"_s;
    if (column(u"lblPings"_s) != pings) return u"the scoreboard's pings differ from the roster"_s;
    return {};
}

// A client after its handshake, talking to a scripted server on the test address.
struct InSession
{
    explicit InSession(const QStringList& names = {u"ann"_s, u"bo"_s, u"cy"_s})
    {
        if (!server.Listen()) qFatal("the scripted server cannot bind port 7200");
        Session& s = S();
        s.ServerAddress = TestAddress().toString();
        s.PlayerName = names.value(0);
        s.LocalPort = SessionPort();
        for (const QString& name : names)
            s.AddPlayer(name);
        s.ResetGameData();
        OpenSessionWindows(s, false, QString());
        game = s.Game();
        browser = client.LastBrowser();
        game->tmrGetScores->stop(); // its requests would only crowd what the server records
        // The first paint of new windows is no flood's doing.
        QTest::qWait(50);
    }

    Session& S() { return *client.session; }
    quint16 Port() { return quint16(S().LocalPort.toUInt()); }

    // Whether the client answers a PING sent behind everything so far: then it has handled it all,
    // or dropped what it could not keep up with. A PING lost that way is sent again.
    bool Answers(int timeoutMs = 10000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!deadline.hasExpired()) {
            const QString mark = u"mark"_s + QString::number(++marks);
            server.SendTo(msg::Ping(mark), Port());
            const QString pong = msg::Pong(S().PlayerName, mark);
            if (WaitUntil([&] { return server.ReceivedTexts().contains(pong); }, 1000)) return true;
        }
        return false;
    }
    void Send(const QStringList& datagrams)
    {
        for (const QString& d : datagrams)
            server.SendTo(d, Port());
    }
    QString Broken() { return ::Broken(S(), client.programEnd); }

    TestClient client;
    ScriptedServer server;
    QPointer<frmGame> game;
    QPointer<ScriptedBrowser> browser;
    int marks = 0;
};

// A flood's datagrams: the session's busiest verbs, about players in the roster and out of it,
// in any letter case, with `pad` characters more in each, and garbage between them.
QList<QByteArray> MixedFlood(int pad)
{
    QList<QByteArray> flood;
    QRandomGenerator random(7);
    const QString tail = Repeat(u"z", pad);
    const QStringList known = {u"ann"_s, u"bo"_s, u"cy"_s};
    for (int i = 0; i < 512; ++i) {
        QString name = u"p"_s + QString::number(random.bounded(40));
        if (random.bounded(2)) name = name.toUpper();
        const QString player = known[i % known.size()];
        QString text;
        switch (i % 8) {
        case 0:
            text = msg::ScoreIs(player, i, 2 * i, i % 7, i % 2) + tail;
            break;
        case 1:
            text = msg::PingIs(player, i) + tail;
            break;
        case 2:
            text = msg::Chat(u"p"_s, QString(u"line "_s + QString::number(i) + tail));
            break;
        case 3:
            text = msg::Join(pad > 0 && i % 3 == 0 ? QString(name + tail) : name);
            break;
        case 4:
            text = msg::Leave(name);
            break;
        case 5:
            text = msg::Message(QString(u"notice "_s + QString::number(i) + tail));
            break;
        case 6:
            text = msg::ScoreIs(name, -i, i, -1, true);
            break;
        default:
            flood.append(Garbage(random, 1 + random.bounded(pad + 64)));
            continue;
        }
        flood.append(ToWire(text).left(kMaxPayload));
    }
    return flood;
}

// The fields each session verb reads, with values a client takes without a fault.
struct VerbFields
{
    QString verb;
    QList<QPair<QString, QString>> fields;
};

const QList<VerbFields> kSessionVerbs = {
    {u"PING"_s, {{u"TIME"_s, u"12"_s}}},
    {u"SCOREIS"_s,
     {{u"NAME"_s, u"bo"_s},
      {u"WINS"_s, u"1"_s},
      {u"CLICK"_s, u"2"_s},
      {u"RCLICK"_s, u"3"_s},
      {u"INGAME"_s, u"yes"_s}}},
    {u"PINGIS"_s, {{u"NAME"_s, u"cy"_s}, {u"PING"_s, u"40"_s}}},
    {u"JOIN"_s, {{u"NAME"_s, u"di"_s}}},
    {u"LEAVE"_s, {{u"NAME"_s, u"di"_s}}},
    {u"DROP"_s, {{u"NAME"_s, u"cy"_s}}},
    {u"CHAT"_s, {{u"NAME"_s, u"bo"_s}, {u"TEXT"_s, u"hi"_s}}},
    {u"TIME"_s, {{u"TIME"_s, u"10:00:00"_s}, {u"DATE"_s, u"today"_s}}},
    {u"WINNER"_s, {{u"NAME"_s, u"ann"_s}}},
    {u"PATHIS"_s, {{u"PATH"_s, u"A\rB"_s}, {u"NAME"_s, u"bo"_s}}},
    {u"NEWGAME"_s, {{u"NAME"_s, u"ann"_s}}},
    {u"DISQUALIFY"_s, {}},
    {u"NAVIGATE"_s, {{u"URL"_s, u"Apple"_s}}},
    {u"SETRANDOM"_s, {{u"URL"_s, u"Pear"_s}, {u"SRC"_s, u"1"_s}}},
    {u"STARTGAME"_s, {{u"COUNT"_s, u"1"_s}, {u"WORD0"_s, u"Apple"_s}, {u"WORD1"_s, u"Banana"_s}}},
};

// Every way one field can go wrong, one field at a time, and whole datagrams gone wrong.
QStringList BrokenForms(const VerbFields& v)
{
    const auto build = [&](qsizetype broken, const QString& value, bool drop, bool unterminated) {
        QString text = v.verb + u' ';
        for (qsizetype i = 0; i < v.fields.size(); ++i) {
            if (i == broken && drop) continue;
            text += v.fields[i].first + u'=' + (i == broken ? value : v.fields[i].second);
            if (!(i == broken && unterminated)) text += u';';
        }
        return text;
    };
    const QStringList values = {
        QString(),       u"abc"_s,        u" 7"_s,          u"+"_s,           u"-0"_s,
        u"2147483647"_s, u"2147483648"_s, u"-2147483648"_s, u"-2147483649"_s, u"99999999999999999999999"_s,
        u"-1"_s,         u"1e3"_s,        u"0x10"_s,        u"١٢"_s,          u"ann"_s,
        u"ANN"_s,        u"\r\n"_s,       Binary(),         u"NAME=x"_s,      u"\u20ac\u0178"_s};
    QStringList forms;
    for (qsizetype i = 0; i < v.fields.size(); ++i) {
        for (const QString& value : values)
            forms.append(build(i, value, false, false));
        forms.append(build(i, {}, true, false));
        forms.append(build(i, u"5"_s, false, true));
        forms.append(Huge(build(-1, {}, false, false) + v.fields[i].first + u'=', u";"_s, u"9"));
        forms.append(Huge(build(-1, {}, false, false) + v.fields[i].first + u'=', u";"_s, u"\r\n\0;="));
    }
    forms.append(v.verb);
    forms.append(v.verb + u' ');
    forms.append(v.verb + QChar(0) + build(-1, {}, false, false));
    forms.append(v.verb.toLower() + u' ' + build(-1, {}, false, false).mid(v.verb.size() + 1));
    forms.append(Huge(build(-1, {}, false, false)));
    forms.append(build(-1, {}, false, false) + build(-1, {}, false, false)); // every field twice
    return forms;
}

// What a server floods a client's handshake with: everything but the replies that end it.
QList<QByteArray> HandshakeFlood()
{
    QRandomGenerator random(11);
    const QStringList texts = {Huge(u"MESSAGE "_s),
                               u"MESSAGE hello"_s,
                               u"MESSAGE"_s,
                               msg::IsHost(u"ann"),
                               msg::IsHost(u"ANN"),
                               u"ISHOST NAME=ann"_s,
                               msg::ConnectAccept(true),
                               msg::ConnectAccept(false),
                               u"CONNECTACCEPT PLAYING=maybe;"_s,
                               u"CONNECTACCEPT"_s,
                               u"PLAYERLIST COUNT=x;P1=ann;"_s,
                               u"PLAYERLIST COUNT=;"_s,
                               u"PLAYERLIST"_s,
                               u"playerlist COUNT=1;P1=ann;"_s,
                               Huge(u"PLAYERLIST COUNT=99999999999;P1="_s, u";"_s),
                               u"CONNECTREJECTED"_s,
                               u"NEEDPWDS"_s};
    QList<QByteArray> flood;
    for (const QString& text : texts)
        flood.append(ToWire(text));
    for (int i = 0; i < 16; ++i)
        flood.append(Garbage(random, 1 + random.bounded(kMaxPayload)));
    return flood;
}

// A list of far more players than a roster takes, in every letter case, some named too long.
QString HugePlayerList()
{
    QString list = u"PLAYERLIST COUNT=2147483647;P1=ann;P2=ANN;"_s;
    for (int i = 3; list.size() < kMaxPayload - 200; ++i) {
        const QString name = i % 10 == 0 ? Repeat(u"long", SessionData::kMaxNameLength + 1)
                                         : u"p"_s + QString::number(i % 4000);
        list += u"P"_s + QString::number(i) + u'=' + name + u';';
    }
    return list;
}

// The start-up window of a client, joining the scripted server through the server browser.
struct Lobby
{
    Lobby()
    {
        if (!server.Listen()) qFatal("the scripted server cannot bind port 7200");
        window = new frmMain(*client.session);
        window->show();
        Find<QLineEdit>(window, u"txtName"_s)->setText(u"ann"_s);
        QTest::qWait(50);
    }
    ~Lobby() { delete window.data(); }
    void Join()
    {
        WhenModal<frmServers>([](frmServers* d) {
            Find<SimpleCombo>(d, u"cmbServers"_s)->setText(TestAddress().toString());
            Find<QPushButton>(d, u"cmdJoin"_s)->click();
        });
        Find<QPushButton>(window, u"cmdJoin"_s)->click();
    }
    Session& S() { return *client.session; }
    quint16 Port() { return S().LocalPort.toUShort(); }

    TestClient client;
    ScriptedServer server;
    QPointer<frmMain> window;
};

} // namespace

class tst_hostileserver : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { StopModalWaits(); }

    void floodKeepsTheSessionResponsive_data()
    {
        QTest::addColumn<int>("pad");
        QTest::addColumn<int>("perSecond");
        QTest::newRow("small datagrams") << 0 << 5000;
        QTest::newRow("4 KiB datagrams") << 4096 << 2000;
        QTest::newRow("64 KiB datagrams") << kMaxPayload << 500;
    }
    void floodKeepsTheSessionResponsive()
    {
        QFETCH(int, pad);
        QFETCH(int, perSecond);
        InSession f;
        const QList<QByteArray> datagrams = MixedFlood(pad);
        Heartbeat heartbeat;
        Flooder flood(datagrams, TestAddress(), f.Port(), perSecond);
        QTest::qWait(2000);
        flood.Stop();
        heartbeat.Stop();
        qInfo("%llu datagrams in 2 s; event loop held at most %.1f ms (%.1f ms by the clock); %d players",
              flood.Sent(), heartbeat.LongestHeldMs(), heartbeat.LongestGapMs(), f.S().PlayerCount());
        VERIFY_RESPONSIVE(heartbeat);
        QVERIFY(f.Answers());
        VERIFY_CONSISTENT(f.Broken());
    }

    void everyVerbWithBrokenFields_data()
    {
        QTest::addColumn<QStringList>("datagrams");
        for (const VerbFields& v : kSessionVerbs)
            QTest::newRow(qPrintable(v.verb)) << BrokenForms(v);
    }
    void everyVerbWithBrokenFields()
    {
        QFETCH(QStringList, datagrams);
        InSession f;
        f.S().InRound = true;
        f.S().RoutePath = u"Apple\r"_s;
        f.S().Winner().show(); // for the words that SETRANDOM puts into it
        Heartbeat heartbeat;
        // A few at a time, so that none is lost to a full socket buffer.
        for (qsizetype i = 0; i < datagrams.size(); i += 16) {
            f.Send(datagrams.mid(i, 16));
            QVERIFY2(f.Answers(), qPrintable(u"no answer after "_s + datagrams[i].left(60)));
        }
        VERIFY_RESPONSIVE(heartbeat);
        VERIFY_CONSISTENT(f.Broken());
        QVERIFY(f.server.ReceivedWithVerb(u"DISCONNECT"_s).isEmpty());
    }

    void longChatLinesStayCheap()
    {
        InSession f;
        Heartbeat heartbeat;
        for (int i = 0; i < 40; ++i) {
            const QString n = QString::number(i);
            f.Send({Huge(u"CHAT NAME=bo;TEXT="_s + n), Huge(u"MESSAGE "_s + n),
                    Huge(u"PATHIS NAME=bo;PATH="_s, u";"_s, u"\r"), Huge(u"CHAT NAME="_s + n, u";TEXT=x"_s)});
            QVERIFY(f.Answers());
        }
        VERIFY_RESPONSIVE(heartbeat);
        const QStringList lines = f.S().OpenChat()->Transcript().split(u"\r\n"_s);
        QVERIFY(std::all_of(lines.cbegin(), lines.cend(),
                            [](const QString& l) { return l.size() <= frmChat::kMaxLineLength; }));
        QVERIFY(lines.contains(u"GAME: The winning route was: "_s));
        VERIFY_CONSISTENT(f.Broken());
    }

    void rosterStaysBounded()
    {
        InSession f;
        Heartbeat heartbeat;
        for (int i = 0; i < SessionData::kMaxPlayers + 50; i += 50) {
            QStringList joins;
            for (int k = i; k < i + 50; ++k)
                joins.append(msg::Join(QString(u"player"_s + QString::number(k))));
            f.Send(joins);
            QVERIFY(f.Answers());
        }
        for (int i = 0; i < 20; ++i)
            f.Send({msg::Join(Repeat(u"n", SessionData::kMaxNameLength + 1)), Huge(u"JOIN NAME="_s, u";"_s),
                    Huge(u"JOIN NAME="_s + QString::number(i), u";"_s)});
        QVERIFY(f.Answers());
        VERIFY_RESPONSIVE(heartbeat);
        QCOMPARE(f.S().PlayerCount(), SessionData::kMaxPlayers);
        QCOMPARE(f.S().Player(SessionData::kMaxPlayers).Name, u"player996"_s);
        // A place freed is a place taken again.
        f.Send({msg::Leave(u"player5"_s), msg::Join(Repeat(u"n", SessionData::kMaxNameLength))});
        QVERIFY(f.Answers());
        QCOMPARE(f.S().Player(SessionData::kMaxPlayers).Name, Repeat(u"n", SessionData::kMaxNameLength));
        VERIFY_CONSISTENT(f.Broken());
    }

    void roundsAnnouncedWhileTheFirstPageLoads()
    {
        // The dispatcher's waits run this test's timers and the server's replies nested inside
        // them: everything is sent and checked from there, and the test waits only for the end.
        InSession f;
        f.browser->loadDelayMs = 400;
        int sent = 0, answeredWhileLoading = 0;
        f.server.OnVerb(u"PONG"_s, [&](const ScriptedServer::Datagram&) {
            if (f.browser && f.browser->Busy()) ++answeredWhileLoading;
            return QStringList();
        });
        // Far more rounds than the stack would hold waits for, each while the last one's page loads.
        QTimer bursts;
        bursts.setInterval(20);
        connect(&bursts, &QTimer::timeout, &f.server, [&] {
            QStringList starts;
            for (int k = 0; k < 200; ++k, ++sent)
                starts.append(
                    msg::StartGame({u"A"_s + QString::number(sent), u"B"_s + QString::number(sent)}));
            f.Send(starts + QStringList{msg::Ping(u"t"_s)});
            if (sent >= 6000) bursts.stop();
        });
        Heartbeat heartbeat;
        bursts.start();
        QVERIFY(WaitUntil([&] { return sent >= 6000 && !f.browser->Busy(); }, 30000));
        QVERIFY(f.Answers());
        VERIFY_RESPONSIVE(heartbeat);
        QVERIFY(answeredWhileLoading > 0);
        QVERIFY(f.S().InRound);
        QCOMPARE(f.S().CurrentArticle, u"A5999"_s);
        QCOMPARE(f.S().OpenChat()->Transcript().count(u"GAME: The game has begun!"_s), 100);
        VERIFY_CONSISTENT(f.Broken());
    }

    void disconnectionsRepeated_data()
    {
        QTest::addColumn<bool>("whileLoading");
        QTest::newRow("between rounds") << false;
        QTest::newRow("while the first page loads") << true;
    }
    void disconnectionsRepeated()
    {
        QFETCH(bool, whileLoading);
        InSession f;
        const QStringList disconnects(20, msg::Disconnected());
        int depth = 0, deepest = 0;
        qsizetype navigationsBefore = -1, navigationsAfter = -1;
        f.client.prompts.onMessageBox = [&](const QString&) {
            // The message box runs an event loop of its own until the player closes it; whatever
            // the server sends meanwhile belongs to a session that is over.
            deepest = std::max(deepest, ++depth);
            navigationsBefore = f.browser->navigations.size();
            f.Send(disconnects + QStringList{msg::Ping(u"late"_s), msg::StartGame({u"X"_s, u"Y"_s}),
                                             msg::NavigateTo(u"Z"_s)});
            WaitUntil([] { return false; }, 300);
            navigationsAfter = f.browser->navigations.size();
            --depth;
        };
        bool loading = false;
        if (whileLoading) {
            // They come while the round's first page loads, nested in the dispatcher's wait.
            f.browser->loadDelayMs = 10000;
            f.Send({msg::StartGame({u"Apple"_s, u"Banana"_s})});
            QTimer::singleShot(100, &f.server, [&] {
                loading = f.browser->Busy();
                f.Send(disconnects);
            });
        } else {
            f.Send(disconnects);
        }
        QVERIFY(WaitUntil([&] { return f.S().Ended(); }));
        QTest::qWait(300);
        QCOMPARE(loading, whileLoading);
        QCOMPARE(f.client.prompts.MessageTexts(),
                 QStringList{u"You have been disconnected from the game."_s});
        QCOMPARE(deepest, 1);
        QCOMPARE(navigationsAfter, navigationsBefore);
        QCOMPARE(f.client.programEnd.endings, QList<int>{0});
        QVERIFY(!f.S().OpenChat() && !f.S().OpenScores() && !f.S().OpenWinner());
        QVERIFY(f.server.ReceivedWithVerb(u"DISCONNECT"_s).isEmpty());
        QVERIFY(!f.server.ReceivedTexts().contains(msg::Pong(u"ann"_s, u"late"_s)));
    }

    void aFloodDelaysWhatFollowsItBoundedly()
    {
        // Handlers far slower than the flood: what arrives after it is not queued behind all of it.
        UdpEndpoint endpoint;
        const QString port = SessionPort();
        QVERIFY(endpoint.Bind(port));
        int handled = 0, handledBeforeLate = -1;
        connect(&endpoint, &UdpEndpoint::DataArrival, &endpoint, [&](const QString& text) {
            if (text == u"late"_s) {
                handledBeforeLate = handled;
                return;
            }
            ++handled;
            QThread::msleep(20);
        });
        QUdpSocket sender;
        for (int i = 0; i < 300; ++i)
            sender.writeDatagram("slow", TestAddress(), port.toUShort());
        QTest::qWait(UdpEndpoint::kInboxMaxAgeMs + 500);
        sender.writeDatagram("late", TestAddress(), port.toUShort());
        QVERIFY(WaitUntil([&] { return handledBeforeLate >= 0; }, 10000));
        QVERIFY2(handledBeforeLate > 0 && handledBeforeLate < 300,
                 qPrintable(QString::number(handledBeforeLate)));
    }

    void handshakeUnderFlood()
    {
        Lobby l;
        const QList<QByteArray> datagrams = HandshakeFlood();
        std::unique_ptr<Flooder> flood;
        l.server.OnVerb(u"CONNECT"_s, [&](const ScriptedServer::Datagram& d) {
            flood = std::make_unique<Flooder>(datagrams, TestAddress(), d.port, 3000);
            return QStringList{msg::ConnectAccept(false)};
        });
        l.Join();
        QVERIFY(WaitUntil([&] { return flood != nullptr; }));
        Heartbeat heartbeat;
        QTest::qWait(1500);
        flood->Stop();
        heartbeat.Stop();
        VERIFY_RESPONSIVE(heartbeat);
        QVERIFY(l.window && l.window->isVisible()); // nothing in the flood ended the handshake
        QVERIFY(!l.S().Game());

        l.server.SendTo(HugePlayerList(), l.Port());
        QVERIFY(WaitUntil([&] { return l.S().Game() != nullptr; }));
        QCOMPARE(l.S().PlayerCount(), SessionData::kMaxPlayers);
        QCOMPARE(l.S().Player(1).Name, u"ann"_s);
        VERIFY_CONSISTENT(Broken(l.S(), l.client.programEnd));
    }

    void passwordBoxesDoNotStack()
    {
        Lobby l;
        l.server.OnVerb(u"CONNECT"_s, [](const ScriptedServer::Datagram& d) {
            return QStringList{d.text.contains(u"PWD=pw;"_s) ? msg::ConnectAccept(false)
                                                             : msg::NeedPassword()};
        });
        l.server.OnVerb(u"GETPLAYERLIST"_s, QStringList{msg::PlayerList({u"ann"_s, u"bo"_s})});
        int depth = 0, deepest = 0;
        l.client.prompts.inputAnswers = {u"pw"_s};
        l.client.prompts.onInputBox = [&](const QString&) {
            // The box runs an event loop of its own while the server asks again and again.
            deepest = std::max(deepest, ++depth);
            if (depth == 1)
                for (int i = 0; i < 20; ++i)
                    l.server.SendTo(msg::NeedPassword(), l.Port());
            WaitUntil([] { return false; }, 300);
            --depth;
        };
        l.Join();
        QVERIFY(WaitUntil([&] { return l.S().Game() != nullptr; }));
        QCOMPARE(deepest, 1);
        QCOMPARE(l.client.prompts.inputPrompts.size(), 1);
        QCOMPARE(Names(l.S()), (QStringList{u"ann"_s, u"bo"_s}));
    }

    void serverBrowserUnderFlood_data()
    {
        QTest::addColumn<QList<QByteArray>>("datagrams");
        QList<QByteArray> replies, huge, garbage;
        QRandomGenerator random(5);
        for (int i = 0; i < 500; ++i) {
            replies.append(
                ToWire(msg::StatusReply(QString(u"10.0.0."_s + QString::number(i)), QString::number(i))));
            huge.append(ToWire(Huge(u"STATUS SERVER="_s + QString::number(i), u";#=1;"_s)));
            garbage.append(i % 2 ? Garbage(random, 1 + random.bounded(kMaxPayload))
                                 : ToWire(u"STATUS #=;SERVER=x;"_s));
        }
        QTest::newRow("replies") << replies;
        QTest::newRow("64 KiB replies") << huge;
        QTest::newRow("garbage") << garbage;
    }
    void serverBrowserUnderFlood()
    {
        QFETCH(QList<QByteArray>, datagrams);
        TestClient client;
        const std::unique_ptr<frmServers> owner(new frmServers(*client.session));
        const QPointer<frmServers> dialog = owner.get();
        dialog->show();
        QTest::qWait(50);
        const auto* active = Find<QListWidget>(dialog, u"lstActive"_s);
        {
            Heartbeat heartbeat;
            Flooder flood(datagrams, TestAddress(), client.session->LocalPort.toUShort(), 3000);
            QTest::qWait(1500);
            flood.Stop();
            VERIFY_RESPONSIVE(heartbeat);
        }
        qInfo("%d entries", active->count());
        QVERIFY(active->count() <= frmServers::kMaxEntries);
        for (int i = 0; i < active->count(); ++i)
            QVERIFY(active->item(i)->text().endsWith(u')'));
    }
};

QTEST_MAIN(tst_hostileserver)
#include "tst_hostileserver.moc"
