#pragma once

#include "telemetry/TelemetrySensor.h"
#include "telemetry/TelemetrySimplePair.h"
#include "widgets/graph/GraphDecimator.h"
#include "widgets/graph/GraphItem.h"
#include "widgets/graph/GraphMeasurement.h"
#include "widgets/graph/GraphRenderer.h"
#include "widgets/graph/GraphTimeline.h"
#include "widgets/graph/WidgetGraphExport.h"
#include "widgets/layout/SerializableWidget.h"

#include <QHash>
#include <QImage>
#include <QPoint>
#include <QPointer>
#include <QTimer>
#include <QVector>
#include <QWidget>

#include <functional>

class WindowHub;

class QMenu;
class SensorTable;
class TelemetryData;

// "Chart": telemetry variables over time, each on a Y axis of its own in its own colour, with alarm
// markers, a time grid, a cursor shared with the other windows, live following while recording and PNG
// export.
//
// Mouse and keys: the wheel zooms time about the mouse (over a Y axis: that axis's range, unless it is
// locked); Shift+wheel or a sideways wheel pans; dragging pans time (over a Y axis: its range); a click
// pins the shared cursor; a double click on an axis opens its properties, on the plot it zooms to the
// whole recording. Left/Right pan by a tenth, Page Up/Down by a whole span, +/- zoom, Home shows the
// start and End the newest data (following it while recording). The view stays inside the recording.
//
// Measuring cursors: Ctrl+click (or the key A) places cursor A, Shift+click (or B) cursor B, at the time
// under the mouse; either is dragged by its line; Esc or "Clear cursors A and B" removes them. While
// any is placed, a readout replaces the normal cursor: the times, delta t and, per item, the values at A
// and B, their difference, and the minimum, maximum, mean and slope per second between them. The pair is
// shared with the other windows and drawn in the exported image. The context menu can also cut the
// recording before or after the time clicked at, when that lies inside the recording (asking first, No
// being the default); this emits removeTelemetryBeforeTimestamp or removeTelemetryAfterTimestamp for the
// store, and "Undo cut" emits undoCutRequest while the store can take the last cut back.
//
// An item whose variable the loaded recording lacks keeps the name and unit it was last shown with (or
// those of the sensor settings), its axis greyed and marked "(not in this log)"; it is drawn again as
// soon as a recording has the variable.
class WidgetGraph : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    // What this window takes from the hub and the store and what it gives back: the one place its
    // wiring is written, checked by the compiler. Called by the window manager on registration.
    static void wire(WidgetGraph *window, WindowHub *hub, TelemetryData *store);
    using ExportSettingsReader = std::function<WidgetGraphExport::Settings()>;
    using ExportSettingsWriter = std::function<void(const WidgetGraphExport::Settings &)>;

    static constexpr int kRedrawIntervalMs = 40;

    // store and sensors may be null (then nothing is plotted, or no defaults are read or stored).
    explicit WidgetGraph(TelemetryData *store, SensorTable *sensors = nullptr, QWidget *parent = nullptr);
    ~WidgetGraph() override;

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;
    bool addVariable(const TelemetryVar *variable) override
    {
        addData(variable);
        return true;
    }

    const QVector<GraphItem> &items() const { return m_items; }
    // Replaces one item's settings and redraws.
    void setItem(int index, const GraphItem &item);
    const GraphTimeline &timeline() const { return m_timeline; }
    qint64 timeWindow() const { return m_timeline.window(); }
    qint64 timeFrom() const { return m_timeline.from(); }
    void setTimeSpan(qint64 from, qint64 window);
    bool showMessages() const { return m_showMessages; }
    bool showGrid() const { return m_showGrid; }
    int theme() const { return m_theme; }
    GraphTheme themeColors() const { return GraphTheme::forIndex(m_theme); }
    bool hasCursor() const { return m_hasCursor; }
    qint64 cursorTimestamp() const { return m_cursor; }
    qint64 lastUpdate() const { return m_lastUpdate; }
    // "name [unit]" of an item, followed by " (not in this log)" while the recording lacks its variable.
    QString itemLabel(int index) const;
    // Alarm messages of the loaded recording.
    int alarmCount() const;
    const GraphRenderer &renderer() const { return m_renderer; }
    const CursorPair &cursorPair() const { return m_pair; }
    // The readings of the measuring cursors as drawn now.
    const GraphMeasurement &measurement();
    // "Auto zoom" checked: a new recording shows whole, and a live one keeps fitting as it grows.
    bool autoZoomOn() const { return m_autoZoom; }
    const GraphDecimator &decimator() const { return m_decimator; }

    // The "Visualization menu" for a point of the window; the caller owns it.
    QMenu *createContextMenu(const QPoint &pos);
    // The graph as the export writes it.
    QImage renderImage(const QSize &size) const;

    // Where the export dialog takes its initial size and path from, and where it leaves them.
    void setExportSettings(ExportSettingsReader reader, ExportSettingsWriter writer);

