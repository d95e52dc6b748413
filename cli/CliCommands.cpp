#include "cli/CliCommands.h"
#include "telemetry/AtomicFile.h"

#include "cli/CliSupport.h"
#include "cli/DbCommands.h"
#include "cli/DevdefCommand.h"
#include "cli/FlashCommand.h"
#include "cli/FwdbCommand.h"
#include "cli/JsonDump.h"
#include "cli/KmlCommand.h"
#include "cli/LiveCommands.h"
#include "cli/MapCommand.h"
#include "cli/ParamsCommand.h"
#include "cli/TableCommands.h"
#include "cli/TxCommand.h"
#include "cli/UpdateCommand.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "telemetry/TelemetryDataPackage.h"
#include "telemetry/TelemetryFormat.h"

#include <QFileInfo>
#include <QSaveFile>

#include <functional>
#include <map>

namespace {
const char kUsage[] =
    "usage: vexo-log <command> [arguments]\n"
    "\n"
    "commands:\n"
    "  info FILE              what a log holds: devices, variables, samples, messages\n"
    "  dump FILE              the whole log as JSON on standard output\n"
    "  convert IN OUT         read IN (by its extension) and write OUT as a native .log\n"
    "                         (.log, .vml, .nmea, .txt; info, dump and convert take --csv FILE\n"
    "                         for a CSV written by the data table)\n"
    "  generate --seconds S --rate HZ --devices D --seed N --out FILE\n"
    "                         write a realistic random flight as a native .log\n"
    "  record --port PORT [--baud 125000|250000] [--seconds N] --out FILE.log\n"
    "                         run the LX Bus on PORT and record its telemetry (Ctrl+C stops)\n"
    "  devices --port PORT [--seconds N]\n"
    "                         list the devices found on the bus\n"
    "  db import|list|export|delete-model [--db PATH] ...\n"
    "                         the studio's models, folders and logs (vexo-log db --help)\n"
    "  kml FILE --lat D:P --lon D:P [--alt D:P] OUT\n"
    "                         the GPS track of FILE as KML (D:P: device id and param number)\n"
    "  map FILE --lat D:P --lon D:P [--zoom Z] [--provider N --type T] --size WxH OUT.png\n"
    "                         the GPS track of FILE over the map, as the map window draws it\n"
    "  csv|xlsx FILE --period MS [--mode hold|smooth|valid] --var D:P[:U] ... OUT\n"
    "                         the data table of FILE as CSV or an Excel workbook\n"
    "  params --port PORT --device ID [--list | --read [NAME|ADDR ...] | --set NAME=VALUE ... |\n"
    "         --export FILE | --import FILE [--dry-run] | --raw ADDR:SIZE[=VALUE] ...]\n"
    "                         show and change the settings of a device on the bus\n"
    "  devdef compile SRC... OUT | devdef dump FILE\n"
    "                         check device definition sources and pack them into a\n"
    "                         definitions file (Devices.bin), or print one back as source\n"
    "  fwdb make OUT --hw H --sw S [--variant V] --name N --desc-en TEXT --date D IMAGE... |\n"
    "  fwdb list FWDB [--lang LANG]\n"
    "                         build a device updates database from firmware images, or list one\n"
    "  flash --port PORT (--image FILE | --hw H [--variant V] [--version S]) [--fwdb PATH]\n"
    "  flash --port PORT --all [--fwdb PATH] [--dry-run]\n"
    "                         update device firmware through the USB adapter; --all updates every\n"
    "                         device on the bus with newer firmware and confirms each (flash --help)\n"
    "  tx info|backup|restore|backups|sync ...\n"
    "                         a transmitter drive's backups and logs (vexo-log tx --help); exit code 3:\n"
    "                         a restore failed after it had written to the drive\n"
    "  check-updates [--download]\n"
    "                         ask the update service (VEXO_UPDATE_URL) for a newer program and\n"
    "                         device definitions; --download fetches and verifies the latter\n";

struct Context
{
    QStringList args; // after the command name
    std::FILE *out;
    std::FILE *err;
    QString csvInput; // the file named by --csv, read as the data table's CSV export

