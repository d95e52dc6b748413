#include "tools/MapTrack.h"

#include "telemetry/TelemetryVar.h"
#include "tools/MapsProjection.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define VEXO_CLEAR_UPPER_VECTORS 1
#endif

namespace {
#ifdef VEXO_CLEAR_UPPER_VECTORS
// QPainter's image code (a window's background, the map images) can leave the upper halves of the CPU's
// wide vector registers in use; until they are cleared each SSE instruction of the path loops waits on
// them, and a rebuild takes twice as long.
__attribute__((target("avx"))) void clearUpperVectorsAvx()
{
    _mm256_zeroupper();
}
void clearUpperVectors()
{
    static const bool avx = __builtin_cpu_supports("avx");
    if (avx)
        clearUpperVectorsAvx();
}
#else
void clearUpperVectors() {}
#endif

// Walks one variable forward in time: its last sample at or before t.
class Follower
{
public:
    explicit Follower(const TelemetryVar *var)
        : m_data(var ? var->values().constData() : nullptr), m_size(var ? var->values().size() : 0)
    {
    }
    const TelemetryValue *sampleAt(qint64 t)
    {
        while (m_next < m_size && m_data[m_next].timestamp <= t)
            ++m_next;
        return m_next == 0 ? nullptr : m_data + m_next - 1;
    }
    bool at(qint64 t, double *out)
    {
        const TelemetryValue *sample = sampleAt(t);
        if (!sample)
            return false;
        *out = sample->toNumber();
        return true;
    }

private:
    const TelemetryValue *m_data;
    int m_size;
    int m_next = 0;
};

bool sameNumber(const TelemetryValue &a, const TelemetryValue &b)
{
    return a.value == b.value && a.type == b.type && a.decimals == b.decimals;
}

// The latitudes met so far with their pixel rows, by a hash of the latitude: a flight crosses the same
// few hundred latitudes again and again, and the row's logarithm is the costly part of a projection.
class RowMemo
{
public:
    explicit RowMemo(const MapsProjection &projection) : m_projection(projection), m_slots(kSlots) {}
    int rowOf(double latitude)
    {
        quint64 bits;
        std::memcpy(&bits, &latitude, sizeof bits);
        Slot &slot = m_slots[size_t((bits * 0x9E3779B97F4A7C15ULL) >> 52)];
        if (slot.latitude != latitude) {
            slot.latitude = latitude;
            slot.row = m_projection.pixelY(latitude);
        }
        return slot.row;
    }

private:
    static constexpr size_t kSlots = 4096; // the top 12 bits of the hash
    struct Slot
    {
        double latitude = 0; // never projected: zero is no position
        int row = 0;
    };
    const MapsProjection &m_projection;
    std::vector<Slot> m_slots;
};

int channel(int a, int b, double f)
{
    return int(std::lround(a + (b - a) * f));
}
} // namespace

QColor MapTrack::ColorStops::colorAt(double value) const
{
    if (!(value > values[0]))
        return colors[0];
    if (value >= values[2])
        return colors[2];
    const int i = value < values[1] ? 0 : 1;
    const double span = values[i + 1] - values[i];
    const double f = span > 0 ? (value - values[i]) / span : 1.0;
    const QColor &a = colors[i];
    const QColor &b = colors[i + 1];
    return QColor(channel(a.red(), b.red(), f), channel(a.green(), b.green(), f),
                  channel(a.blue(), b.blue(), f));
}

void MapTrack::setVariables(const TelemetryVar *latitude, const TelemetryVar *longitude,
                            const TelemetryVar *validity, const TelemetryVar *color)
{
    m_latitude = latitude;
    m_longitude = longitude;
    m_validity = validity;
    m_color = color;
    m_sources = {};
    m_positions.clear();
    m_zoom = -1;
    m_path.clear();
}

std::array<MapTrack::Source, 4> MapTrack::sources() const
{
    std::array<Source, 4> result;
    const TelemetryVar *vars[4] = {m_latitude, m_longitude, m_validity, m_color};
    for (size_t i = 0; i < result.size(); ++i) {
        if (vars[i])
            result[i] = {vars[i]->values().constData(), vars[i]->values().size()};
        else
            result[i] = {nullptr, 0};
    }
    return result;
}

void MapTrack::collectPositions()
{
    m_positions.clear();
    if (!m_latitude || !m_longitude)
        return;
    const TelemetryValue *lats = m_latitude->values().constData();
    const TelemetryValue *lons = m_longitude->values().constData();
    const int count = m_latitude->values().size();
    Follower longitude(m_longitude);
    Follower validity(m_validity);
    // A receiver repeats its position between fixes: a sample that repeats the position last taken
    // lands on the same pixel at every zoom, whatever its validity.
    const TelemetryValue *takenLat = nullptr;
    const TelemetryValue *takenLon = nullptr;
    for (int i = 0; i < count; ++i) {
        const TelemetryValue &sample = lats[i];
        const qint64 t = sample.timestamp;
        const TelemetryValue *lonSample = longitude.sampleAt(t);
        if (!lonSample || (takenLat && sameNumber(sample, *takenLat) && sameNumber(*lonSample, *takenLon)))
            continue;
        double valid = 1;
        if (m_validity && (!validity.at(t, &valid) || valid == 0))
            continue;
        // Zero is what a receiver sends before its first fix (the KML export leaves it out too): drawn,
        // it would pull a line to the equator and the fitted view with it.
        if (sample.toNumber() == 0 || lonSample->toNumber() == 0)
            continue;
        takenLat = &sample;
        takenLon = lonSample;
        m_positions.push_back({i, int(lonSample - lons)});
    }
    m_positions.shrink_to_fit();
}

const QVector<MapTrack::Point> &MapTrack::path(int zoom)
{
    const std::array<Source, 4> now = sources();
    if (now != m_sources) {
        clearUpperVectors();
        m_sources = now;
        collectPositions();
        m_zoom = -1;
    }
    if (zoom == m_zoom)
        return m_path;
    m_zoom = zoom;
    clearUpperVectors();
    m_path.clear();
    if (m_positions.empty())
        return m_path;
    m_path.reserve(int(m_positions.size())); // at most one point each, so it never grows while built
    const TelemetryValue *lats = m_latitude->values().constData();
    const TelemetryValue *lons = m_longitude->values().constData();
    const MapsProjection projection(zoom);
    RowMemo rows(projection);
    Follower color(m_color);
    for (const Position &p : m_positions) {
        const TelemetryValue &sample = lats[p.latitude];
        const QPoint world(projection.pixelX(lons[p.longitude].toNumber()), rows.rowOf(sample.toNumber()));
        if (!m_path.isEmpty() && m_path.constLast().world == world)
            continue;
        double value = std::numeric_limits<double>::quiet_NaN();
        color.at(sample.timestamp, &value);
        m_path.append({world, sample.timestamp, value});
    }
    return m_path;
}

int MapTrack::indexAt(qint64 t) const
{
    int lo = 0;
    int hi = m_path.size();
    while (lo < hi) {
        const int mid = (lo + hi) / 2;
        if (m_path.at(mid).time <= t)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo - 1;
}
