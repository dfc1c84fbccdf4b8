#pragma once

#include "gateway.h"

#include <QHostAddress>
#include <functional>

class QObject;
class QThread;

namespace linkhop::router {

// Asks the router for its external address on a thread of its own and returns at once. `done`
// runs later on `context`'s thread, with the address when the router told a public one, null
// otherwise; it never runs once `context` is gone. The thread deletes itself once finished and
// the caller's loop runs; until then the caller may wait for it.
QThread* AskExternalAddress(QObject* context, const Bounds& bounds, std::function<void(const QHostAddress&)> done);

} // namespace linkhop::router
