#include "frmgame.h"

#include "core/localport.h"
#include "core/messages.h"
#include "core/udpendpoint.h"
#include "game/session.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "platform/browser.h"
#include "platform/controls.h"
#include "platform/placement.h"
#include "platform/twips.h"

#include <QCloseEvent>
#include <QScreen>
#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

constexpr int kMargin = 8; // pixels around the browser inside the client area
constexpr int kBottomStrip = Px(480);

} // namespace

frmGame::frmGame(Session& session) : QWidget(nullptr), m_session(session), m_dispatcher(session, *this)
{
    setObjectName(u"frmGame"_s);
    setWindowTitle(u"Linkhop"_s);
    setWindowIcon(LinkhopIcon());
    setFont(ArialFont(8.25));

    m_monitor = new NavigationMonitor(
        m_session, Navigation, [this](const QString& text) { SendData(text); },
        [this](const QString& caption) { setWindowTitle(caption); }, this);
    wbMain = m_session.CreateBrowser(this);
    if (wbMain) {
        wbMain->setObjectName(u"wbMain"_s);
        wbMain->setGeometry(kMargin, kMargin, Px(2535), Px(2415));
        m_monitor->Watch(*wbMain);
    }
    wsGame = new UdpEndpoint(this);
    wsGame->setObjectName(u"wsGame"_s);
    // Under a flood, old scores and pings make room first, then chat and junk; never the round.
    wsGame->SetTriage(&SessionDispatcher::TriageOf);
    connect(wsGame, &UdpEndpoint::DataArrival, this, [this](const QString& text) {
        ServerHeard();
        m_dispatcher.Handle(text);
    });

    tmrGetScores = new QTimer(this);
    tmrGetScores->setObjectName(u"tmrGetScores"_s);
    tmrGetScores->setInterval(100);
    connect(tmrGetScores, &QTimer::timeout, this, &frmGame::PollScore);
    tmrPing = new QTimer(this);
    tmrPing->setObjectName(u"tmrPing"_s);
    tmrPing->setInterval(kPingMs);
    connect(tmrPing, &QTimer::timeout, this, [this] { SendData(msg::PingMe(m_session.LocalPort)); });
    tmrSilence = new QTimer(this);
    tmrSilence->setObjectName(u"tmrSilence"_s);
    connect(tmrSilence, &QTimer::timeout, this, &frmGame::CheckSilence);
    SetServerSilenceMs(kServerSilenceMs);

    m_session.SetGame(this);
    m_session.SetGameSender([this](const QString& text) { SendData(text); });

    InitGame();
    Place();
    PlaceAgainOnceFramed(*this, [this] { Place(); });
    Disconnected = false;
    ScoreIndex = 1;
    tmrGetScores->start();
    tmrPing->start();
    m_lastHeard.start();
    tmrSilence->start();
}

frmGame::~frmGame()
{
    if (m_session.Game() == this) {
        m_session.SetGame(nullptr);
        m_session.SetGameSender({});
    }
}

void frmGame::SendData(const QString& Text)
{
    // The session is over: nothing follows its "DISCONNECT". A closed socket would otherwise
    // send from a fresh port.
    if (m_session.Ended()) return;
    wsGame->RemotePort = kServerPort;
    wsGame->RemoteHost = m_session.ServerAddress;
    wsGame->SendData(Text);
}

void frmGame::InitGame()
{
    wsGame->RemotePort = kServerPort;
    wsGame->RemoteHost = m_session.ServerAddress;
    // Only the server this client joined speaks in the session: from the address the handshake
    // reached, at the server's port. Anything else is dropped unread and never answered.
    QHostAddress server = m_session.ServerHost;
    if (server.isNull()) server.setAddress(m_session.ServerAddress.trimmed());
    wsGame->SetRepliesOnly(true);
    if (!server.isNull()) {
        wsGame->SetHostAddress(m_session.ServerAddress, server);
        wsGame->AcceptFrom(server, kServerPort);
    }
    // The port the lobby announced to the server; the handshake socket has let it go.
    wsGame->Bind(m_session.LocalPort);
    if (wbMain) wbMain->Navigate(m_session.Site().MainPage());
    if (m_session.JoinInProgress) {
        m_session.Chat().AddChat(msg::GameSpeaker.toString(), u"Game is in progress; joining..."_s);
        SendData(msg::GetWords(m_session.PlayerName));
        m_session.JoinInProgress = false;
    }
}

