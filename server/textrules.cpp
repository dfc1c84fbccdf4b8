#include "textrules.h"

#include <QRegularExpression>
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

constexpr QStringView kForbiddenWords[] = {u"list",   u"history", u"edit",    u"talk", u"category",
                                           u"wiki",   u"help",    u"special", u"user", u"portal",
                                           u"search", u"number",  u"nowiki"};

// The longest title MediaWiki keeps, in bytes of UTF-8 after the namespace; and the longest
// namespace name this server allows for before it leaves the judgment to the encyclopedia.
constexpr qsizetype kMaxTitleBytes = 255;
constexpr qsizetype kMaxNamespaceBytes = 40;
constexpr qsizetype kShownTitle = 60;

bool IsControl(char32_t c)
{
    return c < 0x20 || c == 0x7F;
}

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

std::span<const QStringView> ForbiddenWords()
{
    return kForbiddenWords;
}

bool IsForbiddenWord(QStringView word)
{
    return std::find(std::begin(kForbiddenWords), std::end(kForbiddenWords), word) != std::end(kForbiddenWords);
}

QString ArticleKey(QStringView title)
{
    QString key = title.trimmed().toString().toLower();
    key.replace(u'_', u' ');
    return key;
}

QString TitleProblem(QStringView raw)
{
    const QString title = raw.trimmed().toString().replace(u'_', u' ');
    if (title.isEmpty()) return u"an empty title"_s;
    for (const QChar c : u"#<>[]{}|")
        if (title.contains(c)) return u"a title holding \"%1\""_s.arg(c);
    if (AnyCodePoint(title, IsControl)) return u"a title holding a control character"_s;
    if (title.contains(QChar::ReplacementCharacter)) return u"a title holding a character that is none"_s;
    static const QRegularExpression escape(u"%[0-9A-Fa-f]{2}"_s);
    if (title.contains(escape)) return u"a title holding a percent escape"_s;
    if (title.contains(u"~~~")) return u"a title holding \"~~~\""_s;
    if (title == u"." || title == u".." || title.startsWith(u"./") || title.startsWith(u"../") ||
        title.contains(u"/./") || title.contains(u"/../") || title.endsWith(u"/.") || title.endsWith(u"/.."))
        return u"a relative path"_s;
    const qsizetype bytes = title.toUtf8().size();
    const qsizetype colon = title.indexOf(u':');
    const qsizetype prefix = colon < 0 ? 0 : QStringView(title).first(colon + 1).toUtf8().size();
    if (bytes - std::min(prefix, kMaxNamespaceBytes) > kMaxTitleBytes)
        return u"a title longer than %1 bytes"_s.arg(kMaxTitleBytes);
    return {};
}

QString ShownTitle(QStringView title)
{
    QString shown;
    AnyCodePoint(title, [&](char32_t c) {
        if (IsInvisible(c))
            shown += u'?';
        else
            shown += QString::fromUcs4(&c, 1);
        return shown.size() > kShownTitle;
    });
    if (shown.size() > kShownTitle) {
        const qsizetype cut = shown[kShownTitle - 1].isHighSurrogate() ? kShownTitle - 1 : kShownTitle;
        shown = shown.first(cut) + u"..."_s;
    }
    return shown;
}

QString Duration(qint64 ms)
{
    const bool minutes = ms >= 60000 && ms % 60000 == 0;
    const qint64 n = minutes ? ms / 60000 : std::max<qint64>(1, (ms + 500) / 1000);
    return QString::number(n) +
           (minutes ? (n == 1 ? u" minute"_s : u" minutes"_s) : (n == 1 ? u" second"_s : u" seconds"_s));
}

} // namespace linkhop::server
