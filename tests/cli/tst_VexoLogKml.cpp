#include "telemetry/KmlWriter.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryData.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/VexoLogRunner.h"

namespace {
// The bundled sample's GPS: device 0x0A10 of maker 1; params 1 latitude, 2 longitude, 3 altitude.
const QString kGps = QString::number(0x0A10u | (1u << 16));
const QString kLat = kGps + QStringLiteral(":1");
const QString kLon = kGps + QStringLiteral(":2");
const QString kAlt = kGps + QStringLiteral(":3");

using VexoLogRunner::Result;
using VexoLogRunner::run;

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

QString sample()
{
    return QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log");
}
} // namespace

class tst_VexoLogKml : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void sameBytesAsTheStudio_data();
    void sameBytesAsTheStudio();
    void badInput_data();
    void badInput();

private:
    QTemporaryDir m_dir;
    TelemetryDataPackage m_sample;
};

void tst_VexoLogKml::initTestCase()
{
    QVERIFY(m_dir.isValid());
    MemorySensorTable sensors;
    QString error;
    QVERIFY2(TelemetryData::readFile(sample(), &m_sample, &sensors, &error), qPrintable(error));
}

void tst_VexoLogKml::sameBytesAsTheStudio_data()
{
    QTest::addColumn<bool>("withAltitude");
    QTest::newRow("with altitude") << true;
    QTest::newRow("without altitude") << false;
}

void tst_VexoLogKml::sameBytesAsTheStudio()
{
    QFETCH(bool, withAltitude);
    const QString out = m_dir.filePath(withAltitude ? "alt.kml" : "flat.kml");
    QStringList args{"kml", sample(), "--lat", kLat, "--lon", kLon, out};
    if (withAltitude)
        args << "--alt" << kAlt;
    const Result r = run(args);
    QVERIFY2(r.code == 0, r.err.constData());
    QVERIFY(r.err.isEmpty());

    const TelemetrySensor *gps = m_sample.device(kGps.toUInt());
    QVERIFY(gps);
    QVERIFY(KmlWriter::isLatitude(*gps->var(1)));
    QVERIFY(KmlWriter::isLongitude(*gps->var(2)));
    const QByteArray expected =
        KmlWriter::document(*gps->var(1), *gps->var(2), withAltitude ? gps->var(3) : nullptr);
    const QByteArray actual = readAll(out);
    QCOMPARE(actual.size(), expected.size());
    QVERIFY(actual == expected);
    // One line per sample with a fix; the sample flight has a fix throughout.
    QCOMPARE(actual.count(" \n"), gps->var(1)->count());
    if (!withAltitude)
        QVERIFY(actual.contains(",0</coordinates>"));
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
    QTest::newRow("unknown altitude variable")
        << QStringList{"kml", sample(), "--lat", kLat, "--lon", kLon, "--alt", "1:3", out} << 1 << "1:3";
    QTest::newRow("not a coordinate")
        << QStringList{"kml", sample(), "--lat", kGps + ":5", "--lon", kLon, out} << 1 << kGps + ":5";
    QTest::newRow("latitude and longitude swapped")
        << QStringList{"kml", sample(), "--lat", kLon, "--lon", kLat, out} << 1 << "not a GPS latitude";
    QTest::newRow("bad D:P") << QStringList{"kml", sample(), "--lat", "GPS:1", "--lon", kLon, out} << 2
                             << "GPS:1";
    QTest::newRow("no longitude") << QStringList{"kml", sample(), "--lat", kLat, out} << 2 << "--lon";
    QTest::newRow("option without value")
        << QStringList{"kml", sample(), "--lon", kLon, out, "--lat"} << 2 << "--lat";
    QTest::newRow("unknown option") << QStringList{"kml", sample(), "--lat", kLat, "--lon", kLon, "--x", out}
                                    << 2 << "--x";
    QTest::newRow("no output") << QStringList{"kml", sample(), "--lat", kLat, "--lon", kLon} << 2 << "output";
    QTest::newRow("output is a folder")
        << QStringList{"kml", sample(), "--lat", kLat, "--lon", kLon, "folder"} << 1 << "folder";
}

void tst_VexoLogKml::badInput()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, named);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    // Outputs are named relative to the temporary folder; an earlier file must survive a failed run.
    const QByteArray old("previous contents");
    {
        QFile f(dir.filePath(QStringLiteral("OUT")));
        QVERIFY(f.open(QIODevice::WriteOnly));
        f.write(old);
    }
    for (QString &a : args) {
        if (a == QLatin1String("OUT") || a == QLatin1String("folder") || a == QLatin1String("missing.log"))
            a = dir.filePath(a);
    }
    const Result r = run(args);
    QCOMPARE(r.code, code);
    const QByteArray firstLine = r.err.split('\n').constFirst();
    QVERIFY2(firstLine.startsWith("vexo-log: ") && firstLine.contains(named.toUtf8()), r.err.constData());
    QCOMPARE(readAll(dir.filePath(QStringLiteral("OUT"))), old);
    QStringList left = QDir(dir.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
    left.sort();
    QCOMPARE(left, QStringList({"OUT", "folder"}));
}

QTEST_GUILESS_MAIN(tst_VexoLogKml)
#include "tst_VexoLogKml.moc"
