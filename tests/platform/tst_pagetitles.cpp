#include "core/pagerules.h"
#include "platform/classictitle.h"
#include "platform/site.h"

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
        QTest::addColumn<QString>("domain");
        QTest::addColumn<QString>("classic");
        // Each row of the table, then where the site is. "/..." is on en.wikipedia.org, the domain
        // wikipedia.org unless given; a result ending in " -" gets the classic suffix.
        // clang-format off
        const char* const rows[][4] = {
            {"Apple - Wikipedia, the free encyclopedia", "/wiki/Apple", "", "Apple -"},
            {"xq - Search results - Wikipedia", "/w/index.php?search=xq", "", "Search -"},
            {"Talk:A: Revision history - Wikipedia", "/w/index.php?title=Talk:A&action=history", "",
             "Talk:A - History -"},
            {"History of A - Wikipedia", "/wiki/Special:History/A", "", "History of A - History -"},
            {"Editing A - Wikipedia", "/w/index.php?title=A&action=edit", "", "Editing A -"},
            {"Creating A - Wikipedia", "/w/index.php?title=A&action=edit&redlink=1", "", "Editing A -"},
            {"View source for A - Wikipedia", "/w/index.php?title=A&action=edit", "", "Editing A -"},
            {"A - Wikipedia", "/wiki/A?veaction=edit", "", "Editing A -"},
            {"Jean-Paul - Sartre - Wikipedia", "/wiki/X", "", "Jean-Paul - Sartre -"},
            {"Talk:A - Wikipedia", "/wiki/Talk:A", "", "Talk:A -"},
            {"A - Wikipedia", "HTTP://EN.M.WIKIPEDIA.ORG/wiki/A", "Wikipedia.Org", "A -"},
            {"A - Wikipedia", "https://notwikipedia.org/wiki/A", "", "A - Wikipedia"},
            {"A - Wikipedia", "http://127.0.0.1:8080/wiki/A", "127.0.0.1:8080", "A -"},
            {"A - Wikipedia", "http://127.0.0.1:8081/wiki/A", "127.0.0.1:8080", "A - Wikipedia"},
        };
        // clang-format on
        for (const auto& [title, url, domain, classic] : rows) {
            const QString result = QString::fromUtf8(classic);
            QTest::addRow("%s | %s", title, url)
                << QString::fromUtf8(title)
                << (url[0] == '/' ? u"https://en.wikipedia.org"_s : QString()) + QString::fromUtf8(url)
                << (domain[0] ? QString::fromUtf8(domain) : u"wikipedia.org"_s)
                << (result.endsWith(u" -") ? result + u" Wikipedia, the free encyclopedia" : result);
        }
    }
    void classicTitle()
    {
        QFETCH(QString, title);
        QFETCH(QString, url);
        QFETCH(QString, domain);
        QFETCH(QString, classic);
        QCOMPARE(ClassicTitle(title, QUrl(url), domain), classic);
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
        const QUrl url(SiteConfig{u"en.wikipedia.org"_s, u"wikipedia.org"_s}.Search(text), QUrl::StrictMode);
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
