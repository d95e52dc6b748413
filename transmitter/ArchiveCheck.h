#pragma once

#include <QIODevice>
#include <QList>
#include <QString>

// The check a backup archive passes before one byte of it reaches the transmitter drive. Archives are
// untrusted: a name that could leave the drive root or collide on its FAT file system, a link or
// device entry, or sizes beyond what the archive and the drive allow are refused with a reason.
namespace ArchiveCheck {

struct Entry
{
    QString name;          // as stored
    bool isFolder = false; // name ends in "/"
    qint64 size = 0;       // declared uncompressed size
    qint64 compressedSize = 0;
    quint32 crc = 0;
};

struct Listing
{
    QList<Entry> entries; // in archive order
    qint64 totalSize = 0;
    bool hasConfig = false; // holds "config/config.jsn" (compared as stored)
};

// Lists and checks the archive on `zip` (opened for reading). `freeSpace` < 0 means unknown. Returns
// false with a user-readable reason in *error when the archive is refused.
bool check(QIODevice *zip, qint64 freeSpace, Listing *listing, QString *error);

// True when `name` is a plain relative path that stays below the drive root and that the drive's FAT file
// system can hold: "/" separated, no absolute path, drive letter, "\", ".", ".." or empty part, control
// character, character FAT cannot store, part ending in a dot or a blank, or device name ("con", "lpt1").
// Otherwise false with the reason (naming the path) in *why.
bool isSafeRelativePath(const QString &name, QString *why = nullptr);

} // namespace ArchiveCheck
