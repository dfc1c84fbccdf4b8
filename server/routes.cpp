#include "routes.h"

#include "core/pagerules.h"

#include <QJsonArray>
#include <QPointer>
#include <QTimer>
#include <algorithm>
#include <cmath>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

constexpr int kFileNamespace = 6;
// Pages of one question a check reads before it goes on with what it has.
constexpr int kCheckPages = 4;
// Titles per request, as the API takes them.
constexpr qsizetype kBatch = 50;

QJsonArray Array(const QJsonObject& object, QStringView key)
{
    return object.value(key).toArray();
}

QStringList Unique(const QStringList& titles)
{
    QStringList unique;
    for (const QString& title : titles)
        if (!title.isEmpty() && !unique.contains(title)) unique.append(title);
    return unique;
}

// A file's name without its namespace, as a parse lists the images of a page.
QString FileName(const QString& title)
{
    return title.section(u':', 1);
}

// What the link tables say of one page.
struct PageFacts
{
    int ns = 0;
    bool missing = false;
    bool invalid = false;
    QSet<QString> links;
    QSet<QString> images;
};

// The pages of an action=query answer, by title, added to what earlier pages of it said.
void TakePages(const QJsonObject& answer, QHash<QString, PageFacts>& pages, QHash<QString, QString>& normalized)
{
    const QJsonObject query = answer[u"query"].toObject();
    for (const QJsonValue& entry : Array(query, u"normalized"))
        normalized.insert(entry[u"from"].toString(), entry[u"to"].toString());
    for (const QJsonValue& page : Array(query, u"pages")) {
        PageFacts& facts = pages[page[u"title"].toString()];
        facts.ns = page[u"ns"].toInt();
        facts.missing = page[u"missing"].toBool();
        facts.invalid = page[u"invalid"].toBool();
        for (const QJsonValue& link : page[u"links"].toArray())
            facts.links.insert(link[u"title"].toString());
        for (const QJsonValue& image : page[u"images"].toArray())
            facts.images.insert(image[u"title"].toString());
    }
}

StepVerdict Failure(const WikiApi::Reply& reply)
{
    switch (reply.status) {
    case WikiApi::Reply::Refused:
        return {StepVerdict::Refused, reply.why};
    case WikiApi::Reply::RoundSpent:
        return {StepVerdict::RoundSpent, reply.why};
    default:
        return {StepVerdict::Unchecked, u"the encyclopedia did not answer: "_s + reply.why};
    }
}

} // namespace

// A fresh parse of a page: the links and images it shows now.
struct Parsed
{
    QSet<QString> links;
    QSet<QString> images; // file names, without the namespace
};

struct RoundFacts
{
    QString initial;      // as the chooser wrote it
    QString shownInitial; // the page the search for it shows
    QString mainPage;
    bool known = false;
    bool asking = false;
    std::vector<std::function<void(const WikiApi::Reply&)>> waiting;
    QHash<QString, std::shared_ptr<const Parsed>> parsed; // this round's, by title
};

namespace {

// The round's facts, asked once in the round's own lane; `then` gets the reply that told them.
void WithFacts(WikiApi& api, const std::shared_ptr<RoundFacts>& facts, std::function<void(const WikiApi::Reply&)> then)
{
    if (facts->known) return then(WikiApi::Reply{WikiApi::Reply::Answered, {}, {}, {}});
    facts->waiting.push_back(std::move(then));
    if (facts->asking) return;
    facts->asking = true;
    api.Ask(WikiApi::kRoundLane,
            {{u"action"_s, u"query"_s},
             {u"meta"_s, u"siteinfo"_s},
             {u"siprop"_s, u"general"_s},
             {u"titles"_s, facts->initial},
             {u"redirects"_s, u"1"_s}},
            [facts](const WikiApi::Reply& reply) {
                facts->asking = false;
                if (reply.status == WikiApi::Reply::Answered) {
                    const QJsonObject query = reply.json[u"query"].toObject();
                    facts->mainPage = query[u"general"][u"mainpage"].toString();
                    QString shown = facts->initial;
                    for (const QString& key : {u"normalized"_s, u"redirects"_s})
                        for (const QJsonValue& entry : Array(query, key))
                            if (entry[u"from"].toString() == shown) shown = entry[u"to"].toString();
                    facts->shownInitial = shown;
                    facts->known = !facts->mainPage.isEmpty();
                }
                WikiApi::Reply told = reply;
                if (reply.status == WikiApi::Reply::Answered && !facts->known) {
                    told.status = WikiApi::Reply::Failed;
                    told.why = u"the API named no main page"_s;
                }
                // A check that failed here asks again next time: the encyclopedia may be back.
                const auto waiting = std::exchange(facts->waiting, {});
                for (const auto& then : waiting)
                    then(told);
            });
}

// One step's check, question by question; each answer keeps it alive until the next.
class StepCheck final : public std::enable_shared_from_this<StepCheck>
{
public:
    StepCheck(WikiApi& api, quint64 lane, std::shared_ptr<RoundFacts> facts, QString from, QString page,
              std::function<void(const StepVerdict&)> done)
        : m_api(api), m_lane(lane), m_facts(std::move(facts)), m_from(std::move(from)), m_page(std::move(page)),
          m_done(std::move(done))
    {
    }

