#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <atomic>
#include <functional>

class QIODevice;

// Writes a backup archive back onto the transmitter drive. The whole archive is checked first
// (ArchiveCheck) and nothing is written when it is refused. Each file goes to "<target>.jsnew" with
// its CRC checked while written, then the old file becomes "<target>.jsold", the new one takes its
// name and the old one is removed: a pulled cable leaves every file old, new, or a pair that
// RestoreJournal completes. Lives on a thread of its own; talks only through signals.
class RestoreWorker : public QObject
{
    Q_OBJECT
public:
    enum ErrorType
    {
        OpenError, // "Unable to open the backup. If problem persists the backup is probably corrupted."
        DatabaseReadError, // "There was an error during reading backup from database."
        RefusedArchive,    // the archive check's reason
        CreateFileError,   // "Unable to create \"%1\" file. Can't proceed to restoration."
        RecoverError,      // "Unable to recover", detail "%1:\n%2"
        UnexpectedError,   // "An unexpected error has occurred."
        Canceled,
    };
    Q_ENUM(ErrorType)

    struct Request
    {
        QString root;        // transmitter drive root
        QString archivePath; // a backup file, or empty with backupId
        int backupId = -1;   // a database backup, asked for through requestBackupFromDb
    };

    // Test seam: called before each step that changes the drive ("write <path>.jsnew",
    // "rename <from> -> <to>", "remove <path>", "mkdir <path>"); returning false makes that step fail
    // as the file system would.
    using StepHook = std::function<bool(const QString &step)>;

    explicit RestoreWorker(const Request &request, QObject *parent = nullptr);
    void setStepHook(StepHook hook) { m_hook = std::move(hook); }
    // Test seam: the free space the restore plans with, instead of the drive's.
    void setFreeSpace(qint64 bytes) { m_freeSpace = bytes; }

    void cancel() { m_cancel = true; }
    // Answer to requestBackupFromDb, from any thread, before the connected slot returns
    // (connect blocking-queued from the worker thread, or direct in a plain program).
    void setBackupData(const QByteArray &zip, bool ok);

public slots:
    void doWork();

signals:
    void progressChanged(int percent);
    void processedFile(const QString &path);
    void error(RestoreWorker::ErrorType type, const QString &text);
    void finished();
    void rejectRequest();
    void requestBackupFromDb(int backupId);

private:
    Request m_request;
    bool step(const QString &what);
    bool fail(ErrorType type, const QString &text);
    bool restoreFrom(QIODevice *device);

    StepHook m_hook;
    qint64 m_freeSpace = -1;
    std::atomic_bool m_cancel{false};
    QByteArray m_dbData;
    bool m_dbOk = false;
};
Q_DECLARE_METATYPE(RestoreWorker::ErrorType)
