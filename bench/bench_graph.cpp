// Graph redraw time for 8 variables x 1.25 million samples (10 million points) at 1920x1080: the whole
// recording in view drawn from the raw records (first time, building the block summaries, and after a
// zoom, with them), from the decimation cache, and the window's repaint when only the cursor moves; then
// the default 30 s window and a live-following step; then the measuring cursors' readout while B is dragged.
// Usage: bench_graph [samples-per-variable]
#include "BenchUtil.h"

#include "telemetry/TelemetryData.h"
#include "widgets/graph/GraphDecimator.h"
#include "widgets/graph/GraphMeasurement.h"
#include "widgets/graph/GraphRenderer.h"
#include "widgets/graph/WidgetGraph.h"

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QRandomGenerator>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

using namespace BenchUtil;

namespace {
constexpr quint32 kDevice = 0x00010001;
constexpr int kVariables = 8;
constexpr qint32 kPeriodMs = 20; // 50 Hz
const QSize kSize(1920, 1080);

// Flight-like signals: slow trends, manoeuvres and sensor noise, in the raw forms devices send.
TelemetryDataPackage makeFlight(int samples)
{
    struct Channel
    {
        const char *label;
        const char *unit;
        quint32 type;
        quint32 decimals;
    };
    const Channel channels[kVariables] = {
        {"Voltage", "V", 1, 2}, {"Current", "A", 1, 1},           {"Altitude", "m", 12, 1},
        {"Speed", "m/s", 1, 1}, {"Temperature", "\u00B0C", 1, 1}, {"RSSI", "%", 0, 0},
        {"Vario", "m/s", 1, 2}, {"Capacity", "mAh", 4, 0},
    };
    TelemetryDataPackage package;
    package.setName(QStringLiteral("bench"));
    const int index = package.addDevice(kDevice, QStringLiteral("Bench"));
    QRandomGenerator random(2026);
    for (int k = 0; k < kVariables; ++k) {
        TelemetryVar var(kDevice, quint32(k + 1), QString::fromUtf8(channels[k].label),
                         QString::fromUtf8(channels[k].unit));
        QVector<TelemetryValue> &values = var.values();
        values.resize(samples);
        double walk = 0;
        for (int i = 0; i < samples; ++i) {
            const double t = double(i) / samples;
            walk = walk * 0.995 + (random.generateDouble() - 0.5);
            double v = 0;
            switch (k) {
            case 0:
                v = 1260 - 260 * t + 3 * walk;
                break;
            case 1:
                v = 150 + 100 * std::sin(i / 3000.0) + 20 * walk;
                break;
            case 2:
                v = 1500 * (1 - std::cos(i / 20000.0)) + 5 * walk;
                break;
            case 3:
                v = 200 + 150 * std::sin(i / 7000.0) + 3 * walk;
                break;
            case 4:
                v = 300 + 200 * t + walk;
                break;
            case 5:
                v = 90 + 2 * walk;
                break;
            case 6:
                v = 300 * std::sin(i / 900.0) + 10 * walk;
                break;
            default:
                v = 5000.0 * t;
                break;
            }
            TelemetryValue &x = values[i];
            x.type = channels[k].type;
            x.decimals = channels[k].decimals;
            x.value = qint32(std::lround(v));
            x.timestamp = i * kPeriodMs;
        }
        package.devices()[index].vars().append(var);
    }
    return package;
}

GraphRenderer::Scene sceneFor(const TelemetryDataPackage &package, qint64 from, qint64 window)
{
    GraphRenderer::Scene scene;
    scene.from = from;
    scene.window = window;
    scene.timeGrid = true;
    const TelemetrySensor &device = package.devices().constFirst();
    for (int k = 0; k < device.vars().size(); ++k) {
        GraphRenderer::Series s;
        s.var = &device.vars().at(k);
        s.item.deviceId = kDevice;
        s.item.param = s.var->param();
        s.item.color = GraphTheme::itemColor(k);
        s.label = QStringLiteral("%1 [%2]").arg(s.var->label(), s.var->unit());
        scene.series.append(s);
    }
    return scene;
}

// What the renderer hands the decimator for a scene drawn this many columns wide.
QVector<GraphDecimator::Job> jobsFor(const GraphRenderer::Scene &scene, int width)
{
    QVector<GraphDecimator::Job> jobs;
    for (const GraphRenderer::Series &s : scene.series) {
        GraphDecimator::Job job;
        job.key = s.item.pair().key();
        job.var = s.var;
        job.request.from = scene.from;
        job.request.span = scene.window;
        job.request.width = width;
        jobs.append(job);
    }
    return jobs;
}

} // namespace

