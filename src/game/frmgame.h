#pragma once

#include "game/dispatcher.h"
#include "game/navigationmonitor.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QWidget>

namespace linkhop {

class Browser;
class Session;
class UdpEndpoint;

// The window the game is played in: the encyclopedia in `wbMain`, the session socket `wsGame`
// whose datagrams go to the dispatcher, the score poll and the ping. Closing it ends the session
// and the program.
class frmGame final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmGame)

public:
    // Loads the window: InitGame, placement beside the scoreboard, fresh window variables.
    explicit frmGame(Session& session);
    ~frmGame() override;

    void SendData(const QString& Text);
    void InitGame();
    // The reactions to the session socket's datagrams, for callers that feed them directly.
    SessionDispatcher& Dispatcher() { return m_dispatcher; }

    Browser* wbMain = nullptr;
    UdpEndpoint* wsGame = nullptr;
    QTimer* tmrGetScores = nullptr;
    QTimer* tmrPing = nullptr;
    // Watches for the server's silence.
    QTimer* tmrSilence = nullptr;

    // The server is taken for gone once nothing has come from it for this long, although every
    // ping asks it for an answer: two pings unanswered, and half a period more, so that one lost
    // datagram or a slow round trip is no silence. Its return is told as soon as anything comes.
    static constexpr int kPingMs = 10000;
    static constexpr int kServerSilenceMs = 2 * kPingMs + kPingMs / 2;
    void SetServerSilenceMs(int ms);

    // LastReported: what the monitor last reported, or the server last announced by SETRANDOM.
    NavigationRecord Navigation;
    bool Disconnected = false;
    qint32 ScoreIndex = 1;

protected:
    void resizeEvent(QResizeEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void PollScore();
    void Place();
    void ServerHeard();
    void CheckSilence();
    void GameLine(const QString& text);

    Session& m_session;
    QElapsedTimer m_lastHeard;
    int m_silenceMs = kServerSilenceMs;
    bool m_serverSilent = false;
    SessionDispatcher m_dispatcher;
    NavigationMonitor* m_monitor = nullptr;
};

// The end of a successful handshake: the chat window, the scoreboard and the game window open in
// that order (each placed by the one before), the word chooser for the host, then the welcome text.
void OpenSessionWindows(Session& session, bool isHost, const QString& welcomeText);

} // namespace linkhop
