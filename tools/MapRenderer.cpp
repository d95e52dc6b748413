#include "tools/MapRenderer.h"

#include "tools/MapLineRaster.h"

#include <QBuffer>
#include <QFontMetrics>
#include <QPainter>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace {
int floorDiv(int a, int b)
{
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// A coloured track drawn through the raster takes its colours from 256 evenly over the outer stops' span:
// a value's colour is quantised to 1/255 of that span; beyond the span and for NaN, the end colours.
std::array<QRgb, 256> palette(const MapTrack::ColorStops &stops)
{
    std::array<QRgb, 256> colors;
    const double span = stops.values[2] - stops.values[0];
    for (int i = 1; i < 255; ++i)
        colors[size_t(i)] = stops.colorAt(stops.values[0] + span * i / 255).rgba();
    colors[0] = stops.colors[0].rgba();
    colors[255] = stops.colors[2].rgba();
    return colors;
}

unsigned char paletteIndex(const MapTrack::ColorStops &stops, double value)
{
    if (!(value > stops.values[0]))
        return 0;
    if (value >= stops.values[2])
        return 255;
    return static_cast<unsigned char>(
        std::lround((value - stops.values[0]) / (stops.values[2] - stops.values[0]) * 255));
}
} // namespace

MapRenderer::View MapRenderer::centredView(int zoom, const QSize &size, const MapsProjection::LatLon &centre)
{
    View view;
    view.zoom = zoom;
    view.size = size;
    view.pos = QPoint(size.width() / 2 - kTileSize / 2, size.height() / 2 - kTileSize / 2);
    view.centre = centre;
    return view;
}

MapRenderer::View MapRenderer::gridView(int zoom, const QSize &size, const MapsProjection::LatLon &centre)
{
    View view = centredView(zoom, size, centre);
    snapToGrid(view, false);
    return view;
}

void MapRenderer::snapToGrid(View &view, bool keepPos)
{
    const QPoint anchor = anchorWorld(view);
    const QPoint snapped(floorDiv(anchor.x(), kTileSize) * kTileSize,
                         floorDiv(anchor.y(), kTileSize) * kTileSize);
    view.centre = tileCentre(view.zoom, snapped);
    if (!keepPos)
        view.pos += snapped - anchor; // the same world pixel stays at each widget pixel
}

bool MapRenderer::trackView(MapTrack &track, const QSize &size, int maxZoom, View *view)
{
    const Fit whole = fit(track, size);
    if (!whole.valid)
        return false;
    *view = gridView(std::min(whole.zoom, maxZoom), size, whole.centre);
    return true;
}

QPoint MapRenderer::anchorWorld(const View &view)
{
    const MapsProjection projection(view.zoom);
    return projection.fromLatLngToPoint(view.centre.latitude, view.centre.longitude) -
           QPoint(kTileSize / 2, kTileSize / 2);
}

QPoint MapRenderer::worldTopLeft(const View &view)
{
    return anchorWorld(view) - view.pos;
}

QPoint MapRenderer::toWidget(const View &view, double latitude, double longitude)
{
    const MapsProjection projection(view.zoom);
    return projection.fromLatLngToPoint(latitude, longitude) - worldTopLeft(view);
}

MapsProjection::LatLon MapRenderer::latLonAt(const View &view, const QPoint &widgetPixel)
{
    const QPoint world = worldTopLeft(view) + widgetPixel;
    return MapsProjection(view.zoom).fromPointToLatLng(world.x(), world.y());
}

QVector<QPoint> MapRenderer::tilePositions(const View &view)
{
    QVector<QPoint> result;
    if (view.size.isEmpty())
        return result;
    const int firstColumn = floorDiv(-view.pos.x(), kTileSize);
    const int lastColumn = floorDiv(view.size.width() - 1 - view.pos.x(), kTileSize);
    const int firstRow = floorDiv(-view.pos.y(), kTileSize);
    const int lastRow = floorDiv(view.size.height() - 1 - view.pos.y(), kTileSize);
    const QPoint anchor = anchorWorld(view);
    for (int row = firstRow; row <= lastRow; ++row) {
        for (int column = firstColumn; column <= lastColumn; ++column)
            result.append(anchor + QPoint(column * kTileSize, row * kTileSize));
    }
    return result;
}

