#include "link/LinkMetaTypes.h"
#include "link/LxBusProtocol.h"
#include "link/LxCrc.h"
#include "link/LxFrame.h"
#include "link/LxReceiver.h"

#include <QSignalSpy>
#include <QtTest>

namespace {
QByteArray bytes(const quint8 *p, int n)
{
    return QByteArray(reinterpret_cast<const char *>(p), n);
}

quint16 crcOf(const QByteArray &b)
{
    return LxCrc::compute(reinterpret_cast<const quint8 *>(b.constData()), b.size());
}

struct Collector : LxReceiver::Handler
{
    QList<QByteArray> payloads;
    int crcErrors = 0;
    int skipped = 0;
    int echoes = 0;
    void deviceFrame(const quint8 *, int, const quint8 *payload, int length) override
    {
        payloads << bytes(payload, length);
    }
    void crcError(const quint8 *, int) override { ++crcErrors; }
    void echoSkipped() override { ++skipped; }
    void goodEcho() override { ++echoes; }
};

void feed(LxReceiver &r, const QByteArray &b)
{
    r.feed(reinterpret_cast<const quint8 *>(b.constData()), b.size());
}

// An answer payload as a device sends it.
QByteArray payload(std::initializer_list<int> b)
{
    QByteArray out;
    for (int v : b)
        out.append(char(v));
    return out;
}

void answer(LxBusProtocol &p, const QByteArray &b)
{
    p.processAnswer(reinterpret_cast<const quint8 *>(b.constData()), b.size());
}

// Hardware 0x1234, kind 1, the name from offset 11, zeros up to the two extra bytes.
QByteArray identification(quint8 packetId, quint32 id, quint8 extensions, const char *name, int length = 25)
{
    QByteArray b = payload({packetId, '@', length - 3, int(id & 0xFF), int(id >> 8 & 0xFF),
                            int(id >> 16 & 0xFF), int(id >> 24), 0x34, 0x12, 1, extensions});
    return (b + QByteArray(name).leftJustified(14, '\0')).left(length);
}

// The slots waiting for an answer to a request of this type.
QList<const LxBusProtocol::Slot *> waiting(const LxBusProtocol &p, char type)
{
    QList<const LxBusProtocol::Slot *> out;
    for (int i = 0; i < LxBusProtocol::kSlots; ++i) {
        if (p.slotAt(i).state == LxBusProtocol::Waiting && p.slotAt(i).data[1] == type)
            out << &p.slotAt(i);
    }
    return out;
}

int slotsIn(const LxBusProtocol &p, LxBusProtocol::SlotState state)
{
    int n = 0;
    for (int i = 0; i < LxBusProtocol::kSlots; ++i)
        n += p.slotAt(i).state == state ? 1 : 0;
    return n;
}

// Queues a broadcast identification request and returns its packet id.
quint8 queueIdentify(LxBusProtocol &p)
{
    const quint8 req[8] = {0, '@', 5, 0, 0, 0, 0, 0};
    const quint8 id = p.packetCounter();
    return p.queueRaw(req, 8, 3) ? id : 0xFF;
}
} // namespace

class tst_LxBus : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void crc();
    void masterFrame_data();
    void masterFrame();
    void controllerChannels_data();
    void controllerChannels();
    void receiver_data();
    void receiver();
    void readsAndWritesOnePerDevice();
    void answerMatching();
    void expiredRequestsReportLostDevices_data();
    void expiredRequestsReportLostDevices();
    void telemetryTaken();
    void identificationAndExtensions();
    void tableGrowsByEightAndRefusesAtMaximum();
    void keepAliveAndSilence();
    void parameterGroups();
};

void tst_LxBus::crc()
{
    QCOMPARE(crcOf("123456789"), quint16(0x2189));
}

void tst_LxBus::masterFrame_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<QByteArray>("frame"); // CRCs worked out apart from the program
    const QByteArray idle = QByteArray::fromHex("3e010c003104e02ee02e27e1");
    QTest::newRow("nothing due") << QByteArray() << idle;
    QTest::newRow("request under two bytes") << QByteArray::fromHex("07") << idle;
    // A poll rides in a second frame behind the channel frame, which announces it.
    QTest::newRow("telemetry poll") << QByteArray::fromHex("093a00")
                                    << QByteArray::fromHex("3e030c003104e02ee02edd7a3d0108093a005fcb");
    // Any other request gives the frame its packet id and follows the channel block.
    QTest::newRow("addressed read") << QByteArray::fromHex("2a570701a40203100004")
                                    << QByteArray::fromHex("3e01152a3104e02ee02e570701a40203100004b183");
}

