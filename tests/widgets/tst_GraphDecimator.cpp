#include "telemetry/TelemetryUnits.h"
#include "telemetry/TelemetryVar.h"
#include "tests/support/TestSamples.h"
#include "widgets/graph/GraphDecimator.h"
#include "widgets/graph/GraphRenderer.h"
#include "widgets/graph/GraphSeriesPainter.h"

#include <QImage>
#include <QPainter>
#include <QRandomGenerator>
#include <QtTest>

#include <climits>
#include <cmath>

namespace {
enum Shape
{
    Noise,      // random values, occasional spikes
    MixedTypes, // decimals change, GPS and time-of-day samples in between
    Gaps,       // bursts separated by pauses longer than the hold limit
    Duplicates  // several samples on one timestamp
};

TelemetryVar makeVar(int count, int spacing, Shape shape, const QString &unit = QStringLiteral("m"))
{
    TelemetryVar var(1, 2, QStringLiteral("Altitude"), unit);
    QRandomGenerator random(quint32(count * 31 + spacing * 7 + int(shape)));
    qint32 ts = 1000;
    for (int i = 0; i < count; ++i) {
        qint32 value = qint32(random.bounded(2000)) - 1000;
        if (random.bounded(500) == 0)
            value *= 40; // a spike that must survive any reduction
        quint32 type = 1;
        quint32 decimals = 1;
        if (shape == MixedTypes) {
            const int kind = int(random.bounded(10));
            if (kind == 0) {
                type = 9; // GPS: the raw value does not order like the number
                decimals = random.bounded(2) ? 2 : 0;
                value = qint32((quint32(random.bounded(90)) << 16) | quint32(random.bounded(60000)));
            } else if (kind == 1) {
                type = 5; // time of day
                decimals = 0;
                value = qint32((quint32(random.bounded(24)) << 16) | (quint32(random.bounded(60)) << 8) |
                               quint32(random.bounded(60)));
            } else {
                decimals = quint32(random.bounded(3));
            }
        }
        var.append(raw(type, decimals, value, ts));
        if (shape == Duplicates && random.bounded(3) == 0)
            continue; // the next sample shares this timestamp
        ts += spacing;
        if (shape == Gaps && random.bounded(200) == 0)
            ts += 1501 + qint32(random.bounded(20000));
    }
    return var;
}

// The reference: every sample visited, by the same column rule.
GraphDecimator::Result bruteForce(const TelemetryVar &var, const GraphDecimator::Request &r)
{
    GraphDecimator::Result result;
    const QVector<TelemetryValue> &v = var.values();
    for (int i = 0; i < v.size(); ++i) {
        const qint64 t = v.at(i).timestamp;
        if (t < r.from || t >= r.from + r.span)
            continue;
        const double x = double(t - r.from) * r.width / r.span;
        const double n = TelemetryUnits::convert(v.at(i).toNumber(), r.unitCategory, r.unitTarget);
        const int c = int((t - r.from) * r.width / r.span);
        if (result.columns.isEmpty() || result.columns.constLast().x != c) {
            GraphDecimator::Column col;
            col.x = c;
            col.first = col.minimum = col.maximum = n;
            col.xFirst = x;
            col.gapBefore = i > 0 && t - v.at(i - 1).timestamp >= 1501;
            result.columns.append(col);
        }
        GraphDecimator::Column &col = result.columns.last();
        ++col.count;
        col.last = n;
        col.xLast = x;
        col.minimum = std::min(col.minimum, n);
        col.maximum = std::max(col.maximum, n);
        result.minimum = result.samples++ ? std::min(result.minimum, n) : n;
        result.maximum = result.samples > 1 ? std::max(result.maximum, n) : n;
    }
    return result;
}

// Every column as the reference has it: position, count, gap and the four values.
void compareColumns(const GraphDecimator::Result &got, const GraphDecimator::Result &want)
{
    QCOMPARE(got.columns.size(), want.columns.size());
    for (int i = 0; i < want.columns.size(); ++i) {
        const GraphDecimator::Column &g = got.columns.at(i);
        const GraphDecimator::Column &w = want.columns.at(i);
        QVERIFY2(g.x == w.x && g.count == w.count && g.gapBefore == w.gapBefore && g.first == w.first &&
                     g.last == w.last && g.minimum == w.minimum && g.maximum == w.maximum,
                 qPrintable(QStringLiteral("column %1").arg(w.x)));
        QVERIFY(g.xFirst >= g.x && g.xLast < g.x + 1);
    }
}

// One line per variable, over a time grid, in the palette's colours.
GraphRenderer::Scene sceneOf(std::initializer_list<const TelemetryVar *> vars, qint64 window)
{
    GraphRenderer::Scene scene;
    scene.window = window;
    scene.timeGrid = true;
    for (const TelemetryVar *var : vars) {
        GraphRenderer::Series s;
        s.var = var;
        s.item.deviceId = var->deviceId();
        s.item.param = var->param() + quint32(scene.series.size());
        s.item.color = GraphTheme::itemColor(scene.series.size());
        s.label = QStringLiteral("%1 [%2]").arg(var->label(), var->unit());
        scene.series << s;
    }
    return scene;
}

QImage drawn(GraphRenderer &renderer, const GraphRenderer::Scene &scene, const QSize &size)
{
    QImage image(size, QImage::Format_ARGB32_Premultiplied);
    renderer.layout(scene, size);
    renderer.render(&image);
    return image;
}

// Rows painted per column of a plot; INT_MAX/INT_MIN where nothing is.
struct Extent
{
    QVector<int> top;
    QVector<int> bottom;
};

Extent extentOf(const QImage &image, const QRect &plot, QRgb background)
{
    Extent e;
    for (int c = 0; c < plot.width(); ++c) {
        int top = INT_MAX;
        int bottom = INT_MIN;
        for (int r = 0; r < plot.height(); ++r) {
            if (image.pixel(plot.left() + c, plot.top() + r) != background) {
                top = std::min(top, r);
                bottom = std::max(bottom, r);
            }
        }
        e.top << top;
        e.bottom << bottom;
    }
    return e;
}
} // namespace

