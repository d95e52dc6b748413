#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

namespace {
// The bundled sample's GPS: device 0x0A10 of maker 1; params 1 latitude, 2 longitude, 3 altitude.
const QString kGps = QString::number(0x0A10u | (1u << 16));
const QString kLat = kGps + QStringLiteral(":1");
const QString kLon = kGps + QStringLiteral(":2");

using VexoLogRunner::Result;
using VexoLogRunner::run;

QString sample()
{
    return QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log");
}

// A short flight of device 1 written by hand: latitude (50 deg 7.5', 50 deg 7.56' and a sample without a
// fix), longitude 14 deg 25.2' and 25.26' a second apart (so 14.4205 halfway), altitude 300.5 m and 310 m.
const char kFlight[] = "# Hand-made\n# \n"
                       "000000000;0000100000;0;GPS; \n"
                       "000000000;0000100000;1;Latitude;deg\n"
                       "000000000;0000100000;2;Longitude;deg\n"
                       "000000000;0000100000;3;GPS Altitude;m\n"
                       "000000500;0000100000;3;1;1;3005\n"
                       "000001000;0000100000;1;9;0;3284300;2;9;1;942704\n"
                       "000001500;0000100000;1;9;0;3284360;3;1;1;3100\n"
                       "000002000;0000100000;2;9;1;942764\n"
                       "000002500;0000100000;1;9;0;0\n";
} // namespace

class tst_VexoLogKml : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void coordinates_data();
    void coordinates();
    void badInput_data();
    void badInput();

private:
    QTemporaryDir m_dir;
};

void tst_VexoLogKml::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY(writeFile(m_dir.filePath(QStringLiteral("flight.log")), kFlight));
}

void tst_VexoLogKml::coordinates_data()
{
    QTest::addColumn<bool>("withAltitude");
    QTest::addColumn<QStringList>("track");
    QTest::newRow("with altitude") << true
                                   << QStringList{"14.4200000,50.1250000,300.5", "14.4205000,50.1260000,310"};
    QTest::newRow("without altitude")
        << false << QStringList{"14.4200000,50.1250000,0", "14.4205000,50.1260000,0"};
}

void tst_VexoLogKml::coordinates()
{
    QFETCH(bool, withAltitude);
    QFETCH(QStringList, track);
    const QString out = m_dir.filePath(QStringLiteral("out.kml"));
    QStringList args{"kml", m_dir.filePath(QStringLiteral("flight.log")), "--lat", "1:1", "--lon", "1:2",
                     out};
    if (withAltitude)
        args << "--alt"
             << "1:3";
    const Result r = run(args);
    QVERIFY2(r.code == 0, r.err.constData());
    QVERIFY(r.err.isEmpty());

    // The document around the points is the writer's (tst_KmlWriter); here the points and the pins.
    const QString text = QString::fromUtf8(readAll(out));
    const int from = text.indexOf(QLatin1String("     <coordinates>\n")) + 19;
    const int to = text.indexOf(QLatin1String("     </coordinates>\n"));
    QVERIFY(from > 19 && to > from);
    QCOMPARE(text.mid(from, to - from), track.join(QLatin1String(" \n")) + QLatin1String(" \n"));
    // Start and Landing: the first and the last point with a fix.
    QVERIFY(text.contains("<coordinates>" + track.constFirst() +
                          "</coordinates>\n    </Point>\n  </Placemark>\n  "
                          "<Placemark>\n    <name>Landing</name>"));
    QVERIFY(text.contains("<coordinates>" + track.constLast() +
                          "</coordinates>\n    </Point>\n  </Placemark>\n  "
                          "</Folder>"));
}

void tst_VexoLogKml::badInput_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("named"); // what the error line must name

    const QString out = QStringLiteral("OUT");
    QTest::newRow("missing log") << QStringList{"kml", "missing.log", "--lat", kLat, "--lon", kLon, out} << 1
                                 << "missing.log";
    QTest::newRow("unknown variable")
        << QStringList{"kml", sample(), "--lat", kLat, "--lon", kGps + ":9", out} << 1 << kGps + ":9";
    QTest::newRow("not a coordinate")
        << QStringList{"kml", sample(), "--lat", kGps + ":5", "--lon", kLon, out} << 1 << kGps + ":5";
    QTest::newRow("latitude and longitude swapped")
        << QStringList{"kml", sample(), "--lat", kLon, "--lon", kLat, out} << 1 << "not a GPS latitude";
    QTest::newRow("bad D:P") << QStringList{"kml", sample(), "--lat", "GPS:1", "--lon", kLon, out} << 2
                             << "GPS:1";
    QTest::newRow("no longitude") << QStringList{"kml", sample(), "--lat", kLat, out} << 2 << "--lon";
    QTest::newRow("output is a folder")
        << QStringList{"kml", sample(), "--lat", kLat, "--lon", kLon, "folder"} << 1 << "folder";
}

void tst_VexoLogKml::badInput()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, named);

    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    // Outputs are named relative to the temporary folder; an earlier file must survive a failed run.
    const QByteArray old("previous contents");
    QVERIFY(writeFile(dir.filePath(QStringLiteral("OUT")), old));
    for (QString &a : args) {
        if (a == QLatin1String("OUT") || a == QLatin1String("folder") || a == QLatin1String("missing.log"))
            a = dir.filePath(a);
    }
    const Result r = run(args);
    QCOMPARE(r.code, code);
    const QByteArray firstLine = r.err.split('\n').constFirst();
    QVERIFY2(firstLine.startsWith("vexo-log: ") && firstLine.contains(named.toUtf8()), r.err.constData());
    QCOMPARE(readAll(dir.filePath(QStringLiteral("OUT"))), old);
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name),
             QStringList({"OUT", "folder"}));
}

QTEST_GUILESS_MAIN(tst_VexoLogKml)
#include "tst_VexoLogKml.moc"
