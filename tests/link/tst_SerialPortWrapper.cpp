#include "link/LinkMetaTypes.h"
#include "link/LxCrc.h"
#include "link/SerialPlatform.h"
#include "link/SerialPortWrapper.h"

#include <QSignalSpy>

#include <QTemporaryDir>
#include <QtTest>
#include <SDL.h>

#include <asm/termbits.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {
// A bare pseudo-terminal: the test holds the master side, the wrapper opens the slave.
struct Pty
{
    int master = -1;
    QString path;
    Pty()
    {
        master = ::posix_openpt(O_RDWR | O_NOCTTY);
        if (master < 0 || ::grantpt(master) != 0 || ::unlockpt(master) != 0)
            return;
        ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
        path = QString::fromLocal8Bit(::ptsname(master));
    }
    ~Pty() { close(); }
    void close()
    {
        if (master >= 0)
            ::close(master);
        master = -1;
    }
    // The line speed the wrapper set on its side; Linux answers for the slave when asked at the master.
    int baud() const
    {
        struct termios2 t;
        return ::ioctl(master, TCGETS2, &t) == 0 ? int(t.c_ospeed) : -1;
    }
    QByteArray readAll()
    {
        QByteArray out;
        char buf[4096];
        for (;;) {
            const ssize_t n = ::read(master, buf, sizeof buf);
            if (n <= 0)
                break;
            out.append(buf, int(n));
        }
        return out;
    }
};

// A wrapper that moves only when told: a clock that stands still, and no timer.
struct Stepped
{
    ManualLinkClock clock;
    SerialPortWrapper w{&clock};
    Stepped()
    {
        w.setTimerEnabled(false);
        w.start();
    }
    void run(int ms)
    {
        for (int t = 0; t < ms; ++t) {
            clock.advance(1);
            w.tick();
        }
    }
};
} // namespace

class tst_SerialPortWrapper : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void openResults_data();
    void openResults();
    void portNames();
    void masterFramesPacedOnTheLine();
    void speedSearchCycle();
    void adapterSearch_data();
    void adapterSearch();
    void errorRule();
    void progressAndReload();
    void controllerAxesInTheMasterFrame();
};

void tst_SerialPortWrapper::openResults_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("result");
    QTest::addColumn<bool>("open");
    QTest::newRow("empty name closes") << QString() << 0 << false;
    QTest::newRow("missing device") << "/dev/does-not-exist-vexo" << 2 << false;
    QTest::newRow("pseudo-terminal by path") << "PTY" << 0 << true;
    QTest::newRow("link to a pseudo-terminal") << "LINK" << 0 << true;
}

void tst_SerialPortWrapper::openResults()
{
    QFETCH(QString, name);
    QFETCH(int, result);
    QFETCH(bool, open);
    Pty pty;
    QVERIFY(!pty.path.isEmpty());
    QTemporaryDir dir;
    const QString link = dir.filePath("vexo-adapter");
    QVERIFY(QFile::link(pty.path, link));
    name.replace("PTY", pty.path).replace("LINK", link);
    Stepped s;
    SerialPortWrapper &w = s.w;
    QSignalSpy status(&w, &SerialPortWrapper::portOpenedStatus);
    QSignalSpy errors(&w, &SerialPortWrapper::error);
    QCOMPARE(w.setSerialPort(name), result);
    QCOMPARE(w.isPortOpen(), open);
    QCOMPARE(status.count(), open ? 1 : 0);
    if (result == 2) {
        QCOMPARE(errors.count(), 1);
        QVERIFY(
            w.lastError().startsWith(QStringLiteral("Unable to open serial port /dev/does-not-exist-vexo")));
    }
    if (open) {
        // Reopening another name closes first; an empty name leaves it closed, announced once.
        QCOMPARE(w.setSerialPort(QString()), 0);
        QCOMPARE(status.count(), 2);
        QCOMPARE(status.last().at(0).toBool(), false);
    }
}

void tst_SerialPortWrapper::portNames()
{
    Pty pty;
    QVERIFY(SerialPlatform::portExists(pty.path));
    QVERIFY(!SerialPlatform::portExists(QStringLiteral("/dev/serial/by-id/none-such")));
    QVERIFY(!SerialPlatform::portExists(QString()));
    const QString hint = SerialPlatform::permissionHint(pty.path);
    QVERIFY(hint.contains(pty.path));
    QVERIFY(hint.contains(QStringLiteral("usermod")));
}

