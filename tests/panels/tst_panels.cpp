#include "clientfakes.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScreen>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

class TestPanels final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_client = std::make_unique<test::TestClient>();
        Session& session = *m_client->session;
        session.PlayerName = u"ann"_s;
        session.LocalPort = u"7345"_s;
        session.SetGameSender([this](const QString& text) { m_sent.append(text); });
        m_sent.clear();
        // ann (2, 37, 5, 120) and bob (0, 12, 12, 95)
        session.AddPlayer(u"ann"_s);
        session.AddPlayer(u"bob"_s);
        session.Player(1) = {u"ann"_s, 2, 37, 5, 120};
        session.Player(2) = {u"bob"_s, 0, 12, 12, 95};
    }
    void cleanup() { m_client.reset(); }

    void chatKeepsTheNewestLines_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("after");
        QTest::addColumn<QString>("first");
        QTest::newRow("first line") << 0 << u"x"_s << 1 << u"p: x"_s;
        QTest::newRow("99, nothing dropped") << 99 << u"x"_s << 100 << u"p: 1"_s;
        QTest::newRow("100, oldest dropped") << 100 << u"x"_s << 100 << u"p: 2"_s;
        QTest::newRow("text with CR LF") << 99 << u"a\r\nb"_s << 101 << u"p: 1"_s;
        QTest::newRow("empty text") << 1 << QString() << 2 << u"p: 1"_s;
    }
    void chatKeepsTheNewestLines()
    {
        QFETCH(int, before);
        QFETCH(QString, text);
        QFETCH(int, after);
        QFETCH(QString, first);
        frmChat& chat = m_client->session->Chat();
        for (int i = 1; i <= before; ++i)
            chat.AddChat(u"p"_s, QString::number(i));
        chat.AddChat(u"p"_s, text);
        QStringList lines = chat.Transcript().split(u"\r\n"_s);
        QCOMPARE(lines.size(), after);
        QCOMPARE(lines.first(), first);
        QVERIFY(chat.Transcript().endsWith(u"p: " % text));

        // A line holding CR LF counts as two at the next trim.
        chat.AddChat(QString(), QString());
        lines = chat.Transcript().split(u"\r\n"_s);
        QCOMPARE(lines.size(), std::min(after + 1, 100));
        QCOMPARE(lines.last(), u": "_s);
    }

    void chatSends_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("sent");
        const QStringList time{u"TIME PORT=7345;"_s};
        QTest::newRow("time") << u"/time"_s << time;
        QTest::newRow("date") << u"/date"_s << time;
        QTest::newRow("capitals and spaces") << u"  /TIME "_s << time;
        QTest::newRow("command and more") << u"/time now"_s << QStringList{u"CHAT NAME=ann;TEXT=/time now"_s};
        QTest::newRow("only spaces trimmed") << u"\t/time"_s << QStringList{u"CHAT NAME=ann;TEXT=\t/time"_s};
        QTest::newRow("separators") << u" a;b=c; "_s << QStringList{u"CHAT NAME=ann;TEXT= a;b=c; "_s};
        QTest::newRow("empty") << QString() << QStringList();
    }
    void chatSends()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, sent);
        frmChat& chat = m_client->session->Chat();
        chat.show();
        auto* txtSend = chat.findChild<QLineEdit*>(u"txtSend"_s);
        QCOMPARE(chat.focusWidget(), txtSend);
        for (int way = 0; way < 3; ++way) {
            m_sent.clear();
            txtSend->setText(typed);
            if (way == 2)
                QTest::mouseClick(chat.findChild<QPushButton*>(u"cmdSend"_s), Qt::LeftButton);
            else
                QTest::keyClick(txtSend, way == 0 ? Qt::Key_Return : Qt::Key_Enter);
            QCOMPARE(m_sent, sent);
            QCOMPARE(txtSend->text(), QString());
        }
        QCOMPARE(chat.Transcript(), QString());
    }

    void scoreColumns_data()
    {
        QTest::addColumn<QList<bool>>("flags"); // Player, Score, Ping, Sorted
        QTest::addColumn<bool>("emptyRoster");
        QTest::newRow("all three") << QList<bool>{true, true, true, false} << false;
        QTest::newRow("score only") << QList<bool>{false, true, false, false} << false;
        QTest::newRow("ping only") << QList<bool>{false, false, true, false} << false;
        QTest::newRow("player only") << QList<bool>{true, false, false, false} << false;
        QTest::newRow("none") << QList<bool>{false, false, false, false} << false;
        QTest::newRow("sorted keeps") << QList<bool>{true, true, true, true} << false;
        QTest::newRow("empty roster") << QList<bool>{true, true, false, false} << true;
    }
    void scoreColumns()
    {
        QFETCH(QList<bool>, flags);
        QFETCH(bool, emptyRoster);
        Session& session = *m_client->session;
        frmScores& scores = session.Scores();
        const QStringList example{u"ann\r\nbob\r\n"_s, u"2 / 37 / 5\r\n0 / 12 / 12\r\n"_s,
                                  u"120ms\r\n95ms\r\n"_s};
        QCOMPARE(Columns(scores), example);

        QStringList changed{u"ann\r\nbob\r\ncy\r\n"_s, u"3 / 37 / 5\r\n0 / -7 / -1\r\n0 / 0 / 0\r\n"_s,
                            u"130ms\r\n-2147483648ms\r\n0ms\r\n"_s};
        session.Player(1).Wins = 3;
        session.Player(1).Ping = 130;
        session.Player(2).Clicks = -7;
        session.Player(2).RoundClicks = -1;
        session.Player(2).Ping = std::numeric_limits<qint32>::min();
        session.AddPlayer(u"cy"_s);
        if (emptyRoster) {
            for (const QString& name : {u"ann"_s, u"bob"_s, u"cy"_s})
                session.RemovePlayer(name);
            changed = QStringList(3, QString());
        }
        scores.UpdateList(flags[0], flags[1], flags[2], false, flags[3]);
        for (int column = 0; column < 3; ++column)
            QCOMPARE(Columns(scores)[column], flags[column] && !flags[3] ? changed[column] : example[column]);
    }

    void scoreWords_data()
    {
        QTest::addColumn<bool>("inRound");
        QTest::addColumn<int>("count");
        QTest::addColumn<QList<bool>>("flags"); // Words, Sorted
        QTest::addColumn<QString>("words");
        QTest::newRow("in a round") << true << 1 << QList<bool>{true, false} << u"Apple Banana"_s;
        QTest::newRow("sorted too") << true << 1 << QList<bool>{true, true} << u"Apple Banana"_s;
        QTest::newRow("outside a round") << false << 1 << QList<bool>{true, false} << u"None None"_s;
        QTest::newRow("words flag unset") << true << 1 << QList<bool>{false, false} << u"None None"_s;
        QTest::newRow("count 0") << true << 0 << QList<bool>{true, false} << u"Apple "_s;
    }
    void scoreWords()
    {
        QFETCH(bool, inRound);
        QFETCH(int, count);
        QFETCH(QList<bool>, flags);
        QFETCH(QString, words);
        Session& session = *m_client->session;
        session.ResetGameData();
        frmScores& scores = session.Scores();
        session.Words = WordList::FromStartGame(
            QString(u"STARTGAME COUNT=" % QString::number(count) % u";WORD0=Apple;WORD1=Banana;"));
        session.TargetWordIndex = 1;
        session.InRound = inRound;
        scores.UpdateList(false, false, false, flags[0], flags[1]);
        QCOMPARE(Text(scores, u"lblStartWord"_s) % u' ' % Text(scores, u"lblNextWord"_s), words);
    }

    void scoreboardHangsBelowTheChat()
    {
        Session& session = *m_client->session;
        const QRect screen = QGuiApplication::primaryScreen()->geometry();
        session.Scores().show();
        QCOMPARE(session.Scores().frameGeometry(), QRect(0, 0, 239, screen.height() - 32));
        session.Scores().UnloadNow();

        session.Chat().show();
        QCOMPARE(session.Chat().frameGeometry().topLeft(), screen.topLeft());
        const int chatHeight = session.Chat().frameGeometry().height();
        session.Scores().show();
        QCOMPARE(session.Scores().frameGeometry(),
                 QRect(0, chatHeight, 239, screen.height() - chatHeight - 32));
    }

    void scoreboardResize_data()
    {
        QTest::addColumn<QSize>("requested"); // outer, pixels
        QTest::addColumn<QSize>("result");
        QTest::newRow("wider, taller") << QSize(300, 500) << QSize(239, 500);
        QTest::newRow("narrower") << QSize(100, 364) << QSize(239, 364);
        QTest::newRow("too low") << QSize(239, 207) << QSize(239, 208);
        QTest::newRow("both wrong") << QSize(20, 20) << QSize(239, 208);
    }
    void scoreboardResize()
    {
        QFETCH(QSize, requested);
        QFETCH(QSize, result);
        Session& session = *m_client->session;
        frmScores& scores = session.Scores();
        scores.show();
        QVERIFY(QTest::qWaitForWindowExposed(&scores));
        session.AddPlayer(u"cy"_s);
        scores.resize(requested - (scores.frameGeometry().size() - scores.size()));
        QCoreApplication::processEvents();
        QCOMPARE(scores.frameGeometry().size(), result);

        const int H = scores.height();
        const frmScores::ScoreLines& lines = scores.Lines();
        QCOMPARE(lines.Line2, QLine(120, 0, 120, H - 136));
        QCOMPARE(lines.Line3, QLine(184, 0, 184, H - 136));
        QCOMPARE(lines.Line4, QLine(0, H - 136, 232, H - 136));
        QCOMPARE(lines.Line5, QLine(0, H - 112, 232, H - 112));
        QStringList tops;
        for (const char16_t* name : {u"lblScoresAsterisk", u"lblStartingWordCaption", u"lblStartWord",
                                     u"lblWordToFindCaption", u"lblNextWord"})
            tops.append(QString::number(H - scores.findChild<QLabel*>(QString::fromUtf16(name))->y()));
        QCOMPARE(tops.join(u' '), u"128 104 88 68 52"_s);
        QCOMPARE(scores.findChild<QLabel*>(u"lblPings"_s)->geometry(), QRect(188, 32, 44, H - 168));
        QVERIFY(Columns(scores)[0].endsWith(u"cy\r\n"_s)); // a resize refreshes
    }

    void panelsCloseOnlyByUnloadNow()
    {
        Session& session = *m_client->session;
        QVERIFY(!session.OpenChat() && !session.OpenScores());
        session.Chat().AddChat(u"GAME"_s, u"hi"_s);
        QCOMPARE(PlayerNames(session.Chat()), u"Players (2): ann bob"_s);
        session.RemovePlayer(u"ANN"_s);
        session.AddPlayer(u"cy"_s);
        QCOMPARE(PlayerNames(session.Chat()), u"Players (2): ann bob"_s); // a copy until refreshed
        CheckUnload(&Session::Chat, &Session::OpenChat);
        QCOMPARE(session.Chat().Transcript(), QString());
        QCOMPARE(PlayerNames(session.Chat()), u"Players (2): bob cy"_s);
        session.RemovePlayer(u"bob"_s);
        session.RemovePlayer(u"cy"_s);
        session.Chat().UpdateList();
        QCOMPARE(PlayerNames(session.Chat()), u"Players (0):"_s);
        if (QTest::currentTestFailed()) return;
        CheckUnload(&Session::Scores, &Session::OpenScores);
    }

