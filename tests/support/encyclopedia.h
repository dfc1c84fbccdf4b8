#pragma once

#include "scriptedserver.h"

#include <QHostAddress>
#include <QString>
#include <QStringList>
#include <QStringView>
#include <memory>

namespace linkhop::test {

// A small encyclopedia on loopback for browser tests: an HTTP/1.1 server on its own thread that
// serves articles from an in-memory table, titled in the classic style ("Apple - Wikipedia, the
// free encyclopedia") or in today's ("Apple - Wikipedia"). It behaves like the real site where the
// game depends on it: the search address goes (302) to an article whose title matches ignoring
// case, otherwise shows a results page; a redirect serves its target at the redirect's address and
// then rewrites the address by script; history and edit pages sit at /w/index.php.
//
// Every article page links to each of its links with the element id LinkId(target), and carries
// the ids "history", "edit", "redlink" (an edit page of a missing article), "external" (the
// external address) and "section" (an anchor on the same page), so that tests can follow links by
// script. The server starts with a small world: Main Page, Apple, Banana, Fruit, Talk:Apple,
// Category:Fruit, List of fruits, 1984, Search engine, Portal:Science, New York City, and the
// redirect Big Apple to New York City.
class Encyclopedia final
{
public:
    enum class Style
    {
        Classic,
        Today,
    };

    explicit Encyclopedia(Style style = Style::Classic);
    ~Encyclopedia();
    Encyclopedia(const Encyclopedia&) = delete;
    Encyclopedia& operator=(const Encyclopedia&) = delete;

    // Port 0 picks a free port.
    bool Listen(quint16 port = 0, const QHostAddress& address = TestAddress());
    void Close();
    quint16 Port() const;
    // "address:port": the site host and the domain of a session that plays on this encyclopedia.
    QString Host() const;
    // "http://" + Host() + pathAndQuery.
    QString Url(QStringView pathAndQuery) const;
    QString ArticleUrl(QStringView title) const;

    void SetStyle(Style style);
    Style CurrentStyle() const;
    // The title this server gives an article page in its current style.
    QString ArticleTitle(QStringView title) const;

    void AddArticle(const QString& title, const QStringList& links, const QString& text = {});
    void AddRedirect(const QString& from, const QString& to);
    // "Page 1" ... "Page <count>", each linking to the next with the id "next"; the last one leads
    // back to Page 1.
    void AddNumberedPages(int count);
    // Where every article's "external" link leads; by default a port on the test address where
    // nothing listens.
    void SetExternalLink(const QString& url);

    // Request targets ("/wiki/Apple", "/wiki/Special:Search?search=..."), as they arrived.
    QStringList Requests() const;
    void ClearRequests();

    static QString LinkId(QStringView target);
    // The path of an article: "/wiki/" + the title with underscores for spaces, percent-encoded.
    static QString ArticlePath(QStringView title);

private:
    class Impl;
    std::unique_ptr<Impl> m_impl;
};

} // namespace linkhop::test
