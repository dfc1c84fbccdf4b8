#include "wikiapi.h"

#include "core/version.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <algorithm>
#include <cmath>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

// Seconds of replication lag above which the encyclopedia may refuse us.
constexpr int kMaxLagSeconds = 5;
// Times one request is asked again after the encyclopedia asked us to wait.
constexpr int kRetries = 3;
// The back-off when a 429 or 503 does not say how long to wait: 1 s, doubling up to this.
constexpr qint64 kLongestBackoffMs = 64000;

// "Retry-After" as seconds or as an HTTP date; -1 when absent or unreadable.
qint64 RetryAfterMs(const QByteArray& header)
{
    const QByteArray value = header.trimmed();
    if (value.isEmpty()) return -1;
    bool ok = false;
    const qint64 seconds = value.toLongLong(&ok);
    if (ok) return seconds < 0 ? -1 : std::min<qint64>(seconds, 86400) * 1000;
    const QDateTime when = QDateTime::fromString(QString::fromLatin1(value), Qt::RFC2822Date);
    if (!when.isValid()) return -1;
    return std::clamp<qint64>(QDateTime::currentDateTimeUtc().msecsTo(when), 0, 86400000);
}

bool IsRacer(quint64 lane)
{
    return lane != WikiApi::kRoundLane && lane != WikiApi::kSearchLane;
}

} // namespace

WikiApi::WikiApi(const QString& site, const QString& contact, QObject* parent)
    : QObject(parent), m_endpoint(EndpointOf(site)), m_userAgent(UserAgent(contact))
{
    m_clock.start();
    m_tokens = m_budget.Burst;
    m_wake.setSingleShot(true);
    connect(&m_wake, &QTimer::timeout, this, &WikiApi::SendNext);
}

