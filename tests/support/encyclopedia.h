#pragma once

#include "scriptedserver.h" // TestAddress, WaitUntil

#include <memory>

namespace linkhop::test {

// An encyclopedia on the test address, served from a thread of its own with classic titles ("Apple -
// Wikipedia, the free encyclopedia") or today's. Like the real site, its search goes (302) to a title
// matching ignoring case, else to a results page; a redirect rewrites the address by script; history
// and edit pages are at /w/index.php. Links have the id LinkId(target) ("next" on numbered pages),
// "external" leads nowhere; "/204" answers No Content, "/stall" never. It holds Main Page, Apple,
// Banana, Fruit, Talk:Apple, New York City and the redirect Big Apple.
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
    Q_DISABLE_COPY_MOVE(Encyclopedia)

    bool Listen();                          // on a free port
    QString Host() const { return m_host; } // "address:port", a session's site host and domain
    QString Url(QStringView pathAndQuery) const;
    QString ArticleUrl(QStringView title) const;

    void SetStyle(Style style);
    QString ArticleTitle(QStringView title) const; // an article page's title in the current style

    // Before Listen.
    void AddArticle(const QString& title, const QStringList& links, const QString& text = {});
    // "Page 1" ... "Page <count>", each linking to the next, the last one back to Page 1.
    void AddNumberedPages(int count);

    static QString LinkId(QStringView target);

private:
    class Server;
    std::unique_ptr<Server> m_server;
    QString m_host;
};

} // namespace linkhop::test
