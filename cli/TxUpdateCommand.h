#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log tx update ROOT [--list | --update ID] [--skip-backup] [--data DIR] [--db PATH]`: the
// transmitter update from the command line, through the same workers as the wizard.
namespace TxUpdateCommand {
extern const char kUsage[];
// args: after "update". Returns 0 done, 1 failed with nothing written to the drive, 2 bad usage or refused,
// 3 failed after files were written (they stay; the file that failed keeps its old content).
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace TxUpdateCommand
