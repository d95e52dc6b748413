// The parameter engine: how requests are packed, and reading, writing and commands against the bus
// simulator over a pseudo-terminal.
#include "link/DeviceDefinitions.h"
#include "link/DeviceParameterEngine.h"
#include "link/LinkMetaTypes.h"
#include "tests/support/LinkRig.h"

#include <QSignalSpy>
#include <QtTest>

namespace {
DevParam param(quint16 address, quint8 width, qint64 min = 0, qint64 max = 255)
{
    DevParam p;
    p.address = address;
    p.width = width;
    p.min = min;
    p.max = max;
    return p;
}

QVector<int> all(const DevParamVector &v)
{
    QVector<int> i(v.size());
    std::iota(i.begin(), i.end(), 0);
    return i;
}

DeviceSettings receiverSettings()
{
    DeviceDefinitions defs;
    QString error;
    if (!defs.addSourceFile(QStringLiteral(VEXO_SOURCE_DIR "/link/definitions/receiver.json"), &error))
        qFatal("%s", qPrintable(error));
    return DeviceSettings::fromDefinition(BusSimulator::kReceiverId, *defs.find(0x0203));
}

qint32 valueAt(const DevParamVector &v, quint16 address)
{
    for (const DevParam &p : v) {
        if (p.address == address)
            return p.value;
    }
    return INT_MIN;
}
} // namespace

class tst_DeviceParameterEngine : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void packing_data();
    void packing();
    void readWriteCommand();
    void deviceFallsSilentMidRead();
};

void tst_DeviceParameterEngine::packing_data()
{
    QTest::addColumn<DevParamVector>("params");
    QTest::addColumn<int>("reads");
    QTest::addColumn<int>("writes");
    QTest::addColumn<QByteArray>("firstRead");

    DevParamVector bytes40;
    for (int i = 0; i < 40; ++i)
        bytes40.append(param(quint16(0x10 + i), 1));
    // A read answer holds 23 bytes of groups: one head and 20 values; a write request 22: 19 values.
    QTest::newRow("40 contiguous bytes") << bytes40 << 2 << 3 << QByteArray::fromHex("100014");
    DevParamVector longs;
    for (int i = 0; i < 10; ++i)
        longs.append(param(quint16(0x10 + 4 * i), 4));
    // 3 + 5 * 4 = 23: five per read; writes take four (3 + 16, a fifth would need 23 > 22).
    QTest::newRow("ten 32-bit") << longs << 2 << 3 << QByteArray::fromHex("100014");
    // A gap starts a new group; both fit one request.
    QTest::newRow("gap") << DevParamVector{param(0x10, 1), param(0x12, 2)} << 1 << 1
                         << QByteArray::fromHex("100001120002");
    // A parameter never splits across requests: 18 bytes then a 4-byte one that no longer fits.
    DevParamVector split;
    for (int i = 0; i < 18; ++i)
        split.append(param(quint16(0x10 + i), 1));
    split.append(param(0x22, 4));
    QTest::newRow("no split") << split << 2 << 2 << QByteArray::fromHex("100012");
}

void tst_DeviceParameterEngine::packing()
{
    QFETCH(DevParamVector, params);
    QFETCH(int, reads);
    QFETCH(int, writes);
    QFETCH(QByteArray, firstRead);
    const auto r = DeviceParameterEngine::planReads(params, all(params));
    const auto w = DeviceParameterEngine::planWrites(params, all(params));
    QCOMPARE(r.size(), reads);
    QCOMPARE(w.size(), writes);
    QCOMPARE(r.first().data, firstRead);
    int covered = 0;
    for (const auto &q : r) {
        QVERIFY(q.data.size() <= LxBusProtocol::kMaxReadData);
        covered += q.params.size();
    }
    QCOMPARE(covered, params.size());
    for (const auto &q : w)
        QVERIFY(q.data.size() <= LxBusProtocol::kMaxWriteData);
    QVERIFY(r.size() <= DeviceParameterEngine::minimumReads(params, all(params)) + 1);
}

