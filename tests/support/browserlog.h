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

// Follows the link with this element id as the player would, once the current page has loaded:
// a script finds the element and scrolls it into view, a mouse click at its centre follows it.
// The browser must be shown. True once the click has started a navigation; false when there is
// no such element or no navigation starts.
bool ClickLink(WebEngineBrowser& browser, const QString& id);

} // namespace linkhop::test
