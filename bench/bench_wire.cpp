// Messages parsed and built per second by the wire code, on a mix of the session's messages.
#include "core/messages.h"
#include "core/sessiondata.h"
#include "core/wire.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QStringList>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;

namespace {

template <typename F>
double MedianRate(int rounds, int perRound, F&& body)
{
    std::vector<double> rates;
    for (int r = 0; r < rounds; ++r) {
        QElapsedTimer timer;
        timer.start();
        for (int i = 0; i < perRound; ++i) body(i);
        rates.push_back(perRound / (double(timer.nsecsElapsed()) / 1e9));
    }
    std::sort(rates.begin(), rates.end());
    return rates[rates.size() / 2];
}

volatile qsizetype g_sink = 0;

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList received = {
        msg::ScoreIs(u"Annabelle", 3, 127, 12, true),
        msg::PingIs(u"Annabelle", 87),
        msg::Chat(u"Bo", u"anyone seen a link to Banana from here? ;-)"),
        msg::StartGame({u"Apple"_s, u"Banana"_s}),
        msg::PathIs(u"Apple\rFruit\rBanana", u"Bo"),
        msg::PlayerList({u"ann"_s, u"bo"_s, u"cy"_s, u"di"_s, u"ed"_s, u"flo"_s, u"gus"_s, u"hal"_s}),
    };
    const QList<QByteArray> wire = [&] {
        QList<QByteArray> bytes;
        for (const QString& m : received) bytes.append(ToWire(m));
        return bytes;
    }();
    constexpr int kRounds = 9;
    constexpr int kPerRound = 300000;

    const double parse = MedianRate(kRounds, kPerRound, [&](int i) {
        const QString text = FromWire(wire[i % wire.size()]);
        const QString verb = Verb(text);
        g_sink = g_sink + verb.size() + GetParam(text, u"NAME").size() + GetParam(text, u"CLICK").size();
    });
    const double build = MedianRate(kRounds, kPerRound, [&](int i) {
        const QString text = i % 2 ? msg::Navigate(u"Annabelle", u"Banana (fruit)") : msg::GetScore(u"7201", u"Bo");
        g_sink = g_sink + ToWire(text).size();
    });
    const double roster = MedianRate(kRounds, kPerRound / 10, [&](int) {
        SessionData s;
        s.AddPlayersFrom(received.last());
        g_sink = g_sink + s.PlayerCount();
    });
    QString hostile = u"PLAYERLIST COUNT=2147483647;"_s;
    while (hostile.size() < 65000) hostile += u"P"_s + QString::number(hostile.size()) + u"=x;";
    const double hostileRate = MedianRate(kRounds, 20, [&](int) {
        SessionData s;
        s.AddPlayersFrom(hostile);
        g_sink = g_sink + s.PlayerCount();
    });

    std::printf("wire benchmark (median of %d rounds)\n", kRounds);
    std::printf("  received datagrams decoded, verb and two fields read: %12.0f /s\n", parse);
    std::printf("  messages built and encoded:                            %12.0f /s\n", build);
    std::printf("  8-player PLAYERLIST applied to a roster:               %12.0f /s\n", roster);
    std::printf("  64 KiB PLAYERLIST with COUNT=2147483647 applied:       %12.1f /s\n", hostileRate);
    return 0;
}
