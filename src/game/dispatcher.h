#pragma once

#include <QByteArrayView>
#include <QString>

namespace linkhop {

class Session;
class frmGame;

// The client's reaction to every message the server sends during the session. Reactions run to
// completion (nested ones included, while the round's first page loads); a fault ends the
// handling of its datagram and keeps what was already changed.
class SessionDispatcher
{
public:
    SessionDispatcher(Session& session, frmGame& game) : m_session(session), m_game(game) {}

    void Handle(const QString& message);
    // Scores and pings: the key under which a later one of the same kind for the same player
    // supersedes a waiting one (UdpEndpoint::SupersedeKey). Empty for every other message.
    static QString SupersedeKey(QByteArrayView datagram);

    // Longest wait for the round's first page before the round starts regardless.
    static constexpr int kFirstPageWaitMs = 20000;
    // A round announced while another announcement waits for its page starts without waiting
    // once this many waits are running.
    static constexpr int kMaxNestedWaits = 4;
    void SetFirstPageWaitMs(int ms) { m_firstPageWaitMs = ms; }

private:
    // Returns the reply to send, empty for none; throws Fault.
    QString React(const QString& message, const QString& verb);
    void StartGame(const QString& message);
    void Open(const QString& url);
    void ShowWordChooser();

    Session& m_session;
    frmGame& m_game;
    int m_firstPageWaitMs = kFirstPageWaitMs;
    // Waits running inside one another, and whether the server has disconnected this client: a
    // server repeating itself must not stack waits or message boxes without end.
    int m_waitDepth = 0;
    bool m_disconnecting = false;
};

} // namespace linkhop
