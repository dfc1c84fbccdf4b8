#include "core/fault.h"
#include "core/sessiondata.h"

#include <QElapsedTimer>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;

namespace {

QStringList Names(const SessionData& s)
{
    QStringList names;
    for (const PlayerRecord& p : s.Players()) names.append(p.Name);
    return names;
}

SessionData Roster(const QStringList& names)
{
    SessionData s;
    for (const QString& n : names) s.AddPlayer(n);
    return s;
}

} // namespace

class tst_sessiondata : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rosterOperations()
    {
        SessionData s = Roster({u"Ann"_s, u"ANN"_s});
        QCOMPARE(Names(s), QStringList{u"Ann"_s});
        QCOMPARE(s.FindPlayer(u"ann"_s), 0);
        QCOMPARE(s.FindPlayer(u"Ann"_s), 1);
        const PlayerRecord& fresh = s.Player(1);
        QCOMPARE(fresh.Wins + fresh.Clicks + fresh.RoundClicks + fresh.Ping, 0);
        QCOMPARE(fresh.InGame, u"yes"_s);

        s = Roster({u"Ann"_s, u"Bo"_s, u"Cy"_s});
        s.Player(3).Clicks = 9;
        s.RemovePlayer(u"bo"_s);
        QCOMPARE(Names(s), (QStringList{u"Ann"_s, u"Cy"_s}));
        QCOMPARE(s.Player(2).Clicks, 9);
        s.RemovePlayer(u"Zed"_s);
        QCOMPARE(s.PlayerCount(), 2);

        s = Roster({u"Ann"_s});
        s.RemovePlayer(u"ANN"_s);
        QCOMPARE(s.PlayerCount(), 0);
        s.RemovePlayer(u"Ann"_s);
        s.AddPlayer(u"Bo"_s);
        QCOMPARE(s.FindPlayer(u"Bo"_s), 1);
        QVERIFY_THROWS_EXCEPTION(Fault, s.Player(0));
        QVERIFY_THROWS_EXCEPTION(Fault, s.Player(2));
    }

    void resetKeepsRosterAndRoute()
    {
        SessionData s = Roster({u"Ann"_s});
        s.Player(1).Wins = 3;
        s.InRound = true;
        s.ChooserName = u"Ann"_s;
        s.TargetWordIndex = 1;
        s.RoutePath = u"Apple\r"_s;
        s.CurrentArticle = u"Apple"_s;
        s.ResetGameData();
        QCOMPARE(s.Words.size(), 1);
        QCOMPARE(s.Words.at(0), QString());
        QCOMPARE(s.TargetWordIndex, 0);
        QVERIFY(!s.InRound);
        QVERIFY(s.ChooserName.isEmpty());
        QCOMPARE(s.Player(1).Wins, 3);
        QCOMPARE(s.RoutePath, u"Apple\r"_s);
        QCOMPARE(s.CurrentArticle, u"Apple"_s);
    }

    void playerList_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("fault");
        QTest::addColumn<QStringList>("names");
        QTest::newRow("two") << u"PLAYERLIST COUNT=2;P1=ann;P2=bo;"_s << false << QStringList{u"ann"_s, u"bo"_s};
        QTest::newRow("zero") << u"PLAYERLIST COUNT=0;P1=ann;"_s << false << QStringList{};
        QTest::newRow("missing count") << u"PLAYERLIST P1=ann;"_s << true << QStringList{};
        QTest::newRow("count not a number") << u"PLAYERLIST COUNT=x;P1=ann;"_s << true << QStringList{};
        QTest::newRow("negative") << u"PLAYERLIST COUNT=-3;P1=ann;"_s << false << QStringList{};
        QTest::newRow("fields beyond count")
            << u"PLAYERLIST COUNT=1;P1=ann;P2=bo;"_s << false << QStringList{u"ann"_s};
        QTest::newRow("missing middle")
            << u"PLAYERLIST COUNT=3;P1=ann;P3=cy;"_s << false << QStringList{u"ann"_s, QString(), u"cy"_s};
        QTest::newRow("two gaps, one empty entry")
            << u"PLAYERLIST COUNT=5;P2=bo;P4=di;"_s << false << QStringList{QString(), u"bo"_s, u"di"_s};
        QTest::newRow("duplicates ignoring case")
            << u"PLAYERLIST COUNT=2;P1=Ann;P2=ANN;"_s << false << QStringList{u"Ann"_s};
        QTest::newRow("huge count")
            << u"PLAYERLIST COUNT=2147483647;P1=ann;P2=bo;"_s << false << QStringList{u"ann"_s, u"bo"_s, QString()};
        QTest::newRow("huge count, far index")
            << u"PLAYERLIST COUNT=2147483647;P2147483647=zed;P1=ann;"_s << false
            << QStringList{u"ann"_s, QString(), u"zed"_s};
        QTest::newRow("P0 ignored") << u"PLAYERLIST COUNT=1;P0=x;P1=ann;"_s << false << QStringList{u"ann"_s};
    }
    void playerList()
    {
        QFETCH(QString, message);
        QFETCH(bool, fault);
        QFETCH(QStringList, names);
        SessionData s;
        bool faulted = false;
        try {
            s.AddPlayersFrom(message);
        } catch (const Fault&) {
            faulted = true;
        }
        QCOMPARE(faulted, fault);
        QCOMPARE(Names(s), names);
    }

    void hostileCountsStayCheap()
    {
        // A 64 KiB datagram of many fields under the largest count: work follows the bytes.
        QString message = u"PLAYERLIST COUNT=2147483647;"_s;
        for (int i = 1; message.size() < 65000; i += 7) message += u"P"_s + QString::number(i) + u"=n" + QString::number(i) + u';';
        SessionData s;
        QElapsedTimer timer;
        timer.start();
        s.AddPlayersFrom(message);
        QVERIFY2(timer.elapsed() < 5000, "roster filled in time proportional to COUNT");
        QCOMPARE(s.Player(1).Name, u"n1"_s);
        QCOMPARE(s.Player(2).Name, QString());
        QCOMPARE(s.FindPlayer(QString()), 2);

        const WordList words = WordList::FromStartGame(u"STARTGAME COUNT=2147483647;WORD0=a;WORD1=b;"_s);
        QCOMPARE(words.size(), 2147483648LL);
        QCOMPARE(words.at(1), u"b"_s);
        QCOMPARE(words.at(2147483647), QString());
    }

    void startGameWords_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<bool>("fault");
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        QTest::newRow("two") << u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;"_s << false << 2LL << u"Apple"_s << u"Banana"_s;
        QTest::newRow("one") << u"STARTGAME COUNT=0;WORD0=Apple;WORD1=Banana;"_s << false << 1LL << u"Apple"_s << QString();
        QTest::newRow("missing word") << u"STARTGAME COUNT=1;WORD1=Banana;"_s << false << 2LL << QString() << u"Banana"_s;
        QTest::newRow("negative") << u"STARTGAME COUNT=-1;WORD0=a;"_s << true << 0LL << QString() << QString();
        QTest::newRow("no count") << u"STARTGAME WORD0=a;"_s << true << 0LL << QString() << QString();
    }
    void startGameWords()
    {
        QFETCH(QString, message);
        QFETCH(bool, fault);
        QFETCH(qint64, size);
        QFETCH(QString, first);
        QFETCH(QString, second);
        try {
            const WordList words = WordList::FromStartGame(message);
            QVERIFY(!fault);
            QCOMPARE(words.size(), size);
            QCOMPARE(words.at(0), first);
            QCOMPARE(words.at(1), second);
            QCOMPARE(words.at(-1), QString());
        } catch (const Fault&) {
            QVERIFY(fault);
        }
    }
};

QTEST_GUILESS_MAIN(tst_sessiondata)
#include "tst_sessiondata.moc"
