#include "clientfakes.h"
#include "game/frmgame.h"
#include "panels/frmwinner.h"
#include "scriptedserver.h"
#include "sessionfixture.h"

#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

// Words the scripted encyclopedia resolves, lower-cased, and the article each leads to. Every
// other word ends on the search-results page.
const QHash<QString, QString> kArticles = {
    {u"apple"_s, u"Apple"_s},       {u"big apple"_s, u"New York City"_s}, {u"fruit of apple"_s, u"Apple"_s},
    {u"pear"_s, u"Pear"_s},         {u"banana"_s, u"Banana"_s},
};

QString TitleFor(const QString& url)
{
    if (url == u"about:blank"_s) return {};
    const qsizetype at = url.indexOf(u"search="_s);
    if (at < 0) return u"Wikipedia, the free encyclopedia"_s;
    const QString word = url.mid(at + 7).section(u'&', 0, 0).toLower();
    return kArticles.value(word, u"Search"_s) + u" - Wikipedia, the free encyclopedia"_s;
}

QString State(const frmWinner& w)
{
    if (w.cmdVerify->isEnabled()) return w.cmdStartGame->isEnabled() ? u"?"_s : u"Ready"_s;
    if (w.Verifying()) return u"Checking"_s;
    return w.cmdStartGame->isEnabled() ? u"Verified"_s : u"Blocked"_s;
}

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
    QPointer<frmWinner> window;
};

} // namespace

