#include "webenginebrowser.h"

#include "classictitle.h"

#include <QPointer>
#include <QTimer>
#include <QVBoxLayout>
#include <QWebEngineHistory>
#include <QWebEngineLoadingInfo>
#include <QWebEnginePage>
#include <QWebEngineProfile>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>
#include <QWebEngineView>
#include <functional>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

namespace {

// Runs in every main-frame document before anything of it is parsed, in a world of the browser's
// own that shares the document with the page but none of its scripts. It names the document, and
// keeps the first text the parser gives its <title>: what the server sent, whatever the page's
// scripts write into the title later (they replace that text, they do not change it). A document
// that has no title of its own by the time it is parsed keeps none.
constexpr QStringView kDocumentScript = uR"((function () {
    'use strict';
    var id = String(Math.random()).slice(2) + '.' + Date.now();
    var title = null, parsed = false;
    var observer = new MutationObserver(take);
    function take(records) {
        for (var i = 0; i < records.length && title === null; ++i) {
            var target = records[i].target, added = records[i].addedNodes;
            if (target.localName !== 'title' || target.namespaceURI !== 'http://www.w3.org/1999/xhtml') continue;
            for (var k = 0; k < added.length; ++k) {
                if (added[k].nodeType !== Node.TEXT_NODE) continue;
                title = added[k].data.replace(/[\t\n\f\r ]+/g, ' ').replace(/^ | $/g, '');
                break;
            }
        }
        if (title !== null) observer.disconnect();
    }
    observer.observe(document, {childList: true, subtree: true});
    document.addEventListener('DOMContentLoaded', function () {
        take(observer.takeRecords());
        observer.disconnect();
        parsed = true;
    });
    window.linkhopDocument = function () {
        if (title === null && !parsed) take(observer.takeRecords());
        return [id, title, document.readyState];
    };
})();)";

constexpr QStringView kAskDocument = u"typeof linkhopDocument === 'function' ? linkhopDocument() : null";

QUrl WithoutFragment(const QUrl& url)
{
    return url.adjusted(QUrl::RemoveFragment);
}

} // namespace

class WebEngineBrowser::NavigationPage final : public QWebEnginePage
{
public:
    NavigationPage(QWebEngineProfile* profile, QObject* parent,
                   std::function<void(const QUrl&, int)> onRequest)
        : QWebEnginePage(profile, parent), m_onRequest(std::move(onRequest))
    {
    }

protected:
    bool acceptNavigationRequest(const QUrl& url, NavigationType type, bool isMainFrame) override
    {
        if (isMainFrame) m_onRequest(url, type);
        return true;
    }
    // The pages' own console output is no concern of the game.
    void javaScriptConsoleMessage(JavaScriptConsoleMessageLevel, const QString&, int, const QString&) override
    {
    }

private:
    std::function<void(const QUrl&, int)> m_onRequest;
};

WebEngineBrowser::WebEngineBrowser(const SiteConfig& site, QWidget* parent)
    : Browser(parent), m_site(site), m_profile(new QWebEngineProfile(this)), m_view(new QWebEngineView(this))
{
    // No storage name: off the record, nothing written to disk.
    m_profile->setHttpCacheType(QWebEngineProfile::MemoryHttpCache);
    m_page = new NavigationPage(m_profile, m_view,
                                [this](const QUrl& url, int type) { OnNavigationRequest(url, type); });
    QWebEngineScript documentScript;
    documentScript.setName(u"linkhop-document"_s);
    documentScript.setSourceCode(kDocumentScript.toString());
    documentScript.setInjectionPoint(QWebEngineScript::DocumentCreation);
    documentScript.setWorldId(QWebEngineScript::ApplicationWorld);
    documentScript.setRunsOnSubFrames(false);
    m_page->scripts().insert(documentScript);
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
    return (m_loading || m_inFlight || m_documentPending || !m_document.reported) &&
           m_activityClock.elapsed() < m_stallLimitMs;
}

void WebEngineBrowser::Request(const QUrl& url)
{
    m_requested = true;
    m_requestedUrl = url;
    m_requestClock.start();
}

void WebEngineBrowser::OnNavigationRequest(const QUrl& url, int type)
{
    const bool requested = m_requested;
    m_requested = false;
    m_activityClock.start();
    if (type != QWebEnginePage::NavigationTypeRedirect || !m_inFlight) {
        m_inFlightChain.clear();
        m_inFlightRequested = requested;
        m_inFlightHistory =
            type == QWebEnginePage::NavigationTypeBackForward || type == QWebEnginePage::NavigationTypeReload;
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
        if (info.url() != m_reportedRequest) Q_EMIT BeforeNavigate2(info.url().toString());
        m_reportedRequest.clear();
        return;
    }
    // This may be the end of a load that a newer navigation, still in flight, has superseded:
    // the engine then reports neither start nor end of the newer one.
    m_loading = false;
    m_reportedRequest.clear();
    if (m_inFlight && m_inFlightChain.contains(info.url())) {
        // A load to the address already shown commits without a change of address; one that
        // brings no document (204 No Content) commits nothing.
        if (m_page->url() == info.url())
            Commit(info.url());
        else
            m_inFlight = false;
    }
    // A page that loaded without its title in sight: now it has its own, or none.
    if (!m_document.reported) AskDocument();
}

