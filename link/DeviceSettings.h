#pragma once

#include <QMetaType>
#include <QVector>

// One parameter of the active device, as the parameter engine reads and writes it.
struct DevParam
{
    quint16 address = 0;
    quint8 width = 1; // bytes: 1, 2 or 4; other widths are skipped and read as 0
    qint32 value = 0;
    qint32 sent = 0; // the value last written, to confirm against the device's answer
    bool loaded = false;
    bool confirmed = false;
};
Q_DECLARE_TYPEINFO(DevParam, Q_PRIMITIVE_TYPE);
using DevParamVector = QVector<DevParam>;
Q_DECLARE_METATYPE(DevParam)
Q_DECLARE_METATYPE(DevParamVector)

// The device whose parameters are being read or written, with its parameters in address order.
struct DeviceSettings
{
    quint32 deviceId = 0;
    DevParamVector params;

    int indexOf(quint16 address) const
    {
        for (int i = 0; i < params.size(); ++i) {
            if (params.at(i).address == address)
                return i;
        }
        return -1;
    }
};
Q_DECLARE_METATYPE(DeviceSettings)
