#pragma once

#include <QStringList>

#include <cstdio>

// The vexo-log subcommands. Each returns the process exit code: 0 success, 1 failure, 2 bad usage.
namespace CliCommands {
int run(const QStringList &arguments, std::FILE *out, std::FILE *err);
} // namespace CliCommands
