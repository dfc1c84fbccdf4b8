// What asking the encyclopedia costs the game, on MediaWiki served on loopback:
// - the time from a racer's "NAVIGATE" to the destination until its "WINNER", with the server
//   checking the route and without (the server taking wins on trust), beside the loopback echo;
// - the requests and time a search for the shortest route takes on a generated wiki whose
//   distances are known, for routes of 2 to 6 clicks.
// Arguments: rounds (default 200), places of the generated wiki (default 2000).
#include "benchsupport.h"
#include "core/version.h"
#include "linkgraph.h"
#include "mediawiki.h"
#include "scriptedserver.h"
#include "server/gameserver.h"
#include "server/routes.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <atomic>
#include <thread>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::bench;
using namespace linkhop::server;
using namespace linkhop::test;

namespace {

// One racer who chooses its own words and wins each round at once, from a thread of its own: the
// time from its "NAVIGATE" to the destination until its "WINNER", per round.
std::vector<double> WinLatencies(int rounds)
{
    const quint32 server = test::TestAddress().toIPv4Address();
    const int fd = OpenSocket((127u << 24) | (78u << 16) | 1u, true);
    const timeval wait{5, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
    const sockaddr_in to = Address(server, kServerPort);
    const QString port = QString::number(LocalPort(fd));
    const auto send = [&](const QString& text) {
        const QByteArray bytes = ToWire(text);
        sendto(fd, bytes.constData(), size_t(bytes.size()), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to);
    };
    const auto until = [&](QStringView verb) {
        char buffer[65536];
        for (;;) {
            const ssize_t n = recv(fd, buffer, sizeof buffer, 0);
            if (n < 0) return false;
            if (Verb(FromWire(QByteArrayView(buffer, n))) == verb) return true;
        }
    };
    std::vector<double> latencies;
    send(msg::Connect(ClientVersion, u"Racer", port));
    if (!until(verb::CONNECTACCEPT)) return latencies;
    send(msg::GetPlayerList(port));
    if (!until(verb::PLAYERLIST)) return latencies;
    // Routes that hold: one click, and three through a redirect and back.
    const QList<QStringList> routes = {{u"Apple"_s, u"Łódź"_s},
                                       {u"AT&T"_s, u"C++"_s, u"Café"_s, u"Łódź"_s},
                                       {u"Volcano"_s, u"Apple"_s, u"New York City"_s}};
    for (int round = 0; round < rounds; ++round) {
        const QStringList& route = routes[round % routes.size()];
        send(msg::SetWords(route.first(), route.last()));
        if (!until(verb::STARTGAME)) break;
        for (qsizetype i = 1; i + 1 < route.size(); ++i)
            send(msg::Navigate(u"Racer", route[i]));
        const qint64 start = NowNs();
        send(msg::Navigate(u"Racer", route.last()));
        if (!until(verb::WINNER)) break;
        latencies.push_back(double(NowNs() - start) / 1e6);
        send(msg::SendMyPath(u"Racer", route.join(u'\r')));
    }
    close(fd);
    return latencies;
}

Percentiles ServerRounds(const QString& site, int rounds)
{
    ServerConfig config;
    config.Site = site;
    // One racer plays rounds back to back, faster than any address may send to an open server.
    config.FloodRate = config.FloodBurst = 1e6;
    GameServer server(config);
    if (!WaitUntil([&] { return server.Start(test::TestAddress()); })) {
        std::fprintf(stderr, "the server cannot bind %s:7200\n", qPrintable(test::TestAddress().toString()));
        std::exit(1);
    }
    std::vector<double> latencies;
    std::atomic<bool> done{false};
    std::thread racer([&] {
        latencies = WinLatencies(rounds);
        done = true;
    });
    WaitUntil([&] { return done.load(); }, 600000);
    racer.join();
    if (int(latencies.size()) != rounds) std::fprintf(stderr, "only %zu rounds were won\n", latencies.size());
    return Summarise(latencies);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(10, atoi(argv[1])) : 200;
    const int places = argc > 2 ? std::max(200, atoi(argv[2])) : 2000;

    MediaWiki wiki;
    if (!wiki.Start()) {
        std::fprintf(stderr, "cannot start the test wiki: %s\n", qPrintable(wiki.Error()));
        return 1;
    }
    const Percentiles checked = ServerRounds(wiki.Url(u""), rounds);
    const Percentiles trusted = ServerRounds(QString(), rounds);
    const Percentiles echo = EchoFloor(test::TestAddress().toIPv4Address(), 2000);
    std::printf("destination's NAVIGATE -> WINNER, %d rounds (the test wiki on loopback)\n", rounds);
    std::printf("  route checked with the encyclopedia:  median %7.2f ms   p99 %7.2f ms\n", checked.median,
                checked.p99);
    std::printf("  win taken on trust (no encyclopedia):  median %7.2f ms   p99 %7.2f ms\n", trusted.median,
                trusted.p99);
    std::printf("  floor: loopback UDP echo round trip:   median %7.3f ms   p99 %7.3f ms\n", echo.median,
                echo.p99);
    std::printf("  ratio checked / trusted (medians): %.1f\n\n", checked.median / trusted.median);

    const LinkGraph graph(places, 7);
    MediaWiki generated;
    if (!generated.Start(graph.pages)) {
        std::fprintf(stderr, "cannot start the generated wiki: %s\n", qPrintable(generated.Error()));
        return 1;
    }
    std::printf("shortest route on a generated wiki of %d places (%lld pages, built in %.1f s),\n", places,
                qint64(graph.pages.size()), double(generated.BuildMs()) / 1000);
    std::printf("each search from a cold cache; up to 10 pairs per length\n");
    std::printf("  clicks   pairs   requests: median  max     time: median     max   found shortest\n");
    for (int clicks = 2; clicks <= 6; ++clicks) {
        std::vector<double> requests, times;
        int shortest = 0;
        for (int source = 1; source <= places && requests.size() < 10; source += 37) {
            const QString from = u"Place %1"_s.arg(source);
            const QString to = graph.At(from, clicks);
            if (to.isEmpty()) continue;
            WikiApi api(generated.Url(u""), QStringLiteral(LINKHOP_CONTACT));
            api.SetBudget(RequestBudget{1000, 1000, 2000, 2000});
            api.StartRound();
            RouteSearch search(api, SearchBudget{6, 2000, 120000});
            QSignalSpy finished(&search, &RouteSearch::Finished);
            search.Start(from, to);
            if (!finished.wait(120000)) continue;
            const auto found = finished.first().first().value<ShortestRoute>();
            requests.push_back(double(found.requests));
            times.push_back(double(found.ms));
            if (found.outcome == ShortestRoute::Found && found.route.size() == clicks + 1) ++shortest;
        }
        const Percentiles r = Summarise(requests), t = Summarise(times);
        std::printf("  %6d   %5zu   %16.0f %5.0f   %11.0f ms %5.0f ms   %d of %zu\n", clicks, requests.size(),
                    r.median, requests.empty() ? 0 : *std::max_element(requests.begin(), requests.end()),
                    t.median, times.empty() ? 0 : *std::max_element(times.begin(), times.end()), shortest,
                    requests.size());
    }
    return 0;
}
