#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "tests/support/TestSamples.h"
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
    void contextMenu();
    void doubleClick();
    void dragPayload_data();
    void dragPayload();
    void dropTextParsing_data();
    void dropTextParsing();
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
    QCOMPARE(unnamed->text(0) + '|' + unnamed->text(1), QStringLiteral("Unnamed sensor|ID: [00017:00300]"));
    QVERIFY(unnamed->childCount() == 2 && unnamed->child(1)->text(1) == QStringLiteral("(0 items)"));
    QCOMPARE(unnamed->child(0)->text(0) + '|' + unnamed->child(0)->text(1),
             QStringLiteral(" 3. Voltage\t[V]|(2 items)"));
    QCOMPARE(itemFor(kGps, -1)->text(0), QStringLiteral("GPS"));
    QVERIFY(itemFor(kGps, -1)->isExpanded());
    // A sensor item names the device (param 0).
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
    QCOMPARE(itemFor(kUnnamed, 7) ? itemFor(kUnnamed, 7)->text(1) : QString(), QStringLiteral("(5 items)"));
}

void tst_WidgetLogSensors::contextMenu()
{
    const QList<QAction *> actions = m_widget->contextMenu()->actions();
    QStringList texts;
    for (const QAction *a : actions)
        texts << a->text() + '|' + a->statusTip();
    QCOMPARE(texts,
             (QStringList{"Export to KML...|Exports the GPS path to KML", "Delete sensors|Delete sensor list",
                          "Realtime logging|Start/stop real-time logging"}));
    QVERIFY(!actions.at(0)->icon().isNull());
    QSignalSpy exportSpy(m_widget.get(), &WidgetLogSensors::exportGPSRequest);
    actions.at(0)->trigger();
    QCOMPARE(exportSpy.count(), 1);

    // The store's logging state is reflected without being echoed back; the user's toggle is a request.
    QVERIFY(actions.at(2)->isCheckable());
    QSignalSpy logging(m_widget.get(), &WidgetLogSensors::loggingSet);
    m_store->setLogging(true);
    QVERIFY(actions.at(2)->isChecked());
    actions.at(2)->trigger();
    actions.at(2)->trigger();
    QCOMPARE(logging, (QList<QVariantList>{{false}, {true}}));

    QSignalSpy reset(m_widget.get(), &WidgetLogSensors::sensorsReset);
    actions.at(1)->trigger();
    QCOMPARE(reset.count(), 1);
    QVERIFY(m_store->sensors()->isEmpty() && m_widget->tree()->topLevelItemCount() == 0);
}

void tst_WidgetLogSensors::doubleClick()
{
    QVector<const TelemetryVar *> clicked;
    connect(m_widget.get(), &WidgetLogSensors::sensorDblClick, this,
            [&clicked](const TelemetryVar *var) { clicked.append(var); });
    // A variable: the store's own, for the active window to bind; a sensor item only folds.
    emit m_widget->tree()->itemDoubleClicked(itemFor(kGps, 2), 0);
    emit m_widget->tree()->itemDoubleClicked(itemFor(kGps, -1), 0);
    QCOMPARE(clicked, QVector<const TelemetryVar *>{m_store->package().device(kGps)->var(2)});
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
    QTest::newRow("a GPS sensor") << kGps << -1 << QStringList{"application/x-vexostudio-gps"}
                                  << QByteArray("{\"Sensor\":65536,\"Param\":0}")
                                  << QStringLiteral(":/Icons/Program/Resources/globe32x32.png");
    QTest::newRow("a sensor with only a latitude is not dragged")
        << kThird << -1 << QStringList() << QByteArray() << QString();
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
    QStringList actual = data ? data->formats() : QStringList();
    actual.sort();
    QCOMPARE(actual, formats);
    if (!data)
        return;
    for (const QString &format : formats)
        QCOMPARE(data->data(format), payload);
    QCOMPARE(m_widget->dragPixmapPath(item), pixmap);
    QVERIFY(!QPixmap(pixmap).isNull());

    // What a receiving window reads back.
    TelemetrySimplePair pair;
    quint32 gps = 0;
    QCOMPARE(SensorDragData::variable(data.get(), &pair), param >= 0);
    QCOMPARE(SensorDragData::gpsDevice(data.get(), &gps), param < 0);
    QVERIFY(param < 0 ? gps == device : pair == TelemetrySimplePair(device, quint32(param)));
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
    for (const char *bad :
         {"{\"Sensor\":4294967296,\"Param\":0}", "{\"Sensor\":-1,\"Param\":0}",
          "{\"Sensor\":1.5,\"Param\":0}", "{\"Sensor\":\"1\",\"Param\":0}", "{\"Sensor\":1}", "Sensor 1"})
        QTest::newRow(bad) << QByteArray(bad) << false << 7u << 7u; // untouched on refusal
}

void tst_WidgetLogSensors::dropTextParsing()
{
    QFETCH(QByteArray, text);
    QFETCH(bool, ok);
    QFETCH(quint32, device);
    QFETCH(quint32, param);
    TelemetrySimplePair pair(7, 7);
    QCOMPARE(SensorDragData::parseJsonText(text, &pair), ok);
    QCOMPARE(pair, TelemetrySimplePair(device, param));
}

namespace {
// Where the ink of one row's name column lies: the last inked pixel column, and the widest blank run
// before it (the gap before the unit, when the label has no blanks of its own).
std::pair<int, int> rowInk(const QImage &image, const QRect &row)
{
    int right = -1, gap = 0, widest = 0;
    for (int x = row.left(); x <= row.right(); ++x) {
        bool inked = false;
        for (int y = row.top(); y <= row.bottom() && !inked; ++y)
            inked = qGray(image.pixel(x, y)) < 128;
        widest = inked && right >= 0 ? qMax(widest, gap) : widest;
        right = inked ? x : right;
        gap = inked ? 0 : gap + 1;
    }
    return {right, widest};
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
        QVector<std::pair<int, int>> rows;
        for (int i = 0; i < labels.size(); ++i) {
            const QRect row = tree->visualItemRect(itemFor(kGps, 1 + 5 * i));
            rows << rowInk(image, QRect(left, row.top(), width, row.height()).intersected(image.rect()));
            QVERIFY2(rows.last().first > 0, qPrintable(labels.at(i)));
            QVERIFY2(qAbs(rows.last().first - rows.first().first) <= 1, qPrintable(labels.at(i)));
        }
        // The column stands just past the widest label, not anywhere to the right.
        QVERIFY2(rows.last().second >= blank && rows.last().second <= 4 * blank,
                 qPrintable(QString::number(rows.last().second)));
    }
}

QTEST_MAIN(tst_WidgetLogSensors)
#include "tst_WidgetLogSensors.moc"
