#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

namespace {
// The bundled sample: battery voltage (device 0x0A20 of maker 1, param 1) and the GPS altitude (0x0A10, 3).
const quint32 kBattery = 0x0A20u | (1u << 16);
const quint32 kGps = 0x0A10u | (1u << 16);

using VexoLogRunner::Result;
using VexoLogRunner::run;

QString sample()
{
    return QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log");
}

QString var(quint32 device, quint32 param, int unit = -1)
{
    return unit < 0 ? QStringLiteral("%1:%2").arg(device).arg(param)
                    : QStringLiteral("%1:%2:%3").arg(device).arg(param).arg(unit);
}

// Device 1 written by hand: speed 10 and 20 m/s at 1 s and 2 s, altitude 300.5 and 310 m at 0.5 s and
// 1.5 s, and a ratio 3.14159 and 2.71828 at 1 s and 3 s (2 s apart, a gap for "valid").
const char kFlight[] = "# Hand-made\n# \n"
                       "000000000;0000100000;0;Sensor; \n"
                       "000000000;0000100000;1;Speed;m/s\n"
                       "000000000;0000100000;2;Altitude;m\n"
                       "000000000;0000100000;3;Ratio;\n"
                       "000000500;0000100000;2;1;1;3005\n"
                       "000001000;0000100000;1;1;0;10;3;4;5;314159\n"
                       "000001500;0000100000;2;1;1;3100\n"
                       "000002000;0000100000;1;1;0;20\n"
                       "000003000;0000100000;3;4;5;271828\n";
} // namespace

class tst_VexoLogTable : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void csv_data();
    void csv();
    void xlsxIsAWorkbook();
    void refused_data();
    void refused();

private:
    QTemporaryDir m_dir;
};

void tst_VexoLogTable::initTestCase()
{
    QVERIFY(QFile::exists(QStringLiteral(VEXO_LOG_BINARY)));
    QVERIFY(writeFile(m_dir.filePath(QStringLiteral("flight.log")), kFlight));
}

// Expected rows worked out by hand: row k at k x period; empty before a column's first sample and
// after its last; km/h = m/s x 3.6.
void tst_VexoLogTable::csv_data()
{
    QTest::addColumn<QStringList>("options");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("smooth, unit conversion") << QStringList{"--mode", "smooth", "--period", "500",   "--var",
                                                            "1:1",    "--var",  "1:1:1",    "--var", "1:2"}
                                             << QByteArray("Time;Speed [m/s];Speed [km/h];Altitude [m]\n"
                                                           "0:00:00.000;;;\n"
                                                           "0:00:00.500;;;300.50\n"
                                                           "0:00:01.000;10.00;36.00;305.25\n"
                                                           "0:00:01.500;15.00;54.00;310.00\n"
                                                           "0:00:02.000;20.00;72.00;\n");
    QTest::newRow("hold is the default") << QStringList{"--period", "500", "--var", "1:1", "--var", "1:3"}
                                         << QByteArray("Time;Speed [m/s];Ratio []\n"
                                                       "0:00:00.000;;\n"
                                                       "0:00:00.500;;\n"
                                                       "0:00:01.000;10.00;3.14\n"
                                                       "0:00:01.500;10.00;3.14\n"
                                                       "0:00:02.000;20.00;3.14\n"
                                                       "0:00:02.500;;3.14\n"
                                                       "0:00:03.000;;2.72\n");
    QTest::newRow("valid leaves the gap empty")
        << QStringList{"--mode", "valid", "--period", "1000", "--var", "1:3"}
        << QByteArray("Time;Ratio []\n"
                      "0:00:00.000;\n"
                      "0:00:01.000;3.14\n"
                      "0:00:02.000;\n"
                      "0:00:03.000;2.72\n");
}

void tst_VexoLogTable::csv()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, expected);
    const QString out = m_dir.filePath(QStringLiteral("table.csv"));
    const Result r =
        run(QStringList{"csv", m_dir.filePath(QStringLiteral("flight.log"))} + options + QStringList{out});
    QVERIFY2(r.code == 0, r.err.constData());
    QVERIFY(r.err.isEmpty());
    QCOMPARE(readAll(out), expected);
}

void tst_VexoLogTable::xlsxIsAWorkbook()
{
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("table.xlsx"));
    const Result r =
        run({"xlsx", sample(), "--period", "500", "--mode", "valid", "--var", var(kBattery, 1), out});
    QVERIFY2(r.code == 0, r.err.constData());
    const QByteArray data = readAll(out);
    QVERIFY(data.startsWith("PK\x03\x04") && data.contains("xl/worksheets/sheet1.xml"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("table.xlsx")});
}

// Every refusal names its reason, and a file already at OUT stays as it was.
void tst_VexoLogTable::refused_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    const QString battery = var(kBattery, 1);
    QTest::newRow("unknown variable") << QStringList{"csv", sample(), "--period", "100", "--var", "1:2"} << 1
                                      << QStringLiteral("no variable 1:2");
    QTest::newRow("unit out of range")
        << QStringList{"xlsx", sample(), "--period", "100", "--var", var(kGps, 3, 5)} << 1
        << QStringLiteral("0 to 4: m, km, ft., yd., mi.");
    QTest::newRow("unit for a unit without conversions")
        << QStringList{"csv", sample(), "--period", "100", "--var", var(kBattery, 1, 1)} << 1
        << QStringLiteral("no conversions");
    QTest::newRow("period zero") << QStringList{"csv", sample(), "--period", "0", "--var", battery} << 2
                                 << QStringLiteral("bad value for --period: 0");
    QTest::newRow("bad mode") << QStringList{"csv",    sample(), "--period", "100",
                                             "--mode", "cubic",  "--var",    battery}
                              << 2 << QStringLiteral("bad value for --mode: cubic");
}

void tst_VexoLogTable::refused()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, message);
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("table.out"));
    QVERIFY(writeFile(out, "an earlier table"));
    const Result r = run(args << out);
    QCOMPARE(r.code, code);
    QVERIFY2(QString::fromUtf8(r.err).contains(message), r.err.constData());
    QCOMPARE(readAll(out), QByteArray("an earlier table"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files).size(), 1);
}

QTEST_GUILESS_MAIN(tst_VexoLogTable)
#include "tst_VexoLogTable.moc"
