#include "telemetry/TableSampler.h"
#include "telemetry/TelemetryVar.h"
#include "tests/support/TestSamples.h"

#include <QtTest>

#include <algorithm>
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
    void rowsCovered_data();
    void rowsCovered();
    void valuesByMode_data();
    void valuesByMode();
    void rowOnAnUnrepresentableSecond();
    void rowsReadOutOfOrder();
    void shortAndMissingColumnsEndEmpty();
};

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
    const Samples gap = {sample(0, 10), sample(2000, 20)};
    QTest::newRow("gap limit, 2 s apart is a gap")
        << gap << 500 << int(TelemetryVar::HoldWithGapLimit) << QVector<double>{10, nan, nan, nan, 20};
    const Samples limit = {sample(0, 10), sample(1500, 20), sample(3001, 30)};
    QTest::newRow("1500 ms is no gap, 1501 is") << limit << 500 << int(TelemetryVar::HoldWithGapLimit)
                                                << QVector<double>{10, 10, 10, 20, nan, nan, nan, 30};
    QTest::newRow("last sample between steps")
        << Samples{sample(0, 10), sample(950, 20)} << 100 << int(TelemetryVar::Hold)
        << QVector<double>{10, 10, 10, 10, 10, 10, 10, 10, 10, 10, 20};
    QTest::newRow("empty before the first sample")
        << Samples{sample(250, 5), sample(500, 6)} << 100 << int(TelemetryVar::Hold)
        << QVector<double>{nan, nan, nan, 5, 5, 6};
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

// The longest column sets the rows; a shorter one ends empty, a missing variable stays empty.
void tst_TableSampler::shortAndMissingColumnsEndEmpty()
{
    const TelemetryVar longer = makeVar({sample(0, 1), sample(3000, 2)});
    const TelemetryVar short_ = makeVar({sample(0, 5), sample(1000, 6)});
    TableSampler sampler(1000, TelemetryVar::Hold);
    sampler.addColumn(longer);
    sampler.addColumn(nullptr, QStringLiteral("65539:9"));
    sampler.addColumn(short_);
    QCOMPARE(sampler.tableColumns(), 3);
    QCOMPARE(sampler.tableRows(), qint64(4));
    const QVector<double> missing = column(sampler, 1);
    const QVector<double> shorter = column(sampler, 2);
    QVERIFY(std::all_of(missing.begin(), missing.end(), [](double v) { return std::isnan(v); }));
    QCOMPARE(shorter.at(1), 6.0);
    QVERIFY(std::isnan(shorter.at(2)) && std::isnan(shorter.at(3)));
}

QTEST_GUILESS_MAIN(tst_TableSampler)
#include "tst_TableSampler.moc"
