#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "tests/support/TestSamples.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/sensors/WidgetLogSensors.h"

#include <QAction>
#include <QHeaderView>
#include <QMenu>
#include <QMimeData>
#include <QSignalSpy>
#include <QTreeWidget>
#include <QtTest>

#include <memory>

namespace {
constexpr quint32 kUnnamed = 17u | (300u << 16);
constexpr quint32 kGps = 65536u;
constexpr quint32 kThird = 65539u;

TelemetryVar makeVar(quint32 id, quint32 param, const QString &label, const QString &unit, int samples,
                     quint32 type = 1, quint32 decimals = 0)
{
    TelemetryVar v(id, param, label, unit);
    for (int i = 0; i < samples; ++i)
        v.append(raw(type, decimals, 10 + i, 100 * i));
    return v;
}

// An unnamed receiver, a GPS with a position, and a device whose only coordinate is a latitude.
TelemetryDataPackage fixture()
{
    TelemetryDataPackage p;
    int i = p.addDevice(kUnnamed, QString());
    p.devices()[i].vars() << makeVar(kUnnamed, 3, QStringLiteral("Voltage"), QStringLiteral("V"), 2)
                          << makeVar(kUnnamed, 12, QString(), QString(), 0);
    i = p.addDevice(kGps, QStringLiteral("GPS"));
    p.devices()[i].vars() << makeVar(kGps, 0, QStringLiteral("Status"), QString(), 1)
                          << makeVar(kGps, 1, QStringLiteral("Latitude"), QString(), 3, 9, 0)
                          << makeVar(kGps, 2, QStringLiteral("Longitude"), QString(), 3, 9, 1);
    i = p.addDevice(kThird, QStringLiteral("Half GPS"));
    p.devices()[i].vars() << makeVar(kThird, 3, QStringLiteral("Latitude"), QString(), 1, 9, 0);
    return p;
}
} // namespace

class tst_WidgetLogSensors : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void idText_data();
    void idText();
    void variableText_data();
    void variableText();
    void tree();
    void liveCounts();
    void collapsedDevicesStayCollapsed();
    void contextMenu();
    void loggingAction();
    void deleteSensors();
    void doubleClick();
    void dragPayload_data();
    void dragPayload();
    void dropTextParsing_data();
    void dropTextParsing();
    void layoutKeepsOnlyTheType();
    void unitsStandInOneColumn();

private:
    QTreeWidgetItem *itemFor(quint32 deviceId, int param) const; // param -1: the sensor item

    std::unique_ptr<TelemetryData> m_store;
    std::unique_ptr<WidgetLogSensors> m_widget;
};

void tst_WidgetLogSensors::initTestCase()
{
    Q_INIT_RESOURCE(resources);
    registerTelemetryMetaTypes();
}

void tst_WidgetLogSensors::init()
{
    m_store = std::make_unique<TelemetryData>();
    m_widget = std::make_unique<WidgetLogSensors>();
    // Wired the way the container wires the window to the main window's re-emitted store signals.
    connect(m_store.get(), &TelemetryData::sensorsChanged, m_widget.get(), &WidgetLogSensors::updateItems);
    connect(m_store.get(), &TelemetryData::valueAdded, m_widget.get(), &WidgetLogSensors::updateLoggedValues);
    connect(m_store.get(), &TelemetryData::loggingStatusChanged, m_widget.get(),
            &WidgetLogSensors::setLogStatus);
    connect(m_widget.get(), &WidgetLogSensors::sensorsReset, m_store.get(), &TelemetryData::clearSensors);
    m_store->setPackage(fixture());
}

void tst_WidgetLogSensors::cleanup()
{
    m_widget.reset();
    m_store.reset();
}

QTreeWidgetItem *tst_WidgetLogSensors::itemFor(quint32 deviceId, int param) const
{
    QTreeWidget *tree = m_widget->tree();
    for (int i = 0; i < tree->topLevelItemCount(); ++i) {
        QTreeWidgetItem *top = tree->topLevelItem(i);
        if (top->data(0, WidgetLogSensors::DeviceIdRole).toUInt() != deviceId)
            continue;
        if (param < 0)
            return top;
        for (int j = 0; j < top->childCount(); ++j) {
            if (top->child(j)->data(0, WidgetLogSensors::ParamRole).toInt() == param)
                return top->child(j);
        }
    }
    return nullptr;
}

