#include "frmmain.h"

#include "core/fault.h"
#include "core/localport.h"
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "core/version.h"
#include "core/wire.h"
#include "frmhost.h"
#include "frmservers.h"
#include "game/frmgame.h"
#include "game/session.h"
#include "lobbywindow.h"
#include "platform/controls.h"
#include "platform/twips.h"

#include <QCloseEvent>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QFileInfo>
#include <QFrame>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

QString frmMain::ServerProgramName()
{
#ifdef Q_OS_WIN
    return u"LinkhopServer.exe"_s;
#else
    return u"LinkhopServer"_s;
#endif
}

frmMain::frmMain(Session& session, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint),
      m_session(session)
{
    setObjectName(u"frmMain"_s);
    setWindowIcon(LinkhopIcon());
    setFont(ArialFont(8.25));
    QPalette white = palette();
    white.setColor(QPalette::Window, Qt::white);
    setPalette(white);
    setAutoFillBackground(true);

    txtName = new QLineEdit(this);
    txtName->setObjectName(u"txtName"_s);
    txtName->setGeometry(TwipsRect(360, 2520, 4335, 315));
    cmdJoin = MakeButton(this, u"cmdJoin"_s, u"Join Game"_s, TwipsRect(5400, 840, 1575, 495));
    cmdHost = MakeButton(this, u"cmdHost"_s, u"Host Game"_s, TwipsRect(5400, 1560, 1575, 495));
    cmdExit = MakeButton(this, u"cmdExit"_s, u"Exit"_s, TwipsRect(5400, 2280, 1575, 495));
    Label1 =
        MakeLabel(this, u"Label1"_s, u"The Linkhop"_s, TwipsRect(120, 120, 4815, 735), ArialFont(18, true));
    Label2 = MakeLabel(this, u"Label2"_s, u"Simple intellectual fun."_s, TwipsRect(240, 600, 2175, 255),
                       ArialFont(8.25, false, true));
    Label3 = MakeLabel(this, u"Label3"_s, u"A race across the encyclopedia, one link at a time."_s,
                       TwipsRect(360, 960, 4335, 255), ArialFont(9.75));
    Label4 = MakeLabel(this, u"Label4"_s,
                       u"Enter your name below, then use the buttons to the right to create or join a game. "
                       u"Let the fun begin!"_s,
                       TwipsRect(360, 1680, 4335, 735), ArialFont(9.75, true));
    Label5 = MakeLabel(this, u"Label5"_s, u"Articles by the contributors of Wikipedia."_s,
                       TwipsRect(360, 1260, 4335, 255), ArialFont(9.75));
    lblStatus = MakeLabel(this, u"lblStatus"_s, QString(), TwipsRect(360, 3000, 6615, 255), ArialFont(8.25));
    Line1 = new QFrame(this);
    Line1->setObjectName(u"Line1"_s);
    Line1->setFrameShape(QFrame::HLine);
    Line1->setFrameShadow(QFrame::Plain);
    Line1->setLineWidth(1);
    Line1->setGeometry(Px(120), Px(480), Px(7200) - Px(120), 1);

    tmrTimeout = new QTimer(this);
    tmrTimeout->setObjectName(u"tmrTimeout"_s);
    tmrTimeout->setInterval(kTimeoutMs);
    wsConnect = new UdpEndpoint(this);
    wsConnect->setObjectName(u"wsConnect"_s);
    wsTemp = new UdpEndpoint(this);
    wsTemp->setObjectName(u"wsTemp"_s);

    setTabOrder(txtName, cmdJoin);
    setTabOrder(cmdJoin, cmdHost);
    setTabOrder(cmdHost, cmdExit);

    connect(txtName, &QLineEdit::textChanged, this, &frmMain::txtName_Change);
    txtName->installEventFilter(this);
    connect(cmdJoin, &QPushButton::clicked, this, &frmMain::cmdJoin_Click);
    connect(cmdHost, &QPushButton::clicked, this, &frmMain::cmdHost_Click);
    connect(cmdExit, &QPushButton::clicked, this, &frmMain::cmdExit_Click);
    connect(tmrTimeout, &QTimer::timeout, this, &frmMain::tmrTimeout_Timer);
    // Only the server being joined answers: whatever else reaches the port is dropped unread.
    wsConnect->SetRepliesOnly(true);
    connect(wsConnect, &UdpEndpoint::DataArrival, this, &frmMain::wsConnect_DataArrival);
    connect(wsConnect, &UdpEndpoint::Error, this, &frmMain::wsConnect_Error);

    PlaceCentred(*this, 7200, 3375);
    Form_Load();
}

