#include "portmapper.h"

#include "core/options.h"

#include <QCommandLineParser>
#include <QElapsedTimer>
#include <QNetworkInterface>
#include <climits>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {

const QString kNoMapping = u"no-port-mapping"_s;
const QString kLease = u"port-mapping-lease"_s;
const QString kUpnpWait = u"upnp-wait"_s;
const QString kUpnpDescription = u"upnp-description"_s;

// A renewal that fails is tried again this often, from the start: the router may have restarted.
constexpr int kRetryMs = 60000;

// This machine's address on its network, for telling the host where to forward the port.
QString LanAddress()
{
    const auto interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : interfaces) {
        if (!interface.flags().testFlag(QNetworkInterface::IsUp) ||
            interface.flags().testFlag(QNetworkInterface::IsLoopBack))
            continue;
        const auto entries = interface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries)
            if (entry.ip().protocol() == QAbstractSocket::IPv4Protocol && !entry.ip().isLinkLocal())
                return entry.ip().toString();
    }
    return u"this computer"_s;
}

QString ByHand(quint16 port)
{
    return u"forward UDP port %1 to %2 in your router's settings, and give the players your router's external "
           u"address"_s.arg(port)
        .arg(LanAddress());
}

QString DoubleNatNote(quint16 port, const QString& external)
{
    return u"Your router has no public address of its own (it says: %1): another router, or your provider's, "
           u"stands in front of it. Players on the Internet can join only if that one forwards UDP port %2 to your "
           u"router, and yours to this computer (%3)."_s.arg(external, QString::number(port), LanAddress());
}

} // namespace

void AddPortMapOptions(QCommandLineParser& parser)
{
    parser.addOption({kNoMapping, u"Do not ask the router to forward the server's port (an option file "
                                  u"PortMapping.dat saying \"off\" does the same)."_s});
    QCommandLineOption lease(kLease, u"Ask the router for mappings of SECONDS."_s, u"SECONDS"_s);
    QCommandLineOption wait(kUpnpWait, u"Wait MS for routers answering the UPnP discovery."_s, u"MS"_s);
    QCommandLineOption description(kUpnpDescription, u"Ask the UPnP router described at URL, without discovery."_s,
                                   u"URL"_s);
    for (QCommandLineOption* option : {&lease, &wait, &description}) {
        option->setFlags(QCommandLineOption::HiddenFromHelp);
        parser.addOption(*option);
    }
}

PortMapSettings LoadPortMapSettings(const QString& folder, const QCommandLineParser* parser, QStringList* warnings)
{
    PortMapSettings settings;
    const QString option = Options(folder).LoadOption(u"PortMapping"_s).trimmed().toLower();
    if (option == u"off"_s || option == u"no"_s || option == u"0"_s) {
        settings.Enabled = false;
        settings.OffBecause = u"PortMapping.dat says \"off\""_s;
    } else if (!option.isEmpty() && option != u"on"_s && option != u"yes"_s && option != u"1"_s && warnings) {
        warnings->append(u"PortMapping: \"%1\" is neither \"on\" nor \"off\"; the router is asked."_s.arg(option));
    }
    if (!parser) return settings;
    if (parser->isSet(kNoMapping)) {
        settings.Enabled = false;
        settings.OffBecause = u"--"_s + kNoMapping;
    }
    const auto number = [&](const QString& name, int low, int high, int& value) {
        if (!parser->isSet(name)) return;
        bool ok = false;
        const int given = parser->value(name).toInt(&ok);
        if (ok && given >= low && given <= high)
            value = given;
        else if (warnings)
            warnings->append(u"--%1: \"%2\" is no number from %3 to %4; ignored."_s.arg(name, parser->value(name))
                                 .arg(low)
                                 .arg(high));
    };
    number(kLease, 2, 86400, settings.LeaseSeconds);
    number(kUpnpWait, 10, 10000, settings.Bounds.UpnpDiscoverMs);
    settings.Bounds.UpnpDescription = parser->value(kUpnpDescription);
    return settings;
}

PortMapper::PortMapper(PortMapSettings settings, QObject* parent) : QObject(parent), m_settings(std::move(settings))
{
}

PortMapper::~PortMapper()
{
    Stop();
}

void PortMapper::Start(const QHostAddress& bound, quint16 port)
{
    if (!m_settings.Enabled) {
        Q_EMIT Logged(u"router: not asked to forward UDP port %1 (%2)"_s.arg(port).arg(m_settings.OffBecause));
        return;
    }
    if (bound.isLoopback()) {
        Q_EMIT Logged(u"router: not asked to forward UDP port %1: the server listens on loopback only"_s.arg(port));
        return;
    }
    if (m_thread.joinable()) return;
    m_stopping = false;
    m_thread = std::thread([this, bound, port] { Run(bound, port); });
}

void PortMapper::Stop()
{
    if (!m_thread.joinable()) return;
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

bool PortMapper::WaitFor(int ms)
{
    std::unique_lock lock(m_mutex);
    m_wake.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_stopping; });
    return !m_stopping;
}

