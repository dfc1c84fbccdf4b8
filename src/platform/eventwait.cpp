#include "eventwait.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

namespace linkhop {

void LetEventsRun() { QCoreApplication::processEvents(); }

bool LetEventsRunUntil(const std::function<bool()>& done, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    // Wakes the wait regularly, so that a condition changed without an event is seen and the
    // deadline is kept, without spinning while nothing happens.
    QTimer heartbeat;
    heartbeat.start(20);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

} // namespace linkhop
