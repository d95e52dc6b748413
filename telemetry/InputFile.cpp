#include "telemetry/InputFile.h"

#include <QFile>
#include <QFileInfo>

bool InputFile::open(QFile *file, QString *error, QIODevice::OpenMode extra, const QStringList &formats)
{
    const QString path = file->fileName();
    const QFileInfo info(path);
    QString reason;
    if (!info.exists())
        reason = tr("%1: no such file").arg(path);
    else if (info.isDir())
        reason = tr("%1: is a folder, not a log file").arg(path);
    else if (!formats.isEmpty() && !formats.contains(info.suffix().toLower()))
        reason = unknownFormat(path, formats);
    else if (!file->open(QIODevice::ReadOnly | extra))
        reason = tr("%1: cannot open: %2").arg(path, file->errorString());
    else
        return true;
    if (error)
        *error = reason;
    return false;
}

QString InputFile::unknownFormat(const QString &path, const QStringList &formats)
{
    const QString suffix = QFileInfo(path).suffix();
    if (formats.isEmpty())
        return tr("%1: unknown log format \"%2\"").arg(path, suffix);
    return tr("%1: unknown log format \"%2\" (readable: %3)")
        .arg(path, suffix, formats.join(QStringLiteral(", ")));
}
