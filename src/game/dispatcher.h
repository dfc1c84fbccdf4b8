#pragma once

#include "core/udpendpoint.h"

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
    // What a datagram waiting for its turn is when a flood fills the session's inbox: what the
    // round hangs on and only the server says is kept (round starts and ends, winners, routes,
    // disqualifications, words, pages to open, players coming and going, the game's own chat
    // lines); a score, a ping from a player or the server's ping is superseded by a later one of
    // its kind and player; chat and anything else is expendable.
    static UdpEndpoint::Triage TriageOf(QByteArrayView datagram);

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
