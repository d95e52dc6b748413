#include "LayoutTestSupport.h"

#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "tests/support/TestSamples.h"
#include "widgets/graph/GraphRenderer.h"
#include "widgets/graph/WidgetGraph.h"
#include "widgets/graph/WidgetGraphExport.h"
#include "widgets/graph/WidgetGraphProperties.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QMenu>
#include <QMimeData>
#include <QPushButton>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QtTest>

#include <cmath>
#include <functional>
#include <memory>

namespace {
constexpr quint32 kDevice = 5;
constexpr qint32 kEnd = 600000; // ten minutes at 10 Hz

// A Vario from `first` to `last` ms at 10 Hz: altitude climbing 1 m a second, the voltage falling.
TelemetryDataPackage vario(qint32 first, qint32 last)
{
    TelemetryDataPackage p;
    p.addDevice(kDevice, QStringLiteral("Vario"));
    TelemetryVar altitude(kDevice, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    TelemetryVar voltage(kDevice, 2, QStringLiteral("Voltage"), QStringLiteral("V"));
    for (qint32 t = first; t <= last; t += 100) {
        altitude.append(raw(1, 1, t / 100, t));
        voltage.append(raw(1, 2, 1260 - t / 2000, t));
    }
    p.devices()[0].vars() << altitude << voltage;
    return p;
}

// The ten-minute flight with two alarms and a text.
TelemetryDataPackage flight()
{
    TelemetryDataPackage p = vario(0, kEnd);
    TelemetryMessage message;
    message.alarm = 'V';
    message.type = TelemetryMessage::kAlarmType;
    for (qint32 t : {12000, 400000}) {
        message.timestamp = t;
        p.messages() << message;
    }
    TelemetryMessage text;
    text.text = QStringLiteral("Landing");
    text.timestamp = 590000;
    p.messages() << text;
    return p;
}

QByteArray itemText(const GraphItem &item)
{
    LayoutJsonWriter writer;
    item.toLayout(writer);
    return writer.data();
}

// Runs work on the dialog of type T once it is shown modally.
template <class T> void onModal(std::function<void(T *)> work)
{
    auto *timer = new QTimer;
    timer->setInterval(10);
    QObject::connect(timer, &QTimer::timeout, [timer, work] {
        if (auto *dialog = qobject_cast<T *>(QApplication::activeModalWidget())) {
            timer->stop();
            timer->deleteLater();
            work(dialog);
        }
    });
    timer->start();
}

void sendMouse(QWidget *w, QEvent::Type type, const QPoint &pos, Qt::MouseButton button,
               Qt::MouseButtons buttons)
{
    QMouseEvent event(type, pos, w->mapToGlobal(pos), button, buttons, Qt::NoModifier);
    QCoreApplication::sendEvent(w, &event);
}

void drag(QWidget *w, const QPoint &from, const QPoint &to)
{
    sendMouse(w, QEvent::MouseButtonPress, from, Qt::LeftButton, Qt::LeftButton);
    sendMouse(w, QEvent::MouseMove, to, Qt::NoButton, Qt::LeftButton);
    sendMouse(w, QEvent::MouseButtonRelease, to, Qt::LeftButton, Qt::NoButton);
}

void sendWheel(QWidget *w, const QPoint &pos, int delta)
{
    QWheelEvent event(pos, w->mapToGlobal(pos), QPoint(), QPoint(0, delta), Qt::NoButton, Qt::NoModifier,
                      Qt::NoScrollPhase, false);
    QCoreApplication::sendEvent(w, &event);
}

// For the measuring cursors: a 400 s flight with a steady 50 Hz speed (more samples than are ever read
// one by one) and a 2 Hz temperature that stops from 100 s to 150 s.
constexpr quint32 kMeasured = 7;
TelemetryDataPackage measuredFlight()
{
    TelemetryDataPackage p;
    const int index = p.addDevice(kMeasured, QStringLiteral("Logger"));
    TelemetryVar speed(kMeasured, 1, QStringLiteral("Speed"), QStringLiteral("km/h"));
    TelemetryVar temperature(kMeasured, 2, QStringLiteral("Temp"), QStringLiteral("C"));
    QRandomGenerator random(12);
    qint32 v = 500;
    for (qint32 t = 0; t <= 400000; t += 20) {
        v = std::clamp(v + int(random.bounded(21)) - 10, 0, 3000);
        speed.append(raw(4, 1, v, t));
        if (t % 500 == 0 && (t < 100000 || t > 150000))
            temperature.append(raw(4, 2, 2000 + int(random.bounded(900)), t));
    }
    p.devices()[index].vars() << speed << temperature;
    return p;
}

// What the readout must show, from the samples alone: linear between samples less than 1.501 s apart,
// nothing in a longer gap or that long after the last sample.
double referenceValueAt(const TelemetryVar &var, qint64 t)
{
    const QVector<TelemetryValue> &v = var.values();
    for (int i = 0; i < v.size(); ++i) {
        if (v[i].timestamp == t)
            return v[i].toNumber();
        if (v[i].timestamp > t) {
            if (i == 0 || v[i].timestamp - v[i - 1].timestamp >= 1501)
                return qQNaN();
            const double f = double(t - v[i - 1].timestamp) / (v[i].timestamp - v[i - 1].timestamp);
            return v[i - 1].toNumber() + f * (v[i].toNumber() - v[i - 1].toNumber());
        }
    }
    return !v.isEmpty() && t - v.constLast().timestamp < 1501 ? v.constLast().toNumber() : qQNaN();
}

bool sameNumber(double actual, double expected)
{
    return (std::isnan(actual) && std::isnan(expected)) ||
           std::abs(actual - expected) <= 1e-9 * std::max(1.0, std::abs(expected));
}

} // namespace

class tst_WidgetGraph : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void loadLayout_data();
    void loadLayout();
    void savedScaling_data();
    void savedScaling();
    void layoutRoundTrip();
    void contextMenu();
    void dropAddsVariable();
    void itemLabels_data();
    void itemLabels();
    void missingVariableKeepsItsName();
    void mouseSharesCursor();
    void wheelAndDrag();
    void followsLiveData();
    void propertiesPreviewAndCancel();
    void propertiesUnitChange();
    void propertiesSaveDefaults();
    void cutRecording_data();
    void cutRecording();
    void cutOnlyInsideTheRecording_data();
    void cutOnlyInsideTheRecording();
    void valueAtCursor();
    void themes();
    void exportImage();
    void logOpensAtItsStart_data();
    void logOpensAtItsStart();
    void measuringCursors_data();
    void measuringCursors();
    void measuringCursorGestures();

private:
    std::unique_ptr<ScriptedPrompter> m_prompter; // outlives the graph
    std::unique_ptr<TelemetryData> m_store;
    std::unique_ptr<MemorySensorTable> m_table;
    std::unique_ptr<WidgetGraph> m_graph;
    std::unique_ptr<QMenu> m_menu;

