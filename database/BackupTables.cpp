#include "database/BackupTables.h"

#include "database/BlobCodec.h"
#include "database/DatabaseConnection.h"

#include <QSqlQuery>

QStringList BackupTables::createStatements()
{
    return {QStringLiteral(
        "create table IF NOT EXISTS backups (id integer not null primary key, hwid integer not null, "
        "name text not null COLLATE NOCASE, description text, dateCreated datetime not null, size integer "
        "not "
        "null, "
        "fileList blob not null, data blob not null)")};
}

int BackupTables::insertBackup(quint32 hwid, const QString &name, const QString &description, qint64 size,
                               const QByteArray &fileList, const QByteArray &data)
{
    return m_db->execInsert(
        QStringLiteral("insert into backups (hwid,name,description,dateCreated,size,fileList,data) "
                       "values(?,?,?,datetime('now'),?,?,?)"),
        {hwid, DatabaseConnection::text(name), description, size, BlobCodec::compress(fileList),
         BlobCodec::compress(data)});
}

bool BackupTables::deleteBackup(int id)
{
    return m_db->execSimple(QStringLiteral("delete from backups where id=?"), {id});
}

bool BackupTables::backupData(int id, QByteArray *data)
{
    QByteArray blob;
    return m_db->selectBlob(QStringLiteral("select data from backups where id = ?"), id, &blob) &&
           m_db->uncompressed(blob, data);
}

bool BackupTables::backupFileList(int id, QByteArray *fileList)
{
    QByteArray blob;
    return m_db->selectBlob(QStringLiteral("select fileList from backups where id = ?"), id, &blob) &&
           m_db->uncompressed(blob, fileList);
}

QVector<BackupRow> BackupTables::listBackups(bool *ok)
{
    QVector<BackupRow> rows;
    QSqlQuery q = m_db->query();
    const bool done =
        m_db->exec(q, QStringLiteral("select id,hwid,name,description,dateCreated,size from backups "
                                     "order by dateCreated desc, id desc"));
    if (ok)
        *ok = done;
    while (done && q.next()) {
        BackupRow row;
        row.id = q.value(0).toInt();
        row.hwid = q.value(1).toUInt();
        row.name = q.value(2).toString();
        row.description = q.value(3).toString();
        row.dateCreated = DatabaseConnection::dateFromText(q.value(4).toString(), Qt::UTC);
        row.size = q.value(5).toLongLong();
        rows.append(row);
    }
    return rows;
}