void tst_SerialPortWrapper::masterFramesPacedOnTheLine()
{
    Pty pty;
    Stepped s;
    SerialPortWrapper &w = s.w;
    QCOMPARE(w.setSerialPort(pty.path), 0);
    // 100 ms of ticks at 125000 baud: a 12-byte frame takes about 1 ms on the line, a frame with a
    // request waits for its answer window, so far fewer than 100 frames go out, and all check.
    s.run(100);
    QByteArray out;
    QTRY_VERIFY((out += pty.readAll()).size() > 0);
    int frames = 0;
    int pos = 0;
    while (pos + 3 <= out.size()) {
        const int len = quint8(out[pos + 2]);
        QVERIFY(out[pos] == char(0x3E) || out[pos] == char(0x3D));
        QVERIFY(pos + len <= out.size());
        QCOMPARE(LxCrc::compute(reinterpret_cast<const quint8 *>(out.constData() + pos), len), quint16(0));
        pos += len;
        ++frames;
    }
    QCOMPARE(pos, out.size());
    QVERIFY2(frames > 10 && frames < 100, qPrintable(QString::number(frames)));
}

void tst_SerialPortWrapper::speedSearchCycle()
{
    Pty pty;
    Stepped s;
    SerialPortWrapper &w = s.w;
    QCOMPARE(w.setSerialPort(pty.path), 0);
    QCOMPARE(pty.baud(), 125000);
    // (ms after opening, baud): a silent line is tried at the next speed once 3000 ms pass without a good
    // frame, 1500 ms at 250000; each wait counts from the change before.
    QList<QPair<int, int>> changes;
    int baud = pty.baud();
    for (int t = 1; t <= 9000; ++t) {
        s.run(1);
        if (pty.baud() != baud)
            changes << qMakePair(t, baud = pty.baud());
        pty.readAll();
    }
    QCOMPARE(changes, (QList<QPair<int, int>>{{3001, 250000}, {4502, 38400}, {7503, 125000}}));
}

void tst_SerialPortWrapper::adapterSearch_data()
{
    // Ports as the system lists them: "vendor:product" as they report it, "-" without USB identifiers,
    // "gone:" for an adapter that is listed but will not open.
    QTest::addColumn<QStringList>("ports");
    QTest::addColumn<int>("chosen"); // -1: none
    QTest::addColumn<bool>("openBefore");
    QTest::newRow("no adapter") << QStringList{"-", "0403:6015", "5840:0483"} << -1 << false;
    QTest::newRow("no adapter, open before") << QStringList{"-"} << -1 << true;
    QTest::newRow("first of two adapters") << QStringList{"-", "0483:5840", "0403:6001"} << 1 << false;
    QTest::newRow("the other kind") << QStringList{"0483:6001", "0403:6001"} << 1 << true;
    QTest::newRow("one that will not open is passed over")
        << QStringList{"gone:0403:6001", "0483:5840"} << 1 << false;
}

void tst_SerialPortWrapper::adapterSearch()
{
    QFETCH(QStringList, ports);
    QFETCH(int, chosen);
    QFETCH(bool, openBefore);
    std::vector<std::unique_ptr<Pty>> ptys;
    QList<SerialPlatform::PortInfo> listed;
    for (const QString &p : ports) {
        ptys.push_back(std::make_unique<Pty>());
        SerialPlatform::PortInfo info;
        info.location = p.startsWith("gone:") ? QStringLiteral("/dev/none-such-vexo") : ptys.back()->path;
        info.name = info.location;
        const QStringList ids = QString(p).remove("gone:").split(':');
        info.hasUsbIds = ids.size() == 2;
        info.vendor = quint16(ids.value(0).toUInt(nullptr, 16));
        info.product = quint16(ids.value(1).toUInt(nullptr, 16));
        listed << info;
    }
    Pty other;
    Stepped s;
    SerialPortWrapper &w = s.w;
    w.setPortLister([listed] { return listed; });
    if (openBefore)
        QCOMPARE(w.setSerialPort(other.path), 0);
    QSignalSpy status(&w, &SerialPortWrapper::portOpenedStatus);
    w.findDefaultSerialPort();
    QCOMPARE(w.isPortOpen(), chosen >= 0);
    // Announced only when the port's state changed.
    QCOMPARE(status.count(), openBefore == (chosen >= 0) ? 0 : 1);
    // The master frame goes out on the chosen port only, at 125000 baud.
    s.run(1);
    QTest::qWait(20);
    for (int i = 0; i < int(ptys.size()); ++i) {
        QCOMPARE(!ptys[i]->readAll().isEmpty(), i == chosen);
        if (i == chosen)
            QCOMPARE(ptys[i]->baud(), 125000);
    }
    QVERIFY(other.readAll().isEmpty()); // the port open before was closed first
}

