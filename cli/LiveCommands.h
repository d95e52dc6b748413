#pragma once

#include <QStringList>

class SerialLink;
struct Device;

#include <cstdio>

// The subcommands that run the bus: record and devices.
namespace LiveCommands {
int record(const QStringList &args, std::FILE *out, std::FILE *err);
int devices(const QStringList &args, std::FILE *out, std::FILE *err);
// Starts the link and opens the port at 125000 or 250000 baud; prints the reason and returns false when it
// cannot.
bool openPort(SerialLink &link, const QString &port, int baud, std::FILE *err);
// One line about a device: identifier, name, hardware, extensions.
QString deviceText(const Device &d);
} // namespace LiveCommands
