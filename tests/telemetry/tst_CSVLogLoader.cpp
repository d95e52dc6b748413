#include "telemetry/CSVLogLoader.h"

#include <QBuffer>
#include <QtTest>

namespace {
constexpr quint32 kId = CSVLogLoader::kDeviceId;

struct Loaded
{
    bool ok = false;
    QString error;
    TelemetryDataPackage package;
    int skipped = 0;
    LogReadReport report;
};

Loaded load(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    CSVLogLoader loader;
    Loaded r;
    r.ok = loader.load(&buffer, &r.package);
    r.error = loader.lastError();
    r.skipped = loader.skippedRows();
    r.report = loader.readReport();
    return r;
}

const TelemetryVar *var(const TelemetryDataPackage &p, quint32 param)
{
    const TelemetrySensor *d = p.device(kId);
    return d ? d->var(param) : nullptr;
}

QString values(const TelemetryVar *v)
{
    QStringList out;
    if (v)
        for (const TelemetryValue &x : v->values())
            out << QStringLiteral("%1:%2").arg(x.timestamp).arg(x.toNumber());
    return out.join(QLatin1Char(' '));
}

// What the data table writes: UTF-8, ";" always, a row per period with two decimals or nothing.
const QByteArray kExport = "Time;Napětí Rx [V];Rychlost [km/h];Teplota [°C];Stav\n"
                           "0:00:00.000;;;;\n"
                           "0:00:00.500;15.00;-3.14;;1.00\n"
                           "0:00:01.000;20.00;;21.50;1.00\n";
} // namespace

class tst_CSVLogLoader : public QObject
{
    Q_OBJECT
private slots:
    void readsTheTableExport();
    void header_data();
    void header();
    void time_data();
    void time();
    void rows_data();
    void rows();
    void decimalsPerColumn_data();
    void decimalsPerColumn();
    void badRowsSkipped();
    void refused_data();
    void refused();
};

void tst_CSVLogLoader::readsTheTableExport()
{
    const Loaded r = load(kExport);
    QVERIFY2(r.ok, qPrintable(r.error));
    QCOMPARE(r.package.devices().size(), 1);
    const TelemetrySensor &d = r.package.devices().at(0);
    QCOMPARE(d.vars().size(), 4);
    QCOMPARE(d.vars().at(0).label(), QStringLiteral("Napětí Rx"));
    QCOMPARE(d.vars().at(0).unit(), QStringLiteral("V"));
    QCOMPARE(d.vars().at(2).unit(), QStringLiteral("°C"));
    QCOMPARE(d.vars().at(3).label(), QStringLiteral("Stav"));
    QCOMPARE(d.vars().at(3).unit(), QString());
    // Empty cells are gaps, not zeros.
    QCOMPARE(values(var(r.package, 1)), QStringLiteral("500:15 1000:20"));
    QCOMPARE(values(var(r.package, 2)), QStringLiteral("500:-3.14"));
    QCOMPARE(values(var(r.package, 3)), QStringLiteral("1000:21.5"));
    QCOMPARE(r.package.firstTimestamp(), 500);
    QCOMPARE(var(r.package, 1)->values().at(0).type, 12u);
}

void tst_CSVLogLoader::header_data()
{
    QTest::addColumn<QString>("header");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("unit");
    const auto row = [](const char *header, const char *label, const char *unit) {
        QTest::newRow(header) << QString::fromUtf8(header) << QString::fromUtf8(label)
                              << QString::fromUtf8(unit);
    };
    row("Speed [km/h]", "Speed", "km/h");
    row("Cells []", "Cells", "");
    row("Temp [1] [°C]", "Temp [1]", "°C");
    row("A [b] c", "A [b] c", "");
    row("  Alt  [ m ] ", "Alt", "m");
}

void tst_CSVLogLoader::header()
{
    QFETCH(QString, header);
    QFETCH(QString, label);
    QFETCH(QString, unit);
    QString l, u;
    CSVLogLoader::splitHeader(header, &l, &u);
    QCOMPARE(l, label);
    QCOMPARE(u, unit);
}

void tst_CSVLogLoader::time_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("ms");
    QTest::newRow("H:mm:ss.zzz") << "0:00:00.500" << qint64(500);
    QTest::newRow("past 24 hours") << "25:00:00.000" << qint64(25 * 3600000);
    QTest::newRow("no milliseconds") << "0:01:02" << qint64(62000);
    QTest::newRow("one fraction digit") << "0:00:01.5" << qint64(1500);
    QTest::newRow("minutes past 59") << "0:60:00.000" << qint64(-1);
    QTest::newRow("four fraction digits") << "0:00:00.1234" << qint64(-1);
    QTest::newRow("empty") << "" << qint64(-1);
}

void tst_CSVLogLoader::time()
{
    QFETCH(QString, text);
    QFETCH(qint64, ms);
    QCOMPARE(CSVLogLoader::parseTime(text), ms);
}

