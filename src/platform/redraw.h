#pragma once

#include <QPointer>
#include <QWidget>

namespace linkhop {

// Suspends the redrawing of one window for the life of the object, so that a refresh that
// rewrites many controls shows in one step.
class RedrawSuspension
{
public:
    explicit RedrawSuspension(QWidget* window) : m_window(window)
    {
        if (m_window) m_window->setUpdatesEnabled(false);
    }
    ~RedrawSuspension()
    {
        if (m_window) m_window->setUpdatesEnabled(true);
    }
    RedrawSuspension(const RedrawSuspension&) = delete;
    RedrawSuspension& operator=(const RedrawSuspension&) = delete;

private:
    QPointer<QWidget> m_window;
};

} // namespace linkhop
