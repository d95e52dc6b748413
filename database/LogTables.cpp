#include "database/LogTables.h"

#include "database/BlobCodec.h"
#include "database/DatabaseConnection.h"

#include <QSqlQuery>

QStringList LogTables::createStatements()
{
    return {
        QStringLiteral("create table IF NOT EXISTS logs (id integer not null primary key, "
                       "modelId integer null REFERENCES models(id) ON DELETE CASCADE, "
                       "folderId integer null REFERENCES folders(id) ON DELETE CASCADE, filename text not "
                       "null COLLATE NOCASE, "
                       "dateCreated datetime, lengthms integer not null, comment text not null, data blob)"),
        QStringLiteral("create table IF NOT EXISTS comments (id integer not null primary key, "
                       "logId integer not null REFERENCES logs(id) ON DELETE CASCADE, timems integer not "
                       "null, "
                       "type integer not null, code integer not null, comment text not null)"),
        // What the logbook needs beyond the logs row, in a table of its own: a column added to logs
        // would come after the log data, and reading it would walk every log's overflow pages.
        QStringLiteral("create table IF NOT EXISTS logbook (logId integer not null primary key "
                       "REFERENCES logs(id) ON DELETE CASCADE, alarms integer not null)"),
        // The logbook asks for one model's logs; without it every view would scan the whole table.
        QStringLiteral("create index IF NOT EXISTS logs_modelId on logs(modelId)")};
}

bool LogTables::setAlarms(int logId, int alarms)
{
    return m_db->execSimple(QStringLiteral("insert or replace into logbook (logId, alarms) values (?, ?)"),
                            {logId, alarms});
}

QVector<int> LogTables::logsWithoutLogbook(bool *ok)
{
    QVector<int> ids;
    QSqlQuery q = m_db->query();
    q.setForwardOnly(true);
    *ok = m_db->exec(q, QStringLiteral("select id from logs where data is not null and not exists "
                                       "(select 1 from logbook where logId = logs.id) order by id"));
    while (*ok && q.next())
        ids.append(q.value(0).toInt());
    return ids;
}

bool LogTables::updateLog(int id, const QString &comment, const QDateTime &dateCreated,
                          const QByteArray &nativeLog, qint64 lengthms)
{
    return updateLogCompressed(id, comment, dateCreated, BlobCodec::compress(nativeLog), lengthms);
}

bool LogTables::updateLogCompressed(int id, const QString &comment, const QDateTime &dateCreated,
                                    const QByteArray &blob, qint64 lengthms)
{
    return m_db->execSimple(
        QStringLiteral("update logs set comment = ?, dateCreated = ?, data = ?, lengthms = ? where id = ?"),
        {DatabaseConnection::text(comment), DatabaseConnection::dateText(dateCreated), blob, lengthms, id});
}

bool LogTables::loadLogCompressed(int id, QByteArray *blob, QDateTime *dateCreated, int *modelId)
{
    QSqlQuery q = m_db->query();
    if (!m_db->exec(q, QStringLiteral("select data, dateCreated, modelId from logs where id = ?"), {id}))
        return false;
    if (!q.next()) {
        m_db->fail(tr("%1: there is no log %2").arg(m_db->path()).arg(id));
        return false;
    }
    if (q.value(0).isNull()) {
        m_db->fail(tr("%1: log %2 holds no data").arg(m_db->path()).arg(id));
        return false;
    }
    if (blob)
        *blob = q.value(0).toByteArray();
    if (dateCreated)
        *dateCreated = DatabaseConnection::dateFromText(q.value(1).toString());
    if (modelId)
        *modelId = DatabaseConnection::idOrMinusOne(q.value(2));
    return true;
}

bool LogTables::loadLog(int id, QByteArray *nativeLog, QDateTime *dateCreated, int *modelId)
{
    QByteArray blob;
    return loadLogCompressed(id, &blob, dateCreated, modelId) && m_db->uncompressed(blob, nativeLog);
}

bool LogTables::logExists(int id, bool *ok)
{
    QSqlQuery q = m_db->query();
    const bool done = m_db->exec(q, QStringLiteral("select id from logs where id = ?"), {id});
    if (ok)
        *ok = done;
    return done && q.next();
}

