#pragma once

#include "link/DeviceSettings.h"

#include <QObject>
#include <QString>

// What the parameter table needs from the parameter engine: start on a device, read, write, and hear the
// results. The table talks to this and not to the serial transport itself, so a test can answer in its place.
class DeviceParamLink : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

    // Starts reading every parameter of the device; an identifier of 0 ends the work on the previous one.
    virtual void setActiveDevice(const DeviceSettings &settings) = 0;
    virtual void read() = 0;
    // Writes these parameters (by address), then reads them back.
    virtual void write(const DevParamVector &params) = 0;
    // Runs a device command (its value written to its address); false when the device is busy and the
    // caller should try again. Waits only for the engine to take it, not for the device.
    virtual bool command(int address, int value, int size, int flags)
    {
        Q_UNUSED(address);
        Q_UNUSED(value);
        Q_UNUSED(size);
        Q_UNUSED(flags);
        return false;
    }

signals:
    // The whole vector after each read answer; `loaded` marks how far the reading got.
    void valuesLoaded(const DevParamVector &params);
    // The written parameters read back: `confirmed` when the device holds what was sent.
    void writeFinished(const DevParamVector &params);
    void error(const QString &text);
    // The device confirmed the command written to this address.
    void commandConfirmed(quint16 address);
};
