#include "frmservers.h"

#include "core/localport.h"
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "core/wire.h"
#include "game/session.h"
#include "lobbywindow.h"
#include "platform/controls.h"
#include "platform/twips.h"
#include "simplecombo.h"

#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

frmServers::frmServers(Session& session, QWidget* parent)
    : QDialog(parent, Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint),
      m_session(session)
{
    setObjectName(u"frmServers"_s);
    setWindowTitle(u"Join a Game"_s);
    setWindowIcon(LinkhopIcon());
    setFont(ArialFont(8.25));
    setModal(true);

    Label1 = MakeLabel(this, u"Label1"_s, u"Active Servers:"_s, TwipsRect(120, 120, 2655, 495));
    lstActive = new QListWidget(this);
    lstActive->setObjectName(u"lstActive"_s);
    lstActive->setGeometry(TwipsRect(120, 360, 2655, 2580));
    lblStatus = MakeLabel(this, u"lblStatus"_s, QString(), TwipsRect(120, 3000, 2655, 255));
    Label2 = MakeLabel(this, u"Label2"_s, u"Server IP Address:"_s, TwipsRect(2880, 120, 3015, 615));
    cmbServers = new SimpleCombo(this);
    cmbServers->setObjectName(u"cmbServers"_s);
    cmbServers->setGeometry(TwipsRect(2880, 360, 3015, 2280));
    cmdJoin = MakeButton(this, u"cmdJoin"_s, u"Join"_s, TwipsRect(2880, 2760, 1455, 495));
    cmdCancel = MakeButton(this, u"cmdCancel"_s, u"Cancel"_s, TwipsRect(4440, 2760, 1455, 495));
    tmrSearch = new QTimer(this);
    tmrSearch->setObjectName(u"tmrSearch"_s);
    tmrSearch->setInterval(100);
    wsFind = new UdpEndpoint(this);
    wsFind->setObjectName(u"wsFind"_s);
    wsTemp = new UdpEndpoint(this);
    wsTemp->setObjectName(u"wsTemp"_s);

    setTabOrder(cmbServers, cmdJoin);
    setTabOrder(cmdJoin, cmdCancel);
    setTabOrder(cmdCancel, lstActive);

    // Status replies count only from the servers asked.
    wsFind->SetRepliesOnly(true);

    connect(tmrSearch, &QTimer::timeout, this, &frmServers::tmrSearch_Timer);
    connect(wsFind, &UdpEndpoint::DataArrival, this,
            [this](const QString& text) { wsFind_DataArrival(text); });
    connect(lstActive, &QListWidget::itemClicked, this, &frmServers::lstActive_Click);
    connect(lstActive, &QListWidget::currentRowChanged, this, &frmServers::lstActive_Click);
    connect(lstActive, &QListWidget::itemDoubleClicked, this, &frmServers::cmdJoin_Click);
    connect(cmbServers, &SimpleCombo::itemDoubleClicked, this, &frmServers::cmdJoin_Click);
    connect(cmbServers, &SimpleCombo::enterPressed, this, &frmServers::cmdJoin_Click);
    connect(cmdJoin, &QPushButton::clicked, this, &frmServers::cmdJoin_Click);
    connect(cmdCancel, &QPushButton::clicked, this, &frmServers::cmdCancel_Click);

    PlaceCentred(*this, 6000, 3360);
    Form_Load();
}

frmServers::~frmServers() = default;

void frmServers::Form_Load()
{
    const QStringList servers = SplitServerList(m_session.LoadOption(u"Servers"_s));
    cmbServers->clear();
    cmbServers->setText(m_session.LoadOption(u"LastServer"_s));
    for (const QString& server : servers) {
        const bool current = server == cmbServers->text();
        cmbServers->addItem(server);
        if (current) cmbServers->setCurrentIndex(cmbServers->count() - 1);
    }
    cmbServers->setFocus();
    SearchIndex = 0;

    m_session.LocalPort = FindLocalPort(*wsTemp);
    if (m_session.LocalPort == u"-1"_s) {
        m_session.prompts().MessageBox(u"Critical error:\r\nCould not find a local port to bind to."_s,
                                       Icon::Critical);
        m_session.EndProgram(1);
        return;
    }
    wsFind->Bind(m_session.LocalPort);
    tmrSearch->start();
}

void frmServers::tmrSearch_Timer()
{
    if (SearchIndex > cmbServers->count() - 1) {
        tmrSearch->stop();
        lblStatus->setText(QString());
        return;
    }
    const QString address = cmbServers->itemText(SearchIndex);
    lblStatus->setText(u"Searching... "_s + address);
    wsFind->RemotePort = kServerPort;
    wsFind->RemoteHost = address;
    // An address that cannot be resolved fails inside the endpoint; the search goes on.
    wsFind->SendData(msg::Status(address, m_session.LocalPort));
    ++SearchIndex;
}

void frmServers::wsFind_DataArrival(const QString& text)
{
    if (Verb(text) != verb::STATUS) return;
    const QString players = GetParam(text, u"#");
    if (players.isEmpty() || lstActive->count() >= kMaxEntries) return;
    const QString entry = GetParam(text, u"SERVER") + u" ("_s + players + u")"_s;
    if (entry.size() <= kMaxEntryLength) lstActive->addItem(entry);
}

void frmServers::lstActive_Click()
{
    const QListWidgetItem* item = lstActive->currentItem();
    if (!item || !item->isSelected()) return;
    const qsizetype end = item->text().lastIndexOf(u" ("_s);
    if (end < 0) return;
    const QString address = item->text().left(end);
    for (int i = 0; i < cmbServers->count(); ++i) {
        if (cmbServers->itemText(i) == address) {
            cmbServers->setCurrentIndex(i);
            return;
        }
    }
}

void frmServers::cmdJoin_Click()
{
    const QString address = cmbServers->text();
    if (IsBlankAddress(address)) return;
    m_session.SaveOption(u"LastServer"_s, address);
    QStringList listed;
    for (int i = 0; i < cmbServers->count(); ++i)
        listed.append(cmbServers->itemText(i));
    m_session.SaveOption(u"Servers"_s, JoinServerList(address, listed));
    m_session.ChosenServer = address;
    done(QDialog::Accepted);
    deleteLater();
}

void frmServers::cmdCancel_Click()
{
    m_session.ChosenServer.clear();
    done(QDialog::Rejected);
    deleteLater();
}

void frmServers::done(int result)
{
    tmrSearch->stop();
    wsFind->Close();
    QDialog::done(result);
}

void frmServers::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        cmdCancel->click();
        return;
    }
    QDialog::keyPressEvent(event);
}

} // namespace linkhop
