#pragma once

#include "mediawiki.h"

#include <QHash>
#include <QStringList>
#include <random>

namespace linkhop::test {

// A generated encyclopedia whose routes are known: "Place 1" ... "Place <count>", each linking to a
// few others at random (some through a redirect "Alias of Place <k>"), beside pages a route may not
// use: lists that link to everything, and the main page. Distance gives the true number of clicks.
class LinkGraph
{
public:
    LinkGraph(int count, quint32 seed) : m_count(count)
    {
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> place(1, count);
        const auto name = [](int k) { return QStringLiteral("Place %1").arg(k); };
        QStringList all;
        for (int k = 1; k <= count; ++k) {
            QString text = QStringLiteral("Place number %1.").arg(k);
            for (int link = 0; link < 3; ++link) {
                const int to = place(random);
                const QString target = to % 7 == 0 ? QStringLiteral("Alias of Place %1").arg(to) : name(to);
                text += QStringLiteral(" [[%1]]").arg(target);
                if (to != k && !m_links[name(k)].contains(name(to))) m_links[name(k)].append(name(to));
            }
            pages.append({name(k), {text}});
            all.append(name(k));
            if (k % 7 == 0)
                pages.append({QStringLiteral("Alias of Place %1").arg(k),
                              {QStringLiteral("#REDIRECT [[%1]]").arg(name(k))}});
        }
        // Shortcuts no racer may take.
        for (int list = 1; list <= 3; ++list)
            pages.append({QStringLiteral("List of places %1").arg(list),
                          {QStringLiteral("[[") + all.join(QStringLiteral("]] [[")) + QStringLiteral("]]")}});
        pages.append({QStringLiteral("Main Page"),
                      {QStringLiteral("[[") + all.mid(0, count / 2).join(QStringLiteral("]] [[")) +
                       QStringLiteral("]]")}});
    }

    // Clicks from a place to every place it reaches by the places' own links.
    QHash<QString, int> Distances(const QString& from) const
    {
        QHash<QString, int> depth{{from, 0}};
        QStringList frontier{from};
        while (!frontier.isEmpty()) {
            QStringList next;
            for (const QString& page : frontier)
                for (const QString& link : m_links.value(page))
                    if (!depth.contains(link)) {
                        depth.insert(link, depth.value(page) + 1);
                        next.append(link);
                    }
            frontier = next;
        }
        return depth;
    }
    bool Links(const QString& from, const QString& to) const { return m_links.value(from).contains(to); }
    // The first place, in order, at this many clicks from `from`; empty when there is none.
    QString At(const QString& from, int clicks) const
    {
        const QHash<QString, int> distances = Distances(from);
        for (int k = 1; k <= m_count; ++k)
            if (distances.value(QStringLiteral("Place %1").arg(k), -1) == clicks)
                return QStringLiteral("Place %1").arg(k);
        return {};
    }

    QList<MediaWiki::Page> pages;

private:
    int m_count = 0;
    QHash<QString, QStringList> m_links; // redirects followed
};

} // namespace linkhop::test
