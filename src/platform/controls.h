#pragma once

#include <QRect>
#include <QString>
#include <QStringView>

class QFont;
class QIcon;
class QLabel;
class QPushButton;
class QWidget;

namespace linkhop {

// A control of a window's design, named (its objectName too) and placed in the window's pixels.
template <class Control> Control* MakeControl(QWidget* window, const QString& name, QRect place)
{
    auto* control = new Control(window);
    control->setObjectName(name);
    control->setGeometry(place);
    return control;
}

// A label of plain text, aligned top left and wrapping, drawing no background of its own.
QLabel* MakeLabel(QWidget* window, const QString& name, const QString& caption, QRect place);
QLabel* MakeLabel(QWidget* window, const QString& name, const QString& caption, QRect place, const QFont& font);
// A button that never takes Enter for itself: Enter belongs to each window's main field.
QPushButton* MakeButton(QWidget* window, const QString& name, const QString& caption, QRect place);

// Linkhop's icon, the desktop entry's, which every window shows.
QIcon LinkhopIcon();

// Fixes a window's client area to its design size in twips and places it in the centre of the
// screen it opens on.
void PlaceCentred(QWidget& window, int widthTwips, int heightTwips);

// Removes leading and trailing spaces only (not tabs or line breaks).
QString TrimSpaces(QStringView text);

} // namespace linkhop