void tst_CSVLogLoader::rows_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QString>("values");
    // A sample at 0 ms would read back from a native log as a description line.
    QTest::newRow("first row at zero")
        << QByteArray("Time;A [m]\n0:00:00.000;7.00\n0:00:00.100;8.00\n") << "1:7 100:8";
    // The table formats row times as times of day: after 24 hours they start again at 0.
    QTest::newRow("past midnight") << QByteArray("Time;A [m]\n23:59:59.000;1.00\n0:00:00.000;2.00\n"
                                                 "0:00:01.000;3.00\n")
                                   << "86399000:1 86400000:2 86401000:3";
    // A whole last row without its line end is no cut.
    QTest::newRow("BOM, CRLF, blank line")
        << QByteArray("\xEF\xBB\xBFZeit;A [m]\r\n0:00:01.000;1.00\r\n\r\n0:00:02.000;2.00")
        << "1000:1 2000:2";
}

void tst_CSVLogLoader::rows()
{
    QFETCH(QByteArray, input);
    QFETCH(QString, values);
    const Loaded r = load(input);
    QVERIFY(r.ok);
    QCOMPARE(var(r.package, 1)->label(), QStringLiteral("A"));
    QCOMPARE(::values(var(r.package, 1)), values);
    QVERIFY(r.report.isClean());
}

void tst_CSVLogLoader::decimalsPerColumn_data()
{
    QTest::addColumn<QByteArray>("cells");
    QTest::addColumn<quint32>("decimals");
    QTest::addColumn<QString>("numbers");
    QTest::newRow("two decimals") << QByteArray("3.14\n1.50") << 2u << "3.14 1.5";
    QTest::newRow("integers") << QByteArray("3\n-4") << 0u << "3 -4";
    QTest::newRow("more decimals from elsewhere") << QByteArray("0.000123\n1") << 6u << "0.000123 1";
    QTest::newRow("comma as decimal mark") << QByteArray("3,25\n-0,5") << 2u << "3.25 -0.5";
    // 30 000 000.00 does not fit 32 bits with two decimals; one less keeps it.
    QTest::newRow("large values lose decimals") << QByteArray("30000000.00\n0.25") << 1u << "3e+07 0.3";
    QTest::newRow("not numbers are gaps") << QByteArray("abc\n2.00\nnan\ninf") << 2u << "2";
}

void tst_CSVLogLoader::decimalsPerColumn()
{
    QFETCH(QByteArray, cells);
    QFETCH(quint32, decimals);
    QFETCH(QString, numbers);
    QByteArray csv = "Time;X []\n";
    int row = 1;
    for (const QByteArray &c : cells.split('\n'))
        csv += "0:00:0" + QByteArray::number(row++) + ".000;" + c + "\n";
    const Loaded r = load(csv);
    QVERIFY(r.ok);
    const TelemetryVar *v = var(r.package, 1);
    QVERIFY(v->count() > 0);
    QCOMPARE(v->values().at(0).decimals, decimals);
    QStringList got;
    for (int i = 0; i < v->count(); ++i)
        got << QString::number(v->numberAt(i));
    QCOMPARE(got.join(QLatin1Char(' ')), numbers);
}

void tst_CSVLogLoader::badRowsSkipped()
{
    // A row whose time does not read or goes back, a short row, a long one and one of megabytes.
    const Loaded r = load("Time;A [m];B [V]\n0:00:01.000;1.00;5.00\nbroken;2.00;6.00\n0:00:00.500;3.00;7.00\n"
                          "0:00:02.000;4.00\n0:00:02.500;" +
                          QByteArray(3 << 20, '9') + "\n0:00:03.000;5.00;8.00;99.00\n");
    QVERIFY(r.ok);
    QCOMPARE(r.skipped, 3);
    // Lines 3 to 7 are damaged: besides the three skipped, the short row and the long one.
    QCOMPARE(r.report.skippedLines, qint64(5));
    QCOMPARE(r.report.firstSkippedLine, qint64(3));
    QVERIFY(!r.report.truncated);
    QCOMPARE(values(var(r.package, 1)), QStringLiteral("1000:1 2000:4 3000:5"));
    QCOMPARE(values(var(r.package, 2)), QStringLiteral("1000:5 3000:8"));
    // A short last row without its line end is a cut.
    const Loaded cut = load("Time;A [m];B [V]\n0:00:01.000;1.00;5.00\n0:00:02.000;2.0");
    QVERIFY(cut.report.truncated);
    QCOMPARE(cut.report.skippedLines, qint64(0));
}

void tst_CSVLogLoader::refused_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QString>("mentions");
    QTest::newRow("empty") << QByteArray() << "empty";
    QTest::newRow("blank lines") << QByteArray("\n\r\n  \n") << "empty";
    QTest::newRow("no header") << QByteArray("0:00:01.000;1.00\n") << "header";
    QTest::newRow("no row reads") << QByteArray("Time;A [m]\n1,2,3\nfoo;bar\n") << "line 2";
}

void tst_CSVLogLoader::refused()
{
    QFETCH(QByteArray, input);
    QFETCH(QString, mentions);
    const Loaded r = load(input);
    QVERIFY(!r.ok);
    QVERIFY(r.package.devices().isEmpty());
    QVERIFY2(r.error.contains(mentions), qPrintable(r.error));
}

QTEST_GUILESS_MAIN(tst_CSVLogLoader)
#include "tst_CSVLogLoader.moc"
