// The data table CSV reader on arbitrary bytes: it either refuses them, leaving the package empty, or
// reads one device whose samples are in time order, never at 0 ms, and read back as finite numbers;
// what it read survives the native writer and reader.
#include "telemetry/CSVLogLoader.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/MemorySensorTable.h"

#include <QBuffer>

#include <cmath>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QBuffer buffer;
    buffer.setData(reinterpret_cast<const char *>(data), int(size));
    buffer.open(QIODevice::ReadOnly);
    MemorySensorTable sensors;
    CSVLogLoader loader(&sensors);
    TelemetryDataPackage package;
    if (!loader.load(&buffer, &package)) {
        if (!package.devices().isEmpty() || loader.lastError().isEmpty())
            std::abort(); // a refusal names its reason and reads nothing
        return 0;
    }
    const TelemetrySensor *table = package.device(CSVLogLoader::kDeviceId);
    if (!table || package.devices().size() != 1)
        std::abort();
    for (const TelemetryVar &v : table->vars()) {
        for (int i = 0; i < v.count(); ++i) {
            const TelemetryValue &x = v.values().at(i);
            if (x.timestamp < CSVLogLoader::kEarliestMs ||
                (i > 0 && x.timestamp < v.values().at(i - 1).timestamp))
                std::abort();
            if (!std::isfinite(x.toNumber()))
                std::abort();
        }
    }
    QBuffer again;
    again.setData(LogFileWriter::write(package));
    again.open(QIODevice::ReadOnly);
    TelemetryDataPackage reread;
    LogFileLoader(&sensors).load(&again, &reread);
    if (reread.devices().size() != 1 || reread.devices().at(0).vars().size() != table->vars().size())
        std::abort();
    return 0;
}
