#include "LayoutTestSupport.h"

#include "telemetry/TelemetryMetaTypes.h"
#include "tests/support/TestSamples.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SensorDragData.h"
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

bool loadInto(WidgetDataTable &window, const QByteArray &json)
{
    return window.load(parsed(json)) == 0;
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
    void cellsFollowTheSwitches_data();
    void cellsFollowTheSwitches();
    void periodAppliesWhenEditingFinishes();
    void dropAddsAVariable();
    void contextMenuRemovesColumns();
    void liveValuesExtendTheTable();
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
    const auto row = [](const char *name, const QByteArray &json, const QByteArray &sensors, int period,
                        bool smooth, bool valid) {
        QTest::newRow(name) << R"({"Type":"DataTable")" + (json.isEmpty() ? json : "," + json) + "}"
                            << QStringLiteral(
                                   R"({"Type":"DataTable","Sensors":%1,"Period":%2,"Smooth":%3,"Valid":%4})")
                                   .arg(QString(sensors))
                                   .arg(period)
                                   .arg(smooth ? "true" : "false", valid ? "true" : "false")
                                   .toUtf8();
    };
    row("everything", R"("Sensors":[[65539,1],[1,2]],"Period":250,"Smooth":true,"Valid":false)",
        "[[65539,1],[1,2]]", 250, true, false);
    row("type only gets the defaults", "", "[]", 1000, false, false);
    row("switches as numbers", R"("Smooth":0,"Valid":1)", "[]", 1000, false, true);
    row("bad entries skipped, the rest kept",
        R"("Sensors":[[1],[2,"x"],[-1,2],[1.5,2],7,[3,4],[3,4]],"Period":100)", "[[3,4]]", 100, false, false);
    row("largest device id", R"("Sensors":[[4294967295,0]])", "[[4294967295,0]]", 1000, false, false);
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
    QCOMPARE((QStringList{model->headerData(0, Qt::Horizontal).toString(),
                          model->headerData(1, Qt::Horizontal).toString(),
                          model->headerData(5, Qt::Vertical).toString()}),
             (QStringList{"Voltage [V]", "Altitude [m]", "0:00:00.500"}));
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
    QCOMPARE(std::make_pair(resets.count(), m_window->model()->period()), std::make_pair(0, 1000));
    // Live data rebuilding the table meanwhile leaves the digits being typed alone.
    m_window->sensorsUpdated(m_store->sensors());
    QCOMPARE(resets.count(), 1);
    QCOMPARE(spin->text(), QStringLiteral("100 ms"));
    QTest::keyClick(spin, Qt::Key_Return);
    QCOMPARE(std::make_tuple(resets.count(), m_window->model()->period(), m_window->model()->rowCount()),
             std::make_tuple(2, 100, 11));
    // A step of the arrows is an edit finished at once.
    QTest::keyClick(spin, Qt::Key_Up);
    QCOMPARE(m_window->model()->period(), 101);
}