    const TelemetryVar *var(quint32 param) const { return m_store->package().device(kDevice)->var(param); }
    // The entry of a fresh context menu opened at `at`.
    QAction *entry(const QPoint &at, const QString &prefix)
    {
        m_menu.reset(m_graph->createContextMenu(at));
        return menuEntry(m_menu.get(), prefix);
    }
    QRect plot()
    {
        m_graph->grab();
        return m_graph->renderer().plotRect();
    }
};

void tst_WidgetGraph::initTestCase()
{
    registerTelemetryMetaTypes();
}

void tst_WidgetGraph::init()
{
    m_store = std::make_unique<TelemetryData>();
    m_store->setPackage(flight());
    m_table = std::make_unique<MemorySensorTable>();
    m_graph = std::make_unique<WidgetGraph>(m_store.get(), m_table.get());
    m_graph->resize(900, 400);
    m_prompter = std::make_unique<ScriptedPrompter>();
    m_graph->setPrompter(m_prompter.get());
}

void tst_WidgetGraph::cleanup()
{
    m_menu.reset();
    m_graph.reset();
    m_table.reset();
    m_store.reset();
    m_prompter.reset();
}

void tst_WidgetGraph::loadLayout_data()
{
    QTest::addColumn<QByteArray>("sensors");
    QTest::addColumn<qint64>("window");
    QTest::addColumn<QByteArray>("firstItem"); // the first item as saved, "" when none

    const auto row = [](const char *name, const char *sensors, qint64 window, const char *first) {
        QTest::newRow(name) << QByteArray(sensors) << window << QByteArray(first);
    };
    row("element of two: defaults", R"("Sensors":[[5,1]])", 30000, R"([5,1,1,0,0,0,0,2001125,"",0,128,20])");
    row("window of 60 s", R"("TimeWindow":60)", 60000, "");
    row("fractional window", R"("TimeWindow":2.5)", 2500, "");
    row("every field", R"("Sensors":[[5,2,0,1,1,-250,1250,16711680,"V",1,64,5]])", 30000,
        R"([5,2,0,1,1,-250,1250,16711680,"V",1,64,5])");
    row("no parameter: skipped", R"("Sensors":[[5],[],[5,2,1,0,0,0,0,255,"V",0,128,20]])", 30000,
        R"([5,2,1,0,0,0,0,255,"V",0,128,20])");
    row("malformed fields keep defaults", R"("Sensors":[[5,1,"yes",null,{},"x",[],0.5,3,"1",999,"w"]])",
        30000, R"([5,1,1,0,0,0,0,2001125,"",0,255,20])");
    row("colour with its alpha byte, signed", R"("Sensors":[[5,1,1,0,0,0,0,-14776091,"m",0,128,20]])", 30000,
        R"([5,1,1,0,0,0,0,2001125,"m",0,128,20])");
    row("same variable twice",
        R"("Sensors":[[5,1,1,0,0,0,0,255,"m",0,128,20],[5,1,0,0,0,0,0,0,"m",0,128,20]])", 30000,
        R"([5,1,1,0,0,0,0,255,"m",0,128,20])");
}

