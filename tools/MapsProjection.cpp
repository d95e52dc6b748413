#include "tools/MapsProjection.h"

#include <cmath>

namespace {
constexpr double kPi = 3.14159265358979323846;
constexpr double kRadiansPerDegree = 0.017453292519943295;
constexpr double kDegreesPerRadian = 57.29577951308232;
// The Mercator ratio (1 + s) / (1 - s) near the poles, where s = sin(latitude) reaches ±0.9999.
constexpr double kSouthRatio = 5.0002500125000746e-5;
constexpr double kNorthRatio = 19999.0000000022;
// Zoom 21: half the world and the world's radius, in pixels.
constexpr double kOffset21 = 268435456.0;
constexpr double kRadius21 = 85445659.44705395;

double roundHalfUp(double v)
{
    return std::floor(v + 0.5);
}

double mercatorRatio(double latitude)
{
    const double s = std::sin(latitude * kRadiansPerDegree);
    if (s < -0.9999)
        return kSouthRatio;
    if (s > 0.9999)
        return kNorthRatio;
    return (1 + s) / (1 - s);
}
} // namespace

MapsProjection::MapsProjection(int zoom, QObject *parent)
    : QObject(parent), m_zoom(zoom), m_worldSize(256.0 * std::pow(2.0, zoom)), m_originX(m_worldSize * 0.5),
      m_originY(m_worldSize * 0.5), m_pixelsPerDegree(m_worldSize / 360.0),
      m_pixelsPerRadian(m_worldSize / (2 * kPi))
{
}

QPoint MapsProjection::fromLatLngToPoint(double latitude, double longitude) const
{
    return QPoint(pixelX(longitude), pixelY(latitude));
}

int MapsProjection::pixelX(double longitude) const
{
    return int(roundHalfUp(m_originX + longitude * m_pixelsPerDegree));
}

int MapsProjection::pixelY(double latitude) const
{
    return int(roundHalfUp(m_originY - 0.5 * std::log(mercatorRatio(latitude)) * m_pixelsPerRadian));
}

MapsProjection::LatLon MapsProjection::fromPointToLatLng(double x, double y) const
{
    LatLon p;
    p.longitude = (x - m_originX) / m_pixelsPerDegree;
    p.latitude =
        (2 * std::atan(std::exp((y - m_originY) / -m_pixelsPerRadian)) - kPi / 2) * kDegreesPerRadian;
    return p;
}

QPoint MapsProjection::toWidget(double latitude, double longitude, const LatLon &centre, const QSize &window)
{
    if (!m_hasTopLeft) {
        const QPoint middle = fromLatLngToPoint(centre.latitude, centre.longitude);
        const LatLon corner =
            fromPointToLatLng(middle.x() - window.width() / 2.0, middle.y() - window.height() / 2.0);
        const QPoint topLeft = fromLatLngToPoint(corner.latitude, corner.longitude);
        m_topLeftX = topLeft.x();
        m_topLeftY = topLeft.y();
        m_hasTopLeft = true;
    }
    const QPoint p = fromLatLngToPoint(latitude, longitude);
    return QPoint(int(p.x() - m_topLeftX), int(p.y() - m_topLeftY));
}

qint64 MapsProjection::longitudeToX21(double longitude)
{
    return qint64(roundHalfUp(kRadius21 * longitude * kPi / 180.0 + kOffset21));
}

qint64 MapsProjection::latitudeToY21(double latitude)
{
    return qint64(roundHalfUp(kOffset21 - kRadius21 * std::log(mercatorRatio(latitude)) / 2.0));
}

double MapsProjection::x21ToLongitude(qint64 x)
{
    return (double(x) - kOffset21) / kRadius21 * 180.0 / kPi;
}

double MapsProjection::y21ToLatitude(qint64 y)
{
    return (kPi / 2 - 2 * std::atan(std::exp((double(y) - kOffset21) / kRadius21))) * 180.0 / kPi;
}
