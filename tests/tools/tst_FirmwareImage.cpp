#include "tools/FirmwareImage.h"

#include <QtTest>

namespace {
const QByteArray kHeader = QByteArray(16, '\x5A');

QByteArray packet(quint8 b0, quint8 b1, int payload)
{
    QByteArray p;
    p.append(char(b0)).append(char(b1));
    for (int i = 0; i < payload; ++i)
        p.append(char(i * 13 + b1));
    return p;
}
} // namespace

class tst_FirmwareImage : public QObject
{
    Q_OBJECT

private slots:
    void accepted_data();
    void accepted();
    void refused_data();
    void refused();
};

void tst_FirmwareImage::accepted_data()
{
    QTest::addColumn<QByteArray>("image");
    QTest::addColumn<QVector<int>>("sizes"); // each packet's size including its two length bytes

    QTest::newRow("header and zero byte: nothing to program") << kHeader + '\0' << QVector<int>{};
    // The low nibble of the first byte is the high part of the length; the high nibble is not.
    QTest::newRow("0x1F 0x40 occupies 0xF42")
        << kHeader + packet(0x1F, 0x40, 0xF40) + '\0' << QVector<int>{0xF42};
    QTest::newRow("largest and smallest, bytes after the end ignored")
        << kHeader + packet(0x0F, 0xFF, 0xFFF) + packet(0x80, 0x00, 0) + packet(0x01, 0x00, 0x100) + '\0' +
               "pad"
        << QVector<int>{0x1001, 2, 0x102};
}

void tst_FirmwareImage::accepted()
{
    QFETCH(QByteArray, image);
    QFETCH(QVector<int>, sizes);
    FirmwareImage parsed;
    QString error;
    QVERIFY2(FirmwareImage::parse(image, &parsed, &error), qPrintable(error));
    QCOMPARE(parsed.header(), kHeader);
    QCOMPARE(parsed.packetCount(), sizes.size());
    int offset = 16;
    qint64 payload = 0;
    for (int i = 0; i < sizes.size(); ++i) {
        QCOMPARE(parsed.packets().at(i), image.mid(offset, sizes.at(i))); // exactly as stored
        offset += sizes.at(i);
        payload += sizes.at(i) - 2;
    }
    QCOMPARE(parsed.payloadBytes(), payload);
}

void tst_FirmwareImage::refused_data()
{
    QTest::addColumn<QByteArray>("image");
    QTest::addColumn<QString>("reason");

    QTest::newRow("empty") << QByteArray() << "too short";
    QTest::newRow("header cut") << kHeader.left(15) << "too short";
    QTest::newRow("header only") << kHeader << "no terminating zero byte";
    QTest::newRow("no terminator") << kHeader + packet(0x01, 0x04, 0x104) << "no terminating zero byte";
    QTest::newRow("chain past the end")
        << kHeader + packet(0x1F, 0x40, 0xF3E) + '\0' << "packet 1 at offset 16";
    QTest::newRow("second packet past the end")
        << kHeader + packet(0x01, 0x00, 0x100) + packet(0x02, 0x00, 10) << "packet 2 at offset 274";
    QTest::newRow("cut inside the length bytes") << kHeader + packet(0x80, 0x01, 1) + '\x07' << "packet 2";
    QByteArray huge = kHeader;
    while (huge.size() <= FirmwareImage::kMaxImageBytes)
        huge += packet(0x0F, 0xFF, 0xFFF);
    QTest::newRow("no packets but data behind the end (a foreign file)")
        << kHeader + '\0' + QByteArray("IHDR", 4) << "not a firmware image";
    QTest::newRow("over the size limit") << huge + '\0' << "too large";
}

void tst_FirmwareImage::refused()
{
    QFETCH(QByteArray, image);
    QFETCH(QString, reason);
    FirmwareImage parsed;
    QString error;
    QVERIFY(!FirmwareImage::parse(image, &parsed, &error));
    QVERIFY2(error.contains(reason), qPrintable(error));
    QCOMPARE(parsed.packetCount(), 0); // nothing half-read is handed out
}

QTEST_GUILESS_MAIN(tst_FirmwareImage)
#include "tst_FirmwareImage.moc"
