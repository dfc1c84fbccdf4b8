#pragma once

#include "core/options.h"
#include "core/sessiondata.h"
#include "platform/services.h"
#include "platform/site.h"

#include <QHostAddress>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>

namespace linkhop {

class frmChat;
class frmScores;
class frmWinner;
class frmGame;

// One client: the shared session variables and roster (inherited, so windows read them by their
// own names), the option files of the program's folder, the encyclopedia's site and the services.
// Every window gets the session by reference; nothing of a client lives anywhere else.
class Session final : public QObject, public SessionData
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Session)

public:
    Session(const QString& programFolder, const Services& services, const SiteConfig& site = SiteConfig::Compiled(),
            QObject* parent = nullptr);
    ~Session() override;

    // The address ServerAddress led to when the handshake reached the server; null until then.
    // The session listens to that address alone, so that a name resolving elsewhere later, or to
    // several addresses, cannot put another machine in the server's place.
    QHostAddress ServerHost;

    const QString& ProgramFolder() const { return m_options.Folder(); }
    const SiteConfig& Site() const { return m_site; }
    void SetSite(const SiteConfig& site) { m_site = site; }

    void SaveOption(const QString& key, const QString& value) const { m_options.SaveOption(key, value); }
    QString LoadOption(const QString& key) const { return m_options.LoadOption(key); }

    Prompts& prompts() const { return *m_services.prompts; }
    Launcher& launcher() const { return *m_services.launcher; }
    RouterProbe* router() const { return m_services.router; }
    Browser* CreateBrowser(QWidget* parent) const { return m_services.createBrowser(parent); }

    // Sends through the game window's session socket once the game window has registered its
    // sender; before that (and after it closed) a send goes nowhere.
    void SendData(const QString& text) const
    {
        if (m_gameSender) m_gameSender(text);
    }
    void SetGameSender(std::function<void(const QString&)> sender) { m_gameSender = std::move(sender); }

    // The panels: created on first use after the last UnloadNow (the caller shows them), open
    // until their UnloadNow. Open...() is nullptr while a panel is not open.
    frmChat& Chat();
    frmChat* OpenChat() const;
    frmScores& Scores();
    frmScores* OpenScores() const;
    frmWinner& Winner();
    frmWinner* OpenWinner() const;

    // The game window while it is open, and its browser, which the word chooser drives.
    frmGame* Game() const;
    void SetGame(frmGame* game);
    Browser* GameBrowser() const;

    // Ends the program once; later calls do nothing. Waits that let events run check Ended().
    void EndProgram(int exitCode = 0);
    bool Ended() const { return m_ended; }

private:
    Options m_options;
    Services m_services;
    SiteConfig m_site;
    std::function<void(const QString&)> m_gameSender;
    bool m_ended = false;
    QPointer<frmChat> m_chat;
    QPointer<frmScores> m_scores;
    QPointer<frmWinner> m_winner;
    QPointer<frmGame> m_game;
};

} // namespace linkhop
