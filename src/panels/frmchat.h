#pragma once

#include <QString>
#include <QWidget>

class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;

namespace linkhop {

class Session;

// The session's chat panel: the transcript, the players, and the line to send from. It stays open
// for the whole session; only UnloadNow closes it.
class frmChat final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmChat)

public:
    explicit frmChat(Session& session);
    ~frmChat() override;

    // Appends the line Name + ": " + Text, keeping the 99 newest earlier lines. A line is cut
    // to kMaxLineLength characters: the text box lays out an unbroken line in time that grows with
    // the square of its length, and no server relays a longer one.
    void AddChat(const QString& Name, const QString& Text);
    static constexpr qsizetype kMaxLineLength = 4096;
    // Refills the player list from the roster.
    void UpdateList();
    // Lets the window close, closes it and schedules its deletion.
    void UnloadNow();

    bool UnloadAllowed() const { return m_unloadAllowed; }
    // The transcript exactly as built: lines separated by CR LF.
    const QString& Transcript() const { return m_transcript; }

protected:
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void Send();

    Session& m_session;
    QString m_transcript;
    bool m_unloadAllowed = false;

    QLabel* lblChat;
    QPlainTextEdit* txtChat;
    QLineEdit* txtSend;
    QPushButton* cmdSend;
    QLabel* lblPlayers;
    QListWidget* lstPlayers;
};

} // namespace linkhop
