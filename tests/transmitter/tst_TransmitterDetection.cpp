#include "link/LinkClock.h"
#include "link/SerialPortWrapper.h"
#include "transmitter/DriveEnumerator.h"
#include "transmitter/TransmitterConfig.h"
#include "transmitter/TransmitterDetector.h"
#include "transmitter/TransmitterModels.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

bool writeFile(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

// A config of exactly `size` bytes (padding in a key nobody reads).
QByteArray configOfSize(int size)
{
    const QByteArray head = R"({"hw":674,"version":"4.22","pad":")";
    const QByteArray tail = R"("})";
    return head + QByteArray(size - head.size() - tail.size(), 'x') + tail;
}

// A block-device folder laid out as Linux shows it: links by name to the device folders, the partition
// below its disk, "removable" at the disk, USB devices below a "usbN" bus folder. sda is a fixed SATA
// disk, sdb a USB disk calling itself fixed, mmcblk0 a card reader, sr0 a removable disk without
// partitions.
bool makeBlockDevices(const QString &root)
{
    struct Disk
    {
        const char *path;
        const char *removable;
        const char *partition;
    };
    const Disk disks[] = {
        {"devices/pci0/ata1/host0/block/sda", "0", "sda1"},
        {"devices/pci0/usb2/2-1/2-1:1.0/host6/block/sdb", "0", "sdb1"},
        {"devices/pci0/mmc0/mmc0:0001/block/mmcblk0", "1", "mmcblk0p1"},
        {"devices/pci0/ata2/host1/block/sr0", "1", nullptr},
    };
    const QString links = root + QLatin1String("/class/block/");
    QDir().mkpath(links);
    for (const Disk &d : disks) {
        const QString disk = root + QLatin1Char('/') + QLatin1String(d.path);
        if (!writeFile(disk + QLatin1String("/removable"), QByteArray(d.removable) + '\n'))
            return false;
        QString device = disk;
        if (d.partition) {
            device = disk + QLatin1Char('/') + QLatin1String(d.partition);
            if (!writeFile(device + QLatin1String("/partition"), "1\n"))
                return false;
        }
        if (!QFile::link(device, links + QFileInfo(device).fileName()))
            return false;
    }
    return true;
}

class FakeEnumerator : public DriveEnumerator
{
public:
    QStringList roots;
    QStringList removableRoots() override { return roots; }
};

// A wrapper whose ticks the test gives one by one.
struct SteppedWrapper
{
    ManualLinkClock clock;
    SerialPortWrapper w{&clock};
    SteppedWrapper()
    {
        w.setTimerEnabled(false);
        w.start();
    }
    void ticks(int n)
    {
        for (int i = 0; i < n; ++i) {
            clock.advance(1);
            w.tick();
        }
    }
};

} // namespace

class tst_TransmitterDetection : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { qunsetenv("VEXO_TX_ROOTS"); }
    void configFile_data();
    void configFile();
    void modelTable_data();
    void modelTable();
    void removableVolumes_data();
    void removableVolumes();
    void fixedDiskWithConfigIgnored();
    void plainFolderIsNoDrive();
    void plugAndPullAtScanTicks_data();
    void plugAndPullAtScanTicks();
};

