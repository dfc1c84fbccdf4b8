// What the server asks the encyclopedia, against the real engine: a wiki of 6,000 pages, built once
// (a page of 3,000 links, a hub that half the pages link to, a file and the articles that show it,
// a template edited after the build whose new link the link tables do not hold yet, redirects from
// other namespaces and a double redirect), asked through a proxy that counts each request as the
// wiki sees it and can slow the wiki down or make it refuse. Step by step, the honest routes stand
// and the forged ones fall; the search finds shortest routes; the requests keep to their budget;
// and rounds on a real server under the forgeries a racer would try.
#include "apiproxy.h"
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
const QString kContact = u"linkhop-tests@example.invalid"_s;

// Pages for the honest routes a racer takes that the link tables alone do not explain.
QList<MediaWiki::Page> RacePages()
{
    const auto page = [](const QString& title, const QString& text) { return MediaWiki::Page{title, {text}}; };
    return {
        page(u"Template:Coast"_s, u"Coasts have [[Glacier|glaciers]]."_s),
        page(u"Harbour"_s, u"A '''harbour'''. {{Coast}} See the [[Index of places]], "
                           u"[[Wikipedia:Shortcut to Canyon|the canyon]] and [[Old name of the harbour]]."_s),
        page(u"Wikipedia:Shortcut to Canyon"_s, u"#REDIRECT [[Canyon]]"_s),
        page(u"Old name of the harbour"_s, u"#REDIRECT [[Former harbour]]"_s),
        page(u"Former harbour"_s, u"#REDIRECT [[Desert]]"_s),
        page(u"Lighthouse"_s, u"A '''lighthouse''' guides ships. [[File:Linkhop.png|48px]] [[Harbour]]"_s),
    };
}

// The template's edit after the build: its new link is in what a reader sees, not in the tables.
const QString kCoastEdited = u"Coasts have [[Glacier|glaciers]] and [[Lagoon|lagoons]]."_s;

struct Verdicts
{
    QList<StepVerdict> verdicts;
    int impossible = 0; // index in the reports of the first impossible step, 0 for none
};

// The steps of one racer's reports as a referee asks about them: each new page from the one
// reported before it; Back, Forward and the initial article ask nothing.
Verdicts CheckReports(WikiEncyclopedia& encyclopedia, const QString& initial, const QStringList& reports)
{
    encyclopedia.RoundStarts(initial, reports.constLast(), [](const ShortestRoute&) {});
    Verdicts result;
    QSet<QString> seen{initial};
    QString last = initial;
    QList<int> asked;
    for (qsizetype i = 0; i < reports.size(); ++i) {
        if (!seen.contains(reports[i])) {
            seen.insert(reports[i]);
            asked.append(int(i) + 1);
            encyclopedia.CheckStep(1, last, reports[i], [&](const StepVerdict& v) { result.verdicts.append(v); });
        }
        last = reports[i];
    }
    WaitUntil([&] { return result.verdicts.size() == asked.size(); }, 30000);
    for (qsizetype i = 0; i < result.verdicts.size(); ++i)
        if (result.verdicts[i].kind == StepVerdict::Impossible && result.impossible == 0) result.impossible = asked[i];
    return result;
}

// A check's own requests, without the search's.
qsizetype CheckRequests(const ApiProxy& proxy)
{
    qsizetype count = 0;
    for (const ApiProxy::Request& request : proxy.RequestLog())
        if (!request.target.contains("linkshere") && !request.target.contains("generator=links")) ++count;
    return count;
}

} // namespace

class tst_encyclopedia : public QObject
{
    Q_OBJECT

    MediaWiki m_wiki;
    LinkGraph m_graph{5250, 7};
    ApiProxy m_proxy;
    OtherSite m_other;

    RequestBudget Budget(quint64 searchRequests) const
    {
        RequestBudget budget;
        budget.SearchRequests = searchRequests;
        return budget;
    }

    std::unique_ptr<GameServer> Serve(const std::function<void(ServerConfig&)>& adjust = {})
    {
        ServerConfig config;
        config.Site = m_proxy.Url();
        config.Contact = kContact;
        if (adjust) adjust(config);
        auto server = std::make_unique<GameServer>(config);
        if (!WaitUntil([&] { return server->Start(TestAddress()); })) return nullptr;
        return server;
    }

