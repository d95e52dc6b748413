#include "telemetry/MemorySensorTable.h"

bool MemorySensorTable::findSensor(quint32 id, quint32 param, SensorRow *row)
{
    const auto it = m_rows.constFind(key(id, param));
    if (it == m_rows.constEnd())
        return false;
    if (row)
        *row = it.value();
    return true;
}

bool MemorySensorTable::insertDefaultSensor(const SensorRow &row)
{
    const quint64 k = key(row.id, row.param);
    if (!m_rows.contains(k))
        m_rows.insert(k, row);
    return true;
}

bool MemorySensorTable::updateSensorSettings(const SensorRow &row)
{
    const auto it = m_rows.find(key(row.id, row.param));
    if (it == m_rows.end())
        return false;
    it->unitConversion = row.unitConversion;
    it->defaultMin = row.defaultMin;
    it->defaultMax = row.defaultMax;
    it->defaultColor = row.defaultColor;
    it->updated = true;
    return true;
}
