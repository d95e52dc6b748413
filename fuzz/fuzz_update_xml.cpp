// The update catalogues ("Update.xml" and "DevUpdate.xml") on arbitrary bytes: nothing crashes, an offered
// version orders consistently against the program's own, and a definitions address is never anything but
// http or https, never a downgrade from the catalogue's https.
#include "tools/UpdateChecker.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    const QString version = UpdateChecker::offeredVersion(bytes);
    const QString own = QString::fromLatin1(UpdateChecker::kProgramVersion);
    if (UpdateChecker::compareVersions(version, version) != 0 ||
        UpdateChecker::compareVersions(version, own) != -UpdateChecker::compareVersions(own, version))
        std::abort();

    const UpdateChecker::DeviceCatalogue catalogue = UpdateChecker::deviceCatalogue(bytes);
    for (const char *base :
         {"https://updates.example/x/DevUpdate.xml", "http://updates.example/DevUpdate.xml"}) {
        const QUrl from(QString::fromLatin1(base));
        const QUrl url = UpdateChecker::definitionsUrl(from, catalogue.url);
        if (!url.isValid())
            continue;
        const QString scheme = url.scheme();
        if ((scheme != QLatin1String("https") && scheme != QLatin1String("http")) ||
            (from.scheme() == QLatin1String("https") && scheme != QLatin1String("https")))
            std::abort();
    }
    return 0;
}
