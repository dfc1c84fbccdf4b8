#pragma once

#include "encyclopedia.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace linkhop::server {

// What the room does on the referee's word.
class RefereeOutput
{
public:
    virtual ~RefereeOutput() = default;
    // The racer is out of the round. `notice`: the forbidden page the racer's own client names in its
    // notice, which the room may relay; `why`: what the room tells everyone instead, as the step
    // that put the racer out. One of them is empty.
    virtual void Disqualified(quint64 racer, const QString& notice, const QString& why) = 0;
    // The racer wins the round; `unchecked`, when not empty, says which steps the encyclopedia left
    // unchecked, for the log.
    virtual void Won(quint64 racer, const QString& unchecked) = 0;
    // Nobody can win the round any more: it ends without a winner, with this game line.
    virtual void RaceEnded(const QString& why) = 0;
    virtual void Tell(const QString& line) = 0; // a game line to everyone
    virtual void Log(const QString& line) = 0;
};

// The rules of winning a round. A racer reports each page it reaches ("NAVIGATE"); the referee
// counts it as a click or not, puts the racer out for a page no round allows, and asks the
// encyclopedia, in the background, whether each new page could have been clicked from the one
// before (Encyclopedia::CheckStep), so that at the destination only the last step or two are left
// to ask. A step that could not have been clicked puts the racer out as soon as it is known.
// Whoever reports the destination first wins, once every step of the route has its answer, unless
// one of them puts the racer out; a step the encyclopedia failed to answer lets the win stand, and
// the log says so.
//
// What a racer controls is bounded: a title MediaWiki cannot hold puts the racer out without a
// question asked; so does a new page when the route already holds more new pages than anyone
// clicks in the time since the round began (a person needs MsPerClick for a click: the page loads,
// the eye finds the next link); so does a racer whose checks have asked the encyclopedia all they
// may. A round that has asked all a round may ends without a winner.
//
// Without an encyclopedia, every route stands unchecked.
class Referee final
{
    Q_DISABLE_COPY_MOVE(Referee)

public:
    using Clock = std::function<qint64()>; // milliseconds, never going back

    struct Rules
    {
        qint64 MsPerClick = 2000;
        qsizetype QuickPages = 20; // new pages a route may hold beyond one per MsPerClick
    };

    Referee(Rules rules, RefereeOutput& output, Clock clock);
    ~Referee();

    void SetEncyclopedia(Encyclopedia* encyclopedia) { m_encyclopedia = encyclopedia; }
    bool Vouches() const { return m_encyclopedia != nullptr; }

    // A round starts on these words with these racers, and the search for its shortest route too.
    void StartRace(const QString& initial, const QString& destination, const QList<quint64>& racers);
    // A racer joins the race under way.
    void Enter(quint64 racer);

    enum class Call
    {
        Ignored, // the page reported just before, again: no click
        Click,
        Arrived, // a click onto the destination: Settle decides the win
        Out,     // the racer is out; the room has been told
    };
    Call Navigate(quint64 racer, const QString& page);
    // Decides the earliest arrivals whose routes have their answers: an arrival wins unless a step
    // put it out; a later arrival waits for the earlier ones.
    void Settle();
    // The racer is gone from the room.
    void Leave(quint64 racer);
    // The race is decided, won by `winner` in `clicks` (no winner: empty): the checks end.
    void RaceOver(const QString& winner, qint32 clicks);
    // Tells everyone the round's shortest route, at once or once the search has found it.
    void TellShortestRoute();

    // The most new pages a route may hold this long after the round began.
    qsizetype MaxPages(qint64 elapsedMs) const;
    bool Racing(quint64 racer) const { return m_racers.contains(racer); }
    // Empty while the referee's state is consistent; otherwise what is wrong.
    QString CheckInvariants() const;

private:
    struct Racer
    {
        QString last;       // the page reported last; empty before the first
        QSet<QString> seen; // the route's pages (ArticleKey), the initial article among them
        qsizetype pages = 0;
        int checking = 0; // steps asked about and not yet answered
        bool arrived = false;
        QStringList unchecked; // why steps went unanswered
    };
    Call Out(quint64 racer, const QString& notice, const QString& why);
    void Verdict(quint64 round, quint64 racer, const StepVerdict& verdict);
    void Found(quint64 round, const ShortestRoute& found);
    QString ShortestRouteLine() const;

    const Rules m_rules;
    RefereeOutput& m_output;
    Clock m_clock;
    Encyclopedia* m_encyclopedia = nullptr;
    // Answers of the encyclopedia find the referee through this, and nothing once it is gone.
    std::shared_ptr<Referee*> m_self;

    quint64 m_round = 0; // races started, so that a late answer finds its race over
    bool m_running = false;
    QString m_initial;
    QString m_destinationKey;
    qint64 m_startMs = 0;
    QHash<quint64, Racer> m_racers; // those still racing
    std::deque<quint64> m_arrivals; // in the order they reached the destination

    std::optional<ShortestRoute> m_shortest;
    bool m_shortestWanted = false; // the race is over: tell its shortest route once known
    QString m_destination;
    QString m_winner;
    qint32 m_winnerClicks = 0;
};

} // namespace linkhop::server
