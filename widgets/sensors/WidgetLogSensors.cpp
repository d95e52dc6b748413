#include "widgets/sensors/WidgetLogSensors.h"

#include "telemetry/KmlWriter.h"
#include "telemetry/TelemetryData.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/sensors/SensorItemDelegate.h"

#include <QAction>
#include <QApplication>
#include <QDrag>
#include <QEvent>
#include <QFontMetricsF>
#include <QHeaderView>
#include <QMenu>
#include <QMimeData>
#include <QMouseEvent>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <cmath>

WidgetLogSensors::WidgetLogSensors(QWidget *parent) : QWidget(parent)
{
    setWindowTitle(tr("Available telemetry"));
    m_tree = new QTreeWidget(this);
    m_tree->setObjectName(QStringLiteral("sensorTree"));
    m_tree->setColumnCount(2);
    m_tree->setHeaderHidden(true);
    m_tree->header()->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    m_tree->header()->setSectionResizeMode(InfoColumn, QHeaderView::ResizeToContents);
    m_tree->header()->setStretchLastSection(false);
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_delegate = new SensorItemDelegate(m_tree);
    m_tree->setItemDelegateForColumn(NameColumn, m_delegate);
    // Dragging is started by hand: the payload and pixmap depend on the item, not on the view.
    m_tree->viewport()->installEventFilter(this);
    m_tree->installEventFilter(this);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_tree);

    m_menu = new QMenu(this);
    m_exportAction = m_menu->addAction(QIcon(QStringLiteral(":/Icons/Program/Resources/export16x16.png")),
                                       tr("Export to KML..."));
    m_exportAction->setStatusTip(tr("Exports the GPS path to KML"));
    m_deleteAction = m_menu->addAction(tr("Delete sensors"));
    m_deleteAction->setStatusTip(tr("Delete sensor list"));
    m_loggingAction = m_menu->addAction(tr("Realtime logging"));
    m_loggingAction->setCheckable(true);
    m_loggingAction->setStatusTip(tr("Start/stop real-time logging"));

    connect(m_exportAction, &QAction::triggered, this, &WidgetLogSensors::exportGPS);
    connect(m_deleteAction, &QAction::triggered, this, &WidgetLogSensors::resetSensors);
    // triggered, not toggled: reflecting the store's state in setLogStatus must not echo back.
    connect(m_loggingAction, &QAction::triggered, this, &WidgetLogSensors::setLogging);
    connect(m_tree, &QTreeWidget::customContextMenuRequested, this, &WidgetLogSensors::customMenuRequested);
    connect(m_tree, &QTreeWidget::itemDoubleClicked, this, &WidgetLogSensors::doubleClicked);
}

int WidgetLogSensors::load(const LayoutJsonValue &)
{
    return 0;
}

int WidgetLogSensors::save(LayoutJsonWriter &writer, quint8)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::Sensors));
    return 0;
}

QString WidgetLogSensors::sensorIdText(quint32 deviceId)
{
    return TelemetrySensor(deviceId, QString()).idText();
}

QString WidgetLogSensors::variableText(const TelemetryVar &var)
{
    if (var.label().isEmpty())
        return tr("%1. Param").arg(var.param(), 2);
    // Both texts in one arg() call, so a label holding "%3" stays as it is.
    return tr("%1. %2\t[%3]").arg(var.param(), 2).arg(var.label(), var.displayUnit());
}

QString WidgetLogSensors::countText(int count)
{
    return tr("(%1 items)").arg(count);
}

void WidgetLogSensors::updateItems(const QVector<TelemetrySensor> *data)
{
    // Remember what the user folded before the items go.
    for (int i = 0; i < m_tree->topLevelItemCount(); ++i) {
        const QTreeWidgetItem *item = m_tree->topLevelItem(i);
        const quint32 id = item->data(NameColumn, DeviceIdRole).toUInt();
        if (item->isExpanded())
            m_collapsed.remove(id);
        else
            m_collapsed.insert(id);
    }
    m_pressItem = nullptr;
    m_varItems.clear();
    m_tree->clear();
    m_sensors = data;
    if (!data)
        return;

    QList<QTreeWidgetItem *> top;
    top.reserve(data->size());
    for (const TelemetrySensor &sensor : *data) {
        auto *item = new QTreeWidgetItem({sensor.displayName(), sensorIdText(sensor.id())});
        item->setData(NameColumn, DeviceIdRole, sensor.id());
        item->setData(NameColumn, ParamRole, 0u);
        item->setData(NameColumn, IsSensorRole, true);
        item->setData(NameColumn, HasGpsRole, KmlWriter::hasGpsPosition(sensor));
        for (const TelemetryVar &var : sensor.vars()) {
            auto *child = new QTreeWidgetItem(item, {variableText(var), countText(var.count())});
            child->setData(NameColumn, DeviceIdRole, var.deviceId());
            child->setData(NameColumn, ParamRole, var.param());
            child->setData(NameColumn, IsSensorRole, false);
            m_varItems.insert(var.pair().key(), child);
        }
        top.append(item);
    }
    m_tree->addTopLevelItems(top);
    for (QTreeWidgetItem *item : top)
        item->setExpanded(!m_collapsed.contains(item->data(NameColumn, DeviceIdRole).toUInt()));
    updateTabStop();
}

void WidgetLogSensors::updateTabStop()
{
    const QFontMetricsF metrics(m_tree->font());
    qreal widest = 0;
    for (const QTreeWidgetItem *item : qAsConst(m_varItems)) {
        const QString text = item->text(NameColumn);
        const int tab = text.indexOf(QLatin1Char('\t'));
        if (tab >= 0)
            widest = qMax(widest, metrics.horizontalAdvance(text.left(tab)));
    }
    // A gap of two blanks before the units; whole pixels, so every unit is drawn alike.
    m_delegate->setTabStop(widest > 0 ? std::ceil(widest + 2 * metrics.horizontalAdvance(QLatin1Char(' ')))
                                      : 0);
    m_tree->viewport()->update();
}