void tst_WidgetLogSensors::idText_data()
{
    QTest::addColumn<quint32>("id");
    QTest::addColumn<QString>("expected");
    QTest::newRow("low half first, 5 digits each") << kUnnamed << "ID: [00017:00300]";
    QTest::newRow("high half only") << kGps << "ID: [00000:00001]";
    QTest::newRow("largest id") << 0xFFFFFFFFu << "ID: [65535:65535]";
}

void tst_WidgetLogSensors::idText()
{
    QFETCH(quint32, id);
    QFETCH(QString, expected);
    QCOMPARE(WidgetLogSensors::sensorIdText(id), expected);
}

void tst_WidgetLogSensors::variableText_data()
{
    QTest::addColumn<quint32>("param");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<int>("unitTarget");
    QTest::addColumn<QString>("expected");
    QTest::newRow("one digit padded") << 3u << "Voltage"
                                      << "V" << 0 << " 3. Voltage\t[V]";
    QTest::newRow("two digits") << 12u << "Teplota"
                                << "°C" << 0 << "12. Teplota\t[°C]";
    QTest::newRow("no label") << 3u << ""
                              << "V" << 0 << " 3. Param";
    QTest::newRow("chosen unit") << 4u << "Speed"
                                 << "m/s" << 1 << " 4. Speed\t[km/h]";
    QTest::newRow("label with a placeholder") << 5u << "a%3b"
                                              << "V" << 0 << " 5. a%3b\t[V]";
}

void tst_WidgetLogSensors::variableText()
{
    QFETCH(quint32, param);
    QFETCH(QString, label);
    QFETCH(QString, unit);
    QFETCH(int, unitTarget);
    QFETCH(QString, expected);
    TelemetryVar var(1, param, label, unit);
    var.setUnitTarget(quint8(unitTarget));
    QCOMPARE(WidgetLogSensors::variableText(var), expected);
}

void tst_WidgetLogSensors::tree()
{
    QTreeWidget *tree = m_widget->tree();
    QCOMPARE(tree->topLevelItemCount(), 3);
    QTreeWidgetItem *unnamed = itemFor(kUnnamed, -1);
    QVERIFY(unnamed);
    QCOMPARE(unnamed->text(0), QStringLiteral("Unnamed sensor"));
    QCOMPARE(unnamed->text(1), QStringLiteral("ID: [00017:00300]"));
    QCOMPARE(unnamed->childCount(), 2);
    QCOMPARE(unnamed->child(0)->text(0), QStringLiteral(" 3. Voltage\t[V]"));
    QCOMPARE(unnamed->child(0)->text(1), QStringLiteral("(2 items)"));
    QCOMPARE(unnamed->child(1)->text(0), QStringLiteral("12. Param"));
    QCOMPARE(unnamed->child(1)->text(1), QStringLiteral("(0 items)"));
    QCOMPARE(itemFor(kGps, -1)->text(0), QStringLiteral("GPS"));
    QVERIFY(itemFor(kGps, -1)->isExpanded());

    // Each item names its variable; a sensor item names the device (param 0).
    QTreeWidgetItem *lat = itemFor(kGps, 1);
    QVERIFY(lat);
    QCOMPARE(lat->data(0, WidgetLogSensors::DeviceIdRole).toUInt(), kGps);
    QCOMPARE(itemFor(kGps, -1)->data(0, WidgetLogSensors::ParamRole).toUInt(), 0u);

    m_store->clearSensors();
    QCOMPARE(tree->topLevelItemCount(), 0);
}

void tst_WidgetLogSensors::liveCounts()
{
    m_store->appendSamples({{kUnnamed, 3, raw(1, 0, 5, 1000)}, {kUnnamed, 3, raw(1, 0, 6, 1100)}});
    QCOMPARE(itemFor(kUnnamed, 3)->text(1), QStringLiteral("(4 items)"));
    QCOMPARE(itemFor(kGps, 1)->text(1), QStringLiteral("(3 items)"));

    // A variable that arrives with samples but was never listed still shows up.
    TelemetryDataPackage p = m_store->package();
    p.devices()[0].vars() << makeVar(kUnnamed, 7, QStringLiteral("Current"), QStringLiteral("A"), 5);
    QVector<TelemetrySensor> devices = p.devices();
    m_widget->updateLoggedValues(&devices);
    QVERIFY(itemFor(kUnnamed, 7));
    QCOMPARE(itemFor(kUnnamed, 7)->text(1), QStringLiteral("(5 items)"));
}