class tst_GraphDecimator : public QObject
{
    Q_OBJECT
private slots:
    void matchesEverySample_data();
    void matchesEverySample();
    void valueRangeBetweenTwoSamples();
    void summaryFollowsAppendsAndCuts();
    void batchMatchesEverySample();
    void keptTracesFollowChanges_data();
    void keptTracesFollowChanges();
    void vectorPathsAgree();
    void drawsSameExtremesAsEveryPoint_data();
    void drawsSameExtremesAsEveryPoint();
    void gapsAreNotJoined_data();
    void gapsAreNotJoined();
};

void tst_GraphDecimator::matchesEverySample_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("spacing");
    QTest::addColumn<int>("shape");
    QTest::addColumn<qint64>("from");
    QTest::addColumn<qint64>("span");
    QTest::addColumn<int>("width");
    QTest::addColumn<QString>("unit");

    // Fewer samples than columns, about one per column, and thousands per column (block summaries of
    // two and three levels answer most of each column).
    QTest::newRow("sparse") << 50 << 100 << int(Noise) << qint64(0) << qint64(10000) << 400 << "m";
    QTest::newRow("dense, two levels")
        << 200000 << 20 << int(Noise) << qint64(0) << qint64(4000000) << 300 << "m";
    QTest::newRow("dense, three levels")
        << 400000 << 10 << int(Noise) << qint64(0) << qint64(4000000) << 7 << "m";
    QTest::newRow("span ends after the data")
        << 50000 << 10 << int(Noise) << qint64(300000) << qint64(900000) << 500 << "m";
    QTest::newRow("mixed types and decimals")
        << 100000 << 10 << int(MixedTypes) << qint64(0) << qint64(1000000) << 90 << "m";
    QTest::newRow("gaps") << 60000 << 20 << int(Gaps) << qint64(0) << qint64(5000000) << 800 << "m";
    QTest::newRow("shared timestamps")
        << 80000 << 10 << int(Duplicates) << qint64(0) << qint64(600000) << 250 << "m";
    QTest::newRow("converted to fahrenheit")
        << 100000 << 10 << int(Noise) << qint64(0) << qint64(1000000) << 120 << "\u00B0F";
}

