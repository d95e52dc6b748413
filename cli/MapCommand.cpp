#include "cli/MapCommand.h"

#include "cli/CliSupport.h"
#include "cli/DbCommands.h"
#include "telemetry/AtomicFile.h"
#include "telemetry/KmlWriter.h"
#include "telemetry/TelemetryDataPackage.h"
#include "tools/GPSMaps.h"
#include "tools/MapRenderer.h"
#include "tools/MapTrack.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QPainter>

#include <cmath>
#include <map>

namespace {
const char kMapUsage[] =
    "usage: vexo-log map FILE --lat D:P --lon D:P [--zoom Z] [--provider N --type T]\n"
    "                    [--cursor S] --size WxH OUT.png\n"
    "\n"
    "  D:P        a variable: device id (decimal) and parameter number (vexo-log info FILE lists them)\n"
    "  --zoom Z   1..21; without it the whole track fits the picture\n"
    "  --provider N --type T\n"
    "             the map images: 0 Google (type 0 roadmap, 1 satellite, 2 terrain, 3 hybrid),\n"
    "             1 Microsoft (0 Road, 1 AerialWithLabels), 2 OpenStreetMap (0 standard, the default);\n"
    "             the keyed ones need VEXO_MAP0_KEY / VEXO_MAP1_KEY\n"
    "  --cursor S the marker at S seconds from the start of the log, as the map window shows the cursor\n"
    "  --size WxH the picture in pixels\n"
    "\n"
    "Map images come from the studio's map cache first and are kept there.\n";

constexpr int kMaxSide = 16384;

using CliSupport::fail;

int usage(std::FILE *err, const QString &message)
{
    return CliSupport::usage(err, "map", message, kMapUsage);
}

bool parseSize(const QString &text, QSize *size)
{
    const QStringList parts = text.toLower().split(QLatin1Char('x'));
    if (parts.size() != 2)
        return false;
    bool okW = false;
    bool okH = false;
    *size = QSize(parts.at(0).toInt(&okW), parts.at(1).toInt(&okH));
    return okW && okH && size->width() > 0 && size->height() > 0 && size->width() <= kMaxSide &&
           size->height() <= kMaxSide;
}

// The studio's data folder, where its map cache lives.
QString studioDataFolder()
{
    return QFileInfo(DbCommands::defaultDatabasePath()).absolutePath();
}

// Loads one image after the other, as the window works its queue; a failed one stays white.
QVector<MapRenderer::Tile> loadTiles(GPSMaps &maps, const MapRenderer::View &view, std::FILE *err)
{
    QVector<MapRenderer::Tile> tiles;
    for (const QPoint &world : MapRenderer::tilePositions(view)) {
        QImage image;
        QString reason;
        QEventLoop loop;
        const auto ready = QObject::connect(&maps, &GPSMaps::mapReady, &loop, [&](const QImage &loaded) {
            image = loaded;
            loop.quit();
        });
        const auto failed = QObject::connect(&maps, &GPSMaps::mapFailed, &loop, [&](const QString &why) {
            reason = why;
            loop.quit();
        });
        if (maps.loadMap(MapRenderer::kTileSize, MapRenderer::kTileSize,
                         MapRenderer::tileCentre(view.zoom, world), view.zoom, world.x(), world.y()))
            loop.exec();
        else
            reason = QStringLiteral("the loader is busy");
        QObject::disconnect(ready);
        QObject::disconnect(failed);
        if (image.isNull()) {
            std::fputs(QStringLiteral("vexo-log: map image at %1,%2 (zoom %3) left white: %4\n")
                           .arg(world.x())
                           .arg(world.y())
                           .arg(view.zoom)
                           .arg(reason)
                           .toUtf8()
                           .constData(),
                       err);
        }
        tiles.append({image, world, image.isNull() ? reason : QString()});
    }
    return tiles;
}
} // namespace