void frmGame::Place()
{
    // The native window now, so that its frame is known when the outer size is set.
    create();
    const QRect screenArea = screen()->geometry();
    const int scoresWidth = m_session.OpenScores() ? m_session.OpenScores()->frameGeometry().width() : 0;
    SetOuterGeometry(*this, QRect(screenArea.left() + scoresWidth, screenArea.top(),
                                  screenArea.width() - scoresWidth, screenArea.height() - kBottomStrip));
}

void frmGame::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    // Minimised or maximised, the browser keeps its size.
    if (!wbMain || (windowState() & (Qt::WindowMinimized | Qt::WindowMaximized | Qt::WindowFullScreen))) return;
    // A side too short for the margins has no size to give the browser: that side keeps its own.
    const int browserWidth = width() - 2 * kMargin;
    const int browserHeight = height() - 2 * kMargin;
    wbMain->resize(browserWidth < 0 ? wbMain->width() : browserWidth,
                   browserHeight < 0 ? wbMain->height() : browserHeight);
}

void frmGame::PollScore()
{
    // The roster can shrink during the sweep: never read past its end.
    if (ScoreIndex < 1 || ScoreIndex > m_session.PlayerCount()) {
        tmrGetScores->stop();
        return;
    }
    SendData(msg::GetScore(m_session.LocalPort, m_session.Player(ScoreIndex).Name));
    if (ScoreIndex >= m_session.PlayerCount())
        tmrGetScores->stop();
    else
        ++ScoreIndex;
}

void frmGame::SetServerSilenceMs(int ms)
{
    m_silenceMs = std::max(ms, 1);
    tmrSilence->setInterval(std::clamp(m_silenceMs / 10, 10, 1000));
}

void frmGame::ServerHeard()
{
    m_lastHeard.start();
    if (!m_serverSilent) return;
    m_serverSilent = false;
    GameLine(u"The server answers again."_s);
}

void frmGame::CheckSilence()
{
    // A line when the silence starts, and one when it ends; the session goes on meanwhile.
    if (m_serverSilent || m_lastHeard.elapsed() < m_silenceMs) return;
    m_serverSilent = true;
    const int seconds = (m_silenceMs + 999) / 1000;
    GameLine(u"The server has stopped answering: nothing has come from it for %1 %2."_s.arg(seconds).arg(
        seconds == 1 ? u"second"_s : u"seconds"_s));
}

void frmGame::GameLine(const QString& text)
{
    if (frmChat* chat = m_session.OpenChat()) chat->AddChat(msg::GameSpeaker.toString(), text);
}

void frmGame::closeEvent(QCloseEvent* event)
{
    event->accept();
    if (frmChat* chat = m_session.OpenChat()) chat->UnloadNow();
    if (frmScores* scores = m_session.OpenScores()) scores->UnloadNow();
    if (frmWinner* chooser = m_session.OpenWinner()) chooser->UnloadNow();
    if (!Disconnected) SendData(msg::Disconnect(m_session.PlayerName));
    tmrGetScores->stop();
    tmrPing->stop();
    tmrSilence->stop();
    wsGame->Close();
    // The program ends here: the browser's notifications still queued reach nobody.
    if (wbMain) wbMain->disconnect(m_monitor);
    m_session.EndProgram(0);
}

void OpenSessionWindows(Session& session, bool isHost, const QString& welcomeText)
{
    session.Chat().show();
    session.Scores().show();
    auto* game = new frmGame(session);
    game->show();
    if (isHost) session.Winner().show();
    if (!welcomeText.isEmpty()) session.Chat().AddChat(msg::GameSpeaker.toString(), welcomeText);
}

} // namespace linkhop
