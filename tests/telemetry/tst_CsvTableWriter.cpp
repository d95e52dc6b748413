#include "telemetry/CsvTableWriter.h"
#include "tests/support/TestFiles.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <limits>

namespace {
// A table given cell by cell.
class FixedTable : public TableSource
{
public:
    FixedTable(QStringList headers, int periodMs, QVector<QVector<double>> rows)
        : m_headers(std::move(headers)), m_period(periodMs), m_rows(std::move(rows))
    {
    }
    int tableColumns() const override { return m_headers.size(); }
    QString columnHeader(int column) const override { return m_headers.at(column); }
    qint64 tableRows() const override { return m_rows.size(); }
    qint64 rowTimeMs(qint64 row) const override { return row * m_period; }
    void readRow(qint64 row, double *out) override
    {
        for (double v : m_rows.at(int(row)))
            *out++ = v;
    }

private:
    QStringList m_headers;
    int m_period;
    QVector<QVector<double>> m_rows;
};

QByteArray csvOf(TableSource &table)
{
    QBuffer buffer;
    buffer.open(QIODevice::WriteOnly);
    CsvTableWriter writer;
    if (!writer.write(table, &buffer))
        return "write failed: " + writer.errorString().toUtf8();
    return buffer.data();
}

// Many rows of several columns, enough to pass the writer's buffer a few times.
FixedTable bigTable(int rows)
{
    QVector<QVector<double>> cells;
    QRandomGenerator random(7);
    for (int r = 0; r < rows; ++r) {
        QVector<double> row;
        for (int c = 0; c < 6; ++c)
            row.append(random.bounded(2000.0) - 1000.0);
        cells.append(row);
    }
    return FixedTable({"a", "b", "c", "d", "e", "f"}, 10, cells);
}
} // namespace

class tst_CsvTableWriter : public QObject
{
    Q_OBJECT
private slots:
    void numberText_data();
    void numberText();
    void timeText_data();
    void timeText();
    void emptyTableIsTheHeaderOnly();
    void extremeValuesFillWholeRows();
    void headerIsUtf8WithoutMark();
    void cancelLeavesNoFile_data();
    void cancelLeavesNoFile();
    void unwritableDestination_data();
    void unwritableDestination();
};

void tst_CsvTableWriter::numberText_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("pi") << 3.14159 << QByteArray("3.14");
    QTest::newRow("not a number is empty") << std::numeric_limits<double>::quiet_NaN() << QByteArray("");
    QTest::newRow("exact tie rounds up") << 0.125 << QByteArray("0.13");
    QTest::newRow("negative tie") << -1.125 << QByteArray("-1.13");
    QTest::newRow("just below a tie") << 2.675 << QByteArray("2.67");
    QTest::newRow("small negative keeps its sign") << -0.001 << QByteArray("-0.00");
    QTest::newRow("negative zero") << -0.0 << QByteArray("0.00");
    QTest::newRow("carry into the integer") << 9.999 << QByteArray("10.00");
    QTest::newRow("huge") << 1e20 << QByteArray("100000000000000000000.00");
    QTest::newRow("infinite") << std::numeric_limits<double>::infinity() << QByteArray("inf");
}

void tst_CsvTableWriter::numberText()
{
    QFETCH(double, value);
    QFETCH(QByteArray, text);
    QByteArray out;
    CsvTableWriter::appendNumber(out, value);
    QCOMPARE(out, text);
}

void tst_CsvTableWriter::timeText_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<QString>("text");
    QTest::newRow("all fields") << qint64(3723004) << QStringLiteral("1:02:03.004");
    QTest::newRow("two-digit hours") << qint64(11 * 3600000 + 59 * 60000 + 59999)
                                     << QStringLiteral("11:59:59.999");
    QTest::newRow("last of the day") << qint64(86399999) << QStringLiteral("23:59:59.999");
    QTest::newRow("a time of day wraps") << qint64(90000000) << QStringLiteral("1:00:00.000");
}

