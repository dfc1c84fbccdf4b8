// Two rounds of the whole game on loopback, step by step: the real LinkhopServer started by the
// hosting client from its folder, two clients in this process with WebEngine browsers, the test
// encyclopedia engine (MediaWiki) on loopback. With LINKHOP_SCREENSHOTS naming a folder, and a real X
// screen, the test also saves the documentation's pictures there (scripts/screenshots.sh).
#include "browserlog.h"
#include "clientfakes.h"
#include "game/frmgame.h"
#include "lobby/frmhost.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobbytest.h"
#include "mediawiki.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "platform/webenginebrowser.h"

#include <QWebEnginePage>
#include <QtTest>
#include <QtWidgets>
#include <csignal>
#include <sys/prctl.h>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

constexpr int kPatienceMs = 20000;
const QString kGame = u"GAME: "_s;
const QString kMainPageTitle = u"Wikipedia, the free encyclopedia"_s;
const QString kLodz = u"\u0141\u00f3d\u017a"_s;
// The server's random words, and the encyclopedia's articles of those names.
const QStringList kRandomWords = {u"Volcano"_s, u"Glacier"_s, u"Desert"_s, u"Lagoon"_s, u"Canyon"_s};

// Starts the server as the host asks, bound to the test address only (other tests keep port 7200 on
// theirs), and returns once it is ready; when another program holds the port for a moment the server
// ends at once, and is started again. It dies with the test program, also when that crashes.
class ServerLauncher final : public Launcher
{
public:
    QProcess process;
    QString output;
    QString site; // the encyclopedia the server asks

    ~ServerLauncher() override
    {
        process.terminate();
        process.waitForFinished(3000);
    }
    bool Start(const QString& program) override
    {
        process.setProgram(program);
        process.setArguments({u"--bind"_s, TestAddress().toString(), u"--site"_s, site});
        process.setWorkingDirectory(QFileInfo(program).absolutePath());
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
        for (QDeadlineTimer deadline(60000); !deadline.hasExpired(); QThread::msleep(500)) {
            process.start();
            while (process.state() != QProcess::NotRunning && !Output().contains(u"LinkhopServer ready on"_s))
                process.waitForReadyRead(100);
            if (process.state() == QProcess::Running) return true;
            if (process.exitCode() != 1) return false; // not a matter of the port
        }
        return false;
    }
    QString Output() { return output += QString::fromLocal8Bit(process.readAll()); }
};

// One player: a program folder of its own, scripted prompts, the real browser.
struct Client
{
    Client(const QString& name, const SiteConfig& site, Launcher& launcher)
    {
        Services services{&prompts, &launcher, &programEnd, WebEngineBrowserFactory(site)};
        session = std::make_unique<Session>(folder.path(), services, site);
        session->SaveOption(u"Name"_s, name);
        prompts.inputAnswers = {u"hopper"_s};
    }
    ~Client() { delete main.data(); }

    Session& S() const { return *session; }
    frmChat* Chat() const { return session->OpenChat(); }
    QString Transcript() const { return Chat() ? Chat()->Transcript() : QString(); }
    QString Board(const QString& label) const { return Find<QLabel>(session->OpenScores(), label)->text(); }
    QString Caption() const { return session->Game() ? session->Game()->windowTitle() : QString(); }
    WebEngineBrowser* Browser() const { return qobject_cast<WebEngineBrowser*>(session->GameBrowser()); }
    QString PageTitle() const { return Browser() ? Browser()->Page()->title() : QString(); }
    bool Loaded() const { return Browser() && !Browser()->Busy(); }
    frmWinner* Chooser() const { return session->OpenWinner(); }
    bool Click(const QString& article) const { return ClickLink(*Browser(), LinkTo(article)); }

    QTemporaryDir folder;
    ScriptedPrompts prompts;
    RecordingProgramEnd programEnd;
    std::unique_ptr<Session> session;
    QPointer<frmMain> main;
};

