// Firmware update over the pseudo-terminal against the simulated devices' boot loader.
#include "link/LinkMetaTypes.h"
#include "tests/support/LinkRig.h"
#include "tools/DeviceUpdater.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QByteArray kHeader = QByteArray::fromHex("564558304657000102030405060708aa");

// An image built here, byte by byte, beside the packets it must program.
struct Built
{
    QByteArray bytes;
    QVector<QByteArray> packets;
};

Built build(const QVector<int> &payloads)
{
    Built b;
    b.bytes = kHeader;
    quint32 seed = 7; // unsigned: the generator wraps
    for (int length : payloads) {
        QByteArray p;
        p.append(char(0x80 | (length >> 8))); // never 0: a first byte of 0 ends the chain
        p.append(char(length & 0xFF));
        for (int i = 0; i < length; ++i) {
            seed = seed * 1103515245 + 12345;
            p.append(char(seed >> 16));
        }
        b.packets << p;
        b.bytes += p;
    }
    b.bytes.append('\0');
    return b;
}

struct Run
{
    int result = -1;
    QVector<UpdatingStatus> statuses;
    QVector<int> percents;

    bool saw(const QString &text) const
    {
        for (const UpdatingStatus &s : statuses) {
            if (s.text == text)
                return true;
        }
        return false;
    }
};

DeviceUpdater::Options quickOptions(quint32 target, quint16 version)
{
    DeviceUpdater::Options o;
    o.target = target;
    o.newVersion = version;
    o.connectAttempts = 4; // a stalled boot loader is given up sooner than the pilot's 29 tries
    return o;
}

Run update(Rig &rig, const QByteArray &bytes, const DeviceUpdater::Options &options)
{
    Run run;
    FirmwareImage image;
    QString error;
    if (!FirmwareImage::parse(bytes, &image, &error)) {
        qWarning() << error;
        return run;
    }
    DeviceUpdater updater(rig.link.wrapper());
    updater.setOptions(options);
    QObject::connect(&updater, &DeviceUpdater::updatingStatusChanged,
                     [&](const UpdatingStatus &s) { run.statuses << s; });
    QObject::connect(&updater, &DeviceUpdater::percentageChanged, [&](int p) { run.percents << p; });
    QObject::connect(&updater, &DeviceUpdater::finished, [&](int r) { run.result = r; });
    if (updater.start(image))
        waitFor([&] { return run.result >= 0; }, 60000);
    return run;
}

// The link polls the bus again: master frames reach the devices once more.
bool backOnTheBus(Rig &rig)
{
    if (rig.link.wrapper()->mode() == SerialPortWrapper::UpdateReader)
        return false;
    const int before = rig.sim.masterFrames();
    const bool ok = waitFor([&] { return rig.sim.masterFrames() > before + 10; }, 5000);
    if (!ok)
        qWarning() << "not back on the bus:" << rig.sim.statusLine() << rig.link.wrapper()->lastError();
    return ok;
}
} // namespace

class tst_DeviceUpdater : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void programs_data();
    void programs();
    void fiveFailuresLeaveTheDeviceProgrammable();
    void unplugMidway();
    void damagedFileNeverSent();
    void deviceInfoLeavesFirmwareAlone();
    void cancelledMidway();
};

void tst_DeviceUpdater::programs_data()
{
    QTest::addColumn<QVector<int>>("payloads");
    QTest::addColumn<quint32>("target");
    QTest::addColumn<int>("fault");
    QTest::addColumn<int>("faultAt");
    QTest::addColumn<int>("faultCount");
    QTest::addColumn<int>("receptions"); // packets the device receives, repeats included
    QTest::addColumn<QVector<int>>("percents");

    const QVector<int> three{300, 0xF40, 5};
    QTest::newRow("in order, progress index*100/count")
        << three << BusSimulator::kGpsId << int(BusSimulator::NoFault) << 1 << 0 << 3
        << QVector<int>{0, 33, 66, 100};
    QTest::newRow("id 0: the device alone on the adapter")
        << QVector<int>{40} << 0u << int(BusSimulator::NoFault) << 1 << 0 << 1 << QVector<int>{0, 100};
    QTest::newRow("header and zero byte: nothing sent, finishes at 100")
        << QVector<int>{} << BusSimulator::kVarioId << int(BusSimulator::NoFault) << 1 << 0 << 0
        << QVector<int>{0, 100};
    QTest::newRow("dropped acknowledgement sent again")
        << three << BusSimulator::kGpsId << int(BusSimulator::DropAck) << 2 << 1 << 4
        << QVector<int>{0, 33, 66, 100};
    QTest::newRow("corrupt acknowledgements sent again")
        << three << BusSimulator::kPowerId << int(BusSimulator::CorruptAck) << 3 << 2 << 5
        << QVector<int>{0, 33, 66, 100};
    // Five lost in a row: programming starts over from the wake, and the second round gets through.
    QTest::newRow("five failures, second round")
        << three << BusSimulator::kGpsId << int(BusSimulator::DropAck) << 2 << 5 << 1 + 5 + 3
        << QVector<int>{0, 33, 0, 33, 66, 100};
}

