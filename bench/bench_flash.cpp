// Programming a 256 kB firmware image through the bus simulator's boot loader, the simulator taking the
// line's byte time at 125000 baud (10 bits a byte) and a stated write time per packet, beside the ideal:
// every byte on the line (packets, their announcements and acknowledgements, wake, device info and
// finish frames) at that rate, plus the write time of every packet.
// Usage: bench_flash [runs] [packet write ms]
#include "BenchUtil.h"

#include "link/LinkMetaTypes.h"
#include "tests/support/LinkRig.h"
#include "tools/BootLoaderProtocol.h"
#include "tools/DeviceUpdater.h"

#include <QCoreApplication>

#include <cstdio>
#include <cstdlib>

using namespace BenchUtil;

namespace {
constexpr int kBaud = 125000;
constexpr int kImageBytes = 256 * 1024;
constexpr int kPayload = 0xF40; // the usual full packet

QByteArray makeImage()
{
    QByteArray image(FirmwareImage::kHeaderSize, '\x11');
    quint32 x = 12345;
    int left = kImageBytes - image.size() - 1;
    while (left > 2) {
        const int payload = std::min(kPayload, left - 2);
        image.append(char(0x10 | (payload >> 8)));
        image.append(char(payload & 0xFF));
        for (int i = 0; i < payload; ++i) {
            x = x * 1664525u + 1013904223u;
            image.append(char(x >> 24));
        }
        left -= payload + 2;
    }
    image.append('\0');
    return image;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1;
    const double writeMs = argc > 2 ? std::max(0.0, std::atof(argv[2])) : 8.0;
    registerLinkMetaTypes();

    FirmwareImage image;
    QString error;
    const QByteArray bytes = makeImage();
    if (!FirmwareImage::parse(bytes, &image, &error)) {
        std::fprintf(stderr, "bench_flash: %s\n", qPrintable(error));
        return 1;
    }
    Rig rig;
    if (!rig.ok) {
        std::fprintf(stderr, "bench_flash: cannot open the simulator's port\n");
        return 1;
    }
    rig.sim.setLineBaud(kBaud);
    rig.sim.setPacketWriteMs(writeMs);

    using namespace BootLoaderProtocol;
    qint64 lineBytes = kWakeLength + kWakeAnswerLength + kInfoLength + kInfoAnswerLength + kFinishLength +
                       kFinishAnswerLength;
    for (const QByteArray &p : image.packets())
        lineBytes += kAnnounceLength + p.size() + kAckLength;
    const double idealMs = double(lineBytes) * 10 * 1000 / kBaud + image.packetCount() * writeMs;

    std::printf("firmware update: %d bytes image, %d packets, line %d baud, %.1f ms write per packet\n",
                int(bytes.size()), image.packetCount(), kBaud, writeMs);
    std::vector<double> ms;
    for (int r = 0; r < runs; ++r) {
        DeviceUpdater updater(rig.link.wrapper());
        DeviceUpdater::Options o;
        o.target = BusSimulator::kGpsId;
        o.newVersion = quint16(0x0200 + r);
        updater.setOptions(o);
        int result = -1;
        QObject::connect(&updater, &DeviceUpdater::finished, [&](int res) { result = res; });
        QElapsedTimer t;
        t.start();
        updater.start(image);
        waitFor([&] { return result >= 0; }, 600000);
        const double took = double(t.nsecsElapsed()) / 1e6;
        if (result != DeviceUpdater::Succeeded || rig.sim.flashedImage() != bytes) {
            std::fprintf(stderr, "bench_flash: run %d failed (%s)\n", r + 1,
                         qPrintable(DeviceUpdater::resultText(DeviceUpdater::Result(result))));
            return 1;
        }
        ms.push_back(took);
    }
    const double m = median(ms);
    std::printf("  ideal    %9.1f ms  (%lld bytes on the line + write time)\n", idealMs, lineBytes);
    std::printf("  measured %9.1f ms  median of %d, %.3fx ideal (goal 1.25x)\n", m, runs, m / idealMs);
    return 0;
}
