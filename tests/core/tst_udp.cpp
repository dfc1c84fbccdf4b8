#include "core/localport.h"
#include "core/udpendpoint.h"
#include "scriptedserver.h"

#include <QSignalSpy>
#include <QUdpSocket>
#include <QtTest>

#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using linkhop::test::WaitUntil;

class tst_udp : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void findLocalPortSkipsHeldPorts_data()
    {
        QTest::addColumn<int>("held");
        QTest::addColumn<QString>("expected");
        QTest::newRow("none held") << 0 << u"7200"_s;
        QTest::newRow("first two held") << 2 << u"7202"_s;
        QTest::newRow("all but last held") << 20 << u"7220"_s;
        QTest::newRow("all held") << 21 << u"-1"_s;
    }
    void findLocalPortSkipsHeldPorts()
    {
        QFETCH(int, held);
        QFETCH(QString, expected);
        std::vector<std::unique_ptr<QUdpSocket>> holders;
        for (int i = 0; i < held; ++i) {
            holders.push_back(std::make_unique<QUdpSocket>());
            // Held on one address only: the exclusive bind must still refuse the port.
            const QHostAddress address = i % 2 ? QHostAddress(QHostAddress::AnyIPv4) : linkhop::test::TestAddress();
            QVERIFY2(holders.back()->bind(address, quint16(7200 + i), QAbstractSocket::DontShareAddress),
                     "test ports 7200-7220 must be free");
        }
        UdpEndpoint probe;
        QCOMPARE(FindLocalPort(probe), expected);
        QCOMPARE(probe.State(), 0);
        if (expected != u"-1"_s) {
            UdpEndpoint user; // the port is free again for the caller
            QVERIFY(user.Bind(expected));
        }
    }

    void exclusiveBind()
    {
        UdpEndpoint first, second;
        QVERIFY(first.Bind(u"7210"_s));
        QVERIFY(!second.Bind(u"7210"_s));
        first.Close();
        QVERIFY(second.Bind(u"7210"_s));
        QVERIFY(!first.Bind(u"not a port"_s));
        QVERIFY(!first.Bind(u"70000"_s));
    }

    void datagramsCarryWindows1252()
    {
        linkhop::test::ScriptedServer server;
        QVERIFY(server.Listen());
        server.OnVerb(u"PING"_s, QStringList{u"PONG NAME=Jos\u00e9;TIME=\u20ac;"_s});
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7211"_s));
        QSignalSpy arrivals(&client, &UdpEndpoint::DataArrival);
        client.RemoteHost = server.Address().toString();
        client.RemotePort = 7200;
        client.SendData(u"PING TIME=caf\u00e9 \u4e2d;"_s);
        QVERIFY(WaitUntil([&] { return arrivals.size() == 1; }));
        QCOMPARE(server.ReceivedTexts(), QStringList{u"PING TIME=caf\u00e9 ?;"_s});
        QCOMPARE(server.Received().first().port, quint16(7211));
        QCOMPARE(arrivals.first().first().toString(), u"PONG NAME=Jos\u00e9;TIME=\u20ac;"_s);
    }

    void floodLeavesRoomForOtherEvents()
    {
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7212"_s));
        int delivered = 0;
        int deliveredWhenOthersRan = -1;
        connect(&client, &UdpEndpoint::DataArrival, this, [&] {
            if (++delivered == 1) // another event, queued behind the flood's first datagram
                QTimer::singleShot(0, this, [&] { deliveredWhenOthersRan = delivered; });
        });
        QUdpSocket flood;
        const int total = 200; // fits the receive buffer, so none is lost before it is read
        for (int i = 0; i < total; ++i)
            flood.writeDatagram(QByteArray("SCOREIS NAME=x;"), QHostAddress::LocalHost, 7212);
        QVERIFY(WaitUntil([&] { return delivered == total; }, 10000));
        QVERIFY(deliveredWhenOthersRan > 0);
        QVERIFY(deliveredWhenOthersRan <= 2 * UdpEndpoint::kBatch);
    }

    void handlersThatWaitStillReceive()
    {
        // A handler that lets events run sees the datagrams arriving meanwhile, to completion,
        // and later bursts still arrive after a burst was read out.
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7214"_s));
        QStringList order;
        connect(&client, &UdpEndpoint::DataArrival, this, [&](const QString& text) {
            order << u"begin "_s + text;
            if (text == u"first"_s) WaitUntil([&] { return order.contains(u"end second"_s); }, 3000);
            order << u"end "_s + text;
        });
        QUdpSocket peer;
        const auto send = [&](const char* text) { peer.writeDatagram(QByteArray(text), QHostAddress::LocalHost, 7214); };
        send("first");
        QTimer::singleShot(100, this, [&] { send("second"); });
        QVERIFY(WaitUntil([&] { return order.size() == 4; }));
        QCOMPARE(order, (QStringList{u"begin first"_s, u"begin second"_s, u"end second"_s, u"end first"_s}));
        send("third");
        send("fourth");
        QVERIFY(WaitUntil([&] { return order.size() == 8; }));
        QCOMPARE(order.last(), u"end fourth"_s);
    }

    void closingFromTheHandlerStopsReading()
    {
        QTest::failOnWarning(QRegularExpression(u".*"_s));
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7214"_s));
        int delivered = 0;
        connect(&client, &UdpEndpoint::DataArrival, this, [&] {
            ++delivered;
            client.Close();
        });
        QUdpSocket sender;
        for (int i = 0; i < 3; ++i)
            sender.writeDatagram(QByteArray("PLAYERLIST COUNT=0;"), QHostAddress::LocalHost, 7214);
        QVERIFY(WaitUntil([&] { return delivered > 0; }));
        QTest::qWait(50);
        QCOMPARE(delivered, 1);
    }

    void sendingToBadHostsReportsErrors()
    {
        UdpEndpoint client;
        QVERIFY(client.Bind(u"7213"_s));
        QSignalSpy errors(&client, &UdpEndpoint::Error);
        client.RemotePort = 7200;
        client.RemoteHost = QString();
        client.SendData(u"STATUS"_s);
        client.RemoteHost = u"no-such-host.invalid"_s;
        client.SendData(u"STATUS"_s);
        client.RemoteHost = u"::1"_s;
        client.SendData(u"STATUS"_s);
        QVERIFY(WaitUntil([&] { return errors.size() == 3; }, 15000));
        QCOMPARE(errors.first().first().toInt(), 11001);
    }
};

QTEST_GUILESS_MAIN(tst_udp)
#include "tst_udp.moc"
