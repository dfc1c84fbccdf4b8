#pragma once

#include <QApplication>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QWidget>
#include <functional>
#include <memory>

namespace linkhop::test {

// The control named `name` in `window`; a missing control ends the test program.
template <class Control> Control* Find(const QObject* window, const QString& name)
{
    auto* control = window->findChild<Control*>(name);
    if (!control) qFatal("no control %s", qPrintable(name));
    return control;
}

inline const QString kModalWaitName = QStringLiteral("WhenModal");

// Runs `act` on the modal dialog of type Dialog as soon as one is open, from the dialog's own
// event loop. Gives up silently after `timeoutMs`, or when StopModalWaits runs.
template <class Dialog> void WhenModal(std::function<void(Dialog*)> act, int timeoutMs = 5000)
{
    auto* poll = new QTimer(qApp);
    poll->setObjectName(kModalWaitName);
    poll->setInterval(10);
    auto left = std::make_shared<int>(timeoutMs / 10);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, act = std::move(act), left] {
        if (auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget())) {
            poll->stop();
            poll->deleteLater();
            act(dialog);
        } else if (--*left <= 0) {
            poll->stop();
            poll->deleteLater();
        }
    });
    poll->start();
}

// Ends every wait that WhenModal left, so that none outlives the test whose state it uses.
inline void StopModalWaits()
{
    qDeleteAll(qApp->findChildren<QTimer*>(kModalWaitName, Qt::FindDirectChildrenOnly));
}

// Runs the deletions that windows scheduled for themselves.
inline void RunDeferredDeletes()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace linkhop::test
