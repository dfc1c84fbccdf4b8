#pragma once

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QWidget>

namespace linkhop {

class Session;

// The word chooser: the player who picks the next round's words types them or asks for random
// ones, has both checked against the encyclopedia through the game window's browser, and starts
// the round. It refuses to close until UnloadNow.
class frmWinner final : public QWidget
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(frmWinner)

public:
    explicit frmWinner(Session& session);
    ~frmWinner() override;

    void UnloadNow();
    bool UnloadAllowed() const { return m_unloadAllowed; }
    bool Verifying() const { return m_verifying; }
    int VerifyAttempts() const { return m_verifyAttempts; }

    // How long a verification waits for the encyclopedia's title before giving up.
    static constexpr int kTitleWaitMs = 20000;
    void SetTitleWaitMs(int ms) { m_titleWaitMs = ms; }

    QLabel* Label1;
    QLineEdit* txtInitial;
    QPushButton* cmdRandom1;
    QLabel* Label2;
    QLineEdit* txtDestination;
    QPushButton* cmdRandom2;
    QPushButton* cmdVerify;
    QPushButton* cmdStartGame;

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    enum class Wait
    {
        Title,
        Closed,
        TimedOut,
    };
    void Verify();
    void StartGame();
    void TextChanged();
    void Navigate(const QString& url);
    void GoBack();
    // Lets events run once; false when the window closed meanwhile.
    bool LetEventsRunHere();
    Wait WaitForTitle();
    // Waits until the browser has finished loading; false when the window closed meanwhile.
    bool SettleBrowser();
    // Shows a critical message; false when the window closed while it was open.
    bool Tell(const QString& text);
    void ArticleMissing(QLineEdit* box);
    void TitleWaitExpired();

    Session& m_session;
    bool m_unloadAllowed = false;
    bool m_verifying = false;
    int m_verifyAttempts = 0;
    int m_titleWaitMs = kTitleWaitMs;
};

} // namespace linkhop
