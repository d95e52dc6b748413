#include "widgets/graph/WidgetGraph.h"

#include "telemetry/SensorTable.h"
#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryUnits.h"
#include "widgets/graph/GraphTicks.h"
#include "widgets/graph/WidgetGraphProperties.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"

#include <QActionGroup>
#include <QApplication>
#include <QContextMenuEvent>
#include <QCursor>
#include <QDateTime>
#include <QHelpEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {
constexpr double kZoomStep = 0.8; // one wheel notch or key press

bool flagOf(const LayoutJsonValue &value, bool fallback)
{
    if (value.isBool())
        return value.toBool();
    if (value.isNumber())
        return value.toDouble() != 0;
    return fallback;
}

qint64 now()
{
    return QDateTime::currentMSecsSinceEpoch();
}

// The target unit an item shows its variable in: the item's unit when the variable converts into it,
// else the variable's chosen one; a unit it cannot be shown in gives the delivered unit.
quint8 shownTarget(const TelemetryVar &var, const GraphItem &item)
{
    const int target =
        item.unit.isEmpty() ? var.unitTarget() : TelemetryUnits::targetIndex(var.unitCategory(), item.unit);
    return quint8(std::max(0, target));
}
} // namespace

WidgetGraph::WidgetGraph(TelemetryData *store, SensorTable *sensors, QWidget *parent)
    : QWidget(parent), m_store(store), m_sensorTable(sensors), m_renderer(&m_decimator)
{
    setWindowTitle(tr("Chart"));
    setFocusPolicy(Qt::StrongFocus);
    setAcceptDrops(true);
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(160, 120);
    // Live data arrives many times a second; the window redraws at most this often.
    m_redrawTimer.setSingleShot(true);
    m_redrawTimer.setInterval(kRedrawIntervalMs);
    connect(&m_redrawTimer, &QTimer::timeout, this, &WidgetGraph::redrawNow);
    // A long recording is summarised a slice at a time between events, so zooming out later is quick.
    m_summaryTimer.setInterval(5);
    connect(&m_summaryTimer, &QTimer::timeout, this, &WidgetGraph::summarizeSlice);
    m_lastUpdate = now();
    if (m_store) {
        m_sensors = m_store->sensors();
        updateDataRange();
        m_timeline.showStart();
        m_timeline.setLive(m_store->isLogging());
    }
}

WidgetGraph::~WidgetGraph() = default;

int WidgetGraph::load(const LayoutJsonValue &object)
{
    if (!object.isObject())
        return 1;
    m_items.clear();
    m_decimator.clear();
    m_showMessages = flagOf(object.value(QStringLiteral("ShowMessages")), false);
    m_showGrid = flagOf(object.value(QStringLiteral("ShowGrid")), false);
    const int theme = object.value(QStringLiteral("Theme")).toInt(GraphTheme::White);
    m_theme = GraphTheme::isValid(theme) ? theme : GraphTheme::White;
    const LayoutJsonValue &window = object.value(QStringLiteral("TimeWindow"));
    const double seconds = window.toDouble(0);
    m_timeline.setWindow(window.isNumber() && seconds > 0
                             ? qint64(std::llround(std::min(seconds, 1e12) * 1000.0))
                             : GraphTimeline::kDefaultWindowMs);
    m_autoZoom = flagOf(object.value(QStringLiteral("AutoZoom")), false);
    const LayoutJsonValue &from = object.value(QStringLiteral("TimeFrom"));
    const bool hasFrom = from.isNumber() && std::abs(from.toDouble()) < 1e15;
    if (hasFrom)
        m_timeline.setFrom(qint64(std::llround(from.toDouble())));
    const LayoutJsonValue &sensors = object.value(QStringLiteral("Sensors"));
    for (int i = 0; i < sensors.size() && sensors.isArray(); ++i) {
        GraphItem item;
        if (!GraphItem::fromLayout(sensors.at(i), &item) || indexOf(item.pair()) >= 0)
            continue;
        if (!item.color.isValid())
            item.color = nextColor();
        m_items.append(item);
    }
    rememberNames();
    m_lastUpdate = now();
    // The store's current recording decides where the view may be.
    updateDataRange();
    if (hasFrom)
        m_timeline.keepInData();
    else
        m_timeline.showStart();
    m_timeline.setFitting(m_autoZoom);
    m_timeline.follow();
    invalidate();
    startSummaries();
    return 0;
}

