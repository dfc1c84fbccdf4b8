#include "browserlog.h"
#include "clientfakes.h"
#include "core/localport.h"
#include "sessionfixture.h"

#include <QDeadlineTimer>
#include <QPointer>
#include <QTest>
#include <QTimer>
#include <QUrl>
#include <QUrlQuery>
#include <QWebEnginePage>
#include <QWebEngineView>
#include <optional>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

namespace {

QString JavaScriptString(const QString& text)
{
    QString quoted = text;
    quoted.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s);
    return u'"' + quoted + u'"';
}

} // namespace

QStringList ScriptedPrompts::MessageTexts() const
{
    QStringList texts;
    for (const Shown& s : messageBoxes)
        texts.append(s.text);
    return texts;
}

void ScriptedBrowser::Navigate(const QString& url)
{
    m_history.append(url);
    Load(url);
}

void ScriptedBrowser::GoBack()
{
    ++backs;
    if (m_history.size() < 2) return;
    m_history.removeLast();
    Load(m_history.last());
}

void ScriptedBrowser::Load(const QString& url)
{
    navigations.append(url);
    m_busy = true;
    const quint64 generation = ++m_generation;
    QTimer::singleShot(0, this, [this, url, generation] {
        if (generation != m_generation) return;
        Q_EMIT BeforeNavigate2(url);
        QTimer::singleShot(loadDelayMs, this, [this, url, generation] {
            if (generation != m_generation) return;
            const QString title = titleFor ? titleFor(url) : QString();
            m_busy = false;
            if (!title.isEmpty()) Q_EMIT TitleChange(title);
        });
    });
}

QString EveryArticleTitle(const QString& url)
{
    const QUrl address(url);
    const QString search = QUrlQuery(address).queryItemValue(u"search"_s, QUrl::FullyDecoded);
    return (search.isEmpty() ? address.path().mid(6) : search) + u" - Wikipedia, the free encyclopedia"_s;
}

TestClient::TestClient(BrowserFactory browsers)
{
    BrowserFactory scripted = [this](QWidget* parent) -> Browser* {
        return giveBrowsers ? (m_lastBrowser = new ScriptedBrowser(parent)) : nullptr;
    };
    const Services services{&prompts, &launcher, &programEnd, browsers ? std::move(browsers) : scripted, &router};
    session = std::make_unique<Session>(folder.path(), services, SiteConfig{u"wiki.test"_s});
}

RunningSession::RunningSession(const Options& options)
    : client(options.encyclopedia.isEmpty() ? BrowserFactory()
                                            : WebEngineBrowserFactory({options.encyclopedia}))
{
    client.giveBrowsers = options.withBrowser;
    if (!server.Listen()) qFatal("the scripted server cannot bind port 7200");
    Session& s = S();
    if (!options.encyclopedia.isEmpty()) s.SetSite({options.encyclopedia});
    s.ServerAddress = TestAddress().toString();
    s.PlayerName = options.names.value(0);
    UdpEndpoint probe;
    s.LocalPort = FindLocalPort(probe);
    s.JoinInProgress = options.joinInProgress;
    for (const QString& name : options.names)
        s.AddPlayer(name);
    s.ResetGameData();
    OpenSessionWindows(s, false, QString());
    game = s.Game();
    browser = client.LastBrowser();
    // The main page has loaded.
    WaitUntil([&] { return !game || !game->wbMain || !game->wbMain->Busy(); }, 20000);
}

bool RunningSession::Deliver(const QStringList& datagrams)
{
    for (const QString& d : datagrams)
        server.SendTo(d, Port());
    const QString mark = u"mark"_s + QString::number(++marks);
    server.SendTo(u"PING TIME="_s + mark + u';', Port());
    const QString pong = u"PONG NAME="_s + S().PlayerName + u";TIME=" + mark + u';';
    return WaitUntil([&] { return server.ReceivedTexts().contains(pong); }, 15000);
}

QString LinkTo(QStringView title)
{
    const QString name = title.toString().replace(u' ', u'_');
    return u"#mw-content-text a[href=\"/wiki/"_s +
           QString::fromLatin1(QUrl::toPercentEncoding(name, ":/(),!*@$;#")) + u"\"]";
}

