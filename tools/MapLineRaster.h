#pragma once

#include <QPoint>
#include <QSize>

#include <vector>

class QColor;
class QPainter;

// Strokes polylines whose points lie on whole pixels with a round-capped, round-joined pen, as an
// antialiased QPainter does, at a cost per covered pixel rather than per segment. A long flight on the
// map is hundreds of thousands of segments a few pixels long, most of them over the same circuits, and
// QPainter's stroker spends most of a second on them. Here each pixel takes the coverage of its nearest
// segment (the union of the segments' capsules, so a translucent colour stays even where the path
// crosses itself), and the result is painted as one image.
class MapLineRaster
{
public:
    // Pixels of area, from (0, 0); what falls outside is dropped.
    MapLineRaster(const QSize &area, double penWidth);

    // Whether painting through this painter gives what stroking would: it must not scale, turn or move
    // by part of a pixel (a high-density screen scales).
    static bool suits(const QPainter &painter);

    void addPolyline(const QPoint *points, int count);
    // Draws what was added in color, each pixel once.
    void paint(QPainter &painter, const QColor &color) const;

private:
    // Coverage of one short segment from (0, 0) to (dx, dy), as rows of a fixed width.
    struct Stamp
    {
        bool built = false;
        int first = 0; // the rows that cover anything
        int count = 0;
        alignas(16) unsigned char rows[16][16];
    };
    static constexpr int kStampSide = 16;

    void addLong(double ax, double ay, double bx, double by);
    const Stamp &stamp(int dx, int dy);
    static Stamp *keptStamps(double reach, size_t count);
    unsigned char coverage(double distance) const;

    QSize m_area;
    double m_reach; // pen half-width plus half a pixel: beyond it a pixel's centre is not covered
    int m_margin;   // whole pixels the mask reaches past the area on each side
    int m_stride;   // mask bytes per row: the area, both margins and room for a whole stamp row
    int m_maxShort; // the longest step (per axis) drawn from a stamp
    std::vector<unsigned char> m_mask; // area pixel (x, y) at (y + margin) * stride + x + margin
    int m_rows;                        // mask rows
    Stamp *m_stamps = nullptr;         // by step, kept for the pen between paints
    // The mask pixels written to, from (m_left, m_top) to before (m_right, m_bottom).
    int m_left;
    int m_top;
    int m_right = 0;
    int m_bottom = 0;
};
