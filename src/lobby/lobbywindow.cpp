#include "lobbywindow.h"

#include "platform/twips.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

namespace linkhop {

QString TrimSpaces(QStringView text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && text[begin] == u' ')
        ++begin;
    while (end > begin && text[end - 1] == u' ')
        --end;
    return text.sliced(begin, end - begin).toString();
}

bool IsBlankAddress(QStringView text)
{
    QString withoutDots = text.toString();
    withoutDots.remove(u'.');
    return TrimSpaces(withoutDots).isEmpty();
}

void PlaceCentred(QWidget& window, int widthTwips, int heightTwips)
{
    window.setFixedSize(Px(widthTwips), Px(heightTwips));
    const QScreen* screen = window.screen() ? window.screen() : QGuiApplication::primaryScreen();
    if (!screen) return;
    const QRect area = screen->availableGeometry();
    window.move(area.center() - QPoint(window.width() / 2, window.height() / 2));
}

} // namespace linkhop
