#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <atomic>

// Writes the chosen files of a transmitter drive into a zip archive, entry by entry and streaming, so
// memory does not grow with the drive; then reopens the archive and checks every entry's CRC before
// the backup counts as made. Lives on a thread of its own; talks only through signals.
class BackupWorker : public QObject
{
    Q_OBJECT
public:
    enum ErrorType
    {
        CreateFileError, // "Could not create backup file, backup process will be aborted. Try again later."
        OpenFileError,   // "Unable to open the file"
        ZipError,        // "There was an error during creating backup file"
        VerifyError,     // the archive written does not read back
        DatabaseError,   // "There was an error during creating the backup in database. ..."
        Canceled,
    };
    Q_ENUM(ErrorType)

    struct Request
    {
        QString root;      // transmitter drive root
        QStringList files; // relative to root, "/" separators; folders end in "/"
        bool toDatabase = false;
        QString targetFile; // when !toDatabase: the .zip written (atomically) at the end
        int hwId = 0;
        QString name;
        QString description;
    };

    explicit BackupWorker(const Request &request, QObject *parent = nullptr);

    // Thread-safe: the worker stops at the next entry, removes its temporary file and emits
    // error(Canceled, ...) then finished().
    void cancel() { m_cancel = true; }
    // Total bytes of the request's files (what the size limits are compared with).
    static qint64 totalSize(const QString &root, const QStringList &files);

public slots:
    void doWork();

signals:
    void progressChanged(int percent);
    void processedFile(const QString &path);
    void error(BackupWorker::ErrorType type, const QString &text);
    void finished();
    void rejectRequest();
    // Database storage: hardware id, name, description, file list, zip bytes. Handled on the
    // interface thread (connect blocking-queued from the worker thread, or direct in a plain program).
    // The handler reports a failed insert back by calling databaseInsertFailed() before returning.
    void insertBackupDbRequest(int hwId, const QString &name, const QString &description,
                               const QStringList &files, const QByteArray &zip);

public:
    void databaseInsertFailed() { m_dbFailed = true; }

private:
    Request m_request;
    std::atomic_bool m_cancel{false};
    std::atomic_bool m_dbFailed{false};
};
Q_DECLARE_METATYPE(BackupWorker::ErrorType)
