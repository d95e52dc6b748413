#pragma once

#include "widgets/graph/GraphDecimator.h"

#include <QColor>
#include <QRect>
#include <QVector>

#include <vector>

class QImage;

// Draws one decimated variable into the plot area of an image. Dense data (several samples per few
// pixels) is drawn as one vertical span per pixel column, written straight into the image, so the cost
// follows the plot's width; sparse data is drawn as a smooth antialiased line through every sample.
// Samples at least the hold limit apart are not joined.
class GraphSeriesPainter
{
public:
    struct Style
    {
        QColor color;
        double lineWidth = 2.0;
        bool fill = false;
        int fillAlpha = 128;
    };

    // The plot's rows for values between low (bottom row) and high (top row).
    struct Mapping
    {
        QRect plot;
        double low = 0;
        double high = 1;

        // Fractional row from the plot's top; row r covers [r - 0.5, r + 0.5).
        double rowOf(double value) const;
        double valueOfRow(double row) const;
    };

    // Every item's fill goes under every item's line, so a graph draws all fills first.
    enum Pass
    {
        Fill = 1,
        Line = 2,
        Both = Fill | Line
    };

    // A dense item's line as the rows it covers in each tile of 16 pixel columns (a cache line of pixels).
    // It depends only on the decimated result, the mapping and the line width, so the caller keeps it from
    // one drawing to the next and a change of colour or theme does not trace the line again.
    class Trace
    {
    public:
        static constexpr int kTile = 16;
        // Rows first..last hold the line somewhere in the tile; column k covers top[k]..bottom[k].
        struct Tile
        {
            alignas(16) qint32 top[kTile];
            alignas(16) qint32 bottom[kTile];
            int first = 0;
            int last = -1;
            int columns = 0;
        };

    private:
        friend class GraphSeriesPainter;
        quint64 m_generation = 0;
        Mapping m_mapping;
        int m_lineWidth = 0;
        std::vector<Tile> m_tiles;
    };

    // One item's part in a drawing.
    struct Layer
    {
        Mapping mapping;
        const GraphDecimator::Result *result = nullptr;
        Style style;
        Trace *trace = nullptr; // optional, kept by the caller
    };

    // Whether lines may be written with the processor's 256-bit instructions when it has them (the
    // default); tests turn it off to see the 128-bit path give the same pixels.
    static void setWideVectors(bool allowed);
    // True when the result is drawn as pixel columns.
    static bool isDense(const GraphDecimator::Result &result, int width);
    // image must be Format_RGB32 or Format_ARGB32_Premultiplied; nothing is drawn outside mapping.plot.
    // The fill is drawn only when the style asks for it.
    static void draw(QImage *image, const Mapping &mapping, const GraphDecimator::Result &result,
                     const Style &style, Pass pass = Both);
    // The lines of several items, each over the ones before, as if drawn one by one.
    static void drawLines(QImage *image, const QVector<Layer> &layers);

private:
    static void drawDenseLine(QImage *image, const Layer &layer);
    static void drawDense(QImage *image, const Mapping &mapping, const GraphDecimator::Result &result,
                          const Style &style, Pass pass);
    static void drawSparse(QImage *image, const Mapping &mapping, const GraphDecimator::Result &result,
                           const Style &style, Pass pass);
};
