#include "localport.h"

#include "udpendpoint.h"

namespace linkhop {

QString FindLocalPort(UdpEndpoint& probe)
{
    for (int i = 0; i <= 20; ++i) {
        if (probe.State() != 0) probe.Close();
        const QString port = QString::number(kServerPort + i);
        if (probe.Bind(port)) {
            probe.Close();
            return port;
        }
    }
    probe.Close();
    return QStringLiteral("-1");
}

} // namespace linkhop
