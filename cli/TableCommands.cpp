#include "cli/TableCommands.h"

#include "cli/CliSupport.h"
#include "telemetry/CsvTableWriter.h"
#include "telemetry/TableSampler.h"
#include "telemetry/TelemetryDataPackage.h"
#include "telemetry/TelemetryUnits.h"
#include "telemetry/XlsxTableWriter.h"

#include <deque>

namespace {
const char kTableUsage[] =
    "usage: vexo-log csv|xlsx FILE --period MS [--mode hold|smooth|valid] --var D:P[:U] ... OUT\n"
    "\n"
    "  --period MS   sampling period in milliseconds (1 to 3600000); row k is at k x MS\n"
    "  --mode        hold: the last value (default); smooth: linear interpolation;\n"
    "                valid: the last value, empty where samples are 1501 ms or more apart\n"
    "  --var D:P[:U] a column: device id (decimal), parameter number and optionally the\n"
    "                index of the unit to convert to (vexo-log info FILE lists the variables)\n";

enum class Format
{
    Csv,
    Xlsx
};

struct Column
{
    quint32 deviceId = 0;
    quint32 param = 0;
    int unit = -1; // -1: as the log has it
    QString text;
};

using CliSupport::fail;

int usage(std::FILE *err, const char *command, const QString &message)
{
    return CliSupport::usage(err, command, message, kTableUsage);
}

bool parseColumn(const QString &text, Column *column)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    if (parts.size() != 2 && parts.size() != 3)
        return false;
    bool okId = false;
    bool okParam = false;
    bool okUnit = true;
    column->deviceId = parts.at(0).toUInt(&okId);
    column->param = parts.at(1).toUInt(&okParam);
    column->unit = parts.size() == 3 ? parts.at(2).toInt(&okUnit) : -1;
    column->text = text;
    return okId && okParam && okUnit && column->unit >= -1 && (parts.size() == 2 || column->unit >= 0);
}

int run(Format format, const QStringList &args, std::FILE *err)
{
    const char *command = format == Format::Csv ? "csv" : "xlsx";
    int period = 0;
    int mode = TableSampler::modeFor(false, false);
    std::vector<Column> columns;
    QStringList positional;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (a == QLatin1String("--period") || a == QLatin1String("--mode") || a == QLatin1String("--var")) {
            if (i + 1 >= args.size())
                return usage(err, command, QStringLiteral("%1 needs a value").arg(a));
            const QString &value = args.at(++i);
            if (a == QLatin1String("--period")) {
                bool ok = false;
                period = value.toInt(&ok);
                if (!ok || period < TableSampler::kMinPeriodMs || period > TableSampler::kMaxPeriodMs)
                    return usage(err, command, QStringLiteral("bad value for --period: %1").arg(value));
            } else if (a == QLatin1String("--mode")) {
                if (value == QLatin1String("hold"))
                    mode = TableSampler::modeFor(false, false);
                else if (value == QLatin1String("smooth"))
                    mode = TableSampler::modeFor(true, false);
                else if (value == QLatin1String("valid"))
                    mode = TableSampler::modeFor(false, true);
                else
                    return usage(err, command, QStringLiteral("bad value for --mode: %1").arg(value));
            } else {
                Column column;
                if (!parseColumn(value, &column))
                    return usage(
                        err, command,
                        QStringLiteral("bad value for --var: %1 (expected D:P or D:P:U)").arg(value));
                columns.push_back(column);
            }
        } else if (a.startsWith(QLatin1String("--"))) {
            return usage(err, command, QStringLiteral("unknown option %1").arg(a));
        } else {
            positional.append(a);
        }
    }
    if (positional.size() != 2)
        return usage(err, command, QStringLiteral("takes a log file and an output file"));
    if (period == 0)
        return usage(err, command, QStringLiteral("needs --period"));
    if (columns.empty())
        return usage(err, command, QStringLiteral("needs at least one --var"));

    const QString &in = positional.at(0);
    const QString &outPath = positional.at(1);
    TelemetryDataPackage package;
    if (!CliSupport::readLog(err, in, &package, CliSupport::Damage::Ignore))
        return 1;

    // A copy per column, so the same variable may appear in two units; copies share the samples.
    std::deque<TelemetryVar> vars;
    TableSampler sampler(period, mode);
    for (const Column &column : columns) {
        const TelemetrySensor *device = package.device(column.deviceId);
        const TelemetryVar *var = device ? device->var(column.param) : nullptr;
        if (!var)
            return fail(err, QStringLiteral("%1: no variable %2").arg(in, column.text));
        vars.push_back(*var);
        TelemetryVar &copy = vars.back();
        if (column.unit >= 0) {
            const QStringList units = TelemetryUnits::targetUnits(copy.unitCategory());
            if (column.unit > 0 && column.unit >= units.size()) {
                const QString offered =
                    units.isEmpty()
                        ? QStringLiteral("the unit \"%1\" has no conversions, only 0").arg(copy.unit())
                        : QStringLiteral("0 to %1: %2")
                              .arg(units.size() - 1)
                              .arg(units.join(QStringLiteral(", ")));
                return fail(err, QStringLiteral("%1: no unit %2 for %3 (%4)")
                                     .arg(in)
                                     .arg(column.unit)
                                     .arg(column.text, offered));
            }
            copy.setUnitTarget(quint8(column.unit));
        }
        sampler.addColumn(copy);
    }

    if (format == Format::Csv) {
        CsvTableWriter writer;
        if (!writer.write(sampler, outPath))
            return fail(err, writer.errorString());
    } else {
        XlsxTableWriter writer;
        if (!writer.write(sampler, outPath))
            return fail(err, writer.errorString());
    }
    return 0;
}
} // namespace

int TableCommands::csv(const QStringList &args, std::FILE *, std::FILE *err)
{
    return run(Format::Csv, args, err);
}

int TableCommands::xlsx(const QStringList &args, std::FILE *, std::FILE *err)
{
    return run(Format::Xlsx, args, err);
}