void tst_LxBus::masterFrame()
{
    QFETCH(QByteArray, request);
    QFETCH(QByteArray, frame);
    quint8 out[LxFrame::kMaxMasterFrame];
    const auto *req = request.isEmpty() ? nullptr : reinterpret_cast<const quint8 *>(request.constData());
    QCOMPARE(bytes(out, LxFrame::buildMasterFrame(out, nullptr, req, request.size())).toHex(' '),
             frame.toHex(' '));
}

void tst_LxBus::controllerChannels_data()
{
    QTest::addColumn<QList<int>>("axes");
    QTest::addColumn<QList<int>>("channels");
    QTest::newRow("extremes") << QList<int>{32767, -32768, -32767}
                              << QList<int>{16000, 8000, 8000, 12000, 12000, 12000, 12000, 12000};
    QTest::newRow("integer division truncates")
        << QList<int>{100, -100, 8192} << QList<int>{12012, 11988, 13000, 12000, 12000, 12000, 12000, 12000};
    QTest::newRow("more than eight axes")
        << QList<int>{1, 2, 3, 4, 5, 6, 7, 8, 32767}
        << QList<int>{12000, 12000, 12000, 12000, 12000, 12000, 12000, 12000};
}

void tst_LxBus::controllerChannels()
{
    QFETCH(QList<int>, axes);
    QFETCH(QList<int>, channels);
    JoystickAxisMap map;
    // Keys in reverse insertion order: the channel order is the map's key order.
    for (int i = axes.size() - 1; i >= 0; --i)
        map.insert(i, qint16(axes.at(i)));
    quint16 values[LxFrame::kControllerChannels];
    LxFrame::channelsFromAxes(map, values);
    QCOMPARE(QList<int>(values, values + LxFrame::kControllerChannels), channels);
    // The frame carries the 16-byte block, and its CRC checks.
    quint8 out[LxFrame::kMaxMasterFrame];
    const int n = LxFrame::buildMasterFrame(out, values, nullptr, 0);
    QCOMPARE(QList<int>({n, out[5], out[6] | (out[7] << 8)}), QList<int>({24, 0x10, channels.at(0)}));
    QCOMPARE(LxCrc::compute(out, n), quint16(0));
}

void tst_LxBus::receiver_data()
{
    QTest::addColumn<QByteArray>("stream");
    QTest::addColumn<bool>("skipEcho");
    QTest::addColumn<QList<int>>("counts"); // frames, CRC errors, skipped echoes, good echoes

    const QByteArray good = LxFrame::buildDeviceFrame(payload({1, ':', 3, 0x7F, 0x41, 0x01}));
    QByteArray bad = good;
    bad[5] = char(bad[5] ^ 0x40);
    quint8 master[LxFrame::kMaxMasterFrame];
    const QByteArray echo = bytes(master, LxFrame::buildMasterFrame(master, nullptr, nullptr, 0));

    QTest::newRow("bad CRC") << bad + good << false << QList<int>{1, 1, 0, 0};
    QTest::newRow("length 7 dropped unchecked")
        << QByteArray("\x3B\x01\x07\x01\x02\x03\x04", 7) + good << false << QList<int>{1, 0, 0, 0};
    QTest::newRow("unknown kind") << QByteArray("\x3B\x05", 2) + good << false << QList<int>{1, 0, 0, 0};
    QTest::newRow("two echoes skipped") << echo + echo << true << QList<int>{0, 0, 2, 0};
    QTest::newRow("echoes checked when not skipping")
        << echo + echo + good << false << QList<int>{1, 0, 0, 2};
    QByteArray badEcho = echo;
    badEcho[7] = 0;
    QTest::newRow("bad echo") << badEcho << false << QList<int>{0, 1, 0, 0};
    QByteArray kind2 = QByteArray("\x3C\x02\x09\x00\x05\x3A\x01\x02", 8);
    const quint16 c = crcOf(kind2.left(7));
    kind2 = kind2.left(7) + char(c & 0xFF) + char(c >> 8);
    QTest::newRow("two length bytes") << kind2 << false << QList<int>{1, 0, 0, 0};
}