void tst_WidgetLogSensors::collapsedDevicesStayCollapsed()
{
    itemFor(kGps, -1)->setExpanded(false);
    m_store->setLogging(true); // live descriptions reach an open log only while recording
    m_store->describeSensor(kUnnamed, 8, QStringLiteral("RPM"), QString());
    QVERIFY(itemFor(kUnnamed, 8));
    QVERIFY(!itemFor(kGps, -1)->isExpanded());
    QVERIFY(itemFor(kUnnamed, -1)->isExpanded());
}

void tst_WidgetLogSensors::contextMenu()
{
    const QList<QAction *> actions = m_widget->contextMenu()->actions();
    QCOMPARE(actions.size(), 3);
    QCOMPARE(actions.at(0)->text(), QStringLiteral("Export to KML..."));
    QCOMPARE(actions.at(0)->statusTip(), QStringLiteral("Exports the GPS path to KML"));
    QVERIFY(!actions.at(0)->icon().isNull());
    QCOMPARE(actions.at(1)->text(), QStringLiteral("Delete sensors"));
    QCOMPARE(actions.at(1)->statusTip(), QStringLiteral("Delete sensor list"));
    QCOMPARE(actions.at(2)->text(), QStringLiteral("Realtime logging"));
    QCOMPARE(actions.at(2)->statusTip(), QStringLiteral("Start/stop real-time logging"));
    QVERIFY(actions.at(2)->isCheckable());

    QSignalSpy exportSpy(m_widget.get(), &WidgetLogSensors::exportGPSRequest);
    actions.at(0)->trigger();
    QCOMPARE(exportSpy.count(), 1);
}

void tst_WidgetLogSensors::loggingAction()
{
    QSignalSpy spy(m_widget.get(), &WidgetLogSensors::loggingSet);
    // The store's state is reflected without being echoed back as a request.
    m_store->setLogging(true);
    QVERIFY(m_widget->loggingAction()->isChecked());
    QCOMPARE(spy.count(), 0);
    // The user's toggle is a request.
    m_widget->loggingAction()->trigger();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toBool(), false);
    m_widget->loggingAction()->trigger();
    QCOMPARE(spy.at(1).at(0).toBool(), true);
}

void tst_WidgetLogSensors::deleteSensors()
{
    QSignalSpy spy(m_widget.get(), &WidgetLogSensors::sensorsReset);
    m_widget->deleteAction()->trigger();
    QCOMPARE(spy.count(), 1);
    QVERIFY(m_store->sensors()->isEmpty());
    QCOMPARE(m_widget->tree()->topLevelItemCount(), 0);
}

void tst_WidgetLogSensors::doubleClick()
{
    m_widget->resize(400, 300);
    m_widget->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_widget.get()));
    // Caught by a lambda: the pointer type need not be a registered meta-type for a direct call.
    QVector<const TelemetryVar *> clicked;
    connect(m_widget.get(), &WidgetLogSensors::sensorDblClick, this,
            [&clicked](const TelemetryVar *var) { clicked.append(var); });
    QTreeWidget *tree = m_widget->tree();

    // A widget double click arrives as press, release, double-click; QTest sends only the last.
    const QRect varRect = tree->visualItemRect(itemFor(kGps, 2));
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, varRect.center());
    QTest::mouseDClick(tree->viewport(), Qt::LeftButton, {}, varRect.center());
    // The variable of the store itself, for the active window to bind.
    QCOMPARE(clicked, QVector<const TelemetryVar *>{m_store->package().device(kGps)->var(2)});

    // A sensor item only folds; it is not a variable to add.
    const QRect sensorRect = tree->visualItemRect(itemFor(kGps, -1));
    QTest::mouseClick(tree->viewport(), Qt::LeftButton, {}, sensorRect.center());
    QTest::mouseDClick(tree->viewport(), Qt::LeftButton, {}, sensorRect.center());
    QCOMPARE(clicked.size(), 1);
}

