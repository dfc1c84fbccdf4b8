// The server's settings: option files, the article list, the welcome text and the page rules.
#include "core/options.h"
#include "server/serverconfig.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;

class tst_serverconfig : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void welcome_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        QTest::newRow("both") << u"%p players on %v"_s << u"3 players on 1.04 (beta)"_s;
        QTest::newRow("repeated") << u"%p%p"_s << u"33"_s;
        QTest::newRow("other escapes kept") << u"100% %x %P"_s << u"100% %x %P"_s;
        QTest::newRow("trailing percent") << u"all %"_s << u"all %"_s;
        QTest::newRow("doubled percent") << u"%%p"_s << u"%3"_s;
    }
    void welcome()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(ExpandWelcome(text, 3), expected);
    }

    void forbiddenTitles_data()
    {
        QTest::addColumn<QString>("title");
        QTest::addColumn<bool>("forbidden");
        for (const char16_t* title :
             {u"List of rivers", u"Apple - History", u"Editing Apple", u"Talk:Apple", u"Category:Fruit",
              u"Wikipedia:About", u"Help:Contents", u"Special:Random", u"User:Ann", u"Portal:Science",
              u"Search engine", u"1984", u" -5 ", u"2.5"})
            QTest::newRow(QStringView(title).toUtf8().constData()) << QStringView(title).toString() << true;
        for (const char16_t* title : {u"Apple", u"Lists of colours", u"list of rivers", u"User talk:Ann",
                                      u"1984 in film", u"History", u"K2", u"Talk"})
            QTest::newRow(QStringView(title).toUtf8().constData()) << QStringView(title).toString() << false;
    }
    void forbiddenTitles()
    {
        QFETCH(QString, title);
        QFETCH(bool, forbidden);
        QCOMPARE(IsForbiddenTitle(title), forbidden);
    }

    void optionFilesAndArticles()
    {
        QTemporaryDir folder;
        const Options options(folder.path());
        options.SaveOption(u"Welcome"_s, u"Hello %p"_s);
        options.SaveOption(u"Password"_s, u"se=cr;et"_s);
        options.SaveOption(u"BannedNames"_s, u",Eve,,Mallory ,"_s);
        options.SaveOption(u"BannedIPs"_s, u"10.1.2.3,nonsense,192.168.0.0/16"_s);
        QFile articles(folder.filePath(u"articles.txt"_s));
        QVERIFY(articles.open(QIODevice::WriteOnly));
        articles.write(
            "Apple\n\n  S\xc3\xa3o Paulo  \nList of rivers\nA;B\nE=mc2\n\xe6\x9d\xb1\xe4\xba\xac\nBanana");
        articles.close();

        QStringList warnings;
        const ServerConfig config = LoadServerConfig(folder.path(), &warnings);
        QCOMPARE(config.Welcome, u"Hello %p"_s);
        QCOMPARE(config.Password, u"secret"_s);
        QCOMPARE(config.BannedNames, (QStringList{u"Eve"_s, u"Mallory"_s}));
        QCOMPARE(config.BannedSubnets.size(), 2);
        QVERIFY(QHostAddress(u"192.168.7.7"_s).isInSubnet(config.BannedSubnets[1]));
        QVERIFY(!QHostAddress(u"10.1.2.4"_s).isInSubnet(config.BannedSubnets[0]));
        // Kept: plain titles, trimmed; left out: a forbidden page, ";", "=", and what the wire cannot carry.
        QCOMPARE(config.Articles, (QStringList{u"Apple"_s, u"São Paulo"_s, u"Banana"_s}));
        QCOMPARE(warnings.size(), 2);
    }

    void missingArticleListFallsBack()
    {
        QTemporaryDir folder;
        QStringList warnings;
        const ServerConfig config = LoadServerConfig(folder.path(), &warnings);
        QCOMPARE(config.Articles, FallbackArticles());
        QVERIFY(config.Password.isEmpty() && config.Welcome.isEmpty() && config.BannedSubnets.isEmpty());
        QCOMPARE(warnings.size(), 1);
        QVERIFY(warnings[0].contains(u"built-in"_s));
    }

    void shippedArticleList()
    {
        // The list copied beside the programs: big, usable as it is, no title twice.
        QStringList warnings;
        const QStringList titles =
            LoadArticles(QCoreApplication::applicationDirPath() + u"/articles.txt"_s, &warnings);
        QVERIFY2(warnings.isEmpty(), qPrintable(warnings.join(u'\n')));
        QVERIFY(titles.size() >= 1000);
        QCOMPARE(QSet<QString>(titles.cbegin(), titles.cend()).size(), titles.size());
    }
};

QTEST_GUILESS_MAIN(tst_serverconfig)
#include "tst_serverconfig.moc"