frmMain::~frmMain() = default;

void frmMain::Form_Load()
{
    txtName->setText(m_session.LoadOption(u"Name"_s));
    txtName->selectAll();
    txtName->setFocus();
    setWindowTitle(u"The Linkhop"_s + u" - "_s + ClientVersion.toString());
}

void frmMain::txtName_Change()
{
    const QString cleaned = CleanField(txtName->text());
    if (cleaned != txtName->text()) {
        const int caret = txtName->cursorPosition();
        {
            // Writing the cleaned text back is part of this change, not another one.
            const QSignalBlocker quiet(txtName);
            txtName->setText(cleaned);
        }
        txtName->setCursorPosition(std::min(caret, int(cleaned.size())));
    }
    m_session.SaveOption(u"Name"_s, cleaned);
}

void frmMain::cmdJoin_Click()
{
    StartConnection(false);
}

void frmMain::cmdHost_Click()
{
    StartConnection(true);
}

void frmMain::cmdExit_Click()
{
    close();
}

void frmMain::StartConnection(bool host)
{
    txtName->setText(CleanField(txtName->text()));
    if (txtName->text().isEmpty()) {
        txtName->setFocus();
        m_session.prompts().MessageBox(u"Please enter your name."_s, Icon::Information);
        return;
    }
    IsHost = false;
    WelcomeText.clear();
    m_session.ChosenServer.clear();

    // The dialogs run nested event loops: this window may be closed or handed over meanwhile.
    const QPointer<frmMain> self(this);
    if (host) {
        const QPointer<frmHost> dialog = new frmHost(m_session, this);
        dialog->exec();
        if (dialog) dialog->deleteLater();
    } else {
        const QPointer<frmServers> dialog = new frmServers(m_session, this);
        if (!m_session.Ended()) dialog->exec();
        if (dialog) dialog->deleteLater();
    }
    QCoreApplication::processEvents();
    if (!self || m_handedOver || m_session.Ended()) return;
    if (m_session.ChosenServer.isEmpty()) return;

    if (host) {
        if (!StartServer()) return;
        SetControlsEnabled(false);
        WaitForServerPort();
        if (!self || m_handedOver || m_session.Ended()) return;
        m_session.LocalPort = FindLocalPort(*wsTemp);
        if (m_session.LocalPort == u"-1"_s) {
            m_session.prompts().MessageBox(u"Critical error:\r\nCould not find a local port to bind to."_s,
                                           Icon::Critical);
            m_session.EndProgram(1);
            return;
        }
    }

    m_session.ServerAddress = m_session.ChosenServer;
    // The name the server will read, and so every message that names this player.
    m_session.PlayerName = AsOnWire(txtName->text());
    tmrTimeout->start();
    SetControlsEnabled(false);
    lblStatus->setText(u"Connecting to "_s + m_session.ServerAddress + u"..."_s);
    wsConnect->RemotePort = kServerPort;
    wsConnect->RemoteHost = m_session.ServerAddress;
    if (!wsConnect->Bind(m_session.LocalPort)) {
        // Someone took the port between the search and now.
        ReturnToIdle(u"Error: local port "_s + m_session.LocalPort + u" is already in use."_s);
        return;
    }
    wsConnect->SendData(msg::Connect(ClientVersion, m_session.PlayerName, m_session.LocalPort));
}

bool frmMain::StartServer()
{
    const QString program = QDir(m_session.ProgramFolder()).filePath(ServerProgramName());
    if (QFileInfo(program).isFile() && m_session.launcher().Start(program)) return true;
    m_session.prompts().MessageBox(u"The server executable could not be found ("_s + ServerProgramName() +
                                       u"). Please reinstall the game."_s,
                                   Icon::Critical);
    return false;
}

void frmMain::WaitForServerPort()
{
    // The local port search starts at the server's own port: wait until the new server holds it,
    // so the search cannot take it first. A server that never binds costs this much and no more.
    const QPointer<frmMain> self(this);
    const QDeadlineTimer deadline(kServerStartWaitMs);
    QTimer wake;
    wake.start(20);
    while (!deadline.hasExpired()) {
        if (!wsTemp->Bind(QString::number(kServerPort))) break;
        wsTemp->Close();
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        if (!self || m_session.Ended()) return;
    }
    wsTemp->Close();
}