void tst_WidgetGraph::loadLayout()
{
    QFETCH(QByteArray, sensors);
    QFETCH(qint64, window);
    QFETCH(QByteArray, firstItem);
    QCOMPARE(m_graph->load(parsed(R"({"Type":"Graph",)" + sensors + "}")), 0);
    QCOMPARE(m_graph->timeWindow(), window);
    QCOMPARE(m_graph->items().size(), firstItem.isEmpty() ? 0 : 1);
    if (!firstItem.isEmpty())
        QCOMPARE(itemText(m_graph->items().constFirst()), firstItem);
}

void tst_WidgetGraph::savedScaling_data()
{
    QTest::addColumn<double>("lineWidth");
    QTest::addColumn<double>("minimum");
    QTest::addColumn<double>("maximum");
    QTest::addColumn<QByteArray>("saved");
    QTest::newRow("thinnest") << 0.5 << -2.5 << 12.6 << QByteArray(R"([5,1,0,0,0,-250,1260,0,"m",0,128,5])");
    QTest::newRow("thickest") << 10.0 << 0.01 << 1000000.0
                              << QByteArray(R"([5,1,0,0,0,1,100000000,0,"m",0,128,100])");
    QTest::newRow("rounded") << 1.25 << 0.005 << -0.004 << QByteArray(R"([5,1,0,0,0,1,0,0,"m",0,128,13])");
}

void tst_WidgetGraph::savedScaling()
{
    QFETCH(double, lineWidth);
    QFETCH(double, minimum);
    QFETCH(double, maximum);
    QFETCH(QByteArray, saved);
    GraphItem item;
    QVERIFY(GraphItem::fromLayout(parsed(R"([5,1,0,0,0,0,0,0,"m",0,128,20])"), &item));
    item.lineWidth = lineWidth;
    item.minimum = minimum;
    item.maximum = maximum;
    QCOMPARE(itemText(item), saved);
}

void tst_WidgetGraph::layoutRoundTrip()
{
    const QByteArray json =
        R"({"Type":"Graph","ShowMessages":1,"ShowGrid":1,"Theme":2,"TimeWindow":12.5,"TimeFrom":100000,"Sensors":[[5,1,0,1,1,-1000,25000,16711680,"ft.",1,77,35],[5,2,1,0,0,0,0,65280,"V",0,128,20]]})";
    QCOMPARE(m_graph->load(parsed(json)), 0);
    QCOMPARE(m_graph->timeFrom(), qint64(100000));
    QCOMPARE(m_graph->theme(), 2);
    QVERIFY(m_graph->showMessages() && m_graph->showGrid());
    QCOMPARE(saved(*m_graph, SerializableWidget::kForDatabase), json);
    // The file form keeps the items: a graph is nothing without them.
    QCOMPARE(saved(*m_graph, SerializableWidget::kForFile), json);
}

void tst_WidgetGraph::contextMenu()
{
    m_graph->addData(var(1));
    m_graph->addData(var(2));
    const QPoint inPlot = plot().center();
    std::unique_ptr<QMenu> menu(m_graph->createContextMenu(inPlot));
    QCOMPARE(menuTexts(menu.get()).mid(0, 12),
             (QStringList{"Show alarms (2 items)", "Show time grid", "-", "Reset timeline", "Export image...",
                          "-", "Theme", "-", "Properties...", "Auto zoom", "Remove", "Remove all"}));
    QMenu *themes = menuEntry(menu.get(), "Theme")->menu();
    QCOMPARE(menuTexts(themes), (QStringList{"White", "Black", "Gray"}));
    QVERIFY(themes->actions().at(0)->isChecked());
    QVERIFY(menuEntry(menu.get(), "Properties...")->isEnabled() &&
            menuEntry(menu.get(), "Remove telemetry before")->isEnabled());
    for (const char *name : {"Show alarms", "Show time grid"}) {
        QVERIFY(menuEntry(menu.get(), name)->isCheckable());
        menuEntry(menu.get(), name)->trigger();
    }
    themes->actions().at(1)->trigger();
    QVERIFY(m_graph->showMessages() && m_graph->showGrid());
    QCOMPARE(m_graph->theme(), 1);

    entry(inPlot, "Auto zoom")->trigger();
    QCOMPARE(m_graph->timeWindow(), qint64(kEnd));

    // "Remove" takes the item under the mouse: here its Y axis.
    entry(m_graph->renderer().axes().at(1).rect.center(), "Remove")->trigger();
    QVERIFY(m_graph->items().size() == 1 && m_graph->items().constFirst().param == 1u);

    // With nothing plotted there is nothing to show properties of or remove.
    m_graph->removeAll();
    for (const char *name : {"Properties...", "Remove", "Remove all"})
        QVERIFY2(!entry(inPlot, name)->isEnabled(), name);
    // Cutting while recording would fight the live data.
    m_graph->setLogging(true);
    QVERIFY(!entry(inPlot, "Remove telemetry before")->isEnabled());
}

