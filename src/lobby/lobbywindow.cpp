#include "lobbywindow.h"

#include "platform/controls.h"

namespace linkhop {

bool IsBlankAddress(QStringView text)
{
    QString withoutDots = text.toString();
    withoutDots.remove(u'.');
    return TrimSpaces(withoutDots).isEmpty();
}

} // namespace linkhop
