// What the server asks the encyclopedia, against the real engine: whether a route could have been
// clicked, and the shortest route between two articles on a generated wiki whose routes are known;
// and rounds on a real server that asks it.
#include "linkgraph.h"
#include "mediawiki.h"
#include "othersite.h"
#include "scriptedclient.h"
#include "scriptedserver.h"
#include "server/gameserver.h"
#include "server/routes.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;
using namespace linkhop::test;

namespace {

constexpr quint16 kAnn = 47311, kBo = 47312;

RouteVerdict Check(WikiApi& api, const QStringList& route)
{
    std::optional<RouteVerdict> verdict;
    CheckRoute(api, route, [&](const RouteVerdict& v) { verdict = v; });
    WaitUntil([&] { return verdict.has_value(); }, 30000);
    return verdict.value_or(RouteVerdict{RouteVerdict::Unchecked, -1, u"no answer at all"_s});
}

} // namespace

class tst_encyclopedia : public QObject
{
    Q_OBJECT

    MediaWiki m_wiki;
    MediaWiki m_generated;
    LinkGraph m_graph{2000, 7};
    OtherSite m_other;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_wiki.Start(), qPrintable(m_wiki.Error()));
        QVERIFY2(m_generated.Start(m_graph.pages), qPrintable(m_generated.Error()));
        QVERIFY(m_other.Listen());
        qInfo("a generated wiki of %lld pages was built in %lld ms", qint64(m_graph.pages.size()),
              m_generated.BuildMs());
    }

    void checkRoute_data()
    {
        QTest::addColumn<QStringList>("route");
        QTest::addColumn<int>("impossibleStep"); // 0: possible
        const auto row = [](const char* tag, const char* route, int step) {
            QTest::newRow(tag) << QString::fromUtf8(route).split(u'|') << step;
        };
        row("links", "Apple|Banana|Fruit", 0);
        row("through a redirect", "Apple|New York City", 0);
        row("titles needing escapes", "AT&T|C++|Café|Łódź", 0);
        row("back and forward", "Apple|Banana|Fruit|Banana|Fruit|Mercury", 0);
        row("back to the initial article, unreported", "Apple|Banana|Mercury", 0);
        row("through the main page, unreported", "Volcano|Glacier|Mercury", 0);
        row("the same page twice", "Apple|Banana|Banana", 0);
        row("forged in one click", "Volcano|Łódź", 1);
        row("forged later", "Apple|Banana|Fruit|Canyon", 3);
        row("no such article", "Apple|Banana|Zebra crossing", 2);
    }
    void checkRoute()
    {
        QFETCH(QStringList, route);
        QFETCH(int, impossibleStep);
        WikiApi api(m_wiki.Url(u""));
        const RouteVerdict verdict = Check(api, route);
        QCOMPARE(verdict.kind, impossibleStep ? RouteVerdict::Impossible : RouteVerdict::Possible);
        QCOMPARE(verdict.step, impossibleStep);
        QVERIFY(api.RequestsSent() <= 5);
    }

    // An encyclopedia that is gone, slow, or answers garbage leaves the route unchecked, in time.
    void unanswered_data()
    {
        QTest::addColumn<QString>("site"); // "stall": a server that never answers
        QTest::newRow("nobody listening") << u"http://"_s + TestAddress().toString() + u":9"_s;
        QTest::newRow("a web page, not the API") << m_other.Url(u"");
        QTest::newRow("never answers") << u"stall"_s;
        QTest::newRow("not a site") << u"http://"_s;
    }
    void unanswered()
    {
        QFETCH(QString, site);
        QTcpServer silent; // accepts connections and never says a word
        if (site == u"stall") {
            QVERIFY(silent.listen(TestAddress()));
            site = u"http://"_s + TestAddress().toString() + u':' + QString::number(silent.serverPort());
        }
        WikiApi api(site);
        api.SetTimeout(500);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(Check(api, {u"Apple"_s, u"Banana"_s}).kind, RouteVerdict::Unchecked);
        QVERIFY(clock.elapsed() < 5000);
        QVERIFY(!api.LastError().isEmpty());
    }

    // The shortest route, by the number of clicks, on a wiki whose distances are known.
    void shortestRoute_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<int>("clicks");    // the true distance
        QTest::addColumn<int>("maxClicks"); // the search's limit
        for (int clicks = 2; clicks <= 6; ++clicks) {
            const QString to = m_graph.At(u"Place 1"_s, clicks);
            QTest::addRow("%d clicks", clicks) << u"Place 1"_s << to << clicks << 6;
        }
        QTest::newRow("longer than allowed") << u"Place 1"_s << m_graph.At(u"Place 1"_s, 5) << 5 << 4;
        QTest::newRow("redirect at the end") << u"Place 1"_s << u"Alias of Place 14"_s
                                             << m_graph.Distances(u"Place 1"_s).value(u"Place 14"_s) << 6;
    }
    void shortestRoute()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(int, clicks);
        QFETCH(int, maxClicks);
        QVERIFY(!to.isEmpty());
        WikiApi api(m_generated.Url(u""));
        RouteSearch search(api, SearchBudget{maxClicks, 1000, 60000});
        QSignalSpy finished(&search, &RouteSearch::Finished);
        search.Start(from, to);
        QVERIFY(finished.wait(60000));
        const auto result = finished.first().first().value<ShortestRoute>();
        if (clicks < 0 || clicks > maxClicks) {
            QCOMPARE(result.outcome, ShortestRoute::NoneWithin);
            QVERIFY(result.route.isEmpty());
            return;
        }
        QCOMPARE(result.outcome, ShortestRoute::Found);
        QCOMPARE(result.route.size(), clicks + 1);
        QCOMPARE(result.route.first(), from);
        for (qsizetype i = 1; i < result.route.size(); ++i)
            QVERIFY2(m_graph.Links(result.route[i - 1], result.route[i]),
                     qPrintable(result.route.join(u" --> "_s)));
        qInfo("%d clicks: %llu requests, %lld ms", clicks, result.requests, result.ms);
    }

    // Rounds on a server that asks the encyclopedia: Bo races, Ann (who chose the words) stays put.
    void vouchedWins_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QStringList>("reports"); // Bo's
        QTest::addColumn<bool>("encyclopediaGone");
        QTest::addColumn<QString>("told"); // the game line after Bo's route, or why Bo is out
        QTest::addColumn<int>("clicks");   // Bo's clicks when Bo wins
        const auto row = [](const char* tag, const char* initial, const char* destination,
                            const QStringList& reports, bool gone, const char* told, int clicks = 0) {
            QTest::newRow(tag) << QString::fromUtf8(initial) << QString::fromUtf8(destination) << reports
                               << gone << QString::fromUtf8(told) << clicks;
        };
        row("one click along a link", "Apple", "Łódź", {u"Łódź"_s}, false,
            "The shortest route takes 1 click: Apple --> Łódź. Bo found one.", 1);
        row("through a redirect", "Apple", "New York City", {u"New York City"_s}, false,
            "The shortest route takes 1 click: Apple --> New York City. Bo found one.", 1);
        row("back and forward", "Apple", "Mercury (planet)",
            {u"Banana"_s, u"Fruit"_s, u"Banana"_s, u"Fruit"_s, u"Mercury"_s, u"Mercury (planet)"_s}, false,
            "The shortest route takes 2 clicks: Apple --> Mercury --> Mercury (planet). Bo took 6 clicks.",
            6);
        row("one page reported again and again", "Apple", "Fruit",
            QStringList(150, u"Banana"_s) << u"Fruit"_s, false,
            "The shortest route takes 1 click: Apple --> Fruit. Bo took 2 clicks.", 2);
        row("forged in one click", "Volcano", "Łódź", {u"Łódź"_s}, false,
            "Bo is out of the round: no link leads from \"Volcano\" to \"Łódź\".");
        row("forged after real clicks", "Volcano", "Łódź", {u"Glacier"_s, u"Apple"_s, u"Canyon"_s, u"Łódź"_s},
            false, "Bo is out of the round: no link leads from \"Apple\" to \"Canyon\".");
        row("the encyclopedia gone mid-round", "Apple", "Łódź", {u"Banana"_s, u"Łódź"_s}, true,
            "The encyclopedia did not answer: the shortest route is not known.", 2);
    }
    void vouchedWins()
    {
        QFETCH(QString, initial);
        QFETCH(QString, destination);
        QFETCH(QStringList, reports);
        QFETCH(bool, encyclopediaGone);
        QFETCH(QString, told);
        QFETCH(int, clicks);
        ServerConfig config;
        config.Site = m_wiki.Url(u"");
        config.RouteCheckMs = 3000;
        GameServer server(config);
        QVERIFY(WaitUntil([&] { return server.Start(TestAddress()); }));
        ScriptedClient ann(kAnn), bo(kBo);
        QCOMPARE(ann.Join(u"Ann"_s).constLast(), u"PLAYERLIST COUNT=1;P1=Ann;"_s);
        QCOMPARE(bo.Join(u"Bo"_s).constLast(), u"PLAYERLIST COUNT=2;P1=Ann;P2=Bo;"_s);
        ann.Send(msg::SetWords(initial, destination));
        QCOMPARE(bo.NextWithVerb(u"STARTGAME"_s), msg::StartGame({initial, destination}));
        if (encyclopediaGone) m_wiki.StopServing();
        const auto serveAgain = qScopeGuard([&] {
            if (encyclopediaGone) QVERIFY(m_wiki.Serve());
        });
        ann.Skip();
        for (const QString& page : reports)
            bo.Send(msg::Navigate(u"Bo", page));
        if (told.startsWith(u"Bo is out")) {
            QCOMPARE(bo.NextWithVerb(u"DISQUALIFY"_s, 10000), u"DISQUALIFY"_s);
            QCOMPARE(ann.NextWithVerb(u"CHAT"_s), msg::Chat(msg::GameSpeaker, told));
            QVERIFY(server.GameRoom().RoundRunning()); // Ann still races
            return;
        }
        QCOMPARE(ann.NextWithVerb(u"WINNER"_s, 10000), u"WINNER NAME=Bo;"_s);
        QCOMPARE(server.GameRoom().FindPlayer(u"Bo")->RoundClicks, clicks);
        bo.Send(msg::SendMyPath(u"Bo", (QStringList{initial} + reports).join(u'\r')));
        QCOMPARE(Verb(ann.NextWithVerb(u"PATHIS"_s)), u"PATHIS"_s);
        QCOMPARE(ann.NextWithVerb(u"CHAT"_s, 20000), msg::Chat(msg::GameSpeaker, told));
    }
};

QTEST_GUILESS_MAIN(tst_encyclopedia)
#include "tst_encyclopedia.moc"
