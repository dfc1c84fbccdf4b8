// The server's room on arbitrary datagrams from several senders, with time passing in between;
// after every datagram the room must pass Room::CheckInvariants. Input: a byte of settings, then
// records of [sender][time step][verb][length] and `length` bytes of body, the verb byte putting
// one of the room's verbs before the body, or none.
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "server/room.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;

namespace {

struct NoOutput final : RoomOutput
{
    void Send(const QString&, const Endpoint&) override {}
    void Event(const QString&) override {}
};

const std::array<QStringView, 18> kVerbs = {
    verb::CONNECT,   verb::GETPLAYERLIST, verb::STATUS,   verb::NAVIGATE,   verb::GETSCORE,   verb::PINGME,
    verb::PONG,      verb::CHAT,          verb::GETWORDS, verb::DISCONNECT, verb::SENDMYPATH, verb::TIME,
    verb::GETRANDOM, verb::SETWORDS,      verb::NAVIGATE, verb::NAVIGATE,   verb::CHAT,       verb::CONNECT};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // The third and the fourth are one machine, written in IPv6 and in IPv4.
    static const QList<QHostAddress> addresses = {
        QHostAddress(u"10.0.0.1"_s), QHostAddress(u"10.0.0.2"_s), QHostAddress(u"::ffff:10.0.0.3"_s),
        QHostAddress(u"10.0.0.3"_s), QHostAddress(u"10.0.0.1"_s), QHostAddress(u"::1"_s)};
    static const quint16 ports[] = {1001, 1002, 1003, 1003, 1004, 7200};
    qint64 now = 1000;
    ServerConfig config;
    config.Articles = {u"Apple"_s, u"Banana"_s};
    config.Seed = 1;
    config.Welcome = u"%p on %v"_s;
    config.BannedNames = {u"Mallory"_s};
    config.BannedSubnets = ParseBannedAddresses({u"10.0.0.2/32"_s});
    if (size > 0 && data[0] & 1) config.Password = u"pw"_s;
    config.FanOutRate = size > 0 && data[0] & 2 ? 5 : 20000; // small: merged updates take over
    NoOutput output;
    Room room(config, output, [&] { return now; });
    const auto check = [&] {
        if (const QString broken = room.CheckInvariants(); !broken.isEmpty()) {
            std::fprintf(stderr, "invariant broken: %s\n", qPrintable(broken));
            std::abort();
        }
    };
    const auto handle = [&](const QString& text, size_t from) {
        room.Handle(text, addresses[from], ports[from]);
        check();
    };
    // Two players already in, so that the session and the rounds are in reach at once.
    for (const auto& [name, from] : {std::pair(u"Ann"_s, 0), std::pair(u"Bo"_s, 4)}) {
        handle(msg::Connect(ClientVersion, name, QString::number(ports[from])), from);
        handle(msg::ConnectWithPassword(ClientVersion, name, u"pw"), from);
        handle(msg::GetPlayerList(QString::number(ports[from])), from);
    }
    for (size_t at = size > 0 ? 1 : 0; at + 4 <= size;) {
        const size_t from = data[at] % std::size(ports);
        const uint8_t step = data[at + 1], verbIndex = data[at + 2];
        const size_t length = std::min<size_t>(data[at + 3], size - at - 4);
        QString text =
            FromWire(QByteArrayView(reinterpret_cast<const char*>(data + at + 4), qsizetype(length)));
        at += 4 + length;
        if (verbIndex < kVerbs.size()) text = kVerbs[verbIndex] % u' ' % text;
        now += step == 255 ? 40000 : step; // now and then long enough to expire and drop everyone
        handle(text, from);
        if (step & 1) room.Tick(), check();
    }
    return 0;
}
