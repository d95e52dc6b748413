#include "widgets/map/WidgetMaps.h"

#include "telemetry/AtomicFile.h"
#include "telemetry/KmlWriter.h"
#include "telemetry/TelemetryData.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/map/WidgetMapsProperties.h"

#include <QActionGroup>
#include <QContextMenuEvent>
#include <QDir>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>

namespace {
constexpr int kTile = MapRenderer::kTileSize;
constexpr int kDragThreshold = 3;

TelemetrySimplePair pairOf(const LayoutJsonValue &value)
{
    if (!value.isArray() || value.size() != 2 || !value.at(0).isNumber() || !value.at(1).isNumber())
        return TelemetrySimplePair();
    const double id = value.at(0).toDouble();
    const double param = value.at(1).toDouble();
    if (id < 0 || id > 4294967295.0 || param < 0 || param > 4294967295.0)
        return TelemetrySimplePair();
    return TelemetrySimplePair(quint32(id), quint32(param));
}

void writePair(LayoutJsonWriter &writer, const QString &key, const TelemetrySimplePair &pair)
{
    writer.key(key);
    writer.beginArray();
    writer.writeInt(pair.deviceId);
    writer.writeInt(pair.param);
    writer.endArray();
}

bool flagOf(const LayoutJsonValue &value)
{
    return value.isBool() ? value.toBool() : value.toDouble(0) != 0;
}
} // namespace

WidgetMaps::WidgetMaps(TelemetryData *store, const QString &dataFolder, const MapEndpoints &endpoints,
                       QWidget *parent)
    : QWidget(parent), m_store(store), m_maps(new GPSMaps(dataFolder, endpoints, this))
{
    setWindowTitle(tr("GPS map"));
    setFocusPolicy(Qt::StrongFocus);
    setAcceptDrops(true);
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(160, 120);
    m_view.zoom = MapRenderer::kMaxFitZoom;
    connect(m_maps, &GPSMaps::mapReady, this, &WidgetMaps::tileArrived);
    connect(m_maps, &GPSMaps::mapFailed, this, &WidgetMaps::tileFailed);
    // Live positions arrive many times a second; the track is brought up to date at most this often.
    m_redrawTimer.setSingleShot(true);
    m_redrawTimer.setInterval(kRedrawIntervalMs);
    connect(&m_redrawTimer, &QTimer::timeout, this, [this] {
        // A live GPS is known as one only once its first positions arrived.
        if (bindFirstGps())
            return;
        refreshTrack();
        placeView();
        followTrack();
        invalidate();
    });
    if (m_store)
        m_sensors = m_store->sensors();
}

WidgetMaps::~WidgetMaps()
{
    m_maps->abort();
}

void WidgetMaps::wire(WidgetMaps *window, WindowHub *hub, TelemetryData *store)
{
    if (hub) {
        connect(hub, &WindowHub::updateSensorsRequest, window, &WidgetMaps::sensorsUpdated);
        connect(hub, &WindowHub::valueAddedRequest, window, &WidgetMaps::dataUpdated);
        connect(hub, &WindowHub::logFileLoadedRequest, window, &WidgetMaps::logFileLoaded);
        connect(hub, &WindowHub::mouseOverTimestampRequest, window, &WidgetMaps::externalTimestampMoved);
        connect(window, &WidgetMaps::mouseOverTimestamp, hub, &WindowHub::mouseOverTimestampMoved);
        connect(window, &WidgetMaps::exportGPSRequest, hub, &WindowHub::GPSExport);
    }
    if (store)
        window->sensorsUpdated(store->sensors());
}

// ---- layout

