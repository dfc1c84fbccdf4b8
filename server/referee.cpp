#include "referee.h"

#include "textrules.h"

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

Referee::Referee(Rules rules, RefereeOutput& output, Clock clock)
    : m_rules(rules), m_output(output), m_clock(std::move(clock)), m_self(std::make_shared<Referee*>(this))
{
}

Referee::~Referee()
{
    *m_self = nullptr;
}

qsizetype Referee::MaxPages(qint64 elapsedMs) const
{
    return m_rules.QuickPages + qsizetype(std::max<qint64>(0, elapsedMs) / std::max<qint64>(1, m_rules.MsPerClick));
}

void Referee::StartRace(const QString& initial, const QString& destination, const QList<quint64>& racers)
{
    ++m_round;
    m_running = true;
    m_initial = initial;
    m_destination = destination;
    m_destinationKey = ArticleKey(destination);
    m_startMs = m_clock();
    m_racers.clear();
    m_arrivals.clear();
    m_shortest.reset();
    m_shortestWanted = false;
    m_winner.clear();
    for (quint64 racer : racers)
        Enter(racer);
    if (!m_encyclopedia) return;
    const std::weak_ptr<Referee*> self = m_self;
    m_encyclopedia->RoundStarts(initial, destination, [self, round = m_round](const ShortestRoute& found) {
        if (const auto referee = self.lock(); referee && *referee) (*referee)->Found(round, found);
    });
}

void Referee::Enter(quint64 racer)
{
    if (!m_running) return;
    Racer& entered = m_racers[racer];
    entered = Racer{};
    entered.seen.insert(ArticleKey(m_initial));
}

Referee::Call Referee::Navigate(quint64 id, const QString& page)
{
    const auto it = m_racers.find(id);
    if (!m_running || it == m_racers.end() || it->arrived) return Call::Ignored;
    Racer& racer = *it;
    const QString key = ArticleKey(page);
    // A client reports each page once: the same page again is no click.
    if (!racer.last.isEmpty() && key == ArticleKey(racer.last)) return Call::Ignored;
    if (IsForbiddenWord(page)) return Out(id, page, {});
    const QString from = racer.last.isEmpty() ? m_initial : racer.last;
    if (const QString problem = TitleProblem(page); !problem.isEmpty())
        return Out(id, {},
                   u"no link leads from \"%1\" to \"%2\": no page can have %3"_s.arg(ShownTitle(from),
                                                                                    ShownTitle(page), problem));
    racer.last = page;
    // Back, Forward and a return to the initial article need no question: those pages were reached.
    if (!racer.seen.contains(key)) {
        const qint64 elapsed = m_clock() - m_startMs;
        if (racer.pages >= MaxPages(elapsed))
            return Out(id, {},
                       u"%1 new pages in %2 are more than anyone clicks"_s.arg(racer.pages + 1).arg(Duration(elapsed)));
        ++racer.pages;
        racer.seen.insert(key);
        if (m_encyclopedia) {
            ++racer.checking;
            const std::weak_ptr<Referee*> self = m_self;
            m_encyclopedia->CheckStep(id, from, page, [self, round = m_round, id](const StepVerdict& verdict) {
                if (const auto referee = self.lock(); referee && *referee) (*referee)->Verdict(round, id, verdict);
            });
        }
    }
    if (key != m_destinationKey) return Call::Click;
    racer.arrived = true;
    m_arrivals.push_back(id);
    if (m_encyclopedia) m_encyclopedia->Hurry(id);
    return Call::Arrived;
}

Referee::Call Referee::Out(quint64 racer, const QString& notice, const QString& why)
{
    m_racers.remove(racer);
    std::erase(m_arrivals, racer);
    if (m_encyclopedia) m_encyclopedia->Forget(racer);
    // Last: the room may end the round on it.
    m_output.Disqualified(racer, notice, why);
    return Call::Out;
}

