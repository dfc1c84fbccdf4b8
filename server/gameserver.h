#pragma once

#include "core/localport.h"
#include "room.h"
#include "routes.h"
#include "serversocket.h"

#include <QObject>
#include <QTimer>
#include <atomic>
#include <memory>

namespace linkhop::server {

// A room on a socket: binds the server port, feeds every datagram that passes the limits to the
// room, sends what it says, and keeps its clock ticking.
class GameServer final : public QObject, private RoomOutput
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(GameServer)

public:
    explicit GameServer(ServerConfig config, QObject* parent = nullptr);
    ~GameServer() override;

    // Binds `port` exclusively on `address`; false when another socket holds it.
    bool Start(const QHostAddress& address = QHostAddress::AnyIPv4, quint16 port = kServerPort);
    // Tells every player the server is going away ("DISCONNECT") and closes the socket.
    void Shutdown();
    // A game line for the hosting player (the longest present) alone, sent once its game window
    // listens: when it is first heard from after joining, or now if it was already.
    void TellHost(const QString& line);

    Room& GameRoom() { return m_room; }
    const Room& GameRoom() const { return m_room; }

    // Read by benchmarks from another thread.
    quint64 DatagramsIn() const { return m_in.load(std::memory_order_relaxed); } // handed to the room
    quint64 DatagramsRead() const { return m_socket.Received(); }
    quint64 DatagramsRefused() const { return m_socket.Refused(); }
    quint64 Blocks() const { return m_socket.Blocks(); }
    quint64 KernelDrops() const { return m_socket.KernelDrops(); }
    quint64 DatagramsOut() const { return m_out.load(std::memory_order_relaxed); }
    quint64 BytesOut() const { return m_bytesOut.load(std::memory_order_relaxed); }
    quint64 SendFailures() const { return m_failures.load(std::memory_order_relaxed); }

Q_SIGNALS:
    void EventLogged(const QString& line);

private:
    void Send(const QString& text, const Endpoint& to) override;
    void Event(const QString& line) override;
    void Seated(const Endpoint& where, bool present) override;
    void Received(const QString& text, const QHostAddress& sender, quint16 port);
    void Report();
    Endpoint HostEndpoint() const;
    void SendHostNote();

    ServerSocket m_socket;
    std::unique_ptr<WikiEncyclopedia> m_encyclopedia; // outlives the room, which asks it
    Room m_room;
    QTimer m_housekeeping;
    QTimer m_flush;
    QTimer m_report;
    quint64 m_own = 0;
    QString m_hostNote;
    Endpoint m_hostHeard; // the host, once heard from after the datagram that seated it
    std::atomic<quint64> m_in{0};
    std::atomic<quint64> m_out{0};
    std::atomic<quint64> m_bytesOut{0};
    std::atomic<quint64> m_failures{0};
};

} // namespace linkhop::server