void tst_DeviceUpdater::programs()
{
    QFETCH(QVector<int>, payloads);
    QFETCH(quint32, target);
    QFETCH(int, fault);
    QFETCH(int, faultAt);
    QFETCH(int, faultCount);
    QFETCH(int, receptions);
    QFETCH(QVector<int>, percents);

    Rig rig;
    QVERIFY(rig.ok);
    rig.sim.setBootFault(BusSimulator::BootFault(fault), faultAt, faultCount);
    const Built image = build(payloads);
    const quint32 device = target ? target : rig.sim.units().first().identifier;
    const BusSimulator::Unit *u = rig.sim.unit(device);
    const QString before = QStringLiteral("%1.%2").arg(u->extra1).arg(u->extra2);
    const Run run = update(rig, image.bytes, quickOptions(target, 0x0207));

    QCOMPARE(run.result, int(DeviceUpdater::Succeeded));
    QCOMPARE(rig.sim.flashedDevice(), device);
    QCOMPARE(rig.sim.flashedPackets(), image.packets);
    QCOMPARE(rig.sim.flashedImage(), image.bytes);
    QCOMPARE(rig.sim.packetsReceived(), receptions);
    QCOMPARE(run.percents, percents);
    QVERIFY(run.saw(QStringLiteral("Update finished")));
    QCOMPARE(run.saw(QStringLiteral("Error while programming the device. Retrying.")), faultCount >= 5);
    QCOMPARE(run.statuses.last().stage, UpdatingStatus::Finished);
    // The connected line names the device as it was before: id halves, firmware, hardware, boot loader.
    QVERIFY2(run.saw(QStringLiteral("Connected: ID = [%1:%2], Firmware ver.: <b>%3</b> <i>(HW=%4, BL=3)</i>")
                         .arg(QString::number(device >> 16, 16).rightJustified(4, '0').toUpper(),
                              QString::number(device & 0xFFFF, 16).rightJustified(4, '0').toUpper(), before)
                         .arg(rig.sim.unit(device)->hardware)),
             qPrintable(before));
    // The new firmware runs: the device reports its version on the bus again.
    QCOMPARE(int(u->extra1), 2);
    QCOMPARE(int(u->extra2), 7);
    QVERIFY(!rig.sim.inBootLoader(device));
    QVERIFY(backOnTheBus(rig));
    QVERIFY(waitFor(
        [&] {
            for (const Device &d : rig.link.wrapper()->devices()) {
                if (d.identifier == device)
                    return d.firmwareMajor() == 2 && d.firmwareMinor() == 7;
            }
            return false;
        },
        20000));
}

void tst_DeviceUpdater::fiveFailuresLeaveTheDeviceProgrammable()
{
    Rig rig;
    QVERIFY(rig.ok);
    const Built image = build({200, 200, 200});
    // The boot loader hangs at the second packet: five tries, a new round, no answer to the wake.
    rig.sim.setBootFault(BusSimulator::Stall, 2);
    const Run failed = update(rig, image.bytes, quickOptions(BusSimulator::kGpsId, 0x0300));
    QCOMPARE(failed.result, int(DeviceUpdater::ConnectFailed));
    QCOMPARE(rig.sim.packetsReceived(), 1 + 5);
    QVERIFY(failed.saw(QStringLiteral("Error while programming the device. Retrying.")));
    QCOMPARE(failed.statuses.last().text, QStringLiteral("Please reconnect your device to the USB Adapter."));
    QVERIFY(backOnTheBus(rig));
    QVERIFY(rig.sim.inBootLoader(BusSimulator::kGpsId));
    QCOMPARE(rig.sim.flashedDevice(), 0u);

    rig.sim.setBootFault(BusSimulator::NoFault);
    const Run again = update(rig, image.bytes, quickOptions(BusSimulator::kGpsId, 0x0300));
    QCOMPARE(again.result, int(DeviceUpdater::Succeeded));
    QCOMPARE(rig.sim.flashedPackets(), image.packets);
}