    void Begin()
    {
        WithFacts(m_api, m_facts, [self = shared_from_this()](const WikiApi::Reply& reply) {
            if (reply.status != WikiApi::Reply::Answered) return self->Fail(reply);
            self->AskTables();
        });
    }

private:
    // Whose links may explain the step: the page before, and the pages a client never reports.
    QStringList Sources() const { return Unique({m_from, m_facts->shownInitial, m_facts->mainPage}); }

    void AskTables()
    {
        // The main page is a click away from any page: its logo.
        if (m_page == m_facts->mainPage) return Possible();
        m_api.AskAll(
            m_lane,
            {{u"action"_s, u"query"_s},
             {u"titles"_s, Unique(Sources() << m_page).join(u'|')},
             {u"prop"_s, u"links|images|info"_s},
             {u"pltitles"_s, m_page},
             {u"imimages"_s, Unique({m_page, m_from}).join(u'|')},
             {u"pllimit"_s, u"max"_s},
             {u"imlimit"_s, u"max"_s}},
            kCheckPages,
            [self = shared_from_this()](const QJsonObject& answer) {
                TakePages(answer, self->m_pages, self->m_normalized);
            },
            [self = shared_from_this()](const WikiApi::Reply& last, bool) { self->TablesKnown(last); });
    }

    QString Name(const QString& title) const { return m_normalized.value(title, title); }

    void TablesKnown(const WikiApi::Reply& last)
    {
        if (last.status != WikiApi::Reply::Answered) return Fail(last);
        m_name = Name(m_page);
        const PageFacts page = m_pages.value(m_name);
        if (page.invalid || !m_pages.contains(m_name))
            return Impossible(u"no page of the encyclopedia can be called \"%1\""_s.arg(m_page));
        if (page.missing) return Impossible(u"there is no article \"%1\""_s.arg(m_page));
        m_pageNs = page.ns;
        m_fromNs = m_pages.value(Name(m_from)).ns;
        for (const QString& source : Sources()) {
            const PageFacts& facts = m_pages.value(Name(source));
            if (facts.links.contains(m_name) || facts.images.contains(m_name)) return Possible();
            // A file's page lists the pages that show it.
            if (page.images.contains(Name(source))) return Possible();
        }
        m_api.AskAll(
            m_lane,
            {{u"action"_s, u"query"_s},
             {u"titles"_s, m_name},
             {u"prop"_s, u"redirects"_s},
             {u"rdprop"_s, u"title"_s},
             {u"rdlimit"_s, u"max"_s}},
            kCheckPages,
            [self = shared_from_this()](const QJsonObject& answer) {
                for (const QJsonValue& page : Array(answer[u"query"].toObject(), u"pages"))
                    for (const QJsonValue& redirect : page[u"redirects"].toArray())
                        self->m_variants.insert(redirect[u"title"].toString());
            },
            [self = shared_from_this()](const WikiApi::Reply& last, bool) { self->RedirectsKnown(last); });
    }

