#include "widgets/devices/SerialParamLink.h"

#include "link/SerialPortWrapper.h"

SerialParamLink::SerialParamLink(SerialPortWrapper *wrapper, QObject *parent)
    : DeviceParamLink(parent), m_wrapper(wrapper)
{
    if (!wrapper)
        return;
    connect(wrapper, &SerialPortWrapper::LxBusValuesLoaded, this, &DeviceParamLink::valuesLoaded);
    connect(wrapper, &SerialPortWrapper::LxBusWriteFinished, this, &DeviceParamLink::writeFinished);
    connect(wrapper, &SerialPortWrapper::LxBusError, this, &DeviceParamLink::error);
    connect(wrapper, &SerialPortWrapper::LxBusCommandConfirmed, this, &DeviceParamLink::commandConfirmed);
}

void SerialParamLink::setActiveDevice(const DeviceSettings &settings)
{
    if (m_wrapper)
        QMetaObject::invokeMethod(m_wrapper, "setActiveDevice", Qt::QueuedConnection,
                                  Q_ARG(DeviceSettings, settings));
}

void SerialParamLink::read()
{
    if (m_wrapper)
        QMetaObject::invokeMethod(m_wrapper, "LxBusDeviceRead", Qt::QueuedConnection);
}

void SerialParamLink::write(const DevParamVector &params)
{
    if (m_wrapper)
        QMetaObject::invokeMethod(m_wrapper, "LxBusDeviceWrite", Qt::QueuedConnection,
                                  Q_ARG(DevParamVector, params));
}

bool SerialParamLink::command(int address, int value, int size, int flags)
{
    bool queued = false;
    // The engine only puts the command in its ring, under its lock: a short wait.
    if (m_wrapper)
        QMetaObject::invokeMethod(m_wrapper, "LxBusDeviceExecCommand", Qt::BlockingQueuedConnection,
                                  Q_RETURN_ARG(bool, queued), Q_ARG(int, address), Q_ARG(int, value),
                                  Q_ARG(int, size), Q_ARG(int, flags));
    return queued;
}
