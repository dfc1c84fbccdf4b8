#include "pagerules.h"

#include <QList>

namespace linkhop {

namespace {

// "*" matches any run of characters, the empty run included; every other character only itself.
bool Like(QStringView text, QStringView pattern)
{
    qsizetype t = 0, p = 0;
    qsizetype starP = -1, starT = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == u'*') {
            starP = p++;
            starT = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (starP >= 0) {
            p = starP + 1;
            t = ++starT;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == u'*')
        ++p;
    return p == pattern.size();
}

bool IsDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// Digits, optionally grouped in threes by commas: "7", "1984", "1,000,000"; not ",5" or "1,00".
bool IsWholePart(QStringView digits)
{
    if (digits.isEmpty()) return true;
    if (!digits.contains(u',')) {
        for (QChar c : digits)
            if (!IsDigit(c)) return false;
        return true;
    }
    const auto groups = digits.split(u',');
    for (qsizetype i = 0; i < groups.size(); ++i) {
        const QStringView group = groups[i];
        const bool sizeOk = i == 0 ? (group.size() >= 1 && group.size() <= 3) : group.size() == 3;
        if (!sizeOk) return false;
        for (QChar c : group)
            if (!IsDigit(c)) return false;
    }
    return true;
}

bool IsNumber(QStringView title, QStringView)
{
    QStringView text = title;
    while (!text.isEmpty() && text.front() == u' ')
        text = text.mid(1);
    while (!text.isEmpty() && text.back() == u' ')
        text.chop(1);
    if (!text.isEmpty() && (text.front() == u'-' || text.front() == u'+')) text = text.mid(1);
    const qsizetype point = text.indexOf(u'.');
    const QStringView whole = point < 0 ? text : text.left(point);
    const QStringView fraction = point < 0 ? QStringView() : text.mid(point + 1);
    if (whole.isEmpty() && fraction.isEmpty()) return false;
    for (QChar c : fraction)
        if (!IsDigit(c)) return false;
    return IsWholePart(whole);
}

struct PageRule
{
    bool (*matches)(QStringView title, QStringView pattern);
    QStringView pattern;
    QStringView word;
};

// The forbidden pages, in the order they are tested.
constexpr PageRule kPageRules[] = {
    {Like, u"List of*", u"list"},   {Like, u"* - History", u"history"}, {Like, u"Editing*", u"edit"},
    {Like, u"Talk:*", u"talk"},     {Like, u"Category:*", u"category"}, {Like, u"Wikipedia:*", u"wiki"},
    {Like, u"Help:*", u"help"},     {Like, u"Special:*", u"special"},   {Like, u"User:*", u"user"},
    {Like, u"Portal:*", u"portal"}, {Like, u"Search*", u"search"},      {IsNumber, {}, u"number"},
};

} // namespace

QString PageCategory(QStringView articleTitle)
{
    for (const PageRule& rule : kPageRules)
        if (rule.matches(articleTitle, rule.pattern)) return rule.word.toString();
    return {};
}

} // namespace linkhop
