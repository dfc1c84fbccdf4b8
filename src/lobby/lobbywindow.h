#pragma once

#include <QString>
#include <QStringView>

class QWidget;

namespace linkhop {

// Removes leading and trailing spaces only (not tabs or line breaks), as the address checks do.
QString TrimSpaces(QStringView text);

// An address field that holds nothing once its dots and outer spaces are gone.
bool IsBlankAddress(QStringView text);

// Fixes a window's client area to its design size in twips and places it in the centre of the
// screen it opens on.
void PlaceCentred(QWidget& window, int widthTwips, int heightTwips);

} // namespace linkhop