int WidgetMaps::load(const LayoutJsonValue &object)
{
    if (!object.isObject())
        return 1;
    int provider = object.value(QStringLiteral("MapProvider")).toInt(GPSMaps::kDefaultProvider);
    int type = object.value(QStringLiteral("MapType")).toInt(0);
    if (!object.value(QStringLiteral("MapProvider")).isNumber() || !m_maps->setProvider(provider, type))
        m_maps->setProvider(GPSMaps::kDefaultProvider, 0);

    MapSettings s;
    if (object.contains(QStringLiteral("Sensor-Lat"))) {
        s.latitude = pairOf(object.value(QStringLiteral("Sensor-Lat")));
        s.longitude = pairOf(object.value(QStringLiteral("Sensor-Lon")));
        s.validity = pairOf(object.value(QStringLiteral("Sensor-Valid")));
        s.altitude = pairOf(object.value(QStringLiteral("Sensor-Alti")));
        s.azimuth = pairOf(object.value(QStringLiteral("Sensor-Azim")));
        s.restrictRoute = flagOf(object.value(QStringLiteral("RestrictRoute")));
        s.restrictedSeconds = std::clamp(object.value(QStringLiteral("RestrictedTime")).toInt(0), 0,
                                         MapSettings::kMaxRestrictedSeconds);
        s.customLineColor = flagOf(object.value(QStringLiteral("CustomLineColor")));
        const LayoutJsonValue &colors = object.value(QStringLiteral("Colors"));
        for (int i = 0; i < 3 && colors.isArray() && colors.size() == 6; ++i) {
            const QColor color(colors.at(2 * i).toString());
            if (color.isValid())
                s.stops.colors[size_t(i)] = color;
            s.stops.values[size_t(i)] = std::clamp(
                colors.at(2 * i + 1).toInt(0), -MapSettings::kStopValueLimit, MapSettings::kStopValueLimit);
        }
        s.colorSensor = pairOf(object.value(QStringLiteral("Sensor-Color")));
    } else {
        // A layout from a file binds no variables: the window keeps its own.
        s = m_settings;
    }
    m_settings = s;

    // The zoom and position are the ones the bound track was shown at; without a track the first one
    // bound is fitted.
    const LayoutJsonValue &zoom = object.value(QStringLiteral("Zoom"));
    m_fitZoom = !zoom.isNumber() || !MapSettings::isSet(m_settings.latitude);
    if (!m_fitZoom)
        m_view.zoom = std::clamp(zoom.toInt(), MapRenderer::kMinZoom, GPSMaps::maxZoom(provider));
    const LayoutJsonValue &x = object.value(QStringLiteral("posX"));
    const LayoutJsonValue &y = object.value(QStringLiteral("posY"));
    m_hasLayoutPos = !m_fitZoom && x.isNumber() && y.isNumber() && std::abs(x.toDouble()) < 1e9 &&
                     std::abs(y.toDouble()) < 1e9;
    if (m_hasLayoutPos) {
        m_view.pos = QPoint(x.toInt(), y.toInt());
        // Saved with the window at that size; a window of another size shows the same middle.
        const int w = object.value(QStringLiteral("Width")).toInt(0);
        const int h = object.value(QStringLiteral("Height")).toInt(0);
        m_layoutSize = w > 0 && h > 0 && w < 100000 && h < 100000 ? QSize(w, h) : QSize();
    }
    m_needsPlacing = true;
    m_maps->abort();
    m_tiles.clear();
    m_queue.clear();
    refreshTrack();
    placeView();
    invalidate();
    return 0;
}

int WidgetMaps::save(LayoutJsonWriter &writer, quint8 flag)
{
    int provider = 0;
    int type = 0;
    m_maps->getProvider(provider, type);
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::Maps));
    writer.writeInt(QStringLiteral("Zoom"), m_view.zoom);
    writer.writeInt(QStringLiteral("Width"), width());
    writer.writeInt(QStringLiteral("Height"), height());
    writer.writeInt(QStringLiteral("posX"), m_view.pos.x());
    writer.writeInt(QStringLiteral("posY"), m_view.pos.y());
    writer.writeInt(QStringLiteral("MapProvider"), provider);
    writer.writeInt(QStringLiteral("MapType"), type);
    if (flag != kForDatabase)
        return 0;
    writePair(writer, QStringLiteral("Sensor-Lat"), m_settings.latitude);
    writePair(writer, QStringLiteral("Sensor-Lon"), m_settings.longitude);
    writePair(writer, QStringLiteral("Sensor-Valid"), m_settings.validity);
    writePair(writer, QStringLiteral("Sensor-Alti"), m_settings.altitude);
    writePair(writer, QStringLiteral("Sensor-Azim"), m_settings.azimuth);
    writer.writeInt(QStringLiteral("RestrictRoute"), m_settings.restrictRoute ? 1 : 0);
    writer.writeInt(QStringLiteral("RestrictedTime"), m_settings.restrictedSeconds);
    writer.writeInt(QStringLiteral("CustomLineColor"), m_settings.customLineColor ? 1 : 0);
    writer.key(QStringLiteral("Colors"));
    writer.beginArray();
    for (size_t i = 0; i < 3; ++i) {
        writer.writeString(m_settings.stops.colors[i].name());
        writer.writeInt(qint64(std::llround(m_settings.stops.values[i])));
    }
    writer.endArray();
    // After the keys every reader knows: which variable colours the line.
    writePair(writer, QStringLiteral("Sensor-Color"), m_settings.colorSensor);
    return 0;
}

