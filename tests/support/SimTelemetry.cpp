#include "tests/support/SimTelemetry.h"

#include <QtMath>

#include <algorithm>
#include <cmath>

namespace {
constexpr double kCycleSeconds = SimTelemetry::kFlightMs / 1000.0;
constexpr double kTakeOff = 15;
constexpr double kCruise = 45;
constexpr double kDescent = 255;
constexpr double kLanded = 285;
constexpr double kCruiseAltitude = 120;
constexpr double kCircleRadius = 250;
// Home field, west of Greenwich so longitudes carry the west flag.
constexpr double kHomeLatitude = 52.0906;
constexpr double kHomeLongitude = -1.0140;
constexpr double kMetresPerDegree = 111320;

double cycleTime(double seconds)
{
    return std::fmod(std::max(0.0, seconds), kCycleSeconds);
}

bool airborne(double c)
{
    return c >= kTakeOff && c < kLanded;
}

double altitudeAt(double c)
{
    if (c < kTakeOff || c >= kLanded)
        return 0;
    if (c < kCruise)
        return kCruiseAltitude * (c - kTakeOff) / (kCruise - kTakeOff);
    const auto cruise = [](double x) { return kCruiseAltitude + 10 * std::sin((x - kCruise) / 20); };
    if (c < kDescent)
        return cruise(c);
    return cruise(kDescent) * (kLanded - c) / (kLanded - kDescent);
}

double climbAt(double c)
{
    return altitudeAt(c + 0.5) - altitudeAt(std::max(0.0, c - 0.5));
}

double speedAt(double c)
{
    return airborne(c) ? 55 + 15 * std::sin(c / 13) : 0;
}

// North and east offsets from home in metres: a circle that starts and ends at home.
void positionAt(double c, double *north, double *east)
{
    const double angle = airborne(c) ? (c - kTakeOff) * 2 * M_PI / 90 : 0;
    *north = kCircleRadius * std::sin(angle);
    *east = kCircleRadius * (1 - std::cos(angle));
}

double distanceAt(double c)
{
    double north = 0;
    double east = 0;
    positionAt(c, &north, &east);
    return std::sqrt(north * north + east * east);
}

double currentAt(double c)
{
    if (!airborne(c))
        return 0.4;
    if (c < kCruise)
        return 38;
    if (c >= kDescent)
        return 6;
    return 16 + 4 * std::sin(c / 7);
}

// Degrees in bits 16..23, minutes times 1000 below; the sign goes into the flags.
qint32 coordinate(double degrees)
{
    const double a = std::fabs(degrees);
    int whole = int(a);
    int milliMinutes = int(std::lround((a - whole) * 60000));
    if (milliMinutes >= 60000) {
        ++whole;
        milliMinutes -= 60000;
    }
    return qint32((quint32(whole) << 16) | quint32(milliMinutes));
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

SimTelemetry::SimTelemetry(quint32 seed) : m_rng(seed) {}

void SimTelemetry::setSeed(quint32 seed)
{
    m_rng.seed(seed);
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

void SimTelemetry::advanceFlight(qint64 flightMs)
{
    if (flightMs / kFlightMs != m_lastFlightMs / kFlightMs)
        m_capacityMah = 0; // a fresh pack for every flight
    const qint64 dt = std::max<qint64>(0, flightMs - m_lastFlightMs);
    m_capacityMah += currentAt(cycleTime(m_lastFlightMs / 1000.0)) * dt / 3600.0;
    m_lastFlightMs = std::max(m_lastFlightMs, flightMs);
}

void SimTelemetry::valueOf(const Variable &v, double seconds, qint32 *value, quint8 *decimals)
{
    const double c = cycleTime(seconds);
    *decimals = v.decimals;
    double north = 0;
    double east = 0;
    positionAt(c, &north, &east);
    switch (v.quantity) {
    case Latitude: {
        const double lat = kHomeLatitude + north / kMetresPerDegree;
        *value = coordinate(lat);
        *decimals = lat < 0 ? 2 : 0;
        return;
    }
    case Longitude: {
        const double lon =
            kHomeLongitude + east / (kMetresPerDegree * std::cos(qDegreesToRadians(kHomeLatitude)));
        *value = coordinate(lon);
        *decimals = 1 | (lon < 0 ? 2 : 0);
        return;
    }
    case TimeOfDay: {
        const qint64 s = 14 * 3600 + qint64(seconds);
        *value = qint32(((s / 3600 % 24) << 16) | ((s / 60 % 60) << 8) | (s % 60));
        *decimals = 0;
        return;
    }
    case Satellites:
        *value = c < 5 ? 4 : 9 + int(c / 37) % 4;
        return;
    default:
        break;
    }
    double x = 0;
    switch (v.quantity) {
    case RxVoltage:
        x = 5.05 + jitter(0.03);
        break;
    case LinkQuality:
        x = std::min(100.0, 100 - distanceAt(c) / 40 + jitter(1));
        break;
    case SignalStrength:
        x = -38 - distanceAt(c) / 12 + jitter(2);
        break;
    case GpsAltitude:
        x = altitudeAt(c) + jitter(0.8);
        break;
    case GroundSpeed:
        x = std::max(0.0, speedAt(c) + jitter(0.5));
        break;
    case PackVoltage:
        x = std::max(13.0, 16.7 - 0.012 * currentAt(c) - m_capacityMah * 0.0005 + jitter(0.02));
        break;
    case Current:
        x = std::max(0.0, currentAt(c) + jitter(0.3));
        break;
    case Capacity:
        x = m_capacityMah;
        break;
    case BaroAltitude:
        x = altitudeAt(c) + jitter(0.3);
        break;
    case Climb:
        x = climbAt(c) + jitter(0.05);
        break;
    case Pressure:
        x = 1013.25 - altitudeAt(c) * 0.12 + jitter(0.02);
        break;
    case MotorTemperature:
        x = 22 + currentAt(c) * 1.2 + jitter(0.2);
        break;
    case EscTemperature:
        x = 21 + currentAt(c) * 0.6 + jitter(0.2);
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
    advanceFlight(flightMs);
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
