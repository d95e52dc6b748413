// The serial thread's CPU use with the port open and idle, and while the bus simulator streams
// telemetry; and how many telemetry records per second the decoder turns into samples.
// Usage: bench_link [seconds per phase]
#include "BenchUtil.h"

#include "link/LinkMetaTypes.h"
#include "link/SerialLink.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/BusSimulator.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

using namespace BenchUtil;

namespace {
// CPU seconds of the serial thread, read on that thread.
double serialThreadCpu(SerialLink &link)
{
    double seconds = 0;
    QMetaObject::invokeMethod(
        link.wrapper(),
        [&] {
            timespec ts;
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
            seconds = double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
        },
        Qt::BlockingQueuedConnection);
    return seconds;
}

void runFor(int ms)
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < ms)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
}

bool openPort(SerialLink &link, const QString &path)
{
    int result = 2;
    QMetaObject::invokeMethod(
        link.wrapper(), [&] { result = link.wrapper()->setSerialPort(path); }, Qt::BlockingQueuedConnection);
    return result == 0;
}

// One data frame record with four 2-byte items, as the decoder receives it.
QByteArray dataRecord(qint64 epochMs, int i)
{
    QByteArray r;
    for (int b = 0; b < 8; ++b)
        r.append(char(quint64(epochMs) >> (8 * b)));
    const QByteArray frame = QByteArray::fromHex("7e7f4f01a41200") + char(0);
    r += frame;
    for (int item = 1; item <= 4; ++item) {
        r.append(char((item << 4) | 1));
        r.append(char((i * item) & 0xFF));
        r.append(char(((i * item) >> 8) & 0x0F));
    }
    r[10] = char((1 << 6) | (r.size() - 8));
    return r;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    registerLinkMetaTypes();
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 10;

    // Idle: the port is open on a pseudo-terminal nobody answers on.
    {
        const int master = posix_openpt(O_RDWR | O_NOCTTY);
        grantpt(master);
        unlockpt(master);
        fcntl(master, F_SETFL, fcntl(master, F_GETFL) | O_NONBLOCK);
        const QString path = QString::fromLocal8Bit(ptsname(master));
        SerialLink link;
        link.start();
        if (!openPort(link, path)) {
            std::fprintf(stderr, "bench_link: cannot open %s\n", qPrintable(path));
            return 1;
        }
        QTimer drain;
        QObject::connect(&drain, &QTimer::timeout, [master] {
            char buf[4096];
            while (::read(master, buf, sizeof buf) > 0) {
            }
        });
        drain.start(5);
        const double cpu0 = serialThreadCpu(link);
        QElapsedTimer wall;
        wall.start();
        runFor(seconds * 1000);
        const double cpu = serialThreadCpu(link) - cpu0;
        std::printf("serial thread, port open and idle:   %5.2f %% of one core (%d s)\n",
                    100.0 * cpu / (wall.elapsed() / 1000.0), seconds);
        link.stop();
        ::close(master);
    }

    // Streaming: the simulator answers every poll with telemetry.
    {
        BusSimulator sim;
        QString error;
        if (!sim.start(&error)) {
            std::fprintf(stderr, "bench_link: simulator: %s\n", qPrintable(error));
            return 1;
        }
        TelemetryData store;
        TelemetryDecoder decoder(&store);
        SerialLink link;
        QObject::connect(link.wrapper(), &SerialPortWrapper::telemetryReceived, &decoder,
                         &TelemetryDecoder::decode);
        link.start();
        if (!openPort(link, sim.portPath())) {
            std::fprintf(stderr, "bench_link: cannot open the simulator's port\n");
            return 1;
        }
        store.setLogging(true);
        runFor(2000); // devices found, descriptions sent
        const double cpu0 = serialThreadCpu(link);
        const qint64 records0 = decoder.decodedRecords();
        QElapsedTimer wall;
        wall.start();
        runFor(seconds * 1000);
        const double cpu = serialThreadCpu(link) - cpu0;
        const double secs = wall.elapsed() / 1000.0;
        decoder.flush();
        std::printf(
            "serial thread, simulator streaming:  %5.2f %% of one core (%d s, %.0f records/s, %d devices)\n",
            100.0 * cpu / secs, seconds, (decoder.decodedRecords() - records0) / secs,
            int(link.wrapper()->devices().count()));
        link.stop();
    }

    // Decoding alone.
    {
        TelemetryData store;
        store.setLogging(true);
        store.describeSensor(0x0012A401, 0, QStringLiteral("Bench"), QString());
        for (quint32 p = 1; p <= 4; ++p)
            store.describeSensor(0x0012A401, p, QStringLiteral("V%1").arg(p), QStringLiteral("V"));
        TelemetryDecoder decoder(&store);
        decoder.setBatchInterval(1000000);
        const qint64 start = 1700000000000;
        decoder.setSessionStart(start);
        const int n = 1000000;
        QVector<QByteArray> records;
        records.reserve(n);
        for (int i = 0; i < n; ++i)
            records.append(dataRecord(start + 1 + i / 10, i));
        const double ms = msOf([&] {
            for (const QByteArray &r : records)
                decoder.decode(r);
            decoder.flush();
        });
        std::printf("decode: %d records in %.0f ms: %.0f records/s (%lld samples stored)\n", n, ms,
                    n / (ms / 1000.0), static_cast<long long>(store.package().sampleCount()));
    }
    return 0;
}