// ---- bindings and track

void WidgetMaps::setSettings(const MapSettings &settings)
{
    const bool moved = settings.latitude != m_settings.latitude || settings.longitude != m_settings.longitude;
    m_settings = settings;
    if (moved) {
        m_needsPlacing = true;
        m_fitZoom = true;
        m_hasLayoutPos = false;
    }
    refreshTrack();
    placeView();
    invalidate();
}

bool WidgetMaps::bindVariable(const TelemetryVar *variable)
{
    if (!variable)
        return false;
    if (KmlWriter::isLatitude(*variable) || KmlWriter::isLongitude(*variable))
        return bindGpsDevice(variable->deviceId());
    // Any other variable colours the line, its stops spread over the values the log holds.
    MapSettings s = m_settings;
    s.colorSensor = variable->pair();
    s.customLineColor = true;
    if (variable->count() > 0) {
        double low = variable->numberAt(0);
        double high = low;
        for (int i = 1; i < variable->count(); ++i) {
            const double v = variable->numberAt(i);
            low = std::min(low, v);
            high = std::max(high, v);
        }
        const double limit = MapSettings::kStopValueLimit;
        s.stops.values = {{std::clamp(std::floor(low), -limit, limit),
                           std::clamp(std::round((low + high) / 2), -limit, limit),
                           std::clamp(std::ceil(high), -limit, limit)}};
    }
    setSettings(s);
    return true;
}

bool WidgetMaps::bindGpsDevice(quint32 deviceId)
{
    const QVector<TelemetrySensor> *sensors = sensorList();
    if (!sensors)
        return false;
    for (const TelemetrySensor &sensor : *sensors) {
        if (sensor.id() != deviceId)
            continue;
        MapSettings s = m_settings;
        s.latitude = s.longitude = s.altitude = TelemetrySimplePair();
        for (const TelemetryVar &v : sensor.vars()) {
            if (KmlWriter::isLatitude(v) && !MapSettings::isSet(s.latitude))
                s.latitude = v.pair();
            else if (KmlWriter::isLongitude(v) && !MapSettings::isSet(s.longitude))
                s.longitude = v.pair();
            else if (KmlWriter::isAltitude(v) && !MapSettings::isSet(s.altitude))
                s.altitude = v.pair();
        }
        if (!MapSettings::isSet(s.latitude) || !MapSettings::isSet(s.longitude))
            return false;
        // Dropping the same device again shows its whole track again.
        m_settings.latitude = TelemetrySimplePair();
        setSettings(s);
        return true;
    }
    return false;
}

const QVector<TelemetrySensor> *WidgetMaps::sensorList() const
{
    return m_store ? m_store->sensors() : m_sensors;
}

const TelemetryVar *WidgetMaps::findVar(const TelemetrySimplePair &pair) const
{
    const QVector<TelemetrySensor> *sensors = sensorList();
    if (!sensors || !MapSettings::isSet(pair))
        return nullptr;
    for (const TelemetrySensor &sensor : *sensors) {
        if (sensor.id() == pair.deviceId)
            return sensor.var(pair.param);
    }
    return nullptr;
}

