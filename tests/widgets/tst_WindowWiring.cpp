#include "database/DatabaseManager.h"
#include "database/ModelLibrary.h"
#include "telemetry/TelemetryData.h"
#include "widgets/graph/WidgetGraph.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"
#include "widgets/models/WidgetModel.h"
#include "widgets/sensors/WidgetLogSensors.h"
#include "widgets/table/WidgetDataTable.h"

#include <QTemporaryDir>
#include <QtTest>

#include <functional>

// Each window type's routes to and from the hub, as the main window relies on them. A route is checked
// by taking it away again: disconnect() is true only for a connection that was made.
class tst_WindowWiring : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void routes_data();
    void routes();

private:
    QTemporaryDir m_dir;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ModelLibrary> m_library;
};

using Route = std::function<bool(QWidget *window, WindowHub *hub, TelemetryData *store)>;
Q_DECLARE_METATYPE(Route)

namespace {
template <class W, class Signal, class Slot> Route hubToWindow(Signal signal, Slot slot)
{
    return [=](QWidget *w, WindowHub *hub, TelemetryData *) {
        return QObject::disconnect(hub, signal, qobject_cast<W *>(w), slot);
    };
}
template <class W, class Signal, class Slot> Route windowToHub(Signal signal, Slot slot)
{
    return [=](QWidget *w, WindowHub *hub, TelemetryData *) {
        return QObject::disconnect(qobject_cast<W *>(w), signal, hub, slot);
    };
}
template <class W, class Slot> Route storeLogging(Slot slot)
{
    return [=](QWidget *w, WindowHub *, TelemetryData *store) {
        return QObject::disconnect(store, &TelemetryData::loggingStatusChanged, qobject_cast<W *>(w), slot);
    };
}
} // namespace

void tst_WindowWiring::initTestCase()
{
    m_db = std::make_unique<DatabaseManager>(m_dir.path());
    QVERIFY(m_db->openAndInitialise());
    m_library = std::make_unique<ModelLibrary>(m_db.get());
}

void tst_WindowWiring::routes_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<Route>("route");
    using G = WidgetGraph;
    QTest::newRow("graph: add sensor")
        << int(WindowTypes::Graph) << hubToWindow<G>(&WindowHub::addSensorRequest, &G::addData);
    QTest::newRow("graph: log status")
        << int(WindowTypes::Graph) << hubToWindow<G>(&WindowHub::setLogStatusRequest, &G::setLogging);
    QTest::newRow("graph: sensors") << int(WindowTypes::Graph)
                                    << hubToWindow<G>(&WindowHub::updateSensorsRequest, &G::sensorsUpdated);
    QTest::newRow("graph: log loaded")
        << int(WindowTypes::Graph) << hubToWindow<G>(&WindowHub::logFileLoadedRequest, &G::logFileLoaded);
    QTest::newRow("graph: cursor in")
        << int(WindowTypes::Graph)
        << hubToWindow<G>(&WindowHub::mouseOverTimestampRequest, &G::externalTimestampMoved);
    QTest::newRow("graph: values") << int(WindowTypes::Graph)
                                   << hubToWindow<G>(&WindowHub::valueAddedRequest, &G::dataUpdated);
    QTest::newRow("graph: store logging") << int(WindowTypes::Graph) << storeLogging<G>(&G::setLogging);
    QTest::newRow("graph: cursor out")
        << int(WindowTypes::Graph)
        << windowToHub<G>(&G::mouseOverTimestamp, &WindowHub::mouseOverTimestampMoved);
    QTest::newRow("graph: unit") << int(WindowTypes::Graph)
                                 << windowToHub<G>(&G::unitChanged, &WindowHub::unitChanged);
    QTest::newRow("graph: cut before")
        << int(WindowTypes::Graph)
        << windowToHub<G>(&G::removeTelemetryBeforeTimestamp, &WindowHub::removeTelemetryBeforeTimestamp);
    QTest::newRow("graph: cut after")
        << int(WindowTypes::Graph)
        << windowToHub<G>(&G::removeTelemetryAfterTimestamp, &WindowHub::removeTelemetryAfterTimestamp);
    QTest::newRow("graph: undo cut") << int(WindowTypes::Graph)
                                     << windowToHub<G>(&G::undoCutRequest, &WindowHub::undoCutRequest);

    using S = WidgetLogSensors;
    QTest::newRow("sensors: sensors")
        << int(WindowTypes::Sensors) << hubToWindow<S>(&WindowHub::updateSensorsRequest, &S::updateItems);
    QTest::newRow("sensors: values") << int(WindowTypes::Sensors)
                                     << hubToWindow<S>(&WindowHub::valueAddedRequest, &S::updateLoggedValues);
    QTest::newRow("sensors: log status")
        << int(WindowTypes::Sensors) << hubToWindow<S>(&WindowHub::setLogStatusRequest, &S::setLogStatus);
    QTest::newRow("sensors: store logging") << int(WindowTypes::Sensors) << storeLogging<S>(&S::setLogStatus);
    QTest::newRow("sensors: reset") << int(WindowTypes::Sensors)
                                    << windowToHub<S>(&S::sensorsReset, &WindowHub::sensorsCleared);
    QTest::newRow("sensors: logging")
        << int(WindowTypes::Sensors) << windowToHub<S>(&S::loggingSet, &WindowHub::logStatusChanged);
    QTest::newRow("sensors: double click")
        << int(WindowTypes::Sensors)
        << windowToHub<S>(&S::sensorDblClick, &WindowHub::addSensorToActiveWidget);
    QTest::newRow("sensors: KML") << int(WindowTypes::Sensors)
                                  << windowToHub<S>(&S::exportGPSRequest, &WindowHub::GPSExport);

    using T = WidgetDataTable;
    QTest::newRow("table: add sensor")
        << int(WindowTypes::DataTable) << hubToWindow<T>(&WindowHub::addSensorRequest, &T::addData);
    QTest::newRow("table: sensors") << int(WindowTypes::DataTable)
                                    << hubToWindow<T>(&WindowHub::updateSensorsRequest, &T::sensorsUpdated);
    QTest::newRow("table: values") << int(WindowTypes::DataTable)
                                   << hubToWindow<T>(&WindowHub::valueAddedRequest, &T::dataUpdated);

    QTest::newRow("models: activated")
        << int(WindowTypes::Models)
        << windowToHub<WidgetModel>(&WidgetModel::modelActivated, &WindowHub::modelActivated);
}

void tst_WindowWiring::routes()
{
    QFETCH(int, type);
    QFETCH(Route, route);
    WindowHub hub;
    TelemetryData store;
    WidgetManager manager(&hub, &store, m_db.get());
    manager.registerWindow(
        WindowTypes::key(WindowTypes::Graph), [&store](WidgetManager *) { return new WidgetGraph(&store); },
        &WidgetGraph::wire);
    manager.registerWindow(
        WindowTypes::key(WindowTypes::Sensors), [](WidgetManager *) { return new WidgetLogSensors; },
        &WidgetLogSensors::wire);
    WidgetDataTable::registerWith(&manager);
    manager.registerWindow(
        WindowTypes::key(WindowTypes::Models),
        [this, &store](WidgetManager *) { return new WidgetModel(m_db.get(), m_library.get(), &store); },
        &WidgetModel::wire);
    std::unique_ptr<QWidget> window(manager.createWindow(type));
    manager.registerWidget(window.get(), type);
    QVERIFY(route(window.get(), &hub, &store));
    QVERIFY(!route(window.get(), &hub, &store)); // made once, not twice
}

QTEST_MAIN(tst_WindowWiring)
#include "tst_WindowWiring.moc"