void tst_GraphDecimator::matchesEverySample()
{
    QFETCH(int, count);
    QFETCH(int, spacing);
    QFETCH(int, shape);
    QFETCH(qint64, from);
    QFETCH(qint64, span);
    QFETCH(int, width);
    QFETCH(QString, unit);
    const bool celsius = unit == QStringLiteral("\u00B0F");
    const TelemetryVar var = makeVar(count, spacing, Shape(shape), celsius ? "\u00B0C" : "m");
    const int target = TelemetryUnits::targetIndex(var.unitCategory(), unit);
    QVERIFY(target >= 0);
    const GraphDecimator::Request request{from, span, width, var.unitCategory(), quint8(target)};
    GraphDecimator decimator;
    const GraphDecimator::Result got = decimator.columns(7, var, request);
    const GraphDecimator::Result want = bruteForce(var, request);
    QCOMPARE(got.samples, want.samples);
    compareColumns(got, want);
    if (want.samples > 0)
        QCOMPARE(std::make_pair(got.minimum, got.maximum), std::make_pair(want.minimum, want.maximum));
    // The samples either side of the span continue the line to the border.
    QCOMPARE(got.before.valid, var.values().constFirst().timestamp < from);
    QCOMPARE(got.after.valid, var.values().constLast().timestamp >= from + span);
    QVERIFY(!got.before.valid || got.before.x < 0);
    QVERIFY(!got.after.valid || got.after.x >= width);
}

// Zoomed in between two samples, the range spans the line between them (other spans: see the batch).
void tst_GraphDecimator::valueRangeBetweenTwoSamples()
{
    const TelemetryVar var = makeVar(3000, 10, Noise);
    GraphDecimator decimator;
    double low = 0, high = 0;
    QVERIFY(decimator.valueRange(1, var, {1001, 5, 640}, &low, &high));
    const int i = var.indexAt(1001);
    QCOMPARE(std::make_pair(low, high),
             (std::pair<double, double>(std::minmax(var.numberAt(i), var.numberAt(i + 1)))));
}

void tst_GraphDecimator::summaryFollowsAppendsAndCuts()
{
    TelemetryVar var = makeVar(100000, 10, Noise);
    GraphDecimator decimator;
    const GraphDecimator::Request request{0, 2000000, 50};
    decimator.columns(1, var, request);
    QCOMPARE(decimator.summarized(1), 100000 / GraphDecimator::kBlock * GraphDecimator::kBlock);

    // Live data extends the summary and a new maximum deep inside a block is found.
    for (int i = 0; i < 5000; ++i)
        var.append(raw(1, 1, i == 2500 ? 9000000 : 0, var.values().constLast().timestamp + 10));
    QCOMPARE(decimator.columns(1, var, request).maximum, 900000.0);
    QVERIFY(decimator.summarized(1) > 100000);

    // A cut at the front shifts every index: the old summary must not be used.
    var.values().remove(0, 33333);
    var.values()[40000].value = 99999999;
    const GraphDecimator::Result got = decimator.columns(1, var, request);
    const GraphDecimator::Result want = bruteForce(var, request);
    QCOMPARE(got.maximum, 9999999.9);
    compareColumns(got, want);

    // Idle-time summarising reaches the end of the data.
    GraphDecimator idle;
    int slices = 0;
    while (!idle.summarize(2, var, 10000))
        ++slices;
    QVERIFY(slices >= 6);
    QCOMPARE(idle.summarized(2), var.count() / GraphDecimator::kBlock * GraphDecimator::kBlock);
}

void tst_GraphDecimator::batchMatchesEverySample()
{
    // Enough samples that the variables are shared out over the cores, one of them with blocks whose
    // samples do not share one kind; the same key twice must not be worked on twice at once.
    QVector<TelemetryVar> vars;
    vars << makeVar(400000, 10, Noise) << makeVar(300000, 13, MixedTypes) << makeVar(350000, 10, Gaps)
         << makeVar(500, 10, Noise);
    QVector<GraphDecimator::Job> jobs;
    for (int k = 0; k < vars.size(); ++k)
        jobs << GraphDecimator::Job{quint64(k + 1), &vars.at(k), {1000 + 777 * k, 3900000, 700 + k}};
    GraphDecimator::Job again = jobs.at(0);
    again.request.width = 90;
    jobs << again << GraphDecimator::Job(); // a second request for key 1, and an item without its variable

    GraphDecimator decimator;
    decimator.prepareRanges(jobs);
    for (int k = 0; k < vars.size(); ++k) {
        double low = 0, high = 0;
        QVERIFY(decimator.valueRange(jobs.at(k).key, vars.at(k), jobs.at(k).request, &low, &high));
        const GraphDecimator::Result want = bruteForce(vars.at(k), jobs.at(k).request);
        QCOMPARE(std::make_pair(low, high), std::make_pair(want.minimum, want.maximum));
    }
    decimator.prepareColumns(jobs);
    const int misses = decimator.misses();
    QCOMPARE(misses, vars.size());
    for (int k = 0; k < vars.size(); ++k) {
        compareColumns(decimator.columns(jobs.at(k).key, vars.at(k), jobs.at(k).request),
                       bruteForce(vars.at(k), jobs.at(k).request));
    }
    QCOMPARE(decimator.misses(), misses); // all answered from what was prepared
}