class tst_frmwinner : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void verification_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("destination");
        QTest::addColumn<QString>("initialAfter");
        QTest::addColumn<QString>("destinationAfter");
        QTest::addColumn<QString>("state");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("focused");
        QTest::newRow("both resolve, one by redirect")
            << u"apple"_s << u"big apple"_s << u"Apple"_s << u"New York City"_s << u"Verified"_s << QString()
            << QString();
        QTest::newRow("initial names no article")
            << u"xyzzy"_s << u"apple"_s << u"xyzzy"_s << u"apple"_s << u"Ready"_s << u"This article doesn't exist."_s
            << u"txtInitial"_s;
        QTest::newRow("destination names no article")
            << u"apple"_s << u"xyzzy"_s << u"Apple"_s << u"xyzzy"_s << u"Ready"_s << u"This article doesn't exist."_s
            << u"txtDestination"_s;
        QTest::newRow("destination leads to the initial article")
            << u"apple"_s << u"fruit of apple"_s << u"Apple"_s << u"fruit of apple"_s << u"Blocked"_s
            << u"There was a problem verifying the destination article."_s << QString();
    }
    void verification()
    {
        QFETCH(QString, initial);
        QFETCH(QString, destination);
        QFETCH(QString, initialAfter);
        QFETCH(QString, destinationAfter);
        QFETCH(QString, state);
        QFETCH(QString, message);
        QFETCH(QString, focused);
        Chooser c;
        c.browser->loadDelayMs = 20;
        c.Verify(initial, destination);
        QCOMPARE(c.window->txtInitial->text(), initialAfter);
        QCOMPARE(c.window->txtDestination->text(), destinationAfter);
        QCOMPARE(State(*c.window), state);
        QCOMPARE(c.client.prompts.MessageTexts(), message.isEmpty() ? QStringList() : QStringList{message});
        if (!message.isEmpty()) QCOMPARE(c.client.prompts.messageBoxes.first().icon, Icon::Critical);
        if (!focused.isEmpty()) {
            auto* box = c.window->findChild<QLineEdit*>(focused);
            QCOMPARE(box->selectedText(), box->text());
        }
        QVERIFY(c.Sent(u"SETWORDS"_s).isEmpty());
        if (state == u"Blocked"_s) QCOMPARE(c.window->VerifyAttempts(), 5);
        if (state == u"Verified"_s) {
            // Both searches were made, and the browser was sent back after each.
            QCOMPARE(c.browser->backs, 2);
            c.window->cmdStartGame->click();
            QCOMPARE(c.server.WaitForVerb(u"SETWORDS"_s),
                     u"SETWORDS COUNT=1;WORD0=Apple;WORD1=New York City;"_s);
            QTRY_VERIFY(!c.window);
        }
    }

    void verifyIgnoresUnusableWords_data()
    {
        QTest::addColumn<QString>("initial");
        QTest::addColumn<QString>("destination");
        QTest::newRow("empty initial") << QString() << u"apple"_s;
        QTest::newRow("empty destination") << u"apple"_s << QString();
        QTest::newRow("equal ignoring case") << u"Paris"_s << u"paris"_s;
    }
    void verifyIgnoresUnusableWords()
    {
        QFETCH(QString, initial);
        QFETCH(QString, destination);
        Chooser c;
        const int navigations = int(c.browser->navigations.size());
        c.Verify(initial, destination);
        QCOMPARE(int(c.browser->navigations.size()), navigations);
        QCOMPARE(State(*c.window), u"Ready"_s);
        QVERIFY(c.client.prompts.messageBoxes.isEmpty());
    }

    void anyChangeReturnsToReady()
    {
        Chooser c;
        c.Verify(u"apple"_s, u"banana"_s);
        QCOMPARE(State(*c.window), u"Verified"_s);
        QTest::keyClick(c.window->txtDestination, Qt::Key_S);
        QCOMPARE(State(*c.window), u"Ready"_s);

        c.Verify(u"apple"_s, u"banana"_s);
        QCOMPARE(State(*c.window), u"Verified"_s);
        QVERIFY(c.Deliver(u"SETRANDOM SRC=1;URL=Pear;"_s)); // the server's random word counts as a change
        QCOMPARE(c.window->txtInitial->text(), u"Pear"_s);
        QCOMPARE(State(*c.window), u"Ready"_s);

        c.Verify(u"apple"_s, u"fruit of apple"_s);
        QCOMPARE(State(*c.window), u"Blocked"_s);
        c.window->txtDestination->setText(u"banana"_s);
        QCOMPARE(State(*c.window), u"Ready"_s);
    }

    void keysAndButtons()
    {
        Chooser c;
        QCOMPARE(c.window->windowTitle(), u"Choose Words"_s);
        c.window->cmdRandom1->click();
        QCOMPARE(c.window->focusWidget(), c.window->txtInitial);
        c.window->cmdRandom2->click();
        QCOMPARE(c.window->focusWidget(), c.window->txtDestination);
        QCOMPARE(c.server.WaitForVerb(u"GETRANDOM"_s, 2), u"GETRANDOM SRC=2;"_s);
        QCOMPARE(c.Sent(u"GETRANDOM"_s).first(), u"GETRANDOM SRC=1;"_s);

        c.window->txtInitial->setText(u"a;b=c"_s);
        c.window->txtInitial->setFocus();
        QTest::keyClick(c.window->txtInitial, Qt::Key_Return); // only moves on
        QVERIFY(c.window);
        QVERIFY(c.Sent(u"SETWORDS"_s).isEmpty());

        // Enter in the destination starts the round, verified or not, and the window goes.
        c.window->close();
        QVERIFY(c.window && c.window->isVisible()); // the close box is refused
        c.window->txtDestination->setText(u"x y"_s);
        QTest::keyClick(c.window->txtDestination, Qt::Key_Enter);
        QCOMPARE(c.server.WaitForVerb(u"SETWORDS"_s), u"SETWORDS COUNT=1;WORD0=a;b=c;WORD1=x y;"_s);
        QTRY_VERIFY(!c.window);
        QVERIFY(c.S().Winner().txtInitial->text().isEmpty()); // the next use is a fresh window
    }

    void waitsEnd()
    {
        {
            // No title ever comes: the wait gives up with a message and the window is Ready.
            Chooser c;
            c.browser->titleFor = [](const QString&) { return QString(); };
            c.window->SetTitleWaitMs(300);
            c.Verify(u"apple"_s, u"banana"_s);
            QCOMPARE(State(*c.window), u"Ready"_s);
            QCOMPARE(c.client.prompts.MessageTexts().size(), 1);
            QVERIFY(c.client.prompts.MessageTexts().first().contains(u"did not answer"_s));
        }
        {
            // The window closes while the verification waits: it ends without touching it.
            Chooser c;
            c.browser->loadDelayMs = 500;
            QTimer::singleShot(100, c.window, [&] { c.window->UnloadNow(); });
            c.Verify(u"apple"_s, u"banana"_s);
            QTRY_VERIFY(!c.window);
            QVERIFY(c.client.prompts.messageBoxes.isEmpty());
        }
        {
            // The game window closes (the session ends) while the verification waits.
            Chooser c;
            c.browser->loadDelayMs = 500;
            QTimer::singleShot(100, c.game, [&] { c.game->close(); });
            c.Verify(u"apple"_s, u"banana"_s);
            QCOMPARE(c.client.programEnd.endings.size(), 1);
            QVERIFY(c.client.prompts.messageBoxes.isEmpty());
        }
    }

    void randomWordDuringVerification()
    {
        // The server's random word also drives the browser: the first suitable title is taken,
        // and the boxes the dispatcher writes leave the buttons to the verification.
        Chooser c;
        c.browser->loadDelayMs = 200;
        QTimer::singleShot(50, &c.server, [&] { c.server.SendTo(u"SETRANDOM SRC=2;URL=Pear;"_s, c.Port()); });
        c.Verify(u"apple"_s, u"banana"_s);
        QVERIFY(!c.window->Verifying());
        QCOMPARE(c.window->txtDestination->text(), u"Pear"_s);
        QVERIFY(State(*c.window) == u"Verified"_s || State(*c.window) == u"Blocked"_s);
    }
};

QTEST_MAIN(tst_frmwinner)
#include "tst_frmwinner.moc"
