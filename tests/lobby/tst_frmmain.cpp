#include "clientfakes.h"
#include "core/udpendpoint.h"
#include "game/frmgame.h"
#include "game/session.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "lobby/frmhost.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "scriptedserver.h"

#include <QElapsedTimer>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

const QString kTimedOut = u"Connection timed out: Check firewall/router settings."_s;

QStringList Names(const SessionData& session)
{
    QStringList names;
    for (const PlayerRecord& p : session.Players())
        names.append(p.Name);
    return names;
}

QString FirstConnect(const QString& name, const QString& port)
{
    return u"CONNECT VER=1.04 (beta);NAME="_s + name + u";PORT="_s + port + u";PWD=;"_s;
}

// One client with its main window open, and the controls a player uses.
struct MainWindow
{
    // `prepare` runs on the session before the window opens, as a previous run would have left it.
    explicit MainWindow(const std::function<void(Session&)>& prepare = {})
    {
        if (prepare) prepare(*client.session);
        window = new frmMain(*client.session);
        completed = std::make_unique<QSignalSpy>(window.data(), &frmMain::HandshakeCompleted);
        window->show();
        txtName = Find<QLineEdit>(window, u"txtName"_s);
        cmdJoin = Find<QPushButton>(window, u"cmdJoin"_s);
        cmdHost = Find<QPushButton>(window, u"cmdHost"_s);
        lblStatus = Find<QLabel>(window, u"lblStatus"_s);
        tmrTimeout = Find<QTimer>(window, u"tmrTimeout"_s);
    }
    ~MainWindow() { delete window.data(); }

    // Join Game, typing `address` into the server browser and pressing its Join.
    void JoinThrough(const QString& address)
    {
        WhenModal<frmServers>([address](frmServers* d) {
            Find<SimpleCombo>(d, u"cmbServers"_s)->setText(address);
            Find<QPushButton>(d, u"cmdJoin"_s)->click();
        });
        cmdJoin->click();
    }
    // Host Game, giving `address` in the host dialog.
    void HostAt(const QString& address)
    {
        WhenModal<frmHost>([address](frmHost* d) {
            Find<QLineEdit>(d, u"txtIP"_s)->setText(address);
            Find<QPushButton>(d, u"cmdHost"_s)->click();
        });
        cmdHost->click();
    }
    bool Idle() const
    {
        return txtName->isEnabled() && cmdJoin->isEnabled() && cmdHost->isEnabled() &&
               !tmrTimeout->isActive();
    }
    // The handshake socket is closed once the local port can be bound again.
    bool PortFree() const
    {
        UdpEndpoint probe;
        return probe.Bind(client.session->LocalPort);
    }

    TestClient client;
    QPointer<frmMain> window;
    std::unique_ptr<QSignalSpy> completed;
    QLineEdit* txtName;
    QPushButton* cmdJoin;
    QPushButton* cmdHost;
    QLabel* lblStatus;
    QTimer* tmrTimeout;
};

} // namespace

