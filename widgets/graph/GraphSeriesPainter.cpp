#include "widgets/graph/GraphSeriesPainter.h"

#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QPolygonF>

#include <algorithm>
#include <atomic>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif
#include <climits>
#include <cmath>
#include <vector>

namespace {
// Rows far outside the plot are only ever clipped; keeping them bounded keeps the integer maths safe.
constexpr double kRowLimit = 1e6;

// Per pixel column the rows the line passes through.
class Coverage
{
public:
    explicit Coverage(int width)
        : m_top(size_t(width), INT_MAX), m_bottom(size_t(width), INT_MIN), m_width(width)
    {
    }

    int width() const { return m_width; }
    bool covered(int c) const { return m_top[size_t(c)] <= m_bottom[size_t(c)]; }
    int top(int c) const { return m_top[size_t(c)]; }
    int bottom(int c) const { return m_bottom[size_t(c)]; }

    void add(int c, double y0, double y1)
    {
        if (c < 0 || c >= m_width)
            return;
        const int a = row(std::min(y0, y1));
        const int b = row(std::max(y0, y1));
        m_top[size_t(c)] = std::min(m_top[size_t(c)], a);
        m_bottom[size_t(c)] = std::max(m_bottom[size_t(c)], b);
    }

    // A straight line between two points given in columns and rows, split over the columns it crosses.
    void segment(double x0, double y0, double x1, double y1)
    {
        if (x1 < x0) {
            std::swap(x0, x1);
            std::swap(y0, y1);
        }
        if (x1 < 0 || x0 >= m_width)
            return;
        const double slope = x1 > x0 ? (y1 - y0) / (x1 - x0) : 0.0;
        // Clip to the plot first: an edge sample may lie hours outside it.
        if (x0 < 0) {
            y0 += slope * (0 - x0);
            x0 = 0;
        }
        if (x1 > m_width) {
            y1 -= slope * (x1 - m_width);
            x1 = m_width;
        }
        const int c0 = int(std::floor(x0));
        const int c1 = std::min(int(std::floor(x1)), m_width - 1);
        if (c0 >= c1) {
            add(c0, y0, y1);
            return;
        }
        for (int c = c0; c <= c1; ++c) {
            const double xa = std::max(x0, double(c));
            const double xb = std::min(x1, double(c + 1));
            add(c, y0 + slope * (xa - x0), y0 + slope * (xb - x0));
        }
    }

    // Widens the line to t pixels in both directions.
    void thicken(int t)
    {
        if (t <= 1)
            return;
        const int before = (t - 1) / 2;
        const int after = t / 2;
        std::vector<int> top(m_top.size(), INT_MAX);
        std::vector<int> bottom(m_bottom.size(), INT_MIN);
        for (int c = 0; c < m_width; ++c) {
            if (!covered(c))
                continue;
            const int lo = std::max(0, c - after);
            const int hi = std::min(m_width - 1, c + before);
            for (int k = lo; k <= hi; ++k) {
                top[size_t(k)] = std::min(top[size_t(k)], m_top[size_t(c)] - before);
                bottom[size_t(k)] = std::max(bottom[size_t(k)], m_bottom[size_t(c)] + after);
            }
        }
        m_top.swap(top);
        m_bottom.swap(bottom);
    }

private:
    static int row(double y) { return int(std::floor(std::clamp(y, -kRowLimit, kRowLimit) + 0.5)); }

    std::vector<int> m_top;
    std::vector<int> m_bottom;
    int m_width;
};

using Trace = GraphSeriesPainter::Trace;
constexpr int kTile = Trace::kTile;

// Writes the covered rows of every tile row by row with a mask per pixel, so a tall span of noisy data
// costs a quarter of a store per pixel rather than a store and a cache line per pixel.
std::atomic<bool> wideVectors{true};

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define VEXO_TILES_AVX2 1
// One full tile with 256-bit masks and blends: half the instructions of the 128-bit path, on the processors
// that have them (checked at run time; the build stays for any x86-64).
__attribute__((target("avx2"))) void writeTileAvx2(uchar *row, qsizetype stride, const Trace::Tile &tile,
                                                   QRgb color)
{
    const __m256i fill = _mm256_set1_epi32(qint32(color));
    const __m256i top0 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(tile.top));
    const __m256i top1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(tile.top + 8));
    const __m256i bottom0 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(tile.bottom));
    const __m256i bottom1 = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(tile.bottom + 8));
    for (int r = tile.first; r <= tile.last; ++r, row += stride) {
        const __m256i at = _mm256_set1_epi32(r);
        auto *pixels = reinterpret_cast<__m256i *>(row);
        const __m256i out0 = _mm256_or_si256(_mm256_cmpgt_epi32(top0, at), _mm256_cmpgt_epi32(at, bottom0));
        const __m256i out1 = _mm256_or_si256(_mm256_cmpgt_epi32(top1, at), _mm256_cmpgt_epi32(at, bottom1));
        _mm256_storeu_si256(pixels, _mm256_blendv_epi8(fill, _mm256_loadu_si256(pixels), out0));
        _mm256_storeu_si256(pixels + 1, _mm256_blendv_epi8(fill, _mm256_loadu_si256(pixels + 1), out1));
    }
}
#endif

