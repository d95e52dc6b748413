#include "widgets/map/WidgetMapsProperties.h"

#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QPushButton>
#include <QSpinBox>
#include <QtTest>

namespace {
QVector<TelemetrySensor> makeSensors()
{
    TelemetrySensor gps(0xA4010001u, QStringLiteral("GPS"));
    gps.vars() << TelemetryVar(gps.id(), 1, QStringLiteral("Latitude"), QStringLiteral("°"))
               << TelemetryVar(gps.id(), 2, QStringLiteral("Longitude"), QStringLiteral("°"));
    TelemetrySensor vario(0x00170300u, QStringLiteral("Vario %2"));
    vario.vars() << TelemetryVar(vario.id(), 4, QStringLiteral("Climb"), QStringLiteral("m/s"));
    return {gps, vario};
}
} // namespace

class tst_WidgetMapsProperties : public QObject
{
    Q_OBJECT
private slots:
    void comboEntries_data();
    void comboEntries();
    void fixedTextsAndRanges();
    void roundTripKeepsUnshownFields();
    void missingBindingIsKept();
    void enabledFollowsCheckBoxes_data();
    void enabledFollowsCheckBoxes();

private:
    QVector<TelemetrySensor> m_sensors = makeSensors();
};

void tst_WidgetMapsProperties::comboEntries_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("latitude") << "latitude";
    QTest::newRow("longitude") << "longitude";
    QTest::newRow("colour sensor") << "colorSensor";
}

void tst_WidgetMapsProperties::comboEntries()
{
    QFETCH(QString, name);
    WidgetMapsProperties dialog(&m_sensors, MapSettings());
    auto *combo = dialog.findChild<QComboBox *>(name);
    QVERIFY(combo);
    const QStringList expected{"Not set", "GPS: Latitude", "GPS: Longitude", "Vario %2: Climb"};
    const QVector<TelemetrySimplePair> pairs{{0, 0}, {0xA4010001u, 1}, {0xA4010001u, 2}, {0x00170300u, 4}};
    QCOMPARE(combo->count(), expected.size());
    for (int i = 0; i < combo->count(); ++i) {
        QCOMPARE(combo->itemText(i), expected.at(i));
        QCOMPARE(combo->itemData(i).value<TelemetrySimplePair>(), pairs.at(i));
    }
    QCOMPARE(combo->currentIndex(), 0);
    if (name != "colorSensor")
        QCOMPARE(combo->minimumWidth(), 80);
}

void tst_WidgetMapsProperties::fixedTextsAndRanges()
{
    WidgetMapsProperties dialog(nullptr, MapSettings());
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Map properties"));
    QStringList groups;
    for (const QGroupBox *box : dialog.findChildren<QGroupBox *>())
        groups << box->title();
    QCOMPARE(groups, QStringList({"Position sensor", "Line color"}));
    QCOMPARE(dialog.findChild<QCheckBox *>("restrictRoute")->text(),
             QStringLiteral("Restrict displayed route"));
    QCOMPARE(dialog.findChild<QCheckBox *>("customLineColor")->text(), QStringLiteral("Change line color"));
    auto *seconds = dialog.findChild<QSpinBox *>("restrictedSeconds");
    QCOMPARE(seconds->suffix(), QStringLiteral("s"));
    QCOMPARE(seconds->minimum(), 0);
    QCOMPARE(seconds->maximum(), 999);
    for (int i = 0; i < 3; ++i) {
        auto *value = dialog.findChild<QSpinBox *>(QStringLiteral("stopValue%1").arg(i));
        QCOMPARE(value->minimum(), -1000000);
        QCOMPARE(value->maximum(), 1000000);
        QCOMPARE(value->minimumWidth(), 100);
        QCOMPARE(dialog.findChild<QPushButton *>(QStringLiteral("stopColor%1").arg(i))->minimumHeight(), 20);
    }
}

