#pragma once

#include "telemetry/TelemetryMessage.h"
#include "telemetry/TelemetrySensor.h"

#include <QDateTime>
#include <QList>
#include <QMetaType>

// One recording: devices with their samples, texts, messages and alarms. Implicitly shared by its
// members, so copying it into a loader or the database code is cheap.
class TelemetryDataPackage
{
public:
    static constexpr qint64 kAlarmRepeatMs = 1500;

    const QVector<TelemetrySensor> &devices() const { return m_devices; }
    QVector<TelemetrySensor> &devices() { return m_devices; }
    int indexOfDevice(quint32 id) const;
    const TelemetrySensor *device(quint32 id) const;
    TelemetrySensor *device(quint32 id);
    // Returns the index of the new device.
    int addDevice(quint32 id, const QString &name);

    const QString &name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }
    const QString &title() const { return m_title; }
    void setTitle(const QString &title) { m_title = title; }
    const QString &description() const { return m_description; }
    void setDescription(const QString &description) { m_description = description; }
    const QDateTime &recordingDate() const { return m_recordingDate; }
    void setRecordingDate(const QDateTime &date) { m_recordingDate = date; }

    const QList<TelemetryMessage> &messages() const { return m_messages; }
    QList<TelemetryMessage> &messages() { return m_messages; }
    int alarmCount() const;

    // Collapses repeated alarms: true (and the alarm becomes the kept one) when the character differs
    // from the kept one or more than 1500 ms have passed since it; false for a repeat.
    bool acceptAlarm(quint8 alarm, qint64 timestamp);
    quint8 lastAlarm() const { return m_lastAlarm; }
    qint64 lastAlarmTime() const { return m_lastAlarmTime; }

    qint32 firstTimestamp() const { return m_firstTimestamp; }
    void setFirstTimestamp(qint32 ts) { m_firstTimestamp = ts; }
    // Applies the first-timestamp rule of the readers to one non-zero line timestamp.
    void noteTimestamp(qint32 ts)
    {
        if (ts != 0 && (m_firstTimestamp <= 0 || ts < m_firstTimestamp))
            m_firstTimestamp = ts;
    }

    // Samples a reader dropped because their device or param was never described.
    qint64 droppedValues() const { return m_droppedValues; }
    void addDroppedValues(qint64 n) { m_droppedValues += n; }

    qint64 sampleCount() const;
    // Last sample or message time, ms.
    qint32 lastTimestamp() const;
    bool isEmpty() const { return m_devices.isEmpty() && m_messages.isEmpty(); }
    bool isValid() const { return m_valid; }
    void setValid(bool valid) { m_valid = valid; }

private:
    QVector<TelemetrySensor> m_devices;
    QString m_name;
    QString m_title;
    QString m_description;
    QDateTime m_recordingDate;
    QList<TelemetryMessage> m_messages;
    quint8 m_lastAlarm = 0;
    qint64 m_lastAlarmTime = 0;
    qint32 m_firstTimestamp = 0;
    qint64 m_droppedValues = 0;
    bool m_valid = true;
};
Q_DECLARE_METATYPE(TelemetryDataPackage)
