#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log check-updates [--download]`: the studio's online update check from the command line, through
// the same checker.
namespace UpdateCommand {
// args: after "check-updates". Exit code: 0 the check ran (and a requested download succeeded), 1 the
// check could not run or the download failed (the old definitions file is kept), 2 bad usage.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace UpdateCommand
