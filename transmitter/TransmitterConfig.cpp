#include "transmitter/TransmitterConfig.h"

#include "transmitter/DriveEnumerator.h"
#include "transmitter/TransmitterModels.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>

#include <cmath>

namespace {
QString tr(const char *text)
{
    return QCoreApplication::translate("TransmitterConfig", text);
}

bool fail(QString *error, const QString &text)
{
    if (error)
        *error = text;
    return false;
}

// Doubles beyond this are no longer exact integers; such an id is garbage, not a transmitter.
constexpr double kMaxExactInteger = 9007199254740992.0;
} // namespace

// The name as the folder holds it, found without regard to case as the drive's FAT file system does
// (a folder handed in as a drive may live on a file system that tells case apart).
static QString entryIgnoringCase(const QString &folder, const QString &name)
{
    if (QFileInfo::exists(folder + name))
        return name;
    const QStringList entries =
        QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &entry : entries)
        if (entry.compare(name, Qt::CaseInsensitive) == 0)
            return entry;
    return name;
}

QString TransmitterConfig::path(const QString &root)
{
    QString r = DriveEnumerator::normalizedRoot(root);
    if (!r.endsWith(QLatin1Char('/')))
        r += QLatin1Char('/');
    const QString folder = r + entryIgnoringCase(r, QStringLiteral("Config")) + QLatin1Char('/');
    return folder + entryIgnoringCase(folder, QStringLiteral("Config.jsn"));
}

bool TransmitterConfig::parse(const QByteArray &data, TransmitterInfo *info, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return fail(error, tr("Config/Config.jsn is damaged: %1").arg(parseError.errorString()));
    if (!doc.isObject())
        return fail(error, tr("Config/Config.jsn is damaged: not an object"));
    const QJsonObject o = doc.object();
    const QJsonValue hw = o.value(QLatin1String("hw"));
    if (hw.isUndefined() || hw.isNull())
        return fail(error, tr("Config/Config.jsn names no hardware id"));
    const double id = hw.toDouble(std::nan(""));
    if (!std::isfinite(id) || std::fabs(id) > kMaxExactInteger || std::trunc(id) != id)
        return fail(error, tr("Config/Config.jsn holds no integer hardware id"));
    // The id is a 16-bit field on the transmitter; higher bits carry nothing we use.
    info->hwId = quint16(qint64(id) & 0xFFFF);

    const QJsonValue version = o.value(QLatin1String("version"));
    const QString text = version.isString() ? version.toString() : version.toVariant().toString();
    const QStringList parts = text.trimmed().split(QLatin1Char('.'));
    info->versionMajor = parts.value(0).toInt();
    info->versionMinor = parts.value(1).toInt();
    info->modelName = TransmitterModels::modelName(info->hwId);
    return true;
}

bool TransmitterConfig::read(const QString &root, TransmitterInfo *info, QString *error)
{
    const QString file = path(root);
    const QFileInfo fi(file);
    if (!fi.exists())
        return fail(error, tr("No Config/Config.jsn below %1").arg(root));
    if (!fi.isFile())
        return fail(error, tr("%1 is not a file").arg(file));
    // Checked before reading: a huge file on a drive must not stall the serial thread.
    if (fi.size() > kMaxConfigSize)
        return fail(error, tr("%1 is too large (%2 bytes)").arg(file).arg(fi.size()));
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return fail(error, tr("Unable to read %1: %2").arg(file, f.errorString()));
    const QByteArray data = f.read(kMaxConfigSize + 1);
    if (data.size() > kMaxConfigSize)
        return fail(error, tr("%1 is too large").arg(file));
    TransmitterInfo parsed;
    if (!parse(data, &parsed, error))
        return false;
    parsed.rootPath = DriveEnumerator::normalizedRoot(root);
    parsed.driveLetter = parsed.rootPath.isEmpty() ? 0 : parsed.rootPath.at(0).toLatin1();
    *info = parsed;
    return true;
}