void WidgetMaps::refreshTrack()
{
    const std::array<const TelemetryVar *, 4> vars = {
        findVar(m_settings.latitude), findVar(m_settings.longitude), findVar(m_settings.validity),
        m_settings.customLineColor ? findVar(m_settings.colorSensor) : nullptr};
    // The path is kept while the variables stay where they are; it notices new samples itself.
    if (vars != m_boundVars)
        m_track.setVariables(vars[0], vars[1], vars[2], vars[3]);
    m_boundVars = vars;
    const bool bound = vars[0] && vars[1];
    if (m_trackBound && !bound)
        m_needsPlacing = true; // shown again where it is when it comes back
    m_trackBound = bound;
}

MapTrack *WidgetMaps::track()
{
    return m_trackBound ? &m_track : nullptr;
}

void WidgetMaps::placeView()
{
    if (!m_needsPlacing || !m_trackBound || width() <= 0 || height() <= 0)
        return;
    const MapRenderer::View saved = m_view;
    m_autoPlaced = m_fitZoom;
    if (!MapRenderer::trackView(m_track, size(), maxFitZoom(), &m_view))
        return; // no position yet: placed when the first one arrives
    if (!m_fitZoom) {
        m_view =
            MapRenderer::gridView(std::min(saved.zoom, GPSMaps::maxZoom(provider())), size(), m_view.centre);
        if (m_hasLayoutPos) {
            // The saved position belongs to the anchor as it was then, already on the grid.
            m_view.pos = saved.pos;
            if (m_layoutSize.isValid())
                m_view.pos += QPoint(width() - m_layoutSize.width(), height() - m_layoutSize.height()) / 2;
            MapRenderer::snapToGrid(m_view, true);
        }
    }
    m_needsPlacing = false;
    m_fitZoom = false;
    m_hasLayoutPos = false;
    m_maps->abort();
    m_tiles.clear();
    m_queue.clear();
    viewChanged();
}

int WidgetMaps::maxFitZoom() const
{
    return std::min(MapRenderer::kMaxFitZoom, GPSMaps::maxZoom(provider()));
}

int WidgetMaps::provider() const
{
    int provider = 0;
    int type = 0;
    m_maps->getProvider(provider, type);
    return provider;
}

void WidgetMaps::followTrack()
{
    if (!m_autoPlaced || !m_trackBound || m_needsPlacing)
        return;
    const QVector<MapTrack::Point> &path = m_track.path(m_view.zoom);
    if (!path.isEmpty() && !rect().contains(path.constLast().world - MapRenderer::worldTopLeft(m_view)))
        fitTrack();
}

void WidgetMaps::fitTrack()
{
    m_needsPlacing = true;
    m_fitZoom = true;
    m_hasLayoutPos = false;
    placeView();
}

// ---- view

void WidgetMaps::zoomTo(int zoom, const QPoint &about)
{
    zoom = std::clamp(zoom, MapRenderer::kMinZoom, GPSMaps::maxZoom(provider()));
    if (zoom == m_view.zoom || m_needsPlacing)
        return;
    m_autoPlaced = false;
    const MapsProjection::LatLon place = MapRenderer::latLonAt(m_view, about);
    m_view.zoom = zoom;
    const QPoint world = MapsProjection(zoom).fromLatLngToPoint(place.latitude, place.longitude);
    m_view.pos = about - (world - MapRenderer::anchorWorld(m_view));
    MapRenderer::snapToGrid(m_view, false);
    m_maps->abort();
    m_tiles.clear();
    m_queue.clear();
    viewChanged();
}

void WidgetMaps::panBy(const QPoint &delta)
{
    if (delta.isNull())
        return;
    m_autoPlaced = false;
    m_view.pos += delta;
    viewChanged();
}

void WidgetMaps::viewChanged()
{
    m_view.size = size();
    queueVisibleTiles();
    dropFarTiles();
    invalidate();
}

void WidgetMaps::queueVisibleTiles()
{
    if (!m_trackBound || m_needsPlacing)
        return;
    for (const QPoint &world : MapRenderer::tilePositions(m_view)) {
        if (tileIndex(world) < 0 && !m_queue.contains(world))
            m_queue.append(world);
    }
    requestNext();
}

