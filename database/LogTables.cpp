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
                       "type integer not null, code integer not null, comment text not null)")};
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