void Referee::Verdict(quint64 round, quint64 id, const StepVerdict& verdict)
{
    if (round != m_round || !m_running) return;
    const auto it = m_racers.find(id);
    if (it == m_racers.end()) return;
    --it->checking;
    switch (verdict.kind) {
    case StepVerdict::Possible:
        break;
    case StepVerdict::Unchecked:
        it->unchecked.append(verdict.why);
        break;
    case StepVerdict::Impossible:
        Out(id, {}, verdict.why);
        return Settle();
    case StepVerdict::Refused:
        m_output.Log(u"racer %1: %2"_s.arg(id).arg(verdict.why));
        Out(id, {}, u"checking the route would take more requests to the encyclopedia than one racer may send"_s);
        return Settle();
    case StepVerdict::RoundSpent:
        m_output.Log(verdict.why);
        return m_output.RaceEnded(
            u"The encyclopedia has been asked all that one round may ask: no route can be vouched for any "
            u"more, and the round ends without a winner."_s);
    }
    Settle();
}

void Referee::Settle()
{
    // Whoever arrived first wins if the route stands; a later arrival waits for the earlier ones.
    while (m_running && !m_arrivals.empty()) {
        const auto it = m_racers.find(m_arrivals.front());
        if (it == m_racers.end() || !it->arrived) {
            m_arrivals.pop_front();
            continue;
        }
        if (it->checking > 0) return;
        const quint64 winner = it.key();
        const QString unchecked = it->unchecked.join(u"; "_s);
        m_arrivals.pop_front();
        return m_output.Won(winner, unchecked);
    }
}

void Referee::Leave(quint64 racer)
{
    if (!m_racers.remove(racer)) return;
    std::erase(m_arrivals, racer);
    if (m_encyclopedia) m_encyclopedia->Forget(racer);
}

void Referee::RaceOver(const QString& winner, qint32 clicks)
{
    m_running = false;
    m_racers.clear();
    m_arrivals.clear();
    m_winner = winner;
    m_winnerClicks = clicks;
    if (m_encyclopedia) m_encyclopedia->RaceEnds();
}

void Referee::Found(quint64 round, const ShortestRoute& found)
{
    if (round != m_round) return;
    m_shortest = found;
    m_output.Log(u"shortest route: %1 (%2 requests, %3 ms)"_s.arg(ShortestRouteLine()).arg(found.requests).arg(found.ms));
    if (m_shortestWanted) TellShortestRoute();
}

void Referee::TellShortestRoute()
{
    if (!m_encyclopedia) return;
    if (!m_shortest) {
        m_shortestWanted = true;
        return;
    }
    m_shortestWanted = false;
    m_output.Tell(ShortestRouteLine());
}

QString Referee::ShortestRouteLine() const
{
    if (!m_shortest) return {};
    const ShortestRoute& found = *m_shortest;
    const auto clicks = [](qsizetype n) { return n == 1 ? u"1 click"_s : u"%1 clicks"_s.arg(n); };
    switch (found.outcome) {
    case ShortestRoute::Found: {
        const qsizetype shortest = found.route.size() - 1;
        QString line = u"The shortest route takes %1: %2."_s.arg(clicks(shortest), found.route.join(u" --> "_s));
        if (!m_winner.isEmpty())
            line += m_winnerClicks <= shortest ? u" %1 found one."_s.arg(m_winner)
                                               : u" %1 took %2."_s.arg(m_winner, clicks(m_winnerClicks));
        return line;
    }
    case ShortestRoute::NoneWithin:
        return u"No route of up to %1 leads from \"%2\" to \"%3\"."_s.arg(clicks(found.maxClicks), m_initial,
                                                                          m_destination);
    case ShortestRoute::OverBudget:
        return u"No route of up to %1 was found within the search's budget."_s.arg(clicks(found.maxClicks));
    case ShortestRoute::Unanswered:
        break;
    }
    return u"The encyclopedia did not answer: the shortest route is not known."_s;
}

QString Referee::CheckInvariants() const
{
    if (!m_running && (!m_racers.isEmpty() || !m_arrivals.empty())) return u"racers outside a race"_s;
    for (auto it = m_racers.cbegin(); it != m_racers.cend(); ++it) {
        if (it->checking < 0 || (!m_encyclopedia && it->checking != 0)) return u"checks miscounted"_s;
        if (it->pages + 1 != it->seen.size() || it->pages > MaxPages(m_clock() - m_startMs))
            return u"route pages miscounted"_s;
        if (it->arrived != (std::find(m_arrivals.cbegin(), m_arrivals.cend(), it.key()) != m_arrivals.cend()))
            return u"arrival lost"_s;
    }
    for (quint64 racer : m_arrivals)
        if (!m_racers.contains(racer)) return u"an arrival that races no more"_s;
    return {};
}

} // namespace linkhop::server
