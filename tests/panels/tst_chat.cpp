#include "clientfakes.h"
#include "panels/frmchat.h"

#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <QtTest>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

// Counts the key presses that reach the window itself.
class KeyRecorder final : public QObject
{
public:
    int presses = 0;
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::KeyPress) ++presses;
        return false;
    }
};

class TestChat final : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_client = std::make_unique<test::TestClient>();
        m_client->session->PlayerName = u"ann"_s;
        m_client->session->LocalPort = u"7345"_s;
        m_sent.clear();
        m_client->session->SetGameSender([this](const QString& text) { m_sent.append(text); });
    }
    void cleanup() { m_client.reset(); }

    void transcriptKeepsTheNewestLines_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("after");
        QTest::addColumn<QString>("first");
        QTest::newRow("empty") << 0 << 1 << u"p: new"_s;
        QTest::newRow("one") << 1 << 2 << u"p: 1"_s;
        QTest::newRow("99 lines, nothing dropped") << 99 << 100 << u"p: 1"_s;
        QTest::newRow("100 lines, oldest dropped") << 100 << 100 << u"p: 2"_s;
        QTest::newRow("many") << 250 << 100 << u"p: 152"_s;
    }
    void transcriptKeepsTheNewestLines()
    {
        QFETCH(int, before);
        QFETCH(int, after);
        QFETCH(QString, first);
        frmChat& chat = m_client->session->Chat();
        for (int i = 1; i <= before; ++i)
            chat.AddChat(u"p"_s, QString::number(i));
        chat.AddChat(u"p"_s, u"new"_s);

        const QStringList lines = chat.Transcript().split(u"\r\n"_s);
        QCOMPARE(lines.size(), after);
        QCOMPARE(lines.first(), first);
        QCOMPARE(lines.last(), u"p: new"_s);
        QVERIFY(!chat.Transcript().startsWith(u"\r\n"_s));
        QVERIFY(!chat.Transcript().endsWith(u"\r\n"_s));
        QVERIFY(!chat.Transcript().contains(u"\r\n\r\n"_s));
    }

    void textHoldingLineBreaksCountsAsSeveralLines()
    {
        frmChat& chat = m_client->session->Chat();
        for (int i = 1; i <= 99; ++i)
            chat.AddChat(u"p"_s, QString::number(i));
        chat.AddChat(u"GAME"_s, u"The winning route was: \r\nA --> B"_s);
        QCOMPARE(chat.Transcript().split(u"\r\n"_s).size(), 101);

        chat.AddChat(u"p"_s, u"next"_s);
        const QStringList lines = chat.Transcript().split(u"\r\n"_s);
        QCOMPARE(lines.size(), 100);
        QCOMPARE(lines.first(), u"p: 3"_s);
        QCOMPARE(lines.mid(97),
                 (QStringList{u"GAME: The winning route was: "_s, u"A --> B"_s, u"p: next"_s}));
    }

    void lineIsNameColonText_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("line");
        QTest::newRow("plain") << u"GAME"_s << u"bob has joined the game."_s
                               << u"GAME: bob has joined the game."_s;
        QTest::newRow("empty name") << QString() << u"hi"_s << u": hi"_s;
        QTest::newRow("empty text") << u"bob"_s << QString() << u"bob: "_s;
        QTest::newRow("both empty") << QString() << QString() << u": "_s;
        QTest::newRow("markup stays text") << u"<b>x</b>"_s << u"a;b=c"_s << u"<b>x</b>: a;b=c"_s;
    }
    void lineIsNameColonText()
    {
        QFETCH(QString, name);
        QFETCH(QString, text);
        QFETCH(QString, line);
        frmChat& chat = m_client->session->Chat();
        chat.AddChat(name, text);
        QCOMPARE(chat.Transcript(), line);
        chat.AddChat(name, text);
        QCOMPARE(chat.Transcript(), line % u"\r\n" % line);

        const auto* txtChat = chat.findChild<QPlainTextEdit*>(u"txtChat"_s);
        QVERIFY(txtChat);
        QCOMPARE(txtChat->toPlainText(), line % u"\n" % line);
        QVERIFY(txtChat->textCursor().atEnd());
    }

    void sendsChatOrTimeRequest_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QStringList>("sent");
        const QStringList time{u"TIME PORT=7345;"_s};
        QTest::newRow("time") << u"/time"_s << time;
        QTest::newRow("date asks the time too") << u"/date"_s << time;
        QTest::newRow("capitals and spaces") << u"  /TIME "_s << time;
        QTest::newRow("mixed case date") << u"/DaTe"_s << time;
        QTest::newRow("command with more words")
            << u"/time now"_s << QStringList{u"CHAT NAME=ann;TEXT=/time now"_s};
        QTest::newRow("tab is no padding") << u"\t/time"_s << QStringList{u"CHAT NAME=ann;TEXT=\t/time"_s};
        QTest::newRow("separators unchanged") << u"a;b=c;"_s << QStringList{u"CHAT NAME=ann;TEXT=a;b=c;"_s};
        QTest::newRow("spaces kept") << u"  Hi  "_s << QStringList{u"CHAT NAME=ann;TEXT=  Hi  "_s};
        QTest::newRow("only spaces") << u"   "_s << QStringList{u"CHAT NAME=ann;TEXT=   "_s};
        QTest::newRow("empty") << QString() << QStringList();
    }
    void sendsChatOrTimeRequest()
    {
        QFETCH(QString, typed);
        QFETCH(QStringList, sent);
        frmChat& chat = m_client->session->Chat();
        chat.show();
        auto* txtSend = chat.findChild<QLineEdit*>(u"txtSend"_s);
        auto* cmdSend = chat.findChild<QPushButton*>(u"cmdSend"_s);
        QVERIFY(txtSend && cmdSend);
        KeyRecorder reachedWindow;
        chat.installEventFilter(&reachedWindow);

        const Qt::Key keys[] = {Qt::Key_Return, Qt::Key_Enter};
        for (Qt::Key key : keys) {
            m_sent.clear();
            txtSend->setText(typed);
            QTest::keyClick(txtSend, key);
            QCOMPARE(m_sent, sent);
            QCOMPARE(txtSend->text(), QString());
        }
        QCOMPARE(reachedWindow.presses, 0);

        m_sent.clear();
        txtSend->setText(typed);
        QTest::mouseClick(cmdSend, Qt::LeftButton);
        QCOMPARE(m_sent, sent);
        QCOMPARE(txtSend->text(), QString());
        QCOMPARE(chat.Transcript(), QString());
    }

    void typingSendsNothing()
    {
        frmChat& chat = m_client->session->Chat();
        auto* txtSend = chat.findChild<QLineEdit*>(u"txtSend"_s);
        QTest::keyClicks(txtSend, u"/time"_s);
        QCOMPARE(txtSend->text(), u"/time"_s);
        QVERIFY(m_sent.isEmpty());
    }

    void playerListFollowsTheRoster_data()
    {
        QTest::addColumn<QStringList>("roster");
        QTest::addColumn<QString>("caption");
        QTest::newRow("nobody") << QStringList() << u"Players (0):"_s;
        QTest::newRow("one") << QStringList{u"ann"_s} << u"Players (1):"_s;
        QTest::newRow("in arrival order") << QStringList{u"zed"_s, u"Ann"_s, u"bob"_s} << u"Players (3):"_s;
    }
    void playerListFollowsTheRoster()
    {
        QFETCH(QStringList, roster);
        QFETCH(QString, caption);
        Session& session = *m_client->session;
        for (const QString& name : roster)
            session.AddPlayer(name);
        frmChat& chat = session.Chat();
        QCOMPARE(Names(chat), roster);
        QCOMPARE(chat.findChild<QLabel*>(u"lblPlayers"_s)->text(), caption);

        // The list is a copy: it changes only when refreshed.
        session.AddPlayer(u"late"_s);
        QCOMPARE(Names(chat), roster);
        chat.UpdateList();
        QCOMPARE(Names(chat), roster + QStringList{u"late"_s});
        session.RemovePlayer(u"late"_s);
        session.RemovePlayer(u"ann"_s);
        chat.UpdateList();
        roster.removeIf([](const QString& name) { return name.compare(u"ann"_s, Qt::CaseInsensitive) == 0; });
        QCOMPARE(Names(chat), roster);
        QCOMPARE(chat.findChild<QLabel*>(u"lblPlayers"_s)->text(),
                 QString(u"Players (" % QString::number(roster.size()) % u"):"));
    }

    void refusesToCloseUntilUnloaded()
    {
        Session& session = *m_client->session;
        QCOMPARE(session.OpenChat(), nullptr);
        QPointer<frmChat> first = &session.Chat();
        QCOMPARE(session.OpenChat(), first.data());
        first->show();
        first->AddChat(u"GAME"_s, u"hello"_s);

        QVERIFY(!first->close());
        QVERIFY(first->isVisible());
        QCOMPARE(first->Transcript(), u"GAME: hello"_s);
        QCOMPARE(&session.Chat(), first.data());

        first->UnloadNow();
        QVERIFY(first->isHidden());
        QCOMPARE(session.OpenChat(), nullptr);
        frmChat& second = session.Chat();
        QVERIFY(&second != first.data());
        QCOMPARE(second.Transcript(), QString());
        QVERIFY(!second.UnloadAllowed());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(first.isNull());
        QCOMPARE(session.OpenChat(), &second);
    }

    void windowLayout()
    {
        frmChat& chat = m_client->session->Chat();
        chat.show();
        QVERIFY(QTest::qWaitForWindowExposed(&chat));
        QCOMPARE(chat.windowTitle(), u"Chat"_s);
        QCOMPARE(chat.size(), QSize(368, 217));
        QCOMPARE(chat.minimumSize(), chat.maximumSize());
        QVERIFY(chat.windowFlags().testFlag(Qt::Tool));
        QVERIFY(!chat.windowFlags().testFlag(Qt::WindowMinimizeButtonHint));
        QVERIFY(!chat.windowFlags().testFlag(Qt::WindowMaximizeButtonHint));
        QCOMPARE(chat.frameGeometry().topLeft(), chat.screen()->geometry().topLeft());
        QCOMPARE(QApplication::focusWidget(), chat.findChild<QLineEdit*>(u"txtSend"_s));

        const QList<std::pair<QString, QRect>> places{
            {u"lblChat"_s, {8, 8, 225, 33}},      {u"txtChat"_s, {8, 24, 225, 161}},
            {u"txtSend"_s, {8, 192, 185, 17}},    {u"cmdSend"_s, {200, 192, 33, 17}},
            {u"lblPlayers"_s, {240, 8, 121, 41}}, {u"lstPlayers"_s, {240, 24, 121, 186}},
        };
        for (const auto& [name, place] : places) {
            const auto* control = chat.findChild<QWidget*>(name);
            QVERIFY2(control, qPrintable(name));
            QCOMPARE(control->geometry(), place);
            QCOMPARE(control->font().family(), u"Arial"_s);
            QCOMPARE(control->font().pointSizeF(), 8.25);
        }

        // Tab order among the controls that take the focus.
        QStringList order;
        QWidget* widget = chat.findChild<QLineEdit*>(u"txtSend"_s);
        do {
            if (widget->focusPolicy() & Qt::TabFocus) order.append(widget->objectName());
            widget = widget->nextInFocusChain();
        } while (widget != chat.findChild<QLineEdit*>(u"txtSend"_s));
        order.removeAll(QString());
        QCOMPARE(order, (QStringList{u"txtSend"_s, u"cmdSend"_s, u"lstPlayers"_s, u"txtChat"_s}));
    }

private:
    static QStringList Names(const frmChat& chat)
    {
        QStringList names;
        const auto* list = chat.findChild<QListWidget*>(u"lstPlayers"_s);
        for (int i = 0; i < list->count(); ++i)
            names.append(list->item(i)->text());
        return names;
    }

    std::unique_ptr<test::TestClient> m_client;
    QStringList m_sent;
};

} // namespace linkhop

QTEST_MAIN(linkhop::TestChat)
#include "tst_chat.moc"
