#pragma once

#include "transmitter/AppManifest.h"
#include "transmitter/FileInstaller.h"
#include "transmitter/TxCatalogue.h"

#include <QObject>
#include <QSet>
#include <QStringList>

#include <atomic>

// Installs, updates or uninstalls one Lua app on the transmitter drive. Lives on a thread of its own (it
// needs that thread's event loop while it downloads) and talks only through its signals.
//
// Install: every file of the app goes through FileInstaller (checked destination, up to date by SHA1,
// verified download replacing the old file in one step); a file flagged "forceRewrite" is written even
// when up to date. When all files are in, the files the installed version had and the new one no longer
// lists are removed the careful way (below), and the app's manifest (AppManifest) is written. A failed
// file ends the install: the files written stay, the manifest then lists them (marked incomplete) so a
// later uninstall or update still finds them, and folders the install created and left empty go again.
//
// Uninstall: only the files the manifest lists are removed, and only when their SHA1 is still the one
// written; files the pilot changed are kept and named. Folders left empty are removed (never the drive
// root, nor the top-level "Apps"), then the manifest.
class AppInstaller : public QObject
{
    Q_OBJECT
public:
    enum Operation
    {
        Install, // also an update when the app is installed
        Uninstall
    };
    Q_ENUM(Operation)

    // For Uninstall only the app's id and name are used: the manifest says the rest.
    AppInstaller(Operation operation, const QString &driveRoot, const TxCatalogue::App &app,
                 QObject *parent = nullptr);
    ~AppInstaller() override;

    // The list may give the files and pictures relative to where it was fetched from.
    static void resolveUrls(QVector<TxCatalogue::App> *apps, const QUrl &listUrl);

    // Thread-safe: a running install stops after (or in) the file in hand; files written stay.
    void cancel();
    // Test hook, see FileInstaller::setFailBeforeReplace: the download of the file with this index fails
    // just before it would replace the target.
    void setFailBeforeReplace(int fileIndex) { m_failBeforeReplace = fileIndex; }

    // Read after finished().
    bool succeeded() const { return m_succeeded; }
    bool canceled() const { return m_cancel; }
    // Whether the drive was changed (a file written or removed).
    bool driveChanged() const { return m_driveChanged; }
    // Files of an uninstall or update left on the drive because the pilot changed them.
    QStringList keptFiles() const { return m_kept; }

public slots:
    void doWork();

signals:
    // The one-line state for the status bar ("Installing: %1.").
    void status(const QString &text);
    // One line for the log per step and file.
    void logLine(const QString &text);
    void progressChanged(int percent);
    // A failure to show in a box; not sent for a cancelled run.
    void error(const QString &title, const QString &text);
    void finished(bool ok);

private:
    enum class Removal
    {
        Removed,
        Absent,
        Kept,
        Failed
    };

    void installNext();
    void onFileFinished(FileInstaller::Result result, const QString &message);
    void completeInstall();
    void failInstall(const QString &reason);
    void uninstall();
    void finish(bool ok);

    // Removes one file of a manifest if it is still as written; its folder joins m_touchedFolders.
    Removal removeFile(const AppManifest::File &file);
    // "Removing residuals...": every folder left empty, up to (not including) the root or "Apps".
    bool removeResiduals();
    bool isProtectedFolder(const QString &absolutePath) const;
    QString absolute(const QString &relative) const;
    bool leadsThroughLink(const QString &destination) const;
    // Makes the missing levels of a file's folder, remembering them for a failed install.
    bool makeFolder(const QString &destination);

    Operation m_operation;
    QString m_root;
    TxCatalogue::App m_app;
    FileInstaller *m_installer = nullptr;
    AppManifest m_old;
    bool m_updating = false;
    AppManifest m_new;
    int m_index = 0;
    int m_failBeforeReplace = -1;
    QSet<QString> m_touchedFolders;
    QStringList m_createdFolders;
    QStringList m_kept;
    std::atomic_bool m_cancel{false};
    bool m_driveChanged = false;
    bool m_succeeded = false;
    bool m_done = false;
};