void writeTiles(QImage *image, const QRect &plot, const std::vector<Trace::Tile> &tiles, QRgb color)
{
    uchar *bits = image->bits();
    const qsizetype stride = image->bytesPerLine();
#if defined(VEXO_TILES_AVX2)
    static const bool hasAvx2 = __builtin_cpu_supports("avx2");
    const bool avx2 = hasAvx2 && wideVectors.load(std::memory_order_relaxed);
#endif
    for (size_t t = 0; t < tiles.size(); ++t) {
        const Trace::Tile &tile = tiles[t];
        uchar *row = bits + (plot.top() + tile.first) * stride +
                     (plot.left() + int(t) * kTile) * qsizetype(sizeof(QRgb));
#if defined(VEXO_TILES_AVX2)
        if (tile.columns == kTile && avx2) {
            writeTileAvx2(row, stride, tile, color);
            continue;
        }
#endif
#if defined(__SSE2__)
        if (tile.columns == kTile) {
            const __m128i fill = _mm_set1_epi32(qint32(color));
            // Rows all four columns of a quad cover (most of a noisy trace) need no mask.
            int innerTop[kTile / 4];
            int innerBottom[kTile / 4];
            for (int q = 0; q < kTile / 4; ++q) {
                innerTop[q] = *std::max_element(tile.top + 4 * q, tile.top + 4 * q + 4);
                innerBottom[q] = *std::min_element(tile.bottom + 4 * q, tile.bottom + 4 * q + 4);
            }
            for (int r = tile.first; r <= tile.last; ++r, row += stride) {
                const __m128i at = _mm_set1_epi32(r);
                auto *pixels = reinterpret_cast<__m128i *>(row);
                for (int q = 0; q < kTile / 4; ++q) {
                    if (r >= innerTop[q] && r <= innerBottom[q]) {
                        _mm_storeu_si128(pixels + q, fill);
                        continue;
                    }
                    const __m128i top = _mm_load_si128(reinterpret_cast<const __m128i *>(tile.top + 4 * q));
                    const __m128i bottom =
                        _mm_load_si128(reinterpret_cast<const __m128i *>(tile.bottom + 4 * q));
                    const __m128i outside =
                        _mm_or_si128(_mm_cmpgt_epi32(top, at), _mm_cmpgt_epi32(at, bottom));
                    const __m128i old = _mm_loadu_si128(pixels + q);
                    _mm_storeu_si128(pixels + q, _mm_or_si128(_mm_and_si128(outside, old),
                                                              _mm_andnot_si128(outside, fill)));
                }
            }
            continue;
        }
#endif
        for (int r = tile.first; r <= tile.last; ++r, row += stride) {
            auto *pixels = reinterpret_cast<QRgb *>(row);
            for (int k = 0; k < tile.columns; ++k) {
                if (tile.top[k] <= r && r <= tile.bottom[k])
                    pixels[k] = color;
            }
        }
    }
}

