#pragma once

#include <QString>
#include <QWidget>

class QFrame;
class QHostAddress;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

namespace linkhop {

class Session;
class UdpEndpoint;

// The start-up window: the player's name, Join Game and Host Game, and the connection handshake
// on its own socket. On success it fills the roster, frees the local port for the game window,
// opens the session's windows, reports HandshakeCompleted and closes for good; closing it before
// that ends the program.
class frmMain final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmMain)

public:
    explicit frmMain(Session& session, QWidget* parent = nullptr);
    ~frmMain() override;

    static constexpr int kTimeoutMs = 4000;
    // How long hosting waits for the freshly started server to take its port.
    static constexpr int kServerStartWaitMs = 2000;

    // The server program's file name in the program's folder.
    static QString ServerProgramName();

Q_SIGNALS:
    // The session's roster is filled and its windows are open; they take over from here.
    void HandshakeCompleted(bool isHost, const QString& welcomeText);

protected:
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void Form_Load();
    void txtName_Change();
    void cmdJoin_Click();
    void cmdHost_Click();
    void cmdExit_Click();
    void tmrTimeout_Timer();
    void wsConnect_DataArrival(const QString& text, const QHostAddress& from);
    void wsConnect_Error(int number, const QString& description);

    void StartConnection(bool host);
    bool StartServer();
    void WaitForServerPort();
    void HandleDatagram(const QString& text, const QHostAddress& from);
    void AskPassword();
    void HandOver(const QString& playerList);
    void SetControlsEnabled(bool enabled);
    void ReturnToIdle(const QString& status);

    Session& m_session;
    bool IsHost = false;
    QString WelcomeText;
    bool m_handedOver = false;
    bool m_askingPassword = false;

    QLineEdit* txtName;
    QPushButton* cmdJoin;
    QPushButton* cmdHost;
    QPushButton* cmdExit;
    QLabel* Label1;
    QLabel* Label2;
    QLabel* Label3;
    QLabel* Label4;
    QLabel* Label5;
    QLabel* lblStatus;
    QFrame* Line1;
    QTimer* tmrTimeout;
    UdpEndpoint* wsConnect;
    UdpEndpoint* wsTemp;
};

} // namespace linkhop
