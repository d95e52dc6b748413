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
    static constexpr int kDefaultBatchMs = 20;

    explicit TelemetryDecoder(TelemetryData *store, SensorTable *sensors = nullptr,
                              QObject *parent = nullptr);

    // Milliseconds since the epoch that time offsets count from; set when recording starts.
    void setSessionStart(qint64 epochMs);
    qint64 sessionStart() const { return m_sessionStart; }
    // While muted nothing is announced (descriptions and samples are still stored).
    void setMuted(bool muted) { m_muted = muted; }
    // How long samples are gathered before they go to the store in one batch (0: at once).
    void setBatchInterval(int ms);
    int batchInterval() const { return m_flushTimer.interval(); }
    // Hands gathered samples to the store now.
    void flush();
    qint64 decodedRecords() const { return m_records; }
    // Samples gathered and not yet handed to the store.
    int pendingSamples() const { return m_pending.size(); }

public slots:
    void decode(const QByteArray &record);

signals:
    // A text message or an alarm arrived ("Alarm: X" for alarms).
    void messageReceived(const TelemetryMessage &message);

private:
    void decodeAlarm(const uchar *frame, int size, qint64 time);
    void decodeText(const uchar *frame, int size, quint32 deviceId);
    void decodeData(const uchar *frame, int size, quint32 deviceId, qint64 time);
    void decodeMessage(const uchar *frame, int size, quint32 deviceId, qint64 time);
    // True when the store knows the variable, describing it from the sensor table first if needed.
    bool ensureDescribed(quint32 deviceId, quint32 param);
    // Milliseconds from the session start, as stored with samples and messages.
    qint32 timeOffset(qint64 time) const;
    // The first thing recorded without a session start begins the session just before itself.
    void startSessionIfNeeded(qint64 time);
    void announce(const TelemetryMessage &message);

    TelemetryData *m_store;
    SensorTable *m_sensors;
    QTimer m_flushTimer;
    QVector<TelemetrySample> m_pending;
    qint64 m_sessionStart = 0;
    qint64 m_records = 0;
    bool m_muted = false;
};
