#pragma once

#include <QStringView>

namespace linkhop {

// Sent in "CONNECT" and shown in the main window's caption; the server refuses other versions.
inline constexpr QStringView ClientVersion = u"1.04 (beta)";

} // namespace linkhop
