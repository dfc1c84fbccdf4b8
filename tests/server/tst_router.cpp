// LinkhopServer behind a real home router: Debian's miniupnpd with address translation, in network
// namespaces of the test's own (tests/support/homerouter.sh). The server opens its port by UPnP or
// NAT-PMP, as it finds the router; a player on the Internet side joins through the router's
// external address and plays; the mapping is gone once the server stops; without a router to ask,
// the server says so and serves its LAN.
#include "core/options.h"
#include "homerouter.h"
#include "router/probe.h"
#include "scriptedclient.h"
#include "server/portmapper.h"

#include <QCommandLineParser>
#include <QtTest>
#include <memory>
#include <optional>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;
using namespace linkhop::test;

namespace {

constexpr quint16 kAnn = 47401;
// The router remembers a player's earlier datagrams to the same port (connection tracking) after
// their mapping is gone: each case plays from a port of its own.
quint16 g_nextPlayerPort = 47402;
const QString kExternal = u"11.77.0.1"_s;

// The real server program in a namespace, with a short wait for UPnP answers.
class Server final
{
public:
    ~Server()
    {
        if (m_process.state() == QProcess::NotRunning) return;
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    bool Start(const QString& ns, const QStringList& arguments)
    {
        HomeRouter::Prepare(m_process, ns, QCoreApplication::applicationDirPath() + u"/LinkhopServer"_s,
                            QStringList{u"--site"_s, u"none"_s, u"--upnp-wait"_s, u"300"_s} + arguments);
        m_process.start();
        return !WaitFor(u"LinkhopServer ready on"_s).isEmpty();
    }
    // The first line of the log holding `text`, once it is written; empty after `timeoutMs`.
    QString WaitFor(const QString& text, int timeoutMs = 5000)
    {
        QString found;
        WaitUntil(
            [&] {
                m_log += QString::fromUtf8(m_process.readAllStandardOutput());
                const QStringList lines = m_log.split(u'\n');
                for (const QString& line : lines)
                    if (line.contains(text)) found = line;
                return !found.isEmpty();
            },
            timeoutMs);
        return found;
    }
    // SIGTERM, as the desktop sends it; true when the server ended cleanly.
    bool Stop()
    {
        m_process.terminate();
        const bool ended = m_process.waitForFinished(10000);
        m_log += QString::fromUtf8(m_process.readAllStandardOutput());
        return ended && m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
    }
    const QString& Log() const { return m_log; }

private:
    QProcess m_process;
    QString m_log;
};

// A scripted client whose socket lives in namespace `ns`.
std::unique_ptr<ScriptedClient> ClientIn(const QString& ns, quint16 port, const QHostAddress& address,
                                         const QHostAddress& server)
{
    const HomeRouter::Inside inside(ns);
    if (!inside.Entered()) return nullptr;
    return std::make_unique<ScriptedClient>(port, address, server);
}

QString GameLine(const QString& text)
{
    return msg::Chat(msg::GameSpeaker, text);
}

} // namespace

class tst_router : public QObject
{
    Q_OBJECT

    std::unique_ptr<HomeRouter> m_net;

    void StartDaemon(HomeRouter::Daemon daemon)
    {
        QString log;
        QVERIFY2(m_net->StartDaemon(daemon, &log), qPrintable(log));
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_net = std::make_unique<HomeRouter>(kExternal);
        if (!m_net->WhyNot().isEmpty()) QSKIP(qPrintable(m_net->WhyNot()));
    }
    void cleanup()
    {
        m_net->StopDaemon();
        m_net->SetExternal(kExternal);
    }
    void cleanupTestCase() { m_net.reset(); }

