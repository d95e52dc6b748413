#pragma once

#include "telemetry/TelemetryDataPackage.h"

#include <QCoreApplication>
#include <QString>

class DatabaseManager;
class SensorTable;
class TelemetryData;

// The models, folders and logs behind the models tree and `vexo-log db`: the operations that take more
// than one statement or guard the tree's shape (no folder inside itself, no move across models), and
// the way logs go in and out (compressed native log text, streamed back into the reader or a file).
class ModelLibrary
{
    Q_DECLARE_TR_FUNCTIONS(ModelLibrary)
public:
    explicit ModelLibrary(DatabaseManager *database);

    DatabaseManager *database() const { return m_db; }
    QString lastError() const { return m_lastError; }

    // A model with the built-in default layout and otherwise empty data; its id, or -1.
    int createModel(const QString &name);
    // The model of exactly this name, else the only one that matches ignoring case; -1 when none (ok
    // tells a missing model from a failed database).
    int findModel(const QString &name, bool *ok = nullptr);
    bool deleteModel(int modelId);
    // Refuses an empty name and one another model already has (ignoring case), as findModel would then
    // no longer tell them apart.
    bool renameModel(int modelId, const QString &name, const QString &description);
    // The model's name, or an empty text when there is no such model.
    QString modelName(int modelId);

    // parentId -1: the model's top level.
    int createFolder(int modelId, int parentId, const QString &name);
    // Finds or creates the folders of a path such as "2024/05/17" level by level; folderId gets the
    // last one (-1 for an empty path: the top level).
    bool folderForPath(int modelId, const QString &path, int *folderId);
    bool renameFolder(int folderId, const QString &name);
    bool renameLog(int logId, const QString &name);
    bool editComment(int logId, const QString &comment);
    // Refuses a folder moved into itself, one of its own sub-folders or another model's tree.
    bool moveFolder(int folderId, int newParentId);
    bool moveLog(int logId, int folderId);
    bool deleteFolder(int folderId);
    bool deleteLog(int logId);

    // Length of a recording in ms: from its first to its last sample or message.
    static qint64 lengthOf(const TelemetryDataPackage &package);
    // Stores the package as a native log under the model and folder (-1: top level); the recording
    // date becomes dateCreated. All or nothing; the new log's id, or -1.
    int storeLog(const TelemetryDataPackage &package, int modelId, int folderId,
                 const QString &fileName = QString(), const QString &comment = QString());
    int storeNativeLog(const QByteArray &nativeLog, const QDateTime &recordingDate, qint64 lengthms,
                       int modelId, int folderId, const QString &fileName, const QString &comment = QString(),
                       int alarms = 0);
    // The same with the log already compressed (BlobCodec::compress), so a caller on the interface
    // thread keeps only the short insert: reading, counting and compressing happen where it chooses.
    int storeCompressedLog(const QByteArray &blob, const QDateTime &recordingDate, qint64 lengthms,
                           int alarms, int modelId, int folderId, const QString &fileName,
                           const QString &comment = QString());
    // The log of that name (ignoring case, as the file systems it comes from do) in that folder (-1: top
    // level) of the model; -1 when none (ok tells a missing log from a failed database).
    int findLog(int modelId, int folderId, const QString &fileName, bool *ok = nullptr);
    // Reads a log file (any format the store opens, consulting the database's sensor table) and stores
    // it under the model and folder (-1: top level), named by its file name and dated by its recording
    // date. One transaction: the sensor rows the reading adds and the log go in together or not at all.
    // A file without any telemetry is refused. The new log's id, or -1 with lastError() beginning with
    // the path. warning (optional): what was stored but is worth telling, else empty. package
    // (optional): what was read.
    int importFile(const QString &path, int modelId, int folderId, QString *warning = nullptr,
                   TelemetryDataPackage *package = nullptr);
    // Reads a stored log into the package, inflating as the reader goes. sensors null: the database's.
    bool readLog(int logId, TelemetryDataPackage *package, SensorTable *sensors = nullptr);
    // Reads a stored log and hands it to the store, which emits logFileLoaded(logId).
    bool openLog(int logId, TelemetryData *store);
    // Writes the stored native log to a file, byte for byte; the file appears only when complete.
    bool exportLog(int logId, const QString &path);

private:
    bool fail(const QString &reason);
    bool failFromDatabase();

    DatabaseManager *m_db;
    QString m_lastError;
};