void tst_SerialPortWrapper::errorRule()
{
    Pty pty;
    Stepped s;
    SerialPortWrapper &w = s.w;
    QCOMPARE(w.setSerialPort(pty.path), 0);
    QSignalSpy status(&w, &SerialPortWrapper::portOpenedStatus);
    QList<int> modeAt;
    for (int i = 1; i <= 409; ++i) {
        w.handleError(QSerialPort::ParityError);
        if (i % 50 == 0)
            modeAt << w.mode();
    }
    QVERIFY(w.isPortOpen());
    QCOMPARE(w.errorCount(), 409);
    // Every 50th error moves the search on.
    QCOMPARE(modeAt, QList<int>({2, 3, 0, 2, 3, 0, 2, 3}));
    w.handleError(QSerialPort::FramingError);
    QVERIFY(!w.isPortOpen());
    QCOMPARE(status.count(), 1);
    QVERIFY(w.lastError().startsWith(QStringLiteral("<b>Serial port error:</b><br>")));
    // Errors while closed are ignored.
    w.handleError(QSerialPort::ResourceError);
    QCOMPARE(status.count(), 1);
}

void tst_SerialPortWrapper::progressAndReload()
{
    Stepped s;
    SerialPortWrapper &w = s.w;
    QSignalSpy progress(&w, &SerialPortWrapper::percentageChanged);
    w.progress()->setValue(40);
    w.tick();
    w.tick();
    w.progress()->setValue(0);
    w.tick();
    QCOMPARE(progress.count(), 2);
    QCOMPARE(progress.at(0).at(0).toInt(), 40);
    w.progress()->requestReload();
    w.tick();
    QVERIFY(!w.progress()->takeReload());
}

void tst_SerialPortWrapper::controllerAxesInTheMasterFrame()
{
    qputenv("SDL_VIDEODRIVER", "dummy");
    Pty pty;
    Stepped s;
    SerialPortWrapper &w = s.w;
    QSignalSpy detected(&w, &SerialPortWrapper::detectedJoysticks);
    w.detectJoysticks(); // brings SDL's joystick subsystem up
    QCOMPARE(detected.count(), 1);
    SDL_VirtualJoystickDesc desc;
    SDL_zero(desc);
    desc.version = SDL_VIRTUAL_JOYSTICK_DESC_VERSION;
    desc.type = SDL_JOYSTICK_TYPE_GAMECONTROLLER;
    desc.naxes = 3;
    desc.name = "Vexo test sticks";
    const int index = SDL_JoystickAttachVirtualEx(&desc);
    QVERIFY2(index >= 0, SDL_GetError());
    SDL_Joystick *stick = SDL_JoystickOpen(index);
    QVERIFY(stick);
    char guid[33] = {};
    SDL_JoystickGetGUIDString(SDL_JoystickGetDeviceGUID(index), guid, sizeof guid);
    SDL_JoystickSetVirtualAxis(stick, 0, 32767);
    SDL_JoystickSetVirtualAxis(stick, 1, -32768);
    SDL_JoystickSetVirtualAxis(stick, 2, 8192);

    QCOMPARE(w.setSerialPort(pty.path), 0);
    QSignalSpy axes(&w, &SerialPortWrapper::joystickUpdated);
    w.setJoystick(QString::fromLatin1(guid));
    s.run(5);
    QVERIFY(axes.count() >= 1);
    QByteArray out;
    QTRY_VERIFY((out += pty.readAll()).size() >= 24);
    // The last channel frame (0x3E; requests may ride behind it) carries eight channels: the three axes,
    // then centred ones.
    QByteArray frame;
    for (int pos = 0; pos + 3 <= out.size(); pos += quint8(out[pos + 2])) {
        if (out[pos] == char(0x3E))
            frame = out.mid(pos, quint8(out[pos + 2]));
    }
    QVERIFY(frame.size() >= 24);
    QCOMPARE(int(quint8(frame[5])), 0x10);
    const auto channel = [&frame](int i) {
        return int(quint8(frame[6 + 2 * i]) | (quint8(frame[7 + 2 * i]) << 8));
    };
    QCOMPARE(channel(0), 16000);
    QCOMPARE(channel(1), 8000);
    QCOMPARE(channel(2), 13000);
    QCOMPARE(channel(7), 12000);
    // Deselecting goes back to the two-channel block.
    w.setJoystick(QString());
    QTest::qWait(20);
    pty.readAll();
    s.run(40);
    out.clear();
    QTRY_VERIFY((out += pty.readAll()).size() >= 12);
    QVERIFY(out.contains(QByteArray::fromHex("0c0031")));
    QVERIFY(!out.contains(QByteArray::fromHex("003110")));
    SDL_JoystickClose(stick);
    SDL_JoystickDetachVirtual(index);
}

QTEST_GUILESS_MAIN(tst_SerialPortWrapper)
#include "tst_SerialPortWrapper.moc"
