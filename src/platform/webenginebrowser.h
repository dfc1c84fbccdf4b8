#pragma once

#include "browser.h"
#include "services.h"
#include "site.h"

#include <QElapsedTimer>
#include <QList>
#include <QString>
#include <QUrl>

class QWebEngineLoadingInfo;
class QWebEnginePage;
class QWebEngineProfile;
class QWebEngineView;

namespace linkhop {

// The game's browser on Qt WebEngine: one view filling the widget, a page that reports every
// main-frame navigation request (never refusing one) as BeforeNavigate2, and a private profile
// that keeps nothing on disk. Titles of the encyclopedia's pages are raised in the classic form
// (ClassicTitle) so the page rules can read them, judged by where the player's navigation began
// as well as where it ended. Every title a page shows is raised, also while the player is already
// on the way to the next page, and every load that succeeds raises at least one TitleChange, also
// when the page comes again under the title it already had.
class WebEngineBrowser final : public Browser
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WebEngineBrowser)

public:
    explicit WebEngineBrowser(const SiteConfig& site, QWidget* parent = nullptr);
    ~WebEngineBrowser() override;

    // The address as given; QUrl encodes what needs encoding (the search address carries its
    // word unescaped). An address without a scheme is completed like a typed one.
    void Navigate(const QString& url) override;
    // True from Navigate (or GoBack), and from every navigation request and load start, until the
    // page has loaded, failed or been stopped. It never stays true for good: a navigation that
    // starts nothing (an address the engine ignores) counts for kStartLimitMs at most, and one
    // that shows no sign of life for the stall limit no longer counts.
    bool Busy() const override;
    void GoBack() override;

    static constexpr int kStartLimitMs = 3000;
    static constexpr int kDefaultStallLimitMs = 30000;
    void SetStallLimit(int ms) { m_stallLimitMs = ms; }

    // The page shown, for tests that follow links by script.
    QWebEnginePage* Page() const;

private:
    class NavigationPage;
    void Request(const QUrl& url);
    void OnNavigationRequest(const QUrl& url, bool redirect);
    void Commit();
    void OnLoadingChanged(const QWebEngineLoadingInfo& info);
    void OnUrlChanged(const QUrl& url);
    void OnTitleChanged(const QString& title);
    void ProbeDocument(quint64 generation);

    SiteConfig m_site;
    QWebEngineProfile* m_profile = nullptr;
    QWebEngineView* m_view = nullptr;
    NavigationPage* m_page = nullptr;

    // A navigation asked for by Navigate or GoBack whose load has not been seen to start.
    bool m_requested = false;
    QUrl m_requestedUrl;
    QElapsedTimer m_requestClock;
    // A main-frame navigation accepted but not yet shown, with the addresses it went through, and
    // whether the program asked for it (Navigate, GoBack) rather than the player or the page.
    bool m_inFlight = false;
    QList<QUrl> m_inFlightChain;
    bool m_inFlightRequested = false;
    // Where the player's navigation to the page shown began; empty when the program opened it.
    QUrl m_shownOrigin;
    // A load under way, as the engine reports loads.
    bool m_loading = false;
    // A page shown outside any reported load, whose document has not been seen complete.
    bool m_documentPending = false;
    quint64 m_probeGeneration = 0;
    static constexpr int kProbeIntervalMs = 20;
    bool m_closing = false;
    // When the navigation last showed any sign of life.
    QElapsedTimer m_activityClock;
    int m_stallLimitMs = kDefaultStallLimitMs;
    // The last main-frame request reported, so that a load starting without one (about:blank)
    // is reported once from its start.
    QUrl m_reportedRequest;
    // Whether the load under way has changed the title.
    bool m_titleSeen = false;
};

// Builds WebEngine browsers for the game window, on the site's encyclopedia.
BrowserFactory WebEngineBrowserFactory(const SiteConfig& site);

} // namespace linkhop
