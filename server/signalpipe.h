#pragma once

#include <QObject>

class QSocketNotifier;

namespace linkhop::server {

// Turns SIGINT and SIGTERM into a Qt signal on the event loop. The handler itself only writes the
// signal's number to a pipe; everything else happens when the loop reads it.
class SignalPipe final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(SignalPipe)

public:
    explicit SignalPipe(QObject* parent = nullptr);
    ~SignalPipe() override;

Q_SIGNALS:
    void Received(int signal);

private:
    void ReadPipe();
    QSocketNotifier* m_notifier = nullptr;
};

} // namespace linkhop::server
