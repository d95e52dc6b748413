#include "LayoutTestSupport.h"

#include "telemetry/TelemetryData.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "tests/support/TestSamples.h"
#include "widgets/layout/LayoutJsonReader.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/table/DataTableModel.h"
#include "widgets/table/WidgetDataTable.h"

#include <QAction>
#include <QCheckBox>
#include <QMenu>
#include <QMimeData>
#include <QProgressDialog>
#include <QSignalSpy>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <memory>

namespace {
constexpr quint32 kBattery = 65539u;
constexpr quint32 kAltimeter = 65540u;

// Battery voltage 10 V at 0 ms and 20 V at 1000 ms; altitude 100 m at 0 ms and 300 m at 2000 ms (a gap).
TelemetryDataPackage fixture()
{
    TelemetryDataPackage p;
    int i = p.addDevice(kBattery, QStringLiteral("Battery"));
    TelemetryVar voltage(kBattery, 1, QStringLiteral("Voltage"), QStringLiteral("V"));
    voltage.values() = {sample(0, 10), sample(1000, 20)};
    p.devices()[i].vars() << voltage;
    i = p.addDevice(kAltimeter, QStringLiteral("Altimeter"));
    TelemetryVar altitude(kAltimeter, 1, QStringLiteral("Altitude"), QStringLiteral("m"));
    altitude.values() = {sample(0, 100), sample(2000, 300)};
    p.devices()[i].vars() << altitude;
    return p;
}

// A long flight, so an export runs through many progress steps.
TelemetryDataPackage longFixture()
{
    TelemetryDataPackage p;
    const int i = p.addDevice(kBattery, QStringLiteral("Battery"));
    TelemetryVar voltage(kBattery, 1, QStringLiteral("Voltage"), QStringLiteral("V"));
    for (int k = 0; k <= 3000; ++k)
        voltage.append(sample(k * 100, 1200 + k % 50, 2));
    p.devices()[i].vars() << voltage;
    return p;
}

QByteArray saved(WidgetDataTable &window, quint8 flag)
{
    LayoutJsonWriter writer;
    writer.beginObject();
    window.save(writer, flag);
    writer.endObject();
    return writer.data();
}

bool loadInto(WidgetDataTable &window, const QByteArray &json)
{
    LayoutJsonReader reader;
    LayoutJsonValue value;
    return reader.parse(json, &value) && window.load(value) == 0;
}

QString cell(const DataTableModel *model, int row, int column)
{
    return model->data(model->index(row, column)).toString();
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}
} // namespace

class tst_WidgetDataTable : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void layoutRoundTrip_data();
    void layoutRoundTrip();
    void madeAndWiredByTheManager();
    void cellsFollowTheSwitches_data();
    void cellsFollowTheSwitches();
    void lastRowHoldsTheLastSample_data();
    void lastRowHoldsTheLastSample();
    void periodAppliesWhenEditingFinishes();
    void dropAddsAVariable();
    void contextMenuRemovesColumns();
    void liveValuesExtendTheTable();
    void csvExportIsTheSampledTable();
    void rowsBetweenCursors();
    void cancelledExportLeavesNoFile_data();
    void cancelledExportLeavesNoFile();
    void failedExportShowsTheBox_data();
    void failedExportShowsTheBox();

private:
    ScriptedPrompter m_prompter; // outlives the window
    std::unique_ptr<TelemetryData> m_store;
    std::unique_ptr<WidgetDataTable> m_window;
};

void tst_WidgetDataTable::initTestCase()
{
    registerTelemetryMetaTypes();
}

void tst_WidgetDataTable::init()
{
    m_store = std::make_unique<TelemetryData>();
    m_store->setPackage(fixture());
    m_window = std::make_unique<WidgetDataTable>(m_store.get());
    m_prompter.asked.clear();
    m_window->setPrompter(&m_prompter);
}

void tst_WidgetDataTable::cleanup()
{
    m_window.reset();
    m_store.reset();
}

