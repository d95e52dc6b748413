#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVector>

class DatabaseConnection;

// One backup as the viewer lists it: everything but the two blobs.
struct BackupRow
{
    int id = -1;
    quint32 hwid = 0;
    QString name;
    QString description;
    QDateTime dateCreated; // UTC (the column is written by datetime('now'))
    qint64 size = 0;
};

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
    // Newest first; ok (optional) tells an empty table from a failed statement.
    QVector<BackupRow> listBackups(bool *ok = nullptr);

private:
    DatabaseConnection *m_db;
};