void WidgetMaps::requestNext()
{
    const QRect visible(MapRenderer::worldTopLeft(m_view), size());
    while (!m_maps->isLoading() && !m_queue.isEmpty()) {
        const QPoint world = m_queue.takeFirst();
        // Panned away before its turn, or already there.
        if (!visible.intersects(QRect(world, QSize(kTile, kTile))) || tileIndex(world) >= 0)
            continue;
        MapRenderer::Tile tile;
        tile.world = world;
        m_tiles.append(tile);
        m_maps->loadMap(kTile, kTile, MapRenderer::tileCentre(m_view.zoom, world), m_view.zoom, world.x(),
                        world.y());
        return;
    }
    if (isSettled())
        emit settled();
}

void WidgetMaps::tileArrived(const QImage &image, int x, int y, int zoom)
{
    const int index = zoom == m_view.zoom ? tileIndex(QPoint(x, y)) : -1;
    if (index >= 0) {
        m_tiles[index].image = image;
        m_tiles[index].failure.clear();
        invalidate();
    }
    requestNext();
}

void WidgetMaps::tileFailed(const QString &reason, int x, int y, int zoom)
{
    const int index = zoom == m_view.zoom ? tileIndex(QPoint(x, y)) : -1;
    if (index >= 0) {
        m_tiles[index].failure = reason;
        invalidate();
    }
    requestNext();
}

int WidgetMaps::tileIndex(const QPoint &world) const
{
    for (int i = 0; i < m_tiles.size(); ++i) {
        if (m_tiles.at(i).world == world)
            return i;
    }
    return -1;
}

void WidgetMaps::dropFarTiles()
{
    const QRect visible(MapRenderer::worldTopLeft(m_view), size());
    for (int i = 0; i < m_tiles.size() && m_tiles.size() > kMaxTiles;) {
        if (visible.intersects(QRect(m_tiles.at(i).world, QSize(kTile, kTile))))
            ++i;
        else
            m_tiles.removeAt(i); // the oldest first
    }
}

void WidgetMaps::setProvider(int provider, int type)
{
    int oldProvider = 0;
    int oldType = 0;
    m_maps->getProvider(oldProvider, oldType);
    if ((provider == oldProvider && type == oldType) || !m_maps->setProvider(provider, type))
        return;
    m_maps->abort();
    m_tiles.clear();
    m_queue.clear();
    if (m_view.zoom > GPSMaps::maxZoom(provider))
        zoomTo(GPSMaps::maxZoom(provider), rect().center());
    viewChanged();
}

// ---- shared cursor and data

void WidgetMaps::sensorsUpdated(const QVector<TelemetrySensor> *sensors)
{
    if (sensors)
        m_sensors = sensors;
    if (bindFirstGps())
        return;
    refreshTrack();
    placeView();
    invalidate();
}

void WidgetMaps::dataUpdated(const QVector<TelemetrySensor> *sensors)
{
    if (sensors)
        m_sensors = sensors;
    if (!m_redrawTimer.isActive())
        m_redrawTimer.start();
}

void WidgetMaps::logFileLoaded()
{
    // Another flight may be somewhere else: it is shown whole, unless the layout just placed the view.
    if (!m_needsPlacing) {
        m_needsPlacing = true;
        m_fitZoom = true;
        m_hasLayoutPos = false;
    }
    m_hasCursor = false;
    if (bindFirstGps())
        return;
    refreshTrack();
    placeView();
    invalidate();
}

bool WidgetMaps::bindFirstGps()
{
    const QVector<TelemetrySensor> *sensors = sensorList();
    if (MapSettings::isSet(m_settings.latitude) || !sensors)
        return false;
    for (const TelemetrySensor &sensor : *sensors) {
        if (KmlWriter::hasGpsPosition(sensor))
            return bindGpsDevice(sensor.id());
    }
    return false;
}

