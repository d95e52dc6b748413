#pragma once

#include "database/DatabaseManager.h"
#include "telemetry/LogGenerator.h"

#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlQuery>

// The first value of a query on the manager's own connection; -1 when the query fails.
inline int countOf(const DatabaseManager &db, const QString &sql)
{
    QSqlQuery q(QSqlDatabase::database(db.connectionName()));
    return q.exec(sql) && q.next() ? q.value(0).toInt() : -1;
}

inline bool execOn(const DatabaseManager &db, const QString &sql)
{
    return QSqlQuery(QSqlDatabase::database(db.connectionName())).exec(sql);
}

// A generated flight of three devices with a fixed recording date.
inline TelemetryDataPackage flight(int seconds, int rate = 10)
{
    LogGenerator::Options o;
    o.seconds = seconds;
    o.rate = rate;
    o.devices = 3;
    o.seed = 3;
    TelemetryDataPackage p = LogGenerator::generate(o);
    p.setRecordingDate(QDateTime(QDate(2024, 5, 17), QTime(10, 23, 45)));
    return p;
}

inline QByteArray randomBytes(int size, quint32 seed)
{
    QByteArray bytes(size, '\0');
    QRandomGenerator generator(seed);
    for (char &b : bytes)
        b = char(generator.bounded(256));
    return bytes;
}
