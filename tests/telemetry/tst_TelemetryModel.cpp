#include "telemetry/TelemetryDataPackage.h"
#include "telemetry/TelemetryUnits.h"
#include "telemetry/TelemetryVar.h"
#include "tests/support/TestSamples.h"

#include <QtTest>

#include <cmath>

namespace {
TelemetryVar varWith(const QVector<QPair<qint32, qint32>> &samples, const QString &unit = QString())
{
    TelemetryVar var(1, 1, QStringLiteral("x"), unit);
    for (const auto &s : samples)
        var.append(raw(12, 0, s.second, s.first));
    return var;
}
} // namespace

class tst_TelemetryModel : public QObject
{
    Q_OBJECT
private slots:
    void number_data();
    void number();
    void units_data();
    void units();
    void indexAt_data();
    void indexAt();
    void valueAtTime_data();
    void valueAtTime();
    void hintWalksForwardAndBack();
    void alarmCollapse();
};

void tst_TelemetryModel::number_data()
{
    QTest::addColumn<quint32>("type");
    QTest::addColumn<quint32>("decimals");
    QTest::addColumn<qint32>("value");
    QTest::addColumn<double>("expected");

    QTest::newRow("type 0, 1 decimal") << 0u << 1u << 123 << 12.3;
    QTest::newRow("type 0, no decimals") << 0u << 0u << 123 << 123.0;
    QTest::newRow("type 1 negative") << 1u << 2u << -2555 << -25.55;
    QTest::newRow("type 4") << 4u << 3u << 1234567 << 1234.567;
    QTest::newRow("type 12") << 12u << 1u << 100000 << 10000.0;
    QTest::newRow("only the low byte of decimals counts") << 12u << 0x101u << 55 << 5.5;
    QTest::newRow("time of day") << 5u << 0u << ((13 << 16) | (45 << 8) | 30) << 13 * 3600.0 + 45 * 60 + 30;
    QTest::newRow("date reads month.day") << 5u << 1u << ((24 << 16) | (12 << 8) | 19) << 12.24;
    QTest::newRow("GPS west/south negated") << 9u << 2u << ((50 << 16) | 30000) << -50.5;
    QTest::newRow("GPS longitude flag bit 0 does not negate") << 9u << 1u << ((16 << 16) | 36000) << 16.6;
    QTest::newRow("type 2 is zero") << 2u << 0u << 99 << 0.0;
    QTest::newRow("type 13 is zero") << 13u << 0u << 99 << 0.0;
}

void tst_TelemetryModel::number()
{
    QFETCH(quint32, type);
    QFETCH(quint32, decimals);
    QFETCH(qint32, value);
    QFETCH(double, expected);
    QCOMPARE(raw(type, decimals, value).toNumber(), expected);
}

void tst_TelemetryModel::units_data()
{
    QTest::addColumn<QString>("unit");
    QTest::addColumn<QString>("target");
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("expected");

    const auto row = [](const char *unit, const char *target, double value, double expected) {
        QTest::newRow(
            qPrintable(QStringLiteral("%1 in %2").arg(QString::fromUtf8(unit), QString::fromUtf8(target))))
            << QString::fromUtf8(unit) << QString::fromUtf8(target) << value << expected;
    };
    row("m/s", "km/h", 10, 36);
    row("°C", "°F", 20, 68);
    row("m", "ft.", 100, 328.084);
    row("kPa", "hPa", 101.3, 1013);
    row("ml", "l", 1500, 1.5);
    row("mlM", "l/m", 250, 0.25);
    row("km/h", "mph", 50, 50); // an unknown unit never converts
    row("M", "km", 1000, 1000); // unit texts compare exactly
}

void tst_TelemetryModel::units()
{
    QFETCH(QString, unit);
    QFETCH(QString, target);
    QFETCH(double, value);
    QFETCH(double, expected);
    TelemetryVar var(1, 1, QStringLiteral("v"), unit);
    const int index = TelemetryUnits::targetIndex(var.unitCategory(), target);
    if (index >= 0)
        var.setUnitTarget(quint8(index));
    var.append(raw(12, 3, qint32(std::lround(value * 1000))));
    QVERIFY(qAbs(var.numberAt(0) - expected) < 1e-9);
}

