#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log fwdb make OUT ...` builds (or extends) a device updates database from firmware images;
// `vexo-log fwdb list FWDB` prints what one holds.
namespace FwdbCommand {
// args: after "fwdb". Returns the exit code: 0 success, 1 failure, 2 bad usage.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace FwdbCommand
