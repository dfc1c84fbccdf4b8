#include "clientfakes.h"
#include "core/udpendpoint.h"
#include "game/frmgame.h"
#include "lobby/frmhost.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "platform/qtservices.h"
#include "scriptedserver.h"

#include <QElapsedTimer>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QUdpSocket>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

QStringList Entries(const QListWidget* list)
{
    QStringList entries;
    for (int i = 0; i < list->count(); ++i)
        entries.append(list->item(i)->text());
    return entries;
}

// A lobby window shown without an event loop on a fresh client with `options` (name, value, ...).
template <class Window> struct Shown
{
    explicit Shown(const QStringList& options = {u"Name"_s, u"Ann"_s})
    {
        for (qsizetype i = 0; i + 1 < options.size(); i += 2)
            client.session->SaveOption(options[i], options[i + 1]);
        window = new Window(*client.session);
        window->show();
    }
    ~Shown() { delete window.data(); }

    template <class Control = QLineEdit>
    Control* Get(const QString& name) const { return Find<Control>(window, name); }
    Session& S() const { return *client.session; }

    // frmMain: Enter in the name box, then Join in the server browser with `address` typed.
    void JoinThrough(const QString& address) const
    {
        WhenModal<frmServers>([address](frmServers* d) {
            Find<SimpleCombo>(d, u"cmbServers"_s)->setText(address);
            Find<QPushButton>(d, u"cmdJoin"_s)->click();
        });
        QTest::keyClick(Get(u"txtName"_s), Qt::Key_Return);
    }

    TestClient client;
    QPointer<Window> window;
};

} // namespace

