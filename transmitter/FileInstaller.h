#pragma once

#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;
class InstallDownloader;

// Installs one file of an update or an app onto the transmitter drive. The destination is untrusted: it
// must be a plain relative path below the drive root, or the file is refused before anything is written.
// A file already there with the right SHA1 is left alone. Otherwise the download goes to a temporary file
// beside the target, is checked for size and SHA1 and only then replaces the target in one rename, so a
// pulled cable or a bad server leaves the old file or the new one, never a mix.
class FileInstaller : public QObject
{
    Q_OBJECT
public:
    enum Result
    {
        Installed, // written and verified
        UpToDate,  // already there with the right SHA1; nothing downloaded
        Refused,   // the file's description is unsafe or unusable; nothing written
        Failed     // could not be installed; the old file, if any, is unchanged
    };
    Q_ENUM(Result)

    // How a downloaded file with the wrong SHA1 is reported.
    enum HashText
    {
        UpdaterHashText,   // names the expected and the computed value
        AppManagerHashText // the app manager's shorter text
    };

    struct Item
    {
        QUrl url;
        QString hash;        // SHA1, 40 hex digits
        qint64 size = -1;    // bytes; < 0 when unknown
        QString destination; // relative to the drive root, "/" separated
    };

    explicit FileInstaller(QObject *parent = nullptr);
    ~FileInstaller() override;

    void setDriveRoot(const QString &root);
    QString driveRoot() const { return m_root; }
    // Optional; shared with the downloader.
    void setNetworkAccessManager(QNetworkAccessManager *network);
    void setHashText(HashText text) { m_hashText = text; }
    // Writes the file even when the one on the drive already has the right SHA1.
    void setForceRewrite(bool force) { m_forceRewrite = force; }
    // Test hook: the verified download fails just before it would replace the target, as if the drive
    // was pulled at that moment.
    void setFailBeforeReplace(bool fail);

    // Starts installing; finished() follows from the event loop, also for a refusal.
    void install(const Item &item);
    // Stops a running install; finished(Failed, ...) follows and the old file stays.
    void abort();
    bool isRunning() const { return m_running; }

    // Drive root + destination (valid once install() has accepted the destination).
    QString targetPath() const { return m_target; }

signals:
    // The step in progress, for the log ("Downloading ...").
    void status(const QString &text);
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void finished(FileInstaller::Result result, const QString &message);

private:
    void onDownloadFinished(bool ok);
    void finishLater(Result result, const QString &message);
    // Why the destination may not be written, or an empty text.
    QString destinationProblem() const;

    InstallDownloader *m_downloader;
    Item m_item;
    QString m_root;
    QString m_target;
    HashText m_hashText = UpdaterHashText;
    bool m_forceRewrite = false;
    bool m_running = false;
    bool m_aborted = false;
    quint64 m_generation = 0;
};
