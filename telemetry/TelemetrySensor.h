#pragma once

#include "telemetry/TelemetryVar.h"

#include <QCoreApplication>
#include <QMetaType>
#include <QVector>

// One device of a recording with its variables.
class TelemetrySensor
{
    Q_DECLARE_TR_FUNCTIONS(TelemetrySensor)
public:
    TelemetrySensor() = default;
    TelemetrySensor(quint32 id, const QString &name) : m_id(id), m_name(name) {}

    quint32 id() const { return m_id; }
    const QString &name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    // "Unnamed sensor" for a device that never told its name.
    QString displayName() const;
    // "ID: [low:high]" as shown in the sensor lists, each half as five digits: "ID: [00017:00300]".
    QString idText() const;

    const QVector<TelemetryVar> &vars() const { return m_vars; }
    QVector<TelemetryVar> &vars() { return m_vars; }
    int indexOfParam(quint32 param) const;
    const TelemetryVar *var(quint32 param) const;
    TelemetryVar *var(quint32 param);

private:
    quint32 m_id = 0;
    QString m_name;
    QVector<TelemetryVar> m_vars;
};
Q_DECLARE_METATYPE(TelemetrySensor)

using SensorVector = QVector<TelemetrySensor>;
Q_DECLARE_METATYPE(SensorVector)
Q_DECLARE_METATYPE(const QVector<TelemetrySensor> *)
