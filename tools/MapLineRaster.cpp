#include "tools/MapLineRaster.h"

#include <QColor>
#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {
// Distance from (px, py) to the segment from (ax, ay) along (dx, dy).
double distanceToSegment(double px, double py, double ax, double ay, double dx, double dy)
{
    const double length2 = dx * dx + dy * dy;
    double t = length2 > 0 ? ((px - ax) * dx + (py - ay) * dy) / length2 : 0;
    t = std::clamp(t, 0.0, 1.0);
    const double ex = px - (ax + t * dx);
    const double ey = py - (ay + t * dy);
    return std::sqrt(ex * ex + ey * ey);
}
} // namespace

MapLineRaster::MapLineRaster(const QSize &area, double penWidth)
    : m_area(area.expandedTo(QSize(0, 0))), m_reach(std::max(0.0, penWidth) / 2 + 0.5),
      m_margin(int(std::ceil(m_reach + 0.5))), m_stride(m_area.width() + 2 * m_margin + kStampSide),
      m_maxShort(kStampSide - 2 * m_margin), m_rows(m_area.height() + 2 * m_margin),
      m_left(std::numeric_limits<int>::max()), m_top(std::numeric_limits<int>::max())
{
    m_mask.assign(size_t(m_stride) * size_t(m_rows), 0);
    if (m_maxShort >= 0)
        m_stamps = keptStamps(m_reach, size_t(2 * m_maxShort + 1) * size_t(2 * m_maxShort + 1));
}

MapLineRaster::Stamp *MapLineRaster::keptStamps(double reach, size_t count)
{
    // A stamp depends on the pen alone, and a window repaints with the same pen again and again.
    thread_local std::map<double, std::vector<Stamp>> kept;
    std::vector<Stamp> &stamps = kept[reach];
    if (stamps.size() != count)
        stamps.assign(count, Stamp());
    return stamps.data();
}

bool MapLineRaster::suits(const QPainter &painter)
{
    const QTransform t = painter.deviceTransform();
    return t.type() <= QTransform::TxTranslate && t.dx() == std::round(t.dx()) &&
           t.dy() == std::round(t.dy());
}

unsigned char MapLineRaster::coverage(double distance) const
{
    // The share of a pixel inside the pen's edge, straight-edge approximation.
    const double inside = m_reach - distance;
    return inside <= 0 ? 0 : inside >= 1 ? 255 : static_cast<unsigned char>(std::lround(inside * 255));
}

const MapLineRaster::Stamp &MapLineRaster::stamp(int dx, int dy)
{
    Stamp &s = m_stamps[size_t((dy + m_maxShort) * (2 * m_maxShort + 1) + dx + m_maxShort)];
    if (s.built)
        return s;
    s.built = true;
    // Row 0, column 0 is the pixel margin pixels up and left of the segment's top-left end.
    const int left = std::min(0, dx) - m_margin;
    const int top = std::min(0, dy) - m_margin;
    s.first = kStampSide;
    for (int j = 0; j < kStampSide; ++j) {
        bool any = false;
        for (int i = 0; i < kStampSide; ++i) {
            s.rows[j][i] = coverage(distanceToSegment(left + i + 0.5, top + j + 0.5, 0, 0, dx, dy));
            any = any || s.rows[j][i] != 0;
        }
        if (any) {
            s.first = std::min(s.first, j);
            s.count = j + 1 - s.first;
        }
    }
    return s;
}

void MapLineRaster::addPolyline(const QPoint *points, int count, const unsigned char *colors)
{
    if (!colors)
        return add<false>(points, count, nullptr);
    if (m_color.empty())
        m_color.assign(m_mask.size(), 0);
    add<true>(points, count, colors);
}

