// Verb extraction, field reading and the roster's PLAYERLIST handling on arbitrary datagrams.
// Windows-1252 with escaped UTF-8 must carry every byte and character there and back; IndexedParams
// must read each field as GetParam.
#include "core/fault.h"
#include "core/sessiondata.h"
#include "core/wire.h"

#include <cstdint>
#include <cstdlib>

using namespace linkhop;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    const QString text = FromWire(bytes);
    if (ToWire(text) != bytes) std::abort();          // every byte, the five undefined ones included
    if (FromWire(ToWire(text)) != text) std::abort(); // escaped characters come back as themselves
    (void)Verb(text);
    (void)ChatText(text);
    const QMap<qint32, QString> fields = IndexedParams(text, u"P");
    for (auto it = fields.cbegin(); it != fields.cend(); ++it)
        if (it.value() != GetParam(text, QString(u'P' + QString::number(it.key())))) std::abort();
    for (qint32 k = 0; k < 20; ++k)
        if (fields.contains(k) != text.contains(QString(u'P' + QString::number(k) + u'='))) std::abort();
    try {
        SessionData session;
        session.AddPlayersFrom(text);
        (void)WordList::FromStartGame(text);
        (void)MessageBody(text);
    } catch (const Fault&) {
    }
    return 0;
}
