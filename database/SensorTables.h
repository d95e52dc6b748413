#pragma once

#include "telemetry/SensorTable.h"

#include <QStringList>

class DatabaseConnection;

// The sensors table: display settings per telemetry variable, keyed by (device id, param).
class SensorTables
{
public:
    explicit SensorTables(DatabaseConnection *db) : m_db(db) {}

    static QStringList createStatements();

    bool findSensor(quint32 id, quint32 param, SensorRow *row);
    bool insertDefaultSensor(const SensorRow &row);
    bool updateSensorSettings(const SensorRow &row);
    bool deleteAllSensors();

private:
    DatabaseConnection *m_db;
};
