#include "browserlog.h"

#include "platform/webenginebrowser.h"
#include "scriptedserver.h"

#include <QWebEnginePage>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

BrowserLog::BrowserLog(Browser& browser) : m_browser(browser)
{
    connect(&browser, &Browser::BeforeNavigate2, this, [this](const QString& url) { requests.append(url); });
    connect(&browser, &Browser::TitleChange, this, [this](const QString& title) { titles.append(title); });
}

void BrowserLog::Clear()
{
    requests.clear();
    titles.clear();
}

bool BrowserLog::WaitForTitle(const QString& title, int timeoutMs) const
{
    return WaitUntil([&] { return LastTitle() == title && !m_browser.Busy(); }, timeoutMs);
}

void ClickLink(WebEngineBrowser& browser, const QString& id)
{
    // The id travels as a JSON string, so any title is safe in it.
    const QString quoted = u'"' + QString(id).replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s) + u'"';
    browser.page()->runJavaScript(u"document.getElementById("_s + quoted + u").click();"_s);
}

} // namespace linkhop::test
