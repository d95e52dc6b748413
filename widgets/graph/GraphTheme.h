#pragma once

#include <QColor>

// The colours of a graph window's theme, and the colours new items get.
struct GraphTheme
{
    enum Index
    {
        White = 0,
        Black = 1,
        Gray = 2,
        Count = 3
    };

    QColor background;
    QColor grid;
    QColor axis;
    QColor text;

    // An unknown index gives the White theme.
    static GraphTheme forIndex(int index);
    static bool isValid(int index) { return index >= 0 && index < Count; }
    // The n-th colour for new items: mid-bright, so that lines read on light and dark backgrounds alike.
    static QColor itemColor(int n);
};
