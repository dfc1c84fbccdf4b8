#pragma once

#include <QString>
#include <QStringView>

class QUrl;

namespace linkhop {

// Where the encyclopedia lives. Production uses the host compiled in from LINKHOP_SITE_HOST; tests
// point a session at their own encyclopedia on loopback ("127.0.0.2:8080").
struct SiteConfig
{
    QString host;

    static SiteConfig Compiled();

    QString MainPage() const;
    // The search address of a text. The text is percent-encoded, so that the encyclopedia searches
    // for it as typed ("AT&T", "C++", "100%"); the rest of the address is as the game has always
    // written it.
    QString Search(QStringView text) const;

    // Whether an address is a page of the encyclopedia: the site host, or its mobile site
    // (en.m.wikipedia.org for en.wikipedia.org), which shows the same articles. Other languages'
    // sites and other projects under the same domain are not: the race is on one encyclopedia.
    bool IsEncyclopedia(const QUrl& url) const;
};

} // namespace linkhop
