// How long the real LinkhopServer takes from listening to holding its port on a real home router
// (Debian's miniupnpd in network namespaces, tests/support/homerouter.sh), by each protocol the
// router may speak: the time the server logs with its mapping, and the time until the router's
// rules forward the port. Runs as root only.
#include "benchsupport.h"
#include "homerouter.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QRegularExpression>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

constexpr int kRuns = 15;

// Starts the server at home, waits for its mapping line; the milliseconds the server logs, or -1.
double OneRun(HomeRouter& net, const QStringList& arguments, double* untilRuleMs)
{
    QProcess server;
    HomeRouter::Prepare(server, net.Home(), QCoreApplication::applicationDirPath() + u"/LinkhopServer"_s,
                        QStringList{u"--site"_s, u"none"_s} + arguments);
    const qint64 started = bench::NowNs();
    server.start();
    QString log;
    double loggedMs = -1;
    while (server.waitForReadyRead(5000)) {
        log += QString::fromUtf8(server.readAllStandardOutput());
        const auto match = QRegularExpression(u"forwards UDP port 7200 .*; (\\d+) ms after start"_s).match(log);
        if (match.hasMatch()) {
            loggedMs = match.captured(1).toDouble();
            break;
        }
        if (log.contains(u"no mapping"_s)) break;
    }
    const QDeadlineTimer deadline(2000);
    while (loggedMs >= 0 && net.Forwards().isEmpty() && !deadline.hasExpired()) {
    }
    *untilRuleMs = double(bench::NowNs() - started) / 1e6;
    server.terminate();
    server.waitForFinished(10000);
    if (loggedMs < 0) std::fprintf(stderr, "no mapping:\n%s\n", qPrintable(log));
    return loggedMs;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    HomeRouter net;
    if (!net.WhyNot().isEmpty()) {
        std::printf("bench_portmap: skipped: %s\n", qPrintable(net.WhyNot()));
        return 0;
    }
    struct Case
    {
        const char* name;
        HomeRouter::Daemon daemon;
        QStringList arguments;
    };
    const Case cases[] = {
        {"NAT-PMP (router speaks both; NAT-PMP answers first)", {true, true, true}, {}},
        {"UPnP, discovery (NAT-PMP refused at once)", {true, false, true}, {}},
        {"UPnP, discovery waiting 300 ms", {true, false, true}, {u"--upnp-wait"_s, u"300"_s}},
        {"UPnP, description given (no discovery)", {true, false, true},
         {u"--upnp-description"_s, net.Description()}},
    };
    std::printf("%-56s %8s %10s %10s %14s\n", "router", "runs", "median ms", "p99 ms", "rule, median");
    for (const Case& c : cases) {
        std::vector<double> logged, rules;
        for (int run = 0; run < kRuns; ++run) {
            QString why;
            if (!net.StartDaemon(c.daemon, &why)) {
                std::fprintf(stderr, "miniupnpd did not start:\n%s\n", qPrintable(why));
                return 1;
            }
            double ruleMs = 0;
            const double ms = OneRun(net, c.arguments, &ruleMs);
            net.StopDaemon();
            if (ms < 0) return 1;
            logged.push_back(ms);
            rules.push_back(ruleMs);
        }
        const bench::Percentiles l = bench::Summarise(logged), r = bench::Summarise(rules);
        std::printf("%-56s %8zu %10.0f %10.0f %14.0f\n", c.name, l.count, l.median, l.p99, r.median);
    }
    std::printf("(ms from the server listening to its log line \"forwards UDP port 7200\"; the rule column "
                "counts from the program's start until the router's rules forward the port)\n");
    return 0;
}
