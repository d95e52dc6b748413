#pragma once

#include "widgets/devices/DeviceParamLink.h"

#include <QPointer>

class SerialPortWrapper;

// The parameter engine of the serial transport: calls cross to the serial thread queued, its signals come
// back the same way.
class SerialParamLink : public DeviceParamLink
{
    Q_OBJECT
public:
    explicit SerialParamLink(SerialPortWrapper *wrapper, QObject *parent = nullptr);

    void setActiveDevice(const DeviceSettings &settings) override;
    void read() override;
    void write(const DevParamVector &params) override;
    bool command(int address, int value, int size, int flags) override;

private:
    QPointer<SerialPortWrapper> m_wrapper;
};
