#pragma once

#include <QColor>
#include <QPoint>
#include <QVector>

#include <array>
#include <vector>

class TelemetryVar;

// The flight path for the map: the GPS samples projected to world pixels of one zoom level, with
// consecutive samples that fall on the same pixel merged, so that drawing costs the pixels the path
// covers, not the samples; kept until the zoom or the data change. Each point keeps the time of its
// first sample, for the shared cursor and for showing only the last seconds.
class MapTrack
{
public:
    struct Point
    {
        QPoint world;
        qint64 time = 0;  // ms, the first sample on this pixel
        double value = 0; // of the colour variable at that time (NaN without one)
    };

    // The three colour stops: a value below the first takes its colour, above the last the last one's;
    // between two stops the colour runs linearly in RGB from one to the other.
    struct ColorStops
    {
        std::array<QColor, 3> colors{{Qt::green, Qt::yellow, Qt::red}};
        std::array<double, 3> values{{0, 50, 100}};
        QColor colorAt(double value) const;
    };

    // Latitude and longitude in degrees (their numbers as the store reads them); validity and colour may
    // be null. A position is each latitude sample with the longitude, validity and colour samples at or
    // before its time; a position whose validity reads 0, or whose latitude or longitude is 0 (no fix
    // yet), is left out.
    void setVariables(const TelemetryVar *latitude, const TelemetryVar *longitude,
                      const TelemetryVar *validity = nullptr, const TelemetryVar *color = nullptr);
    // The path at this zoom, rebuilt only when the zoom or the variables' samples changed.
    const QVector<Point> &path(int zoom);
    // Index of the last point at or before t, or -1.
    int indexAt(qint64 t) const;

private:
    // How many samples a variable had and where they were, to notice a change.
    struct Source
    {
        const void *data = nullptr;
        int size = -1;
        bool operator==(const Source &o) const { return data == o.data && size == o.size; }
    };
    // A latitude sample and the longitude sample that goes with it (indexes into their variables).
    struct Position
    {
        int latitude;
        int longitude;
    };
    std::array<Source, 4> sources() const;
    // The positions a path is made of at any zoom: valid, not zero and not the same as the one before.
    void collectPositions();

    const TelemetryVar *m_latitude = nullptr;
    const TelemetryVar *m_longitude = nullptr;
    const TelemetryVar *m_validity = nullptr;
    const TelemetryVar *m_color = nullptr;
    std::array<Source, 4> m_sources; // of the positions
    std::vector<Position> m_positions;
    int m_zoom = -1;
    QVector<Point> m_path;
};
Q_DECLARE_TYPEINFO(MapTrack::Point, Q_MOVABLE_TYPE);