    void hostThroughTheRouter_data()
    {
        QTest::addColumn<bool>("upnp");
        QTest::addColumn<bool>("natpmp");
        QTest::addColumn<QString>("via"); // empty: no mapping
        QTest::newRow("UPnP") << true << false << u"UPnP"_s;
        QTest::newRow("NAT-PMP") << false << true << u"NAT-PMP"_s;
        QTest::newRow("both: NAT-PMP answers first") << true << true << u"NAT-PMP"_s;
        QTest::newRow("neither: the LAN only") << false << false << QString();
    }
    void hostThroughTheRouter()
    {
        QFETCH(bool, upnp);
        QFETCH(bool, natpmp);
        QFETCH(QString, via);
        if (upnp || natpmp) StartDaemon({upnp, natpmp, true});
        Server server;
        QVERIFY2(server.Start(m_net->Home(), {}), qPrintable(server.Log()));

        // The LAN plays from the first moment, whatever the router does.
        const auto ann = ClientIn(m_net->Home(), kAnn, HomeRouter::HomeAddress(), HomeRouter::HomeAddress());
        QVERIFY(ann);
        QCOMPARE(ann->Join(u"Ann"_s).constLast(), u"PLAYERLIST COUNT=1;P1=Ann;"_s);
        // The host hears about the router once its game window speaks, never before.
        QCOMPARE(ann->Collect(100), QStringList());
        ann->Send(msg::GetScore(ann->PortText(), u"Ann"));
        const QString note = ann->NextWithVerb(u"CHAT"_s, 8000);
        if (via.isEmpty()) {
            QVERIFY2(!server.WaitFor(u"router: no mapping of UDP port 7200: no router found"_s).isEmpty(),
                     qPrintable(server.Log()));
            QCOMPARE(note, GameLine(u"No router answered Linkhop (UPnP, NAT-PMP). To host over the Internet, forward "
                                    u"UDP port 7200 to 192.168.77.2 in your router's settings, and give the players "
                                    u"your router's external address."_s));
            QCOMPARE(m_net->Forwards(), QStringList());
        } else {
            const QString mapped = server.WaitFor(u"router: %1 forwards UDP port 7200 from %2"_s.arg(via, kExternal));
            QVERIFY2(!mapped.isEmpty(), qPrintable(server.Log()));
            qInfo("%s", qPrintable(mapped));
            QCOMPARE(note, GameLine(u"Your router forwards UDP port 7200 to this computer (%1): players on the "
                                    u"Internet join at %2."_s.arg(via, kExternal)));
            const QStringList forwards = m_net->Forwards();
            QCOMPARE(forwards.size(), 1);
            QVERIFY2(forwards[0].contains(u"dport 7200 dnat ip to 192.168.77.2:7200"_s), qPrintable(forwards[0]));
        }

        // A player on the Internet knows only the router's external address.
        const quint16 boPort = g_nextPlayerPort++;
        const auto bo = ClientIn(m_net->Internet(), boPort, m_net->PlayerAddress(), m_net->External());
        QVERIFY(bo);
        if (via.isEmpty()) {
            bo->Send(msg::Connect(ClientVersion, u"Bo", bo->PortText()));
            QCOMPARE(bo->Collect(1000), QStringList());
        } else {
            QCOMPARE(bo->Join(u"Bo"_s).constLast(), u"PLAYERLIST COUNT=2;P1=Ann;P2=Bo;"_s);
            // The router changes only where the datagrams go: the server sees the player's address.
            QVERIFY(!server.WaitFor(u"join \"Bo\" from %1:%2"_s.arg(m_net->PlayerAddress().toString()).arg(boPort))
                         .isEmpty());
            ann->Send(msg::SetWords(u"Apple", u"Banana"));
            const QString start = msg::StartGame({u"Apple"_s, u"Banana"_s});
            QCOMPARE(ann->NextWithVerb(u"STARTGAME"_s), start);
            QCOMPARE(bo->NextWithVerb(u"STARTGAME"_s), start);
            bo->Send(msg::Navigate(u"Bo", u"Fruit"));
            bo->Send(msg::Navigate(u"Bo", u"Banana"));
            QCOMPARE(ann->NextWithVerb(u"WINNER"_s), u"WINNER NAME=Bo;"_s);
            QCOMPARE(bo->NextWithVerb(u"WINNER"_s), u"WINNER NAME=Bo;"_s);
        }

        QVERIFY(server.Stop());
        QCOMPARE(ann->NextWithVerb(u"DISCONNECT"_s), u"DISCONNECT"_s);
        if (via.isEmpty()) return;
        QCOMPARE(bo->NextWithVerb(u"DISCONNECT"_s), u"DISCONNECT"_s);
        QVERIFY2(server.Log().contains(u"router: removed the mapping of UDP port 7200"_s), qPrintable(server.Log()));
        QCOMPARE(m_net->Forwards(), QStringList());
    }

