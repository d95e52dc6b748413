#include "LayoutTestSupport.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/TestSamples.h"
#include "widgets/quick/SensorModel.h"
#include "widgets/quick/WidgetDial.h"
#include "widgets/quick/WidgetValuesQuick.h"

#include <QQuickItem>
#include <QSignalSpy>
#include <QtTest>

namespace {
constexpr quint32 kBattery = 0xA3F10010; // beyond a signed 32-bit number, as real device ids are
constexpr quint32 kVario = 0x00020001;

// Battery: voltage 12.6 V falling to 11.1 V (one decimal), current; vario: altitude in m.
TelemetryDataPackage flight()
{
    TelemetryDataPackage p;
    p.addDevice(kBattery, QStringLiteral("Battery"));
    p.addDevice(kVario, QStringLiteral("Vario"));
    TelemetryVar voltage(kBattery, 1, QStringLiteral("Voltage"), QStringLiteral("V"));
    TelemetryVar current(kBattery, 2, QStringLiteral("Current"), QStringLiteral("A"));
    TelemetryVar altitude(kVario, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    const qint32 volts[] = {126, 124, 119, 111, 115};
    for (int i = 0; i < 5; ++i) {
        voltage.append(raw(1, 1, volts[i], 1000 * i));
        current.append(raw(1, 2, 1500 - 100 * i, 1000 * i));
        altitude.append(raw(1, 0, 10 * i * i, 1000 * i));
    }
    p.devices()[0].vars() << voltage << current;
    p.devices()[1].vars() << altitude;
    return p;
}
} // namespace

class tst_QuickWindows : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void sensorModelRolesAndMoves();
    void valuesRows_data();
    void valuesRows();
    void layouts_data();
    void layouts();
    void dialFollowsItsVariable();

private:
    TelemetryData m_store;
};

void tst_QuickWindows::initTestCase()
{
    qputenv("QT_QUICK_BACKEND", "software");
    m_store.setPackage(flight());
}

void tst_QuickWindows::sensorModelRolesAndMoves()
{
    SensorModel model;
    const QHash<int, QByteArray> roles = model.roleNames();
    QByteArrayList names;
    for (int role = Qt::UserRole + 1; role <= Qt::UserRole + 8; ++role)
        names << roles.value(role);
    QCOMPARE(names,
             QByteArrayList({"label", "unit", "value", "minimum", "maximum", "param", "decimals", "name"}));

    for (quint32 p : {1u, 2u, 3u, 4u}) {
        SensorModel::Row row;
        row.pair = {kBattery, p};
        row.label = QStringLiteral("r%1").arg(p);
        QVERIFY(model.append(row));
    }
    QVERIFY(!model.append(model.rows().at(0))); // a variable has one row
    const auto order = [&model] {
        QString text;
        for (const SensorModel::Row &r : model.rows())
            text += r.label;
        return text;
    };
    QSignalSpy moved(&model, &QAbstractItemModel::rowsMoved);
    model.move(0, 2); // down: lands where row 2 was
    QCOMPARE(order(), QStringLiteral("r2r3r1r4"));
    model.move(3, 0);
    QCOMPARE(order(), QStringLiteral("r4r2r3r1"));
    model.move(1, 9); // out of range: nothing
    QCOMPARE(moved.count(), 2);
    QCOMPARE(model.data(model.index(1), SensorModel::ParamRole).toUInt(), 2u);
    model.remove(0);
    QCOMPARE(order(), QStringLiteral("r2r3r1"));
    model.clear();
    QCOMPARE(model.rowCount(), 0);
}

void tst_QuickWindows::valuesRows_data()
{
    QTest::addColumn<bool>("latest");
    QTest::addColumn<long>("cursor");
    QTest::addColumn<QString>("voltage"); // value, minimum, maximum
    QTest::newRow("latest") << true << 0L << "11.5 11.1 12.6";
    QTest::newRow("under the cursor") << false << 2500L << "11.9 11.1 12.6";
    QTest::newRow("cursor before the first sample") << false << -500L << " 11.1 12.6";
}