int WidgetGraph::save(LayoutJsonWriter &writer, quint8)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::Graph));
    writer.writeInt(QStringLiteral("ShowMessages"), m_showMessages ? 1 : 0);
    writer.writeInt(QStringLiteral("ShowGrid"), m_showGrid ? 1 : 0);
    writer.writeInt(QStringLiteral("Theme"), m_theme);
    writer.key(QStringLiteral("TimeWindow"));
    const qint64 window = m_timeline.window();
    if (window % 1000 == 0)
        writer.writeInt(window / 1000);
    else
        writer.writeDouble(double(window) / 1000.0);
    writer.writeInt(QStringLiteral("TimeFrom"), m_timeline.from());
    // Only when on, so layouts that never used it read as before.
    if (m_autoZoom)
        writer.writeInt(QStringLiteral("AutoZoom"), 1);
    writer.key(QStringLiteral("Sensors"));
    writer.beginArray();
    for (const GraphItem &item : qAsConst(m_items))
        item.toLayout(writer);
    writer.endArray();
    return 0;
}

void WidgetGraph::setItem(int index, const GraphItem &item)
{
    if (index < 0 || index >= m_items.size())
        return;
    m_items[index] = item;
    invalidate();
}

void WidgetGraph::setTimeSpan(qint64 from, qint64 window)
{
    m_timeline.setWindow(window);
    m_timeline.setFrom(from);
    invalidate();
}

const QVector<TelemetrySensor> *WidgetGraph::sensorList() const
{
    return m_store ? m_store->sensors() : m_sensors;
}

const TelemetryVar *WidgetGraph::findVar(const TelemetrySimplePair &pair) const
{
    const QVector<TelemetrySensor> *sensors = sensorList();
    if (!sensors)
        return nullptr;
    for (const TelemetrySensor &sensor : *sensors) {
        if (sensor.id() == pair.deviceId)
            return sensor.var(pair.param);
    }
    return nullptr;
}

int WidgetGraph::indexOf(const TelemetrySimplePair &pair) const
{
    for (int i = 0; i < m_items.size(); ++i) {
        if (m_items.at(i).pair() == pair)
            return i;
    }
    return -1;
}

GraphRenderer::Series WidgetGraph::seriesFor(const GraphItem &item) const
{
    GraphRenderer::Series s;
    s.item = item;
    s.var = findVar(item.pair());
    if (s.var) {
        s.unitCategory = s.var->unitCategory();
        s.unitTarget = shownTarget(*s.var, item);
    }
    QString unit;
    const QString name = itemName(item, &unit);
    s.label = tr("%1 [%2]").arg(name, unit);
    if (!s.var)
        s.label = tr("%1 (not in this log)").arg(s.label);
    return s;
}

QString WidgetGraph::itemName(const GraphItem &item, QString *unit) const
{
    const quint64 key = item.pair().key();
    if (const TelemetryVar *var = findVar(item.pair())) {
        KnownName known;
        known.label = var->label().isEmpty() ? tr("Param %1").arg(item.param) : var->label();
        known.unit = TelemetryUnits::targetName(var->unitCategory(), shownTarget(*var, item), var->unit());
        m_knownNames.insert(key, known);
        *unit = known.unit;
        return known.label;
    }
    auto it = m_knownNames.find(key);
    if (it == m_knownNames.end()) {
        // Never seen in this window: the sensor settings name it, once looked up.
        KnownName known;
        SensorRow row;
        if (m_sensorTable && m_sensorTable->findSensor(item.deviceId, item.param, &row)) {
            known.label = row.label;
            const quint8 category = TelemetryUnits::categoryOf(row.unit);
            known.unit = TelemetryUnits::targetName(
                category, quint8(qBound(0, row.unitConversion.toInt(), 255)), row.unit);
        }
        it = m_knownNames.insert(key, known);
    }
    *unit = !it->unit.isEmpty() ? it->unit : item.unit;
    return !it->label.isEmpty() ? it->label : tr("%1:%2").arg(item.deviceId).arg(item.param);
}

void WidgetGraph::rememberNames()
{
    QString unit;
    for (const GraphItem &item : qAsConst(m_items)) {
        if (findVar(item.pair()))
            itemName(item, &unit);
    }
}

QString WidgetGraph::itemLabel(int index) const
{
    return index >= 0 && index < m_items.size() ? seriesFor(m_items.at(index)).label : QString();
}

int WidgetGraph::alarmCount() const
{
    return m_store ? m_store->package().alarmCount() : 0;
}

GraphRenderer::Scene WidgetGraph::buildScene() const
{
    GraphRenderer::Scene scene;
    scene.from = m_timeline.from();
    scene.window = m_timeline.span();
    scene.theme = m_theme;
    scene.timeGrid = m_showGrid;
    scene.markers = m_showMessages;
    scene.series.reserve(m_items.size());
    for (const GraphItem &item : m_items)
        scene.series.append(seriesFor(item));
    if (m_store)
        scene.messages = m_store->package().messages();
    scene.emptyText = tr("Drag a variable here from the list of available telemetry");
    return scene;
}