    // Ann, who chooses the words, and Bo, who races, join; the round begins on these words.
    static bool Round(ScriptedClient& ann, ScriptedClient& bo, const QString& initial, const QString& destination)
    {
        if (Verb(ann.Join(u"Ann"_s).constLast()) != u"PLAYERLIST" || Verb(bo.Join(u"Bo"_s).constLast()) != u"PLAYERLIST")
            return false;
        return Next(ann, bo, initial, destination);
    }
    static bool Next(ScriptedClient& ann, ScriptedClient& bo, const QString& initial, const QString& destination)
    {
        ann.Send(msg::SetWords(initial, destination));
        const QString start = msg::StartGame({initial, destination});
        return bo.NextWithVerb(u"STARTGAME"_s) == start && ann.NextWithVerb(u"STARTGAME"_s) == start;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(m_wiki.Start(MediaWiki::StandardPages() + RacePages(), m_graph.pages), qPrintable(m_wiki.Error()));
        QVERIFY2(m_wiki.Edit(u"Template:Coast"_s, kCoastEdited), qPrintable(m_wiki.Error()));
        QVERIFY(m_proxy.Listen(m_wiki.Host()));
        QVERIFY(m_other.Listen());
        qInfo("a wiki of %lld pages was built in %lld ms",
              qint64(MediaWiki::StandardPages().size() + RacePages().size() + m_graph.pages.size()),
              m_wiki.BuildMs());
    }

    void init() { m_proxy.SetDelay(0); }

    // The link tables lag behind the template's edit, as they do on a busy site: the step that
    // relies on the edit is one only a fresh parse explains.
    void templateLinkLags()
    {
        WikiApi api(m_wiki.Url(u""), kContact);
        api.StartRound();
        std::optional<WikiApi::Reply> tables, parse;
        api.Ask(WikiApi::kRoundLane,
                {{u"action"_s, u"query"_s}, {u"titles"_s, u"Harbour"_s}, {u"prop"_s, u"links"_s},
                 {u"pltitles"_s, u"Lagoon|Glacier"_s}},
                [&](const WikiApi::Reply& r) { tables = r; });
        api.Ask(WikiApi::kRoundLane,
                {{u"action"_s, u"parse"_s}, {u"page"_s, u"Harbour"_s}, {u"prop"_s, u"links"_s}},
                [&](const WikiApi::Reply& r) { parse = r; });
        QVERIFY(WaitUntil([&] { return tables && parse; }, 10000));
        const QJsonArray links = tables->json[u"query"][u"pages"][0][u"links"].toArray();
        QCOMPARE(links.size(), 1);
        QCOMPARE(links[0][u"title"].toString(), u"Glacier"_s);
        QVERIFY(QJsonDocument(parse->json).toJson().contains("\"Lagoon\""));
    }

