#include "telemetry/TelemetryVar.h"
#include "tests/support/TestSamples.h"
#include "tools/MapRenderer.h"
#include "tools/MapsProjection.h"

#include <QPainter>
#include <QtTest>

#include <cmath>

using LatLon = MapsProjection::LatLon;
Q_DECLARE_METATYPE(LatLon)

class tst_MapRenderer : public QObject
{
    Q_OBJECT
private slots:
    void tileGrid_data();
    void tileGrid();
    void fitZoom_data();
    void fitZoom();
    void cursorCircleOverTrackAndTiles();
    void coloredTrack_data();
    void coloredTrack();
};

void tst_MapRenderer::tileGrid_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<QPoint>("pos");
    // Grid offsets (in images) from the anchor image, row by row.
    QTest::addColumn<QVector<QPoint>>("cells");
    QTest::newRow("one image exactly") << QSize(512, 512) << QPoint(0, 0) << QVector<QPoint>{{0, 0}};
    QTest::newRow("one pixel uncovered on the left")
        << QSize(512, 512) << QPoint(1, 0) << QVector<QPoint>{{-1, 0}, {0, 0}};
    // Columns [-12, 500) and [500, 1012); rows [-472, 40), [40, 552) and [552, 1064).
    QTest::newRow("panned") << QSize(1000, 700) << QPoint(-12, 40)
                            << QVector<QPoint>{{0, -1}, {1, -1}, {0, 0}, {1, 0}, {0, 1}, {1, 1}};
    // Anchor far off to the bottom right: column [-500, 12), rows [-76, 436) and [436, 948).
    QTest::newRow("anchor outside") << QSize(10, 450) << QPoint(1036, 948)
                                    << QVector<QPoint>{{-3, -2}, {-3, -1}};
}

void tst_MapRenderer::tileGrid()
{
    QFETCH(QSize, size);
    QFETCH(QPoint, pos);
    QFETCH(QVector<QPoint>, cells);
    MapRenderer::View view;
    view.zoom = 15;
    view.size = size;
    view.pos = pos;
    view.centre = {50.1, 14.4};
    // The anchor image shows the centre in its middle.
    const QPoint anchor = MapsProjection(15).fromLatLngToPoint(50.1, 14.4) - QPoint(256, 256);
    QVector<QPoint> expected;
    for (const QPoint &cell : cells)
        expected.append(anchor + cell * 512);
    QCOMPARE(MapRenderer::tilePositions(view), expected);
    const LatLon middle = MapRenderer::tileCentre(15, anchor);
    QVERIFY(std::abs(middle.latitude - 50.1) < 1e-4 && std::abs(middle.longitude - 14.4) < 1e-4);
    // The anchor image sits at pos in the widget.
    QCOMPARE(anchor - MapRenderer::worldTopLeft(view), pos);
}

void tst_MapRenderer::fitZoom_data()
{
    QTest::addColumn<LatLon>("a");
    QTest::addColumn<LatLon>("b");
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("zoom");
    QTest::addColumn<LatLon>("centre");
    // One degree of longitude on the equator is 256 * 2^z / 360 pixels: 728 at zoom 10, 1456 at 11.
    QTest::newRow("a degree on the equator")
        << LatLon{0, 0} << LatLon{0, 1} << QSize(800, 600) << 10 << LatLon{0, 0.5};
    // 0.5 deg of longitude: 728 px at zoom 11; 50..50.2 deg of latitude: 227 px at zoom 10, 454 at 11
    // (Mercator y = S/2pi * ln tan(pi/4 + lat/2)). Its middle in y is at 50.1001044 deg.
    QTest::newRow("width decides") << LatLon{50, 14} << LatLon{50.2, 14.5} << QSize(800, 600) << 11
                                   << LatLon{50.1001044, 14.25};
    QTest::newRow("height decides") << LatLon{50.2, 14.5} << LatLon{50, 14} << QSize(2000, 300) << 10
                                    << LatLon{50.1001044, 14.25};
    QTest::newRow("a single point") << LatLon{50, 14} << LatLon{50, 14} << QSize(100, 100) << 21
                                    << LatLon{50, 14};
    // The world is 512 pixels wide at zoom 1.
    QTest::newRow("too large for any zoom")
        << LatLon{-10, -170} << LatLon{10, 170} << QSize(300, 300) << 1 << LatLon{0, 0};
}

