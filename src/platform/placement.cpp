#include "placement.h"

#include <QEvent>
#include <QTimer>
#include <QWidget>
#include <QWindow>

namespace linkhop {

namespace {

bool FrameKnown(const QWidget& window)
{
    return window.frameGeometry() != window.geometry();
}

// Waits, as a child of the window, for its first exposure with its frame known, places it once
// more and goes.
class FrameWait final : public QObject
{
public:
    FrameWait(QWidget& window, std::function<void()> place)
        : QObject(&window), m_window(window), m_place(std::move(place))
    {
        window.windowHandle()->installEventFilter(this);
        // The frame can come a moment after the exposure.
        m_poll.setInterval(20);
        connect(&m_poll, &QTimer::timeout, this, &FrameWait::Check);
    }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::Expose && watched == m_window.windowHandle() && !m_poll.isActive())
            m_poll.start();
        return QObject::eventFilter(watched, event);
    }

private:
    void Check()
    {
        if (!m_window.isVisible() || (!FrameKnown(m_window) && ++m_polls < kMaxPolls)) return;
        m_poll.stop();
        if (FrameKnown(m_window)) m_place();
        deleteLater();
    }

    static constexpr int kMaxPolls = 50;
    QWidget& m_window;
    std::function<void()> m_place;
    QTimer m_poll;
    int m_polls = 0;
};

} // namespace

void PlaceAgainOnceFramed(QWidget& window, std::function<void()> place)
{
    window.winId(); // the native window, whose frame is to be known
    if (FrameKnown(window)) return;
    new FrameWait(window, std::move(place));
}

} // namespace linkhop