    // Step by step: whether each route could have been clicked, and what asking cost.
    void steps_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QStringList>("reports");
        QTest::addColumn<int>("impossible"); // the first report that could not have been clicked, 1-based
        QTest::addColumn<int>("requests");   // most requests to the wiki, the round's first included
        const auto row = [](const char* tag, const char* route, int impossible, int requests) {
            QStringList reports = QString::fromUtf8(route).split(u'|');
            const QString initial = reports.takeFirst();
            QTest::newRow(tag) << initial << reports << impossible << requests;
        };
        row("links", "Apple|Banana|Fruit", 0, 3);
        row("through a redirect", "Apple|New York City", 0, 4);
        row("titles needing escapes", "AT&T|C++|Café|Łódź", 0, 4);
        row("back and forward", "Apple|Banana|Fruit|Banana|Fruit|Mercury", 0, 4);
        row("back to the initial article, unreported", "Apple|Banana|Mercury", 0, 3);
        row("through the main page, unreported", "Volcano|Glacier|Mercury", 0, 3);
        row("an image, then a page from its file usage", "Apple|File:Linkhop.png|Lighthouse", 0, 3);
        row("a link a template edit added, tables not yet updated", "Harbour|Lagoon", 0, 4);
        row("a redirect from another namespace", "Harbour|Canyon", 0, 4);
        row("a double redirect, then its target", "Harbour|Former harbour|Desert", 0, 5);
        row("from a page of 3,000 links", "Harbour|Index of places|Place 15", 0, 3);
        row("from a page of 3,000 links, through a redirect", "Harbour|Index of places|Place 14", 0, 5);
        row("forged in one click", "Volcano|Łódź", 1, 6);
        row("forged later", "Apple|Banana|Fruit|Canyon", 3, 9);
        row("forged from a page of 3,000 links", "Harbour|Index of places|Place 4001", 2, 8);
        row("no such article", "Apple|Banana|Zebra crossing", 2, 3);
        row("a title the wiki cannot hold", "Apple|Banana|Talk:", 2, 3);
    }
    void steps()
    {
        QFETCH(QString, initial);
        QFETCH(QStringList, reports);
        QFETCH(int, impossible);
        QFETCH(int, requests);
        WikiEncyclopedia encyclopedia(m_proxy.Url(), kContact, Budget(0), {});
        m_proxy.Clear();
        const Verdicts result = CheckReports(encyclopedia, initial, reports);
        for (const StepVerdict& verdict : result.verdicts)
            QVERIFY2(verdict.kind == StepVerdict::Possible || verdict.kind == StepVerdict::Impossible,
                     qPrintable(verdict.why));
        QCOMPARE(result.impossible, impossible);
        QCOMPARE_LE(m_proxy.Requests(), qsizetype(requests));
        qInfo("%lld requests", qint64(m_proxy.Requests()));
    }

    // An encyclopedia that is gone, slow, or answers garbage leaves the step unchecked, in time.
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
        WikiEncyclopedia encyclopedia(site, kContact, Budget(0), {});
        encyclopedia.Api().SetTimeout(500);
        QElapsedTimer clock;
        clock.start();
        const Verdicts result = CheckReports(encyclopedia, u"Apple"_s, {u"Banana"_s});
        QCOMPARE(result.verdicts.size(), 1);
        QCOMPARE(result.verdicts[0].kind, StepVerdict::Unchecked);
        QVERIFY(!result.verdicts[0].why.isEmpty());
        QVERIFY(clock.elapsed() < 5000);
    }

    // A busy encyclopedia's 429 and 503 are waited out as long as it asks, or 1 s, 2 s ... when it
    // does not say; one that asks for longer than a winner can wait leaves the step unchecked at once.
    void retryAfter_data()
    {
        QTest::addColumn<int>("refusals");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("retryAfter");
        QTest::addColumn<int>("waitMs"); // the least time between the refusals and the next request
        QTest::addColumn<bool>("checked");
        QTest::newRow("429, wait 1 s") << 1 << 429 << QByteArray("1") << 1000 << true;
        QTest::newRow("503, wait 2 s") << 1 << 503 << QByteArray("2") << 2000 << true;
        QTest::newRow("429 twice, no wait said: back-off") << 2 << 429 << QByteArray() << 3000 << true;
        QTest::newRow("503, wait two minutes") << 1 << 503 << QByteArray("120") << -1 << false;
    }
    void retryAfter()
    {
        QFETCH(int, refusals);
        QFETCH(int, status);
        QFETCH(QByteArray, retryAfter);
        QFETCH(int, waitMs);
        QFETCH(bool, checked);
        WikiEncyclopedia encyclopedia(m_proxy.Url(), kContact, Budget(0), {});
        m_proxy.Clear();
        m_proxy.Refuse(refusals, status, retryAfter);
        const auto refused = qScopeGuard([&] { m_proxy.Refuse(0, 0, {}); });
        const Verdicts result = CheckReports(encyclopedia, u"Apple"_s, {u"Banana"_s});
        QCOMPARE(result.verdicts.size(), 1);
        QCOMPARE(result.verdicts[0].kind, checked ? StepVerdict::Possible : StepVerdict::Unchecked);
        const QList<ApiProxy::Request>& log = m_proxy.RequestLog();
        if (waitMs < 0) {
            QCOMPARE(log.size(), refusals);
            return;
        }
        QCOMPARE_GT(log.size(), refusals);
        QCOMPARE_GE(log[refusals].ms - log[0].ms, qint64(waitMs));
        const QByteArray agent = log.constLast().userAgent;
        QVERIFY2(agent.startsWith(QByteArray("LinkhopServer/1.04 (" + kContact.toLatin1() + ';')), agent.constData());
    }

    // The order requests go in, their pace, and the shares that bound them.
    void budget()
    {
        WikiApi api(m_proxy.Url(), kContact);
        RequestBudget budget;
        budget.Rate = 20;
        budget.Burst = 2;
        budget.RoundRequests = 13;
        api.SetBudget(budget);
        api.StartRound();
        api.Grant(1, 3);
        api.Grant(2, 2);
        QStringList answered;
        const auto ask = [&](quint64 lane, const QString& mark) {
            api.Ask(lane, {{u"action"_s, u"query"_s}, {u"titles"_s, mark}}, [&answered, mark](const WikiApi::Reply& r) {
                answered.append(mark + u':' + QString::number(r.status));
            });
        };
        for (const QString& mark : {u"S1"_s, u"S2"_s})
            ask(WikiApi::kSearchLane, mark);
        for (const QString& mark : {u"A1"_s, u"A2"_s, u"A3"_s, u"A4"_s})
            ask(1, mark);
        for (const QString& mark : {u"B1"_s, u"B2"_s})
            ask(2, mark);
        ask(WikiApi::kRoundLane, u"R1"_s);
        api.Hurry(2);
        m_proxy.Clear();
        QVERIFY(WaitUntil([&] { return answered.size() == 9; }, 10000));
        // The hurried racer first, the round's own, the racers by turns, the search last; racer 1
        // was granted three requests, so its fourth is refused unsent.
        QCOMPARE(answered, (QStringList{u"B1:0"_s, u"B2:0"_s, u"R1:0"_s, u"A1:0"_s, u"A2:0"_s, u"A3:0"_s,
                                        u"A4:2"_s, u"S1:0"_s, u"S2:0"_s}));
        QCOMPARE(m_proxy.Requests(), 8);
        const QList<ApiProxy::Request>& log = m_proxy.RequestLog();
        // Two at once, then one every 50 ms; the search only while the racers keep a reserve.
        for (qsizetype i = 2; i < log.size(); ++i)
            QCOMPARE_GE(log[i].ms - log[0].ms, qint64((i - 1) * 50 - 10));
        // The round's cap: 13 requests, 8 sent; the racers' shares are spent, the search's is not.
        for (int i = 0; i < 6; ++i)
            ask(WikiApi::kSearchLane, u"T%1"_s.arg(i));
        QVERIFY(WaitUntil([&] { return answered.size() == 15; }, 10000));
        QCOMPARE(answered.mid(9), (QStringList{u"T0:0"_s, u"T1:0"_s, u"T2:0"_s, u"T3:0"_s, u"T4:0"_s, u"T5:3"_s}));
        // A new round cancels what is left of the old one.
        ask(1, u"Old"_s);
        api.StartRound();
        QCOMPARE(answered.constLast(), u"Old:4"_s);
    }

    // The shortest route, by the number of clicks, on a wiki whose distances are known.
    void shortestRoute_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<int>("clicks");      // the true distance
        QTest::addColumn<int>("maxClicks");   // the search's limit
        QTest::addColumn<int>("maxRequests"); // the search's budget
        QTest::addColumn<int>("outcome");
        for (int clicks = 2; clicks <= 6; ++clicks)
            QTest::addRow("%d clicks", clicks) << u"Place 1"_s << m_graph.At(u"Place 1"_s, clicks) << clicks << 6
                                               << 400 << int(ShortestRoute::Found);
        QTest::newRow("longer than allowed") << u"Place 1"_s << m_graph.At(u"Place 1"_s, 5) << 5 << 4 << 400
                                             << int(ShortestRoute::NoneWithin);
        const QHash<QString, int> distances = m_graph.Distances(u"Place 1"_s);
        int aliased = 7;
        while (distances.value(LinkGraph::Name(aliased), 99) > 6)
            aliased += 7;
        QTest::newRow("redirect at the end") << u"Place 1"_s << LinkGraph::Alias(aliased)
                                             << distances.value(LinkGraph::Name(aliased)) << 6 << 400
                                             << int(ShortestRoute::Found);
        // Half of all places link to the hub: its backlinks take more requests than the budget
        // has, and the search goes forward from the start instead.
        QTest::newRow("to a hub, on a tight budget")
            << u"Place 1"_s << LinkGraph::Hub() << distances.value(LinkGraph::Hub()) << 6 << 8
            << int(ShortestRoute::Found);
        QTest::newRow("budget spent") << u"Place 1"_s << m_graph.At(u"Place 1"_s, 6) << 6 << 6 << 3
                                      << int(ShortestRoute::OverBudget);
    }
    void shortestRoute()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(int, clicks);
        QFETCH(int, maxClicks);
        QFETCH(int, maxRequests);
        QFETCH(int, outcome);
        QVERIFY(!to.isEmpty());
        WikiApi api(m_proxy.Url(), kContact);
        RequestBudget budget;
        budget.Rate = budget.Burst = 1000; // the search alone: the pace is not what is tested here
        budget.SearchRequests = 1000;
        api.SetBudget(budget);
        api.StartRound();
        RouteSearch search(api, SearchBudget{maxClicks, quint64(maxRequests), 60000});
        QSignalSpy finished(&search, &RouteSearch::Finished);
        m_proxy.Clear();
        search.Start(from, to);
        QVERIFY(finished.wait(60000));
        const auto result = finished.first().first().value<ShortestRoute>();
        QCOMPARE(int(result.outcome), outcome);
        QCOMPARE_LE(m_proxy.Requests(), qsizetype(maxRequests));
        QCOMPARE(qsizetype(result.requests), m_proxy.Requests());
        qInfo("%d clicks: %llu requests, %lld ms", clicks, result.requests, result.ms);
        if (outcome != ShortestRoute::Found) {
            QVERIFY(result.route.isEmpty());
            return;
        }
        QCOMPARE(result.route.size(), clicks + 1);
        QCOMPARE(result.route.first(), from);
        for (qsizetype i = 1; i < result.route.size(); ++i)
            QVERIFY2(m_graph.Links(result.route[i - 1], result.route[i]), qPrintable(result.route.join(u" --> "_s)));
    }

    // Rounds on a server that asks the encyclopedia: Bo races, Ann (who chose the words) stays put.
    void vouchedWins_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QStringList>("reports"); // Bo's
        QTest::addColumn<bool>("encyclopediaGone");
        QTest::addColumn<QString>("told"); // the game line after Bo's route, or why Bo is out; empty: any
        QTest::addColumn<int>("clicks");   // Bo's clicks when Bo wins
        const auto row = [](const char* tag, const char* initial, const char* destination, const QStringList& reports,
                            bool gone, const char* told, int clicks = 0) {
            QTest::newRow(tag) << QString::fromUtf8(initial) << QString::fromUtf8(destination) << reports << gone
                               << QString::fromUtf8(told) << clicks;
        };
        row("one click along a link", "Apple", "Łódź", {u"Łódź"_s}, false,
            "The shortest route takes 1 click: Apple --> Łódź. Bo found one.", 1);
        row("through a redirect", "Apple", "New York City", {u"New York City"_s}, false,
            "The shortest route takes 1 click: Apple --> New York City. Bo found one.", 1);
        row("back and forward", "Apple", "Mercury (planet)",
            {u"Banana"_s, u"Fruit"_s, u"Banana"_s, u"Fruit"_s, u"Mercury"_s, u"Mercury (planet)"_s}, false,
            "The shortest route takes 2 clicks: Apple --> Mercury --> Mercury (planet). Bo took 6 clicks.", 6);
        row("one page reported again and again", "Apple", "Fruit", QStringList(150, u"Banana"_s) << u"Fruit"_s,
            false, "The shortest route takes 1 click: Apple --> Fruit. Bo took 2 clicks.", 2);
        row("an image and its file usage", "Apple", "Harbour",
            {u"File:Linkhop.png"_s, u"Lighthouse"_s, u"Harbour"_s}, false, "", 3);
        row("a template's new link, a shortcut, a double redirect", "Harbour", "Desert",
            {u"Lagoon"_s, u"Harbour"_s, u"Canyon"_s, u"Harbour"_s, u"Former harbour"_s, u"Desert"_s}, false, "", 6);
        row("through a page of 3,000 links", "Harbour", "Place 14", {u"Index of places"_s, u"Place 14"_s}, false,
            "The shortest route takes 2 clicks: Harbour --> Index of places --> Place 14. Bo found one.", 2);
        row("forged in one click", "Volcano", "Łódź", {u"Łódź"_s}, false,
            "Bo is out of the round: no link leads from \"Volcano\" to \"Łódź\".");
        row("forged after real clicks", "Volcano", "Łódź", {u"Glacier"_s, u"Apple"_s, u"Canyon"_s, u"Łódź"_s}, false,
            "Bo is out of the round: no link leads from \"Apple\" to \"Canyon\".");
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
        const auto server = Serve();
        QVERIFY(server);
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(Round(ann, bo, initial, destination));
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
            QVERIFY(server->GameRoom().RoundRunning()); // Ann still races
            return;
        }
        QCOMPARE(ann.NextWithVerb(u"WINNER"_s, 10000), u"WINNER NAME=Bo;"_s);
        QCOMPARE(server->GameRoom().FindPlayer(u"Bo")->RoundClicks, clicks);
        bo.Send(msg::SendMyPath(u"Bo", (QStringList{initial} + reports).join(u'\r')));
        QCOMPARE(Verb(ann.NextWithVerb(u"PATHIS"_s)), u"PATHIS"_s);
        const QString line = ann.NextWithVerb(u"CHAT"_s, 30000);
        if (!told.isEmpty()) QCOMPARE(line, msg::Chat(msg::GameSpeaker, told));
    }

    // The forgeries a racer would try, each on a real server: every forger is put out, nobody
    // wins, and the wiki sees no more requests than the checks of a few steps, never more than
    // the server's pace allows in any second.
    void attacks_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("destination");
        QTest::addColumn<int>("racers");
        QTest::addColumn<QList<QStringList>>("reports"); // each racer's
        QTest::addColumn<int>("perSecond");              // reports a second, 0: at once
        // How the first racer's game line begins: a forged step, or more new pages than anyone
        // clicks, whichever the server sees first.
        QTest::addColumn<QString>("told");
        QTest::addColumn<int>("checks");                 // most requests besides the search's
        const QString junk = QString(4000, u'x');
        QStringList places, chain;
        for (int k = 1; k <= 1000; ++k)
            places.append(LinkGraph::Name(2 * k + 1));
        for (QString at = u"Place 1"_s; chain.size() < 30;) {
            const QStringList links = m_graph.LinksOf(at);
            const auto next = std::find_if(links.cbegin(), links.cend(), [&](const QString& link) {
                return link != LinkGraph::Hub() && !chain.contains(link) && link != u"Place 1";
            });
            if (next == links.cend()) break;
            chain.append(at = *next);
        }
        QStringList pipes;
        for (int k = 1; k <= 60; ++k)
            pipes.append(LinkGraph::Name(k));
        QTest::newRow("five titles of 4,000 characters, then the destination")
            << u"Volcano"_s << u"Łódź"_s << 1 << QList<QStringList>{QStringList(5, junk) << u"Łódź"_s} << 0
            << u"Bo is out of the round: no link leads from \"Volcano\" to \"xxxxx"_s << 2;
        QTest::newRow("sixty titles joined by |, then the destination")
            << u"Volcano"_s << u"Łódź"_s << 1 << QList<QStringList>{{pipes.join(u'|'), u"Łódź"_s}} << 0
            << u"Bo is out of the round: no link leads from \"Volcano\" to \"Place 1|Place 2"_s << 2;
        QTest::newRow("1,000 real titles at 150 a second, then the destination")
            << u"Place 1"_s << LinkGraph::Hub() << 1 << QList<QStringList>{places + QStringList{LinkGraph::Hub()}}
            << 150 << u"Bo is out of the round: "_s << 12;
        QTest::newRow("real links, faster than anyone clicks")
            << u"Place 1"_s << LinkGraph::Hub() << 1 << QList<QStringList>{chain} << 150
            << u"Bo is out of the round: 21 new pages in"_s << 24;
        QTest::newRow("four racers, each 250 real titles, then the destination")
            << u"Place 1"_s << LinkGraph::Hub() << 4
            << QList<QStringList>{places.mid(0, 250) << LinkGraph::Hub(), places.mid(250, 250) << LinkGraph::Hub(),
                                  places.mid(500, 250) << LinkGraph::Hub(), places.mid(750, 250) << LinkGraph::Hub()}
            << 150 << u"Bo is out of the round: "_s << 40;
    }
    void attacks()
    {
        QFETCH(QString, initial);
        QFETCH(QString, destination);
        QFETCH(int, racers);
        QFETCH(QList<QStringList>, reports);
        QFETCH(int, perSecond);
        QFETCH(QString, told);
        QFETCH(int, checks);
        const auto server = Serve([](ServerConfig& config) { config.SearchMaxRequests = 40; });
        QVERIFY(server);
        ScriptedClient ann(kAnn);
        std::vector<std::unique_ptr<ScriptedClient>> forgers;
        QCOMPARE(Verb(ann.Join(u"Ann"_s).constLast()), u"PLAYERLIST"_s);
        const QStringList names{u"Bo"_s, u"Cy"_s, u"Di"_s, u"Ed"_s};
        for (int i = 0; i < racers; ++i) {
            forgers.push_back(std::make_unique<ScriptedClient>(quint16(kBo + i)));
            QCOMPARE(Verb(forgers.back()->Join(names[i]).constLast()), u"PLAYERLIST"_s);
        }
        m_proxy.Clear();
        ann.Send(msg::SetWords(initial, destination));
        QCOMPARE(ann.NextWithVerb(u"STARTGAME"_s), msg::StartGame({initial, destination}));
        ann.Skip();
        // Each forger reports in turn, until the server puts it out.
        std::vector<qsizetype> sent(size_t(racers), 0);
        std::vector<bool> out(size_t(racers), false);
        QElapsedTimer clock;
        clock.start();
        for (qsizetype step = 0; std::find(out.cbegin(), out.cend(), false) != out.cend(); ++step) {
            for (int i = 0; i < racers; ++i) {
                ScriptedClient& forger = *forgers[size_t(i)];
                if (!out[size_t(i)]) out[size_t(i)] = forger.Collect(0).contains(msg::Disqualify());
                if (out[size_t(i)] || sent[size_t(i)] == reports[i].size()) continue;
                forger.Send(msg::Navigate(names[i], reports[i][sent[size_t(i)]++]));
                if (perSecond > 0) WaitUntil([&] { return clock.elapsed() * perSecond >= (step + 1) * 1000; }, 1000);
            }
            const bool allSent = std::all_of(sent.cbegin(), sent.cend(), [&](qsizetype n) { return n > 0; }) &&
                                 [&] {
                                     for (int i = 0; i < racers; ++i)
                                         if (sent[size_t(i)] < reports[i].size()) return false;
                                     return true;
                                 }();
            if (allSent) {
                for (int i = 0; i < racers; ++i)
                    if (!out[size_t(i)])
                        out[size_t(i)] = forgers[size_t(i)]->NextWithVerb(u"DISQUALIFY"_s, 10000) == msg::Disqualify();
            }
        }
        QString line;
        while (!(line = ann.NextWithVerb(u"CHAT"_s, 3000)).isEmpty() && !line.contains(u"Bo is out")) {
        }
        QVERIFY2(line.startsWith(msg::Chat(msg::GameSpeaker, told)), qPrintable(line));
        QVERIFY(!ann.Collect(300).contains(msg::Winner(u"Bo")));
        QVERIFY(server->GameRoom().RoundRunning()); // Ann, who chose the words, still races
        const qsizetype checkRequests = CheckRequests(m_proxy);
        qInfo("%lld requests in all, %lld of them besides the search's; at most %lld within a second",
              qint64(m_proxy.Requests()), qint64(checkRequests), qint64(m_proxy.MostWithin(1000)));
        QCOMPARE_LE(checkRequests, qsizetype(checks));
        const ServerConfig& config = server->GameRoom().Config();
        QCOMPARE_LE(m_proxy.MostWithin(1000), qsizetype(config.ApiBurst + config.ApiRate));
    }

    // A round's questions end with it: a forgery in the next round is asked about first.
    void forgeryInTheNextRound()
    {
        const auto server = Serve();
        QVERIFY(server);
        ScriptedClient ann(kAnn), bo(kBo);
        // A round whose search has hundreds of requests to go, and a racer with steps to check.
        QVERIFY(Round(ann, bo, u"Place 1"_s, LinkGraph::Hub()));
        for (int k = 1; k <= 20; ++k)
            bo.Send(msg::Navigate(u"Bo", LinkGraph::Name(4 * k + 1)));
        ann.Send(msg::Navigate(u"Ann", u"talk"));
        QCOMPARE(ann.NextWithVerb(u"NEWGAME"_s, 10000), u"NEWGAME NAME=Ann;"_s);
        QVERIFY(Next(ann, bo, u"Volcano"_s, u"Łódź"_s));
        const qsizetype started = m_proxy.Requests();
        bo.Send(msg::Navigate(u"Bo", u"Łódź"));
        QCOMPARE(bo.NextWithVerb(u"DISQUALIFY"_s, 10000), msg::Disqualify());
        // The round's own question, the forged step's and the search's first: of the old round at
        // most the one request that was under way when the new round began.
        const QList<ApiProxy::Request> since = m_proxy.RequestLog().mid(started);
        qInfo("%lld requests from the new round's start to the forger's disqualification", qint64(since.size()));
        QCOMPARE_LE(std::count_if(since.cbegin(), since.cend(),
                                  [](const ApiProxy::Request& r) { return r.target.contains("Place"); }),
                    1);
        QCOMPARE_LE(since.size(), 10);
    }

    // On a wiki that takes 100 ms a request, as the real one may: a forgery sent while the search
    // pages through the hub's thousands of backlinks is put out, and an honest racer who clicks at
    // a person's pace wins within a second of reaching the destination.
    void slowWiki()
    {
        m_proxy.SetDelay(100);
        const auto server = Serve();
        QVERIFY(server);
        ScriptedClient ann(kAnn), bo(kBo);
        QVERIFY(Round(ann, bo, u"Place 1"_s, LinkGraph::Hub()));
        QVERIFY(WaitUntil([&] { return CheckRequests(m_proxy) < m_proxy.Requests() - 2; }, 5000));
        QElapsedTimer clock;
        clock.start();
        bo.Send(msg::Navigate(u"Bo", LinkGraph::Hub()));
        QCOMPARE(bo.NextWithVerb(u"DISQUALIFY"_s, 10000), msg::Disqualify());
        qInfo("a forgery put out %lld ms after its report", clock.elapsed());

        const QStringList route{u"Banana"_s, u"Fruit"_s, u"Mercury"_s, u"Mercury (planet)"_s};
        ann.Send(msg::Navigate(u"Ann", u"talk"));
        QCOMPARE(ann.NextWithVerb(u"NEWGAME"_s, 10000), u"NEWGAME NAME=Ann;"_s);
        QVERIFY(Next(ann, bo, u"Apple"_s, route.constLast()));
        for (const QString& page : route.first(route.size() - 1)) {
            WaitUntil([] { return false; }, 600);
            ann.Send(msg::Navigate(u"Ann", page));
        }
        WaitUntil([] { return false; }, 600);
        clock.restart();
        ann.Send(msg::Navigate(u"Ann", route.constLast()));
        QCOMPARE(bo.NextWithVerb(u"WINNER"_s, 10000), msg::Winner(u"Ann"));
        qInfo("the destination's NAVIGATE to WINNER: %lld ms", clock.elapsed());
        QCOMPARE_LE(clock.elapsed(), 1000);
    }

    // A round that has asked all a round may ends: no route can be vouched for any more.
    void roundBudgetSpent()
    {
        const auto server = Serve([](ServerConfig& config) {
            config.RoundRequests = 4;
            config.SearchMaxRequests = 0;
        });
        QVERIFY(server);
        ScriptedClient ann(kAnn), bo(kBo);
        m_proxy.Clear();
        QVERIFY(Round(ann, bo, u"Apple"_s, u"Mercury (planet)"_s));
        for (const QString& page : {u"Banana"_s, u"Fruit"_s, u"Apple"_s, u"Mercury"_s, u"Mercury (element)"_s})
            bo.Send(msg::Navigate(u"Bo", page));
        QCOMPARE(ann.NextWithVerb(u"CHAT"_s, 5000),
                 msg::Chat(msg::GameSpeaker, u"The encyclopedia has been asked all that one round may ask: no route "
                                             u"can be vouched for any more, and the round ends without a winner."));
        QCOMPARE(ann.NextWithVerb(u"NEWGAME"_s), u"NEWGAME NAME=Ann;"_s);
        QCOMPARE(m_proxy.Requests(), 4);
    }
};

QTEST_GUILESS_MAIN(tst_encyclopedia)
#include "tst_encyclopedia.moc"