void WebEngineBrowser::OnUrlChanged(const QUrl& url)
{
    m_activityClock.start();
    if (m_requested && url == m_requestedUrl) m_requested = false;
    if (m_inFlight && m_inFlightChain.contains(url)) {
        Commit(url);
        return;
    }
    // The document shown moved to another address by itself (a fragment, history.pushState), or
    // the engine brought a document without a navigation that it told of: asking the document
    // tells which. The entry keeps the way the document was reached.
    Remember(url, m_document.origin);
    if (!m_loading && !m_inFlight) m_documentPending = true;
    // An editor that a script opens in place is an editor all the same.
    if (IsEditor(url, m_site) && !IsEditor(m_document.url, m_site))
        Q_EMIT TitleChange(ClassicTitle(QString(), url, m_document.origin, m_site));
    AskDocument();
}

void WebEngineBrowser::OnTitleChanged()
{
    m_activityClock.start();
    // A title is only a sign that the parser may have reached the document's own <title>; what
    // it reads may be a script's, or one the engine kept for a history entry.
    if (!m_document.reported) AskDocument();
}

void WebEngineBrowser::Commit(const QUrl& url)
{
    m_inFlight = false;
    QUrl origin;
    if (m_inFlightRequested)
        origin.clear(); // the program's pages are judged by where they end
    else if (m_inFlightHistory)
        origin = RememberedOrigin(url);
    else
        origin = m_inFlightChain.value(0);
    BeginDocument(url, origin);
    AskDocument();
}

void WebEngineBrowser::BeginDocument(const QUrl& url, const QUrl& origin)
{
    if (!m_document.id.isEmpty()) m_leftDocumentId = m_document.id;
    m_document = Document{++m_generation, {}, url, origin, false};
    Remember(url, origin);
}

void WebEngineBrowser::AskDocument()
{
    QPointer<WebEngineBrowser> self(this);
    const quint64 generation = m_document.generation;
    m_page->runJavaScript(kAskDocument.toString(), QWebEngineScript::ApplicationWorld,
                          [self, generation](const QVariant& answer) {
                              if (self && !self->m_closing) self->OnDocumentAnswer(generation, answer);
                          });
}

void WebEngineBrowser::OnDocumentAnswer(quint64 generation, const QVariant& answer)
{
    // An answer from before the latest commit may come from the document that was left.
    if (generation != m_document.generation) return;
    const QVariantList fields = answer.toList();
    const QString id = fields.value(0).toString();
    const QVariant title = fields.value(1);
    const QString state = fields.value(2).toString();
    bool current = true;
    if (!id.isEmpty() && m_document.id.isEmpty()) {
        current = id != m_leftDocumentId;
        if (current) {
            m_document.id = id;
        } else if (!m_loading && !m_inFlight) {
            // The load is over and the document left is still shown: nothing new to report.
            m_document.id = id;
            m_document.reported = true;
        }
    } else if (!id.isEmpty() && id != m_document.id) {
        // A document that came without a commit seen: a navigation whose load the engine folded
        // into an earlier one, or one to the address already shown.
        const QUrl shown = m_page->url();
        if (m_inFlight && m_inFlightChain.contains(shown))
            Commit(shown);
        else
            BeginDocument(shown, RememberedOrigin(shown));
        m_document.id = id;
    }
    if (current) {
        if (m_documentPending && state == u"complete") m_documentPending = false;
        if (!m_document.reported && !id.isEmpty() && title.typeId() == QMetaType::QString) {
            Report(title.toString());
        } else if (!m_document.reported && !m_inFlight && (id.isEmpty() ? !m_loading : state != u"loading")) {
            // Parsed without a title of its own (its address tells what it is: a file, the API),
            // or loaded where the browser's script does not run (an error page).
            Report(id.isEmpty() ? m_page->title() : QString());
        }
    }
    const bool waiting = m_documentPending || !m_document.reported;
    if (waiting && !m_pollScheduled && m_activityClock.elapsed() < m_stallLimitMs) {
        m_pollScheduled = true;
        QTimer::singleShot(kPollIntervalMs, this, [this] {
            m_pollScheduled = false;
            if (m_documentPending || !m_document.reported) AskDocument();
        });
    }
}

void WebEngineBrowser::Report(const QString& title)
{
    m_document.reported = true;
    // A page that comes after the program asked for another belongs to the page being left:
    // whoever waits for the new page's title must not take it.
    if (Busy() && (m_requested || (m_inFlight && m_inFlightRequested))) return;
    Q_EMIT TitleChange(ClassicTitle(title, m_document.url, m_document.origin, m_site));
}

void WebEngineBrowser::Remember(const QUrl& url, const QUrl& origin)
{
    const QWebEngineHistory* history = m_page->history();
    const int count = history->count();
    m_entries.removeIf([count](const QHash<int, Entry>::iterator it) { return it.key() >= count; });
    m_entries.insert(history->currentItemIndex(), {WithoutFragment(url), origin, ++m_entrySequence});
}

QUrl WebEngineBrowser::RememberedOrigin(const QUrl& url) const
{
    const QUrl address = WithoutFragment(url);
    const auto at = m_entries.constFind(m_page->history()->currentItemIndex());
    if (at != m_entries.cend() && at->url == address) return at->origin;
    // The engine lets go of the oldest entries, and the others move up: the latest of the address.
    const Entry* latest = nullptr;
    for (const Entry& entry : m_entries)
        if (entry.url == address && (!latest || entry.sequence > latest->sequence)) latest = &entry;
    return latest ? latest->origin : QUrl();
}

BrowserFactory WebEngineBrowserFactory(const SiteConfig& site)
{
    return [site](QWidget* parent) -> Browser* { return new WebEngineBrowser(site, parent); };
}

} // namespace linkhop
