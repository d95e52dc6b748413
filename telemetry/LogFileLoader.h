#pragma once

#include "telemetry/LogReadReport.h"
#include "telemetry/TelemetryDataPackage.h"

#include <QCoreApplication>
#include <QHash>
#include <QStringList>

#include <functional>
#include <vector>

class QIODevice;
class QTextCodec;
class SensorTable;

// The native log reader, and the base of every log reader: it owns the line parser that the XML
// reader shares, the sensor-table consultation, progress and cancellation.
class LogFileLoader
{
    Q_DECLARE_TR_FUNCTIONS(LogFileLoader)
public:
    // Called with bytes read so far and the total (-1 when unknown); return false to cancel.
    using ProgressHandler = std::function<bool(qint64 done, qint64 total)>;

    // No reader keeps more samples than this per variable (the container's own limit is near it).
    static constexpr int kMaxSamplesPerVar = 120 * 1000 * 1000;

    explicit LogFileLoader(SensorTable *sensors = nullptr);
    virtual ~LogFileLoader();
    LogFileLoader(const LogFileLoader &) = delete;
    LogFileLoader &operator=(const LogFileLoader &) = delete;

    // Reads the device to its end into the package. False at once, reading nothing, when the device is
    // not open; false also on a read error or when cancelled (see lastError()).
    virtual bool load(QIODevice *device, TelemetryDataPackage *package);

    // Applies one line, already split at ";", to the package. False when the line is damaged (a field
    // that is not a number where one belongs, too few fields, a partial value group); what could be
    // read of it is applied all the same.
    bool parseLine(const QStringList &fields, TelemetryDataPackage *package);

    void setProgressHandler(ProgressHandler handler) { m_progress = std::move(handler); }
    QString lastError() const { return m_lastError; }
    // What the last load() could not read.
    const LogReadReport &readReport() const { return m_report; }
    // The report in a sentence for the user, starting with the file name; empty when it is clean.
    static QString damageWarning(const QString &fileName, const LogReadReport &report);
    SensorTable *sensorTable() const { return m_sensors; }

    // The sensor-table consultation shared by every reader and the live link.
    // Adds the device unless it is there, consulting the sensor table for (id, 0); returns its index.
    int describeDevice(TelemetryDataPackage *package, quint32 id, const QString &name);
    // Adds the parameter (the device first if needed) and consults the sensor table for it.
    void describeParam(TelemetryDataPackage *package, quint32 id, quint32 param, const QString &label,
                       const QString &unit);
    // Appends one sample; a sample of an undescribed variable is counted as dropped.
    void appendValue(quint32 id, quint32 param, const TelemetryValue &v, TelemetryDataPackage *package);
    // Forgets what it knew of the package it was filling (the package was replaced or edited).
    void reset() { m_package = nullptr; }

    // How a device id field reads: ten characters are low then high 16 bits, anything else a decimal.
    static quint32 parseDeviceId(const QString &field);

protected:
    void setError(const QString &error) { m_lastError = error; }
    // False (with the error set) when the user cancelled.
    bool reportProgress(qint64 done, qint64 total);
    // Starts a fresh parse of this package; readers call it before feeding lines. total: input size or -1.
    void beginPackage(TelemetryDataPackage *package, qint64 total);
    // Gives back over-reserved sample storage.
    void finishPackage(TelemetryDataPackage *package);
    void setConsumed(qint64 consumed) { m_consumed = consumed; }
    QTextCodec *codec() const { return m_codec; }
    LogReadReport &report() { return m_report; }

private:
    struct DeviceSlot
    {
        int deviceIndex = -1;
        TelemetryVar *vars = nullptr;
        std::vector<int> directParam; // param < kDirectParams -> var index, or -1
        QHash<quint32, int> otherParams;
    };
    static constexpr quint32 kDirectParams = 256;
    static constexpr int kMaxFastFields = 2 + 4 * 256;

    // The ChunkedLineReader outcome of one line of a native log.
    int processLine(const char *begin, const char *end, qint64 lineNumber, TelemetryDataPackage *package);
    // False when the line is not for the fast way; otherwise *whole says whether it was undamaged.
    bool parseValueLineFast(const char *begin, const char *end, TelemetryDataPackage *package, bool *whole);
    bool parseMessage(const QStringList &fields, int textIndex, qint32 ts, quint32 id,
                      TelemetryDataPackage *package);
    DeviceSlot *slotFor(quint32 id);
    void refreshSlot(int slot, TelemetryDataPackage *package);
    void growValues(QVector<TelemetryValue> &values);

    SensorTable *m_sensors = nullptr;
    QTextCodec *m_codec = nullptr;
    ProgressHandler m_progress;
    QString m_lastError;
    LogReadReport m_report;

    TelemetryDataPackage *m_package = nullptr;
    std::vector<DeviceSlot> m_slots;
    QHash<quint32, int> m_slotOfDevice;
    quint32 m_lastDeviceId = 0;
    int m_lastSlot = -1;
    qint64 m_consumed = 0;
    qint64 m_total = -1;
};