void WidgetMaps::externalTimestampMoved(long timestamp, bool flag)
{
    const bool moved = !m_hasCursor || m_cursor != timestamp;
    m_hasCursor = true;
    m_cursor = timestamp;
    if (!moved)
        return;
    if (m_settings.restrictRoute)
        m_layerValid = false;
    // A deliberate position (a click, playback) is brought into view; hovering never moves the map.
    refreshTrack();
    if (flag && m_trackBound && !m_needsPlacing) {
        const QVector<MapTrack::Point> &path = m_track.path(m_view.zoom);
        const int at = m_track.indexAt(timestamp);
        if (at >= 0) {
            const QPoint pixel = path.at(at).world - MapRenderer::worldTopLeft(m_view);
            if (!rect().adjusted(20, 20, -20, -20).contains(pixel)) {
                panBy(rect().center() - pixel);
                return;
            }
        }
    }
    update();
}

// ---- painting

MapRenderer::TrackStyle WidgetMaps::trackStyle() const
{
    MapRenderer::TrackStyle style;
    style.restrict = m_settings.restrictRoute;
    style.restrictSeconds = m_settings.restrictedSeconds;
    style.colored = m_settings.customLineColor && MapSettings::isSet(m_settings.colorSensor);
    style.stops = m_settings.stops;
    return style;
}

void WidgetMaps::invalidate()
{
    m_layerValid = false;
    update();
}

void WidgetMaps::paintAll(QPainter &painter)
{
    // The store may have moved the variables since the last look.
    refreshTrack();
    const bool placed = m_trackBound && !m_needsPlacing;
    if (!m_layerValid || m_layer.size() != size()) {
        m_layer = QImage(size(), QImage::Format_ARGB32_Premultiplied);
        m_layer.fill(QColor(229, 227, 223));
        QPainter layer(&m_layer);
        if (placed) {
            m_view.size = size();
            MapRenderer::paintMap(layer, m_view, m_tiles, &m_track, trackStyle(), m_hasCursor, m_cursor);
            MapRenderer::paintAttribution(layer, size(), GPSMaps::attribution(provider()));
        } else {
            QString text = tr("Drag a GPS sensor here from the sensor list to show its flight path.");
            if (!m_trackBound && MapSettings::isSet(m_settings.latitude) && sensorList() &&
                !sensorList()->isEmpty())
                text = tr("The GPS this map shows is not in this log.\n") + text;
            if (m_trackBound)
                text = m_store && m_store->isLogging() ? tr("Waiting for a GPS position...")
                                                       : tr("This log holds no GPS position.");
            layer.setPen(QColor(90, 90, 90));
            layer.drawText(rect().adjusted(16, 16, -16, -16), Qt::AlignCenter | Qt::TextWordWrap, text);
        }
        m_layerValid = true;
    }
    painter.drawImage(0, 0, m_layer);
    if (placed && m_hasCursor)
        MapRenderer::paintCursor(painter, m_view, &m_track, m_cursor);
}

void WidgetMaps::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    paintAll(painter);
}

QImage WidgetMaps::renderImage()
{
    QImage image(size(), QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&image);
    paintAll(painter);
    painter.end();
    return image;
}

void WidgetMaps::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (m_autoPlaced && !m_needsPlacing) {
        // Nobody has moved the fitted view yet: the whole track is fitted to the new size.
        fitTrack();
        return;
    }
    // The middle of the map stays in the middle.
    if (event->oldSize().isValid() && !m_needsPlacing)
        m_view.pos += QPoint(event->size().width() - event->oldSize().width(),
                             event->size().height() - event->oldSize().height()) /
                      2;
    placeView();
    viewChanged();
}

// ---- mouse and keys

int WidgetMaps::pointNear(const QPoint &pos)
{
    refreshTrack();
    if (!m_trackBound || m_needsPlacing)
        return -1;
    const QVector<MapTrack::Point> &path = m_track.path(m_view.zoom);
    const QPoint world = MapRenderer::worldTopLeft(m_view) + pos;
    qint64 best = qint64(kHoverDistance) * kHoverDistance + 1;
    int found = -1;
    for (int i = 0; i < path.size(); ++i) {
        const qint64 dx = path.at(i).world.x() - world.x();
        const qint64 dy = path.at(i).world.y() - world.y();
        const qint64 d = dx * dx + dy * dy;
        if (d < best) {
            best = d;
            found = i;
        }
    }
    return found;
}

