#pragma once

#include <QHostAddress>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

namespace linkhop::test {

// A home network behind a real router, built in network namespaces of its own (homerouter.sh):
// the home computer at 192.168.77.2, the router at 192.168.77.1 running Debian's miniupnpd with
// address translation, its external address on a public-looking network that nothing links to
// the host's, and a player on the Internet side at .9 of that network. Removed when destroyed.
class HomeRouter final
{
public:
    // `external`: the router's external address.
    explicit HomeRouter(const QString& external = QStringLiteral("11.77.0.1"));
    ~HomeRouter();
    HomeRouter(const HomeRouter&) = delete;
    HomeRouter& operator=(const HomeRouter&) = delete;

    // Empty when the network stands; otherwise why it cannot be built here.
    const QString& WhyNot() const { return m_whyNot; }

    QString Home() const { return m_prefix + QStringLiteral("-home"); }
    QString Router() const { return m_prefix + QStringLiteral("-router"); }
    QString Internet() const { return m_prefix + QStringLiteral("-net"); }
    static QHostAddress HomeAddress() { return QHostAddress(QStringLiteral("192.168.77.2")); }
    static QHostAddress RouterLanAddress() { return QHostAddress(QStringLiteral("192.168.77.1")); }
    QHostAddress External() const { return m_external; }
    // Gives the router another external address (on the same /24 as the player, or elsewhere).
    void SetExternal(const QString& external);
    QHostAddress PlayerAddress() const;
    static constexpr quint16 kHttpPort = 5000; // the router's UPnP description and control
    QString Description() const; // the router's UPnP description address

    struct Daemon
    {
        bool upnp = true;
        bool natpmp = true;
        bool secure = true; // mappings only for the computer that asks
    };
    // Starts miniupnpd on the router; false (with its log in `log`) when it did not come up.
    bool StartDaemon(Daemon daemon, QString* log = nullptr);
    // Stops it and empties its chains, which a stopped daemon leaves filled.
    void StopDaemon();
    QString DaemonLog();

    // The router's forwarding rules that miniupnpd made, one per line ("... dport 7200 dnat ...").
    QStringList Forwards() const;
    // Runs `program` in namespace `ns` to its end (at most `timeoutMs`); its standard output.
    QString Run(const QString& ns, const QString& program, const QStringList& arguments,
                int timeoutMs = 10000) const;
    // Prepares `process` to run `program` in namespace `ns`.
    static void Prepare(QProcess& process, const QString& ns, const QString& program, const QStringList& arguments);

    // While it lives, sockets this thread creates belong to namespace `ns`; threads it starts too.
    class Inside final
    {
    public:
        explicit Inside(const QString& ns);
        ~Inside();
        Inside(const Inside&) = delete;
        Inside& operator=(const Inside&) = delete;
        bool Entered() const { return m_entered; }

    private:
        int m_own = -1;
        bool m_entered = false;
    };

private:
    bool Script(const QStringList& arguments, QString* output = nullptr) const;

    QString m_tag;
    QString m_prefix;
    QHostAddress m_external;
    QHostAddress m_player; // the Internet side's network
    QString m_lanInterface;
    QString m_wanInterface;
    QString m_whyNot;
    bool m_up = false;
    QTemporaryDir m_dir;
    QProcess m_daemon;
    QString m_daemonLog;
};

} // namespace linkhop::test
