#include "clientfakes.h"
#include "game/frmgame.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "sessionfixture.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QUrl>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

QString Text(const QWidget& window, const QString& name)
{
    return window.findChild<QLabel*>(name)->text();
}

// Titles of a scripted encyclopedia: only these words (lower-cased) lead to an article.
QString TitleFor(const QString& url)
{
    static const QHash<QString, QString> articles{{u"apple"_s, u"Apple"_s},
                                                  {u"big apple"_s, u"New York City"_s},
                                                  {u"fruit of apple"_s, u"Apple"_s},
                                                  {u"banana"_s, u"Banana"_s},
                                                  {u"pear"_s, u"Pear"_s}};
    const qsizetype at = url.indexOf(u"search="_s);
    const QString word = QUrl::fromPercentEncoding(url.mid(at + 7).section(u'&', 0, 0).toUtf8()).toLower();
    return at < 0 ? u"Wikipedia, the free encyclopedia"_s
                  : articles.value(word, u"Search"_s) + u" - Wikipedia, the free encyclopedia"_s;
}

// The word chooser open for the host of a running session.
struct Chooser : RunningSession
{
    Chooser()
    {
        browser->titleFor = TitleFor;
        window = &S().Winner();
        window->show();
    }
    void Verify(const QString& initial, const QString& destination)
    {
        window->txtInitial->setText(initial);
        window->txtDestination->setText(destination);
        window->cmdVerify->click();
    }
    QString State() const
    {
        if (window->cmdVerify->isEnabled()) return window->cmdStartGame->isEnabled() ? u"?"_s : u"Ready"_s;
        if (window->Verifying()) return u"Checking"_s;
        return window->cmdStartGame->isEnabled() ? u"Verified"_s : u"Blocked"_s;
    }
    QPointer<frmWinner> window;
};

} // namespace

class tst_panels : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestClient> m_client;
    QStringList m_sent;
    Session& S() { return *m_client->session; }