void WidgetMaps::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton) {
        m_dragging = true;
        m_dragged = false;
        m_lastMouse = event->pos();
        m_pressPos = event->pos();
    }
    QWidget::mousePressEvent(event);
}

void WidgetMaps::mouseMoveEvent(QMouseEvent *event)
{
    if (m_dragging) {
        if (!m_dragged && (event->pos() - m_pressPos).manhattanLength() < kDragThreshold)
            return;
        if (!m_dragged)
            setCursor(Qt::ClosedHandCursor);
        m_dragged = true;
        panBy(event->pos() - m_lastMouse);
        m_lastMouse = event->pos();
        return;
    }
    const int at = pointNear(event->pos());
    if (at >= 0) {
        const qint64 t = m_track.path(m_view.zoom).at(at).time;
        if (!m_hasCursor || t != m_cursor) {
            externalTimestampMoved(long(t), false);
            emit mouseOverTimestamp(long(t), false);
        }
    }
}

void WidgetMaps::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && m_dragging) {
        m_dragging = false;
        unsetCursor();
        const int at = m_dragged ? -1 : pointNear(event->pos());
        if (at >= 0) {
            const qint64 t = m_track.path(m_view.zoom).at(at).time;
            externalTimestampMoved(long(t), false);
            emit mouseOverTimestamp(long(t), true);
        }
    }
    QWidget::mouseReleaseEvent(event);
}

void WidgetMaps::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        zoomTo(m_view.zoom + 1, event->pos());
}

void WidgetMaps::wheelEvent(QWheelEvent *event)
{
    m_wheel += event->angleDelta().y();
    const int steps = m_wheel / 120;
    if (steps != 0) {
        m_wheel -= steps * 120;
        zoomTo(m_view.zoom + steps, event->position().toPoint());
    }
    event->accept();
}

void WidgetMaps::keyPressEvent(QKeyEvent *event)
{
    const int step = std::max(32, std::min(width(), height()) / 4);
    switch (event->key()) {
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        zoomTo(m_view.zoom + 1, rect().center());
        break;
    case Qt::Key_Minus:
        zoomTo(m_view.zoom - 1, rect().center());
        break;
    case Qt::Key_Left:
        panBy(QPoint(step, 0));
        break;
    case Qt::Key_Right:
        panBy(QPoint(-step, 0));
        break;
    case Qt::Key_Up:
        panBy(QPoint(0, step));
        break;
    case Qt::Key_Down:
        panBy(QPoint(0, -step));
        break;
    case Qt::Key_Home:
        fitTrack();
        break;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    event->accept();
}

void WidgetMaps::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    emit gotFocus();
}

// ---- drops

void WidgetMaps::dragEnterEvent(QDragEnterEvent *event)
{
    dragMoveEvent(event);
}

void WidgetMaps::dragMoveEvent(QDragMoveEvent *event)
{
    const QMimeData *data = event->mimeData();
    if (data->hasFormat(SensorDragData::gpsMimeType()) || data->hasFormat(SensorDragData::sensorMimeType()))
        event->acceptProposedAction();
    else
        event->ignore();
}

void WidgetMaps::dropEvent(QDropEvent *event)
{
    const QMimeData *data = event->mimeData();
    quint32 device = 0;
    TelemetrySimplePair pair;
    bool taken = false;
    if (data->hasFormat(SensorDragData::gpsMimeType()) && SensorDragData::gpsDevice(data, &device))
        taken = bindGpsDevice(device);
    else if (data->hasFormat(SensorDragData::sensorMimeType()) && SensorDragData::variable(data, &pair))
        taken = bindVariable(findVar(pair));
    if (taken)
        event->acceptProposedAction();
    else
        event->ignore();
}

// ---- menu and dialogs

