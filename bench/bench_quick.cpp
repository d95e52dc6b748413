// The interface thread's share of a core while live telemetry streams into the values window (50 rows)
// and four dials, each sample rate the bus can give, against the same stream with no window open.
//
// Usage: bench_quick [seconds per run]

#include "BenchUtil.h"

#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "widgets/quick/SceneAnimationDriver.h"
#include "widgets/quick/WidgetDial.h"
#include "widgets/quick/WidgetValuesQuick.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <cmath>
#include <memory>
#include <vector>

using namespace BenchUtil;

namespace {
constexpr int kDevices = 10;
constexpr int kParams = 5; // 50 variables
constexpr int kDials = 4;

quint32 deviceId(int d)
{
    return 0x00A10000u + quint32(d + 1);
}

struct Run
{
    double cpuPercent = 0;
    int batches = 0;
};

// Streams one sample per variable every period for the given time and measures this thread's CPU.
Run stream(TelemetryData &store, int rateHz, int seconds)
{
    const int period = 1000 / rateHz;
    qint32 t = 0;
    Run run;
    QTimer feed;
    feed.setTimerType(Qt::PreciseTimer);
    feed.setInterval(period);
    QObject::connect(&feed, &QTimer::timeout, [&] {
        QVector<TelemetrySample> batch;
        batch.reserve(kDevices * kParams);
        for (int d = 0; d < kDevices; ++d) {
            for (int p = 1; p <= kParams; ++p) {
                TelemetrySample s;
                s.deviceId = deviceId(d);
                s.param = quint32(p);
                s.value.type = 1;
                s.value.decimals = 1;
                s.value.value = qint32(500 + 400 * std::sin(t / 1000.0 + d + p));
                s.value.timestamp = t;
                batch.append(s);
            }
        }
        t += period;
        store.appendSamples(batch);
        ++run.batches;
    });
    QEventLoop loop;
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    const double cpu0 = cpuMs();
    QElapsedTimer wall;
    wall.start();
    feed.start();
    loop.exec();
    feed.stop();
    run.cpuPercent = 100.0 * (cpuMs() - cpu0) / double(wall.elapsed());
    return run;
}

void describe(TelemetryData &store)
{
    for (int d = 0; d < kDevices; ++d) {
        store.describeSensor(deviceId(d), 0, QStringLiteral("Sensor %1").arg(d + 1), QString());
        for (int p = 1; p <= kParams; ++p)
            store.describeSensor(deviceId(d), quint32(p), QStringLiteral("Value %1").arg(p),
                                 QStringLiteral("V"));
    }
}
} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("QT_QUICK_BACKEND"))
        qputenv("QT_QUICK_BACKEND", "software");
    QApplication app(argc, argv);
    registerTelemetryMetaTypes();
    // As the studio runs them.
    SceneAnimationDriver::installFor(30);
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 10;

    std::printf("quick windows: %d values rows and %d dials, live samples for %d s per run\n",
                kDevices * kParams, kDials, seconds);
    for (const int rate : {50, 100}) {
        double baseline = 0;
        {
            TelemetryData store;
            describe(store);
            store.beginRecording();
            baseline = stream(store, rate, seconds).cpuPercent;
        }
        TelemetryData store;
        describe(store);
        store.beginRecording();
        WidgetValuesQuick values(&store);
        std::vector<std::unique_ptr<WidgetDial>> dials;
        WidgetValuesQuick::wire(&values, nullptr, &store);
        QObject::connect(&store, &TelemetryData::valueAdded, &values, &WidgetValuesQuick::dataAdded);
        for (const TelemetrySensor &sensor : *store.sensors()) {
            for (const TelemetryVar &var : sensor.vars())
                values.addData(&var);
        }
        values.resize(420, 900);
        values.show();
        for (int i = 0; i < kDials; ++i) {
            dials.push_back(std::make_unique<WidgetDial>(&store));
            WidgetDial *dial = dials.back().get();
            QObject::connect(&store, &TelemetryData::valueAdded, dial, &WidgetDial::dataAdded);
            dial->setVariable({deviceId(i), 1});
            dial->resize(300, 300);
            dial->show();
        }
        const Run run = stream(store, rate, seconds);
        std::printf("  %3d Hz: interface thread %5.1f %% of a core (no window open: %4.1f %%; %d batches)\n",
                    rate, run.cpuPercent, baseline, run.batches);
    }
    return 0;
}
