#include "cli/DevdefCommand.h"

#include "cli/CliSupport.h"
#include "link/DeviceDefinitions.h"
#include "telemetry/AtomicFile.h"

namespace {
const char kDevdefUsage[] =
    "usage: vexo-log devdef compile SRC.json... OUT\n"
    "       vexo-log devdef dump FILE\n"
    "\n"
    "  compile  checks the device definition sources (one JSON file per device kind, see\n"
    "           link/definitions/README.md) and writes them as one definitions file (Devices.bin);\n"
    "           nothing is written when any source has a fault\n"
    "  dump     the definitions of FILE as JSON, in the source format\n";

int usage(std::FILE *err, const QString &message)
{
    return CliSupport::usage(err, "devdef", message, kDevdefUsage);
}
} // namespace

int DevdefCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    const QString what = args.value(0);
    if (what == QLatin1String("--help") || what == QLatin1String("-h")) {
        std::fputs(kDevdefUsage, out);
        return 0;
    }
    DeviceDefinitions definitions;
    QString error;
    if (what == QLatin1String("compile")) {
        if (args.size() < 3)
            return usage(err, QStringLiteral("compile takes one or more sources and an output file"));
        for (int i = 1; i < args.size() - 1; ++i) {
            if (!definitions.addSourceFile(args.at(i), &error))
                return CliSupport::fail(err, error);
        }
        if (!AtomicFile::write(args.last(), definitions.toContainer(), &error))
            return CliSupport::fail(err, error);
        return 0;
    }
    if (what == QLatin1String("dump")) {
        if (args.size() != 2)
            return usage(err, QStringLiteral("dump takes one file"));
        if (!definitions.load(args.at(1), &error))
            return CliSupport::fail(err, error);
        const QByteArray text = definitions.toSourceText();
        if (std::fwrite(text.constData(), 1, size_t(text.size()), out) != size_t(text.size()))
            return CliSupport::fail(err, QStringLiteral("cannot write to standard output"));
        return 0;
    }
    return usage(err, what.isEmpty() ? QStringLiteral("compile or dump?")
                                     : QStringLiteral("unknown subcommand \"%1\"").arg(what));
}
