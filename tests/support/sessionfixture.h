#pragma once

#include "clientfakes.h"
#include "game/frmgame.h"
#include "scriptedserver.h"

#include <QPointer>
#include <QStringList>

namespace linkhop::test {

// A client right after its handshake with a scripted server at TestAddress():7200: the roster
// holds `names` (the own name first), and the chat, the scoreboard and the game window are open,
// the game window's first page loaded.
struct RunningSession
{
    struct Options
    {
        QStringList names{QStringLiteral("ann"), QStringLiteral("bo"), QStringLiteral("cy")};
        bool joinInProgress = false;
        // The game window's browser: a ScriptedBrowser whose titles name the searched word,
        // unless a factory (and the site it shows) is given.
        BrowserFactory browsers;
        bool withBrowser = true; // false: the session's factory gives no browser at all
        SiteConfig site{QStringLiteral("wiki.test"), QStringLiteral("wiki.test")};
    };
    RunningSession() : RunningSession(Options()) {}
    explicit RunningSession(Options options);

    Session& S() { return *client.session; }
    quint16 Port() const;

    // Delivers datagrams and returns once the client has handled them: a PING sent behind them
    // is answered only after they were.
    bool Deliver(const QStringList& datagrams);
    bool Deliver(const QString& datagram) { return Deliver(QStringList{datagram}); }

    QStringList Sent(const QString& verb) const { return server.ReceivedWithVerb(verb); }
    QString Transcript();
    // The text of a label of the scoreboard.
    QString ScoreLabel(const char* name);

    TestClient client;
    ScriptedServer server;
    QPointer<frmGame> game;
    QPointer<ScriptedBrowser> browser; // null with another factory
    int marks = 0;
};

} // namespace linkhop::test
