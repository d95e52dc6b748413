#pragma once

#include <QList>
#include <QString>

// The few serial-port questions whose answer depends on the operating system.
namespace SerialPlatform {
// A name the user can give for the port: a system name ("ttyUSB0", "COM3") or a path to a device node
// (a /dev/serial/by-id/ link, a pseudo-terminal link). A path that exists counts as an existing port.
bool portExists(const QString &name);
// When opening failed for lack of permission: what grants it, in one sentence; else empty.
QString permissionHint(const QString &name);

// One serial port as the system lists it; the USB identifiers only when the port reports both.
struct PortInfo
{
    QString location; // what opens it
    QString name;
    QString description;
    bool hasUsbIds = false;
    quint16 vendor = 0;
    quint16 product = 0;
};
// The system's serial ports, in its order.
QList<PortInfo> availablePorts();
} // namespace SerialPlatform
