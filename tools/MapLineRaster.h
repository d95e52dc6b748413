#pragma once

#include <QPoint>
#include <QRgb>
#include <QSize>

#include <array>
#include <functional>
#include <vector>

class QColor;
class QPainter;

// Strokes polylines whose points lie on whole pixels with a round-capped, round-joined pen, as an
// antialiased QPainter does, at a cost per covered pixel rather than per segment. A long flight on the
// map is hundreds of thousands of segments a few pixels long, most of them over the same circuits, and
// QPainter's stroker spends most of a second on them. Here each pixel takes the coverage of its nearest
// segment (the union of the segments' capsules, so a translucent colour stays even where the path
// crosses itself), and the result is painted as one image. A path in many colours keeps, beside each
// pixel's coverage, the palette index of the segment that gave it (a later segment wins a tie, as it
// would be painted over the earlier one).
class MapLineRaster
{
public:
    // Pixels of area, from (0, 0); what falls outside is dropped.
    MapLineRaster(const QSize &area, double penWidth);

    // Whether painting through this painter gives what stroking would: it must not scale, turn or move
    // by part of a pixel (a high-density screen scales).
    static bool suits(const QPainter &painter);

    // With colors, the segment from points[k] is in palette entry colors[k]; give colours for every
    // polyline or for none.
    void addPolyline(const QPoint *points, int count, const unsigned char *colors = nullptr);
    // Draws what was added in color, each pixel once.
    void paint(QPainter &painter, const QColor &color) const;
    // Draws what was added each pixel in its segment's palette entry (unpremultiplied), each pixel once.
    void paint(QPainter &painter, const std::array<QRgb, 256> &palette) const;

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

    template <bool kColored> void add(const QPoint *points, int count, const unsigned char *colors);
    void addLong(double ax, double ay, double bx, double by, unsigned char color);
    // Hands each run of mask rows with something in them to row (mask offset, width, image row to fill)
    // and draws the images.
    void paintRows(QPainter &painter, const std::function<void(size_t, int, QRgb *)> &row) const;
    const Stamp &stamp(int dx, int dy);
    static Stamp *keptStamps(double reach, size_t count);
    unsigned char coverage(double distance) const;

    QSize m_area;
    double m_reach; // pen half-width plus half a pixel: beyond it a pixel's centre is not covered
    int m_margin;   // whole pixels the mask reaches past the area on each side
    int m_stride;   // mask bytes per row: the area, both margins and room for a whole stamp row
    int m_maxShort; // the longest step (per axis) drawn from a stamp
    std::vector<unsigned char> m_mask;  // area pixel (x, y) at (y + margin) * stride + x + margin
    std::vector<unsigned char> m_color; // palette index by mask pixel, only once colours were given
    int m_rows;                         // mask rows
    Stamp *m_stamps = nullptr;          // by step, kept for the pen between paints
    // The mask pixels written to, from (m_left, m_top) to before (m_right, m_bottom).
    int m_left;
    int m_top;
    int m_right = 0;
    int m_bottom = 0;
};
