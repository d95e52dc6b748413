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
    QTest::newRow("zero") << qint64(0) << "0:00:00.000"
                          << "00:00:00";
    QTest::newRow("just under a second") << qint64(999) << "0:00:00.999"
                                         << "00:00:00";
    QTest::newRow("just under a minute") << qint64(59999) << "0:00:59.999"
                                         << "00:00:59";
    QTest::newRow("an hour") << qint64(3600000) << "1:00:00.000"
                             << "01:00:00";
    // 25 h 1 min 1 s 1 ms: hours do not wrap at a day.
    QTest::newRow("past a day") << qint64(90061001) << "25:01:01.001"
                                << "25:01:01";
    QTest::newRow("a hundred hours") << qint64(360000000) << "100:00:00.000"
                                     << "100:00:00";
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
