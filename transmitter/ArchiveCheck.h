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

} // namespace ArchiveCheck