void tst_LxBus::receiver()
{
    QFETCH(QByteArray, stream);
    QFETCH(bool, skipEcho);
    QFETCH(QList<int>, counts);
    Collector c;
    LxReceiver r(&c);
    r.setEchoSkipping(skipEcho);
    // One byte per read: the state machine must carry every state across reads.
    for (char b : stream)
        feed(r, QByteArray(1, b));
    QCOMPARE(QList<int>({c.payloads.size(), c.crcErrors, c.skipped, c.echoes}), counts);
}

void tst_LxBus::readsAndWritesOnePerDevice()
{
    LxBusProtocol p;
    const quint8 data[3] = {0x10, 0x00, 2};
    QVERIFY(p.queueRead(0x0102A401, data, 3, 3));
    QVERIFY(!p.queueRead(0x0102A401, data, 3, 3));     // first read unanswered
    QVERIFY(!p.queueWrite(0x0102A401, 0, data, 3, 3)); // nor a write meanwhile
    QVERIFY(p.queueRead(0x0203A401, data, 3, 3));      // another device is fine
    quint8 big[24] = {};
    QVERIFY(!p.queueRead(0x0304A401, big, 24, 3));
    QVERIFY(!p.queueWrite(0x0304A401, 0, big, 23, 3));
    QVERIFY(p.queueWrite(0x0304A401, 0, big, 22, 3));
    // The ring holds ten requests.
    const quint8 poll[3] = {0, ':', 0};
    for (int i = 0; i < 7; ++i)
        QVERIFY(p.queueRaw(poll, 3, 1));
    QVERIFY(!p.queueRaw(poll, 3, 1));
}

void tst_LxBus::answerMatching()
{
    LxBusProtocol p;
    const quint8 data[3] = {0x10, 0x00, 1};
    const quint8 id = p.packetCounter();
    QVERIFY(p.queueRead(0x0102A401, data, 3, 3));
    // A read answer for another device frees the slot and is not delivered.
    answer(p, payload({id, 'W', 4, 0x02, 0xA4, 0x02, 0x01}));
    QCOMPARE(int(p.slotAt(0).state), int(LxBusProtocol::Free));
    QVERIFY(p.queueRead(0x0102A401, data, 3, 3));
    // Answers matching no slot, or too short, change nothing.
    answer(p, payload({0x77, 'W', 4, 0x01, 0xA4, 0x02, 0x01}));
    answer(p, payload({id + 1}));
    QCOMPARE(slotsIn(p, LxBusProtocol::Waiting), 1);
    // S, U and V answers leave the slot as it is; unknown types free it.
    answer(p, payload({id + 1, 'S', 0}));
    answer(p, payload({id + 1, 'V', 0}));
    QCOMPARE(slotsIn(p, LxBusProtocol::Waiting), 1);
    answer(p, payload({id + 1, 'Z', 0}));
    QCOMPARE(slotsIn(p, LxBusProtocol::Free), LxBusProtocol::kSlots);
}

void tst_LxBus::expiredRequestsReportLostDevices_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<bool>("lost");
    QTest::newRow("keep-alive to a device") << payload({0, 'P', 5, 1, 0xA4, 0, 0, 0}) << true;
    QTest::newRow("keep-alive to an extension") << payload({0, 'P', 5, 1, 0xA4, 0, 0, 2}) << false;
    QTest::newRow("read") << payload({0, 'W', 7, 1, 0xA4, 0, 0, 0x10, 0, 1}) << true;
    QTest::newRow("write with flag bits") << payload({0, 'T', 8, 1, 0xA4, 0, 0, 1, 0x10, 0, 1}) << true;
    QTest::newRow("write without flag bits") << payload({0, 'T', 8, 1, 0xA4, 0, 0, 4, 0x10, 0, 1}) << false;
    QTest::newRow("identification") << payload({0, '@', 5, 0, 0, 0, 0, 0}) << false;
    QTest::newRow("telemetry poll") << payload({0, ':', 0}) << false;
}

void tst_LxBus::expiredRequestsReportLostDevices()
{
    QFETCH(QByteArray, request);
    QFETCH(bool, lost);
    LxBusProtocol p;
    QSignalSpy spy(&p, &LxBusProtocol::deviceDisconnected);
    const auto *req = reinterpret_cast<const quint8 *>(request.constData());
    // Sent in every master frame until the limit is used up, then freed; limit 0: sent once, not waited for.
    QList<int> sent;
    for (int limit : {2, 0}) {
        QVERIFY(p.queueRaw(req, request.size(), limit));
        int n = 0;
        sent << 0;
        for (int i = 0; i < 4; ++i)
            sent.last() += p.nextDueRequest(&n) && n == request.size() ? 1 : 0;
    }
    QCOMPARE(sent, QList<int>({2, 1}));
    QCOMPARE(spy.count(), lost ? 1 : 0);
    if (lost)
        QCOMPARE(spy.at(0).at(0).toUInt(), quint32(0x0000A401));
}

