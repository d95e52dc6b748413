#include "transmitter/BackupRules.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

namespace BackupRules {

QStringList scopeNames()
{
    return {QCoreApplication::translate("BackupScope", "Minimal"),
            QCoreApplication::translate("BackupScope", "Standard"),
            QCoreApplication::translate("BackupScope", "Full"),
            QCoreApplication::translate("BackupScope", "Custom")};
}

bool scopeTakes(Scope scope, const QString &topLevelName)
{
    static const QStringList minimal = {QStringLiteral("Config"), QStringLiteral("Export"),
                                        QStringLiteral("Model")};
    static const QStringList standard = minimal + QStringList{QStringLiteral("Apps"), QStringLiteral("Img")};
    switch (scope) {
    case Minimal:
        return minimal.contains(topLevelName, Qt::CaseInsensitive);
    case Standard:
        return standard.contains(topLevelName, Qt::CaseInsensitive);
    case Full:
        return true;
    case Custom:
        break;
    }
    return false;
}

namespace {
// Folders first, then files, each sorted by name without regard to case; links are not followed (a
// FAT drive has none, and one made elsewhere could point off the drive).
QFileInfoList sortedEntries(const QString &folder)
{
    QDir dir(folder);
    return dir.entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System |
                                 QDir::NoSymLinks,
                             QDir::DirsFirst | QDir::Name | QDir::IgnoreCase);
}

void collect(const QString &folder, const QString &prefix, QStringList *files, int depth)
{
    if (depth > 64)
        return;
    const QFileInfoList entries = sortedEntries(folder);
    // An empty folder is kept as a folder entry, as the wizard's tree does.
    if (entries.isEmpty() && !prefix.isEmpty())
        files->append(prefix);
    for (const QFileInfo &info : entries) {
        const QString relative = prefix + info.fileName();
        if (info.isDir())
            collect(info.filePath(), relative + QLatin1Char('/'), files, depth + 1);
        else
            files->append(relative);
    }
}
} // namespace

QStringList filesForScope(const QString &root, Scope scope)
{
    QStringList files;
    for (const QFileInfo &info : sortedEntries(root)) {
        if (!scopeTakes(scope, info.fileName()))
            continue;
        if (info.isDir())
            collect(info.filePath(), info.fileName() + QLatin1Char('/'), &files, 1);
        else
            files.append(info.fileName());
    }
    return files;
}

DbSize dbSizeVerdict(qint64 size)
{
    if (size > kMaxDbSize)
        return DbSize::TooLarge;
    return size > kRecommendedDbSize ? DbSize::Ask : DbSize::Ok;
}

QString preparedModelName(const QString &modelName)
{
    QString name = modelName.trimmed();
    for (QChar &c : name) {
        if (c.isSpace())
            c = QLatin1Char('-');
    }
    return name;
}

QString archiveName(const QString &modelName, int major, int minor)
{
    return QStringLiteral("%1_%2.%3.zip").arg(preparedModelName(modelName)).arg(major).arg(minor);
}

QString backupName(const QString &modelName, int major, int minor)
{
    return QStringLiteral("%1_V%2.%3").arg(preparedModelName(modelName)).arg(major).arg(minor);
}

QString proposedFileName(const QString &base, const QDateTime &when)
{
    if (!when.isValid())
        return QStringLiteral("%1.zip").arg(base);
    return QStringLiteral("%1_%2.zip").arg(base, when.toString(QStringLiteral("yyyy-MM-dd_HH-mm-ss")));
}

bool isValidFileName(const QString &fileName)
{
    static const QRegularExpression expression(QStringLiteral("^[0-9a-zA-Z_\\-. ]+.zip$"));
    return expression.match(fileName).hasMatch();
}

} // namespace BackupRules
