#include "gateway.h"

#include <QDeadlineTimer>
#include <QNetworkInterface>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <natpmp.h>
#include <poll.h>

#include <miniupnpc/miniupnpc.h>
#include <miniupnpc/upnpcommands.h>
#include <miniupnpc/upnperrors.h>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::router {

namespace {

// Ranges no player on the Internet can send to (RFC 6890 and its updates).
constexpr struct
{
    quint32 base;
    int bits;
} kNotPublic[] = {
    {0x00000000, 8},  {0x0A000000, 8},  {0x64400000, 10}, {0x7F000000, 8},  {0xA9FE0000, 16},
    {0xAC100000, 12}, {0xC0000000, 24}, {0xC0000200, 24}, {0xC0A80000, 16}, {0xC6120000, 15},
    {0xC6336400, 24}, {0xCB007100, 24}, {0xE0000000, 4},  {0xF0000000, 4},
};

QString NatPmpError(int code)
{
    switch (code) {
    case NATPMP_ERR_CANNOTGETGATEWAY:
        return u"this computer has no default gateway"_s;
    case NATPMP_ERR_RECVFROM:
        return errno == ECONNREFUSED ? u"the gateway refused NAT-PMP"_s : u"NAT-PMP: no answer"_s;
    case NATPMP_ERR_NOTAUTHORIZED:
        return u"NAT-PMP: not authorized"_s;
    case NATPMP_ERR_NETWORKFAILURE:
        return u"NAT-PMP: the router has no external address"_s;
    case NATPMP_ERR_OUTOFRESOURCES:
        return u"NAT-PMP: the router has no room for another mapping"_s;
    case NATPMP_ERR_UNSUPPORTEDVERSION:
    case NATPMP_ERR_UNSUPPORTEDOPCODE:
        return u"NAT-PMP: the router does not support it"_s;
    case NATPMP_TRYAGAIN:
    case NATPMP_ERR_NOGATEWAYSUPPORT:
        return u"no NAT-PMP answer from the gateway"_s;
    default:
        return u"NAT-PMP error %1"_s.arg(code);
    }
}

QString UpnpError(int code)
{
    const char* text = strupnperror(code);
    return text ? u"UPnP error %1 (%2)"_s.arg(code).arg(QString::fromLatin1(text)) : u"UPnP error %1"_s.arg(code);
}

// Reads a text the router wrote into a fixed buffer; nothing of it is trusted beyond the buffer.
QHostAddress AddressFrom(const char* text, std::size_t size)
{
    QHostAddress address;
    if (!address.setAddress(QString::fromLatin1(text, qsizetype(qstrnlen(text, size)))) ||
        address.protocol() != QAbstractSocket::IPv4Protocol || address.isEqual(QHostAddress::AnyIPv4))
        return {};
    return address;
}

constexpr int kUpnpCodeConflict = 718;         // ConflictInMappingEntry
constexpr int kUpnpCodePermanentOnly = 725;    // OnlyPermanentLeasesSupported

} // namespace

bool IsPublicIPv4(const QHostAddress& address)
{
    if (address.protocol() != QAbstractSocket::IPv4Protocol) return false;
    const quint32 value = address.toIPv4Address();
    for (const auto& range : kNotPublic)
        if ((value >> (32 - range.bits)) == (range.base >> (32 - range.bits))) return false;
    return true;
}

QHostAddress PublicAddressOfThisMachine()
{
    const auto interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : interfaces) {
        if (!interface.flags().testFlag(QNetworkInterface::IsUp)) continue;
        const auto entries = interface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries)
            if (IsPublicIPv4(entry.ip())) return entry.ip();
    }
    return {};
}

QString ViaName(Via via)
{
    switch (via) {
    case Via::NatPmp:
        return u"NAT-PMP"_s;
    case Via::Upnp:
        return u"UPnP"_s;
    case Via::None:
        break;
    }
    return u"none"_s;
}

struct Gateway::NatPmp
{
    natpmp_t session{};
    bool open = false;
    ~NatPmp()
    {
        if (open) closenatpmp(&session);
    }

