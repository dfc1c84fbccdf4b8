// Two rounds of the whole game on loopback: the real LinkhopServer started by the hosting client
// from its own program folder, real clients in this process (two, and a third that joins during
// the second round), each with its own folder and a WebEngine browser, and the test encyclopedia.
// The steps run in order and share their state; a step that fails skips the ones after it.
//
// With LINKHOP_SCREENSHOTS naming a folder, and a real X screen, the test also saves the pictures
// of the documentation there (scripts/screenshots.sh).
#include "browserlog.h"
#include "clientfakes.h"
#include "encyclopedia.h"
#include "game/frmgame.h"
#include "game/session.h"
#include "lobby/frmhost.h"
#include "lobby/frmmain.h"
#include "lobby/frmservers.h"
#include "lobby/simplecombo.h"
#include "lobbytest.h"
#include "panels/frmchat.h"
#include "panels/frmscores.h"
#include "panels/frmwinner.h"
#include "platform/twips.h"
#include "platform/webenginebrowser.h"
#include "scriptedserver.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QScreen>
#include <QSignalSpy>
#include <QThread>
#include <QWebEnginePage>
#include <QtTest>
#include <csignal>
#include <memory>
#include <sys/prctl.h>
#include <vector>

using namespace Qt::Literals::StringLiterals;
using namespace linkhop;
using namespace linkhop::test;

namespace {

constexpr int kPatienceMs = 20000;

const QString kPassword = u"hopper"_s;
const QString kWelcome = u"Welcome! %p player(s) on Linkhop Server %v"_s;
const QString kPasswordPrompt = u"Private server, please enter password:"_s;
const QString kDisconnected = u"You have been disconnected from the game."_s;

// The server's random words, and the encyclopedia's articles of those names: each links to every
// other, so any two of them make a round.
const QStringList kRandomWords = {u"Volcano"_s, u"Glacier"_s, u"Desert"_s, u"Lagoon"_s, u"Canyon"_s};

// The address the host types: the test address, unless that is 127.0.0.1, which the host dialog
// refuses.
QHostAddress HostAddress()
{
    const QHostAddress test = TestAddress();
    return test == QHostAddress(QHostAddress::LocalHost) ? QHostAddress(u"127.0.0.2"_s) : test;
}

// Starts the server program the way the hosting client asks, but keeps the process so that the test
// can stop it; the process dies with the test program, also when the test crashes or is killed.
// The server listens on the host's address only, so that the tests of other programs, on other
// loopback addresses, keep port 7200 there while it runs; for the same reason the host's own check
// for the port (any address) cannot tell when this server holds it, so Start returns only once the
// server has said it is ready. When another program holds the port for a moment the server ends
// at once, and is started again.
class ServerLauncher final : public Launcher
{
public:
    QStringList started;

    ~ServerLauncher() override { Kill(); }

    bool Start(const QString& program) override
    {
        started.append(program);
        const QDeadlineTimer deadline(60000);
        while (!deadline.hasExpired()) {
            auto process = std::make_unique<QProcess>();
            process->setProgram(program);
            process->setArguments({u"--bind"_s, HostAddress().toString()});
            process->setWorkingDirectory(QFileInfo(program).absolutePath());
            process->setProcessChannelMode(QProcess::MergedChannels);
            process->setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
            process->start();
            if (!process->waitForStarted(5000)) return false;
            QProcess& server = *process;
            m_processes.push_back(std::move(process));
            while (server.state() == QProcess::Running && !m_output.contains(u"LinkhopServer ready on"_s)) {
                server.waitForReadyRead(100);
                m_output += QString::fromLocal8Bit(server.readAll());
            }
            if (server.state() == QProcess::Running) {
                QObject::connect(&server, &QProcess::readyRead, &server,
                                 [this, &server] { m_output += QString::fromLocal8Bit(server.readAll()); });
                return true;
            }
            m_output += QString::fromLocal8Bit(server.readAll());
            if (server.exitCode() != 1) return false; // not a matter of the port
            QThread::msleep(500);
        }
        return false;
    }