void WidgetGraph::refreshVariables()
{
    QVector<const TelemetryVar *> vars;
    vars.reserve(m_renderer.scene().series.size());
    for (const GraphRenderer::Series &s : m_renderer.scene().series)
        vars.append(findVar(s.item.pair()));
    m_renderer.setVariables(vars);
}

void WidgetGraph::ensureLayout()
{
    if (m_layerValid && m_layer.size() == size()) {
        refreshVariables();
        return;
    }
    m_renderer.setFont(font());
    m_renderer.layout(buildScene(), size());
    if (m_layer.size() != size())
        m_layer = QImage(size(), QImage::Format_ARGB32_Premultiplied);
    m_renderer.render(&m_layer);
    m_layerValid = true;
}

void WidgetGraph::invalidate()
{
    m_layerValid = false;
    m_measurementValid = false;
    update();
}

void WidgetGraph::scheduleRedraw()
{
    if (!m_redrawTimer.isActive())
        m_redrawTimer.start();
}

void WidgetGraph::redrawNow()
{
    m_lastUpdate = now();
    updateDataRange();
    m_timeline.follow();
    invalidate();
}

void WidgetGraph::startSummaries()
{
    if (!m_items.isEmpty() && !m_timeline.isLive())
        m_summaryTimer.start();
}

void WidgetGraph::summarizeSlice()
{
    constexpr int kSlice = 1 << 18; // about a millisecond of reading
    for (const GraphItem &item : qAsConst(m_items)) {
        const TelemetryVar *var = findVar(item.pair());
        if (var && !m_decimator.summarize(item.pair().key(), *var, kSlice))
            return;
    }
    m_summaryTimer.stop();
}

bool WidgetGraph::sampleRange(qint64 *first, qint64 *last) const
{
    *first = std::numeric_limits<qint64>::max();
    *last = std::numeric_limits<qint64>::min();
    if (const QVector<TelemetrySensor> *sensors = sensorList()) {
        for (const TelemetrySensor &sensor : *sensors) {
            for (const TelemetryVar &var : sensor.vars()) {
                if (var.values().isEmpty())
                    continue;
                *first = std::min<qint64>(*first, var.values().constFirst().timestamp);
                *last = std::max<qint64>(*last, var.values().constLast().timestamp);
            }
        }
    }
    return *first <= *last;
}

void WidgetGraph::updateDataRange()
{
    qint64 first = 0;
    qint64 last = 0;
    sampleRange(&first, &last);
    if (m_store) {
        for (const TelemetryMessage &message : m_store->package().messages()) {
            first = std::min<qint64>(first, message.timestamp);
            last = std::max<qint64>(last, message.timestamp);
        }
    }
    if (first > last)
        m_timeline.clearDataRange();
    else
        m_timeline.setDataRange(first, last);
}

QColor WidgetGraph::nextColor() const
{
    for (int n = 0; n < 10; ++n) {
        const QColor color = GraphTheme::itemColor(n);
        const bool used = std::any_of(m_items.cbegin(), m_items.cend(),
                                      [&color](const GraphItem &item) { return item.color == color; });
        if (!used)
            return color;
    }
    return GraphTheme::itemColor(m_items.size());
}

void WidgetGraph::addData(const TelemetryVar *variable)
{
    if (!variable || indexOf(variable->pair()) >= 0)
        return;
    GraphItem item;
    item.deviceId = variable->deviceId();
    item.param = variable->param();
    item.unit = variable->displayUnit();
    SensorRow row;
    if (m_sensorTable && m_sensorTable->findSensor(item.deviceId, item.param, &row)) {
        if (row.defaultColor != 0)
            item.color = QColor::fromRgb(QRgb(quint32(row.defaultColor)) | 0xFF000000u);
        // An empty default range means automatic.
        if (row.defaultMax > row.defaultMin) {
            item.autoRange = false;
            item.minimum = row.defaultMin;
            item.maximum = row.defaultMax;
        }
    }
    if (!item.color.isValid())
        item.color = nextColor();
    m_items.append(item);
    rememberNames();
    if (!m_timeline.isFollowing())
        m_timeline.keepInData();
    invalidate();
    startSummaries();
}

void WidgetGraph::setLogging(bool logging)
{
    if (logging == m_timeline.isLive())
        return;
    updateDataRange();
    m_timeline.setLive(logging);
    invalidate();
}

void WidgetGraph::sensorsUpdated(const QVector<TelemetrySensor> *sensors)
{
    if (sensors)
        m_sensors = sensors;
    rememberNames();
    updateDataRange();
    if (!m_timeline.isFollowing())
        m_timeline.keepInData();
    m_timeline.follow();
    invalidate();
}

void WidgetGraph::dataUpdated(const QVector<TelemetrySensor> *sensors)
{
    if (sensors)
        m_sensors = sensors;
    scheduleRedraw();
}

