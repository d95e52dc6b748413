#include "link/LinkMetaTypes.h"
#include "link/LxCrc.h"
#include "link/SerialPlatform.h"
#include "link/SerialPortWrapper.h"

#include <QSignalSpy>

#include <QTemporaryDir>
#include <QtTest>
#include <SDL.h>

#include <fcntl.h>
#include <stdlib.h>
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

void runTicks(SerialPortWrapper &w, ManualLinkClock &clock, int ms, int step = 1)
{
    for (int t = 0; t < ms; t += step) {
        clock.advance(step);
        w.tick();
    }
}
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
    void errorRule();
    void unplugReportedOnce();
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
    ManualLinkClock clock;
    SerialPortWrapper w(&clock);
    w.setTimerEnabled(false);
    w.start();
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
    ManualLinkClock clock;
    SerialPortWrapper w(&clock);
    w.setTimerEnabled(false);
    w.start();
    QCOMPARE(w.setSerialPort(pty.path), 0);
    // 100 ms of ticks at 125000 baud: a 12-byte frame takes about 1 ms on the line, a frame with a
    // request waits for its answer window, so far fewer than 100 frames go out, and all check.
    runTicks(w, clock, 100);
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
    ManualLinkClock clock;
    SerialPortWrapper w(&clock);
    w.setTimerEnabled(false);
    w.start();
    QCOMPARE(w.setSerialPort(pty.path), 0);
    QCOMPARE(w.mode(), 0);
    QList<int> modes;
    for (int t = 0; t < 9000; t += 10) {
        clock.advance(10);
        w.tick();
        if (modes.isEmpty() || modes.last() != w.mode())
            modes << w.mode();
        pty.readAll();
    }
    // Silent for 3 s at 125000, then 250000 for 1.5 s, 38400 for 3 s, and back.
    QCOMPARE(modes, QList<int>({0, 2, 3, 0}));
}

void tst_SerialPortWrapper::errorRule()
{
    Pty pty;
    ManualLinkClock clock;
    SerialPortWrapper w(&clock);
    w.setTimerEnabled(false);
    w.start();
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

void tst_SerialPortWrapper::unplugReportedOnce()
{
    Pty pty;
    SerialPortWrapper w;
    w.setTimerEnabled(false);
    w.start();
    QCOMPARE(w.setSerialPort(pty.path), 0);
    QSignalSpy status(&w, &SerialPortWrapper::portOpenedStatus);
    QSignalSpy errors(&w, &SerialPortWrapper::error);
    pty.close();
    QTRY_VERIFY_WITH_TIMEOUT(!w.isPortOpen() || (w.tick(), false), 5000);
    for (int i = 0; i < 20; ++i) {
        w.tick();
        QCoreApplication::processEvents();
    }
    QCOMPARE(status.count(), 1);
    QCOMPARE(status.at(0).at(0).toBool(), false);
    QVERIFY(errors.count() >= 1);
    QVERIFY(!w.lastError().isEmpty());
}

void tst_SerialPortWrapper::progressAndReload()
{
    ManualLinkClock clock;
    SerialPortWrapper w(&clock);
    w.setTimerEnabled(false);
    w.start();
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
    ManualLinkClock clock;
    SerialPortWrapper w(&clock);
    w.setTimerEnabled(false);
    w.start();
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
    runTicks(w, clock, 5);
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
    runTicks(w, clock, 40);
    out.clear();
    QTRY_VERIFY((out += pty.readAll()).size() >= 12);
    QVERIFY(out.contains(QByteArray::fromHex("0c0031")));
    QVERIFY(!out.contains(QByteArray::fromHex("003110")));
    SDL_JoystickClose(stick);
    SDL_JoystickDetachVirtual(index);
}

QTEST_GUILESS_MAIN(tst_SerialPortWrapper)
#include "tst_SerialPortWrapper.moc"