    QProcess* Current() const { return m_processes.empty() ? nullptr : m_processes.back().get(); }
    bool Running() const { return Current() && Current()->state() == QProcess::Running; }
    const QString& Output() const { return m_output; }
    // SIGTERM: the server tells its players it goes away, then ends.
    void Terminate() const
    {
        if (Running()) Current()->terminate();
    }
    void Kill()
    {
        for (const auto& process : m_processes) {
            if (process->state() == QProcess::NotRunning) continue;
            process->terminate();
            if (!process->waitForFinished(3000)) {
                process->kill();
                process->waitForFinished(3000);
            }
        }
    }

private:
    std::vector<std::unique_ptr<QProcess>> m_processes;
    QString m_output;
};

QString Text(const QWidget* window, const QString& label)
{
    if (!window) return u"<no window>"_s;
    const auto* control = window->findChild<QLabel*>(label);
    return control ? control->text() : u"<no "_s + label + u'>';
}

// One player: a program folder of its own, scripted prompts, the real browser.
struct Client
{
    Client(const QString& playerName, const SiteConfig& site, Launcher& launcher) : name(playerName)
    {
        Services services;
        services.prompts = &prompts;
        services.launcher = &launcher;
        services.programEnd = &programEnd;
        services.createBrowser = WebEngineBrowserFactory(site.domain);
        session = std::make_unique<Session>(folder.path(), services, site);
        session->SaveOption(u"Name"_s, name);
        prompts.inputAnswers = {kPassword};
    }
    ~Client()
    {
        delete main.data();
        session.reset();
    }

    Session& S() const { return *session; }
    void OpenMain()
    {
        main = new frmMain(*session);
        handedOver = std::make_unique<QSignalSpy>(main.data(), &frmMain::HandshakeCompleted);
        main->show();
    }
    frmChat* Chat() const { return session->OpenChat(); }
    QString Transcript() const { return Chat() ? Chat()->Transcript() : QString(); }
    frmScores* Scores() const { return session->OpenScores(); }
    QString Board(const QString& label) const { return Text(Scores(), label); }
    frmGame* Game() const { return session->Game(); }
    QString Caption() const { return Game() ? Game()->windowTitle() : QString(); }
    WebEngineBrowser* Browser() const { return qobject_cast<WebEngineBrowser*>(session->GameBrowser()); }
    QString PageTitle() const { return Browser() ? Browser()->Page()->title() : QString(); }
    bool Loaded() const { return Browser() && !Browser()->Busy(); }
    frmWinner* Chooser() const { return session->OpenWinner(); }
    QString InGame(const QString& player) const
    {
        const qint32 i = session->FindPlayer(player);
        return i > 0 ? session->Player(i).InGame : u"<not in the roster>"_s;
    }
    QList<QWidget*> Windows() const
    {
        QList<QWidget*> windows;
        for (QWidget* w : std::initializer_list<QWidget*>{Chat(), Scores(), Game(), Chooser()})
            if (w && w->isVisible()) windows.append(w);
        return windows;
    }

    QString name;
    QTemporaryDir folder;
    ScriptedPrompts prompts;
    RecordingProgramEnd programEnd;
    std::unique_ptr<Session> session;
    QPointer<frmMain> main;
    std::unique_ptr<QSignalSpy> handedOver;
};

QString GameLine(const QString& text)
{
    return u"GAME: "_s + text;
}

QString Route(const QStringList& titles)
{
    return GameLine(u"The winning route was: \r\n"_s + titles.join(u" --> "_s));
}

} // namespace

class tst_endtoend : public QObject
{
    Q_OBJECT

    Encyclopedia m_wiki;
    ServerLauncher m_launcher;
    RecordingLauncher m_noLauncher; // the joining player never starts a server
    std::unique_ptr<Client> m_alice;
    std::unique_ptr<Client> m_bob;
    std::unique_ptr<Client> m_carol;
    bool m_broken = false;
    QString m_initial, m_destination, m_via;

