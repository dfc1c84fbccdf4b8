#pragma once

#include <QFont>
#include <QRect>
#include <QString>

namespace linkhop {

// Window designs are measured in twips; 15 twips make one logical pixel.
constexpr int Px(int twips) { return twips / 15; }
constexpr int Twips(int pixels) { return pixels * 15; }
constexpr QRect TwipsRect(int left, int top, int width, int height)
{
    return QRect(Px(left), Px(top), Px(width), Px(height));
}

// "Arial" at a point size; fontconfig stands a metric-compatible face in for it on Linux.
inline QFont ArialFont(qreal pointSize, bool bold = false, bool italic = false)
{
    QFont font(QStringLiteral("Arial"));
    font.setPointSizeF(pointSize);
    font.setBold(bold);
    font.setItalic(italic);
    return font;
}

} // namespace linkhop
