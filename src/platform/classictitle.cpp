#include "classictitle.h"

#include <QUrl>
#include <QUrlQuery>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

constexpr QStringView kSuffix = u" - Wikipedia, the free encyclopedia";

// What an address shows, as the encyclopedia decides it.
struct Address
{
    enum Kind
    {
        Article,
        Search,
        Special,
        History,
        Edit,
    };
    Kind kind = Article;
    QString name; // the page's name as the address gives it: article title or special page
};

bool Is(QStringView value, QStringView word)
{
    return value.compare(word, Qt::CaseInsensitive) == 0;
}

// A title as the encyclopedia reads it: "_" is a space, and spaces around it do not count.
QString Normalised(QString title)
{
    title.replace(u'_', u' ');
    title = title.trimmed();
    if (title.startsWith(u':')) title = title.mid(1).trimmed(); // ":Special:Random" is Special:Random
    return title;
}

// The name after a namespace prefix, when the title is in that namespace (any letter case).
std::optional<QString> InNamespace(const QString& title, QStringView space)
{
    const qsizetype colon = title.indexOf(u':');
    if (colon < 0 || !Is(QStringView(title).left(colon).trimmed(), space)) return std::nullopt;
    return title.mid(colon + 1).trimmed();
}

// PHP reads "+" in a query as a space.
QString QueryValue(const QUrlQuery& query, const QString& key)
{
    return query.queryItemValue(key, QUrl::FullyDecoded).replace(u'+', u' ');
}

Address Classify(const QUrl& url)
{
    const QString path = url.path(QUrl::FullyDecoded);
    const QUrlQuery query(url);
    // The page title, from where the encyclopedia takes it: the article path, the script's path
    // info, or its "title" parameter.
    QString title;
    if (path.startsWith(u"/wiki/")) {
        title = path.mid(6);
    } else if (const qsizetype script = path.indexOf(u"/index.php/"); script >= 0) {
        title = path.mid(script + 11);
    } else if (path.endsWith(u"/index.php") || path == u"/" || path.isEmpty() || path == u"/wiki") {
        title = QueryValue(query, u"title"_s);
    } else {
        // Scripts and files of the site (api.php, images) show no article.
        return {Address::Special, path};
    }
    title = Normalised(title);

    if (const auto special = InNamespace(title, u"Special")) {
        const QString page = special->section(u'/', 0, 0).trimmed();
        const QString subpage = special->section(u'/', 1);
        if (Is(page, u"Search")) return {Address::Search, {}};
        if (Is(page, u"History") || Is(page, u"Diff") || Is(page, u"PermanentLink"))
            return {Address::History, subpage};
        return {Address::Special, *special};
    }
    if (title.isEmpty() && query.hasQueryItem(u"search"_s)) return {Address::Search, {}};

    const QString action = QueryValue(query, u"action"_s).trimmed();
    const QString editor = QueryValue(query, u"veaction"_s).trimmed();
    if (Is(action, u"history")) return {Address::History, title};
    if (Is(action, u"edit") || Is(action, u"submit") || Is(editor, u"edit") || Is(editor, u"editsource"))
        return {Address::Edit, title};
    // Page information, purge, raw text, credits...: about the article, not the article.
    if (!action.isEmpty() && !Is(action, u"view")) return {Address::Special, action % u'/' % title};
    if (query.hasQueryItem(u"diff"_s) || !QueryValue(query, u"oldid"_s).isEmpty())
        return {Address::History, title};
    return {Address::Article, title};
}

// An article's own title ("Apple - Wikipedia", or already classic) with the classic suffix; any
// other title (an error page's) unchanged.
QString ArticleTitle(const QString& title)
{
    if (title.endsWith(kSuffix.mid(3))) return title; // classic, the main page's among them
    static const QString today = u" - Wikipedia"_s;
    if (title.endsWith(today)) return title.chopped(today.size()) % kSuffix;
    return title;
}

} // namespace

QString ClassicTitle(const QString& title, const QUrl& url, const QUrl& origin, const SiteConfig& site)
{
    if (!site.IsEncyclopedia(url)) return title;
    Address address = Classify(url);
    if (address.kind == Address::Article && !origin.isEmpty() && site.IsEncyclopedia(origin)) {
        // Where the player's navigation began: a search or a special page that sent it on.
        const Address began = Classify(origin);
        if (began.kind == Address::Search || began.kind == Address::Special) address = began;
    }
    switch (address.kind) {
    case Address::Search:
        return u"Search"_s % kSuffix;
    case Address::Special:
        return u"Special:"_s % address.name % kSuffix;
    case Address::History:
        return address.name % u" - History" % kSuffix;
    case Address::Edit:
        return u"Editing "_s % address.name % kSuffix;
    case Address::Article:
        break;
    }
    return ArticleTitle(title);
}

bool IsEditor(const QUrl& url, const SiteConfig& site)
{
    return site.IsEncyclopedia(url) && Classify(url).kind == Address::Edit;
}

} // namespace linkhop
