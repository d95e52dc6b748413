#include "LayoutTestSupport.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/LocalHttpServer.h"
#include "tests/support/MapTestSupport.h"
#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/map/WidgetMaps.h"

#include <QApplication>
#include <QBuffer>
#include <QMimeData>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <memory>

namespace {
const QColor kTileColor(10, 120, 30);
const QSize kWindow(400, 300);

// Device 1 "GPS": latitude, longitude (packed degrees and thousandths of minutes) and altitude; device 2
// "Vario": a speed. Forty positions a second apart round a loop about 50.125 N 14.42 E.
QByteArray flightLog()
{
    QByteArray log = "# Hand-made\n# \n"
                     "000000000;0000100000;0;GPS; \n"
                     "000000000;0000100000;1;Latitude;deg\n"
                     "000000000;0000100000;2;Longitude;deg\n"
                     "000000000;0000100000;3;Altitude;m\n"
                     "000000000;0000200000;0;Vario; \n"
                     "000000000;0000200000;1;Speed;m/s\n";
    for (int i = 0; i < 40; ++i) {
        const double a = i * 2 * M_PI / 40;
        const int latMinutes = int(std::lround((7.5 + 0.06 * std::sin(a)) * 1000));
        const int lonMinutes = int(std::lround((25.2 + 0.09 * std::cos(a)) * 1000));
        log += QStringLiteral("%1;0000100000;1;9;0;%2;2;9;1;%3;3;1;0;%4\n")
                   .arg(1000 * (i + 1), 9, 10, QLatin1Char('0'))
                   .arg((50 << 16) + latMinutes)
                   .arg((14 << 16) + lonMinutes)
                   .arg(300 + i)
                   .toLatin1();
        log += QStringLiteral("%1;0000200000;1;1;0;%2\n")
                   .arg(1000 * (i + 1), 9, 10, QLatin1Char('0'))
                   .arg(i)
                   .toLatin1();
    }
    return log;
}

// Web Mercator world pixel at zoom z, worked out here rather than taken from the program.
QPoint worldPixel(double lat, double lon, int z)
{
    const double size = 256.0 * std::pow(2.0, z);
    const double s = std::sin(lat * M_PI / 180);
    return QPoint(int(std::floor(size / 2 + lon * size / 360 + 0.5)),
                  int(std::floor(size / 2 - 0.5 * std::log((1 + s) / (1 - s)) * size / (2 * M_PI) + 0.5)));
}

QStringList keysOf(const QByteArray &json)
{
    QStringList keys;
    for (auto m = QRegularExpression(R"re("([\w-]+)"\s*:)re").globalMatch(QString::fromUtf8(json));
         m.hasNext();)
        keys << m.next().captured(1);
    return keys;
}
} // namespace

class tst_WidgetMaps : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void layoutKeys_data();
    void layoutKeys();
    void providerOfALayout_data();
    void providerOfALayout();
    void drops_data();
    void drops();
    void wheelZoomsAboutTheMouse();
    void pictureMatchesVexoLogAndCursor();

private:
    std::unique_ptr<WidgetMaps>
    newMap(const QString &tiles = QStringLiteral("http://127.0.0.1:9/{z}/{x}/{y}.png"));

    QTemporaryDir m_dir;
    QString m_log;
    TelemetryData m_store;
};

void tst_WidgetMaps::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_log = m_dir.filePath(QStringLiteral("flight.log"));
    QVERIFY(writeFile(m_log, flightLog()));
    TelemetryDataPackage package;
    MemorySensorTable sensors;
    QString error;
    QVERIFY2(TelemetryData::readFile(m_log, &package, &sensors, &error, {}, nullptr), qPrintable(error));
    m_store.setPackage(package);
    QCOMPARE(m_store.sensors()->size(), 2);
}

std::unique_ptr<WidgetMaps> tst_WidgetMaps::newMap(const QString &tiles)
{
    MapEndpoints endpoints = MapEndpoints::fromEnvironment();
    endpoints.tilesTemplate = tiles;
    auto map = std::make_unique<WidgetMaps>(&m_store, m_dir.filePath(QStringLiteral("data")), endpoints);
    map->resize(kWindow);
    map->show();
    WidgetMaps::wire(map.get(), nullptr, &m_store);
    return map;
}

void tst_WidgetMaps::layoutKeys_data()
{
    QTest::addColumn<quint8>("flag");
    QTest::addColumn<QStringList>("keys");
    const QStringList view{"Type", "Zoom", "Width", "Height", "posX", "posY", "MapProvider", "MapType"};
    QTest::newRow("session") << SerializableWidget::kForDatabase
                             << view + QStringList{"Sensor-Lat",     "Sensor-Lon",      "Sensor-Valid",
                                                   "Sensor-Alti",    "Sensor-Azim",     "RestrictRoute",
                                                   "RestrictedTime", "CustomLineColor", "Colors",
                                                   "Sensor-Color"};
    QTest::newRow("file") << SerializableWidget::kForFile << view;
}

