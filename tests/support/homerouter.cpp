#include "homerouter.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QStandardPaths>
#include <QThread>

#include <atomic>
#include <fcntl.h>
#include <csignal>
#include <sched.h>
#include <sys/prctl.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::test {

namespace {

const QString kScript = QStringLiteral(LINKHOP_HOMEROUTER_SCRIPT);
const QString kDaemon = u"/usr/sbin/miniupnpd"_s;

std::atomic<int> g_routers{0};

bool Exists(const QString& program)
{
    return !QStandardPaths::findExecutable(program).isEmpty() ||
           !QStandardPaths::findExecutable(program, {u"/usr/sbin"_s, u"/sbin"_s}).isEmpty();
}

} // namespace

HomeRouter::HomeRouter(const QString& external) : m_external(external), m_player(external)
{
    m_tag = u"%1x%2"_s.arg(QCoreApplication::applicationPid()).arg(g_routers.fetch_add(1));
    m_prefix = u"lhr-"_s + m_tag;
    if (geteuid() != 0) {
        m_whyNot = u"making network namespaces needs root"_s;
        return;
    }
    for (const QString& program : {u"ip"_s, u"nft"_s, u"miniupnpd"_s, u"upnpc"_s}) {
        if (!Exists(program)) {
            m_whyNot = program + u" is not installed (scripts/setup.sh installs it)"_s;
            return;
        }
    }
    Script({u"sweep"_s});
    QString output;
    m_up = Script({u"up"_s, m_tag, m_external.toString()}, &output);
    if (!m_up) {
        m_whyNot = u"cannot make network namespaces here: "_s + output.trimmed();
        Script({u"down"_s, m_tag});
        return;
    }
    const QStringList interfaces = output.trimmed().split(u' ');
    m_lanInterface = interfaces.value(0);
    m_wanInterface = interfaces.value(1);
}

HomeRouter::~HomeRouter()
{
    StopDaemon();
    if (m_up) Script({u"down"_s, m_tag});
}

QHostAddress HomeRouter::PlayerAddress() const
{
    return QHostAddress((m_player.toIPv4Address() & 0xFFFFFF00u) | 9u);
}

void HomeRouter::SetExternal(const QString& external)
{
    if (!m_up || QHostAddress(external) == m_external) return;
    Run(Router(), u"ip"_s, {u"addr"_s, u"flush"_s, u"dev"_s, m_wanInterface});
    Run(Router(), u"ip"_s, {u"addr"_s, u"add"_s, external + u"/24"_s, u"dev"_s, m_wanInterface});
    m_external = QHostAddress(external);
}

QString HomeRouter::Description() const
{
    return u"http://%1:%2/rootDesc.xml"_s.arg(RouterLanAddress().toString()).arg(kHttpPort);
}

bool HomeRouter::Script(const QStringList& arguments, QString* output) const
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(u"/bin/bash"_s, QStringList{kScript} + arguments);
    const bool done = process.waitForFinished(20000);
    if (output) *output = QString::fromUtf8(process.readAll());
    return done && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

bool HomeRouter::StartDaemon(Daemon daemon, QString* log)
{
    StopDaemon();
    const auto yes = [](bool on) { return on ? u"yes"_s : u"no"_s; };
    const QString config = m_dir.filePath(u"miniupnpd.conf"_s);
    QFile file(config);
    if (!file.open(QIODevice::WriteOnly)) return false;
    file.write(u"ext_ifname=%1\nlistening_ip=%2\nhttp_port=%3\nenable_upnp=%4\nenable_natpmp=%5\n"
               u"secure_mode=%6\nsystem_uptime=yes\nuuid=6a3c6e52-7b1e-4d3f-9c1a-%7\n"
               u"allow 1024-65535 192.168.77.0/24 1024-65535\ndeny 0-65535 0.0.0.0/0 0-65535\n"_s
                   .arg(m_wanInterface, m_lanInterface)
                   .arg(kHttpPort)
                   .arg(yes(daemon.upnp), yes(daemon.natpmp), yes(daemon.secure))
                   .arg(QCoreApplication::applicationPid(), 12, 10, QLatin1Char('0'))
                   .toUtf8());
    file.close();
    m_daemonLog.clear();
    m_daemon.setProcessChannelMode(QProcess::MergedChannels);
    Prepare(m_daemon, Router(), kDaemon, {u"-d"_s, u"-f"_s, config, u"-P"_s, m_dir.filePath(u"miniupnpd.pid"_s)});
    m_daemon.start();
    // It says so once it listens for each protocol it speaks.
    const QDeadlineTimer deadline(5000);
    const auto ready = [&] {
        const QString text = DaemonLog();
        return (!daemon.upnp || text.contains(u"HTTP listening on port"_s)) &&
               (!daemon.natpmp || text.contains(u"Listening for NAT-PMP"_s));
    };
    while (!ready() && m_daemon.state() != QProcess::NotRunning && !deadline.hasExpired())
        m_daemon.waitForReadyRead(100);
    if (log) *log = DaemonLog();
    return ready() && m_daemon.state() == QProcess::Running;
}

void HomeRouter::StopDaemon()
{
    if (m_daemon.state() != QProcess::NotRunning) {
        m_daemon.terminate();
        if (!m_daemon.waitForFinished(5000)) {
            m_daemon.kill();
            m_daemon.waitForFinished(2000);
        }
    }
    if (m_up) Script({u"flush"_s, m_tag});
}

QString HomeRouter::DaemonLog()
{
    m_daemonLog += QString::fromUtf8(m_daemon.readAll());
    return m_daemonLog;
}

QStringList HomeRouter::Forwards() const
{
    const QString chain =
        Run(Router(), u"nft"_s, {u"list"_s, u"chain"_s, u"inet"_s, u"filter"_s, u"prerouting_miniupnpd"_s});
    QStringList rules;
    for (const QString& line : chain.split(u'\n'))
        if (line.contains(u"dnat"_s)) rules.append(line.trimmed());
    return rules;
}

void HomeRouter::Prepare(QProcess& process, const QString& ns, const QString& program, const QStringList& arguments)
{
    process.setProgram(u"ip"_s);
    process.setArguments(QStringList{u"netns"_s, u"exec"_s, ns, program} + arguments);
    // "ip netns exec" becomes the program itself; it ends with the test, even one that crashed.
    process.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

QString HomeRouter::Run(const QString& ns, const QString& program, const QStringList& arguments, int timeoutMs) const
{
    QProcess process;
    Prepare(process, ns, program, arguments);
    process.start();
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished(2000);
    }
    return QString::fromUtf8(process.readAllStandardOutput());
}

HomeRouter::Inside::Inside(const QString& ns)
{
    m_own = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    const int target = ::open(QFile::encodeName(u"/run/netns/"_s + ns).constData(), O_RDONLY | O_CLOEXEC);
    m_entered = m_own >= 0 && target >= 0 && ::setns(target, CLONE_NEWNET) == 0;
    if (target >= 0) ::close(target);
}

HomeRouter::Inside::~Inside()
{
    if (m_entered && ::setns(m_own, CLONE_NEWNET) != 0) qFatal("cannot return to the test's own network namespace");
    if (m_own >= 0) ::close(m_own);
}

} // namespace linkhop::test
