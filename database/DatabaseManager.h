#pragma once

#include "database/BackupTables.h"
#include "database/DatabaseConnection.h"
#include "database/LayoutTables.h"
#include "database/LogTables.h"
#include "database/ModelData.h"
#include "database/ModelTables.h"
#include "database/SensorTables.h"
#include "telemetry/SensorTable.h"

#include <QDateTime>
#include <QHash>
#include <QObject>
#include <QVariantList>
#include <QVector>
#include <functional>

class Logger;

// Owns the connection to "data.sqlite", creates and upgrades the schema and offers one method per
// statement. Every failed statement is reported ("SQLite error: ...") and returns false, -1 or an empty
// result, with the reason (naming the file) in lastError(). It never deletes or recreates a database on
// its own: a file it cannot use stays as it is (at the studio's start, DataFolderCheck moves a damaged one
// aside). The statements live in one class per group of tables (SensorTables, LayoutTables, ModelTables,
// LogTables, BackupTables), all on one DatabaseConnection; this class owns the connection, the schema and
// the transactions, and forwards. Interface thread only.
class DatabaseManager : public QObject, public SensorTable
{
    Q_OBJECT
public:
    using LayoutRow = LayoutTables::Row;
    using FolderRow = ModelTables::FolderRow;
    using LogRow = ModelTables::LogRow;

    // The eight tables, in the order they are created.
    static QStringList tableNames();
    static QString fileName() { return QStringLiteral("data.sqlite"); }

    // dataFolder empty: the application's writable data folder. The logger (may be null) receives the
    // schema events; it is not owned.
    explicit DatabaseManager(const QString &dataFolder = QString(), Logger *logger = nullptr,
                             QObject *parent = nullptr);
    ~DatabaseManager() override;

    // Uses this file instead of the data folder's "data.sqlite". Before open().
    void setDatabasePath(const QString &path);
    QString databasePath() const { return m_connection.path(); }
    Logger *logger() const { return m_logger; }
    // A second manager in one process needs a connection of its own. Before open().
    void setConnectionName(const QString &name);
    QString connectionName() const { return m_connection.name(); }
    // Opens without ever writing (the file is left exactly as it is).
    void setReadOnly(bool readOnly) { m_readOnly = readOnly; }
    // How long a statement waits for another program's lock before failing.
    void setBusyTimeout(int ms) { m_busyTimeoutMs = ms; }

    bool open();
    // Creates the missing tables (and only those) and switches foreign keys on.
    bool initialise();
    // Brings an older schema up to date: before 0.5.4 the sensors table had no "updated" column; a log
    // without a logbook row (stored before the logbook, or by another program) has its alarms counted
    // once from the stored log, all in one transaction.
    bool upgrade();
    // False for a database from before the logbook opened read-only (nothing could be added).
    bool hasLogbook(bool *ok = nullptr);
    // Told (done, total) while the upgrade works through stored logs, which can take a while for a
    // large old database; the caller shows it.
    void setUpgradeProgress(std::function<void(int, int)> progress)
    {
        m_upgradeProgress = std::move(progress);
    }
    // open(), initialise() and upgrade(), stopping at the first failure.
    bool openAndInitialise();
    bool isOpen() const;
    void close();
    // Removes the database file (the user's reset); closes the connection first.
    bool deleteDatabaseFile();

    QString lastError() const { return m_connection.lastError(); }
    // The SQLite result code of the last failure (0 when the last failure was not SQLite's).
    int lastErrorCode() const { return m_connection.lastErrorCode(); }

    // Nesting transactions (savepoints): a failed inner part rolls back alone, the outermost commit
    // makes everything durable at once.
    bool beginTransaction();
    bool commitTransaction();
    void rollbackTransaction();
    int transactionDepth() const { return m_depth; }

    // Sensors
    bool findSensor(quint32 id, quint32 param, SensorRow *row) override;
    bool insertDefaultSensor(const SensorRow &row) override;
    // In one transaction: one disk sync instead of one per row.
    int insertDefaultSensors(const QVector<SensorRow> &rows) override;
    bool updateSensorSettings(const SensorRow &row) override;
    bool deleteAllSensors();

    // Layouts
    int insertLayout(const QString &name, const QString &description, const QByteArray &data,
                     const QByteArray &screenshot);
    QVector<LayoutRow> layouts(bool *ok = nullptr);
    bool deleteLayout(int id);

