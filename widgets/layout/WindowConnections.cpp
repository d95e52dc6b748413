#include "widgets/layout/WindowConnections.h"

#include "telemetry/TelemetryData.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"

#include <QDebug>
#include <QMetaMethod>

namespace {
enum Direction
{
    HubToWindow,
    StoreToWindow,
    WindowToHub
};

struct Route
{
    int type;
    Direction direction;
    const char *signal;
    const char *slot;
};

const Route kRoutes[] = {
    {WindowTypes::Graph, HubToWindow, "addSensorRequest(const TelemetryVar*)",
     "addData(const TelemetryVar*)"},
    {WindowTypes::Graph, HubToWindow, "setLogStatusRequest(bool)", "setLogging(bool)"},
    {WindowTypes::Graph, HubToWindow, "updateSensorsRequest(const QVector<TelemetrySensor>*)",
     "sensorsUpdated(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Graph, HubToWindow, "logFileLoadedRequest()", "logFileLoaded()"},
    {WindowTypes::Graph, HubToWindow, "mouseOverTimestampRequest(long,bool)",
     "externalTimestampMoved(long,bool)"},
    {WindowTypes::Graph, HubToWindow, "valueAddedRequest(const QVector<TelemetrySensor>*)",
     "dataUpdated(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Graph, StoreToWindow, "loggingStatusChanged(bool)", "setLogging(bool)"},
    {WindowTypes::Graph, WindowToHub, "mouseOverTimestamp(long,bool)", "mouseOverTimestampMoved(long,bool)"},
    {WindowTypes::Graph, WindowToHub, "unitChanged(TelemetrySimplePair,QString)",
     "unitChanged(TelemetrySimplePair,QString)"},
    {WindowTypes::Graph, WindowToHub, "removeTelemetryBeforeTimestamp(long)",
     "removeTelemetryBeforeTimestamp(long)"},
    {WindowTypes::Graph, WindowToHub, "removeTelemetryAfterTimestamp(long)",
     "removeTelemetryAfterTimestamp(long)"},
    {WindowTypes::Graph, WindowToHub, "undoCutRequest()", "undoCutRequest()"},

    {WindowTypes::Maps, HubToWindow, "addSensorRequest(const TelemetryVar*)", "addData(const TelemetryVar*)"},
    {WindowTypes::Maps, HubToWindow, "updateSensorsRequest(const QVector<TelemetrySensor>*)",
     "sensorsUpdated(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Maps, HubToWindow, "mouseOverTimestampRequest(long,bool)",
     "externalTimestampMoved(long,bool)"},
    {WindowTypes::Maps, HubToWindow, "logFileLoadedRequest()", "logFileLoaded()"},
    {WindowTypes::Maps, WindowToHub, "exportGPSRequest()", "GPSExport()"},

    {WindowTypes::Sensors, HubToWindow, "updateSensorsRequest(const QVector<TelemetrySensor>*)",
     "updateItems(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Sensors, HubToWindow, "valueAddedRequest(const QVector<TelemetrySensor>*)",
     "updateLoggedValues(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Sensors, HubToWindow, "setLogStatusRequest(bool)", "setLogStatus(bool)"},
    {WindowTypes::Sensors, StoreToWindow, "loggingStatusChanged(bool)", "setLogStatus(bool)"},
    {WindowTypes::Sensors, WindowToHub, "sensorsReset()", "sensorsCleared()"},
    {WindowTypes::Sensors, WindowToHub, "loggingSet(bool)", "logStatusChanged(bool)"},
    {WindowTypes::Sensors, WindowToHub, "sensorDblClick(const TelemetryVar*)",
     "addSensorToActiveWidget(const TelemetryVar*)"},
    {WindowTypes::Sensors, WindowToHub, "exportGPSRequest()", "GPSExport()"},

    {WindowTypes::LXBusDevices, HubToWindow, "deviceAddedRequest(const Vector<Device>*)",
     "updateItems(const Vector<Device>*)"},
    {WindowTypes::LXBusDevices, WindowToHub, "sensorsReset()", "sensorsReset()"},
    {WindowTypes::LXBusDevices, WindowToHub, "deviceActivated(uint32_t,int)",
     "deviceActivated(uint32_t,int)"},

    {WindowTypes::Values, HubToWindow, "addSensorRequest(const TelemetryVar*)",
     "addData(const TelemetryVar*)"},
    {WindowTypes::Values, HubToWindow, "updateSensorsRequest(const QVector<TelemetrySensor>*)",
     "sensorsUpdated(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Values, HubToWindow, "mouseOverTimestampRequest(long,bool)",
     "mouseOverTimestampMoved(long,bool)"},

    {WindowTypes::DataTable, HubToWindow, "addSensorRequest(const TelemetryVar*)",
     "addData(const TelemetryVar*)"},
    {WindowTypes::DataTable, HubToWindow, "updateSensorsRequest(const QVector<TelemetrySensor>*)",
     "sensorsUpdated(const QVector<TelemetrySensor>*)"},
    {WindowTypes::DataTable, HubToWindow, "valueAddedRequest(const QVector<TelemetrySensor>*)",
     "dataUpdated(const QVector<TelemetrySensor>*)"},

    {WindowTypes::Dial, HubToWindow, "updateSensorsRequest(const QVector<TelemetrySensor>*)",
     "sensorsUpdated(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Dial, HubToWindow, "valueAddedRequest(const QVector<TelemetrySensor>*)",
     "dataAdded(const QVector<TelemetrySensor>*)"},
    {WindowTypes::Dial, HubToWindow, "mouseOverTimestampRequest(long,bool)",
     "mouseOverTimestampMoved(long,bool)"},

    {WindowTypes::Models, WindowToHub, "modelActivated(int)", "modelActivated(int)"},
    {WindowTypes::Models, WindowToHub, "folderActivated(int,int)", "modelFolderActivated(int,int)"},
    {WindowTypes::Models, WindowToHub, "modelFolderDeleted(int,int,int)", "modelFolderDeleted(int,int,int)"},
};

QMetaMethod method(const QObject *object, const char *signature)
{
    const QMetaObject *meta = object->metaObject();
    const int index = meta->indexOfMethod(QMetaObject::normalizedSignature(signature).constData());
    return index < 0 ? QMetaMethod() : meta->method(index);
}
} // namespace

void WindowConnections::connect(QObject *window, int typeCode, WindowHub *hub, TelemetryData *store)
{
    for (const Route &route : kRoutes) {
        if (route.type != typeCode)
            continue;
        QObject *sender = route.direction == WindowToHub   ? window
                          : route.direction == HubToWindow ? static_cast<QObject *>(hub)
                                                           : static_cast<QObject *>(store);
        QObject *receiver = route.direction == WindowToHub ? static_cast<QObject *>(hub) : window;
        if (!sender || !receiver)
            continue;
        const QMetaMethod signal = method(sender, route.signal);
        const QMetaMethod slot = method(receiver, route.slot);
        // A window without the method does not take part in this connection.
        if (!signal.isValid() || !slot.isValid())
            continue;
        if (!QObject::connect(sender, signal, receiver, slot, Qt::UniqueConnection))
            qDebug().noquote() << "Unable to connect" << route.signal << "to" << route.slot;
    }
}

void WindowConnections::disconnect(QObject *window, WindowHub *hub, TelemetryData *store)
{
    if (hub) {
        QObject::disconnect(hub, nullptr, window, nullptr);
        QObject::disconnect(window, nullptr, hub, nullptr);
    }
    if (store)
        QObject::disconnect(store, nullptr, window, nullptr);
}

void WindowConnections::handInitialState(QObject *window, int typeCode, TelemetryData *store)
{
    if (!store)
        return;
    const char *sensorsSlot = nullptr;
    const char *loggingSlot = nullptr;
    if (typeCode == WindowTypes::Graph) {
        sensorsSlot = "sensorsUpdated(const QVector<TelemetrySensor>*)";
        loggingSlot = "setLogging(bool)";
    } else if (typeCode == WindowTypes::Sensors) {
        sensorsSlot = "updateItems(const QVector<TelemetrySensor>*)";
        loggingSlot = "setLogStatus(bool)";
    } else {
        return;
    }
    const QVector<TelemetrySensor> *sensors = store->sensors();
    const QMetaMethod update = method(window, sensorsSlot);
    if (update.isValid())
        update.invoke(window, Qt::DirectConnection, Q_ARG(const QVector<TelemetrySensor> *, sensors));
    const QMetaMethod logging = method(window, loggingSlot);
    if (logging.isValid())
        logging.invoke(window, Qt::DirectConnection, Q_ARG(bool, store->isLogging()));
}

bool WindowConnections::addData(QObject *window, const TelemetryVar *variable)
{
    const QMetaMethod add = method(window, "addData(const TelemetryVar*)");
    if (!add.isValid())
        return false;
    return add.invoke(window, Qt::DirectConnection, Q_ARG(const TelemetryVar *, variable));
}
