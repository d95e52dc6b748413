#pragma once

#include "telemetry/TelemetrySensor.h"
#include "widgets/layout/SerializableWidget.h"

#include <QHash>
#include <QPoint>
#include <QSet>
#include <QWidget>

class SensorItemDelegate;
class TelemetryData;
class WindowHub;

class QAction;
class QMenu;
class QMimeData;
class QTreeWidget;
class QTreeWidgetItem;

// "Available telemetry": every device of the telemetry store with its variables, the source the user
// drags variables from into the other data windows. Also switches real-time logging, asks for the KML
// export and clears the sensor list.
class WidgetLogSensors : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    // What this window takes from the hub and the store and what it gives back: the one place its
    // wiring is written, checked by the compiler. Called by the window manager on registration.
    static void wire(WidgetLogSensors *window, WindowHub *hub, TelemetryData *store);
    enum Column
    {
        NameColumn = 0,
        InfoColumn = 1 // the device id of a sensor, the sample count of a variable
    };
    enum Role
    {
        DeviceIdRole = Qt::UserRole,
        ParamRole, // 0 on a sensor item: param 0 names the device itself
        IsSensorRole,
        HasGpsRole // sensor items only: the device has a latitude and a longitude variable
    };

    explicit WidgetLogSensors(QWidget *parent = nullptr);

    // The window has no settings of its own; the layout keeps only its type.
    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;

    QTreeWidget *tree() const { return m_tree; }
    QMenu *contextMenu() const { return m_menu; }
    QAction *exportAction() const { return m_exportAction; }
    QAction *deleteAction() const { return m_deleteAction; }
    QAction *loggingAction() const { return m_loggingAction; }

    // What dragging an item carries, or null for an item that is not dragged (a sensor without a
    // GPS position). The caller owns the result.
    QMimeData *mimeDataFor(const QTreeWidgetItem *item) const;
    QString dragPixmapPath(const QTreeWidgetItem *item) const;

    // "ID: [low:high]", each 16-bit half as 5 digits.
    static QString sensorIdText(quint32 deviceId);
    // " 3. Voltage\t[V]", or " 3. Param" without a label.
    static QString variableText(const TelemetryVar &var);
    static QString countText(int count);

public slots:
    void updateItems(const QVector<TelemetrySensor> *data);
    void updateLoggedValues(const QVector<TelemetrySensor> *data);
    void setLogStatus(bool status);
    void customMenuRequested(const QPoint &pos);
    void doubleClicked(QTreeWidgetItem *item, int column);
    void exportGPS();
    void resetSensors();
    void setLogging(bool enabled);

signals:
    void sensorsReset();
    void loggingSet(bool enabled);
    void sensorDblClick(const TelemetryVar *var);
    void exportGPSRequest();
    void gotFocus();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void startDrag(QTreeWidgetItem *item);
    // The units stand in one column: the tab stop goes past the widest "number. label".
    void updateTabStop();
    const TelemetryVar *findVar(quint32 deviceId, quint32 param) const;

    QTreeWidget *m_tree = nullptr;
    SensorItemDelegate *m_delegate = nullptr;
    QMenu *m_menu = nullptr;
    QAction *m_exportAction = nullptr;
    QAction *m_deleteAction = nullptr;
    QAction *m_loggingAction = nullptr;
    // The store's device list; looked up by id at use, as its elements move when devices are added.
    const QVector<TelemetrySensor> *m_sensors = nullptr;
    QHash<quint64, QTreeWidgetItem *> m_varItems; // by TelemetrySimplePair::key()
    QSet<quint32> m_collapsed;                    // devices the user folded, kept across rebuilds
    QPoint m_pressPos;
    QTreeWidgetItem *m_pressItem = nullptr;
};
