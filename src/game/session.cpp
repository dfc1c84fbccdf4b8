#include "session.h"

#include "game/frmgame.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"

namespace linkhop {

Session::Session(const QString& programFolder, const Services& services, const SiteConfig& site, QObject* parent)
    : QObject(parent), m_options(programFolder), m_services(services), m_site(site)
{
}

Session::~Session()
{
    delete m_chat;
    delete m_scores;
    delete m_winner;
    delete m_game;
}

// A panel after UnloadNow is gone for the session even while its deferred deletion is pending.
frmChat& Session::Chat()
{
    if (!OpenChat()) m_chat = new frmChat(*this);
    return *m_chat;
}

frmChat* Session::OpenChat() const
{
    return m_chat && !m_chat->UnloadAllowed() ? m_chat.data() : nullptr;
}

frmScores& Session::Scores()
{
    if (!OpenScores()) m_scores = new frmScores(*this);
    return *m_scores;
}

frmScores* Session::OpenScores() const
{
    return m_scores && !m_scores->UnloadAllowed() ? m_scores.data() : nullptr;
}

frmWinner& Session::Winner()
{
    if (!OpenWinner()) m_winner = new frmWinner(*this);
    return *m_winner;
}

frmWinner* Session::OpenWinner() const
{
    return m_winner && !m_winner->UnloadAllowed() ? m_winner.data() : nullptr;
}

frmGame* Session::Game() const { return m_game; }

void Session::SetGame(frmGame* game) { m_game = game; }

Browser* Session::GameBrowser() const { return m_game ? m_game->wbMain : nullptr; }

void Session::EndProgram(int exitCode)
{
    if (m_ended) return;
    m_ended = true;
    m_services.programEnd->End(exitCode);
}

} // namespace linkhop
