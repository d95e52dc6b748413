#pragma once

// The transport on its own thread against the bus simulator over a pseudo-terminal, for tests.
#include "link/SerialLink.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/BusSimulator.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

// A rig: simulator, transport, decoder and a recording store.
struct Rig
{
    BusSimulator sim;
    TelemetryData store;
    TelemetryDecoder decoder{&store};
    SerialLink link;
    bool ok = false;

    Rig()
    {
        decoder.setBatchInterval(0);
        QObject::connect(link.wrapper(), &SerialPortWrapper::telemetryReceived, &decoder,
                         &TelemetryDecoder::decode);
        QString error;
        if (!sim.start(&error))
            return;
        link.start();
        store.setLogging(true);
        const QString path = sim.portPath();
        QMetaObject::invokeMethod(
            link.wrapper(), [&] { ok = link.wrapper()->setSerialPort(path) == 0; },
            Qt::BlockingQueuedConnection);
    }
    // Devices found on the bus, not counting extensions still waiting for their own answer.
    int namedDevices()
    {
        int n = 0;
        for (const Device &d : link.wrapper()->devices())
            n += d.identifier != 0 ? 1 : 0;
        return n;
    }
};

// Waits for a condition while serving events as they come: the simulator lives on this thread and must
// answer promptly (QTest::qWait sleeps between passes).
template <typename Pred> bool waitFor(Pred pred, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (!pred()) {
        if (t.elapsed() > timeoutMs)
            return false;
        QEventLoop loop;
        QTimer::singleShot(20, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}