QMenu *WidgetMaps::createContextMenu()
{
    auto *menu = new QMenu(tr("Map menu"), this);
    menu->setObjectName(QStringLiteral("Map menu"));
    QAction *kml = menu->addAction(QIcon(QStringLiteral(":/Icons/Program/Resources/export16x16.png")),
                                   tr("Export to KML..."));
    connect(kml, &QAction::triggered, this, &WidgetMaps::exportGPSRequest);

    QMenu *providers = menu->addMenu(tr("Map provider"));
    providers->setObjectName(QStringLiteral("Map provider"));
    providers->setToolTip(tr("Set map provider and map type"));
    providers->menuAction()->setStatusTip(tr("Set map provider and map type"));
    providers->setToolTipsVisible(true);
    auto *group = new QActionGroup(providers);
    int current = 0;
    int currentType = 0;
    m_maps->getProvider(current, currentType);
    for (int p = 0; p < GPSMaps::kProviderCount; ++p) {
        const bool available = m_maps->isProviderAvailable(p);
        for (int t = 0; t < GPSMaps::mapTypeCount(p); ++t) {
            const QString type = GPSMaps::mapTypeName(p, t);
            if (type.isEmpty())
                continue;
            QString text = tr("%1 %2").arg(GPSMaps::providerName(p), type);
            if (!available)
                text += tr(" (needs an API key)");
            QAction *action = providers->addAction(text);
            action->setCheckable(true);
            action->setChecked(p == current && t == currentType);
            action->setEnabled(available);
            action->setToolTip(available ? QString() : m_maps->availabilityHint(p));
            action->setStatusTip(action->toolTip());
            group->addAction(action);
            connect(action, &QAction::triggered, this, [this, p, t] { setProvider(p, t); });
        }
    }
    menu->addAction(tr("Clear map cache"), this, &WidgetMaps::clearMapCache);
    menu->addAction(tr("Properties"), this, &WidgetMaps::showProperties);
    menu->addSeparator();
    QAction *whole = menu->addAction(tr("Show whole track"), this, &WidgetMaps::fitTrack);
    whole->setEnabled(m_trackBound);
    menu->addAction(tr("Export map image..."), this, &WidgetMaps::exportMapImage);
    return menu;
}

void WidgetMaps::contextMenuEvent(QContextMenuEvent *event)
{
    QMenu *menu = createContextMenu();
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(event->globalPos());
}

void WidgetMaps::showProperties()
{
    WidgetMapsProperties dialog(sensorList(), m_settings, this);
    if (dialog.exec() == QDialog::Accepted)
        setSettings(dialog.settings());
}

void WidgetMaps::setImagePathSettings(PathReader reader, PathWriter writer)
{
    m_pathReader = std::move(reader);
    m_pathWriter = std::move(writer);
}

void WidgetMaps::exportMapImage()
{
    const QString start = m_pathReader ? m_pathReader() : QString();
    QString path = prompter()->saveFile(this, tr("Export PNG image"), start, tr("PNG images (*.png)"));
    if (path.isEmpty())
        return;
    if (QFileInfo(path).suffix().isEmpty())
        path += QStringLiteral(".png");
    QString error;
    const QByteArray png = MapRenderer::encodePng(renderImage());
    if (png.isEmpty())
        error = tr("%1: cannot encode the picture").arg(QDir::toNativeSeparators(path));
    else
        AtomicFile::write(path, png, &error);
    if (!error.isEmpty()) {
        prompter()->error(
            this, tr("Error"),
            tr("<b>Unable to export image:</b><ul><li>%1</li></ul>").arg(error.toHtmlEscaped()));
        return;
    }
    if (m_pathWriter)
        m_pathWriter(path);
}

void WidgetMaps::clearMapCache()
{
    if (!prompter()->confirm(
            this, tr("Clear map cache"),
            tr("<b>Clear the map cache?</b><br>The map images kept for use without a network "
               "connection are removed; they are fetched again when needed.")))
        return;
    QString error;
    if (m_maps->clearCache(&error) < 0)
        prompter()->error(
            this, tr("Error"),
            tr("<b>Unable to clear the map cache:</b><ul><li>%1</li></ul>").arg(error.toHtmlEscaped()));
}