void frmMain::wsConnect_DataArrival(const QString& text, const QHostAddress& from)
{
    try {
        HandleDatagram(text, from);
    } catch (const Fault&) {
        // A malformed datagram ends its own handling; the attempt goes on.
    }
}

void frmMain::HandleDatagram(const QString& text, const QHostAddress& from)
{
    const QString verb = Verb(text);
    if (verb == verb::CONNECTACCEPT) {
        lblStatus->setText(u"Connection accepted."_s);
        const QString playing = GetParam(text, u"PLAYING");
        if (playing == u"yes"_s)
            m_session.JoinInProgress = true;
        else if (playing == u"no"_s)
            m_session.JoinInProgress = false;
        wsConnect->SendData(msg::GetPlayerList(m_session.LocalPort));
    } else if (verb == verb::CONNECTREJECT) {
        tmrTimeout->stop();
        QString status;
        if (text.contains(u"VER"_s)) {
            status = u"Connection was refused: Version "_s + GetParam(text, u"VER") + u" required."_s;
        } else {
            const QString error = GetParam(text, u"ERROR");
            if (error == u"-10"_s)
                status = u"Connection was refused: Name is already in use."_s;
            else if (error == u"-11"_s)
                status = u"Connection was refused: Name is banned from this server."_s;
            else if (error == u"-20"_s)
                status = u"Connection was refused: IP is already connected."_s;
            else if (error == u"-21"_s)
                status = u"Connection was refused: IP is banned from this server."_s;
            else if (error == u"-100"_s)
                status = u"Connection was refused: Wrong password."_s;
            else
                status = u"Connection was refused: Unknown error."_s;
        }
        ReturnToIdle(status);
    } else if (verb == verb::NEEDPWD) {
        AskPassword();
    } else if (verb == verb::ISHOST) {
        if (GetParam(text, u"NAME") == m_session.PlayerName) IsHost = true;
    } else if (verb == verb::MESSAGE) {
        WelcomeText = MessageBody(text);
    } else if (verb == verb::PLAYERLIST) {
        // Where the server's address led: the session listens to that address alone.
        m_session.ServerHost = from;
        HandOver(text);
    }
}

void frmMain::AskPassword()
{
    // One box at a time: a server asking again while the box is open gets no box on top of it.
    if (m_askingPassword) return;
    m_askingPassword = true;
    tmrTimeout->stop();
    const QPointer<frmMain> self(this);
    const QString password =
        CleanField(m_session.prompts().InputBox(u"Private server, please enter password:"_s));
    // The box ran events: the attempt may have ended, or the window gone, while it was open.
    if (!self) return;
    m_askingPassword = false;
    if (m_handedOver || wsConnect->State() == 0) return;
    tmrTimeout->start();
    if (!password.isEmpty()) {
        wsConnect->SendData(msg::ConnectWithPassword(ClientVersion, m_session.PlayerName, password));
        return;
    }
    ReturnToIdle(QString());
    txtName->setFocus();
}

void frmMain::HandOver(const QString& playerList)
{
    m_session.AddPlayersFrom(playerList);
    wsConnect->Close();
    m_session.ResetGameData();
    m_handedOver = true;
    tmrTimeout->stop();
    const QPointer<frmMain> self(this);
    OpenSessionWindows(m_session, IsHost, WelcomeText);
    if (!self) return;
    Q_EMIT HandshakeCompleted(IsHost, WelcomeText);
    if (!self) return;
    close();
}

void frmMain::tmrTimeout_Timer()
{
    ReturnToIdle(u"Connection timed out: Check firewall/router settings."_s);
}

void frmMain::wsConnect_Error(int number, const QString& description)
{
    lblStatus->setText(u"Error "_s + QString::number(number) + u": "_s + description);
}

void frmMain::SetControlsEnabled(bool enabled)
{
    cmdJoin->setEnabled(enabled);
    cmdHost->setEnabled(enabled);
    txtName->setEnabled(enabled);
}

void frmMain::ReturnToIdle(const QString& status)
{
    tmrTimeout->stop();
    lblStatus->setText(status);
    SetControlsEnabled(true);
    wsConnect->Close();
}

void frmMain::closeEvent(QCloseEvent* event)
{
    // Before the hand-over this window is the only one, and closing it ends the program.
    if (!m_handedOver) m_session.EndProgram();
    event->accept();
    deleteLater();
}

void frmMain::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        cmdExit->click();
        return;
    }
    QWidget::keyPressEvent(event);
}

bool frmMain::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == txtName && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            cmdJoin_Click();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace linkhop
