#pragma once

#include <QStringList>

#include <cstdio>

// The subcommands that run the bus: record and devices.
namespace LiveCommands {
int record(const QStringList &args, std::FILE *out, std::FILE *err);
int devices(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace LiveCommands
