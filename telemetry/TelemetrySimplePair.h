#pragma once

#include <QHashFunctions>
#include <QMetaType>
#include <QString>

// Names one variable: (device id, param). Param 0 names the device itself.
struct TelemetrySimplePair
{
    quint32 deviceId = 0;
    quint32 param = 0;

    TelemetrySimplePair() = default;
    TelemetrySimplePair(quint32 id, quint32 p) : deviceId(id), param(p) {}

    quint64 key() const { return (quint64(deviceId) << 32) | param; }
    // The drag-and-drop text form shared by all data windows.
    QString toJsonText() const
    {
        return QStringLiteral("{\"Sensor\":%1,\"Param\":%2}").arg(deviceId).arg(param);
    }
    bool operator==(const TelemetrySimplePair &o) const { return deviceId == o.deviceId && param == o.param; }
    bool operator!=(const TelemetrySimplePair &o) const { return !(*this == o); }
};
Q_DECLARE_TYPEINFO(TelemetrySimplePair, Q_PRIMITIVE_TYPE);
Q_DECLARE_METATYPE(TelemetrySimplePair)

inline uint qHash(const TelemetrySimplePair &p, uint seed = 0)
{
    return ::qHash(p.key(), seed);
}
