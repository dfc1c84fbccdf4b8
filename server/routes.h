#pragma once

#include "wikiapi.h"

#include <QElapsedTimer>
#include <QObject>
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
// `route`: the initial article, then each page the racer reported, in order.
void CheckRoute(WikiApi& api, const QStringList& route, std::function<void(const RouteVerdict&)> done);

// The limits of one search for a shortest route.
struct SearchBudget
{
    int maxClicks = 6;
    quint64 maxRequests = 400;
    qint64 maxMs = 60000;
};

// A shortest route between two articles, searched in the background by a breadth-first search from
// both ends: the links of the pages reached from the initial article, and the pages linking to the
// ones that lead to the destination, always widening the side with fewer pages to look at.
// Redirects are followed; pages the round forbids (lists, numbers, ...) and the main page are
// never on a route but at its ends.
class RouteSearch final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(RouteSearch)

public:
    struct Result
    {
        QStringList route;      // empty: none found
        bool exhausted = false; // the budget ran out before the search could end
        quint64 requests = 0;
        qint64 ms = 0;
    };

    RouteSearch(WikiApi& api, SearchBudget budget, QObject* parent = nullptr);

    // Starts a search; Finished follows, unless Cancel comes first.
    void Start(const QString& from, const QString& to);
    void Cancel();
    bool Running() const { return m_running; }

Q_SIGNALS:
    void Finished(const linkhop::server::RouteSearch::Result& result);

private:
    struct Side
    {
        QHash<QString, QString> next; // page -> the page it leads to, one click nearer the other end
        QHash<QString, int> depth;
        QStringList frontier;
    };
    void Resolved(const QString& from, const QString& to);
    void Step();
    void Forward(qsizetype index, QStringList reached);
    void Backward(QStringList reached);
    void LevelDone(bool forward, const QStringList& reached);
    bool OverBudget() const;
    bool Usable(const QString& title) const;
    void Finish(QStringList route, bool exhausted);

    WikiApi& m_api;
    SearchBudget m_budget;
    quint64 m_generation = 0;
    bool m_running = false;
    QElapsedTimer m_clock;
    quint64 m_requestsAtStart = 0;
    QString m_mainPage;
    Side m_forward;  // next: the page it was reached from
    Side m_backward; // next: the page it links to
};

} // namespace linkhop::server
