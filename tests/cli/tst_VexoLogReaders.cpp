// vexo-log on the other recordings a pilot has: XML logs, NMEA GPS captures and the data table's CSV.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

namespace {
using VexoLogRunner::Result;
using VexoLogRunner::run;

QString data(const QString &relative)
{
    return QStringLiteral(VEXO_TEST_DATA_DIR "/") + relative;
}

QJsonObject dumpOf(const QStringList &args)
{
    const Result r = run(QStringList{QStringLiteral("dump")} + args);
    if (r.code != 0)
        return {};
    return QJsonDocument::fromJson(r.out).object();
}

} // namespace

class tst_VexoLogReaders : public QObject
{
    Q_OBJECT
private slots:
    void infoOnCaptures_data();
    void infoOnCaptures();
    void dumpXmlLog();
    void csvOnlyWhenAskedFor();
    void badInput_data();
    void badInput();

private:
    QTemporaryDir m_dir;
};

void tst_VexoLogReaders::infoOnCaptures_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("copyAs"); // empty: read in place
    QTest::addColumn<QStringList>("mentions");
    QTest::newRow("moving track in Australia")
        << "nmea/gpsd-haicom-305N.nmea"
        << ""
        << QStringList({"Recorded:    2007-04-0", "Latitude  [°]  68 samples",
                        "Ground Speed  [m/s]  68 samples", "Duration:    0:01:10.985"});
    QTest::newRow("no fix at all") << "nmea/pynmeagps-pygpsdata-nmeastartup.nmea"
                                   << "" << QStringList({"Latitude  [°]  0 samples", "Samples:     0"});
    QTest::newRow("a .TXT is read as NMEA") << "nmea/gpsd-garmin25lp.nmea"
                                            << "GPS0001.TXT" << QStringList({"Latitude  [°]  10 samples"});
}

void tst_VexoLogReaders::infoOnCaptures()
{
    QFETCH(QString, file);
    QFETCH(QString, copyAs);
    QFETCH(QStringList, mentions);
    if (!copyAs.isEmpty()) {
        QFile::remove(m_dir.filePath(copyAs));
        QVERIFY(QFile::copy(data(file), m_dir.filePath(copyAs)));
    }
    const Result r = run({"info", copyAs.isEmpty() ? data(file) : m_dir.filePath(copyAs)});
    QCOMPARE(r.code, 0);
    const QString text = QString::fromUtf8(r.out);
    for (const QString &m : mentions)
        QVERIFY2(text.contains(m), qPrintable(m + "\n" + text));
}

void tst_VexoLogReaders::dumpXmlLog()
{
    const QJsonObject o = dumpOf({data("vml/flight.vml")});
    QCOMPARE(o["name"].toString(), QStringLiteral("flight"));
    QCOMPARE(o["first_timestamp"].toInt(), 1000);
    const QJsonArray devices = o["devices"].toArray();
    QCOMPARE(devices.size(), 2);
    const QJsonObject rx = devices.at(0).toObject();
    QCOMPARE(rx["id"].toDouble(), double(1u | (2u << 16)));
    QCOMPARE(rx["name"].toString(), QStringLiteral("Přijímač REX 12"));
    const QJsonObject signal = rx["params"].toArray().at(1).toObject();
    // Type 0 narrows to 8 bits as in a native log.
    QCOMPARE(signal["values"].toArray().at(2).toArray(), QJsonArray({3000, 0, 0, -56}));
    const QJsonObject gps = devices.at(1).toObject();
    QCOMPARE(gps["params"].toArray().at(0).toObject()["numbers"].toArray().at(0).toDouble(), 50.5);
    QCOMPARE(o["messages"].toArray().at(0).toObject()["text"].toString(), QStringLiteral("Start motoru"));
}

void tst_VexoLogReaders::csvOnlyWhenAskedFor()
{
    const QString csv = data("csv/data-table.csv");
    const Result plain = run({"info", csv});
    QCOMPARE(plain.code, 1);
    QVERIFY(plain.err.contains("unknown log format"));

    const Result r = run({"info", "--csv", csv});
    QCOMPARE(r.code, 0);
    const QString text = QString::fromUtf8(r.out);
    QVERIFY2(text.contains(QStringLiteral("Výška  [m]  2 samples")), qPrintable(text));
    QVERIFY(text.contains(QStringLiteral("Rychlost  [km/h]  2 samples")));
    QVERIFY(text.contains(QStringLiteral("Duration:    0:00:01.000 (500 ms to 1500 ms)")));
}

void tst_VexoLogReaders::badInput_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("mentions");
    QTest::newRow("broken XML") << "broken.vml" << QByteArray("<vml><dataStorage></vml>")
                                << QStringList({"info", "FILE"}) << "line 1";
    QTest::newRow("a text file that is no GPS recording")
        << "notes.txt" << QByteArray("Flight notes\nwind 3 m/s\n") << QStringList({"info", "FILE"}) << "NMEA";
    QTest::newRow("empty NMEA") << "empty.nmea" << QByteArray() << QStringList({"convert", "FILE", "OUT"})
                                << "empty";
    QTest::newRow("CSV without rows")
        << "bad.csv" << QByteArray("Time;A [m]\nx;y\n") << QStringList({"info", "--csv", "FILE"}) << "line 2";
}

void tst_VexoLogReaders::badInput()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, content);
    QFETCH(QStringList, args);
    QFETCH(QString, mentions);
    const QString path = m_dir.filePath(name);
    QVERIFY(writeFile(path, content));
    const QString out = m_dir.filePath(name + ".log");
    args.replaceInStrings("FILE", path);
    args.replaceInStrings("OUT", out);
    const Result r = run(args);
    QCOMPARE(r.code, 1);
    QVERIFY(r.out.isEmpty());
    const QString err = QString::fromUtf8(r.err);
    QVERIFY2(err.startsWith("vexo-log: " + path), qPrintable(err));
    QVERIFY2(err.contains(mentions), qPrintable(err));
    QVERIFY(!QFileInfo::exists(out));
}

QTEST_GUILESS_MAIN(tst_VexoLogReaders)
#include "tst_VexoLogReaders.moc"