void tst_WidgetDataTable::layoutRoundTrip_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("everything")
        << QByteArray(
               R"({"Type":"DataTable","Sensors":[[65539,1],[1,2]],"Period":250,"Smooth":true,"Valid":false})")
        << QByteArray(
               R"({"Type":"DataTable","Sensors":[[65539,1],[1,2]],"Period":250,"Smooth":true,"Valid":false})");
    QTest::newRow("type only gets the defaults")
        << QByteArray(R"({"Type":"DataTable"})")
        << QByteArray(R"({"Type":"DataTable","Sensors":[],"Period":1000,"Smooth":false,"Valid":false})");
    QTest::newRow("switches as numbers")
        << QByteArray(R"({"Type":"DataTable","Smooth":0,"Valid":1})")
        << QByteArray(R"({"Type":"DataTable","Sensors":[],"Period":1000,"Smooth":false,"Valid":true})");
    QTest::newRow("bad entries skipped, the rest kept")
        << QByteArray(
               R"({"Type":"DataTable","Sensors":[[1],[2,"x"],[-1,2],[1.5,2],7,[3,4],[3,4]],"Period":100})")
        << QByteArray(R"({"Type":"DataTable","Sensors":[[3,4]],"Period":100,"Smooth":false,"Valid":false})");
    QTest::newRow("largest device id")
        << QByteArray(R"({"Type":"DataTable","Sensors":[[4294967295,0]]})")
        << QByteArray(
               R"({"Type":"DataTable","Sensors":[[4294967295,0]],"Period":1000,"Smooth":false,"Valid":false})");
    QTest::newRow("period below the range")
        << QByteArray(R"({"Type":"DataTable","Period":0})")
        << QByteArray(R"({"Type":"DataTable","Sensors":[],"Period":10,"Smooth":false,"Valid":false})");
    QTest::newRow("period above the range")
        << QByteArray(R"({"Type":"DataTable","Period":99999999})")
        << QByteArray(R"({"Type":"DataTable","Sensors":[],"Period":3600000,"Smooth":false,"Valid":false})");
}

void tst_WidgetDataTable::layoutRoundTrip()
{
    QFETCH(QByteArray, json);
    QFETCH(QByteArray, expected);
    QVERIFY(loadInto(*m_window, json));
    QCOMPARE(saved(*m_window, SerializableWidget::kForDatabase), expected);
    QCOMPARE(saved(*m_window, SerializableWidget::kForFile), QByteArray(R"({"Type":"DataTable"})"));
    // The controls show what was loaded, and a second window loads the saved text to the same state.
    QCOMPARE(m_window->periodBox()->value(), m_window->model()->period());
    QCOMPARE(m_window->smoothBox()->isChecked(), m_window->model()->smooth());
    QCOMPARE(m_window->validBox()->isChecked(), m_window->model()->valid());
    WidgetDataTable second(m_store.get());
    QVERIFY(loadInto(second, expected));
    QCOMPARE(saved(second, SerializableWidget::kForDatabase), expected);
}

void tst_WidgetDataTable::madeAndWiredByTheManager()
{
    LayoutFixture f;
    f.store->setPackage(fixture());
    WidgetDataTable::registerWith(f.manager.get());
    const QByteArray object =
        R"({"Type":"DataTable","Sensors":[[65539,1]],"Period":500,"Smooth":false,"Valid":true})";
    QVERIFY2(f.load(R"({"Main-Container":{"Type":"Container","Vertical":0,"Items":[)" + object +
                    R"(],"Sizes":[400]},"Container":[]})"),
             qPrintable(f.lastError));
    auto *window = f.root()->findChild<WidgetDataTable *>();
    QVERIFY(window);
    QVERIFY(f.manager->saveLayout(SerializableWidget::kForDatabase).contains(object));
    QCOMPARE(window->model()->columnHeader(0), QStringLiteral("Voltage [V]"));
    QCOMPARE(window->model()->rowCount(), 3);

    // The hub's requests reach the window.
    const TelemetryVar *altitude = f.store->package().device(kAltimeter)->var(1);
    emit f.hub->addSensorRequest(altitude);
    QCOMPARE(window->model()->tableColumns(), 2);
    QCOMPARE(window->model()->rowCount(), 5);
    f.store->clearSensors();
    emit f.hub->updateSensorsRequest(f.store->sensors());
    QCOMPARE(window->model()->rowCount(), 0);
    QCOMPARE(window->model()->tableColumns(), 2);

    // Errors go to the manager's message boxes.
    window->exportCsvTo(QStringLiteral("/no/such/folder/table.csv"));
    QCOMPARE(f.prompter.asked.size(), 1);
    QCOMPARE(f.prompter.asked.at(0).kind, QStringLiteral("error"));
    QCOMPARE(f.prompter.asked.at(0).title, QStringLiteral("CSV Export Error"));
}