void tst_TransmitterDetection::configFile_data()
{
    QTest::addColumn<QByteArray>("content");
    // "file", "lower" (spelled config/config.jsn, as FAT finds it too), "folder" (a folder named
    // Config.jsn) or "none"
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("hw");
    QTest::addColumn<int>("major");
    QTest::addColumn<int>("minor");
    QTest::addColumn<QString>("model");

    const QString file = QStringLiteral("file");
    QTest::newRow("version 4.22") << QByteArray(R"({"hw": 675, "version": "4.22"})") << file << true << 675
                                  << 4 << 22 << "Vexo HS-6";
    QTest::newRow("hw kept as 16 bits")
        << QByteArray(R"({"version": "4.22", "hw": 66211})") << file << true << 675 << 4 << 22 << "Vexo HS-6";
    QTest::newRow("unknown hw 680") << QByteArray(R"({"hw": 680, "version": "5.1"})") << file << true << 680
                                    << 5 << 1 << "Unknown Transmitter";
    QTest::newRow("spelled in lower case") << QByteArray(R"({"hw": 678, "version": "4.22"})") << "lower"
                                           << true << 678 << 4 << 22 << "Vexo HC-8";
    QTest::newRow("hw missing") << QByteArray(R"({"version": "4.22"})") << file << false << 0 << 0 << 0 << "";
    QTest::newRow("hw far too large")
        << QByteArray(R"({"hw": 1e300, "version": "4.22"})") << file << false << 0 << 0 << 0 << "";
    QTest::newRow("damaged JSON") << QByteArray(R"({"hw": 675, "version": "4.2)") << file << false << 0 << 0
                                  << 0 << "";
    QTest::newRow("not an object") << QByteArray("[675]") << file << false << 0 << 0 << 0 << "";
    QTest::newRow("largest size allowed") << configOfSize(int(TransmitterConfig::kMaxConfigSize)) << file
                                          << true << 674 << 4 << 22 << "Vexo HC-6";
    QTest::newRow("one byte too large")
        << configOfSize(int(TransmitterConfig::kMaxConfigSize) + 1) << file << false << 0 << 0 << 0 << "";
    QTest::newRow("folder named Config.jsn") << QByteArray() << "folder" << false << 0 << 0 << 0 << "";
    QTest::newRow("no config") << QByteArray() << "none" << false << 0 << 0 << 0 << "";
}

void tst_TransmitterDetection::configFile()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, kind);
    QFETCH(bool, ok);
    QTemporaryDir drive;
    QVERIFY(drive.isValid());
    const QString config = drive.filePath(QStringLiteral("Config/Config.jsn"));
    if (kind == QLatin1String("file"))
        QVERIFY(writeFile(config, content));
    else if (kind == QLatin1String("lower"))
        QVERIFY(writeFile(drive.filePath(QStringLiteral("config/config.jsn")), content));
    else if (kind == QLatin1String("folder"))
        QVERIFY(QDir().mkpath(config));

    TransmitterInfo info;
    QString error;
    // The root as an enumeration may give it, with a trailing separator.
    QCOMPARE(TransmitterConfig::read(drive.path() + QLatin1Char('/'), &info, &error), ok);
    QCOMPARE(error.isEmpty(), ok);
    if (!ok)
        return;
    QTEST(int(info.hwId), "hw");
    QTEST(info.versionMajor, "major");
    QTEST(info.versionMinor, "minor");
    QTEST(info.modelName, "model");
    QCOMPARE(info.rootPath, drive.path());
    QCOMPARE(info.driveLetter, '/');
}

void tst_TransmitterDetection::modelTable_data()
{
    QTest::addColumn<int>("hw");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("image");
    QTest::newRow("674") << 674 << "Vexo HC-6"
                         << "HC6.BIN";
    QTest::newRow("675") << 675 << "Vexo HS-6"
                         << "HC6.BIN";
    QTest::newRow("676") << 676 << "Vexo HS-4"
                         << "HS4.BIN";
    QTest::newRow("677") << 677 << "Vexo HC-4"
                         << "HS4.BIN";
    QTest::newRow("678") << 678 << "Vexo HC-8"
                         << "HC8.BIN";
    QTest::newRow("679") << 679 << "Vexo HS-8"
                         << "HC8.BIN";
    QTest::newRow("680") << 680 << "Unknown Transmitter"
                         << "";
    QTest::newRow("673") << 673 << "Unknown Transmitter"
                         << "";
}

void tst_TransmitterDetection::modelTable()
{
    QFETCH(int, hw);
    QTEST(TransmitterModels::modelName(quint16(hw)), "name");
    QTEST(TransmitterModels::firmwareImage(quint16(hw)), "image");
}

