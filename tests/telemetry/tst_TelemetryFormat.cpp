#include "telemetry/TelemetryFormat.h"

#include <QtTest>

class tst_TelemetryFormat : public QObject
{
    Q_OBJECT
private slots:
    void duration_data();
    void duration();
};

void tst_TelemetryFormat::duration_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<QString>("precise");
    QTest::addColumn<QString>("clock");
    const auto row = [](const char *name, qint64 ms, const char *precise, const char *clock) {
        QTest::newRow(name) << ms << QString(precise) << QString(clock);
    };
    row("zero", 0, "0:00:00.000", "00:00:00");
    row("just under a second", 999, "0:00:00.999", "00:00:00");
    row("an hour", 3600000, "1:00:00.000", "01:00:00");
    row("past a day", 90061001, "25:01:01.001", "25:01:01"); // hours do not wrap at a day
}

void tst_TelemetryFormat::duration()
{
    QFETCH(qint64, ms);
    QFETCH(QString, precise);
    QFETCH(QString, clock);
    QCOMPARE(TelemetryFormat::duration(ms), precise);
    QCOMPARE(TelemetryFormat::duration(ms, TelemetryFormat::DurationStyle::Precise), precise);
    QCOMPARE(TelemetryFormat::duration(ms, TelemetryFormat::DurationStyle::Clock), clock);
}

QTEST_APPLESS_MAIN(tst_TelemetryFormat)
#include "tst_TelemetryFormat.moc"