void tst_WidgetMapsProperties::roundTripKeepsUnshownFields()
{
    MapSettings in;
    in.latitude = {0xA4010001u, 2};
    in.longitude = {0xA4010001u, 1};
    in.validity = {7, 8};
    in.altitude = {9, 10};
    in.azimuth = {11, 12};
    in.restrictRoute = true;
    in.restrictedSeconds = 999;
    in.customLineColor = true;
    in.colorSensor = {0x00170300u, 4};
    in.stops.colors = {{QColor("#010203"), QColor("#a0b0c0"), QColor("#fffefd")}};
    in.stops.values = {{-1000000, 5, 1000000}};
    WidgetMapsProperties dialog(&m_sensors, in);
    QCOMPARE(dialog.findChild<QComboBox *>("latitude")->currentText(), QStringLiteral("GPS: Longitude"));
    QCOMPARE(dialog.findChild<QPushButton *>("stopColor1")->styleSheet(),
             QStringLiteral("background-color: #a0b0c0; border-style: none;"));

    const auto pairs = [](const MapSettings &s) {
        return QVector<TelemetrySimplePair>{s.latitude, s.longitude, s.validity,
                                            s.altitude, s.azimuth,   s.colorSensor};
    };
    MapSettings out = dialog.settings();
    QCOMPARE(pairs(out), pairs(in));
    QCOMPARE(out.restrictRoute, true);
    QCOMPARE(out.restrictedSeconds, 999);
    QCOMPARE(out.customLineColor, true);
    QCOMPARE(out.stops.colors, in.stops.colors);
    QCOMPARE(out.stops.values, in.stops.values);

    // Changes made in the dialog come back; a colour set shows on its button.
    dialog.findChild<QComboBox *>("colorSensor")->setCurrentIndex(0);
    dialog.findChild<QSpinBox *>("stopValue2")->setValue(-3);
    dialog.setStopColor(2, QColor(0x12, 0x34, 0x56));
    out = dialog.settings();
    in.colorSensor = {};
    in.stops.values[2] = -3;
    in.stops.colors[2] = QColor(0x12, 0x34, 0x56);
    QCOMPARE(pairs(out), pairs(in));
    QCOMPARE(out.stops.values, in.stops.values);
    QCOMPARE(out.stops.colors, in.stops.colors);
    QCOMPARE(dialog.findChild<QPushButton *>("stopColor2")->styleSheet(),
             QStringLiteral("background-color: #123456; border-style: none;"));
}

void tst_WidgetMapsProperties::missingBindingIsKept()
{
    MapSettings in;
    in.latitude = {0xA4010001u, 9}; // known device, unknown variable
    in.longitude = {0x0BAD0001u, 2};
    for (const QVector<TelemetrySensor> *sensors :
         {&m_sensors, static_cast<QVector<TelemetrySensor> *>(nullptr)}) {
        WidgetMapsProperties dialog(sensors, in);
        const int listed = sensors ? 4 : 1;
        for (const char *name : {"latitude", "longitude"}) {
            auto *combo = dialog.findChild<QComboBox *>(name);
            QCOMPARE(combo->count(), listed + 1);
            QCOMPARE(combo->currentIndex(), listed);
        }
        QCOMPARE(dialog.settings().latitude, in.latitude);
        QCOMPARE(dialog.settings().longitude, in.longitude);
    }
}

void tst_WidgetMapsProperties::enabledFollowsCheckBoxes_data()
{
    QTest::addColumn<QString>("check");
    QTest::addColumn<QStringList>("controlled");
    QTest::newRow("route") << "restrictRoute" << QStringList{"restrictedSeconds"};
    QTest::newRow("line colour") << "customLineColor"
                                 << QStringList{"colorSensor", "stopColor0", "stopColor1", "stopColor2",
                                                "stopValue0",  "stopValue1", "stopValue2"};
}

void tst_WidgetMapsProperties::enabledFollowsCheckBoxes()
{
    QFETCH(QString, check);
    QFETCH(QStringList, controlled);
    WidgetMapsProperties dialog(&m_sensors, MapSettings());
    auto *box = dialog.findChild<QCheckBox *>(check);
    for (bool on : {false, true, false}) {
        box->setChecked(on);
        for (const QString &name : controlled)
            QVERIFY2(dialog.findChild<QWidget *>(name)->isEnabled() == on, qPrintable(name));
    }
}

QTEST_MAIN(tst_WidgetMapsProperties)
#include "tst_WidgetMapsProperties.moc"
