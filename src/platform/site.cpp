#include "site.h"

#include <QHostAddress>
#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

SiteConfig SiteConfig::Compiled()
{
    return {QStringLiteral(LINKHOP_SITE_HOST)};
}

QString SiteConfig::MainPage() const
{
    return u"http://"_s % host % u"/wiki/Main_Page";
}

QString SiteConfig::Search(QStringView text) const
{
    // Left as it was typed, "&" would end the search text and "+" would read as a space.
    const QString escaped = QString::fromLatin1(QUrl::toPercentEncoding(text.toString()));
    return u"http://"_s % host % u"/wiki/Special:Search?search=" % escaped % u"&go=Go";
}

bool SiteConfig::IsEncyclopedia(const QUrl& url) const
{
    if (url.scheme() != u"http" && url.scheme() != u"https") return false;
    const QUrl site(u"http://"_s + host.trimmed());
    const QString siteHost = site.host();
    if (siteHost.isEmpty()) return false;
    // A site written with its port (a test encyclopedia) is that port only; otherwise the usual ones.
    const int port = url.port(url.scheme() == u"https" ? 443 : 80);
    if (site.port() >= 0 ? port != site.port() : port != 80 && port != 443) return false;
    const QString pageHost = url.host();
    if (pageHost == siteHost) return true;
    // en.wikipedia.org's mobile site is en.m.wikipedia.org; an address has none.
    const qsizetype dot = siteHost.indexOf(u'.');
    if (dot <= 0 || !QHostAddress(siteHost).isNull()) return false;
    return pageHost == siteHost.left(dot) % u".m" % siteHost.mid(dot);
}

} // namespace linkhop
