#pragma once

#include <QMetaType>
#include <QString>
#include <QVector>

struct DeviceDefinition;

// One parameter of the active device, as the parameter engine reads and writes it. Values are raw
// register values; the limits come from the device definition.
struct DevParam
{
    quint16 id = 0; // the definition's parameter id (0 for a raw register)
    quint16 address = 0;
    quint8 width = 1; // bytes: 1, 2 or 4; other widths are skipped and read as 0
    bool isSigned = false;
    bool readOnly = false;
    quint8 decimals = 0;
    qint64 min = 0;
    qint64 max = 0;
    qint32 value = 0;
    qint32 sent = 0; // the value last written, to confirm against the device's answer
    bool loaded = false;
    bool confirmed = false;

    // The value as the number the register holds: sign-extended when signed, else unsigned.
    qint64 raw() const;
    double floatValue() const;
    // Why a raw value may not be written to this parameter ("" when it may).
    QString refusal(qint64 raw) const;
    // The raw register bytes read back as this parameter's value (sign-extended when signed).
    qint32 fromBytes(const quint8 *bytes) const;
};
Q_DECLARE_TYPEINFO(DevParam, Q_MOVABLE_TYPE);
using DevParamVector = QVector<DevParam>;
Q_DECLARE_METATYPE(DevParam)
Q_DECLARE_METATYPE(DevParamVector)

// The device whose parameters are being read or written, with its parameters in address order.
struct DeviceSettings
{
    quint32 deviceId = 0;
    DevParamVector params;

    int indexOf(quint16 address) const;
    int indexOfId(quint16 id) const;
    // Every parameter of a definition, in address order, with its limits; values not yet loaded.
    static DeviceSettings fromDefinition(quint32 deviceId, const DeviceDefinition &definition);
    // How many of the parameters have been read at least once, in percent (100 for none).
    int loadedPercent() const;
};
Q_DECLARE_METATYPE(DeviceSettings)
