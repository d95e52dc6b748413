// The NMEA reader on arbitrary bytes: every fix gives a position and a time at a strictly later
// millisecond, no sample ever lies at 0 ms, and dates are real dates.
#include "telemetry/MemorySensorTable.h"
#include "telemetry/NMEALogLoader.h"

#include <QBuffer>
#include <QDate>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    QBuffer buffer;
    buffer.setData(reinterpret_cast<const char *>(data), int(size));
    buffer.open(QIODevice::ReadOnly);
    MemorySensorTable sensors;
    NMEALogLoader loader(&sensors);
    TelemetryDataPackage package;
    if (!loader.load(&buffer, &package)) {
        if (!package.devices().isEmpty() || loader.lastError().isEmpty())
            std::abort();
        return 0;
    }
    const TelemetrySensor *gps = package.device(NMEALogLoader::kDeviceId);
    if (!gps || package.devices().size() != 1)
        std::abort();
    const TelemetryVar *lat = gps->var(NMEALogLoader::Latitude);
    const TelemetryVar *lon = gps->var(NMEALogLoader::Longitude);
    const TelemetryVar *time = gps->var(NMEALogLoader::Time);
    if (!lat || !lon || !time || lat->count() != lon->count() || lat->count() != time->count())
        std::abort();
    for (int i = 0; i < lat->count(); ++i) {
        const qint32 ts = lat->values().at(i).timestamp;
        if (ts <= 0 || (i > 0 && ts <= lat->values().at(i - 1).timestamp))
            std::abort();
        const double la = lat->values().at(i).toNumber();
        const double lo = lon->values().at(i).toNumber();
        if (la < -90 || la > 90 || lo < -180 || lo > 180)
            std::abort();
    }
    if (const TelemetryVar *date = gps->var(NMEALogLoader::Date)) {
        for (const TelemetryValue &v : date->values()) {
            const quint32 x = quint32(v.value);
            if (!QDate(2000 + int(x & 0xFF), int((x >> 8) & 0xFF), int((x >> 16) & 0x1F)).isValid())
                std::abort();
        }
    }
    return 0;
}
