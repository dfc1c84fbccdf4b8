#include "clientfakes.h"
#include "core/udpendpoint.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "scriptedserver.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QUdpSocket>
#include <QtTest>
#include <memory>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

QStringList Entries(const QListWidget* list)
{
    QStringList entries;
    for (int i = 0; i < list->count(); ++i)
        entries.append(list->item(i)->text());
    return entries;
}

QStringList Entries(const SimpleCombo* combo)
{
    QStringList entries;
    for (int i = 0; i < combo->count(); ++i)
        entries.append(combo->itemText(i));
    return entries;
}

// The dialog as the main window opens it, but shown without its own event loop.
struct OpenDialog
{
    explicit OpenDialog(TestClient& client) : dialog(new frmServers(*client.session))
    {
        dialog->show();
        combo = Find<SimpleCombo>(dialog, u"cmbServers"_s);
        active = Find<QListWidget>(dialog, u"lstActive"_s);
    }
    ~OpenDialog() { delete dialog.data(); }
    QPointer<frmServers> dialog;
    SimpleCombo* combo;
    QListWidget* active;
};

// A double-click is a click followed by the second press that the system reports as a double-click.
void ClickEntry(QListWidget* list, int row, bool twice = false)
{
    const QPoint at = list->visualItemRect(list->item(row)).center();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
    if (twice) QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
}

} // namespace