void tst_WidgetMaps::layoutKeys()
{
    QFETCH(quint8, flag);
    QFETCH(QStringList, keys);
    std::unique_ptr<WidgetMaps> map = newMap();
    MapSettings s = map->settings();
    s.restrictRoute = true;
    s.restrictedSeconds = 25;
    s.customLineColor = true;
    s.colorSensor = {2, 1};
    s.stops.colors = {QColor("#102030"), QColor("#405060"), QColor("#708090")};
    s.stops.values = {-5, 10, 1000000};
    map->setSettings(s);
    map->panBy(QPoint(37, -11));
    const QByteArray json = saved(*map, flag);
    QCOMPARE(keysOf(json), keys);
    const LayoutJsonValue object = parsed(json);
    QCOMPARE(object.value("Type").toString(), QStringLiteral("Maps"));
    QCOMPARE(object.value("MapProvider").toInt(-1), 2);
    if (flag == SerializableWidget::kForDatabase) {
        QCOMPARE(object.value("Sensor-Lat").text(), QByteArray("[1,1]"));
        QCOMPARE(object.value("Sensor-Alti").text(), QByteArray("[1,3]"));
        QCOMPARE(object.value("Colors").text(),
                 QByteArray(R"(["#102030",-5,"#405060",10,"#708090",1000000])"));
    }

    // Read back into a new window: the same settings and the same place.
    std::unique_ptr<WidgetMaps> again = newMap();
    QCOMPARE(again->load(object), 0);
    if (flag == SerializableWidget::kForFile)
        return;
    QCOMPARE(again->settings().colorSensor, s.colorSensor);
    QCOMPARE(again->settings().restrictedSeconds, 25);
    QCOMPARE(again->settings().stops.values[2], 1000000.0);
    QCOMPARE(again->zoom(), map->zoom());
    QCOMPARE(again->mapPos(), map->mapPos());
    QCOMPARE(saved(*again, flag), json);
}

void tst_WidgetMaps::providerOfALayout_data()
{
    QTest::addColumn<QByteArray>("layout");
    QTest::addColumn<int>("provider");
    QTest::addColumn<int>("type");
    QTest::newRow("none named") << QByteArray(R"({"Type":"Maps"})") << 2 << 0;
    QTest::newRow("keyed, kept without a key")
        << QByteArray(R"({"Type":"Maps","MapProvider":1,"MapType":1})") << 1 << 1;
    QTest::newRow("a type the provider lacks")
        << QByteArray(R"({"Type":"Maps","MapProvider":1,"MapType":3})") << 2 << 0;
    QTest::newRow("unknown provider")
        << QByteArray(R"({"Type":"Maps","MapProvider":9,"MapType":0})") << 2 << 0;
}

void tst_WidgetMaps::providerOfALayout()
{
    QFETCH(QByteArray, layout);
    QFETCH(int, provider);
    QFETCH(int, type);
    std::unique_ptr<WidgetMaps> map = newMap();
    QCOMPARE(map->load(parsed(layout)), 0);
    int p = -1;
    int t = -1;
    map->loader()->getProvider(p, t);
    QCOMPARE(p, provider);
    QCOMPARE(t, type);
}

void tst_WidgetMaps::drops_data()
{
    QTest::addColumn<bool>("gps");
    QTest::addColumn<quint32>("device");
    QTest::addColumn<quint32>("param");
    QTest::addColumn<QString>("bound"); // latitude, longitude, altitude, colour sensor: "d:p" each
    QTest::newRow("GPS device") << true << 1u << 0u << "1:1 1:2 1:3 0:0";
    QTest::newRow("a longitude binds its device") << false << 1u << 2u << "1:1 1:2 1:3 0:0";
    QTest::newRow("another variable colours the line") << false << 2u << 1u << "0:0 0:0 0:0 2:1";
    QTest::newRow("a device without a position") << true << 2u << 0u << "0:0 0:0 0:0 0:0";
    QTest::newRow("unknown variable") << false << 7u << 1u << "0:0 0:0 0:0 0:0";
}

void tst_WidgetMaps::drops()
{
    QFETCH(bool, gps);
    QFETCH(quint32, device);
    QFETCH(quint32, param);
    QFETCH(QString, bound);
    // A window that has bound nothing: a layout that names no position, read before the log arrived.
    auto map = std::make_unique<WidgetMaps>(nullptr, m_dir.filePath(QStringLiteral("data")));
    // The sensors arrive with new samples, which binds nothing by itself.
    map->dataUpdated(m_store.sensors());
    dropOn(map.get(),
           gps ? SensorDragData::forGpsDevice(device) : SensorDragData::forVariable({device, param}));
    const MapSettings &s = map->settings();
    QString text;
    for (const TelemetrySimplePair &p : {s.latitude, s.longitude, s.altitude, s.colorSensor})
        text += QStringLiteral("%1:%2 ").arg(p.deviceId).arg(p.param);
    QCOMPARE(text.trimmed(), bound);
}

void tst_WidgetMaps::wheelZoomsAboutTheMouse()
{
    std::unique_ptr<WidgetMaps> map = newMap();
    QVERIFY(map->track());
    const int zoom = map->zoom();
    const QPoint mouse(90, 70);
    const MapsProjection::LatLon before = MapRenderer::latLonAt(map->view(), mouse);
    QWheelEvent in(QPointF(mouse), map->mapToGlobal(mouse), QPoint(), QPoint(0, 120), Qt::NoButton,
                   Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(map.get(), &in);
    QCOMPARE(map->zoom(), zoom + 1);
    // The place under the mouse stays there: its pixel at the new zoom, seen from the new top-left.
    const QPoint topLeft = worldPixel(map->view().centre.latitude, map->view().centre.longitude, zoom + 1) -
                           QPoint(256, 256) - map->mapPos();
    const QPoint at = worldPixel(before.latitude, before.longitude, zoom + 1) - topLeft;
    QVERIFY2((at - mouse).manhattanLength() <= 2,
             qPrintable(QStringLiteral("%1,%2").arg(at.x()).arg(at.y())));

    // Zoom stops at the provider's deepest level and at 1.
    for (int i = 0; i < 30; ++i)
        QTest::keyClick(map.get(), Qt::Key_Plus);
    QCOMPARE(map->zoom(), 19);
    for (int i = 0; i < 30; ++i)
        QTest::keyClick(map.get(), Qt::Key_Minus);
    QCOMPARE(map->zoom(), 1);
}

void tst_WidgetMaps::pictureMatchesVexoLogAndCursor()
{
    LocalHttpServer server;
    QImage tile(256, 256, QImage::Format_RGB32);
    tile.fill(kTileColor);
    QByteArray png;
    QBuffer buffer(&png);
    QVERIFY(buffer.open(QIODevice::WriteOnly) && tile.save(&buffer, "PNG"));
    server.setDefaultReply(LocalHttpServer::Reply::ok(png, "image/png"));
    const QString tiles = server.url(QStringLiteral("/{z}/{x}/{y}.png"));
    std::unique_ptr<WidgetMaps> map = newMap(tiles);
    QTRY_VERIFY(map->isSettled());
    QVERIFY(server.requestCount() > 0);
    for (const MapRenderer::Tile &t : map->tiles())
        QVERIFY2(!t.image.isNull(), qPrintable(t.failure));

    // The marker at the tenth position (9 s into the log).
    map->externalTimestampMoved(10000, false);
    const QImage picture = map->renderImage().convertToFormat(QImage::Format_RGB32);
    const double lat = 50 + (7.5 + 0.06 * std::sin(9 * 2 * M_PI / 40)) / 60;
    const double lon = 14 + (25.2 + 0.09 * std::cos(9 * 2 * M_PI / 40)) / 60;
    const int z = map->zoom();
    const QPoint topLeft = worldPixel(map->view().centre.latitude, map->view().centre.longitude, z) -
                           QPoint(256, 256) - map->mapPos();
    const QPoint expected = worldPixel(lat, lon, z) - topLeft;
    const QRect ring = mapCursorBox(picture);
    QVERIFY2((ring.center() - expected).manhattanLength() <= 2,
             qPrintable(QStringLiteral("ring %1,%2 expected %3,%4")
                            .arg(ring.center().x())
                            .arg(ring.center().y())
                            .arg(expected.x())
                            .arg(expected.y())));
    QVERIFY(ring.width() >= 17 && ring.width() <= 20);
    QCOMPARE(picture.pixelColor(expected), QColor(Qt::white));
    QCOMPARE(picture.pixelColor(0, 0), kTileColor);

    // vexo-log draws the same picture from the same log.
    QTemporaryDir data;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), data.path());
    env.insert(QStringLiteral("VEXO_TILES_URL"), tiles);
    const QString out = m_dir.filePath(QStringLiteral("map.png"));
    QProcess cli;
    cli.setProcessEnvironment(env);
    cli.start(QStringLiteral(VEXO_LOG_BINARY),
              {"map", m_log, "--lat", "1:1", "--lon", "1:2", "--size", "400x300", "--cursor", "10", out});
    // The server answers from this thread's event loop.
    QTRY_VERIFY_WITH_TIMEOUT(cli.state() == QProcess::NotRunning, 60000);
    QVERIFY2(cli.exitCode() == 0, cli.readAllStandardError().constData());
    QCOMPARE(QImage(out).convertToFormat(QImage::Format_RGB32), picture);
}

QTEST_MAIN(tst_WidgetMaps)
#include "tst_WidgetMaps.moc"
