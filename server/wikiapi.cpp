#include "wikiapi.h"

#include "core/version.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

// The encyclopedia's operators ask bots and tools to say who they are.
const QByteArray kUserAgent = "LinkhopServer/" + ClientVersion.toString().section(u' ', 0, 0).toLatin1() +
                              " (game server of Linkhop, a multiplayer race across the encyclopedia; Qt)";
// Seconds of replication lag above which the encyclopedia may refuse us, and how often we wait.
constexpr int kMaxLagSeconds = 5;
constexpr int kLagRetries = 3;

QJsonArray Array(const QJsonObject& object, QStringView key)
{
    return object.value(key).toArray();
}

// "from" -> "to" of the query's "normalized" or "redirects" list.
QHash<QString, QString> Mapping(const QJsonObject& query, QStringView key)
{
    QHash<QString, QString> mapping;
    for (const QJsonValue& entry : Array(query, key))
        mapping.insert(entry[u"from"].toString(), entry[u"to"].toString());
    return mapping;
}

QList<QStringList> Batches(const QStringList& titles)
{
    QList<QStringList> batches;
    for (qsizetype i = 0; i < titles.size(); i += WikiApi::kBatch)
        batches.append(titles.mid(i, WikiApi::kBatch));
    return batches;
}

} // namespace

WikiApi::WikiApi(const QString& site, QObject* parent) : QObject(parent), m_endpoint(EndpointOf(site)) {}

WikiApi::~WikiApi()
{
    Cancel();
}

QUrl WikiApi::EndpointOf(const QString& site)
{
    QUrl base(site.trimmed().contains(u"://") ? site.trimmed() : u"https://"_s + site.trimmed());
    base.setPath(u"/w/api.php"_s);
    base.setQuery(QString());
    return base;
}

void WikiApi::Query(Params params, Page page, std::function<void(bool ok)> done, Priority priority)
{
    Pending pending{std::move(params), std::move(page), std::move(done), priority == Priority::Urgent};
    // Urgent questions go before the others, in the order they came.
    auto at = pending.urgent
                  ? std::find_if(m_queue.begin(), m_queue.end(), [](const Pending& p) { return !p.urgent; })
                  : m_queue.end();
    m_queue.insert(at, std::move(pending));
    SendNext();
}

void WikiApi::SendNext()
{
    if (m_reply || m_waiting) return;
    if (!m_current) {
        if (m_queue.empty()) return;
        m_current = std::move(m_queue.front());
        m_queue.pop_front();
    }
    Params params{{u"action"_s, u"query"_s},
                  {u"format"_s, u"json"_s},
                  {u"formatversion"_s, u"2"_s},
                  {u"maxlag"_s, QString::number(kMaxLagSeconds)}};
    params += m_current->params;
    QByteArray query;
    for (const auto& [key, value] : std::as_const(params))
        query += (query.isEmpty() ? "" : "&") + QUrl::toPercentEncoding(key) + '=' +
                 QUrl::toPercentEncoding(value);
    QUrl url = m_endpoint;
    url.setQuery(QString::fromLatin1(query), QUrl::StrictMode);
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, kUserAgent);
    request.setTransferTimeout(m_timeoutMs);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    ++m_requests;
    m_reply = m_network.get(request);
    QNetworkReply* reply = m_reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { Finished(reply); });
}

