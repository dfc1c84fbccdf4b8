// The real client's lobby joins the real server's room on loopback.
#include "clientfakes.h"
#include "game/frmgame.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobbytest.h"
#include "panels/frmchat.h"
#include "panels/frmwinner.h"
#include "scriptedserver.h"
#include "server/gameserver.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

class tst_clientjoins : public QObject
{
    Q_OBJECT

    // Join Game with the server in "Servers"; a double-click on its entry; returns the entry's text.
    static QString Join(TestClient& player, const QString& name)
    {
        player.session->SaveOption(u"Servers"_s, TestAddress().toString());
        auto* window = new frmMain(*player.session);
        window->show();
        Find<QLineEdit>(window, u"txtName"_s)->setText(name);
        QString listed;
        WhenModal<frmServers>([&](frmServers* d) {
            auto* active = Find<QListWidget>(d, u"lstActive"_s);
            if (!WaitUntil([&] { return active->count() > 0; })) return;
            listed = active->item(0)->text();
            active->setCurrentRow(0);
            Q_EMIT active->itemDoubleClicked(active->item(0));
        });
        Find<QPushButton>(window, u"cmdJoin"_s)->click();
        return listed;
    }

private Q_SLOTS:
    void clientsJoinTheServer()
    {
        server::ServerConfig config;
        config.Welcome = u"%p user(s) connected to Linkhop Server %v"_s;
        config.Articles = {u"Apple"_s};
        server::GameServer server(config);
        QVERIFY2(server.Start(TestAddress()), "port 7200 of the test address must be free");
        TestClient ann, bo;
        Session &a = *ann.session, &b = *bo.session;

        QCOMPARE(Join(ann, u"ann"_s), TestAddress().toString() + u" (0)"_s);
        QVERIFY(WaitUntil([&] { return a.Game() && a.PlayerCount() == 1; }));
        QVERIFY(a.OpenWinner() && a.OpenWinner()->isVisible()); // the host chooses first
        QVERIFY(a.OpenChat()->Transcript().contains(
            u"GAME: 1 user(s) connected to Linkhop Server 1.04 (beta)"_s));

        QCOMPARE(Join(bo, u"bo"_s), TestAddress().toString() + u" (1)"_s);
        QVERIFY(WaitUntil([&] { return b.Game() && b.PlayerCount() == 2 && a.PlayerCount() == 2; }));
        QVERIFY(b.LocalPort != a.LocalPort);

        b.Game()->close(); // tells the server, which tells the others
        QVERIFY(WaitUntil([&] { return a.PlayerCount() == 1; }));
        QVERIFY(a.OpenChat()->Transcript().endsWith(u"GAME: bo has left the game."_s));
        StopModalWaits();
    }
};

QTEST_MAIN(tst_clientjoins)
#include "tst_clientjoins.moc"
