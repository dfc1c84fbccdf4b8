#include "routes.h"

#include "core/pagerules.h"

#include <QPointer>
#include <algorithm>
#include <limits>
#include <memory>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

// --- checking a route ---------------------------------------------------------------------------

namespace {

// One check, step by step; each step's answer keeps it alive until the next.
class RouteCheck final : public std::enable_shared_from_this<RouteCheck>
{
public:
    RouteCheck(WikiApi& api, const QStringList& route, std::function<void(const RouteVerdict&)> done)
        : m_api(api), m_route(route), m_done(std::move(done))
    {
    }

    void Begin()
    {
        m_api.MainPage(
            [self = shared_from_this()](std::optional<QString> page) { self->MainPageKnown(page); }, kUrgent);
    }

private:
    // A winner waits for the answers: these questions go before any search's.
    static constexpr auto kUrgent = WikiApi::Priority::Urgent;

    void MainPageKnown(const std::optional<QString>& page)
    {
        if (!page) return Unchecked();
        m_mainPage = *page;
        m_api.Resolve(
            m_route,
            [self = shared_from_this()](std::optional<QHash<QString, QString>> names) {
                self->Resolved(names);
            },
            kUrgent);
    }

    void Resolved(const std::optional<QHash<QString, QString>>& names)
    {
        if (!names) return Unchecked();
        for (qsizetype i = 0; i < m_route.size(); ++i) {
            const QString name = names->value(m_route[i]);
            if (name.isEmpty() && i > 0)
                return Impossible(int(i), u"there is no article \"%1\""_s.arg(m_route[i]));
            m_names.append(name.isEmpty() ? m_route[i] : name);
        }
        for (qsizetype i = 1; i < m_route.size(); ++i) {
            if (m_names.first(i).contains(m_names[i])) continue; // Back, Forward, or the same page again
            m_linkedSteps.append(int(i));
            if (!m_targets.contains(m_names[i])) m_targets.append(m_names[i]);
        }
        if (m_targets.isEmpty()) return m_done({RouteVerdict::Possible, 0, {}});
        m_api.RedirectsTo(
            m_targets,
            [self = shared_from_this()](std::optional<WikiApi::Links> r) { self->RedirectsKnown(r); },
            kUrgent);
    }

    void RedirectsKnown(const std::optional<WikiApi::Links>& redirects)
    {
        if (!redirects) return Unchecked();
        // A link to a redirect leads where the redirect leads.
        QStringList sources{m_names.first(), m_mainPage}, wanted;
        for (const QString& target : std::as_const(m_targets)) {
            QSet<QString>& names = m_variants[target];
            names = redirects->value(target);
            names.insert(target);
            for (const QString& name : std::as_const(names))
                if (!wanted.contains(name)) wanted.append(name);
        }
        for (int step : std::as_const(m_linkedSteps))
            if (!sources.contains(m_names[step - 1])) sources.append(m_names[step - 1]);
        m_api.LinksAmong(
            sources, wanted,
            [self = shared_from_this()](std::optional<WikiApi::Links> l) { self->LinksKnown(l); }, kUrgent);
    }

    void LinksKnown(const std::optional<WikiApi::Links>& links)
    {
        if (!links) return Unchecked();
        for (int step : std::as_const(m_linkedSteps)) {
            const QSet<QString>& names = m_variants.value(m_names[step]);
            bool linked = false;
            for (const QString& from : {m_names[step - 1], m_names.first(), m_mainPage})
                linked = linked || links->value(from).intersects(names);
            if (!linked)
                return Impossible(
                    step, u"no link leads from \"%1\" to \"%2\""_s.arg(m_route[step - 1], m_route[step]));
        }
        m_done({RouteVerdict::Possible, 0, {}});
    }

    void Unchecked()
    {
        m_done({RouteVerdict::Unchecked, 0, u"the encyclopedia did not answer: "_s + m_api.LastError()});
    }
    void Impossible(int step, const QString& why) { m_done({RouteVerdict::Impossible, step, why}); }

    WikiApi& m_api;
    const QStringList m_route;
    const std::function<void(const RouteVerdict&)> m_done;
    QString m_mainPage;
    QStringList m_names;       // each page as the encyclopedia names it
    QList<int> m_linkedSteps;  // steps that only a link can explain
    QStringList m_targets;     // the pages those steps arrive at
    WikiApi::Links m_variants; // each of them, and the redirects to it
};

} // namespace

