#include "tools/MapsProjection.h"

#include <QtTest>

#include <cmath>

// Expected values are worked out here from the Mercator formulas, not read from the projection.
class tst_MapsProjection : public QObject
{
    Q_OBJECT
private slots:
    void edgeCases_data();
    void edgeCases();
    void roundTrips_data();
    void roundTrips();
    void zoom21AgreesWithTheProjection();
    void widgetPixelsAroundTheCentre();
};

void tst_MapsProjection::edgeCases_data()
{
    QTest::addColumn<int>("zoom");
    QTest::addColumn<double>("latitude");
    QTest::addColumn<double>("longitude");
    QTest::addColumn<QPoint>("point");
    // Zoom 0: a world of 256 pixels, 256 / 2π ≈ 40.7437 pixels per radian.
    QTest::newRow("origin") << 0 << 0.0 << 0.0 << QPoint(128, 128);
    QTest::newRow("lon 180 at zoom 0") << 0 << 0.0 << 180.0 << QPoint(256, 128);
    QTest::newRow("lon -180 at zoom 0") << 0 << 0.0 << -180.0 << QPoint(0, 128);
    // Poles: the ratio is held at 19999.0000000022 (north) and its inverse (south):
    // 128 ∓ 0.5 · ln(19999) · 40.7437 = 128 ∓ 201.75, rounded half up: -74 and 330.
    QTest::newRow("north pole, finite") << 0 << 90.0 << 0.0 << QPoint(128, -74);
    QTest::newRow("south pole, finite") << 0 << -90.0 << 0.0 << QPoint(128, 330);
    // 45° N at zoom 10 (a world of 262144): y = 131072 − 0.5 · ln((1 + s)/(1 − s)) · 262144/2π,
    // s = sin 45° → ln(5.8284271) = 1.7627472 → y = 131072 − 36772.24 = 94299.76 → 94300;
    // x = 131072 + 15 · 262144/360 = 141994.67 → 141995.
    QTest::newRow("45 N 15 E, zoom 10") << 10 << 45.0 << 15.0 << QPoint(141995, 94300);
}

void tst_MapsProjection::edgeCases()
{
    QFETCH(int, zoom);
    QFETCH(double, latitude);
    QFETCH(double, longitude);
    QFETCH(QPoint, point);
    QCOMPARE(MapsProjection(zoom).fromLatLngToPoint(latitude, longitude), point);
}

void tst_MapsProjection::roundTrips_data()
{
    QTest::addColumn<int>("zoom");
    for (int zoom : {1, 8, 15, 21})
        QTest::newRow(qPrintable(QStringLiteral("zoom %1").arg(zoom))) << zoom;
}

void tst_MapsProjection::roundTrips()
{
    QFETCH(int, zoom);
    const MapsProjection projection(zoom);
    const double places[][2] = {
        {50.0755, 14.4378}, {-33.8688, 151.2093}, {64.1466, -21.9426}, {0.0001, -0.0001}};
    for (const auto &place : places) {
        const QPoint p = projection.fromLatLngToPoint(place[0], place[1]);
        const MapsProjection::LatLon back = projection.fromPointToLatLng(p.x(), p.y());
        // The point is whole pixels, so the position comes back within half a pixel...
        const double degreesPerPixel = 360.0 / projection.worldSize();
        QVERIFY(std::abs(back.longitude - place[1]) <= degreesPerPixel / 2 + 1e-12);
        QVERIFY(std::abs(back.latitude - place[0]) <= degreesPerPixel);
        // ...and projects to the same pixel again.
        QCOMPARE(projection.fromLatLngToPoint(back.latitude, back.longitude), p);
    }
}

void tst_MapsProjection::zoom21AgreesWithTheProjection()
{
    // Two spellings of one projection: world size 2^29 and the zoom-21 offset and radius 2^28, 2^28/π.
    const MapsProjection projection(21);
    for (const double lat : {-85.0, -45.5, 0.0, 12.25, 49.9, 85.0}) {
        for (const double lon : {-179.9, -20.0, 0.0, 14.42, 179.9}) {
            const QPoint p = projection.fromLatLngToPoint(lat, lon);
            QVERIFY(std::abs(MapsProjection::longitudeToX21(lon) - p.x()) <= 1);
            QVERIFY(std::abs(MapsProjection::latitudeToY21(lat) - p.y()) <= 1);
            QVERIFY(std::abs(MapsProjection::x21ToLongitude(p.x()) - lon) < 1e-6);
            QVERIFY(std::abs(MapsProjection::y21ToLatitude(p.y()) - lat) < 1e-6);
        }
    }
    QCOMPARE(MapsProjection::toZoom21(3, 15), qint64(3 * 64));
    QCOMPARE(MapsProjection::toZoom21(-5, 21), qint64(-5));
}

void tst_MapsProjection::widgetPixelsAroundTheCentre()
{
    MapsProjection projection(16);
    const MapsProjection::LatLon centre{50.0, 14.0};
    const QSize window(800, 600);
    QVERIFY(!projection.hasTopLeft());
    // The centre lands in the middle of the window, a point 100 px east and 50 px south beside it.
    QCOMPARE(projection.toWidget(50.0, 14.0, centre, window), QPoint(400, 300));
    QVERIFY(projection.hasTopLeft());
    const QPoint world = projection.fromLatLngToPoint(50.0, 14.0);
    const MapsProjection::LatLon beside = projection.fromPointToLatLng(world.x() + 100, world.y() + 50);
    QCOMPARE(projection.toWidget(beside.latitude, beside.longitude, centre, window), QPoint(500, 350));
    // The corner is kept until reset: another centre changes nothing before it.
    QCOMPARE(projection.toWidget(50.0, 14.0, {51.0, 15.0}, window), QPoint(400, 300));
    projection.reset();
    QVERIFY(projection.toWidget(50.0, 14.0, {51.0, 15.0}, window) != QPoint(400, 300));
}

QTEST_MAIN(tst_MapsProjection)
#include "tst_MapsProjection.moc"
