// Reading every parameter of a device with 256 registers over the bus simulator: bus round trips (read
// answers) against the fewest the frame size allows, and the time until the last value is in; for 256
// one-byte parameters and for a mix of 1-, 2- and 4-byte ones.
// Usage: bench_params [runs]
#include "BenchUtil.h"

#include "link/DeviceParameterEngine.h"
#include "link/LinkMetaTypes.h"
#include "tests/support/LinkRig.h"

#include <QCoreApplication>

#include <cstdio>

using namespace BenchUtil;

namespace {
DeviceSettings layout(bool mixed)
{
    DeviceSettings s;
    s.deviceId = BusSimulator::kLargeId;
    const quint8 widths[3] = {1, 2, 4};
    int address = BusSimulator::kRegisterBase;
    for (int i = 0; address < BusSimulator::kRegisterBase + 256; ++i) {
        DevParam p;
        p.id = quint16(i + 1);
        p.address = quint16(address);
        p.width = mixed ? widths[i % 3] : 1;
        if (address + p.width > BusSimulator::kRegisterBase + 256)
            p.width = 1;
        p.max = 255;
        address += p.width;
        s.params.append(p);
    }
    return s;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, atoi(argv[1])) : 5;
    registerLinkMetaTypes();
    Rig rig;
    if (!rig.ok) {
        std::fprintf(stderr, "bench_params: cannot open the simulator's port\n");
        return 1;
    }
    rig.sim.addLargeDevice();
    SerialPortWrapper *w = rig.link.wrapper();
    const bool found = waitFor(
        [&] {
            for (const Device &d : w->devices())
                if (d.identifier == BusSimulator::kLargeId)
                    return true;
            return false;
        },
        20000);
    if (!found) {
        std::fprintf(stderr, "bench_params: the large device was not found\n");
        return 1;
    }
    DevParamVector last;
    QElapsedTimer t;
    double doneMs = -1;
    QObject::connect(w, &SerialPortWrapper::LxBusValuesLoaded, &app, [&](const DevParamVector &v) {
        last = v;
        if (doneMs < 0 && DeviceSettings{0, v}.loadedPercent() == 100)
            doneMs = double(t.nsecsElapsed()) / 1e6;
    });

    std::printf("parameter read: device with 256 registers, %d runs (median)\n", runs);
    for (bool mixed : {false, true}) {
        const DeviceSettings s = layout(mixed);
        QVector<int> all(s.params.size());
        std::iota(all.begin(), all.end(), 0);
        const int minimum = DeviceParameterEngine::minimumReads(s.params, all);
        const int planned = DeviceParameterEngine::planReads(s.params, all).size();
        std::vector<double> ms;
        std::vector<double> trips;
        for (int r = 0; r < runs; ++r) {
            last.clear();
            doneMs = -1;
            const int before = rig.sim.answersSent('W');
            t.start();
            QMetaObject::invokeMethod(w, "setActiveDevice", Q_ARG(DeviceSettings, s));
            waitFor([&] { return doneMs >= 0; }, 30000);
            ms.push_back(doneMs);
            trips.push_back(rig.sim.answersSent('W') - before);
        }
        // On a real line each trip carries a master frame with the request (about 22 bytes) and an answer of
        // up to 35 bytes, 10 bits each at 125000 baud.
        std::printf("  %-16s %3d parameters: %3.0f round trips (planned %d, minimum %d), %6.1f ms over the "
                    "pty, about %.0f ms on a 125000-baud line\n",
                    mixed ? "1/2/4-byte mix" : "one byte each", int(s.params.size()), median(trips), planned,
                    minimum, median(ms), median(trips) * 57 * 10 / 125.0);
    }
    return 0;
}
