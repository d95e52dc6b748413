#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

class QSaveFile;

// Files that replace user data appear whole or not at all. QSaveFile::commit() alone reports success
// even when the last buffered write failed (a full disk) and then puts an empty file in place of the old
// one: the buffer is flushed and checked here first.
class AtomicFile
{
    Q_DECLARE_TR_FUNCTIONS(AtomicFile)
public:
    // Flushes, then commits; on failure the old file is left as it was and the temporary one removed.
    static bool commit(QSaveFile &file);
    // Writes bytes to path through a temporary file; error names the file and the reason.
    static bool write(const QString &path, const QByteArray &bytes, QString *error);
};
