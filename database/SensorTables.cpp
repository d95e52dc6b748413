#include "database/SensorTables.h"

#include "database/DatabaseConnection.h"

#include <QSqlQuery>
#include <QSqlRecord>

QStringList SensorTables::createStatements()
{
    return {QStringLiteral(
        "create table IF NOT EXISTS sensors (id integer not null, param integer not null, label varchar "
        "(20), "
        "unit varchar (8), unitConversion varchar (8), defaultMin real, defaultMax real, defaultColor int, "
        "updated int not null default 0, primary key (id, param))")};
}

bool SensorTables::findSensor(quint32 id, quint32 param, SensorRow *row)
{
    QSqlQuery q = m_db->query();
    if (!m_db->exec(q, QStringLiteral("select * from sensors where id = ? and param = ?"), {id, param}) ||
        !q.next())
        return false;
    if (row) {
        const QSqlRecord r = q.record();
        row->id = id;
        row->param = param;
        row->label = q.value(r.indexOf(QStringLiteral("label"))).toString();
        row->unit = q.value(r.indexOf(QStringLiteral("unit"))).toString();
        row->unitConversion = q.value(r.indexOf(QStringLiteral("unitConversion"))).toString();
        row->defaultMin = q.value(r.indexOf(QStringLiteral("defaultMin"))).toDouble();
        row->defaultMax = q.value(r.indexOf(QStringLiteral("defaultMax"))).toDouble();
        row->defaultColor = q.value(r.indexOf(QStringLiteral("defaultColor"))).toInt();
        const int updated = r.indexOf(QStringLiteral("updated"));
        row->updated = updated >= 0 && q.value(updated).toInt() != 0;
    }
    return true;
}

bool SensorTables::insertDefaultSensor(const SensorRow &row)
{
    return m_db->execSimple(QStringLiteral("insert or ignore into sensors values(?,?,?,?,?,?,?,?,0)"),
                            {row.id, row.param, row.label, row.unit, row.unitConversion, row.defaultMin,
                             row.defaultMax, row.defaultColor});
}

bool SensorTables::updateSensorSettings(const SensorRow &row)
{
    return m_db->execSimple(
        QStringLiteral("update sensors set unitConversion=?, defaultMin=?, defaultMax=?, "
                       "defaultColor=?, updated=1  where id = ? and param = ?"),
        {row.unitConversion, row.defaultMin, row.defaultMax, row.defaultColor, row.id, row.param});
}

bool SensorTables::deleteAllSensors()
{
    return m_db->execSimple(QStringLiteral("delete from sensors"));
}