    void noMappingFromTheRouter_data()
    {
        QTest::addColumn<bool>("natpmp");
        QTest::addColumn<QString>("external");    // the router's external address
        QTest::addColumn<QString>("otherHolder"); // a computer that holds the port already
        QTest::addColumn<QString>("log");
        QTest::addColumn<QString>("note");
        const QString taken = u"Your router already forwards UDP port 7200 to another computer (192.168.77.3): only "
                              u"one computer behind a router can host. Stop the other server, or forward the port "
                              u"to this computer (192.168.77.2) in your router's settings."_s;
        QTest::newRow("port taken, UPnP")
            << false << kExternal << u"192.168.77.3"_s
            << u"UPnP says the port already goes to another computer (192.168.77.3) (UPnP error 718"_s << taken;
        // The router offers another port, of no use to players, who send to 7200: given back.
        QTest::newRow("port taken, NAT-PMP")
            << true << kExternal << u"192.168.77.3"_s
            << u"NAT-PMP says the port already goes to another computer (NAT-PMP offered port"_s
            << QString(taken).replace(u" (192.168.77.3)"_s, QString());
        const QString doubleNat =
            u"Your router has no public address of its own (it says: none): another router, or your provider's, "
            u"stands in front of it. Players on the Internet can join only if that one forwards UDP port 7200 to "
            u"your router, and yours to this computer (192.168.77.2)."_s;
        QTest::newRow("double NAT, UPnP")
            << false << u"100.64.77.1"_s << QString()
            << u"double NAT: UPnP refused (UPnP error 501 (Action Failed)), and the router's external address "
               u"(none) is not public"_s
            << doubleNat;
        QTest::newRow("double NAT, NAT-PMP") << true << u"100.64.77.1"_s << QString()
                                             << u"double NAT: NAT-PMP refused"_s << doubleNat;
    }
    void noMappingFromTheRouter()
    {
        QFETCH(bool, natpmp);
        QFETCH(QString, external);
        QFETCH(QString, otherHolder);
        QFETCH(QString, log);
        QFETCH(QString, note);
        m_net->SetExternal(external);
        StartDaemon({true, natpmp, otherHolder.isEmpty()});
        if (!otherHolder.isEmpty()) {
            m_net->Run(m_net->Home(), u"upnpc"_s,
                       {u"-u"_s, m_net->Description(), u"-a"_s, otherHolder, u"7200"_s, u"7200"_s, u"UDP"_s});
            QCOMPARE(m_net->Forwards().size(), 1);
        }
        const QStringList before = m_net->Forwards();
        Server server;
        QVERIFY2(server.Start(m_net->Home(), {}), qPrintable(server.Log()));
        QVERIFY2(!server.WaitFor(u"router: no mapping of UDP port 7200: "_s + log).isEmpty(),
                 qPrintable(server.Log() + m_net->DaemonLog()));
        const auto ann = ClientIn(m_net->Home(), kAnn, HomeRouter::HomeAddress(), HomeRouter::HomeAddress());
        QVERIFY(ann);
        QCOMPARE(ann->Join(u"Ann"_s).constLast(), u"PLAYERLIST COUNT=1;P1=Ann;"_s);
        ann->Send(msg::GetScore(ann->PortText(), u"Ann"));
        QCOMPARE(ann->NextWithVerb(u"CHAT"_s), GameLine(note));
        // What another computer holds stays its own, also once this server has stopped.
        QVERIFY(server.Stop());
        QVERIFY(!server.Log().contains(u"removed the mapping"_s));
        QCOMPARE(m_net->Forwards(), before);
    }

    void routerNotAsked_data()
    {
        QTest::addColumn<QString>("where"); // "home" or "internet"
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("log");
        QTest::newRow("turned off") << u"home"_s << QStringList{u"--no-port-mapping"_s}
                                    << u"router: not asked to forward UDP port 7200 (--no-port-mapping)"_s;
        QTest::newRow("listening on loopback") << u"home"_s << QStringList{u"--bind"_s, u"127.0.0.1"_s}
                                               << u"router: not asked to forward UDP port 7200: the server "
                                                  u"listens on loopback only"_s;
        QTest::newRow("a public address of its own")
            << u"internet"_s << QStringList()
            << u"router: not asked: this machine has a public address (11.77.0.9)"_s;
    }
    void routerNotAsked()
    {
        QFETCH(QString, where);
        QFETCH(QStringList, arguments);
        QFETCH(QString, log);
        StartDaemon({true, true, true});
        Server server;
        QVERIFY2(server.Start(where == u"home"_s ? m_net->Home() : m_net->Internet(), arguments),
                 qPrintable(server.Log()));
        QVERIFY2(!server.WaitFor(log).isEmpty(), qPrintable(server.Log()));
        QVERIFY(server.Stop());
        QVERIFY(!server.Log().contains(u"forwards UDP port"_s));
        const QString daemon = m_net->DaemonLog();
        QVERIFY2(!daemon.contains(u"7200"_s), qPrintable(daemon));
        QCOMPARE(m_net->Forwards(), QStringList());
    }

