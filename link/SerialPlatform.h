#pragma once

#include <QString>

// The few serial-port questions whose answer depends on the operating system.
namespace SerialPlatform {
// A name the user can give for the port: a system name ("ttyUSB0", "COM3") or a path to a device node
// (a /dev/serial/by-id/ link, a pseudo-terminal link). A path that exists counts as an existing port.
bool portExists(const QString &name);
// When opening failed for lack of permission: what grants it, in one sentence; else empty.
QString permissionHint(const QString &name);
} // namespace SerialPlatform
