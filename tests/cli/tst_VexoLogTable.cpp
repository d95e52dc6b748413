#include "telemetry/CsvTableWriter.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TableSampler.h"
#include "telemetry/TelemetryData.h"

#include <QBuffer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/VexoLogRunner.h"

namespace {
// The bundled sample: battery voltage (device 0x0A20 of maker 1, param 1), the GPS altitude (0x0A10, 3)
// and the receiver's temperature (0x0A01, 4).
const quint32 kBattery = 0x0A20u | (1u << 16);
const quint32 kGps = 0x0A10u | (1u << 16);
const quint32 kReceiver = 0x0A01u | (1u << 16);

using VexoLogRunner::Result;
using VexoLogRunner::run;

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

QString sample()
{
    return QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log");
}

QString var(quint32 device, quint32 param, int unit = -1)
{
    return unit < 0 ? QStringLiteral("%1:%2").arg(device).arg(param)
                    : QStringLiteral("%1:%2:%3").arg(device).arg(param).arg(unit);
}
} // namespace

class tst_VexoLogTable : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void csvIsWhatTheStudioWrites_data();
    void csvIsWhatTheStudioWrites();
    void xlsxIsAWorkbook();
    void refused_data();
    void refused();

private:
    TelemetryDataPackage m_package;
};

void tst_VexoLogTable::initTestCase()
{
    QVERIFY(QFile::exists(QStringLiteral(VEXO_LOG_BINARY)));
    MemorySensorTable sensors;
    QString error;
    QVERIFY2(TelemetryData::readFile(sample(), &m_package, &sensors, &error), qPrintable(error));
}

void tst_VexoLogTable::csvIsWhatTheStudioWrites_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<int>("period");
    QTest::addColumn<int>("altitudeUnit");
    QTest::newRow("hold, 1 s") << QStringLiteral("hold") << 1000 << -1;
    QTest::newRow("smooth, 100 ms, altitude in ft.") << QStringLiteral("smooth") << 100 << 2;
    QTest::newRow("valid, 7 ms, altitude in km") << QStringLiteral("valid") << 7 << 1;
    QTest::newRow("default mode, 250 ms") << QString() << 250 << 0;
}

void tst_VexoLogTable::csvIsWhatTheStudioWrites()
{
    QFETCH(QString, mode);
    QFETCH(int, period);
    QFETCH(int, altitudeUnit);
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("table.csv"));
    QStringList args = {QStringLiteral("csv"),
                        sample(),
                        QStringLiteral("--period"),
                        QString::number(period),
                        QStringLiteral("--var"),
                        var(kBattery, 1),
                        QStringLiteral("--var"),
                        var(kGps, 3, altitudeUnit),
                        QStringLiteral("--var"),
                        var(kReceiver, 4),
                        out};
    if (!mode.isEmpty())
        args << QStringLiteral("--mode") << mode;
    const Result r = run(args);
    QVERIFY2(r.code == 0, r.err.constData());
    QVERIFY(r.err.isEmpty());

    TelemetryVar altitude = *m_package.device(kGps)->var(3);
    if (altitudeUnit >= 0)
        altitude.setUnitTarget(quint8(altitudeUnit));
    TableSampler sampler(
        period, TableSampler::modeFor(mode == QLatin1String("smooth"), mode == QLatin1String("valid")));
    sampler.addColumn(*m_package.device(kBattery)->var(1));
    sampler.addColumn(altitude);
    sampler.addColumn(*m_package.device(kReceiver)->var(4));
    QBuffer expected;
    expected.open(QIODevice::WriteOnly);
    QVERIFY(CsvTableWriter().write(sampler, &expected));
    const QByteArray text = readAll(out);
    QCOMPARE(text.size(), expected.data().size());
    QVERIFY(text == expected.data());
    QVERIFY(text.startsWith("Time;"));
}

void tst_VexoLogTable::xlsxIsAWorkbook()
{
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("table.xlsx"));
    const Result r = run({QStringLiteral("xlsx"), sample(), QStringLiteral("--period"), QStringLiteral("500"),
                          QStringLiteral("--mode"), QStringLiteral("valid"), QStringLiteral("--var"),
                          var(kBattery, 1), out});
    QVERIFY2(r.code == 0, r.err.constData());
    const QByteArray data = readAll(out);
    QVERIFY(data.startsWith("PK\x03\x04"));
    QVERIFY(data.contains("xl/worksheets/sheet1.xml"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("table.xlsx")});
}

// Every refusal names its reason, and a file already at OUT stays as it was.
void tst_VexoLogTable::refused_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    const QString battery = var(kBattery, 1);
    QTest::newRow("missing log") << QStringList{"csv",  "/no/such/flight.log", "--period", "100", "--var",
                                                battery}
                                 << 1 << QStringLiteral("/no/such/flight.log");
    QTest::newRow("unknown variable") << QStringList{"csv", sample(), "--period", "100", "--var", "1:2"} << 1
                                      << QStringLiteral("no variable 1:2");
    QTest::newRow("unit out of range")
        << QStringList{"xlsx", sample(), "--period", "100", "--var", var(kGps, 3, 5)} << 1
        << QStringLiteral("0 to 4: m, km, ft., yd., mi.");
    QTest::newRow("unit for a unit without conversions")
        << QStringList{"csv", sample(), "--period", "100", "--var", var(kBattery, 1, 1)} << 1
        << QStringLiteral("no conversions");
    QTest::newRow("no period") << QStringList{"csv", sample(), "--var", battery} << 2
                               << QStringLiteral("needs --period");
    QTest::newRow("period zero") << QStringList{"csv", sample(), "--period", "0", "--var", battery} << 2
                                 << QStringLiteral("bad value for --period: 0");
    QTest::newRow("bad mode") << QStringList{"csv",    sample(), "--period", "100",
                                             "--mode", "cubic",  "--var",    battery}
                              << 2 << QStringLiteral("bad value for --mode: cubic");
    QTest::newRow("no variable") << QStringList{"xlsx", sample(), "--period", "100"} << 2
                                 << QStringLiteral("needs at least one --var");
    QTest::newRow("bad variable") << QStringList{"csv", sample(), "--period", "100", "--var", "12"} << 2
                                  << QStringLiteral("bad value for --var: 12");
}

void tst_VexoLogTable::refused()
{
    QFETCH(QStringList, args);
    QFETCH(int, code);
    QFETCH(QString, message);
    QTemporaryDir dir;
    const QString out = dir.filePath(QStringLiteral("table.out"));
    QFile old(out);
    QVERIFY(old.open(QIODevice::WriteOnly));
    old.write("an earlier table");
    old.close();
    const Result r = run(args << out);
    QCOMPARE(r.code, code);
    QVERIFY2(QString::fromUtf8(r.err).contains(message), r.err.constData());
    QCOMPARE(readAll(out), QByteArray("an earlier table"));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files).size(), 1);
}

QTEST_GUILESS_MAIN(tst_VexoLogTable)
#include "tst_VexoLogTable.moc"
