#pragma once

#include "telemetry/SensorTable.h"

#include <QHash>

class MemorySensorTable : public SensorTable
{
public:
    bool findSensor(quint32 id, quint32 param, SensorRow *row) override;
    bool insertDefaultSensor(const SensorRow &row) override;
    bool updateSensorSettings(const SensorRow &row) override;
    int size() const { return m_rows.size(); }

private:
    static quint64 key(quint32 id, quint32 param) { return (quint64(id) << 32) | param; }
    QHash<quint64, SensorRow> m_rows;
};
