// Verb extraction, field reading and the roster's PLAYERLIST handling on arbitrary datagrams.
#include "core/fault.h"
#include "core/sessiondata.h"
#include "core/wire.h"

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = linkhop::FromWire(QByteArrayView(reinterpret_cast<const char*>(data), qsizetype(size)));
    (void)linkhop::Verb(text);
    for (const char16_t* key : {u"NAME", u"COUNT", u"P1", u"#", u"TEXT", u"CLICK"})
        (void)linkhop::GetParam(text, QStringView(key));
    (void)linkhop::ChatText(text);
    try {
        linkhop::SessionData session;
        session.AddPlayersFrom(text);
        (void)linkhop::WordList::FromStartGame(text);
        (void)linkhop::MessageBody(text);
    } catch (const linkhop::Fault&) {
    }
    return 0;
}