void WidgetGraph::logFileLoaded()
{
    m_decimator.clear();
    updateDataRange();
    m_timeline.showStart();
    m_timeline.setFitting(m_autoZoom);
    m_lastUpdate = now();
    invalidate();
    startSummaries();
}

void WidgetGraph::externalTimestampMoved(long timestamp, bool flag)
{
    m_hasCursor = true;
    m_cursor = timestamp;
    // A deliberate position (a click, playback) is brought into view; hovering never moves the view.
    if (flag && !m_timeline.isFollowing() &&
        (timestamp < m_timeline.from() || timestamp >= m_timeline.to())) {
        m_timeline.setFrom(timestamp - m_timeline.span() / 2);
        invalidate();
        return;
    }
    update();
}

void WidgetGraph::setShowMessages(bool show)
{
    m_showMessages = show;
    invalidate();
}

void WidgetGraph::setShowGrid(bool show)
{
    m_showGrid = show;
    invalidate();
}

void WidgetGraph::setTheme(int theme)
{
    m_theme = GraphTheme::isValid(theme) ? theme : GraphTheme::White;
    invalidate();
}

void WidgetGraph::resetTimeline()
{
    updateDataRange();
    m_timeline.reset();
    invalidate();
}

void WidgetGraph::autoZoom()
{
    updateDataRange();
    m_timeline.autoZoom();
    // Every axis the user has not locked fits its data again.
    for (GraphItem &item : m_items) {
        if (!item.locked)
            item.autoRange = true;
    }
    invalidate();
}

void WidgetGraph::setAutoZoomOn(bool on)
{
    m_autoZoom = on;
    updateDataRange();
    m_timeline.setFitting(on);
    if (on)
        autoZoom();
    invalidate();
}

const GraphMeasurement &WidgetGraph::measurement()
{
    ensureLayout();
    if (!m_measurementValid) {
        m_measurement = GraphMeasurement::measure(m_renderer.scene().series, &m_decimator, m_pair);
        m_measurementValid = true;
    }
    return m_measurement;
}

void WidgetGraph::setCursorPair(const CursorPair &pair)
{
    if (pair == m_pair)
        return;
    m_pair = pair;
    m_measurementValid = false;
    update();
}

void WidgetGraph::changePair(const CursorPair &pair)
{
    if (pair == m_pair)
        return;
    setCursorPair(pair);
    emit cursorPairMoved(m_pair);
}

void WidgetGraph::setCursorA(qint64 t)
{
    CursorPair pair = m_pair;
    pair.hasA = true;
    pair.a = t;
    changePair(pair);
}

void WidgetGraph::setCursorB(qint64 t)
{
    CursorPair pair = m_pair;
    pair.hasB = true;
    pair.b = t;
    changePair(pair);
}

void WidgetGraph::clearCursorPair()
{
    changePair(CursorPair());
}

WidgetGraph::Drag WidgetGraph::cursorLineAt(int x) const
{
    constexpr double kReach = 4.0;
    const double toA = m_pair.hasA ? std::abs(m_renderer.xAtTime(m_pair.a) - x) : kReach + 1;
    const double toB = m_pair.hasB ? std::abs(m_renderer.xAtTime(m_pair.b) - x) : kReach + 1;
    if (std::min(toA, toB) > kReach)
        return Drag::None;
    return toA <= toB ? Drag::CursorA : Drag::CursorB;
}

void WidgetGraph::removeItem(int index)
{
    if (index < 0 || index >= m_items.size())
        return;
    m_decimator.remove(m_items.at(index).pair().key());
    m_knownNames.remove(m_items.at(index).pair().key());
    m_items.remove(index);
    invalidate();
}

void WidgetGraph::removeAll()
{
    m_items.clear();
    m_knownNames.clear();
    m_decimator.clear();
    invalidate();
}

void WidgetGraph::cutBefore(qint64 t)
{
    const QString text =
        tr("<b>Remove all telemetry before %1?</b><br>The samples and messages before this time "
           "are dropped from the loaded recording.")
            .arg(GraphTicks::cursorTimeText(t));
    // Enter must not destroy data: No is the default.
    if (prompter()->confirm(this, tr("Confirmation"), text))
        emit removeTelemetryBeforeTimestamp(long(t));
}

void WidgetGraph::cutAfter(qint64 t)
{
    const QString text =
        tr("<b>Remove all telemetry after %1?</b><br>The samples and messages after this time "
           "are dropped from the loaded recording.")
            .arg(GraphTicks::cursorTimeText(t));
    if (prompter()->confirm(this, tr("Confirmation"), text))
        emit removeTelemetryAfterTimestamp(long(t));
}

