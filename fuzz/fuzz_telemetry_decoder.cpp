// The telemetry decoder on arbitrary records. The input is a chain of records, each one length byte
// and then that many bytes (the last takes whatever is left), so that descriptions and the data that
// needs them can arrive in one run.
#include "link/TelemetryDecoder.h"
#include "telemetry/MemorySensorTable.h"

#include <cstdint>
#include <cstdlib>

namespace {
void quiet(QtMsgType, const QMessageLogContext &, const QString &) {}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool silenced = [] {
        qInstallMessageHandler(quiet);
        return true;
    }();
    Q_UNUSED(silenced);

    // A known device so that data items without a text frame take the sensor table path too.
    MemorySensorTable sensors;
    SensorRow row;
    row.id = 0x0000A401u;
    row.label = QStringLiteral("Rx");
    sensors.insertDefaultSensor(row);
    row.param = 1;
    row.label = QStringLiteral("Voltage");
    row.unit = QStringLiteral("V");
    sensors.insertDefaultSensor(row);

    TelemetryData store(&sensors);
    store.setLogging(true);
    TelemetryDecoder decoder(&store, &sensors);
    decoder.setBatchInterval(0);

    qint64 fed = 0;
    size_t pos = 0;
    while (pos < size) {
        size_t n = data[pos++];
        if (n > size - pos)
            n = size - pos;
        decoder.decode(QByteArray(reinterpret_cast<const char *>(data + pos), int(n)));
        pos += n;
        ++fed;
    }
    decoder.flush();

    if (decoder.decodedRecords() > fed)
        std::abort();
    for (const TelemetrySensor &device : store.package().devices()) {
        for (const TelemetryVar &var : device.vars()) {
            for (const TelemetryValue &v : var.values()) {
                // A zero offset would read back from a log as a description line.
                if (v.timestamp < 1 || v.type > 15 || v.decimals > 3)
                    std::abort();
            }
        }
    }
    return 0;
}
