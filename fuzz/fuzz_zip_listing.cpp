// Backup archives from arbitrary bytes: the check never crashes, whatever it accepts names only paths
// inside the drive, and every accepted entry reads back no longer than it declares.
#include "transmitter/ArchiveCheck.h"
#include "transmitter/ZipEntries.h"

#include <QBuffer>

#include <quazip/quazip.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char *>(data), int(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    ArchiveCheck::Listing listing;
    QString error;
    if (!ArchiveCheck::check(&buffer, -1, &listing, &error)) {
        if (error.isEmpty())
            std::abort();
        return 0;
    }
    qint64 total = 0;
    for (const ArchiveCheck::Entry &e : qAsConst(listing.entries)) {
        if (e.name.isEmpty() || e.name.startsWith(QLatin1Char('/')) || e.name.contains(QLatin1Char('\\')) ||
            e.name.contains(QLatin1Char(':')) ||
            e.name.split(QLatin1Char('/')).contains(QStringLiteral("..")) || e.size < 0)
            std::abort();
        if (e.name.compare(QLatin1String("Config/Backup.jsn"), Qt::CaseInsensitive) != 0)
            total += e.size;
    }
    if (total != listing.totalSize)
        std::abort();

    buffer.seek(0);
    QuaZip zip(&buffer);
    zip.setAutoClose(false);
    if (!zip.open(QuaZip::mdUnzip))
        std::abort();
    int index = 0;
    for (bool more = zip.goToFirstFile(); more && index < listing.entries.size(); more = zip.goToNextFile()) {
        const ArchiveCheck::Entry &e = listing.entries.at(index++);
        if (e.isFolder)
            continue;
        qint64 read = 0;
        QString why;
        ZipEntries::read(
            &zip, e, [&](const char *, qint64 n) { return (read += n) <= e.size; }, &why);
        if (read > e.size)
            std::abort();
    }
    zip.close();
    return 0;
}
