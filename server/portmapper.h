#pragma once

#include "router/gateway.h"

#include <QHostAddress>
#include <QObject>
#include <QStringList>
#include <condition_variable>
#include <mutex>
#include <thread>

class QCommandLineParser;

namespace linkhop::server {

struct PortMapSettings
{
    bool Enabled = true;
    QString OffBecause; // for the log, when not Enabled
    // Asked for with every mapping, which is renewed at half of what the router grants.
    int LeaseSeconds = 3600;
    router::Bounds Bounds;
};

// The option "PortMapping" beside the server ("off" turns it off), then the command line's say.
void AddPortMapOptions(QCommandLineParser& parser);
PortMapSettings LoadPortMapSettings(const QString& folder, const QCommandLineParser* parser = nullptr,
                                    QStringList* warnings = nullptr);

// Keeps the server's UDP port open on the home router while the server runs: asks for a mapping
// when started, renews it before its lease ends, and removes it when stopped. Talks to the router
// on a thread of its own, so the server serves its LAN from the first moment whatever the router
// does; every wait there is bounded.
class PortMapper final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(PortMapper)

public:
    explicit PortMapper(PortMapSettings settings, QObject* parent = nullptr);
    ~PortMapper() override; // stops

    // Returns at once; what the router says comes as Logged and HostNote.
    void Start(const QHostAddress& bound, quint16 port);
    // Removes the mapping, if one was made, before it returns: as long as the router takes to
    // answer, within the bounds, and as long as a search still under way takes to end.
    void Stop();

Q_SIGNALS:
    // A line for the server's log, from the mapper's own thread.
    void Logged(const QString& line);
    // What the hosting player should read about reaching the server from the Internet.
    void HostNote(const QString& line);

private:
    void Run(QHostAddress bound, quint16 port);
    bool WaitFor(int ms); // false once stopping

    PortMapSettings m_settings;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopping = false;
};

} // namespace linkhop::server