void tst_MapRenderer::fitZoom()
{
    QFETCH(LatLon, a);
    QFETCH(LatLon, b);
    QFETCH(QSize, size);
    QFETCH(int, zoom);
    QFETCH(LatLon, centre);
    const MapRenderer::Fit fit = MapRenderer::fit(a, b, size);
    QVERIFY(fit.valid);
    QCOMPARE(fit.zoom, zoom);
    QVERIFY2(std::abs(fit.centre.latitude - centre.latitude) < 1e-6,
             qPrintable(QString::number(fit.centre.latitude, 'f', 8)));
    QVERIFY2(std::abs(fit.centre.longitude - centre.longitude) < 1e-6,
             qPrintable(QString::number(fit.centre.longitude, 'f', 8)));
}

void tst_MapRenderer::cursorCircleOverTrackAndTiles()
{
    // Ten positions 10 ms apart going east by 0.0001 deg (9.3 px at zoom 17) along 50 deg north.
    TelemetryVar lat(1, 1, QStringLiteral("Lat"), QString());
    TelemetryVar lon(1, 2, QStringLiteral("Lon"), QString());
    for (int i = 0; i < 10; ++i) {
        lat.append(raw(1, 6, 50000000, 100 + 10 * i));
        lon.append(raw(1, 6, 14000000 + 100 * i, 100 + 10 * i));
    }
    MapTrack track;
    track.setVariables(&lat, &lon);
    const LatLon centre{50.0, 14.0003};
    const QSize size(200, 160);
    const MapRenderer::View view = MapRenderer::centredView(17, size, centre);
    // The fifth position (14.0004), where the cursor at 145 ms stands, as the projection places it.
    MapsProjection projection(17);
    const QPoint c = projection.toWidget(50.0, 14.0004, centre, size);
    QCOMPARE(c, MapRenderer::toWidget(view, 50.0, 14.0004));

    QImage blue(512, 512, QImage::Format_RGB32);
    blue.fill(QColor(0, 0, 255));
    QVector<MapRenderer::Tile> tiles;
    for (const QPoint &world : MapRenderer::tilePositions(view))
        tiles.append({blue, world, QString()});
    MapRenderer::TrackStyle style;
    style.color = QColor(0, 255, 0);
    const QImage image = MapRenderer::render(view, tiles, &track, style, true, 145);

    const QColor pen(79, 108, 171);
    // The ring (radius 8, 3 px wide) fully covers these pixels, on all four sides.
    for (const QPoint &p : {QPoint(8, 0), QPoint(-9, -1), QPoint(0, 8), QPoint(-1, -9)})
        QCOMPARE(image.pixelColor(c + p), pen);
    // Inside it is white, over the track that runs through the middle.
    for (const QPoint &p : {QPoint(0, 0), QPoint(-1, -1), QPoint(3, -4), QPoint(-4, 2)})
        QCOMPARE(image.pixelColor(c + p), QColor(Qt::white));
    // The track both ways, over the map images; outside both, the images.
    QCOMPARE(image.pixelColor(c + QPoint(25, 0)), QColor(0, 255, 0));
    QCOMPARE(image.pixelColor(c + QPoint(-25, -1)), QColor(0, 255, 0));
    QCOMPARE(image.pixelColor(c + QPoint(0, -15)), QColor(0, 0, 255));

    // Only the last 30 ms up to the cursor: the positions at 120, 130 and 140 ms.
    style.restrict = true;
    style.restrictSeconds = 0.03;
    const QImage recent = MapRenderer::render(view, tiles, &track, style, true, 145);
    QCOMPARE(recent.pixelColor(c + QPoint(25, 0)), QColor(0, 0, 255));
    QCOMPARE(recent.pixelColor(c + QPoint(-14, 0)), QColor(0, 255, 0));
    QCOMPARE(recent.pixelColor(c + QPoint(-25, 0)), QColor(0, 0, 255));
    QCOMPARE(recent.pixelColor(c + QPoint(8, 0)), pen);

    // No position at the cursor time: no circle.
    const QImage early = MapRenderer::render(view, tiles, &track, MapRenderer::TrackStyle(), true, 50);
    QVERIFY(early.pixelColor(c + QPoint(8, 0)) != pen);
}

