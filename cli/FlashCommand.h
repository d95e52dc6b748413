#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log flash`: programs device firmware through the USB adapter, one device from a file or the
// device updates database, or every device on the bus that has newer firmware there (--all), then reads
// each version back from the bus.
namespace FlashCommand {
// args: after "flash". Exit code: 0 every update done and confirmed (or nothing to do), 1 an image or
// database was refused, an update failed or a new version did not show on the bus, 2 bad usage.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace FlashCommand
