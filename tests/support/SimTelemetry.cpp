#include "tests/support/SimTelemetry.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kCycleSeconds = SimTelemetry::kFlightMs / 1000.0;
// Home field, west of Greenwich so longitudes carry the west flag.
const FlightProfile::Site kHome{52.0906, -1.0140, 95};

double cycleTime(double seconds)
{
    return std::fmod(std::max(0.0, seconds), kCycleSeconds);
}

qint32 scaled(double value, quint8 decimals)
{
    double f = 1;
    for (int i = 0; i < decimals; ++i)
        f *= 10;
    return qint32(std::lround(value * f));
}

int valueWidth(quint8 type)
{
    if (type == 0)
        return 1;
    if (type <= 3)
        return 2;
    if (type <= 7)
        return 3;
    if (type <= 11)
        return 4;
    return 5;
}
} // namespace

SimTelemetry::SimTelemetry(quint32 seed) : m_rng(seed), m_flight(kCycleSeconds, seed, kHome) {}

void SimTelemetry::setSeed(quint32 seed)
{
    m_rng.seed(seed);
    m_flight = FlightProfile(kCycleSeconds, seed, kHome);
}

int SimTelemetry::itemLength(const Variable &v)
{
    return 1 + (v.index >= 16 ? 1 : 0) + valueWidth(v.type);
}

void SimTelemetry::addSensor(const Sensor &sensor)
{
    Sensor s = sensor;
    // Labels longer than 14 characters cannot be told, and a text frame must fit one answer.
    s.name = s.name.left(std::min(14, kMaxBody - 2));
    for (Variable &v : s.variables) {
        v.unit = v.unit.left(7);
        v.label = v.label.left(std::min<int>(14, kMaxBody - 2 - v.unit.size()));
    }
    State state;
    QVector<int> group;
    int body = 0;
    for (int i = 0; i < s.variables.size(); ++i) {
        const int length = itemLength(s.variables.at(i));
        if (!group.isEmpty() && body + length > kMaxBody) {
            state.groups.append(group);
            group.clear();
            body = 0;
        }
        group.append(i);
        body += length;
    }
    if (!group.isEmpty())
        state.groups.append(group);
    m_sensors.append(s);
    m_states.append(state);
}

QByteArray SimTelemetry::encodeValue(quint8 type, quint8 decimals, qint32 value)
{
    QByteArray out;
    if (type >= 12) {
        for (int i = 0; i < 4; ++i)
            out.append(char(quint32(value) >> (8 * i)));
        out.append(char((decimals & 3) << 5));
        return out;
    }
    if (type == 2 || type == 3)
        return QByteArray(2, '\0');
    const int width = valueWidth(type);
    const int bits = 8 * width;
    const int magnitudeBits = bits - 3;
    const qint64 high = (qint64(1) << magnitudeBits) - 1;
    const qint64 v = std::clamp<qint64>(value, -high - 1, high);
    const quint32 mask = quint32(high);
    quint32 raw = (quint32(qint32(v)) & mask) | (quint32(decimals & 3) << magnitudeBits);
    if (v < 0)
        raw |= quint32(1) << (bits - 1);
    for (int i = 0; i < width; ++i)
        out.append(char(raw >> (8 * i)));
    return out;
}

QByteArray SimTelemetry::frameHeader(quint32 deviceId, quint8 frameType, int bodyLength)
{
    QByteArray out;
    out.append(char(kMarker));
    // The length counts the bytes after the marker: this byte, identifier, reserved byte and body.
    out.append(char((frameType << 6) | ((6 + bodyLength) & 0x3F)));
    for (int i = 0; i < 4; ++i)
        out.append(char(deviceId >> (8 * i)));
    out.append('\0');
    return out;
}

QByteArray SimTelemetry::textFrame(quint32 deviceId, quint8 index, const QByteArray &label,
                                   const QByteArray &unit)
{
    QByteArray body;
    body.append(char(index));
    body.append(char((label.size() << 3) | (unit.size() & 7)));
    body.append(label);
    body.append(unit);
    return frameHeader(deviceId, TextFrame, body.size()) + body;
}

QByteArray SimTelemetry::messageFrame(quint32 deviceId, quint8 kind, quint8 messageClass,
                                      const QByteArray &text)
{
    const QByteArray t = text.left(std::min(31, kMaxBody - 2));
    QByteArray body;
    body.append(char(kind));
    body.append(char((messageClass << 5) | t.size()));
    body.append(t);
    return frameHeader(deviceId, MessageFrame, body.size()) + body;
}

QByteArray SimTelemetry::alarmFrame(quint8 alarm)
{
    QByteArray out;
    out.append(char(kAlarmMarker));
    out.append('#');
    out.append(char(alarm));
    return out;
}

double SimTelemetry::jitter(double amplitude)
{
    return (int(m_rng() % 2001) - 1000) / 1000.0 * amplitude;
}

