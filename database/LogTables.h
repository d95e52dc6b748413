#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QDateTime>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

class DatabaseConnection;

// The logs table (with the comments that hang on its rows): the stored native log, compressed, and
// what is asked of it by id or recording date. The models tree's own log statements are ModelTables'.
class LogTables
{
public:
    // One stored log as the logbook counts it.
    struct FlightRow
    {
        int logId = -1;
        QString name;
        QDateTime date;
        qint64 lengthms = 0;
        int alarms = 0;
    };
    // One model's logs added up.
    struct TotalsRow
    {
        int modelId = -1;
        QString modelName;
        int flights = 0;
        qint64 totalms = 0;
        qint64 longestms = 0;
        QDateTime first; // invalid when no log has a date
        QDateTime last;
        int alarms = 0;
    };

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
    // The logbook's own row of a log (its alarm count), written with the log.
    bool setAlarms(int logId, int alarms);
    // Stored logs that have no logbook row yet (stored by an older version or another program).
    QVector<int> logsWithoutLogbook(bool *ok);
    // withAlarms false: a database without the logbook table (opened read-only; every count reads 0).
    QVector<FlightRow> flights(int modelId, bool withAlarms, bool *ok);
    // modelId -1: every model, by name (a model without logs included, with zeros).
    QVector<TotalsRow> totals(int modelId, bool withAlarms, bool *ok);

private:
    DatabaseConnection *m_db;
};
