#include "telemetry/TelemetryVar.h"

#include "telemetry/TelemetryUnits.h"

#include <algorithm>
#include <cmath>
#include <limits>

TelemetryVar::TelemetryVar(quint32 deviceId, quint32 param, const QString &label, const QString &unit)
    : m_param(param), m_deviceId(deviceId), m_label(label)
{
    setUnit(unit);
}

void TelemetryVar::setUnit(const QString &unit)
{
    m_unit = unit;
    m_unitCategory = TelemetryUnits::categoryOf(unit);
    m_unitTarget = 0;
}

QString TelemetryVar::displayUnit() const
{
    return TelemetryUnits::targetName(m_unitCategory, m_unitTarget, m_unit);
}

double TelemetryVar::numberAt(int index) const
{
    return TelemetryUnits::convert(m_values.at(index).toNumber(), m_unitCategory, m_unitTarget);
}

double TelemetryVar::valueAtCursor() const
{
    if (m_cursor < 0 || m_cursor >= m_values.size())
        return std::numeric_limits<double>::quiet_NaN();
    return numberAt(m_cursor);
}

int TelemetryVar::indexAt(qint64 ms) const
{
    if (m_values.isEmpty() || ms > m_values.constLast().timestamp)
        return -1;
    if (ms < m_values.constFirst().timestamp)
        return 0;
    const auto it = std::upper_bound(m_values.cbegin(), m_values.cend(), ms,
                                     [](qint64 t, const TelemetryValue &v) { return t < v.timestamp; });
    return int(it - m_values.cbegin()) - 1;
}

// Index i with timestamp(i) <= t < timestamp(i+1), or -1.
int TelemetryVar::findPair(qint64 t, int *hint) const
{
    const int n = m_values.size();
    const TelemetryValue *v = m_values.constData();
    // A caller walking forward in time usually finds its pair within a few steps of the last one.
    if (hint && *hint >= 0 && *hint < n - 1 && v[*hint].timestamp <= t) {
        int i = *hint;
        for (int steps = 0; steps < 16 && i < n - 1; ++steps, ++i) {
            if (t < v[i + 1].timestamp) {
                *hint = i;
                return i;
            }
        }
    }
    const auto it =
        std::upper_bound(v, v + n, t, [](qint64 t, const TelemetryValue &x) { return t < x.timestamp; });
    const int i = int(it - v) - 1;
    if (i < 0 || i >= n - 1)
        return -1;
    if (hint)
        *hint = i;
    return i;
}

double TelemetryVar::valueAtTime(double seconds, int mode, int *hint) const
{
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    if (m_values.isEmpty())
        return nan;
    const double t = seconds * 1000.0;
    if (t >= m_values.constLast().timestamp)
        return numberAt(m_values.size() - 1);
    if (t < 0)
        return numberAt(0);
    // Timestamps are whole milliseconds, so the pair containing t is the pair containing floor(t).
    const int i = findPair(qint64(std::floor(t)), hint);
    if (i < 0)
        return nan;
    const TelemetryValue &a = m_values.at(i);
    const TelemetryValue &b = m_values.at(i + 1);
    switch (mode) {
    case Linear: {
        const double x = numberAt(i);
        const double y = numberAt(i + 1);
        return x + (y - x) * (t - a.timestamp) / double(b.timestamp - a.timestamp);
    }
    case Hold:
        return numberAt(i);
    case HoldWithGapLimit:
        if (qint64(b.timestamp) - a.timestamp < kGapLimitMs || t == a.timestamp)
            return numberAt(i);
        return nan;
    default:
        return nan;
    }
}