class tst_frmmain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { StopModalWaits(); }

    void opensWithTheRememberedName()
    {
        MainWindow w([](Session& session) { session.SaveOption(u"Name"_s, u"Bo=b;"_s); });
        QVERIFY(QTest::qWaitForWindowActive(w.window));
        QCOMPARE(w.window->windowTitle(), u"The Linkhop - 1.04 (beta)"_s);
        QCOMPARE(w.txtName->text(), u"Bob"_s);
        QCOMPARE(w.txtName->selectedText(), u"Bob"_s);
        QCOMPARE(QApplication::focusWidget(), w.txtName);
        QCOMPARE(w.client.session->LoadOption(u"Name"_s), u"Bob"_s);
    }

    void nameIsCleanedAndStored_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<int>("caret");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("after");
        QTest::addColumn<int>("caretAfter");
        QTest::newRow("= in the middle") << u"Anna"_s << 2 << u"="_s << u"Anna"_s << 3;
        QTest::newRow("; at the end") << u"Ann"_s << 3 << u";"_s << u"Ann"_s << 3;
    }
    void nameIsCleanedAndStored()
    {
        QFETCH(QString, before);
        QFETCH(int, caret);
        QFETCH(QString, typed);
        QFETCH(QString, after);
        QFETCH(int, caretAfter);
        MainWindow w;
        w.txtName->setText(before);
        w.txtName->setCursorPosition(caret);
        QTest::keyClicks(w.txtName, typed);
        QCOMPARE(w.txtName->text(), after);
        QCOMPARE(w.txtName->cursorPosition(), caretAfter);
        QCOMPARE(w.client.session->LoadOption(u"Name"_s), after);
    }

    void emptyNameIsRefused_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("host");
        QTest::newRow("empty, join") << u""_s << false;
        QTest::newRow("only separators, host") << u"=;=;"_s << true;
    }
    void emptyNameIsRefused()
    {
        QFETCH(QString, name);
        QFETCH(bool, host);
        MainWindow w;
        w.txtName->setText(name);
        bool dialogOpened = false;
        WhenModal<QDialog>(
            [&](QDialog* d) {
                dialogOpened = true;
                d->reject();
            },
            500);
        (host ? w.cmdHost : w.cmdJoin)->click();
        QCOMPARE(w.client.prompts.MessageTexts(), QStringList{u"Please enter your name."_s});
        QCOMPARE(w.client.prompts.messageBoxes.first().icon, Icon::Information);
        QVERIFY(!dialogOpened);
        QVERIFY(w.client.launcher.started.isEmpty());
        QCOMPARE(w.window->focusWidget(), w.txtName);
    }

    void enterJoinsAndEscapeExits()
    {
        MainWindow w;
        w.txtName->setText(u"Ann"_s);
        w.client.session->ChosenServer = u"stale"_s;
        bool browserOpened = false;
        WhenModal<frmServers>([&](frmServers* d) {
            browserOpened = true;
            Find<QPushButton>(d, u"cmdCancel"_s)->click();
        });
        QTest::keyClick(w.txtName, Qt::Key_Return);
        QVERIFY(browserOpened);
        QCOMPARE(w.txtName->text(), u"Ann"_s);
        // Cancelled: still idle, nothing chosen, nothing shown.
        QVERIFY(w.Idle());
        QVERIFY(w.client.session->ChosenServer.isEmpty());
        QCOMPARE(w.lblStatus->text(), QString());
        QVERIFY(w.client.programEnd.endings.isEmpty());

        QTest::keyClick(w.txtName, Qt::Key_Escape);
        QCOMPARE(w.client.programEnd.endings.size(), 1);
        QVERIFY(!w.window->isVisible());
        RunDeferredDeletes();
        QVERIFY(w.window.isNull());
    }

    void refusalsReturnToIdle_data()
    {
        QTest::addColumn<QString>("reply");
        QTest::addColumn<QString>("status");
        const QString refused = u"Connection was refused: "_s;
        QTest::newRow("-10") << u"CONNECTREJECT ERROR=-10;"_s << refused + u"Name is already in use."_s;
        QTest::newRow("-11") << u"CONNECTREJECT ERROR=-11;"_s
                             << refused + u"Name is banned from this server."_s;
        QTest::newRow("-20") << u"CONNECTREJECT ERROR=-20;"_s << refused + u"IP is already connected."_s;
        QTest::newRow("-21") << u"CONNECTREJECT ERROR=-21;"_s
                             << refused + u"IP is banned from this server."_s;
        QTest::newRow("-100") << u"CONNECTREJECT ERROR=-100;"_s << refused + u"Wrong password."_s;
        QTest::newRow("other code") << u"CONNECTREJECT ERROR=-1;"_s << refused + u"Unknown error."_s;
        QTest::newRow("no code") << u"CONNECTREJECT"_s << refused + u"Unknown error."_s;
        QTest::newRow("version") << u"CONNECTREJECT VER=1.05;"_s << refused + u"Version 1.05 required."_s;
        QTest::newRow("version beats code")
            << u"CONNECTREJECT ERROR=-100;VER=2.0 (beta);"_s << refused + u"Version 2.0 (beta) required."_s;
        QTest::newRow("VER inside a value")
            << u"CONNECTREJECT ERROR=-10;NOTE=SERVER;"_s << refused + u"Version  required."_s;
    }
    void refusalsReturnToIdle()
    {
        QFETCH(QString, reply);
        QFETCH(QString, status);
        ScriptedServer server;
        QVERIFY(server.Listen());
        server.OnVerb(u"CONNECT"_s, QStringList{reply});
        MainWindow w;
        w.txtName->setText(u"Ann"_s);
        w.JoinThrough(TestAddress().toString());
        QVERIFY(!w.Idle());
        QCOMPARE(w.lblStatus->text(), u"Connecting to "_s + TestAddress().toString() + u"..."_s);
        QVERIFY(WaitUntil([&] { return w.lblStatus->text() == status; }));
        QVERIFY(w.Idle());
        QVERIFY(w.PortFree());
        QCOMPARE(server.ReceivedTexts(), QStringList{FirstConnect(u"Ann"_s, w.client.session->LocalPort)});
        QCOMPARE(server.Received().first().port, w.client.session->LocalPort.toUShort());
        QCOMPARE(w.client.session->ServerAddress, TestAddress().toString());
        QCOMPARE(w.client.session->PlayerName, u"Ann"_s);
    }

    void passwordRequest_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("secondConnect");
        QTest::addColumn<QString>("status");
        QTest::newRow("answered") << u"se=c;ret"_s << u"CONNECT VER=1.04 (beta);NAME=Ann;PWD=secret;"_s
                                  << u"Connection was refused: Wrong password."_s;
        QTest::newRow("cancelled") << u""_s << QString() << QString();
        QTest::newRow("only separators") << u"=;"_s << QString() << QString();
    }
    void passwordRequest()
    {
        QFETCH(QString, answer);
        QFETCH(QString, secondConnect);
        QFETCH(QString, status);
        ScriptedServer server;
        QVERIFY(server.Listen());
        // Private server: a CONNECT without a password is asked for one, a password is wrong.
        server.OnVerb(u"CONNECT"_s, [](const ScriptedServer::Datagram& d) {
            return QStringList{d.text.contains(u";PORT="_s) ? u"NEEDPWD"_s : u"CONNECTREJECT ERROR=-100;"_s};
        });
        MainWindow w;
        w.txtName->setText(u"Ann"_s);
        w.client.prompts.inputAnswers = {answer};
        bool timerRanDuringBox = true;
        w.client.prompts.onInputBox = [&](const QString&) { timerRanDuringBox = w.tmrTimeout->isActive(); };
        w.JoinThrough(TestAddress().toString());
        QVERIFY(WaitUntil([&] { return !w.client.prompts.inputPrompts.isEmpty(); }));
        QCOMPARE(w.client.prompts.inputPrompts, QStringList{u"Private server, please enter password:"_s});
        QVERIFY(!timerRanDuringBox);
        if (!secondConnect.isEmpty()) {
            QCOMPARE(server.WaitForVerb(u"CONNECT"_s, 2), secondConnect);
            QCOMPARE(server.Received().last().port, w.client.session->LocalPort.toUShort());
        }
        QVERIFY(WaitUntil([&] { return w.Idle(); }));
        QCOMPARE(w.lblStatus->text(), status);
        QVERIFY(w.PortFree());
        if (secondConnect.isEmpty()) {
            QCOMPARE(w.window->focusWidget(), w.txtName);
            QCOMPARE(server.ReceivedWithVerb(u"CONNECT"_s).size(), 1);
        }
    }

    void playerListHandsOver_data()
    {
        QTest::addColumn<QStringList>("onConnect");
        QTest::addColumn<QStringList>("onGetPlayerList");
        QTest::addColumn<bool>("joinBefore");
        QTest::addColumn<QStringList>("roster");
        QTest::addColumn<bool>("isHost");
        QTest::addColumn<QString>("welcome");
        QTest::addColumn<bool>("joinAfter");
        const QString list = u"PLAYERLIST COUNT=1;P1=Ann;"_s;
        QTest::newRow("host with welcome")
            << QStringList{u"CONNECTACCEPT PLAYING=yes;"_s}
            << QStringList{u"ISHOST NAME=Ann;"_s, u"MESSAGE Welcome; to=it"_s,
                           u"PLAYERLIST COUNT=2;P1=Bo;P2=Ann;"_s}
            << false << QStringList{u"Bo"_s, u"Ann"_s} << true << u"Welcome; to=it"_s << true;
        QTest::newRow("host named in other case")
            << QStringList{u"CONNECTACCEPT PLAYING=no;"_s} << QStringList{u"ISHOST NAME=ann;"_s, list} << true
            << QStringList{u"Ann"_s} << false << QString() << false;
        QTest::newRow("faulty datagrams dropped alone")
            << QStringList{u"CONNECTACCEPT PLAYING=no;"_s}
            << QStringList{u"MESSAGE"_s, u"PLAYERLIST COUNT=many;P1=X;"_s, u"MESSAGE Hi"_s, list} << false
            << QStringList{u"Ann"_s} << false << u"Hi"_s << false;
        QTest::newRow("unknown verbs and PLAYING values ignored")
            << QStringList{u"CONNECTACCEPTED"_s, u"NEEDPWD2"_s, u"needpwd"_s, u"CONNECTACCEPT PLAYING=Yes;"_s}
            << QStringList{u"ISHOSTS NAME=Ann;"_s, list} << true << QStringList{u"Ann"_s} << false
            << QString() << true;
        QTest::newRow("huge count") << QStringList{u"CONNECTACCEPT PLAYING=no;"_s}
                                    << QStringList{u"PLAYERLIST COUNT=2147483647;P1=Bo;P2=Ann;"_s} << false
                                    << QStringList{u"Bo"_s, u"Ann"_s, QString()} << false << QString()
                                    << false;
        QTest::newRow("negative count")
            << QStringList{u"CONNECTACCEPT PLAYING=no;"_s} << QStringList{u"PLAYERLIST COUNT=-3;P1=Bo;"_s}
            << false << QStringList() << false << QString() << false;
    }
    void playerListHandsOver()
    {
        QFETCH(QStringList, onConnect);
        QFETCH(QStringList, onGetPlayerList);
        QFETCH(bool, joinBefore);
        QFETCH(QStringList, roster);
        QFETCH(bool, isHost);
        QFETCH(QString, welcome);
        QFETCH(bool, joinAfter);
        ScriptedServer server;
        QVERIFY(server.Listen());
        server.OnVerb(u"CONNECT"_s, onConnect);
        server.OnVerb(u"GETPLAYERLIST"_s, onGetPlayerList);
        MainWindow w;
        Session& session = *w.client.session;
        session.JoinInProgress = joinBefore;
        session.InRound = true;
        session.ChooserName = u"Cy"_s;
        session.TargetWordIndex = 1;
        session.Words = WordList(2, {{0, u"Apple"_s}, {1, u"Pear"_s}});
        w.txtName->setText(u"Ann"_s);
        w.JoinThrough(TestAddress().toString());
        QVERIFY(WaitUntil([&] { return w.completed->size() == 1; }));

        QCOMPARE(w.completed->first().at(0).toBool(), isHost);
        QCOMPARE(w.completed->first().at(1).toString(), welcome);
        QCOMPARE(Names(session), roster);
        QCOMPARE(session.Words.size(), 1);
        QCOMPARE(session.Words.at(0), QString());
        QVERIFY(!session.InRound);
        QVERIFY(session.ChooserName.isEmpty());
        QCOMPARE(session.TargetWordIndex, 0);
        // The session's windows took over: the game window holds the announced port, and a
        // round already running is asked for once.
        QVERIFY(session.OpenChat() && session.OpenChat()->isVisible());
        QVERIFY(session.OpenScores() && session.OpenScores()->isVisible());
        QVERIFY(session.Game() && session.Game()->isVisible());
        QCOMPARE(session.Game()->wsGame->LocalPort(), session.LocalPort.toUShort());
        QCOMPARE(bool(session.OpenWinner()), isHost);
        QCOMPARE(session.OpenChat()->Transcript().endsWith(u"GAME: "_s + welcome), !welcome.isEmpty());
        QVERIFY(!session.JoinInProgress);
        QCOMPARE(server.WaitForVerb(u"GETWORDS"_s, 1, joinAfter ? 5000 : 200),
                 joinAfter ? u"GETWORDS NAME=Ann;"_s : QString());
        for (const QString& request : server.ReceivedWithVerb(u"GETPLAYERLIST"_s))
            QCOMPARE(request, u"GETPLAYERLIST PORT="_s + session.LocalPort + u";"_s);
        QVERIFY(w.client.prompts.inputPrompts.isEmpty());
        QTRY_VERIFY(w.window.isNull());
        // Handing over closes the window without ending the program.
        QVERIFY(w.client.programEnd.endings.isEmpty());
    }

    void timeOutCountsFromTheFirstConnect()
    {
        ScriptedServer server;
        QVERIFY(server.Listen());
        MainWindow w;
        w.txtName->setText(u"Ann"_s);
        // A late acceptance must not move the deadline.
        server.OnVerb(u"CONNECT"_s, [&](const ScriptedServer::Datagram&) {
            QTimer::singleShot(2000, &server, [&] { server.Send(u"CONNECTACCEPT PLAYING=no;"_s); });
            return QStringList();
        });
        w.JoinThrough(TestAddress().toString());
        QElapsedTimer clock;
        clock.start();
        QVERIFY(WaitUntil([&] { return w.lblStatus->text() == u"Connection accepted."_s; }));
        QVERIFY(WaitUntil([&] { return w.lblStatus->text() == kTimedOut; }, 6000));
        const qint64 elapsed = clock.elapsed();
        QVERIFY2(elapsed >= 3800 && elapsed < 5500, qPrintable(QString::number(elapsed)));
        QVERIFY(w.Idle());
        QVERIFY(w.PortFree());
        QCOMPARE(server.ReceivedWithVerb(u"GETPLAYERLIST"_s).size(), 1);
    }

    void socketErrorIsShown()
    {
        MainWindow w;
        w.txtName->setText(u"Ann"_s);
        w.JoinThrough(u"::1"_s);
        QVERIFY(WaitUntil([&] { return w.lblStatus->text().startsWith(u"Error "_s); }));
        QCOMPARE(w.lblStatus->text(), u"Error 10047: Address family not supported: ::1"_s);
        // The time-out, not the error, ends the attempt.
        QVERIFY(w.tmrTimeout->isActive());
        QVERIFY(!w.cmdJoin->isEnabled());
    }

    void takenLocalPortReturnsToIdle()
    {
        ScriptedServer server;
        QVERIFY(server.Listen());
        MainWindow w;
        w.txtName->setText(u"Ann"_s);
        UdpEndpoint thief;
        WhenModal<frmServers>([&](frmServers* d) {
            Find<SimpleCombo>(d, u"cmbServers"_s)->setText(TestAddress().toString());
            Find<QPushButton>(d, u"cmdJoin"_s)->click();
            // Runs while the main window lets events run, after the browser freed the port.
            QTimer::singleShot(0, &thief, [&] { thief.Bind(w.client.session->LocalPort); });
        });
        w.cmdJoin->click();
        QVERIFY(thief.State() != 0);
        QVERIFY(w.Idle());
        QVERIFY(w.lblStatus->text().contains(w.client.session->LocalPort));
        QTest::qWait(100);
        QVERIFY(server.Received().isEmpty());
    }

    void hostingNeedsTheServerProgram_data()
    {
        QTest::addColumn<bool>("fileThere");
        QTest::addColumn<bool>("starts");
        QTest::addColumn<int>("attempts");
        QTest::newRow("file missing") << false << true << 0;
        QTest::newRow("start fails") << true << false << 1;
    }
    void hostingNeedsTheServerProgram()
    {
        QFETCH(bool, fileThere);
        QFETCH(bool, starts);
        QFETCH(int, attempts);
        MainWindow w;
        if (fileThere) {
            QFile program(w.client.folder.filePath(frmMain::ServerProgramName()));
            QVERIFY(program.open(QIODevice::WriteOnly));
        }
        w.client.launcher.succeed = starts;
        w.txtName->setText(u"Ann"_s);
        w.HostAt(u"10.20.30.40"_s);
        QCOMPARE(
            w.client.prompts.MessageTexts(),
            QStringList{
                u"The server executable could not be found (LinkhopServer). Please reinstall the game."_s});
        QCOMPARE(w.client.prompts.messageBoxes.first().icon, Icon::Critical);
        QCOMPARE(w.client.launcher.started.size(), attempts);
        QVERIFY(w.Idle());
        QCOMPARE(w.lblStatus->text(), QString());
        QVERIFY(w.client.programEnd.endings.isEmpty());
    }

    void hostingLeavesTheServerPortToTheServer()
    {
        // Another test run holding port 7200 would make the new server look started at once.
        if (!WaitUntil([] { return UdpEndpoint().Bind(u"7200"_s); }, 10000))
            QSKIP("port 7200 is held elsewhere");
        ScriptedServer server;
        server.OnVerb(u"CONNECT"_s, QStringList{u"CONNECTREJECT ERROR=-20;"_s});
        MainWindow w;
        {
            QFile program(w.client.folder.filePath(frmMain::ServerProgramName()));
            QVERIFY(program.open(QIODevice::WriteOnly));
        }
        // The started server takes its port a little later, as a real one would.
        QElapsedTimer clock;
        clock.start();
        bool listening = false;
        qint64 boundAt = -1;
        w.client.launcher.onStart = [&](const QString&) {
            if (listening) return;
            QTimer::singleShot(300, &server, [&] {
                listening = server.Listen();
                boundAt = clock.elapsed();
            });
        };
        w.txtName->setText(u"Ann"_s);
        w.HostAt(TestAddress().toString());
        const qint64 connectedAt = clock.elapsed();
        QVERIFY(w.client.session->LocalPort != u"7200"_s);
        if (!listening && !UdpEndpoint().Bind(u"7200"_s))
            QSKIP("another program took port 7200 while the server was starting");
        QVERIFY(listening);
        QVERIFY2(connectedAt - boundAt < 1000, "the wait goes on after the server took its port");
        QCOMPARE(w.client.launcher.started, QStringList{w.client.folder.filePath(u"LinkhopServer"_s)});
        QCOMPARE(server.WaitForVerb(u"CONNECT"_s), FirstConnect(u"Ann"_s, w.client.session->LocalPort));
        QVERIFY(WaitUntil([&] { return w.Idle(); }));

        // Every host attempt starts the server again.
        w.HostAt(TestAddress().toString());
        QCOMPARE(w.client.launcher.started.size(), 2);
        QVERIFY(!server.WaitForVerb(u"CONNECT"_s, 2).isEmpty());
        QCOMPARE(w.client.session->ServerAddress, TestAddress().toString());
    }
};

QTEST_MAIN(tst_frmmain)
#include "tst_frmmain.moc"
