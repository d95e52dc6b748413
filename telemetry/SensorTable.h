#pragma once

#include <QString>
#include <QVector>

// One row of the sensor display settings, per (device id, param).
struct SensorRow
{
    quint32 id = 0;
    quint32 param = 0;
    QString label;
    QString unit;
    QString unitConversion = QStringLiteral("0"); // chosen target unit index
    double defaultMin = 0;
    double defaultMax = 0;
    int defaultColor = 0;
    bool updated = false;
};

// The readers consult and feed the sensor settings through this; the database implements it, tests and
// the command line can use the in-memory MemorySensorTable.
class SensorTable
{
public:
    virtual ~SensorTable() = default;
    // False when there is no row for (id, param).
    virtual bool findSensor(quint32 id, quint32 param, SensorRow *row) = 0;
    // Inserts the row unless one exists for its (id, param).
    virtual bool insertDefaultSensor(const SensorRow &row) = 0;
    // Stores the user's settings (unit conversion, default range and colour) of an existing row.
    virtual bool updateSensorSettings(const SensorRow &row) = 0;
    // Many rows at once, as a reader met them; a store may make it one write. The count stored.
    virtual int insertDefaultSensors(const QVector<SensorRow> &rows)
    {
        int stored = 0;
        for (const SensorRow &row : rows)
            stored += insertDefaultSensor(row) ? 1 : 0;
        return stored;
    }
};