    int fail(const QString &message) const { return CliSupport::fail(err, message); }
    int usage(const QString &message) const { return CliSupport::usage(err, nullptr, message, kUsage); }
    void print(const QString &text) const { std::fputs(text.toUtf8().constData(), out); }
};

// A file read only in part is read, and what was lost is said on standard error.
bool readPackage(const Context &c, const QString &path, TelemetryDataPackage *package)
{
    return CliSupport::readLog(c.err, path, package, CliSupport::Damage::Say, path == c.csvInput);
}

// Writes the whole file or nothing: a temporary file renamed into place.
bool writeAtomically(const Context &c, const QString &path, const QByteArray &data)
{
    if (QFileInfo(path).isDir()) {
        c.fail(QStringLiteral("%1: is a folder").arg(path));
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        c.fail(QStringLiteral("%1: cannot write: %2").arg(path, file.errorString()));
        return false;
    }
    if (file.write(data) != data.size() || !AtomicFile::commit(file)) {
        c.fail(QStringLiteral("%1: cannot write: %2").arg(path, file.errorString()));
        return false;
    }
    return true;
}

int info(const Context &c)
{
    if (c.args.size() != 1)
        return c.usage(QStringLiteral("info takes one file"));
    TelemetryDataPackage p;
    if (!readPackage(c, c.args.at(0), &p))
        return 1;
    const qint32 first = p.firstTimestamp();
    const qint32 last = p.lastTimestamp();
    QString text;
    text += QStringLiteral("File:        %1\n").arg(c.args.at(0));
    text += QStringLiteral("Name:        %1\n").arg(p.name());
    text += QStringLiteral("Description: %1\n").arg(p.description());
    text += QStringLiteral("Recorded:    %1\n")
                .arg(p.recordingDate().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")));
    text += QStringLiteral("Duration:    %1 (%2 ms to %3 ms)\n")
                .arg(TelemetryFormat::duration(std::max(0, last - first)))
                .arg(first)
                .arg(last);
    text += QStringLiteral("Devices:     %1\n").arg(p.devices().size());
    for (const TelemetrySensor &d : p.devices()) {
        text += QStringLiteral("  %1  %2  (id %3)\n").arg(d.idText(), d.displayName()).arg(d.id());
        for (const TelemetryVar &v : d.vars()) {
            text += QStringLiteral("    %1  %2  [%3]  %4 samples\n")
                        .arg(v.param(), 3)
                        .arg(v.label(), v.unit())
                        .arg(v.count());
        }
    }
    text += QStringLiteral("Samples:     %1\n").arg(p.sampleCount());
    if (p.droppedValues() > 0)
        text += QStringLiteral("Dropped:     %1 samples of undescribed variables\n").arg(p.droppedValues());
    text += QStringLiteral("Messages:    %1\n").arg(p.messages().size() - p.alarmCount());
    text += QStringLiteral("Alarms:      %1\n").arg(p.alarmCount());
    c.print(text);
    return 0;
}

int dump(const Context &c)
{
    if (c.args.size() != 1)
        return c.usage(QStringLiteral("dump takes one file"));
    TelemetryDataPackage p;
    if (!readPackage(c, c.args.at(0), &p))
        return 1;
    if (!JsonDump::write(p, c.out))
        return c.fail(QStringLiteral("cannot write to standard output"));
    return 0;
}

int convert(const Context &c)
{
    if (c.args.size() != 2)
        return c.usage(QStringLiteral("convert takes an input and an output file"));
    TelemetryDataPackage p;
    if (!readPackage(c, c.args.at(0), &p))
        return 1;
    return writeAtomically(c, c.args.at(1), LogFileWriter::write(p)) ? 0 : 1;
}

int generate(const Context &c)
{
    LogGenerator::Options o;
    QString outPath;
    const std::map<QString, std::function<bool(const QString &)>> options = {
        {QStringLiteral("--seconds"),
         [&](const QString &v) {
             bool ok;
             o.seconds = v.toInt(&ok);
             return ok && o.seconds >= 0;
         }},
        {QStringLiteral("--rate"),
         [&](const QString &v) {
             bool ok;
             o.rate = v.toInt(&ok);
             return ok && o.rate > 0 && o.rate <= 1000;
         }},
        {QStringLiteral("--devices"),
         [&](const QString &v) {
             bool ok;
             o.devices = v.toInt(&ok);
             return ok && o.devices > 0 && o.devices <= 256;
         }},
        {QStringLiteral("--seed"),
         [&](const QString &v) {
             bool ok;
             o.seed = v.toULongLong(&ok);
             return ok;
         }},
        {QStringLiteral("--out"),
         [&](const QString &v) {
             outPath = v;
             return !v.isEmpty();
         }},
    };
    for (int i = 0; i < c.args.size(); i += 2) {
        const auto it = options.find(c.args.at(i));
        if (it == options.end())
            return c.usage(QStringLiteral("generate: unknown option %1").arg(c.args.at(i)));
        if (i + 1 >= c.args.size())
            return c.usage(QStringLiteral("generate: %1 needs a value").arg(c.args.at(i)));
        if (!it->second(c.args.at(i + 1)))
            return c.usage(
                QStringLiteral("generate: bad value for %1: %2").arg(c.args.at(i), c.args.at(i + 1)));
    }
    if (outPath.isEmpty())
        return c.usage(QStringLiteral("generate needs --out FILE"));
    const TelemetryDataPackage p = LogGenerator::generate(o);
    return writeAtomically(c, outPath, LogFileWriter::write(p)) ? 0 : 1;
}
} // namespace

int CliCommands::run(const QStringList &arguments, std::FILE *out, std::FILE *err)
{
    if (arguments.isEmpty() || arguments.at(0) == QLatin1String("--help") ||
        arguments.at(0) == QLatin1String("-h")) {
        std::fputs(kUsage, arguments.isEmpty() ? err : out);
        return arguments.isEmpty() ? 2 : 0;
    }
    const std::map<QString, int (*)(const Context &)> commands = {
        {QStringLiteral("info"), &info},
        {QStringLiteral("dump"), &dump},
        {QStringLiteral("convert"), &convert},
        {QStringLiteral("generate"), &generate},
        {QStringLiteral("record"),
         [](const Context &c) { return LiveCommands::record(c.args, c.out, c.err); }},
        {QStringLiteral("devices"),
         [](const Context &c) { return LiveCommands::devices(c.args, c.out, c.err); }},
        {QStringLiteral("db"), [](const Context &c) { return DbCommands::run(c.args, c.out, c.err); }},
        {QStringLiteral("kml"), [](const Context &c) { return KmlCommand::run(c.args, c.out, c.err); }},
        {QStringLiteral("map"), [](const Context &c) { return MapCommand::run(c.args, c.out, c.err); }},
        {QStringLiteral("csv"), [](const Context &c) { return TableCommands::csv(c.args, c.out, c.err); }},
        {QStringLiteral("xlsx"), [](const Context &c) { return TableCommands::xlsx(c.args, c.out, c.err); }},
        {QStringLiteral("params"), [](const Context &c) { return ParamsCommand::run(c.args, c.out, c.err); }},
        {QStringLiteral("devdef"), [](const Context &c) { return DevdefCommand::run(c.args, c.out, c.err); }},
        {QStringLiteral("tx"), [](const Context &c) { return TxCommand::run(c.args, c.out, c.err); }},
        {QStringLiteral("fwdb"), [](const Context &c) { return FwdbCommand::run(c.args, c.out, c.err); }},
        {QStringLiteral("flash"), [](const Context &c) { return FlashCommand::run(c.args, c.out, c.err); }},
        {QStringLiteral("check-updates"),
         [](const Context &c) { return UpdateCommand::run(c.args, c.out, c.err); }},
    };
    Context c{arguments.mid(1), out, err, QString()};
    const auto it = commands.find(arguments.at(0));
    if (it == commands.end())
        return c.usage(QStringLiteral("unknown command \"%1\"").arg(arguments.at(0)));
    // "--csv FILE" in place of the input: a CSV is never chosen by its extension, only by asking.
    const QStringList csvCommands = {QStringLiteral("info"), QStringLiteral("dump"),
                                     QStringLiteral("convert")};
    if (c.args.value(0) == QLatin1String("--csv") && csvCommands.contains(it->first)) {
        if (c.args.size() < 2)
            return c.usage(QStringLiteral("--csv needs a file"));
        c.args.removeFirst();
        c.csvInput = c.args.at(0);
    }
    return it->second(c);
}
