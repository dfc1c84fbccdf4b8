#include "clientfakes.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"

#include <QLabel>
#include <QScreen>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

struct Columns
{
    QString players;
    QString scores;
    QString pings;
};

const Columns Example{u"ann\r\nbob\r\n"_s, u"2 / 37 / 5\r\n0 / 12 / 12\r\n"_s, u"120ms\r\n95ms\r\n"_s};
const Columns Changed{u"ann\r\nbob\r\ncy\r\n"_s, u"3 / 37 / 5\r\n0 / -7 / -1\r\n0 / 0 / 0\r\n"_s,
                      u"130ms\r\n-2147483648ms\r\n0ms\r\n"_s};

} // namespace

class TestScores final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_client = std::make_unique<test::TestClient>(); }
    void cleanup() { m_client.reset(); }

    void loadShowsEveryColumn()
    {
        FillExample();
        const frmScores& scores = m_client->session->Scores();
        QCOMPARE(Read(scores).players, Example.players);
        QCOMPARE(Read(scores).scores, Example.scores);
        QCOMPARE(Read(scores).pings, Example.pings);
        QCOMPARE(Text(scores, u"lblStartWord"_s), u"None"_s);
        QCOMPARE(Text(scores, u"lblNextWord"_s), u"None"_s);
    }

    void refreshRebuildsOnlyTheFlaggedColumns_data()
    {
        QTest::addColumn<bool>("player");
        QTest::addColumn<bool>("score");
        QTest::addColumn<bool>("ping");
        QTest::addColumn<bool>("sorted");
        QTest::newRow("all three") << true << true << true << false;
        QTest::newRow("score only") << false << true << false << false;
        QTest::newRow("ping only") << false << false << true << false;
        QTest::newRow("player only") << true << false << false << false;
        QTest::newRow("no flag") << false << false << false << false;
        QTest::newRow("sorted keeps all") << true << true << true << true;
    }
    void refreshRebuildsOnlyTheFlaggedColumns()
    {
        QFETCH(bool, player);
        QFETCH(bool, score);
        QFETCH(bool, ping);
        QFETCH(bool, sorted);
        FillExample();
        frmScores& scores = m_client->session->Scores();
        ChangeExample();
        scores.UpdateList(player, score, ping, false, sorted);

        const Columns shown = Read(scores);
        QCOMPARE(shown.players, player && !sorted ? Changed.players : Example.players);
        QCOMPARE(shown.scores, score && !sorted ? Changed.scores : Example.scores);
        QCOMPARE(shown.pings, ping && !sorted ? Changed.pings : Example.pings);
    }

    void emptyRosterEmptiesTheColumns()
    {
        FillExample();
        frmScores& scores = m_client->session->Scores();
        m_client->session->RemovePlayer(u"ann"_s);
        m_client->session->RemovePlayer(u"bob"_s);
        scores.UpdateList(true, false, true);
        QCOMPARE(Read(scores).players, QString());
        QCOMPARE(Read(scores).scores, Example.scores);
        QCOMPARE(Read(scores).pings, QString());
    }

    void wordLines_data()
    {
        QTest::addColumn<bool>("inRound");
        QTest::addColumn<QString>("startGame");
        QTest::addColumn<bool>("wordsFlag");
        QTest::addColumn<bool>("sorted");
        QTest::addColumn<QString>("start");
        QTest::addColumn<QString>("next");
        const QString round = u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;"_s;
        QTest::newRow("in a round") << true << round << true << false << u"Apple"_s << u"Banana"_s;
        QTest::newRow("outside a round") << false << round << true << false << u"None"_s << u"None"_s;
        QTest::newRow("no words flag") << true << round << false << false << u"None"_s << u"None"_s;
        QTest::newRow("sorted still refreshes words")
            << true << round << true << true << u"Apple"_s << u"Banana"_s;
        QTest::newRow("count 0") << true << u"STARTGAME COUNT=0;WORD0=Apple;WORD1=Banana;"_s << true << false
                                 << u"Apple"_s << QString();
    }
    void wordLines()
    {
        QFETCH(bool, inRound);
        QFETCH(QString, startGame);
        QFETCH(bool, wordsFlag);
        QFETCH(bool, sorted);
        QFETCH(QString, start);
        QFETCH(QString, next);
        FillExample();
        Session& session = *m_client->session;
        session.ResetGameData();
        frmScores& scores = session.Scores();
        session.Words = WordList::FromStartGame(startGame);
        session.TargetWordIndex = 1;
        session.InRound = inRound;
        ChangeExample();
        scores.UpdateList(false, false, false, wordsFlag, sorted);
        QCOMPARE(Text(scores, u"lblStartWord"_s), start);
        QCOMPARE(Text(scores, u"lblNextWord"_s), next);
        QCOMPARE(Read(scores).players, Example.players);
    }

    void hangsBelowTheChat()
    {
        Session& session = *m_client->session;
        const QRect screen = QGuiApplication::primaryScreen()->geometry();

        frmScores& alone = session.Scores();
        alone.show();
        QCOMPARE(alone.frameGeometry(), QRect(0, 0, 239, screen.height() - 32));
        alone.UnloadNow();

        frmChat& chat = session.Chat();
        chat.show();
        const int chatHeight = chat.frameGeometry().height();
        frmScores& below = session.Scores();
        below.show();
        QCOMPARE(below.frameGeometry(), QRect(0, chatHeight, 239, screen.height() - chatHeight - 32));
    }

    void sizeSnapsBack_data()
    {
        QTest::addColumn<QSize>("requested");
        QTest::addColumn<QSize>("result");
        QTest::newRow("wider") << QSize(300, 400) << QSize(239, 400);
        QTest::newRow("narrower") << QSize(100, 300) << QSize(239, 300);
        QTest::newRow("too low") << QSize(239, 207) << QSize(239, 208);
        QTest::newRow("lowest allowed") << QSize(239, 208) << QSize(239, 208);
        QTest::newRow("both wrong") << QSize(20, 20) << QSize(239, 208);
    }
    void sizeSnapsBack()
    {
        QFETCH(QSize, requested);
        QFETCH(QSize, result);
        frmScores& scores = m_client->session->Scores();
        scores.show();
        QVERIFY(QTest::qWaitForWindowExposed(&scores));
        const QSize frame = scores.frameGeometry().size() - scores.size();
        scores.resize(requested - frame);
        QCOMPARE(scores.frameGeometry().size(), result);
        // The platform's own report of the change must not undo the correction.
        QCoreApplication::processEvents();
        QCOMPARE(scores.frameGeometry().size(), result);
    }

    void bottomKeepsItsDistance_data()
    {
        QTest::addColumn<int>("height");
        QTest::newRow("design height") << 360;
        QTest::newRow("taller") << 500;
        QTest::newRow("lowest") << 208;
    }
    void bottomKeepsItsDistance()
    {
        QFETCH(int, height);
        FillExample();
        frmScores& scores = m_client->session->Scores();
        scores.show();
        ChangeExample();
        scores.resize(scores.width(), height);
        const int H = scores.height();

        const frmScores::ScoreLines& lines = scores.Lines();
        QCOMPARE(lines.Line1, QLine(0, 24, 232, 24));
        QCOMPARE(lines.Line2, QLine(120, 0, 120, H - 136));
        QCOMPARE(lines.Line3, QLine(184, 0, 184, H - 136));
        QCOMPARE(lines.Line4, QLine(0, H - 136, 232, H - 136));
        QCOMPARE(lines.Line5, QLine(0, H - 112, 232, H - 112));

        const QList<std::pair<QString, QRect>> places{
            {u"Label1"_s, {8, 8, 225, 17}},
            {u"lblPlayers"_s, {4, 32, 112, H - 168}},
            {u"lblScores"_s, {124, 32, 57, H - 168}},
            {u"lblPings"_s, {188, 32, 44, H - 168}},
            {u"lblScoresAsterisk"_s, {8, H - 128, 217, 17}},
            {u"lblStartingWordCaption"_s, {8, H - 104, 89, 17}},
            {u"lblStartWord"_s, {8, H - 88, 217, 17}},
            {u"lblWordToFindCaption"_s, {8, H - 68, 81, 17}},
            {u"lblNextWord"_s, {8, H - 52, 217, 17}},
        };
        for (const auto& [name, place] : places) {
            const auto* label = scores.findChild<QLabel*>(name);
            QVERIFY2(label, qPrintable(name));
            QCOMPARE(label->geometry(), place);
        }
        if (height == 360) QCOMPARE(scores.findChild<QLabel*>(u"lblPlayers"_s)->height(), 192);

        // A resize refreshes the columns too.
        QCOMPARE(Read(scores).scores, Changed.scores);
    }

    void lookAndFonts()
    {
        const frmScores& scores = m_client->session->Scores();
        QCOMPARE(scores.windowTitle(), u"Scoreboard"_s);
        QVERIFY(scores.windowFlags().testFlag(Qt::Tool));
        QVERIFY(!scores.windowFlags().testFlag(Qt::WindowMaximizeButtonHint));
        QCOMPARE(scores.palette().color(QPalette::Window), QColor(Qt::white));
        QVERIFY(scores.autoFillBackground());

        const QList<std::tuple<QString, qreal, bool>> fonts{
            {u"lblPlayers"_s, 6, false},
            {u"lblScoresAsterisk"_s, 6.75, false},
            {u"lblStartingWordCaption"_s, 8.25, true},
            {u"lblNextWord"_s, 8.25, false},
        };
        for (const auto& [name, size, bold] : fonts) {
            const auto* label = scores.findChild<QLabel*>(name);
            QVERIFY(!label->autoFillBackground());
            QCOMPARE(label->font().family(), u"Arial"_s);
            QCOMPARE(label->font().pointSizeF(), size);
            QCOMPARE(label->font().bold(), bold);
        }
        QCOMPARE(Text(scores, u"Label1"_s), u"Player                     Score*      Ping"_s);
    }

    void refusesToCloseUntilUnloaded()
    {
        Session& session = *m_client->session;
        QCOMPARE(session.OpenScores(), nullptr);
        QPointer<frmScores> first = &session.Scores();
        first->show();
        QVERIFY(!first->close());
        QVERIFY(first->isVisible());
        QCOMPARE(&session.Scores(), first.data());

        first->UnloadNow();
        QVERIFY(first->isHidden());
        QCOMPARE(session.OpenScores(), nullptr);
        frmScores& second = session.Scores();
        QVERIFY(&second != first.data());
        QVERIFY(!second.UnloadAllowed());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(first.isNull());
        QCOMPARE(session.OpenScores(), &second);
    }