    // Models
    int insertModel(const ModelData &model);
    QVector<ModelData> models(bool *ok = nullptr);
    bool model(int id, ModelData *model);
    bool updateModel(const ModelData &model);
    // The user's own words for the model; the update above leaves them alone.
    bool renameModel(int id, const QString &name, const QString &description);
    // Takes its folders, logs and their comments with it (the cascades).
    bool deleteModel(int id);

    // Logs. nativeLog is the uncompressed log text; it is stored compressed.
    bool updateLog(int id, const QString &comment, const QDateTime &dateCreated, const QByteArray &nativeLog,
                   qint64 lengthms);
    // The same update with a blob compressed beforehand (BlobCodec::compress).
    bool updateLogCompressed(int id, const QString &comment, const QDateTime &dateCreated,
                             const QByteArray &blob, qint64 lengthms);
    bool loadLog(int id, QByteArray *nativeLog, QDateTime *dateCreated, int *modelId);
    // The same row with the data still compressed, for streaming it (InflatingDevice).
    bool loadLogCompressed(int id, QByteArray *blob, QDateTime *dateCreated, int *modelId);
    // ok (optional) tells a missing log from a failed statement.
    bool logExists(int id, bool *ok = nullptr);
    int modelOfLog(int id, bool *ok = nullptr);
    // -1 when no log has this recording date.
    int findLogByDate(const QDateTime &dateCreated);
    bool logData(int id, QByteArray *nativeLog);
    bool logDataCompressed(int id, QByteArray *blob);
    // Length in ms of every log of a model, by log id.
    QHash<int, qint64> logLengths(int modelId, bool *ok = nullptr);
    // The logbook's two statements: a model's logs by recording date, and its logs added up (modelId
    // -1: every model, by name).
    QVector<LogTables::FlightRow> flights(int modelId, bool *ok = nullptr);
    QVector<LogTables::TotalsRow> logTotals(int modelId, bool *ok = nullptr);

    // Backups: fileList and data are stored compressed.
    int insertBackup(quint32 hwid, const QString &name, const QString &description, qint64 size,
                     const QByteArray &fileList, const QByteArray &data);
    bool deleteBackup(int id);
    bool backupData(int id, QByteArray *data);
    bool backupFileList(int id, QByteArray *fileList);
    // Every backup without its blobs, newest first (the backups viewer).
    QVector<BackupRow> listBackups(bool *ok = nullptr);

    // The models tree. A folder or parent id of -1 means the model's top level (null).
    QVector<FolderRow> topLevelFolders(bool *ok = nullptr);
    QVector<FolderRow> subFolders(int parentId, bool *ok = nullptr);
    QVector<LogRow> logsInFolder(int folderId, bool *ok = nullptr);
    QVector<LogRow> topLevelLogs(bool *ok = nullptr);
    int insertFolder(int parentId, int modelId, const QString &name);
    int insertLog(int modelId, int folderId, const QString &filename, const QString &comment, qint64 lengthms,
                  const QDateTime &dateCreated);
    // The log's alarm count, as the logbook shows it.
    bool setLogAlarms(int logId, int alarms);
    // The log of that name in that folder (-1: top level) of the model, -1 when none; ok (optional)
    // tells a missing log from a failed statement.
    int findLog(int modelId, int folderId, const QString &filename, bool *ok = nullptr);
    bool editLogComment(int id, const QString &comment);
    bool deleteFolder(int id);
    bool deleteLog(int id);
    bool renameFolder(int id, const QString &name);
    bool renameLog(int id, const QString &filename);
    bool moveFolder(int id, int parentId);
    bool moveLog(int id, int folderId);
    // The folder's parent (-1 at the top level) and model; false when there is no such folder.
    bool folderParent(int id, int *parentId, int *modelId);

    // How dates are written to and read from the datetime columns.
    static QString dateText(const QDateTime &date);
    static QDateTime dateFromText(const QString &text, Qt::TimeSpec zone = Qt::LocalTime);

private:
    bool hasColumn(const QString &table, const QString &column, bool *ok);
    bool fillLogbook();

    DatabaseConnection m_connection;
    SensorTables m_sensors{&m_connection};
    LayoutTables m_layouts{&m_connection};
    ModelTables m_models{&m_connection};
    LogTables m_logs{&m_connection};
    BackupTables m_backups{&m_connection};
    Logger *m_logger = nullptr;
    int m_depth = 0;
    int m_busyTimeoutMs = 5000;
    bool m_readOnly = false;
    std::function<void(int, int)> m_upgradeProgress;
};
