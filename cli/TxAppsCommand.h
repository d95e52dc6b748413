#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log tx apps ROOT [--list | --install ID | --uninstall ID]`: the Lua app manager from the command
// line, through the same installer as the wizard.
namespace TxAppsCommand {
extern const char kUsage[];
// args: after "apps". Exit codes as `tx`: 0 done, 1 failed with nothing written, 2 bad usage, 3 failed
// after the drive was written to.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace TxAppsCommand