private:
    // The worked example: ann (2, 37, 5, 120) and bob (0, 12, 12, 95).
    void FillExample()
    {
        Session& session = *m_client->session;
        session.AddPlayer(u"ann"_s);
        session.AddPlayer(u"bob"_s);
        session.Player(1) = {u"ann"_s, 2, 37, 5, 120};
        session.Player(2) = {u"bob"_s, 0, 12, 12, 95};
    }
    // Gives every column different text, negative numbers included.
    void ChangeExample()
    {
        Session& session = *m_client->session;
        session.Player(1).Wins = 3;
        session.Player(1).Ping = 130;
        session.Player(2).Clicks = -7;
        session.Player(2).RoundClicks = -1;
        session.Player(2).Ping = std::numeric_limits<qint32>::min();
        session.AddPlayer(u"cy"_s);
    }
    static QString Text(const frmScores& scores, const QString& name)
    {
        return scores.findChild<QLabel*>(name)->text();
    }
    static Columns Read(const frmScores& scores)
    {
        return {Text(scores, u"lblPlayers"_s), Text(scores, u"lblScores"_s), Text(scores, u"lblPings"_s)};
    }

    std::unique_ptr<test::TestClient> m_client;
};

} // namespace linkhop

QTEST_MAIN(linkhop::TestScores)
#include "tst_scores.moc"
