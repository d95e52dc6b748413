#pragma once

#include "tools/MapTrack.h"
#include "tools/MapsProjection.h"

#include <QImage>
#include <QPoint>
#include <QSize>
#include <QVector>

class QPainter;

// Paints the map as the window shows it, without a window: the map images, the flight path over them and
// the marker at the shared cursor. The window, the image export and vexo-log all paint through it, so
// they show the same picture.
//
// Where things are: the map images lie on a grid of 512-pixel squares anchored at pos, the widget pixel of
// the top-left of the image whose middle shows centre. An image is named by the world pixel (at the
// view's zoom) of its top-left corner, so the same place keeps the same name however the map is panned,
// and its cache file is found again. With pos at (width/2 - 256, height/2 - 256) the view matches
// MapsProjection::toWidget for that centre.
class MapRenderer
{
public:
    static constexpr int kTileSize = 512;
    static constexpr int kMinZoom = 1;
    static constexpr int kMaxZoom = MapsProjection::kMaxZoom;
    // A fitted view goes no deeper: a model standing on the ground would fill the picture with one corner.
    static constexpr int kMaxFitZoom = 18;
    static constexpr int kCursorDiameter = 16;
    static constexpr int kCursorPenWidth = 3;
    static QColor cursorPenColor() { return QColor(79, 108, 171); }

    struct View
    {
        int zoom = 15;
        QSize size;
        QPoint pos; // widget pixel of the anchor image's top-left
        MapsProjection::LatLon centre;
    };

    struct Tile
    {
        QImage image;    // null or not yet arrived: painted white
        QPoint world;    // top-left, in world pixels at the view's zoom
        QString failure; // why a white square stays white, written on it
    };

    struct TrackStyle
    {
        QColor color = QColor(255, 165, 0);
        qreal width = 3;
        // Only the last restrictSeconds up to the cursor (or the track's end without one).
        bool restrict = false;
        double restrictSeconds = 0;
        // Each segment in the colour of its first point's value (quantised to 1/255 of the span from the
        // first stop's value to the last's where the painter lets the track be drawn as an image).
        bool colored = false;
        MapTrack::ColorStops stops;
    };

    struct Fit
    {
        bool valid = false; // false for an empty track
        int zoom = kMinZoom;
        MapsProjection::LatLon centre;
    };

    // The view whose middle shows centre, as a new window starts.
    static View centredView(int zoom, const QSize &size, const MapsProjection::LatLon &centre);
    // The same picture with the anchor image moved onto the world's own 512-pixel grid, so that a place
    // has the same images (and cache files) whichever flight is shown around it.
    static View gridView(int zoom, const QSize &size, const MapsProjection::LatLon &centre);
    // The anchor moved onto that grid; with keepPos the anchor's widget position stays (a view saved
    // on the grid), otherwise what is shown stays where it is.
    static void snapToGrid(View &view, bool keepPos);
    // The view that shows the whole track as the map window and vexo-log place it: fitted, but no
    // deeper than maxZoom. False without a position.
    static bool trackView(MapTrack &track, const QSize &size, int maxZoom, View *view);

    // World pixels (at the view's zoom) of the anchor image's top-left and of the widget's top-left.
    static QPoint anchorWorld(const View &view);
    static QPoint worldTopLeft(const View &view);
    static QPoint toWidget(const View &view, double latitude, double longitude);
    static MapsProjection::LatLon latLonAt(const View &view, const QPoint &widgetPixel);

    // The grid images that cover the widget (world top-left of each), row by row from the top-left.
    static QVector<QPoint> tilePositions(const View &view);
    // Where an image is fetched around: the middle of the 512-pixel square at that world pixel.
    static MapsProjection::LatLon tileCentre(int zoom, const QPoint &world);

    // The largest zoom in kMinZoom..kMaxZoom at which the box between the two corners fits size (kMinZoom
    // when none does), and the box's middle.
    static Fit fit(const MapsProjection::LatLon &a, const MapsProjection::LatLon &b, const QSize &size);
    static Fit fit(MapTrack &track, const QSize &size);

    // Images, then the track (may be null), then the marker at cursorTime (ms) when the track has a
    // position there. Antialiased.
    static void paint(QPainter &painter, const View &view, const QVector<Tile> &tiles, MapTrack *track,
                      const TrackStyle &style, bool hasCursor, qint64 cursorTime);
    // The same without the marker (the cursor still ends a restricted track), and the marker alone: a
    // window keeps the first as a picture while the cursor moves.
    static void paintMap(QPainter &painter, const View &view, const QVector<Tile> &tiles, MapTrack *track,
                         const TrackStyle &style, bool hasCursor, qint64 cursorTime);
    static void paintCursor(QPainter &painter, const View &view, MapTrack *track, qint64 cursorTime);
    // The map data's credit line in the bottom-right corner (nothing for an empty text).
    static void paintAttribution(QPainter &painter, const QSize &size, const QString &text);
    static QByteArray encodePng(const QImage &image);
    static QImage render(const View &view, const QVector<Tile> &tiles, MapTrack *track,
                         const TrackStyle &style, bool hasCursor, qint64 cursorTime);

private:
    static Fit fitWorld21(qint64 minX, qint64 minY, qint64 maxX, qint64 maxY, const QSize &size);
};
