#include "telemetry/LogGenerator.h"

#include "telemetry/FlightProfile.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {
struct ParamKind
{
    quint32 param;
    const char *label;
    const char *unit;
    quint32 type;
    quint32 decimals;
};

struct DeviceKind
{
    quint32 product; // low 16 bits of the id
    const char *name;
    std::vector<ParamKind> params;
};

const std::vector<DeviceKind> &deviceKinds()
{
    static const std::vector<DeviceKind> kinds = {
        {0x0A01,
         "Přijímač REX 12",
         {{1, "Napětí Rx", "V", 1, 2},
          {2, "Signál A1", "dB", 0, 0},
          {3, "Kvalita Q", "%", 0, 0},
          {4, "Teplota Rx", "°C", 0, 0}}},
        {0x0A10,
         "GPS modul",
         {{1, "Zeměpisná šířka", "°", 9, 0},
          {2, "Zeměpisná délka", "°", 9, 1},
          {3, "Výška", "m", 1, 1},
          {4, "Rychlost", "m/s", 1, 1},
          {5, "Satelity", "", 0, 0},
          {6, "Čas", "", 5, 0},
          {7, "Datum", "", 5, 1},
          {8, "Kurz", "°", 1, 0}}},
        {0x0A20,
         "Senzor baterie – pohon",
         {{1, "Napětí", "V", 12, 2},
          {2, "Proud", "A", 12, 1},
          {3, "Kapacita", "mAh", 12, 0},
          {4, "Článek min.", "V", 1, 2}}},
        {0x0A30,
         "Výškoměr a vario",
         {{1, "Výška", "m", 12, 1}, {2, "Vario", "m/s", 1, 2}, {3, "Tlak", "kPa", 12, 2}}},
        {0x0A40, "Rychloměr Pitot", {{1, "Rychlost vzduchu", "m/s", 12, 1}}},
        {0x0A50,
         "Teploměr dvojitý",
         {{1, "Teplota motoru", "°C", 1, 1}, {2, "Teplota regulátoru", "°C", 1, 1}}},
    };
    return kinds;
}

// A value measured by a sensor: the flight's figure plus a little noise of the sensor's own.
double noisy(FlightRandom &rng, double value, double spread)
{
    return value + rng.between(-spread, spread);
}

// The reading of one variable of a device kind at one moment of the flight, before scaling.
double reading(quint32 product, quint32 param, const FlightProfile &flight, const FlightProfile::State &s,
               double t, FlightRandom &rng)
{
    switch ((product << 8) | param) {
    case 0x0A0101:
        return noisy(rng, s.receiverVoltage, 0.02);
    case 0x0A0102:
        return noisy(rng, s.signal, 1.5);
    case 0x0A0103:
        return std::clamp(noisy(rng, s.quality, 1.0), 0.0, 100.0);
    case 0x0A0104:
        return noisy(rng, s.receiverTemperature, 0.4);
    case 0x0A1003:
        // Height above sea level wanders by a metre or two, as a GPS height does.
        return flight.site().elevation + s.altitude + std::sin(t / 23) * 1.5 + std::sin(t / 61) * 0.8;
    case 0x0A1004:
        return std::max(0.0, noisy(rng, s.groundSpeed, 0.1));
    case 0x0A1005:
        return s.satellites;
    case 0x0A1008:
        return std::round(s.course) >= 360 ? 0 : s.course;
    case 0x0A2001:
        return noisy(rng, s.packVoltage, 0.02);
    case 0x0A2002:
        return std::max(0.0, noisy(rng, s.current, 0.1));
    case 0x0A2003:
        return s.used; // a counter: never noisy, never going back
    case 0x0A2004:
        return noisy(rng, s.lowestCell, 0.005);
    case 0x0A3001:
        return noisy(rng, s.altitude, 0.05);
    case 0x0A3002:
        return noisy(rng, s.climb, 0.03);
    case 0x0A3003:
        return noisy(rng, s.pressure, 0.004);
    case 0x0A4001:
        return std::max(0.0, noisy(rng, s.airSpeed, 0.2));
    case 0x0A5001:
        return noisy(rng, s.motorTemperature, 0.1);
    case 0x0A5002:
        return noisy(rng, s.escTemperature, 0.1);
    default:
        return 0;
    }
}

