// The XML log reader on arbitrary bytes: it either refuses them, leaving the package empty, or reads
// them; whatever it read survives the native writer and reader.
#include "telemetry/LogFileLoader.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/VMLLogLoader.h"

#include <QBuffer>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QBuffer buffer;
    buffer.setData(reinterpret_cast<const char *>(data), int(size));
    buffer.open(QIODevice::ReadOnly);
    MemorySensorTable sensors;
    VMLLogLoader loader(&sensors);
    TelemetryDataPackage package;
    if (!loader.load(&buffer, &package)) {
        if (!package.devices().isEmpty() || loader.lastError().isEmpty())
            std::abort(); // a refusal names its reason and reads nothing
        return 0;
    }
    if (package.devices().isEmpty())
        std::abort(); // a log read without a single storage is refused instead
    QBuffer again;
    again.setData(LogFileWriter::write(package));
    again.open(QIODevice::ReadOnly);
    TelemetryDataPackage reread;
    LogFileLoader(&sensors).load(&again, &reread);
    if (reread.devices().size() < package.devices().size())
        std::abort();
    return 0;
}
