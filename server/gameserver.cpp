#include "gameserver.h"

#include "core/messages.h"
#include "core/wire.h"

#include <QLocale>
#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {
// Merged updates wait at most this long for the next chance to go out.
constexpr int kFlushMs = 20;
// What the limits refused is told in the log once in this while, not datagram by datagram.
constexpr int kReportMs = 10000;

FloodLimits LimitsOf(const ServerConfig& config)
{
    FloodLimits limits;
    limits.Rate = config.FloodRate;
    limits.Burst = config.FloodBurst;
    limits.ByteRate = config.FloodByteRate;
    limits.ByteBurst = config.FloodByteBurst;
    limits.StrangerRate = config.StrangerRate;
    return limits;
}
} // namespace

GameServer::GameServer(ServerConfig config, QObject* parent)
    : QObject(parent), m_socket(LimitsOf(config), config.MaxDatagram),
      m_encyclopedia(config.Site.isEmpty()
                         ? nullptr
                         : std::make_unique<WikiEncyclopedia>(
                               config.Site, config.Contact,
                               RequestBudget{config.ApiRate, config.ApiBurst, config.RoundRequests,
                                             config.SearchMaxRequests},
                               SearchBudget{config.SearchMaxClicks, config.SearchMaxRequests, config.SearchMaxMs})),
      m_room(std::move(config), *this)
{
    m_room.SetEncyclopedia(m_encyclopedia.get());
    connect(&m_socket, &ServerSocket::Arrived, this, &GameServer::Received);
    connect(&m_socket, &ServerSocket::Event, this, &GameServer::Event);
    // Often enough that a silent player goes within a tenth of the silence allowed, and a winner
    // whose route the encyclopedia does not answer for waits little longer than allowed.
    m_housekeeping.setInterval(int(std::clamp<qint64>(m_room.Config().SilenceMs / 10, 10, 250)));
    connect(&m_housekeeping, &QTimer::timeout, this, [this] { m_room.Tick(); });
    m_flush.setInterval(kFlushMs);
    connect(&m_flush, &QTimer::timeout, this, [this] {
        m_room.Tick();
        if (!m_room.HasPendingFanOut()) m_flush.stop();
    });
    m_report.setInterval(kReportMs);
    connect(&m_report, &QTimer::timeout, this, &GameServer::Report);
}

GameServer::~GameServer() = default;

bool GameServer::Start(const QHostAddress& address, quint16 port)
{
    if (!m_socket.Bind(address, port)) return false;
    m_housekeeping.start();
    m_report.start();
    return true;
}

void GameServer::Shutdown()
{
    m_room.DisconnectAll();
    m_housekeeping.stop();
    m_flush.stop();
    m_report.stop();
    Report();
    m_socket.Close();
}

void GameServer::Received(const QString& text, const QHostAddress& sender, quint16 port)
{
    m_in.fetch_add(1, std::memory_order_relaxed);
    // The datagram that seats the host is answered by its player list, after which the client
    // moves to its game window: a line sent meanwhile could be lost, one sent later is not.
    const Endpoint host = HostEndpoint();
    m_room.Handle(text, sender, port);
    if (host.Port != 0 && host == Endpoint{sender, port} && !(m_hostHeard == host)) {
        m_hostHeard = host;
        SendHostNote();
    }
    if (m_room.HasPendingFanOut() && !m_flush.isActive()) m_flush.start();
}

void GameServer::TellHost(const QString& line)
{
    m_hostNote = line;
    SendHostNote();
}

Endpoint GameServer::HostEndpoint() const
{
    const auto& players = m_room.Players();
    return players.isEmpty() ? Endpoint{} : players.first().Where;
}

void GameServer::SendHostNote()
{
    if (m_hostNote.isEmpty() || m_hostHeard.Port == 0 || !(HostEndpoint() == m_hostHeard)) return;
    Send(msg::Chat(msg::GameSpeaker, m_hostNote), m_hostHeard);
    m_hostNote.clear();
}

void GameServer::Send(const QString& text, const Endpoint& to)
{
    const QByteArray bytes = ToWire(text);
    switch (m_socket.SendTo(bytes, to.Address, to.Port)) {
    case ServerSocket::Sent::Ok:
        m_out.fetch_add(1, std::memory_order_relaxed);
        m_bytesOut.fetch_add(quint64(bytes.size()), std::memory_order_relaxed);
        break;
    case ServerSocket::Sent::Own:
        ++m_own;
        break;
    case ServerSocket::Sent::Failed:
        m_failures.fetch_add(1, std::memory_order_relaxed);
        break;
    }
}

void GameServer::Event(const QString& line)
{
    Q_EMIT EventLogged(line);
}

void GameServer::Seated(const Endpoint& where, bool present)
{
    m_socket.PlayerAt(where.Address, where.Port, present);
}

void GameServer::Report()
{
    for (const QString& line : m_socket.TakeReport())
        Event(line);
    if (m_own > 0)
        Event(u"did not answer %1 times: the answer would have gone to the server's own endpoint"_s.arg(
            QLocale::c().toString(m_own)));
    m_own = 0;
}

} // namespace linkhop::server