private Q_SLOTS:
    // ann (2 wins, 37 clicks, 5 in the round, 120 ms) and bob (0, 12, 12, 95); sends recorded.
    void init()
    {
        m_client = std::make_unique<TestClient>();
        m_sent.clear();
        S().PlayerName = u"ann"_s;
        S().LocalPort = u"7345"_s;
        S().SetGameSender([this](const QString& text) { m_sent.append(text); });
        S().AddPlayer(u"ann"_s);
        S().AddPlayer(u"bob"_s);
        S().Player(1) = {u"ann"_s, 2, 37, 5, 120};
        S().Player(2) = {u"bob"_s, 0, 12, 12, 95};
    }
    void cleanup() { m_client.reset(); }

    void chatKeepsTheNewestLinesAndClosesOnlyByUnloadNow()
    {
        const QPointer<frmChat> chat = &S().Chat();
        const auto lines = [&] { return chat->Transcript().split(u"\r\n"_s); };
        for (int i = 1; i <= 99; ++i)
            chat->AddChat(u"p"_s, QString::number(i));
        chat->AddChat(u"p"_s, u"a\r\nb"_s);
        QCOMPARE(lines().size(), 101);
        chat->AddChat(u"p"_s, u"c"_s); // the line holding CR LF counts as two
        QCOMPARE(lines().size(), 100);
        QCOMPARE(lines().first(), u"p: 3"_s);
        S().RemovePlayer(u"ANN"_s);
        chat->UpdateList();
        QCOMPARE(Text(*chat, u"lblPlayers"_s), u"Players (1):"_s);
        QCOMPARE(chat->findChild<QListWidget*>()->item(0)->text(), u"bob"_s);
        chat->show();
        QVERIFY(!chat->close() && chat->isVisible());
        chat->UnloadNow();
        QVERIFY(chat->isHidden() && !S().OpenChat());
        QVERIFY(&S().Chat() != chat.data() && S().OpenChat()->Transcript().isEmpty());
        QTRY_VERIFY(chat.isNull());
    }

    void chatSends_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("sent");
        const QStringList time{u"TIME PORT=7345;"_s};
        QTest::newRow("time") << u"/time"_s << time;
        QTest::newRow("date, capitals and spaces") << u"  /DATE "_s << time;
        QTest::newRow("command and more") << u"/time now"_s << QStringList{u"CHAT NAME=ann;TEXT=/time now"_s};
        QTest::newRow("tab is no space") << u"\t/time"_s << QStringList{u"CHAT NAME=ann;TEXT=\t/time"_s};
        QTest::newRow("separators") << u" a;b=c; "_s << QStringList{u"CHAT NAME=ann;TEXT= a;b=c; "_s};
        QTest::newRow("empty") << QString() << QStringList();
    }
    void chatSends()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, sent);
        auto* txtSend = S().Chat().findChild<QLineEdit*>(u"txtSend"_s);
        txtSend->setText(typed);
        QTest::keyClick(txtSend, Qt::Key_Return);
        QCOMPARE(m_sent, sent);
    }

    void scoreboardKeepsItsWidthAndRefusesToClose()
    {
        frmScores& scores = S().Scores();
        scores.show();
        QVERIFY(QTest::qWaitForWindowExposed(&scores));
        QVERIFY(!scores.close() && scores.isVisible());
        const QSize frame = scores.frameGeometry().size() - scores.size();
        for (const QSize& asked : {QSize(300, 500), QSize(20, 207)}) {
            scores.resize(asked - frame);
            QCoreApplication::processEvents();
            QCOMPARE(scores.frameGeometry().size(), QSize(239, std::max(asked.height(), 208)));
        }
    }

    void scoreboardRefresh_data()
    {
        QTest::addColumn<QList<bool>>("flags"); // Player, Score, Ping, Words, Sorted
        QTest::addColumn<bool>("inRound");
        QTest::newRow("players") << QList<bool>{true, false, false, false, false} << true;
        QTest::newRow("scores") << QList<bool>{false, true, false, false, false} << true;
        QTest::newRow("pings") << QList<bool>{false, false, true, false, false} << true;
        QTest::newRow("words in a round") << QList<bool>{false, false, false, true, false} << true;
        QTest::newRow("words between rounds") << QList<bool>{false, false, false, true, false} << false;
        QTest::newRow("sorted: words only") << QList<bool>{true, true, true, true, true} << true;
    }
    void scoreboardRefresh()
    {
        QFETCH(QList<bool>, flags);
        QFETCH(bool, inRound);
        frmScores& scores = S().Scores();
        const auto shown = [&] {
            return QStringList{Text(scores, u"lblPlayers"_s), Text(scores, u"lblScores"_s),
                               Text(scores, u"lblPings"_s),
                               Text(scores, u"lblStartWord"_s) + u' ' + Text(scores, u"lblNextWord"_s)};
        };
        const QStringList before{u"ann\r\nbob\r\n"_s, u"2 / 37 / 5\r\n0 / 12 / 12\r\n"_s,
                                 u"120ms\r\n95ms\r\n"_s, u"None None"_s};
        QCOMPARE(shown(), before);
        const QStringList after{u"ann\r\nbob\r\ncy\r\n"_s, u"3 / 37 / 5\r\n0 / -7 / -1\r\n0 / 0 / 0\r\n"_s,
                                u"130ms\r\n-2147483648ms\r\n0ms\r\n"_s,
                                inRound ? u"Apple Banana"_s : u"None None"_s};
        S().Player(1) = {u"ann"_s, 3, 37, 5, 130};
        S().Player(2) = {u"bob"_s, 0, -7, -1, std::numeric_limits<qint32>::min()};
        S().AddPlayer(u"cy"_s);
        S().Words = WordList::FromStartGame(u"STARTGAME COUNT=1;WORD0=Apple;WORD1=Banana;");
        S().TargetWordIndex = 1;
        S().InRound = inRound;
        scores.UpdateList(flags[0], flags[1], flags[2], flags[3], flags[4]);
        for (int i = 0; i < 4; ++i)
            QCOMPARE(shown()[i], flags[i] && (i == 3 || !flags[4]) ? after[i] : before[i]);
    }

    void chooserVerifies_data()
    {
        QTest::addColumn<QString>("typed"); // initial|destination
        QTest::addColumn<QString>("after");
        QTest::addColumn<QString>("state");
        QTest::addColumn<QString>("message");
        const QString missing = u"This article doesn't exist."_s;
        QTest::newRow("redirect replaced")
            << u"apple|big apple"_s << u"Apple|New York City"_s << u"Verified"_s << QString();
        QTest::newRow("initial missing") << u"xyzzy|apple"_s << u"xyzzy|apple"_s << u"Ready"_s << missing;
        QTest::newRow("destination missing") << u"apple|a;b=c"_s << u"Apple|a;b=c"_s << u"Ready"_s << missing;
        QTest::newRow("destination leads to the initial article")
            << u"apple|fruit of apple"_s << u"Apple|fruit of apple"_s << u"Blocked"_s
            << u"There was a problem verifying the destination article."_s;
    }
    void chooserVerifies()
    {
        QFETCH(QString, typed);
        QFETCH(QString, after);
        QFETCH(QString, state);
        QFETCH(QString, message);
        Chooser c;
        c.browser->loadDelayMs = 20;
        c.Verify(typed.section(u'|', 0, 0), typed.section(u'|', 1));
        QCOMPARE(c.window->txtInitial->text() + u'|' + c.window->txtDestination->text(), after);
        QCOMPARE(c.State(), state);
        QCOMPARE(c.client.prompts.MessageTexts(), message.isEmpty() ? QStringList() : QStringList{message});
        if (state == u"Blocked"_s) QCOMPARE(c.window->VerifyAttempts(), 5);
        c.window->txtDestination->setText(after.section(u'|', 1) + u's'); // calls for a new verification
        QCOMPARE(c.State(), u"Ready"_s);
        // Enter in the initial word only moves on; in the destination it starts the round, even unverified.
        QTest::keyClick(c.window->txtInitial, Qt::Key_Return);
        QVERIFY(c.window && c.Sent(u"SETWORDS"_s).isEmpty());
        QTest::keyClick(c.window->txtDestination, Qt::Key_Enter);
        QCOMPARE(c.server.WaitForVerb(u"SETWORDS"_s),
                 u"SETWORDS COUNT=1;WORD0="_s + QString(after).replace(u'|', u";WORD1="_s) + u"s;"_s);
        QTRY_VERIFY(!c.window);
    }

    void chooserWaitsEnd_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::newRow("no title in time") << u"time"_s;
        QTest::newRow("window unloaded") << u"window"_s;
        QTest::newRow("session ended") << u"session"_s;
    }
    void chooserWaitsEnd()
    {
        QFETCH(QString, ending);
        Chooser c;
        // No title ever comes; closing the window or ending the session ends the wait sooner.
        c.browser->titleFor = [](const QString&) { return QString(); };
        c.window->SetTitleWaitMs(300);
        if (ending == u"window"_s) QTimer::singleShot(100, c.window, [&] { c.window->UnloadNow(); });
        if (ending == u"session"_s) QTimer::singleShot(100, c.game, [&] { c.game->close(); });
        c.Verify(u"apple"_s, u"banana"_s);
        QCOMPARE(c.client.programEnd.endings.size(), int(ending == u"session"_s));
        const QStringList messages = c.client.prompts.MessageTexts();
        QCOMPARE(messages.size(), int(ending == u"time"_s));
        if (ending == u"time"_s)
            QVERIFY(messages.first().contains(u"did not answer"_s) && c.State() == u"Ready"_s);
    }

    void chooserTakesARandomWordWhileVerifying()
    {
        // The random word drives the browser too; writing it leaves the buttons to the verification.
        Chooser c;
        c.browser->loadDelayMs = 200;
        QTimer::singleShot(50, &c.server, [&] { c.server.SendTo(u"SETRANDOM SRC=2;URL=Pear;"_s, c.Port()); });
        c.Verify(u"apple"_s, u"banana"_s);
        QVERIFY(!c.window->Verifying());
        QCOMPARE(c.window->txtDestination->text(), u"Pear"_s);
        QVERIFY(c.State() == u"Verified"_s || c.State() == u"Blocked"_s);
    }
};

QTEST_MAIN(tst_panels)
#include "tst_panels.moc"
