#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log tx ...`: a transmitter drive's backups from the command line, through the same workers as
// the wizard.
namespace TxCommand {
// args: after "tx". Returns the exit code: 0 done, 1 failed with nothing written, 2 bad usage, 3 failed
// after the drive was written to.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace TxCommand
