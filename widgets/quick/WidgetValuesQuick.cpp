#include "widgets/quick/WidgetValuesQuick.h"

#include "telemetry/TelemetryData.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"

#include <QCursor>
#include <QMenu>
#include <QQmlContext>
#include <QQuickItem>

WidgetValuesQuick::WidgetValuesQuick(TelemetryData *store, QWidget *parent) : QuickWindow(store, parent)
{
    setWindowTitle(tr("Actual values"));
    rootContext()->setContextProperty(QStringLiteral("dataModel"), &m_model);
    if (loadScene(QUrl(QStringLiteral("qrc:///Qml/Qml/Values.qml"))))
        connect(scene(), SIGNAL(popupMenu(int)), this, SLOT(popupMenu(int)));
}

void WidgetValuesQuick::wire(WidgetValuesQuick *window, WindowHub *hub, TelemetryData *store)
{
    if (hub) {
        connect(hub, &WindowHub::updateSensorsRequest, window, &WidgetValuesQuick::sensorsUpdated);
        connect(hub, &WindowHub::valueAddedRequest, window, &WidgetValuesQuick::dataAdded);
        connect(hub, &WindowHub::mouseOverTimestampRequest, window,
                &WidgetValuesQuick::mouseOverTimestampMoved);
        connect(hub, &WindowHub::logFileLoadedRequest, window, &WidgetValuesQuick::logFileLoaded);
    }
    if (store)
        window->sensorsUpdated(store->sensors());
}

int WidgetValuesQuick::load(const LayoutJsonValue &object)
{
    if (!object.isObject())
        return 1;
    setDisplayLatest(object.value(QStringLiteral("DisplayLatest")).toDouble(1) != 0);
    const LayoutJsonValue &sensors = object.value(QStringLiteral("Sensors"));
    if (sensors.isArray()) {
        m_model.clear();
        for (int i = 0; i < sensors.size(); ++i) {
            const LayoutJsonValue &pair = sensors.at(i);
            if (!pair.isArray() || pair.size() != 2)
                continue;
            const double id = pair.at(0).toDouble(-1);
            const double param = pair.at(1).toDouble(-1);
            if (id > 0 && id <= 4294967295.0 && param >= 0 && param <= 4294967295.0)
                addPair(TelemetrySimplePair(quint32(id), quint32(param)));
        }
    }
    refresh();
    return 0;
}

int WidgetValuesQuick::save(LayoutJsonWriter &writer, quint8 flag)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::Values));
    writer.writeInt(QStringLiteral("DisplayLatest"), displayLatest() ? 1 : 0);
    if (flag != kForDatabase)
        return 0;
    writer.key(QStringLiteral("Sensors"));
    writer.beginArray();
    for (const SensorModel::Row &row : m_model.rows()) {
        writer.beginArray();
        writer.writeInt(row.pair.deviceId);
        writer.writeInt(row.pair.param);
        writer.endArray();
    }
    writer.endArray();
    return 0;
}

bool WidgetValuesQuick::addVariable(const TelemetryVar *variable)
{
    addData(variable);
    return variable != nullptr;
}

void WidgetValuesQuick::addData(const TelemetryVar *variable)
{
    if (variable && addPair(variable->pair()))
        refresh();
}

bool WidgetValuesQuick::addPair(const TelemetrySimplePair &pair)
{
    return m_model.append(rowFor(pair));
}

void WidgetValuesQuick::dropped(quint32 deviceId, quint32 param)
{
    if (const TelemetryVar *var = findVar({deviceId, param}))
        addData(var);
}

SensorModel::Row WidgetValuesQuick::rowFor(const TelemetrySimplePair &pair)
{
    SensorModel::Row row;
    row.pair = pair;
    const TelemetrySensor *sensor = findSensor(pair.deviceId);
    const TelemetryVar *var = sensor ? sensor->var(pair.param) : nullptr;
    if (!var) {
        // Kept for a later log; what it was is known no more.
        const int index = m_model.indexOf(pair);
        if (index >= 0) {
            row = m_model.rows().at(index);
            row.value.clear();
            row.minimum.clear();
            row.maximum.clear();
        } else {
            row.label = QStringLiteral("%1:%2").arg(pair.deviceId).arg(pair.param);
        }
        return row;
    }
    row.name = sensor->name();
    row.label = var->label();
    row.unit = var->displayUnit();
    row.decimals = decimalsOf(*var);
    double value = 0;
    if (currentValue(*var, &value))
        row.value = format(value, row.decimals);
    double minimum = 0;
    double maximum = 0;
    if (extremes(*var, &minimum, &maximum)) {
        row.minimum = format(minimum, row.decimals);
        row.maximum = format(maximum, row.decimals);
    }
    return row;
}

void WidgetValuesQuick::refresh()
{
    for (int i = 0; i < m_model.rowCount(); ++i)
        m_model.setRow(i, rowFor(m_model.rows().at(i).pair));
    setSceneProperty("firstLoad", m_firstLoad);
    if (m_model.rowCount() > 0)
        m_firstLoad = false;
}

QMenu *WidgetValuesQuick::createContextMenu(int row)
{
    auto *menu = new QMenu(this);
    addDisplayModeActions(menu);
    menu->addSeparator();
    if (row >= 0 && row < m_model.rowCount()) {
        menu->addAction(tr("Remove \"%1\"").arg(m_model.rows().at(row).label), this,
                        [this, row] { removeRow(row); });
    }
    QAction *all = menu->addAction(tr("Remove all"), this, &WidgetValuesQuick::removeAll);
    all->setEnabled(m_model.rowCount() > 0);
    return menu;
}

void WidgetValuesQuick::popupMenu(int index)
{
    QMenu *menu = createContextMenu(index);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(QCursor::pos());
}

void WidgetValuesQuick::removeRow(int row)
{
    m_model.remove(row);
}

void WidgetValuesQuick::removeAll()
{
    m_model.clear();
}
