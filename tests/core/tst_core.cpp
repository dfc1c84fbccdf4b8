// The core library: reading and building datagrams, the roster, the option files, and the UDP
// endpoint on loopback.
#include "core/fault.h"
#include "core/localport.h"
#include "core/messages.h"
#include "core/options.h"
#include "core/sessiondata.h"
#include "core/udpendpoint.h"
#include "core/version.h"
#include "core/wire.h"
#include "scriptedserver.h"

#include <QNetworkDatagram>
#include <QThread>
#include <QUdpSocket>
#include <QtTest>
#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using linkhop::test::TestAddress;
using linkhop::test::WaitUntil;

const QString kFault = u"<Fault>"_s; // what a row expects when the call throws

class tst_core : public QObject
{
    Q_OBJECT

    QUdpSocket m_peer;
    void Send(quint16 port, const QByteArray& data) { m_peer.writeDatagram(data, TestAddress(), port); }

private Q_SLOTS:
    void reading_data()
    {
        // What is read: "verb", "number", "body", "chat", "servers:<joined>" or a field's key.
        QTest::addColumn<QString>("what");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char* what, const char* message, const char* expected) {
            QTest::addRow("%s in \"%s\"", what, message)
                << QString::fromUtf8(what) << QString::fromUtf8(message) << QString::fromUtf8(expected);
        };
        row("verb", " PING", "");
        row("CLICK", "SCOREIS NAME=ann;WINS=1;CLICK=7;RCLICK=2;INGAME=yes;", "7");
        row("CLICK", "SCOREIS NAME=ann;RCLICK=2;CLICK=7;", "2"); // the first "CLICK=" wins
        row("P2", "PLAYERLIST COUNT=2;P1=ann;P2=bo", "");        // unterminated
        row("NAME", "ISHOST name=ann;", "");
        row("NAME", "X NAME NAME=bo;", "bo");
        row("NAME", "X NAME=", "");
        row("NAME", "PATHIS NAME=bo;PATH=NAME=x\rB;", "bo");
        row("number", "2147483647", "2147483647");
        row("number", "-2147483648", "-2147483648");
        row("number", "2147483648", "<Fault>");
        row("number", "-2147483649", "<Fault>");
        row("number", "12a", "<Fault>");
        row("body", "MESSAGE Welcome, all;=!", "Welcome, all;=!");
        row("body", "MESSAGE", "<Fault>");
        row("chat", "CHAT NAME=ann;TEXT=a;b=c TEXT=d", "a;b=c TEXT=d");
        row("servers:c", ",a,,b,", "c,a,b"); // "Servers" after joining c
        row("servers:a.example", "", "a.example");
        row("servers:host.example", "a,Host.Example,b", "host.example,a,b");
        row("servers: a ", " a ,b", " a ,b");
    }
    void reading()
    {
        QFETCH(QString, what);
        QFETCH(QString, message);
        QFETCH(QString, expected);
        QString got;
        try {
            got = what == u"verb"                ? Verb(message)
                  : what == u"number"            ? QString::number(Number(message))
                  : what == u"body"              ? MessageBody(message)
                  : what == u"chat"              ? ChatText(message)
                  : what.startsWith(u"servers:") ? JoinServerList(what.mid(8), SplitServerList(message))
                                                 : GetParam(message, what);
        } catch (const Fault&) {
            got = kFault;
        }
        QCOMPARE(got, expected);
    }

    void outgoing_data()
    {
        QTest::addColumn<QString>("built");
        QTest::addColumn<QByteArray>("wire");
        const QString v = ClientVersion.toString();
        const auto row = [](const QString& built, const char* wire) {
            QTest::newRow(wire) << built << QByteArray(wire);
        };
        row(msg::Connect(v, u"ann", u"7201"), "CONNECT VER=1.04 (beta);NAME=ann;PORT=7201;PWD=;");
        row(msg::ConnectWithPassword(v, u"ann", u"s3cret"), "CONNECT VER=1.04 (beta);NAME=ann;PWD=s3cret;");
        row(msg::GetPlayerList(u"7201"), "GETPLAYERLIST PORT=7201;");
        row(msg::GetWords(u"ann"), "GETWORDS NAME=ann;");
        row(msg::Disconnect(u"ann"), "DISCONNECT NAME=ann;");
        row(msg::GetScore(u"7201", u"bo"), "GETSCORE PORT=7201;NAME=bo;");
        row(msg::PingMe(u"7201"), "PINGME 7201");
        row(msg::Pong(u"ann", u"12:00:01.5"), "PONG NAME=ann;TIME=12:00:01.5;");
        row(msg::Navigate(u"ann", u"Caf\u00e9"), "NAVIGATE NAME=ann;URL=Caf\xe9;");
        row(msg::SendMyPath(u"ann", u"Apple\rBanana"), "SENDMYPATH NAME=ann;PATH=Apple\rBanana;");
        row(msg::Chat(u"ann", u"a;b=c"), "CHAT NAME=ann;TEXT=a;b=c");
        row(msg::DisqualifiedNotice(u"ann", u"talk"),
            "CHAT NAME=GAME;TEXT=ann has been disqualified for visiting an illegal page: \"talk\"");
        row(msg::TimeRequest(u"7201"), "TIME PORT=7201;");
        row(msg::GetRandom(2), "GETRANDOM SRC=2;");
        row(msg::SetWords(u"Apple", u"Banana"), "SETWORDS COUNT=1;WORD0=Apple;WORD1=Banana;");
        row(msg::Status(u"game.example", u"7201"), "STATUS SERVER=game.example;PORT=7201;");
        row(u"Caf\u00e9 \u20ac \u201cq\u201d \u2014 \u0178 \u4e2d\U0001F600"_s,
            "Caf\xe9 \x80 \x93q\x94 \x97 \x9f %E4%B8%AD%F0%9F%98%80");
        row(msg::Navigate(u"ann", u"\u0141\u00f3d\u017a"), "NAVIGATE NAME=ann;URL=%C5%81\363d%C5%BA;");
        row(msg::ScoreIs(u"ann", -1, 2147483647, 0, false),
            "SCOREIS NAME=ann;WINS=-1;CLICK=2147483647;RCLICK=0;INGAME=no;");
    }
    void outgoing()
    {
        QFETCH(QString, built);
        QFETCH(QByteArray, wire);
        QCOMPARE(ToWire(built), wire);
    }

    // Characters Windows-1252 lacks travel as escaped UTF-8; every other byte reads as itself.
    void textOutsideWindows1252_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QByteArray>("wire");
        QTest::addColumn<QString>("read"); // what the wire reads back as
        const auto row = [](const char* tag, const QString& text, const char* wire, const QString& read) {
            QTest::newRow(tag) << text << QByteArray(wire) << read;
        };
        row("Lodz", u"\u0141\u00f3d\u017a"_s, "%C5%81\363d%C5%BA", u"\u0141\u00f3d\u017a"_s);
        row("emoji", u"a\U0001F600"_s, "a%F0%9F%98%80", u"a\U0001F600"_s);
        row("lone surrogate", QString(QChar(0xD800)) + u'x', "?x", u"?x"_s);
        row("percent", u"100% AT&T"_s, "100% AT&T", u"100% AT&T"_s);
        // Escapes ToWire never writes stay literal text.
        row("lower case", u"%c5%81"_s, "%c5%81", u"%c5%81"_s);
        row("Windows-1252 character", u"%C3%A9"_s, "%C3%A9", u"%C3%A9"_s);
        row("truncated", u"%C5%8"_s, "%C5%8", u"%C5%8"_s);
        row("no continuation", u"%C5%C5%81"_s, "%C5%C5%81", u"%C5\u0141"_s);
        row("overlong", u"%C0%80%E0%80%80"_s, "%C0%80%E0%80%80", u"%C0%80%E0%80%80"_s);
        row("surrogate", u"%ED%A0%80"_s, "%ED%A0%80", u"%ED%A0%80"_s);
        row("beyond Unicode", u"%F4%90%80%80"_s, "%F4%90%80%80", u"%F4%90%80%80"_s);
    }
    void textOutsideWindows1252()
    {
        QFETCH(QString, text);
        QFETCH(QByteArray, wire);
        QFETCH(QString, read);
        QCOMPARE(ToWire(text), wire);
        QCOMPARE(FromWire(wire), read);
        QCOMPARE(ToWire(FromWire(wire)), wire);
    }

    void roster()
    {
        SessionData s;
        for (const QString& name : {u"Ann"_s, u"ANN"_s, u"Bo"_s, u"Cy"_s})
            s.AddPlayer(name);
        QCOMPARE(s.PlayerCount(), 3);
        QCOMPARE(s.FindPlayer(u"ann"_s), 0);
        QCOMPARE(s.FindPlayer(u"Cy"_s), 3);
        QCOMPARE(s.Player(1).Wins + s.Player(1).Clicks + s.Player(1).RoundClicks + s.Player(1).Ping, 0);
        s.Player(3).Clicks = 9;
        s.RemovePlayer(u"bo"_s);
        s.RemovePlayer(u"Zed"_s);
        QCOMPARE(s.PlayerCount(), 2);
        QCOMPARE(s.Player(2).Name, u"Cy"_s);
        QCOMPARE(s.Player(2).Clicks, 9);
        QVERIFY_THROWS_EXCEPTION(Fault, s.Player(0));
        QVERIFY_THROWS_EXCEPTION(Fault, s.Player(3));

        s.Player(1).Wins = 3;
        s.InRound = true;
        s.ChooserName = u"Ann"_s;
        s.TargetWordIndex = 1;
        s.RoutePath = u"Apple\r"_s;
        s.ResetGameData(); // keeps the roster and the route
        QCOMPARE(s.Words.size(), 1);
        QCOMPARE(s.Words.at(0), QString());
        QVERIFY(s.TargetWordIndex == 0 && !s.InRound && s.ChooserName.isEmpty());
        QCOMPARE(s.Player(1).Wins, 3);
        QCOMPARE(s.RoutePath, u"Apple\r"_s);
    }

    // The roster's bounds hold a hostile server's names off, never the player's own name.
    void rosterBounds_data()
    {
        QTest::addColumn<int>("others"); // names in the list before the own one
        QTest::addColumn<int>("nameLength");
        QTest::newRow("long own name") << 2 << 65;
        QTest::newRow("own name after a full roster") << SessionData::kMaxPlayers + 5 << 3;
        QTest::newRow("long own name after a full roster") << SessionData::kMaxPlayers << 300;
    }
    void rosterBounds()
    {
        QFETCH(int, others);
        QFETCH(int, nameLength);
        SessionData s;
        s.PlayerName = QString(nameLength, u'N');
        QString list = u"PLAYERLIST COUNT=%1;"_s.arg(others + 2);
        for (int i = 1; i <= others; ++i)
            list += u"P%1=p%1;"_s.arg(i);
        list += u"P%1=%2;"_s.arg(others + 1).arg(s.PlayerName.toLower()); // in another letter case
        list += u"P%1=%2;"_s.arg(others + 2).arg(QString(65, u'x'));      // another's, too long
        s.AddPlayersFrom(list);
        QCOMPARE(s.PlayerCount(), std::min(others + 1, int(SessionData::kMaxPlayers)));
        const qint32 own = s.FindPlayer(s.PlayerName.toLower());
        QCOMPARE(own, s.PlayerCount());
        s.AddPlayer(u"late"_s); // the roster is full, or the name of another too long
        s.AddPlayer(s.PlayerName);
        QCOMPARE(s.FindPlayer(u"late"_s), others + 1 < SessionData::kMaxPlayers ? own + 1 : 0);
        s.RemovePlayer(s.PlayerName);
        QCOMPARE(s.FindPlayer(s.PlayerName.toLower()), 0);
        s.AddPlayer(s.PlayerName);
        QCOMPARE(s.FindPlayer(s.PlayerName), s.PlayerCount());
    }

    // PLAYERLIST: the names. STARTGAME: the list's size, its first two words.
    void counts_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<QStringList>("expected");
        const auto row = [](const char* message, const QStringList& expected) {
            QTest::newRow(message) << QString::fromUtf8(message) << expected;
        };
        row("PLAYERLIST P1=ann;", {kFault});
        row("PLAYERLIST COUNT=-3;P1=ann;", {});
        row("PLAYERLIST COUNT=1;P0=x;P1=ann;P2=bo;", {u"ann"_s});
        row("PLAYERLIST COUNT=5;P2=bo;P4=di;", {QString(), u"bo"_s, u"di"_s}); // one empty name
        row("PLAYERLIST COUNT=2;P1=Ann;P2=ANN;", {u"Ann"_s});
        row("PLAYERLIST COUNT=2147483647;P2147483647=zed;P1=ann;", {u"ann"_s, QString(), u"zed"_s});
        row("STARTGAME COUNT=0;WORD0=Apple;WORD1=Banana;", {u"1"_s, u"Apple"_s, QString()});
        row("STARTGAME COUNT=-1;WORD0=a;", {kFault});
        row("STARTGAME WORD0=a;", {kFault});
        row("STARTGAME COUNT=2147483647;WORD0=a;WORD1=b;", {u"2147483648"_s, u"a"_s, u"b"_s});
    }
    void counts()
    {
        QFETCH(QString, message);
        QFETCH(QStringList, expected);
        SessionData s;
        QStringList got;
        try {
            if (Verb(message) == verb::PLAYERLIST) {
                s.AddPlayersFrom(message);
            } else {
                const WordList words = WordList::FromStartGame(message);
                got = {QString::number(words.size()), words.at(0), words.at(1)};
            }
        } catch (const Fault&) {
            got = {kFault};
        }
        for (const PlayerRecord& player : s.Players())
            got << player.Name;
        QCOMPARE(got, expected);
    }

    void options_data()
    {
        QTest::addColumn<QString>("saved"); // null: the file is written as it is
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("loaded");
        QTest::addColumn<QByteArray>("fileAfterLoad");
        const auto row = [](const char* tag, const QString& saved, const char* file, const QString& loaded,
                            const char* after) {
            QTest::newRow(tag) << saved << QByteArray(file) << loaded << QByteArray(after);
        };
        row("plain", u"ann"_s, "ann\r\n", u"ann"_s, "ann\r\n");
        row("crlf inside", u"one\r\ntwo"_s, "one\r\ntwo\r\n", u"one"_s, "one\r\ntwo\r\n");
        row("lf inside", u"one\ntwo"_s, "one\ntwo\r\n", u"one"_s, "one\ntwo\r\n");
        row("cp1252", u"Jos\u00e9 \u20ac"_s, "Jos\xe9 \x80\r\n", u"Jos\u00e9 \u20ac"_s, "Jos\xe9 \x80\r\n");
        row("missing", {}, "<missing>", {}, "<missing>");
        row("zero bytes", {}, "", {}, "");
        row("first line empty", {}, "\r\nsecond\r\n", {}, "");
        row("no line end", {}, "ann", u"ann"_s, "ann");
        row("cr only", {}, "ann\rbo", u"ann"_s, "ann\rbo");
    }
    void options()
    {
        QFETCH(QString, saved);
        QFETCH(QByteArray, file);
        QFETCH(QString, loaded);
        QFETCH(QByteArray, fileAfterLoad);
        QTemporaryDir dir;
        const Options options(dir.path());
        QFile f(dir.filePath(u"Welcome.dat"_s));
        const auto content = [&] {
            f.close();
            return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
        };
        if (!saved.isNull()) {
            options.SaveOption(u"Welcome"_s, u"older value"_s);
            options.SaveOption(u"Welcome"_s, saved);
        } else if (file != "<missing>") {
            QVERIFY(f.open(QIODevice::WriteOnly) && f.write(file) == file.size());
        }
        QCOMPARE(content(), file);
        QCOMPARE(options.LoadOption(u"Welcome"_s), loaded);
        QCOMPARE(content(), fileAfterLoad);
    }

    void findLocalPortSkipsHeldPorts()
    {
        // Every port held, by others at this moment or by the test, on one address or on all.
        std::vector<std::unique_ptr<QUdpSocket>> holders;
        QUdpSocket* last = nullptr; // the highest port held on all addresses, so nobody else has it
        for (quint16 port = 7200; port <= 7220; ++port) {
            const QHostAddress address = port % 2 ? QHostAddress(QHostAddress::AnyIPv4) : TestAddress();
            holders.push_back(std::make_unique<QUdpSocket>());
            if (holders.back()->bind(address, port, QAbstractSocket::DontShareAddress) && port % 2)
                last = holders.back().get();
        }
        QVERIFY(last);
        UdpEndpoint probe;
        QCOMPARE(FindLocalPort(probe), u"-1"_s);
        const QString freed = QString::number(last->localPort());
        last->close();
        QCOMPARE(FindLocalPort(probe), freed);
        QCOMPARE(probe.State(), 0); // the port is free again for the caller
    }

    void floodLeavesRoomForOtherEvents()
    {
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7212"_s));
        QStringList texts;
        qsizetype deliveredWhenOthersRan = -1;
        connect(&client, &UdpEndpoint::DataArrival, this, [&](const QString& text) {
            texts << text;
            if (texts.size() == 1) // another event, queued behind the flood's first datagram
                QTimer::singleShot(0, this, [&] { deliveredWhenOthersRan = texts.size(); });
        });
        for (int i = 0; i < 200; ++i) // fits the receive buffer, so none is lost before it is read
            Send(7212, "SCOREIS NAME=Jos\xe9;");
        QVERIFY(WaitUntil([&] { return texts.size() == 200; }, 10000));
        QCOMPARE(texts.first(), u"SCOREIS NAME=Jos\u00e9;"_s);
        QVERIFY(deliveredWhenOthersRan > 0 && deliveredWhenOthersRan <= 2 * UdpEndpoint::kBatch);
    }

    // Datagrams read while a handler runs wait for their turn however long it takes. A full inbox
    // lets go, until it is half full, of what later datagrams supersede, then of the expendable
    // ones, oldest first, then of the oldest of the rest; kept ones wait in a reserve of their own,
    // and a full reserve takes no more.
    void inboxKeepsItsDatagrams_data()
    {
        QTest::addColumn<int>("limit");   // datagrams of four bytes the inbox holds; 0 for its own limit
        QTest::addColumn<int>("reserve"); // and its reserve
        QTest::addColumn<int>("firstTakesMs");
        QTest::addColumn<QStringList>("sent"); // all read at once
        QTest::addColumn<QStringList>("delivered");
        // "a:01" supersedes "a:00"; "!k01" is kept; anything else is expendable.
        const auto row = [](const char* tag, int limit, int reserve, const char* sent,
                            const char* delivered) {
            QTest::newRow(tag) << limit << reserve << 0 << QString::fromLatin1(sent).split(u' ')
                               << QString::fromLatin1(delivered).split(u' ');
        };
        QStringList many;
        for (int i = 0; i < 100; ++i)
            many << u"SCOREIS NAME=%1;"_s.arg(i);
        QTest::newRow("a slow handler")
            << 0 << 0 << 1200 << QStringList{u"frst"_s} + many << QStringList{u"frst"_s} + many;
        row("superseded first, never across a kept one", 4, 4, "j001 a:01 a:02 !k01 a:03 a:04 a:05",
            "a:02 !k01 a:03 a:04 a:05");
        row("then chat and junk, oldest first", 4, 4, "j001 j002 j003 j004 j005 j006", "j003 j004 j005 j006");
        row("then the oldest of the rest", 4, 4, "a:01 b:01 j001 c:01 d:01", "b:01 c:01 d:01");
        row("kept ones in their reserve, as many as it holds", 4, 3,
            "j001 !k01 j002 j003 !k02 j004 j005 j006 !k03 j007 !k04 j008",
            "!k01 !k02 j005 j006 !k03 j007 j008");
    }
    void inboxKeepsItsDatagrams()
    {
        QFETCH(int, limit);
        QFETCH(int, reserve);
        QFETCH(int, firstTakesMs);
        QFETCH(QStringList, sent);
        QFETCH(QStringList, delivered);
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7216"_s));
        const qsizetype each = UdpEndpoint::kEntryBytes + 4;
        if (limit > 0) client.SetInboxLimit(limit * each);
        if (reserve > 0) client.SetReserveLimit(reserve * each);
        client.SetTriage([](QByteArrayView datagram) -> UdpEndpoint::Triage {
            if (datagram.startsWith("!")) return {UdpEndpoint::Triage::Kept, {}};
            const qsizetype colon = datagram.indexOf(':');
            if (colon < 0) return {};
            return {UdpEndpoint::Triage::Latest, QString::fromLatin1(datagram.first(colon))};
        });
        QStringList texts;
        qsizetype most = 0;
        connect(&client, &UdpEndpoint::DataArrival, this, [&](const QString& text) {
            most = std::max(most, client.InboxBytes() + client.ReserveBytes());
            texts << text;
            if (texts.size() == 1) QThread::msleep(firstTakesMs);
        });
        // All in the socket's buffer before the endpoint reads any.
        for (const QString& text : sent)
            Send(7216, text.toLatin1());
        QVERIFY(WaitUntil([&] { return texts.size() >= delivered.size(); }));
        QTest::qWait(50);
        QCOMPARE(texts, delivered);
        if (limit > 0) QCOMPARE_LE(most, (limit + reserve) * each);
        QCOMPARE(client.InboxBytes() + client.ReserveBytes(), 0);
    }

    // Replies only: a datagram counts only from an address and port the endpoint sent to (a name
    // as the address it led to, ::ffff:a.b.c.d as a.b.c.d) or was told to expect; every other is
    // dropped before the inbox, and counted.
    void repliesOnly_data()
    {
        QTest::addColumn<QString>("sendTo");     // the endpoint's RemoteHost, port 47711; empty: no send
        QTest::addColumn<QString>("reaches");    // where that send arrives
        QTest::addColumn<QString>("acceptFrom"); // expected in advance, port 47711; or empty
        QTest::addColumn<QString>("from");       // the sender's address
        QTest::addColumn<int>("port");           // and its port
        QTest::addColumn<bool>("handed");
        const QString test = TestAddress().toString(), local = u"127.0.0.1"_s, none;
        QTest::newRow("where it sent") << test << test << none << test << 47711 << true;
        QTest::newRow("there, another port") << test << test << none << test << 47712 << false;
        QTest::newRow("another address, that port")
            << test << test << none << u"127.77.0.1"_s << 47711 << false;
        QTest::newRow("typed as ::ffff:") << u" ::ffff:"_s + test << test << none << test << 47711 << true;
        QTest::newRow("a name, from its address")
            << u"localhost"_s << local << none << local << 47711 << true;
        QTest::newRow("a name, from elsewhere") << u"localhost"_s << local << none << test << 47711 << false;
        QTest::newRow("nothing sent yet") << none << none << none << test << 47711 << false;
        QTest::newRow("expected in advance") << none << none << u"::ffff:"_s + test << test << 47711 << true;
        QTest::newRow("another one expected") << none << none << test << test << 47712 << false;
    }
    void repliesOnly()
    {
        QFETCH(QString, sendTo);
        QFETCH(QString, reaches);
        QFETCH(QString, acceptFrom);
        QFETCH(QString, from);
        QFETCH(int, port);
        QFETCH(bool, handed);
        UdpEndpoint client;
        QVERIFY(client.Bind(u"47710"_s));
        client.SetRepliesOnly(true);
        if (!acceptFrom.isEmpty()) client.AcceptFrom(QHostAddress(acceptFrom), 47711);
        QStringList texts;
        connect(&client, &UdpEndpoint::DataArrival, this, [&](const QString& text) { texts << text; });
        QUdpSocket sender, listener;
        QVERIFY(sender.bind(QHostAddress(from), quint16(port)));
        if (!sendTo.isEmpty()) {
            // Once it has arrived, the name has led somewhere.
            QUdpSocket* target = from == reaches && port == 47711 ? &sender : &listener;
            QVERIFY(target == &sender || listener.bind(QHostAddress(reaches), 47711));
            client.RemotePort = 47711;
            client.RemoteHost = sendTo;
            client.SendData(u"STATUS"_s);
            QVERIFY(WaitUntil([&] { return target->hasPendingDatagrams(); }));
        }
        sender.writeDatagram("PING TIME=1;", QHostAddress(u"127.0.0.1"_s), 47710);
        QVERIFY(WaitUntil([&] { return texts.size() + client.Strangers() == 1; }));
        QCOMPARE(texts, handed ? QStringList{u"PING TIME=1;"_s} : QStringList());
        QCOMPARE(client.Strangers(), quint64(!handed));
        client.Close(); // forgets whom it sent to
        QVERIFY(client.Bind(u"47710"_s));
        sender.writeDatagram("PING TIME=2;", QHostAddress(u"127.0.0.1"_s), 47710);
        QVERIFY(WaitUntil([&] { return client.Strangers() == quint64(!handed) + 1; }));
        QCOMPARE(texts.size(), int(handed));
    }

    // A handler that lets events run receives what arrives meanwhile; one that closes, nothing more.
    void nestedDelivery()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7214"_s));
        QStringList order;
        connect(&client, &UdpEndpoint::DataArrival, this,
                [&](const QString& text, const QHostAddress& from, quint16 port) {
                    order << u"begin "_s + text;
                    if (text == u"first"_s) WaitUntil([&] { return order.contains(u"end second"_s); }, 3000);
                    if (text == u"PING"_s) {
                        client.SendTo(u"PONG NAME=Jos\u00e9 \u20ac \u4e2d;"_s, from, port);
                        client.Close();
                    }
                    order << u"end "_s + text;
                });
        Send(7214, "first");
        QTimer::singleShot(100, this, [&] { Send(7214, "second"); });
        QVERIFY(WaitUntil([&] { return order.size() == 4; }));
        QCOMPARE(order, (QStringList{u"begin first"_s, u"begin second"_s, u"end second"_s, u"end first"_s}));
        for (int i = 0; i < 3; ++i) // a later burst
            Send(7214, "PING");
        QVERIFY(WaitUntil([&] { return m_peer.hasPendingDatagrams(); }));
        QCOMPARE(m_peer.receiveDatagram().data(), QByteArray("PONG NAME=Jos\xe9 \x80 %E4%B8%AD;"));
        QTest::qWait(50);
        QCOMPARE(order.size(), 6);
    }
};

QTEST_GUILESS_MAIN(tst_core)
#include "tst_core.moc"