void tst_CsvTableWriter::timeText()
{
    QFETCH(qint64, ms);
    QFETCH(QString, text);
    QCOMPARE(CsvTableWriter::timeText(ms), text);
    QCOMPARE(CsvTableWriter::timeText(ms),
             QTime::fromMSecsSinceStartOfDay(int(ms % 86400000)).toString(QStringLiteral("H:mm:ss.zzz")));
}

void tst_CsvTableWriter::emptyTableIsTheHeaderOnly()
{
    FixedTable none({}, 100, {});
    QCOMPARE(csvOf(none), QByteArray("Time\n"));
    FixedTable noRows({"Voltage [V]"}, 100, {});
    QCOMPARE(csvOf(noRows), QByteArray("Time;Voltage [V]\n"));
}

// Rows of the longest numbers there are, many of them, through the file path and its buffer.
void tst_CsvTableWriter::extremeValuesFillWholeRows()
{
    const double big = -std::numeric_limits<double>::max();
    QVector<QVector<double>> cells(12, QVector<double>(300, big));
    FixedTable table(QStringList(QVector<QString>(300, QStringLiteral("x")).toList()), 10, cells);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.csv"));
    QVERIFY(CsvTableWriter().write(table, path));
    const QByteArray text = readAll(path);
    const QByteArray number = QString::number(big, 'f', 2).toUtf8();
    QVERIFY(text.size() > (1 << 20));
    QCOMPARE(text.count(QByteArray("\n")), 13);
    QCOMPARE(text.count(number), 12 * 300);
    QVERIFY(text.endsWith(";" + number + "\n"));
}

void tst_CsvTableWriter::headerIsUtf8WithoutMark()
{
    FixedTable table({QString::fromUtf8("Teplota motoru [\u00B0C]")}, 100, {{21.5}});
    QCOMPARE(csvOf(table), QByteArray("Time;Teplota motoru [\xC2\xB0\x43]\n0:00:00.000;21.50\n"));
}

void tst_CsvTableWriter::cancelLeavesNoFile_data()
{
    QTest::addColumn<bool>("existing");
    QTest::addColumn<int>("cancelAt");
    QTest::newRow("new file, cancelled at once") << false << 0;
    QTest::newRow("new file, cancelled midway") << false << 3;
    QTest::newRow("existing file kept") << true << 3;
    QTest::newRow("cancelled at the very end") << false << -1;
}

void tst_CsvTableWriter::cancelLeavesNoFile()
{
    QFETCH(bool, existing);
    QFETCH(int, cancelAt);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.csv"));
    if (existing)
        QVERIFY(writeFile(path, "keep me"));
    FixedTable table = bigTable(20000);
    CsvTableWriter writer;
    int calls = 0;
    const bool ok = writer.write(table, path, [&](qint64 done, qint64 total) {
        return cancelAt < 0 ? done < total : calls++ < cancelAt;
    });
    QVERIFY(!ok);
    QVERIFY(writer.wasCancelled());
    if (existing)
        QCOMPARE(readAll(path), QByteArray("keep me"));
    else
        QVERIFY(!QFile::exists(path));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), existing ? 1 : 0);
}

void tst_CsvTableWriter::unwritableDestination_data()
{
    QTest::addColumn<QString>("relative");
    QTest::newRow("missing folder") << QStringLiteral("no/such/folder/table.csv");
    QTest::newRow("a folder") << QStringLiteral("folder");
}

void tst_CsvTableWriter::unwritableDestination()
{
    QFETCH(QString, relative);
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    const QString path = dir.filePath(relative);
    FixedTable table({"a"}, 10, {{1.0}});
    CsvTableWriter writer;
    QVERIFY(!writer.write(table, path));
    QVERIFY(!writer.wasCancelled());
    QVERIFY2(writer.errorString().contains(QDir::toNativeSeparators(path)), qPrintable(writer.errorString()));
    QVERIFY(!QFileInfo(path).isFile());
}

QTEST_GUILESS_MAIN(tst_CsvTableWriter)
#include "tst_CsvTableWriter.moc"
