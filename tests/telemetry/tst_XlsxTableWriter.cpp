#include "telemetry/XlsxLibrary.h"
#include "telemetry/XlsxTableWriter.h"
#include "tests/support/TestFiles.h"

#include <QDir>
#include <QFile>
#include <QMap>
#include <QTemporaryDir>
#include <QXmlStreamReader>
#include <QtTest>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>

#include <cmath>
#include <limits>

namespace {
class FixedTable : public TableSource
{
public:
    FixedTable(QStringList headers, int periodMs, QVector<QVector<double>> rows, qint64 claimedRows = -1)
        : m_headers(std::move(headers)), m_period(periodMs), m_rows(std::move(rows)), m_claimed(claimedRows)
    {
    }
    int tableColumns() const override { return m_headers.size(); }
    QString columnHeader(int column) const override { return m_headers.at(column); }
    qint64 tableRows() const override { return m_claimed >= 0 ? m_claimed : m_rows.size(); }
    qint64 rowTimeMs(qint64 row) const override { return row * m_period; }
    void readRow(qint64 row, double *out) override
    {
        for (double v : m_rows.at(int(row % m_rows.size())))
            *out++ = v;
    }

private:
    QStringList m_headers;
    int m_period;
    QVector<QVector<double>> m_rows;
    qint64 m_claimed;
};

QByteArray zipEntry(const QString &path, const QString &name)
{
    QuaZip zip(path);
    if (!zip.open(QuaZip::mdUnzip) || !zip.setCurrentFile(name))
        return QByteArray();
    QuaZipFile file(&zip);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

struct Cell
{
    QString type; // the t attribute: empty for a number, "inlineStr" or "s" for text
    int style = 0;
    QString text; // the number as written, or the string
};

// Cells of the first sheet by reference ("A1"), as a spreadsheet program reads them.
QMap<QString, Cell> readSheet(const QString &path, QStringList *rows = nullptr)
{
    QMap<QString, Cell> cells;
    QXmlStreamReader xml(zipEntry(path, QStringLiteral("xl/worksheets/sheet1.xml")));
    QString ref;
    while (!xml.atEnd()) {
        xml.readNext();
        if (!xml.isStartElement())
            continue;
        if (xml.name() == QLatin1String("row") && rows) {
            rows->append(xml.attributes().value(QLatin1String("r")).toString());
        } else if (xml.name() == QLatin1String("c")) {
            ref = xml.attributes().value(QLatin1String("r")).toString();
            Cell cell;
            cell.type = xml.attributes().value(QLatin1String("t")).toString();
            cell.style = xml.attributes().value(QLatin1String("s")).toInt();
            cells.insert(ref, cell);
        } else if (xml.name() == QLatin1String("v") || xml.name() == QLatin1String("t")) {
            cells[ref].text = xml.readElementText();
        }
    }
    return cells;
}

bool closeTo(double a, double b)
{
    return std::fabs(a - b) <= 1e-14 * std::max(1.0, std::fabs(b));
}

} // namespace

class tst_XlsxTableWriter : public QObject
{
    Q_OBJECT
private slots:
    void cellsTypesAndHeader();
    void emptyTableIsTheHeaderRowOnly();
    void sharesTheProcessWithQuaZip();
    void cancelLeavesNoFile_data();
    void cancelLeavesNoFile();
    void refused_data();
    void refused();
};

void tst_XlsxTableWriter::cellsTypesAndHeader()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.xlsx"));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    FixedTable table({QStringLiteral("Voltage [V]"), QString::fromUtf8("Teplota [\u00B0C]")}, 250,
                     {{12.3, nan}, {-0.1, 1e-7}, {nan, 123456.789012345}});
    XlsxTableWriter writer;
    QVERIFY2(writer.write(table, path), qPrintable(writer.errorString()));
    QVERIFY(readAll(path).startsWith("PK"));

    QStringList rows;
    const QMap<QString, Cell> cells = readSheet(path, &rows);
    QCOMPARE(rows, (QStringList{"1", "2", "3", "4"}));
    QCOMPARE(cells.keys(), (QStringList{"A1", "A2", "A3", "A4", "B1", "B2", "B3", "C1", "C3", "C4"}));

    // Text in the header format (its font is ours to choose).
    const int header = cells.value("A1").style;
    QVERIFY(header != 0);
    QStringList headers;
    for (const char *ref : {"A1", "B1", "C1"}) {
        const Cell &cell = cells.value(ref);
        QVERIFY2(cell.type == QLatin1String("inlineStr") || cell.type == QLatin1String("s"), ref);
        QCOMPARE(cell.style, header);
        headers << cell.text;
    }
    QCOMPARE(headers, QStringList({"Time", "Voltage [V]", QString::fromUtf8("Teplota [\u00B0C]")}));
    for (int r = 0; r < 3; ++r) {
        const Cell &time = cells.value(QStringLiteral("A%1").arg(r + 2));
        QVERIFY(time.type.isEmpty());
        // A time value: a day fraction shown through a format of its own (which one is ours to choose).
        QVERIFY(time.style != 0 && time.style != header);
        QCOMPARE(qRound64(time.text.toDouble() * 86400000.0), qint64(r) * 250);
    }
    const QMap<QString, double> numbers = {
        {"B2", 12.3}, {"B3", -0.1}, {"C3", 1e-7}, {"C4", 123456.789012345}};
    for (auto it = numbers.cbegin(); it != numbers.cend(); ++it) {
        const Cell &cell = cells.value(it.key());
        QVERIFY2(cell.type.isEmpty(), qPrintable(it.key()));
        QVERIFY2(cell.style != header && cell.style != cells.value("A2").style, qPrintable(it.key()));
        QVERIFY2(closeTo(cell.text.toDouble(), it.value()),
                 qPrintable(it.key() + QLatin1Char('=') + cell.text));
    }
}

