#include "clientfakes.h"
#include "game/navigationmonitor.h"

#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

// A monitor in a round from "Start", recording the URL of what it sends, and its captions.
struct Rig
{
    TestClient client;
    Session& session = *client.session;
    NavigationRecord record;
    QStringList sent;
    QStringList captions;
    NavigationMonitor monitor{session, record,
                              [this](const QString& text) { sent.append(text.section(u"URL="_s, 1)); },
                              [this](const QString& caption) { captions.append(caption); }};

    Rig()
    {
        session.PlayerName = u"ann"_s;
        session.Words = WordList::FromStartGame(u"STARTGAME COUNT=1;WORD0=Start;WORD1=Zebra;"_s);
        session.CurrentArticle = u"Start"_s;
        session.RoutePath = u"Start\r"_s;
        session.InRound = true;
    }
    void Titles(const QStringList& articles)
    {
        for (const QString& article : articles)
            monitor.OnTitleChange(article + u" - Wikipedia, the free encyclopedia"_s);
    }
};

} // namespace

class tst_navigationmonitor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void titlesInRound()
    {
        Rig rig;
        // Not the initial article; a page once, again after another; forbidden pages by their word.
        rig.Titles({u"Start"_s, u"Apple"_s, u"Apple"_s, u"Start"_s, u"Jean-Paul - Sartre"_s, u"Talk:Apple"_s,
                    u"Talk:Banana"_s, u"Apple"_s});
        QCOMPARE(rig.sent, (QStringList{u"Apple;"_s, u"Jean-Paul - Sartre;"_s, u"talk;"_s, u"Apple;"_s}));
        QCOMPARE(rig.session.RoutePath, u"Start\rApple\rJean-Paul - Sartre\rApple\r"_s);
        QCOMPARE(rig.captions.mid(4, 2),
                 (QStringList{u"Linkhop - Jean-Paul - Sartre"_s, u"Linkhop - talk"_s}));
        QCOMPARE(rig.record.LastReported, u"Apple"_s);

        // Titles naming no article, or not the encyclopedia's.
        rig.monitor.OnTitleChange(u"Wikipedia, the free encyclopedia"_s);
        QCOMPARE(rig.captions.last(), u"Linkhop"_s);
        QCOMPARE(rig.session.CurrentArticle, QString());
        rig.monitor.OnTitleChange(u"Banana - Wikipedia"_s);
        rig.monitor.OnTitleChange(u"Banana - wikipedia, the free encyclopedia"_s);
        QCOMPARE(rig.session.CurrentArticle, QString());

        // The server's random word counts as reported.
        rig.record.LastReported = u"Pear"_s;
        rig.Titles({u"Pear"_s});
        QCOMPARE(rig.sent.size(), 4);
        QCOMPARE(rig.session.CurrentArticle, u"Pear"_s);
    }

    void beforeNavigate2_data()
    {
        QTest::addColumn<QString>("site");
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("leaves");
        const auto row = [](const char* tag, const char* site, const char* url, bool leaves) {
            QTest::newRow(tag) << QString::fromUtf8(site) << QString::fromUtf8(url) << leaves;
        };
        row("capitals", "Wiki.Test", "HTTP://WIKI.TEST/W/INDEX.PHP?action=edit", false);
        row("port", "127.0.0.1:8080", "http://127.0.0.1:8080/wiki/Apple", false);
        row("other port", "127.0.0.1:8080", "http://127.0.0.1:8081/wiki/Apple", true);
        row("other site", "wiki.test", "http://example.com/wiki/Apple", true);
        row("blank page", "wiki.test", "about:blank", true);
        row("secure", "en.wikipedia.org", "https://en.wikipedia.org/wiki/Apple", false);
        row("mobile", "en.wikipedia.org", "https://EN.M.wikipedia.org/wiki/Apple", false);
        row("other language", "en.wikipedia.org", "https://it.wikipedia.org/wiki/Banana", true);
        row("other language, mobile", "en.wikipedia.org", "https://nl.m.wikipedia.org/wiki/Banaan", true);
        row("other project", "en.wikipedia.org", "https://en.wiktionary.org/wiki/banana", true);
        row("look-alike host", "en.wikipedia.org", "http://en.wikipedia.org.example.com/wiki/A", true);
        row("site in the query", "en.wikipedia.org", "http://example.com/?en.wikipedia.org/wiki/A", true);
        row("odd port", "en.wikipedia.org", "http://en.wikipedia.org:8080/wiki/A", true);
    }
    void beforeNavigate2()
    {
        QFETCH(QString, site);
        QFETCH(QString, url);
        QFETCH(bool, leaves);
        Rig rig;
        rig.session.SetSite({site});
        rig.record.LastReported = u"Apple"_s;
        rig.monitor.OnBeforeNavigate2(url);
        rig.monitor.OnBeforeNavigate2(url);
        // Leaving is reported every time and touches neither the route nor LastReported.
        QCOMPARE(rig.sent, leaves ? QStringList(2, u"nowiki;"_s) : QStringList());
        QCOMPARE(rig.session.CurrentArticle, leaves ? u"nowiki"_s : u"Start"_s);
        QCOMPARE(rig.record.LastReported, u"Apple"_s);
        QCOMPARE(rig.session.RoutePath, u"Start\r"_s);
        QVERIFY(rig.captions.isEmpty());
    }
};

QTEST_MAIN(tst_navigationmonitor)
#include "tst_navigationmonitor.moc"
