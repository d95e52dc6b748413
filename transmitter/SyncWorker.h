#pragma once

#include "database/ModelData.h"
#include "telemetry/TelemetryDataPackage.h"

#include <QDateTime>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QMetaType>
#include <QModelIndex>
#include <QObject>
#include <QPersistentModelIndex>
#include <QString>
#include <QVariant>
#include <atomic>

// What a synchronisation did, log by log; the file names are relative to the "Log" folder
// ("20240517/12-30-00.log").
struct SyncReport
{
    struct Entry
    {
        QString file;
        QString model;  // the model the log belongs to (empty when it could not be read)
        QString reason; // failed: what went wrong, plain text
    };
    QList<Entry> stored;
    QList<Entry> skipped; // already in the database: same model, folder, name and bytes
    QList<Entry> failed;
    // Logs whose folder or file name is not a date and time: filed under the file's modification date.
    QStringList dateReplaced;
    QStringList modelsCreated;
    bool canceled = false;
    // The text of the error that ended the run early, plain; empty when it ran to its end.
    QString abortedBy;

    int total() const { return stored.size() + skipped.size() + failed.size(); }
    // Plain-text lines for a person: counts, then the failed and re-dated logs by name.
    QString summary() const;
};
Q_DECLARE_METATYPE(SyncReport)

// Copies the checked transmitter logs into the database. Lives on a thread of its own: it reads, parses,
// measures and compresses each log itself and reaches the logs model and the database only through the
// blocking request signals, whose answers the interface thread fills in (LogSyncStore). A log that cannot
// be read is reported and skipped; a database failure or a vanished drive ends the run, keeping what
// was stored.
class SyncWorker : public QObject
{
    Q_OBJECT
public:
    enum ErrorType
    {
        OpenFileError,     // "Unable to open the log file"
        LoadFileError,     // "Unable to load the log file"
        CreateModelError,  // "There was an error during creating a model in database."
        CreateFolderError, // "Unable to create the log folder in database"
        SaveLogError,      // "Unable to save the log file to database"
        DisconnectedError, // "Transmitter disconnected. Aborting synchronization."
        Canceled,
    };
    Q_ENUM(ErrorType)

    // What the interface thread did with the log of logCreated().
    enum StoreResult
    {
        NotStored, // nobody answered
        Stored,
        AlreadyPresent,
        FolderFailed,
        SaveFailed,
    };

    // The log in hand while logCreated() is being answered: everything the insert needs, made here.
    struct PreparedLog
    {
        QString path;
        QString fileName;   // "hh-mm-ss.log"
        QString folderPath; // "yyyy/MM/dd" of the flight's date
        QDateTime dateTime; // the flight's date and time
        QByteArray bytes;   // the file's bytes
        QByteArray blob;    // BlobCodec::compress(bytes)
        qint64 size = 0;
        qint64 lengthms = 0;
        int alarms = 0;
        StoreResult result = NotStored;
        int logId = -1;
        QString error; // the database's reason when result is FolderFailed or SaveFailed
    };

    // logs: indexes of a TransmitterLogsModel (usually checkedLogs()), made on the model's thread;
    // driveRoot: the drive they are on, watched for its disappearance. Each log stored or found already
    // present is unchecked in the model (through requestSetLogsModelData).
    SyncWorker(const QList<QPersistentModelIndex> &logs, const QString &driveRoot, QObject *parent = nullptr);

    // Thread-safe: the worker stops after the log in hand.
    void cancel() { m_cancel = true; }
    // Read after finished() (or take it from completed()).
    SyncReport report() const { return m_report; }

    // For the answer to logCreated(): valid while it is being handled.
    const PreparedLog &currentLog() const { return m_current; }
    void setStoreResult(StoreResult result, int logId = -1, const QString &error = QString());

    // The default the files and reports use for a relative log name.
    static QString relativeName(const QFileInfo &info);

public slots:
    void doWork();

signals:
    void requestGetLogsModelData(QVariant &value, const QModelIndex &index, int role);
    void requestSetLogsModelData(bool &ok, const QModelIndex &index, const QVariant &value, int role);
    void requestGetLogsModelFileInfo(QFileInfo &info, const QModelIndex &index);
    void requestGetLogsModelDateTime(QDateTime &dateTime, const QModelIndex &index);
    // Finds the model of that name or creates it, filling in its id; ok false when the database fails.
    void requestSubmitNewModel(bool &ok, ModelData &model);
    // The model id and the loaded log; the handler stores currentLog() and calls setStoreResult().
    void logCreated(int modelId, const TelemetryDataPackage &log);

    void progressChanged(int percent);
    // One line per log handled: its name and what became of it.
    void processedFile(const QString &line);
    void error(SyncWorker::ErrorType type, const QString &text);
    // The whole report, just before finished().
    void completed(const SyncReport &report);
    void finished();
    void rejectRequest();

private:
    enum class Step
    {
        Next,
        Stop
    };
    Step syncOne(const QPersistentModelIndex &index, const QString &listedName);
    bool driveGone() const;
    void failLog(const QString &name, const QString &model, const QString &text);
    Step abort(ErrorType type, const QString &text);

    QList<QPersistentModelIndex> m_logs;
    QStringList m_names;
    QString m_root;
    std::atomic_bool m_cancel{false};
    SyncReport m_report;
    PreparedLog m_current;
    // Model name to id, so each model is looked up (and created) once per run.
    QHash<QString, int> m_modelIds;
};
Q_DECLARE_METATYPE(SyncWorker::ErrorType)