void tst_QuickWindows::valuesRows()
{
    QFETCH(bool, latest);
    QFETCH(long, cursor);
    QFETCH(QString, voltage);
    WidgetValuesQuick values(&m_store);
    WidgetValuesQuick::wire(&values, nullptr, &m_store);
    QVERIFY(values.scene());
    values.setDisplayLatest(latest);
    values.addData(m_store.sensors()->at(0).var(1));
    values.addData(m_store.sensors()->at(1).var(1));
    values.mouseOverTimestampMoved(cursor, false);
    values.sensorsUpdated(m_store.sensors());
    const SensorModel::Row &row = values.model()->rows().at(0);
    QCOMPARE(QStringList({row.value, row.minimum, row.maximum}).join(' '), voltage);
    QCOMPARE(row.name, QStringLiteral("Battery"));
    QCOMPARE(row.label, QStringLiteral("Voltage"));
    QCOMPARE(row.decimals, 1);
    QCOMPARE(values.model()->rows().at(1).maximum, QStringLiteral("160"));
}

void tst_QuickWindows::layouts_data()
{
    QTest::addColumn<bool>("dial");
    QTest::addColumn<quint8>("flag");
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("dial, session")
        << true << SerializableWidget::kForDatabase
        << QByteArray(R"({"Type":"Dial","Sensor":2750480400,"Param":1,"Props":[0,-1250,4075,0]})");
    QTest::newRow("dial, file") << true << SerializableWidget::kForFile << QByteArray(R"({"Type":"Dial"})");
    QTest::newRow("values, session")
        << false << SerializableWidget::kForDatabase
        << QByteArray(
               R"({"Type":"Values","DisplayLatest":0,"Sensors":[[131073,1],[2750480400,2],[2750480400,9]]})");
    QTest::newRow("values, file") << false << SerializableWidget::kForFile
                                  << QByteArray(R"({"Type":"Values","DisplayLatest":1})");
}

void tst_QuickWindows::layouts()
{
    QFETCH(bool, dial);
    QFETCH(quint8, flag);
    QFETCH(QByteArray, json);
    std::unique_ptr<QuickWindow> window;
    if (dial)
        window = std::make_unique<WidgetDial>(&m_store);
    else
        window = std::make_unique<WidgetValuesQuick>(&m_store);
    QCOMPARE(window->load(parsed(json)), 0);
    QCOMPARE(saved(*window, flag), json);
    if (auto *d = dynamic_cast<WidgetDial *>(window.get()); d && flag == SerializableWidget::kForDatabase) {
        // Hundredths in the layout.
        QCOMPARE(d->manualMinimum(), -12.5);
        QCOMPARE(d->manualMaximum(), 40.75);
        QVERIFY(!d->autoRange());
    }
}

void tst_QuickWindows::dialFollowsItsVariable()
{
    WidgetDial dial(&m_store);
    WidgetDial::wire(&dial, nullptr, &m_store);
    QQuickItem *scene = dial.scene();
    QVERIFY(scene);
    QCOMPARE(scene->property("sensorLoaded").toBool(), false);
    dial.addVariable(m_store.sensors()->at(0).var(1));
    QCOMPARE(scene->property("sensorLoaded").toBool(), true);
    QCOMPARE(scene->property("min").toDouble(), 11.1);
    QCOMPARE(scene->property("max").toDouble(), 12.6);
    QCOMPARE(scene->property("value").toDouble(), 11.5);
    QCOMPARE(scene->property("name").toString(), QStringLiteral("Voltage"));
    QCOMPARE(scene->property("unit").toString(), QStringLiteral("V"));

    // Dropped from the sensor list through the scene.
    QMetaObject::invokeMethod(scene, "sensorDropped", Q_ARG(QVariant, double(kVario)), Q_ARG(QVariant, 1.0));
    QCOMPARE(dial.variable(), TelemetrySimplePair(kVario, 1));
    QCOMPARE(scene->property("value").toDouble(), 160.0);
    dial.setRange(false, -5, 5);
    QCOMPARE(scene->property("autoRange").toBool(), false);
    QCOMPARE(scene->property("max").toDouble(), 5.0);
    dial.removeSensor();
    QCOMPARE(scene->property("sensorLoaded").toBool(), false);
}

QTEST_MAIN(tst_QuickWindows)
#include "tst_QuickWindows.moc"
