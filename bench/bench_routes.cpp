// What the referee's questions to the encyclopedia cost the game, on a generated MediaWiki of
// 6,000 pages served on loopback, asked through a proxy that counts each request and can hold
// each back 100 ms (about the real site's pace):
// - the time from a racer's "NAVIGATE" to the destination until its "WINNER", for routes of 1 to
//   20 clicks along real links, each step reported a moment after the one before so that the
//   checks in the background keep up, beside the same win taken on trust and the loopback echo;
// - the requests a round costs: its checks, its search for the shortest route;
// - the requests and time a shortest-route search takes for routes of 2 to 6 clicks;
// - the most requests the server sent in any minute while forgers attacked it for a minute.
// Arguments: rounds per route length at loopback speed (default 10), at 100 ms a request
// (default 5).
#include "apiproxy.h"
#include "benchsupport.h"
#include "core/version.h"
#include "linkgraph.h"
#include "mediawiki.h"
#include "scriptedclient.h"
#include "scriptedserver.h"
#include "server/gameserver.h"
#include "server/routes.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSignalSpy>
#include <random>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::bench;
using namespace linkhop::server;
using namespace linkhop::test;

namespace {

constexpr quint16 kRacer = 47391, kForger = 47392;
const QList<int> kLengths{1, 2, 5, 10, 20};

double Max(const std::vector<double>& samples)
{
    return samples.empty() ? 0 : *std::max_element(samples.begin(), samples.end());
}

// A walk of `clicks` steps along the places' own links, never back to a page already on it.
QStringList Walk(const LinkGraph& graph, int clicks, std::mt19937& random)
{
    for (;;) {
        QStringList route{LinkGraph::Name(std::uniform_int_distribution<int>(1, 5000)(random))};
        while (route.size() <= clicks) {
            QStringList links = graph.LinksOf(route.constLast());
            links.removeIf([&](const QString& link) { return link == LinkGraph::Hub() || route.contains(link); });
            if (links.isEmpty()) break;
            route.append(links[std::uniform_int_distribution<qsizetype>(0, links.size() - 1)(random)]);
        }
        if (route.size() == clicks + 1) return route;
    }
}

bool Sleep(int ms)
{
    return !WaitUntil([] { return false; }, ms);
}

std::unique_ptr<GameServer> Serve(const QString& site)
{
    ServerConfig config;
    config.Site = site;
    // One racer plays rounds back to back, faster than any address may send to an open server.
    config.FloodRate = config.FloodBurst = 1e6;
    auto server = std::make_unique<GameServer>(config);
    if (!WaitUntil([&] { return server->Start(TestAddress()); })) {
        std::fprintf(stderr, "the server cannot bind %s:7200\n", qPrintable(TestAddress().toString()));
        std::exit(1);
    }
    return server;
}

struct Wins
{
    std::vector<double> ms;
    std::vector<double> checks;   // requests of each round besides its search's
    std::vector<double> searches; // requests of each round's search, until the next round began
};

bool IsSearch(const ApiProxy::Request& request)
{
    return request.target.contains("linkshere") || request.target.contains("generator=links") ||
           (request.target.contains("siteinfo") && request.target.contains("%7C"));
}

// One racer who chooses its own words and wins each round along a real route, its steps `gapMs`
// apart: the time from its "NAVIGATE" to the destination until its "WINNER".
Wins RaceRounds(const QString& site, const LinkGraph& graph, int clicks, int rounds, int gapMs, ApiProxy* proxy)
{
    const auto server = Serve(site);
    ScriptedClient racer(kRacer);
    if (Verb(racer.Join(u"Racer"_s).constLast()) != u"PLAYERLIST") std::exit(1);
    std::mt19937 random{quint32(clicks)};
    Wins wins;
    qsizetype mark = proxy ? proxy->Requests() : 0;
    for (int round = 0; round < rounds; ++round) {
        const QStringList route = Walk(graph, clicks, random);
        if (proxy && round > 0) {
            const QList<ApiProxy::Request> log = proxy->RequestLog().mid(mark);
            const auto search = std::count_if(log.cbegin(), log.cend(), IsSearch);
            wins.searches.push_back(double(search));
            wins.checks.push_back(double(log.size() - search));
            mark = proxy->Requests();
        }
        racer.Send(msg::SetWords(route.first(), route.last()));
        if (racer.NextWithVerb(u"STARTGAME"_s).isEmpty()) break;
        for (qsizetype i = 1; i + 1 < route.size(); ++i) {
            racer.Send(msg::Navigate(u"Racer", route[i]));
            Sleep(gapMs);
        }
        racer.Skip();
        const qint64 start = NowNs();
        racer.Send(msg::Navigate(u"Racer", route.last()));
        const QString winner = racer.NextWithVerb(u"WINNER"_s, 30000);
        if (winner.isEmpty()) {
            std::fprintf(stderr, "no WINNER for %s\n", qPrintable(route.join(u" --> "_s)));
            break;
        }
        wins.ms.push_back(double(NowNs() - start) / 1e6);
        racer.Send(msg::SendMyPath(u"Racer", route.join(u'\r')));
        Sleep(gapMs);
    }
    return wins;
}

// The wiki's own time for one light question, through the proxy: the floor of every check.
Percentiles ApiFloor(const QString& site, int requests)
{
    QNetworkAccessManager network;
    std::vector<double> samples;
    for (int i = 0; i < requests; ++i) {
        const qint64 start = NowNs();
        QNetworkReply* reply = network.get(QNetworkRequest(
            QUrl(site + u"/w/api.php?action=query&format=json&titles=Apple&prop=links&pltitles=Banana"_s)));
        WaitUntil([&] { return reply->isFinished(); }, 10000);
        samples.push_back(double(NowNs() - start) / 1e6);
        reply->deleteLater();
    }
    return Summarise(samples);
}

// Seven forgers (with the chooser, the most one address may seat) attack round after round for
// `seconds`, each in its own way: titles no page can have, 60 titles in one, real titles 150 a
// second, real links faster than anyone clicks; each round's words are far apart, so that its search
// asks until its budget is spent; the chooser ends each round once the forgers are out. Prints how
// many requests the wiki saw in the busiest minute and second, beside what the server allows.
void Attack(ApiProxy& proxy, const LinkGraph& graph, int seconds)
{
    const auto server = Serve(proxy.Url());
    ScriptedClient ann(kRacer);
    if (Verb(ann.Join(u"Ann"_s).constLast()) != u"PLAYERLIST") std::exit(1);
    std::vector<std::unique_ptr<ScriptedClient>> forgers;
    QStringList names;
    for (int i = 0; i < 7; ++i) {
        names.append(u"Forger%1"_s.arg(i));
        forgers.push_back(std::make_unique<ScriptedClient>(quint16(kForger + i)));
        if (Verb(forgers.back()->Join(names.constLast()).constLast()) != u"PLAYERLIST") std::exit(1);
    }
    // The place farthest from Place 1: no route of up to 6 clicks, and a search that spends its budget.
    const QHash<QString, int> distances = graph.Distances(u"Place 1"_s);
    QString far = u"Place 2"_s;
    for (auto it = distances.cbegin(); it != distances.cend(); ++it)
        if (it.value() > distances.value(far) && it.key().startsWith(u"Place")) far = it.key();
    std::mt19937 random(1);
    QList<QStringList> attacks;
    attacks.append(QStringList(5, QString(4000, u'x')) << far);
    QStringList sixty;
    for (int k = 1; k <= 60; ++k)
        sixty.append(LinkGraph::Name(k));
    attacks.append({sixty.join(u'|'), far});
    QStringList odd;
    for (int k = 1; k <= 1000; ++k)
        odd.append(LinkGraph::Name(2 * k + 1));
    attacks.append(odd << far);
    attacks.append(Walk(graph, 30, random).mid(1) << far);
    proxy.Clear();
    QElapsedTimer clock;
    clock.start();
    int rounds = 0;
    while (clock.elapsed() < qint64(seconds) * 1000) {
        ann.Send(msg::SetWords(u"Place 1"_s, far));
        if (ann.NextWithVerb(u"STARTGAME"_s).isEmpty()) break;
        ++rounds;
        std::vector<qsizetype> sent(forgers.size(), 0);
        std::vector<bool> out(forgers.size(), false);
        QElapsedTimer round;
        round.start();
        while (std::find(out.cbegin(), out.cend(), false) != out.cend() && round.elapsed() < 10000) {
            for (size_t i = 0; i < forgers.size(); ++i) {
                if (!out[i]) out[i] = forgers[i]->Collect(0).contains(msg::Disqualify());
                const QStringList& reports = attacks[qsizetype(i) % attacks.size()];
                if (!out[i] && sent[i] < reports.size())
                    forgers[i]->Send(msg::Navigate(names[qsizetype(i)], reports[sent[i]++]));
            }
            Sleep(7); // about 150 reports a second from each
        }
        ann.Send(msg::Navigate(u"Ann", u"talk"));
        if (ann.NextWithVerb(u"NEWGAME"_s, 10000).isEmpty()) break;
    }
    const ServerConfig& limits = server->GameRoom().Config();
    std::printf("\nforgers attacking for %d s, %d rounds: %lld requests to the wiki; busiest minute %lld "
                "(the server allows %.0f), busiest second %lld (allows %.0f)\n",
                seconds, rounds, qint64(proxy.Requests()), qint64(proxy.MostWithin(60000)),
                limits.ApiBurst + 60 * limits.ApiRate, qint64(proxy.MostWithin(1000)), limits.ApiBurst + limits.ApiRate);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(2, atoi(argv[1])) : 10;
    const int slowRounds = argc > 2 ? std::max(2, atoi(argv[2])) : 5;

    const LinkGraph graph(5250, 7);
    MediaWiki wiki;
    if (!wiki.Start(MediaWiki::StandardPages(), graph.pages)) {
        std::fprintf(stderr, "cannot start the test wiki: %s\n", qPrintable(wiki.Error()));
        return 1;
    }
    ApiProxy proxy;
    if (!proxy.Listen(wiki.Host())) return 1;
    std::printf("a wiki of %lld pages, built in %.1f s\n\n",
                qint64(MediaWiki::StandardPages().size() + graph.pages.size()), double(wiki.BuildMs()) / 1000);

    const Percentiles echo = EchoFloor(TestAddress().toIPv4Address(), 2000);
    const Percentiles api = ApiFloor(proxy.Url(), 100);
    proxy.SetDelay(100);
    const Percentiles slowApi = ApiFloor(proxy.Url(), 20);
    proxy.SetDelay(0);
    std::printf("floors: loopback UDP echo median %.3f ms, p99 %.3f ms; one API request median %.1f ms, p99 %.1f ms "
                "(%.1f / %.1f ms held back 100 ms)\n\n",
                echo.median, echo.p99, api.median, api.p99, slowApi.median, slowApi.p99);

    // A person takes seconds a click; the steps go faster here, yet slowly enough for the checks.
    const int gaps[] = {300, 600};
    std::printf("destination's NAVIGATE -> WINNER, routes along real links, steps reported %d ms apart "
                "(%d ms at 100 ms a request)\n",
                gaps[0], gaps[1]);
    std::printf("  wiki        clicks  rounds   median      p99    checks/round (median, max)   search/round (median, max)\n");
    for (const int delay : {0, 100}) {
        proxy.SetDelay(delay);
        const int gap = gaps[delay == 0 ? 0 : 1];
        for (const int clicks : kLengths) {
            const Wins wins = RaceRounds(proxy.Url(), graph, clicks, delay == 0 ? rounds : slowRounds, gap, &proxy);
            const Percentiles ms = Summarise(wins.ms), checks = Summarise(wins.checks), searches = Summarise(wins.searches);
            std::printf("  %-10s  %6d  %6zu  %7.1f ms %7.1f ms   %6.0f %6.0f                    %6.0f %6.0f\n",
                        delay == 0 ? "loopback" : "100 ms/req", clicks, ms.count, ms.median, ms.p99, checks.median,
                        Max(wins.checks), searches.median, Max(wins.searches));
        }
    }
    proxy.SetDelay(0);
    const Wins trusted = RaceRounds(QString(), graph, 3, rounds, 0, nullptr);
    const Percentiles trust = Summarise(trusted.ms);
    std::printf("  the win taken on trust (no encyclopedia), 3 clicks: median %.2f ms, p99 %.2f ms\n\n", trust.median,
                trust.p99);

    std::printf("shortest route, each search from a cold start; up to 10 pairs of places per length\n");
    std::printf("  clicks   pairs   requests: median  max     time: median     max   found shortest\n");
    for (int clicks = 2; clicks <= 6; ++clicks) {
        std::vector<double> requests, times;
        int shortest = 0;
        for (int source = 1; source <= 5000 && requests.size() < 10; source += 37) {
            const QString from = LinkGraph::Name(source);
            const QString to = graph.At(from, clicks);
            if (to.isEmpty()) continue;
            WikiApi asking(proxy.Url(), QStringLiteral(LINKHOP_CONTACT));
            asking.SetBudget(RequestBudget{1000, 1000, 2000, 2000});
            asking.StartRound();
            RouteSearch search(asking, SearchBudget{6, 2000, 120000});
            QSignalSpy finished(&search, &RouteSearch::Finished);
            search.Start(from, to);
            if (!finished.wait(120000)) continue;
            const auto found = finished.first().first().value<ShortestRoute>();
            requests.push_back(double(found.requests));
            times.push_back(double(found.ms));
            if (found.outcome == ShortestRoute::Found && found.route.size() == clicks + 1) ++shortest;
        }
        const Percentiles r = Summarise(requests), t = Summarise(times);
        std::printf("  %6d   %5zu   %16.0f %5.0f   %11.0f ms %5.0f ms   %d of %zu\n", clicks, requests.size(), r.median,
                    Max(requests), t.median, Max(times), shortest, requests.size());
    }
    Attack(proxy, graph, 60);
    return 0;
}
