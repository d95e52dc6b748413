#include "telemetry/TableSampler.h"
#include "telemetry/TelemetryVar.h"
#include "tests/support/TestSamples.h"

#include <QRandomGenerator>
#include <QtTest>

#include <cmath>
#include <vector>

namespace {
using Samples = QVector<TelemetryValue>;

TelemetryVar makeVar(const Samples &samples, const QString &label = QStringLiteral("Voltage"),
                     const QString &unit = QStringLiteral("V"))
{
    TelemetryVar v(65539, 3, label, unit);
    v.values() = samples;
    return v;
}

// All rows of one column through the streaming interface.
QVector<double> column(TableSampler &sampler, int c = 0)
{
    QVector<double> out;
    std::vector<double> row(size_t(sampler.tableColumns()));
    for (qint64 r = 0; r < sampler.tableRows(); ++r) {
        sampler.readRow(r, row.data());
        out.append(row[size_t(c)]);
    }
    return out;
}

bool same(double a, double b)
{
    return (std::isnan(a) && std::isnan(b)) || a == b;
}
} // namespace

Q_DECLARE_METATYPE(Samples)

class tst_TableSampler : public QObject
{
    Q_OBJECT
private slots:
    void modeFromSwitches_data();
    void modeFromSwitches();
    void rowsCovered_data();
    void rowsCovered();
    void valuesByMode_data();
    void valuesByMode();
    void sameRulesAsTheStore_data();
    void sameRulesAsTheStore();
    void rowOnAnUnrepresentableSecond();
    void headerShowsConvertedUnit();
    void shorterColumnEndsEmpty();
    void rowsReadOutOfOrder();
    void missingVariableIsAnEmptyColumn();
};

void tst_TableSampler::modeFromSwitches_data()
{
    QTest::addColumn<bool>("smooth");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<int>("mode");
    QTest::newRow("neither holds") << false << false << int(TelemetryVar::Hold);
    QTest::newRow("valid keeps gaps") << false << true << int(TelemetryVar::HoldWithGapLimit);
    QTest::newRow("smooth") << true << false << int(TelemetryVar::Linear);
    QTest::newRow("smooth wins over valid") << true << true << int(TelemetryVar::Linear);
}

void tst_TableSampler::modeFromSwitches()
{
    QFETCH(bool, smooth);
    QFETCH(bool, valid);
    QFETCH(int, mode);
    QCOMPARE(TableSampler::modeFor(smooth, valid), mode);
}

void tst_TableSampler::rowsCovered_data()
{
    QTest::addColumn<Samples>("samples");
    QTest::addColumn<int>("period");
    QTest::addColumn<qint64>("rows");
    QTest::newRow("no samples") << Samples{} << 100 << qint64(0);
    QTest::newRow("last exactly on a step") << Samples{sample(0, 1), sample(1000, 2)} << 100 << qint64(11);
    // The step at or after the last sample shows it, though it lies beyond the flight.
    QTest::newRow("last just before a step") << Samples{sample(0, 1), sample(999, 2)} << 100 << qint64(11);
    QTest::newRow("last just after a step") << Samples{sample(0, 1), sample(1001, 2)} << 100 << qint64(12);
    QTest::newRow("period longer than the flight")
        << Samples{sample(0, 1), sample(1000, 2)} << 3000 << qint64(2);
    QTest::newRow("late start still counts from 0") << Samples{sample(5000, 1)} << 1000 << qint64(6);
    QTest::newRow("only before the start") << Samples{sample(-50, 1)} << 10 << qint64(0);
}

void tst_TableSampler::rowsCovered()
{
    QFETCH(Samples, samples);
    QFETCH(int, period);
    QFETCH(qint64, rows);
    const TelemetryVar var = makeVar(samples);
    QCOMPARE(TableSampler::rowsFor(var, period), rows);
    TableSampler sampler(period, TelemetryVar::Hold);
    sampler.addColumn(var);
    QCOMPARE(sampler.tableRows(), rows);
}