void WikiApi::Finished(QNetworkReply* reply)
{
    reply->deleteLater();
    if (reply != m_reply || !m_current) return; // ended by Cancel
    m_reply = nullptr;
    const auto fail = [this](const QString& why) {
        m_lastError = why;
        const std::function<void(bool)> done = std::move(m_current->done);
        m_current.reset();
        done(false);
        SendNext();
    };
    if (reply->error() != QNetworkReply::NoError) return fail(reply->errorString());
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(reply->readAll(), &parseError);
    if (!document.isObject()) return fail(u"the API answered no JSON object: "_s + parseError.errorString());
    const QJsonObject answer = document.object();
    if (answer.contains(u"error")) {
        const QString code = answer[u"error"][u"code"].toString();
        if (code == u"maxlag" && m_current->lagRetries < kLagRetries) {
            // The encyclopedia is busy: ask again once it says it can take us, nothing else meanwhile.
            ++m_current->lagRetries;
            const int wait = std::clamp(reply->rawHeader("Retry-After").toInt(), 1, kMaxLagSeconds);
            m_waiting = true;
            const quint64 generation = m_generation;
            QTimer::singleShot(wait * 1000, this, [this, generation] {
                if (generation != m_generation) return;
                m_waiting = false;
                SendNext();
            });
            return;
        }
        return fail(u"the API refused: "_s + code + u' ' + answer[u"error"][u"info"].toString());
    }
    const QJsonObject continuation = answer[u"continue"].toObject();
    const quint64 generation = m_generation;
    if (answer.contains(u"query")) m_current->page(answer[u"query"].toObject());
    if (generation != m_generation) return; // the page handler cancelled everything
    if (!continuation.isEmpty()) {
        if (++m_current->pages >= kMaxPages)
            return fail(u"the answer did not end after %1 pages"_s.arg(kMaxPages));
        for (auto it = continuation.begin(); it != continuation.end(); ++it) {
            m_current->params.removeIf([&](const auto& item) { return item.first == it.key(); });
            m_current->params.append({it.key(), it.value().toString()});
        }
        SendNext();
        return;
    }
    const std::function<void(bool)> done = std::move(m_current->done);
    m_current.reset();
    done(true);
    SendNext();
}

