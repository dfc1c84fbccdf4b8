#include "gameserver.h"

#include <algorithm>

using namespace Qt::Literals::StringLiterals;

namespace linkhop::server {

namespace {
// Merged updates wait at most this long for the next chance to go out.
constexpr int kFlushMs = 20;
} // namespace

GameServer::GameServer(ServerConfig config, QObject* parent)
    : QObject(parent), m_room(std::move(config), *this)
{
    connect(&m_endpoint, &UdpEndpoint::DataArrival, this, &GameServer::Received);
    connect(&m_endpoint, &UdpEndpoint::Error, this,
            [this](int, const QString&) { m_failures.fetch_add(1, std::memory_order_relaxed); });
    // Often enough that a silent player goes within a tenth of the silence allowed.
    m_housekeeping.setInterval(int(std::clamp<qint64>(m_room.Config().SilenceMs / 10, 10, 1000)));
    connect(&m_housekeeping, &QTimer::timeout, this, [this] { m_room.Tick(); });
    m_flush.setInterval(kFlushMs);
    connect(&m_flush, &QTimer::timeout, this, [this] {
        m_room.Tick();
        if (!m_room.HasPendingFanOut()) m_flush.stop();
    });
}

GameServer::~GameServer() = default;

bool GameServer::Start(const QHostAddress& address, quint16 port)
{
    if (!m_endpoint.Bind(QString::number(port), address)) return false;
    m_housekeeping.start();
    return true;
}

void GameServer::Shutdown()
{
    m_room.DisconnectAll();
    m_housekeeping.stop();
    m_flush.stop();
    m_endpoint.Close();
}

void GameServer::Received(const QString& text, const QHostAddress& sender, quint16 port)
{
    m_in.fetch_add(1, std::memory_order_relaxed);
    m_room.Handle(text, sender, port);
    if (m_room.HasPendingFanOut() && !m_flush.isActive()) m_flush.start();
}

void GameServer::Send(const QString& text, const Endpoint& to)
{
    m_out.fetch_add(1, std::memory_order_relaxed);
    m_endpoint.SendTo(text, to.Address, to.Port);
}

void GameServer::Event(const QString& line)
{
    Q_EMIT EventLogged(line);
}

} // namespace linkhop::server