// The rows a dense result's line passes through in each column, before thickening.
Coverage lineCoverage(const GraphSeriesPainter::Mapping &mapping, const GraphDecimator::Result &result)
{
    Coverage line(mapping.plot.width());
    const QVector<GraphDecimator::Column> &columns = result.columns;
    const auto row = [&mapping](double v) { return mapping.rowOf(v); };
    for (int i = 0; i < columns.size(); ++i) {
        const GraphDecimator::Column &col = columns.at(i);
        line.add(col.x, row(col.maximum), row(col.minimum));
        if (i > 0 && !col.gapBefore) {
            const GraphDecimator::Column &prev = columns.at(i - 1);
            line.segment(prev.xLast, row(prev.last), col.xFirst, row(col.first));
        }
    }
    const GraphDecimator::Edge &before = result.before;
    const GraphDecimator::Edge &after = result.after;
    if (columns.isEmpty()) {
        if (before.valid && after.valid && !before.gap)
            line.segment(before.x, row(before.value), after.x, row(after.value));
    } else {
        if (before.valid && !before.gap)
            line.segment(before.x, row(before.value), columns.constFirst().xFirst,
                         row(columns.constFirst().first));
        if (after.valid && !after.gap)
            line.segment(columns.constLast().xLast, row(columns.constLast().last), after.x, row(after.value));
    }
    return line;
}

QRgb opaque(const QColor &color)
{
    return color.rgba() | 0xFF000000u;
}

QColor withAlpha(QColor color, int alpha)
{
    color.setAlpha(std::clamp(alpha, 0, 255));
    return color;
}
} // namespace

double GraphSeriesPainter::Mapping::rowOf(double value) const
{
    const double range = high - low;
    if (!(range > 0))
        return (plot.height() - 1) / 2.0;
    return (high - value) / range * (plot.height() - 1);
}

double GraphSeriesPainter::Mapping::valueOfRow(double row) const
{
    const int rows = std::max(1, plot.height() - 1);
    return high - row / rows * (high - low);
}

void GraphSeriesPainter::setWideVectors(bool allowed)
{
    wideVectors = allowed;
}

bool GraphSeriesPainter::isDense(const GraphDecimator::Result &result, int width)
{
    return qint64(result.samples) * 3 > width;
}

void GraphSeriesPainter::draw(QImage *image, const Mapping &mapping, const GraphDecimator::Result &result,
                              const Style &style, Pass pass)
{
    if (!style.fill)
        pass = Pass(pass & ~Fill);
    if (!image || pass == 0 || mapping.plot.width() <= 0 || mapping.plot.height() <= 0)
        return;
    if (isDense(result, mapping.plot.width()))
        drawDense(image, mapping, result, style, pass);
    else
        drawSparse(image, mapping, result, style, pass);
}

void GraphSeriesPainter::drawLines(QImage *image, const QVector<Layer> &layers)
{
    for (const Layer &layer : layers) {
        if (!image || !layer.result || layer.mapping.plot.width() <= 0 || layer.mapping.plot.height() <= 0)
            continue;
        if (isDense(*layer.result, layer.mapping.plot.width()))
            drawDenseLine(image, layer);
        else
            drawSparse(image, layer.mapping, *layer.result, layer.style, Line);
    }
}

void GraphSeriesPainter::drawDenseLine(QImage *image, const Layer &layer)
{
    const Mapping &mapping = layer.mapping;
    const QRect &plot = mapping.plot;
    if (plot.intersected(image->rect()) != plot)
        return; // the plot always lies inside the image it was laid out for
    const int lineWidth = std::max(1, int(std::lround(layer.style.lineWidth)));
    Trace local;
    Trace &trace = layer.trace ? *layer.trace : local;
    const GraphDecimator::Result &result = *layer.result;
    if (trace.m_tiles.empty() || trace.m_generation != result.generation || trace.m_lineWidth != lineWidth ||
        trace.m_mapping.plot != plot || trace.m_mapping.low != mapping.low ||
        trace.m_mapping.high != mapping.high) {
        Coverage line = lineCoverage(mapping, result);
        line.thicken(lineWidth);
        const int width = plot.width();
        const int height = plot.height();
        trace.m_tiles.assign(size_t((width + kTile - 1) / kTile), Trace::Tile());
        for (size_t t = 0; t < trace.m_tiles.size(); ++t) {
            Trace::Tile &tile = trace.m_tiles[t];
            const int c0 = int(t) * kTile;
            tile.columns = std::min(kTile, width - c0);
            tile.first = INT_MAX;
            tile.last = INT_MIN;
            for (int k = 0; k < kTile; ++k) {
                const bool covered = k < tile.columns && line.covered(c0 + k);
                tile.top[k] = covered ? std::max(0, line.top(c0 + k)) : INT_MAX;
                tile.bottom[k] = covered ? std::min(height - 1, line.bottom(c0 + k)) : INT_MIN;
                if (tile.top[k] <= tile.bottom[k]) {
                    tile.first = std::min(tile.first, tile.top[k]);
                    tile.last = std::max(tile.last, tile.bottom[k]);
                }
            }
            if (tile.first > tile.last) {
                tile.first = 0;
                tile.last = -1;
            }
        }
        trace.m_generation = result.generation;
        trace.m_mapping = mapping;
        trace.m_lineWidth = lineWidth;
    }
    writeTiles(image, plot, trace.m_tiles, opaque(layer.style.color));
}

