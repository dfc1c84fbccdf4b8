#include "frmscores.h"

#include "frmchat.h"
#include "game/session.h"
#include "platform/controls.h"
#include "platform/placement.h"
#include "platform/twips.h"

#include <QCloseEvent>
#include <QLabel>
#include <QPainter>
#include <QResizeEvent>
#include <QScreen>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

constexpr QStringView CrLf = u"\r\n";

// Outer size rules: the width is fixed, the height has a floor.
constexpr int OuterWidth = Px(3585);
constexpr int MinOuterHeight = Px(3120);
// Free strip left at the bottom of the screen.
constexpr int BottomStrip = Px(480);
void MoveTop(QWidget* control, int top)
{
    control->move(control->x(), top);
}

} // namespace

frmScores::frmScores(Session& session) : QWidget(nullptr), m_session(session)
{
    setWindowFlags(Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setWindowTitle(u"Scoreboard"_s);
    setWindowIcon(LinkhopIcon());
    setFont(ArialFont(8.25));
    QPalette colours = palette();
    colours.setColor(QPalette::Window, Qt::white);
    colours.setColor(QPalette::WindowText, Qt::black);
    setPalette(colours);
    setAutoFillBackground(true);
    resize(Px(3495), Px(5400));

    QFont header(u"MS Sans Serif"_s);
    header.setPointSizeF(8.25);
    header.setBold(true);
    Label1 =
        MakeLabel(this, u"Label1"_s, u"Player" % QString(21, u' ') % u"Score*" % QString(6, u' ') % u"Ping",
                  TwipsRect(120, 120, 3375, 255), header);
    lblPlayers = MakeLabel(this, u"lblPlayers"_s, {}, TwipsRect(60, 480, 1680, 2895), ArialFont(6));
    lblScores = MakeLabel(this, u"lblScores"_s, {}, TwipsRect(1860, 480, 855, 2895), ArialFont(6));
    lblPings = MakeLabel(this, u"lblPings"_s, {}, TwipsRect(2820, 480, 660, 2895), ArialFont(6));
    lblScoresAsterisk =
        MakeLabel(this, u"lblScoresAsterisk"_s, u"* Wins / Cumulative Clicks / Round Clicks"_s,
                  TwipsRect(120, 3480, 3255, 255), ArialFont(6.75));
    lblStartingWordCaption = MakeLabel(this, u"lblStartingWordCaption"_s, u"Starting Word:"_s,
                                       TwipsRect(120, 3840, 1335, 255), ArialFont(8.25, true));
    lblStartWord = MakeLabel(this, u"lblStartWord"_s, {}, TwipsRect(120, 4080, 3255, 255), ArialFont(8.25));
    lblWordToFindCaption = MakeLabel(this, u"lblWordToFindCaption"_s, u"Word to Find:"_s,
                                     TwipsRect(120, 4380, 1215, 255), ArialFont(8.25, true));
    lblNextWord = MakeLabel(this, u"lblNextWord"_s, {}, TwipsRect(120, 4620, 3255, 255), ArialFont(8.25));

    m_lines.Line1 = QLine(Px(0), Px(360), Px(3480), Px(360));
    m_lines.Line2 = QLine(Px(1800), Px(0), Px(1800), Px(3360));
    m_lines.Line3 = QLine(Px(2760), Px(0), Px(2760), Px(3360));
    m_lines.Line4 = QLine(Px(0), Px(3360), Px(3480), Px(3360));
    m_lines.Line5 = QLine(Px(0), Px(3720), Px(3480), Px(3720));

    UpdateList(true, true, true, true);

    // The native window now, so that the frame is known when the outer size is set.
    create();
    Place();
    PlaceAgainOnceFramed(*this, [this] { Place(); });
}

// Directly below the chat window, which stands at the top of the screen, down to the free strip at
// the bottom.
void frmScores::Place()
{
    const QRect screenArea = screen()->geometry();
    const frmChat* chat = m_session.OpenChat();
    const int chatHeight = chat ? chat->frameGeometry().height() : 0;
    SetOuterGeometry(*this, QRect(screenArea.left(), screenArea.top() + chatHeight, OuterWidth,
                                  screenArea.height() - chatHeight - BottomStrip));
}

frmScores::~frmScores() = default;

void frmScores::UpdateList(bool Player, bool Score, bool Ping, bool Words, bool Sorted)
{
    // The window is not redrawn before this returns: Qt repaints from the event loop, so the
    // columns change in one step, and only the columns that changed are repainted. Suspending
    // the window's updates would repaint all of it instead, on every refresh of a flood.
    if (!Sorted) {
        QString names;
        QString scores;
        QString pings;
        const qint32 count = m_session.PlayerCount();
        for (qint32 i = 1; i <= count; ++i) {
            const PlayerRecord& record = m_session.Player(i);
            if (Player) names += record.Name % CrLf;
            if (Score)
                scores += QString::number(record.Wins) % u" / " % QString::number(record.Clicks) % u" / " %
                          QString::number(record.RoundClicks) % CrLf;
            if (Ping) pings += QString::number(record.Ping) % u"ms" % CrLf;
        }
        if (Player) lblPlayers->setText(names);
        if (Score) lblScores->setText(scores);
        if (Ping) lblPings->setText(pings);
    }
    if (Words) {
        if (m_session.InRound) {
            lblStartWord->setText(m_session.Words.at(0));
            lblNextWord->setText(m_session.Words.at(m_session.TargetWordIndex));
        } else {
            lblStartWord->setText(u"None"_s);
            lblNextWord->setText(u"None"_s);
        }
    }
}

void frmScores::UpdateListSoon(bool Player, bool Score, bool Ping, bool Words)
{
    if (!m_pending) {
        m_pending.emplace();
        QMetaObject::invokeMethod(
            this,
            [this] {
                const Pending asked = *std::exchange(m_pending, std::nullopt);
                UpdateList(asked.Player, asked.Score, asked.Ping, asked.Words);
            },
            Qt::QueuedConnection);
    }
    m_pending->Player |= Player;
    m_pending->Score |= Score;
    m_pending->Ping |= Ping;
    m_pending->Words |= Words;
}

void frmScores::UnloadNow()
{
    m_unloadAllowed = true;
    close();
    deleteLater();
}

void frmScores::closeEvent(QCloseEvent* event)
{
    if (m_unloadAllowed)
        event->accept();
    else
        event->ignore();
}

void frmScores::resizeEvent(QResizeEvent* event)
{
    QWidget::resizeEvent(event);
    if (isMinimized()) return;
    QSize outer = frameGeometry().size();
    outer.setWidth(OuterWidth);
    outer.setHeight(std::max(outer.height(), MinOuterHeight));
    if (outer != frameGeometry().size()) SetOuterGeometry(*this, QRect(frameGeometry().topLeft(), outer));
    LayOut();
    UpdateList(true, true, true, true);
}

void frmScores::paintEvent(QPaintEvent* event)
{
    QWidget::paintEvent(event);
    QPainter painter(this);
    painter.setPen(palette().color(QPalette::WindowText));
    painter.drawLine(m_lines.Line1);
    painter.drawLine(m_lines.Line2);
    painter.drawLine(m_lines.Line3);
    painter.drawLine(m_lines.Line4);
    painter.drawLine(m_lines.Line5);
}

// Everything below the columns keeps its distance from the bottom edge; the columns take the rest.
void frmScores::LayOut()
{
    const int H = height();
    const int columnsBottom = H - 136;
    m_lines.Line2.setP2(QPoint(m_lines.Line2.x2(), columnsBottom));
    m_lines.Line3.setP2(QPoint(m_lines.Line3.x2(), columnsBottom));
    m_lines.Line4.setLine(m_lines.Line4.x1(), columnsBottom, m_lines.Line4.x2(), columnsBottom);
    MoveTop(lblScoresAsterisk, H - 128);
    m_lines.Line5.setLine(m_lines.Line5.x1(), H - 112, m_lines.Line5.x2(), H - 112);
    MoveTop(lblStartingWordCaption, H - 104);
    MoveTop(lblStartWord, H - 88);
    MoveTop(lblWordToFindCaption, H - 68);
    MoveTop(lblNextWord, H - 52);
    const int columnHeight = m_lines.Line4.y1() - 32;
    for (QLabel* column : {lblPlayers, lblScores, lblPings})
        column->resize(column->width(), columnHeight);
    update();
}

} // namespace linkhop
