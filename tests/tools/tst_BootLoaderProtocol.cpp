// The boot loader's frames: their bytes, and cutting answers out of what the line delivers.
#include "tools/BootLoaderProtocol.h"

#include <QtTest>

using namespace BootLoaderProtocol;

namespace {
// Worked out apart from the code: fields as laid out, CRC-16/KERMIT of the bytes before it, low first.
const QByteArray kWakeGps = QByteArray::fromHex("353af00b6402a42000caf1");
const QByteArray kAck5 = QByteArray::fromHex("3650f009050006a8f4");
const QByteArray kNak5 = QByteArray::fromHex("3650f0090501156acf"); // index 0x0105, invalid
} // namespace

class tst_BootLoaderProtocol : public QObject
{
    Q_OBJECT
private slots:
    void bytes();
    void cutting_data();
    void cutting();
};

void tst_BootLoaderProtocol::bytes()
{
    QCOMPARE(wakeRequest(0x0020A402).toHex(), kWakeGps.toHex());
    QCOMPARE(ack(5, kValid).toHex(), kAck5.toHex());
    QCOMPARE(ack(0x0105, kInvalid).toHex(), kNak5.toHex());
    QCOMPARE(infoRequest(1).size(), 44);
    Ack a;
    QVERIFY(decodeAck(kNak5, &a));
    QCOMPARE(int(a.index), 0x0105);
    QCOMPARE(int(a.status), int(kInvalid));
    // A request is not an answer, and a wake answer is not an acknowledgement.
    QVERIFY(!decodeAck(kWakeGps, &a));
    DeviceInfo info;
    QVERIFY(!decodeWakeAnswer(kAck5, &info));
    QVERIFY(!decodeWakeAnswer(kWakeGps, &info));
}

void tst_BootLoaderProtocol::cutting_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<int>("split"); // delivered in two parts, cut here
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("noise before") << QByteArray::fromHex("00ff3636f0") + kAck5 << 0 << kAck5;
    QTest::newRow("split inside") << kAck5 << 5 << kAck5;
    QTest::newRow("spoilt CRC, then good") << kAck5.left(8) + '\x01' + kNak5 << 0 << kNak5;
    // Noise with a start byte claiming 64 bytes: the good frame behind it is not held up.
    QTest::newRow("false start with a long length") << QByteArray::fromHex("3650f040") + kAck5 << 0 << kAck5;
    QTest::newRow("truncated, nothing") << kAck5.left(8) << 0 << QByteArray();
}

void tst_BootLoaderProtocol::cutting()
{
    QFETCH(QByteArray, stream);
    QFETCH(int, split);
    QFETCH(QByteArray, expected);
    QByteArray buffer = stream.left(split ? split : stream.size());
    QByteArray frame;
    bool got = takeFrame(&buffer, kLoaderStart, &frame);
    if (split) {
        QVERIFY(!got);
        buffer += stream.mid(split);
        got = takeFrame(&buffer, kLoaderStart, &frame);
    }
    QCOMPARE(got, !expected.isEmpty());
    QCOMPARE(frame.toHex(), expected.toHex());
    if (got)
        QVERIFY(buffer.isEmpty()); // consumed bytes are removed
}

QTEST_APPLESS_MAIN(tst_BootLoaderProtocol)
#include "tst_BootLoaderProtocol.moc"
