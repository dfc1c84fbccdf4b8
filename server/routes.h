#pragma once

#include "encyclopedia.h"
#include "wikiapi.h"

#include <QElapsedTimer>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace linkhop::server {

// What a round's checks share: the pages every step may come from besides the one before it (the
// initial article as the encyclopedia shows it, the main page), and the fresh parses asked so far.
struct RoundFacts;

// Whether `page` could have been clicked right after `from`, asked in `lane` and answered once
// through `done` (not at all when its lane is cancelled). From the cheapest question to the dearest,
// each asked only while the ones before found no way: the link tables (`from`, the initial article
// and the main page linking to the page, or showing it as an image, or the page showing `from` as
// an image: the file's usage), the redirects to the page from any namespace, and a fresh parse of
// the pages it may come from, for links a template edit added that the link tables do not yet hold.
void CheckStep(WikiApi& api, quint64 lane, const std::shared_ptr<RoundFacts>& facts, const QString& from,
               const QString& page, std::function<void(const StepVerdict&)> done);

// The limits of one search for a shortest route.
struct SearchBudget
{
    int maxClicks = 6;
    quint64 maxRequests = 400;
    qint64 maxMs = 60000;
};

// A shortest route between two articles, searched in the background from both ends at once: the
// links of the pages reached from the initial article, and the pages linking to those that lead to
// the destination. Each request goes to the side whose current level looks cheaper to finish, so a
// destination that thousands of pages link to is reached from the start instead. The budget is
// checked before every request. Redirects are followed; pages the round forbids (lists, numbers,
// ...) and the main page are never on a route but at its ends.
class RouteSearch final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RouteSearch)

public:
    RouteSearch(WikiApi& api, SearchBudget budget, QObject* parent = nullptr);

    // Starts a search; Finished follows, unless Cancel comes first.
    void Start(const QString& from, const QString& to);
    void Cancel();

Q_SIGNALS:
    void Finished(const linkhop::server::ShortestRoute& result);

private:
    struct Side
    {
        QHash<QString, int> depth;
        QHash<QString, QString> next; // forward: the page it was reached from; backward: the page it leads to
        QStringList frontier;         // the last level asked about completely
        int level = 0;                // its clicks from this side's end
        // The next level, as far as it is known.
        QStringList reached;
        qsizetype at = 0;               // frontier pages asked about
        QStringList redirects;          // backward: redirects to frontier pages, whose backlinks count too
        QHash<QString, QString> target; // backward: where each of them leads
        qsizetype redirectsAt = 0;
        WikiApi::Params question;       // the question under way through its continuation, if any
        QString asking;                 // forward: the page whose links it asks for
        bool aboutRedirects = false;
        int questionPages = 0;
    };
    void Resolved(const QString& from, const QString& to);
    void Step();
    double Remaining(const Side& side, bool forward) const;
    void Ask(bool forward, const WikiApi::Params& params);
    void Answered(bool forward, const QJsonObject& answer);
    void Discover(bool forward, const QString& page, const QString& next);
    bool LevelDone(const Side& side, bool forward) const;
    bool Usable(const QString& title) const;
    void Finish(ShortestRoute::Outcome outcome);

    WikiApi& m_api;
    SearchBudget m_budget;
    quint64 m_generation = 0;
    bool m_running = false;
    QElapsedTimer m_clock;
    quint64 m_requests = 0;
    QString m_mainPage;
    Side m_forward;
    Side m_backward;
    QString m_meeting; // the page of the shortest route found so far
    int m_best = -1;
};

// The encyclopedia a server asks, through its API, within the server's budget.
class WikiEncyclopedia final : public QObject, public Encyclopedia
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WikiEncyclopedia)

public:
    WikiEncyclopedia(const QString& site, const QString& contact, const RequestBudget& budget,
                     SearchBudget search, QObject* parent = nullptr);
    ~WikiEncyclopedia() override;

    WikiApi& Api() { return m_api; }

    // A racer's checks may send this many requests to begin with, and this many more for each page
    // of its route: a step that a link explains takes one, a redirect three, a template's new link
    // four or five (the parses of the initial article and the main page are shared by the round).
    static constexpr quint64 kFirstGrant = 10;
    static constexpr quint64 kGrantPerPage = 4;

    void RoundStarts(const QString& initial, const QString& destination,
                     std::function<void(const ShortestRoute&)> found) override;
    void RaceEnds() override;
    void CheckStep(quint64 racer, const QString& from, const QString& page,
                   std::function<void(const StepVerdict&)> done) override;
    void Hurry(quint64 racer) override;
    void Forget(quint64 racer) override;

private:
    struct Step
    {
        QString from;
        QString page;
        std::function<void(const StepVerdict&)> done;
    };
    struct Racer
    {
        std::deque<Step> steps;
        bool checking = false;
    };
    void NextStep(quint64 racer);
    void Delivered(quint64 racer, quint64 generation, const StepVerdict& verdict);

    WikiApi m_api;
    RouteSearch m_search;
    std::function<void(const ShortestRoute&)> m_found;
    std::shared_ptr<RoundFacts> m_facts;
    QHash<quint64, Racer> m_racers;
    quint64 m_generation = 0; // bumped when the checks under way are cancelled
};

} // namespace linkhop::server