MapsProjection::LatLon MapRenderer::tileCentre(int zoom, const QPoint &world)
{
    return MapsProjection(zoom).fromPointToLatLng(world.x() + kTileSize / 2, world.y() + kTileSize / 2);
}

MapRenderer::Fit MapRenderer::fitWorld21(qint64 minX, qint64 minY, qint64 maxX, qint64 maxY,
                                         const QSize &size)
{
    Fit result;
    result.valid = true;
    // Halving the zoom halves the box; the largest zoom whose box still fits wins.
    for (int zoom = kMaxZoom; zoom >= kMinZoom; --zoom) {
        const double scale = std::ldexp(1.0, zoom - kMaxZoom);
        if ((maxX - minX) * scale <= size.width() && (maxY - minY) * scale <= size.height()) {
            result.zoom = zoom;
            break;
        }
    }
    result.centre.longitude = MapsProjection::x21ToLongitude((minX + maxX) / 2);
    result.centre.latitude = MapsProjection::y21ToLatitude((minY + maxY) / 2);
    return result;
}

MapRenderer::Fit MapRenderer::fit(const MapsProjection::LatLon &a, const MapsProjection::LatLon &b,
                                  const QSize &size)
{
    const qint64 xa = MapsProjection::longitudeToX21(a.longitude);
    const qint64 xb = MapsProjection::longitudeToX21(b.longitude);
    const qint64 ya = MapsProjection::latitudeToY21(a.latitude);
    const qint64 yb = MapsProjection::latitudeToY21(b.latitude);
    return fitWorld21(std::min(xa, xb), std::min(ya, yb), std::max(xa, xb), std::max(ya, yb), size);
}

MapRenderer::Fit MapRenderer::fit(MapTrack &track, const QSize &size)
{
    const QVector<MapTrack::Point> &path = track.path(kMaxZoom);
    if (path.isEmpty())
        return Fit();
    qint64 minX = path.constFirst().world.x();
    qint64 maxX = minX;
    qint64 minY = path.constFirst().world.y();
    qint64 maxY = minY;
    for (const MapTrack::Point &p : path) {
        minX = std::min<qint64>(minX, p.world.x());
        maxX = std::max<qint64>(maxX, p.world.x());
        minY = std::min<qint64>(minY, p.world.y());
        maxY = std::max<qint64>(maxY, p.world.y());
    }
    return fitWorld21(minX, minY, maxX, maxY, size);
}

void MapRenderer::paint(QPainter &painter, const View &view, const QVector<Tile> &tiles, MapTrack *track,
                        const TrackStyle &style, bool hasCursor, qint64 cursorTime)
{
    paintMap(painter, view, tiles, track, style, hasCursor, cursorTime);
    if (hasCursor)
        paintCursor(painter, view, track, cursorTime);
}

