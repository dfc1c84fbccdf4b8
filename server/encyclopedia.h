#pragma once

#include <QString>
#include <QStringList>
#include <functional>

namespace linkhop::server {

// Whether a racer's route could have been clicked: each page must be linked from the one before
// it (directly or through a redirect), or be a page already on the route (Back and Forward), or be
// linked from a page the client does not report: the initial article (a return to it is not
// reported) and the main page.
struct RouteVerdict
{
    enum Kind
    {
        Possible,
        Impossible, // `step` cannot be clicked
        Unchecked,  // the encyclopedia did not answer
    };
    Kind kind = Unchecked;
    int step = 0; // index of the page that could not be reached, in the route
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

// What a room asks the encyclopedia. Answers come later, on the same thread; each at most once.
class Encyclopedia
{
public:
    virtual ~Encyclopedia() = default;
    // A round starts on these words: what was learnt of earlier rounds is forgotten, and the search
    // for a shortest route begins; `found` gets its result, unless another round starts first.
    virtual void RoundStarts(const QString& initial, const QString& destination,
                             std::function<void(const ShortestRoute&)> found) = 0;
    // `route`: the initial article, then each page a racer reported, in order.
    virtual void CheckRoute(const QStringList& route, std::function<void(const RouteVerdict&)> done) = 0;
};

} // namespace linkhop::server
