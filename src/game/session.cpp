#include "session.h"

#include "panels/frmchat.h"
#include "panels/frmscores.h"

namespace linkhop {

Session::Session(const QString& programFolder, const Services& services, const SiteConfig& site, QObject* parent)
    : QObject(parent), m_options(programFolder), m_services(services), m_site(site)
{
}

Session::~Session()
{
    delete m_chat;
    delete m_scores;
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

void Session::EndProgram(int exitCode)
{
    if (m_ended) return;
    m_ended = true;
    m_services.programEnd->End(exitCode);
}

} // namespace linkhop