void tst_DeviceParameterEngine::readWriteCommand()
{
    Rig rig;
    QVERIFY(rig.ok);
    SerialPortWrapper *w = rig.link.wrapper();
    QVERIFY(waitFor([&] { return rig.namedDevices() > 0; }, 20000));
    QSignalSpy loaded(w, &SerialPortWrapper::LxBusValuesLoaded);
    QSignalSpy written(w, &SerialPortWrapper::LxBusWriteFinished);
    QSignalSpy errors(w, &SerialPortWrapper::LxBusError);
    QSignalSpy confirmed(w, &SerialPortWrapper::LxBusCommandConfirmed);
    const DeviceSettings settings = receiverSettings();
    QMetaObject::invokeMethod(w, "setActiveDevice", Q_ARG(DeviceSettings, settings));

    // Everything read, as the simulated receiver holds it: its pilot chose PPM and 14 ms frames.
    const auto complete = [&] {
        return !loaded.isEmpty() &&
               loaded.last().at(0).value<DevParamVector>().size() == settings.params.size() &&
               DeviceSettings{0, loaded.last().at(0).value<DevParamVector>()}.loadedPercent() == 100;
    };
    QVERIFY(waitFor(complete, 10000));
    DevParamVector v = loaded.last().at(0).value<DevParamVector>();
    QCOMPARE(quint32(valueAt(v, 0x10)), BusSimulator::kReceiverId);
    QCOMPARE(valueAt(v, 0x14), 0x0203);
    QCOMPARE(valueAt(v, 0x18), 1);
    QCOMPARE(valueAt(v, 0x19), 14);
    QCOMPARE(valueAt(v, 0x21), 420);

    // A value outside its limits, or a read-only one, is refused and nothing goes on the bus.
    const int writesBefore = rig.sim.requestsSeen('T');
    DevParam bad = v.at(settings.indexOf(0x19));
    bad.value = 31;
    QMetaObject::invokeMethod(w, "LxBusDeviceWrite", Q_ARG(DevParamVector, DevParamVector{bad}));
    DevParam serial = v.at(settings.indexOf(0x10));
    serial.value = 5;
    QMetaObject::invokeMethod(w, "LxBusDeviceWrite", Q_ARG(DevParamVector, DevParamVector{serial}));
    QVERIFY(waitFor([&] { return errors.count() == 2; }, 5000));
    QVERIFY(errors.at(0).at(0).toString().contains(QLatin1String("30")));
    QVERIFY(errors.at(1).at(0).toString().contains(QLatin1String("read-only")));

    // Two values written together land in the device and are read back.
    DevParam period = v.at(settings.indexOf(0x19));
    period.value = 25;
    DevParam alarm = v.at(settings.indexOf(0x21));
    alarm.value = 700;
    QMetaObject::invokeMethod(w, "LxBusDeviceWrite", Q_ARG(DevParamVector, (DevParamVector{period, alarm})));
    QVERIFY(waitFor([&] { return written.count() == 1; }, 10000));
    const DevParamVector done = written.at(0).at(0).value<DevParamVector>();
    QCOMPARE(done.size(), 2);
    for (const DevParam &p : done)
        QVERIFY2(p.confirmed && p.value == p.sent, qPrintable(QString::number(p.address)));
    const QByteArray regs = rig.sim.registers(BusSimulator::kReceiverId);
    QCOMPARE(int(quint8(regs.at(9))), 25);
    QCOMPARE(int(quint8(regs.at(17)) | (quint8(regs.at(18)) << 8)), 700);
    QCOMPARE(rig.sim.requestsSeen('T') > writesBefore, true);
    QCOMPARE(errors.count(), 2);

    // The factory reset (a command the user confirms first) is confirmed by its address and restores 20 ms.
    bool queued = false;
    QMetaObject::invokeMethod(
        w, [&] { queued = w->LxBusDeviceExecCommand(0xF001, 0, 2, 1); }, Qt::BlockingQueuedConnection);
    QVERIFY(queued);
    QVERIFY(waitFor([&] { return !confirmed.isEmpty(); }, 5000));
    QCOMPARE(confirmed.at(0).at(0).toUInt(), 0xF001u);
    QCOMPARE(rig.sim.commandsRun().size(), 1);
    QCOMPARE(rig.sim.commandsRun().at(0).command, 1);
    const int before = loaded.count();
    QMetaObject::invokeMethod(w, "LxBusDeviceRead");
    QVERIFY(waitFor([&] { return loaded.count() > before && complete(); }, 10000));
    v = loaded.last().at(0).value<DevParamVector>();
    QCOMPARE(valueAt(v, 0x19), 20);
    QCOMPARE(valueAt(v, 0x18), 0);
}

void tst_DeviceParameterEngine::deviceFallsSilentMidRead()
{
    Rig rig;
    QVERIFY(rig.ok);
    rig.sim.addLargeDevice();
    SerialPortWrapper *w = rig.link.wrapper();
    QVERIFY(waitFor(
        [&] {
            for (const Device &d : w->devices())
                if (d.identifier == BusSimulator::kLargeId)
                    return true;
            return false;
        },
        20000));
    QSignalSpy loaded(w, &SerialPortWrapper::LxBusValuesLoaded);
    QSignalSpy errors(w, &SerialPortWrapper::LxBusError);
    DeviceSettings s;
    s.deviceId = BusSimulator::kLargeId;
    for (int i = 0; i < 256; ++i)
        s.params.append(param(quint16(BusSimulator::kRegisterBase + i), 1));
    rig.sim.setReadsBeforeSilence(3);
    QMetaObject::invokeMethod(w, "setActiveDevice", Q_ARG(DeviceSettings, s));
    QVERIFY(waitFor([&] { return !errors.isEmpty(); }, 15000));
    QCOMPARE(errors.at(0).at(0).toString(), QStringLiteral("LX Bus: Error reading device"));
    // What arrived before the silence is kept; the rest is known to be missing.
    const DevParamVector v = loaded.last().at(0).value<DevParamVector>();
    const auto got = std::count_if(v.begin(), v.end(), [](const DevParam &p) { return p.loaded; });
    QCOMPARE(int(got), 3 * 20);
    QCOMPARE(v.at(59).value, 59);
}

QTEST_GUILESS_MAIN(tst_DeviceParameterEngine)
#include "tst_DeviceParameterEngine.moc"