void tst_MapRenderer::coloredTrack_data()
{
    QTest::addColumn<int>("scale");
    QTest::newRow("drawn as an image") << 1;
    QTest::newRow("stroked, painter scaled") << 2;
}

void tst_MapRenderer::coloredTrack()
{
    QFETCH(int, scale);
    // Five positions going east along 50 deg north, 0.0001 deg (9.3 px at zoom 17) apart but for a
    // longer step of 0.0005 deg, so that short and long segments are both drawn; the colour variable
    // starts after the first position, then reads 34, 187 and 1000.
    const int east[] = {0, 100, 600, 700, 800};
    TelemetryVar lat(1, 1, QStringLiteral("Lat"), QString());
    TelemetryVar lon(1, 2, QStringLiteral("Lon"), QString());
    TelemetryVar speed(1, 3, QStringLiteral("Speed"), QString());
    for (int i = 0; i < 5; ++i) {
        lat.append(raw(1, 6, 50000000, 100 + 10 * i));
        lon.append(raw(1, 6, 14000000 + east[i], 100 + 10 * i));
    }
    for (int i = 0; i < 3; ++i)
        speed.append(sample(110 + 10 * i, QVector<int>{34, 187, 1000}.at(i)));
    MapTrack track;
    track.setVariables(&lat, &lon, nullptr, &speed);
    const MapRenderer::View view = MapRenderer::centredView(17, QSize(260, 60), LatLon{50.0, 14.0004});
    MapRenderer::TrackStyle style;
    style.stops.colors = {QColor(0, 0, 0), QColor(170, 85, 0), QColor(255, 255, 255)};
    style.stops.values = {0, 85, 255};
    const auto draw = [&] {
        QImage image(view.size * scale, QImage::Format_ARGB32_Premultiplied);
        image.fill(QColor(0, 0, 255));
        QPainter painter(&image);
        painter.scale(scale, scale);
        MapRenderer::paintMap(painter, view, {}, &track, style, false, 0);
        return image;
    };
    // No value yet: the first colour; 34 is 0.4 of the way to the middle stop, 187 0.6 of the way on
    // from it; 1000 is past the last stop.
    const QColor colors[] = {QColor(0, 0, 0), QColor(68, 34, 0), QColor(221, 187, 153),
                             QColor(255, 255, 255)};
    const auto middle = [&](int i) {
        return (MapRenderer::toWidget(view, 50.0, 14.0 + east[i] * 1e-6) +
                MapRenderer::toWidget(view, 50.0, 14.0 + east[i + 1] * 1e-6)) /
               2 * scale;
    };
    style.colored = true;
    const QImage colored = draw();
    for (int i = 0; i < 4; ++i)
        QCOMPARE(colored.pixelColor(middle(i)), colors[i]);
    if (scale == 1) {
        // The row below the line's lower edge is half covered: 128/255 of (68, 34, 0) over the blue.
        const QColor half = colored.pixelColor(middle(1) + QPoint(0, 1));
        QVERIFY2(std::abs(half.red() - 34) <= 1 && std::abs(half.green() - 17) <= 1 &&
                     std::abs(half.blue() - 127) <= 1,
                 qPrintable(half.name()));
    }
    style.colored = false;
    const QImage plain = draw();
    for (int i = 0; i < 4; ++i)
        QCOMPARE(plain.pixelColor(middle(i)), style.color);
}

QTEST_MAIN(tst_MapRenderer)
#include "tst_MapRenderer.moc"
