#include "app/AppSettings.h"
#include "telemetry/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStandardPaths>
#include <QUrl>

const QStringList &AppSettings::keys()
{
    static const QStringList list = {kVersionKey,  kOpenDir,     kExportDir,  kPort,
                                     kWindowState, kWindowSize,  kJoystick,   kImagePath,
                                     kImageWidth,  kImageHeight, kAutoUpdate, kModelId};
    return list;
}

AppSettings::AppSettings()
{
    // Defaults for a file that lacks a key: folders start at home, exports at full-HD, updates checked.
    const QString home = QDir::homePath();
    setValue(kVersionKey, QString::fromLatin1(kVersion));
    setValue(kOpenDir, home);
    setValue(kExportDir, home);
    setValue(kPort, QString());
    setValue(kWindowState, QString());
    setValue(kWindowSize, QString());
    setValue(kJoystick, QString());
    setValue(kImagePath, home);
    setValue(kImageWidth, 1920);
    setValue(kImageHeight, 1080);
    setValue(kAutoUpdate, true);
    setValue(kModelId, -1);
}

QString AppSettings::dataFolder()
{
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    QDir().mkpath(folder);
    return folder;
}

QJsonValue AppSettings::value(const QString &key) const
{
    return m_values.value(key.toLower());
}

void AppSettings::setValue(const QString &key, const QJsonValue &value)
{
    m_values.insert(key.toLower(), value);
}

QByteArray AppSettings::bytes(const QString &key) const
{
    return QByteArray::fromPercentEncoding(text(key).toLatin1());
}

void AppSettings::setBytes(const QString &key, const QByteArray &data)
{
    setValue(key, QString::fromLatin1(data.toPercentEncoding()));
}

bool AppSettings::load(const QString &path)
{
    m_loaded = false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        m_lastError = tr("%1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(file.read(1 << 20), &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        m_lastError = tr("%1: not a settings file (%2)").arg(path, error.errorString());
        return false;
    }
    const QJsonObject object = doc.object();
    // Known keys only, whatever their case; a value of the wrong kind keeps the default.
    for (auto it = object.begin(); it != object.end(); ++it) {
        const QString key = it.key().toLower();
        if (!m_values.contains(key))
            continue;
        if (it.value().type() == m_values.value(key).type())
            m_values.insert(key, it.value());
    }
    m_loaded = true;
    return true;
}

QByteArray AppSettings::toJson() const
{
    // Written by hand: a JSON object from the framework would sort the keys.
    QByteArray out = "{\n";
    for (int i = 0; i < keys().size(); ++i) {
        const QString &key = keys().at(i);
        QByteArray v = QJsonDocument(QJsonArray{value(key)}).toJson(QJsonDocument::Compact);
        v = v.mid(1, v.size() - 2);
        out += "    \"" + key.toUtf8() + "\": " + v + (i + 1 < keys().size() ? ",\n" : "\n");
    }
    out += "}\n";
    return out;
}

bool AppSettings::save(const QString &path) const
{
    QSaveFile file(path);
    const QByteArray data = toJson();
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size() || !AtomicFile::commit(file)) {
        const_cast<AppSettings *>(this)->m_lastError = tr("%1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}
