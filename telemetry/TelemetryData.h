#pragma once

#include "telemetry/LogFileLoader.h"
#include "telemetry/TelemetryDataPackage.h"

#include <QObject>

#include <memory>

class SensorTable;

// One sample from the live link, for TelemetryData::appendSamples.
struct TelemetrySample
{
    quint32 deviceId = 0;
    quint32 param = 0;
    TelemetryValue value;
};
Q_DECLARE_TYPEINFO(TelemetrySample, Q_PRIMITIVE_TYPE);
Q_DECLARE_METATYPE(TelemetrySample)

// The store: owns the package the data windows look at and tells them when it changes. Used from the
// interface thread only; readFile() is the thread-safe part for loading off that thread.
class TelemetryData : public QObject
{
    Q_OBJECT
public:
    explicit TelemetryData(SensorTable *sensors = nullptr, QObject *parent = nullptr);
    ~TelemetryData() override;

    // The reader for a file name's extension (lower-cased), or null when none reads it.
    static std::unique_ptr<LogFileLoader> loaderFor(const QString &fileName, SensorTable *sensors);
    // Extensions opened by loadFile(), lower case without the dot.
    static QStringList supportedExtensions();
    // Reads a file into a package the way loadFile() does, touching no store: safe on a worker thread
    // as long as the sensor table is. The package gets the file's base name and modification time first.
    // False also when nothing in the file could be read. A file read only in part (damaged lines, cut
    // off) is read: *warning then says what was lost, and is empty for a whole file.
    static bool readFile(const QString &path, TelemetryDataPackage *package, SensorTable *sensors,
                         QString *error, LogFileLoader::ProgressHandler progress = {},
                         QString *warning = nullptr);

    // 1 when loaded, 0 when refused or unreadable (lastError() says why); warning as for readFile().
    int loadFile(const QString &path, QString *warning = nullptr);
    // Replaces the data with a package read elsewhere (a worker, the database).
    void setPackage(const TelemetryDataPackage &package, int logId = -1);
    const TelemetryDataPackage &package() const { return m_package; }
    const QVector<TelemetrySensor> *sensors() const { return &m_package.devices(); }
    QString lastError() const { return m_lastError; }
    bool isLogging() const { return m_logging; }
    bool canUndoCut() const { return m_hasUndo; }
    // True while the package came from a file or the database rather than the live link.
    bool isShowingLog() const { return m_showingLog; }
    // The database id of the stored log on show, -1 for anything else (a file, live data).
    int storedLogId() const { return m_storedLogId; }
    // A recording holds exactly what arrives while it runs: an open log goes, and so do the samples and
    // messages of an earlier recording; the devices the bus has described stay.
    void beginRecording();

    // Live entry point: the decoder describes variables and hands over samples in batches; each batch
    // is one valueAdded signal.
    void describeSensor(quint32 deviceId, quint32 param, const QString &label, const QString &unit);
    void appendSamples(const QVector<TelemetrySample> &samples);
    void addMessage(const TelemetryMessage &message);

signals:
    void sensorsChanged(const QVector<TelemetrySensor> *data);
    void valueAdded(const QVector<TelemetrySensor> *data);
    void loggingStatusChanged(bool status);
    void statusChanged(const QString &status);
    void logFileLoaded(int logId);

public slots:
    void clearSensors();
    void setLogging(bool loggingEnabled);
    void stopLogging(bool loggingStopped);

signals:
    void loadingStarted();
    void loadingFinished();

public slots:
    void updateTimestamps();
    void setUnit(TelemetrySimplePair sensor, const QString &unit);
    void removeDataBeforeTimestamp(qint64 timestamp);
    void removeDataAfterTimestamp(qint64 timestamp);
    // One step back over the last cut. The store keeps the recording as it was before that cut until
    // another one replaces it, the sensors are cleared, live samples arrive, or the caller says the log
    // has been stored (forgetUndo).
    void undoCut();
    void forgetUndo();

signals:
    void undoCutAvailable(bool available);

private:
    // Remembers the package before a cut; its containers are shared until the cut changes them.
    void keepForUndo(const TelemetryDataPackage &before);

    SensorTable *m_sensors = nullptr;
    TelemetryDataPackage m_package;
    LogFileLoader m_live;
    QString m_lastError;
    bool m_logging = false;
    bool m_showingLog = false;
    int m_storedLogId = -1;
    TelemetryDataPackage m_beforeCut;
    bool m_hasUndo = false;
};
