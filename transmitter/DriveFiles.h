#pragma once

#include <QString>

class QFileDevice;

// The few file-system steps the backup and the restore build on, where Qt's own fall short.
namespace DriveFiles {

// Renames from to to, replacing an existing file at to in one step (QFile::rename refuses to).
bool replace(const QString &from, const QString &to, QString *error);
// Flushes and pushes the file's bytes to the device, so that a file counted as complete is complete
// on the drive before it takes another's name.
bool sync(QFileDevice *file);

} // namespace DriveFiles
