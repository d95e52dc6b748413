#include "telemetry/LogGenerator.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace {
// splitmix64: tiny, and the same numbers on every platform (the standard distributions are not).
class Random
{
public:
    explicit Random(quint64 seed) : m_state(seed) {}
    quint64 next()
    {
        quint64 z = (m_state += 0x9E3779B97F4A7C15ULL);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
        return z ^ (z >> 31);
    }
    double uniform() { return double(next() >> 11) * (1.0 / 9007199254740992.0); }
    double between(double a, double b) { return a + (b - a) * uniform(); }
    int below(int n) { return int(next() % quint64(n)); }

private:
    quint64 m_state;
};

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
          {7, "Datum", "", 5, 1}}},
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

const char *const kMessages[] = {"Start motoru",       "Přistání",        "Nízké napětí přijímače",
                                 "Ztráta signálu GPS", "Vzlet – režim 2", "Kontrola řízení OK"};
const char kAlarms[] = {'V', 'C', 'T', 'A'};

// A bounded random walk around a centre, so values look like a sensor rather than noise.
struct Walk
{
    double value;
    double centre;
    double spread;
    double step(Random &rng)
    {
        value += rng.between(-spread, spread) * 0.05 + (centre - value) * 0.01;
        return value;
    }
};
} // namespace

TelemetryDataPackage LogGenerator::generate(const Options &options)
{
    Random rng(options.seed);
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
    const qint64 samplesPerVar = durationMs / stepMs + 1;

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
            var.values().reserve(int(samplesPerVar));
            device.vars().append(var);
        }

        std::vector<Walk> walks;
        for (const ParamKind &p : kind.params) {
            const double scale = std::pow(10.0, p.decimals & 0xFF);
            const double centre = p.type == 0 ? rng.between(-40, 100) : rng.between(50, 250) * scale;
            walks.push_back({centre, centre, std::max(1.0, std::abs(centre) * 0.2)});
        }
        // The first two devices tick on the same milliseconds; the others are offset, as on a real bus.
        const qint64 offset = d < 2 ? 0 : 3 + 7 * d;
        double lat = 49.2 + rng.uniform(), lon = 16.5 + rng.uniform(), heading = rng.between(0, 6.28);
        for (qint64 k = 0; k < samplesPerVar; ++k) {
            qint64 ts = 100 + offset + k * stepMs;
            if (stepMs >= 10)
                ts += rng.below(3);
            if (ts > durationMs + 100 + offset)
                break;
            heading += rng.between(-0.05, 0.05);
            lat += std::cos(heading) * 0.00002;
            lon += std::sin(heading) * 0.00003;
            for (int i = 0; i < int(kind.params.size()); ++i) {
                const ParamKind &p = kind.params[size_t(i)];
                TelemetryValue v;
                v.type = p.type;
                v.decimals = p.decimals;
                v.timestamp = qint32(ts);
                if (p.type == 9) {
                    const double deg = p.decimals & 1 ? lon : lat;
                    const double whole = std::floor(deg);
                    v.value = qint32((quint32(whole) << 16) | quint32(std::lround((deg - whole) * 60000.0)));
                } else if (p.type == 5) {
                    const qint64 secs = 10 * 3600 + ts / 1000;
                    v.value =
                        (p.decimals & 1)
                            ? qint32((24 << 16) | (6 << 8) | 26)
                            : qint32(((secs / 3600 % 24) << 16) | ((secs / 60 % 60) << 8) | (secs % 60));
                } else {
                    const double x = walks[size_t(i)].step(rng);
                    const double limit = p.type == 0 ? 127 : p.type == 1 ? 32767 : 2e9;
                    v.value = qint32(std::lround(std::clamp(x, -limit, limit)));
                }
                device.vars()[i].values().append(v);
            }
        }
    }

    const quint32 messageDevice = package.devices().constFirst().id();
    for (qint64 t = 5000; t < durationMs; t += 20000 + rng.below(40000)) {
        TelemetryMessage m;
        m.timestamp = qint32(t);
        m.deviceId = messageDevice;
        if (rng.below(3) == 0) {
            m.alarm = quint8(kAlarms[rng.below(int(sizeof kAlarms))]);
            m.type = TelemetryMessage::kAlarmType;
            m.value = m.alarm;
            m.text = m.displayText();
        } else {
            m.text = QString::fromUtf8(kMessages[rng.below(int(sizeof kMessages / sizeof kMessages[0]))]);
        }
        package.messages().append(m);
    }
    return package;
}
