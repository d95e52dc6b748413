#pragma once

#include <QObject>
#include <QPoint>
#include <QSize>

// Web Mercator for one zoom level: latitude and longitude to world pixels of a map 256 · 2^zoom pixels
// wide and back, and to pixels of a window showing the map around a centre. Also the fixed zoom-21
// arithmetic the map grid and panning work in. No widgets: the window, the image export and vexo-log share
// it.
class MapsProjection : public QObject
{
    Q_OBJECT
public:
    struct LatLon
    {
        double latitude = 0;
        double longitude = 0;
    };

    static constexpr int kMinZoom = 0;
    static constexpr int kMaxZoom = 21;

    explicit MapsProjection(int zoom, QObject *parent = nullptr);

    int zoom() const { return m_zoom; }
    double worldSize() const { return m_worldSize; }

    // World pixel, each coordinate rounded half up (also below zero). The poles project to a finite y.
    QPoint fromLatLngToPoint(double latitude, double longitude) const;
    // Its two coordinates alone, for loops that meet the same latitude many times in a row.
    int pixelX(double longitude) const;
    int pixelY(double latitude) const;
    LatLon fromPointToLatLng(double x, double y) const;

    // The pixel of a position in a window of this size whose middle shows centre. The window's top-left
    // world pixel is worked out on first use and kept until reset().
    QPoint toWidget(double latitude, double longitude, const LatLon &centre, const QSize &window);
    void reset() { m_hasTopLeft = false; }
    bool hasTopLeft() const { return m_hasTopLeft; }

    // The same projection at zoom 21 in whole pixels, for the tile grid and panning by offsets.
    static qint64 longitudeToX21(double longitude);
    static qint64 latitudeToY21(double latitude);
    static double x21ToLongitude(qint64 x);
    static double y21ToLatitude(qint64 y);
    // A distance of d pixels at zoom z, in zoom-21 pixels.
    static qint64 toZoom21(qint64 d, int zoom) { return d * (qint64(1) << (kMaxZoom - zoom)); }

private:
    int m_zoom;
    double m_worldSize;
    double m_originX;
    double m_originY;
    double m_pixelsPerDegree;
    double m_pixelsPerRadian;
    qint64 m_topLeftX = 0;
    qint64 m_topLeftY = 0;
    bool m_hasTopLeft = false;
};
