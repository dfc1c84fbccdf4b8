#include "wire.h"

#include "fault.h"

#include <array>
#include <limits>
#include <utility>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace linkhop {

QString Verb(QStringView message)
{
    const qsizetype space = message.indexOf(u' ');
    return (space < 0 ? message : message.left(space)).toString();
}

QString GetParam(QStringView message, QStringView key)
{
    // Search for key + "=" without building a temporary string.
    qsizetype from = 0;
    while (true) {
        const qsizetype p = message.indexOf(key, from);
        if (p < 0) return {};
        const qsizetype eq = p + key.size();
        if (eq < message.size() && message[eq] == u'=') {
            const qsizetype end = message.indexOf(u';', eq);
            if (end < 0) return {};
            return message.sliced(eq + 1, end - eq - 1).toString();
        }
        from = p + 1;
    }
}

QMap<qint32, QString> IndexedParams(QStringView message, QStringView prefix)
{
    QMap<qint32, QString> fields;
    if (prefix.isEmpty()) return fields;
    const qsizetype n = message.size();

    // nextSemicolon[i]: index of the first ";" at or after i, or -1.
    std::vector<qsizetype> nextSemicolon(size_t(n) + 1, -1);
    for (qsizetype i = n - 1; i >= 0; --i)
        nextSemicolon[size_t(i)] = message[i] == u';' ? i : nextSemicolon[size_t(i) + 1];

    // Every occurrence of prefix + digits + "=" starts at an occurrence of the prefix; the first
    // occurrence of each index is the one GetParam finds.
    for (qsizetype p = message.indexOf(prefix); p >= 0; p = message.indexOf(prefix, p + 1)) {
        qsizetype d = p + prefix.size();
        const qsizetype digitsStart = d;
        qint64 value = 0;
        bool tooBig = false;
        while (d < n && message[d] >= u'0' && message[d] <= u'9') {
            value = value * 10 + (message[d].unicode() - u'0');
            if (value > std::numeric_limits<qint32>::max()) tooBig = true, value = 0;
            ++d;
        }
        const qsizetype digits = d - digitsStart;
        if (digits == 0 || d >= n || message[d] != u'=' || tooBig) continue;
        if (digits > 1 && message[digitsStart] == u'0') continue; // "P01" is not the key "P1"
        const auto index = qint32(value);
        if (fields.contains(index)) continue;
        const qsizetype end = nextSemicolon[size_t(d)];
        fields.insert(index, end < 0 ? QString() : message.sliced(d + 1, end - d - 1).toString());
    }
    return fields;
}

QString MessageBody(QStringView message)
{
    if (message.size() < 8) throw Fault{"message text too short"};
    return message.sliced(8).toString();
}

QString ChatText(QStringView message)
{
    const qsizetype p = message.indexOf(u"TEXT=");
    return p < 0 ? QString() : message.sliced(p + 5).toString();
}

qint32 Number(QStringView text)
{
    text = text.trimmed();
    qsizetype i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == u'-' || text[i] == u'+')) negative = text[i++] == u'-';
    if (i >= text.size()) throw Fault{"not a number"};
    qint64 value = 0;
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9') throw Fault{"not a number"};
        value = value * 10 + (c - u'0');
        if (value > qint64(std::numeric_limits<qint32>::max()) + 1) throw Fault{"number out of range"};
    }
    if (negative) value = -value;
    if (value > std::numeric_limits<qint32>::max() || value < std::numeric_limits<qint32>::min())
        throw Fault{"number out of range"};
    return qint32(value);
}

QString CleanField(QString text)
{
    text.remove(u'=');
    text.remove(u';');
    return text;
}