void tst_WidgetDataTable::cellsFollowTheSwitches_data()
{
    QTest::addColumn<bool>("smooth");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<QString>("voltageAt500");
    QTest::addColumn<QString>("altitudeAt1000");
    QTest::newRow("hold") << false << false << QStringLiteral("10.00") << QStringLiteral("100.00");
    QTest::newRow("smooth") << true << false << QStringLiteral("15.00") << QStringLiteral("200.00");
    QTest::newRow("valid: the 2 s gap is empty") << false << true << QStringLiteral("10.00") << QString();
    QTest::newRow("smooth and valid") << true << true << QStringLiteral("15.00") << QStringLiteral("200.00");
}

void tst_WidgetDataTable::cellsFollowTheSwitches()
{
    QFETCH(bool, smooth);
    QFETCH(bool, valid);
    QFETCH(QString, voltageAt500);
    QFETCH(QString, altitudeAt1000);
    const DataTableModel *model = m_window->model();
    QVERIFY(loadInto(*m_window, R"({"Type":"DataTable","Sensors":[[65539,1],[65540,1]],"Period":100})"));
    QCOMPARE(model->headerData(0, Qt::Horizontal).toString(), QStringLiteral("Voltage [V]"));
    QCOMPARE(model->headerData(1, Qt::Horizontal).toString(), QStringLiteral("Altitude [m]"));
    QCOMPARE(model->headerData(5, Qt::Vertical).toString(), QStringLiteral("0:00:00.500"));
    QCOMPARE(model->rowCount(), 21);

    QSignalSpy resets(model, &QAbstractItemModel::modelReset);
    m_window->smoothBox()->setChecked(smooth);
    m_window->validBox()->setChecked(valid);
    QCOMPARE(resets.count(), int(smooth) + int(valid));
    QCOMPARE(m_window->validBox()->isEnabled(), !smooth);
    QCOMPARE(cell(model, 5, 0), voltageAt500);
    QCOMPARE(cell(model, 10, 1), altitudeAt1000);
    // The voltage ends at 1 s: its later cells are empty while the altitude goes on.
    QCOMPARE(cell(model, 15, 0), QString());
    QCOMPARE(cell(model, 20, 1), QStringLiteral("300.00"));
}

// The table runs up to the first step at or after a variable's last sample, and that row shows the last
// sample's value, also when the sample falls between two steps.
void tst_WidgetDataTable::lastRowHoldsTheLastSample_data()
{
    QTest::addColumn<QVector<qint32>>("times");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<bool>("live");
    QTest::addColumn<bool>("longerColumn");
    QVector<qint32> onSteps;
    for (qint32 t = 0; t <= 1000; t += 100)
        onSteps << t;
    QVector<qint32> between = onSteps.mid(0, 10);
    between << 950;
    QTest::newRow("on a step, hold") << onSteps << false << false << false;
    QTest::newRow("on a step, hold, live") << onSteps << false << true << false;
    QTest::newRow("on a step, valid") << onSteps << true << false << false;
    QTest::newRow("between steps, hold") << between << false << false << false;
    QTest::newRow("between steps, hold, live") << between << false << true << false;
    QTest::newRow("between steps, valid") << between << true << false << false;
    QTest::newRow("between steps, beside a longer column") << between << false << false << true;
}