void tst_GraphDecimator::keptTracesFollowChanges_data()
{
    QTest::addColumn<QString>("change");
    QTest::newRow("colour") << "colour";
    QTest::newRow("theme") << "theme";
    QTest::newRow("manual range") << "range";
    QTest::newRow("line width") << "width";
    QTest::newRow("new samples") << "samples";
    QTest::newRow("window size") << "size";
    QTest::newRow("span") << "span";
    QTest::newRow("unit") << "unit";
}

void tst_GraphDecimator::keptTracesFollowChanges()
{
    // A renderer keeps each line's traced rows between drawings; after any change its image must be the
    // one a renderer that never drew before makes.
    QFETCH(QString, change);
    TelemetryVar voltage = makeVar(60000, 20, Noise);
    TelemetryVar current = makeVar(30000, 40, Gaps);
    GraphRenderer::Scene scene = sceneOf({&voltage, &current}, 1200000);
    QSize size(900, 500);
    GraphDecimator keptDecimator, freshDecimator;
    GraphRenderer kept(&keptDecimator), fresh(&freshDecimator);
    drawn(kept, scene, size);

    if (change == QLatin1String("colour"))
        scene.series[0].item.color = Qt::magenta;
    else if (change == QLatin1String("theme"))
        scene.theme = GraphTheme::Black;
    else if (change == QLatin1String("range")) {
        scene.series[0].item.autoRange = false;
        scene.series[0].item.minimum = -50;
        scene.series[0].item.maximum = 20;
    } else if (change == QLatin1String("width"))
        scene.series[1].item.lineWidth = 4;
    else if (change == QLatin1String("samples")) {
        for (int i = 0; i < 2000; ++i)
            voltage.append(raw(1, 1, i % 7 == 0 ? 30000 : -100, voltage.values().constLast().timestamp + 20));
        scene.window = 1300000;
        drawn(kept, scene, size); // live following: the window moves with the data
        for (int i = 0; i < 50; ++i)
            voltage.append(raw(1, 1, -90000, voltage.values().constLast().timestamp + 20));
    } else if (change == QLatin1String("size"))
        size = QSize(700, 420);
    else if (change == QLatin1String("unit")) {
        scene.series[0].unitCategory = voltage.unitCategory();
        scene.series[0].unitTarget = 1;
    } else
        scene.from = 55555;

    const QImage image = drawn(kept, scene, size);
    const QImage want = drawn(fresh, scene, size);
    QVERIFY(GraphSeriesPainter::isDense(fresh.result(0), fresh.plotRect().width()));
    QCOMPARE(image, want);
}

void tst_GraphDecimator::vectorPathsAgree()
{
    // Lines are written 8 or 4 pixels at a time depending on the processor; both must give one image,
    // with thick and thin lines over grid and fill, and a plot whose width is no multiple of either.
    TelemetryVar noisy = makeVar(90000, 10, Noise);
    TelemetryVar gappy = makeVar(40000, 20, Gaps);
    GraphRenderer::Scene scene = sceneOf({&noisy, &gappy}, 900000);
    scene.series[0].item.showGrid = scene.series[1].item.showGrid = true;
    scene.series[0].item.lineWidth = 1;
    scene.series[1].item.lineWidth = 5;
    scene.series[1].item.fill = true;
    QImage images[2];
    for (bool wide : {true, false}) {
        GraphSeriesPainter::setWideVectors(wide);
        GraphDecimator decimator;
        GraphRenderer renderer(&decimator);
        images[wide ? 0 : 1] = drawn(renderer, scene, QSize(1013, 377));
    }
    GraphSeriesPainter::setWideVectors(true);
    QCOMPARE(images[0], images[1]);
}

