#include "widgets/graph/GraphTheme.h"

#include <array>

GraphTheme GraphTheme::forIndex(int index)
{
    switch (index) {
    case Black:
        return {QColor(0, 0, 0), QColor(64, 64, 64), QColor(150, 150, 150), QColor(235, 235, 235)};
    case Gray:
        // A dark neutral grey: a mid grey would leave no item colour enough contrast.
        return {QColor(60, 63, 65), QColor(92, 96, 99), QColor(160, 164, 168), QColor(225, 225, 225)};
    default:
        return {QColor(255, 255, 255), QColor(221, 221, 221), QColor(170, 170, 170), QColor(0, 0, 0)};
    }
}

QColor GraphTheme::itemColor(int n)
{
    static const std::array<QRgb, 10> colors = {
        qRgb(30, 136, 229), qRgb(229, 57, 53), qRgb(67, 160, 71),  qRgb(251, 140, 0),  qRgb(171, 71, 188),
        qRgb(0, 172, 193),  qRgb(216, 27, 96), qRgb(141, 110, 99), qRgb(124, 179, 66), qRgb(92, 107, 192),
    };
    return QColor(colors[size_t(n < 0 ? 0 : n) % colors.size()]);
}
