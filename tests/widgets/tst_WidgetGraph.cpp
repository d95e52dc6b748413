#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/support/TestSamples.h"
#include "widgets/graph/GraphRenderer.h"
#include "widgets/graph/WidgetGraph.h"
#include "widgets/graph/WidgetGraphExport.h"
#include "widgets/graph/WidgetGraphProperties.h"
#include "widgets/layout/LayoutJsonReader.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"

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

// A ten-minute flight: altitude climbing 1 m a second, the battery falling, two alarms and a text.
TelemetryDataPackage flight()
{
    TelemetryDataPackage p;
    const int index = p.addDevice(kDevice, QStringLiteral("Vario"));
    TelemetryVar altitude(kDevice, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    TelemetryVar voltage(kDevice, 2, QStringLiteral("Voltage"), QStringLiteral("V"));
    for (qint32 t = 0; t <= kEnd; t += 100) {
        altitude.append(raw(1, 1, t / 100, t));
        voltage.append(raw(1, 2, 1260 - t / 2000, t));
    }
    p.devices()[index].vars() << altitude << voltage;
    TelemetryMessage alarm;
    alarm.alarm = 'V';
    alarm.type = TelemetryMessage::kAlarmType;
    alarm.timestamp = 12000;
    p.messages() << alarm;
    alarm.timestamp = 400000;
    p.messages() << alarm;
    TelemetryMessage text;
    text.text = QStringLiteral("Landing");
    text.timestamp = 590000;
    p.messages() << text;
    return p;
}

LayoutJsonValue parse(const QByteArray &text)
{
    LayoutJsonReader reader;
    LayoutJsonValue value;
    if (!reader.parse(text, &value))
        qWarning() << reader.errorString();
    return value;
}

QByteArray saved(WidgetGraph &graph, quint8 flag = SerializableWidget::kForDatabase)
{
    LayoutJsonWriter writer;
    writer.beginObject();
    graph.save(writer, flag);
    writer.endObject();
    return writer.data();
}

QStringList texts(const QMenu *menu)
{
    QStringList list;
    for (const QAction *a : menu->actions()) {
        if (!a->isSeparator())
            list << a->text();
    }
    return list;
}

QAction *action(const QMenu *menu, const QString &prefix)
{
    for (QAction *a : menu->actions()) {
        if (a->text().startsWith(prefix))
            return a;
    }
    return nullptr;
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

void sendWheel(QWidget *w, const QPoint &pos, int delta, Qt::KeyboardModifiers modifiers = Qt::NoModifier)
{
    QWheelEvent event(pos, w->mapToGlobal(pos), QPoint(), QPoint(0, delta), Qt::NoButton, modifiers,
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

double contrast(const QColor &a, const QColor &b)
{
    const auto luminance = [](const QColor &c) {
        const auto channel = [](double v) {
            v /= 255.0;
            return v <= 0.03928 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
        };
        return 0.2126 * channel(c.red()) + 0.7152 * channel(c.green()) + 0.0722 * channel(c.blue());
    };
    const double x = luminance(a) + 0.05;
    const double y = luminance(b) + 0.05;
    return std::max(x, y) / std::min(x, y);
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
    void menuActions();
    void dropAddsVariable();
    void newItemsTakeSensorDefaults();
    void itemLabels_data();
    void itemLabels();
    void missingVariableKeepsItsName();
    void mouseSharesCursor();
    void wheelAndDrag();
    void lockedAxisIgnoresMouse();
    void externalCursor();
    void followsLiveData();
    void propertiesPreviewAndCancel();
    void propertiesUnitChange();
    void propertiesSaveDefaults();
    void transparencyPercent_data();
    void transparencyPercent();
    void cutRecording_data();
    void cutRecording();
    void cutOnlyInsideTheRecording_data();
    void cutOnlyInsideTheRecording();
    void cutConfirmationDefaultsToNo();
    void valueAtCursor_data();
    void valueAtCursor();
    void themesReadable_data();
    void themesReadable();
    void alarmMarkers();
    void tinyWindow();
    void exportImage();
    void exportSettings_data();
    void exportSettings();
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

    const TelemetryVar *var(quint32 param) const { return m_store->package().device(kDevice)->var(param); }
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
    m_graph.reset();
    m_table.reset();
    m_store.reset();
    m_prompter.reset();
}

void tst_WidgetGraph::loadLayout_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<int>("items");
    QTest::addColumn<qint64>("window");
    QTest::addColumn<QByteArray>("firstItem"); // the first item as saved, "" when none

    QTest::newRow("element of two: defaults")
        << QByteArray(R"({"Type":"Graph","Sensors":[[5,1]]})") << 1 << qint64(30000)
        << QByteArray(R"([5,1,1,0,0,0,0,2001125,"",0,128,20])");
    QTest::newRow("window of 60 s") << QByteArray(R"({"Type":"Graph","TimeWindow":60})") << 0 << qint64(60000)
                                    << QByteArray();
    QTest::newRow("fractional window")
        << QByteArray(R"({"Type":"Graph","TimeWindow":2.5})") << 0 << qint64(2500) << QByteArray();
    QTest::newRow("no window, bad window")
        << QByteArray(R"({"Type":"Graph","TimeWindow":-3})") << 0 << qint64(30000) << QByteArray();
    QTest::newRow("every field")
        << QByteArray(R"({"Type":"Graph","Sensors":[[5,2,0,1,1,-250,1250,16711680,"V",1,64,5]]})") << 1
        << qint64(30000) << QByteArray(R"([5,2,0,1,1,-250,1250,16711680,"V",1,64,5])");
    QTest::newRow("widest line") << QByteArray(
                                        R"({"Type":"Graph","Sensors":[[5,1,1,0,0,0,0,255,"m",0,128,100]]})")
                                 << 1 << qint64(30000) << QByteArray(R"([5,1,1,0,0,0,0,255,"m",0,128,100])");
    QTest::newRow("no parameter: skipped")
        << QByteArray(R"({"Type":"Graph","Sensors":[[5],[],[5,2,1,0,0,0,0,255,"V",0,128,20]]})") << 1
        << qint64(30000) << QByteArray(R"([5,2,1,0,0,0,0,255,"V",0,128,20])");
    QTest::newRow("malformed fields keep defaults")
        << QByteArray(R"({"Type":"Graph","Sensors":[[5,1,"yes",null,{},"x",[],0.5,3,"1",999,"w"]]})") << 1
        << qint64(30000) << QByteArray(R"([5,1,1,0,0,0,0,2001125,"",0,255,20])");
    QTest::newRow("colour with its alpha byte, signed")
        << QByteArray(R"({"Type":"Graph","Sensors":[[5,1,1,0,0,0,0,-14776091,"m",0,128,20]]})") << 1
        << qint64(30000) << QByteArray(R"([5,1,1,0,0,0,0,2001125,"m",0,128,20])");
    QTest::newRow("same variable twice")
        << QByteArray(
               R"({"Type":"Graph","Sensors":[[5,1,1,0,0,0,0,255,"m",0,128,20],[5,1,0,0,0,0,0,0,"m",0,128,20]]})")
        << 1 << qint64(30000) << QByteArray(R"([5,1,1,0,0,0,0,255,"m",0,128,20])");
    QTest::newRow("unknown device kept")
        << QByteArray(R"({"Type":"Graph","Sensors":[[4294967295,3]]})") << 1 << qint64(30000)
        << QByteArray(R"([4294967295,3,1,0,0,0,0,2001125,"",0,128,20])");
}

void tst_WidgetGraph::loadLayout()
{
    QFETCH(QByteArray, json);
    QFETCH(int, items);
    QFETCH(qint64, window);
    QFETCH(QByteArray, firstItem);
    QCOMPARE(m_graph->load(parse(json)), 0);
    QCOMPARE(m_graph->items().size(), items);
    QCOMPARE(m_graph->timeWindow(), window);
    if (items > 0) {
        LayoutJsonWriter writer;
        m_graph->items().constFirst().toLayout(writer);
        QCOMPARE(writer.data(), firstItem);
    }
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
    item.deviceId = 5;
    item.param = 1;
    item.unit = QStringLiteral("m");
    item.autoRange = false;
    item.lineWidth = lineWidth;
    item.minimum = minimum;
    item.maximum = maximum;
    item.color = Qt::black;
    LayoutJsonWriter writer;
    item.toLayout(writer);
    QCOMPARE(writer.data(), saved);
}

void tst_WidgetGraph::layoutRoundTrip()
{
    const QByteArray json =
        R"({"Type":"Graph","ShowMessages":1,"ShowGrid":1,"Theme":2,"TimeWindow":12.5,"TimeFrom":100000,"Sensors":[[5,1,0,1,1,-1000,25000,16711680,"ft.",1,77,35],[5,2,1,0,0,0,0,65280,"V",0,128,20]]})";
    QCOMPARE(m_graph->load(parse(json)), 0);
    QCOMPARE(m_graph->timeFrom(), qint64(100000));
    QCOMPARE(saved(*m_graph), json);
    // The file form keeps the items: a graph is nothing without them.
    QCOMPARE(saved(*m_graph, SerializableWidget::kForFile), json);

    WidgetGraph copy(m_store.get());
    QCOMPARE(copy.load(parse(saved(*m_graph))), 0);
    QCOMPARE(saved(copy), json);
    QCOMPARE(copy.theme(), 2);
    QVERIFY(copy.showMessages() && copy.showGrid());
}

void tst_WidgetGraph::contextMenu()
{
    m_graph->addData(var(1));
    m_graph->grab();
    const QPoint inPlot = m_graph->renderer().plotRect().center();
    std::unique_ptr<QMenu> menu(m_graph->createContextMenu(inPlot));
    const QStringList got = texts(menu.get());
    const QStringList want{QStringLiteral("Show alarms (2 items)"),
                           QStringLiteral("Show time grid"),
                           QStringLiteral("Reset timeline"),
                           QStringLiteral("Export image..."),
                           QStringLiteral("Theme"),
                           QStringLiteral("Properties..."),
                           QStringLiteral("Auto zoom"),
                           QStringLiteral("Remove"),
                           QStringLiteral("Remove all")};
    QCOMPARE(got.mid(0, want.size()), want);
    QVERIFY(action(menu.get(), QStringLiteral("Show alarms"))->isCheckable());
    QVERIFY(action(menu.get(), QStringLiteral("Show time grid"))->isCheckable());
    QMenu *themes = action(menu.get(), QStringLiteral("Theme"))->menu();
    QVERIFY(themes);
    QCOMPARE(texts(themes),
             (QStringList{QStringLiteral("White"), QStringLiteral("Black"), QStringLiteral("Gray")}));
    QVERIFY(themes->actions().at(0)->isChecked());
    QVERIFY(action(menu.get(), QStringLiteral("Properties..."))->isEnabled());
    QVERIFY(action(menu.get(), QStringLiteral("Remove telemetry before"))->isEnabled());

    // With nothing plotted there is nothing to show properties of or remove.
    m_graph->removeAll();
    menu.reset(m_graph->createContextMenu(inPlot));
    QVERIFY(!action(menu.get(), QStringLiteral("Properties..."))->isEnabled());
    QVERIFY(!action(menu.get(), QStringLiteral("Remove"))->isEnabled());
    QVERIFY(!action(menu.get(), QStringLiteral("Remove all"))->isEnabled());
    // Cutting while recording would fight the live data.
    m_graph->setLogging(true);
    menu.reset(m_graph->createContextMenu(inPlot));
    QVERIFY(!action(menu.get(), QStringLiteral("Remove telemetry before"))->isEnabled());
}

void tst_WidgetGraph::menuActions()
{
    m_graph->addData(var(1));
    m_graph->addData(var(2));
    m_graph->grab();
    const QRect plot = m_graph->renderer().plotRect();
    std::unique_ptr<QMenu> menu(m_graph->createContextMenu(plot.center()));
    action(menu.get(), QStringLiteral("Show alarms"))->trigger();
    action(menu.get(), QStringLiteral("Show time grid"))->trigger();
    action(menu.get(), QStringLiteral("Theme"))->menu()->actions().at(1)->trigger();
    QVERIFY(m_graph->showMessages());
    QVERIFY(m_graph->showGrid());
    QCOMPARE(m_graph->theme(), 1);

    action(menu.get(), QStringLiteral("Auto zoom"))->trigger();
    QCOMPARE(m_graph->timeFrom(), qint64(0));
    QCOMPARE(m_graph->timeWindow(), qint64(kEnd));
    menu.reset(m_graph->createContextMenu(plot.center()));
    action(menu.get(), QStringLiteral("Reset timeline"))->trigger();
    QCOMPARE(m_graph->timeFrom(), qint64(0));
    QCOMPARE(m_graph->timeWindow(), qint64(30000));

    // "Remove" takes the item under the mouse: here its Y axis.
    const QRect axis = m_graph->renderer().axes().at(1).rect;
    menu.reset(m_graph->createContextMenu(axis.center()));
    action(menu.get(), QStringLiteral("Remove"))->trigger();
    QCOMPARE(m_graph->items().size(), 1);
    QCOMPARE(m_graph->items().constFirst().param, 1u);
}

void tst_WidgetGraph::dropAddsVariable()
{
    const auto drop = [this](QMimeData *data) {
        QDragEnterEvent enter(QPoint(100, 100), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(m_graph.get(), &enter);
        const bool accepted = enter.isAccepted();
        QDropEvent event(QPointF(100, 100), Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
        if (accepted)
            QCoreApplication::sendEvent(m_graph.get(), &event);
        delete data;
        return accepted;
    };
    QVERIFY(drop(SensorDragData::forVariable({kDevice, 2})));
    QCOMPARE(m_graph->items().size(), 1);
    QCOMPARE(m_graph->itemLabel(0), QStringLiteral("Voltage [V]"));
    // The same variable again adds nothing; other payloads are refused.
    QVERIFY(drop(SensorDragData::forVariable({kDevice, 2})));
    QCOMPARE(m_graph->items().size(), 1);
    auto *text = new QMimeData;
    text->setText(TelemetrySimplePair(kDevice, 1).toJsonText());
    QVERIFY(!drop(text));
    QVERIFY(!drop(SensorDragData::forGpsDevice(kDevice)));
    // A variable the store does not hold is not plotted.
    QVERIFY(drop(SensorDragData::forVariable({kDevice, 9})));
    QCOMPARE(m_graph->items().size(), 1);
}

void tst_WidgetGraph::newItemsTakeSensorDefaults()
{
    SensorRow row;
    row.id = kDevice;
    row.param = 2;
    row.defaultColor = 0x123456;
    row.defaultMin = 10.5;
    row.defaultMax = 12.8;
    QVERIFY(m_table->insertDefaultSensor(row));
    m_graph->addData(var(2));
    m_graph->addData(var(1));
    const GraphItem &voltage = m_graph->items().at(0);
    QCOMPARE(voltage.color, QColor(0x12, 0x34, 0x56));
    QVERIFY(!voltage.autoRange);
    QCOMPARE(voltage.minimum, 10.5);
    QCOMPARE(voltage.maximum, 12.8);
    // Without defaults: automatic, and a colour no other item has.
    const GraphItem &altitude = m_graph->items().at(1);
    QVERIFY(altitude.autoRange);
    QVERIFY(altitude.color.isValid() && altitude.color != voltage.color);
    QCOMPARE(altitude.unit, QStringLiteral("m"));
}

void tst_WidgetGraph::itemLabels_data()
{
    QTest::addColumn<quint32>("param");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<QString>("label");
    QTest::newRow("own unit") << 1u << "m"
                              << "Altitude [m]";
    QTest::newRow("converted") << 1u << "ft."
                               << "Altitude [ft.]";
    QTest::newRow("unit of another category") << 1u << "km/h"
                                              << "Altitude [m]";
    QTest::newRow("unit without category") << 2u << "km"
                                           << "Voltage [V]";
    QTest::newRow("variable not in the store") << 7u << "m"
                                               << "5:7 [m] (not in this log)";
    QTest::newRow("not in the store, named by the sensor settings") << 8u << ""
                                                                    << "Airspeed [km/h] (not in this log)";
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
    const QByteArray json =
        QStringLiteral(R"({"Type":"Graph","Sensors":[[5,%1,1,0,0,0,0,255,"%2",0,128,20]]})")
            .arg(param)
            .arg(unit)
            .toUtf8();
    QCOMPARE(m_graph->load(parse(json)), 0);
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
    TelemetryVar rpm(kDevice + 1, 1, QStringLiteral("RPM"), QString());
    rpm.append(raw(4, 0, 3000, 0));
    other.devices()[0].vars() << rpm;
    m_store->setPackage(other);
    const QString label = m_graph->itemLabel(0);
    QVERIFY2(label.startsWith(QLatin1String("Altitude [m]")) &&
                 label.contains(QLatin1String("(not in this log)")) &&
                 !label.contains(QLatin1String("Sensor ")),
             qPrintable(label));
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
    m_graph->grab();
    const QRect plot = m_graph->renderer().plotRect();
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
    QCOMPARE(spy.count(), 2);
    QCOMPARE(spy.at(1).at(1).toBool(), true);
    // Outside the plot nothing is emitted.
    sendMouse(m_graph.get(), QEvent::MouseMove, QPoint(plot.right() + 40, 2), Qt::NoButton, Qt::NoButton);
    QCOMPARE(spy.count(), 2);
}

void tst_WidgetGraph::wheelAndDrag()
{
    m_graph->addData(var(1));
    m_graph->setTimeSpan(100000, 60000);
    m_graph->grab();
    const QRect plot = m_graph->renderer().plotRect();
    const QPoint at(plot.left() + plot.width() / 4, plot.center().y());
    const qint64 under = m_graph->renderer().timeAtX(at.x());
    sendWheel(m_graph.get(), at, 120);
    QVERIFY(m_graph->timeWindow() < 60000);
    m_graph->grab();
    QVERIFY(qAbs(m_graph->renderer().timeAtX(at.x()) - under) <= 60000 / plot.width() + 1);
    sendWheel(m_graph.get(), at, -240);
    QVERIFY(m_graph->timeWindow() > 60000);

    // Dragging right shows earlier data, and is no click.
    m_graph->setTimeSpan(100000, 60000);
    m_graph->grab();
    QSignalSpy spy(m_graph.get(), &WidgetGraph::mouseOverTimestamp);
    sendMouse(m_graph.get(), QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    sendMouse(m_graph.get(), QEvent::MouseMove, at + QPoint(plot.width() / 2, 0), Qt::NoButton,
              Qt::LeftButton);
    sendMouse(m_graph.get(), QEvent::MouseButtonRelease, at + QPoint(plot.width() / 2, 0), Qt::LeftButton,
              Qt::NoButton);
    QVERIFY(qAbs(m_graph->timeFrom() - 70000) <= 200);
    QCOMPARE(spy.count(), 0);

    // Shift+wheel pans by a tenth of the span.
    const qint64 from = m_graph->timeFrom();
    sendWheel(m_graph.get(), at, -120, Qt::ShiftModifier);
    QCOMPARE(m_graph->timeFrom(), from + 6000);
}

void tst_WidgetGraph::lockedAxisIgnoresMouse()
{
    m_graph->addData(var(1));
    m_graph->addData(var(2));
    GraphItem locked = m_graph->items().at(1);
    locked.locked = true;
    m_graph->setItem(1, locked);
    m_graph->grab();
    const QRect free = m_graph->renderer().axes().at(0).rect;
    const QRect fixed = m_graph->renderer().axes().at(1).rect;
    const double low = m_graph->renderer().axes().at(0).low;
    const double high = m_graph->renderer().axes().at(0).high;

    sendWheel(m_graph.get(), fixed.center(), 120);
    sendMouse(m_graph.get(), QEvent::MouseButtonPress, fixed.center(), Qt::LeftButton, Qt::LeftButton);
    sendMouse(m_graph.get(), QEvent::MouseMove, fixed.center() + QPoint(0, 60), Qt::NoButton, Qt::LeftButton);
    sendMouse(m_graph.get(), QEvent::MouseButtonRelease, fixed.center() + QPoint(0, 60), Qt::LeftButton,
              Qt::NoButton);
    QVERIFY(m_graph->items().at(1).autoRange);

    // An unlocked axis zooms about the mouse and keeps its new range.
    sendWheel(m_graph.get(), free.center(), 120);
    const GraphItem &item = m_graph->items().at(0);
    QVERIFY(!item.autoRange);
    QVERIFY(item.maximum - item.minimum < high - low);
    QVERIFY(item.minimum > low && item.maximum < high);
}

void tst_WidgetGraph::externalCursor()
{
    m_graph->setTimeSpan(0, 30000);
    m_graph->externalTimestampMoved(20000, false);
    QVERIFY(m_graph->hasCursor());
    QCOMPARE(m_graph->cursorTimestamp(), qint64(20000));
    // Hovering elsewhere never moves the view; a set position (playback) outside it does.
    m_graph->externalTimestampMoved(300000, false);
    QCOMPARE(m_graph->timeFrom(), qint64(0));
    m_graph->externalTimestampMoved(300000, true);
    QVERIFY(m_graph->timeFrom() <= 300000 && m_graph->timeFrom() + m_graph->timeWindow() > 300000);
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
    const auto feed = [&](int seconds) {
        for (int s = 0; s < seconds * 10; ++s, t += 100) {
            TelemetrySample sample;
            sample.deviceId = kDevice;
            sample.param = 1;
            sample.value = raw(1, 1, t / 100, t);
            live.appendSamples({sample});
        }
    };
    feed(45);
    // Redrawn on the window's timer, not per batch: the newest data at the right edge.
    QTRY_COMPARE(graph.timeFrom() + graph.timeWindow(), qint64(t - 100));
    QCOMPARE(graph.timeWindow(), qint64(30000));
    graph.grab();
    QVERIFY(graph.renderer().result(0).samples > 250);

    // Looking back stops following; End goes back to the newest data and follows it.
    QTest::keyClick(&graph, Qt::Key_Left);
    QVERIFY(!graph.timeline().isFollowing());
    const qint64 from = graph.timeFrom();
    feed(5);
    QTest::qWait(3 * WidgetGraph::kRedrawIntervalMs);
    QCOMPARE(graph.timeFrom(), from);
    QTest::keyClick(&graph, Qt::Key_End);
    QVERIFY(graph.timeline().isFollowing());
    QCOMPARE(graph.timeFrom() + graph.timeWindow(), qint64(t - 100));
}

void tst_WidgetGraph::propertiesPreviewAndCancel()
{
    m_graph->addData(var(1));
    const GraphItem before = m_graph->items().at(0);
    bool previewed = false;
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
        const GraphItem &now = m_graph->items().at(0);
        previewed = now.lineWidth == 4.5 && now.fill && !now.autoRange && now.maximum == 250 &&
                    now.color == before.color;
        dialog->reject();
    });
    m_graph->showProperties(0);
    QVERIFY(previewed);
    const GraphItem &after = m_graph->items().at(0);
    QCOMPARE(after.lineWidth, before.lineWidth);
    QCOMPARE(after.fill, before.fill);
    QCOMPARE(after.autoRange, before.autoRange);
    QCOMPARE(after.maximum, before.maximum);
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
    QCOMPARE(m_graph->items().at(0).unit, QStringLiteral("ft."));
    QCOMPARE(m_graph->items().at(0).lineWidth, 3.0);
    QCOMPARE(var(1)->displayUnit(), QStringLiteral("ft."));
    QCOMPARE(m_graph->itemLabel(0), QStringLiteral("Altitude [ft.]"));

    // A variable without unit category offers its own unit only, and emits nothing.
    m_graph->addData(var(2));
    onModal<WidgetGraphProperties>([](WidgetGraphProperties *dialog) {
        QVERIFY(!dialog->unitBox()->isEnabled());
        QCOMPARE(dialog->unitBox()->currentText(), QStringLiteral("V"));
        dialog->accept();
    });
    m_graph->showProperties(1);
    QCOMPARE(spy.count(), 1);
}

void tst_WidgetGraph::propertiesSaveDefaults()
{
    GraphItem item;
    item.deviceId = kDevice;
    item.param = 1;
    item.unit = QStringLiteral("km");
    item.color = QColor(1, 2, 3);
    WidgetGraphProperties dialog(item, QStringLiteral("Altitude"), QStringLiteral("m"), 1, m_table.get());
    dialog.autoRangeBox()->setChecked(false);
    dialog.minimumBox()->setValue(-5);
    dialog.maximumBox()->setValue(120.25);
    QVERIFY(dialog.saveAsDefault());
    SensorRow row;
    QVERIFY(m_table->findSensor(kDevice, 1, &row));
    QCOMPARE(row.label, QStringLiteral("Altitude"));
    QCOMPARE(row.unitConversion, QStringLiteral("1"));
    QCOMPARE(row.defaultMin, -5.0);
    QCOMPARE(row.defaultMax, 120.25);
    QCOMPARE(row.defaultColor, 0x010203);
    // Automatic range is stored as an empty range.
    dialog.autoRangeBox()->setChecked(true);
    QVERIFY(dialog.saveAsDefault());
    QVERIFY(m_table->findSensor(kDevice, 1, &row));
    QCOMPARE(row.defaultMin, 0.0);
    QCOMPARE(row.defaultMax, 0.0);
    // Without a sensor table the button is off.
    WidgetGraphProperties none(item, QStringLiteral("Altitude"), QStringLiteral("m"), 1, nullptr);
    QVERIFY(!none.defaultsButton()->isEnabled());
}

void tst_WidgetGraph::transparencyPercent_data()
{
    QTest::addColumn<int>("alpha");
    QTest::addColumn<int>("percent");
    QTest::newRow("default") << 128 << 50;
    QTest::newRow("opaque") << 255 << 100;
    QTest::newRow("clear") << 0 << 0;
}

void tst_WidgetGraph::transparencyPercent()
{
    QFETCH(int, alpha);
    QFETCH(int, percent);
    GraphItem item;
    item.fillAlpha = alpha;
    WidgetGraphProperties dialog(item, QStringLiteral("x"), QString(), 0, nullptr);
    QCOMPARE(dialog.transparencyBox()->value(), percent);
    QCOMPARE(dialog.transparencyBox()->minimum(), 0);
    QCOMPARE(dialog.transparencyBox()->maximum(), 100);
    QCOMPARE(dialog.lineWidthBox()->minimum(), 0.5);
    QCOMPARE(dialog.lineWidthBox()->maximum(), 10.0);
    QCOMPARE(dialog.lineWidthBox()->suffix(), QStringLiteral("px"));
    QCOMPARE(dialog.minimumBox()->decimals(), 2);
    QCOMPARE(dialog.maximumBox()->minimum(), -1000000.0);
    // Round trip through the spin box keeps the alpha within one step.
    dialog.transparencyBox()->setValue(percent == 0 ? 1 : percent - 1);
    dialog.transparencyBox()->setValue(percent);
    QVERIFY(qAbs(dialog.item().fillAlpha - alpha) <= 1);
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
    m_graph->grab();
    const QRect plot = m_graph->renderer().plotRect();
    const QPoint at(plot.left() + plot.width() / 2, plot.center().y());
    const qint64 t = m_graph->renderer().timeAtX(at.x());
    std::unique_ptr<QMenu> menu(m_graph->createContextMenu(at));
    QAction *cut = action(menu.get(), before ? QStringLiteral("Remove telemetry before")
                                             : QStringLiteral("Remove telemetry after"));
    QVERIFY(cut && cut->isEnabled());
    cut->trigger();
    QCOMPARE(m_prompter->asked.size(), 1);
    QCOMPARE(m_prompter->asked.at(0).kind, QStringLiteral("question"));
    QCOMPARE(m_prompter->asked.at(0).title, QStringLiteral("Confirmation"));
    const QVector<TelemetryValue> &values = var(1)->values();
    if (answer == QMessageBox::No) {
        QCOMPARE(values.size(), kEnd / 100 + 1);
    } else if (before) {
        QVERIFY(values.constFirst().timestamp >= t && values.constFirst().timestamp < t + 100);
        QCOMPARE(values.constLast().timestamp, kEnd);
    } else {
        QVERIFY(values.constLast().timestamp <= t && values.constLast().timestamp > t - 100);
        QCOMPARE(values.constFirst().timestamp, 0);
    }

    // One step back, offered only while there is one.
    menu.reset(m_graph->createContextMenu(at));
    QAction *undo = action(menu.get(), QStringLiteral("Undo cut"));
    QVERIFY(undo);
    QCOMPARE(undo->isEnabled(), answer == QMessageBox::Yes);
    undo->trigger();
    QCOMPARE(var(1)->count(), kEnd / 100 + 1);
    QCOMPARE(var(1)->values().constFirst().timestamp, 0);
    QCOMPARE(var(1)->values().constLast().timestamp, kEnd);
    menu.reset(m_graph->createContextMenu(at));
    QVERIFY(!action(menu.get(), QStringLiteral("Undo cut"))->isEnabled());
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
    TelemetryDataPackage p;
    p.addDevice(kDevice, QStringLiteral("Vario"));
    TelemetryVar altitude(kDevice, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    for (qint32 ms = 20000; ms <= 40000; ms += 100)
        altitude.append(raw(1, 1, ms / 100, ms));
    p.devices()[0].vars() << altitude;
    m_store->setPackage(p);
    m_graph->addData(var(1));
    m_graph->setTimeSpan(0, 60000);
    m_graph->grab();
    QCOMPARE(m_graph->timeFrom(), qint64(0));
    const GraphRenderer &r = m_graph->renderer();
    const QPoint at(int(std::lround(r.xAtTime(t))), r.plotRect().center().y());
    std::unique_ptr<QMenu> menu(m_graph->createContextMenu(at));
    QCOMPARE(action(menu.get(), QStringLiteral("Remove telemetry before"))->isEnabled(), enabled);
    QCOMPARE(action(menu.get(), QStringLiteral("Remove telemetry after"))->isEnabled(), enabled);
}

// Enter in the confirmation must not destroy the recording.
void tst_WidgetGraph::cutConfirmationDefaultsToNo()
{
    connect(m_graph.get(), &WidgetGraph::removeTelemetryAfterTimestamp, m_store.get(),
            [this](long t) { m_store->removeDataAfterTimestamp(t); });
    m_prompter->buttons.enqueue(QMessageBox::No); // what Enter picks, as checked below
    m_graph->cutAfter(30000);
    QCOMPARE(m_prompter->asked.size(), 1);
    QCOMPARE(m_prompter->asked.at(0).buttons, QMessageBox::Yes | QMessageBox::No);
    QCOMPARE(m_prompter->asked.at(0).defaultButton, QMessageBox::No);
    QCOMPARE(var(1)->count(), kEnd / 100 + 1);
}

void tst_WidgetGraph::valueAtCursor_data()
{
    QTest::addColumn<qint32>("secondTime");
    QTest::addColumn<qint64>("at");
    QTest::addColumn<int>("target");
    QTest::addColumn<double>("value"); // NaN: nothing to show
    QTest::newRow("halfway") << 2000 << qint64(1500) << 0 << 15.0;
    QTest::newRow("on a sample") << 2000 << qint64(1000) << 0 << 10.0;
    QTest::newRow("in a gap") << 3000 << qint64(2000) << 0 << qQNaN();
    QTest::newRow("on a sample before a gap") << 3000 << qint64(1000) << 0 << 10.0;
    QTest::newRow("just after the last") << 2000 << qint64(3000) << 0 << 20.0;
    QTest::newRow("long after the last") << 2000 << qint64(3600) << 0 << qQNaN();
    QTest::newRow("before the first") << 2000 << qint64(999) << 0 << qQNaN();
    QTest::newRow("in kilometres") << 2000 << qint64(1500) << 1 << 0.015;
}

void tst_WidgetGraph::valueAtCursor()
{
    QFETCH(qint32, secondTime);
    QFETCH(qint64, at);
    QFETCH(int, target);
    QFETCH(double, value);
    TelemetryVar v(1, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    v.append(raw(1, 0, 10, 1000));
    v.append(raw(1, 0, 20, secondTime));
    const double got = GraphRenderer::valueAt(v, at, v.unitCategory(), quint8(target));
    if (std::isnan(value))
        QVERIFY(std::isnan(got));
    else
        QCOMPARE(got, value);
}

void tst_WidgetGraph::themesReadable_data()
{
    QTest::addColumn<int>("theme");
    QTest::addColumn<QColor>("background");
    QTest::newRow("White") << 0 << QColor(255, 255, 255);
    QTest::newRow("Black") << 1 << QColor(0, 0, 0);
    QTest::newRow("Gray") << 2 << QColor(); // a grey: neither black nor white, barely tinted
}

void tst_WidgetGraph::themesReadable()
{
    QFETCH(int, theme);
    QFETCH(QColor, background);
    const GraphTheme colors = GraphTheme::forIndex(theme);
    if (background.isValid()) {
        QCOMPARE(colors.background, background);
    } else {
        const QColor grey = colors.background;
        QVERIFY(grey.hslSaturation() < 40);
        QVERIFY(grey.lightness() >= 40 && grey.lightness() <= 215);
        background = grey;
    }
    if (theme == GraphTheme::White) {
        QCOMPARE(colors.grid, QColor(221, 221, 221));
        QCOMPARE(colors.axis, QColor(170, 170, 170));
        QCOMPARE(colors.text, QColor(0, 0, 0));
    }
    // Text reads easily, the frame is visible, the grid stays in the background, and every colour new
    // items get stands out as a line.
    QVERIFY(contrast(colors.text, colors.background) >= 7.0);
    QVERIFY(contrast(colors.axis, colors.background) >= 2.0);
    QVERIFY(contrast(colors.grid, colors.background) >= 1.15);
    QVERIFY(contrast(colors.grid, colors.background) < contrast(colors.axis, colors.background));
    for (int n = 0; n < 10; ++n)
        QVERIFY2(contrast(GraphTheme::itemColor(n), colors.background) >= 2.0,
                 qPrintable(QString::number(n)));

    m_graph->setTheme(theme);
    const QImage image = m_graph->renderImage(QSize(300, 200));
    QCOMPARE(image.size(), QSize(300, 200));
    QCOMPARE(QColor(image.pixel(1, 1)), background);
}

void tst_WidgetGraph::alarmMarkers()
{
    m_graph->addData(var(1));
    m_graph->setTimeSpan(0, 30000);
    m_graph->setShowMessages(true);
    m_graph->grab();
    const GraphRenderer &r = m_graph->renderer();
    const QPoint icon(int(r.xAtTime(12000)), r.plotRect().top() - GraphRenderer::kIconSize / 2 - 1);
    QCOMPARE(r.markerAt(icon), 0);
    QCOMPARE(r.markerAt(icon + QPoint(40, 0)), -1);
    m_graph->setShowMessages(false);
    m_graph->grab();
    QCOMPARE(m_graph->renderer().markerAt(icon), -1);
}

void tst_WidgetGraph::tinyWindow()
{
    // More axes than room: nothing is plotted, nothing breaks, the menu still works.
    m_graph->load(parse(R"({"Type":"Graph","Sensors":[[5,1],[5,2],[5,7],[5,8],[5,9],[5,10]]})"));
    m_graph->setMinimumSize(0, 0);
    m_graph->resize(60, 40);
    m_graph->externalTimestampMoved(1000, false);
    QCOMPARE(m_graph->grab().size(), QSize(60, 40));
    QCOMPARE(m_graph->renderer().plotRect().width(), 0);
    std::unique_ptr<QMenu> menu(m_graph->createContextMenu(QPoint(30, 20)));
    QVERIFY(!action(menu.get(), QStringLiteral("Remove telemetry before"))->isEnabled());
    QCOMPARE(m_graph->renderImage(QSize(1, 1)).size(), QSize(1, 1));
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
    QCOMPARE(m_prompter->asked.size(), 1);
    QCOMPARE(m_prompter->asked.at(0).kind, QStringLiteral("question"));
    QCOMPARE(m_prompter->asked.at(0).title, QStringLiteral("File exists"));
    QCOMPARE(m_prompter->asked.at(0).text, QStringLiteral("File exists. Overwrite?"));
    QCOMPARE(QImage(path).width(), 640);
    m_prompter->buttons.enqueue(QMessageBox::Yes);
    QVERIFY(dialog.exportImage());
    QCOMPARE(QImage(path).size(), QSize(320, 480));
    QCOMPARE(dialog.settings().path, path);
    QCOMPARE(dialog.settings().width, 320);

    // A folder is refused with the reason.
    m_prompter->asked.clear();
    dialog.setPath(dir.path());
    QVERIFY(!dialog.exportImage());
    QCOMPARE(m_prompter->asked.size(), 1);
    QCOMPARE(m_prompter->asked.at(0).kind, QStringLiteral("error"));
    QVERIFY(
        m_prompter->asked.at(0).text.startsWith(QStringLiteral("<b>Unable to export image:</b><ul><li>")));
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files), QStringList{QStringLiteral("graph.png")});
}

void tst_WidgetGraph::exportSettings_data()
{
    QTest::addColumn<int>("width");
    QTest::addColumn<int>("height");
    QTest::addColumn<int>("shownWidth");
    QTest::addColumn<int>("shownHeight");
    QTest::newRow("stored") << 1024 << 768 << 1024 << 768;
    QTest::newRow("not stored: the window's size") << 0 << 0 << 900 << 400;
    QTest::newRow("out of range") << 5000 << 10 << 2000 << 200;
}

void tst_WidgetGraph::exportSettings()
{
    QFETCH(int, width);
    QFETCH(int, height);
    QFETCH(int, shownWidth);
    QFETCH(int, shownHeight);
    WidgetGraphExport::Settings settings;
    settings.width = width;
    settings.height = height;
    WidgetGraphExport dialog(settings, QSize(900, 400), {});
    QCOMPARE(dialog.widthBox()->value(), shownWidth);
    QCOMPARE(dialog.heightBox()->value(), shownHeight);
    QCOMPARE(dialog.widthBox()->minimum(), 200);
    QCOMPARE(dialog.heightBox()->maximum(), 2000);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Export image"));
}

QTEST_MAIN(tst_WidgetGraph)
#include "tst_WidgetGraph.moc"

void tst_WidgetGraph::measuringCursors_data()
{
    QTest::addColumn<qint64>("a");
    QTest::addColumn<qint64>("b");
    QTest::newRow("most of the flight") << qint64(10000) << qint64(390010);
    QTest::newRow("placed in reverse") << qint64(390010) << qint64(10000);
    QTest::newRow("A in the gap") << qint64(120000) << qint64(300000);
    QTest::newRow("a second, between samples") << qint64(200003) << qint64(201017);
    QTest::newRow("B after the end") << qint64(300000) << qint64(450000);
}

void tst_WidgetGraph::measuringCursors()
{
    QFETCH(qint64, a);
    QFETCH(qint64, b);
    m_store->setPackage(measuredFlight());
    const auto *device = m_store->package().device(kMeasured);
    m_graph->addData(device->var(1));
    m_graph->addData(device->var(2));
    CursorPair pair;
    pair.hasA = pair.hasB = true;
    pair.a = a;
    pair.b = b;
    m_graph->setCursorPair(pair);
    const GraphMeasurement &m = m_graph->measurement();
    QCOMPARE(m.rows.size(), 2);
    for (int i = 0; i < 2; ++i) {
        const TelemetryVar &var = *device->var(quint32(i + 1));
        int count = 0;
        double low = qInf();
        double high = -qInf();
        double sum = 0;
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
        const QByteArray what = var.label().toUtf8();
        QCOMPARE(row.samples, count);
        QVERIFY2(sameNumber(row.minimum, low) && sameNumber(row.maximum, high), what);
        QVERIFY2(sameNumber(row.mean, sum / count), what);
        QVERIFY2(sameNumber(row.atA, atA) && sameNumber(row.atB, atB), what);
        QVERIFY2(sameNumber(row.delta, atB - atA), what);
        QVERIFY2(sameNumber(row.slope, (atB - atA) / (double(b - a) / 1000.0)), what);
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
    const auto timeAt = [&](int x) { return 100000 + qint64(x - plot.left()) * 60000 / plot.width(); };
    const QPoint quarter(plot.left() + plot.width() / 4, plot.center().y());
    const QPoint half(plot.center());
    const int slack = 60000 / plot.width() + 1;

    QTest::mouseClick(m_graph.get(), Qt::LeftButton, Qt::ControlModifier, quarter);
    QTest::mouseClick(m_graph.get(), Qt::LeftButton, Qt::ShiftModifier, half);
    QVERIFY(m_graph->cursorPair().isComplete());
    QVERIFY(qAbs(m_graph->cursorPair().a - timeAt(quarter.x())) <= slack);
    QVERIFY(qAbs(m_graph->cursorPair().b - timeAt(half.x())) <= slack);
    QCOMPARE(hub.cursorPair(), m_graph->cursorPair());

    // B's line is dragged; the view does not pan.
    QTest::mousePress(m_graph.get(), Qt::LeftButton, Qt::NoModifier, half);
    const QPoint later(plot.left() + plot.width() * 3 / 4, plot.center().y());
    sendMouse(m_graph.get(), QEvent::MouseMove, later, Qt::NoButton, Qt::LeftButton);
    QTest::mouseRelease(m_graph.get(), Qt::LeftButton, Qt::NoModifier, later);
    QVERIFY(qAbs(m_graph->cursorPair().b - timeAt(later.x())) <= slack);
    QCOMPARE(m_graph->timeFrom(), qint64(100000));
    QCOMPARE(hub.cursorPair(), m_graph->cursorPair());

    // The exported image shows the pair's lines: the plot's column at A darkens.
    const QSize size = m_graph->size();
    const int ax = int(std::floor(m_graph->renderer().xAtTime(m_graph->cursorPair().a)));
    const QImage with = m_graph->renderImage(size);
    QTest::keyClick(m_graph.get(), Qt::Key_Escape);
    QVERIFY(m_graph->cursorPair().isEmpty());
    QVERIFY(hub.cursorPair().isEmpty());
    const QImage without = m_graph->renderImage(size);
    const auto darkShare = [&](const QImage &image) {
        int dark = 0;
        for (int y = plot.top(); y <= plot.bottom(); ++y)
            dark += qGray(image.pixel(ax, y)) < 100 ? 1 : 0;
        return double(dark) / plot.height();
    };
    QVERIFY(darkShare(with) > 0.6);
    QVERIFY(darkShare(without) < 0.2);
    QCOMPARE(shared.count(), 4); // A, B, the drag's one move, cleared
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
    // The next log starts 5 s into its clock and lasts 100 s.
    TelemetryDataPackage next;
    next.addDevice(kDevice, QStringLiteral("Vario"));
    TelemetryVar altitude(kDevice, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    for (qint32 t = 5000; t <= 105000; t += 100)
        altitude.append(raw(1, 1, t / 100, t));
    next.devices()[0].vars() << altitude;
    m_store->setPackage(next);
    m_graph->sensorsUpdated(m_store->sensors());
    m_graph->logFileLoaded();
    QCOMPARE(m_graph->timeFrom(), qint64(5000));
    QCOMPARE(m_graph->timeline().to(), autoZoom ? qint64(105000) : qint64(35000));
}
