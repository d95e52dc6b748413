#include "telemetry/AtomicFile.h"

#include <QDir>
#include <QSaveFile>

bool AtomicFile::commit(QSaveFile &file)
{
    if (!file.flush()) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

bool AtomicFile::write(const QString &path, const QByteArray &bytes, QString *error)
{
    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && commit(file))
        return true;
    if (error)
        *error = tr("%1: %2").arg(QDir::toNativeSeparators(path), file.errorString());
    return false;
}