    QString Address() const { return HostAddress().toString(); }

    // The pictures of the documentation: the whole screen, or the part of it that one window covers
    // with its frame.
    static void Picture(const QString& name, const QWidget* window = nullptr)
    {
        const QString folder = qEnvironmentVariable("LINKHOP_SCREENSHOTS");
        if (folder.isEmpty()) return;
        QTest::qWait(1000); // the window manager and the browser paint
        QScreen* screen = QGuiApplication::primaryScreen();
        QPixmap shot = screen->grabWindow(0);
        if (window) shot = shot.copy(window->frameGeometry().intersected(screen->geometry()));
        if (!shot.save(QDir(folder).filePath(name + u".png"_s)))
            qWarning("cannot save picture %s", qPrintable(name));
    }
    // The same with one client's windows hidden, so that the other's show alone.
    static void PictureWithout(const Client& hidden, const QString& name, const QWidget* window = nullptr)
    {
        if (qEnvironmentVariableIsEmpty("LINKHOP_SCREENSHOTS")) return;
        const QList<QWidget*> windows = hidden.Windows();
        for (QWidget* w : windows)
            w->hide();
        Picture(name, window);
        for (QWidget* w : windows)
            w->show();
        QTest::qWait(500);
    }

    // What the server browser showed while a player joined through it.
    struct Joining
    {
        QString caption;
        QString listed; // the first active server
        QString picked; // the address that clicking it put in the address box
    };
    // Join Game with the server's address remembered: picks the first active server in the server
    // browser and joins it.
    Joining JoinThroughTheServerBrowser(Client& c, const QString& picture = {}) const
    {
        c.S().SaveOption(u"Servers"_s, Address());
        c.OpenMain();
        Joining seen;
        WhenModal<frmServers>([&](frmServers* dialog) {
            seen.caption = dialog->windowTitle();
            auto* active = Find<QListWidget>(dialog, u"lstActive"_s);
            WaitUntil([&] { return active->count() > 0; }, kPatienceMs);
            if (active->count() == 0) return Find<QPushButton>(dialog, u"cmdCancel"_s)->click();
            seen.listed = active->item(0)->text();
            QTest::mouseClick(active->viewport(), Qt::LeftButton, {},
                              active->visualItemRect(active->item(0)).center());
            seen.picked = Find<SimpleCombo>(dialog, u"cmbServers"_s)->text();
            if (!picture.isEmpty()) Picture(picture, dialog);
            Find<QPushButton>(dialog, u"cmdJoin"_s)->click();
        });
        Find<QPushButton>(c.main, u"cmdJoin"_s)->click();
        return seen;
    }

    // Where the session's windows are against where they belong: the chat in the screen's top-left
    // corner, the scoreboard below it down to the strip at the bottom, the game window filling the
    // rest. Empty when all are in place.
    static QString Misplaced(const Client& c)
    {
        if (!c.Chat() || !c.Scores() || !c.Game()) return u"windows missing"_s;
        const QRect screen = c.Game()->screen()->geometry();
        const QRect chat = c.Chat()->frameGeometry();
        const QRect scores = c.Scores()->frameGeometry();
        const QRect game = c.Game()->frameGeometry();
        const int bottom = screen.bottom() - Px(480);
        const bool placed =
            chat.topLeft() == screen.topLeft() &&
            scores == QRect(QPoint(screen.left(), chat.bottom() + 1),
                            QPoint(screen.left() + Px(3585) - 1, bottom)) &&
            game == QRect(QPoint(scores.right() + 1, screen.top()), QPoint(screen.right(), bottom));
        if (placed) return {};
        QString text;
        QDebug(&text) << "chat" << chat << "scoreboard" << scores << "game" << game << "screen" << screen;
        return text;
    }

