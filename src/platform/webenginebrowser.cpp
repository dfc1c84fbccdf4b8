#include "webenginebrowser.h"

#include "classictitle.h"

#include <QPointer>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebEngineHistory>
#include <QWebEngineLoadingInfo>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineView>
#include <functional>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

class WebEngineBrowser::NavigationPage final : public QWebEnginePage
{
public:
    NavigationPage(QWebEngineProfile* profile, QObject* parent,
                   std::function<void(const QUrl&, bool)> onRequest)
        : QWebEnginePage(profile, parent), m_onRequest(std::move(onRequest))
    {
    }

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override
    {
        if (isMainFrame) m_onRequest(url, type == NavigationTypeRedirect);
        return true;
    }
    // The pages' own console output is no concern of the game.
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString&, int, const QString&) override
    {
    }

private:
    std::function<void(const QUrl&, bool)> m_onRequest;
};

WebEngineBrowser::WebEngineBrowser(const SiteConfig& site, QWidget* parent)
    : Browser(parent), m_site(site), m_profile(new QWebEngineProfile(this)), m_view(new QWebEngineView(this))
{
    // No storage name: off the record, nothing written to disk.
    m_profile->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
    m_page = new NavigationPage(
        m_profile, m_view, [this](const QUrl& url, bool redirect) { OnNavigationRequest(url, redirect); });
    m_view->setPage(m_page);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_view);

    connect(m_page, &QWebEnginePage::loadingChanged, this, &WebEngineBrowser::OnLoadingChanged);
    connect(m_page, &QWebEnginePage::urlChanged, this, &WebEngineBrowser::OnUrlChanged);
    connect(m_page, &QWebEnginePage::titleChanged, this, &WebEngineBrowser::OnTitleChanged);
    connect(m_page, &QWebEnginePage::loadProgress, this, [this] { m_activityClock.start(); });
}

WebEngineBrowser::~WebEngineBrowser()
{
    // The page goes before its profile, and says nothing on the way out.
    m_closing = true;
    m_page->disconnect(this);
    delete m_view;
    delete m_profile;
}

QWebEnginePage* WebEngineBrowser::Page() const
{
    return m_page;
}

void WebEngineBrowser::Navigate(const QString& url)
{
    const QUrl address = url.contains(u"://") ? QUrl(url, QUrl::TolerantMode) : QUrl::fromUserInput(url);
    if (!address.isValid()) return;
    Request(address);
    m_page->load(address);
}

void WebEngineBrowser::GoBack()
{
    QWebEngineHistory* history = m_page->history();
    if (!history->canGoBack()) return;
    Request(history->backItem().url());
    history->back();
}

bool WebEngineBrowser::Busy() const
{
    if (m_requested && m_requestClock.elapsed() < kStartLimitMs) return true;
    return (m_loading || m_inFlight || m_documentPending) && m_activityClock.elapsed() < m_stallLimitMs;
}

void WebEngineBrowser::Request(const QUrl& url)
{
    m_requested = true;
    m_requestedUrl = url;
    m_requestClock.start();
}

void WebEngineBrowser::OnNavigationRequest(const QUrl& url, bool redirect)
{
    const bool requested = m_requested;
    m_requested = false;
    m_activityClock.start();
    if (!redirect || !m_inFlight) {
        m_inFlightChain.clear();
        m_inFlightRequested = requested;
    }
    m_inFlightChain.append(url);
    m_inFlight = true;
    m_documentPending = false;
    m_reportedRequest = url;
    Q_EMIT BeforeNavigate2(url.toString());
}

void WebEngineBrowser::OnLoadingChanged(const QWebEngineLoadingInfo& info)
{
    m_activityClock.start();
    if (info.status() == QWebEngineLoadingInfo::LoadStartedStatus) {
        m_requested = false;
        m_loading = true;
        m_documentPending = false;
        // Loads of about: addresses start without a navigation request.
        if (info.url() != m_reportedRequest) {
            m_shownOrigin.clear();
            Q_EMIT BeforeNavigate2(info.url().toString());
        }
        m_reportedRequest.clear();
        m_titleSeen = false;
        return;
    }
    // This may be the end of a load that a newer navigation, still in flight, has superseded:
    // the engine then reports neither start nor end of the newer one.
    m_loading = false;
    m_reportedRequest.clear();
    if (m_inFlight && m_inFlightChain.contains(info.url())) Commit();
    // A page loaded again under the title it already had raises no title change of its own.
    // Only the page now shown counts: the end of a load that a newer navigation has overtaken
    // would carry the old page's title under the new address.
    if (info.status() == QWebEngineLoadingInfo::LoadSucceededStatus && !m_titleSeen &&
        info.url() == m_page->url() && !m_page->title().isEmpty())
        OnTitleChanged(m_page->title());
}

void WebEngineBrowser::OnUrlChanged(const QUrl& url)
{
    m_activityClock.start();
    if (m_requested && url == m_requestedUrl) m_requested = false;
    if (m_inFlight && m_inFlightChain.contains(url)) Commit();
    // A page that arrived outside any reported load: a jump within the page, or a navigation
    // whose load the engine folded into an earlier one. Watch its document until it is complete.
    if (!m_loading && !m_inFlight) {
        m_documentPending = true;
        ProbeDocument(++m_probeGeneration);
    }
}

void WebEngineBrowser::Commit()
{
    m_inFlight = false;
    m_shownOrigin = m_inFlightRequested ? QUrl() : m_inFlightChain.value(0);
}

void WebEngineBrowser::ProbeDocument(quint64 generation)
{
    QPointer<WebEngineBrowser> self(this);
    m_page->runJavaScript(u"document.readyState"_s, [self, generation](const QVariant& state) {
        if (!self || self->m_closing || generation != self->m_probeGeneration || !self->m_documentPending)
            return;
        if (state.toString() == u"complete") {
            self->m_documentPending = false;
            return;
        }
        QTimer::singleShot(kProbeIntervalMs, self, [self, generation] {
            if (self && generation == self->m_probeGeneration && self->m_documentPending)
                self->ProbeDocument(generation);
        });
    });
}

void WebEngineBrowser::OnTitleChanged(const QString& title)
{
    m_activityClock.start();
    const QUrl shown = m_page->url();
    if (m_inFlight && m_inFlightChain.contains(shown)) Commit();
    // A title that comes after the program asked for another page still belongs to the page being
    // left (a page restored from history sends its title late): whoever waits for the new page's
    // title must not take it. A page the player is leaving was shown all the same, and counts.
    if (Busy() && (m_requested || (m_inFlight && m_inFlightRequested))) return;
    m_titleSeen = true;
    Q_EMIT TitleChange(ClassicTitle(title, shown, m_shownOrigin, m_site));
}

BrowserFactory WebEngineBrowserFactory(const SiteConfig& site)
{
    return [site](QWidget* parent) -> Browser* { return new WebEngineBrowser(site, parent); };
}

} // namespace linkhop
