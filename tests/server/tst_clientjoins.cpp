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
    // A name that the wire reads otherwise ("%C5%81" is "Ł" once it has crossed) is the name the
    // server and every player know, and so the own client: it hosts, chooses the words, wins its
    // round, sends its route and chooses again.
    void aNameAsTheWireReadsIt_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("name");
        QTest::newRow("an escape run") << u"%C5%81"_s << u"\u0141"_s;
        QTest::newRow("escapes among letters") << u"Jo%E4%B8%ADn"_s << u"Jo\u4e2dn"_s;
        QTest::newRow("an escape the wire keeps") << u"Caf%C3%A9"_s << u"Caf%C3%A9"_s;
    }
    void aNameAsTheWireReadsIt()
    {
        QFETCH(QString, typed);
        QFETCH(QString, name);
        server::GameServer server{server::ServerConfig()}; // no encyclopedia: every win stands
        QVERIFY2(server.Start(TestAddress()), "port 7200 of the test address must be free");
        TestClient player;
        Session& s = *player.session;
        Join(player, typed);
        QVERIFY(WaitUntil([&] { return s.Game() && s.PlayerCount() == 1; }));
        QCOMPARE(s.PlayerName, name);
        QCOMPARE(s.Player(1).Name, name);
        frmWinner* chooser = s.OpenWinner();
        QVERIFY(chooser && chooser->isVisible()); // the host chooses first
        player.LastBrowser()->titleFor = EveryArticleTitle;
        chooser->txtInitial->setText(u"Apple"_s);
        chooser->txtDestination->setText(u"Banana"_s);
        QTest::keyClick(chooser->txtDestination, Qt::Key_Return); // starts the round
        QVERIFY(WaitUntil([&] { return s.InRound; }));
        player.LastBrowser()->Navigate(u"http://wiki.test/wiki/Banana"_s); // the player clicks
        const QString won = u"GAME: "_s + name + u" has won the round in ";
        const QString told = u"GAME: The winning route was: \r\nApple --> Banana\r\nGAME: "_s + name +
                             u" now chooses the next words.";
        QVERIFY2(WaitUntil([&] { return s.OpenChat()->Transcript().contains(told); }),
                 qPrintable(s.OpenChat()->Transcript()));
        QVERIFY(s.OpenChat()->Transcript().contains(won));
        QVERIFY(s.OpenWinner() && s.OpenWinner()->isVisible());
        StopModalWaits();
    }
};

QTEST_MAIN(tst_clientjoins)
#include "tst_clientjoins.moc"
