#pragma once

#include <QString>
#include <QStringView>

class QUrl;

namespace linkhop {

// Whether an address belongs to the encyclopedia: its host is the domain or a name under it
// (en.m.wikipedia.org is under wikipedia.org). A domain written host:port, such as a test
// encyclopedia's 127.0.0.1:8080, also asks for that port.
bool UnderDomain(const QUrl& url, QStringView domain);

// The title of a page in the classic form "Apple - Wikipedia, the free encyclopedia" that the
// game's page rules read. Today's encyclopedia titles its pages differently ("Apple - Wikipedia",
// "Apple: Revision history - Wikipedia", "xyz - Search results - Wikipedia"); the page's address
// settles what the title alone leaves open. Classic titles and pages of other sites pass unchanged.
QString ClassicTitle(const QString& title, const QUrl& url, QStringView domain);

} // namespace linkhop
