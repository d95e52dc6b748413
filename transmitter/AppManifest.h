#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QVector>

// How the studio knows which Lua apps it put on a transmitter: one small JSON file per app,
// "Apps/.vexo/<app id>.json", written atomically by AppInstaller after every install or update. It names
// the app, its version, when it was installed, and each file's destination with the SHA1 it had when
// written, so "installed" and "updatable" are exact and an uninstall removes only what the studio wrote
// and the pilot has not changed since. The drive is the pilot's: a manifest is read as untrusted input.
struct AppManifest
{
    struct File
    {
        QString destination; // relative to the drive root, "/" separated
        QString sha1;        // lower-case hex, as written
        // Was already on the drive, byte for byte, before the studio installed the app: left there on
        // uninstall, so an install followed by an uninstall changes nothing.
        bool preexisting = false;
    };

    int id = 0;
    QString name;
    QString version;
    QDateTime installed;
    // False when the last install or update ended early: the files listed are the ones on the drive
    // that belong to the app, and the app counts as updatable whatever the list's version.
    bool complete = true;
    QVector<File> files;

    // "Apps/.vexo", the folder of the manifests, and one app's manifest, relative to the drive root.
    static QString folder();
    static QString relativePath(int appId);
    static QString path(const QString &driveRoot, int appId);

    // False with *error when there is no readable manifest for the app. Files with an unsafe destination
    // or a hash that is not 40 hex digits are dropped (and never touched).
    static bool read(const QString &driveRoot, int appId, AppManifest *manifest, QString *error = nullptr);
    // The manifest of the app from its bytes, with the same checks as read().
    static bool parse(const QByteArray &json, int appId, AppManifest *manifest, QString *error = nullptr);
    // Every readable manifest on the drive, by app id.
    static QHash<int, AppManifest> readAll(const QString &driveRoot);
    // Replaces the app's manifest in one step.
    bool write(const QString &driveRoot, QString *error) const;
    // Removes the app's manifest, and the manifest folder once it is empty.
    static bool remove(const QString &driveRoot, int appId, QString *error);

    int indexOf(const QString &destination) const;
};
