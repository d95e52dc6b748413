#pragma once

#include "telemetry/LogFileLoader.h"

// The data table's own CSV export read back: ";" between cells, a header "Time;label [unit];...", then
// one row per sampling step, the time as "H:mm:ss.zzz" and each value a decimal number or empty. Every
// column becomes one variable of a single device. Not chosen by extension: callers ask for it.
class CSVLogLoader : public LogFileLoader
{
    Q_DECLARE_TR_FUNCTIONS(CSVLogLoader)
public:
    // Low half: a product number no bus device uses.
    static constexpr quint32 kDeviceId = 0xFFF1u | (1u << 16);
    // A row at 0:00:00.000 is kept here: in a native log a value line at 0 reads as a description.
    static constexpr qint32 kEarliestMs = 1;
    // Cells are held as numbers until each column's decimals are known; this bounds that.
    static constexpr qint64 kMaxBytes = 256LL << 20;

    explicit CSVLogLoader(SensorTable *sensors = nullptr);

    // False, the package untouched, when the device is not open, the input has no header or no row
    // whose time reads. Rows whose time does not read or goes back are skipped; so are cells that are
    // not numbers.
    bool load(QIODevice *device, TelemetryDataPackage *package) override;

    // Reads a file with this reader the way the store reads logs: the package is named after the file
    // and dated by its modification time. error: "<path>: <reason>"; warning: what could not be read,
    // empty when the whole file read (LogFileLoader::damageWarning).
    static bool readFile(const QString &path, TelemetryDataPackage *package, SensorTable *sensors,
                         QString *error, QString *warning = nullptr);

    // "Speed [km/h]" -> "Speed", "km/h"; a header without a bracketed unit is all label.
    static void splitHeader(const QString &header, QString *label, QString *unit);
    // "H:mm:ss.zzz" (hours may run past 23, milliseconds may be missing) in ms, or -1.
    static qint64 parseTime(const QString &text);

    int skippedRows() const { return m_skippedRows; }

private:
    int m_skippedRows = 0;
};