class tst_frmservers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { StopModalWaits(); }

    void loadsRememberedServers_data()
    {
        QTest::addColumn<QString>("servers");
        QTest::addColumn<QString>("last");
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<int>("selected");
        QTest::newRow("stray commas")
            << u",alpha,,beta,"_s << u"beta"_s << QStringList{u"alpha"_s, u"beta"_s} << 1;
        QTest::newRow("last in other case")
            << u"alpha,beta"_s << u"Alpha"_s << QStringList{u"alpha"_s, u"beta"_s} << -1;
        QTest::newRow("last not listed") << u"alpha"_s << u"gamma"_s << QStringList{u"alpha"_s} << -1;
        QTest::newRow("nothing remembered") << u""_s << u""_s << QStringList() << -1;
    }
    void loadsRememberedServers()
    {
        QFETCH(QString, servers);
        QFETCH(QString, last);
        QFETCH(QStringList, entries);
        QFETCH(int, selected);
        TestClient client;
        client.session->SaveOption(u"Servers"_s, servers);
        client.session->SaveOption(u"LastServer"_s, last);
        OpenDialog open(client);
        QCOMPARE(open.dialog->windowTitle(), u"Join a Game"_s);
        QCOMPARE(Entries(open.combo), entries);
        QCOMPARE(open.combo->currentIndex(), selected);
        QCOMPARE(open.combo->text(), last);
        QVERIFY(client.session->LocalPort.toInt() >= 7200 && client.session->LocalPort.toInt() <= 7220);
        if (entries.isEmpty()) {
            // The first tick finds nothing to ask and ends the search.
            auto* timer = Find<QTimer>(open.dialog, u"tmrSearch"_s);
            QTRY_VERIFY(!timer->isActive());
            QCOMPARE(Find<QLabel>(open.dialog, u"lblStatus"_s)->text(), QString());
            QCOMPARE(open.active->count(), 0);
        }
    }

    void queriesEachServerOnceInOrder()
    {
        ScriptedServer server;
        QVERIFY(server.Listen());
        const QString address = TestAddress().toString();
        TestClient client;
        // Three spellings of one reachable address, so every query lands at the scripted server.
        client.session->SaveOption(u"Servers"_s, address + u","_s + address + u" , "_s + address);
        OpenDialog open(client);
        auto* timer = Find<QTimer>(open.dialog, u"tmrSearch"_s);
        auto* status = Find<QLabel>(open.dialog, u"lblStatus"_s);
        QVERIFY(timer->isActive());
        QCOMPARE(timer->interval(), 100);
        QVERIFY(server.Received().isEmpty()); // the first query waits for the first tick
        QVERIFY(WaitUntil([&] { return !status->text().isEmpty(); }));
        QCOMPARE(status->text(), u"Searching... "_s + address);
        QVERIFY(WaitUntil([&] { return !timer->isActive(); }));
        QCOMPARE(status->text(), QString());
        const QString port = client.session->LocalPort;
        QVERIFY(WaitUntil([&] { return server.Received().size() == 3; }));
        QTest::qWait(150);
        QCOMPARE(server.ReceivedTexts(), (QStringList{
                                             u"STATUS SERVER="_s + address + u";PORT="_s + port + u";"_s,
                                             u"STATUS SERVER="_s + address + u" ;PORT="_s + port + u";"_s,
                                             u"STATUS SERVER= "_s + address + u";PORT="_s + port + u";"_s,
                                         }));
        // Replies must find their way back: the queries leave from the announced port.
        for (const ScriptedServer::Datagram& d : server.Received())
            QCOMPARE(QString::number(d.port), port);
    }

    void listsServersThatAnswer_data()
    {
        QTest::addColumn<QStringList>("replies");
        QTest::addColumn<QStringList>("listed");
        QTest::newRow("answer") << QStringList{u"STATUS SERVER=10.0.0.1;#=3;"_s}
                                << QStringList{u"10.0.0.1 (3)"_s};
        QTest::newRow("no SERVER") << QStringList{u"STATUS #=2;"_s} << QStringList{u" (2)"_s};
        QTest::newRow("empty #") << QStringList{u"STATUS SERVER=10.0.0.1;#=;"_s} << QStringList();
        QTest::newRow("missing #") << QStringList{u"STATUS SERVER=10.0.0.1;"_s} << QStringList();
        QTest::newRow("verb in lower case") << QStringList{u"status SERVER=x;#=1;"_s} << QStringList();
        QTest::newRow("other verb") << QStringList{u"PLAYERLIST COUNT=1;#=1;SERVER=x;"_s} << QStringList();
        QTest::newRow("answering twice") << QStringList{u"STATUS SERVER=b;#=1;"_s, u"STATUS SERVER=b;#=2;"_s}
                                         << QStringList{u"b (1)"_s, u"b (2)"_s};
    }
    void listsServersThatAnswer()
    {
        QFETCH(QStringList, replies);
        QFETCH(QStringList, listed);
        ScriptedServer server;
        QVERIFY(server.Listen());
        TestClient client;
        OpenDialog open(client);
        const quint16 port = client.session->LocalPort.toUShort();
        for (const QString& reply : replies)
            server.SendTo(reply, port);
        // Datagrams on loopback keep their order: once the marker is listed, every reply was read.
        server.SendTo(u"STATUS SERVER=marker;#=0;"_s, port);
        QVERIFY(WaitUntil([&] { return Entries(open.active).contains(u"marker (0)"_s); }));
        QCOMPARE(Entries(open.active), listed + QStringList{u"marker (0)"_s});
    }

    void activeEntriesPickTheServer()
    {
        TestClient client;
        client.session->SaveOption(u"Servers"_s, u"alpha,beta"_s);
        client.session->SaveOption(u"LastServer"_s, u"alpha"_s);
        OpenDialog open(client);
        open.active->addItem(u"beta (2)"_s);
        open.active->addItem(u"gamma (1)"_s);
        open.active->addItem(u"alpha (x) (5)"_s);

        ClickEntry(open.active, 0);
        QCOMPARE(open.combo->text(), u"beta"_s);
        QCOMPARE(open.combo->currentIndex(), 1);
        ClickEntry(open.active, 1); // not a listed server: the combo stays
        QCOMPARE(open.combo->text(), u"beta"_s);
        ClickEntry(open.active, 2); // "alpha (x)" is not listed either
        QCOMPARE(open.combo->text(), u"beta"_s);

        ClickEntry(open.active, 1, true); // joins what the combo holds
        QCOMPARE(client.session->ChosenServer, u"beta"_s);
        QCOMPARE(client.session->LoadOption(u"Servers"_s), u"beta,alpha"_s);
        QVERIFY(!open.dialog->isVisible());
    }

    void joinRemembersTheServer_data()
    {
        QTest::addColumn<QString>("servers");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("how");
        QTest::addColumn<QString>("stored");
        QTest::newRow("other case replaces")
            << u"alpha,Beta,gamma"_s << u"bETA"_s << u"button"_s << u"bETA,alpha,gamma"_s;
        QTest::newRow("already first") << u"alpha,beta"_s << u"alpha"_s << u"button"_s << u"alpha,beta"_s;
        QTest::newRow("new goes first") << u"alpha,beta"_s << u"new"_s << u"enter"_s << u"new,alpha,beta"_s;
        QTest::newRow("spaces kept") << u""_s << u" spaced "_s << u"enter"_s << u" spaced "_s;
        QTest::newRow("list double-click") << u"alpha,beta"_s << u"beta"_s << u"list"_s << u"beta,alpha"_s;
    }
    void joinRemembersTheServer()
    {
        QFETCH(QString, servers);
        QFETCH(QString, typed);
        QFETCH(QString, how);
        QFETCH(QString, stored);
        TestClient client;
        client.session->SaveOption(u"Servers"_s, servers);
        OpenDialog open(client);
        if (how == u"list"_s) {
            ClickEntry(open.combo->list(), int(Entries(open.combo).indexOf(typed)), true);
        } else {
            open.combo->edit()->clear();
            QTest::keyClicks(open.combo->edit(), typed);
            if (how == u"enter"_s)
                QTest::keyClick(open.combo->edit(), Qt::Key_Return);
            else
                Find<QPushButton>(open.dialog, u"cmdJoin"_s)->click();
        }
        QCOMPARE(client.session->ChosenServer, typed);
        QCOMPARE(client.session->LoadOption(u"LastServer"_s), typed);
        QCOMPARE(client.session->LoadOption(u"Servers"_s), stored);
        QVERIFY(!open.dialog->isVisible());
        // Closing freed the local port for the main window's connection.
        UdpEndpoint connection;
        QVERIFY(connection.Bind(client.session->LocalPort));
        RunDeferredDeletes();
        QVERIFY(open.dialog.isNull());
    }

    void joinWithoutAnAddressDoesNothing_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<bool>("enter");
        QTest::newRow("empty") << u""_s << false;
        QTest::newRow("dots and spaces") << u" . .. "_s << false;
        QTest::newRow("dots, Enter") << u"..."_s << true;
    }
    void joinWithoutAnAddressDoesNothing()
    {
        QFETCH(QString, typed);
        QFETCH(bool, enter);
        TestClient client;
        client.session->SaveOption(u"Servers"_s, u"alpha"_s);
        OpenDialog open(client);
        open.combo->edit()->clear();
        QTest::keyClicks(open.combo->edit(), typed);
        if (enter)
            QTest::keyClick(open.combo->edit(), Qt::Key_Return);
        else
            Find<QPushButton>(open.dialog, u"cmdJoin"_s)->click();
        QVERIFY(open.dialog->isVisible());
        QCOMPARE(open.combo->text(), typed); // Enter was not inserted
        QVERIFY(client.session->ChosenServer.isEmpty());
        QCOMPARE(client.session->LoadOption(u"Servers"_s), u"alpha"_s);
        QVERIFY(!QFile::exists(client.folder.filePath(u"LastServer.dat"_s)));
    }

    void escapeCancels()
    {
        TestClient client;
        client.session->ChosenServer = u"stale"_s;
        WhenModal<frmServers>([](frmServers* d) {
            QTest::keyClick(Find<SimpleCombo>(d, u"cmbServers"_s)->edit(), Qt::Key_Escape);
        });
        const QPointer<frmServers> dialog = new frmServers(*client.session);
        dialog->exec();
        QVERIFY(client.session->ChosenServer.isEmpty());
        RunDeferredDeletes();
        QVERIFY(dialog.isNull());
    }

    void noFreeLocalPortEndsTheProgram()
    {
        // Ports another test run holds at this moment count as held too.
        std::vector<std::unique_ptr<QUdpSocket>> holders;
        for (quint16 port = 7200; port <= 7220; ++port) {
            holders.push_back(std::make_unique<QUdpSocket>());
            holders.back()->bind(QHostAddress::AnyIPv4, port, QAbstractSocket::DontShareAddress);
        }
        TestClient client;
        const QPointer<frmServers> dialog = new frmServers(*client.session);
        QCOMPARE(client.prompts.MessageTexts(),
                 QStringList{u"Critical error:\r\nCould not find a local port to bind to."_s});
        QCOMPARE(client.prompts.messageBoxes.first().icon, Icon::Critical);
        QCOMPARE(client.programEnd.endings.size(), 1);
        QVERIFY(client.session->Ended());
        QCOMPARE(client.session->LocalPort, u"-1"_s);
        QVERIFY(!Find<QTimer>(dialog, u"tmrSearch"_s)->isActive());
        delete dialog.data();
    }
};

QTEST_MAIN(tst_frmservers)
#include "tst_frmservers.moc"
