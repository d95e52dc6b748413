// The Lua app manifests read from the transmitter drive, on arbitrary bytes: nothing crashes, and every
// file kept is a safe relative path outside the manifests' own folder with a 40-digit hash, listed once.
#include "tools/Sha1Check.h"
#include "transmitter/AppManifest.h"
#include "transmitter/ArchiveCheck.h"

#include <QSet>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    AppManifest manifest;
    if (!AppManifest::parse(bytes, 7, &manifest))
        return 0;
    if (manifest.id != 7)
        std::abort();
    QSet<QString> seen;
    for (const AppManifest::File &file : manifest.files) {
        if (!ArchiveCheck::isSafeRelativePath(file.destination) || !Sha1Check::isValidHex(file.sha1) ||
            file.destination.startsWith(QStringLiteral("apps/.vexo/"), Qt::CaseInsensitive) ||
            seen.contains(file.destination.toLower()))
            std::abort();
        seen.insert(file.destination.toLower());
    }
    return 0;
}
