#include "widgets/quick/QuickWindow.h"

#include "telemetry/TelemetryData.h"

#include <QActionGroup>
#include <QMenu>
#include <QQmlEngine>
#include <QQuickItem>

#include <algorithm>
#include <cmath>

// Resources of a static library are registered by hand; outside any namespace, as the macro requires.
static void initSceneResources()
{
    Q_INIT_RESOURCE(qml);
}

namespace {
// A dropped payload's numbers arrive from the scene as JavaScript numbers.
bool toUnsigned(const QVariant &value, quint32 *out)
{
    bool ok = false;
    const double d = value.toDouble(&ok);
    if (!ok || !(d >= 0) || d > 4294967295.0 || d != std::floor(d))
        return false;
    *out = quint32(d);
    return true;
}
} // namespace

QuickWindow::QuickWindow(TelemetryData *store, QWidget *parent) : QQuickWidget(parent), m_store(store)
{
    initSceneResources();
    setResizeMode(QQuickWidget::SizeRootObjectToView);
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(120, 120);
    m_refreshTimer.setSingleShot(true);
    m_refreshTimer.setInterval(kRefreshIntervalMs);
    connect(&m_refreshTimer, &QTimer::timeout, this, [this] { refresh(); });
    if (m_store)
        m_sensors = m_store->sensors();
}

bool QuickWindow::loadScene(const QUrl &url)
{
    setSource(url);
    QQuickItem *root = rootObject();
    if (status() != QQuickWidget::Ready || !root) {
        for (const QQmlError &error : errors())
            qWarning().noquote() << error.toString();
        prompter()->error(this, tr("Display error"), tr("Error encountered while loading graphics"));
        return false;
    }
    connect(root, SIGNAL(setFocus()), this, SIGNAL(gotFocus()));
    QObject::connect(root, SIGNAL(sensorDropped(QVariant, QVariant)), this,
                     SLOT(sceneDropped(QVariant, QVariant)));
    return true;
}

void QuickWindow::sceneDropped(const QVariant &id, const QVariant &param)
{
    quint32 deviceId = 0;
    quint32 number = 0;
    if (toUnsigned(id, &deviceId) && toUnsigned(param, &number))
        dropped(deviceId, number);
}

QQuickItem *QuickWindow::scene() const
{
    return status() == QQuickWidget::Ready ? rootObject() : nullptr;
}

void QuickWindow::setSceneProperty(const char *name, const QVariant &value)
{
    if (QQuickItem *root = scene()) {
        if (root->property(name) != value)
            root->setProperty(name, value);
    }
}

void QuickWindow::setDisplayLatest(bool latest)
{
    m_latest = latest;
    refresh();
}

int QuickWindow::decimalsOf(const TelemetryVar &var)
{
    if (var.count() == 0)
        return 0;
    const TelemetryValue &last = var.values().constLast();
    if (last.type == TelemetryTypes::GpsCoordinate)
        return 6;
    if (last.type == TelemetryTypes::TimeOrDate || last.type == TelemetryTypes::Text)
        return 0;
    return std::min<int>(last.decimals & 0xff, 6);
}

QString QuickWindow::format(double value, int decimals)
{
    return std::isfinite(value) ? QString::number(value, 'f', decimals) : QString();
}

const QVector<TelemetrySensor> *QuickWindow::sensorList() const
{
    return m_store ? m_store->sensors() : m_sensors;
}

const TelemetrySensor *QuickWindow::findSensor(quint32 deviceId) const
{
    const QVector<TelemetrySensor> *sensors = sensorList();
    if (!sensors)
        return nullptr;
    for (const TelemetrySensor &sensor : *sensors) {
        if (sensor.id() == deviceId)
            return &sensor;
    }
    return nullptr;
}

const TelemetryVar *QuickWindow::findVar(const TelemetrySimplePair &pair) const
{
    const TelemetrySensor *sensor = findSensor(pair.deviceId);
    return sensor ? sensor->var(pair.param) : nullptr;
}

bool QuickWindow::currentValue(const TelemetryVar &var, double *value) const
{
    if (var.count() == 0)
        return false;
    int index = var.count() - 1;
    if (!m_latest && m_hasCursor) {
        // Before the first sample there is nothing to show; after the last the last one stands.
        const int at = var.indexAt(m_cursor);
        if (at >= 0)
            index = at;
        if (at == 0 && m_cursor < var.values().constFirst().timestamp)
            return false;
    }
    *value = var.numberAt(index);
    return true;
}

bool QuickWindow::extremes(const TelemetryVar &var, double *minimum, double *maximum)
{
    if (var.count() == 0)
        return false;
    Extremes &e = m_extremes[var.pair().key()];
    // Another recording, or samples cut away: counted again from the start.
    if (e.data != var.values().constData() || e.scanned > var.count()) {
        e = Extremes();
        e.data = var.values().constData();
    }
    for (int i = e.scanned; i < var.count(); ++i) {
        const double v = var.numberAt(i);
        if (!std::isfinite(v))
            continue;
        e.minimum = e.any ? std::min(e.minimum, v) : v;
        e.maximum = e.any ? std::max(e.maximum, v) : v;
        e.any = true;
    }
    e.scanned = var.count();
    if (!e.any)
        return false;
    *minimum = e.minimum;
    *maximum = e.maximum;
    return true;
}

void QuickWindow::sensorsUpdated(const QVector<TelemetrySensor> *sensors)
{
    if (sensors)
        m_sensors = sensors;
    m_extremes.clear();
    refresh();
}

void QuickWindow::dataAdded(const QVector<TelemetrySensor> *sensors)
{
    if (sensors)
        m_sensors = sensors;
    scheduleRefresh();
}

void QuickWindow::scheduleRefresh()
{
    if (!m_refreshTimer.isActive())
        m_refreshTimer.start();
}

void QuickWindow::mouseOverTimestampMoved(long timestamp, bool)
{
    m_hasCursor = true;
    m_cursor = timestamp;
    if (!m_latest)
        scheduleRefresh();
}

void QuickWindow::logFileLoaded()
{
    m_extremes.clear();
    m_hasCursor = false;
    refresh();
}

void QuickWindow::addDisplayModeActions(QMenu *menu)
{
    auto *group = new QActionGroup(menu);
    QAction *latest = menu->addAction(tr("Latest values"), this, [this] { setDisplayLatest(true); });
    QAction *cursor = menu->addAction(tr("Values under cursor"), this, [this] { setDisplayLatest(false); });
    for (QAction *a : {latest, cursor}) {
        a->setCheckable(true);
        group->addAction(a);
    }
    (m_latest ? latest : cursor)->setChecked(true);
}

void QuickWindow::focusInEvent(QFocusEvent *event)
{
    QQuickWidget::focusInEvent(event);
    emit gotFocus();
}