    // Sends nothing itself: waits for the answer to the request just sent, resending as the
    // library's schedule says, until `deadline`.
    int Answer(natpmpresp_t* response, const QDeadlineTimer& deadline)
    {
        for (;;) {
            timeval wait{};
            getnatpmprequesttimeout(&session, &wait);
            const qint64 retryMs = qint64(wait.tv_sec) * 1000 + wait.tv_usec / 1000;
            pollfd ready{session.s, POLLIN, 0};
            ::poll(&ready, 1, int(std::clamp<qint64>(std::min(retryMs, deadline.remainingTime()), 0, 1000)));
            const int result = readnatpmpresponseorretry(&session, response);
            if (result != NATPMP_TRYAGAIN || deadline.hasExpired()) return result;
        }
    }
};

struct Gateway::Upnp
{
    UPNPUrls urls{};
    IGDdatas data{};
    bool valid = false;
    ~Upnp()
    {
        if (valid) FreeUPNPUrls(&urls);
    }
    const char* Control() const { return urls.controlURL; }
    const char* Service() const { return data.first.servicetype; }
};

Gateway::Gateway(Bounds bounds) : m_bounds(std::move(bounds)) {}

Gateway::~Gateway() = default;

bool Gateway::Find()
{
    m_via = Via::None;
    m_external = m_local = QHostAddress();
    QString natpmpWhy, upnpWhy;
    if (FindNatPmp(&natpmpWhy)) return true;
    if (FindUpnp(&upnpWhy)) return true;
    m_whyNone = natpmpWhy + u"; "_s + upnpWhy;
    return false;
}

bool Gateway::FindNatPmp(QString* why)
{
    m_natpmp = std::make_unique<NatPmp>();
    if (const int result = initnatpmp(&m_natpmp->session, 0, 0); result < 0) {
        *why = NatPmpError(result);
        m_natpmp.reset();
        return false;
    }
    m_natpmp->open = true;
    natpmpresp_t response{};
    int result = sendpublicaddressrequest(&m_natpmp->session);
    if (result >= 0) result = m_natpmp->Answer(&response, QDeadlineTimer(m_bounds.NatPmpMs));
    if (result < 0 && result != NATPMP_ERR_NETWORKFAILURE) {
        *why = NatPmpError(result);
        m_natpmp.reset();
        return false;
    }
    // A router that speaks NAT-PMP but has no external address yet is still the one to ask.
    m_via = Via::NatPmp;
    if (result >= 0 && response.type == NATPMP_RESPTYPE_PUBLICADDRESS)
        if (const quint32 external = ntohl(response.pnu.publicaddress.addr.s_addr); external != 0)
            m_external = QHostAddress(external);
    return true;
}

bool Gateway::FindUpnp(QString* why)
{
    m_upnp = std::make_unique<Upnp>();
    char lan[64] = {};
    int found = 0;
    if (!m_bounds.UpnpDescription.isEmpty()) {
        found = UPNP_GetIGDFromUrl(m_bounds.UpnpDescription.toUtf8().constData(), &m_upnp->urls, &m_upnp->data,
                                   lan, sizeof lan);
        m_upnp->valid = found != 0;
    } else {
        int error = 0;
        UPNPDev* devices = upnpDiscover(m_bounds.UpnpDiscoverMs, nullptr, nullptr, UPNP_LOCAL_PORT_ANY, 0, 2, &error);
        if (devices) {
            found = UPNP_GetValidIGD(devices, &m_upnp->urls, &m_upnp->data, lan, sizeof lan);
            m_upnp->valid = found != 0;
            freeUPNPDevlist(devices);
        }
    }
    // 1: a connected router; 2: a router that says it is not connected, which still tells its
    // address (a router behind another one may say so); 3: a UPnP device that is no router.
    if (found != 1 && found != 2) {
        *why = found == 3 ? u"the UPnP device found is no router"_s
                          : m_bounds.UpnpDescription.isEmpty()
                                ? u"no UPnP router answered within %1 ms"_s.arg(m_bounds.UpnpDiscoverMs)
                                : u"no UPnP router at %1"_s.arg(m_bounds.UpnpDescription);
        m_upnp.reset();
        return false;
    }
    m_via = Via::Upnp;
    m_local = AddressFrom(lan, sizeof lan);
    char external[40] = {};
    if (UPNP_GetExternalIPAddress(m_upnp->Control(), m_upnp->Service(), external) == UPNPCOMMAND_SUCCESS)
        m_external = AddressFrom(external, sizeof external);
    return true;
}

