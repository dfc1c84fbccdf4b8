#pragma once

#include <QDialog>

class QGroupBox;
class QHostAddress;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;

namespace linkhop {

class Session;

// "Host a Game": the address other players reach this computer at, and the server's optional
// welcome message and password, all remembered as options. On Host the address goes to the
// session's ChosenServer; it stays empty when the dialog is cancelled or closed.
class frmHost final : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmHost)

public:
    explicit frmHost(Session& session, QWidget* parent = nullptr);
    ~frmHost() override;

    static constexpr QStringView kResetWelcome = u"%p user(s) connected to Linkhop Server %v";

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void Form_Load();
    void txtIP_Change();
    void txtWelcomeMessage_Change();
    void txtPassword_Change();
    void cmdHost_Click();
    void cmdCancel_Click();
    void cmdReset_Click();
    void cmdHelp_Click();
    void cmdExternal_Click();
    void RouterAnswered(const QHostAddress& external);
    void SelectAddress();
    void CloseAndRelease(int result);

    Session& m_session;
    bool Loading = false;

    QLabel* lblIP;
    QLineEdit* txtIP;
    QPushButton* cmdHelp;
    QGroupBox* Frame1;
    QLabel* lblWelcomeMessage;
    QPlainTextEdit* txtWelcomeMessage;
    QLabel* lblPassword;
    QLineEdit* txtPassword;
    QPushButton* cmdReset;
    QPushButton* cmdHost;
    QPushButton* cmdCancel;
    QPushButton* cmdExternal; // the router's external address, offered once it is known
    QString m_external;
};

} // namespace linkhop
