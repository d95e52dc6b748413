// The native log reader on arbitrary bytes, then the writer on whatever it read and the reader again.
#include "telemetry/LogFileLoader.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/MemorySensorTable.h"

#include <QBuffer>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QBuffer buffer;
    buffer.setData(reinterpret_cast<const char *>(data), int(size));
    buffer.open(QIODevice::ReadOnly);
    MemorySensorTable sensors;
    LogFileLoader loader(&sensors);
    TelemetryDataPackage package;
    if (!loader.load(&buffer, &package))
        std::abort(); // an open device always loads
    const QByteArray written = LogFileWriter::write(package);
    QBuffer again;
    again.setData(written);
    again.open(QIODevice::ReadOnly);
    TelemetryDataPackage reread;
    LogFileLoader(&sensors).load(&again, &reread);
    // Every device written comes back.
    if (reread.devices().size() < package.devices().size())
        std::abort();
    return 0;
}