int main(int argc, char *argv[])
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int samples = argc > 1 ? std::max(100, atoi(argv[1])) : 1250000;
    const TelemetryDataPackage package = makeFlight(samples);
    const qint64 last = qint64(samples - 1) * kPeriodMs;
    std::printf("graph: %d variables x %d samples = %.1f million points, %lld s of flight at %d Hz, %dx%d\n",
                kVariables, samples, kVariables * samples / 1e6, last / 1000, 1000 / kPeriodMs, kSize.width(),
                kSize.height());

    QImage image(kSize, QImage::Format_ARGB32_Premultiplied);
    const GraphRenderer::Scene whole = sceneFor(package, 0, last + 1);
    const int runs = 9;
    const auto draw = [&image](GraphRenderer &renderer, const GraphRenderer::Scene &scene) {
        renderer.layout(scene, image.size());
        renderer.render(&image);
    };

    // Whole recording, nothing cached: a new decimator each time reads every record once to build its
    // block summaries (shared over the cores), then reduces the items to columns.
    Timing cold;
    for (int r = 0; r < 5; ++r) {
        GraphDecimator decimator;
        GraphRenderer renderer(&decimator);
        cold.add([&] { draw(renderer, whole); });
    }
    Timing summaries;
    for (int r = 0; r < 5; ++r) {
        GraphDecimator fresh;
        summaries.add([&] { fresh.prepareRanges(jobsFor(whole, 1)); });
    }
    GraphDecimator decimator;
    GraphRenderer renderer(&decimator);
    draw(renderer, whole);
    std::printf("  plot area %dx%d px\n", renderer.plotRect().width(), renderer.plotRect().height());

    // Other spans over the same data (zoom, pan): each a cache miss, drawn from the raw records with the
    // summaries' help.
    Timing zoomed;
    Timing decimateOnly;
    for (int r = 0; r < runs; ++r) {
        const qint64 window = last * (60 + 4 * r) / 100;
        const qint64 from = (last - window) * r / runs;
        zoomed.add([&] { draw(renderer, sceneFor(package, from, window)); });
        const GraphRenderer::Scene scene = sceneFor(package, from + 1, window);
        decimateOnly.add([&] { decimator.prepareColumns(jobsFor(scene, renderer.plotRect().width())); });
    }
    // The same span again (a theme or colour change): the decimation cache answers and the traced lines are
    // kept; the image is drawn anew.
    Timing cached;
    draw(renderer, whole);
    for (int r = 0; r < runs; ++r)
        cached.add([&] { draw(renderer, whole); });

    cold.print("whole flight, first draw (summaries built):");
    summaries.print("  of which building the summaries:");
    zoomed.print("whole flight, new span (zoom/pan), raw records:");
    decimateOnly.print("  of which decimating 8 variables:");
    cached.print("whole flight, redrawn from the decimation cache:");

    // The window: a repaint for a moving cursor (or an uncovered window) blits the cached image and
    // draws the cursor with each item's value.
    TelemetryData store;
    store.setPackage(package);
    WidgetGraph graph(&store);
    graph.resize(kSize);
    for (const TelemetryVar &var : store.package().devices().constFirst().vars())
        graph.addData(&var);
    graph.setTimeSpan(0, last + 1);
    QImage screen(kSize, QImage::Format_ARGB32_Premultiplied);
    graph.render(&screen); // builds the window's cached image
    Timing cursor;
    for (int r = 0; r < 25; ++r) {
        graph.externalTimestampMoved(long(last / 25 * r), false);
        cursor.add([&] { graph.render(&screen); });
    }
    cursor.print("window repaint, cursor moved (image cached):");

    // The default 30 s span at the end of the recording, and live following one 40 ms batch further.
    Timing window30;
    for (int r = 0; r < runs; ++r) {
        GraphDecimator fresh;
        GraphRenderer small(&fresh);
        window30.add([&] { draw(small, sceneFor(package, last - 30000 - r * 1000, 30000)); });
    }
    Timing follow;
    for (int r = 0; r < runs; ++r)
        follow.add([&] { draw(renderer, sceneFor(package, last - 30000 - 40 * (r + 1), 30000)); });
    window30.print("30 s window, first draw from raw records:");
    follow.print("30 s window, live step (40 ms later):");

    // Measuring cursors: A fixed at a tenth of the flight, B dragged across the rest. Each step reads
    // the values at A and B and the minimum, maximum, mean and slope between them for all 8 items from
    // the raw records (the block summaries of the draw above are reused), then the window repaints the
    // readout over its cached image.
    const GraphRenderer::Scene measured = sceneFor(package, 0, last + 1);
    CursorPair pair;
    pair.hasA = pair.hasB = true;
    pair.a = last / 10;
    Timing readout;
    for (int r = 0; r < 41; ++r) {
        pair.b = last / 10 + (last - last / 10) * (r + 1) / 41 - 7 * r;
        readout.add([&] { GraphMeasurement::measure(measured.series, &decimator, pair); });
    }
    GraphDecimator cold2;
    pair.b = last - 1;
    Timing firstReadout;
    firstReadout.add([&] { GraphMeasurement::measure(measured.series, &cold2, pair); });
    pair.b = last / 5;
    graph.setCursorPair(pair);
    graph.render(&screen);
    Timing dragRepaint;
    for (int r = 0; r < 25; ++r) {
        pair.b = last / 5 + (last - last / 5) * r / 25 + 13;
        graph.setCursorPair(pair);
        dragRepaint.add([&] { graph.render(&screen); });
    }
    readout.print("A/B readout, 8 items, B dragged (per update):");
    firstReadout.print("A/B readout, first one without summaries:");
    dragRepaint.print("window repaint while B is dragged:");
    return 0;
}
