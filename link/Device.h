#pragma once

#include <QMetaType>
#include <QString>

// One device on the bus, or one extension reported behind a device.
struct Device
{
    enum Flag : quint8
    {
        Configured = 0x01
    };

    quint32 identifier = 0;
    quint16 hardware = 0;
    quint32 parentIdentifier = 0; // 0 for a device on the bus itself
    quint8 extensionIndex = 0;    // 0 for the device itself, 1..n for its extensions
    quint8 extensionCount = 0;
    quint8 kind = 0;
    QString name;
    // Identification answer offsets 23 and 24: the firmware version, major and minor.
    quint8 extra1 = 0;
    quint8 extra2 = 0;
    quint16 silence = 0;       // ticks since the last answer carrying this identifier
    quint16 keepAliveWait = 0; // ms until the next keep-alive
    quint8 flags = 0;

    int firmwareMajor() const { return extra1; }
    int firmwareMinor() const { return extra2; }
    QString identifierText() const { return QString::number(identifier, 16).toUpper(); }
};
Q_DECLARE_METATYPE(Device)