void WidgetGraph::showProperties(int index)
{
    if (index < 0 || index >= m_items.size())
        return;
    const GraphItem original = m_items.at(index);
    const TelemetrySimplePair pair = original.pair();
    const TelemetryVar *var = findVar(pair);
    const GraphRenderer::Series series = seriesFor(original);
    GraphItem start = original;
    QString baseUnit;
    const QString name = itemName(original, &baseUnit);
    quint8 category = 0;
    if (var) {
        baseUnit = var->unit();
        category = var->unitCategory();
        start.unit = TelemetryUnits::targetName(category, series.unitTarget, var->unit());
    }
    WidgetGraphProperties dialog(start, name, baseUnit, category, m_sensorTable, this);
    ensureLayout();
    if (index < m_renderer.axes().size())
        dialog.setDisplayedRange(m_renderer.axes().at(index).low, m_renderer.axes().at(index).high);
    dialog.setPrompter(prompter());
    // Looked up by variable each time: the item's index is not held across the dialog.
    connect(&dialog, &WidgetGraphProperties::itemChanged, this, [this, pair](const GraphItem &item) {
        const int i = indexOf(pair);
        if (i >= 0) {
            m_items[i] = item;
            invalidate();
        }
    });
    const bool accepted = dialog.exec() == QDialog::Accepted;
    const int i = indexOf(pair);
    if (i < 0)
        return;
    m_items[i] = accepted ? dialog.item() : original;
    invalidate();
    if (accepted && category != 0 && dialog.item().unit != start.unit)
        emit unitChanged(pair, dialog.item().unit);
}

QImage WidgetGraph::renderImage(const QSize &size) const
{
    // A decimator of its own, so the export leaves the window's cache alone.
    GraphDecimator decimator;
    GraphRenderer renderer(&decimator);
    renderer.setFont(font());
    renderer.layout(buildScene(), size);
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    renderer.render(&image);
    if (!m_pair.isEmpty()) {
        QPainter painter(&image);
        painter.setFont(font());
        GraphMeasurement::measure(renderer.scene().series, &decimator, m_pair).paint(&painter, renderer);
    }
    return image;
}

void WidgetGraph::setExportSettings(ExportSettingsReader reader, ExportSettingsWriter writer)
{
    m_exportReader = std::move(reader);
    m_exportWriter = std::move(writer);
}

void WidgetGraph::exportImage()
{
    const WidgetGraphExport::Settings settings =
        m_exportReader ? m_exportReader() : WidgetGraphExport::Settings();
    WidgetGraphExport dialog(
        settings, size(), [this](const QSize &size) { return renderImage(size); }, this);
    dialog.setPrompter(prompter());
    if (dialog.exec() == QDialog::Accepted && m_exportWriter)
        m_exportWriter(dialog.settings());
}

int WidgetGraph::itemAt(const QPoint &pos)
{
    ensureLayout();
    const int axis = m_renderer.axisAt(pos);
    if (axis >= 0)
        return axis;
    const int nearest = m_renderer.nearestSeries(pos);
    if (nearest >= 0)
        return nearest;
    return m_items.size() == 1 ? 0 : -1;
}