    // A link to a redirect, of any namespace, shows the page it leads to.
    void RedirectsKnown(const WikiApi::Reply& last)
    {
        if (last.status != WikiApi::Reply::Answered) return Fail(last);
        m_batches.clear();
        QStringList variants = m_variants.values();
        std::sort(variants.begin(), variants.end());
        for (qsizetype i = 0; i < variants.size() && m_batches.size() < kCheckPages; i += kBatch)
            m_batches.append(variants.mid(i, kBatch));
        m_variants.insert(m_name);
        AskRedirectLinks();
    }

    void AskRedirectLinks()
    {
        if (m_batches.isEmpty()) return AskParses();
        const QStringList batch = m_batches.takeFirst();
        m_pages.clear();
        m_api.AskAll(
            m_lane,
            {{u"action"_s, u"query"_s},
             {u"titles"_s, Sources().join(u'|')},
             {u"prop"_s, u"links"_s},
             {u"pltitles"_s, batch.join(u'|')},
             {u"pllimit"_s, u"max"_s}},
            kCheckPages,
            [self = shared_from_this()](const QJsonObject& answer) {
                TakePages(answer, self->m_pages, self->m_normalized);
            },
            [self = shared_from_this()](const WikiApi::Reply& last, bool) {
                if (last.status != WikiApi::Reply::Answered) return self->Fail(last);
                for (const PageFacts& facts : std::as_const(self->m_pages))
                    if (facts.links.intersects(self->m_variants)) return self->Possible();
                self->AskRedirectLinks();
            });
    }

    // The link tables lag behind template edits by minutes to days: before the step puts the racer
    // out, the pages it may come from are parsed afresh, as a reader sees them now.
    void AskParses()
    {
        m_toParse = Sources();
        // A file's usage, too, can come from a template.
        if (m_fromNs == kFileNamespace) m_toParse.append(m_name);
        NextParse();
    }

    void NextParse()
    {
        if (m_toParse.isEmpty())
            return Impossible(u"no link leads from \"%1\" to \"%2\""_s.arg(m_from, m_page));
        const QString title = m_toParse.takeFirst();
        const auto judge = [self = shared_from_this(), title](const Parsed& parsed) {
            const bool usesFrom = title == self->m_name && parsed.images.contains(FileName(self->Name(self->m_from)));
            const bool showsPage =
                title != self->m_name && (parsed.links.intersects(self->m_variants) ||
                                          (self->m_pageNs == kFileNamespace && parsed.images.contains(FileName(self->m_name))));
            if (usesFrom || showsPage) return self->Possible();
            self->NextParse();
        };
        if (const auto cached = m_facts->parsed.value(title)) return judge(*cached);
        m_api.Ask(m_lane,
                  {{u"action"_s, u"parse"_s}, {u"page"_s, title}, {u"prop"_s, u"links|images"_s}},
                  [self = shared_from_this(), title, judge](const WikiApi::Reply& reply) {
                      auto parsed = std::make_shared<Parsed>();
                      // A page that is not there has nothing to show.
                      if (reply.status != WikiApi::Reply::Answered && reply.code != u"missingtitle")
                          return self->Fail(reply);
                      const QJsonObject parse = reply.json[u"parse"].toObject();
                      for (const QJsonValue& link : Array(parse, u"links"))
                          parsed->links.insert(link[u"title"].toString());
                      // Images come as the database names them, "_" for a space.
                      for (const QJsonValue& image : Array(parse, u"images"))
                          parsed->images.insert(image.toString().replace(u'_', u' '));
                      self->m_facts->parsed.insert(title, parsed);
                      judge(*parsed);
                  });
    }

    void Possible() { m_done({StepVerdict::Possible, {}}); }
    void Impossible(const QString& why) { m_done({StepVerdict::Impossible, why}); }
    void Fail(const WikiApi::Reply& reply)
    {
        if (reply.status != WikiApi::Reply::Cancelled) m_done(Failure(reply));
    }

    WikiApi& m_api;
    const quint64 m_lane;
    const std::shared_ptr<RoundFacts> m_facts;
    const QString m_from;
    const QString m_page;
    const std::function<void(const StepVerdict&)> m_done;
    QHash<QString, PageFacts> m_pages;
    QHash<QString, QString> m_normalized;
    QString m_name; // the page as the encyclopedia names it
    int m_pageNs = 0;
    int m_fromNs = 0;
    QSet<QString> m_variants; // the page and the redirects to it
    QList<QStringList> m_batches;
    QStringList m_toParse;
};

} // namespace

