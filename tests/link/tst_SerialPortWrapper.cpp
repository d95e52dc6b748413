#include "link/LinkMetaTypes.h"
#include "link/LxCrc.h"
#include "link/SerialPlatform.h"
#include "link/SerialPortWrapper.h"

#include <QSignalSpy>

#include <QtTest>
#include <SDL.h>

#include <asm/termbits.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <thread>
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
    ~Pty()
    {
        if (master >= 0)
            ::close(master);
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
        for (ssize_t n; (n = ::read(master, buf, sizeof buf)) > 0;)
            out.append(buf, int(n));
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

// What the wrapper wrote, cut into frames; empty when any frame is cut short or does not check.
QList<QByteArray> readFrames(Pty &pty)
{
    QByteArray out;
    for (int i = 0; i < 500 && out.isEmpty(); ++i) {
        QTest::qWait(10);
        out = pty.readAll();
    }
    QList<QByteArray> frames;
    for (int pos = 0, len = 0; pos < out.size(); pos += len) {
        len = pos + 2 < out.size() ? quint8(out[pos + 2]) : 0;
        const QByteArray f = out.mid(pos, len);
        if (len < 8 || f.size() < len || LxCrc::compute(reinterpret_cast<const quint8 *>(f.constData()), len))
            return {};
        frames << f;
    }
    return frames;
}
} // namespace

class tst_SerialPortWrapper : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void openRunAndClose();
    void speedSearchCycleAndReload();
    void adapterSearch_data();
    void adapterSearch();
    void errorRule();
    void progressReportedOnce_data();
    void progressReportedOnce();
    void driveScanEveryTwentyFifthTick();
    void controllerAxesInTheMasterFrame();
};

void tst_SerialPortWrapper::openRunAndClose()
{
    Pty pty;
    Stepped s;
    SerialPortWrapper &w = s.w;
    QSignalSpy status(&w, &SerialPortWrapper::portOpenedStatus);
    QSignalSpy errors(&w, &SerialPortWrapper::error);
    QCOMPARE(w.setSerialPort(QStringLiteral("/dev/does-not-exist-vexo")), 2);
    QCOMPARE(errors.count(), 1);
    QVERIFY(w.lastError().startsWith(QStringLiteral("Unable to open serial port /dev/does-not-exist-vexo")));
    QCOMPARE(w.setSerialPort(pty.path), 0);
    // 100 ms of ticks at 125000 baud: a 12-byte frame takes about 1 ms on the line, a frame with a
    // request waits for its answer window, so far fewer than 100 frames go out, and all check.
    s.run(100);
    const int frames = readFrames(pty).size();
    QVERIFY2(frames > 10 && frames < 100, qPrintable(QString::number(frames)));
    // An empty name closes; every change of the open flag is announced once, and only a change.
    QCOMPARE(w.setSerialPort(QString()), 0);
    QCOMPARE(w.setSerialPort(QString()), 0);
    QCOMPARE(status.count(), 2);
    QCOMPARE(status.last().at(0).toBool(), false);
}

void tst_SerialPortWrapper::speedSearchCycleAndReload()
{
    Pty pty;
    Stepped s;
    QCOMPARE(s.w.setSerialPort(pty.path), 0);
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
    // Another speed set behind the wrapper's back; the reload, requested from another thread, restores it.
    struct termios2 t;
    QCOMPARE(::ioctl(pty.master, TCGETS2, &t), 0);
    t.c_cflag = (t.c_cflag & ~CBAUD) | BOTHER;
    t.c_ispeed = t.c_ospeed = 9600;
    QCOMPARE(::ioctl(pty.master, TCSETS2, &t), 0);
    QCOMPARE(pty.baud(), 9600);
    std::thread([&s] { s.w.progress()->requestReload(); }).join();
    s.w.tick();
    QCOMPARE(pty.baud(), 125000);
    QVERIFY(!s.w.progress()->takeReload());
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
        const QStringList ids = QString(p).remove("gone:").split(':');
        SerialPlatform::PortInfo info;
        info.name = info.location =
            p.startsWith("gone:") ? QStringLiteral("/dev/none-such-vexo") : ptys.back()->path;
        info.hasUsbIds = ids.size() == 2;
        info.vendor = quint16(ids.value(0).toUInt(nullptr, 16));
        info.product = quint16(ids.value(1).toUInt(nullptr, 16));
        listed << info;
    }
    Pty other;
    Stepped s;
    s.w.setPortLister([listed] { return listed; });
    if (openBefore)
        QCOMPARE(s.w.setSerialPort(other.path), 0);
    QSignalSpy status(&s.w, &SerialPortWrapper::portOpenedStatus);
    s.w.findDefaultSerialPort();
    QCOMPARE(s.w.isPortOpen(), chosen >= 0);
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
    QCOMPARE(QList<int>({w.isPortOpen(), w.errorCount()}), QList<int>({1, 409}));
    // Every 50th error moves the search on.
    QCOMPARE(modeAt, QList<int>({2, 3, 0, 2, 3, 0, 2, 3}));
    w.handleError(QSerialPort::FramingError);
    QVERIFY(!w.isPortOpen());
    QVERIFY(w.lastError().startsWith(QStringLiteral("<b>Serial port error:</b><br>")));
    // Errors while closed are ignored.
    w.handleError(QSerialPort::ResourceError);
    QCOMPARE(status.count(), 1);
}

