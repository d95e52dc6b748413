#pragma once

#include "telemetry/FlightProfile.h"

#include <QByteArray>
#include <QVector>
#include <QtGlobal>

#include <random>

// The telemetry of the simulated bus devices: a five-minute flight, looping, whose values follow the
// same flight profile as generated logs plus a little seeded jitter, packed into LX telemetry frames
// small enough for one bus answer.
// Each sensor tells its name and variables (text frames) before it sends values, and again every
// ten seconds so a listener that starts late learns them too.
class SimTelemetry
{
public:
    // What a variable measures; selects its curve in the flight.
    enum Quantity : quint8
    {
        RxVoltage,
        LinkQuality,
        SignalStrength,
        Latitude,
        Longitude,
        GpsAltitude,
        GroundSpeed,
        Satellites,
        TimeOfDay,
        PackVoltage,
        Current,
        Capacity,
        BaroAltitude,
        Climb,
        Pressure,
        MotorTemperature,
        EscTemperature,
    };

    struct Variable
    {
        quint8 index = 0;
        QByteArray label; // Latin-1
        QByteArray unit;  // Latin-1, 0xB0 for the degree sign
        quint8 type = 1;
        quint8 decimals = 0; // ignored for coordinates and times, which carry flags there
        Quantity quantity = RxVoltage;
    };

    struct Sensor
    {
        quint32 identifier = 0;
        QByteArray name;
        QVector<Variable> variables;
        QByteArray alarms;           // alarm characters this sensor may raise
        QVector<QByteArray> notices; // message texts it may send (UTF-8)
    };

    // One value as it went onto the wire, in the decoded form (integer, decimals or flags, type).
    struct SentValue
    {
        quint32 deviceId = 0;
        quint8 index = 0;
        quint8 type = 0;
        quint8 decimals = 0;
        qint32 value = 0;
    };

    enum FrameKind : quint8
    {
        TextFrame = 0,
        DataFrame = 1,
        MessageFrame = 2,
        AlarmFrame = 3
    };

    struct Frame
    {
        QByteArray bytes; // the telemetry frame from its marker byte on (without the leading 0x7E)
        FrameKind kind = TextFrame;
        quint32 deviceId = 0;
        QVector<SentValue> values;
    };

    static constexpr quint8 kMarker = 0x7F;
    static constexpr quint8 kAlarmMarker = 0x70;
    static constexpr quint8 kMessageKind = 2;
    // A bus answer holds at most 30 bytes: id, type and count, then the frame (marker, type and
    // length, identifier, reserved byte) and what is left for the body.
    static constexpr int kMaxFrame = 27;
    static constexpr int kMaxBody = kMaxFrame - 7;
    // Descriptions come round every two seconds, so a listener that starts late learns them quickly.
    static constexpr qint64 kTextRepeatMs = 2000;
    // A sensor raises an alarm or a message about twice a minute.
    static constexpr qint64 kEventMinMs = 15000;
    static constexpr qint64 kEventSpreadMs = 30000;
    static constexpr qint64 kFlightMs = 300000;

    explicit SimTelemetry(quint32 seed = 1);

    void setSeed(quint32 seed);
    void addSensor(const Sensor &sensor);
    const QVector<Sensor> &sensors() const { return m_sensors; }
    bool isEmpty() const { return m_sensors.isEmpty(); }

    // The next frame of the next sensor in turn; flightMs is the time since the flight began.
    Frame next(qint64 flightMs);

    // The value bytes of one item for a data type (sign in the top bit, decimals below it; a negative
    // value as two's complement of the remaining bits). Out-of-range values are clamped.
    static QByteArray encodeValue(quint8 type, quint8 decimals, qint32 value);
    static QByteArray textFrame(quint32 deviceId, quint8 index, const QByteArray &label,
                                const QByteArray &unit);
    static QByteArray messageFrame(quint32 deviceId, quint8 kind, quint8 messageClass,
                                   const QByteArray &text);
    static QByteArray alarmFrame(quint8 alarm);

private:
    struct State
    {
        qint64 lastTextMs = -1;
        int textCursor = -1; // next text frame to send, -1 while none is due
        int groupCursor = 0;
        QVector<QVector<int>> groups; // variables per data frame
        QVector<Frame> events;        // alarms and messages waiting to go out
        qint64 nextEventMs = -1;      // when this sensor next has something to say
    };

    static QByteArray frameHeader(quint32 deviceId, quint8 frameType, int bodyLength);
    static int itemLength(const Variable &v);
    Frame dataFrame(const Sensor &sensor, const QVector<int> &group, double seconds);
    void valueOf(const Variable &v, double seconds, qint32 *value, quint8 *decimals);
    void maybeRaiseEvent(int sensorIndex, qint64 flightMs);
    double jitter(double amplitude);

    QVector<Sensor> m_sensors;
    QVector<State> m_states;
    int m_turn = 0;
    std::mt19937 m_rng;
    FlightProfile m_flight;
};