void WidgetLogSensors::updateLoggedValues(const QVector<TelemetrySensor> *data)
{
    if (!data)
        return;
    for (const TelemetrySensor &sensor : *data) {
        for (const TelemetryVar &var : sensor.vars()) {
            QTreeWidgetItem *item = m_varItems.value(var.pair().key());
            if (!item) {
                // A variable the list has not seen: the structure changed, so rebuild once.
                updateItems(data);
                return;
            }
            const QString text = countText(var.count());
            if (item->text(InfoColumn) != text)
                item->setText(InfoColumn, text);
        }
    }
}

void WidgetLogSensors::setLogStatus(bool status)
{
    m_loggingAction->setChecked(status);
}

void WidgetLogSensors::customMenuRequested(const QPoint &pos)
{
    m_menu->popup(m_tree->viewport()->mapToGlobal(pos));
}

void WidgetLogSensors::doubleClicked(QTreeWidgetItem *item, int)
{
    if (!item || item->data(NameColumn, IsSensorRole).toBool())
        return;
    const TelemetryVar *var =
        findVar(item->data(NameColumn, DeviceIdRole).toUInt(), item->data(NameColumn, ParamRole).toUInt());
    if (var)
        emit sensorDblClick(var);
}

void WidgetLogSensors::exportGPS()
{
    emit exportGPSRequest();
}

void WidgetLogSensors::resetSensors()
{
    updateItems(nullptr);
    emit sensorsReset();
}

void WidgetLogSensors::setLogging(bool enabled)
{
    emit loggingSet(enabled);
}

QMimeData *WidgetLogSensors::mimeDataFor(const QTreeWidgetItem *item) const
{
    if (!item)
        return nullptr;
    const quint32 id = item->data(NameColumn, DeviceIdRole).toUInt();
    if (item->data(NameColumn, IsSensorRole).toBool()) {
        if (!item->data(NameColumn, HasGpsRole).toBool())
            return nullptr;
        return SensorDragData::forGpsDevice(id);
    }
    return SensorDragData::forVariable({id, item->data(NameColumn, ParamRole).toUInt()});
}

QString WidgetLogSensors::dragPixmapPath(const QTreeWidgetItem *item) const
{
    if (item && item->data(NameColumn, IsSensorRole).toBool())
        return QStringLiteral(":/Icons/Program/Resources/globe32x32.png");
    return QStringLiteral(":/Icons/Program/Resources/chart32x32.png");
}

bool WidgetLogSensors::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_tree && event->type() == QEvent::FocusIn) {
        emit gotFocus();
    } else if (watched == m_tree && event->type() == QEvent::FontChange) {
        updateTabStop();
    } else if (watched == m_tree->viewport()) {
        if (event->type() == QEvent::MouseButtonPress) {
            auto *e = static_cast<QMouseEvent *>(event);
            if (e->button() == Qt::LeftButton) {
                m_pressPos = e->pos();
                m_pressItem = m_tree->itemAt(e->pos());
            }
        } else if (event->type() == QEvent::MouseButtonRelease) {
            m_pressItem = nullptr;
        } else if (event->type() == QEvent::MouseMove && m_pressItem) {
            auto *e = static_cast<QMouseEvent *>(event);
            if ((e->buttons() & Qt::LeftButton) &&
                (e->pos() - m_pressPos).manhattanLength() >= QApplication::startDragDistance()) {
                QTreeWidgetItem *item = m_pressItem;
                m_pressItem = nullptr;
                startDrag(item);
                return true;
            }
        }
    }
    return QWidget::eventFilter(watched, event);
}

void WidgetLogSensors::startDrag(QTreeWidgetItem *item)
{
    QMimeData *data = mimeDataFor(item);
    if (!data)
        return;
    auto *drag = new QDrag(this);
    drag->setMimeData(data);
    drag->setPixmap(QPixmap(dragPixmapPath(item)));
    drag->exec(Qt::CopyAction);
}

const TelemetryVar *WidgetLogSensors::findVar(quint32 deviceId, quint32 param) const
{
    if (!m_sensors)
        return nullptr;
    for (const TelemetrySensor &sensor : *m_sensors) {
        if (sensor.id() == deviceId)
            return sensor.var(param);
    }
    return nullptr;
}

void WidgetLogSensors::wire(WidgetLogSensors *window, WindowHub *hub, TelemetryData *store)
{
    if (hub) {
        connect(hub, &WindowHub::updateSensorsRequest, window, &WidgetLogSensors::updateItems);
        connect(hub, &WindowHub::valueAddedRequest, window, &WidgetLogSensors::updateLoggedValues);
        connect(hub, &WindowHub::setLogStatusRequest, window, &WidgetLogSensors::setLogStatus);
        connect(window, &WidgetLogSensors::sensorsReset, hub, &WindowHub::sensorsCleared);
        connect(window, &WidgetLogSensors::loggingSet, hub, &WindowHub::logStatusChanged);
        connect(window, &WidgetLogSensors::sensorDblClick, hub, &WindowHub::addSensorToActiveWidget);
        connect(window, &WidgetLogSensors::exportGPSRequest, hub, &WindowHub::GPSExport);
    }
    if (store) {
        connect(store, &TelemetryData::loggingStatusChanged, window, &WidgetLogSensors::setLogStatus);
        // A new window starts from what the store holds now.
        window->updateItems(store->sensors());
        window->setLogStatus(store->isLogging());
    }
}