// A picture for the documentation: the whole screen, or what `window`, raised, covers with its frame.
void Picture(const QString& name, QWidget* window = nullptr)
{
    const QString folder = qEnvironmentVariable("LINKHOP_SCREENSHOTS");
    if (folder.isEmpty()) return;
    if (window) window->raise();
    QTest::qWait(1000); // the window manager and the browser paint
    QScreen* screen = QGuiApplication::primaryScreen();
    QPixmap shot = screen->grabWindow(0);
    if (window) shot = shot.copy(window->frameGeometry().intersected(screen->geometry()));
    if (!shot.save(QDir(folder).filePath(name + u".png"_s))) qWarning("cannot save %s", qPrintable(name));
}

} // namespace

class tst_endtoend : public QObject
{
    Q_OBJECT

    MediaWiki m_wiki;
    ServerLauncher m_launcher;
    RecordingLauncher m_noLauncher; // the joining player never starts a server
    std::unique_ptr<Client> m_alice, m_bob;

    // Both are on the round's first page, and their windows show its words.
    void RoundBegins(const QString& initial, const QString& destination)
    {
        for (const Client* c : {m_alice.get(), m_bob.get()}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->S().InRound && c->Loaded(), kPatienceMs);
            QCOMPARE(c->PageTitle(), initial + u" - Wikipedia"_s);
            QVERIFY(c->Transcript().endsWith(kGame + u"The game has begun!"_s));
            QCOMPARE(c->Board(u"lblStartWord"_s), initial);
            QCOMPARE(c->Board(u"lblNextWord"_s), destination);
        }
    }
    // Bob has won: both chats tell it with the route, the scoreboards agree, and Bob chooses next.
    // The server, which asked the encyclopedia, then tells the shortest route.
    void BobWins(const QStringList& route, const QString& scores, const QString& shortest)
    {
        const QString told = kGame + u"Bob has won the round in %1 clicks!\r\n"_s.arg(route.size() - 1) +
                             kGame + u"The winning route was: \r\n" + route.join(u" --> "_s) + u"\r\n" +
                             kGame + u"Bob now chooses the next words.\r\n" + kGame + shortest;
        for (const Client* c : {m_alice.get(), m_bob.get()}) {
            QTRY_VERIFY2_WITH_TIMEOUT(c->Transcript().endsWith(told), qPrintable(c->Transcript()),
                                      kPatienceMs);
            QTRY_COMPARE(c->Board(u"lblScores"_s), scores);
        }
        QCOMPARE(m_bob->Caption(), u"Linkhop - "_s + route.last());
        QVERIFY(m_bob->Chooser() && m_bob->Chooser()->isVisible());
        QVERIFY(!m_alice->Chooser());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QApplication::setQuitOnLastWindowClosed(false); // the program ends through the sessions only
        QVERIFY2(m_wiki.Start(), qPrintable(m_wiki.Error()));
        const SiteConfig site{m_wiki.Host()};
        m_launcher.site = m_wiki.Url(u"");
        m_alice = std::make_unique<Client>(u"Alice"_s, site, m_launcher);
        m_bob = std::make_unique<Client>(u"Bob"_s, site, m_noLauncher);
        // The host's folder holds the server program and its article list. A copy, not a link: the
        // server reads its options from the folder its file is in.
        const QDir folder(m_alice->folder.path());
        QVERIFY(QFile::copy(QStringLiteral(LINKHOP_SERVER_PROGRAM),
                            folder.filePath(frmMain::ServerProgramName())));
        QFile articles(folder.filePath(u"articles.txt"_s));
        QVERIFY(articles.open(QIODevice::WriteOnly));
        articles.write(kRandomWords.join(u'\n').toUtf8() + '\n');
    }
    void cleanup()
    {
        StopModalWaits();
        if (QTest::currentTestFailed()) qWarning().noquote() << "server output:\n" << m_launcher.Output();
    }

    void hostStartsTheServerFromItsFolder()
    {
        Client& a = *m_alice;
        a.main = new frmMain(a.S());
        a.main->show();
        Picture(u"main-window"_s, a.main);
        WhenModal<frmHost>([&](frmHost* dialog) {
            Find<QLineEdit>(dialog, u"txtIP"_s)->setText(TestAddress().toString());
            Find<QPlainTextEdit>(dialog, u"txtWelcomeMessage"_s)
                ->setPlainText(u"Welcome! %p player(s) on Linkhop Server %v"_s);
            Find<QLineEdit>(dialog, u"txtPassword"_s)->setText(u"hopper"_s);
            Picture(u"host-dialog"_s, dialog);
            Find<QPushButton>(dialog, u"cmdHost"_s)->click();
        });
        Find<QPushButton>(a.main, u"cmdHost"_s)->click();
        QTRY_VERIFY_WITH_TIMEOUT(!a.main, kPatienceMs);

        // The server came from the host's folder and read the dialog's options there: a password.
        QCOMPARE(m_launcher.process.program(), QDir(a.folder.path()).filePath(frmMain::ServerProgramName()));
        QCOMPARE(a.prompts.inputPrompts, QStringList{u"Private server, please enter password:"_s});
        QCOMPARE(a.Transcript(), kGame + u"Welcome! 1 player(s) on Linkhop Server 1.04 (beta)"_s);
        QCOMPARE(a.Chat()->windowTitle(), u"Chat"_s);
        QCOMPARE(a.S().OpenScores()->windowTitle(), u"Scoreboard"_s);
        QTRY_COMPARE_WITH_TIMEOUT(a.PageTitle(), kMainPageTitle, kPatienceMs);
        QVERIFY(a.Chooser() && a.Chooser()->isVisible()); // the host chooses the first words
    }

    void secondPlayerJoinsThroughTheServerBrowser()
    {
        Client &a = *m_alice, &b = *m_bob;
        b.S().SaveOption(u"Servers"_s, TestAddress().toString());
        b.main = new frmMain(b.S());
        b.main->show();
        QString listed;
        WhenModal<frmServers>([&](frmServers* dialog) {
            auto* active = Find<QListWidget>(dialog, u"lstActive"_s);
            if (!WaitUntil([&] { return active->count() > 0; }, kPatienceMs))
                return Find<QPushButton>(dialog, u"cmdCancel"_s)->click();
            listed = active->item(0)->text();
            QTest::mouseClick(active->viewport(), Qt::LeftButton, {},
                              active->visualItemRect(active->item(0)).center());
            Picture(u"server-browser"_s, dialog);
            Find<QPushButton>(dialog, u"cmdJoin"_s)->click();
        });
        Find<QPushButton>(b.main, u"cmdJoin"_s)->click();
        QTRY_VERIFY_WITH_TIMEOUT(!b.main, kPatienceMs);
        QCOMPARE(listed, TestAddress().toString() + u" (1)"_s);
        QCOMPARE(b.prompts.inputPrompts, a.prompts.inputPrompts);
        QCOMPARE(b.Transcript(), kGame + u"Welcome! 2 player(s) on Linkhop Server 1.04 (beta)"_s);
        QTRY_VERIFY(a.Transcript().endsWith(kGame + u"Bob has joined the game."_s));
        for (const Client* c : {&a, &b}) {
            QCOMPARE(Find<QLabel>(c->Chat(), u"lblPlayers"_s)->text(), u"Players (2):"_s);
            QCOMPARE(c->Board(u"lblPlayers"_s), u"Alice\r\nBob\r\n"_s);
        }
    }

    void firstRound()
    {
        Client &a = *m_alice, &b = *m_bob;
        frmWinner* chooser = a.Chooser();
        QVERIFY(chooser);
        // Typed words, as the encyclopedia's search resolves them: other letter case, characters that
        // need escaping in an address, and one that Windows-1252 lacks.
        QTest::keyClicks(chooser->txtInitial, u"at&t"_s);
        for (const QChar c : u"\u0142\u00f3d\u017a"_s) // keys whose text no ASCII key gives
            QTest::sendKeyEvent(QTest::Click, chooser->txtDestination, Qt::Key_unknown, QString(c), {});
        QTRY_VERIFY_WITH_TIMEOUT(a.Loaded(), kPatienceMs);
        chooser->cmdVerify->click(); // returns once the encyclopedia has answered for both words
        QCOMPARE(chooser->txtInitial->text(), u"AT&T"_s);
        QCOMPARE(chooser->txtDestination->text(), kLodz);
        Picture(u"word-chooser"_s, chooser);
        chooser->cmdStartGame->click();
        RoundBegins(u"AT&T"_s, kLodz);
        if (QTest::currentTestFailed()) return;

        // Bob goes through two more places, which Alice's scoreboard tells, on to the destination.
        QVERIFY(b.Click(u"C++"_s));
        QTRY_COMPARE_WITH_TIMEOUT(a.Board(u"lblScores"_s), u"0 / 0 / 0\r\n0 / 1 / 1\r\n"_s, kPatienceMs);
        QCOMPARE(b.Caption(), u"Linkhop - C++"_s);
        Picture(u"session"_s);
        QVERIFY(b.Click(u"Caf\u00e9"_s));
        QVERIFY(b.Click(kLodz));
        BobWins({u"AT&T"_s, u"C++"_s, u"Caf\u00e9"_s, kLodz}, u"0 / 0 / 0\r\n1 / 3 / 3\r\n"_s,
                u"The shortest route takes 1 click: AT&T --> "_s + kLodz + u". Bob took 3 clicks.");
    }

    void secondRoundEndsWithADisqualification()
    {
        Client &a = *m_alice, &b = *m_bob;
        frmWinner* chooser = b.Chooser();
        QVERIFY(chooser);
        // One of the server's words, and a redirect that the encyclopedia resolves.
        chooser->cmdRandom1->click();
        QTRY_VERIFY_WITH_TIMEOUT(!chooser->txtInitial->text().isEmpty(), kPatienceMs);
        const QString initial = chooser->txtInitial->text();
        QVERIFY(kRandomWords.contains(initial));
        QVERIFY(b.Transcript().endsWith(kGame + u"Initial page randomized: \""_s + initial + u'"'));
        QTest::keyClicks(chooser->txtDestination, u"big apple"_s);
        QTRY_VERIFY_WITH_TIMEOUT(b.Loaded(), kPatienceMs);
        chooser->cmdVerify->click();
        QCOMPARE(chooser->txtInitial->text(), initial);
        QCOMPARE(chooser->txtDestination->text(), u"New York City"_s);
        chooser->cmdStartGame->click();
        RoundBegins(initial, u"New York City"_s);
        if (QTest::currentTestFailed()) return;

        // Alice opens a talk page: out of the round, back on the main page, and both are told.
        QVERIFY(a.Click(u"Apple"_s));
        QTRY_VERIFY_WITH_TIMEOUT(a.Caption() == u"Linkhop - Apple"_s && a.Loaded(), kPatienceMs);
        QVERIFY(a.Click(u"Talk:Apple"_s));
        const QString notice =
            kGame + u"Alice has been disqualified for visiting an illegal page: \"talk\""_s;
        for (const Client* c : {&a, &b}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->Transcript().contains(notice), kPatienceMs);
            QTRY_COMPARE(c->S().Player(1).InGame, u"no"_s);
            QCOMPARE(c->S().Player(2).InGame, u"yes"_s);
        }
        QTRY_VERIFY_WITH_TIMEOUT(a.PageTitle() == kMainPageTitle && a.Loaded(), kPatienceMs);
        QCOMPARE(a.Caption(), u"Linkhop"_s);
        QVERIFY(a.S().InRound);

        QVERIFY(b.Click(u"Apple"_s));
        QTRY_VERIFY_WITH_TIMEOUT(b.Caption() == u"Linkhop - Apple"_s && b.Loaded(), kPatienceMs);
        QVERIFY(b.Click(u"Big Apple"_s)); // through the redirect to the destination
        BobWins({initial, u"Apple"_s, u"New York City"_s}, u"0 / 1 / 1\r\n2 / 5 / 2\r\n"_s,
                u"The shortest route takes 2 clicks: "_s + initial + u" --> Apple --> New York City. Bob found one.");
    }
};

QTEST_MAIN(tst_endtoend)
#include "tst_endtoend.moc"