    static bool Click(const Client& c, const QString& article)
    {
        return c.Browser() && ClickLink(*c.Browser(), Encyclopedia::LinkId(article));
    }

private Q_SLOTS:
    void initTestCase()
    {
        // The session's windows come and go; the program ends through the sessions only.
        QApplication::setQuitOnLastWindowClosed(false);
        QVERIFY(QFileInfo(QStringLiteral(LINKHOP_SERVER_PROGRAM)).isExecutable());

        for (const QString& word : kRandomWords) {
            QStringList others = kRandomWords;
            others.removeOne(word);
            m_wiki.AddArticle(word, others + QStringList{u"Talk:"_s + word},
                              word + u" is one of the places this round may lead through."_s);
            m_wiki.AddArticle(u"Talk:"_s + word, {word});
        }
        QVERIFY(m_wiki.Listen());
        const SiteConfig site{m_wiki.Host(), m_wiki.Host()};
        m_alice = std::make_unique<Client>(u"Alice"_s, site, m_launcher);
        m_bob = std::make_unique<Client>(u"Bob"_s, site, m_noLauncher);
        m_carol = std::make_unique<Client>(u"Carol"_s, site, m_noLauncher);

        // The host's program folder holds the server program and the article list it draws from. A
        // copy, not a link: the server reads its options from the folder its file is in.
        const QDir hostFolder(m_alice->folder.path());
        QVERIFY(QFile::copy(QStringLiteral(LINKHOP_SERVER_PROGRAM),
                            hostFolder.filePath(frmMain::ServerProgramName())));
        QFile articles(hostFolder.filePath(u"articles.txt"_s));
        QVERIFY(articles.open(QIODevice::WriteOnly));
        articles.write(kRandomWords.join(u'\n').toUtf8() + '\n');
    }

    void init()
    {
        if (m_broken) QSKIP("an earlier step failed");
    }

    void cleanup()
    {
        StopModalWaits();
        if (QTest::currentTestFailed()) {
            m_broken = true;
            qWarning().noquote() << "server output:\n" << m_launcher.Output();
        }
    }

    void cleanupTestCase()
    {
        StopModalWaits();
        m_launcher.Kill();
        m_carol.reset();
        m_bob.reset();
        m_alice.reset();
    }

