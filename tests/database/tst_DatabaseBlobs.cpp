#include "database/BlobCodec.h"
#include "database/InflatingDevice.h"
#include "telemetry/LogFileLoader.h"
#include "telemetry/LogFileWriter.h"
#include "tests/database/DatabaseTestSupport.h"

#include <QtTest>

namespace {
QByteArray numberText(int n)
{
    QByteArray b;
    for (int i = 0; b.size() < n; ++i)
        b += QByteArray::number(qint64(i) * 7919 % 100003) + (i % 9 ? ';' : '\n');
    b.truncate(n);
    return b;
}

QByteArray withHeader(quint32 size, const QByteArray &body)
{
    QByteArray b(4, '\0');
    b[0] = char(size >> 24);
    b[1] = char(size >> 16);
    b[2] = char(size >> 8);
    b[3] = char(size);
    return b + body;
}

// Reads a whole device in deliberately awkward piece sizes.
bool readInPieces(QIODevice *device, QByteArray *out)
{
    static const int pieces[] = {1, 7, 4096, 65536 + 3, 1 << 20};
    QByteArray buffer(1 << 20, Qt::Uninitialized);
    for (int i = 0;; ++i) {
        const qint64 n = device->read(buffer.data(), pieces[i % 5]);
        if (n < 0)
            return false;
        if (n == 0)
            return true;
        out->append(buffer.constData(), int(n));
    }
}
} // namespace

class tst_DatabaseBlobs : public QObject
{
    Q_OBJECT
private slots:
    void compressIsWhatQUncompressReads_data();
    void compressIsWhatQUncompressReads();
    void damagedBlobsAreReported_data();
    void damagedBlobsAreReported();
    void deviceStreamsAndRestarts();
    void storedLogParsesThroughTheDevice();
};

void tst_DatabaseBlobs::compressIsWhatQUncompressReads_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("threads");
    const int min = int(BlobCodec::kParallelMinimum);
    const int chunk = 512 * 1024;
    QTest::newRow("empty") << QByteArray() << 2;
    QTest::newRow("just below the parallel size") << numberText(min - 1) << 2;
    QTest::newRow("parallel, exact chunks") << numberText(4 * chunk) << 2;
    QTest::newRow("parallel, last chunk of one byte") << numberText(3 * chunk + 1) << 2;
    QTest::newRow("parallel, more threads than chunks") << numberText(min + 5) << 8;
    QTest::newRow("incompressible") << randomBytes(3 * chunk + 333, 1) << 2;
    QTest::newRow("one repeated byte (long matches across chunks)") << QByteArray(5 * chunk, 'a') << 3;
}

void tst_DatabaseBlobs::compressIsWhatQUncompressReads()
{
    QFETCH(QByteArray, data);
    QFETCH(int, threads);
    const QByteArray blob = BlobCodec::compress(data, threads);
    QCOMPARE(qUncompress(blob), data);
    QByteArray back;
    QString error;
    QVERIFY2(BlobCodec::uncompress(blob, &back, &error), qPrintable(error));
    QCOMPARE(back, data);
    // Chunking must not cost noticeably more space than one stream.
    if (data.size() > 1000)
        QVERIFY(blob.size() <= qCompress(data).size() * 102 / 100 + 64);
}

void tst_DatabaseBlobs::damagedBlobsAreReported_data()
{
    QTest::addColumn<QByteArray>("blob");
    QTest::addColumn<QString>("reason");
    const QByteArray good = qCompress(numberText(100000));
    const QByteArray body = good.mid(4);
    QTest::newRow("shorter than a header") << QByteArray("\0\0", 2) << "too short";
    QTest::newRow("header claims 4 GB") << withHeader(0xFFFFFFF0u, body) << "claims";
    QTest::newRow("header claims far more than the body can hold")
        << withHeader(400000000u, body) << "claims";
    QTest::newRow("header claims more than the stream holds") << withHeader(100001u, body) << "ends after";
    QTest::newRow("header claims less than the stream holds") << withHeader(99999u, body) << "more than";
    QByteArray flipped = good;
    flipped[flipped.size() / 2] = char(flipped[flipped.size() / 2] ^ 0x55);
    QTest::newRow("a flipped byte") << flipped << "damaged";
    QTest::newRow("cut short") << good.left(good.size() - 20) << "cut short";
    QByteArray badChecksum = good;
    badChecksum[badChecksum.size() - 1] = char(badChecksum[badChecksum.size() - 1] ^ 1);
    QTest::newRow("wrong checksum") << badChecksum << "damaged";
}

void tst_DatabaseBlobs::damagedBlobsAreReported()
{
    QFETCH(QByteArray, blob);
    QFETCH(QString, reason);
    QByteArray out = "untouched";
    QString error;
    QVERIFY(!BlobCodec::uncompress(blob, &out, &error));
    QCOMPARE(out, QByteArray("untouched"));
    QVERIFY2(error.contains("damaged"), qPrintable(error));
    QVERIFY2(error.contains(reason), qPrintable(error));
}

void tst_DatabaseBlobs::deviceStreamsAndRestarts()
{
    const QByteArray data = numberText(3 * 1024 * 1024 + 11);
    InflatingDevice device(BlobCodec::compress(data, 2));
    QVERIFY(device.open(QIODevice::ReadOnly));
    QVERIFY(!device.isSequential());
    QCOMPARE(device.size(), qint64(data.size()));
    QByteArray first;
    QVERIFY(readInPieces(&device, &first));
    QCOMPARE(first, data);
    QVERIFY(device.atEnd());
    QVERIFY(!device.seek(5)); // only the start and the current position
    QVERIFY(device.seek(0));
    QCOMPARE(device.read(10), data.left(10));
    QVERIFY(!device.open(QIODevice::ReadWrite));
}

void tst_DatabaseBlobs::storedLogParsesThroughTheDevice()
{
    const TelemetryDataPackage generated = flight(60, 20);
    const QByteArray log = LogFileWriter::write(generated);
    InflatingDevice device(BlobCodec::compress(log, 2));
    QVERIFY(device.open(QIODevice::ReadOnly));
    TelemetryDataPackage streamed;
    LogFileLoader loader;
    QVERIFY(loader.load(&device, &streamed));
    QCOMPARE(streamed.sampleCount(), generated.sampleCount());
    QCOMPARE(streamed.devices().size(), generated.devices().size());

    // A log whose blob breaks half way fails the load instead of giving half a flight.
    QByteArray broken = BlobCodec::compress(log, 2);
    broken[broken.size() / 2] = char(broken[broken.size() / 2] ^ 0xFF);
    InflatingDevice bad(broken);
    QVERIFY(bad.open(QIODevice::ReadOnly));
    TelemetryDataPackage partial;
    LogFileLoader third;
    QVERIFY(!third.load(&bad, &partial));
    QVERIFY(third.lastError().contains("damaged"));
}

QTEST_GUILESS_MAIN(tst_DatabaseBlobs)
#include "tst_DatabaseBlobs.moc"
