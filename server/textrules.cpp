#include "textrules.h"

#include <algorithm>
#include <utility>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

// Letters that show nothing although Unicode files them as letters or symbols.
constexpr char32_t kInvisible[] = {
    0x034F,         // combining grapheme joiner
    0x115F, 0x1160, // Hangul choseong and jungseong fillers
    0x17B4, 0x17B5, // Khmer inherent vowels
    0x2800,         // Braille blank
    0x3164, 0xFFA0, // Hangul fillers
};

bool IsVariationSelector(char32_t c)
{
    return (c >= 0xFE00 && c <= 0xFE0F) || (c >= 0xE0100 && c <= 0xE01EF);
}

bool IsInvisible(char32_t c)
{
    switch (QChar::category(c)) {
    case QChar::Other_Control:
    case QChar::Other_Format:
    case QChar::Other_Surrogate:
    case QChar::Other_PrivateUse:
    case QChar::Other_NotAssigned:
    case QChar::Separator_Line:
    case QChar::Separator_Paragraph:
        return true;
    default:
        break;
    }
    return IsVariationSelector(c) ||
           std::find(std::begin(kInvisible), std::end(kInvisible), c) != std::end(kInvisible);
}

// Calls `f` with each code point of `text`; a lone surrogate comes as itself.
template <typename F> bool AnyCodePoint(QStringView text, F f)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        char32_t c = text[i].unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            c = QChar::surrogateToUcs4(text[i].unicode(), text[i + 1].unicode());
            ++i;
        }
        if (f(c)) return true;
    }
    return false;
}

bool IsOddSpace(char32_t c)
{
    return QChar::category(c) == QChar::Separator_Space && c != u' ';
}

// Letters that the game's font draws alike, after case folding, and what each counts as.
// clang-format off
constexpr std::pair<char32_t, char32_t> kLookAlike[] = {
    // Latin: i, l, 1 and | (and the capital I, folded to i); O and 0; dotless i, script a and g
    {u'i', u'l'}, {u'1', u'l'}, {u'|', u'l'}, {u'0', u'o'}, {0x0131, u'l'}, {0x0251, u'a'}, {0x0261, u'g'},
    // colons: modifier letter triangular colon, ratio, modifier letter colon
    {0x02D0, u':'}, {0x2236, u':'}, {0xA789, u':'},
    // Cyrillic: а в е к м н о р с т у х ѕ і ј ү һ ӏ ѵ ԁ ԛ ԝ
    {0x0430, u'a'}, {0x0432, u'b'}, {0x0435, u'e'}, {0x043A, u'k'}, {0x043C, u'm'}, {0x043D, u'h'},
    {0x043E, u'o'}, {0x0440, u'p'}, {0x0441, u'c'}, {0x0442, u't'}, {0x0443, u'y'}, {0x0445, u'x'},
    {0x0455, u's'}, {0x0456, u'l'}, {0x0458, u'j'}, {0x04AF, u'y'}, {0x04BB, u'h'}, {0x04CF, u'l'},
    {0x0475, u'v'}, {0x0501, u'd'}, {0x051B, u'q'}, {0x051D, u'w'},
    // Greek: α β ε ζ η ι κ μ ν ο ρ τ υ χ
    {0x03B1, u'a'}, {0x03B2, u'b'}, {0x03B5, u'e'}, {0x03B6, u'z'}, {0x03B7, u'h'}, {0x03B9, u'l'},
    {0x03BA, u'k'}, {0x03BC, u'm'}, {0x03BD, u'v'}, {0x03BF, u'o'}, {0x03C1, u'p'}, {0x03C4, u't'},
    {0x03C5, u'y'}, {0x03C7, u'x'},
};
// clang-format on

char32_t LookAlike(char32_t c)
{
    for (const auto& [from, to] : kLookAlike)
        if (from == c) return to;
    return c;
}

constexpr QStringView kReserved[] = {u"GAME", u"Current Time"};

} // namespace

QString NameProblem(QStringView name, qsizetype maxLength)
{
    if (name.isEmpty()) return u"empty name"_s;
    if (name.size() > maxLength) return u"longer than %1 characters"_s.arg(maxLength);
    if (name.front().isSpace() || name.back().isSpace()) return u"begins or ends with a space"_s;
    if (name.contains(u"  ")) return u"two spaces in a row"_s;
    if (name.contains(u'=') || name.contains(u';')) return u"holds \"=\" or \";\""_s;
    if (AnyCodePoint(name, IsInvisible)) return u"holds a control or invisible character"_s;
    if (AnyCodePoint(name, IsOddSpace)) return u"holds a space other than the ordinary one"_s;
    return {};
}

QString NameKey(QStringView name)
{
    const QString folded = name.toString().normalized(QString::NormalizationForm_KC).toCaseFolded();
    QString key;
    key.reserve(folded.size());
    AnyCodePoint(folded, [&](char32_t c) {
        if (IsInvisible(c)) return false;
        if (QChar::isSpace(c)) {
            if (!key.isEmpty() && !key.endsWith(u' ')) key += u' ';
            return false;
        }
        const char32_t look = LookAlike(c);
        if (QChar::requiresSurrogates(look)) {
            key += QChar(QChar::highSurrogate(look));
            key += QChar(QChar::lowSurrogate(look));
        } else {
            key += QChar(char16_t(look));
        }
        return false;
    });
    if (key.endsWith(u' ')) key.chop(1);
    return key;
}

bool IsReservedName(QStringView name)
{
    const QString key = NameKey(name);
    for (QStringView reserved : kReserved) {
        const QString reservedKey = NameKey(reserved);
        if (!key.startsWith(reservedKey)) continue;
        const QStringView rest = QStringView(key).sliced(reservedKey.size()).trimmed();
        if (rest.isEmpty() || rest.startsWith(u':')) return true;
    }
    return false;
}

QString WordProblem(QStringView word)
{
    if (AnyCodePoint(word, IsInvisible)) return u"holds a control or invisible character"_s;
    if (AnyCodePoint(word, IsOddSpace)) return u"holds a space other than the ordinary one"_s;
    return {};
}

bool ChatForgesLines(QStringView text)
{
    return AnyCodePoint(text, [](char32_t c) {
        const QChar::Category category = QChar::category(c);
        return category == QChar::Other_Control || category == QChar::Separator_Line ||
               category == QChar::Separator_Paragraph || (c >= 0x202A && c <= 0x202E) ||
               (c >= 0x2066 && c <= 0x2069) || c == 0x061C || c == 0x200E || c == 0x200F;
    });
}

} // namespace linkhop::server
