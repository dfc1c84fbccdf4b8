#pragma once

#include <QElapsedTimer>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QNetworkAccessManager>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <deque>
#include <functional>
#include <optional>
#include <utility>

class QNetworkReply;

namespace linkhop::server {

// What the server may ask of the encyclopedia, whatever the players do. Requests go one at a time,
// at most `Rate` a second after a first `Burst`; a round asks at most `RoundRequests`, its search
// at most `SearchRequests` of them, and each racer's checks only what that racer was granted.
struct RequestBudget
{
    double Rate = 10;
    double Burst = 10;
    quint64 RoundRequests = 6000;
    quint64 SearchRequests = 400;
};

// The encyclopedia's own API (MediaWiki's api.php), asked as its operators ask: one request at a
// time, a User-Agent that names Linkhop, its version and a contact, "maxlag" so that a busy
// encyclopedia can ask us to wait, "Retry-After" obeyed after 429 and 503, with back-off.
//
// Every request belongs to a lane of the current round: the round's own questions, the search for
// its shortest route, or the checks of one racer. The next request sent is, in this order: a
// hurried racer's (one at the destination), in the order they were hurried; the round's own; the
// other racers', taking turns; the search's. A question of several pages asks each page anew, so a
// hurried racer goes first also between the pages of a question under way.
class WikiApi final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WikiApi)

public:
    // `site` is a host ("en.wikipedia.org", asked over HTTPS) or a base address
    // ("http://127.0.0.2:8080"); the API is its /w/api.php. `contact` goes into the User-Agent.
    WikiApi(const QString& site, const QString& contact, QObject* parent = nullptr);
    ~WikiApi() override;

    static QUrl EndpointOf(const QString& site);
    static QByteArray UserAgent(const QString& contact);

    using Params = QList<std::pair<QString, QString>>;
    struct Reply
    {
        enum Status
        {
            Answered,
            Failed,     // the encyclopedia did not answer, answered an error, or asked us to wait too long
            Refused,    // its lane has sent all it may this round: it was never sent
            RoundSpent, // the round has sent all it may: it was never sent
            Cancelled,  // its round or its racer is over
        };
        Status status = Failed;
        QJsonObject json;
        QString why;
        QString code; // the API's error code, when it answered an error
    };
    using Done = std::function<void(const Reply&)>;

    static constexpr quint64 kRoundLane = 0;
    static constexpr quint64 kSearchLane = ~quint64(0);
    // Anything else is a racer's lane.

    // One request: `params` (action included) beside the format and "maxlag"; `done` comes once.
    void Ask(quint64 lane, Params params, Done done);
    // Every page of one question, each a request of its own, at most `maxPages`: `page` sees each
    // answer; `done` gets the last reply's status, and whether the question ended within the pages.
    void AskAll(quint64 lane, Params params, int maxPages, std::function<void(const QJsonObject&)> page,
                std::function<void(const Reply& last, bool complete)> done);

    void SetBudget(const RequestBudget& budget)
    {
        m_budget = budget;
        m_tokens = budget.Burst;
    }
    const RequestBudget& Budget() const { return m_budget; }
    void SetTimeout(int ms) { m_timeoutMs = ms; }
    // The longest wait asked for by the encyclopedia that a request sits out; a longer one fails it.
    void SetLongestWait(qint64 ms) { m_longestWaitMs = ms; }

    // A new round: every request of the rounds before is cancelled, the round's count starts at 0.
    void StartRound();
    // The racer's checks may send `requests` more this round.
    void Grant(quint64 racer, quint64 requests);
    // The racer is at the destination: its requests go before all others.
    void Hurry(quint64 racer);
    // The racer's requests are cancelled; DropRacers: every racer's.
    void Drop(quint64 racer);
    void DropRacers();

    quint64 RequestsSent() const { return m_requests; }
    quint64 RoundRequests() const { return m_roundSent; }
    quint64 LaneRequests(quint64 lane) const { return m_laneSent.value(lane); }

private:
    struct Request
    {
        quint64 lane;
        Params params;
        Done done;
        int retries = 0;
    };
    void SendNext();
    // The index in the queue of the request to send next, or -1.
    qsizetype Pick() const;
    // Why the budget does not allow this request now; empty when it does.
    QString Refusal(const Request& request) const;
    void Send(Request request);
    void Finished(QNetworkReply* reply);
    void Complete(Request& request, const Reply& reply);
    // The encyclopedia asked us to wait: the request goes again after the wait, unless the wait is
    // longer than we sit out or the request has been asked often enough.
    void Wait(Request request, qint64 ms, const QString& why);
    void FailQueued(const QString& why);
    void Refill();
    void CancelWhere(const std::function<bool(const Request&)>& which);

    QNetworkAccessManager m_network;
    QUrl m_endpoint;
    QByteArray m_userAgent;
    RequestBudget m_budget;
    int m_timeoutMs = 5000;
    qint64 m_longestWaitMs = 10000;

    std::deque<Request> m_queue;
    std::optional<Request> m_current;
    QPointer<QNetworkReply> m_reply;
    QList<quint64> m_hurried;   // in the order they arrived
    quint64 m_lastRacer = 0;    // the racer whose turn was last, for the turns
    QHash<quint64, quint64> m_granted;

    QElapsedTimer m_clock;
    double m_tokens = 0;
    qint64 m_tokensMs = 0;
    qint64 m_pausedUntilMs = 0;
    int m_backoffs = 0; // waits asked for in a row, for the back-off when no Retry-After says how long
    QTimer m_wake;

    quint64 m_requests = 0;
    quint64 m_roundSent = 0;
    QHash<quint64, quint64> m_laneSent;
};

} // namespace linkhop::server