namespace {

// The middle of the first line of the first element matching `selector` that shows on the page,
// scrolled into view once the page has loaded; empty when there is none. Scripts may add it a
// little later (the search box's suggestions).
std::optional<QPoint> Locate(WebEngineBrowser& browser, const QString& selector)
{
    // A title can come before its document has loaded (from history, on going back).
    if (!WaitUntil([&] { return !browser.Busy(); }, 15000)) return std::nullopt;
    // A link that wraps has nothing of its own at the middle of its box; a picture with a map has
    // the map's areas over it.
    const QString locate =
        u"(function () { var all = document.querySelectorAll("_s + JavaScriptString(selector) +
        u"); for (var i = 0; i < all.length; ++i) { var e = all[i]; if (!e.getClientRects().length) continue;"
        u" e.scrollIntoView({block: 'center'}); var r = e.getClientRects()[0];"
        u" var x = r.left + r.width / 2, y = r.top + r.height / 2; var hit = document.elementFromPoint(x, y);"
        u" if (hit && (hit === e || e.contains(hit) || hit.contains(e) ||"
        u" (hit.localName === 'area' && e.useMap === '#' + hit.parentElement.name))) return [x, y]; }"
        u" return null; })()";
    // Where it stays: a page that still scrolls (smoothly, to a section) moves it under the mouse.
    QVariantList centre, before;
    QPointer<WebEngineBrowser> guard(&browser);
    for (QDeadlineTimer deadline(5000); guard && (centre.size() != 2 || centre != before);) {
        if (deadline.hasExpired()) return std::nullopt;
        before = std::exchange(centre, {});
        bool answered = false;
        browser.Page()->runJavaScript(locate, [&](const QVariant& result) {
            centre = result.toList();
            answered = true;
        });
        if (!WaitUntil([&] { return answered || !guard; }, 15000)) return std::nullopt;
        if (centre.size() != 2 || centre != before) WaitUntil([] { return false; }, 50);
    }
    if (!guard) return std::nullopt;
    return QPoint(qRound(centre[0].toDouble()), qRound(centre[1].toDouble()));
}

QWidget* MouseTarget(WebEngineBrowser& browser)
{
    auto* view = browser.findChild<QWebEngineView*>();
    return view ? view->focusProxy() : nullptr;
}

} // namespace

bool ClickLink(WebEngineBrowser& browser, const QString& selector)
{
    const std::optional<QPoint> point = Locate(browser, selector);
    QWidget* target = MouseTarget(browser);
    if (!point || !target) return false;
    QPointer<WebEngineBrowser> guard(&browser);
    // Only a user's click adds a history entry that going back stops at; the engine ignores input
    // until a new page has been painted, so the click is repeated until a navigation starts.
    bool navigated = false;
    const auto connection =
        QObject::connect(&browser, &Browser::BeforeNavigate2, &browser, [&] { navigated = true; });
    // A jump within the page starts no navigation; its address changes all the same.
    const auto jump =
        QObject::connect(browser.Page(), &QWebEnginePage::urlChanged, &browser, [&] { navigated = true; });
    for (int attempt = 0; attempt < 50 && guard && !navigated; ++attempt) {
        QTest::mouseClick(target, Qt::LeftButton, {}, *point);
        WaitUntil([&] { return navigated || !guard; }, 200);
    }
    if (guard) {
        QObject::disconnect(connection);
        QObject::disconnect(jump);
    }
    return navigated;
}

bool Press(WebEngineBrowser& browser, const QString& selector)
{
    const std::optional<QPoint> point = Locate(browser, selector);
    QWidget* target = MouseTarget(browser);
    if (!point || !target) return false;
    QTest::mouseClick(target, Qt::LeftButton, {}, *point);
    return true;
}

bool Evaluate(WebEngineBrowser& browser, const QString& condition, int timeoutMs)
{
    QPointer<WebEngineBrowser> guard(&browser);
    const QDeadlineTimer deadline(timeoutMs);
    while (guard) {
        bool answered = false, holds = false;
        browser.Page()->runJavaScript(u"!!("_s + condition + u')', [&](const QVariant& result) {
            holds = result.toBool();
            answered = true;
        });
        if (!WaitUntil([&] { return answered || !guard; }, 15000)) return false;
        if (holds || deadline.hasExpired()) return holds;
        WaitUntil([] { return false; }, 50);
    }
    return false;
}

} // namespace linkhop::test