void tst_TransmitterDetection::removableVolumes_data()
{
    QTest::addColumn<QByteArray>("mounts");
    QTest::addColumn<QStringList>("roots");
    QTest::newRow("fixed SATA disk") << QByteArray("/dev/sda1 / ext4 rw,relatime 0 0\n") << QStringList();
    QTest::newRow("USB disk that says fixed")
        << QByteArray("/dev/sdb1 /media/pilot/TX vfat rw 0 0\n") << QStringList{"/media/pilot/TX"};
    QTest::newRow("removable card, partition")
        << QByteArray("/dev/mmcblk0p1 /media/card vfat rw 0 0\n") << QStringList{"/media/card"};
    QTest::newRow("removable whole disk")
        << QByteArray("/dev/sr0 /mnt/disc/ iso9660 ro 0 0\n") << QStringList{"/mnt/disc"};
    QTest::newRow("escaped blank in mount point")
        << QByteArray("/dev/sdb1 /media/pilot/MY\\040TX vfat rw 0 0\n") << QStringList{"/media/pilot/MY TX"};
    QTest::newRow("no block device") << QByteArray("tmpfs /run tmpfs rw 0 0\nhost:/srv /net nfs rw 0 0\n"
                                                   "proc /proc proc rw 0 0\n")
                                     << QStringList();
    QTest::newRow("device unknown to the system")
        << QByteArray("/dev/sdz1 /mnt/z vfat rw 0 0\n") << QStringList();
    QTest::newRow("mixed, in table order")
        << QByteArray("/dev/sda1 / ext4 rw 0 0\n/dev/mmcblk0p1 /media/card vfat rw 0 0\n"
                      "tmpfs /tmp tmpfs rw 0 0\n/dev/sdb1 /media/pilot/TX vfat rw 0 0")
        << QStringList{"/media/card", "/media/pilot/TX"};
}

void tst_TransmitterDetection::removableVolumes()
{
    QFETCH(QByteArray, mounts);
    QFETCH(QStringList, roots);
    QTemporaryDir sys;
    QVERIFY(sys.isValid());
    QVERIFY(makeBlockDevices(sys.path()));
    const QString table = sys.filePath(QStringLiteral("mounts"));
    QVERIFY(writeFile(table, mounts));

    SystemDriveEnumerator enumerator(table, sys.filePath(QStringLiteral("class/block")));
    QCOMPARE(enumerator.removableRoots(), roots);
    // Everything unmounted: nothing kept from the table before.
    QVERIFY(writeFile(table, "/dev/sda1 / ext4 rw 0 0\n"));
    QCOMPARE(enumerator.removableRoots(), QStringList());
}

void tst_TransmitterDetection::fixedDiskWithConfigIgnored()
{
    QTemporaryDir sys, fixed, usb;
    QVERIFY(makeBlockDevices(sys.path()));
    for (QTemporaryDir *d : {&fixed, &usb})
        QVERIFY(
            writeFile(d->filePath(QStringLiteral("Config/Config.jsn")), R"({"hw": 679, "version": "4.22"})"));
    const QString table = sys.filePath(QStringLiteral("mounts"));
    QVERIFY(writeFile(table,
                      QFile::encodeName(QStringLiteral("/dev/sda1 %1 ext4 rw 0 0\n/dev/sdb1 %2 vfat rw 0 0\n")
                                            .arg(fixed.path(), usb.path()))));
    TransmitterDetector detector(
        std::make_unique<SystemDriveEnumerator>(table, sys.filePath(QStringLiteral("class/block"))));
    const TransmitterChanges changes = detector.scan();
    QCOMPARE(changes.added.size(), 1);
    QCOMPARE(changes.added.first().rootPath, usb.path());
}