void tst_TableSampler::valuesByMode_data()
{
    QTest::addColumn<Samples>("samples");
    QTest::addColumn<int>("period");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QVector<double>>("expected");
    const double nan = std::nan("");
    const Samples second = {sample(0, 10), sample(1000, 20)};
    QTest::newRow("linear, 1 s apart")
        << second << 250 << int(TelemetryVar::Linear) << QVector<double>{10, 12.5, 15, 17.5, 20};
    QTest::newRow("hold, 1 s apart") << second << 250 << int(TelemetryVar::Hold)
                                     << QVector<double>{10, 10, 10, 10, 20};
    QTest::newRow("gap limit, 1 s apart is no gap")
        << second << 250 << int(TelemetryVar::HoldWithGapLimit) << QVector<double>{10, 10, 10, 10, 20};
    const Samples gap = {sample(0, 10), sample(2000, 20)};
    QTest::newRow("gap limit, 2 s apart is a gap")
        << gap << 500 << int(TelemetryVar::HoldWithGapLimit) << QVector<double>{10, nan, nan, nan, 20};
    QTest::newRow("hold bridges the gap")
        << gap << 500 << int(TelemetryVar::Hold) << QVector<double>{10, 10, 10, 10, 20};
    const Samples limit = {sample(0, 10), sample(1500, 20), sample(3001, 30)};
    QTest::newRow("1500 ms is no gap, 1501 is") << limit << 500 << int(TelemetryVar::HoldWithGapLimit)
                                                << QVector<double>{10, 10, 10, 20, nan, nan, nan, 30};
    QTest::newRow("last sample between steps")
        << Samples{sample(0, 10), sample(950, 20)} << 100 << int(TelemetryVar::Hold)
        << QVector<double>{10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 20};
    QTest::newRow("empty before the first sample")
        << Samples{sample(250, 5), sample(500, 6)} << 100 << int(TelemetryVar::Hold)
        << QVector<double>{nan, nan, nan, 5, 5, 6};
    QTest::newRow("decimals") << Samples{sample(0, 123, 1), sample(100, 456, 2)} << 50
                              << int(TelemetryVar::Linear)
                              << QVector<double>{12.3, 12.3 + (4.56 - 12.3) * 0.5, 4.56};
    QTest::newRow("equal timestamps: the later sample")
        << Samples{sample(0, 1), sample(100, 2), sample(100, 3), sample(200, 4)} << 100
        << int(TelemetryVar::Hold) << QVector<double>{1, 3, 4};
}

void tst_TableSampler::valuesByMode()
{
    QFETCH(Samples, samples);
    QFETCH(int, period);
    QFETCH(int, mode);
    QFETCH(QVector<double>, expected);
    const TelemetryVar var = makeVar(samples);
    TableSampler sampler(period, mode);
    sampler.addColumn(var);
    const QVector<double> got = column(sampler);
    QCOMPARE(got.size(), expected.size());
    for (int r = 0; r < got.size(); ++r) {
        if (!same(got[r], expected[r]))
            QFAIL(qPrintable(QStringLiteral("row %1: %2, expected %3").arg(r).arg(got[r]).arg(expected[r])));
    }
}

// The table must show what the store's own value-at-time gives, at every time it can be asked for
// exactly in seconds; a random flight with irregular steps, gaps and repeated timestamps.
void tst_TableSampler::sameRulesAsTheStore_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("period");
    for (int mode :
         {int(TelemetryVar::Linear), int(TelemetryVar::Hold), int(TelemetryVar::HoldWithGapLimit)}) {
        for (int period : {1, 10, 100, 250, 1000}) {
            QTest::addRow("mode %d, period %d", mode, period) << mode << period;
        }
    }
}

void tst_TableSampler::sameRulesAsTheStore()
{
    QFETCH(int, mode);
    QFETCH(int, period);
    QRandomGenerator random(20260 + quint32(mode) * 7 + quint32(period));
    Samples samples;
    qint32 t = qint32(random.bounded(300));
    for (int i = 0; i < 4000; ++i) {
        samples.append(sample(t, qint32(random.bounded(-5000, 5000)), quint32(random.bounded(3))));
        const int r = random.bounded(100);
        t += r < 5 ? 0 : r < 10 ? 1500 + random.bounded(2) : r < 12 ? 3000 : random.bounded(1, 200);
    }
    const TelemetryVar var = makeVar(samples);
    TableSampler sampler(period, mode);
    sampler.addColumn(var);
    const QVector<double> got = column(sampler);
    int compared = 0;
    for (int r = 0; r < got.size(); ++r) {
        const qint64 ms = qint64(r) * period;
        const double seconds = ms / 1000.0;
        if (seconds * 1000.0 != double(ms))
            continue;
        ++compared;
        const double expected = var.valueAtTime(seconds, mode);
        if (!same(got[r], expected))
            QFAIL(qPrintable(
                QStringLiteral("at %1 ms: %2, the store says %3").arg(ms).arg(got[r]).arg(expected)));
    }
    QVERIFY(compared > got.size() / 2);
}