template <bool kColored> void MapLineRaster::add(const QPoint *points, int count, const unsigned char *colors)
{
    // The loop runs once per segment, hundreds of thousands of times: what it needs is kept in locals.
    const int maxShort = m_maxShort;
    const int margins = 2 * m_margin;
    const size_t stride = size_t(m_stride);
    unsigned char *const mask = m_mask.data();
    unsigned char *const indexes = m_color.data();
    int left = m_left;
    int top = m_top;
    int right = m_right;
    int bottom = m_bottom;
    for (int k = 1; k < count; ++k) {
        const QPoint a = points[k - 1];
        const int dx = points[k].x() - a.x();
        const int dy = points[k].y() - a.y();
        // Mask position of the stamp's top-left: the segment's top-left end less the margin, which the
        // mask's own margin cancels.
        const int x = a.x() + std::min(0, dx);
        const int y = a.y() + std::min(0, dy);
        if (std::abs(dx) > maxShort || std::abs(dy) > maxShort || x < 0 || y < 0 ||
            x + kStampSide > m_stride || y + std::abs(dy) + margins > m_rows) {
            addLong(a.x(), a.y(), points[k].x(), points[k].y(), kColored ? colors[k - 1] : 0);
            continue;
        }
        const Stamp &s = stamp(dx, dy);
        const int first = s.first;
        const int end = s.first + s.count;
        const size_t offset = size_t(y + first) * stride + size_t(x);
        unsigned char *to = mask + offset;
        unsigned char *index = kColored ? indexes + offset : nullptr;
        const unsigned char color = kColored ? colors[k - 1] : 0;
        for (int j = first; j < end; ++j, to += stride) {
#ifdef __SSE2__
            const __m128i row = _mm_load_si128(reinterpret_cast<const __m128i *>(s.rows[j]));
            auto *at = reinterpret_cast<__m128i *>(to);
            const __m128i max = _mm_max_epu8(_mm_loadu_si128(at), row);
            _mm_storeu_si128(at, max);
            if (kColored) {
                // The stamp's colour where its coverage is the new maximum, the old one elsewhere.
                const __m128i wins = _mm_cmpeq_epi8(max, row);
                auto *was = reinterpret_cast<__m128i *>(index);
                _mm_storeu_si128(was, _mm_or_si128(_mm_and_si128(wins, _mm_set1_epi8(char(color))),
                                                   _mm_andnot_si128(wins, _mm_loadu_si128(was))));
            }
#else
            for (int i = 0; i < kStampSide; ++i) {
                if (kColored && s.rows[j][i] >= to[i])
                    index[i] = color;
                to[i] = std::max(to[i], s.rows[j][i]);
            }
#endif
            if (kColored)
                index += stride;
        }
        left = std::min(left, x);
        top = std::min(top, y + first);
        right = std::max(right, x + std::abs(dx) + margins);
        bottom = std::max(bottom, y + end);
    }
    m_left = std::min(m_left, left);
    m_top = std::min(m_top, top);
    m_right = std::max(m_right, right);
    m_bottom = std::max(m_bottom, bottom);
}

void MapLineRaster::addLong(double ax, double ay, double bx, double by, unsigned char color)
{
    // Only the part within the margin of the area can cover an area pixel (Liang-Barsky clipping): a
    // jump across the world costs no more than one across the window.
    const double dx = bx - ax;
    const double dy = by - ay;
    const double m = m_margin;
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {ax + m, m_area.width() + m - ax, ay + m, m_area.height() + m - ay};
    double t0 = 0;
    double t1 = 1;
    for (int k = 0; k < 4; ++k) {
        if (p[k] == 0) {
            if (q[k] < 0)
                return;
        } else if (p[k] < 0) {
            t0 = std::max(t0, q[k] / p[k]);
        } else {
            t1 = std::min(t1, q[k] / p[k]);
        }
    }
    if (t0 > t1)
        return;
    const double cx = ax + t0 * dx;
    const double cy = ay + t0 * dy;
    const double ex = (t1 - t0) * dx;
    const double ey = (t1 - t0) * dy;
    // In pieces a few pixels long, so the pixels looked at lie along the line, not in its whole box.
    const int pieces = std::max(1, int(std::ceil(std::max(std::abs(ex), std::abs(ey)) / 8)));
    for (int k = 0; k < pieces; ++k) {
        const double x0 = cx + ex * k / pieces;
        const double x1 = cx + ex * (k + 1) / pieces;
        const double y0 = cy + ey * k / pieces;
        const double y1 = cy + ey * (k + 1) / pieces;
        // Mask pixels whose centres may lie within reach of the piece.
        const int left = std::max(0, int(std::floor(std::min(x0, x1) - m_reach - 0.5)) + m_margin);
        const int right = std::min(m_stride - 1, int(std::ceil(std::max(x0, x1) + m_reach - 0.5)) + m_margin);
        const int top = std::max(0, int(std::floor(std::min(y0, y1) - m_reach - 0.5)) + m_margin);
        const int bottom = std::min(m_rows - 1, int(std::ceil(std::max(y0, y1) + m_reach - 0.5)) + m_margin);
        if (left > right || top > bottom)
            continue;
        for (int y = top; y <= bottom; ++y) {
            const size_t offset = size_t(y) * size_t(m_stride);
            unsigned char *row = m_mask.data() + offset;
            for (int x = left; x <= right; ++x) {
                const unsigned char c = coverage(distanceToSegment(x - m + 0.5, y - m + 0.5, cx, cy, ex, ey));
                if (c >= row[x] && !m_color.empty())
                    m_color[offset + size_t(x)] = color;
                row[x] = std::max(row[x], c);
            }
        }
        m_left = std::min(m_left, left);
        m_top = std::min(m_top, top);
        m_right = std::max(m_right, right + 1);
        m_bottom = std::max(m_bottom, bottom + 1);
    }
}

