#include "wire.h"

#include "fault.h"

#include <array>
#include <limits>
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
constexpr std::array<char16_t, 32> kHigh = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char ToByte(char32_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return char(c);
    for (size_t i = 0; i < kHigh.size(); ++i)
        if (kHigh[i] == c) return char(0x80 + i);
    return '?';
}

} // namespace

QByteArray ToWire(QStringView text)
{
    QByteArray bytes;
    bytes.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            bytes.append('?'); // one "?" per character, not per UTF-16 unit
            ++i;
            continue;
        }
        bytes.append(ToByte(c.unicode()));
    }
    return bytes;
}

QString FromWire(QByteArrayView bytes)
{
    QString text(bytes.size(), Qt::Uninitialized);
    QChar* out = text.data();
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const auto b = static_cast<unsigned char>(bytes[i]);
        out[i] = (b >= 0x80 && b < 0xA0) ? QChar(kHigh[b - 0x80]) : QChar(char16_t(b));
    }
    return text;
}

} // namespace linkhop
