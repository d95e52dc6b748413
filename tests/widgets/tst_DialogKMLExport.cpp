#include "telemetry/TelemetrySensor.h"
#include "tests/support/TestSamples.h"
#include "widgets/sensors/DialogKMLExport.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QPushButton>
#include <QtTest>

namespace {
constexpr quint32 kGps = 0x0A10u | (1u << 16);
constexpr quint32 kVario = 0x0A30u | (1u << 16);

TelemetryVar makeVar(quint32 id, quint32 param, const QString &label, const QString &unit, quint32 type,
                     quint32 flags)
{
    TelemetryVar v(id, param, label, unit);
    v.append(raw(type, flags, (50 << 16) | 1000));
    return v;
}

QVector<TelemetrySensor> fixture(bool withLongitude)
{
    TelemetrySensor gps(kGps, QStringLiteral("GPS"));
    gps.vars() << makeVar(kGps, 1, QStringLiteral("Latitude"), QStringLiteral("°"), 9, 0);
    if (withLongitude)
        gps.vars() << makeVar(kGps, 2, QStringLiteral("Longitude"), QStringLiteral("°"), 9, 1);
    gps.vars() << makeVar(kGps, 3, QStringLiteral("GPS Altitude"), QStringLiteral("m"), 1, 1)
               << makeVar(kGps, 4, QStringLiteral("Speed"), QStringLiteral("m/s"), 1, 1);
    // A western longitude without a label.
    if (withLongitude)
        gps.vars() << makeVar(kGps, 12, QString(), QStringLiteral("m"), 9, 3);
    TelemetrySensor vario(kVario, QString());
    vario.vars() << makeVar(kVario, 1, QStringLiteral("Höhe"), QStringLiteral("m"), 12, 1)
                 << makeVar(kVario, 2, QStringLiteral("Hoehe"), QStringLiteral("m"), 12, 1);
    return {gps, vario};
}

QStringList items(const QComboBox *combo)
{
    QStringList texts;
    for (int i = 0; i < combo->count(); ++i)
        texts << combo->itemText(i);
    return texts;
}
} // namespace

class tst_DialogKMLExport : public QObject
{
    Q_OBJECT
private slots:
    void candidates();
    void okEnabled_data();
    void okEnabled();
    void followsTheSelection();
};

// Which variables are offered is the KML writer's choice (tested with it); here how the dialog shows them.
void tst_DialogKMLExport::candidates()
{
    const QVector<TelemetrySensor> sensors = fixture(true);
    DialogKMLExport dialog(&sensors);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("KML Export Properties"));
    QCOMPARE((QList<QComboBox *>{dialog.findChild<QComboBox *>("comboLat"),
                                 dialog.findChild<QComboBox *>("comboLon"),
                                 dialog.findChild<QComboBox *>("comboAlt")}),
             (QList<QComboBox *>{dialog.latitudeCombo(), dialog.longitudeCombo(), dialog.altitudeCombo()}));
    QCOMPARE(items(dialog.longitudeCombo()), QStringList({"GPS 2. Longitude\t[°]", "GPS12. Param"}));
    QCOMPARE(items(dialog.altitudeCombo()),
             QStringList({"GPS 3. GPS Altitude\t[m]", "Unnamed sensor 2. Hoehe\t[m]"}));
    // Each item carries its variable; the first of each is chosen.
    QCOMPARE(dialog.altitudeCombo()->itemData(1).value<TelemetrySimplePair>(),
             TelemetrySimplePair(kVario, 2));
    QCOMPARE((QList<const TelemetryVar *>{dialog.latitude(), dialog.longitude(), dialog.altitude()}),
             (QList<const TelemetryVar *>{sensors.at(0).var(1), sensors.at(0).var(2), sensors.at(0).var(3)}));
}

void tst_DialogKMLExport::okEnabled_data()
{
    QTest::addColumn<int>("data"); // 0 none, 1 no longitude, 2 full
    QTest::addColumn<bool>("enabled");
    QTest::newRow("no recording") << 0 << false;
    QTest::newRow("no longitude") << 1 << false;
}

void tst_DialogKMLExport::okEnabled()
{
    QFETCH(int, data);
    QFETCH(bool, enabled);
    const QVector<TelemetrySensor> sensors = fixture(data == 2);
    DialogKMLExport dialog(data == 0 ? nullptr : &sensors);
    QCOMPARE(dialog.buttons()->button(QDialogButtonBox::Ok)->isEnabled(), enabled);
}

void tst_DialogKMLExport::followsTheSelection()
{
    const QVector<TelemetrySensor> sensors = fixture(true);
    DialogKMLExport dialog(&sensors);
    QPushButton *ok = dialog.buttons()->button(QDialogButtonBox::Ok);
    dialog.longitudeCombo()->setCurrentIndex(-1);
    QVERIFY(!ok->isEnabled());
    dialog.longitudeCombo()->setCurrentIndex(1);
    QVERIFY(ok->isEnabled());
    QCOMPARE(dialog.longitude(), sensors.at(0).var(12));
    // Altitude is optional.
    dialog.altitudeCombo()->setCurrentIndex(-1);
    QVERIFY(ok->isEnabled());
    QCOMPARE(dialog.altitude(), nullptr);
}

QTEST_MAIN(tst_DialogKMLExport)
#include "tst_DialogKMLExport.moc"