void tst_WidgetLogSensors::dragPayload_data()
{
    QTest::addColumn<quint32>("device");
    QTest::addColumn<int>("param"); // -1: the sensor item
    QTest::addColumn<QStringList>("formats");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("pixmap");

    const QStringList variable = {"application/x-vexostudiosensor", "text/json", "text/plain"};
    const QString chart = QStringLiteral(":/Icons/Program/Resources/chart32x32.png");
    QTest::newRow("param 0 of device 65536")
        << kGps << 0 << variable << QByteArray("{\"Sensor\":65536,\"Param\":0}") << chart;
    QTest::newRow("param 3 of device 65539")
        << kThird << 3 << variable << QByteArray("{\"Sensor\":65539,\"Param\":3}") << chart;
    QTest::newRow("a GPS sensor") << kGps << -1 << QStringList{"application/x-vexostudio-gps"}
                                  << QByteArray("{\"Sensor\":65536,\"Param\":0}")
                                  << QStringLiteral(":/Icons/Program/Resources/globe32x32.png");
    QTest::newRow("a sensor with only a latitude is not dragged")
        << kThird << -1 << QStringList() << QByteArray() << QString();
    QTest::newRow("a sensor without GPS is not dragged")
        << kUnnamed << -1 << QStringList() << QByteArray() << QString();
}

void tst_WidgetLogSensors::dragPayload()
{
    QFETCH(quint32, device);
    QFETCH(int, param);
    QFETCH(QStringList, formats);
    QFETCH(QByteArray, payload);
    QFETCH(QString, pixmap);

    const QTreeWidgetItem *item = itemFor(device, param);
    QVERIFY(item);
    const std::unique_ptr<QMimeData> data(m_widget->mimeDataFor(item));
    if (formats.isEmpty()) {
        QVERIFY(!data);
        return;
    }
    QVERIFY(data);
    QStringList actual = data->formats();
    actual.sort();
    formats.sort();
    QCOMPARE(actual, formats);
    for (const QString &format : formats)
        QCOMPARE(data->data(format), payload);
    QCOMPARE(m_widget->dragPixmapPath(item), pixmap);
    QVERIFY(!QPixmap(pixmap).isNull());

    // What a receiving window reads back.
    if (param >= 0) {
        TelemetrySimplePair pair;
        QVERIFY(SensorDragData::variable(data.get(), &pair));
        QCOMPARE(pair, TelemetrySimplePair(device, quint32(param)));
        quint32 gps = 0;
        QVERIFY(!SensorDragData::gpsDevice(data.get(), &gps));
    } else {
        quint32 gps = 0;
        QVERIFY(SensorDragData::gpsDevice(data.get(), &gps));
        QCOMPARE(gps, device);
        TelemetrySimplePair pair;
        QVERIFY(!SensorDragData::variable(data.get(), &pair));
    }
}

void tst_WidgetLogSensors::dropTextParsing_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<quint32>("device");
    QTest::addColumn<quint32>("param");
    QTest::newRow("plain") << QByteArray("{\"Sensor\":65539,\"Param\":3}") << true << 65539u << 3u;
    QTest::newRow("largest id") << QByteArray("{\"Sensor\":4294967295,\"Param\":0}") << true << 0xFFFFFFFFu
                                << 0u;
    QTest::newRow("id beyond 32 bits")
        << QByteArray("{\"Sensor\":4294967296,\"Param\":0}") << false << 0u << 0u;
    QTest::newRow("negative") << QByteArray("{\"Sensor\":-1,\"Param\":0}") << false << 0u << 0u;
    QTest::newRow("fraction") << QByteArray("{\"Sensor\":1.5,\"Param\":0}") << false << 0u << 0u;
    QTest::newRow("id as a string") << QByteArray("{\"Sensor\":\"1\",\"Param\":0}") << false << 0u << 0u;
    QTest::newRow("no param") << QByteArray("{\"Sensor\":1}") << false << 0u << 0u;
    QTest::newRow("not JSON") << QByteArray("Sensor 1") << false << 0u << 0u;
}

