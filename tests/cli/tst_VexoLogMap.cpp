#include <QDir>
#include <QEventLoop>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include "tests/support/LocalHttpServer.h"
#include "tests/support/MapTestSupport.h"
#include "tests/support/TestFiles.h"
#include "tools/MapsProjection.h"

#include <cmath>

namespace {
// Device 1: latitude 50 deg 7.5' then 50 deg 7.56', longitude 14 deg 25.2' then 25.26', a second apart
// (50.125, 14.42 and 50.126, 14.421), and a last sample without a fix.
const char kFlight[] = "# Hand-made\n# \n"
                       "000000000;0000100000;0;GPS; \n"
                       "000000000;0000100000;1;Latitude;deg\n"
                       "000000000;0000100000;2;Longitude;deg\n"
                       "000001000;0000100000;1;9;0;3284300;2;9;1;942704\n"
                       "000002000;0000100000;1;9;0;3284360;2;9;1;942764\n"
                       "000002500;0000100000;1;9;0;0\n";

const QColor kTileColor(10, 120, 30);

struct Run
{
    int code = -1;
    QByteArray err;
};

// vexo-log runs while this process's event loop serves its requests.
Run runMap(const QStringList &args, const QString &dataHome, const QString &tiles)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_DATA_HOME"), dataHome);
    env.insert(QStringLiteral("VEXO_TILES_URL"), tiles);
    p.setProcessEnvironment(env);
    QEventLoop loop;
    QObject::connect(&p, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                     &QEventLoop::quit);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    p.start(QStringLiteral(VEXO_LOG_BINARY), QStringList{QStringLiteral("map")} + args);
    loop.exec();
    if (p.state() != QProcess::NotRunning) {
        p.kill();
        p.waitForFinished();
        return {};
    }
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1, p.readAllStandardError()};
}

} // namespace

class tst_VexoLogMap : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void fitsTheTrackAndCachesTheMap();
    void failedImagesStayWhite();

private:
    QTemporaryDir m_dir;
    QString m_log;
};

void tst_VexoLogMap::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_log = m_dir.filePath(QStringLiteral("flight.log"));
    QVERIFY(writeFile(m_log, kFlight));
}

void tst_VexoLogMap::fitsTheTrackAndCachesTheMap()
{
    LocalHttpServer server;
    QImage tile(256, 256, QImage::Format_RGB32);
    tile.fill(kTileColor);
    QByteArray png;
    QBuffer buffer(&png);
    QVERIFY(buffer.open(QIODevice::WriteOnly) && tile.save(&buffer, "PNG"));
    server.setDefaultReply(LocalHttpServer::Reply::ok(png, "image/png"));
    QTemporaryDir data;
    const QString out = m_dir.filePath(QStringLiteral("map.png"));
    const QStringList args{m_log, "--lat", "1:1", "--lon", "1:2", "--size", "300x200", "--cursor", "1", out};

    const Run r = runMap(args, data.path(), server.url(QStringLiteral("/{z}/{x}/{y}.png")));
    QVERIFY2(r.code == 0, r.err.constData());
    QVERIFY2(r.err.isEmpty(), r.err.constData());
    const int requests = server.requestCount();
    QVERIFY(requests > 0);
    // Each request is a 256-pixel tile of zoom 17: 0.001 deg of latitude at 50.1 deg is 145.5 px there
    // (291 at 18, more than 200), 0.001 deg of longitude 93 px.
    for (const LocalHttpServer::Request &request : server.requests())
        QVERIFY2(request.path.startsWith("/17/"), request.path.constData());

    const QImage image(out);
    QCOMPARE(image.size(), QSize(300, 200));
    QCOMPARE(image.pixelColor(0, 0), kTileColor);
    QCOMPARE(image.pixelColor(299, 0), kTileColor); // the bottom-right corner holds the credit line
    // The middle of the track's box in the middle of the picture; the marker on the first position.
    MapsProjection projection(17);
    const QPoint a = MapsProjection(21).fromLatLngToPoint(50.125, 14.42);
    const QPoint b = MapsProjection(21).fromLatLngToPoint(50.126, 14.421);
    const MapsProjection::LatLon middle =
        MapsProjection(21).fromPointToLatLng((a.x() + b.x()) / 2.0, (a.y() + b.y()) / 2.0);
    const QPoint first = projection.toWidget(50.125, 14.42, middle, QSize(300, 200));
    const QPoint last = projection.toWidget(50.126, 14.421, middle, QSize(300, 200));
    QVERIFY(std::abs(first.x() - 103) <= 1 && std::abs(first.y() - 173) <= 1); // 150 -/+ 93/2, 100 + 145.5/2
    const QRect ring = mapCursorBox(image);
    QVERIFY2(std::abs(ring.center().x() - first.x()) <= 1 && std::abs(ring.center().y() - first.y()) <= 1,
             qPrintable(QStringLiteral("ring %1,%2").arg(ring.center().x()).arg(ring.center().y())));
    QVERIFY(ring.width() >= 17 && ring.width() <= 20);
    QCOMPARE(image.pixelColor(first), QColor(Qt::white));
    // The track's other end is drawn over the map.
    QVERIFY(image.pixelColor(last) != kTileColor && image.pixelColor(last) != QColor(Qt::white));

    // Again: all from the studio's map cache now.
    server.clearLog();
    const Run again = runMap(args, data.path(), server.url(QStringLiteral("/{z}/{x}/{y}.png")));
    QVERIFY2(again.code == 0, again.err.constData());
    QCOMPARE(server.requestCount(), 0);
    QVERIFY(!QDir(data.filePath(QStringLiteral("Vexo/Vexo Studio/maps")))
                 .entryList({QStringLiteral("OpenStreetMap-standard-*-17.png")})
                 .isEmpty());
}

void tst_VexoLogMap::failedImagesStayWhite()
{
    LocalHttpServer server; // a 404 page for everything
    QTemporaryDir data;
    const QString out = m_dir.filePath(QStringLiteral("white.png"));
    const Run r = runMap({m_log, "--lat", "1:1", "--lon", "1:2", "--zoom", "12", "--size", "64x48", out},
                         data.path(), server.url(QStringLiteral("/{z}/{x}/{y}.png")));
    QVERIFY2(r.code == 0, r.err.constData());
    QVERIFY2(r.err.contains("left white"), r.err.constData());
    QVERIFY(server.requestCount() > 0);
    const QImage image(out);
    QCOMPARE(image.size(), QSize(64, 48));
    QCOMPARE(image.pixelColor(0, 0), QColor(Qt::white));
}

QTEST_GUILESS_MAIN(tst_VexoLogMap)
#include "tst_VexoLogMap.moc"
