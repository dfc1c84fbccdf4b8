#pragma once

#include "browser.h"
#include "services.h"
#include "site.h"

#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QString>
#include <QUrl>

class QVariant;
class QWebEngineLoadingInfo;
class QWebEnginePage;
class QWebEngineProfile;
class QWebEngineView;

namespace linkhop {

// The game's browser on Qt WebEngine: one view filling the widget, a page that reports every
// main-frame navigation request (never refusing one) as BeforeNavigate2, and a private profile
// that keeps nothing on disk.
//
// A page is a document the main frame committed: TitleChange comes once for each, under the title
// its server sent (the first text of its <title>, read from a world of the browser's own where the
// page's scripts cannot reach), presented in the classic form (ClassicTitle). What scripts do to a
// document afterwards is not a page: a new fragment or an address written by history.pushState or
// replaceState (the image viewer, footnotes, the table of contents, a redirect's address) raises
// nothing, and a title set by script is never raised. The one exception is an editor that a script
// opens in place (the visual editor): its address is an editor's, and is raised as one.
// The kind of a page (reached through a search, through a special page, or opened by the program)
// is remembered for its history entry, so that Back and Forward bring the entry back as it was
// first reached.
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
    // page has loaded, failed or been stopped, and its title has been raised. It never stays true
    // for good: a navigation that starts nothing (an address the engine ignores) counts for
    // kStartLimitMs at most, and one that shows no sign of life for the stall limit no longer counts.
    bool Busy() const override;
    void GoBack() override;

    static constexpr int kStartLimitMs = 3000;
    static constexpr int kDefaultStallLimitMs = 30000;
    void SetStallLimit(int ms) { m_stallLimitMs = ms; }

    // The page shown, for tests that follow links by script.
    QWebEnginePage* Page() const;

private:
    class NavigationPage;
    // The document shown in the main frame, as far as it has been seen.
    struct Document
    {
        quint64 generation = 0;
        QString id;  // given by the browser's own script in the document; empty until it answered
        QUrl url;    // the address it was committed at
        QUrl origin; // where the player's way to it began; empty when the program opened it
        bool reported = true;
    };
    // A history entry: the address it shows, and where the way to it first began.
    struct Entry
    {
        QUrl url;
        QUrl origin;
        quint64 sequence = 0;
    };

    void Request(const QUrl& url);
    void OnNavigationRequest(const QUrl& url, int type);
    void OnLoadingChanged(const QWebEngineLoadingInfo& info);
    void OnUrlChanged(const QUrl& url);
    void OnTitleChanged();
    void Commit(const QUrl& url);
    void BeginDocument(const QUrl& url, const QUrl& origin);
    void AskDocument();
    void OnDocumentAnswer(quint64 generation, const QVariant& answer);
    void Report(const QString& title);
    void Remember(const QUrl& url, const QUrl& origin);
    QUrl RememberedOrigin(const QUrl& url) const;

    SiteConfig m_site;
    QWebEngineProfile* m_profile = nullptr;
    QWebEngineView* m_view = nullptr;
    NavigationPage* m_page = nullptr;

    // A navigation asked for by Navigate or GoBack whose load has not been seen to start.
    bool m_requested = false;
    QUrl m_requestedUrl;
    QElapsedTimer m_requestClock;
    // A main-frame navigation accepted but not yet committed, with the addresses it went through,
    // whether the program asked for it (Navigate, GoBack) rather than the player or the page, and
    // whether it brings back a history entry (Back, Forward, reload).
    bool m_inFlight = false;
    QList<QUrl> m_inFlightChain;
    bool m_inFlightRequested = false;
    bool m_inFlightHistory = false;
    // A load under way, as the engine reports loads.
    bool m_loading = false;
    // A change of address outside any reported load, whose document has not been seen complete.
    bool m_documentPending = false;
    Document m_document;
    QString m_leftDocumentId; // the document before m_document, which may still answer a question
    quint64 m_generation = 0;
    bool m_pollScheduled = false;
    static constexpr int kPollIntervalMs = 20;
    QHash<int, Entry> m_entries; // by history index; the engine keeps at most 50 entries
    quint64 m_entrySequence = 0;
    bool m_closing = false;
    // When the navigation last showed any sign of life.
    QElapsedTimer m_activityClock;
    int m_stallLimitMs = kDefaultStallLimitMs;
    // The last main-frame request reported, so that a load starting without one (about:blank)
    // is reported once from its start.
    QUrl m_reportedRequest;
};

// Builds WebEngine browsers for the game window, on the site's encyclopedia.
BrowserFactory WebEngineBrowserFactory(const SiteConfig& site);

} // namespace linkhop