void CheckRoute(WikiApi& api, const QStringList& route, std::function<void(const RouteVerdict&)> done)
{
    if (route.size() < 2) return done({RouteVerdict::Possible, 0, {}});
    std::make_shared<RouteCheck>(api, route, std::move(done))->Begin();
}

// --- searching for a shortest route -------------------------------------------------------------

RouteSearch::RouteSearch(WikiApi& api, SearchBudget budget, QObject* parent)
    : QObject(parent), m_api(api), m_budget(budget)
{
}

void RouteSearch::Start(const QString& from, const QString& to)
{
    const quint64 generation = ++m_generation;
    m_running = true;
    m_clock.start();
    m_requestsAtStart = m_api.RequestsSent();
    m_forward = {};
    m_backward = {};
    QPointer<RouteSearch> self(this);
    m_api.MainPage([self, generation, from, to](std::optional<QString> mainPage) {
        if (!self || generation != self->m_generation) return;
        self->m_mainPage = mainPage.value_or(QString());
        self->m_api.Resolve({from, to},
                            [self, generation, from, to](std::optional<QHash<QString, QString>> names) {
                                if (!self || generation != self->m_generation) return;
                                if (!names) return self->Finish(ShortestRoute::Unanswered);
                                self->Resolved(names->value(from), names->value(to));
                            });
    });
}

void RouteSearch::Cancel()
{
    ++m_generation;
    m_running = false;
}

void RouteSearch::Resolved(const QString& from, const QString& to)
{
    if (from.isEmpty() || to.isEmpty()) return Finish(ShortestRoute::NoneWithin);
    if (from == to) return Finish(ShortestRoute::Found, {from});
    m_forward.depth.insert(from, 0);
    m_forward.frontier = {from};
    m_backward.depth.insert(to, 0);
    m_backward.frontier = {to};
    Step();
}

bool RouteSearch::OverBudget() const
{
    return m_api.RequestsSent() - m_requestsAtStart >= m_budget.maxRequests ||
           m_clock.elapsed() >= m_budget.maxMs;
}

bool RouteSearch::Usable(const QString& title) const
{
    return title != m_mainPage && PageCategory(title).isEmpty();
}

void RouteSearch::Step()
{
    if (m_forward.frontier.isEmpty() || m_backward.frontier.isEmpty())
        return Finish(ShortestRoute::NoneWithin);
    const int done = m_forward.depth.value(m_forward.frontier.first()) +
                     m_backward.depth.value(m_backward.frontier.first());
    if (done >= m_budget.maxClicks) return Finish(ShortestRoute::NoneWithin);
    if (OverBudget()) return Finish(ShortestRoute::OverBudget);
    // A page's links take one question each, its backlinks come fifty pages to a question.
    if (m_forward.frontier.size() <= m_backward.frontier.size() / WikiApi::kBatch + 1)
        Forward(0, {});
    else
        Backward({});
}

void RouteSearch::Forward(qsizetype index, QStringList reached)
{
    if (index == m_forward.frontier.size()) return LevelDone(true, reached);
    if (OverBudget()) return Finish(ShortestRoute::OverBudget);
    const QString page = m_forward.frontier[index];
    const int depth = m_forward.depth.value(page) + 1;
    QPointer<RouteSearch> self(this);
    const quint64 generation = m_generation;
    m_api.LinksOf(page,
                  [self, generation, page, depth, index, reached](std::optional<QStringList> links) mutable {
                      if (!self || generation != self->m_generation) return;
                      if (!links) return self->Finish(ShortestRoute::Unanswered);
                      for (const QString& link : std::as_const(*links)) {
                          const bool end = self->m_backward.depth.contains(link);
                          if (self->m_forward.depth.contains(link) || (!end && !self->Usable(link))) continue;
                          self->m_forward.depth.insert(link, depth);
                          self->m_forward.next.insert(link, page);
                          reached.append(link);
                      }
                      self->Forward(index + 1, std::move(reached));
                  });
}

