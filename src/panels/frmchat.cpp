#include "frmchat.h"

#include "core/messages.h"
#include "game/session.h"
#include "platform/controls.h"
#include "platform/placement.h"
#include "platform/redraw.h"
#include "platform/twips.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScreen>
#include <iterator>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

constexpr qsizetype KeptLines = 99;
constexpr QStringView CrLf = u"\r\n";
// Only spaces count as padding around a command, not other white space.
} // namespace

frmChat::frmChat(Session& session) : QWidget(nullptr), m_session(session)
{
    setWindowFlags(Qt::Tool | Qt::CustomizeWindowHint | Qt::WindowTitleHint | Qt::WindowCloseButtonHint);
    setWindowTitle(u"Chat"_s);
    setWindowIcon(LinkhopIcon());
    setFont(ArialFont(8.25));
    setFixedSize(Px(5520), Px(3255));

    lblChat = MakeLabel(this, u"lblChat"_s, u"Chat:"_s, TwipsRect(120, 120, 3375, 495));
    txtChat = MakeControl<QPlainTextEdit>(this, u"txtChat"_s, TwipsRect(120, 360, 3375, 2415));
    txtChat->setReadOnly(true);
    // The transcript is edited in place line by line: nothing to undo, nothing to keep for it.
    txtChat->setUndoRedoEnabled(false);
    txtChat->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
    txtSend = MakeControl<QLineEdit>(this, u"txtSend"_s, TwipsRect(120, 2880, 2775, 255));
    cmdSend = MakeControl<QPushButton>(this, u"cmdSend"_s, TwipsRect(3000, 2880, 495, 255));
    cmdSend->setText(u"Send"_s);
    lblPlayers = MakeLabel(this, u"lblPlayers"_s, u"Players:"_s, TwipsRect(3600, 120, 1815, 615));
    lstPlayers = MakeControl<QListWidget>(this, u"lstPlayers"_s, TwipsRect(3600, 360, 1815, 2790));

    QWidget* const tabOrder[] = {txtSend, cmdSend, lblPlayers, lstPlayers, txtChat, lblChat};
    for (size_t i = 1; i < std::size(tabOrder); ++i)
        setTabOrder(tabOrder[i - 1], tabOrder[i]);
    txtSend->setFocus();

    connect(cmdSend, &QPushButton::clicked, this, &frmChat::Send);
    txtSend->installEventFilter(this);

    // The frame goes to the screen's top-left corner. The design's frame (45 twips of border at
    // the left, 315 of border and title bar at the top) puts the client area 45 and 315 twips in;
    // another frame puts it as far in as that frame is thick. Keeping the frame at the corner is
    // what lets the scoreboard hang directly below at the chat window's outer height. The place is
    // given before the native window exists: the corner is where a new window stands anyway, so a
    // move afterwards would tell the window manager nothing, and it would put the window anywhere.
    const auto place = [this] { move(screen()->geometry().topLeft()); };
    place();
    // The native window now, so that where the platform knows frames before a window shows, the
    // outer height is known to whoever reads it.
    create();
    PlaceAgainOnceFramed(*this, place);

    UpdateList();
}

frmChat::~frmChat() = default;

void frmChat::AddChat(const QString& Name, const QString& Text)
{
    RedrawSuspension suspension(this);
    QString line = Name % u": " % Text;
    if (line.size() > kMaxLineLength)
        line.truncate(line[kMaxLineLength - 1].isHighSurrogate() ? kMaxLineLength - 1 : kMaxLineLength);
    if (m_transcript.isEmpty()) {
        m_transcript = line;
        txtChat->setPlainText(m_transcript);
    } else {
        // The oldest lines go when 99 others follow them: everything up to the 99th CR LF from
        // the end.
        qsizetype cut = 0;
        qsizetype from = m_transcript.size();
        for (qsizetype found = 0; found < KeptLines; ++found) {
            const qsizetype at = from > 0 ? m_transcript.lastIndexOf(CrLf, from - 1) : -1;
            if (at < 0) {
                cut = 0;
                break;
            }
            cut = at + CrLf.size();
            from = at;
        }
        // The text box takes the same edit instead of the whole transcript again, which would lay
        // out every kept line anew for each one added. It holds one position per character, and
        // one for each CR LF.
        QTextCursor cursor(txtChat->document());
        if (cut > 0) {
            const QStringView dropped = QStringView(m_transcript).first(cut);
            cursor.setPosition(int(dropped.size() - dropped.count(CrLf)), QTextCursor::KeepAnchor);
            cursor.removeSelectedText();
            m_transcript.remove(0, cut);
        }
        m_transcript += CrLf % line;
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(CrLf % line);
    }
    txtChat->moveCursor(QTextCursor::End);
}

void frmChat::UpdateList()
{
    lstPlayers->clear();
    for (qint32 i = 1; i <= m_session.PlayerCount(); ++i)
        lstPlayers->addItem(m_session.Player(i).Name);
    lblPlayers->setText(u"Players ("_s % QString::number(lstPlayers->count()) % u"):");
}

void frmChat::UnloadNow()
{
    m_unloadAllowed = true;
    close();
    deleteLater();
}

void frmChat::closeEvent(QCloseEvent* event)
{
    if (m_unloadAllowed)
        event->accept();
    else
        event->ignore();
}

bool frmChat::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == txtSend && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Return || key == Qt::Key_Enter) {
            Send();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void frmChat::Send()
{
    const QString typed = txtSend->text();
    if (typed.isEmpty()) return;
    const QString command = TrimSpaces(typed).toLower();
    if (command == u"/date" || command == u"/time")
        m_session.SendData(msg::TimeRequest(m_session.LocalPort));
    else
        m_session.SendData(msg::Chat(m_session.PlayerName, typed));
    txtSend->clear();
}

} // namespace linkhop