void tst_DeviceUpdater::unplugMidway()
{
    Rig rig;
    QVERIFY(rig.ok);
    const Built image = build({100, 100, 100, 100});
    rig.sim.setBootFault(BusSimulator::Unplug, 3);
    const Run cut = update(rig, image.bytes, quickOptions(BusSimulator::kPowerId, 0x0105));
    QCOMPARE(cut.result, int(DeviceUpdater::PortClosed));
    QCOMPARE(cut.statuses.last().text, QStringLiteral("Please reconnect your device to the USB Adapter."));
    QVERIFY(rig.link.wrapper()->mode() != SerialPortWrapper::UpdateReader);
    QVERIFY(rig.sim.inBootLoader(BusSimulator::kPowerId));

    // Plugged in again, the device waits in its boot loader and takes the whole image.
    QVERIFY(rig.sim.start());
    const QString path = rig.sim.portPath();
    int opened = -1;
    QMetaObject::invokeMethod(
        rig.link.wrapper(), [&] { opened = rig.link.wrapper()->setSerialPort(path); },
        Qt::BlockingQueuedConnection);
    QCOMPARE(opened, 0);
    const Run again = update(rig, image.bytes, quickOptions(BusSimulator::kPowerId, 0x0105));
    QCOMPARE(again.result, int(DeviceUpdater::Succeeded));
    QCOMPARE(rig.sim.flashedImage(), image.bytes);
}

void tst_DeviceUpdater::damagedFileNeverSent()
{
    Rig rig;
    QVERIFY(rig.ok);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("broken.bin"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(build({300}).bytes.left(200)); // the chain runs past the end
    file.close();
    DeviceUpdater updater(rig.link.wrapper());
    QSignalSpy finished(&updater, &DeviceUpdater::finished);
    updater.requestDeviceUpdate(path);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(finished.first().first().toInt(), int(DeviceUpdater::BadImage));
    updater.requestDeviceUpdate(dir.filePath(QStringLiteral("missing.bin")));
    QCOMPARE(updater.lastStatus().text, QStringLiteral("Unable to open the update file."));
    waitFor([] { return false; }, 300);
    QCOMPARE(rig.sim.wakesSeen(), 0);
}

void tst_DeviceUpdater::deviceInfoLeavesFirmwareAlone()
{
    Rig rig;
    QVERIFY(rig.ok);
    DeviceUpdater updater(rig.link.wrapper());
    updater.setOptions(quickOptions(BusSimulator::kTemperatureId, 0));
    QSignalSpy info(&updater, &DeviceUpdater::detectedUpdateInfo);
    QSignalSpy finished(&updater, &DeviceUpdater::finished);
    updater.requestUpdateInfo();
    QVERIFY(waitFor([&] { return finished.count() == 1; }, 10000));
    QCOMPARE(finished.first().first().toInt(), int(DeviceUpdater::Succeeded));
    // Temperature sensor: 0x0050A405, hardware 0x0140, firmware 2.0.
    QCOMPARE(info.count(), 1);
    QCOMPARE(info.first().first().toString(),
             QStringLiteral("Connected: ID = [0050:A405], Firmware ver.: <b>2.0</b> <i>(HW=320, BL=3)</i>"));
    QCOMPARE(updater.deviceInfo().name, QStringLiteral("Temp Sensor"));
    QVERIFY(!rig.sim.inBootLoader(BusSimulator::kTemperatureId));
    QCOMPARE(rig.sim.flashedDevice(), 0u);
    QVERIFY(backOnTheBus(rig));
}

void tst_DeviceUpdater::cancelledMidway()
{
    Rig rig;
    QVERIFY(rig.ok);
    rig.sim.setLineBaud(125000); // slow enough to be caught in the middle
    FirmwareImage image;
    QVERIFY(FirmwareImage::parse(build(QVector<int>(20, 0xF40)).bytes, &image, nullptr));
    auto *updater = new DeviceUpdater(rig.link.wrapper());
    updater->setOptions(quickOptions(BusSimulator::kGpsId, 0x0300));
    QVERIFY(updater->start(image));
    QVERIFY(!updater->start(image)); // one run at a time
    QVERIFY(waitFor([&] { return rig.sim.packetsReceived() >= 2; }, 10000));
    // Closing the dialog mid-way: the run stops at its next step and the link is given back.
    delete updater;
    QVERIFY(backOnTheBus(rig));
    QVERIFY(rig.sim.packetsReceived() < 20);
    QVERIFY(rig.sim.inBootLoader(BusSimulator::kGpsId));
}

QTEST_GUILESS_MAIN(tst_DeviceUpdater)
#include "tst_DeviceUpdater.moc"
