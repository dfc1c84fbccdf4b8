#pragma once

#include <QDialog>

class QLabel;
class QListWidget;
class QPushButton;
class QTimer;

namespace linkhop {

class Session;
class SimpleCombo;
class UdpEndpoint;

// "Join a Game": finds the local port for the session, asks every remembered server for its
// status once, lists those that answer and lets the user pick or type the address to join. The
// address goes to the session's ChosenServer; it stays empty when the dialog is cancelled or
// closed. When no local port is free the program ends before the dialog is shown.
class frmServers final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmServers)

public:
    explicit frmServers(Session& session, QWidget* parent = nullptr);
    ~frmServers() override;

    // Stops the search and frees the local port for the caller's connection.
    void done(int result) override;

    // The most entries the active list takes, and the longest: no server's reply is longer, and
    // a flood of replies must not grow the list, or the time to lay it out, without end.
    static constexpr int kMaxEntries = 1000;
    static constexpr qsizetype kMaxEntryLength = 300;

protected:
    void keyPressEvent(QKeyEvent* event) override;

private:
    void Form_Load();
    void tmrSearch_Timer();
    void wsFind_DataArrival(const QString& text);
    void lstActive_Click();
    void cmdJoin_Click();
    void cmdCancel_Click();

    Session& m_session;
    qint32 SearchIndex = 0;

    QLabel* Label1;
    QListWidget* lstActive;
    QLabel* lblStatus;
    QLabel* Label2;
    SimpleCombo* cmbServers;
    QPushButton* cmdJoin;
    QPushButton* cmdCancel;
    QTimer* tmrSearch;
    UdpEndpoint* wsFind;
    UdpEndpoint* wsTemp;
};

} // namespace linkhop