void WikiApi::Cancel()
{
    ++m_generation;
    m_waiting = false;
    std::deque<Pending> ended;
    ended.swap(m_queue);
    if (m_current) ended.push_front(std::move(*m_current));
    m_current.reset();
    if (QNetworkReply* reply = m_reply) {
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
    for (Pending& pending : ended)
        if (pending.done) pending.done(false);
}

void WikiApi::ClearCache()
{
    m_linksOf.clear();
}

void WikiApi::Batched(const QStringList& titles, const std::function<Params(const QStringList&)>& params,
                      const BatchPage& page, std::function<void(bool ok)> done, Priority priority)
{
    const QList<QStringList> batches = Batches(titles);
    if (batches.isEmpty()) return done(true);
    auto left = std::make_shared<qsizetype>(batches.size());
    auto ok = std::make_shared<bool>(true);
    for (const QStringList& batch : batches)
        Query(
            params(batch), [page, batch](const QJsonObject& query) { page(batch, query); },
            [left, ok, done](bool fine) {
                *ok = *ok && fine;
                if (--*left == 0) done(*ok);
            },
            priority);
}

void WikiApi::Resolve(const QStringList& titles, Answer<QHash<QString, QString>> done, Priority priority)
{
    auto resolved = std::make_shared<QHash<QString, QString>>();
    Batched(
        titles,
        [](const QStringList& batch) {
            return Params{{u"titles"_s, batch.join(u'|')}, {u"redirects"_s, u"1"_s}};
        },
        [resolved](const QStringList& batch, const QJsonObject& query) {
            const QHash<QString, QString> normalized = Mapping(query, u"normalized");
            const QHash<QString, QString> redirects = Mapping(query, u"redirects");
            QSet<QString> existing;
            for (const QJsonValue& page : Array(query, u"pages"))
                if (!page[u"missing"].toBool() && !page[u"invalid"].toBool())
                    existing.insert(page[u"title"].toString());
            for (const QString& title : batch) {
                const QString name = normalized.value(title, title);
                const QString target = redirects.value(name, name);
                resolved->insert(title, existing.contains(target) ? target : QString());
            }
        },
        [resolved, done](bool ok) { done(ok ? std::optional(*resolved) : std::nullopt); }, priority);
}

void WikiApi::RedirectsTo(const QStringList& titles, Answer<Links> done, Priority priority)
{
    auto redirects = std::make_shared<Links>();
    Batched(
        titles,
        [](const QStringList& batch) {
            return Params{{u"prop"_s, u"redirects"_s},
                          {u"titles"_s, batch.join(u'|')},
                          {u"rdlimit"_s, u"max"_s},
                          {u"rdnamespace"_s, u"0"_s}};
        },
        [redirects](const QStringList&, const QJsonObject& query) {
            for (const QJsonValue& page : Array(query, u"pages")) {
                QSet<QString>& to = (*redirects)[page[u"title"].toString()];
                for (const QJsonValue& redirect : page[u"redirects"].toArray())
                    to.insert(redirect[u"title"].toString());
            }
        },
        [redirects, done](bool ok) { done(ok ? std::optional(*redirects) : std::nullopt); }, priority);
}

void WikiApi::LinksAmong(const QStringList& sources, const QStringList& targets, Answer<Links> done,
                         Priority priority)
{
    auto links = std::make_shared<Links>();
    const QList<QStringList> targetBatches = Batches(targets);
    auto left = std::make_shared<qsizetype>(targetBatches.size());
    auto ok = std::make_shared<bool>(true);
    if (targetBatches.isEmpty() || sources.isEmpty()) return done(*links);
    for (const QStringList& targetBatch : targetBatches)
        Batched(
            sources,
            [targetBatch](const QStringList& batch) {
                return Params{{u"prop"_s, u"links"_s},
                              {u"titles"_s, batch.join(u'|')},
                              {u"pltitles"_s, targetBatch.join(u'|')},
                              {u"pllimit"_s, u"max"_s}};
            },
            [links](const QStringList&, const QJsonObject& query) {
                for (const QJsonValue& page : Array(query, u"pages")) {
                    QSet<QString>& to = (*links)[page[u"title"].toString()];
                    for (const QJsonValue& link : page[u"links"].toArray())
                        to.insert(link[u"title"].toString());
                }
            },
            [links, left, ok, done](bool fine) {
                *ok = *ok && fine;
                if (--*left == 0) done(*ok ? std::optional(*links) : std::nullopt);
            },
            priority);
}

void WikiApi::LinksOf(const QString& title, Answer<QStringList> done)
{
    if (const auto it = m_linksOf.constFind(title); it != m_linksOf.cend()) return done(*it);
    auto targets = std::make_shared<QStringList>();
    Query(
        Params{{u"generator"_s, u"links"_s},
               {u"titles"_s, title},
               {u"redirects"_s, u"1"_s},
               {u"gplnamespace"_s, u"0"_s},
               {u"gpllimit"_s, u"max"_s}},
        [targets](const QJsonObject& query) {
            for (const QJsonValue& page : Array(query, u"pages"))
                if (!page[u"missing"].toBool() && !page[u"invalid"].toBool())
                    targets->append(page[u"title"].toString());
        },
        [this, title, targets, done](bool ok) {
            if (!ok) return done(std::nullopt);
            m_linksOf.insert(title, *targets);
            done(*targets);
        });
}

void WikiApi::LinksHere(const QStringList& titles, Answer<QHash<QString, QList<Backlink>>> done)
{
    auto backlinks = std::make_shared<QHash<QString, QList<Backlink>>>();
    Batched(
        titles,
        [](const QStringList& batch) {
            return Params{{u"prop"_s, u"linkshere"_s},
                          {u"titles"_s, batch.join(u'|')},
                          {u"lhprop"_s, u"title|redirect"_s},
                          {u"lhnamespace"_s, u"0"_s},
                          {u"lhlimit"_s, u"max"_s}};
        },
        [backlinks](const QStringList&, const QJsonObject& query) {
            for (const QJsonValue& page : Array(query, u"pages")) {
                QList<Backlink>& from = (*backlinks)[page[u"title"].toString()];
                for (const QJsonValue& link : page[u"linkshere"].toArray())
                    from.append({link[u"title"].toString(), link[u"redirect"].toBool()});
            }
        },
        [backlinks, done](bool ok) { done(ok ? std::optional(*backlinks) : std::nullopt); },
        Priority::Background);
}

void WikiApi::MainPage(Answer<QString> done, Priority priority)
{
    if (!m_mainPage.isEmpty()) return done(m_mainPage);
    auto title = std::make_shared<QString>();
    Query(
        Params{{u"meta"_s, u"siteinfo"_s}, {u"siprop"_s, u"general"_s}},
        [title](const QJsonObject& query) { *title = query[u"general"][u"mainpage"].toString(); },
        [this, title, done](bool ok) {
            if (!ok || title->isEmpty()) return done(std::nullopt);
            m_mainPage = *title;
            done(m_mainPage);
        },
        priority);
}

} // namespace linkhop::server
