#pragma once

#include "telemetry/TelemetryData.h"

#include <QObject>
#include <QTimer>

class SensorTable;

// Turns telemetry records from the bus (8 bytes receive time, little-endian ms since the epoch, then
// the 0x7E frame) into descriptions, samples, messages and alarms in the store. Lives on the
// interface thread with the store. Samples are collected and handed over in batches.
class TelemetryDecoder : public QObject
{
    Q_OBJECT
public:
    explicit TelemetryDecoder(TelemetryData *store, SensorTable *sensors = nullptr, QObject *parent = nullptr);

    // Milliseconds since the epoch that time offsets count from; set when recording starts.
    void setSessionStart(qint64 epochMs);
    qint64 sessionStart() const { return m_sessionStart; }
    // While muted nothing is announced (descriptions and samples are still stored).
    void setMuted(bool muted) { m_muted = muted; }
    // How long samples are gathered before they go to the store in one batch (0: at once).
    void setBatchInterval(int ms);
    // Hands gathered samples to the store now.
    void flush();
    qint64 decodedRecords() const { return m_records; }

public slots:
    void decode(const QByteArray &record);

signals:
    // A text message or an alarm arrived ("Alarm: X" for alarms).
    void messageReceived(const TelemetryMessage &message);

private:
    TelemetryData *m_store;
    SensorTable *m_sensors;
    QTimer m_flushTimer;
    QVector<TelemetrySample> m_pending;
    qint64 m_sessionStart = 0;
    qint64 m_records = 0;
    bool m_muted = false;
};
