#pragma once

#include <QHostAddress>
#include <QString>
#include <memory>

namespace linkhop::router {

// Whether players on the Internet could reach this address directly: not private, shared
// (carrier-grade NAT), loopback, link-local, documentation, benchmarking, multicast or reserved.
bool IsPublicIPv4(const QHostAddress& address);
// This machine's first public IPv4 address on an interface that is up; null when it has none.
QHostAddress PublicAddressOfThisMachine();

enum class Via
{
    None,
    NatPmp,
    Upnp,
};
QString ViaName(Via via);

// How long one conversation with the router may take. A router that answers at all answers on the
// local network within milliseconds; these bounds only cut short waiting for one that does not.
struct Bounds
{
    int NatPmpMs = 800;         // NAT-PMP at the default gateway: a try after 250 ms, another after 500
    int UpnpDiscoverMs = 2000;  // UPnP: how long to listen for routers answering the discovery
    QString UpnpDescription;    // a router's description address: asked directly, without discovery
};

// What one request for a mapping came to.
struct Mapping
{
    enum class Result
    {
        Mapped,
        NoRouter, // no router answered
        Refused,  // the router answered and refused
        Taken,    // the router's port already goes to another computer
    };
    Result Outcome = Result::NoRouter;
    quint16 Port = 0;     // the router's port that reaches ours (the same number when Mapped)
    int LeaseSeconds = 0; // 0: until removed
    QString Why;          // what the router said, in words, when not Mapped
    QHostAddress Holder;  // Taken: the computer the port goes to, when the router says
};

// One conversation with the home router, by NAT-PMP or UPnP IGD, whichever it answers first. Every
// call blocks, within the bounds given, so it belongs off the event loop; one thread at a time.
class Gateway final
{
public:
    explicit Gateway(Bounds bounds = {});
    ~Gateway();
    Gateway(const Gateway&) = delete;
    Gateway& operator=(const Gateway&) = delete;

    // Looks for the router: NAT-PMP at the default gateway first (one datagram, which routers
    // that speak it answer, and others mostly refuse, at once), then UPnP discovery. True when a
    // router answered; it may still have no usable external address (see External()).
    bool Find();
    Via FoundVia() const { return m_via; }
    // The router's external address as it told it; null if it did not.
    QHostAddress External() const { return m_external; }
    // This computer's address on the router's network, as UPnP saw it; null with NAT-PMP.
    QHostAddress Local() const { return m_local; }
    // Why Find() found nothing, in words.
    QString WhyNone() const { return m_whyNone; }

    // Asks the found router to send what reaches its external UDP `port` to the same port here,
    // for `leaseSeconds`. Asking again renews.
    Mapping Map(quint16 port, int leaseSeconds);
    // Removes the mapping Map() made; false with the reason in `why` when the router did not.
    bool Unmap(quint16 port, QString* why = nullptr);

private:
    struct NatPmp;
    struct Upnp;
    bool FindNatPmp(QString* why);
    bool FindUpnp(QString* why);
    Mapping MapNatPmp(quint16 port, int leaseSeconds);
    Mapping MapUpnp(quint16 port, int leaseSeconds);

    Bounds m_bounds;
    Via m_via = Via::None;
    QHostAddress m_external;
    QHostAddress m_local;
    QString m_whyNone;
    std::unique_ptr<NatPmp> m_natpmp;
    std::unique_ptr<Upnp> m_upnp;
};

} // namespace linkhop::router