void tst_GraphDecimator::drawsSameExtremesAsEveryPoint_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("width");
    QTest::newRow("100 samples per column") << 30000 << 300;
    QTest::newRow("3 samples per column") << 900 << 300;
}

void tst_GraphDecimator::drawsSameExtremesAsEveryPoint()
{
    QFETCH(int, count);
    QFETCH(int, width);
    const TelemetryVar var = makeVar(count, 10, Noise);
    const QRect plot(10, 5, width, 120);
    const GraphSeriesPainter::Mapping mapping{plot, -45000, 45000};
    const GraphDecimator::Request request{var.values().constFirst().timestamp, qint64(count) * 10, width};
    const QRgb background = qRgb(255, 255, 255);

    // Every point through the painter, one pixel wide, not antialiased.
    QImage reference(plot.right() + 11, plot.bottom() + 6, QImage::Format_ARGB32_Premultiplied);
    reference.fill(background);
    {
        QPainter p(&reference);
        p.setClipRect(plot);
        p.setPen(QPen(Qt::black, 0));
        QPolygonF line;
        for (const TelemetryValue &v : var.values()) {
            line << QPointF(plot.left() + double(v.timestamp - request.from) * width / request.span,
                            plot.top() + mapping.rowOf(v.toNumber()) + 0.5);
        }
        p.drawPolyline(line);
    }
    QImage reduced(reference.size(), QImage::Format_ARGB32_Premultiplied);
    reduced.fill(background);
    GraphDecimator decimator;
    GraphSeriesPainter::draw(&reduced, mapping, decimator.columns(1, var, request), {Qt::black, 1.0});

    const Extent want = extentOf(reference, plot, background);
    const Extent got = extentOf(reduced, plot, background);
    // Where the two ways round a line's end to different columns, a neighbour's extreme counts.
    const auto near = [width](const QVector<int> &v, int c, bool lowest) {
        int best = lowest ? INT_MAX : INT_MIN;
        for (int k = std::max(0, c - 1); k <= std::min(width - 1, c + 1); ++k)
            best = lowest ? std::min(best, v.at(k)) : std::max(best, v.at(k));
        return best;
    };
    for (int c = 1; c < width - 1; ++c) {
        const QByteArray where = QByteArray::number(c);
        QVERIFY2(got.top.at(c) >= near(want.top, c, true) - 1, where.constData());
        QVERIFY2(want.top.at(c) >= near(got.top, c, true) - 1, where.constData());
        QVERIFY2(got.bottom.at(c) <= near(want.bottom, c, false) + 1, where.constData());
        QVERIFY2(want.bottom.at(c) <= near(got.bottom, c, false) + 1, where.constData());
    }
}

void tst_GraphDecimator::gapsAreNotJoined_data()
{
    QTest::addColumn<int>("spacing");
    QTest::newRow("dense") << 10;
    QTest::newRow("sparse") << 1000;
}

void tst_GraphDecimator::gapsAreNotJoined()
{
    QFETCH(int, spacing);
    // Two stretches of a steady value with a pause of 10 s between them.
    TelemetryVar var(1, 2, QStringLiteral("Voltage"), QStringLiteral("V"));
    qint32 ts = 0;
    for (; ts <= 20000; ts += spacing)
        var.append(raw(1, 0, 50, ts));
    for (ts += 10000; ts <= 50000; ts += spacing)
        var.append(raw(1, 0, 50, ts));
    const QRect plot(0, 0, 500, 40);
    const GraphSeriesPainter::Mapping mapping{plot, 0, 100};
    const GraphDecimator::Request request{0, 50000, plot.width()};
    QImage image(plot.size(), QImage::Format_ARGB32_Premultiplied);
    const QRgb background = qRgb(255, 255, 255);
    image.fill(background);
    GraphDecimator decimator;
    GraphSeriesPainter::draw(&image, mapping, decimator.columns(1, var, request), {Qt::red});
    const Extent e = extentOf(image, plot, background);
    // Drawn up to the last sample before the pause and from the first after it, nothing in between.
    QVERIFY(e.top.at(150) != INT_MAX);
    QVERIFY(e.top.at(350) != INT_MAX);
    for (int c = 210; c < 295; ++c)
        QVERIFY2(e.top.at(c) == INT_MAX, qPrintable(QString::number(c)));
}

QTEST_MAIN(tst_GraphDecimator)
#include "tst_GraphDecimator.moc"