void tst_SerialPortWrapper::progressReportedOnce_data()
{
    // Each event sets a value, or (-1) is a tick that reports what changed since the last report.
    QTest::addColumn<QVector<int>>("events");
    QTest::addColumn<QVector<int>>("reported");
    QTest::newRow("starts at zero") << QVector<int>{0, -1} << QVector<int>{};
    QTest::newRow("once per change") << QVector<int>{40, -1, -1, 0, -1} << QVector<int>{40, 0};
    QTest::newRow("back before the tick") << QVector<int>{40, -1, 55, 40, -1} << QVector<int>{40};
}

void tst_SerialPortWrapper::progressReportedOnce()
{
    QFETCH(QVector<int>, events);
    QFETCH(QVector<int>, reported);
    Stepped s;
    QSignalSpy progress(&s.w, &SerialPortWrapper::percentageChanged);
    for (int e : events) {
        if (e >= 0)
            s.w.progress()->setValue(e);
        else
            s.w.tick();
    }
    QVector<int> seen;
    for (const QList<QVariant> &signal : progress)
        seen << signal.at(0).toInt();
    QCOMPARE(seen, reported);
}

void tst_SerialPortWrapper::driveScanEveryTwentyFifthTick()
{
    Stepped s;
    QVector<int> scannedAt;
    int t = 0;
    s.w.setDriveScan([&] { scannedAt << t; });
    for (t = 1; t <= 80; ++t)
        s.w.tick();
    QCOMPARE(scannedAt, (QVector<int>{25, 50, 75}));
}

void tst_SerialPortWrapper::controllerAxesInTheMasterFrame()
{
    qputenv("SDL_VIDEODRIVER", "dummy");
    Pty pty;
    Stepped s;
    QSignalSpy detected(&s.w, &SerialPortWrapper::detectedJoysticks);
    s.w.detectJoysticks(); // brings SDL's joystick subsystem up
    QCOMPARE(detected.count(), 1);
    const int index = SDL_JoystickAttachVirtual(SDL_JOYSTICK_TYPE_GAMECONTROLLER, 3, 0, 0);
    QVERIFY2(index >= 0, SDL_GetError());
    SDL_Joystick *stick = SDL_JoystickOpen(index);
    QVERIFY(stick);
    char guid[33] = {};
    SDL_JoystickGetGUIDString(SDL_JoystickGetDeviceGUID(index), guid, sizeof guid);
    SDL_JoystickSetVirtualAxis(stick, 0, 32767);
    QCOMPARE(s.w.setSerialPort(pty.path), 0);
    QSignalSpy axes(&s.w, &SerialPortWrapper::joystickUpdated);
    // While selected the channel frames (0x3E; requests may ride behind) carry eight channels, the first
    // from the stick at full deflection; deselected, two centred ones.
    QList<QByteArray> blocks;
    for (const QString &selected : {QString::fromLatin1(guid), QString()}) {
        s.w.setJoystick(selected);
        QTest::qWait(20);
        pty.readAll();
        s.run(40);
        QByteArray last;
        for (const QByteArray &f : readFrames(pty))
            last = f[0] == '\x3E' ? f : last;
        blocks << last.mid(5, 3).toHex();
    }
    QCOMPARE(blocks, QList<QByteArray>({"10803e", "04e02e"}));
    QVERIFY(axes.count() >= 1);
    SDL_JoystickClose(stick);
    SDL_JoystickDetachVirtual(index);
}

QTEST_GUILESS_MAIN(tst_SerialPortWrapper)
#include "tst_SerialPortWrapper.moc"
