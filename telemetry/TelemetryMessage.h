#pragma once

#include <QCoreApplication>
#include <QString>

// A text message or an alarm of a recording.
struct TelemetryMessage
{
    Q_DECLARE_TR_FUNCTIONS(TelemetryMessage)
public:
    static constexpr qint32 kPlainType = 2;
    static constexpr qint32 kAlarmType = 7;

    qint32 timestamp = 0;
    quint32 deviceId = 0;
    QString text;
    quint8 alarm = 0; // non-zero: an alarm with this character
    qint32 type = kPlainType;
    qint32 value = 0;

    bool isAlarm() const { return alarm != 0; }
    // "Alarm: X" for an alarm, else the text itself.
    QString displayText() const
    {
        return isAlarm() ? tr("Alarm: %1").arg(QChar(QLatin1Char(char(alarm)))) : text;
    }
};
Q_DECLARE_METATYPE(TelemetryMessage)
