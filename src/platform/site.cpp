#include "site.h"

#include <QUrl>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

SiteConfig SiteConfig::Compiled()
{
    return {QStringLiteral(LINKHOP_SITE_HOST), QStringLiteral(LINKHOP_SITE_DOMAIN)};
}

QString SiteConfig::MainPage() const { return u"http://"_s % host % u"/wiki/Main_Page"; }

QString SiteConfig::Search(QStringView text) const
{
    // Left as it was typed, "&" would end the search text and "+" would read as a space.
    const QString escaped = QString::fromLatin1(QUrl::toPercentEncoding(text.toString()));
    return u"http://"_s % host % u"/wiki/Special:Search?search=" % escaped % u"&go=Go";
}

} // namespace linkhop
