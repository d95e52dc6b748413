#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>

class DatabaseConnection;

// The logs table (with the comments that hang on its rows): the stored native log, compressed, and
// what is asked of it by id or recording date. The models tree's own log statements are ModelTables'.
class LogTables
{
    // To the pilot it is one database: its messages read (and translate) as the manager's.
    Q_DECLARE_TR_FUNCTIONS(DatabaseManager)
public:
    explicit LogTables(DatabaseConnection *db) : m_db(db) {}

    static QStringList createStatements();

    bool updateLog(int id, const QString &comment, const QDateTime &dateCreated, const QByteArray &nativeLog,
                   qint64 lengthms);
    bool updateLogCompressed(int id, const QString &comment, const QDateTime &dateCreated,
                             const QByteArray &blob, qint64 lengthms);
    bool loadLog(int id, QByteArray *nativeLog, QDateTime *dateCreated, int *modelId);
    bool loadLogCompressed(int id, QByteArray *blob, QDateTime *dateCreated, int *modelId);
    bool logExists(int id, bool *ok);
    int modelOfLog(int id, bool *ok);
    int findLogByDate(const QDateTime &dateCreated);
    bool logData(int id, QByteArray *nativeLog);
    bool logDataCompressed(int id, QByteArray *blob);
    QHash<int, qint64> logLengths(int modelId, bool *ok);

private:
    DatabaseConnection *m_db;
};
