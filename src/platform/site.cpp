#include "site.h"

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

SiteConfig SiteConfig::Compiled()
{
    return {QStringLiteral(LINKHOP_SITE_HOST), QStringLiteral(LINKHOP_SITE_DOMAIN)};
}

QString SiteConfig::MainPage() const { return u"http://"_s % host % u"/wiki/Main_Page"; }

QString SiteConfig::Search(QStringView text) const
{
    return u"http://"_s % host % u"/wiki/Special:Search?search=" % text % u"&go=Go";
}

} // namespace linkhop