void tst_WidgetGraph::dropAddsVariable()
{
    const auto drop = [this](QMimeData *data) { return dropOn(m_graph.get(), data); };
    QVERIFY(drop(SensorDragData::forVariable({kDevice, 2})));
    QCOMPARE(m_graph->itemLabel(0), QStringLiteral("Voltage [V]"));
    // The same variable again, and a variable the store does not hold, add nothing; other payloads are
    // refused.
    QVERIFY(drop(SensorDragData::forVariable({kDevice, 2})));
    QVERIFY(drop(SensorDragData::forVariable({kDevice, 9})));
    QCOMPARE(m_graph->items().size(), 1);
    auto *text = new QMimeData;
    text->setText(TelemetrySimplePair(kDevice, 1).toJsonText());
    QVERIFY(!drop(text));
    QVERIFY(!drop(SensorDragData::forGpsDevice(kDevice)));
}

void tst_WidgetGraph::itemLabels_data()
{
    QTest::addColumn<quint32>("param");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<QString>("label");
    const auto row = [](const char *name, quint32 param, const char *unit, const char *label) {
        QTest::newRow(name) << param << QString(unit) << QString(label);
    };
    row("own unit", 1, "m", "Altitude [m]");
    row("converted", 1, "ft.", "Altitude [ft.]");
    row("unit of another category", 1, "km/h", "Altitude [m]");
    row("variable not in the store", 7, "m", "5:7 [m] (not in this log)");
    row("named by the sensor settings", 8, "", "Airspeed [km/h] (not in this log)");
}

void tst_WidgetGraph::itemLabels()
{
    QFETCH(quint32, param);
    QFETCH(QString, unit);
    QFETCH(QString, label);
    SensorRow row;
    row.id = kDevice;
    row.param = 8;
    row.label = QStringLiteral("Airspeed");
    row.unit = QStringLiteral("m/s");
    row.unitConversion = QStringLiteral("1");
    m_table->insertDefaultSensor(row);
    const QString json = QStringLiteral(R"({"Type":"Graph","Sensors":[[5,%1,1,0,0,0,0,255,"%2",0,128,20]]})");
    QCOMPARE(m_graph->load(parsed(json.arg(param).arg(unit).toUtf8())), 0);
    QCOMPARE(m_graph->itemLabel(0), label);
}

// A log without the variable leaves its axis with the name it had, greyed; a log with it plots it again.
void tst_WidgetGraph::missingVariableKeepsItsName()
{
    m_graph->addData(var(1));
    const QRgb colour = m_graph->items().at(0).color.rgb();
    const auto colouredAxisPixels = [this, colour] {
        m_graph->sensorsUpdated(m_store->sensors());
        m_graph->grab();
        const QRect axis = m_graph->renderer().axes().at(0).rect;
        const QImage image = m_graph->renderImage(m_graph->size());
        int n = 0;
        for (int y = axis.top(); y <= axis.bottom(); ++y) {
            for (int x = axis.left(); x <= axis.right(); ++x)
                n += image.pixel(x, y) == colour ? 1 : 0;
        }
        return n;
    };
    QVERIFY(colouredAxisPixels() > 0);

    TelemetryDataPackage other;
    other.addDevice(kDevice + 1, QStringLiteral("Other"));
    m_store->setPackage(other);
    QCOMPARE(m_graph->itemLabel(0), QStringLiteral("Altitude [m] (not in this log)"));
    QCOMPARE(colouredAxisPixels(), 0);

    m_store->setPackage(flight());
    QCOMPARE(m_graph->itemLabel(0), QStringLiteral("Altitude [m]"));
    QVERIFY(colouredAxisPixels() > 0);
    QVERIFY(m_graph->renderer().result(0).columns.size() > 0);
}

void tst_WidgetGraph::mouseSharesCursor()
{
    m_graph->addData(var(1));
    m_graph->setTimeSpan(10000, 30000);
    const QRect plot = this->plot();
    QSignalSpy spy(m_graph.get(), &WidgetGraph::mouseOverTimestamp);
    const QPoint quarter(plot.left() + plot.width() / 4, plot.center().y());
    sendMouse(m_graph.get(), QEvent::MouseMove, quarter, Qt::NoButton, Qt::NoButton);
    QCOMPARE(spy.count(), 1);
    QVERIFY(qAbs(spy.at(0).at(0).value<long>() - 17500) <= 30000 / plot.width() + 1);
    QCOMPARE(spy.at(0).at(1).toBool(), false);
    QVERIFY(m_graph->hasCursor());
    // A click pins the cursor: the flag says so.
    sendMouse(m_graph.get(), QEvent::MouseButtonPress, quarter, Qt::LeftButton, Qt::LeftButton);
    sendMouse(m_graph.get(), QEvent::MouseButtonRelease, quarter, Qt::LeftButton, Qt::NoButton);
    QVERIFY(spy.count() == 2 && spy.at(1).at(1).toBool());
    // Outside the plot nothing is emitted.
    sendMouse(m_graph.get(), QEvent::MouseMove, QPoint(plot.right() + 40, 2), Qt::NoButton, Qt::NoButton);
    QCOMPARE(spy.count(), 2);

    // Another window's time is drawn; hovering elsewhere never moves the view, a set position (playback)
    // outside it does.
    m_graph->externalTimestampMoved(20000, false);
    QCOMPARE(m_graph->cursorTimestamp(), qint64(20000));
    m_graph->externalTimestampMoved(300000, false);
    QCOMPARE(m_graph->timeFrom(), qint64(10000));
    m_graph->externalTimestampMoved(300000, true);
    QVERIFY(m_graph->timeFrom() <= 300000 && m_graph->timeFrom() + m_graph->timeWindow() > 300000);
}