TelemetryMessage messageFor(const FlightProfile::Event &e, quint32 deviceId)
{
    TelemetryMessage m;
    m.timestamp = qint32(std::lround(e.time * 1000));
    m.deviceId = deviceId;
    const auto alarm = [&m](char c) {
        m.alarm = quint8(c);
        m.type = TelemetryMessage::kAlarmType;
        m.value = m.alarm;
        m.text = m.displayText();
    };
    switch (e.kind) {
    case FlightProfile::ControlCheck:
        m.text = QString::fromUtf8("Kontrola řízení OK");
        break;
    case FlightProfile::MotorStart:
        m.text = QString::fromUtf8("Start motoru");
        break;
    case FlightProfile::LiftOff:
        m.text = QString::fromUtf8("Vzlet – režim 2");
        break;
    case FlightProfile::SignalLost:
        alarm('S');
        break;
    case FlightProfile::CapacityReached:
        alarm('C');
        break;
    case FlightProfile::LowCell:
        alarm('V');
        break;
    case FlightProfile::Touchdown:
        m.text = QString::fromUtf8("Přistání");
        break;
    }
    return m;
}
} // namespace

TelemetryDataPackage LogGenerator::generate(const Options &options)
{
    FlightRandom rng(options.seed);
    TelemetryDataPackage package;
    package.setName(QStringLiteral("Ukázkový let %1").arg(options.seed));
    package.setDescription(QStringLiteral("Vygenerovaný let: %1 s, %2 Hz, %3 zařízení")
                               .arg(options.seconds)
                               .arg(options.rate)
                               .arg(options.devices));

    const int deviceCount = std::max(1, options.devices);
    const int rate = std::clamp(options.rate, 1, 1000);
    const qint64 durationMs = qint64(std::max(0, options.seconds)) * 1000;
    const qint64 stepMs = std::max<qint64>(1, 1000 / rate);
    const qint64 lastStep = durationMs / stepMs;
    const FlightProfile flight(double(durationMs) / 1000, options.seed);
    const int startOfDay = flight.startOfDay();
    const QDate date = flight.date();

    for (int d = 0; d < deviceCount; ++d) {
        const DeviceKind &kind = deviceKinds()[size_t(d) % deviceKinds().size()];
        const quint32 serial = quint32(1 + d / int(deviceKinds().size()));
        const quint32 id = kind.product | (serial << 16);
        QString name = QString::fromUtf8(kind.name);
        if (d >= int(deviceKinds().size()))
            name += QStringLiteral(" č. %1").arg(serial);
        const int index = package.addDevice(id, name);
        TelemetrySensor &device = package.devices()[index];
        for (const ParamKind &p : kind.params) {
            TelemetryVar var(id, p.param, QString::fromUtf8(p.label), QString::fromUtf8(p.unit));
            var.values().reserve(int(lastStep + 1));
            device.vars().append(var);
        }

        // The first two devices tick on the same milliseconds; the others are offset, as on a real bus.
        // Both ends of the flight are sampled exactly; in between a sample may come a little late.
        const qint64 offset = d < 2 ? 0 : 3 + 7 * d;
        for (qint64 k = 0; k <= lastStep; ++k) {
            qint64 ts = 100 + offset + k * stepMs;
            if (stepMs >= 10 && k > 0 && k < lastStep)
                ts += rng.below(3);
            const double t = double(ts - 100) / 1000;
            const FlightProfile::State s = flight.at(t);
            for (int i = 0; i < int(kind.params.size()); ++i) {
                const ParamKind &p = kind.params[size_t(i)];
                TelemetryValue v;
                v.type = p.type;
                v.decimals = p.decimals;
                v.timestamp = qint32(ts);
                if (p.type == 9) {
                    v.value = packedCoordinate(p.decimals & 1 ? s.longitude : s.latitude);
                } else if (p.type == 5 && (p.decimals & 1)) {
                    v.value = qint32((date.day() << 16) | (date.month() << 8) | (date.year() % 100));
                } else if (p.type == 5) {
                    const qint64 secs = startOfDay + qint64(t);
                    v.value = qint32(((secs / 3600 % 24) << 16) | ((secs / 60 % 60) << 8) | (secs % 60));
                } else {
                    const double x =
                        reading(kind.product, p.param, flight, s, t, rng) * std::pow(10.0, p.decimals & 0xFF);
                    const double limit = p.type == 0 ? 127 : p.type == 1 ? 32767 : 2e9;
                    v.value = qint32(std::lround(std::clamp(x, -limit, limit)));
                }
                device.vars()[i].values().append(v);
            }
        }
    }

    // The receiver passes on what the pilot hears: the checks, the phases of the flight and the alarms.
    const quint32 messageDevice = package.devices().constFirst().id();
    for (const FlightProfile::Event &e : flight.events())
        package.messages().append(messageFor(e, messageDevice));
    return package;
}