QMenu *WidgetGraph::createContextMenu(const QPoint &pos)
{
    const int item = itemAt(pos);
    auto *menu = new QMenu(tr("Visualization menu"), this);
    menu->setObjectName(QStringLiteral("Visualization menu"));

    QAction *alarms = menu->addAction(tr("Show alarms (%1 items)").arg(alarmCount()));
    alarms->setCheckable(true);
    alarms->setChecked(m_showMessages);
    connect(alarms, &QAction::toggled, this, &WidgetGraph::setShowMessages);
    QAction *grid = menu->addAction(tr("Show time grid"));
    grid->setCheckable(true);
    grid->setChecked(m_showGrid);
    connect(grid, &QAction::toggled, this, &WidgetGraph::setShowGrid);
    menu->addSeparator();
    connect(menu->addAction(tr("Reset timeline")), &QAction::triggered, this, &WidgetGraph::resetTimeline);
    connect(menu->addAction(tr("Export image...")), &QAction::triggered, this, &WidgetGraph::exportImage);
    menu->addSeparator();
    QMenu *themes = menu->addMenu(tr("Theme"));
    auto *group = new QActionGroup(themes);
    const QStringList names{tr("White"), tr("Black"), tr("Gray")};
    for (int i = 0; i < names.size(); ++i) {
        QAction *a = themes->addAction(names.at(i));
        a->setCheckable(true);
        a->setChecked(i == m_theme);
        group->addAction(a);
        connect(a, &QAction::triggered, this, [this, i] { setTheme(i); });
    }
    menu->addSeparator();
    QAction *properties = menu->addAction(tr("Properties..."));
    properties->setEnabled(item >= 0);
    connect(properties, &QAction::triggered, this, [this, item] { showProperties(item); });
    QAction *fit = menu->addAction(tr("Auto zoom"));
    fit->setCheckable(true);
    fit->setChecked(m_autoZoom);
    connect(fit, &QAction::toggled, this, &WidgetGraph::setAutoZoomOn);
    QAction *remove = menu->addAction(tr("Remove"));
    remove->setEnabled(item >= 0);
    connect(remove, &QAction::triggered, this, [this, item] { removeItem(item); });
    QAction *removeAllAction = menu->addAction(tr("Remove all"));
    removeAllAction->setEnabled(!m_items.isEmpty());
    connect(removeAllAction, &QAction::triggered, this, &WidgetGraph::removeAll);

    // Cutting a recording while it is being recorded would fight the live data; a cut at or beyond
    // either end would leave nothing, or change nothing.
    menu->addSeparator();
    const bool inPlot = m_renderer.plotRect().contains(pos);
    const qint64 t = m_renderer.timeAtX(pos.x());
    qint64 first = 0;
    qint64 last = 0;
    const bool canCut = inPlot && !m_timeline.isLive() && sampleRange(&first, &last) && first < t && t < last;
    const QString at = GraphTicks::cursorTimeText(t);
    QAction *before = menu->addAction(tr("Remove telemetry before %1").arg(at));
    before->setEnabled(canCut);
    connect(before, &QAction::triggered, this, [this, t] { cutBefore(t); });
    QAction *after = menu->addAction(tr("Remove telemetry after %1").arg(at));
    after->setEnabled(canCut);
    connect(after, &QAction::triggered, this, [this, t] { cutAfter(t); });
    QAction *undo = menu->addAction(tr("Undo cut"));
    undo->setEnabled(m_store && m_store->canUndoCut() && !m_timeline.isLive());
    connect(undo, &QAction::triggered, this, &WidgetGraph::undoCutRequest);

    menu->addSeparator();
    QAction *setA = menu->addAction(tr("Set cursor A here\tCtrl+click"));
    setA->setEnabled(inPlot);
    connect(setA, &QAction::triggered, this, [this, t] { setCursorA(t); });
    QAction *setB = menu->addAction(tr("Set cursor B here\tShift+click"));
    setB->setEnabled(inPlot);
    connect(setB, &QAction::triggered, this, [this, t] { setCursorB(t); });
    QAction *clear = menu->addAction(tr("Clear cursors A and B\tEsc"));
    clear->setEnabled(!m_pair.isEmpty());
    connect(clear, &QAction::triggered, this, &WidgetGraph::clearCursorPair);
    return menu;
}

bool WidgetGraph::zoomAxis(int index, double factor, int y)
{
    if (index < 0 || index >= m_items.size() || m_items.at(index).locked)
        return false;
    const GraphRenderer::Axis &axis = m_renderer.axes().at(index);
    const double v = m_renderer.mapping(index).valueOfRow(y - m_renderer.plotRect().top());
    GraphItem &item = m_items[index];
    item.autoRange = false;
    item.minimum = v - (v - axis.low) * factor;
    item.maximum = v + (axis.high - v) * factor;
    invalidate();
    return true;
}

bool WidgetGraph::event(QEvent *event)
{
    if (event->type() != QEvent::ToolTip)
        return QWidget::event(event);
    auto *help = static_cast<QHelpEvent *>(event);
    ensureLayout();
    const int marker = m_renderer.markerAt(help->pos());
    const int axis = m_renderer.axisAt(help->pos());
    if (marker >= 0) {
        const TelemetryMessage &message = m_renderer.scene().messages.at(marker);
        QToolTip::showText(
            help->globalPos(),
            tr("%1: %2").arg(GraphTicks::cursorTimeText(message.timestamp), message.displayText()), this);
    } else if (axis >= 0) {
        const QString label = m_renderer.scene().series.at(axis).label;
        QToolTip::showText(help->globalPos(), m_items.at(axis).locked ? tr("%1 (locked)").arg(label) : label,
                           this);
    } else {
        QToolTip::hideText();
        event->ignore();
    }
    return true;
}

void WidgetGraph::paintEvent(QPaintEvent *)
{
    ensureLayout();
    QPainter painter(this);
    painter.drawImage(0, 0, m_layer);
    // The measuring cursors replace the normal one while placed.
    if (!m_pair.isEmpty())
        measurement().paint(&painter, m_renderer);
    else if (m_hasCursor)
        m_renderer.renderCursor(&painter, m_cursor);
}

void WidgetGraph::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    invalidate();
}