void RouteSearch::Backward(QStringList reached)
{
    const int depth = m_backward.depth.value(m_backward.frontier.first()) + 1;
    QPointer<RouteSearch> self(this);
    const quint64 generation = m_generation;
    // A page linking to a redirect leads, in one click, where the redirect leads.
    auto take = [self, depth](const QHash<QString, QList<WikiApi::Backlink>>& backlinks,
                              const QHash<QString, QString>& leadsTo, QStringList& reached,
                              QHash<QString, QString>& redirects) {
        for (auto it = backlinks.cbegin(); it != backlinks.cend(); ++it) {
            const QString target = leadsTo.value(it.key(), it.key());
            for (const WikiApi::Backlink& link : it.value()) {
                if (link.redirect) {
                    if (!leadsTo.contains(it.key())) redirects.insert(link.title, target);
                    continue;
                }
                const bool end = self->m_forward.depth.contains(link.title);
                if (self->m_backward.depth.contains(link.title) || (!end && !self->Usable(link.title)))
                    continue;
                self->m_backward.depth.insert(link.title, depth);
                self->m_backward.next.insert(link.title, target);
                reached.append(link.title);
            }
        }
    };
    m_api.LinksHere(m_backward.frontier, [self, generation, take, reached](auto backlinks) mutable {
        if (!self || generation != self->m_generation) return;
        if (!backlinks) return self->Finish(ShortestRoute::Unanswered);
        QHash<QString, QString> redirects;
        take(*backlinks, {}, reached, redirects);
        if (redirects.isEmpty()) return self->LevelDone(false, reached);
        self->m_api.LinksHere(redirects.keys(),
                              [self, generation, take, reached, redirects](auto more) mutable {
                                  if (!self || generation != self->m_generation) return;
                                  if (!more) return self->Finish(ShortestRoute::Unanswered);
                                  QHash<QString, QString> ignored; // a redirect to a redirect leads nowhere
                                  take(*more, redirects, reached, ignored);
                                  self->LevelDone(false, reached);
                              });
    });
}

void RouteSearch::LevelDone(bool forward, const QStringList& reached)
{
    Side& side = forward ? m_forward : m_backward;
    const Side& other = forward ? m_backward : m_forward;
    side.frontier = reached;
    // The level is complete: of the pages both sides reached, the one with the fewest clicks.
    QString meeting;
    int best = std::numeric_limits<int>::max();
    for (const QString& page : reached) {
        if (!other.depth.contains(page)) continue;
        const int clicks = m_forward.depth.value(page) + m_backward.depth.value(page);
        if (clicks < best) {
            best = clicks;
            meeting = page;
        }
    }
    if (meeting.isEmpty()) return Step();
    QStringList route{meeting};
    for (QString page = meeting; m_forward.next.contains(page);)
        route.prepend(page = m_forward.next.value(page));
    for (QString page = meeting; m_backward.next.contains(page);)
        route.append(page = m_backward.next.value(page));
    Finish(ShortestRoute::Found, route);
}

void RouteSearch::Finish(ShortestRoute::Outcome outcome, QStringList route)
{
    if (!m_running) return;
    m_running = false;
    ++m_generation;
    const ShortestRoute result{outcome, std::move(route), m_budget.maxClicks,
                               m_api.RequestsSent() - m_requestsAtStart, m_clock.elapsed()};
    Q_EMIT Finished(result);
}

// --- the encyclopedia of a server ---------------------------------------------------------------

WikiEncyclopedia::WikiEncyclopedia(const QString& site, SearchBudget budget, QObject* parent)
    : QObject(parent), m_api(site), m_search(m_api, budget)
{
    connect(&m_search, &RouteSearch::Finished, this, [this](const ShortestRoute& result) {
        if (const auto found = std::exchange(m_found, nullptr)) found(result);
    });
}

void WikiEncyclopedia::RoundStarts(const QString& initial, const QString& destination,
                                   std::function<void(const ShortestRoute&)> found)
{
    m_search.Cancel();
    m_api.ClearCache();
    m_found = std::move(found);
    m_search.Start(initial, destination);
}

void WikiEncyclopedia::CheckRoute(const QStringList& route, std::function<void(const RouteVerdict&)> done)
{
    server::CheckRoute(m_api, route, std::move(done));
}

} // namespace linkhop::server