void tst_WidgetDataTable::lastRowHoldsTheLastSample()
{
    QFETCH(QVector<qint32>, times);
    QFETCH(bool, valid);
    QFETCH(bool, live);
    QFETCH(bool, longerColumn);
    // The k-th sample has the value k + 1; with 100 ms steps no two samples lie 1501 ms apart, so both
    // modes hold the latest sample at or before each row.
    const int period = 100;
    QVector<TelemetrySample> samples;
    for (int k = 0; k < times.size(); ++k)
        samples.append({kBattery, 1, sample(times.at(k), k + 1)});
    int voltageRows = 0;
    for (qint64 t = 0;; t += period) {
        ++voltageRows;
        if (t >= times.constLast())
            break;
    }
    const auto expected = [&](int row) {
        if (row >= voltageRows)
            return QString();
        const int held = int(std::count_if(times.cbegin(), times.cend(),
                                           [row, period](qint32 t) { return t <= qint64(row) * period; }));
        return held == 0 ? QString() : QStringLiteral("%1.00").arg(held);
    };

    TelemetryDataPackage p = fixture();
    TelemetryVar &voltage = p.device(kBattery)->vars()[0];
    voltage.values().clear();
    if (!live) {
        for (const TelemetrySample &s : samples)
            voltage.append(s.value);
    }
    m_store->setPackage(p);
    const QString sensors =
        longerColumn ? QStringLiteral("[[65539,1],[65540,1]]") : QStringLiteral("[[65539,1]]");
    QVERIFY(loadInto(*m_window, QStringLiteral(R"({"Type":"DataTable","Sensors":%1,"Period":%2,"Valid":%3})")
                                    .arg(sensors)
                                    .arg(period)
                                    .arg(valid ? "true" : "false")
                                    .toUtf8()));
    for (int k = 0; live && k < samples.size(); ++k) {
        m_store->appendSamples({samples.at(k)});
        m_window->dataUpdated(m_store->sensors());
    }

    const DataTableModel *model = m_window->model();
    // The altitude runs to 2000 ms.
    QCOMPARE(model->rowCount(), longerColumn ? 21 : voltageRows);
    for (int r = 0; r < model->rowCount(); ++r)
        QCOMPARE(cell(model, r, 0), expected(r));
    QCOMPARE(cell(model, voltageRows - 1, 0), QStringLiteral("%1.00").arg(times.size()));

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.csv"));
    QVERIFY(m_window->exportCsvTo(path));
    const QList<QByteArray> lines = readAll(path).split('\n');
    QCOMPARE(lines.size(), model->rowCount() + 2); // the header, the rows, nothing after the last break
    QVERIFY2(lines.at(voltageRows)
                 .startsWith(QByteArray("0:00:01.000;") + QByteArray::number(times.size()) + ".00"),
             lines.at(voltageRows).constData());
}

void tst_WidgetDataTable::periodAppliesWhenEditingFinishes()
{
    m_window->show();
    m_window->tabs()->setCurrentIndex(1);
    m_window->addData(m_store->package().device(kBattery)->var(1));
    QCOMPARE(m_window->model()->rowCount(), 2);
    QSignalSpy resets(m_window->model(), &QAbstractItemModel::modelReset);
    QSpinBox *spin = m_window->periodBox();
    spin->setFocus();
    spin->selectAll();
    QTest::keyClicks(spin, QStringLiteral("100"));
    QCOMPARE(resets.count(), 0);
    QCOMPARE(m_window->model()->period(), 1000);
    // Live data rebuilding the table meanwhile leaves the digits being typed alone.
    m_window->sensorsUpdated(m_store->sensors());
    QCOMPARE(resets.count(), 1);
    QCOMPARE(spin->text(), QStringLiteral("100 ms"));
    QTest::keyClick(spin, Qt::Key_Return);
    QCOMPARE(resets.count(), 2);
    QCOMPARE(m_window->model()->period(), 100);
    QCOMPARE(m_window->model()->rowCount(), 11);
    // A step of the arrows is an edit finished at once.
    QTest::keyClick(spin, Qt::Key_Up);
    QCOMPARE(m_window->model()->period(), 101);
}

