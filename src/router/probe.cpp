#include "probe.h"

#include <QThread>
#include <memory>

namespace linkhop::router {

QThread* AskExternalAddress(QObject* context, const Bounds& bounds, std::function<void(const QHostAddress&)> done)
{
    // Written by the thread before it finishes, read on `context`'s thread after.
    auto external = std::make_shared<QHostAddress>();
    QThread* thread = QThread::create([bounds, external] {
        Gateway gateway(bounds);
        if (gateway.Find() && IsPublicIPv4(gateway.External())) *external = gateway.External();
    });
    QObject::connect(thread, &QThread::finished, context, [external, done = std::move(done)] { done(*external); });
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start();
    return thread;
}

} // namespace linkhop::router
