#include "clientfakes.h"
#include "lobby/frmhost.h"
#include "lobbytest.h"

#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

// What a modal run of the dialog saw while it was open.
struct Seen
{
    QString address;
    QString selected;
    bool addressFocused = false;
    bool stillOpen = false;
    bool active = false;
};

} // namespace

class tst_frmhost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { StopModalWaits(); }

    void opensWithStoredFieldsAndAddressSelected()
    {
        TestClient client;
        client.session->SaveOption(u"Server"_s, u"10.0.0.5"_s);
        client.session->SaveOption(u"Welcome"_s, u"Hello %p"_s);
        client.session->SaveOption(u"Password"_s, u"p=w;d"_s);
        Seen seen;
        QString welcome, password;
        WhenModal<frmHost>([&](frmHost* d) {
            seen.active = QTest::qWaitForWindowActive(d);
            auto* txtIP = Find<QLineEdit>(d, u"txtIP"_s);
            seen.address = txtIP->text();
            seen.selected = txtIP->selectedText();
            seen.addressFocused = QApplication::focusWidget() == txtIP;
            welcome = Find<QPlainTextEdit>(d, u"txtWelcomeMessage"_s)->toPlainText();
            password = Find<QLineEdit>(d, u"txtPassword"_s)->text();
            Find<QPushButton>(d, u"cmdCancel"_s)->click();
        });
        const QPointer<frmHost> dialog = new frmHost(*client.session);
        QCOMPARE(dialog->windowTitle(), u"Host a Game"_s);
        dialog->exec();
        QCOMPARE(seen.address, u"10.0.0.5"_s);
        QCOMPARE(seen.selected, u"10.0.0.5"_s);
        QVERIFY(seen.active);
        QVERIFY(seen.addressFocused);
        QCOMPARE(welcome, u"Hello %p"_s);
        // The shown password is cleaned, but loading writes nothing back.
        QCOMPARE(password, u"pwd"_s);
        QCOMPARE(client.session->LoadOption(u"Password"_s), u"p=w;d"_s);
        RunDeferredDeletes();
        QVERIFY(dialog.isNull());
    }

    void passwordLosesSeparatorsAndKeepsCaret_data()
    {
        QTest::addColumn<QString>("before");
        QTest::addColumn<int>("caret");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("after");
        QTest::addColumn<int>("caretAfter");
        QTest::newRow("= in the middle") << u"abcd"_s << 2 << u"="_s << u"abcd"_s << 3;
        QTest::newRow("; at the end") << u"abcd"_s << 4 << u";"_s << u"abcd"_s << 4;
        QTest::newRow("= at the start") << u"abcd"_s << 0 << u"="_s << u"abcd"_s << 1;
        QTest::newRow("plain letter") << u"abcd"_s << 2 << u"x"_s << u"abxcd"_s << 3;
        QTest::newRow("mixed run") << u""_s << 0 << u"a=b;c"_s << u"abc"_s << 3;
    }
    void passwordLosesSeparatorsAndKeepsCaret()
    {
        QFETCH(QString, before);
        QFETCH(int, caret);
        QFETCH(QString, typed);
        QFETCH(QString, after);
        QFETCH(int, caretAfter);
        TestClient client;
        const QPointer<frmHost> dialog = new frmHost(*client.session);
        dialog->show();
        auto* txtPassword = Find<QLineEdit>(dialog, u"txtPassword"_s);
        txtPassword->setText(before);
        txtPassword->setCursorPosition(caret);
        QTest::keyClicks(txtPassword, typed);
        QCOMPARE(txtPassword->text(), after);
        QCOMPARE(txtPassword->cursorPosition(), caretAfter);
        QCOMPARE(client.session->LoadOption(u"Password"_s), after);
        delete dialog.data();
    }

    void editsAndResetAreStoredEvenWhenCancelled()
    {
        TestClient client;
        client.session->SaveOption(u"Password"_s, u"secret"_s);
        client.session->ChosenServer = u"stale"_s;
        const QPointer<frmHost> dialog = new frmHost(*client.session);
        dialog->show();
        QTest::keyClicks(Find<QLineEdit>(dialog, u"txtIP"_s), u" 10.1.2.3 "_s);
        QTest::keyClicks(Find<QPlainTextEdit>(dialog, u"txtWelcomeMessage"_s), u"Hi=there;"_s);
        QCOMPARE(client.session->LoadOption(u"Server"_s), u" 10.1.2.3 "_s);
        QCOMPARE(client.session->LoadOption(u"Welcome"_s), u"Hi=there;"_s);
        Find<QPushButton>(dialog, u"cmdReset"_s)->click();
        Find<QPushButton>(dialog, u"cmdCancel"_s)->click();
        QVERIFY(!dialog->isVisible());
        QCOMPARE(client.session->LoadOption(u"Server"_s), QString());
        QCOMPARE(client.session->LoadOption(u"Welcome"_s), u"%p user(s) connected to Linkhop Server %v"_s);
        QCOMPARE(client.session->LoadOption(u"Password"_s), QString());
        QVERIFY(client.session->ChosenServer.isEmpty());
        RunDeferredDeletes();
        QVERIFY(dialog.isNull());
    }

    void hostChecksTheAddress_data()
    {
        const QString refusal =
            u"You must provide an internal or external IP address that other users can also "
            u"connect to (127.0.0.1 will not work)."_s;
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("chosen");
        QTest::newRow("empty") << u""_s << QString() << QString();
        QTest::newRow("dots and spaces") << u" . .  ."_s << QString() << QString();
        QTest::newRow("localhost in capitals") << u"  LOCALHOST "_s << refusal << QString();
        QTest::newRow("loopback with spaces") << u" 127.0.0.1  "_s << refusal << QString();
        QTest::newRow("another loopback") << u"127.0.0.2"_s << QString() << u"127.0.0.2"_s;
        QTest::newRow("outer spaces kept")
            << u"  game.example.org "_s << QString() << u"  game.example.org "_s;
        QTest::newRow("loopback with a tab") << u"\t127.0.0.1"_s << QString() << u"\t127.0.0.1"_s;
    }
    void hostChecksTheAddress()
    {
        QFETCH(QString, typed);
        QFETCH(QString, message);
        QFETCH(QString, chosen);
        TestClient client;
        Seen seen;
        WhenModal<frmHost>([&](frmHost* d) {
            seen.active = QTest::qWaitForWindowActive(d);
            auto* txtIP = Find<QLineEdit>(d, u"txtIP"_s);
            txtIP->setText(typed);
            Find<QPushButton>(d, u"cmdHost"_s)->setFocus();
            Find<QPushButton>(d, u"cmdHost"_s)->click();
            seen.stillOpen = d->isVisible();
            if (!seen.stillOpen) return;
            seen.selected = txtIP->selectedText();
            seen.addressFocused = QApplication::focusWidget() == txtIP;
            Find<QPushButton>(d, u"cmdCancel"_s)->click();
        });
        const QPointer<frmHost> dialog = new frmHost(*client.session);
        dialog->exec();
        QCOMPARE(client.session->ChosenServer, chosen);
        QCOMPARE(client.prompts.MessageTexts(), message.isEmpty() ? QStringList() : QStringList{message});
        if (!message.isEmpty()) QCOMPARE(client.prompts.messageBoxes.first().icon, Icon::Critical);
        QCOMPARE(seen.stillOpen, chosen.isEmpty());
        if (seen.stillOpen) {
            QCOMPARE(seen.selected, typed);
            QVERIFY(seen.addressFocused);
        }
    }

    void keysActOnTheDialog_data()
    {
        QTest::addColumn<int>("key");
        QTest::addColumn<QString>("chosen");
        QTest::newRow("Enter hosts") << int(Qt::Key_Return) << u"10.1.1.1"_s;
        QTest::newRow("keypad Enter hosts") << int(Qt::Key_Enter) << u"10.1.1.1"_s;
        QTest::newRow("Esc cancels") << int(Qt::Key_Escape) << QString();
    }
    void keysActOnTheDialog()
    {
        QFETCH(int, key);
        QFETCH(QString, chosen);
        TestClient client;
        client.session->SaveOption(u"Server"_s, u"10.1.1.1"_s);
        client.session->ChosenServer = u"stale"_s;
        QString afterKey;
        WhenModal<frmHost>([&](frmHost* d) {
            auto* txtIP = Find<QLineEdit>(d, u"txtIP"_s);
            QTest::keyClick(txtIP, Qt::Key(key));
            afterKey = txtIP->text();
        });
        const QPointer<frmHost> dialog = new frmHost(*client.session);
        dialog->exec();
        QCOMPARE(client.session->ChosenServer, chosen);
        QCOMPARE(afterKey, u"10.1.1.1"_s); // nothing inserted
        RunDeferredDeletes();
        QVERIFY(dialog.isNull());
    }

    void helpExplainsTheAddress()
    {
        TestClient client;
        const QPointer<frmHost> dialog = new frmHost(*client.session);
        Find<QPushButton>(dialog, u"cmdHelp"_s)->click();
        QCOMPARE(client.prompts.messageBoxes.size(), 1);
        QCOMPARE(client.prompts.messageBoxes.first().icon, Icon::Information);
        QStringList lines = client.prompts.messageBoxes.first().text.split(u"\r\n"_s);
        // The third line names a configurable web site.
        QVERIFY(lines.value(2).startsWith(
            u"If hosting over the Internet, type your external IP address (found at "_s));
        QVERIFY(lines.value(2).endsWith(u")."_s));
        lines.removeAt(2);
        QCOMPARE(
            lines,
            (QStringList{
                u"Enter your IP address to connect to the local server."_s,
                QString(),
                u"UDP traffic on ports 7201-7203 must be routed to your local PC if you are behind a router."_s,
                QString(),
                u"If hosting over LAN, type your internal IP address."_s,
            }));
        delete dialog.data();
    }
};

QTEST_MAIN(tst_frmhost)
#include "tst_frmhost.moc"