    void hostStartsTheServerFromItsFolder()
    {
        Client& a = *m_alice;
        a.OpenMain();
        QVERIFY(QTest::qWaitForWindowExposed(a.main));
        QCOMPARE(a.main->windowTitle(), u"The Linkhop - 1.04 (beta)"_s);
        QCOMPARE(Find<QLineEdit>(a.main, u"txtName"_s)->text(), u"Alice"_s);
        Picture(u"main-window"_s, a.main);

        QString dialogCaption;
        WhenModal<frmHost>([&](frmHost* dialog) {
            dialogCaption = dialog->windowTitle();
            Find<QLineEdit>(dialog, u"txtIP"_s)->setText(Address());
            Find<QPlainTextEdit>(dialog, u"txtWelcomeMessage"_s)->setPlainText(kWelcome);
            Find<QLineEdit>(dialog, u"txtPassword"_s)->setText(kPassword);
            Picture(u"host-dialog"_s, dialog);
            Find<QPushButton>(dialog, u"cmdHost"_s)->click();
        });
        Find<QPushButton>(a.main, u"cmdHost"_s)->click();
        QTRY_VERIFY2_WITH_TIMEOUT(!a.handedOver->isEmpty() ||
                                      Find<QPushButton>(a.main, u"cmdHost"_s)->isEnabled(),
                                  qPrintable(Text(a.main, u"lblStatus"_s)), kPatienceMs);
        QCOMPARE(a.handedOver->size(), 1);
        QCOMPARE(dialogCaption, u"Host a Game"_s);

        // The server came from the host's folder, read the host dialog's options there, and asked
        // for the password the dialog set.
        const QString program = QDir(a.folder.path()).filePath(frmMain::ServerProgramName());
        QCOMPARE(m_launcher.started.constLast(), program);
        QVERIFY(m_launcher.Running());
        QCOMPARE(a.prompts.inputPrompts.constLast(), kPasswordPrompt);
        QCOMPARE(a.S().ServerAddress, Address());
        QCOMPARE(a.S().PlayerCount(), 1);
        QTRY_VERIFY(!a.main);

        QVERIFY(a.Chat() && a.Chat()->isVisible());
        QCOMPARE(a.Chat()->windowTitle(), u"Chat"_s);
        QCOMPARE(a.Transcript(), GameLine(u"Welcome! 1 player(s) on Linkhop Server 1.04 (beta)"_s));
        QCOMPARE(Text(a.Chat(), u"lblPlayers"_s), u"Players (1):"_s);
        QCOMPARE(a.Scores()->windowTitle(), u"Scoreboard"_s);
        QCOMPARE(a.Board(u"lblPlayers"_s), u"Alice\r\n"_s);
        QCOMPARE(a.Board(u"lblStartWord"_s), u"None"_s);
        QCOMPARE(a.Board(u"lblNextWord"_s), u"None"_s);
        QCOMPARE(a.Caption(), u"Linkhop"_s);
        QTRY_COMPARE_WITH_TIMEOUT(Misplaced(a), QString(), kPatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(a.PageTitle(), m_wiki.ArticleTitle(u"Main Page"), kPatienceMs);
        // The host chooses the first words.
        QVERIFY(a.Chooser() && a.Chooser()->isVisible());
        QCOMPARE(a.Chooser()->windowTitle(), u"Choose Words"_s);
        QVERIFY(!a.Chooser()->cmdStartGame->isEnabled());
    }

    void secondPlayerJoinsThroughTheServerBrowser()
    {
        Client& a = *m_alice;
        Client& b = *m_bob;
        const Joining seen = JoinThroughTheServerBrowser(b, u"server-browser"_s);
        QCOMPARE(seen.caption, u"Join a Game"_s);
        QCOMPARE(seen.listed, Address() + u" (1)"_s);
        QCOMPARE(seen.picked, Address());
        QTRY_COMPARE_WITH_TIMEOUT(b.handedOver->size(), 1, kPatienceMs);
        QTRY_VERIFY(!b.main);

        QVERIFY(m_noLauncher.started.isEmpty());
        QCOMPARE(b.prompts.inputPrompts, QStringList{kPasswordPrompt});
        QCOMPARE(b.S().PlayerCount(), 2);
        QCOMPARE(b.Transcript(), GameLine(u"Welcome! 2 player(s) on Linkhop Server 1.04 (beta)"_s));
        QVERIFY(!b.Chooser());
        QTRY_COMPARE_WITH_TIMEOUT(Misplaced(b), QString(), kPatienceMs);
        QTRY_VERIFY(a.Transcript().endsWith(GameLine(u"Bob has joined the game."_s)));
        for (const Client* c : {&a, &b}) {
            QCOMPARE(Text(c->Chat(), u"lblPlayers"_s), u"Players (2):"_s);
            QCOMPARE(c->Board(u"lblPlayers"_s), u"Alice\r\nBob\r\n"_s);
            QTRY_COMPARE(c->Board(u"lblScores"_s), u"0 / 0 / 0\r\n0 / 0 / 0\r\n"_s);
        }

        // A chat line goes through the server to both.
        auto* txtSend = Find<QLineEdit>(b.Chat(), u"txtSend"_s);
        QTest::keyClicks(txtSend, u"Hello, Alice!"_s);
        QTest::keyClick(txtSend, Qt::Key_Return);
        QCOMPARE(txtSend->text(), QString());
        for (const Client* c : {&a, &b})
            QTRY_VERIFY(c->Transcript().endsWith(u"\r\nBob: Hello, Alice!"_s));
        // The server's time goes to the one who asked.
        auto* txtSendA = Find<QLineEdit>(a.Chat(), u"txtSend"_s);
        QTest::keyClicks(txtSendA, u" /TIME "_s);
        QTest::keyClick(txtSendA, Qt::Key_Return);
        QTRY_VERIFY(a.Transcript().section(u"\r\n"_s, -1).startsWith(u"Current Time: "_s));
        QVERIFY2(a.Transcript().section(u"\r\n"_s, -1).contains(u" on "_s), qPrintable(a.Transcript()));
        QVERIFY(!b.Transcript().contains(u"Current Time"_s));
    }

    void firstRoundOnRandomWords()
    {
        Client& a = *m_alice;
        Client& b = *m_bob;
        frmWinner* chooser = a.Chooser();
        QVERIFY(chooser);

        chooser->cmdRandom1->click();
        QTRY_VERIFY_WITH_TIMEOUT(!chooser->txtInitial->text().isEmpty(), kPatienceMs);
        m_initial = chooser->txtInitial->text();
        QVERIFY2(kRandomWords.contains(m_initial), qPrintable(m_initial));
        QVERIFY(a.Transcript().endsWith(GameLine(u"Initial page randomized: \""_s + m_initial + u'"')));
        // The same word twice would make no round: ask again.
        for (int attempt = 0; attempt < 20 && (m_destination.isEmpty() || m_destination == m_initial);
             ++attempt) {
            const QString before = a.Transcript();
            chooser->cmdRandom2->click();
            QTRY_VERIFY_WITH_TIMEOUT(a.Transcript() != before, kPatienceMs);
            m_destination = chooser->txtDestination->text();
        }
        QVERIFY(kRandomWords.contains(m_destination) && m_destination != m_initial);
        QVERIFY(
            a.Transcript().endsWith(GameLine(u"Destination page randomized: \""_s + m_destination + u'"')));
        QVERIFY(!b.Transcript().contains(u"randomized"_s));

        QTRY_VERIFY_WITH_TIMEOUT(a.Loaded(), kPatienceMs);
        chooser->cmdVerify->click(); // returns once the encyclopedia has answered for both words
        QVERIFY(chooser->cmdStartGame->isEnabled());
        QVERIFY(!chooser->cmdVerify->isEnabled());
        QCOMPARE(chooser->txtInitial->text(), m_initial);
        QCOMPARE(chooser->txtDestination->text(), m_destination);
        PictureWithout(b, u"word-chooser"_s, chooser);
        chooser->cmdStartGame->click();
        QTRY_VERIFY(!a.Chooser());

        for (const Client* c : {&a, &b}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->S().InRound && c->Loaded(), kPatienceMs);
            QCOMPARE(c->PageTitle(), m_wiki.ArticleTitle(m_initial));
            QVERIFY(c->Transcript().endsWith(GameLine(u"The game has begun!"_s)));
            QCOMPARE(c->Board(u"lblStartWord"_s), m_initial);
            QCOMPARE(c->Board(u"lblNextWord"_s), m_destination);
            QCOMPARE(c->Caption(), u"Linkhop"_s);
        }

        // Both go through a third place; Bob goes on to the destination first.
        for (const QString& word : kRandomWords)
            if (m_via.isEmpty() && word != m_initial && word != m_destination) m_via = word;
        QVERIFY(Click(b, m_via));
        QTRY_COMPARE_WITH_TIMEOUT(a.Board(u"lblScores"_s), u"0 / 0 / 0\r\n0 / 1 / 1\r\n"_s, kPatienceMs);
        QCOMPARE(b.Caption(), u"Linkhop - "_s + m_via);
        QVERIFY(Click(a, m_via));
        QTRY_COMPARE_WITH_TIMEOUT(b.Board(u"lblScores"_s), u"0 / 1 / 1\r\n0 / 1 / 1\r\n"_s, kPatienceMs);
        QCOMPARE(a.Caption(), u"Linkhop - "_s + m_via);
        PictureWithout(a, u"session"_s);

        QVERIFY(Click(b, m_destination));
        for (const Client* c : {&a, &b}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->Transcript().endsWith(GameLine(u"Bob now chooses the next words."_s)),
                                     kPatienceMs);
            QVERIFY2(c->Transcript().contains(GameLine(u"Bob has won the round in 2 clicks!"_s) + u"\r\n"_s +
                                              Route({m_initial, m_via, m_destination})),
                     qPrintable(c->Transcript()));
            QVERIFY(!c->S().InRound);
            QTRY_COMPARE(c->Board(u"lblScores"_s), u"0 / 1 / 1\r\n1 / 2 / 2\r\n"_s);
        }
        QCOMPARE(b.Caption(), u"Linkhop - "_s + m_destination);
        QVERIFY(!a.Chooser());
        QVERIFY(b.Chooser() && b.Chooser()->isVisible());
    }

    void secondRoundEndsWithADisqualification()
    {
        Client& a = *m_alice;
        Client& b = *m_bob;
        Client& carol = *m_carol;
        frmWinner* chooser = b.Chooser();
        QVERIFY(chooser);

        // Typed words, as the encyclopedia's search resolves them: a lower-case title and a redirect.
        QTest::keyClicks(chooser->txtInitial, u"apple"_s);
        QTest::keyClicks(chooser->txtDestination, u"big apple"_s);
        chooser->cmdVerify->click();
        QCOMPARE(chooser->txtInitial->text(), u"Apple"_s);
        QCOMPARE(chooser->txtDestination->text(), u"New York City"_s);
        QVERIFY(chooser->cmdStartGame->isEnabled());
        chooser->cmdStartGame->click();

        for (const Client* c : {&a, &b}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->S().InRound && c->Loaded(), kPatienceMs);
            QCOMPARE(c->PageTitle(), m_wiki.ArticleTitle(u"Apple"));
            QCOMPARE(c->Board(u"lblStartWord"_s), u"Apple"_s);
            QCOMPARE(c->Board(u"lblNextWord"_s), u"New York City"_s);
        }

        // Carol joins while the round is under way, and enters it on its first article.
        const Joining seen = JoinThroughTheServerBrowser(carol);
        QCOMPARE(seen.listed, Address() + u" (2)"_s);
        QTRY_COMPARE_WITH_TIMEOUT(carol.handedOver->size(), 1, kPatienceMs);
        QTRY_VERIFY_WITH_TIMEOUT(carol.S().InRound && carol.Loaded(), kPatienceMs);
        QCOMPARE(carol.PageTitle(), m_wiki.ArticleTitle(u"Apple"));
        QCOMPARE(carol.Transcript(), GameLine(u"Game is in progress; joining..."_s) + u"\r\n"_s +
                                         GameLine(u"Welcome! 3 player(s) on Linkhop Server 1.04 (beta)"_s) +
                                         u"\r\n"_s + GameLine(u"The game has begun!"_s));
        QCOMPARE(carol.Board(u"lblStartWord"_s), u"Apple"_s);
        QCOMPARE(carol.Board(u"lblNextWord"_s), u"New York City"_s);
        for (const Client* c : {&a, &b, &carol}) {
            QTRY_COMPARE(Text(c->Chat(), u"lblPlayers"_s), u"Players (3):"_s);
            QCOMPARE(c->Board(u"lblPlayers"_s), u"Alice\r\nBob\r\nCarol\r\n"_s);
        }
        for (const Client* c : {&a, &b})
            QVERIFY(c->Transcript().endsWith(GameLine(u"Carol has joined the game."_s)));

        // Alice opens a talk page: out of the round, back on the main page, and all are told.
        QVERIFY(Click(a, u"Talk:Apple"_s));
        const QString notice =
            GameLine(u"Alice has been disqualified for visiting an illegal page: \"talk\""_s);
        for (const Client* c : {&a, &b, &carol}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->Transcript().contains(notice), kPatienceMs);
            QTRY_COMPARE(c->InGame(u"Alice"_s), u"no"_s);
            QCOMPARE(c->InGame(u"Bob"_s), u"yes"_s);
            QCOMPARE(c->InGame(u"Carol"_s), u"yes"_s);
        }
        QTRY_VERIFY_WITH_TIMEOUT(a.PageTitle() == m_wiki.ArticleTitle(u"Main Page") && a.Loaded(),
                                 kPatienceMs);
        QCOMPARE(a.Browser()->Page()->url().path(), u"/wiki/Main_Page"_s);
        QCOMPARE(a.Caption(), u"Linkhop"_s);
        QVERIFY(a.S().InRound);
        QVERIFY(b.S().InRound);

        // Bob goes on through the redirect to the destination and wins.
        QVERIFY(Click(b, u"Big Apple"_s));
        for (const Client* c : {&a, &b, &carol}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->Transcript().endsWith(GameLine(u"Bob now chooses the next words."_s)),
                                     kPatienceMs);
            QVERIFY2(c->Transcript().endsWith(GameLine(u"Bob has won the round in 1 clicks!"_s) + u"\r\n"_s +
                                              Route({u"Apple"_s, u"New York City"_s}) + u"\r\n"_s +
                                              GameLine(u"Bob now chooses the next words."_s)),
                     qPrintable(c->Transcript()));
            QTRY_COMPARE(c->Board(u"lblScores"_s), u"0 / 1 / 0\r\n2 / 3 / 1\r\n0 / 0 / 0\r\n"_s);
        }
        QCOMPARE(b.Caption(), u"Linkhop - New York City"_s);
        QVERIFY(b.Chooser() && b.Chooser()->isVisible());
        QVERIFY(!a.Chooser());
        QVERIFY(!carol.Chooser());
    }

    void leavingChooserHandsTheWordsOn()
    {
        Client& a = *m_alice;
        Client& b = *m_bob;
        // Bob, who chooses next, closes his game window: his session ends, and Alice chooses.
        b.Game()->close();
        QCOMPARE(b.programEnd.endings, QList<int>{0});
        QVERIFY(!b.Chat() && !b.Scores() && !b.Chooser());
        for (const Client* c : {&a, m_carol.get()}) {
            QTRY_VERIFY_WITH_TIMEOUT(c->Transcript().endsWith(GameLine(u"Bob has left the game."_s)),
                                     kPatienceMs);
            QCOMPARE(Text(c->Chat(), u"lblPlayers"_s), u"Players (2):"_s);
            QCOMPARE(c->Board(u"lblPlayers"_s), u"Alice\r\nCarol\r\n"_s);
            QCOMPARE(c->Board(u"lblScores"_s), u"0 / 1 / 0\r\n0 / 0 / 0\r\n"_s);
            QTRY_COMPARE(c->S().ChooserName, u"Alice"_s);
        }
        // The longest present chooses now.
        QTRY_VERIFY_WITH_TIMEOUT(a.Chooser() && a.Chooser()->isVisible(), kPatienceMs);
        QVERIFY(!m_carol->Chooser());
    }

    void serverShutdownEndsTheSessions()
    {
        m_launcher.Terminate();
        for (const Client* c : {m_alice.get(), m_carol.get()}) {
            QTRY_COMPARE_WITH_TIMEOUT(c->programEnd.endings, QList<int>{0}, kPatienceMs);
            QVERIFY(!c->Game()->isVisible());
            QVERIFY(!c->Chat() && !c->Scores() && !c->Chooser());
            // The only message they saw.
            QCOMPARE(c->prompts.MessageTexts(), QStringList{kDisconnected});
        }
        QTRY_COMPARE_WITH_TIMEOUT(m_launcher.Current()->state(), QProcess::NotRunning, kPatienceMs);
        QCOMPARE(m_launcher.Current()->exitStatus(), QProcess::NormalExit);
        QCOMPARE(m_launcher.Current()->exitCode(), 0);
        QVERIFY(m_launcher.Output().contains(u"shutdown: disconnected 2 players"_s));
        QCOMPARE(m_bob->prompts.MessageTexts(), QStringList());
    }
};

QTEST_MAIN(tst_endtoend)
#include "tst_endtoend.moc"