int LogTables::modelOfLog(int id, bool *ok)
{
    QSqlQuery q = m_db->query();
    const bool done = m_db->exec(q, QStringLiteral("select modelId from logs where id = ?"), {id});
    if (ok)
        *ok = done;
    if (!done || !q.next())
        return -1;
    return DatabaseConnection::idOrMinusOne(q.value(0));
}

int LogTables::findLogByDate(const QDateTime &dateCreated)
{
    QSqlQuery q = m_db->query();
    if (!m_db->exec(q, QStringLiteral("select id from logs where dateCreated = ?"),
                    {DatabaseConnection::dateText(dateCreated)}) ||
        !q.next())
        return -1;
    return q.value(0).toInt();
}

bool LogTables::logDataCompressed(int id, QByteArray *blob)
{
    return m_db->selectBlob(QStringLiteral("select data from logs where id = ?"), id, blob);
}

bool LogTables::logData(int id, QByteArray *nativeLog)
{
    QByteArray blob;
    return logDataCompressed(id, &blob) && m_db->uncompressed(blob, nativeLog);
}

QHash<int, qint64> LogTables::logLengths(int modelId, bool *ok)
{
    QHash<int, qint64> lengths;
    QSqlQuery q = m_db->query();
    const bool done =
        m_db->exec(q, QStringLiteral("select id, lengthms from logs where modelId = ?"), {modelId});
    if (ok)
        *ok = done;
    while (done && q.next())
        lengths.insert(q.value(0).toInt(), q.value(1).toLongLong());
    return lengths;
}

QVector<LogTables::FlightRow> LogTables::flights(int modelId, bool withAlarms, bool *ok)
{
    QVector<FlightRow> rows;
    QSqlQuery q = m_db->query();
    q.setForwardOnly(true);
    const bool done =
        m_db->exec(q,
                   withAlarms ? QStringLiteral("select l.id, l.filename, l.dateCreated, l.lengthms, "
                                               "coalesce(b.alarms, 0) from logs l left join logbook b "
                                               "on b.logId = l.id where l.modelId = ? "
                                               "order by l.dateCreated, l.id")
                              : QStringLiteral("select id, filename, dateCreated, lengthms, 0 from logs "
                                               "where modelId = ? order by dateCreated, id"),
                   {modelId});
    if (ok)
        *ok = done;
    while (done && q.next()) {
        FlightRow row;
        row.logId = q.value(0).toInt();
        row.name = q.value(1).toString();
        row.date = DatabaseConnection::dateFromText(q.value(2).toString());
        row.lengthms = q.value(3).toLongLong();
        row.alarms = q.value(4).toInt();
        rows.append(row);
    }
    return rows;
}

QVector<LogTables::TotalsRow> LogTables::totals(int modelId, bool withAlarms, bool *ok)
{
    QVector<TotalsRow> rows;
    QSqlQuery q = m_db->query();
    q.setForwardOnly(true);
    // Dates are stored as "yyyy-MM-dd hh:mm:ss": as text they sort as the dates do. An empty one is
    // no date at all.
    const QString statement =
        QStringLiteral("select m.id, m.name, count(l.id), coalesce(sum(l.lengthms), 0), "
                       "coalesce(max(l.lengthms), 0), min(nullif(l.dateCreated, '')), "
                       "max(nullif(l.dateCreated, '')), %1 "
                       "from models m left join logs l on l.modelId = m.id %2 %3 "
                       "group by m.id order by m.name collate nocase, m.id")
            .arg(withAlarms ? QStringLiteral("coalesce(sum(b.alarms), 0)") : QStringLiteral("0"),
                 withAlarms ? QStringLiteral("left join logbook b on b.logId = l.id") : QString(),
                 modelId >= 0 ? QStringLiteral("where m.id = ?") : QString());
    const bool done = m_db->exec(q, statement, modelId >= 0 ? QVariantList{modelId} : QVariantList{});
    if (ok)
        *ok = done;
    while (done && q.next()) {
        TotalsRow row;
        row.modelId = q.value(0).toInt();
        row.modelName = q.value(1).toString();
        row.flights = q.value(2).toInt();
        row.totalms = q.value(3).toLongLong();
        row.longestms = q.value(4).toLongLong();
        row.first = DatabaseConnection::dateFromText(q.value(5).toString());
        row.last = DatabaseConnection::dateFromText(q.value(6).toString());
        row.alarms = q.value(7).toInt();
        rows.append(row);
    }
    return rows;
}
