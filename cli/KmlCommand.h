#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log kml FILE --lat D:P --lon D:P [--alt D:P] OUT`: the GPS track of a log as KML, the same
// bytes as the studio's export.
namespace KmlCommand {
// args: after "kml". Returns the exit code: 0 success, 1 failure, 2 bad usage.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace KmlCommand
