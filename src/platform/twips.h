#pragma once

#include <QFont>
#include <QRect>
#include <QString>
#include <QWidget>

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

// Positions and sizes a window by its outer frame, as far as the frame is known yet (create() the
// native window first to know it before the window shows).
inline void SetOuterGeometry(QWidget& window, const QRect& outer)
{
    const QSize frame = window.frameGeometry().size() - window.size();
    window.move(outer.topLeft());
    window.resize(outer.size() - frame);
}

} // namespace linkhop