void tst_WidgetDataTable::dropAddsAVariable()
{
    const auto drop = [this](QMimeData *data) {
        const QPoint at = m_window->rect().center();
        QDragEnterEvent enter(at, Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_window.get(), &enter);
        const bool entered = enter.isAccepted();
        QDropEvent dropped(at, Qt::CopyAction, data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(m_window.get(), &dropped);
        delete data;
        return entered;
    };
    m_window->resize(400, 300);
    m_window->tabs()->setCurrentIndex(1);
    QVERIFY(drop(SensorDragData::forVariable({kAltimeter, 1})));
    QCOMPARE(m_window->model()->variables(), (QVector<TelemetrySimplePair>{{kAltimeter, 1}}));
    QCOMPARE(m_window->tabs()->currentIndex(), 0);
    // The same variable twice is one column.
    QVERIFY(drop(SensorDragData::forVariable({kAltimeter, 1})));
    QCOMPARE(m_window->model()->tableColumns(), 1);
    auto *text = new QMimeData;
    text->setText(QStringLiteral("Voltage"));
    QVERIFY(!drop(text));
    QVERIFY(!drop(SensorDragData::forGpsDevice(kBattery)));
    QCOMPARE(m_window->model()->tableColumns(), 1);
}

void tst_WidgetDataTable::contextMenuRemovesColumns()
{
    TelemetryDataPackage p = fixture();
    p.device(kAltimeter)->var(1)->setUnitTarget(2);
    m_store->setPackage(p);
    QVERIFY(loadInto(*m_window, R"({"Type":"DataTable","Sensors":[[65539,1],[65540,1]]})"));
    std::unique_ptr<QMenu> menu(m_window->createContextMenu());
    QCOMPARE(menu->title(), QStringLiteral("Data table menu"));
    QStringList texts;
    for (QAction *action : menu->actions())
        texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
    QCOMPARE(texts.mid(0, 4),
             (QStringList{"Remove \"Voltage [V]\"", "Remove \"Altitude [ft.]\"", "-", "Remove all"}));
    menu->actions().at(0)->trigger();
    QCOMPARE(m_window->model()->variables(), (QVector<TelemetrySimplePair>{{kAltimeter, 1}}));

    menu.reset(m_window->createContextMenu());
    menu->actions().at(2)->trigger();
    QCOMPARE(m_window->model()->tableColumns(), 0);
    menu.reset(m_window->createContextMenu());
    QCOMPARE(menu->actions().at(0)->text(), QStringLiteral("Remove all"));
    QVERIFY(!menu->actions().at(0)->isEnabled());
}

// Live samples append rows without a reset, and the table then equals one built from scratch.
void tst_WidgetDataTable::liveValuesExtendTheTable()
{
    m_store->clearSensors();
    m_store->describeSensor(kBattery, 0, QStringLiteral("Battery"), QString());
    m_store->describeSensor(kBattery, 1, QStringLiteral("Voltage"), QStringLiteral("V"));
    m_store->describeSensor(kBattery, 2, QStringLiteral("Current"), QStringLiteral("A"));
    m_window->sensorsUpdated(m_store->sensors());
    QVERIFY(loadInto(*m_window,
                     R"({"Type":"DataTable","Sensors":[[65539,1],[65539,2]],"Period":100,"Smooth":true})"));
    QCOMPARE(m_window->model()->rowCount(), 0);

    QSignalSpy resets(m_window->model(), &QAbstractItemModel::modelReset);
    QSignalSpy inserted(m_window->model(), &QAbstractItemModel::rowsInserted);
    qint32 t = 0;
    for (int batch = 0; batch < 20; ++batch) {
        QVector<TelemetrySample> samples;
        // A batch may begin at the time the previous one ended.
        if (batch > 0)
            samples.append({kBattery, 2, sample(t - 130, 7 * batch, 1)});
        for (int k = 0; k < 7; ++k, t += 130) {
            samples.append({kBattery, 1, sample(t, 1000 + batch * 10 + k, 2)});
            // The current arrives half as often and sometimes twice at the same time.
            if (k % 2 == 0)
                samples.append({kBattery, 2, sample(t, batch * 100 + k, 1)});
        }
        m_store->appendSamples(samples);
        m_window->dataUpdated(m_store->sensors());
    }
    QCOMPARE(resets.count(), 0);
    QVERIFY(inserted.count() > 0);

    WidgetDataTable fresh(m_store.get());
    QVERIFY(loadInto(fresh, saved(*m_window, SerializableWidget::kForDatabase)));
    QCOMPARE(m_window->model()->rowCount(), fresh.model()->rowCount());
    QVERIFY(fresh.model()->rowCount() > 100);
    for (int r = 0; r < fresh.model()->rowCount(); ++r) {
        for (int c = 0; c < 2; ++c)
            QCOMPARE(cell(m_window->model(), r, c), cell(fresh.model(), r, c));
    }
}

// The long flight's voltage is (1200 + k % 50) / 100 V at k × 100 ms; with "Valid" each row holds the
// sample at or before its time. Rows step by the period until the time passes the last sample (300 s),
// that step included. Expected lines are written out from that, in the file's own format.
static QByteArray expectedCsv(int period, qint64 from, qint64 to)
{
    QByteArray csv = "Time;Voltage [V]\n";
    for (qint64 t = 0; t - period <= 300000; t += period) {
        if (t < from || t > to)
            continue;
        const int k = int(std::min<qint64>(t, 300000) / 100);
        csv += QTime(0, 0).addMSecs(int(t)).toString(QStringLiteral("H:mm:ss.zzz")).toUtf8() + ';' +
               QByteArray::number((1200 + k % 50) / 100.0, 'f', 2) + '\n';
    }
    return csv;
}

void tst_WidgetDataTable::csvExportIsTheSampledTable()
{
    m_store->setPackage(longFixture());
    QVERIFY(loadInto(*m_window, R"({"Type":"DataTable","Sensors":[[65539,1]],"Period":70,"Valid":true})"));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.csv"));
    QVERIFY(m_window->exportCsvTo(path));
    QVERIFY(m_prompter.asked.isEmpty());
    QCOMPARE(readAll(path), expectedCsv(70, 0, 400000));
    QVERIFY(m_window->exportExcelTo(dir.filePath(QStringLiteral("table.xlsx"))));
    QVERIFY(readAll(dir.filePath(QStringLiteral("table.xlsx"))).startsWith("PK"));
}

// The measuring cursors come from the hub (a chart placed them), shade their rows, and can limit the
// export to those rows; the table's own menu places them for everyone.
void tst_WidgetDataTable::rowsBetweenCursors()
{
    m_store->setPackage(longFixture());
    QVERIFY(loadInto(*m_window, R"({"Type":"DataTable","Sensors":[[65539,1]],"Period":70,"Valid":true})"));
    WindowHub hub;
    WidgetDataTable::wire(m_window.get(), &hub, m_store.get());
    QVERIFY(!m_window->betweenCursorsBox()->isEnabled());
    CursorPair pair;
    pair.hasA = pair.hasB = true;
    pair.a = 10000; // placed right to left
    pair.b = 5000;
    hub.setCursorPair(pair);
    QVERIFY(m_window->betweenCursorsBox()->isEnabled());
    const DataTableModel *model = m_window->model();
    QCOMPARE(model->data(model->index(71, 0), Qt::BackgroundRole).isValid(), false);  // 4970 ms
    QCOMPARE(model->data(model->index(72, 0), Qt::BackgroundRole).isValid(), true);   // 5040 ms
    QCOMPARE(model->data(model->index(143, 0), Qt::BackgroundRole).isValid(), false); // 10010 ms

    m_window->betweenCursorsBox()->setChecked(true);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("between.csv"));
    QVERIFY(m_window->exportCsvTo(path));
    QCOMPARE(readAll(path), expectedCsv(70, 5000, 10000));

    std::unique_ptr<QMenu> menu(m_window->createContextMenu(nullptr, 200));
    QAction *setB = menu->actions().at(menu->actions().size() - 2);
    QCOMPARE(setB->text(), QStringLiteral("Set cursor B at 0:00:14.000"));
    setB->trigger();
    QCOMPARE(hub.cursorPair().b, qint64(14000));
    QCOMPARE(hub.cursorPair().a, qint64(10000));
    menu->actions().last()->trigger();
    QVERIFY(hub.cursorPair().isEmpty());
    QVERIFY(!m_window->betweenCursorsBox()->isEnabled());
}

