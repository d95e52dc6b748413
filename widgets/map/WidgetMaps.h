#pragma once

#include "telemetry/TelemetrySensor.h"
#include "tools/GPSMaps.h"
#include "tools/MapRenderer.h"
#include "tools/MapTrack.h"
#include "widgets/layout/SerializableWidget.h"
#include "widgets/map/MapSettings.h"

#include <QImage>
#include <QPointer>
#include <QTimer>
#include <QVector>
#include <QWidget>

#include <array>
#include <functional>

class QMenu;
class QPainter;
class TelemetryData;
class WindowHub;

// "GPS map": the flight path over map images that are fetched once and kept in the map cache, with a
// marker at the shared cursor. Without a key or a network the map shows what the cache holds; the default
// provider needs no key. A window bound to no position takes the log's first GPS device; a GPS device
// dropped on it replaces that, any other variable dropped colours the line.
//
// Where it looks: the images lie on a 512-pixel grid anchored at posX/posY (the widget pixel of the anchor
// image's top-left), the anchor image showing the middle of the track. The anchor is kept on the world's
// own 512-pixel grid, so the same place has the same cache file whatever the flight.
//
// Mouse and keys: dragging pans; the wheel zooms one step about the mouse, a double click zooms in there;
// +/- zoom about the middle, the arrow keys pan. Hovering the track moves the shared cursor, a click on it
// pins it there.
class WidgetMaps : public QWidget, public SerializableWidget
{
    Q_OBJECT
    // True while images of the view are still to come (a screenshot run waits for them).
    Q_PROPERTY(bool loading READ isLoading)
public:
    // What this window takes from the hub and the store and what it gives back, checked by the compiler.
    static void wire(WidgetMaps *window, WindowHub *hub, TelemetryData *store);
    using PathReader = std::function<QString()>;
    using PathWriter = std::function<void(const QString &)>;

    // Images kept in memory beyond the visible ones (each is a megabyte).
    static constexpr int kMaxTiles = 48;
    // How near the mouse must come to the track to move the cursor, in pixels.
    static constexpr int kHoverDistance = 10;
    static constexpr int kRedrawIntervalMs = 100;

    // The map cache lives in dataFolder; store may be null (nothing is drawn).
    WidgetMaps(TelemetryData *store, const QString &dataFolder,
               const MapEndpoints &endpoints = MapEndpoints::fromEnvironment(), QWidget *parent = nullptr);
    ~WidgetMaps() override;

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;
    bool addVariable(const TelemetryVar *variable) override { return bindVariable(variable); }

    const MapSettings &settings() const { return m_settings; }
    void setSettings(const MapSettings &settings);
    int zoom() const { return m_view.zoom; }
    QPoint mapPos() const { return m_view.pos; }
    const MapRenderer::View &view() const { return m_view; }
    // Sets the zoom (clamped) keeping the place under about where it is.
    void zoomTo(int zoom, const QPoint &about);
    void panBy(const QPoint &delta);
    // Shows the whole track.
    void fitTrack();
    bool hasCursor() const { return m_hasCursor; }
    qint64 cursorTimestamp() const { return m_cursor; }

    GPSMaps *loader() const { return m_maps; }
    const QVector<MapRenderer::Tile> &tiles() const { return m_tiles; }
    int queuedTiles() const { return m_queue.size(); }
    // No image still to come: every visible one arrived or failed.
    bool isSettled() const { return m_queue.isEmpty() && !m_maps->isLoading(); }
    bool isLoading() const { return !isSettled(); }
    // The track as drawn now (null without a bound latitude and longitude).
    MapTrack *track();

    // The picture the window shows, at its size.
    QImage renderImage();
    // The context menu; the caller owns it.
    QMenu *createContextMenu();
    // Where "Export map image..." starts and what it leaves behind (the graph export's path setting).
    void setImagePathSettings(PathReader reader, PathWriter writer);

public slots:
    void addData(const TelemetryVar *variable) { bindVariable(variable); }
    void sensorsUpdated(const QVector<TelemetrySensor> *sensors);
    void dataUpdated(const QVector<TelemetrySensor> *sensors);
    void logFileLoaded();
    void externalTimestampMoved(long timestamp, bool flag);
    void setProvider(int provider, int type);
    void showProperties();
    void exportMapImage();
    void clearMapCache();

signals:
    void gotFocus();
    void exportGPSRequest();
    // The time of the track point under the mouse (flag false) or clicked (flag true), in ms.
    void mouseOverTimestamp(long timestamp, bool flag);
    // Every image of the view has arrived or failed.
    void settled();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void contextMenuEvent(QContextMenuEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;

private:
    bool bindVariable(const TelemetryVar *variable);
    // Binds the GPS device's latitude and longitude (and altitude when it has one).
    bool bindGpsDevice(quint32 deviceId);
    // A window bound to no position takes the first GPS device of the log, so a flight shows at once.
    bool bindFirstGps();
    const QVector<TelemetrySensor> *sensorList() const;
    const TelemetryVar *findVar(const TelemetrySimplePair &pair) const;
    // Points the track at the bound variables as they are now: the store may have moved them.
    void refreshTrack();
    // Places the view on the track once it has a position (fitting the zoom when the layout gave none).
    void placeView();
    // A recording that leaves the fitted view is fitted again (until the user moves the map).
    void followTrack();
    int maxFitZoom() const;
    void viewChanged();
    void queueVisibleTiles();
    void requestNext();
    void tileArrived(const QImage &image, int x, int y, int zoom);
    void tileFailed(const QString &reason, int x, int y, int zoom);
    int tileIndex(const QPoint &world) const;
    void dropFarTiles();
    void invalidate();
    MapRenderer::TrackStyle trackStyle() const;
    int provider() const;
    // The window's picture: the kept layer of images and track, then the marker.
    void paintAll(QPainter &painter);
    // The track point within kHoverDistance of pos, or -1.
    int pointNear(const QPoint &pos);

    QPointer<TelemetryData> m_store;
    const QVector<TelemetrySensor> *m_sensors = nullptr;
    GPSMaps *m_maps;
    MapSettings m_settings;
    MapTrack m_track;
    std::array<const TelemetryVar *, 4> m_boundVars{}; // latitude, longitude, validity, colour
    bool m_trackBound = false;

    MapRenderer::View m_view;
    // The view still has to be put on the track: when it gets a position, with a fitted zoom or not.
    bool m_needsPlacing = true;
    bool m_fitZoom = true;
    // posX/posY from a layout, applied when the view is placed.
    bool m_hasLayoutPos = false;
    QSize m_layoutSize;
    // The view is the fitted one, untouched since: a new size fits the track again.
    bool m_autoPlaced = false;

    QVector<MapRenderer::Tile> m_tiles;
    QVector<QPoint> m_queue;

    bool m_hasCursor = false;
    qint64 m_cursor = 0;

    QImage m_layer; // images and track; the cursor is drawn over it
    bool m_layerValid = false;
    QTimer m_redrawTimer;

    bool m_dragging = false;
    bool m_dragged = false;
    QPoint m_lastMouse;
    QPoint m_pressPos;
    int m_wheel = 0; // wheel turn not yet a whole step (fine-grained wheels)

    PathReader m_pathReader;
    PathWriter m_pathWriter;
};
