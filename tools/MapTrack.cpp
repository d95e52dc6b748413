#include "tools/MapTrack.h"

#include "telemetry/TelemetryVar.h"
#include "tools/MapsProjection.h"

#include <cmath>
#include <limits>

namespace {
// Walks one variable forward in time: the number of its last sample at or before t.
class Follower
{
public:
    explicit Follower(const TelemetryVar *var) : m_values(var ? &var->values() : nullptr) {}
    bool at(qint64 t, double *out)
    {
        if (!m_values)
            return false;
        while (m_next < m_values->size() && m_values->at(m_next).timestamp <= t)
            ++m_next;
        if (m_next == 0)
            return false;
        *out = m_values->at(m_next - 1).toNumber();
        return true;
    }

private:
    const QVector<TelemetryValue> *m_values;
    int m_next = 0;
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
    m_zoom = -1;
    m_path.clear();
}

const QVector<MapTrack::Point> &MapTrack::path(int zoom)
{
    const int samples = m_latitude ? m_latitude->values().size() : 0;
    const void *data = m_latitude ? m_latitude->values().constData() : nullptr;
    if (zoom == m_zoom && samples == m_builtFrom && data == m_builtData)
        return m_path;
    m_zoom = zoom;
    m_builtFrom = samples;
    m_builtData = data;
    m_path.clear();
    if (!m_latitude || !m_longitude)
        return m_path;
    const MapsProjection projection(zoom);
    Follower longitude(m_longitude);
    Follower validity(m_validity);
    Follower color(m_color);
    for (const TelemetryValue &sample : m_latitude->values()) {
        const qint64 t = sample.timestamp;
        double lon = 0;
        double valid = 1;
        if (!longitude.at(t, &lon) || (m_validity && (!validity.at(t, &valid) || valid == 0)))
            continue;
        // Zero is what a receiver sends before its first fix (the KML export leaves it out too): drawn,
        // it would pull a line to the equator and the fitted view with it.
        const double lat = sample.toNumber();
        if (lat == 0 || lon == 0)
            continue;
        const QPoint world = projection.fromLatLngToPoint(lat, lon);
        if (!m_path.isEmpty() && m_path.constLast().world == world)
            continue;
        double value = std::numeric_limits<double>::quiet_NaN();
        color.at(t, &value);
        m_path.append({world, t, value});
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
