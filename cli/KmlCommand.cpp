#include "cli/KmlCommand.h"

#include "cli/CliSupport.h"
#include "telemetry/KmlWriter.h"
#include "telemetry/TelemetryDataPackage.h"

#include <map>

namespace {
const char kKmlUsage[] = "usage: vexo-log kml FILE --lat D:P --lon D:P [--alt D:P] OUT\n"
                         "\n"
                         "  D:P   a variable: device id (decimal) and parameter number\n"
                         "        (vexo-log info FILE lists them)\n";

using CliSupport::fail;

int usage(std::FILE *err, const QString &message)
{
    return CliSupport::usage(err, "kml", message, kKmlUsage);
}

} // namespace

int KmlCommand::run(const QStringList &args, std::FILE *, std::FILE *err)
{
    std::map<QString, TelemetrySimplePair> pairs;
    QStringList positional;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (a == QLatin1String("--lat") || a == QLatin1String("--lon") || a == QLatin1String("--alt")) {
            if (i + 1 >= args.size())
                return usage(err, QStringLiteral("%1 needs a value").arg(a));
            TelemetrySimplePair pair;
            if (!CliSupport::parseVariable(args.at(i + 1), &pair))
                return usage(err,
                             QStringLiteral("bad value for %1: %2 (expected D:P)").arg(a, args.at(i + 1)));
            pairs[a] = pair;
            ++i;
        } else if (a.startsWith(QLatin1String("--"))) {
            return usage(err, QStringLiteral("unknown option %1").arg(a));
        } else {
            positional.append(a);
        }
    }
    if (positional.size() != 2)
        return usage(err, QStringLiteral("takes a log file and an output file"));
    if (!pairs.count(QStringLiteral("--lat")) || !pairs.count(QStringLiteral("--lon")))
        return usage(err, QStringLiteral("needs --lat and --lon"));

    const QString &in = positional.at(0);
    const QString &out = positional.at(1);
    TelemetryDataPackage package;
    if (!CliSupport::readLog(err, in, &package, CliSupport::Damage::Ignore))
        return 1;

    const TelemetryVar *vars[3] = {};
    const char *const names[3] = {"--lat", "--lon", "--alt"};
    for (int i = 0; i < 3; ++i) {
        const auto it = pairs.find(QLatin1String(names[i]));
        if (it == pairs.end())
            continue;
        vars[i] = CliSupport::findVariable(package, it->second);
        if (!vars[i]) {
            return fail(err, QStringLiteral("%1: no variable %2:%3 (%4)")
                                 .arg(in)
                                 .arg(it->second.deviceId)
                                 .arg(it->second.param)
                                 .arg(QLatin1String(names[i])));
        }
    }
    // The studio offers only coordinates flagged for their axis; a swapped pair would draw a wrong
    // track without a word.
    const bool axisOk[2] = {KmlWriter::isLatitude(*vars[0]), KmlWriter::isLongitude(*vars[1])};
    const char *const axisName[2] = {"latitude", "longitude"};
    for (int i = 0; i < 2; ++i) {
        if (!axisOk[i]) {
            return fail(err, QStringLiteral("%1: %2:%3 is not a GPS %4 (%5)")
                                 .arg(in)
                                 .arg(vars[i]->deviceId())
                                 .arg(vars[i]->param())
                                 .arg(QLatin1String(axisName[i]), QLatin1String(names[i])));
        }
    }
    const QVector<KmlWriter::Point> points = KmlWriter::points(*vars[0], *vars[1], vars[2]);
    // A file without a single position would only look like an export that worked.
    if (points.isEmpty()) {
        return fail(err, QStringLiteral("%1: no GPS position in %2:%3 and %4:%5")
                             .arg(in)
                             .arg(vars[0]->deviceId())
                             .arg(vars[0]->param())
                             .arg(vars[1]->deviceId())
                             .arg(vars[1]->param()));
    }
    QString error;
    if (!KmlWriter::save(out, KmlWriter::document(points), &error))
        return fail(err, error);
    return 0;
}
