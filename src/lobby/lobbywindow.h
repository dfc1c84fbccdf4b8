#pragma once

#include <QStringView>

namespace linkhop {

// An address field that holds nothing once its dots and outer spaces are gone.
bool IsBlankAddress(QStringView text);

} // namespace linkhop
