#pragma once

#include "tools/UpdateEndpoints.h"

#include <QByteArray>
#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;
class QThread;
class FileDownloader;
class SaveFileDownloader;

// The background check for a newer program and newer device definitions. It lives on a thread of its
// own (see UpdateCheckerThread) and talks to the window only through signals; the window decides
// whether a newer definitions file is fetched (downloadDeviceUpdates()), a companion may fetch at once.
//
// The definitions file is replaced only once the download is whole and its SHA1 matches the catalogue:
// it is fetched beside the old one and renamed over it, so a failed or cancelled fetch keeps the old one.
class UpdateChecker : public QObject
{
    Q_OBJECT
public:
    static constexpr const char *kProgramVersion = "1.1.0";
    static constexpr const char *kDateFormat = "yyyy-MM-dd h:m:s";
    static constexpr const char *kDeviceUpdatesFile = "DeviceUpdates.sqlite";
    static constexpr int kMaxRetries = 2;
    // The catalogues are a few hundred bytes; the definitions database a few MB.
    static constexpr qint64 kMaxCatalogueBytes = 1024 * 1024;
    static constexpr qint64 kMaxDefinitionsBytes = 256 * 1024 * 1024;

    struct DeviceCatalogue
    {
        QDateTime date; // invalid when "Date" is missing or malformed
        QString url;
        QString sha1;
    };

    // The "Version" of the first "PackageUpdate" that has one; empty when none.
    static QString offeredVersion(const QByteArray &updateXml);
    static DeviceCatalogue deviceCatalogue(const QByteArray &devUpdateXml);
    // Dotted version numbers compared number by number, missing numbers counting as 0: <0, 0 or >0.
    static int compareVersions(const QString &a, const QString &b);
    // Whether the local definitions file must be fetched: missing, or older than the catalogue's date.
    static bool needsDownload(const QString &localPath, const QDateTime &catalogueDate);
    // The address to fetch the definitions from: "Url" resolved against the catalogue's own address,
    // http or https only, and never plain http when the catalogue came over https. Invalid when refused.
    static QUrl definitionsUrl(const QUrl &catalogueUrl, const QString &url);

    UpdateChecker(const QUrl &serviceFolder, const QString &dataFolder, QObject *parent = nullptr);
    ~UpdateChecker() override;

    // Fetch newer definitions without asking (the companion's --download).
    void setAutoDownload(bool on) { m_autoDownload = on; }
    // Only the definitions check (the window's check at start does both).
    void setCheckProgram(bool on) { m_checkProgram = on; }
    void setSilenceLimit(int ms) { m_silenceMs = ms; }
    QString deviceUpdatesPath() const;

public slots:
    void run();
    void downloadDeviceUpdates();
    void cancel();

signals:
    // The program check: the offered version and whether it is newer than this one.
    void programChecked(const QString &offeredVersion, bool newer);
    // A check could not run to its end (network error, unreadable catalogue); why, for the user who asked.
    void checkFailed(const QString &why);
    void deviceUpdateAvailable(const QDateTime &date);
    // 0 to 100 while the definitions download, -1 when it failed.
    void progress(int percent);
    // Nothing more to do: the thread may quit.
    void done();

private:
    void checkDevices();
    // True when the catalogue did not arrive: the check then ends quietly, the window told why.
    bool catalogueMissing(bool ok);
    void startDefinitionsDownload();
    void definitionsDownloaded(bool ok);
    QString stagingPath() const;
    QNetworkAccessManager *network();

    QUrl m_folder;
    QString m_dataFolder;
    bool m_autoDownload = false;
    bool m_checkProgram = true;
    bool m_cancelled = false;
    int m_silenceMs = 10000;
    int m_retries = 0;
    DeviceCatalogue m_catalogue;
    QUrl m_definitionsUrl;
    QNetworkAccessManager *m_network = nullptr;
    FileDownloader *m_catalogueDownload = nullptr;
    SaveFileDownloader *m_fileDownload = nullptr;
};

// Owns the checker's thread: started() runs the check; stop() asks the thread to end and waits at most
// 5000 ms before terminating it, so a hung server never holds up the program's exit.
class UpdateCheckerThread : public QObject
{
    Q_OBJECT
public:
    static constexpr int kStopWaitMs = 5000;

    // Takes the checker (which must have no parent) and moves it onto the thread.
    explicit UpdateCheckerThread(UpdateChecker *checker, QObject *parent = nullptr);
    ~UpdateCheckerThread() override;

    UpdateChecker *checker() const { return m_checker; }
    void start();
    void stop();
    bool isRunning() const;

private:
    QThread *m_thread;
    QPointer<UpdateChecker> m_checker;
};