    void mappingRenewed_data()
    {
        QTest::addColumn<bool>("natpmp");
        QTest::newRow("UPnP") << false;
        QTest::newRow("NAT-PMP") << true;
    }
    void mappingRenewed()
    {
        QFETCH(bool, natpmp);
        StartDaemon({!natpmp, natpmp, true});
        Server server;
        QVERIFY2(server.Start(m_net->Home(), {u"--port-mapping-lease"_s, u"2"_s}), qPrintable(server.Log()));
        const QString mapped = server.WaitFor(u"router: %1 forwards"_s.arg(natpmp ? u"NAT-PMP"_s : u"UPnP"_s));
        QVERIFY2(!mapped.isEmpty(), qPrintable(server.Log()));
        // Renewed before the lease the router granted runs out.
        const int lease = QRegularExpression(u"lease (\\d+) s"_s).match(mapped).captured(1).toInt();
        QVERIFY2(lease > 0 && lease <= 2, qPrintable(mapped));
        QVERIFY2(!server.WaitFor(u"renewed UDP port 7200"_s, lease * 1000 + 2000).isEmpty(), qPrintable(server.Log()));
        QTest::qWait(lease * 1000);
        QCOMPARE(m_net->Forwards().size(), 1);
        QVERIFY(server.Stop());
        QCOMPARE(m_net->Forwards(), QStringList());
    }

    // The host dialog's question: the router's external address, asked in the background.
    void clientAsksTheRouter_data()
    {
        QTest::addColumn<bool>("upnp");
        QTest::addColumn<bool>("natpmp");
        QTest::addColumn<QString>("external");
        QTest::addColumn<QString>("expected");
        QTest::newRow("UPnP") << true << false << kExternal << kExternal;
        QTest::newRow("NAT-PMP") << false << true << kExternal << kExternal;
        QTest::newRow("no router") << false << false << kExternal << QString();
        QTest::newRow("double NAT: nothing to offer") << true << false << u"100.64.77.1"_s << QString();
    }
    void clientAsksTheRouter()
    {
        QFETCH(bool, upnp);
        QFETCH(bool, natpmp);
        QFETCH(QString, external);
        QFETCH(QString, expected);
        m_net->SetExternal(external);
        if (upnp || natpmp) StartDaemon({upnp, natpmp, true});
        QObject context;
        std::optional<QHostAddress> answer;
        // The asking thread starts in the home network. This one stays there too until the
        // answer: NAT-PMP reads the default gateway from /proc/net, which is the main thread's.
        const HomeRouter::Inside home(m_net->Home());
        QVERIFY(home.Entered());
        router::Bounds bounds;
        bounds.UpnpDiscoverMs = 300;
        router::AskExternalAddress(&context, bounds, [&](const QHostAddress& address) { answer = address; });
        QVERIFY(WaitUntil([&] { return answer.has_value(); }, 10000));
        QCOMPARE(answer->toString(), expected);
    }

    void optionFile_data()
    {
        QTest::addColumn<QString>("option");
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<int>("warnings");
        QTest::newRow("none") << QString() << true << 0;
        QTest::newRow("off") << u"off"_s << false << 0;
        QTest::newRow("OFF with spaces") << u"  OFF "_s << false << 0;
        QTest::newRow("no") << u"no"_s << false << 0;
        QTest::newRow("on") << u"on"_s << true << 0;
        QTest::newRow("anything else asks") << u"sometimes"_s << true << 1;
    }
    void optionFile()
    {
        QFETCH(QString, option);
        QFETCH(bool, enabled);
        QFETCH(int, warnings);
        QTemporaryDir folder;
        Options(folder.path()).SaveOption(u"PortMapping"_s, option);
        QStringList told;
        const PortMapSettings settings = LoadPortMapSettings(folder.path(), nullptr, &told);
        QCOMPARE(settings.Enabled, enabled);
        QCOMPARE(told.size(), warnings);
        if (!enabled) QVERIFY(!settings.OffBecause.isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_router)
#include "tst_router.moc"