void MapLineRaster::paint(QPainter &painter, const QColor &color) const
{
    // The colour at each of the 256 coverages, premultiplied as the image wants it.
    const QRgb premultiplied = qPremultiply(color.rgba());
    QRgb shades[256];
    for (int a = 0; a < 256; ++a) {
        const auto scale = [a](int c) { return (c * a + 127) / 255; };
        shades[a] = qRgba(scale(qRed(premultiplied)), scale(qGreen(premultiplied)),
                          scale(qBlue(premultiplied)), scale(qAlpha(premultiplied)));
    }
    paintRows(painter, [&](size_t at, int width, QRgb *to) {
        const unsigned char *from = m_mask.data() + at;
        for (int x = 0; x < width; ++x)
            to[x] = shades[from[x]];
    });
}

void MapLineRaster::paint(QPainter &painter, const std::array<QRgb, 256> &palette) const
{
    if (m_color.empty())
        return paint(painter, QColor::fromRgba(palette[0]));
    std::array<QRgb, 256> premultiplied;
    std::transform(palette.begin(), palette.end(), premultiplied.begin(),
                   [](QRgb c) { return qPremultiply(c); });
    paintRows(painter, [&](size_t at, int width, QRgb *to) {
        for (int x = 0; x < width; ++x) {
            // All four channels times coverage / 255, two at a time, rounded as the one colour's shades.
            const quint32 a = m_mask[at + size_t(x)];
            const QRgb c = premultiplied[m_color[at + size_t(x)]];
            quint32 rb = (c & 0xff00ff) * a + 0x800080;
            quint32 ag = ((c >> 8) & 0xff00ff) * a + 0x800080;
            rb = ((rb + ((rb >> 8) & 0xff00ff)) >> 8) & 0xff00ff;
            ag = (ag + ((ag >> 8) & 0xff00ff)) & 0xff00ff00;
            to[x] = rb | ag;
        }
    });
}

void MapLineRaster::paintRows(QPainter &painter, const std::function<void(size_t, int, QRgb *)> &row) const
{
    const int left = std::max(m_left, m_margin);
    const int top = std::max(m_top, m_margin);
    const int right = std::min(m_right, m_margin + m_area.width());
    const int bottom = std::min(m_bottom, m_margin + m_area.height());
    if (left >= right || top >= bottom)
        return;
    // A track is a thin line through a mostly empty box: only runs of blocks with something in them
    // are turned into images and blended.
    constexpr int kBlock = 64;
    const auto blockEmpty = [&](int x, int y0, int y1) {
        const int width = std::min(kBlock, right - x);
        unsigned char any = 0;
        for (int y = y0; y < y1; ++y) {
            const unsigned char *row = m_mask.data() + size_t(y) * size_t(m_stride) + size_t(x);
            for (int i = 0; i < width; ++i)
                any |= row[i];
        }
        return any == 0;
    };
    for (int y0 = top; y0 < bottom; y0 += kBlock) {
        const int y1 = std::min(bottom, y0 + kBlock);
        for (int x0 = left; x0 < right; x0 += kBlock) {
            if (blockEmpty(x0, y0, y1))
                continue;
            int x1 = std::min(right, x0 + kBlock);
            while (x1 < right && !blockEmpty(x1, y0, y1))
                x1 = std::min(right, x1 + kBlock);
            QImage image(x1 - x0, y1 - y0, QImage::Format_ARGB32_Premultiplied);
            for (int y = y0; y < y1; ++y)
                row(size_t(y) * size_t(m_stride) + size_t(x0), x1 - x0,
                    reinterpret_cast<QRgb *>(image.scanLine(y - y0)));
            painter.drawImage(QPoint(x0 - m_margin, y0 - m_margin), image);
            x0 = x1 - kBlock; // the block after the run is known to be empty or past the end
        }
    }
}
