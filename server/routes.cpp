#include "routes.h"

#include "core/pagerules.h"

#include <QPointer>
#include <algorithm>
#include <limits>
#include <memory>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

// --- checking a route ---------------------------------------------------------------------------

namespace {

struct RouteCheck
{
    WikiApi& api;
    QStringList route;
    std::function<void(const RouteVerdict&)> done;
    QString mainPage{};
    QStringList canonical{};  // each page as the encyclopedia names it
    QList<int> linkedSteps{}; // steps that only a link can explain
    WikiApi::Links variants{};

    void Unchecked()
    {
        done({RouteVerdict::Unchecked, 0, u"the encyclopedia did not answer: "_s + api.LastError()});
    }
    void Impossible(int step, const QString& why) { done({RouteVerdict::Impossible, step, why}); }
};

} // namespace

void CheckRoute(WikiApi& api, const QStringList& route, std::function<void(const RouteVerdict&)> done)
{
    if (route.size() < 2) return done({RouteVerdict::Possible, 0, {}});
    auto check = std::make_shared<RouteCheck>(RouteCheck{api, route, std::move(done)});
    api.MainPage([check](std::optional<QString> mainPage) {
        if (!mainPage) return check->Unchecked();
        check->mainPage = *mainPage;
        check->api.Resolve(check->route, [check](std::optional<QHash<QString, QString>> resolved) {
            if (!resolved) return check->Unchecked();
            const QStringList& route = check->route;
            for (qsizetype i = 0; i < route.size(); ++i) {
                const QString name = resolved->value(route[i]);
                if (name.isEmpty() && i > 0)
                    return check->Impossible(int(i), u"there is no article \"%1\""_s.arg(route[i]));
                check->canonical.append(name.isEmpty() ? route[i] : name);
            }
            QStringList targets;
            for (qsizetype i = 1; i < route.size(); ++i) {
                const QString& page = check->canonical[i];
                if (check->canonical.first(i).contains(page))
                    continue; // Back, Forward, or the same page again
                check->linkedSteps.append(int(i));
                if (!targets.contains(page)) targets.append(page);
            }
            if (targets.isEmpty()) return check->done({RouteVerdict::Possible, 0, {}});
            check->api.RedirectsTo(targets, [check, targets](std::optional<WikiApi::Links> redirects) {
                if (!redirects) return check->Unchecked();
                QStringList sources{check->canonical.first(), check->mainPage}, wanted;
                for (const QString& target : targets) {
                    QSet<QString>& names = check->variants[target];
                    names = redirects->value(target);
                    names.insert(target);
                    for (const QString& name : std::as_const(names))
                        if (!wanted.contains(name)) wanted.append(name);
                }
                for (int step : std::as_const(check->linkedSteps))
                    if (!sources.contains(check->canonical[step - 1]))
                        sources.append(check->canonical[step - 1]);
                check->api.LinksAmong(sources, wanted, [check](std::optional<WikiApi::Links> links) {
                    if (!links) return check->Unchecked();
                    for (int step : std::as_const(check->linkedSteps)) {
                        const QSet<QString>& names = check->variants.value(check->canonical[step]);
                        const bool linked =
                            std::any_of(names.cbegin(), names.cend(), [&](const QString& name) {
                                for (const QString& from :
                                     {check->canonical[step - 1], check->canonical.first(), check->mainPage})
                                    if (links->value(from).contains(name)) return true;
                                return false;
                            });
                        if (!linked)
                            return check->Impossible(step, u"no link leads from \"%1\" to \"%2\""_s.arg(
                                                               check->route[step - 1], check->route[step]));
                    }
                    check->done({RouteVerdict::Possible, 0, {}});
                });
            });
        });
    });
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
                                if (!names) return self->Finish({}, true);
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
    if (from.isEmpty() || to.isEmpty()) return Finish({}, false);
    if (from == to) return Finish({from}, false);
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
    if (m_forward.frontier.isEmpty() || m_backward.frontier.isEmpty()) return Finish({}, false);
    const int done = m_forward.depth.value(m_forward.frontier.first()) +
                     m_backward.depth.value(m_backward.frontier.first());
    if (done >= m_budget.maxClicks) return Finish({}, false);
    if (OverBudget()) return Finish({}, true);
    // A page's links take one question each, its backlinks come fifty pages to a question.
    if (m_forward.frontier.size() <= m_backward.frontier.size() / WikiApi::kBatch + 1)
        Forward(0, {});
    else
        Backward({});
}

void RouteSearch::Forward(qsizetype index, QStringList reached)
{
    if (index == m_forward.frontier.size()) return LevelDone(true, reached);
    if (OverBudget()) return Finish({}, true);
    const QString page = m_forward.frontier[index];
    const int depth = m_forward.depth.value(page) + 1;
    QPointer<RouteSearch> self(this);
    const quint64 generation = m_generation;
    m_api.LinksOf(page,
                  [self, generation, page, depth, index, reached](std::optional<QStringList> links) mutable {
                      if (!self || generation != self->m_generation) return;
                      if (!links) return self->Finish({}, true);
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
        if (!backlinks) return self->Finish({}, true);
        QHash<QString, QString> redirects;
        take(*backlinks, {}, reached, redirects);
        if (redirects.isEmpty()) return self->LevelDone(false, reached);
        self->m_api.LinksHere(redirects.keys(),
                              [self, generation, take, reached, redirects](auto more) mutable {
                                  if (!self || generation != self->m_generation) return;
                                  if (!more) return self->Finish({}, true);
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
    Finish(route, false);
}

void RouteSearch::Finish(QStringList route, bool exhausted)
{
    if (!m_running) return;
    m_running = false;
    ++m_generation;
    Result result{std::move(route), exhausted, m_api.RequestsSent() - m_requestsAtStart, m_clock.elapsed()};
    Q_EMIT Finished(result);
}

} // namespace linkhop::server
