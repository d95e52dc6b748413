#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log map FILE --lat D:P --lon D:P [--zoom Z] [--provider N --type T] --size WxH OUT.png`: the
// flight's track over the map as the studio's map window paints it, through the same loader and cache.
namespace MapCommand {
// args: after "map". Returns the exit code: 0 success, 1 failure, 2 bad usage.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace MapCommand