void tst_WidgetLogSensors::dropTextParsing()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, ok);
    QFETCH(quint32, device);
    QFETCH(quint32, param);
    TelemetrySimplePair pair(7, 7);
    QCOMPARE(SensorDragData::parseJsonText(text, &pair), ok);
    if (ok)
        QCOMPARE(pair, TelemetrySimplePair(device, param));
    else
        QCOMPARE(pair, TelemetrySimplePair(7, 7)); // untouched on refusal
}

void tst_WidgetLogSensors::layoutKeepsOnlyTheType()
{
    for (quint8 flag : {SerializableWidget::kForDatabase, SerializableWidget::kForFile}) {
        LayoutJsonWriter writer;
        writer.beginObject();
        QCOMPARE(m_widget->save(writer, flag), 0);
        writer.endObject();
        QCOMPARE(writer.data(), QByteArray("{\"Type\":\"Sensors\"}"));
    }
}

namespace {
// Where the ink of one row's name column lies: the last inked pixel column, and the widest blank run
// between the first and the last (the gap before the unit, when the label has no blanks of its own).
struct RowInk
{
    int right = -1;
    int widestGap = 0;
};

RowInk rowInk(const QImage &image, const QRect &row)
{
    RowInk ink;
    int first = -1, gap = 0;
    for (int x = row.left(); x <= row.right(); ++x) {
        bool inked = false;
        for (int y = row.top(); y <= row.bottom() && !inked; ++y)
            inked = qGray(image.pixel(x, y)) < 128;
        if (!inked) {
            ++gap;
            continue;
        }
        if (first >= 0)
            ink.widestGap = qMax(ink.widestGap, gap);
        first = first < 0 ? x : first;
        ink.right = x;
        gap = 0;
    }
    return ink;
}
} // namespace

void tst_WidgetLogSensors::unitsStandInOneColumn()
{
    // The same unit after labels narrower and wider than the style's 80-pixel tab stops, numbers of one
    // and two digits; then a still wider label arrives and the column moves for it.
    const QStringList first = {"A", "Voltage", "WWWWWWWWWWWWWWWW"};
    const QStringList second = first + QStringList{"MMMMMMMMMMMMMMMMMMMMMMMMMMMMMM"};
    m_widget->resize(900, 300);
    m_widget->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_widget.get()));
    QTreeWidget *tree = m_widget->tree();
    const qreal blank = QFontMetricsF(tree->font()).horizontalAdvance(QLatin1Char(' '));
    for (const QStringList &labels : {first, second}) {
        TelemetryDataPackage p;
        p.addDevice(kGps, QStringLiteral("Receiver"));
        for (int i = 0; i < labels.size(); ++i)
            p.devices()[0].vars() << makeVar(kGps, quint32(1 + 5 * i), labels.at(i), QStringLiteral("V"), 1);
        m_store->setPackage(p);
        const QImage image = tree->viewport()->grab().toImage();
        const int left = tree->header()->sectionViewportPosition(0);
        const int width = tree->header()->sectionSize(0);
        QVector<RowInk> rows;
        for (int i = 0; i < labels.size(); ++i) {
            const QRect row = tree->visualItemRect(itemFor(kGps, 1 + 5 * i));
            rows << rowInk(image, QRect(left, row.top(), width, row.height()).intersected(image.rect()));
            QVERIFY2(rows.last().right > 0, qPrintable(labels.at(i)));
        }
        for (int i = 1; i < rows.size(); ++i)
            QVERIFY2(qAbs(rows.at(i).right - rows.at(0).right) <= 1,
                     qPrintable(QStringLiteral("%1 ends at %2, %3 at %4")
                                    .arg(labels.at(i))
                                    .arg(rows.at(i).right)
                                    .arg(labels.at(0))
                                    .arg(rows.at(0).right)));
        // The column stands just past the widest label, not anywhere to the right.
        QVERIFY2(rows.last().widestGap >= blank && rows.last().widestGap <= 4 * blank,
                 qPrintable(QString::number(rows.last().widestGap)));
    }
}

QTEST_MAIN(tst_WidgetLogSensors)
#include "tst_WidgetLogSensors.moc"