class tst_lobby : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { StopModalWaits(); }

    void hostStoresWhatIsTyped()
    {
        Shown<frmHost> h({u"Server"_s, u"10.0.0.5"_s, u"Welcome"_s, u"Hi %p"_s, u"Password"_s, u"p=w;d"_s});
        const auto stored = [&] {
            return QStringList{h.S().LoadOption(u"Server"_s), h.S().LoadOption(u"Welcome"_s),
                               h.S().LoadOption(u"Password"_s)};
        };
        QLineEdit* password = h.Get(u"txtPassword"_s);
        QCOMPARE(h.Get(u"txtIP"_s)->selectedText(), u"10.0.0.5"_s);
        QCOMPARE(stored(), (QStringList{u"10.0.0.5"_s, u"Hi %p"_s, u"p=w;d"_s})); // loading wrote nothing
        // The password is shown cleaned ("pwd"); separators typed vanish and the caret keeps its index.
        password->setCursorPosition(1);
        QTest::keyClicks(password, u"=x;"_s);
        QCOMPARE(password->text(), u"pwxd"_s);
        QCOMPARE(password->cursorPosition(), 4);
        QTest::keyClicks(h.Get(u"txtIP"_s), u" 1 "_s);
        QTest::keyClicks(h.Get<QPlainTextEdit>(u"txtWelcomeMessage"_s), u"=;"_s);
        QCOMPARE(stored(), (QStringList{u" 1 "_s, u"=;Hi %p"_s, u"pwxd"_s}));
        h.S().ChosenServer = u"stale"_s;
        h.Get<QPushButton>(u"cmdReset"_s)->click();
        h.Get<QPushButton>(u"cmdCancel"_s)->click();
        QVERIFY(!h.window->isVisible() && h.S().ChosenServer.isEmpty());
        QCOMPARE(stored(), (QStringList{{}, u"%p user(s) connected to Linkhop Server %v"_s, {}}));
    }

    void hostChecksTheAddress_data()
    {
        const QString refusal = u"You must provide an internal or external IP address that other users can "
                                u"also connect to (127.0.0.1 will not work)."_s;
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("chosen");
        QTest::newRow("dots and spaces") << u" . .  ."_s << QString() << QString();
        QTest::newRow("localhost in capitals") << u"  LOCALHOST "_s << refusal << QString();
        QTest::newRow("loopback with spaces") << u" 127.0.0.1  "_s << refusal << QString();
        QTest::newRow("outer spaces kept") << u" game.example "_s << QString() << u" game.example "_s;
        QTest::newRow("a tab is no space") << u"\t127.0.0.1"_s << QString() << u"\t127.0.0.1"_s;
    }
    void hostChecksTheAddress()
    {
        QFETCH(QString, typed);
        QFETCH(QString, message);
        QFETCH(QString, chosen);
        Shown<frmHost> h;
        h.Get(u"txtIP"_s)->setText(typed);
        h.Get<QPushButton>(u"cmdHost"_s)->click();
        QCOMPARE(h.S().ChosenServer, chosen);
        QCOMPARE(h.client.prompts.MessageTexts(), message.isEmpty() ? QStringList() : QStringList{message});
        if (!message.isEmpty()) QCOMPARE(h.client.prompts.messageBoxes.first().icon, Icon::Critical);
        QCOMPARE(h.window->isVisible(), chosen.isEmpty());
    }

    // The router's external address is offered, never put in by itself; a click puts it in as typed.
    void hostOffersTheRouterAddress_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("external"); // empty: no router told one
        QTest::addColumn<bool>("offered");
        QTest::newRow("empty field") << QString() << u"11.77.0.1"_s << true;
        QTest::newRow("an address typed before") << u"192.168.1.5"_s << u"11.77.0.1"_s << true;
        QTest::newRow("the external address already") << u" 11.77.0.1 "_s << u"11.77.0.1"_s << false;
        QTest::newRow("no router") << u"192.168.1.5"_s << QString() << false;
    }
    void hostOffersTheRouterAddress()
    {
        QFETCH(QString, stored);
        QFETCH(QString, external);
        QFETCH(bool, offered);
        Shown<frmHost> h({u"Server"_s, stored});
        h.client.router.external = QHostAddress(external);
        auto* offer = h.Get<QPushButton>(u"cmdExternal"_s);
        QVERIFY(!offer->isVisible());
        QCoreApplication::processEvents();
        QCOMPARE(h.client.router.asked, 1);
        QCOMPARE(offer->isVisible(), offered);
        QCOMPARE(h.Get(u"txtIP"_s)->text(), stored);
        QCOMPARE(h.S().LoadOption(u"Server"_s), stored);
        if (!offered) return;
        QVERIFY(offer->text().contains(external));
        offer->click();
        QCOMPARE(h.Get(u"txtIP"_s)->text(), external);
        QCOMPARE(h.S().LoadOption(u"Server"_s), external);
        QVERIFY(!offer->isVisible());
        QTest::keyClick(h.Get(u"txtIP"_s), Qt::Key_Backspace);
        QVERIFY(offer->isVisible());
        h.Get<QPushButton>(u"cmdHost"_s)->click();
        QCOMPARE(h.S().ChosenServer, external.chopped(1));
    }

    // The help keeps its classic lines and tells what Linkhop now does itself.
    void hostHelp()
    {
        Shown<frmHost> h;
        h.Get<QPushButton>(u"cmdHelp"_s)->click();
        const QStringList lines = h.client.prompts.MessageTexts().value(0).split(u"\r\n"_s);
        QCOMPARE(lines.size(), 9);
        QCOMPARE(lines.mid(0, 2), (QStringList{u"Enter your IP address to connect to the local server."_s, {}}));
        QCOMPARE(lines[3], u"UDP traffic on ports 7201-7203 must be routed to your local PC if you are behind a router."_s);
        QCOMPARE(lines.mid(4, 3), (QStringList{{}, u"If hosting over LAN, type your internal IP address."_s, {}}));
        QVERIFY(lines[7].contains(u"asks your router itself (UPnP or NAT-PMP) to forward UDP port 7200"_s));
        QCOMPARE(h.client.prompts.messageBoxes.first().icon, Icon::Information);
    }

    void serversQueriedAndListed()
    {
        ScriptedServer server;
        QVERIFY(server.Listen());
        const QString address = TestAddress().toString();
        // Three spellings of one reachable address, so every query lands at the scripted server.
        Shown<frmServers> s({u"Servers"_s, address + u","_s + address + u" , "_s + address});
        QVERIFY(WaitUntil([&] { return !s.Get<QTimer>(u"tmrSearch"_s)->isActive(); }));
        QTest::qWait(150);
        const QString port = u";PORT="_s + s.S().LocalPort + u";"_s;
        const QString query = u"STATUS SERVER="_s;
        QCOMPARE(server.ReceivedTexts(), (QStringList{query + address + port, query + address + u" "_s + port,
                                                      query + u" "_s + address + port}));
        // Replies find their way back: the queries leave from the announced port.
        for (const ScriptedServer::Datagram& d : server.Received())
            QCOMPARE(d.port, s.S().LocalPort.toUShort());
        for (const QString& reply : {u"STATUS SERVER=h;#=3;"_s, u"STATUS #=2;"_s, u"STATUS SERVER=a;#=;"_s,
                                     u"STATUS SERVER=b;"_s, u"status #=1;"_s, u"STATUS SERVER=z;#=0;"_s})
            server.SendTo(reply, s.S().LocalPort.toUShort());
        // Datagrams on loopback keep their order: once the last is listed, every one was read.
        auto* active = s.Get<QListWidget>(u"lstActive"_s);
        QVERIFY(WaitUntil([&] { return Entries(active).contains(u"z (0)"_s); }));
        QCOMPARE(Entries(active), (QStringList{u"h (3)"_s, u" (2)"_s, u"z (0)"_s}));
    }

    void serverJoinRemembered_data()
    {
        QTest::addColumn<QString>("last");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("enter");
        QTest::addColumn<QString>("stored"); // empty: not joined
        QTest::newRow("other case replaces") << u"Beta"_s << u"bETA"_s << false << u"bETA,alpha,gamma"_s;
        QTest::newRow("already first") << u"ALPHA"_s << u"alpha"_s << false << u"alpha,Beta,gamma"_s;
        QTest::newRow("new goes first") << u"x"_s << u" new "_s << true << u" new ,alpha,Beta,gamma"_s;
        QTest::newRow("only dots and spaces") << u""_s << u" . .. "_s << true << QString();
    }
    void serverJoinRemembered()
    {
        QFETCH(QString, last);
        QFETCH(QString, typed);
        QFETCH(bool, enter);
        QFETCH(QString, stored);
        Shown<frmServers> s({u"Servers"_s, u",alpha,,Beta,gamma,"_s, u"LastServer"_s, last});
        auto* combo = s.Get<SimpleCombo>(u"cmbServers"_s);
        // Stray commas are dropped; the last server is selected only when listed in the same case.
        QCOMPARE(Entries(combo->list()), (QStringList{u"alpha"_s, u"Beta"_s, u"gamma"_s}));
        QCOMPARE(combo->text(), last);
        QCOMPARE(combo->currentIndex(), last == u"Beta"_s ? 1 : -1);
        combo->edit()->clear();
        QTest::keyClicks(combo->edit(), typed);
        if (enter)
            QTest::keyClick(combo->edit(), Qt::Key_Return);
        else
            s.Get<QPushButton>(u"cmdJoin"_s)->click();
        QCOMPARE(s.window->isVisible(), stored.isEmpty());
        QCOMPARE(s.S().ChosenServer, stored.isEmpty() ? QString() : typed);
        QCOMPARE(s.S().LoadOption(u"LastServer"_s), stored.isEmpty() ? last : typed);
        QCOMPARE(s.S().LoadOption(u"Servers"_s), stored.isEmpty() ? u",alpha,,Beta,gamma,"_s : stored);
        if (!stored.isEmpty()) QVERIFY(UdpEndpoint().Bind(s.S().LocalPort)); // free for the main window
    }

    void serverListKeys_data()
    {
        QTest::addColumn<QString>("last");
        QTest::addColumn<QString>("keys"); // d/u: Down/Up in the edit field; 0-2: click that list entry
        QTest::addColumn<QString>("joined");
        QTest::newRow("down from the selection") << u"Beta"_s << u"d"_s << u"gamma"_s;
        QTest::newRow("down stops at the end") << u"Beta"_s << u"ddd"_s << u"gamma"_s;
        QTest::newRow("up stops at the start") << u"Beta"_s << u"uu"_s << u"alpha"_s;
        QTest::newRow("down with none selected") << u"x"_s << u"d"_s << u"alpha"_s;
        QTest::newRow("Enter in the list after a click") << u"x"_s << u"1"_s << u"Beta"_s;
        QTest::newRow("click, then keys in the field") << u"x"_s << u"2u"_s << u"Beta"_s;
    }
    void serverListKeys()
    {
        QFETCH(QString, last);
        QFETCH(QString, keys);
        QFETCH(QString, joined);
        Shown<frmServers> s({u"Servers"_s, u"alpha,Beta,gamma"_s, u"LastServer"_s, last});
        s.window->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(s.window));
        auto* combo = s.Get<SimpleCombo>(u"cmbServers"_s);
        for (const QChar key : keys) {
            if (key.isDigit()) {
                QListWidget* list = combo->list();
                QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                                  list->visualItemRect(list->item(key.digitValue())).center());
                QCOMPARE(QApplication::focusWidget(), list);
            } else {
                combo->edit()->setFocus();
                QTest::keyClick(combo->edit(), key == u'd' ? Qt::Key_Down : Qt::Key_Up);
            }
        }
        QCOMPARE(combo->text(), joined);
        // Enter joins wherever the focus is inside the combo.
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        QVERIFY(!s.window->isVisible());
        QCOMPARE(s.S().ChosenServer, joined);
    }

    void serversWithoutAFreeLocalPort()
    {
        // Ports another test run holds at this moment count as held too.
        QObject holders;
        for (quint16 port = 7200; port <= 7220; ++port)
            (new QUdpSocket(&holders))->bind(QHostAddress::AnyIPv4, port, QAbstractSocket::DontShareAddress);
        Shown<frmServers> s({u"Servers"_s, u"alpha"_s});
        QCOMPARE(s.client.prompts.MessageTexts(),
                 QStringList{u"Critical error:\r\nCould not find a local port to bind to."_s});
        QVERIFY(s.client.programEnd.endings.size() == 1 && s.S().LocalPort == u"-1"_s);
        QVERIFY(!s.Get<QTimer>(u"tmrSearch"_s)->isActive());
    }

    void mainCleansAndStoresTheName()
    {
        Shown<frmMain> w({u"Name"_s, u"Bo=b;"_s});
        QLineEdit* txtName = w.Get(u"txtName"_s);
        QCOMPARE(txtName->selectedText(), u"Bob"_s);
        QCOMPARE(w.S().LoadOption(u"Name"_s), u"Bob"_s);
        txtName->setCursorPosition(1);
        QTest::keyClicks(txtName, u"=x;"_s);
        QCOMPARE(txtName->text(), u"Boxb"_s);
        QCOMPARE(txtName->cursorPosition(), 4);
        QCOMPARE(w.S().LoadOption(u"Name"_s), u"Boxb"_s);
        txtName->setText(u"=;"_s);
        WhenModal<QDialog>([](QDialog* d) { d->reject(); }, 500);
        w.Get<QPushButton>(u"cmdJoin"_s)->click();
        QCOMPARE(w.client.prompts.MessageTexts(), QStringList{u"Please enter your name."_s});
    }

    void mainHandshakeFails_data()
    {
        QTest::addColumn<QString>("reply"); // to the CONNECT without password
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("status");
        const QString no = u"Connection was refused: "_s, error = u"CONNECTREJECT ERROR="_s;
        QTest::newRow("-10") << error + u"-10;"_s << QString() << no + u"Name is already in use."_s;
        QTest::newRow("-11") << error + u"-11;"_s << QString() << no + u"Name is banned from this server."_s;
        QTest::newRow("-20") << error + u"-20;"_s << QString() << no + u"IP is already connected."_s;
        QTest::newRow("-21") << error + u"-21;"_s << QString() << no + u"IP is banned from this server."_s;
        QTest::newRow("other code") << error + u"-1;"_s << QString() << no + u"Unknown error."_s;
        QTest::newRow("version beats code") << error + u"-100;VER=2.0 (beta);"_s << QString()
                                            << no + u"Version 2.0 (beta) required."_s;
        QTest::newRow("VER inside a value")
            << error + u"-10;X=SERVER;"_s << QString() << no + u"Version  required."_s;
        QTest::newRow("password, -100") << u"NEEDPWD"_s << u"se=c;ret"_s << no + u"Wrong password."_s;
        QTest::newRow("password cancelled") << u"NEEDPWD"_s << QString() << QString();
        QTest::newRow("no player list") << u"CONNECTACCEPT PLAYING=no;"_s << QString()
                                        << u"Connection timed out: Check firewall/router settings."_s;
    }
    void mainHandshakeFails()
    {
        QFETCH(QString, reply);
        QFETCH(QString, password);
        QFETCH(QString, status);
        ScriptedServer server;
        QVERIFY(server.Listen());
        // A CONNECT with a password is always wrong.
        server.OnVerb(u"CONNECT"_s, [reply](const ScriptedServer::Datagram& d) {
            return QStringList{d.text.contains(u";PORT="_s) ? reply : u"CONNECTREJECT ERROR=-100;"_s};
        });
        Shown<frmMain> w;
        w.client.prompts.inputAnswers = {password};
        bool timerRanDuringBox = false;
        auto* timer = w.Get<QTimer>(u"tmrTimeout"_s);
        w.client.prompts.onInputBox = [&](const QString&) { timerRanDuringBox = timer->isActive(); };
        QElapsedTimer clock;
        clock.start();
        w.JoinThrough(TestAddress().toString());
        // Back to idle, the handshake socket closed.
        QVERIFY(WaitUntil([&] {
            return w.Get<QLabel>(u"lblStatus"_s)->text() == status && w.Get(u"txtName"_s)->isEnabled() &&
                   UdpEndpoint().Bind(w.S().LocalPort);
        }, 6000));
        if (reply.startsWith(u"CONNECTACCEPT"_s)) QVERIFY(clock.elapsed() >= 3800 && clock.elapsed() < 5500);
        QCOMPARE(server.Received().first().port, w.S().LocalPort.toUShort());
        QStringList connects{u"CONNECT VER=1.04 (beta);NAME=Ann;PORT="_s + w.S().LocalPort + u";PWD=;"};
        if (!password.isEmpty()) connects.append(u"CONNECT VER=1.04 (beta);NAME=Ann;PWD=secret;"_s);
        QCOMPARE(server.ReceivedWithVerb(u"CONNECT"_s), connects);
        QCOMPARE(w.client.prompts.inputPrompts.size(), int(reply == u"NEEDPWD"_s));
        QVERIFY(!timerRanDuringBox);
    }

    void mainHandsOverOnPlayerList_data()
    {
        QTest::addColumn<QString>("playing");
        QTest::addColumn<QStringList>("onGetPlayerList");
        QTest::addColumn<QStringList>("roster");
        QTest::addColumn<bool>("isHost");
        QTest::newRow("host, round running")
            << u"yes"_s << QStringList{u"ISHOST NAME=Ann;"_s, u"PLAYERLIST COUNT=2;P1=Bo;P2=Ann;"_s}
            << QStringList{u"Bo"_s, u"Ann"_s} << true;
        QTest::newRow("host named in other case, huge count")
            << u"no"_s << QStringList{u"ISHOST NAME=ann;"_s, u"PLAYERLIST COUNT=2147483647;P1=Bo;P2=Ann;"_s}
            << QStringList{u"Bo"_s, u"Ann"_s, QString()} << false;
    }
    void mainHandsOverOnPlayerList()
    {
        QFETCH(QString, playing);
        QFETCH(QStringList, onGetPlayerList);
        QFETCH(QStringList, roster);
        QFETCH(bool, isHost);
        ScriptedServer server;
        QVERIFY(server.Listen());
        server.OnVerb(u"CONNECT"_s, QStringList{u"CONNECTACCEPT PLAYING="_s + playing + u";"_s});
        server.OnVerb(u"GETPLAYERLIST"_s, QStringList{u"MESSAGE Hi; a=b"_s} + onGetPlayerList);
        Shown<frmMain> w;
        Session& session = w.S();
        w.JoinThrough(TestAddress().toString());
        QVERIFY(WaitUntil([&] { return w.window.isNull(); }));
        // The session's windows took over; the game window holds the announced port.
        QVERIFY(session.OpenChat() && session.OpenScores() && session.Game() && session.Game()->isVisible());
        QCOMPARE(session.Game()->wsGame->LocalPort(), session.LocalPort.toUShort());
        QCOMPARE(Entries(Find<QListWidget>(session.OpenChat(), u"lstPlayers"_s)), roster);
        QVERIFY(session.OpenChat()->Transcript().endsWith(u"GAME: Hi; a=b"_s));
        QCOMPARE(bool(session.OpenWinner()), isHost);
        const bool running = playing == u"yes"_s;
        QCOMPARE(server.WaitForVerb(u"GETWORDS"_s, 1, running ? 5000 : 200),
                 running ? u"GETWORDS NAME=Ann;"_s : QString());
    }

    // Every window, the message and input boxes included, shows the icon of the desktop entry.
    void everyWindowShowsTheIcon()
    {
        const auto picture = [](const QIcon& icon) { return icon.pixmap(QSize(32, 32)).toImage(); };
        const QImage expected = picture(QIcon(QStringLiteral(LINKHOP_ICON_FILE)));
        QVERIFY(!expected.isNull());
        Shown<frmMain> main;
        Shown<frmHost> host;
        Shown<frmServers> servers;
        Session& s = main.S();
        s.PlayerName = u"Ann"_s;
        s.AddPlayer(s.PlayerName);
        OpenSessionWindows(s, true, QString());
        const QList<QWidget*> windows{main.window.data(), host.window.data(), servers.window.data(), s.Game(),
                                      s.OpenChat(),       s.OpenScores(),     s.OpenWinner()};
        for (const QWidget* window : windows)
            QVERIFY2(picture(window->windowIcon()) == expected, qPrintable(window->objectName()));
        QtPrompts prompts;
        QImage boxes[2];
        WhenModal<QMessageBox>([&](QMessageBox* box) {
            boxes[0] = picture(box->windowIcon());
            box->accept();
        });
        prompts.MessageBox(u"Critical error:"_s, Icon::Critical);
        WhenModal<QInputDialog>([&](QInputDialog* box) {
            boxes[1] = picture(box->windowIcon());
            box->reject();
        });
        prompts.InputBox(u"Password:"_s);
        QVERIFY(boxes[0] == expected && boxes[1] == expected);
        delete s.Game();
    }

    void mainHostStartsTheServerAndLeavesItItsPort()
    {
        // Another test run holding port 7200 would make the new server look started at once.
        if (!WaitUntil([] { return UdpEndpoint().Bind(u"7200"_s); }, 10000)) QSKIP("port 7200 is held");
        ScriptedServer server;
        server.OnVerb(u"CONNECT"_s, QStringList{u"CONNECTREJECT ERROR=-20;"_s});
        Shown<frmMain> w;
        const auto hostAt = [&](const QString& address) {
            WhenModal<frmHost>([address](frmHost* d) {
                Find<QLineEdit>(d, u"txtIP"_s)->setText(address);
                Find<QPushButton>(d, u"cmdHost"_s)->click();
            });
            w.Get<QPushButton>(u"cmdHost"_s)->click();
        };
        hostAt(TestAddress().toString());
        QCOMPARE(w.client.prompts.MessageTexts().value(0),
                 u"The server executable could not be found (LinkhopServer). Please reinstall the game."_s);
        QVERIFY(w.client.launcher.started.isEmpty() && w.Get(u"txtName"_s)->isEnabled());

        QFile program(w.client.folder.filePath(frmMain::ServerProgramName()));
        QVERIFY(program.open(QIODevice::WriteOnly));
        // The started server takes its port a little later, as a real one would: a CONNECT sent
        // before it did would be lost.
        bool listening = false;
        w.client.launcher.onStart = [&](const QString&) {
            QTimer::singleShot(300, &server, [&] { listening = server.Listen(); });
        };
        hostAt(TestAddress().toString());
        QVERIFY(w.S().LocalPort.toInt() > 7200);
        if (!listening && !UdpEndpoint().Bind(u"7200"_s)) QSKIP("another program took port 7200");
        QVERIFY(listening);
        QCOMPARE(w.client.launcher.started, QStringList{w.client.folder.filePath(u"LinkhopServer"_s)});
        QCOMPARE(server.WaitForVerb(u"CONNECT"_s),
                 u"CONNECT VER=1.04 (beta);NAME=Ann;PORT="_s + w.S().LocalPort + u";PWD=;");
    }
};

QTEST_MAIN(tst_lobby)
#include "tst_lobby.moc"
