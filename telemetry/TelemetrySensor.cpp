#include "telemetry/TelemetrySensor.h"

QString TelemetrySensor::displayName() const
{
    return m_name.isEmpty() ? tr("Unnamed sensor") : m_name;
}

QString TelemetrySensor::idText() const
{
    return tr("ID: [%1:%2]")
        .arg(m_id & 0xFFFF, 5, 10, QLatin1Char('0'))
        .arg(m_id >> 16, 5, 10, QLatin1Char('0'));
}

int TelemetrySensor::indexOfParam(quint32 param) const
{
    for (int i = 0; i < m_vars.size(); ++i) {
        if (m_vars.at(i).param() == param)
            return i;
    }
    return -1;
}

const TelemetryVar *TelemetrySensor::var(quint32 param) const
{
    const int i = indexOfParam(param);
    return i < 0 ? nullptr : &m_vars.at(i);
}

TelemetryVar *TelemetrySensor::var(quint32 param)
{
    const int i = indexOfParam(param);
    return i < 0 ? nullptr : &m_vars[i];
}
