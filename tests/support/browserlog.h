#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

namespace linkhop {
class Browser;
class WebEngineBrowser;
} // namespace linkhop

namespace linkhop::test {

// Records a browser's notifications, for tests that drive a real or scripted browser.
class BrowserLog final : public QObject
{
    Q_OBJECT

public:
    explicit BrowserLog(Browser& browser);

    QStringList requests; // BeforeNavigate2 addresses
    QStringList titles;   // TitleChange titles
    void Clear();
    QString LastTitle() const { return titles.isEmpty() ? QString() : titles.last(); }

    // Waits until the last title is `title` and the browser is no longer busy.
    bool WaitForTitle(const QString& title, int timeoutMs = 15000) const;

private:
    Browser& m_browser;
};

// Follows the link with this element id by script, as the player's click would.
void ClickLink(WebEngineBrowser& browser, const QString& id);

} // namespace linkhop::test