void tst_WidgetDataTable::cancelledExportLeavesNoFile_data()
{
    QTest::addColumn<bool>("excel");
    QTest::newRow("CSV") << false;
    QTest::newRow("Excel") << true;
}

void tst_WidgetDataTable::cancelledExportLeavesNoFile()
{
    QFETCH(bool, excel);
    m_store->setPackage(longFixture());
    QVERIFY(loadInto(*m_window, R"({"Type":"DataTable","Sensors":[[65539,1]],"Period":10})"));
    QVERIFY(m_window->model()->rowCount() > 20000);
    m_window->show();
    m_window->setProgressDelay(0);
    QTemporaryDir dir;
    const QString path = dir.filePath(excel ? QStringLiteral("table.xlsx") : QStringLiteral("table.csv"));
    bool cancelled = false;
    QString label;
    // Runs inside the export, while the progress dialog lets events through.
    QTimer::singleShot(0, m_window.get(), [&] {
        if (auto *progress = m_window->findChild<QProgressDialog *>()) {
            label = progress->labelText();
            progress->cancel();
            cancelled = true;
        }
    });
    const bool ok = excel ? m_window->exportExcelTo(path) : m_window->exportCsvTo(path);
    QVERIFY(cancelled);
    QVERIFY(!ok);
    QCOMPARE(label, excel ? QStringLiteral("Exporting to Excel file...")
                          : QStringLiteral("Exporting to CSV file..."));
    QVERIFY(!QFile::exists(path));
    QVERIFY(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).isEmpty());
    QVERIFY(m_prompter.asked.isEmpty());
}

