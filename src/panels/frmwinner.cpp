#include "frmwinner.h"

#include "core/messages.h"
#include "game/session.h"
#include "platform/browser.h"
#include "platform/controls.h"
#include "platform/eventwait.h"
#include "platform/twips.h"

#include <QCloseEvent>
#include <QPointer>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

frmWinner::frmWinner(Session& session) : QWidget(nullptr), m_session(session)
{
    setObjectName(u"frmWinner"_s);
    setWindowTitle(u"Choose Words"_s);
    setWindowIcon(LinkhopIcon());
    setWindowFlags(Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setFont(ArialFont(8.25));

    Label1 = MakeControl<QLabel>(this, u"Label1"_s, TwipsRect(120, 120, 1095, 255));
    Label1->setText(u"Initial:"_s);
    txtInitial = MakeControl<QLineEdit>(this, u"txtInitial"_s, TwipsRect(120, 360, 2655, 255));
    cmdRandom1 = MakeControl<QPushButton>(this, u"cmdRandom1"_s, TwipsRect(2880, 240, 1095, 375));
    cmdRandom1->setText(u"Randomize"_s);
    Label2 = MakeControl<QLabel>(this, u"Label2"_s, TwipsRect(120, 720, 1095, 255));
    Label2->setText(u"Destination:"_s);
    txtDestination = MakeControl<QLineEdit>(this, u"txtDestination"_s, TwipsRect(120, 960, 2655, 255));
    cmdRandom2 = MakeControl<QPushButton>(this, u"cmdRandom2"_s, TwipsRect(2880, 840, 1095, 375));
    cmdRandom2->setText(u"Randomize"_s);
    cmdVerify = MakeControl<QPushButton>(this, u"cmdVerify"_s, TwipsRect(773, 1440, 1215, 495));
    cmdVerify->setText(u"Verify Words"_s);
    cmdStartGame = MakeControl<QPushButton>(this, u"cmdStartGame"_s, TwipsRect(2093, 1440, 1215, 495));
    cmdStartGame->setText(u"Start Game"_s);
    cmdStartGame->setEnabled(false);
    for (QPushButton* button : {cmdRandom1, cmdRandom2, cmdVerify, cmdStartGame}) button->setAutoDefault(false);

    setTabOrder(cmdRandom1, txtInitial);
    setTabOrder(txtInitial, txtDestination);
    setTabOrder(txtDestination, cmdRandom2);
    setTabOrder(cmdRandom2, cmdStartGame);
    setTabOrder(cmdStartGame, cmdVerify);
    cmdRandom1->setFocus();

    connect(cmdRandom1, &QPushButton::clicked, this, [this] {
        m_session.SendData(msg::GetRandom(1));
        txtInitial->setFocus();
    });
    connect(cmdRandom2, &QPushButton::clicked, this, [this] {
        m_session.SendData(msg::GetRandom(2));
        txtDestination->setFocus();
    });
    connect(cmdVerify, &QPushButton::clicked, this, &frmWinner::Verify);
    connect(cmdStartGame, &QPushButton::clicked, this, &frmWinner::StartGame);
    connect(txtInitial, &QLineEdit::returnPressed, this, [this] { txtDestination->setFocus(); });
    connect(txtDestination, &QLineEdit::returnPressed, this, &frmWinner::StartGame);
    connect(txtInitial, &QLineEdit::textChanged, this, &frmWinner::TextChanged);
    connect(txtDestination, &QLineEdit::textChanged, this, &frmWinner::TextChanged);

    PlaceCentred(*this, 4080, 2055);
}

frmWinner::~frmWinner() = default;

void frmWinner::UnloadNow()
{
    m_unloadAllowed = true;
    close();
    deleteLater();
}

void frmWinner::closeEvent(QCloseEvent* event)
{
    if (m_unloadAllowed)
        event->accept();
    else
        event->ignore();
}

void frmWinner::TextChanged()
{
    if (m_verifying) return;
    cmdStartGame->setEnabled(false);
    cmdVerify->setEnabled(true);
}

void frmWinner::Navigate(const QString& url)
{
    if (Browser* browser = m_session.GameBrowser()) browser->Navigate(url);
}

void frmWinner::GoBack()
{
    if (Browser* browser = m_session.GameBrowser()) browser->GoBack();
}

bool frmWinner::SettleBrowser()
{
    // The page that going back brings may still send its title; it must not be taken for the
    // destination's.
    QPointer<frmWinner> self(this);
    Session& session = m_session;
    QPointer<Browser> browser = session.GameBrowser();
    LetEventsRunUntil([&] { return !self || self->m_unloadAllowed || session.Ended() || !browser || !browser->Busy(); },
                      m_titleWaitMs);
    return self && !self->m_unloadAllowed && !session.Ended();
}

bool frmWinner::LetEventsRunHere()
{
    QPointer<frmWinner> self(this);
    LetEventsRun();
    return self && !self->m_unloadAllowed && !m_session.Ended();
}

frmWinner::Wait frmWinner::WaitForTitle()
{
    // `this` may be gone when the wait ends: only the guarded pointer is read inside it.
    QPointer<frmWinner> self(this);
    Session& session = m_session;
    const auto closed = [&] { return !self || self->m_unloadAllowed || session.Ended(); };
    const bool ended = LetEventsRunUntil([&] { return closed() || !session.CurrentArticle.isEmpty(); },
                                         m_titleWaitMs);
    if (closed()) return Wait::Closed;
    return ended ? Wait::Title : Wait::TimedOut;
}

bool frmWinner::Tell(const QString& text)
{
    // The message box lets events run; the window may close while it is open.
    QPointer<frmWinner> self(this);
    m_session.prompts().MessageBox(text, Icon::Critical);
    return self && !self->m_unloadAllowed;
}

void frmWinner::ArticleMissing(QLineEdit* box)
{
    if (!Tell(u"This article doesn't exist."_s)) return;
    box->setSelection(0, int(box->text().size()));
    box->setFocus();
    cmdVerify->setEnabled(true);
    m_verifying = false;
}

void frmWinner::TitleWaitExpired()
{
    if (!Tell(u"The encyclopedia did not answer in time. Check the connection and verify the words again."_s))
        return;
    m_verifying = false;
    cmdStartGame->setEnabled(false);
    cmdVerify->setEnabled(true);
}

void frmWinner::Verify()
{
    if (txtInitial->text().isEmpty() || txtDestination->text().isEmpty() ||
        txtInitial->text().toLower() == txtDestination->text().toLower())
        return;
    cmdVerify->setEnabled(false);
    m_verifying = true;

    // After every wait the window may have closed; a closed window is left alone.
    const auto waitForTitle = [this] {
        switch (WaitForTitle()) {
        case Wait::Title: return true;
        case Wait::Closed: return false;
        case Wait::TimedOut: TitleWaitExpired(); return false;
        }
        return false;
    };

    Navigate(u"about:blank"_s);
    if (!LetEventsRunHere()) return;
    m_session.CurrentArticle.clear();
    Navigate(m_session.Site().Search(txtInitial->text()));
    if (!LetEventsRunHere() || !waitForTitle()) return;
    if (m_session.CurrentArticle.toLower() == u"search"_s) return ArticleMissing(txtInitial);

    txtInitial->setText(m_session.CurrentArticle);
    GoBack();
    if (!LetEventsRunHere() || !waitForTitle() || !SettleBrowser()) return;

    // A title still belonging to the initial page, or a destination leading to the initial
    // article itself, is searched again, four times at most.
    m_verifyAttempts = 0;
    while (true) {
        if (++m_verifyAttempts > 4) {
            if (Tell(u"There was a problem verifying the destination article."_s)) m_verifying = false;
            return;
        }
        m_session.CurrentArticle.clear();
        Navigate(m_session.Site().Search(txtDestination->text()));
        if (!LetEventsRunHere() || !waitForTitle()) return;
        if (txtInitial->text() != m_session.CurrentArticle) break;
    }
    if (m_session.CurrentArticle.toLower() == u"search"_s) return ArticleMissing(txtDestination);

    txtDestination->setText(m_session.CurrentArticle);
    GoBack();
    if (!LetEventsRunHere()) return;
    cmdStartGame->setEnabled(true);
    m_verifying = false;
}

void frmWinner::StartGame()
{
    m_session.SendData(msg::SetWords(txtInitial->text(), txtDestination->text()));
    if (!LetEventsRunHere()) return;
    UnloadNow();
}

} // namespace linkhop
