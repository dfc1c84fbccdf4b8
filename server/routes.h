#pragma once

#include "encyclopedia.h"
#include "wikiapi.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QStringList>
#include <functional>

namespace linkhop::server {

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
    RouteSearch(WikiApi& api, SearchBudget budget, QObject* parent = nullptr);

    // Starts a search; Finished follows, unless Cancel comes first.
    void Start(const QString& from, const QString& to);
    void Cancel();

Q_SIGNALS:
    void Finished(const linkhop::server::ShortestRoute& result);

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
    void Finish(ShortestRoute::Outcome outcome, QStringList route = {});

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

// The encyclopedia a server asks, through its API: route checks go before the search.
class WikiEncyclopedia final : public QObject, public Encyclopedia
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(WikiEncyclopedia)

public:
    WikiEncyclopedia(const QString& site, SearchBudget budget, QObject* parent = nullptr);

    void RoundStarts(const QString& initial, const QString& destination,
                     std::function<void(const ShortestRoute&)> found) override;
    void CheckRoute(const QStringList& route, std::function<void(const RouteVerdict&)> done) override;

private:
    WikiApi m_api;
    RouteSearch m_search;
    std::function<void(const ShortestRoute&)> m_found;
};

} // namespace linkhop::server