void tst_WidgetDataTable::failedExportShowsTheBox_data()
{
    QTest::addColumn<bool>("excel");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("sentence");
    QTest::newRow("CSV") << false << QStringLiteral("CSV Export Error")
                         << QStringLiteral("<b>Unable to export CSV file:</b><ul><li>");
    QTest::newRow("Excel") << true << QStringLiteral("Excel Export Error")
                           << QStringLiteral("<b>Unable to export Excel file:</b><ul><li>");
}

void tst_WidgetDataTable::failedExportShowsTheBox()
{
    QFETCH(bool, excel);
    QFETCH(QString, title);
    QFETCH(QString, sentence);
    m_window->addData(m_store->package().device(kBattery)->var(1));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("<missing>/table"));
    QVERIFY(!(excel ? m_window->exportExcelTo(path) : m_window->exportCsvTo(path)));
    QCOMPARE(m_prompter.asked.size(), 1);
    QCOMPARE(m_prompter.asked.at(0).kind, QStringLiteral("error"));
    QCOMPARE(m_prompter.asked.at(0).title, title);
    QVERIFY2(m_prompter.asked.at(0).text.startsWith(sentence), qPrintable(m_prompter.asked.at(0).text));
    QVERIFY(m_prompter.asked.at(0).text.endsWith(QLatin1String("</li></ul>")));
    // The file name is shown as text, not as markup.
    QVERIFY(m_prompter.asked.at(0).text.contains(QLatin1String("&lt;missing&gt;")));
}

QTEST_MAIN(tst_WidgetDataTable)
#include "tst_WidgetDataTable.moc"