public slots:
    void addData(const TelemetryVar *variable);
    void setLogging(bool logging);
    void sensorsUpdated(const QVector<TelemetrySensor> *sensors);
    void dataUpdated(const QVector<TelemetrySensor> *sensors);
    void logFileLoaded();
    void externalTimestampMoved(long timestamp, bool flag);

    void setShowMessages(bool show);
    void setShowGrid(bool show);
    void setTheme(int theme);
    void resetTimeline();
    void autoZoom();
    void setAutoZoomOn(bool on);
    // The measuring cursors as another window set them; this window does not pass them on again.
    void setCursorPair(const CursorPair &pair);
    void setCursorA(qint64 t);
    void setCursorB(qint64 t);
    void clearCursorPair();
    void showProperties(int index);
    void exportImage();
    void removeItem(int index);
    void removeAll();
    // Ask, then ask the store to drop the samples before or after t (ms).
    void cutBefore(qint64 t);
    void cutAfter(qint64 t);

signals:
    void gotFocus();
    // The time under the mouse (flag false) or where the user clicked (flag true), in ms.
    void mouseOverTimestamp(long timestamp, bool flag);
    void unitChanged(TelemetrySimplePair sensor, QString unit);
    void removeTelemetryBeforeTimestamp(long timestamp);
    void removeTelemetryAfterTimestamp(long timestamp);
    void undoCutRequest();
    void cursorPairMoved(const CursorPair &pair);

protected:
    bool event(QEvent *event) override;
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
    enum class Drag
    {
        None,
        Time,
        Axis,
        CursorA,
        CursorB
    };

    const QVector<TelemetrySensor> *sensorList() const;
    const TelemetryVar *findVar(const TelemetrySimplePair &pair) const;
    int indexOf(const TelemetrySimplePair &pair) const;
    GraphRenderer::Scene buildScene() const;
    GraphRenderer::Series seriesFor(const GraphItem &item) const;
    // Points the renderer at the variables as they are now: the store may have moved them.
    void refreshVariables();
    void ensureLayout();
    void invalidate();
    void scheduleRedraw();
    void redrawNow();
    // Builds the items' block summaries in slices while the program is idle.
    void startSummaries();
    void summarizeSlice();
    void updateDataRange();
    QColor nextColor() const;
    int itemAt(const QPoint &pos);
    // The measuring cursor whose line is within a few pixels of x: Drag::CursorA, CursorB or None.
    Drag cursorLineAt(int x) const;
    void changePair(const CursorPair &pair);
    bool zoomAxis(int index, double factor, int y);
    // Times of the store's first and last sample; false when it holds none.
    bool sampleRange(qint64 *first, qint64 *last) const;
    // The name and the shown unit of an item's variable, or the last ones known when the store lacks it.
    QString itemName(const GraphItem &item, QString *unit) const;
    // Notes the names of the items' variables that the store has now.
    void rememberNames();

    QPointer<TelemetryData> m_store;
    SensorTable *m_sensorTable;
    const QVector<TelemetrySensor> *m_sensors = nullptr;
    QVector<GraphItem> m_items;
    struct KnownName
    {
        QString label;
        QString unit;
    };
    // By variable key: what each item's variable was last shown as, for when a recording lacks it.
    mutable QHash<quint64, KnownName> m_knownNames;
    GraphTimeline m_timeline;
    qint64 m_lastUpdate = 0;
    bool m_showMessages = false;
    bool m_showGrid = false;
    int m_theme = GraphTheme::White;
    bool m_hasCursor = false;
    qint64 m_cursor = 0;
    bool m_autoZoom = false;
    CursorPair m_pair;
    GraphMeasurement m_measurement;
    bool m_measurementValid = false;

    GraphDecimator m_decimator;
    GraphRenderer m_renderer;
    QImage m_layer; // everything but the cursor
    bool m_layerValid = false;
    QTimer m_redrawTimer;
    QTimer m_summaryTimer;

    Drag m_drag = Drag::None;
    bool m_dragged = false;
    QPoint m_pressPos;
    qint64 m_pressFrom = 0;
    int m_dragAxis = -1;
    double m_pressLow = 0;
    double m_pressHigh = 0;

    ExportSettingsReader m_exportReader;
    ExportSettingsWriter m_exportWriter;
};
