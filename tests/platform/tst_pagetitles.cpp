#include "core/pagerules.h"
#include "platform/classictitle.h"

#include <QUrl>
#include <QUrlQuery>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;

// The tables the game reads titles with: today's titles in classic form, the forbidden pages.
class tst_pagetitles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void classicTitle_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("origin");
        QTest::addColumn<QString>("site");
        QTest::addColumn<QString>("classic");
        // A page, where the player's navigation began (empty: the program opened it), where the site
        // is. "/..." is on en.wikipedia.org, also the site unless given; a result ending in " -" gets
        // the classic suffix.
        // clang-format off
        const char* const rows[][5] = {
            // Articles, in either style, on the site or its mobile site; other sites unchanged.
            {"Apple - Wikipedia, the free encyclopedia", "/wiki/Apple", "", "", "Apple -"},
            {"Apple - Wikipedia", "/wiki/Apple", "/wiki/Apple", "", "Apple -"},
            {"Wikipedia, the free encyclopedia", "/wiki/Main_Page", "", "", "Wikipedia, the free encyclopedia"},
            {"Jean-Paul - Sartre - Wikipedia", "/wiki/X", "", "", "Jean-Paul - Sartre -"},
            {"Talk:A - Wikipedia", "/wiki/Talk:A", "", "", "Talk:A -"},
            {"Big Apple - Wikipedia", "/w/index.php?title=Big_Apple&redirect=no", "", "", "Big Apple -"},
            {"A - Wikipedia", "/w/index.php?title=A&printable=yes&action=view", "", "", "A -"},
            {"404 Not Found", "/wiki/Nothing", "", "", "404 Not Found"},
            {"A - Wikipedia", "HTTP://EN.M.WIKIPEDIA.ORG/wiki/A", "", "", "A -"},
            {"Banana - Wikipedia", "https://it.wikipedia.org/wiki/Banana", "", "", "Banana - Wikipedia"},
            {"Banaan - Wikipedia", "https://nl.m.wikipedia.org/wiki/Banaan", "", "", "Banaan - Wikipedia"},
            {"A - Wikipedia", "https://notwikipedia.org/wiki/A", "", "", "A - Wikipedia"},
            {"A - Wikipedia", "http://127.0.0.1:8080/wiki/A", "", "127.0.0.1:8080", "A -"},
            {"A - Wikipedia", "http://127.0.0.1:8081/wiki/A", "", "127.0.0.1:8080", "A - Wikipedia"},
            // Searches: the results, and wherever the player's own search led.
            {"xq - Search results - Wikipedia", "/w/index.php?search=xq", "", "", "Search -"},
            {"Search results for \"xq\" - Wikipedia", "/wiki/Special:Search?search=xq&go=Go", "", "", "Search -"},
            {"Apple - Wikipedia", "/wiki/Apple", "", "", "Apple -"},
            {"Apple - Wikipedia", "/wiki/Apple", "/w/index.php?title=Special%3ASearch&search=apple&go=Go", "", "Search -"},
            {"Apple - Wikipedia", "/wiki/Apple", "/w/index.php?title=Special:Search&suggestion=Apple&wprov=acrw10", "", "Search -"},
            {"Apple - Wikipedia", "/wiki/Apple", "/wiki/special:search?search=apple", "", "Search -"},
            {"Apple - Wikipedia", "/wiki/Apple", "https://it.wikipedia.org/wiki/Speciale:Ricerca", "", "Apple -"},
            // Special pages by their address, whatever their title says.
            {"Recent changes - Wikipedia", "/wiki/Special:RecentChanges", "", "", "Special:RecentChanges -"},
            {"Recent changes - Wikipedia, the free encyclopedia", "/wiki/Special:RecentChanges", "", "", "Special:RecentChanges -"},
            {"Pages that link to \"Apple\" - Wikipedia", "/wiki/Special:WhatLinksHere/Apple", "", "", "Special:WhatLinksHere/Apple -"},
            {"Create account - Wikipedia", "/w/index.php?title=Special:CreateAccount&returnto=A", "", "", "Special:CreateAccount -"},
            {"Random - Wikipedia", "/wiki/%53pecial%3ARandom", "", "", "Special:Random -"},
            {"Random - Wikipedia", "/wiki/_special_:_Random", "", "", "Special:Random -"},
            {"Random - Wikipedia", "/w/index.php/Special:Random", "", "", "Special:Random -"},
            {"Banana - Wikipedia", "/wiki/Banana", "/wiki/Special:Random", "", "Special:Random -"},
            {"Information for \"Apple\" - Wikipedia", "/w/index.php?title=Apple&action=info", "", "", "Special:info/Apple -"},
            {"Apple - Wikipedia", "/w/index.php?title=Apple&action=purge", "", "", "Special:purge/Apple -"},
            {"MediaWiki API help - Wikipedia", "/w/api.php", "", "", "Special:/w/api.php -"},
            // Histories, diffs and old revisions; editors.
            {"Talk:A: Revision history - Wikipedia", "/w/index.php?title=Talk:A&action=history", "", "", "Talk:A - History -"},
            {"History of A - Wikipedia", "/wiki/Special:History/A", "", "", "A - History -"},
            {"Apple: Difference between revisions - Wikipedia", "/w/index.php?title=Apple&diff=prev&oldid=2", "", "", "Apple - History -"},
            {"Apple: Difference between revisions - Wikipedia, the free encyclopedia", "/w/index.php?diff=3", "", "", " - History -"},
            {"Apple - Wikipedia", "/w/index.php?title=Apple&oldid=2", "", "", "Apple - History -"},
            {"Editing A - Wikipedia", "/w/index.php?title=A&action=edit", "", "", "Editing A -"},
            {"Creating A - Wikipedia", "/w/index.php?title=A&action=edit&redlink=1", "", "", "Editing A -"},
            {"View source for A - Wikipedia", "/w/index.php?title=A&action=edit", "", "", "Editing A -"},
            {"A - Wikipedia", "/wiki/A?veaction=edit", "", "", "Editing A -"},
        };
        // clang-format on
        const auto address = [](const char* url) -> QString {
            return (url[0] == '/' ? u"https://en.wikipedia.org"_s : QString()) + QString::fromUtf8(url);
        };
        for (const auto& [title, url, origin, site, classic] : rows) {
            const QString result = QString::fromUtf8(classic);
            QTest::addRow("%s | %s | %s", title, url, origin)
                << QString::fromUtf8(title) << address(url) << (origin[0] ? address(origin) : QString())
                << (site[0] ? QString::fromUtf8(site) : u"en.wikipedia.org"_s)
                << (result.endsWith(u" -") ? result + u" Wikipedia, the free encyclopedia" : result);
        }
    }
    void classicTitle()
    {
        QFETCH(QString, title);
        QFETCH(QString, url);
        QFETCH(QString, origin);
        QFETCH(QString, site);
        QFETCH(QString, classic);
        QCOMPARE(ClassicTitle(title, QUrl(url), QUrl(origin), SiteConfig{site}), classic);
    }

    // The search address carries the text as typed, whatever it holds.
    void searchAddress_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("search"); // what the encyclopedia reads as the search text
        for (const char* text : {"AT&T", "C++", "100%", "Tom & Jerry", "a=b;c#d",
                                 "\xc5\x81\xc3\xb3"
                                 "d\xc5\xba",
                                 "1+1=2"})
            QTest::newRow(text) << QString::fromUtf8(text) << QString::fromUtf8(text);
    }
    void searchAddress()
    {
        QFETCH(QString, text);
        QFETCH(QString, search);
        const QUrl url(SiteConfig{u"en.wikipedia.org"_s}.Search(text), QUrl::StrictMode);
        QVERIFY(url.isValid());
        QCOMPARE(url.toString(QUrl::RemoveQuery), u"http://en.wikipedia.org/wiki/Special:Search"_s);
        const QUrlQuery query(url);
        QCOMPARE(query.queryItems(QUrl::FullyDecoded).size(), 2);
        QCOMPARE(query.queryItemValue(u"search"_s, QUrl::FullyDecoded), search);
        QCOMPARE(query.queryItemValue(u"go"_s), u"Go"_s);
    }

    void pageCategory_data()
    {
        QTest::addColumn<QString>("article");
        QTest::addColumn<QString>("word");
        // Each rule in order, an earlier one winning, the edges of a number, allowed look-alikes.
        // clang-format off
        const std::pair<const char*, const char*> rows[] = {
            {"List of rivers", "list"}, {"Apple - History", "history"}, {"Editing Apple", "edit"},
            {"Talk:Apple", "talk"}, {"Category:Fruit", "category"}, {"Wikipedia:About", "wiki"},
            {"Help:Contents", "help"}, {"Special:Random", "special"}, {"User:Ann", "user"},
            {"Portal:Science", "portal"}, {"Search engine", "search"}, {"1984", "number"},
            {"Talk:X - History", "history"}, {" -2.5 ", "number"}, {"1,000,000", "number"}, {"1,00", ""},
            {"1e5", ""}, {"User talk:Ann", ""}, {"Lists of rivers", ""}, {"list of rivers", ""},
            {"talk:Apple", ""}, {"Apple - History of apples", ""},
        };
        // clang-format on
        for (const auto& [article, word] : rows)
            QTest::newRow(article) << QString::fromUtf8(article) << QString::fromUtf8(word);
    }

    void pageCategory()
    {
        QFETCH(QString, article);
        QFETCH(QString, word);
        QCOMPARE(PageCategory(article), word);
    }
};

QTEST_APPLESS_MAIN(tst_pagetitles)
#include "tst_pagetitles.moc"
