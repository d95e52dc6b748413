#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log db ...`: the studio's models, folders and logs database from the command line.
namespace DbCommands {
// args: after "db". Returns the exit code: 0 success, 1 failure, 2 bad usage.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
// The studio's own database file (its data folder's "data.sqlite").
QString defaultDatabasePath();
} // namespace DbCommands
