#include "transmitter/AppManifest.h"

#include "telemetry/AtomicFile.h"
#include "tools/Sha1Check.h"
#include "transmitter/ArchiveCheck.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

namespace {
// A manifest is a few lines per file; anything larger is not one of ours.
constexpr qint64 kMaxManifestBytes = 4 * 1024 * 1024;
constexpr int kFormat = 1;

QString tr(const char *text)
{
    return QCoreApplication::translate("AppManifest", text);
}
} // namespace

QString AppManifest::folder()
{
    return QStringLiteral("Apps/.vexo");
}

QString AppManifest::relativePath(int appId)
{
    return folder() + QStringLiteral("/%1.json").arg(appId);
}

QString AppManifest::path(const QString &driveRoot, int appId)
{
    return QDir::cleanPath(driveRoot) + QLatin1Char('/') + relativePath(appId);
}

int AppManifest::indexOf(const QString &destination) const
{
    for (int i = 0; i < files.size(); ++i) {
        if (files.at(i).destination.compare(destination, Qt::CaseInsensitive) == 0)
            return i;
    }
    return -1;
}

bool AppManifest::read(const QString &driveRoot, int appId, AppManifest *manifest, QString *error)
{
    const QString fileName = path(driveRoot, appId);
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = tr("The app is not installed (no \"%1\").").arg(relativePath(appId));
        return false;
    }
    if (file.size() > kMaxManifestBytes) {
        if (error)
            *error = tr("\"%1\" is too large to be an app manifest.").arg(relativePath(appId));
        return false;
    }
    return parse(file.read(kMaxManifestBytes), appId, manifest, error);
}

bool AppManifest::parse(const QByteArray &json, int appId, AppManifest *manifest, QString *error)
{
    const QJsonDocument doc = QJsonDocument::fromJson(json);
    const QJsonObject o = doc.object();
    if (!doc.isObject() || o.value(QStringLiteral("id")).toInt(-1) != appId) {
        if (error)
            *error = tr("\"%1\" is not a readable app manifest.").arg(relativePath(appId));
        return false;
    }
    AppManifest m;
    m.id = appId;
    m.name = o.value(QStringLiteral("name")).toString();
    m.version = o.value(QStringLiteral("version")).toString();
    m.installed = QDateTime::fromString(o.value(QStringLiteral("installed")).toString(), Qt::ISODate);
    m.complete = o.value(QStringLiteral("complete")).toBool(true);
    QSet<QString> seen; // FAT names ignore case
    for (const QJsonValue &v : o.value(QStringLiteral("files")).toArray()) {
        const QJsonObject f = v.toObject();
        File entry;
        entry.destination = f.value(QStringLiteral("destination")).toString();
        entry.sha1 = f.value(QStringLiteral("sha1")).toString().trimmed().toLower();
        entry.preexisting = f.value(QStringLiteral("preexisting")).toBool(false);
        // An edited manifest must not lead a removal outside the drive or onto the manifests themselves.
        if (!ArchiveCheck::isSafeRelativePath(entry.destination) || !Sha1Check::isValidHex(entry.sha1) ||
            entry.destination.startsWith(folder() + QLatin1Char('/'), Qt::CaseInsensitive))
            continue;
        if (!seen.contains(entry.destination.toLower())) {
            seen.insert(entry.destination.toLower());
            m.files.append(entry);
        }
    }
    *manifest = m;
    return true;
}

QHash<int, AppManifest> AppManifest::readAll(const QString &driveRoot)
{
    QHash<int, AppManifest> all;
    const QDir dir(QDir::cleanPath(driveRoot) + QLatin1Char('/') + folder());
    for (const QFileInfo &info : dir.entryInfoList({QStringLiteral("*.json")}, QDir::Files)) {
        bool ok = false;
        const int id = info.completeBaseName().toInt(&ok);
        AppManifest m;
        if (ok && read(driveRoot, id, &m))
            all.insert(id, m);
    }
    return all;
}

bool AppManifest::write(const QString &driveRoot, QString *error) const
{
    QJsonArray list;
    for (const File &f : files) {
        QJsonObject entry{{QStringLiteral("destination"), f.destination}, {QStringLiteral("sha1"), f.sha1}};
        if (f.preexisting)
            entry.insert(QStringLiteral("preexisting"), true);
        list.append(entry);
    }
    const QJsonObject o{{QStringLiteral("format"), kFormat},
                        {QStringLiteral("id"), id},
                        {QStringLiteral("name"), name},
                        {QStringLiteral("version"), version},
                        {QStringLiteral("installed"), installed.toUTC().toString(Qt::ISODate)},
                        {QStringLiteral("complete"), complete},
                        {QStringLiteral("files"), list}};
    const QString fileName = path(driveRoot, id);
    const QString root = QDir::cleanPath(driveRoot);
    for (const QString &step :
         {root + QStringLiteral("/Apps"), root + QLatin1Char('/') + folder(), fileName}) {
        if (QFileInfo(step).isSymLink()) {
            if (error)
                *error = tr("\"%1\" is a link; the manifest is not written through it.")
                             .arg(QDir::toNativeSeparators(step));
            return false;
        }
    }
    if (!QDir().mkpath(QFileInfo(fileName).absolutePath())) {
        if (error)
            *error = tr("Unable to create folder %1.")
                         .arg(QDir::toNativeSeparators(QFileInfo(fileName).absolutePath()));
        return false;
    }
    return AtomicFile::write(fileName, QJsonDocument(o).toJson(QJsonDocument::Indented), error);
}

bool AppManifest::remove(const QString &driveRoot, int appId, QString *error)
{
    const QString fileName = path(driveRoot, appId);
    if (QFileInfo::exists(fileName) && !QFile::remove(fileName)) {
        if (error)
            *error = QDir::toNativeSeparators(fileName);
        return false;
    }
    QDir(QDir::cleanPath(driveRoot) + QStringLiteral("/Apps"))
        .rmdir(QStringLiteral(".vexo")); // only when empty
    return true;
}
