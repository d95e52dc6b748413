#pragma once

#include <QColor>
#include <QImage>
#include <QRect>

// The map marker's pen colour, and the box of the pixels drawn exactly in it: where the marker is.
inline QColor mapCursorPen()
{
    return QColor(79, 108, 171);
}

inline QRect mapCursorBox(const QImage &image)
{
    QRect box;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (image.pixelColor(x, y) == mapCursorPen())
                box |= QRect(x, y, 1, 1);
        }
    }
    return box;
}
