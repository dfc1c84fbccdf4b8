#include "clientfakes.h"
#include "game/frmgame.h"
#include "server/gameserver.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "panels/frmchat.h"
#include "panels/frmwinner.h"
#include "scriptedserver.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QtTest>

#include <memory>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

// A client that joins through its main window and server browser, as a player does.
struct Player
{
    explicit Player(const QString& name, const QString& servers)
    {
        client.session->SaveOption(u"Servers"_s, servers);
        window = new frmMain(*client.session);
        window->show();
        Find<QLineEdit>(window, u"txtName"_s)->setText(name);
    }
    // Join Game; in the server browser, waits for the server to answer the status query and
    // double-clicks its entry.
    void Join(QString* listed)
    {
        WhenModal<frmServers>([listed](frmServers* d) {
            auto* active = Find<QListWidget>(d, u"lstActive"_s);
            WaitUntil([&] { return active->count() > 0; });
            if (active->count() == 0) return;
            *listed = active->item(0)->text();
            active->setCurrentRow(0);
            Q_EMIT active->itemDoubleClicked(active->item(0));
        });
        Find<QPushButton>(window, u"cmdJoin"_s)->click();
    }
    Session& S() { return *client.session; }
    QString Transcript() { return S().OpenChat() ? S().OpenChat()->Transcript() : QString(); }

    TestClient client;
    QPointer<frmMain> window;
};

} // namespace

// The real client's lobby joins the real server's room on loopback.
class tst_clientjoins : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clientsJoinTheServer()
    {
        server::ServerConfig config;
        config.Welcome = u"%p user(s) connected to Linkhop Server %v"_s;
        config.Articles = {u"Apple"_s};
        server::GameServer server(config);
        QVERIFY2(server.Start(TestAddress()), "port 7200 of the test address must be free");
        const QString address = TestAddress().toString();

        Player ann(u"ann"_s, address);
        QString listed;
        ann.Join(&listed);
        QCOMPARE(listed, address + u" (0)"_s);
        QVERIFY(WaitUntil([&] { return ann.S().Game() != nullptr; }));
        QCOMPARE(ann.S().PlayerCount(), 1);
        QCOMPARE(ann.S().Player(1).Name, u"ann"_s);
        // The first player is the host and chooses the first words.
        QVERIFY(ann.S().OpenWinner() && ann.S().OpenWinner()->isVisible());
        QVERIFY(ann.Transcript().contains(u"GAME: 1 user(s) connected to Linkhop Server 1.04 (beta)"_s));
        QTRY_VERIFY(!ann.window);

        Player bo(u"bo"_s, address);
        bo.Join(&listed);
        QCOMPARE(listed, address + u" (1)"_s);
        QVERIFY(WaitUntil([&] { return bo.S().Game() != nullptr; }));
        QCOMPARE(bo.S().PlayerCount(), 2);
        QVERIFY(!bo.S().OpenWinner());
        QVERIFY(WaitUntil([&] { return ann.S().PlayerCount() == 2; }));
        QVERIFY(ann.Transcript().endsWith(u"GAME: bo has joined the game."_s));
        QVERIFY(bo.S().LocalPort != ann.S().LocalPort);

        // A second "ann", in other letter case, is refused by name.
        Player twin(u"ANN"_s, address);
        twin.Join(&listed);
        auto* status = Find<QLabel>(twin.window, u"lblStatus"_s);
        QVERIFY(WaitUntil([&] { return status->text() == u"Connection was refused: Name is already in use."_s; }));

        // Leaving: the game window's close tells the server, which tells the others.
        bo.S().Game()->close();
        QVERIFY(WaitUntil([&] { return ann.S().PlayerCount() == 1; }));
        QVERIFY(ann.Transcript().endsWith(u"GAME: bo has left the game."_s));
        StopModalWaits();
    }
};

QTEST_MAIN(tst_clientjoins)
#include "tst_clientjoins.moc"