void tst_WidgetGraph::wheelAndDrag()
{
    m_graph->addData(var(1));
    m_graph->setTimeSpan(100000, 60000);
    const QRect plot = this->plot();
    const QPoint at(plot.left() + plot.width() / 4, plot.center().y());
    sendWheel(m_graph.get(), at, 120);
    QVERIFY(m_graph->timeWindow() < 60000);
    sendWheel(m_graph.get(), at, -240);
    QVERIFY(m_graph->timeWindow() > 60000);

    // Dragging right shows earlier data, and is no click.
    m_graph->setTimeSpan(100000, 60000);
    m_graph->grab();
    QSignalSpy spy(m_graph.get(), &WidgetGraph::mouseOverTimestamp);
    drag(m_graph.get(), at, at + QPoint(plot.width() / 2, 0));
    QVERIFY(qAbs(m_graph->timeFrom() - 70000) <= 200);
    QCOMPARE(spy.count(), 0);

    // A locked Y axis ignores wheel and drag; an unlocked one zooms about the mouse and keeps its range.
    m_graph->addData(var(2));
    GraphItem locked = m_graph->items().at(1);
    locked.locked = true;
    m_graph->setItem(1, locked);
    m_graph->grab();
    const GraphRenderer::Axis before = m_graph->renderer().axes().at(0);
    const QPoint fixed = m_graph->renderer().axes().at(1).rect.center();
    sendWheel(m_graph.get(), fixed, 120);
    drag(m_graph.get(), fixed, fixed + QPoint(0, 60));
    QVERIFY(m_graph->items().at(1).autoRange);
    sendWheel(m_graph.get(), before.rect.center(), 120);
    const GraphItem &item = m_graph->items().at(0);
    QVERIFY(!item.autoRange);
    QVERIFY(item.minimum > before.low && item.maximum < before.high);
}

void tst_WidgetGraph::followsLiveData()
{
    // A recording as the live link builds it: described, then fed in batches.
    TelemetryData live;
    live.describeSensor(kDevice, 0, QStringLiteral("Vario"), QString());
    live.describeSensor(kDevice, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    WidgetGraph graph(&live);
    graph.resize(600, 300);
    connect(&live, &TelemetryData::valueAdded, &graph, &WidgetGraph::dataUpdated);
    connect(&live, &TelemetryData::loggingStatusChanged, &graph, &WidgetGraph::setLogging);
    graph.addData(live.package().device(kDevice)->var(1));
    live.setLogging(true);
    qint32 t = 0;
    for (; t < 45000; t += 100)
        live.appendSamples({{kDevice, 1, raw(1, 1, t / 100, t)}});
    // Redrawn on the window's timer, not per batch: the newest data at the right edge.
    QTRY_COMPARE(graph.timeFrom() + graph.timeWindow(), qint64(t - 100));
    QCOMPARE(graph.timeWindow(), qint64(30000));
}

void tst_WidgetGraph::propertiesPreviewAndCancel()
{
    m_graph->addData(var(1));
    const QByteArray colour = QByteArray::number(m_graph->items().at(0).color.rgb() & 0xFFFFFF);
    QByteArray previewed;
    onModal<WidgetGraphProperties>([&](WidgetGraphProperties *dialog) {
        QCOMPARE(dialog->windowTitle(), QStringLiteral("Chart properties: Altitude"));
        QCOMPARE(dialog->prompter(), static_cast<Prompter *>(m_prompter.get())); // the graph's own
        dialog->lineWidthBox()->setValue(4.5);
        dialog->fillBox()->setChecked(true);
        dialog->autoRangeBox()->setChecked(false);
        dialog->maximumBox()->setValue(250);
        dialog->setColor(Qt::magenta);
        dialog->rejectColor();
        // Every change shows in the graph while the dialog is open.
        previewed = itemText(m_graph->items().at(0));
        dialog->reject();
    });
    m_graph->showProperties(0);
    QCOMPARE(previewed, "[5,1,0,0,0,0,25000," + colour + R"(,"m",1,128,45])");
    QCOMPARE(itemText(m_graph->items().at(0)), "[5,1,1,0,0,0,0," + colour + R"(,"m",0,128,20])");
}

void tst_WidgetGraph::propertiesUnitChange()
{
    m_graph->addData(var(1));
    connect(m_graph.get(), &WidgetGraph::unitChanged, m_store.get(), &TelemetryData::setUnit);
    QSignalSpy spy(m_graph.get(), &WidgetGraph::unitChanged);
    QStringList offered;
    onModal<WidgetGraphProperties>([&](WidgetGraphProperties *dialog) {
        for (int i = 0; i < dialog->unitBox()->count(); ++i)
            offered << dialog->unitBox()->itemText(i);
        dialog->unitBox()->setCurrentText(QStringLiteral("ft."));
        dialog->lineWidthBox()->setValue(3.0);
        dialog->accept();
    });
    m_graph->showProperties(0);
    QCOMPARE(offered, (QStringList{"m", "km", "ft.", "yd.", "mi."}));
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).value<TelemetrySimplePair>(), TelemetrySimplePair(kDevice, 1));
    QCOMPARE(spy.at(0).at(1).toString(), QStringLiteral("ft."));
    QCOMPARE(m_graph->items().at(0).lineWidth, 3.0);
    QCOMPARE(var(1)->displayUnit(), QStringLiteral("ft."));
    QCOMPARE(m_graph->itemLabel(0), QStringLiteral("Altitude [ft.]"));
}

