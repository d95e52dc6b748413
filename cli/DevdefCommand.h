#pragma once

#include <QStringList>

#include <cstdio>

// `vexo-log devdef compile SRC... OUT` checks device definition sources and packs them into a definitions
// file; `vexo-log devdef dump FILE` prints one back as source text.
namespace DevdefCommand {
// args: after "devdef". Returns the exit code: 0 success, 1 failure, 2 bad usage.
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace DevdefCommand
