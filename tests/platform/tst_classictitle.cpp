#include "platform/classictitle.h"

#include <QUrl>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;

class tst_classictitle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void classicTitle_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("domain");
        QTest::addColumn<QString>("classic");
        const QString wp = u"wikipedia.org"_s;
        const QString en = u"https://en.wikipedia.org"_s;
        const QString suffix = u" - Wikipedia, the free encyclopedia"_s;

        // Every row of the rewrite table, in order.
        QTest::newRow("classic article passes")
            << u"Apple"_s + suffix << en + u"/wiki/Apple" << wp << u"Apple"_s + suffix;
        QTest::newRow("main page passes") << u"Wikipedia, the free encyclopedia"_s << en + u"/wiki/Main_Page"
                                          << wp << u"Wikipedia, the free encyclopedia"_s;
        QTest::newRow("classic search page passes")
            << u"Search"_s + suffix << en + u"/wiki/Special:Search?search=xq&go=Go" << wp
            << u"Search"_s + suffix;
        QTest::newRow("search results")
            << u"xq - Search results - Wikipedia"_s << en + u"/wiki/Special:Search?search=xq&go=Go" << wp
            << u"Search"_s + suffix;
        QTest::newRow("search results, other wording")
            << u"Search results for \"xq\" - Wikipedia"_s
            << en + u"/w/index.php?search=xq&title=Special%3ASearch&go=Go" << wp << u"Search"_s + suffix;
        QTest::newRow("search by index.php alone")
            << u"xq - Search results - Wikipedia"_s << en + u"/w/index.php?search=xq" << wp
            << u"Search"_s + suffix;
        QTest::newRow("search with path argument")
            << u"Search - Wikipedia"_s << en + u"/wiki/Special:Search/xq" << wp << u"Search"_s + suffix;
        QTest::newRow("history") << u"Apple: Revision history - Wikipedia"_s
                                 << en + u"/w/index.php?title=Apple&action=history" << wp
                                 << u"Apple - History"_s + suffix;
        QTest::newRow("history, colon in the article") << u"Talk:Apple: Revision history - Wikipedia"_s
                                                       << en + u"/w/index.php?title=Talk:Apple&action=history"
                                                       << wp << u"Talk:Apple - History"_s + suffix;
        QTest::newRow("history, unknown wording")
            << u"History of Apple - Wikipedia"_s << u"https://en.m.wikipedia.org/wiki/Special:History/Apple"_s
            << wp << u"History of Apple - History"_s + suffix;
        QTest::newRow("edit") << u"Editing Apple - Wikipedia"_s
                              << en + u"/w/index.php?title=Apple&action=edit" << wp
                              << u"Editing Apple"_s + suffix;
        QTest::newRow("red link") << u"Creating Qwx - Wikipedia"_s
                                  << en + u"/w/index.php?title=Qwx&action=edit&redlink=1" << wp
                                  << u"Editing Qwx"_s + suffix;
        QTest::newRow("protected page source")
            << u"View source for Apple - Wikipedia"_s << en + u"/w/index.php?title=Apple&action=edit" << wp
            << u"Editing Apple"_s + suffix;
        QTest::newRow("visual editor, unknown wording")
            << u"Apple - Wikipedia"_s << en + u"/wiki/Apple?veaction=edit" << wp
            << u"Editing Apple"_s + suffix;
        QTest::newRow("editor title set by script before the address")
            << u"Editing Apple - Wikipedia"_s << en + u"/wiki/Apple" << wp << u"Editing Apple"_s + suffix;
        QTest::newRow("article") << u"Apple - Wikipedia"_s << en + u"/wiki/Apple" << wp
                                 << u"Apple"_s + suffix;

        // Namespaces keep their prefixes; the rules judge them later.
        QTest::newRow("talk") << u"Talk:Apple - Wikipedia"_s << en + u"/wiki/Talk:Apple" << wp
                              << u"Talk:Apple"_s + suffix;
        QTest::newRow("category") << u"Category:Fruit - Wikipedia"_s << en + u"/wiki/Category:Fruit" << wp
                                  << u"Category:Fruit"_s + suffix;
        QTest::newRow("special page") << u"Special:Random - Wikipedia"_s << en + u"/wiki/Special:Random" << wp
                                      << u"Special:Random"_s + suffix;
        QTest::newRow("project page") << u"Wikipedia:About - Wikipedia"_s << en + u"/wiki/Wikipedia:About"
                                      << wp << u"Wikipedia:About"_s + suffix;
        QTest::newRow("hyphen in the article") << u"Jean-Paul - Sartre - Wikipedia"_s << en + u"/wiki/X" << wp
                                               << u"Jean-Paul - Sartre"_s + suffix;
        QTest::newRow("article named Search")
            << u"Search - Wikipedia"_s << en + u"/wiki/Search" << wp << u"Search"_s + suffix;

        // Where the site is.
        QTest::newRow("mobile site") << u"Apple - Wikipedia"_s << u"https://en.m.wikipedia.org/wiki/Apple"_s
                                     << wp << u"Apple"_s + suffix;
        QTest::newRow("host in capitals") << u"Apple - Wikipedia"_s << u"HTTP://EN.WIKIPEDIA.ORG/wiki/Apple"_s
                                          << u"Wikipedia.Org"_s << u"Apple"_s + suffix;
        QTest::newRow("other site") << u"Apple - Wikipedia"_s << u"https://example.com/wiki/Apple"_s << wp
                                    << u"Apple - Wikipedia"_s;
        QTest::newRow("lookalike host") << u"Apple - Wikipedia"_s << u"https://notwikipedia.org/wiki/Apple"_s
                                        << wp << u"Apple - Wikipedia"_s;
        QTest::newRow("domain only in the path")
            << u"Apple - Wikipedia"_s << u"https://example.com/wikipedia.org/wiki/Apple"_s << wp
            << u"Apple - Wikipedia"_s;
        QTest::newRow("sister site") << u"File:Apple.jpg - Wikimedia Commons"_s
                                     << u"https://commons.wikimedia.org/wiki/File:Apple.jpg"_s << wp
                                     << u"File:Apple.jpg - Wikimedia Commons"_s;
        QTest::newRow("domain with port") << u"Apple - Wikipedia"_s << u"http://127.0.0.1:8080/wiki/Apple"_s
                                          << u"127.0.0.1:8080"_s << u"Apple"_s + suffix;
        QTest::newRow("other port") << u"Apple - Wikipedia"_s << u"http://127.0.0.1:8081/wiki/Apple"_s
                                    << u"127.0.0.1:8080"_s << u"Apple - Wikipedia"_s;
        QTest::newRow("default port named") << u"Apple - Wikipedia"_s << u"http://wiki.test/wiki/Apple"_s
                                            << u"wiki.test:80"_s << u"Apple"_s + suffix;
        QTest::newRow("no domain configured")
            << u"Apple - Wikipedia"_s << en + u"/wiki/Apple" << QString() << u"Apple - Wikipedia"_s;
        QTest::newRow("blank page") << u"about:blank"_s << u"about:blank"_s << wp << u"about:blank"_s;

        // Titles that are not the encyclopedia's pass, even on its site.
        QTest::newRow("address as title while loading")
            << u"en.wikipedia.org/wiki/Apple"_s << en + u"/wiki/Apple" << wp
            << u"en.wikipedia.org/wiki/Apple"_s;
        QTest::newRow("empty title") << QString() << en + u"/wiki/Apple" << wp << QString();
        QTest::newRow("suffix alone") << u" - Wikipedia"_s << en + u"/wiki/Apple" << wp << suffix;
        QTest::newRow("en dash of another language")
            << u"Apfel \u2013 Wikipedia"_s << u"https://de.wikipedia.org/wiki/Apfel"_s << wp
            << u"Apfel \u2013 Wikipedia"_s;
    }
    void classicTitle()
    {
        QFETCH(QString, title);
        QFETCH(QString, url);
        QFETCH(QString, domain);
        QFETCH(QString, classic);
        QCOMPARE(ClassicTitle(title, QUrl(url), domain), classic);
    }
};

QTEST_APPLESS_MAIN(tst_classictitle)
#include "tst_classictitle.moc"
