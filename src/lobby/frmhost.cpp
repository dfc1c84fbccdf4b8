#include "frmhost.h"

#include "core/wire.h"
#include "game/session.h"
#include "lobbywindow.h"
#include "platform/controls.h"
#include "platform/twips.h"

#include <QGroupBox>
#include <QHostAddress>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>

using namespace Qt::Literals::StringLiterals;

#ifndef LINKHOP_IP_ECHO_HOST
#define LINKHOP_IP_ECHO_HOST "www.whatismyip.com"
#endif

namespace linkhop {

frmHost::frmHost(Session& session, QWidget* parent)
    : QDialog(parent, Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint),
      m_session(session)
{
    setObjectName(u"frmHost"_s);
    setWindowTitle(u"Host a Game"_s);
    setWindowIcon(LinkhopIcon());
    setFont(ArialFont(8.25));
    setModal(true);

    lblIP = MakeLabel(this, u"lblIP"_s, u"Your IP address:"_s, TwipsRect(120, 120, 4335, 495));
    txtIP = MakeControl<QLineEdit>(this, u"txtIP"_s, TwipsRect(120, 360, 4455, 285));
    cmdHelp = MakeButton(this, u"cmdHelp"_s, u"?"_s, TwipsRect(4650, 375, 255, 255));
    Frame1 = MakeControl<QGroupBox>(this, u"Frame1"_s, TwipsRect(120, 840, 4815, 1815));
    Frame1->setTitle(u"Optional Settings"_s);
    lblWelcomeMessage =
        MakeLabel(Frame1, u"lblWelcomeMessage"_s, u"Welcome Message:"_s, TwipsRect(120, 360, 1575, 495));
    txtWelcomeMessage = MakeControl<QPlainTextEdit>(Frame1, u"txtWelcomeMessage"_s, TwipsRect(120, 600, 4575, 645));
    txtWelcomeMessage->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    txtWelcomeMessage->setTabChangesFocus(true);
    lblPassword = MakeLabel(Frame1, u"lblPassword"_s, u"Password:"_s, TwipsRect(120, 1380, 855, 255));
    txtPassword = MakeControl<QLineEdit>(Frame1, u"txtPassword"_s, TwipsRect(1080, 1380, 3615, 285));
    cmdReset = MakeButton(this, u"cmdReset"_s, u"Reset"_s, TwipsRect(120, 2880, 1455, 495));
    cmdHost = MakeButton(this, u"cmdHost"_s, u"Host"_s, TwipsRect(1920, 2880, 1455, 495));
    cmdCancel = MakeButton(this, u"cmdCancel"_s, u"Cancel"_s, TwipsRect(3480, 2880, 1455, 495));
    // Beyond the classic dialog: the router's external address, offered beside the label and
    // never put in by itself. The field is also where the host's own game connects, which works
    // through the external address only where the router passes it back inside the network.
    cmdExternal = MakeButton(this, u"cmdExternal"_s, QString(), TwipsRect(1440, 90, 3135, 255));
    cmdExternal->setFlat(true);
    cmdExternal->setStyleSheet(u"text-align: left; text-decoration: underline; color: palette(link);"_s);
    cmdExternal->setToolTip(u"Players on the Internet join at this address."_s);
    cmdExternal->hide();

    // Lower parts of the design's tab order belong to labels and the frame, which take no focus.
    setTabOrder(txtIP, txtWelcomeMessage);
    setTabOrder(txtWelcomeMessage, txtPassword);
    setTabOrder(txtPassword, cmdReset);
    setTabOrder(cmdReset, cmdHost);
    setTabOrder(cmdHost, cmdCancel);
    setTabOrder(cmdCancel, cmdHelp);
    setTabOrder(cmdHelp, cmdExternal);

    connect(txtIP, &QLineEdit::textChanged, this, &frmHost::txtIP_Change);
    connect(txtWelcomeMessage, &QPlainTextEdit::textChanged, this, &frmHost::txtWelcomeMessage_Change);
    connect(txtPassword, &QLineEdit::textChanged, this, &frmHost::txtPassword_Change);
    connect(cmdHost, &QPushButton::clicked, this, &frmHost::cmdHost_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmHost::cmdCancel_Click);
    connect(cmdReset, &QPushButton::clicked, this, &frmHost::cmdReset_Click);
    connect(cmdHelp, &QPushButton::clicked, this, &frmHost::cmdHelp_Click);
    connect(cmdExternal, &QPushButton::clicked, this, &frmHost::cmdExternal_Click);
    txtIP->installEventFilter(this);

    PlaceCentred(*this, 5040, 3480);
    Form_Load();
    if (RouterProbe* router = m_session.router())
        router->AskExternalAddress(this, [this](const QHostAddress& external) { RouterAnswered(external); });
}

frmHost::~frmHost() = default;

void frmHost::Form_Load()
{
    Loading = true;
    txtIP->setText(m_session.LoadOption(u"Server"_s));
    txtWelcomeMessage->setPlainText(m_session.LoadOption(u"Welcome"_s));
    txtPassword->setText(m_session.LoadOption(u"Password"_s));
    Loading = false;
    txtIP->setFocus();
    txtIP->selectAll();
}

void frmHost::txtIP_Change()
{
    if (!Loading) m_session.SaveOption(u"Server"_s, txtIP->text());
    cmdExternal->setVisible(!m_external.isEmpty() && TrimSpaces(txtIP->text()) != m_external);
}

void frmHost::RouterAnswered(const QHostAddress& external)
{
    if (external.isNull()) return;
    m_external = external.toString();
    cmdExternal->setText(u"Use "_s + m_external + u", your router's external address"_s);
    cmdExternal->setVisible(TrimSpaces(txtIP->text()) != m_external);
}

void frmHost::cmdExternal_Click()
{
    // Put in as if typed, so it is stored as the user's choice.
    txtIP->setText(m_external);
    txtIP->setFocus();
}

void frmHost::txtWelcomeMessage_Change()
{
    if (!Loading) m_session.SaveOption(u"Welcome"_s, txtWelcomeMessage->toPlainText());
}

void frmHost::txtPassword_Change()
{
    const QString cleaned = CleanField(txtPassword->text());
    if (cleaned != txtPassword->text()) {
        const int caret = txtPassword->cursorPosition();
        {
            // The cleaned text is the change that counts; writing it back is not another one.
            const QSignalBlocker quiet(txtPassword);
            txtPassword->setText(cleaned);
        }
        txtPassword->setCursorPosition(std::min(caret, int(cleaned.size())));
    }
    if (!Loading) m_session.SaveOption(u"Password"_s, cleaned);
}

void frmHost::SelectAddress()
{
    txtIP->selectAll();
    txtIP->setFocus();
}

void frmHost::cmdHost_Click()
{
    const QString address = txtIP->text();
    if (IsBlankAddress(address)) {
        SelectAddress();
        return;
    }
    const QString lower = TrimSpaces(address).toLower();
    if (lower == u"localhost"_s || lower == u"127.0.0.1"_s) {
        m_session.prompts().MessageBox(
            u"You must provide an internal or external IP address that other users can "
            u"also connect to (127.0.0.1 will not work)."_s,
            Icon::Critical);
        SelectAddress();
        return;
    }
    m_session.ChosenServer = address;
    CloseAndRelease(QDialog::Accepted);
}

void frmHost::cmdCancel_Click()
{
    m_session.ChosenServer.clear();
    CloseAndRelease(QDialog::Rejected);
}

void frmHost::cmdReset_Click()
{
    txtIP->setText(QString());
    txtWelcomeMessage->setPlainText(kResetWelcome.toString());
    txtPassword->setText(QString());
}

void frmHost::cmdHelp_Click()
{
    const QStringList lines{
        u"Enter your IP address to connect to the local server."_s,
        QString(),
        u"If hosting over the Internet, type your external IP address (found at "_s +
            QString::fromUtf8(LINKHOP_IP_ECHO_HOST) + u")."_s,
        u"UDP traffic on ports 7201-7203 must be routed to your local PC if you are behind a router."_s,
        QString(),
        u"If hosting over LAN, type your internal IP address."_s,
        QString(),
        u"Linkhop now asks your router itself (UPnP or NAT-PMP) to forward UDP port 7200 to this computer while "
        u"you host, and tells you in the chat whether it did, or what to do by hand."_s,
        u"When your router tells Linkhop its external address, the link above the address field puts it in: "
        u"players on the Internet join at it. Your own game connects to the address in the field; where your "
        u"router does not pass its external address back inside your network, keep your internal address here "
        u"and give the players the external one."_s,
    };
    m_session.prompts().MessageBox(lines.join(u"\r\n"_s), Icon::Information);
}

void frmHost::CloseAndRelease(int result)
{
    done(result);
    deleteLater();
}

bool frmHost::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == txtIP) {
        if (event->type() == QEvent::FocusIn) {
            txtIP->selectAll();
        } else if (event->type() == QEvent::KeyPress) {
            const int key = static_cast<QKeyEvent*>(event)->key();
            if (key == Qt::Key_Return || key == Qt::Key_Enter) {
                cmdHost_Click();
                return true;
            }
        }
    }
    return QDialog::eventFilter(watched, event);
}

void frmHost::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        cmdCancel->click();
        return;
    }
    QDialog::keyPressEvent(event);
}

} // namespace linkhop