// 1001 ms has no exact double in seconds; asking a hair early would give the sample before the one on
// the row.
// 1001 ms has no exact double in seconds; asking a hair early would give the sample before the one on
// the row. In every mode (the next sample is far away, but a row exactly on a sample shows it).
void tst_TableSampler::rowOnAnUnrepresentableSecond()
{
    QVERIFY((1001 / 1000.0) * 1000.0 != 1001.0);
    const TelemetryVar var = makeVar({sample(0, 3), sample(1001, 7), sample(9000, 9)});
    for (int mode :
         {int(TelemetryVar::Hold), int(TelemetryVar::Linear), int(TelemetryVar::HoldWithGapLimit)}) {
        TableSampler sampler(1001, mode);
        sampler.addColumn(var);
        QCOMPARE(column(sampler).at(1), 7.0);
    }
}

void tst_TableSampler::headerShowsConvertedUnit()
{
    TelemetryVar speed =
        makeVar({sample(0, 10), sample(1000, 20)}, QStringLiteral("Speed"), QStringLiteral("m/s"));
    speed.setUnitTarget(1);
    TelemetryVar temperature =
        makeVar({sample(0, 20)}, QStringLiteral("Teplota"), QString::fromUtf8("\u00B0C"));
    temperature.setUnitTarget(1);
    TableSampler sampler(1000, TelemetryVar::Hold);
    sampler.addColumn(speed);
    sampler.addColumn(temperature);
    QCOMPARE(sampler.columnHeader(0), QStringLiteral("Speed [km/h]"));
    QCOMPARE(sampler.columnHeader(1), QString::fromUtf8("Teplota [\u00B0F]"));
    double row[2];
    sampler.readRow(0, row);
    QCOMPARE(row[0], 36.0);
    QCOMPARE(row[1], 68.0);
}

void tst_TableSampler::shorterColumnEndsEmpty()
{
    const TelemetryVar longer = makeVar({sample(0, 1), sample(3000, 2)});
    const TelemetryVar shorter = makeVar({sample(0, 5), sample(1000, 6)});
    TableSampler sampler(1000, TelemetryVar::Hold);
    sampler.addColumn(longer);
    sampler.addColumn(shorter);
    QCOMPARE(sampler.tableRows(), qint64(4));
    const QVector<double> second = column(sampler, 1);
    QCOMPARE(second.at(1), 6.0);
    QVERIFY(std::isnan(second.at(2)));
    QVERIFY(std::isnan(second.at(3)));
}

void tst_TableSampler::rowsReadOutOfOrder()
{
    Samples samples;
    for (int i = 0; i < 100; ++i)
        samples.append(sample(i * 37, i));
    const TelemetryVar var = makeVar(samples);
    TableSampler forward(50, TelemetryVar::Linear);
    forward.addColumn(var);
    const QVector<double> expected = column(forward);
    TableSampler jumping(50, TelemetryVar::Linear);
    jumping.addColumn(var);
    for (qint64 r : {70, 3, 71, 0, 40, 39, 73}) {
        double v;
        jumping.readRow(r, &v);
        QCOMPARE(v, expected.at(int(r)));
    }
}

void tst_TableSampler::missingVariableIsAnEmptyColumn()
{
    const TelemetryVar var = makeVar({sample(0, 1), sample(500, 2)});
    TableSampler sampler(100, TelemetryVar::Hold);
    sampler.addColumn(nullptr, QStringLiteral("65539:9"));
    sampler.addColumn(var);
    QCOMPARE(sampler.tableColumns(), 2);
    QCOMPARE(sampler.tableRows(), qint64(6));
    double row[2];
    sampler.readRow(5, row);
    QVERIFY(std::isnan(row[0]));
    QCOMPARE(row[1], 2.0);
}

QTEST_GUILESS_MAIN(tst_TableSampler)
#include "tst_TableSampler.moc"
