#include "browserlog.h"

#include "platform/webenginebrowser.h"
#include "scriptedserver.h"

#include <QPointer>
#include <QTest>
#include <QWebEnginePage>
#include <QWebEngineView>

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

bool ClickLink(WebEngineBrowser& browser, const QString& id)
{
    // A title can come before its document has loaded (from history, on going back).
    if (!WaitUntil([&] { return !browser.Busy(); }, 15000)) return false;
    // The id travels as a JSON string, so any title is safe in it.
    const QString quoted = u'"' + QString(id).replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s) + u'"';
    const QString locate =
        u"(function () { var e = document.getElementById("_s + quoted +
        u"); if (!e) return null; e.scrollIntoView();"
        u" var r = e.getBoundingClientRect(); return [r.left + r.width / 2, r.top + r.height / 2]; })()";
    bool answered = false;
    QVariantList centre;
    QPointer<WebEngineBrowser> guard(&browser);
    browser.Page()->runJavaScript(locate, [&](const QVariant& result) {
        centre = result.toList();
        answered = true;
    });
    if (!WaitUntil([&] { return answered || !guard; }, 15000) || !guard || centre.size() != 2) return false;
    auto* view = browser.findChild<QWebEngineView*>();
    QWidget* target = view ? view->focusProxy() : nullptr;
    if (!target) return false;
    const QPoint point(qRound(centre[0].toDouble()), qRound(centre[1].toDouble()));
    // A click with the mouse, not element.click(): only a user's click lets the page add a history
    // entry that going back will stop at. The engine ignores input until a new page has been
    // painted, so the click is repeated until the navigation starts.
    bool navigated = false;
    const auto connection =
        QObject::connect(&browser, &Browser::BeforeNavigate2, &browser, [&] { navigated = true; });
    for (int attempt = 0; attempt < 50 && guard && !navigated; ++attempt) {
        QTest::mouseClick(target, Qt::LeftButton, {}, point);
        WaitUntil([&] { return navigated || !guard; }, 200);
    }
    if (guard) QObject::disconnect(connection);
    return navigated;
}

} // namespace linkhop::test