void MapRenderer::paintMap(QPainter &painter, const View &view, const QVector<Tile> &tiles, MapTrack *track,
                           const TrackStyle &style, bool hasCursor, qint64 cursorTime)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    const QPoint topLeft = worldTopLeft(view);
    const QRect visible(QPoint(0, 0), view.size);

    for (const Tile &tile : tiles) {
        const QRect square(tile.world - topLeft, QSize(kTileSize, kTileSize));
        if (!square.intersects(visible))
            continue;
        if (tile.image.isNull()) {
            painter.fillRect(square, Qt::white);
            if (!tile.failure.isEmpty()) {
                painter.setPen(Qt::darkGray);
                painter.drawText(square.adjusted(24, 24, -24, -24), Qt::AlignCenter | Qt::TextWordWrap,
                                 tile.failure);
            }
        } else
            painter.drawImage(square.topLeft(), tile.image);
    }

    if (!track) {
        painter.restore();
        return;
    }
    const QVector<MapTrack::Point> &path = track->path(view.zoom);
    int first = 0;
    int last = path.size() - 1;
    if (style.restrict) {
        const qint64 end = hasCursor ? cursorTime : (path.isEmpty() ? 0 : path.constLast().time);
        last = track->indexAt(end);
        const qint64 start = end - qint64(std::llround(style.restrictSeconds * 1000.0));
        first = int(std::lower_bound(path.cbegin(), path.cend(), start,
                                     [](const MapTrack::Point &p, qint64 t) { return p.time < t; }) -
                    path.cbegin());
    }
    if (last > first) {
        QPolygon line;
        line.reserve(last - first + 1);
        for (int i = first; i <= last; ++i)
            line.append(path.at(i).world - topLeft);
        QPen pen(style.color, style.width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
        if (style.width > 0 && MapLineRaster::suits(painter)) {
            MapLineRaster raster(view.size, style.width);
            if (style.colored) {
                std::vector<unsigned char> colors(size_t(line.size()));
                for (int i = first; i <= last; ++i)
                    colors[size_t(i - first)] = paletteIndex(style.stops, path.at(i).value);
                raster.addPolyline(line.constData(), line.size(), colors.data());
                raster.paint(painter, palette(style.stops));
            } else {
                raster.addPolyline(line.constData(), line.size());
                raster.paint(painter, style.color);
            }
        } else if (style.colored) {
            // Segment by segment, each in its own colour; those that cannot reach the window are left out.
            const int reach = int(std::ceil(style.width));
            const QRect near = visible.adjusted(-reach, -reach, reach, reach);
            for (int i = 0; i + 1 < line.size(); ++i) {
                if (!QRect(line.at(i), line.at(i + 1)).normalized().intersects(near))
                    continue;
                pen.setColor(style.stops.colorAt(path.at(first + i).value));
                painter.setPen(pen);
                painter.drawLine(line.at(i), line.at(i + 1));
            }
        } else {
            painter.setPen(pen);
            painter.setBrush(Qt::NoBrush);
            painter.drawPolyline(line);
        }
    }

    painter.restore();
}

void MapRenderer::paintCursor(QPainter &painter, const View &view, MapTrack *track, qint64 cursorTime)
{
    if (!track)
        return;
    const QVector<MapTrack::Point> &path = track->path(view.zoom);
    const int at = track->indexAt(cursorTime);
    if (at < 0 || at >= path.size())
        return;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing, true);
    painter.setPen(QPen(cursorPenColor(), kCursorPenWidth, Qt::SolidLine, Qt::SquareCap, Qt::BevelJoin));
    painter.setBrush(Qt::white);
    painter.drawEllipse(QPointF(path.at(at).world - worldTopLeft(view)), kCursorDiameter / 2.0,
                        kCursorDiameter / 2.0);
    painter.restore();
}

void MapRenderer::paintAttribution(QPainter &painter, const QSize &size, const QString &text)
{
    if (text.isEmpty())
        return;
    painter.save();
    QFont font = painter.font();
    font.setPixelSize(11);
    painter.setFont(font);
    const QFontMetrics metrics(font);
    QRect box(QPoint(0, 0), metrics.size(Qt::TextSingleLine, text) + QSize(8, 2));
    box.moveBottomRight(QPoint(size.width() - 1, size.height() - 1));
    painter.fillRect(box, QColor(255, 255, 255, 190));
    painter.setPen(QColor(40, 40, 40));
    painter.drawText(box, Qt::AlignCenter, text);
    painter.restore();
}

QByteArray MapRenderer::encodePng(const QImage &image)
{
    QByteArray png;
    QBuffer buffer(&png);
    if (image.isNull() || !buffer.open(QIODevice::WriteOnly) || !image.save(&buffer, "PNG"))
        return QByteArray();
    return png;
}

QImage MapRenderer::render(const View &view, const QVector<Tile> &tiles, MapTrack *track,
                           const TrackStyle &style, bool hasCursor, qint64 cursorTime)
{
    QImage image(view.size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::white);
    QPainter painter(&image);
    paint(painter, view, tiles, track, style, hasCursor, cursorTime);
    painter.end();
    return image;
}
