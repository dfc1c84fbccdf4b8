// The room without sockets, on a clock the test turns: how updates are merged when the room sends
// more than its budget allows.
#include "core/messages.h"
#include "core/version.h"
#include "server/room.h"

#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::server;

namespace {

class RecordingOutput final : public RoomOutput
{
public:
    void Send(const QString& text, const Endpoint& to) override { sent[to.Port].append(text); }
    void Event(const QString&) override {}
    // Everything sent to `port` since the last call.
    QStringList Take(quint16 port) { return std::exchange(sent[port], {}); }
    QHash<quint16, QStringList> sent;
};

const QHostAddress kHome(u"192.0.2.1"_s);

} // namespace

class tst_room : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void updatesMergeWhenOverBudget()
    {
        qint64 now = 0;
        ServerConfig config;
        config.FanOutRate = 10; // datagrams per second: far below what three racers cause
        RecordingOutput out;
        Room room(config, out, [&] { return now; });
        const QStringList names = {u"Ann"_s, u"Bo"_s, u"Cy"_s};
        for (int i = 0; i < names.size(); ++i) {
            const auto port = quint16(1001 + i);
            room.Handle(msg::Connect(ClientVersion, names[i], QString::number(port)), kHome, port);
            room.Handle(msg::GetPlayerList(QString::number(port)), kHome, port);
        }
        room.Handle(msg::SetWords(u"Apple", u"Banana"), kHome, 1001);
        QVERIFY(room.RoundRunning());
        for (quint16 port : {1001, 1002, 1003})
            out.Take(port);

        // The racer hears at once; the others wait for budget.
        room.Handle(msg::Navigate(u"Bo", u"Fruit"), kHome, 1002);
        room.Handle(msg::Navigate(u"Bo", u"Tree"), kHome, 1002);
        QCOMPARE(out.Take(1002),
                 (QStringList{msg::ScoreIs(u"Bo", 0, 1, 1, true), msg::ScoreIs(u"Bo", 0, 2, 2, true)}));
        QVERIFY(room.HasPendingFanOut());
        room.Tick();
        QCOMPARE(out.Take(1001), QStringList());

        // Then one merged update each, with the latest figures.
        now += 10000;
        room.Tick();
        QCOMPARE(out.Take(1001), QStringList{msg::ScoreIs(u"Bo", 0, 2, 2, true)});
        QCOMPARE(out.Take(1003), QStringList{msg::ScoreIs(u"Bo", 0, 2, 2, true)});
        QCOMPARE(out.Take(1002), QStringList());
        QVERIFY(!room.HasPendingFanOut());

        // While the budget lasts (two datagrams per report here) updates go to everyone at once; a
        // win never waits, and leaves nothing stale behind.
        room.Handle(msg::Navigate(u"Cy", u"Fruit"), kHome, 1003);
        room.Handle(msg::Navigate(u"Cy", u"Tree"), kHome, 1003);
        QCOMPARE(out.Take(1001),
                 (QStringList{msg::ScoreIs(u"Cy", 0, 1, 1, true), msg::ScoreIs(u"Cy", 0, 2, 2, true)}));
        room.Handle(msg::Navigate(u"Cy", u"Leaf"), kHome, 1003);
        QCOMPARE(out.Take(1001), QStringList());
        room.Handle(msg::Navigate(u"Cy", u"Banana"), kHome, 1003);
        const QString won = msg::ScoreIs(u"Cy", 1, 4, 4, true);
        QCOMPARE(out.Take(1001), (QStringList{won, msg::Winner(u"Cy"), won}));
        now += 10000;
        room.Tick();
        QCOMPARE(out.Take(1001), QStringList());
        QVERIFY(room.CheckInvariants().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_room)
#include "tst_room.moc"
