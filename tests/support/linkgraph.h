#pragma once

#include "mediawiki.h"

#include <QHash>
#include <QStringList>
#include <random>

namespace linkhop::test {

// A generated encyclopedia whose routes are known, for MediaWiki::Start's bulk pages: "Place 1" ...
// "Place <count>", each linking to a few others at random (some through a redirect "Alias of Place
// <k>"); a hub that every other place links to and that leads nowhere; a page of 3,000 links that
// no place links to; and pages a route may not use: lists that link to every place. Distances
// gives the true number of clicks.
class LinkGraph
{
public:
    static constexpr int kBigLinks = 3000;

    LinkGraph(int count, quint32 seed) : m_count(count)
    {
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> place(1, count);
        QStringList all;
        for (int k = 1; k <= count; ++k) {
            QString text = QStringLiteral("Place number %1.").arg(k);
            for (int link = 0; link < 3; ++link) {
                const int to = place(random);
                text += QStringLiteral(" [[%1]]").arg(Linked(to));
                if (to != k && !m_links[Name(k)].contains(Name(to))) m_links[Name(k)].append(Name(to));
            }
            if (k % 2 == 0) {
                text += QStringLiteral(" [[%1]]").arg(Hub());
                m_links[Name(k)].append(Hub());
            }
            pages.append({Name(k), {text}});
            all.append(Name(k));
            if (k % 7 == 0) pages.append({Alias(k), {QStringLiteral("#REDIRECT [[%1]]").arg(Name(k))}});
        }
        pages.append({Hub(), {QStringLiteral("Half of all places link here.")}});
        QString big = QStringLiteral("Places by number:");
        for (int k = 1; k <= std::min(kBigLinks, count); ++k)
            big += QStringLiteral(" [[%1]]").arg(Linked(k));
        pages.append({Big(), {big}});
        // Shortcuts no racer may take.
        for (int list = 1; list <= 3; ++list)
            pages.append({QStringLiteral("List of places %1").arg(list),
                          {QStringLiteral("[[") + all.join(QStringLiteral("]] [[")) + QStringLiteral("]]")}});
    }

    static QString Name(int k) { return QStringLiteral("Place %1").arg(k); }
    static QString Alias(int k) { return QStringLiteral("Alias of Place %1").arg(k); }
    // How pages link to a place: through its redirect, when it has one.
    static QString Linked(int k) { return k % 7 == 0 ? Alias(k) : Name(k); }
    static QString Hub() { return QStringLiteral("Hub of places"); }
    static QString Big() { return QStringLiteral("Index of places"); }

    // Clicks from a page to every page it reaches by the places' own links.
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
    bool Links(const QString& from, const QString& to) const
    {
        return m_links.value(from).contains(to) || (from == Big() && to.startsWith(QStringLiteral("Place ")) &&
                                                    to.mid(6).toInt() <= std::min(kBigLinks, m_count));
    }
    QStringList LinksOf(const QString& from) const { return m_links.value(from); }
    // The first place, in order, at this many clicks from `from`; empty when there is none.
    QString At(const QString& from, int clicks) const
    {
        const QHash<QString, int> distances = Distances(from);
        for (int k = 1; k <= m_count; ++k)
            if (distances.value(Name(k), -1) == clicks) return Name(k);
        return {};
    }

    QList<MediaWiki::Page> pages;

private:
    int m_count = 0;
    QHash<QString, QStringList> m_links; // redirects followed
};

} // namespace linkhop::test
