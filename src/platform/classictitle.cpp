#include "classictitle.h"

#include <QUrl>
#include <QUrlQuery>
#include <optional>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

// What kind of page an address shows, where the title cannot tell.
enum class Page
{
    Any,
    Search,  // Special:Search, or index.php?search= that found no article
    History, // action=history
    Edit,    // action=edit (red links too) or the visual editor
};

// One rewrite: on a page of that kind, a title matching `pattern` becomes `rewrite`. Each text
// holds at most one "*", which stands for the same run of characters in both.
struct TitleRow
{
    Page page;
    QStringView pattern;
    QStringView rewrite;
};

// First matching row wins; a title no row matches stays as it is.
constexpr TitleRow kTitleRows[] = {
    // Classic titles, the main page's among them.
    {Page::Any, u"*Wikipedia, the free encyclopedia", u"*Wikipedia, the free encyclopedia"},
    {Page::Search, u"* - Wikipedia", u"Search - Wikipedia, the free encyclopedia"},
    {Page::History, u"*: Revision history - Wikipedia", u"* - History - Wikipedia, the free encyclopedia"},
    {Page::History, u"* - Wikipedia", u"* - History - Wikipedia, the free encyclopedia"},
    {Page::Edit, u"Editing * - Wikipedia", u"Editing * - Wikipedia, the free encyclopedia"},
    {Page::Edit, u"Creating * - Wikipedia", u"Editing * - Wikipedia, the free encyclopedia"},
    {Page::Edit, u"View source for * - Wikipedia", u"Editing * - Wikipedia, the free encyclopedia"},
    {Page::Edit, u"* - Wikipedia", u"Editing * - Wikipedia, the free encyclopedia"},
    // Articles and every namespace (Talk:, Category:, ...), the prefix kept.
    {Page::Any, u"* - Wikipedia", u"* - Wikipedia, the free encyclopedia"},
};

// The run that "*" stands for when `text` matches `pattern`; a pattern without "*" must equal the
// text and yields an empty run.
std::optional<QStringView> Capture(QStringView text, QStringView pattern)
{
    const qsizetype star = pattern.indexOf(u'*');
    if (star < 0) return text == pattern ? std::optional<QStringView>(QStringView()) : std::nullopt;
    const QStringView head = pattern.left(star);
    const QStringView tail = pattern.mid(star + 1);
    if (text.size() < head.size() + tail.size() || !text.startsWith(head) || !text.endsWith(tail))
        return std::nullopt;
    return text.mid(head.size(), text.size() - head.size() - tail.size());
}

QString Rewrite(QStringView rewrite, QStringView run)
{
    const qsizetype star = rewrite.indexOf(u'*');
    if (star < 0) return rewrite.toString();
    return rewrite.left(star) % run % rewrite.mid(star + 1);
}

bool IsOneOf(const QString& value, std::initializer_list<QStringView> options)
{
    for (QStringView option : options)
        if (value.compare(option, Qt::CaseInsensitive) == 0) return true;
    return false;
}

Page PageOf(const QUrl& url)
{
    const QUrlQuery query(url);
    const QString path = url.path(QUrl::FullyDecoded);
    const QString action = query.queryItemValue(u"action"_s, QUrl::FullyDecoded);
    const QString editor = query.queryItemValue(u"veaction"_s, QUrl::FullyDecoded);
    if (action.compare(u"history", Qt::CaseInsensitive) == 0 ||
        path.startsWith(u"/wiki/Special:History/", Qt::CaseInsensitive))
        return Page::History;
    if (IsOneOf(action, {u"edit", u"submit"}) || IsOneOf(editor, {u"edit", u"editsource"})) return Page::Edit;
    const QString title = query.queryItemValue(u"title"_s, QUrl::FullyDecoded);
    if (path.compare(u"/wiki/Special:Search", Qt::CaseInsensitive) == 0 ||
        path.startsWith(u"/wiki/Special:Search/", Qt::CaseInsensitive) ||
        title.compare(u"Special:Search", Qt::CaseInsensitive) == 0 ||
        (path.endsWith(u"/index.php") && query.hasQueryItem(u"search"_s)))
        return Page::Search;
    return Page::Any;
}

} // namespace

bool UnderDomain(const QUrl& url, QStringView domain)
{
    QString wanted = domain.trimmed().toString().toLower();
    if (wanted.isEmpty() || url.host().isEmpty()) return false;
    int wantedPort = -1;
    const qsizetype colon = wanted.lastIndexOf(u':');
    if (colon >= 0 && colon > wanted.lastIndexOf(u']')) {
        bool ok = false;
        wantedPort = wanted.mid(colon + 1).toInt(&ok);
        if (!ok) return false;
        wanted.truncate(colon);
    }
    if (wanted.startsWith(u'[') && wanted.endsWith(u']')) wanted = wanted.mid(1, wanted.size() - 2);
    if (wantedPort >= 0) {
        const int defaultPort = url.scheme() == u"https" ? 443 : url.scheme() == u"http" ? 80 : -1;
        if (url.port(defaultPort) != wantedPort) return false;
    }
    const QString host = url.host().toLower();
    return host == wanted || host.endsWith(QString(u'.' + wanted));
}

QString ClassicTitle(const QString& title, const QUrl& url, QStringView domain)
{
    if (!UnderDomain(url, domain)) return title;
    const Page page = PageOf(url);
    for (const TitleRow& row : kTitleRows) {
        if (row.page != Page::Any && row.page != page) continue;
        if (const auto run = Capture(title, row.pattern)) return Rewrite(row.rewrite, *run);
    }
    return title;
}

} // namespace linkhop
