#pragma once

#include <QApplication>
#include <QTimer>
#include <functional>

namespace linkhop::test {

// The control named `name` in `window`; a missing control ends the test program.
template <class Control> Control* Find(const QObject* window, const QString& name)
{
    auto* control = window->findChild<Control*>(name);
    if (!control) qFatal("no control %s", qPrintable(name));
    return control;
}

// Runs `act` on the modal dialog of type Dialog as soon as one is open, from the dialog's own
// event loop. Gives up silently after `timeoutMs`, or when StopModalWaits runs.
template <class Dialog> void WhenModal(std::function<void(Dialog*)> act, int timeoutMs = 5000)
{
    auto* poll = new QTimer(qApp);
    poll->setObjectName(QStringLiteral("WhenModal"));
    int left = timeoutMs / 10;
    QObject::connect(poll, &QTimer::timeout, poll, [poll, act = std::move(act), left]() mutable {
        auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget());
        if (!dialog && --left > 0) return;
        poll->stop();
        poll->deleteLater();
        if (dialog) act(dialog);
    });
    poll->start(10);
}

// Ends every wait that WhenModal left, so that none outlives the test whose state it uses.
inline void StopModalWaits()
{
    qDeleteAll(qApp->findChildren<QTimer*>(QStringLiteral("WhenModal"), Qt::FindDirectChildrenOnly));
}

} // namespace linkhop::test
