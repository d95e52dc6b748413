#include "telemetry/TelemetryVar.h"
#include "tests/support/TestSamples.h"
#include "tools/MapTrack.h"
#include "tools/MapsProjection.h"

#include <QtTest>

#include <cmath>

class tst_MapTrack : public QObject
{
    Q_OBJECT
private slots:
    void colorStops_data();
    void colorStops();
    void pathMergesPixelsAndSkipsInvalid();
};

void tst_MapTrack::colorStops_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QColor>("color");
    // Stops: black at 0, (200, 100, 0) at 10, white at 30.
    QTest::newRow("below the first") << -5.0 << QColor(0, 0, 0);
    QTest::newRow("on the first") << 0.0 << QColor(0, 0, 0);
    QTest::newRow("a quarter to the middle") << 2.5 << QColor(50, 25, 0);
    QTest::newRow("on the middle") << 10.0 << QColor(200, 100, 0);
    QTest::newRow("half way to the last") << 20.0 << QColor(228, 178, 128); // 200+27.5, 100+77.5, 0+127.5
    QTest::newRow("above the last") << 99.0 << QColor(255, 255, 255);
    QTest::newRow("no value") << qQNaN() << QColor(0, 0, 0);
}

void tst_MapTrack::colorStops()
{
    QFETCH(double, value);
    QFETCH(QColor, color);
    MapTrack::ColorStops stops;
    stops.colors = {QColor(0, 0, 0), QColor(200, 100, 0), QColor(255, 255, 255)};
    stops.values = {0, 10, 30};
    QCOMPARE(stops.colorAt(value), color);
}

void tst_MapTrack::pathMergesPixelsAndSkipsInvalid()
{
    // Type 1 with 6 decimals: plain degrees. Ten samples 10 ms apart on one spot, then a step east of a
    // thousandth of a degree per sample (about 6 pixels at zoom 17), one of them marked invalid.
    TelemetryVar lat(1, 1, QStringLiteral("Lat"), QString());
    TelemetryVar lon(1, 2, QStringLiteral("Lon"), QString());
    TelemetryVar valid(1, 3, QStringLiteral("Fix"), QString());
    for (int i = 0; i < 20; ++i) {
        const qint32 t = 100 + 10 * i;
        lat.append(raw(1, 6, 50000000, t));
        lon.append(raw(1, 6, 14000000 + (i < 10 ? 0 : (i - 9) * 1000), t));
        valid.append(raw(0, 0, i == 15 ? 0 : 1, t));
    }
    MapTrack track;
    track.setVariables(&lat, &lon, &valid);
    const QVector<MapTrack::Point> &path = track.path(17);
    QCOMPARE(path.size(), 1 + 10 - 1); // the spot once, ten steps, one invalid
    const MapsProjection projection(17);
    QCOMPARE(path.at(0).world, projection.fromLatLngToPoint(50.0, 14.0));
    QCOMPARE(path.at(0).time, qint64(100));
    QCOMPARE(path.at(1).world, projection.fromLatLngToPoint(50.0, 14.001));
    QCOMPARE(path.at(1).time, qint64(200));
    QCOMPARE(path.constLast().world, projection.fromLatLngToPoint(50.0, 14.010));
    for (const MapTrack::Point &p : path)
        QVERIFY(p.time != 250); // the invalid one
    QCOMPARE(track.indexAt(99), -1);
    QCOMPARE(track.indexAt(150), 0);
    QCOMPARE(track.indexAt(205), 1);
    // At zoom 1 the whole track is one pixel.
    QCOMPARE(track.path(1).size(), 1);
}

QTEST_MAIN(tst_MapTrack)
#include "tst_MapTrack.moc"