void tst_WidgetGraph::propertiesSaveDefaults()
{
    GraphItem item;
    item.deviceId = kDevice;
    item.param = 1;
    item.unit = QStringLiteral("km");
    item.color = QColor(1, 2, 3);
    WidgetGraphProperties dialog(item, QStringLiteral("Altitude"), QStringLiteral("m"), 1, m_table.get());
    // The fill's alpha is shown in percent; a round trip through the box keeps it within one step.
    QCOMPARE(dialog.transparencyBox()->value(), 50);
    dialog.transparencyBox()->setValue(49);
    dialog.transparencyBox()->setValue(50);
    QVERIFY(qAbs(dialog.item().fillAlpha - 128) <= 1);
    dialog.autoRangeBox()->setChecked(false);
    dialog.minimumBox()->setValue(-5);
    dialog.maximumBox()->setValue(120.25);
    QVERIFY(dialog.saveAsDefault());
    SensorRow row;
    const auto stored = [&] {
        return m_table->findSensor(kDevice, 1, &row)
                   ? QVariantList{row.label, row.unitConversion, row.defaultMin, row.defaultMax,
                                  row.defaultColor}
                   : QVariantList();
    };
    QCOMPARE(stored(), (QVariantList{"Altitude", "1", -5.0, 120.25, 0x010203}));
    // A new item for the variable takes them.
    m_graph->addData(var(1));
    QCOMPARE(itemText(m_graph->items().at(0)), QByteArray(R"([5,1,0,0,0,-500,12025,66051,"m",0,128,20])"));
    // Automatic range is stored as an empty range.
    dialog.autoRangeBox()->setChecked(true);
    QVERIFY(dialog.saveAsDefault());
    QCOMPARE(stored(), (QVariantList{"Altitude", "1", 0.0, 0.0, 0x010203}));
    // Without a sensor table the button is off.
    WidgetGraphProperties none(item, QStringLiteral("Altitude"), QStringLiteral("m"), 1, nullptr);
    QVERIFY(!none.defaultsButton()->isEnabled());
}

void tst_WidgetGraph::cutRecording_data()
{
    QTest::addColumn<bool>("before");
    QTest::addColumn<int>("answer");
    QTest::newRow("before, yes") << true << int(QMessageBox::Yes);
    QTest::newRow("after, yes") << false << int(QMessageBox::Yes);
    QTest::newRow("before, no") << true << int(QMessageBox::No);
}

void tst_WidgetGraph::cutRecording()
{
    QFETCH(bool, before);
    QFETCH(int, answer);
    m_prompter->buttons.enqueue(QMessageBox::StandardButton(answer));
    // Wired as the main window wires it: through the hub.
    WindowHub hub;
    WidgetGraph::wire(m_graph.get(), &hub, m_store.get());
    connect(&hub, &WindowHub::removeTelemetryBeforeTimestamp, m_store.get(),
            [this](long t) { m_store->removeDataBeforeTimestamp(t); });
    connect(&hub, &WindowHub::removeTelemetryAfterTimestamp, m_store.get(),
            [this](long t) { m_store->removeDataAfterTimestamp(t); });
    connect(&hub, &WindowHub::undoCutRequest, m_store.get(), &TelemetryData::undoCut);
    m_graph->addData(var(1));
    m_graph->setTimeSpan(0, 60000);
    const QPoint at = plot().center();
    const qint64 t = m_graph->renderer().timeAtX(at.x());
    QAction *cut = entry(at, before ? "Remove telemetry before" : "Remove telemetry after");
    QVERIFY(cut->isEnabled());
    cut->trigger();
    QVERIFY(m_prompter->only().startsWith("question|Confirmation|"));
    // Enter in the confirmation must not destroy the recording.
    QCOMPARE(m_prompter->asked.at(0).buttons, QMessageBox::Yes | QMessageBox::No);
    QCOMPARE(m_prompter->asked.at(0).defaultButton, QMessageBox::No);
    // Kept: all of it, or from the first sample at or after t, or up to the last one at or before it.
    const auto kept = [this] {
        return std::make_tuple(var(1)->count(), var(1)->values().constFirst().timestamp,
                               var(1)->values().constLast().timestamp);
    };
    const bool no = answer == QMessageBox::No;
    const qint32 first = no || !before ? 0 : qint32((t + 99) / 100 * 100);
    const qint32 last = no || before ? kEnd : qint32(t / 100 * 100);
    QCOMPARE(kept(), std::make_tuple((last - first) / 100 + 1, first, last));

    // One step back, offered only while there is one.
    QAction *undo = entry(at, "Undo cut");
    QCOMPARE(undo->isEnabled(), !no);
    undo->trigger();
    QCOMPARE(kept(), std::make_tuple(kEnd / 100 + 1, 0, kEnd));
    QVERIFY(!entry(at, "Undo cut")->isEnabled());
}

