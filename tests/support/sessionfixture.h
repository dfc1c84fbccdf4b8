#pragma once

#include "clientfakes.h"
#include "game/frmgame.h"
#include "panels/frmchat.h"
#include "scriptedserver.h"

#include <QPointer>

namespace linkhop::test {

// A client right after its handshake with a scripted server at TestAddress():7200: `names` in the
// roster (its own first), the session's windows open and the first page loaded.
struct RunningSession
{
    struct Options
    {
        QStringList names{QStringLiteral("ann"), QStringLiteral("bo"), QStringLiteral("cy")};
        bool joinInProgress = false;
        bool withBrowser = true; // false: the session's factory gives no browser at all
        QString encyclopedia{};  // a test encyclopedia's host: played on with the real browser
    };
    RunningSession() : RunningSession(Options()) {}
    explicit RunningSession(const Options& options);

    Session& S() { return *client.session; }
    quint16 Port() const { return quint16(client.session->LocalPort.toUInt()); }

    // Delivers datagrams; returns once a PING sent behind them is answered.
    bool Deliver(const QStringList& datagrams);
    bool Deliver(const QString& datagram) { return Deliver(QStringList{datagram}); }

    QStringList Sent(const QString& verb) const { return server.ReceivedWithVerb(verb); }
    QString Transcript() { return S().OpenChat() ? S().OpenChat()->Transcript() : QString(); }

    TestClient client;
    ScriptedServer server;
    QPointer<frmGame> game;
    QPointer<ScriptedBrowser> browser; // without titles; null with the real browser
    int marks = 0;
};

} // namespace linkhop::test