void tst_XlsxTableWriter::emptyTableIsTheHeaderRowOnly()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.xlsx"));
    FixedTable table({QStringLiteral("Voltage [V]")}, 100, {});
    XlsxTableWriter writer;
    QVERIFY2(writer.write(table, path), qPrintable(writer.errorString()));
    QStringList rows;
    const QMap<QString, Cell> cells = readSheet(path, &rows);
    QCOMPARE(rows, QStringList{"1"});
    QCOMPARE(cells.keys(), (QStringList{"A1", "B1"}));
}

// QuaZip, linked here as in the studio, exports minizip's names too: the workbook must still be written
// through a minizip that matches libxlsxwriter, and QuaZip must keep its own.
void tst_XlsxTableWriter::sharesTheProcessWithQuaZip()
{
    QTemporaryDir dir;
    const QString zipPath = dir.filePath(QStringLiteral("backup.zip"));
    {
        QuaZip zip(zipPath);
        QVERIFY(zip.open(QuaZip::mdCreate));
        QuaZipFile file(&zip);
        QVERIFY(file.open(QIODevice::WriteOnly, QuaZipNewInfo(QStringLiteral("Config/Config.jsn"))));
        file.write("{}");
        file.close();
        zip.close();
    }
    QVERIFY(XlsxLibrary::get().isUsable());
    QVERIFY(XlsxLibrary::get().isPrivateCopy());
    const QString path = dir.filePath(QStringLiteral("table.xlsx"));
    FixedTable table({QStringLiteral("Voltage [V]")}, 100, {{7.25}});
    XlsxTableWriter writer;
    QVERIFY2(writer.write(table, path), qPrintable(writer.errorString()));
    QCOMPARE(readSheet(path).value(QStringLiteral("B2")).text, QStringLiteral("7.25"));
    QCOMPARE(zipEntry(zipPath, QStringLiteral("Config/Config.jsn")), QByteArray("{}"));
}

void tst_XlsxTableWriter::cancelLeavesNoFile_data()
{
    QTest::addColumn<bool>("existing");
    QTest::addColumn<int>("cancelAt");
    QTest::newRow("new file, cancelled midway") << false << 2;
    QTest::newRow("existing file kept") << true << 2;
    QTest::newRow("cancelled at the very end") << false << -1;
}

void tst_XlsxTableWriter::cancelLeavesNoFile()
{
    QFETCH(bool, existing);
    QFETCH(int, cancelAt);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.xlsx"));
    if (existing)
        QVERIFY(writeFile(path, "keep me"));
    FixedTable table({"a", "b"}, 10, {{1.5, 2.5}, {3.5, 4.5}}, 10000);
    XlsxTableWriter writer;
    int calls = 0;
    QVERIFY(!writer.write(table, path, [&](qint64 done, qint64 total) {
        return cancelAt < 0 ? done < total : calls++ < cancelAt;
    }));
    QVERIFY(writer.wasCancelled());
    if (existing)
        QCOMPARE(readAll(path), QByteArray("keep me"));
    else
        QVERIFY(!QFile::exists(path));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).size(), existing ? 1 : 0);
}

void tst_XlsxTableWriter::refused_data()
{
    QTest::addColumn<QString>("relative");
    QTest::addColumn<qint64>("rows");
    QTest::addColumn<QString>("reason");
    QTest::newRow("more rows than a sheet holds")
        << QStringLiteral("table.xlsx") << qint64(1048576) << QStringLiteral("1048575");
    QTest::newRow("as many as it holds is fine, but the folder is missing")
        << QStringLiteral("no/such/table.xlsx") << qint64(2) << QStringLiteral("no/such/table.xlsx");
    QTest::newRow("a folder") << QStringLiteral("folder") << qint64(2) << QStringLiteral("folder");
}

void tst_XlsxTableWriter::refused()
{
    QFETCH(QString, relative);
    QFETCH(qint64, rows);
    QFETCH(QString, reason);
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("folder")));
    const QString path = dir.filePath(relative);
    FixedTable table({"a"}, 10, {{1.0}}, rows);
    XlsxTableWriter writer;
    bool reported = false;
    QVERIFY(!writer.write(table, path, [&](qint64, qint64) { return reported = true; }));
    QVERIFY(!writer.wasCancelled());
    QVERIFY(!reported);
    QVERIFY2(writer.errorString().contains(QDir::toNativeSeparators(reason)),
             qPrintable(writer.errorString()));
    QVERIFY(!QFileInfo(path).isFile());
}

QTEST_GUILESS_MAIN(tst_XlsxTableWriter)
#include "tst_XlsxTableWriter.moc"
