#include "session.h"

namespace linkhop {

Session::Session(const QString& programFolder, const Services& services, const SiteConfig& site, QObject* parent)
    : QObject(parent), m_options(programFolder), m_services(services), m_site(site)
{
}

Session::~Session() = default;

void Session::EndProgram(int exitCode)
{
    if (m_ended) return;
    m_ended = true;
    m_services.programEnd->End(exitCode);
}

} // namespace linkhop
