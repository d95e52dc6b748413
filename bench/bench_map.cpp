// Map drawing for a flight of 1 million GPS samples at 1920x1080: the first draw after a zoom (the path
// rebuilt for the new zoom, then the images and the track painted) at the fitted zoom and one deeper, the
// track coloured by the altitude, the window's repaint when only the cursor moves over its cached map
// layer, twelve map images loaded from the cache after a pan, and the memory the path keeps.
// Usage: bench_map [samples]
#include "BenchUtil.h"

#include "telemetry/FlightProfile.h"
#include "telemetry/TelemetryVar.h"
#include "tools/GPSMaps.h"
#include "tools/MapRenderer.h"
#include "tools/MapTrack.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QGuiApplication>
#include <QHostAddress>
#include <QImage>
#include <QPainter>
#include <QTcpServer>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

using namespace BenchUtil;

namespace {
constexpr quint32 kDevice = 0x0A100001;
constexpr qint32 kPeriodMs = 20; // 50 Hz
const QSize kSize(1920, 1080);

// Latitude and longitude as a GPS sensor sends them: packed degrees and minutes, flags 0 and 1 telling
// them apart and bit 2 set for south and west; the altitude in decimetres.
void makeTrack(int samples, TelemetryVar *lat, TelemetryVar *lon, TelemetryVar *alt)
{
    const FlightProfile flight(double(samples - 1) * kPeriodMs / 1000.0, 2026);
    for (TelemetryVar *var : {lat, lon, alt})
        var->values().resize(samples);
    for (int i = 0; i < samples; ++i) {
        const qint32 ts = i * kPeriodMs;
        const FlightProfile::State s = flight.at(ts / 1000.0);
        lat->values()[i] = {TelemetryTypes::GpsCoordinate, s.latitude < 0 ? 2u : 0u,
                            packedCoordinate(s.latitude), ts};
        lon->values()[i] = {TelemetryTypes::GpsCoordinate, s.longitude < 0 ? 3u : 1u,
                            packedCoordinate(s.longitude), ts};
        alt->values()[i] = {1u, 1u, qint32(std::lround(s.altitude * 10)), ts};
    }
}

// Something like a street map, so the images cost what real ones cost to decode and draw: land, parks
// and water, blocks of houses, roads, labels.
QImage mapImage(quint64 seed)
{
    FlightRandom rng(seed);
    const auto at = [&rng] { return QPointF(rng.between(0, 512), rng.between(0, 512)); };
    QImage image(MapRenderer::kTileSize, MapRenderer::kTileSize, QImage::Format_RGB32);
    image.fill(QColor(242, 239, 233));
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setPen(Qt::NoPen);
    const QColor areas[] = {QColor(205, 235, 176), QColor(170, 211, 223), QColor(217, 208, 201)};
    for (int i = 0; i < 340; ++i) {
        p.setBrush(areas[i < 40 ? rng.below(2) : 2]);
        const QPointF c = at();
        const double r = i < 40 ? 40 : 7;
        p.drawPolygon(QPolygonF({c + QPointF(rng.between(-r, r), -r), c + QPointF(r, rng.between(-r, r)),
                                 c + QPointF(rng.between(-r, r), r), c + QPointF(-r, rng.between(-r, r))}));
    }
    p.setPen(QPen(Qt::white, 5));
    for (int i = 0; i < 25; ++i)
        p.drawLine(at(), at());
    p.setPen(QColor(60, 60, 60));
    for (int i = 0; i < 12; ++i)
        p.drawText(at(), QStringLiteral("Street %1").arg(i));
    return image;
}

QVector<MapRenderer::Tile> tilesFor(const MapRenderer::View &view, const QImage &image)
{
    QVector<MapRenderer::Tile> tiles;
    for (const QPoint &world : MapRenderer::tilePositions(view)) {
        tiles.append(MapRenderer::Tile());
        tiles.last().image = image;
        tiles.last().world = world;
    }
    return tiles;
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    // The loader logs every image it loads.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &message) {
        if (type != QtDebugMsg)
            std::fprintf(stderr, "%s\n", qPrintable(message));
    });
    const int samples = argc > 1 ? std::max(100, atoi(argv[1])) : 1000000;
    const qint64 rssStart = procStatusBytes("VmRSS");
    TelemetryVar lat(kDevice, 1, QStringLiteral("Latitude"), QStringLiteral("\u00B0"));
    TelemetryVar lon(kDevice, 2, QStringLiteral("Longitude"), QStringLiteral("\u00B0"));
    TelemetryVar alt(kDevice, 3, QStringLiteral("Altitude"), QStringLiteral("m"));
    makeTrack(samples, &lat, &lon, &alt);
    const qint64 last = qint64(samples - 1) * kPeriodMs;
    std::printf("map: %d GPS samples, %lld s of flight at %d Hz, %dx%d; samples take %.1f MB\n", samples,
                last / 1000, 1000 / kPeriodMs, kSize.width(), kSize.height(),
                (procStatusBytes("VmRSS") - rssStart) / 1e6);

    // Memory first, on a fresh heap: what the track keeps after fitting the view and drawing at that zoom.
    MapTrack track;
    track.setVariables(&lat, &lon);
    const qint64 rssBefore = procStatusBytes("VmRSS");
    MapRenderer::Fit fit;
    const double fitMs = msOf([&] { fit = MapRenderer::fit(track, kSize); });
    const QVector<MapTrack::Point> &fitted = track.path(fit.zoom);
    const qint64 rssPath = procStatusBytes("VmRSS");
    std::printf("  fit: zoom %d in %.1f ms (the path built at zoom %d first)\n", fit.zoom, fitMs,
                MapRenderer::kMaxZoom);
    std::printf("  path at zoom %d: %d points, %.2f MB used, %.2f MB allocated; RSS +%.1f MB for the track\n",
                fit.zoom, fitted.size(), fitted.size() * double(sizeof(MapTrack::Point)) / 1e6,
                fitted.capacity() * double(sizeof(MapTrack::Point)) / 1e6, (rssPath - rssBefore) / 1e6);

    const QImage mapPicture = mapImage(7);
    const MapRenderer::View whole = MapRenderer::centredView(fit.zoom, kSize, fit.centre);
    const MapRenderer::View deeper = MapRenderer::centredView(fit.zoom + 1, kSize, fit.centre);
    const QVector<MapRenderer::Tile> wholeTiles = tilesFor(whole, mapPicture);
    const QVector<MapRenderer::Tile> deeperTiles = tilesFor(deeper, mapPicture);
    const MapRenderer::TrackStyle style;
    QImage screen(kSize, QImage::Format_ARGB32_Premultiplied);
    const auto draw = [&](const MapRenderer::View &view, const QVector<MapRenderer::Tile> &tiles) {
        screen.fill(Qt::white);
        QPainter painter(&screen);
        MapRenderer::paint(painter, view, tiles, &track, style, false, 0);
    };

    // The zoom alternates, so every draw first rebuilds the path for its zoom, as after a wheel step.
    const int runs = 9;
    Timing firstWhole, firstDeeper, pathWhole, pathDeeper, paintWhole, paintDeeper, colored;
    for (int r = 0; r < runs; ++r) {
        firstWhole.add([&] { draw(whole, wholeTiles); });
        firstDeeper.add([&] { draw(deeper, deeperTiles); });
        pathWhole.add([&] { track.path(whole.zoom); });
        paintWhole.add([&] { draw(whole, wholeTiles); });
        pathDeeper.add([&] { track.path(deeper.zoom); });
        paintDeeper.add([&] { draw(deeper, deeperTiles); });
    }
    firstWhole.print("first draw after a zoom, whole track (fit):");
    pathWhole.print("  of which rebuilding the path:");
    paintWhole.print("  of which painting (path kept):");
    firstDeeper.print("first draw after a zoom, one level deeper:");
    pathDeeper.print("  of which rebuilding the path:");
    paintDeeper.print("  of which painting (path kept):");
    // Each segment in the colour of the altitude, path kept.
    MapTrack coloredTrack;
    coloredTrack.setVariables(&lat, &lon, nullptr, &alt);
    MapRenderer::TrackStyle coloredStyle;
    coloredStyle.colored = true;
    coloredStyle.stops.values = {0, 60, 120};
    coloredTrack.path(whole.zoom);
    for (int r = 0; r < 3; ++r) {
        colored.add([&] {
            QPainter painter(&screen);
            MapRenderer::paint(painter, whole, wholeTiles, &coloredTrack, coloredStyle, false, 0);
        });
    }
    colored.print("whole track coloured by altitude (path kept):");

    // The window keeps images and track as one image and repaints only the marker as the cursor moves.
    track.path(whole.zoom);
    const QImage layer = MapRenderer::render(whole, wholeTiles, &track, style, false, 0);
    Timing cursor;
    for (int r = 0; r < 41; ++r) {
        const qint64 t = last * r / 40 - 13 * r;
        cursor.add([&] {
            QPainter painter(&screen);
            painter.drawImage(0, 0, layer);
            MapRenderer::paintCursor(painter, whole, &track, t);
        });
    }
    cursor.print("cursor moved: cached layer + marker:");

    // Twelve images after a pan, all in the cache: the view's top-left on an image corner needs a 4 x 3
    // grid. Provider 2 keeps each stitched image under its own name and reads it before any tile; every
    // address points at a closed port, so an image missing from the cache would fail instead of loading.
    QTemporaryDir data;
    QTcpServer port; // nothing listens on it once closed: a request is refused at once
    port.listen(QHostAddress::LocalHost, 0);
    const QString closed = QStringLiteral("http://127.0.0.1:%1").arg(port.serverPort());
    port.close();
    MapEndpoints endpoints;
    endpoints.staticMapUrl[0] = endpoints.staticMapUrl[1] = closed;
    endpoints.tilesTemplate = closed + QStringLiteral("/{z}/{x}/{y}.png");
    GPSMaps maps(data.path(), endpoints);
    maps.setProvider(GPSMaps::OpenStreetMap, 0);
    MapRenderer::View panned = whole;
    panned.pos = QPoint(0, 0);
    QVector<MapRenderer::Tile> pannedTiles = tilesFor(panned, mapPicture);
    qint64 cachedBytes = 0;
    for (const MapRenderer::Tile &tile : qAsConst(pannedTiles)) {
        const QString path = maps.cacheFileName(tile.world.x(), tile.world.y(), panned.zoom);
        tile.image.save(path, "PNG");
        cachedBytes += QFileInfo(path).size();
    }
    int loaded = 0;
    int failed = 0;
    const auto loadAll = [&] {
        // One at a time, the next when the last one arrived, as the window works its queue.
        QEventLoop loop;
        int next = 0;
        const auto start = [&] {
            const QPoint world = pannedTiles.at(next).world;
            maps.loadMap(MapRenderer::kTileSize, MapRenderer::kTileSize,
                         MapRenderer::tileCentre(panned.zoom, world), panned.zoom, world.x(), world.y());
        };
        const auto arrived = [&](const QImage &image) {
            pannedTiles[next++].image = image;
            ++(image.isNull() ? failed : loaded);
            next < pannedTiles.size() ? start() : loop.quit();
        };
        QObject::connect(&maps, &GPSMaps::mapReady, &loop, arrived);
        QObject::connect(&maps, &GPSMaps::mapFailed, &loop, [&] { arrived(QImage()); });
        start();
        loop.exec();
    };
    Timing loads, loadAndPaint;
    for (int r = 0; r < runs; ++r) {
        loads.add(loadAll);
        loadAndPaint.add([&] {
            loadAll();
            draw(panned, pannedTiles);
        });
    }
    std::printf("  %d images in the cache, %.0f kB each; %d loaded, %d failed\n", int(pannedTiles.size()),
                cachedBytes / 1024.0 / pannedTiles.size(), loaded, failed);
    loads.print("12 cached images after a pan, loading:");
    loadAndPaint.print("12 cached images after a pan, loading + drawing:");
    return 0;
}