void WidgetGraph::mousePressEvent(QMouseEvent *event)
{
    setFocus(Qt::MouseFocusReason);
    emit gotFocus();
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    ensureLayout();
    m_pressPos = event->pos();
    m_dragged = false;
    m_dragAxis = m_renderer.axisAt(event->pos());
    const bool inPlot = m_renderer.plotRect().contains(event->pos());
    const Qt::KeyboardModifiers keys = event->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier);
    if (inPlot && (keys == Qt::ControlModifier || keys == Qt::ShiftModifier)) {
        const qint64 t = m_renderer.timeAtX(event->pos().x());
        if (keys == Qt::ControlModifier)
            setCursorA(t);
        else
            setCursorB(t);
        m_drag = keys == Qt::ControlModifier ? Drag::CursorA : Drag::CursorB;
        m_dragged = true; // not a click that pins the shared cursor
        return;
    }
    const Drag line = inPlot ? cursorLineAt(event->pos().x()) : Drag::None;
    if (line != Drag::None) {
        m_drag = line;
        return;
    }
    if (m_dragAxis >= 0) {
        m_drag = Drag::Axis;
        m_pressLow = m_renderer.axes().at(m_dragAxis).low;
        m_pressHigh = m_renderer.axes().at(m_dragAxis).high;
    } else if (m_renderer.plotRect().contains(event->pos())) {
        m_drag = Drag::Time;
        m_pressFrom = m_timeline.from();
    } else {
        m_drag = Drag::None;
    }
}

void WidgetGraph::mouseMoveEvent(QMouseEvent *event)
{
    ensureLayout();
    const QRect plot = m_renderer.plotRect();
    if (m_drag != Drag::None && (event->buttons() & Qt::LeftButton)) {
        const QPoint moved = event->pos() - m_pressPos;
        if (!m_dragged && moved.manhattanLength() < QApplication::startDragDistance())
            return;
        m_dragged = true;
        if (m_drag == Drag::CursorA || m_drag == Drag::CursorB) {
            const int x = std::clamp(event->pos().x(), plot.left(), plot.right());
            const qint64 t = m_renderer.timeAtX(x);
            if (m_drag == Drag::CursorA)
                setCursorA(t);
            else
                setCursorB(t);
        } else if (m_drag == Drag::Time && plot.width() > 0) {
            m_timeline.setFrom(m_pressFrom);
            m_timeline.panBy(qRound64(-double(moved.x()) * m_timeline.span() / plot.width()));
            invalidate();
        } else if (m_drag == Drag::Axis && m_dragAxis < m_items.size() && !m_items.at(m_dragAxis).locked) {
            const double perRow = (m_pressHigh - m_pressLow) / std::max(1, plot.height() - 1);
            GraphItem &item = m_items[m_dragAxis];
            item.autoRange = false;
            item.minimum = m_pressLow + moved.y() * perRow;
            item.maximum = m_pressHigh + moved.y() * perRow;
            invalidate();
        }
        return;
    }
    if (!plot.contains(event->pos())) {
        unsetCursor();
        return;
    }
    if (cursorLineAt(event->pos().x()) != Drag::None)
        setCursor(Qt::SizeHorCursor);
    else
        unsetCursor();
    m_hasCursor = true;
    m_cursor = m_renderer.timeAtX(event->pos().x());
    emit mouseOverTimestamp(long(m_cursor), false);
    update();
}

void WidgetGraph::mouseReleaseEvent(QMouseEvent *event)
{
    const bool click = event->button() == Qt::LeftButton && m_drag == Drag::Time && !m_dragged;
    m_drag = Drag::None;
    if (!click)
        return;
    ensureLayout();
    m_hasCursor = true;
    m_cursor = m_renderer.timeAtX(event->pos().x());
    emit mouseOverTimestamp(long(m_cursor), true);
    update();
}

void WidgetGraph::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    ensureLayout();
    const int axis = m_renderer.axisAt(event->pos());
    if (axis >= 0)
        showProperties(axis);
    else if (m_renderer.plotRect().contains(event->pos()))
        autoZoom();
}

void WidgetGraph::wheelEvent(QWheelEvent *event)
{
    ensureLayout();
    const QPoint pos = event->position().toPoint();
    const QPoint delta = event->angleDelta();
    event->accept();
    const bool sideways = delta.x() != 0 && delta.y() == 0;
    if (sideways || (event->modifiers() & Qt::ShiftModifier)) {
        const double steps = (sideways ? delta.x() : delta.y()) / 120.0;
        m_timeline.panBy(qRound64(-steps * m_timeline.span() / 10.0));
        invalidate();
        return;
    }
    if (delta.y() == 0)
        return;
    const double factor = std::pow(kZoomStep, delta.y() / 120.0);
    const int axis = m_renderer.axisAt(pos);
    if (axis >= 0) {
        zoomAxis(axis, factor, pos.y());
        return;
    }
    m_timeline.zoomAt(m_renderer.timeAtX(pos.x()), factor);
    invalidate();
}

