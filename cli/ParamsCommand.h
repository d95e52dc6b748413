#pragma once

#include <QStringList>

#include <cstdio>

// vexo-log params: lists, reads, sets, exports and imports the parameters of one device on the bus,
// through the studio's parameter engine and device definitions; --raw reaches registers of any device.
namespace ParamsCommand {
int run(const QStringList &args, std::FILE *out, std::FILE *err);
} // namespace ParamsCommand