void PortMapper::Run(QHostAddress bound, quint16 port)
{
    QElapsedTimer clock;
    clock.start();
    const QString portText = QString::number(port);
    // Behind no router there is nothing to ask, and nobody who should be asked.
    const QHostAddress own = bound.isEqual(QHostAddress::AnyIPv4) ? router::PublicAddressOfThisMachine() : bound;
    if (router::IsPublicIPv4(own)) {
        Q_EMIT Logged(u"router: not asked: this machine has a public address (%1)"_s.arg(own.toString()));
        Q_EMIT HostNote(u"This computer has a public address: players on the Internet join at %1, if no firewall "
                        u"blocks UDP port %2."_s.arg(own.toString(), portText));
        return;
    }

    bool mapped = false; // the router holds our mapping, as far as we know
    bool told = false;   // the host has its note
    bool find = true;    // look for the router (again)
    router::Gateway gateway(m_settings.Bounds);
    for (int waitMs = 0; WaitFor(waitMs);) {
        if (find && !gateway.Find()) {
            Q_EMIT Logged(u"router: no mapping of UDP port %1: no router found (%2)"_s.arg(portText, gateway.WhyNone()));
            if (!told)
                Q_EMIT HostNote(u"No router answered Linkhop (UPnP, NAT-PMP). To host over the Internet, "_s +
                                ByHand(port) + u"."_s);
            told = true;
            if (!mapped) break;
            waitMs = kRetryMs;
            continue;
        }
        find = false;
        if (!WaitFor(0)) break;
        const QString via = router::ViaName(gateway.FoundVia());
        const router::Mapping mapping = gateway.Map(port, m_settings.LeaseSeconds);
        const QHostAddress external = gateway.External();
        // A router whose own external address is private, or that has none to tell, stands
        // behind another NAT (or is not connected): a mapping on it alone reaches nobody outside.
        const bool doubleNat = !router::IsPublicIPv4(external);
        const QString externalText = external.isNull() ? u"none"_s : external.toString();
        if (mapping.Outcome == router::Mapping::Result::Mapped) {
            const QString lease =
                mapping.LeaseSeconds > 0 ? u"lease %1 s"_s.arg(mapping.LeaseSeconds) : u"no lease"_s;
            if (mapped) {
                Q_EMIT Logged(u"router: %1 renewed UDP port %2 (%3)"_s.arg(via, portText, lease));
            } else {
                Q_EMIT Logged(u"router: %1 forwards UDP port %2 from %3:%4 (%5; %6 ms after start)"_s.arg(
                    via, portText, externalText, QString::number(mapping.Port), lease,
                    QString::number(clock.elapsed())));
            }
            mapped = true;
            if (!told && doubleNat) {
                Q_EMIT Logged(u"router: double NAT: the router's external address (%1) is not public"_s.arg(externalText));
                Q_EMIT HostNote(DoubleNatNote(port, externalText));
            } else if (!told) {
                Q_EMIT HostNote(u"Your router forwards UDP port %1 to this computer (%2): players on the Internet "
                                u"join at %3."_s.arg(portText, via, externalText));
            }
            told = true;
            // Renewed at half the lease, so that one lost answer still leaves time for another try.
            waitMs = mapping.LeaseSeconds > 0 ? mapping.LeaseSeconds * 500 : INT_MAX;
            continue;
        }
        if (mapping.Outcome == router::Mapping::Result::Taken) {
            const QString holder = mapping.Holder.isNull() ? u"another computer"_s
                                                           : u"another computer (%1)"_s.arg(mapping.Holder.toString());
            Q_EMIT Logged(u"router: no mapping of UDP port %1: %2 says the port already goes to %3 (%4)"_s.arg(
                portText, via, holder, mapping.Why));
            if (!told)
                Q_EMIT HostNote(u"Your router already forwards UDP port %1 to %2: only one computer behind a router can "
                                u"host. Stop the other server, or forward the port to this computer (%3) in your "
                                u"router's settings."_s.arg(portText, holder, LanAddress()));
        } else if (doubleNat) {
            Q_EMIT Logged(u"router: no mapping of UDP port %1: double NAT: %2 refused (%3), and the router's external "
                          u"address (%4) is not public"_s.arg(portText, via, mapping.Why, externalText));
            if (!told) Q_EMIT HostNote(DoubleNatNote(port, externalText));
        } else {
            Q_EMIT Logged(u"router: no mapping of UDP port %1: %2 refused (%3)"_s.arg(portText, via, mapping.Why));
            if (!told)
                Q_EMIT HostNote(u"Your router refused to forward UDP port %1 (%2: %3). To host over the Internet, "_s
                                    .arg(portText, via, mapping.Why) +
                                ByHand(port) + u"."_s);
        }
        told = true;
        if (!mapped) break;
        // A renewal refused: the router may have restarted; look for it again in a while.
        find = true;
        waitMs = kRetryMs;
    }

    if (!mapped) return;
    QString why;
    if (gateway.Unmap(port, &why))
        Q_EMIT Logged(u"router: removed the mapping of UDP port %1"_s.arg(portText));
    else
        Q_EMIT Logged(u"router: could not remove the mapping of UDP port %1 (%2); it ends with its lease"_s.arg(
            portText, why));
}

} // namespace linkhop::server