void WidgetGraph::keyPressEvent(QKeyEvent *event)
{
    const qint64 window = m_timeline.span();
    const qint64 centre = m_timeline.from() + window / 2;
    switch (event->key()) {
    case Qt::Key_Left:
        m_timeline.panBy(-window / 10);
        break;
    case Qt::Key_Right:
        m_timeline.panBy(window / 10);
        break;
    case Qt::Key_PageUp:
        m_timeline.panBy(-window);
        break;
    case Qt::Key_PageDown:
        m_timeline.panBy(window);
        break;
    case Qt::Key_Plus:
    case Qt::Key_Equal:
        m_timeline.zoomAt(centre, kZoomStep);
        break;
    case Qt::Key_Minus:
        m_timeline.zoomAt(centre, 1.0 / kZoomStep);
        break;
    case Qt::Key_Home:
        m_timeline.showStart();
        break;
    case Qt::Key_End:
        m_timeline.showEnd();
        break;
    case Qt::Key_A:
    case Qt::Key_B: {
        // At the mouse when it is over the plot, else at the shared cursor, else mid-view.
        ensureLayout();
        const QPoint mouse = mapFromGlobal(QCursor::pos());
        const qint64 t = m_renderer.plotRect().contains(mouse) ? m_renderer.timeAtX(mouse.x())
                         : m_hasCursor                         ? m_cursor
                                                               : centre;
        if (event->key() == Qt::Key_A)
            setCursorA(t);
        else
            setCursorB(t);
        return;
    }
    case Qt::Key_Escape:
        if (m_pair.isEmpty()) {
            QWidget::keyPressEvent(event);
            return;
        }
        clearCursorPair();
        return;
    default:
        QWidget::keyPressEvent(event);
        return;
    }
    invalidate();
}

void WidgetGraph::contextMenuEvent(QContextMenuEvent *event)
{
    QMenu *menu = createContextMenu(event->pos());
    menu->exec(event->globalPos());
    delete menu;
}

void WidgetGraph::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasFormat(SensorDragData::sensorMimeType()))
        event->acceptProposedAction();
    else
        event->ignore();
}

void WidgetGraph::dragMoveEvent(QDragMoveEvent *event)
{
    if (event->mimeData()->hasFormat(SensorDragData::sensorMimeType()))
        event->acceptProposedAction();
    else
        event->ignore();
}

void WidgetGraph::dropEvent(QDropEvent *event)
{
    TelemetrySimplePair pair;
    const TelemetryVar *var = nullptr;
    if (event->mimeData()->hasFormat(SensorDragData::sensorMimeType()) &&
        SensorDragData::variable(event->mimeData(), &pair))
        var = findVar(pair);
    if (!var) {
        event->ignore();
        return;
    }
    addData(var);
    event->acceptProposedAction();
}

void WidgetGraph::focusInEvent(QFocusEvent *event)
{
    QWidget::focusInEvent(event);
    emit gotFocus();
}

void WidgetGraph::wire(WidgetGraph *window, WindowHub *hub, TelemetryData *store)
{
    if (hub) {
        connect(hub, &WindowHub::addSensorRequest, window, &WidgetGraph::addData);
        connect(hub, &WindowHub::setLogStatusRequest, window, &WidgetGraph::setLogging);
        connect(hub, &WindowHub::updateSensorsRequest, window, &WidgetGraph::sensorsUpdated);
        connect(hub, &WindowHub::logFileLoadedRequest, window, &WidgetGraph::logFileLoaded);
        connect(hub, &WindowHub::mouseOverTimestampRequest, window, &WidgetGraph::externalTimestampMoved);
        connect(hub, &WindowHub::valueAddedRequest, window, &WidgetGraph::dataUpdated);
        connect(window, &WidgetGraph::mouseOverTimestamp, hub, &WindowHub::mouseOverTimestampMoved);
        connect(window, &WidgetGraph::unitChanged, hub, &WindowHub::unitChanged);
        connect(window, &WidgetGraph::removeTelemetryBeforeTimestamp, hub,
                &WindowHub::removeTelemetryBeforeTimestamp);
        connect(window, &WidgetGraph::removeTelemetryAfterTimestamp, hub,
                &WindowHub::removeTelemetryAfterTimestamp);
        connect(window, &WidgetGraph::undoCutRequest, hub, &WindowHub::undoCutRequest);
        connect(window, &WidgetGraph::cursorPairMoved, hub, &WindowHub::setCursorPair);
        connect(hub, &WindowHub::cursorPairChanged, window, &WidgetGraph::setCursorPair);
        window->setCursorPair(hub->cursorPair());
    }
    if (store) {
        connect(store, &TelemetryData::loggingStatusChanged, window, &WidgetGraph::setLogging);
        // A new window starts from what the store holds now.
        window->sensorsUpdated(store->sensors());
        window->setLogging(store->isLogging());
    }
}