int MapCommand::run(const QStringList &args, std::FILE *, std::FILE *err)
{
    std::map<QString, TelemetrySimplePair> pairs;
    QStringList positional;
    QSize size;
    int zoom = -1;
    int provider = -1;
    int type = -1;
    bool hasCursor = false;
    double cursorSeconds = 0;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (!a.startsWith(QLatin1String("--"))) {
            positional.append(a);
            continue;
        }
        if (i + 1 >= args.size())
            return usage(err, QStringLiteral("%1 needs a value").arg(a));
        const QString value = args.at(++i);
        const QString bad = QStringLiteral("bad value for %1: %2").arg(a, value);
        bool ok = false;
        if (a == QLatin1String("--lat") || a == QLatin1String("--lon")) {
            TelemetrySimplePair pair;
            if (!CliSupport::parseVariable(value, &pair))
                return usage(err, bad + QStringLiteral(" (expected D:P)"));
            pairs[a] = pair;
        } else if (a == QLatin1String("--size")) {
            if (!parseSize(value, &size))
                return usage(err, bad + QStringLiteral(" (expected WxH, each 1..%1)").arg(kMaxSide));
        } else if (a == QLatin1String("--zoom")) {
            zoom = value.toInt(&ok);
            if (!ok || zoom < MapRenderer::kMinZoom || zoom > MapRenderer::kMaxZoom)
                return usage(err, bad + QStringLiteral(" (expected 1..21)"));
        } else if (a == QLatin1String("--provider")) {
            provider = value.toInt(&ok);
            if (!ok || provider < 0 || provider >= GPSMaps::kProviderCount)
                return usage(err, bad);
        } else if (a == QLatin1String("--type")) {
            type = value.toInt(&ok);
            if (!ok || type < 0)
                return usage(err, bad);
        } else if (a == QLatin1String("--cursor")) {
            cursorSeconds = value.toDouble(&ok);
            if (!ok || !std::isfinite(cursorSeconds) || cursorSeconds < 0)
                return usage(err, bad);
            hasCursor = true;
        } else {
            return usage(err, QStringLiteral("unknown option %1").arg(a));
        }
    }
    if (positional.size() != 2)
        return usage(err, QStringLiteral("takes a log file and an output file"));
    if (!pairs.count(QStringLiteral("--lat")) || !pairs.count(QStringLiteral("--lon")))
        return usage(err, QStringLiteral("needs --lat and --lon"));
    if (!size.isValid())
        return usage(err, QStringLiteral("needs --size WxH"));
    if ((provider < 0) != (type < 0))
        return usage(err, QStringLiteral("--provider and --type go together"));
    if (provider >= 0 && GPSMaps::mapTypeName(provider, type).isEmpty())
        return usage(err, QStringLiteral("provider %1 has no map type %2").arg(provider).arg(type));

    const QString &in = positional.at(0);
    const QString &out = positional.at(1);
    if (QFileInfo(out).isDir())
        return fail(err, QStringLiteral("%1: is a folder").arg(out));
    TelemetryDataPackage package;
    if (!CliSupport::readLog(err, in, &package, CliSupport::Damage::Ignore))
        return 1;
    const TelemetryVar *vars[2] = {};
    const char *const names[2] = {"--lat", "--lon"};
    for (int i = 0; i < 2; ++i) {
        const TelemetrySimplePair &pair = pairs.at(QLatin1String(names[i]));
        vars[i] = CliSupport::findVariable(package, pair);
        if (!vars[i]) {
            return fail(err, QStringLiteral("%1: no variable %2:%3 (%4)")
                                 .arg(in)
                                 .arg(pair.deviceId)
                                 .arg(pair.param)
                                 .arg(QLatin1String(names[i])));
        }
    }
    // As for the KML: a swapped pair would draw a wrong track without a word.
    if (!KmlWriter::isLatitude(*vars[0]) || !KmlWriter::isLongitude(*vars[1]))
        return fail(err, QStringLiteral("%1: --lat and --lon must be a GPS latitude and longitude").arg(in));

    GPSMaps maps(studioDataFolder());
    if (provider >= 0)
        maps.setProvider(provider, type);
    maps.getProvider(provider, type);
    if (!maps.isProviderAvailable(provider))
        return fail(err, maps.availabilityHint(provider));
    if (zoom > GPSMaps::maxZoom(provider))
        return usage(err, QStringLiteral("%1 serves zoom 1..%2")
                              .arg(GPSMaps::providerName(provider))
                              .arg(GPSMaps::maxZoom(provider)));

    // Placed as the map window places it, so both give the same picture.
    MapTrack track;
    track.setVariables(vars[0], vars[1]);
    MapRenderer::View view;
    if (!MapRenderer::trackView(track, size, std::min(MapRenderer::kMaxFitZoom, GPSMaps::maxZoom(provider)),
                                &view))
        return fail(err, QStringLiteral("%1: no GPS position in the track").arg(in));
    if (zoom >= 0)
        view = MapRenderer::gridView(zoom, size, view.centre);
    const QVector<MapRenderer::Tile> tiles = loadTiles(maps, view, err);

    QImage image = MapRenderer::render(view, tiles, &track, MapRenderer::TrackStyle(), hasCursor,
                                       qint64(std::llround(cursorSeconds * 1000.0)));
    {
        QPainter painter(&image);
        MapRenderer::paintAttribution(painter, size, GPSMaps::attribution(provider));
    }
    const QByteArray png = MapRenderer::encodePng(image);
    if (png.isEmpty())
        return fail(err, QStringLiteral("%1: cannot encode the picture").arg(out));
    QString error;
    if (!AtomicFile::write(out, png, &error))
        return fail(err, error);
    return 0;
}
