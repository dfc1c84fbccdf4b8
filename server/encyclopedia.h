#pragma once

#include <QString>
#include <QStringList>
#include <functional>

namespace linkhop::server {

// Whether a racer could have clicked from one page to the next.
struct StepVerdict
{
    enum Kind
    {
        Possible,
        Impossible, // `why` names the step
        Unchecked,  // the encyclopedia failed: it did not answer, answered an error, or asked us to wait
        Refused,    // the racer's checks have asked all they may this round
        RoundSpent, // the round has asked all it may
    };
    Kind kind = Unchecked;
    QString why;
};

// The shortest route between a round's words, as a search within its budget found it.
struct ShortestRoute
{
    enum Outcome
    {
        Found,
        NoneWithin, // no route of up to maxClicks clicks exists
        OverBudget, // the search's budget ran out first
        Unanswered, // the encyclopedia did not answer
    };
    Outcome outcome = Unanswered;
    QStringList route; // both words and the pages between, when found
    int maxClicks = 0;
    quint64 requests = 0;
    qint64 ms = 0;
};

// What a referee asks the encyclopedia. Answers come later, on the same thread, never from inside
// the call that asked; each at most once, and none once its round, race or racer is over.
class Encyclopedia
{
public:
    virtual ~Encyclopedia() = default;
    // A round starts on these words: everything asked in earlier rounds is cancelled, and the search
    // for a shortest route begins; `found` gets its result, unless another round starts first.
    virtual void RoundStarts(const QString& initial, const QString& destination,
                             std::function<void(const ShortestRoute&)> found) = 0;
    // The race is decided: the racers' checks are cancelled. The search goes on, behind any next
    // round's questions, until it is done or the next round starts.
    virtual void RaceEnds() = 0;
    // Whether `racer` could have reached `page` right after `from` (the page it reported before, or
    // the initial article). One racer's steps are answered in the order they were asked.
    virtual void CheckStep(quint64 racer, const QString& from, const QString& page,
                           std::function<void(const StepVerdict&)> done) = 0;
    // The racer reached the destination: its checks go before every other question.
    virtual void Hurry(quint64 racer) = 0;
    // The racer is out: its checks are cancelled.
    virtual void Forget(quint64 racer) = 0;
};

} // namespace linkhop::server
