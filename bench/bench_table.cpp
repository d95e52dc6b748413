// Data table export: a flight of an hour sampled every 10 ms into 20 columns, written as CSV and as an
// Excel workbook; rows per second, MB/s and peak memory above the loaded flight. The workbook is also
// written for a quarter of the flight, to show that its memory does not grow with the row count.
// Usage: bench_table [SECONDS] (default 3600)
#include "BenchUtil.h"

#include "telemetry/CsvTableWriter.h"
#include "telemetry/LogGenerator.h"
#include "telemetry/TableSampler.h"
#include "telemetry/XlsxTableWriter.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>
#include <vector>

using namespace BenchUtil;

namespace {
constexpr int kPeriodMs = 10;
constexpr int kColumns = 20;

struct Figures
{
    double ms = 0;
    qint64 bytes = 0;
    qint64 rows = 0;
    qint64 peakAboveBaseline = 0;
    bool ok = false;
};

TableSampler makeSampler(const QVector<const TelemetryVar *> &vars, int mode)
{
    TableSampler sampler(kPeriodMs, mode);
    for (const TelemetryVar *var : vars)
        sampler.addColumn(*var);
    return sampler;
}

template <typename Work> Figures measure(Work work)
{
    Figures f;
    resetPeakRss();
    const qint64 baseline = procStatusBytes("VmRSS");
    f.ms = msOf([&] { f.ok = work(&f); });
    f.peakAboveBaseline = procStatusBytes("VmHWM") - baseline;
    return f;
}

void print(const char *what, const Figures &f)
{
    std::printf("%-34s %8.0f ms  %9.0f rows/s  %7.1f MB  %6.0f MB/s  peak +%.1f MB%s\n", what, f.ms,
                f.rows / (f.ms / 1000.0), f.bytes / 1e6, mbPerSecond(f.bytes, f.ms),
                f.peakAboveBaseline / 1e6, f.ok ? "" : "  FAILED");
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 3600;
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: bench_table [SECONDS]\n");
        return 2;
    }
    LogGenerator::Options options;
    options.seconds = seconds;
    options.rate = 10;
    options.devices = 7;
    options.seed = 1;
    const TelemetryDataPackage package = LogGenerator::generate(options);
    QVector<const TelemetryVar *> vars;
    for (const TelemetrySensor &device : package.devices()) {
        for (const TelemetryVar &var : device.vars()) {
            if (vars.size() < kColumns && var.count() > 0)
                vars.append(&var);
        }
    }
    std::printf("flight: %d s, %lld samples; table: %d columns every %d ms\n", seconds,
                static_cast<long long>(package.sampleCount()), int(vars.size()), kPeriodMs);
    if (vars.size() < kColumns) {
        std::fprintf(stderr, "bench_table: the generated flight has only %d variables\n", int(vars.size()));
        return 1;
    }

    QTemporaryDir dir;
    std::vector<double> row(kColumns);
    for (int mode : {TableSampler::modeFor(false, false), TableSampler::modeFor(true, false)}) {
        const char *name = mode == TableSampler::modeFor(true, false) ? "smooth" : "hold";
        std::printf("-- %s\n", name);
        const Figures sampling = measure([&](Figures *f) {
            TableSampler sampler = makeSampler(vars, mode);
            double sum = 0;
            for (qint64 r = 0; r < sampler.tableRows(); ++r) {
                sampler.readRow(r, row.data());
                sum += row[0] == row[0] ? row[0] : 0;
            }
            f->rows = sampler.tableRows();
            return sum != -1;
        });
        print("sampling only", sampling);

        const QString csvPath = dir.filePath(QStringLiteral("table.csv"));
        const Figures csv = measure([&](Figures *f) {
            TableSampler sampler = makeSampler(vars, mode);
            f->rows = sampler.tableRows();
            const bool ok = CsvTableWriter().write(sampler, csvPath);
            f->bytes = QFileInfo(csvPath).size();
            return ok;
        });
        print("CSV (sample + write)", csv);

        const QString xlsxPath = dir.filePath(QStringLiteral("table.xlsx"));
        for (int part : {4, 1}) {
            const Figures xlsx = measure([&](Figures *f) {
                TableSampler sampler(kPeriodMs, mode);
                for (const TelemetryVar *var : vars)
                    sampler.addColumn(var, TableSampler::headerText(*var));
                // A quarter of the rows: the same columns, read only so far.
                struct Part : TableSource
                {
                    TableSampler *all;
                    qint64 rows;
                    int tableColumns() const override { return all->tableColumns(); }
                    QString columnHeader(int c) const override { return all->columnHeader(c); }
                    qint64 tableRows() const override { return rows; }
                    qint64 rowTimeMs(qint64 r) const override { return all->rowTimeMs(r); }
                    void readRow(qint64 r, double *out) override { all->readRow(r, out); }
                } source;
                source.all = &sampler;
                source.rows = sampler.tableRows() / part;
                f->rows = source.rows;
                XlsxTableWriter writer;
                const bool ok = writer.write(source, xlsxPath);
                if (!ok)
                    std::fprintf(stderr, "%s\n", qPrintable(writer.errorString()));
                f->bytes = QFileInfo(xlsxPath).size();
                return ok;
            });
            print(part == 1 ? "xlsx (sample + write), all rows" : "xlsx (sample + write), 1/4 rows", xlsx);
        }
    }
    return 0;
}
