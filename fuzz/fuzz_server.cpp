// The server's room on arbitrary datagrams from several senders, with time passing in between.
// After every datagram the room must stay consistent: names unique ignoring case, one chooser who
// plays (none in an empty room), no negative score.
//
// Input: records of [sender][time step][verb][length] and `length` bytes of body. The verb byte
// picks a catalogue verb to put before the body (or none), so that the fuzzer spends its time on
// fields rather than on spelling verbs.
#include "core/messages.h"
#include "core/version.h"
#include "core/wire.h"
#include "server/room.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;

namespace {

class CountingOutput final : public RoomOutput
{
public:
    void Send(const QString&, const Endpoint&) override { ++sent; }
    void Event(const QString&) override {}
    quint64 sent = 0;
};

struct Sender
{
    QHostAddress address;
    quint16 port;
};

const std::array<QStringView, 18> kVerbs = {
    verb::CONNECT, verb::GETPLAYERLIST, verb::STATUS,     verb::NAVIGATE,  verb::GETSCORE, verb::PINGME,
    verb::PONG,    verb::CHAT,          verb::GETWORDS,   verb::DISCONNECT, verb::SENDMYPATH, verb::TIME,
    verb::GETRANDOM, verb::SETWORDS,    verb::NAVIGATE,   verb::NAVIGATE,  verb::CHAT,     verb::CONNECT};

void Check(const Room& room)
{
    const QString broken = room.CheckInvariants();
    if (broken.isEmpty()) return;
    std::fprintf(stderr, "invariant broken: %s\n", broken.toUtf8().constData());
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const std::array<Sender, 6> senders = {{
        {QHostAddress(u"10.0.0.1"_s), 1001},
        {QHostAddress(u"10.0.0.2"_s), 1002},
        {QHostAddress(u"::ffff:10.0.0.3"_s), 1003}, // the same machine as 10.0.0.3 below
        {QHostAddress(u"10.0.0.3"_s), 1003},
        {QHostAddress(u"10.0.0.1"_s), 1004},
        {QHostAddress(u"::1"_s), 7200},
    }};

    qint64 now = 1000;
    ServerConfig config;
    config.Articles = {u"Apple"_s, u"Banana"_s};
    config.Seed = 1;
    config.Welcome = u"%p on %v"_s;
    config.BannedNames = {u"Mallory"_s};
    config.BannedSubnets = ParseBannedAddresses({u"10.0.0.2/32"_s});
    if (size > 0 && data[0] & 1) config.Password = u"pw"_s;
    config.FanOutRate = size > 0 && data[0] & 2 ? 5 : 20000; // small: merged updates take over
    CountingOutput output;
    Room room(config, output, [&] { return now; });

    // Two players already in, so that the session and the rounds are in reach at once.
    const QStringList names = {u"Ann"_s, u"Bo"_s};
    for (int i = 0; i < 2; ++i) {
        const Sender& s = senders[size_t(i == 0 ? 0 : 4)];
        const QString port = QString::number(s.port);
        room.Handle(msg::Connect(ClientVersion, names[i], port), s.address, s.port);
        room.Handle(msg::ConnectWithPassword(ClientVersion, names[i], u"pw"), s.address, s.port);
        room.Handle(msg::GetPlayerList(port), s.address, s.port);
    }
    Check(room);

    size_t at = size > 0 ? 1 : 0;
    while (at + 4 <= size) {
        const Sender& sender = senders[data[at] % senders.size()];
        const uint8_t step = data[at + 1];
        const uint8_t verbIndex = data[at + 2];
        const size_t length = std::min<size_t>(data[at + 3], size - at - 4);
        at += 4;
        const QString body = FromWire(QByteArrayView(reinterpret_cast<const char*>(data + at), qsizetype(length)));
        at += length;

        // Mostly small steps; now and then long enough to expire and drop everyone.
        now += step == 255 ? 40000 : step;
        QString text = body;
        if (verbIndex < kVerbs.size()) text = kVerbs[verbIndex] % u' ' % body;
        room.Handle(text, sender.address, sender.port);
        Check(room);
        if (step & 1) {
            room.Tick();
            Check(room);
        }
    }
    return 0;
}
