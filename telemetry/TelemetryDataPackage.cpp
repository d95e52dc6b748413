#include "telemetry/TelemetryDataPackage.h"

#include <algorithm>

int TelemetryDataPackage::indexOfDevice(quint32 id) const
{
    for (int i = 0; i < m_devices.size(); ++i) {
        if (m_devices.at(i).id() == id)
            return i;
    }
    return -1;
}

const TelemetrySensor *TelemetryDataPackage::device(quint32 id) const
{
    const int i = indexOfDevice(id);
    return i < 0 ? nullptr : &m_devices.at(i);
}

TelemetrySensor *TelemetryDataPackage::device(quint32 id)
{
    const int i = indexOfDevice(id);
    return i < 0 ? nullptr : &m_devices[i];
}

int TelemetryDataPackage::addDevice(quint32 id, const QString &name)
{
    m_devices.append(TelemetrySensor(id, name));
    return m_devices.size() - 1;
}

int TelemetryDataPackage::alarmCount() const
{
    return int(std::count_if(m_messages.cbegin(), m_messages.cend(),
                             [](const TelemetryMessage &m) { return m.isAlarm(); }));
}

bool TelemetryDataPackage::acceptAlarm(quint8 alarm, qint64 timestamp)
{
    if (alarm != m_lastAlarm || timestamp - m_lastAlarmTime > kAlarmRepeatMs) {
        m_lastAlarm = alarm;
        m_lastAlarmTime = timestamp;
        return true;
    }
    return false;
}

qint64 TelemetryDataPackage::sampleCount() const
{
    qint64 n = 0;
    for (const TelemetrySensor &s : m_devices) {
        for (const TelemetryVar &v : s.vars())
            n += v.count();
    }
    return n;
}

qint32 TelemetryDataPackage::lastTimestamp() const
{
    qint32 last = 0;
    for (const TelemetrySensor &s : m_devices) {
        for (const TelemetryVar &v : s.vars()) {
            if (!v.values().isEmpty())
                last = std::max(last, v.values().constLast().timestamp);
        }
    }
    for (const TelemetryMessage &m : m_messages)
        last = std::max(last, m.timestamp);
    return last;
}
