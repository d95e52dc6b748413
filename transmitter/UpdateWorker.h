#pragma once

#include "transmitter/TxCatalogue.h"

#include <QObject>
#include <QString>
#include <QVector>
#include <atomic>

class FileInstaller;
class SaveFileDownloader;

// Installs the chosen files of one transmitter update, one after the other in list order. Files for the
// drive go through FileInstaller (destination checked, up-to-date files left alone, each verified before
// it replaces the old one); "downloadOnly" files are fetched into the data folder instead and never touch
// the drive. The first file that fails ends the update: the files installed before it stay, the failed
// one keeps its old content, the rest are not touched. Lives on a thread of its own; talks only through
// signals.
class UpdateWorker : public QObject
{
    Q_OBJECT
public:
    enum ErrorType
    {
        InstallError, // a file could not be installed or was refused
        DriveError,   // the drive is not there
        Canceled,     // "Update canceled."
    };
    Q_ENUM(ErrorType)

    struct Request
    {
        QString root;       // transmitter drive root
        QString dataFolder; // "downloadOnly" files go to "<dataFolder>/Downloads/<updateId>/"
        int updateId = 0;
        // Already reduced to what is to be installed (unchecked optional files left out).
        QVector<TxCatalogue::FileEntry> files;
    };

    struct Summary
    {
        int installed = 0;  // written to the drive
        int upToDate = 0;   // already there with the right SHA1
        int downloaded = 0; // "downloadOnly" files fetched into the data folder
    };

    explicit UpdateWorker(const Request &request, QObject *parent = nullptr);
    ~UpdateWorker() override;

    // Thread-safe: the file being fetched is dropped (its old content stays), then error(Canceled, ...)
    // and finished().
    void cancel();
    Summary summary() const { return m_summary; }
    // What an update installs when nobody chooses: every file but the optional ones offered unchecked.
    static QVector<TxCatalogue::FileEntry> defaultSelection(const QVector<TxCatalogue::FileEntry> &files);
    // Why a file of the list may not be installed (unsafe destination, no SHA1 to check it by), or empty.
    static QString problemOf(const TxCatalogue::FileEntry &file);
    // Where a "downloadOnly" file of the request is kept.
    static QString downloadPath(const QString &dataFolder, int updateId, const TxCatalogue::FileEntry &file);

public slots:
    void doWork();

signals:
    void progressChanged(int percent);
    void processedFile(const QString &text);
    void error(UpdateWorker::ErrorType type, const QString &text);
    void finished();
    void rejectRequest();

private:
    // Runs one file to its end; false with *message set when it failed.
    bool installOne(const TxCatalogue::FileEntry &file, QString *message);
    bool downloadOne(const TxCatalogue::FileEntry &file, QString *message);
    void abortRunning();

    Request m_request;
    Summary m_summary;
    FileInstaller *m_installer = nullptr;
    SaveFileDownloader *m_downloader = nullptr;
    std::atomic_bool m_cancel{false};
};
Q_DECLARE_METATYPE(UpdateWorker::ErrorType)