Mapping Gateway::Map(quint16 port, int leaseSeconds)
{
    switch (m_via) {
    case Via::NatPmp:
        return MapNatPmp(port, leaseSeconds);
    case Via::Upnp:
        return MapUpnp(port, leaseSeconds);
    case Via::None:
        break;
    }
    Mapping none;
    none.Why = m_whyNone;
    return none;
}

Mapping Gateway::MapNatPmp(quint16 port, int leaseSeconds)
{
    Mapping mapping;
    natpmpresp_t response{};
    int result = sendnewportmappingrequest(&m_natpmp->session, NATPMP_PROTOCOL_UDP, port, port, quint32(leaseSeconds));
    if (result >= 0) result = m_natpmp->Answer(&response, QDeadlineTimer(m_bounds.NatPmpMs));
    if (result < 0) {
        mapping.Outcome = result == NATPMP_TRYAGAIN || result == NATPMP_ERR_RECVFROM ? Mapping::Result::NoRouter
                                                                                    : Mapping::Result::Refused;
        mapping.Why = NatPmpError(result);
        return mapping;
    }
    mapping.Port = response.pnu.newportmapping.mappedpublicport;
    // Renewed at half the lease: a week is long enough for any router's word.
    mapping.LeaseSeconds = int(std::min<quint32>(response.pnu.newportmapping.lifetime, 7 * 86400));
    if (mapping.Port != port) {
        // The router gave another port: ours already goes elsewhere. Players always send to the
        // server's own port, so the one given is of no use.
        sendnewportmappingrequest(&m_natpmp->session, NATPMP_PROTOCOL_UDP, port, 0, 0);
        m_natpmp->Answer(&response, QDeadlineTimer(m_bounds.NatPmpMs));
        mapping.Outcome = Mapping::Result::Taken;
        mapping.Why = u"NAT-PMP offered port %1 instead"_s.arg(mapping.Port);
        return mapping;
    }
    mapping.Outcome = Mapping::Result::Mapped;
    return mapping;
}

Mapping Gateway::MapUpnp(quint16 port, int leaseSeconds)
{
    Mapping mapping;
    const QByteArray number = QByteArray::number(port);
    const QByteArray client = m_local.toString().toLatin1();
    const auto add = [&](int lease) {
        return UPNP_AddPortMapping(m_upnp->Control(), m_upnp->Service(), number.constData(), number.constData(),
                                   client.constData(), "Linkhop", "UDP", nullptr,
                                   QByteArray::number(lease).constData());
    };
    int result = add(leaseSeconds);
    if (result == kUpnpCodePermanentOnly) {
        leaseSeconds = 0;
        result = add(0);
    }
    if (result == UPNPCOMMAND_SUCCESS) {
        mapping.Outcome = Mapping::Result::Mapped;
        mapping.Port = port;
        mapping.LeaseSeconds = leaseSeconds;
        return mapping;
    }
    mapping.Why = UpnpError(result);
    mapping.Outcome = result < 0 ? Mapping::Result::NoRouter : Mapping::Result::Refused;
    if (result == kUpnpCodeConflict) {
        mapping.Outcome = Mapping::Result::Taken;
        char holder[40] = {}, holderPort[8] = {}, description[96] = {}, enabled[8] = {}, lease[20] = {};
        if (UPNP_GetSpecificPortMappingEntry(m_upnp->Control(), m_upnp->Service(), number.constData(), "UDP",
                                             nullptr, holder, holderPort, description, enabled,
                                             lease) == UPNPCOMMAND_SUCCESS)
            mapping.Holder = AddressFrom(holder, sizeof holder);
    }
    return mapping;
}

bool Gateway::Unmap(quint16 port, QString* why)
{
    int result = 0;
    if (m_via == Via::NatPmp) {
        natpmpresp_t response{};
        result = sendnewportmappingrequest(&m_natpmp->session, NATPMP_PROTOCOL_UDP, port, 0, 0);
        if (result >= 0) result = m_natpmp->Answer(&response, QDeadlineTimer(m_bounds.NatPmpMs));
        if (result < 0 && why) *why = NatPmpError(result);
    } else if (m_via == Via::Upnp) {
        result = UPNP_DeletePortMapping(m_upnp->Control(), m_upnp->Service(), QByteArray::number(port).constData(),
                                        "UDP", nullptr);
        if (result != UPNPCOMMAND_SUCCESS && why) *why = UpnpError(result);
    }
    return result >= 0 && (m_via != Via::Upnp || result == UPNPCOMMAND_SUCCESS);
}

} // namespace linkhop::router
