#pragma once

#include "transmitter/ArchiveCheck.h"

#include <QString>

#include <functional>

class QuaZip;

// Entry-level access to an archive open for reading, below what QuaZip offers: the stored name bytes
// as they are (QuaZip cuts a name at a NUL byte), and the content inflated here from the raw
// compressed bytes, so that no entry is read past its declared size and its CRC is checked as it
// streams.
namespace ZipEntries {

struct RawEntry
{
    ArchiveCheck::Entry entry;
    QByteArray nameBytes;
    quint16 flags = 0;
    quint16 method = 0;
    quint32 externalAttr = 0;
    bool nameDecoded = false; // the name bytes are UTF-8 without NUL
};

// The current entry of `zip`. False when the archive's directory cannot be read there.
bool current(QuaZip *zip, RawEntry *raw);

// Receives the content in chunks; returning false stops the reading (a failed write).
using Sink = std::function<bool(const char *data, qint64 size)>;
// Streams the current entry into sink. False with a reason when the entry cannot be opened, holds
// more or less than its declared size, or fails its CRC; a sink refusal returns false with an
// empty reason.
bool read(QuaZip *zip, const ArchiveCheck::Entry &entry, const Sink &sink, QString *error);

} // namespace ZipEntries