void tst_WidgetDataTable::dropAddsAVariable()
{
    const auto drop = [this](QMimeData *data) { return dropOn(m_window.get(), data); };
    m_window->resize(400, 300);
    m_window->tabs()->setCurrentIndex(1);
    QVERIFY(drop(SensorDragData::forVariable({kAltimeter, 1})));
    QCOMPARE(m_window->model()->variables(), (QVector<TelemetrySimplePair>{{kAltimeter, 1}}));
    // The same variable twice is one column.
    QVERIFY(drop(SensorDragData::forVariable({kAltimeter, 1})));
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
    QCOMPARE(menuTexts(menu.get()).mid(0, 4),
             (QStringList{"Remove \"Voltage [V]\"", "Remove \"Altitude [ft.]\"", "-", "Remove all"}));
    menu->actions().at(0)->trigger();
    QCOMPARE(m_window->model()->variables(), (QVector<TelemetrySimplePair>{{kAltimeter, 1}}));

    menu.reset(m_window->createContextMenu());
    menu->actions().at(2)->trigger();
    QCOMPARE(m_window->model()->tableColumns(), 0);
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
    QVERIFY(resets.count() == 0 && inserted.count() > 0);

    WidgetDataTable fresh(m_store.get());
    QVERIFY(loadInto(fresh, saved(*m_window, SerializableWidget::kForDatabase)));
    QVERIFY(fresh.model()->rowCount() > 100);
    QCOMPARE(m_window->model()->rowCount(), fresh.model()->rowCount());
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

// The export is the sampled table. The measuring cursors come from the hub (a chart placed them), shade
// their rows, and can limit the export to those rows; the table's own menu places them for everyone.
void tst_WidgetDataTable::rowsBetweenCursors()
{
    m_store->setPackage(longFixture());
    QVERIFY(loadInto(*m_window, R"({"Type":"DataTable","Sensors":[[65539,1]],"Period":70,"Valid":true})"));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.csv"));
    QVERIFY(m_window->exportCsvTo(path));
    QCOMPARE(readAll(path), expectedCsv(70, 0, 400000));
    QVERIFY(m_window->exportExcelTo(dir.filePath(QStringLiteral("table.xlsx"))));
    QVERIFY(readAll(dir.filePath(QStringLiteral("table.xlsx"))).startsWith("PK"));
    QVERIFY(m_prompter.asked.isEmpty());

    WindowHub hub;
    WidgetDataTable::wire(m_window.get(), &hub, m_store.get());
    QVERIFY(!m_window->betweenCursorsBox()->isEnabled());
    hub.setCursorPair({true, true, 10000, 5000}); // placed right to left
    QVERIFY(m_window->betweenCursorsBox()->isEnabled());
    const DataTableModel *model = m_window->model();
    const auto shaded = [model](int row) {
        return model->data(model->index(row, 0), Qt::BackgroundRole).isValid();
    };
    QCOMPARE((QList<bool>{shaded(71), shaded(72), shaded(143)}),
             (QList<bool>{false, true, false})); // 4970, 5040, 10010 ms

    m_window->betweenCursorsBox()->setChecked(true);
    QVERIFY(m_window->exportCsvTo(path));
    QCOMPARE(readAll(path), expectedCsv(70, 5000, 10000));

    std::unique_ptr<QMenu> menu(m_window->createContextMenu(nullptr, 200));
    QAction *setB = menu->actions().at(menu->actions().size() - 2);
    QCOMPARE(setB->text(), QStringLiteral("Set cursor B at 0:00:14.000"));
    setB->trigger();
    QCOMPARE(std::make_pair(hub.cursorPair().a, hub.cursorPair().b), std::make_pair(10000LL, 14000LL));
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
    QString label; // of the progress dialog, which is cancelled while it lets events through
    QTimer::singleShot(0, m_window.get(), [&] {
        auto *progress = m_window->findChild<QProgressDialog *>();
        label = progress ? progress->labelText() : "none";
        if (progress)
            progress->cancel();
    });
    QVERIFY(!(excel ? m_window->exportExcelTo(path) : m_window->exportCsvTo(path)));
    QCOMPARE(label, excel ? QStringLiteral("Exporting to Excel file...")
                          : QStringLiteral("Exporting to CSV file..."));
    QVERIFY(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden).isEmpty());
    QVERIFY(m_prompter.asked.isEmpty());
}

void tst_WidgetDataTable::failedExportShowsTheBox_data()
{
    QTest::addColumn<bool>("excel");
    QTest::addColumn<QString>("box");
    QTest::newRow("CSV") << false << "error|CSV Export Error|<b>Unable to export CSV file:</b><ul><li>";
    QTest::newRow("Excel") << true << "error|Excel Export Error|<b>Unable to export Excel file:</b><ul><li>";
}

void tst_WidgetDataTable::failedExportShowsTheBox()
{
    QFETCH(bool, excel);
    QFETCH(QString, box);
    m_window->addData(m_store->package().device(kBattery)->var(1));
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("<missing>/table"));
    QVERIFY(!(excel ? m_window->exportExcelTo(path) : m_window->exportCsvTo(path)));
    // The file name is shown as text, not as markup.
    const QString shown = m_prompter.only();
    QVERIFY2(shown.startsWith(box) && shown.endsWith("</li></ul>") && shown.contains("&lt;missing&gt;"),
             qPrintable(shown));
}

QTEST_MAIN(tst_WidgetDataTable)
#include "tst_WidgetDataTable.moc"
