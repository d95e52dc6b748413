// vexo-log params against the vexo-bus-sim program, as a pilot without hardware sets up a receiver.
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/VexoLogRunner.h"

using VexoLogRunner::Result;

class tst_VexoLogParams : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();
    void setExportImport();
    void refused_data();
    void refused();
    void rawRegisters();

private:
    Result params(const QStringList &args)
    {
        return VexoLogRunner::run(QStringList{"params", "--port", m_port, "--definitions", m_defs} + args);
    }
    QString read(const QString &device, const QString &name)
    {
        return QString::fromUtf8(params({"--device", device, "--read", name}).out).trimmed();
    }

    QTemporaryDir m_dir;
    QProcess m_sim;
    QString m_port;
    QString m_defs;
};

void tst_VexoLogParams::initTestCase()
{
    QVERIFY(m_dir.isValid());
    // The definitions as the build makes them, from the sources in the repository.
    m_defs = m_dir.filePath("Devices.bin");
    QStringList compile{"devdef", "compile"};
    const QDir sources(QStringLiteral(VEXO_SOURCE_DIR "/link/definitions"));
    for (const QString &f : sources.entryList({"*.json"}))
        compile << sources.filePath(f);
    QCOMPARE(VexoLogRunner::run(compile << m_defs).code, 0);

    m_port = m_dir.filePath("ttyLX");
    m_sim.start(QStringLiteral(VEXO_BUS_SIM_BINARY), {"--link", m_port, "--quiet"});
    QVERIFY(m_sim.waitForStarted(10000));
    for (int i = 0; i < 100 && !m_sim.canReadLine(); ++i)
        m_sim.waitForReadyRead(100);
    QVERIFY(QFileInfo::exists(m_port));
}

void tst_VexoLogParams::cleanupTestCase()
{
    m_sim.terminate();
    if (!m_sim.waitForFinished(5000))
        m_sim.kill();
}

void tst_VexoLogParams::setExportImport()
{
    const QString rx = QStringLiteral("0010A401");
    // As the simulated receiver was left by its pilot.
    QCOMPARE(read(rx, "Frame period"), QStringLiteral("Frame period = 14"));
    Result r =
        params({"--device", rx, "--set", "Frame period=22", "Output mode=serial bus", "Voltage alarm=5.5"});
    QCOMPARE(r.code, 0);
    QCOMPARE(QString::fromUtf8(r.out),
             QStringLiteral("Frame period = 22\nOutput mode = Serial bus\nVoltage alarm = 5.50\n"));

    const QString file = m_dir.filePath("rx.jsn");
    QCOMPARE(params({"--device", rx, "--export", file}).code, 0);
    QFile f(file);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QJsonObject saved = QJsonDocument::fromJson(f.readAll()).object();
    QVariantMap byName;
    for (const QJsonValue &v : saved.value("parameters").toArray())
        byName.insert(v.toObject().value("name").toString(), v.toObject().value("value").toVariant());
    QCOMPARE(byName.value("Frame period").toInt(), 22);
    QCOMPARE(byName.value("Voltage alarm").toDouble(), 5.5);
    QCOMPARE(byName.size(), 11);

    // The device drifts from the file; a dry run shows the difference and writes nothing.
    QCOMPARE(params({"--device", "RX Vexo R8", "--set", "Frame period=9"}).code, 0);
    r = params({"--device", rx, "--import", file, "--dry-run"});
    QCOMPARE(r.code, 0);
    QVERIFY2(r.out.contains("Frame period") && r.out.contains("9") && r.out.contains("22") &&
                 !r.out.contains("Voltage alarm"),
             r.out.constData());
    QCOMPARE(read(rx, "Frame period"), QStringLiteral("Frame period = 9"));
    r = params({"--device", rx, "--import", file});
    QCOMPARE(r.code, 0);
    QCOMPARE(read(rx, "Frame period"), QStringLiteral("Frame period = 22"));
    // Importing again finds nothing to write.
    QVERIFY(params({"--device", rx, "--import", file}).out.contains("already holds"));
    // Settings of a receiver are no power sensor's.
    r = params({"--device", "0030A403", "--import", file});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("RX Vexo R8") && r.err.contains("Power Sensor"), r.err.constData());
}

void tst_VexoLogParams::refused_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("said");
    QTest::newRow("unknown device") << QStringList{"--device", "0099A499", "--seconds", "1", "--list"} << 1
                                    << "no device 0099A499";
    QTest::newRow("unknown parameter")
        << QStringList{"--device", "0010A401", "--set", "Gain=3"} << 2 << "no parameter \"Gain\"";
    // The receiver's frame period runs from 5 to 30 ms.
    QTest::newRow("out of range") << QStringList{"--device", "0010A401", "--set", "Frame period=31"} << 2
                                  << "outside 5 .. 30";
    QTest::newRow("read-only") << QStringList{"--device", "0010A401", "--set", "Hardware=3"} << 2
                               << "read-only";
    QTest::newRow("too many decimals")
        << QStringList{"--device", "0010A401", "--set", "Failsafe delay=1.25"} << 2 << "at most 1 decimals";
    QTest::newRow("no definition") << QStringList{"--device", "0010A481", "--list"} << 1 << "--raw";
    QTest::newRow("raw size 3") << QStringList{"--device", "0010A481", "--raw", "0x18:3"} << 2
                                << "SIZE 1, 2 or 4";
    QTest::newRow("missing file") << QStringList{"--device", "0010A401", "--import", "/nonexistent/rx.jsn"}
                                  << 1 << "/nonexistent/rx.jsn";
}

void tst_VexoLogParams::refused()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, said);
    const Result r = params(args);
    QCOMPARE(r.code, code);
    QVERIFY2(QString::fromUtf8(r.err).contains(said), r.err.constData());
    // Nothing was written by a refused run.
    QCOMPARE(read("0010A401", "Frame period"), QStringLiteral("Frame period = 22"));
}

void tst_VexoLogParams::rawRegisters()
{
    // A satellite has no definition; its registers are reached directly. Its identifier sits at 0x10.
    Result r = params({"--device", "0010A481", "--raw", "0x10:4", "0x18:1=-2"});
    QCOMPARE(r.code, 2);
    QCOMPARE(params({"--device", "0010A481", "--raw", "0x18:1=254"}).code, 0);
    r = params({"--device", "0010A481", "--raw", "0x10:4", "0x18:1"});
    QCOMPARE(r.code, 0);
    QCOMPARE(QString::fromUtf8(r.out),
             QStringLiteral("0x0010 = 1090689 (0x0010a481)\n0x0018 = 254 (0xfe)\n"));
}

QTEST_GUILESS_MAIN(tst_VexoLogParams)
#include "tst_VexoLogParams.moc"
