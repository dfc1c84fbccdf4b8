#pragma once

#include <QString>
#include <QStringView>

namespace linkhop {

// Where the encyclopedia lives. Production uses the values compiled in from LINKHOP_SITE_HOST and
// LINKHOP_SITE_DOMAIN; tests point a session at their own encyclopedia on loopback.
struct SiteConfig
{
    QString host;
    QString domain;

    static SiteConfig Compiled();

    QString MainPage() const;
    // The search address of a text. The text is percent-encoded, so that the encyclopedia searches
    // for it as typed ("AT&T", "C++", "100%"); the rest of the address is as the game has always
    // written it.
    QString Search(QStringView text) const;
};

} // namespace linkhop
