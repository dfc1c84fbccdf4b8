#pragma once

#include <QHash>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <deque>
#include <functional>
#include <optional>
#include <utility>

class QJsonObject;
class QNetworkReply;

namespace linkhop::server {

// The encyclopedia's own API (MediaWiki's api.php, action=query), as the server asks it about the
// links between articles. One request at a time, with a User-Agent that names Linkhop, "maxlag" so
// that a busy encyclopedia can ask us to wait, a time-out, and continuation followed. What it
// learns is cached until ClearCache (once per round). Every answer is optional: no reply, an error
// page or garbage gives std::nullopt, never a stall.
class WikiApi final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WikiApi)

public:
    // `site` is a host ("en.wikipedia.org", asked over HTTPS) or a base address
    // ("http://127.0.0.2:8080"); the API is its /w/api.php.
    explicit WikiApi(const QString& site, QObject* parent = nullptr);
    ~WikiApi() override;

    static QUrl EndpointOf(const QString& site);
    void SetTimeout(int ms) { m_timeoutMs = ms; }

    // Urgent questions (a winner waits for them) go before those of a search in the background.
    enum class Priority
    {
        Background,
        Urgent,
    };
    template <typename T> using Answer = std::function<void(std::optional<T>)>;
    using Links = QHash<QString, QSet<QString>>;
    struct Backlink
    {
        QString title;
        bool redirect = false; // a redirect to the page, whose own backlinks lead there too
    };

    // Titles as the encyclopedia names its articles: normalised, redirects followed; a title with
    // no article maps to the empty text.
    void Resolve(const QStringList& titles, Answer<QHash<QString, QString>> done,
                 Priority priority = Priority::Background);
    // The redirects to each title (the title itself not included).
    void RedirectsTo(const QStringList& titles, Answer<Links> done, Priority priority = Priority::Background);
    // Which of `targets` each of `sources` links to directly.
    void LinksAmong(const QStringList& sources, const QStringList& targets, Answer<Links> done,
                    Priority priority = Priority::Background);
    // The articles a page links to: redirects followed, missing pages left out.
    void LinksOf(const QString& title, Answer<QStringList> done);
    // The articles that link to each title, redirects among them marked.
    void LinksHere(const QStringList& titles, Answer<QHash<QString, QList<Backlink>>> done);
    // The title of the encyclopedia's main page.
    void MainPage(Answer<QString> done, Priority priority = Priority::Background);

    void ClearCache();
    // Ends the request under way and every queued one; each answers std::nullopt.
    void Cancel();

    quint64 RequestsSent() const { return m_requests; }
    QString LastError() const { return m_lastError; }

    // Titles per request, as the API takes them.
    static constexpr int kBatch = 50;
    // Continuation pages one question may take before it is given up.
    static constexpr int kMaxPages = 40;

private:
    // Keys and values as they are, escaped only when the address is built: titles hold "&" and "+".
    using Params = QList<std::pair<QString, QString>>;
    using Page = std::function<void(const QJsonObject& query)>;
    using BatchPage = std::function<void(const QStringList& batch, const QJsonObject& query)>;
    struct Pending
    {
        Params params;
        Page page;
        std::function<void(bool ok)> done;
        bool urgent = false;
        int pages = 0;
        int lagRetries = 0;
    };
    // One action=query with its continuation: `page` sees each answer's "query", `done` whether all came.
    void Query(Params params, Page page, std::function<void(bool ok)> done,
               Priority priority = Priority::Background);
    void SendNext();
    void Finished(QNetworkReply* reply);
    // One query per batch of titles; `page` sees each answer with its batch, `done` whether all came.
    void Batched(const QStringList& titles, const std::function<Params(const QStringList&)>& params,
                 const BatchPage& page, std::function<void(bool ok)> done, Priority priority);

    QNetworkAccessManager m_network;
    QUrl m_endpoint;
    int m_timeoutMs = 5000;
    std::optional<Pending> m_current; // the question under way, through its continuation
    std::deque<Pending> m_queue;
    QPointer<QNetworkReply> m_reply;
    bool m_waiting = false; // for the encyclopedia's lag to pass
    quint64 m_requests = 0;
    QString m_lastError;
    quint64 m_generation = 0; // bumped by Cancel: timers and handlers of ended questions stop

    QHash<QString, QStringList> m_linksOf;
    QString m_mainPage;
};

} // namespace linkhop::server
