// vexo-bus-sim: LX Bus devices behind a pseudo-terminal, so the program can be run and watched
// without hardware. Prints the port path on its first line, then a status line every second.

#include "tests/support/BusSimulator.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QSaveFile>
#include <QTimer>

#include <csignal>
#include <cstdio>

namespace {
volatile std::sig_atomic_t g_stop = 0;

void onSignal(int)
{
    g_stop = 1;
}

void printLine(const QString &line)
{
    std::fputs(line.toLocal8Bit().constData(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// A non-negative number option, or -1 when absent; false when present but not a number.
bool numberOption(const QCommandLineParser &parser, const QCommandLineOption &option, double *out)
{
    *out = -1;
    if (!parser.isSet(option))
        return true;
    bool ok = false;
    *out = parser.value(option).toDouble(&ok);
    return ok && *out >= 0;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexo-bus-sim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Simulated LX Bus devices on a pseudo-terminal. Open the printed path as the serial port."));
    parser.addHelpOption();
    const QCommandLineOption link(QStringLiteral("link"),
                                  QStringLiteral("Create a symbolic link to the port."),
                                  QStringLiteral("path"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Seed for values and noise."),
                                  QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption noise(QStringLiteral("noise"),
                                   QStringLiteral("Send garbage bytes between answers."));
    const QCommandLineOption badCrc(QStringLiteral("bad-crc"),
                                    QStringLiteral("Spoil the CRC of every n-th answer."),
                                    QStringLiteral("n"));
    const QCommandLineOption silentAfter(QStringLiteral("silent-after"),
                                         QStringLiteral("Stop answering after this many seconds."),
                                         QStringLiteral("seconds"));
    const QCommandLineOption unplugAfter(QStringLiteral("unplug-after"),
                                         QStringLiteral("Close the port after this many seconds."),
                                         QStringLiteral("seconds"));
    const QCommandLineOption seconds(QStringLiteral("seconds"),
                                     QStringLiteral("Exit after this many seconds."), QStringLiteral("n"));
    const QCommandLineOption quiet(QStringLiteral("quiet"), QStringLiteral("No status lines."));
    const QCommandLineOption flashDump(
        QStringLiteral("flash-dump"),
        QStringLiteral("Write the image of each finished update to this file (the latest wins)."),
        QStringLiteral("file"));
    const QCommandLineOption bootFault(
        QStringLiteral("boot-fault"),
        QStringLiteral("Make the boot loader fail: drop or corrupt acknowledgements, stall, or unplug."),
        QStringLiteral("drop|corrupt|stall|unplug"));
    const QCommandLineOption bootFaultAt(QStringLiteral("boot-fault-at"),
                                         QStringLiteral("The fault starts at this packet received (from 1)."),
                                         QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption bootFaultCount(QStringLiteral("boot-fault-count"),
                                            QStringLiteral("Acknowledgements dropped or corrupted."),
                                            QStringLiteral("n"), QStringLiteral("1"));
    const QCommandLineOption lineBaud(QStringLiteral("line-baud"),
                                      QStringLiteral("Emulate the line's byte time at this rate for the boot "
                                                     "loader (e.g. 125000)."),
                                      QStringLiteral("baud"));
    const QCommandLineOption writeMs(QStringLiteral("packet-write-ms"),
                                     QStringLiteral("Time the boot loader takes to write one packet."),
                                     QStringLiteral("ms"));
    parser.addOptions({link, seed, noise, badCrc, silentAfter, unplugAfter, seconds, quiet, flashDump,
                       bootFault, bootFaultAt, bootFaultCount, lineBaud, writeMs});
    parser.process(app);

    double silentS = -1;
    double unplugS = -1;
    double runS = -1;
    double badCrcN = -1;
    double faultAt = -1;
    double faultCount = -1;
    double baud = -1;
    double writeTime = -1;
    bool seedOk = false;
    const quint32 seedValue = parser.value(seed).toUInt(&seedOk);
    if (!seedOk || !numberOption(parser, silentAfter, &silentS) ||
        !numberOption(parser, unplugAfter, &unplugS) || !numberOption(parser, seconds, &runS) ||
        !numberOption(parser, badCrc, &badCrcN) || !numberOption(parser, bootFaultAt, &faultAt) ||
        !numberOption(parser, bootFaultCount, &faultCount) || !numberOption(parser, lineBaud, &baud) ||
        !numberOption(parser, writeMs, &writeTime)) {
        std::fputs("vexo-bus-sim: option values must be non-negative numbers\n", stderr);
        return 2;
    }

    const QStringList faults = {QString(), QStringLiteral("drop"), QStringLiteral("corrupt"),
                                QStringLiteral("stall"), QStringLiteral("unplug")};
    const int fault = faults.indexOf(parser.value(bootFault));
    if (fault < 0) {
        std::fputs("vexo-bus-sim: --boot-fault takes drop, corrupt, stall or unplug\n", stderr);
        return 2;
    }

    BusSimulator sim;
    sim.setSeed(seedValue);
    if (fault > 0)
        sim.setBootFault(BusSimulator::BootFault(fault), int(faultAt), int(faultCount));
    if (baud > 0)
        sim.setLineBaud(int(baud));
    if (writeTime > 0)
        sim.setPacketWriteMs(writeTime);
    sim.setNoise(parser.isSet(noise));
    sim.setBadCrcEvery(badCrcN < 0 ? 0 : int(badCrcN));
    QString error;
    if (!sim.start(&error)) {
        std::fprintf(stderr, "vexo-bus-sim: %s\n", error.toLocal8Bit().constData());
        return 1;
    }
    if (parser.isSet(link) && !sim.linkTo(parser.value(link), &error)) {
        std::fprintf(stderr, "vexo-bus-sim: cannot link %s: %s\n",
                     parser.value(link).toLocal8Bit().constData(), error.toLocal8Bit().constData());
        return 1;
    }
    printLine(sim.portPath());

    // The simulator's own record of what the program changed, whatever --quiet says.
    const auto nameOf = [&sim](quint32 id) {
        const BusSimulator::Unit *u = sim.unit(id);
        return QStringLiteral("%1 (%2)").arg(u ? QString::fromLatin1(u->name) : QString(),
                                             QStringLiteral("%1").arg(id, 8, 16, QLatin1Char('0')).toUpper());
    };
    QObject::connect(&sim, &BusSimulator::registersWritten, &sim,
                     [nameOf](quint32 id, quint16 address, const QByteArray &bytes) {
                         printLine(QStringLiteral("write %1 0x%2: %3")
                                       .arg(nameOf(id))
                                       .arg(address, 4, 16, QLatin1Char('0'))
                                       .arg(QString::fromLatin1(bytes.toHex(' '))));
                     });
    QObject::connect(
        &sim, &BusSimulator::commandExecuted, &sim, [nameOf](quint32 id, int command, int value) {
            printLine(QStringLiteral("command %1 %2 value %3").arg(nameOf(id)).arg(command).arg(value));
        });

    const QString dumpPath = parser.value(flashDump);
    QObject::connect(
        &sim, &BusSimulator::firmwareFlashed, &sim, [&sim, nameOf, dumpPath](quint32 id, quint16 version) {
            printLine(QStringLiteral("flashed %1: version %2.%3, %4 packets")
                          .arg(nameOf(id))
                          .arg(version >> 8)
                          .arg(version & 0xFF)
                          .arg(sim.flashedPackets().size()));
            if (dumpPath.isEmpty())
                return;
            QSaveFile out(dumpPath);
            if (!out.open(QIODevice::WriteOnly) ||
                out.write(sim.flashedImage()) != sim.flashedImage().size() || !out.commit())
                std::fprintf(stderr, "vexo-bus-sim: cannot write %s\n", dumpPath.toLocal8Bit().constData());
        });

    if (silentS >= 0)
        QTimer::singleShot(int(silentS * 1000), &sim, [&sim] { sim.setSilent(true); });
    if (unplugS >= 0)
        QTimer::singleShot(int(unplugS * 1000), &sim, [&sim] { sim.unplug(); });
    if (runS >= 0)
        QTimer::singleShot(int(runS * 1000), &app, &QCoreApplication::quit);

    QTimer status;
    if (!parser.isSet(quiet)) {
        QObject::connect(&status, &QTimer::timeout, &sim, [&sim] { printLine(sim.statusLine()); });
        status.start(1000);
    }

    // Ctrl-C ends the run through the event loop, so the link is removed on the way out.
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
    QTimer stopCheck;
    QObject::connect(&stopCheck, &QTimer::timeout, &app, [] {
        if (g_stop)
            QCoreApplication::quit();
    });
    stopCheck.start(100);

    return app.exec();
}