WikiApi::~WikiApi()
{
    // Nobody is told: whoever waits for an answer goes with this object.
    m_queue.clear();
    m_current.reset();
    if (QNetworkReply* reply = m_reply) {
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

QUrl WikiApi::EndpointOf(const QString& site)
{
    QUrl base(site.trimmed().contains(u"://") ? site.trimmed() : u"https://"_s + site.trimmed());
    base.setPath(u"/w/api.php"_s);
    base.setQuery(QString());
    return base;
}

QByteArray WikiApi::UserAgent(const QString& contact)
{
    // "<client>/<version> (<contact>) <library>/<version>", as the encyclopedia's operators ask of
    // every tool: they write to the contact before they block an address.
    QString cleaned;
    for (const QChar c : contact.trimmed())
        cleaned += c.unicode() >= 0x20 && c.unicode() < 0x7F && c != u'(' && c != u')' ? c : u' ';
    return "LinkhopServer/" + ClientVersion.toString().section(u' ', 0, 0).toLatin1() + " (" +
           cleaned.simplified().toLatin1() + "; game server of Linkhop, a race across the encyclopedia) Qt/" +
           QByteArray(qVersion());
}

void WikiApi::Ask(quint64 lane, Params params, Done done)
{
    m_queue.push_back(Request{lane, std::move(params), std::move(done)});
    // Answers always come from the event loop, never from inside Ask.
    if (!m_reply && !m_wake.isActive()) m_wake.start(0);
}

void WikiApi::AskAll(quint64 lane, Params params, int maxPages, std::function<void(const QJsonObject&)> page,
                     std::function<void(const Reply& last, bool complete)> done)
{
    struct Pages : std::enable_shared_from_this<Pages>
    {
        WikiApi* api;
        quint64 lane;
        Params params;
        int left;
        std::function<void(const QJsonObject&)> page;
        std::function<void(const Reply&, bool)> done;

        void Next()
        {
            api->Ask(lane, params, [self = shared_from_this()](const Reply& reply) { self->Took(reply); });
        }
        void Took(const Reply& reply)
        {
            if (reply.status != Reply::Answered) return done(reply, false);
            page(reply.json);
            const QJsonObject more = reply.json[u"continue"].toObject();
            if (more.isEmpty()) return done(reply, true);
            if (--left <= 0) return done(reply, false);
            for (auto it = more.begin(); it != more.end(); ++it) {
                params.removeIf([&](const auto& item) { return item.first == it.key(); });
                params.append({it.key(), it.value().toString()});
            }
            Next();
        }
    };
    auto pages = std::make_shared<Pages>();
    pages->api = this;
    pages->lane = lane;
    pages->params = std::move(params);
    pages->left = std::max(1, maxPages);
    pages->page = std::move(page);
    pages->done = std::move(done);
    pages->Next();
}

void WikiApi::StartRound()
{
    CancelWhere([](const Request&) { return true; });
    m_roundSent = 0;
    m_laneSent.clear();
    m_granted.clear();
    m_hurried.clear();
    m_lastRacer = 0;
}

void WikiApi::Grant(quint64 racer, quint64 requests)
{
    m_granted[racer] += requests;
}

void WikiApi::Hurry(quint64 racer)
{
    if (!m_hurried.contains(racer)) m_hurried.append(racer);
    if (!m_reply && !m_wake.isActive()) m_wake.start(0);
}

void WikiApi::Drop(quint64 racer)
{
    m_hurried.removeAll(racer);
    CancelWhere([racer](const Request& r) { return r.lane == racer; });
}

void WikiApi::DropRacers()
{
    m_hurried.clear();
    CancelWhere([](const Request& r) { return IsRacer(r.lane); });
}

void WikiApi::CancelWhere(const std::function<bool(const Request&)>& which)
{
    std::deque<Request> ended;
    for (auto it = m_queue.begin(); it != m_queue.end();) {
        if (which(*it)) {
            ended.push_back(std::move(*it));
            it = m_queue.erase(it);
        } else {
            ++it;
        }
    }
    if (m_current && which(*m_current)) {
        ended.push_front(std::move(*m_current));
        m_current.reset();
        if (QNetworkReply* reply = m_reply) {
            m_reply = nullptr;
            reply->disconnect(this);
            reply->abort();
            reply->deleteLater();
        }
        if (!m_wake.isActive()) m_wake.start(0);
    }
    for (Request& request : ended)
        request.done(Reply{Reply::Cancelled, {}, u"cancelled"_s, {}});
}

qsizetype WikiApi::Pick() const
{
    const auto first = [this](const std::function<bool(quint64)>& lane) -> qsizetype {
        for (qsizetype i = 0; i < qsizetype(m_queue.size()); ++i)
            if (lane(m_queue[size_t(i)].lane)) return i;
        return -1;
    };
    for (quint64 racer : m_hurried)
        if (const qsizetype i = first([racer](quint64 lane) { return lane == racer; }); i >= 0) return i;
    if (const qsizetype i = first([](quint64 lane) { return lane == kRoundLane; }); i >= 0) return i;
    // Racers take turns: the next racer after the one served last, by id, round and round.
    qsizetype after = -1, lowest = -1;
    for (qsizetype i = 0; i < qsizetype(m_queue.size()); ++i) {
        const quint64 lane = m_queue[size_t(i)].lane;
        if (!IsRacer(lane)) continue;
        if (lane > m_lastRacer && (after < 0 || lane < m_queue[size_t(after)].lane)) after = i;
        if (lowest < 0 || lane < m_queue[size_t(lowest)].lane) lowest = i;
    }
    if (after >= 0) return after;
    if (lowest >= 0) return lowest;
    return first([](quint64 lane) { return lane == kSearchLane; });
}

QString WikiApi::Refusal(const Request& request) const
{
    if (m_roundSent >= m_budget.RoundRequests)
        return u"the round has sent the encyclopedia all the requests a round may (%1)"_s.arg(
            m_budget.RoundRequests);
    const quint64 sent = m_laneSent.value(request.lane);
    if (request.lane == kSearchLane && sent >= m_budget.SearchRequests)
        return u"the search has sent all its requests (%1)"_s.arg(m_budget.SearchRequests);
    if (IsRacer(request.lane) && sent >= m_granted.value(request.lane))
        return u"the racer's checks have sent all the requests they may (%1)"_s.arg(sent);
    return {};
}

void WikiApi::Refill()
{
    const qint64 now = m_clock.elapsed();
    m_tokens = std::min(m_budget.Burst, m_tokens + double(now - m_tokensMs) * m_budget.Rate / 1000);
    m_tokensMs = now;
}

void WikiApi::SendNext()
{
    while (!m_reply && !m_queue.empty()) {
        const qsizetype index = Pick();
        if (index < 0) return;
        const auto at = m_queue.begin() + index;
        if (const QString refusal = Refusal(*at); !refusal.isEmpty()) {
            Request refused = std::move(*at);
            m_queue.erase(at);
            const bool round = m_roundSent >= m_budget.RoundRequests;
            Complete(refused, Reply{round ? Reply::RoundSpent : Reply::Refused, {}, refusal, {}});
            continue;
        }
        const qint64 now = m_clock.elapsed();
        if (now < m_pausedUntilMs) {
            if (m_pausedUntilMs - now > m_longestWaitMs)
                return FailQueued(u"the encyclopedia asked us to wait %1 s"_s.arg((m_pausedUntilMs - now + 999) / 1000));
            m_wake.start(int(m_pausedUntilMs - now));
            return;
        }
        Refill();
        // The search leaves half the burst to the racers, whose checks a winner may be waiting for.
        const double needed = at->lane == kSearchLane ? 1 + m_budget.Burst / 2 : 1;
        if (m_tokens < needed) {
            m_wake.start(int(std::ceil((needed - m_tokens) * 1000 / m_budget.Rate)));
            return;
        }
        m_tokens -= 1;
        Request request = std::move(*at);
        m_queue.erase(at);
        if (IsRacer(request.lane)) m_lastRacer = request.lane;
        Send(std::move(request));
    }
}

void WikiApi::Send(Request request)
{
    Params params{{u"format"_s, u"json"_s},
                  {u"formatversion"_s, u"2"_s},
                  {u"maxlag"_s, QString::number(kMaxLagSeconds)}};
    params += request.params;
    // Keys and values as they are, escaped only here: titles hold "&" and "+".
    QByteArray query;
    for (const auto& [key, value] : std::as_const(params))
        query += (query.isEmpty() ? "" : "&") + QUrl::toPercentEncoding(key) + '=' + QUrl::toPercentEncoding(value);
    QUrl url = m_endpoint;
    url.setQuery(QString::fromLatin1(query), QUrl::StrictMode);
    QNetworkRequest http(url);
    http.setHeader(QNetworkRequest::UserAgentHeader, m_userAgent);
    // A fresh parse of a long page takes the encyclopedia longer than a look-up in its tables.
    const bool parse = params.contains({u"action"_s, u"parse"_s});
    http.setTransferTimeout(parse ? 2 * m_timeoutMs : m_timeoutMs);
    http.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    ++m_requests;
    ++m_roundSent;
    ++m_laneSent[request.lane];
    m_current = std::move(request);
    m_reply = m_network.get(http);
    QNetworkReply* reply = m_reply;
    connect(reply, &QNetworkReply::finished, this, [this, reply] { Finished(reply); });
}

void WikiApi::Finished(QNetworkReply* reply)
{
    reply->deleteLater();
    if (reply != m_reply || !m_current) return; // cancelled
    m_reply = nullptr;
    Request request = std::move(*m_current);
    m_current.reset();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const qint64 retryAfter = RetryAfterMs(reply->rawHeader("Retry-After"));
    if (status == 429 || status == 503) {
        Wait(std::move(request), retryAfter, u"the encyclopedia answered %1"_s.arg(status));
        return SendNext();
    }
    const auto fail = [&](const QString& why) {
        Complete(request, Reply{Reply::Failed, {}, why, {}});
        SendNext();
    };
    if (reply->error() != QNetworkReply::NoError) return fail(reply->errorString());
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(reply->readAll(), &parseError);
    if (!document.isObject()) return fail(u"the API answered no JSON object: "_s + parseError.errorString());
    const QJsonObject answer = document.object();
    if (answer.contains(u"error")) {
        const QString code = answer[u"error"][u"code"].toString();
        if (code == u"maxlag") {
            Wait(std::move(request), std::max<qint64>(retryAfter, kMaxLagSeconds * 1000),
                 u"the encyclopedia is lagging"_s);
            return SendNext();
        }
        Complete(request, Reply{Reply::Failed, {}, u"the API refused: "_s + code + u' ' + answer[u"error"][u"info"].toString(), code});
        return SendNext();
    }
    m_backoffs = 0;
    Complete(request, Reply{Reply::Answered, answer, {}, {}});
    SendNext();
}

void WikiApi::Wait(Request request, qint64 ms, const QString& why)
{
    ++m_backoffs;
    if (ms < 0) ms = std::min(kLongestBackoffMs, qint64(1000) << std::min(m_backoffs - 1, 16));
    m_pausedUntilMs = std::max(m_pausedUntilMs, m_clock.elapsed() + ms);
    const QString told = why + u", and asked us to wait %1 s"_s.arg((ms + 999) / 1000);
    if (ms > m_longestWaitMs) {
        Complete(request, Reply{Reply::Failed, {}, told, {}});
        return FailQueued(told);
    }
    if (++request.retries > kRetries) return Complete(request, Reply{Reply::Failed, {}, told, {}});
    m_queue.push_front(std::move(request));
}

void WikiApi::FailQueued(const QString& why)
{
    std::deque<Request> failed;
    failed.swap(m_queue);
    for (Request& request : failed)
        Complete(request, Reply{Reply::Failed, {}, why, {}});
}

void WikiApi::Complete(Request& request, const Reply& reply)
{
    const Done done = std::move(request.done);
    if (done) done(reply);
}

} // namespace linkhop::server