void tst_LxBus::telemetryTaken()
{
    LxBusProtocol p;
    const auto poll = [&p] {
        const quint8 req[3] = {0, ':', 0};
        const quint8 id = p.packetCounter();
        return p.queueRaw(req, 3, 1) ? id : 0xFF;
    };
    answer(p, payload({poll(), ':', 9, 0x7F, 0x41, 0x01, 0xA4, 0x02, 0x03, 0x00, 0x01, 0x11}));
    quint8 out[64];
    int n = 0;
    QVERIFY(p.takeTelemetry(out, &n));
    QCOMPARE(bytes(out, n).toHex(' '), QByteArray("7e 7f 41 01 a4 02 03 00 01 11"));
    QVERIFY(!p.takeTelemetry(out, &n));
    // A short telemetry answer is dropped and frees its slot.
    answer(p, payload({poll(), ':', 1, 0x7F}));
    QVERIFY(!p.takeTelemetry(out, &n));
    QCOMPARE(slotsIn(p, LxBusProtocol::Free), LxBusProtocol::kSlots);
    // An answer nobody takes is dropped after 250 ticks.
    answer(p, payload({poll(), '1', 0}));
    for (int i = 0; i < LxBusProtocol::kAnswerHoldTicks; ++i)
        p.tick(0);
    QCOMPARE(slotsIn(p, LxBusProtocol::Answered), 1);
    p.tick(0);
    QCOMPARE(slotsIn(p, LxBusProtocol::Answered), 0);
}

void tst_LxBus::identificationAndExtensions()
{
    LxBusProtocol p;
    QSignalSpy added(&p, &LxBusProtocol::deviceAdded);
    // Eleven bytes change nothing.
    quint8 id = queueIdentify(p);
    answer(p, identification(id, 0x1111A401, 0, "Short", 11));
    QCOMPARE(p.devices().count(), quint16(0));
    // A device reporting two extensions gives three records.
    answer(p, identification(id, 0x2222A401, 2, "Receiver"));
    QCOMPARE(p.devices().count(), quint16(3));
    QList<quint32> extensions; // identifier, parent, index
    for (int e = 1; e <= 2; ++e)
        extensions << p.devices().at(e).identifier << p.devices().at(e).parentIdentifier
                   << p.devices().at(e).extensionIndex;
    QCOMPARE(extensions, QList<quint32>({0, 0x2222A401, 1, 0, 0x2222A401, 2}));
    QCOMPARE(added.count(), 3);
    // A device that answers again is refreshed, not added twice.
    id = queueIdentify(p);
    answer(p, identification(id, 0x2222A401, 2, "Receiver"));
    QCOMPARE(p.devices().count(), quint16(3));
}

void tst_LxBus::tableGrowsByEightAndRefusesAtMaximum()
{
    Vector<int> v;
    for (int i = 0; i < 8; ++i)
        QVERIFY(v.append(i));
    QCOMPARE(v.capacity(), quint16(8));
    QVERIFY(v.append(8));
    QCOMPARE(v.capacity(), quint16(16));
    // The records behind a removed one shift down.
    v.removeAt(0);
    QCOMPARE(QList<int>({v.count(), v.at(0), v.at(7)}), QList<int>({8, 1, 8}));

    // Growth stops at the maximum; fixed storage never grows.
    Vector<int> capped(10);
    int storage[3];
    Vector<int> fixed(storage, 3);
    QList<int> taken;
    for (Vector<int> *t : {&capped, &fixed}) {
        taken << 0;
        while (taken.last() < 20 && t->append(1))
            ++taken.last();
    }
    QCOMPARE(taken, QList<int>({10, 3}));
    QCOMPARE(capped.capacity(), quint16(10));
}

