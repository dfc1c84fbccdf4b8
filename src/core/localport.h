#pragma once

#include <QString>

namespace linkhop {

class UdpEndpoint;

// The first local UDP port from 7200 to 7220 that no other socket holds, as decimal text, or "-1".
// The probe socket is left closed.
QString FindLocalPort(UdpEndpoint& probe);

inline constexpr quint16 kServerPort = 7200;

} // namespace linkhop