namespace {

// Bytes 0x80..0x9F of Windows-1252. The five bytes it leaves undefined map to the C1 control of
// the same number, so every byte survives a round trip.
constexpr std::array<char16_t, 32> kHigh = {0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                            0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
                                            0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                            0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

// The byte of `c` in Windows-1252, or -1 when it has none.
int ToByte(char32_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return int(c);
    for (size_t i = 0; i < kHigh.size(); ++i)
        if (kHigh[i] == c) return int(0x80 + i);
    return -1;
}

constexpr char kHexDigits[] = "0123456789ABCDEF";

void AppendEscapedUtf8(QByteArray& bytes, char32_t c)
{
    unsigned char utf8[4];
    int n = 0;
    if (c < 0x800) {
        utf8[n++] = static_cast<unsigned char>(0xC0 | (c >> 6));
    } else if (c < 0x10000) {
        utf8[n++] = static_cast<unsigned char>(0xE0 | (c >> 12));
        utf8[n++] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
    } else {
        utf8[n++] = static_cast<unsigned char>(0xF0 | (c >> 18));
        utf8[n++] = static_cast<unsigned char>(0x80 | ((c >> 12) & 0x3F));
        utf8[n++] = static_cast<unsigned char>(0x80 | ((c >> 6) & 0x3F));
    }
    utf8[n++] = static_cast<unsigned char>(0x80 | (c & 0x3F));
    for (int i = 0; i < n; ++i) {
        bytes.append('%');
        bytes.append(kHexDigits[utf8[i] >> 4]);
        bytes.append(kHexDigits[utf8[i] & 0xF]);
    }
}

// The byte an upper-case escape "%XY" at `at` stands for, or -1.
int EscapedByte(QByteArrayView bytes, qsizetype at)
{
    if (at + 2 >= bytes.size() || bytes[at] != '%') return -1;
    const auto digit = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    };
    const int high = digit(bytes[at + 1]), low = digit(bytes[at + 2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

// The character that the escaped UTF-8 sequence at `at` stands for, with the number of bytes its
// escapes take; 0 when there is none that ToWire would have written there.
std::pair<char32_t, qsizetype> EscapedCharacter(QByteArrayView bytes, qsizetype at)
{
    const int lead = EscapedByte(bytes, at);
    int length = 0;
    char32_t c = 0;
    if (lead >= 0xC2 && lead <= 0xDF)
        length = 2, c = char32_t(lead & 0x1F);
    else if (lead >= 0xE0 && lead <= 0xEF)
        length = 3, c = char32_t(lead & 0x0F);
    else if (lead >= 0xF0 && lead <= 0xF4)
        length = 4, c = char32_t(lead & 0x07);
    else
        return {0, 0};
    for (int i = 1; i < length; ++i) {
        const int next = EscapedByte(bytes, at + 3 * i);
        if ((next & 0xC0) != 0x80) return {0, 0};
        c = (c << 6) | char32_t(next & 0x3F);
    }
    const char32_t smallest = length == 2 ? 0x80 : length == 3 ? 0x800 : 0x10000;
    if (c < smallest || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF) || ToByte(c) >= 0) return {0, 0};
    return {c, 3 * length};
}

} // namespace

QByteArray ToWire(QStringView text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        char32_t c = text[i].unicode();
        if (QChar::isHighSurrogate(c) && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            c = QChar::surrogateToUcs4(char16_t(c), text[i + 1].unicode());
            ++i;
        }
        if (const int byte = ToByte(c); byte >= 0)
            bytes.append(char(byte));
        else if (QChar::isSurrogate(c))
            bytes.append('?'); // half a character has no UTF-8
        else
            AppendEscapedUtf8(bytes, c);
    }
    return bytes;
}

QString FromWire(QByteArrayView bytes)
{
    QString text(bytes.size(), Qt::Uninitialized);
    QChar* out = text.data();
    // Never longer than the bytes: an escaped character takes at least six of them.
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const auto b = static_cast<unsigned char>(bytes[i]);
        if (b == '%') {
            const auto [c, length] = EscapedCharacter(bytes, i);
            if (length > 0) {
                if (QChar::requiresSurrogates(c)) {
                    *out++ = QChar(QChar::highSurrogate(c));
                    *out++ = QChar(QChar::lowSurrogate(c));
                } else {
                    *out++ = QChar(char16_t(c));
                }
                i += length - 1;
                continue;
            }
        }
        *out++ = (b >= 0x80 && b < 0xA0) ? QChar(kHigh[b - 0x80]) : QChar(char16_t(b));
    }
    text.truncate(out - text.constData());
    return text;
}

QString AsOnWire(QStringView text)
{
    return FromWire(ToWire(text));
}

} // namespace linkhop
