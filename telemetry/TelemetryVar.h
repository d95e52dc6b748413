#pragma once

#include "telemetry/TelemetrySimplePair.h"
#include "telemetry/TelemetryValue.h"

#include <QString>
#include <QVector>

// One parameter of a device with its time-ordered raw samples.
class TelemetryVar
{
public:
    enum Interpolation
    {
        Linear = 0,
        Hold = 1,
        HoldWithGapLimit = 2
    };
    // Samples further apart than this show as a gap in hold-with-gap-limit mode.
    static constexpr qint32 kGapLimitMs = 1501;

    TelemetryVar() = default;
    TelemetryVar(quint32 deviceId, quint32 param, const QString &label, const QString &unit);

    quint32 param() const { return m_param; }
    quint32 deviceId() const { return m_deviceId; }
    TelemetrySimplePair pair() const { return {m_deviceId, m_param}; }
    const QString &label() const { return m_label; }
    void setLabel(const QString &label) { m_label = label; }
    const QString &unit() const { return m_unit; }
    // Also finds the unit category; the chosen target unit is reset.
    void setUnit(const QString &unit);
    quint8 unitCategory() const { return m_unitCategory; }
    quint8 unitTarget() const { return m_unitTarget; }
    void setUnitTarget(quint8 target) { m_unitTarget = target; }
    // The unit values are shown in: the target unit's name, or the delivered unit text.
    QString displayUnit() const;

    const QVector<TelemetryValue> &values() const { return m_values; }
    QVector<TelemetryValue> &values() { return m_values; }
    int count() const { return m_values.size(); }
    void append(const TelemetryValue &v) { m_values.append(v); }

    int cursor() const { return m_cursor; }
    void setCursor(int index) { m_cursor = index; }

    // The number of sample i by the type rules, converted to the chosen unit.
    double numberAt(int index) const;
    double valueAtCursor() const;
    // -1 when empty or t lies after the last sample; 0 before the first; else the last sample at or before t.
    int indexAt(qint64 ms) const;
    // Value at t seconds. hint (may be null) is a caller-held index the search starts from and updates.
    double valueAtTime(double seconds, int mode, int *hint = nullptr) const;

private:
    int findPair(qint64 t, int *hint) const;

    quint32 m_param = 0;
    quint32 m_deviceId = 0;
    QString m_label;
    QString m_unit;
    quint8 m_unitCategory = 0;
    quint8 m_unitTarget = 0;
    int m_cursor = 0;
    QVector<TelemetryValue> m_values;
};
Q_DECLARE_METATYPE(TelemetryVar)
Q_DECLARE_METATYPE(const TelemetryVar *)