// Only a time strictly inside the recording can be cut at: before its first sample "after" would drop
// everything, and at or beyond either end there is nothing to drop.
void tst_WidgetGraph::cutOnlyInsideTheRecording_data()
{
    QTest::addColumn<qint64>("t");
    QTest::addColumn<bool>("enabled");
    QTest::newRow("before the first sample") << qint64(10000) << false;
    QTest::newRow("inside") << qint64(30000) << true;
    QTest::newRow("after the last sample") << qint64(50000) << false;
}

void tst_WidgetGraph::cutOnlyInsideTheRecording()
{
    QFETCH(qint64, t);
    QFETCH(bool, enabled);
    m_store->setPackage(vario(20000, 40000));
    m_graph->addData(var(1));
    m_graph->setTimeSpan(0, 60000);
    const QPoint at(int(std::lround(m_graph->renderer().xAtTime(t))), plot().center().y());
    QCOMPARE(m_graph->timeFrom(), qint64(0));
    QCOMPARE(entry(at, "Remove telemetry before")->isEnabled(), enabled);
    QCOMPARE(entry(at, "Remove telemetry after")->isEnabled(), enabled);
}

// The readout's rules are measured below with the cursors; here its unit.
void tst_WidgetGraph::valueAtCursor()
{
    TelemetryVar v(1, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    v.append(raw(1, 0, 10, 1000));
    v.append(raw(1, 0, 20, 2000));
    QCOMPARE(GraphRenderer::valueAt(v, 1500, v.unitCategory(), 1), 0.015); // in kilometres
}

void tst_WidgetGraph::themes()
{
    const GraphTheme white = GraphTheme::forIndex(GraphTheme::White);
    QCOMPARE((QList<QColor>{white.background, white.grid, white.axis, white.text}),
             (QList<QColor>{Qt::white, QColor(221, 221, 221), QColor(170, 170, 170), Qt::black}));
    for (int theme : {GraphTheme::White, GraphTheme::Black, GraphTheme::Gray}) {
        m_graph->setTheme(theme);
        const QImage image = m_graph->renderImage(QSize(300, 200));
        QCOMPARE(QColor(image.pixel(1, 1)), GraphTheme::forIndex(theme).background);
    }
    QCOMPARE(GraphTheme::forIndex(GraphTheme::Black).background, QColor(Qt::black));
}

void tst_WidgetGraph::exportImage()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("graph.png"));
    m_graph->addData(var(1));
    WidgetGraphExport::Settings settings;
    settings.path = path;
    settings.width = 640;
    settings.height = 480;
    WidgetGraphExport dialog(settings, QSize(900, 400),
                             [this](const QSize &size) { return m_graph->renderImage(size); });
    dialog.setPrompter(m_prompter.get());
    QVERIFY(dialog.exportImage());
    QCOMPARE(QImage(path).size(), QSize(640, 480));
    QVERIFY(m_prompter->asked.isEmpty());

    // Replacing asks first; "No" leaves the file alone.
    dialog.widthBox()->setValue(320);
    m_prompter->buttons.enqueue(QMessageBox::No);
    QVERIFY(!dialog.exportImage());
    QCOMPARE(m_prompter->only(), QStringLiteral("question|File exists|File exists. Overwrite?"));
    QCOMPARE(QImage(path).width(), 640);
    m_prompter->buttons.enqueue(QMessageBox::Yes);
    QVERIFY(dialog.exportImage());
    QCOMPARE(QImage(path).size(), QSize(320, 480));

    // A folder is refused with the reason.
    m_prompter->asked.clear();
    dialog.setPath(dir.path());
    QVERIFY(!dialog.exportImage());
    QVERIFY(
        m_prompter->only().startsWith(QStringLiteral("error|Error|<b>Unable to export image:</b><ul><li>")));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("graph.png")});
}

void tst_WidgetGraph::logOpensAtItsStart_data()
{
    QTest::addColumn<bool>("autoZoom");
    QTest::newRow("its first 30 s") << false;
    QTest::newRow("auto zoom: all of it") << true;
}

void tst_WidgetGraph::logOpensAtItsStart()
{
    QFETCH(bool, autoZoom);
    m_graph->addData(var(1));
    m_graph->setAutoZoomOn(autoZoom);
    m_graph->setTimeSpan(450000, 30000);
    m_store->setPackage(vario(5000, 105000)); // starts 5 s into its clock and lasts 100 s
    m_graph->sensorsUpdated(m_store->sensors());
    m_graph->logFileLoaded();
    QCOMPARE(m_graph->timeFrom(), qint64(5000));
    QCOMPARE(m_graph->timeline().to(), autoZoom ? qint64(105000) : qint64(35000));
}

