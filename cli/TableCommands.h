#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log csv|xlsx FILE --period MS [--mode hold|smooth|valid] --var D:P[:U] ... OUT`: the data table
// of a log as the studio's window exports it, one column per --var in the order given.
namespace TableCommands {
// args: after the command name. Return the exit code: 0 success, 1 failure, 2 bad usage.
int csv(const QStringList &args, std::FILE *out, std::FILE *err);
int xlsx(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace TableCommands
