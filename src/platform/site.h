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
    // The search address of a text, the text inserted unchanged.
    QString Search(QStringView text) const;
};

} // namespace linkhop