void CheckStep(WikiApi& api, quint64 lane, const std::shared_ptr<RoundFacts>& facts, const QString& from,
               const QString& page, std::function<void(const StepVerdict&)> done)
{
    std::make_shared<StepCheck>(api, lane, facts, from, page, std::move(done))->Begin();
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
    m_requests = 1;
    m_forward = {};
    m_backward = {};
    m_meeting.clear();
    m_best = -1;
    QPointer<RouteSearch> self(this);
    m_api.Ask(WikiApi::kSearchLane,
              {{u"action"_s, u"query"_s},
               {u"meta"_s, u"siteinfo"_s},
               {u"siprop"_s, u"general"_s},
               {u"titles"_s, Unique({from, to}).join(u'|')},
               {u"redirects"_s, u"1"_s}},
              [self, generation, from, to](const WikiApi::Reply& reply) {
                  if (!self || generation != self->m_generation) return;
                  if (reply.status != WikiApi::Reply::Answered)
                      return self->Finish(reply.status == WikiApi::Reply::Failed ? ShortestRoute::Unanswered
                                                                                 : ShortestRoute::OverBudget);
                  const QJsonObject query = reply.json[u"query"].toObject();
                  self->m_mainPage = query[u"general"][u"mainpage"].toString();
                  QHash<QString, QString> name;
                  for (const QString& key : {u"normalized"_s, u"redirects"_s})
                      for (const QJsonValue& entry : Array(query, key))
                          name.insert(entry[u"from"].toString(), entry[u"to"].toString());
                  QSet<QString> existing;
                  for (const QJsonValue& page : Array(query, u"pages"))
                      if (!page[u"missing"].toBool() && !page[u"invalid"].toBool())
                          existing.insert(page[u"title"].toString());
                  const auto resolve = [&](QString title) {
                      for (int hops = 0; hops < 3 && name.contains(title); ++hops)
                          title = name.value(title);
                      return existing.contains(title) ? title : QString();
                  };
                  self->Resolved(resolve(from), resolve(to));
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
    if (from == to) {
        m_meeting = from;
        return Finish(ShortestRoute::Found);
    }
    m_forward.depth.insert(from, 0);
    m_forward.frontier = {from};
    m_backward.depth.insert(to, 0);
    m_backward.frontier = {to};
    Step();
}

bool RouteSearch::Usable(const QString& title) const
{
    return title != m_mainPage && PageCategory(title).isEmpty();
}

bool RouteSearch::LevelDone(const Side& side, bool forward) const
{
    return side.question.isEmpty() && side.at == side.frontier.size() &&
           (forward || side.redirectsAt == side.redirects.size());
}

// Requests still to go on the side's level: a page's links take one or more, fifty pages'
// backlinks one or more. A question under way is taken to need as many pages again as it has had.
double RouteSearch::Remaining(const Side& side, bool forward) const
{
    const double pending = side.question.isEmpty() ? 0 : std::max(1, side.questionPages);
    if (forward) return double(side.frontier.size() - side.at) + pending;
    return std::ceil(double(side.frontier.size() - side.at) / kBatch) +
           std::ceil(double(side.redirects.size() - side.redirectsAt) / kBatch) + pending;
}

void RouteSearch::Step()
{
    // A route of `m_best` clicks is the shortest once every route of fewer clicks would have been
    // seen: both sides have asked about every page of `level` clicks from their ends.
    const int asked = m_forward.level + m_backward.level;
    if (m_best >= 0 && m_best <= asked + 1) return Finish(ShortestRoute::Found);
    if (asked >= m_budget.maxClicks) return Finish(ShortestRoute::NoneWithin);
    for (Side* side : {&m_forward, &m_backward}) {
        if (!LevelDone(*side, side == &m_forward)) continue;
        if (side->reached.isEmpty() && side->at > 0) return Finish(ShortestRoute::NoneWithin);
        side->frontier = std::exchange(side->reached, {});
        ++side->level;
        side->at = 0;
        side->redirects.clear();
        side->target.clear();
        side->redirectsAt = 0;
        return Step();
    }
    if (m_requests >= m_budget.maxRequests || m_clock.elapsed() >= m_budget.maxMs)
        return Finish(ShortestRoute::OverBudget);

    const bool forward = Remaining(m_forward, true) <= Remaining(m_backward, false);
    Side& side = forward ? m_forward : m_backward;
    if (!side.question.isEmpty()) return Ask(forward, side.question);
    side.questionPages = 0;
    if (forward) {
        const QString page = side.frontier[side.at++];
        side.asking = page;
        side.question = {{u"action"_s, u"query"_s},
                         {u"generator"_s, u"links"_s},
                         {u"titles"_s, page},
                         {u"redirects"_s, u"1"_s},
                         {u"gplnamespace"_s, u"0"_s},
                         {u"gpllimit"_s, u"max"_s}};
    } else {
        side.aboutRedirects = side.at == side.frontier.size();
        const QStringList batch = side.aboutRedirects ? side.redirects.mid(side.redirectsAt, kBatch)
                                                      : side.frontier.mid(side.at, kBatch);
        (side.aboutRedirects ? side.redirectsAt : side.at) += batch.size();
        side.question = {{u"action"_s, u"query"_s},
                         {u"prop"_s, u"linkshere"_s},
                         {u"titles"_s, batch.join(u'|')},
                         {u"lhprop"_s, u"title|redirect"_s},
                         {u"lhnamespace"_s, u"0"_s},
                         {u"lhlimit"_s, u"max"_s}};
    }
    Ask(forward, side.question);
}

void RouteSearch::Ask(bool forward, const WikiApi::Params& params)
{
    ++m_requests;
    QPointer<RouteSearch> self(this);
    m_api.Ask(WikiApi::kSearchLane, params, [self, generation = m_generation, forward](const WikiApi::Reply& reply) {
        if (!self || generation != self->m_generation) return;
        switch (reply.status) {
        case WikiApi::Reply::Answered:
            return self->Answered(forward, reply.json);
        case WikiApi::Reply::Failed:
            return self->Finish(ShortestRoute::Unanswered);
        case WikiApi::Reply::Cancelled:
            return;
        default:
            return self->Finish(ShortestRoute::OverBudget);
        }
    });
}

void RouteSearch::Answered(bool forward, const QJsonObject& answer)
{
    Side& side = forward ? m_forward : m_backward;
    const QJsonObject query = answer[u"query"].toObject();
    if (forward) {
        const QString from = side.asking;
        for (const QJsonValue& page : Array(query, u"pages"))
            if (!page[u"missing"].toBool() && !page[u"invalid"].toBool() && page[u"ns"].toInt() == 0)
                Discover(true, page[u"title"].toString(), from);
    } else {
        for (const QJsonValue& page : Array(query, u"pages")) {
            const QString title = page[u"title"].toString();
            const QString leadsTo = side.aboutRedirects ? side.target.value(title, title) : title;
            for (const QJsonValue& link : page[u"linkshere"].toArray()) {
                const QString source = link[u"title"].toString();
                if (!link[u"redirect"].toBool()) {
                    Discover(false, source, leadsTo);
                } else if (!side.aboutRedirects && !side.target.contains(source)) {
                    // A page linking to a redirect leads, in one click, where the redirect leads.
                    side.target.insert(source, leadsTo);
                    side.redirects.append(source);
                }
            }
        }
    }
    const QJsonObject more = answer[u"continue"].toObject();
    if (more.isEmpty()) {
        side.question.clear();
    } else {
        ++side.questionPages;
        for (auto it = more.begin(); it != more.end(); ++it) {
            side.question.removeIf([&](const auto& item) { return item.first == it.key(); });
            side.question.append({it.key(), it.value().toString()});
        }
    }
    Step();
}

void RouteSearch::Discover(bool forward, const QString& page, const QString& next)
{
    Side& side = forward ? m_forward : m_backward;
    const Side& other = forward ? m_backward : m_forward;
    if (side.depth.contains(page)) return;
    const bool end = other.depth.value(page, -1) == 0;
    if (!end && !Usable(page)) return;
    const int depth = side.level + 1;
    side.depth.insert(page, depth);
    side.next.insert(page, next);
    side.reached.append(page);
    if (const int there = other.depth.value(page, -1); there >= 0 && (m_best < 0 || depth + there < m_best)) {
        m_best = depth + there;
        m_meeting = page;
    }
}

void RouteSearch::Finish(ShortestRoute::Outcome outcome)
{
    if (!m_running) return;
    m_running = false;
    ++m_generation;
    QStringList route;
    if (outcome == ShortestRoute::Found) {
        route = {m_meeting};
        for (QString page = m_meeting; m_forward.next.contains(page);)
            route.prepend(page = m_forward.next.value(page));
        for (QString page = m_meeting; m_backward.next.contains(page);)
            route.append(page = m_backward.next.value(page));
    }
    const ShortestRoute result{outcome, route, m_budget.maxClicks, m_requests, m_clock.elapsed()};
    Q_EMIT Finished(result);
}

// --- the encyclopedia of a server ---------------------------------------------------------------

WikiEncyclopedia::WikiEncyclopedia(const QString& site, const QString& contact, const RequestBudget& budget,
                                   SearchBudget search, QObject* parent)
    : QObject(parent), m_api(site, contact), m_search(m_api, search)
{
    m_api.SetBudget(budget);
    connect(&m_search, &RouteSearch::Finished, this, [this](const ShortestRoute& result) {
        if (const auto found = std::exchange(m_found, nullptr)) found(result);
    });
}

WikiEncyclopedia::~WikiEncyclopedia()
{
    // Checks waiting for the round's facts hold them in turn: nobody will answer them now.
    if (m_facts) m_facts->waiting.clear();
}

void WikiEncyclopedia::RoundStarts(const QString& initial, const QString& destination,
                                   std::function<void(const ShortestRoute&)> found)
{
    m_search.Cancel();
    ++m_generation;
    m_racers.clear();
    m_api.StartRound();
    m_facts = std::make_shared<RoundFacts>();
    m_facts->initial = initial;
    // Asked at once: the first step's check needs them, and goes before the search.
    WithFacts(m_api, m_facts, [](const WikiApi::Reply&) {});
    m_found = std::move(found);
    m_search.Start(initial, destination);
}

void WikiEncyclopedia::RaceEnds()
{
    ++m_generation;
    m_racers.clear();
    m_api.DropRacers();
}

void WikiEncyclopedia::CheckStep(quint64 racer, const QString& from, const QString& page,
                                 std::function<void(const StepVerdict&)> done)
{
    if (!m_facts) return;
    m_api.Grant(racer, (m_racers.contains(racer) ? 0 : kFirstGrant) + kGrantPerPage);
    Racer& checks = m_racers[racer];
    checks.steps.push_back({from, page, std::move(done)});
    if (!checks.checking) NextStep(racer);
}

void WikiEncyclopedia::NextStep(quint64 racer)
{
    const auto it = m_racers.find(racer);
    if (it == m_racers.end() || it->steps.empty()) {
        if (it != m_racers.end()) it->checking = false;
        return;
    }
    it->checking = true;
    const Step& step = it->steps.front();
    QPointer<WikiEncyclopedia> self(this);
    server::CheckStep(m_api, racer, m_facts, step.from, step.page,
                      [self, racer, generation = m_generation](const StepVerdict& verdict) {
                          // Never from inside the call that asked: a verdict may come at once.
                          if (!self) return;
                          QTimer::singleShot(0, self.data(), [self, racer, generation, verdict] {
                              if (self) self->Delivered(racer, generation, verdict);
                          });
                      });
}

void WikiEncyclopedia::Delivered(quint64 racer, quint64 generation, const StepVerdict& verdict)
{
    if (generation != m_generation) return;
    const auto it = m_racers.find(racer);
    if (it == m_racers.end() || it->steps.empty()) return;
    const auto done = std::move(it->steps.front().done);
    it->steps.pop_front();
    // The referee may forget the racer, or end the race, on this verdict.
    done(verdict);
    if (generation == m_generation) NextStep(racer);
}


void WikiEncyclopedia::Hurry(quint64 racer)
{
    m_api.Hurry(racer);
}

void WikiEncyclopedia::Forget(quint64 racer)
{
    m_racers.remove(racer);
    m_api.Drop(racer);
}

} // namespace linkhop::server