void GraphSeriesPainter::drawDense(QImage *image, const Mapping &mapping,
                                   const GraphDecimator::Result &result, const Style &style, Pass pass)
{
    const QRect plot = mapping.plot.intersected(image->rect());
    if (plot != mapping.plot)
        return; // the plot always lies inside the image it was laid out for
    const int width = plot.width();
    const int height = plot.height();
    if (pass & Fill) {
        // The area under the line, one polygon per stretch without gaps.
        const Coverage line = lineCoverage(mapping, result);
        QPainter painter(image);
        painter.setPen(Qt::NoPen);
        painter.setBrush(withAlpha(style.color, style.fillAlpha));
        painter.setClipRect(plot);
        const double bottom = plot.top() + height;
        for (int c = 0; c < width;) {
            if (!line.covered(c) || line.top(c) >= height) {
                ++c;
                continue;
            }
            QPolygonF area;
            const int start = c;
            for (; c < width && line.covered(c) && line.top(c) < height; ++c) {
                const double y = plot.top() + std::max(0, line.top(c));
                area << QPointF(plot.left() + c, y) << QPointF(plot.left() + c + 1, y);
            }
            area << QPointF(plot.left() + c, bottom) << QPointF(plot.left() + start, bottom);
            painter.drawPolygon(area);
        }
    }
    if (pass & Line) {
        Layer layer;
        layer.mapping = mapping;
        layer.result = &result;
        layer.style = style;
        drawDenseLine(image, layer);
    }
}

void GraphSeriesPainter::drawSparse(QImage *image, const Mapping &mapping,
                                    const GraphDecimator::Result &result, const Style &style, Pass pass)
{
    const QRect &plot = mapping.plot;
    const auto point = [&](double x, double value) {
        return QPointF(plot.left() + x, plot.top() + mapping.rowOf(value) + 0.5);
    };
    // Stretches of samples without gaps; each is one line, a lone sample a dot.
    QVector<QPolygonF> lines;
    QPolygonF current;
    const auto breakLine = [&] {
        if (!current.isEmpty())
            lines.append(current);
        current.clear();
    };
    const auto addPoint = [&](const QPointF &p) {
        if (current.isEmpty() || current.constLast() != p)
            current.append(p);
    };
    const GraphDecimator::Edge &before = result.before;
    const GraphDecimator::Edge &after = result.after;
    if (before.valid && !before.gap)
        addPoint(point(before.x, before.value));
    for (const GraphDecimator::Column &col : result.columns) {
        if (col.gapBefore)
            breakLine();
        addPoint(point(col.xFirst, col.first));
        if (col.count > 1) {
            const double mid = (col.xFirst + col.xLast) / 2;
            addPoint(point(mid, col.minimum));
            addPoint(point(mid, col.maximum));
            addPoint(point(col.xLast, col.last));
        }
    }
    if (after.valid && !after.gap && (!result.columns.isEmpty() || (before.valid && !before.gap)))
        addPoint(point(after.x, after.value));
    breakLine();

    QPainter painter(image);
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setClipRect(plot);
    if (pass & Fill) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(withAlpha(style.color, style.fillAlpha));
        const double bottom = plot.top() + plot.height();
        for (const QPolygonF &stretch : qAsConst(lines)) {
            if (stretch.size() < 2)
                continue;
            QPolygonF area = stretch;
            area << QPointF(stretch.constLast().x(), bottom) << QPointF(stretch.constFirst().x(), bottom);
            painter.drawPolygon(area);
        }
    }
    if (!(pass & Line))
        return;
    QPen pen(style.color, style.lineWidth, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    for (const QPolygonF &stretch : qAsConst(lines)) {
        if (stretch.size() > 1) {
            painter.drawPolyline(stretch);
            continue;
        }
        // A lone sample between gaps: a dot big enough to be seen.
        painter.setPen(QPen(style.color, std::max(3.0, style.lineWidth * 1.5), Qt::SolidLine, Qt::RoundCap));
        painter.drawPoint(stretch.constFirst());
        painter.setPen(pen);
    }
}
