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
    const int g = WindowTypes::Graph, s = WindowTypes::Sensors, t = WindowTypes::DataTable,
              m = WindowTypes::Models;
    using H = WindowHub;
    using G = WidgetGraph;
    QTest::newRow("graph: add sensor") << g << hubToWindow<G>(&H::addSensorRequest, &G::addData);
    QTest::newRow("graph: log status") << g << hubToWindow<G>(&H::setLogStatusRequest, &G::setLogging);
    QTest::newRow("graph: sensors") << g << hubToWindow<G>(&H::updateSensorsRequest, &G::sensorsUpdated);
    QTest::newRow("graph: log loaded") << g << hubToWindow<G>(&H::logFileLoadedRequest, &G::logFileLoaded);
    QTest::newRow("graph: cursor in")
        << g << hubToWindow<G>(&H::mouseOverTimestampRequest, &G::externalTimestampMoved);
    QTest::newRow("graph: values") << g << hubToWindow<G>(&H::valueAddedRequest, &G::dataUpdated);
    QTest::newRow("graph: store logging") << g << storeLogging<G>(&G::setLogging);
    QTest::newRow("graph: cursor out")
        << g << windowToHub<G>(&G::mouseOverTimestamp, &H::mouseOverTimestampMoved);
    QTest::newRow("graph: unit") << g << windowToHub<G>(&G::unitChanged, &H::unitChanged);

    using S = WidgetLogSensors;
    QTest::newRow("sensors: sensors") << s << hubToWindow<S>(&H::updateSensorsRequest, &S::updateItems);
    QTest::newRow("sensors: values") << s << hubToWindow<S>(&H::valueAddedRequest, &S::updateLoggedValues);
    QTest::newRow("sensors: log status") << s << hubToWindow<S>(&H::setLogStatusRequest, &S::setLogStatus);
    QTest::newRow("sensors: store logging") << s << storeLogging<S>(&S::setLogStatus);
    QTest::newRow("sensors: reset") << s << windowToHub<S>(&S::sensorsReset, &H::sensorsCleared);
    QTest::newRow("sensors: logging") << s << windowToHub<S>(&S::loggingSet, &H::logStatusChanged);
    QTest::newRow("sensors: double click")
        << s << windowToHub<S>(&S::sensorDblClick, &H::addSensorToActiveWidget);
    QTest::newRow("sensors: KML") << s << windowToHub<S>(&S::exportGPSRequest, &H::GPSExport);

    using T = WidgetDataTable;
    QTest::newRow("table: add sensor") << t << hubToWindow<T>(&H::addSensorRequest, &T::addData);
    QTest::newRow("table: sensors") << t << hubToWindow<T>(&H::updateSensorsRequest, &T::sensorsUpdated);
    QTest::newRow("table: values") << t << hubToWindow<T>(&H::valueAddedRequest, &T::dataUpdated);

    QTest::newRow("models: activated")
        << m << windowToHub<WidgetModel>(&WidgetModel::modelActivated, &H::modelActivated);
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