private:
    // The open panel refuses to close; after UnloadNow the session hands out a fresh one at once.
    template <typename Panel> void CheckUnload(Panel& (Session::*use)(), Panel* (Session::*open)() const)
    {
        Session& session = *m_client->session;
        QPointer<Panel> first = &(session.*use)();
        first->show();
        QVERIFY(!first->close());
        QVERIFY(first->isVisible());
        QCOMPARE(&(session.*use)(), first.data());
        first->UnloadNow();
        QVERIFY(first->isHidden());
        QCOMPARE((session.*open)(), nullptr);
        Panel& second = (session.*use)();
        QVERIFY(&second != first.data() && !second.UnloadAllowed());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(first.isNull());
        QCOMPARE((session.*open)(), &second);
    }

    static QString Text(const QWidget& window, const QString& name)
    {
        return window.findChild<QLabel*>(name)->text();
    }
    static QStringList Columns(const frmScores& scores)
    {
        return {Text(scores, u"lblPlayers"_s), Text(scores, u"lblScores"_s), Text(scores, u"lblPings"_s)};
    }
    // The caption of the list, then its entries.
    static QString PlayerNames(const frmChat& chat)
    {
        QString shown = Text(chat, u"lblPlayers"_s);
        const auto* list = chat.findChild<QListWidget*>(u"lstPlayers"_s);
        for (int i = 0; i < list->count(); ++i)
            shown += u' ' + list->item(i)->text();
        return shown;
    }

    std::unique_ptr<test::TestClient> m_client;
    QStringList m_sent;
};

} // namespace linkhop

QTEST_MAIN(linkhop::TestPanels)
#include "tst_panels.moc"