void tst_LxBus::keepAliveAndSilence()
{
    LxBusProtocol p;
    QSignalSpy removed(&p, &LxBusProtocol::deviceRemoved);
    p.addOrRefresh(0x0101A401, 0, 1, 0, 1, 0, QStringLiteral("Sensor"), 0, 0);   // kind 1
    p.addOrRefresh(0x0202A401, 0, 1, 0, 7, 0, QStringLiteral("Receiver"), 0, 0); // another kind
    p.tick(LxBusProtocol::kKeepAliveMs);
    QMap<quint32, int> limits;
    for (const LxBusProtocol::Slot *s : waiting(p, 'P'))
        limits[quint32(s->data[3] | s->data[4] << 8 | s->data[5] << 16 | s->data[6] << 24)] = s->limit;
    QCOMPARE(limits, (QMap<quint32, int>{{0x0101A401, 4}, {0x0202A401, 15}}));
    // Answering the keep-alive of one device keeps it; the silent one is removed after the limit.
    for (int t = 0; t < LxBusProtocol::kSilenceLimitMs; t += 500) {
        for (const LxBusProtocol::Slot *s : waiting(p, 'P')) {
            if (s->data[5] == 0x01)
                answer(p, payload({s->data[0], 'P', 0}));
        }
        p.tick(500);
    }
    QCOMPARE(p.devices().count(), quint16(1));
    QCOMPARE(p.devices().at(0).identifier, quint32(0x0101A401));
    QCOMPARE(removed.count(), 1);
}

void tst_LxBus::parameterGroups()
{
    LxBusProtocol p;
    DeviceSettings s;
    s.deviceId = 0x0101A401;
    const auto param = [](quint16 address, quint8 width) {
        DevParam d;
        d.address = address;
        d.width = width;
        d.isSigned = true;
        return d;
    };
    s.params = {param(0x10, 1), param(0x11, 2), param(0x13, 4), param(0x17, 3)};
    p.setActiveDevice(s);
    QSignalSpy loaded(&p, &LxBusProtocol::valuesLoaded);
    QSignalSpy confirmed(&p, &LxBusProtocol::commandConfirmed);
    const quint8 req[3] = {0x10, 0x00, 10};
    quint8 id = p.packetCounter();
    QVERIFY(p.queueRead(0x0101A401, req, 3, 3));
    // One group from 0x10: an 8-bit -2, a 16-bit 0x1234, a 32-bit -5, and a 3-byte parameter skipped.
    answer(p, payload({id,   'W',  4,    0x01, 0xA4, 0x01, 0x01, 0x10, 0x00, 10,
                       0xFE, 0x34, 0x12, 0xFB, 0xFF, 0xFF, 0xFF, 0xAA, 0xBB, 0xCC}));
    QCOMPARE(loaded.count(), 1);
    const DevParamVector values = p.activeDevice().params;
    QCOMPARE(QList<int>({values[0].value, values[1].value, values[2].value, values[3].value}),
             QList<int>({-2, 0x1234, -5, 0}));
    QVERIFY(values.at(0).loaded && values.at(3).loaded);
    // A write answer confirms values equal to what was sent.
    p.activeDevice().params[0].sent = 7;
    p.activeDevice().params[1].sent = 9;
    id = p.packetCounter();
    const quint8 write[5] = {0x10, 0x00, 3, 7, 0};
    QVERIFY(p.queueWrite(0x0101A401, 0, write, 5, 3));
    answer(p, payload({id, 'T', 5, 0x01, 0xA4, 0x01, 0x01, 0x00, 0x10, 0x00, 3, 7, 8, 0}));
    QVERIFY(p.activeDevice().params.at(0).confirmed);
    QVERIFY(!p.activeDevice().params.at(1).confirmed);
    // A device that leaves the flag byte out of its echo is understood too.
    id = p.packetCounter();
    QVERIFY(p.queueWrite(0x0101A401, 0, write, 5, 3));
    answer(p, payload({id, 'T', 4, 0x01, 0xA4, 0x01, 0x01, 0x10, 0x00, 3, 7, 9, 0}));
    QVERIFY(p.activeDevice().params.at(1).confirmed);
    // An address that is no parameter is a command confirmation.
    id = p.packetCounter();
    QVERIFY(p.queueWrite(0x0101A401, 0, write, 5, 3));
    answer(p, payload({id, 'T', 5, 0x01, 0xA4, 0x01, 0x01, 0x00, 0x00, 0x40, 0, 0x10, 0x00, 1, 1}));
    QCOMPARE(confirmed.count(), 1);
    QCOMPARE(confirmed.at(0).at(0).toUInt(), 0x4000u);
}

QTEST_GUILESS_MAIN(tst_LxBus)
#include "tst_LxBus.moc"
