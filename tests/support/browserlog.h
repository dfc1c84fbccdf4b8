#pragma once

#include "platform/webenginebrowser.h"
#include "scriptedserver.h"

namespace linkhop::test {

// Records a browser's notifications.
struct BrowserLog final : QObject
{
    explicit BrowserLog(Browser& browser) : browser(browser)
    {
        connect(&browser, &Browser::BeforeNavigate2, this, [this](const QString& url) { requests << url; });
        connect(&browser, &Browser::TitleChange, this, [this](const QString& title) { titles << title; });
    }
    // Waits until the last title is `title` and the browser is no longer busy.
    bool WaitForTitle(const QString& title, int timeoutMs = 15000) const
    {
        return WaitUntil([&] { return titles.value(titles.size() - 1) == title && !browser.Busy(); },
                         timeoutMs);
    }

    Browser& browser;
    QStringList requests; // BeforeNavigate2 addresses
    QStringList titles;
};

// Clicks the first element matching a CSS selector with the mouse once the page has loaded (the
// browser must be shown); whether a navigation started.
bool ClickLink(WebEngineBrowser& browser, const QString& selector);
// Clicks it once, where a page's script answers the click (a button, a toggle); whether it showed.
bool Press(WebEngineBrowser& browser, const QString& selector);
// Waits until a JavaScript expression holds on the page shown.
bool Evaluate(WebEngineBrowser& browser, const QString& condition, int timeoutMs = 15000);
// The selector of the article text's first link to a title, as the encyclopedia writes its links.
QString LinkTo(QStringView title);

} // namespace linkhop::test
