#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

class DatabaseConnection;

// The backups table: transmitter backups, their file list and archive stored compressed.
class BackupTables
{
public:
    explicit BackupTables(DatabaseConnection *db) : m_db(db) {}

    static QStringList createStatements();

    int insertBackup(quint32 hwid, const QString &name, const QString &description, qint64 size,
                     const QByteArray &fileList, const QByteArray &data);
    bool deleteBackup(int id);
    bool backupData(int id, QByteArray *data);
    bool backupFileList(int id, QByteArray *fileList);

private:
    DatabaseConnection *m_db;
};
