#include "controls.h"

#include "twips.h"

#include <QGuiApplication>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QScreen>

namespace linkhop {

QLabel* MakeLabel(QWidget* window, const QString& name, const QString& caption, QRect place)
{
    auto* label = MakeControl<QLabel>(window, name, place);
    label->setTextFormat(Qt::PlainText);
    label->setText(caption);
    label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    label->setWordWrap(true);
    label->setAutoFillBackground(false);
    return label;
}

QLabel* MakeLabel(QWidget* window, const QString& name, const QString& caption, QRect place, const QFont& font)
{
    QLabel* label = MakeLabel(window, name, caption, place);
    label->setFont(font);
    return label;
}

QPushButton* MakeButton(QWidget* window, const QString& name, const QString& caption, QRect place)
{
    auto* button = MakeControl<QPushButton>(window, name, place);
    button->setText(caption);
    button->setAutoDefault(false);
    return button;
}

QIcon LinkhopIcon()
{
    return QIcon(QStringLiteral(":/icons/linkhop.png"));
}

void PlaceCentred(QWidget& window, int widthTwips, int heightTwips)
{
    window.setFixedSize(Px(widthTwips), Px(heightTwips));
    const QScreen* screen = window.screen() ? window.screen() : QGuiApplication::primaryScreen();
    if (!screen) return;
    const QRect area = screen->availableGeometry();
    window.move(area.center() - QPoint(window.width() / 2, window.height() / 2));
}

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

} // namespace linkhop