void tst_TelemetryModel::indexAt_data()
{
    QTest::addColumn<qint64>("t");
    QTest::addColumn<int>("expected");
    // Samples at 100, 200, 200, 300 ms.
    QTest::newRow("before the first") << qint64(50) << 0;
    QTest::newRow("between") << qint64(150) << 0;
    QTest::newRow("exact on a repeated time takes the last") << qint64(200) << 2;
    QTest::newRow("exact last") << qint64(300) << 3;
    QTest::newRow("after the last") << qint64(301) << -1;
}

void tst_TelemetryModel::indexAt()
{
    QFETCH(qint64, t);
    QFETCH(int, expected);
    const TelemetryVar var = varWith({{100, 1}, {200, 2}, {200, 3}, {300, 4}});
    QCOMPARE(var.indexAt(t), expected);
    QCOMPARE(TelemetryVar().indexAt(t), -1);
}

void tst_TelemetryModel::valueAtTime_data()
{
    QTest::addColumn<int>("gap");
    QTest::addColumn<double>("seconds");
    QTest::addColumn<int>("mode");
    QTest::addColumn<double>("expected"); // NaN compares as "not-a-number expected"

    const double nan = std::nan("");
    QTest::newRow("linear halfway") << 1000 << 1.5 << 0 << 15.0;
    QTest::newRow("hold halfway") << 1000 << 1.5 << 1 << 10.0;
    QTest::newRow("gap limit, 2000 ms apart") << 2000 << 1.5 << 2 << nan;
    QTest::newRow("gap limit, exactly 1500 apart holds") << 1500 << 1.5 << 2 << 10.0;
    QTest::newRow("gap limit, exactly 1501 apart is a gap") << 1501 << 1.5 << 2 << nan;
    QTest::newRow("gap limit, on the sample itself") << 2000 << 1.0 << 2 << 10.0;
    QTest::newRow("after the last sample") << 1000 << 99.0 << 2 << 20.0;
    QTest::newRow("negative time takes the first") << 1000 << -1.0 << 0 << 10.0;
    QTest::newRow("before the first, not negative") << 1000 << 0.5 << 0 << nan;
    QTest::newRow("unknown mode") << 1000 << 1.5 << 7 << nan;
}

void tst_TelemetryModel::valueAtTime()
{
    QFETCH(int, gap);
    QFETCH(double, seconds);
    QFETCH(int, mode);
    QFETCH(double, expected);
    const TelemetryVar var = varWith({{1000, 10}, {1000 + gap, 20}});
    const double got = var.valueAtTime(seconds, mode);
    if (std::isnan(expected))
        QVERIFY2(std::isnan(got), qPrintable(QString::number(got)));
    else
        QCOMPARE(got, expected);
    QVERIFY(std::isnan(TelemetryVar().valueAtTime(seconds, mode)));
}

void tst_TelemetryModel::hintWalksForwardAndBack()
{
    QVector<QPair<qint32, qint32>> samples;
    for (int i = 0; i < 1000; ++i)
        samples.append({i * 10 + 10, i});
    const TelemetryVar var = varWith(samples);
    int hint = 0;
    for (int t = 15; t < 9000; t += 7) {
        const double expected = var.valueAtTime(t / 1000.0, 1);
        QCOMPARE(var.valueAtTime(t / 1000.0, 1, &hint), expected);
        QCOMPARE(var.values().at(hint).timestamp <= t, true);
    }
    // A stale hint far ahead must not produce a wrong answer.
    hint = 900;
    QCOMPARE(var.valueAtTime(0.105, 1, &hint), 9.0);
    QCOMPARE(hint, 9);
    hint = -5;
    QCOMPARE(var.valueAtTime(0.105, 0, &hint), 9.5);
}

void tst_TelemetryModel::alarmCollapse()
{
    TelemetryDataPackage p;
    QVERIFY(p.acceptAlarm('V', 1000));
    QVERIFY(!p.acceptAlarm('V', 2000)); // same alarm within 1500 ms
    QVERIFY(!p.acceptAlarm('V', 2500)); // 1500 ms since the kept one is not "more than"
    QVERIFY(p.acceptAlarm('V', 2501));  // more than 1500 ms
    QVERIFY(p.acceptAlarm('C', 2600));  // another character at once
    QVERIFY(p.acceptAlarm('V', 2700));
    QCOMPARE(p.lastAlarm(), quint8('V'));
    QCOMPARE(p.lastAlarmTime(), qint64(2700));
}

QTEST_APPLESS_MAIN(tst_TelemetryModel)
#include "tst_TelemetryModel.moc"
