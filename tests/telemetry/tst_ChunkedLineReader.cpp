#include "telemetry/ChunkedLineReader.h"

#include <QBuffer>
#include <QtTest>

using Reader = ChunkedLineReader;

class tst_ChunkedLineReader : public QObject
{
    Q_OBJECT
private slots:
    void readsLines_data();
    void readsLines();
};

namespace {
// The handler of the tests: a line's first word says what it is.
int outcomeOf(const QByteArray &line)
{
    if (line.startsWith("ok"))
        return Reader::Read;
    if (line.startsWith("bad"))
        return Reader::Damaged;
    if (line.startsWith("part"))
        return Reader::Read | Reader::Damaged;
    return Reader::Ignored;
}
} // namespace

void tst_ChunkedLineReader::readsLines_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<qint64>("chunk");
    QTest::addColumn<bool>("split");     // LongLines::Split rather than Skip
    QTest::addColumn<bool>("checksums"); // LastLine::CutIfDamaged rather than CutShort
    // Each line handed out: number, text, "@" input offset, "!" when it had no line feed.
    QTest::addColumn<QStringList>("seen");
    QTest::addColumn<qint64>("readLines");
    QTest::addColumn<qint64>("skipped");
    QTest::addColumn<qint64>("firstSkipped");
    QTest::addColumn<bool>("truncated");

    const qint64 big = Reader::kChunkSize;
    QTest::newRow("lines split across chunks")
        << QByteArray("ok1\nok22\nok333\n") << qint64(8) << false << false
        << QStringList{"1 ok1@0", "2 ok22@4", "3 ok333@9"} << qint64(3) << qint64(0) << qint64(0) << false;
    QTest::newRow("comment, read in part, damaged")
        << QByteArray("# head\npart\nbad\nbad\n") << qint64(5) << false << false
        << QStringList{"1 # head@0", "2 part@7", "3 bad@12", "4 bad@16"} << qint64(1) << qint64(3)
        << qint64(2) << false;
    QTest::newRow("cut damaged last line counts once")
        << QByteArray("ok1\nbad") << qint64(4) << false << false << QStringList{"1 ok1@0", "2 bad@4!"}
        << qint64(1) << qint64(0) << qint64(0) << true;
    QTest::newRow("blank last line is not cut")
        << QByteArray("ok1\n \r") << big << false << false << QStringList{"1 ok1@0", "2  \r@4!"} << qint64(1)
        << qint64(0) << qint64(0) << false;
    QTest::newRow("checksummed last line that reads is whole")
        << QByteArray("ok1\nok2") << big << false << true << QStringList{"1 ok1@0", "2 ok2@4!"} << qint64(2)
        << qint64(0) << qint64(0) << false;
    QTest::newRow("checksummed last line that does not read is cut")
        << QByteArray("ok1\nbad") << big << false << true << QStringList{"1 ok1@0", "2 bad@4!"} << qint64(1)
        << qint64(0) << qint64(0) << true;
    // Chunk 4, longest line 8: the buffer grows to 8, then the line is dropped up to its end.
    QTest::newRow("overlong line skipped")
        << QByteArray("ok\n" + QByteArray(20, 'x') + "\nok3\n") << qint64(4) << false << false
        << QStringList{"1 ok@0", "3 ok3@24"} << qint64(2) << qint64(1) << qint64(2) << false;
    QTest::newRow("overlong line split")
        << QByteArray("abcdefg\nok\n") << qint64(4) << true << false
        << QStringList{"1 abcd@0", "2 efg@4", "3 ok@8"} << qint64(1) << qint64(0) << qint64(0) << false;
}

void tst_ChunkedLineReader::readsLines()
{
    QFETCH(QByteArray, input);
    QFETCH(qint64, chunk);
    QFETCH(bool, split);
    QFETCH(bool, checksums);
    QFETCH(QStringList, seen);
    QFETCH(qint64, readLines);
    QFETCH(qint64, skipped);
    QFETCH(qint64, firstSkipped);
    QFETCH(bool, truncated);

    QBuffer device(&input);
    QVERIFY(device.open(QIODevice::ReadOnly));
    Reader reader(split ? Reader::LongLines::Split : Reader::LongLines::Skip,
                  checksums ? Reader::LastLine::CutIfDamaged : Reader::LastLine::CutShort, chunk, 8);
    QStringList lines;
    QVERIFY(reader.read(&device, [&](const Reader::Line &l) {
        const QByteArray text(l.begin, int(l.end - l.begin));
        lines << QStringLiteral("%1 %2@%3%4")
                     .arg(l.number)
                     .arg(QString::fromLatin1(text))
                     .arg(l.offset)
                     .arg(l.terminated ? "" : "!");
        return outcomeOf(text);
    }));
    QCOMPARE(lines, seen);
    const LogReadReport &r = reader.report();
    QCOMPARE(r.lines, qint64(seen.isEmpty() ? 0 : seen.last().section(' ', 0, 0).toLongLong()));
    QCOMPARE(r.readLines, readLines);
    QCOMPARE(r.skippedLines, skipped);
    QCOMPARE(r.firstSkippedLine, firstSkipped);
    QCOMPARE(r.truncated, truncated);
}

QTEST_APPLESS_MAIN(tst_ChunkedLineReader)
#include "tst_ChunkedLineReader.moc"