void SimTelemetry::valueOf(const Variable &v, double seconds, qint32 *value, quint8 *decimals)
{
    // Every sensor reads the same moment of the same flight, each with a little noise of its own.
    const FlightProfile::State s = m_flight.at(cycleTime(seconds));
    *decimals = v.decimals;
    switch (v.quantity) {
    case Latitude:
        *value = packedCoordinate(s.latitude);
        *decimals = s.latitude < 0 ? 2 : 0;
        return;
    case Longitude:
        *value = packedCoordinate(s.longitude);
        *decimals = 1 | (s.longitude < 0 ? 2 : 0);
        return;
    case TimeOfDay: {
        const qint64 t = m_flight.startOfDay() + qint64(seconds);
        *value = qint32(((t / 3600 % 24) << 16) | ((t / 60 % 60) << 8) | (t % 60));
        *decimals = 0;
        return;
    }
    case Satellites:
        *value = s.satellites;
        return;
    default:
        break;
    }
    double x = 0;
    switch (v.quantity) {
    case RxVoltage:
        x = s.receiverVoltage + jitter(0.03);
        break;
    case LinkQuality:
        x = std::clamp(s.quality + jitter(1), 0.0, 100.0);
        break;
    case SignalStrength:
        x = s.signal + jitter(2);
        break;
    case GpsAltitude:
        x = m_flight.site().elevation + s.altitude + jitter(0.8);
        break;
    case GroundSpeed:
        x = std::max(0.0, s.groundSpeed * 3.6 + jitter(0.5)); // km/h
        break;
    case PackVoltage:
        x = s.packVoltage + jitter(0.02);
        break;
    case Current:
        x = std::max(0.0, s.current + jitter(0.3));
        break;
    case Capacity:
        x = s.used; // a fresh pack for every flight
        break;
    case BaroAltitude:
        x = s.altitude + jitter(0.3);
        break;
    case Climb:
        x = s.climb + jitter(0.05);
        break;
    case Pressure:
        x = s.pressure * 10 + jitter(0.02); // hPa
        break;
    case MotorTemperature:
        x = s.motorTemperature + jitter(0.2);
        break;
    case EscTemperature:
        x = s.escTemperature + jitter(0.2);
        break;
    default:
        break;
    }
    *value = scaled(x, v.decimals);
}

SimTelemetry::Frame SimTelemetry::dataFrame(const Sensor &sensor, const QVector<int> &group, double seconds)
{
    Frame frame;
    frame.kind = DataFrame;
    frame.deviceId = sensor.identifier;
    QByteArray body;
    for (int i : group) {
        const Variable &v = sensor.variables.at(i);
        SentValue sent;
        sent.deviceId = sensor.identifier;
        sent.index = v.index;
        sent.type = v.type;
        valueOf(v, seconds, &sent.value, &sent.decimals);
        if (v.index >= 16) {
            body.append(char(v.type & 0x0F));
            body.append(char(v.index));
        } else {
            body.append(char((v.index << 4) | (v.type & 0x0F)));
        }
        body.append(encodeValue(v.type, sent.decimals, sent.value));
        frame.values.append(sent);
    }
    frame.bytes = frameHeader(sensor.identifier, DataFrame, body.size()) + body;
    return frame;
}

void SimTelemetry::maybeRaiseEvent(int sensorIndex, qint64 flightMs)
{
    const Sensor &s = m_sensors.at(sensorIndex);
    State &st = m_states[sensorIndex];
    if (st.nextEventMs < 0)
        st.nextEventMs = flightMs + kEventMinMs / 3 + qint64(m_rng() % quint32(kEventSpreadMs));
    if (flightMs < st.nextEventMs || (s.alarms.isEmpty() && s.notices.isEmpty()))
        return;
    st.nextEventMs = flightMs + kEventMinMs + qint64(m_rng() % quint32(kEventSpreadMs));
    Frame event;
    event.deviceId = s.identifier;
    const bool alarm = !s.alarms.isEmpty() && (s.notices.isEmpty() || m_rng() % 2 == 0);
    if (alarm) {
        event.kind = AlarmFrame;
        event.bytes = alarmFrame(quint8(s.alarms.at(int(m_rng() % quint32(s.alarms.size())))));
    } else {
        event.kind = MessageFrame;
        const quint32 pick = m_rng() % quint32(s.notices.size());
        event.bytes = messageFrame(s.identifier, kMessageKind, quint8(pick % 4), s.notices.at(int(pick)));
    }
    st.events.append(event);
}

SimTelemetry::Frame SimTelemetry::next(qint64 flightMs)
{
    if (m_sensors.isEmpty())
        return Frame();
    const int i = m_turn;
    m_turn = (m_turn + 1) % m_sensors.size();
    const Sensor &s = m_sensors.at(i);
    State &st = m_states[i];

    if (st.textCursor < 0 && (st.lastTextMs < 0 || flightMs - st.lastTextMs >= kTextRepeatMs)) {
        st.textCursor = 0;
        st.lastTextMs = flightMs;
    }
    if (st.textCursor >= 0) {
        Frame frame;
        frame.kind = TextFrame;
        frame.deviceId = s.identifier;
        if (st.textCursor == 0) {
            frame.bytes = textFrame(s.identifier, 0, s.name, QByteArray());
        } else {
            const Variable &v = s.variables.at(st.textCursor - 1);
            frame.bytes = textFrame(s.identifier, v.index, v.label, v.unit);
        }
        if (++st.textCursor > s.variables.size())
            st.textCursor = -1;
        return frame;
    }
    if (!st.events.isEmpty())
        return st.events.takeFirst();
    if (st.groups.isEmpty())
        return Frame();
    const Frame frame = dataFrame(s, st.groups.at(st.groupCursor), flightMs / 1000.0);
    st.groupCursor = (st.groupCursor + 1) % st.groups.size();
    maybeRaiseEvent(i, flightMs);
    return frame;
}
