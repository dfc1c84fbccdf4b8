#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringView>

namespace linkhop {

// The verb of a message: the text before the first space, or the whole message.
QString Verb(QStringView message);

// The value of field `key`: the text after the first "key=" up to the next ";".
// Empty when the field is missing or unterminated. Never fails.
QString GetParam(QStringView message, QStringView key);

// Every field "<prefix><k>=" with k a decimal index (no leading zeros) in 0..INT32_MAX,
// mapped to the value GetParam would read for it. Runs in time proportional to the message,
// so a count announced by the sender never drives the work.
QMap<qint32, QString> IndexedParams(QStringView message, QStringView prefix);

// Free text of "MESSAGE": everything after the verb and its space. Throws Fault when shorter.
QString MessageBody(QStringView message);

// Text of "CHAT": everything after the first "TEXT=", to the end.
QString ChatText(QStringView message);

// A decimal field as a signed 32-bit number; empty, malformed or out-of-range text throws Fault.
qint32 Number(QStringView text);

// Removes every "=" and then every ";" from user-typed names and passwords.
QString CleanField(QString text);

// Text on the wire is Windows-1252 both ways. A character Windows-1252 cannot carry travels as its
// UTF-8 bytes, each written "%" and two upper-case hex digits ("Ł" is "%C5%81"), so that titles
// such as Łódź survive between Linkhop programs, while text Windows-1252 can carry keeps exactly its
// bytes. Reading turns back only such runs: escapes in lower case, of invalid UTF-8, or of a
// character Windows-1252 has ("%C3%A9" for "é") stay as they are. So ToWire(FromWire(b)) is b for
// every byte string b.
QByteArray ToWire(QStringView text);
QString FromWire(QByteArrayView bytes);
// Text as every receiver reads it once it has crossed the wire: FromWire(ToWire(text)). A player
// named "%C5%81" is "Ł" to the server, and so to the own client.
QString AsOnWire(QStringView text);

} // namespace linkhop
