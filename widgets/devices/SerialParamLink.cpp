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
