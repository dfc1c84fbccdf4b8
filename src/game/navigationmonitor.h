#pragma once

#include "core/pagerules.h"

#include <QObject>
#include <QString>
#include <QStringView>
#include <functional>

namespace linkhop {

class Browser;
class Session;


// What the game window keeps of the monitor's reports. The dispatcher writes LastReported too
// (on "SETRANDOM").
struct NavigationRecord
{
    QString LastReported;
};

// Turns the browser's notifications into the game's input: during a round it reports each new page
// once with "NAVIGATE" (a category word for a forbidden page, "nowiki" for leaving the
// encyclopedia), keeps the route in the session's RoutePath and shows the article in the caption;
// outside a round it only keeps CurrentArticle up to date.
class NavigationMonitor final : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NavigationMonitor)

public:
    using Sender = std::function<void(const QString& text)>;
    using CaptionSetter = std::function<void(const QString& caption)>;

    NavigationMonitor(Session& session, NavigationRecord& record, Sender send, CaptionSetter setCaption,
                      QObject* parent = nullptr);

    // Connects a browser's BeforeNavigate2 and TitleChange to the two handlers.
    void Watch(Browser& browser);

    void OnBeforeNavigate2(const QString& url);
    void OnTitleChange(const QString& title);

    static constexpr QStringView kTitleSuffix = u"Wikipedia, the free encyclopedia";

private:
    void Report();

    Session& m_session;
    NavigationRecord& m_record;
    Sender m_send;
    CaptionSetter m_setCaption;
};

} // namespace linkhop