// A folder holding a transmitter's files is a drive only when named as one.
void tst_TransmitterDetection::plainFolderIsNoDrive()
{
    QTemporaryDir a, b, c;
    for (QTemporaryDir *d : {&a, &b, &c})
        QVERIFY(
            writeFile(d->filePath(QStringLiteral("Config/Config.jsn")), R"({"hw": 678, "version": "4.22"})"));
    {
        auto system = std::make_unique<SystemDriveEnumerator>();
        SystemDriveEnumerator *enumerator = system.get();
        TransmitterDetector detector(std::move(system));
        QCOMPARE(detector.scan().added.size(), 0);
        enumerator->addRoot(c.path());
        const TransmitterChanges changes = detector.scan();
        QCOMPARE(changes.added.size(), 1);
        QCOMPARE(changes.added.first().rootPath, c.path());
        QCOMPARE(changes.added.first().modelName, QStringLiteral("Vexo HC-8"));
    }
    const QString missing = a.path() + QLatin1String("/gone");
    qputenv("VEXO_TX_ROOTS",
            QFile::encodeName(a.path() + QLatin1Char(':') + missing + QLatin1Char(':') + b.path()));
    SystemDriveEnumerator fromEnvironment;
    qunsetenv("VEXO_TX_ROOTS");
    const QStringList roots = fromEnvironment.removableRoots();
    QVERIFY(roots.contains(a.path()));
    QVERIFY(roots.contains(b.path()));
    QVERIFY(!roots.contains(c.path()));
    QVERIFY(!roots.contains(missing));
}

void tst_TransmitterDetection::plugAndPullAtScanTicks_data()
{
    QTest::addColumn<int>("ticksBeforePull"); // after the scan that found the transmitter
    QTest::newRow("right after a scan") << 1;
    QTest::newRow("between scans") << 12;
    QTest::newRow("just before a scan") << 24;
}

// Through the wrapper's registry, as the studio runs it: changes appear at the 25th tick, each once.
void tst_TransmitterDetection::plugAndPullAtScanTicks()
{
    QFETCH(int, ticksBeforePull);
    QTemporaryDir tx, stick, damaged;
    QVERIFY(writeFile(tx.filePath(QStringLiteral("Config/Config.jsn")), R"({"hw": 677, "version": "4.22"})"));
    QVERIFY(writeFile(stick.filePath(QStringLiteral("Photos/a.jpg")), "x"));
    QVERIFY(writeFile(damaged.filePath(QStringLiteral("Config/Config.jsn")), R"({"hw": 6)"));

    SteppedWrapper s;
    auto fake = std::make_unique<FakeEnumerator>();
    FakeEnumerator *drives = fake.get();
    drives->roots = QStringList{stick.path(), tx.path(), damaged.path()};
    TransmitterDetector::install(&s.w, std::move(fake));
    QSignalSpy added(&s.w, &SerialPortWrapper::transmitterAdded);
    QSignalSpy removed(&s.w, &SerialPortWrapper::transmitterRemoved);

    s.ticks(24);
    QCOMPARE(added.count(), 0);
    s.ticks(1);
    QCOMPARE(added.count(), 1);
    const TransmitterInfo info = added.at(0).at(0).value<TransmitterInfo>();
    QCOMPARE(info.rootPath, tx.path());
    QCOMPARE(info.hwId, quint16(677));
    QCOMPARE(info.modelName, QStringLiteral("Vexo HC-4"));
    QCOMPARE(s.w.transmitters(), TransmitterInfoVector{info});

    s.ticks(ticksBeforePull);
    drives->roots.removeOne(tx.path());
    s.ticks(25 - ticksBeforePull - 1);
    QCOMPARE(removed.count(), 0);
    s.ticks(1);
    QCOMPARE(removed.count(), 1);
    QCOMPARE(removed.at(0).at(0).toString(), tx.path());
    QVERIFY(s.w.transmitters().isEmpty());

    // Plugged in again: announced anew, once.
    s.ticks(50);
    drives->roots << tx.path();
    s.ticks(75);
    QCOMPARE(added.count(), 2);
    QCOMPARE(removed.count(), 1);
    QCOMPARE(s.w.transmitters().size(), 1);
}

QTEST_MAIN(tst_TransmitterDetection)
#include "tst_TransmitterDetection.moc"
