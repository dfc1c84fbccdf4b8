#pragma once

#include "site.h"

#include <QString>
#include <QStringView>

class QUrl;

namespace linkhop {

// The title of a page in the classic form "Apple - Wikipedia, the free encyclopedia" that the
// game's page rules read. Today's encyclopedia titles its pages differently ("Apple - Wikipedia",
// "Recent changes - Wikipedia", "Apple: Difference between revisions - Wikipedia"), so the page's
// address decides what kind of page it is, and the title names it:
// - a special page, or any other address of the site that shows no article, or an article
//   reached by an action other than viewing it (page information, purge, ...):
//   "Special:<name> - ..."
// - search results: "Search - ..."
// - history, a diff or an old revision: "<article> - History - ..."
// - an editor: "Editing <article> - ..."
// - an article: its title with the classic suffix.
// `origin` is where the player's navigation to this page began, before the encyclopedia
// redirected it; empty when the program opened the page. A page the player reached through the
// encyclopedia's search (the search box, its suggestions, the search address) counts as a search,
// and one reached through a special page (Special:Random) as that special page, even when it ends
// on an article. Pages of other sites pass unchanged.
QString ClassicTitle(const QString& title, const QUrl& url, const QUrl& origin, const SiteConfig& site);

// Whether an address of the encyclopedia shows an editor ("action=edit", "veaction=edit", ...).
bool IsEditor(const QUrl& url, const SiteConfig& site);

} // namespace linkhop
