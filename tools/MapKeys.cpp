#include "tools/MapKeys.h"

#include "telemetry/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

namespace {
const char *const kNames[MapKeys::kProviders] = {"Google", "Microsoft"};
constexpr qint64 kMaxFileSize = 64 * 1024;
} // namespace

void MapKeys::load(const QString &dataFolder, QString keys[kProviders])
{
    for (int i = 0; i < kProviders; ++i)
        keys[i].clear();
    QFile file(QDir(dataFolder).filePath(fileName()));
    if (!file.open(QIODevice::ReadOnly) || file.size() > kMaxFileSize)
        return;
    const QJsonObject object = QJsonDocument::fromJson(file.readAll()).object();
    for (int i = 0; i < kProviders; ++i)
        keys[i] = object.value(QLatin1String(kNames[i])).toString().trimmed();
}

bool MapKeys::save(const QString &dataFolder, const QString keys[kProviders], QString *error)
{
    QJsonObject object;
    for (int i = 0; i < kProviders; ++i)
        object.insert(QLatin1String(kNames[i]), keys[i].trimmed());
    const QString path = QDir(dataFolder).filePath(fileName());
    if (!AtomicFile::write(path, QJsonDocument(object).toJson(), error))
        return false;
    // A key is the user's account with the provider.
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
    return true;
}