void tst_WidgetGraph::measuringCursors_data()
{
    QTest::addColumn<qint64>("a");
    QTest::addColumn<qint64>("b");
    QTest::newRow("most of the flight") << qint64(10000) << qint64(390010);
    QTest::newRow("placed in reverse") << qint64(390010) << qint64(10000);
    QTest::newRow("A in the gap") << qint64(120000) << qint64(300000);
    QTest::newRow("a second, between samples") << qint64(200003) << qint64(201017);
    QTest::newRow("B after the end") << qint64(300000) << qint64(450000);
    QTest::newRow("A on the sample before the gap, B just after the end") << qint64(99500) << qint64(401000);
    QTest::newRow("A before the start") << qint64(-500) << qint64(1000);
}

void tst_WidgetGraph::measuringCursors()
{
    QFETCH(qint64, a);
    QFETCH(qint64, b);
    m_store->setPackage(measuredFlight());
    const auto *device = m_store->package().device(kMeasured);
    m_graph->addData(device->var(1));
    m_graph->addData(device->var(2));
    m_graph->setCursorPair({true, true, a, b});
    const GraphMeasurement &m = m_graph->measurement();
    QCOMPARE(m.rows.size(), 2);
    for (int i = 0; i < 2; ++i) {
        const TelemetryVar &var = *device->var(quint32(i + 1));
        int count = 0;
        double low = qInf(), high = -qInf(), sum = 0;
        for (const TelemetryValue &v : var.values()) {
            if (v.timestamp >= std::min(a, b) && v.timestamp <= std::max(a, b)) {
                ++count;
                low = std::min(low, v.toNumber());
                high = std::max(high, v.toNumber());
                sum += v.toNumber();
            }
        }
        const double atA = referenceValueAt(var, a);
        const double atB = referenceValueAt(var, b);
        const GraphMeasurement::Row &row = m.rows.at(i);
        QCOMPARE(row.samples, count);
        const QByteArray what = var.label().toUtf8();
        QVERIFY2(sameNumber(row.minimum, low) && sameNumber(row.maximum, high), what + " range");
        QVERIFY2(sameNumber(row.mean, sum / count) && sameNumber(row.delta, atB - atA),
                 what + " mean, delta");
        QVERIFY2(sameNumber(row.atA, atA) && sameNumber(row.atB, atB), what + " at A, B");
        QVERIFY2(sameNumber(row.slope, (atB - atA) / (double(b - a) / 1000.0)), what + " slope");
    }
}

void tst_WidgetGraph::measuringCursorGestures()
{
    WindowHub hub;
    WidgetGraph::wire(m_graph.get(), &hub, nullptr);
    QSignalSpy shared(&hub, &WindowHub::cursorPairChanged);
    m_graph->addData(var(1));
    m_graph->setTimeSpan(100000, 60000);
    m_graph->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_graph.get()));
    const QRect plot = m_graph->renderer().plotRect();
    const auto near = [&](qint64 t, int x) {
        return qAbs(t - (100000 + qint64(x - plot.left()) * 60000 / plot.width())) <=
               60000 / plot.width() + 1;
    };
    const QPoint quarter(plot.left() + plot.width() / 4, plot.center().y());
    const QPoint half(plot.center());

    QTest::mouseClick(m_graph.get(), Qt::LeftButton, Qt::ControlModifier, quarter);
    QTest::mouseClick(m_graph.get(), Qt::LeftButton, Qt::ShiftModifier, half);
    QVERIFY(m_graph->cursorPair().isComplete() && near(m_graph->cursorPair().a, quarter.x()) &&
            near(m_graph->cursorPair().b, half.x()));
    QCOMPARE(hub.cursorPair(), m_graph->cursorPair());

    // B's line is dragged; the view does not pan.
    const QPoint later(plot.left() + plot.width() * 3 / 4, plot.center().y());
    drag(m_graph.get(), half, later);
    QVERIFY(near(m_graph->cursorPair().b, later.x()));
    QCOMPARE(m_graph->timeFrom(), qint64(100000));
    QCOMPARE(hub.cursorPair(), m_graph->cursorPair());

    // The exported image shows the pair's lines: the plot's column at A darkens.
    const int ax = int(std::floor(m_graph->renderer().xAtTime(m_graph->cursorPair().a)));
    const auto darkShare = [&] {
        const QImage image = m_graph->renderImage(m_graph->size());
        int dark = 0;
        for (int y = plot.top(); y <= plot.bottom(); ++y)
            dark += qGray(image.pixel(ax, y)) < 100 ? 1 : 0;
        return double(dark) / plot.height();
    };
    QVERIFY(darkShare() > 0.6);
    QTest::keyClick(m_graph.get(), Qt::Key_Escape);
    QVERIFY(m_graph->cursorPair().isEmpty() && hub.cursorPair().isEmpty());
    QVERIFY(darkShare() < 0.2);
    QCOMPARE(shared.count(), 4); // A, B, the drag's one move, cleared
}

QTEST_MAIN(tst_WidgetGraph)
#include "tst_WidgetGraph.moc"
