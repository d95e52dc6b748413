// The device tree and its parameter table, with a stand-in for the parameter engine.
#include "link/LinkMetaTypes.h"
#include "tests/support/ScriptedPrompter.h"
#include "widgets/devices/DeviceParamLink.h"
#include "widgets/devices/DialogLxBusImport.h"
#include "widgets/devices/LxBusTableModel.h"
#include "widgets/devices/LxBusValueDelegate.h"
#include "widgets/devices/WidgetDeviceTree.h"
#include "widgets/devices/WidgetLxBusParams.h"

#include <QAction>
#include <QComboBox>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

namespace {

using Rows = QVector<DeviceSettingsFile::DiffRow>;
constexpr int kNothing = INT_MIN;
constexpr quint32 kRx = 17u | (300u << 16);
constexpr quint32 kVario = 0x00020001u;
const QMap<int, qint32> kHeld = {{1, 77}, {2, 125}, {3, 1}, {4, 50}}; // Serial, Gain 12.5, Mode Slow, Limit

// A receiver kind: a read-only identifier, a signed value with one decimal, a choice and a plain limit;
// firmware 1.3 or newer.
DeviceDefinitions definitions()
{
    const QByteArray source = R"({"name": "Rx", "hardware": [5], "firmware": "1.3", "parameters": [
    {"id": 1, "address": 16, "size": 4, "min": 0, "max": 2147483647, "readOnly": true, "name": "Serial"},
    {"id": 2, "address": 24, "size": 2, "signed": true, "decimals": 1, "min": -100, "max": 500, "name": "Gain",
     "description": "Input gain"},
    {"id": 3, "address": 26, "size": 1, "min": 0, "max": 2, "name": "Mode",
     "choices": [[0, "Off"], [1, "Slow"], [2, "Fast"]]},
    {"id": 4, "address": 27, "size": 1, "min": 10, "max": 200, "name": "Limit"}],
  "pages": [{"id": 0, "title": "P", "elements": [{"kind": "Int", "pParam": 2}]}]})";
    DeviceDefinitions d;
    QString error;
    if (!d.addSource(source, QStringLiteral("rx.json"), &error))
        qFatal("%s", qPrintable(error));
    return d;
}

// Identifier, hardware, no parent, extension or kind, name, firmware major and minor.
Device device(quint32 identifier, const QString &name, int major = 1, int minor = 4, quint16 hardware = 5)
{
    return {identifier, hardware, 0, 0, 0, 0, name, quint8(major), quint8(minor)};
}

Vector<Device> table(std::initializer_list<Device> devices)
{
    Vector<Device> v;
    for (const Device &d : devices)
        v.append(d);
    return v;
}

// What the device answers: these raw values by id, the other parameters not read yet.
DevParamVector answer(DevParamVector params, const QMap<int, qint32> &values)
{
    for (DevParam &p : params) {
        p.loaded = values.contains(p.id);
        p.value = values.value(p.id);
    }
    return params;
}

QString settingsFile(const QTemporaryDir &dir, const QByteArray &device, const QByteArray &parameters = {})
{
    const QString path = dir.filePath(QStringLiteral("in.jsn"));
    QFile f(path);
    const QByteArray bytes = R"({"format": "vexo-device-settings", "version": 1, "device": )" + device +
                             R"(, "parameters": [)" + parameters + "]}";
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size() ? path : QString();
}

// Every box shown, as "kind|title".
QStringList heads(const ScriptedPrompter &prompter)
{
    QStringList out;
    for (const ScriptedPrompter::Asked &a : prompter.asked)
        out << a.kind + '|' + a.title;
    return out;
}

// Each device of the tree as "name|icon file" (and "|tooltip"), its extensions below it indented.
QStringList items(const WidgetDeviceTree &tree, bool tips = false)
{
    auto icon = [](const QTreeWidgetItem *item) {
        const QImage shown = item->icon(0).pixmap(16, 16).toImage();
        for (const char *path :
             {WidgetDeviceTree::kDeviceIcon, WidgetDeviceTree::kFirmwareIcon, WidgetDeviceTree::kGoneIcon}) {
            if (!shown.isNull() && shown == QIcon(QLatin1String(path)).pixmap(16, 16).toImage())
                return QString::fromLatin1(path).section('/', -1);
        }
        return QStringLiteral("?");
    };
    QStringList out;
    for (int i = 0; i < tree.rootItem()->childCount(); ++i) {
        const QTreeWidgetItem *item = tree.rootItem()->child(i);
        out << item->text(0) + '|' + icon(item) + (tips ? '|' + item->toolTip(0) : QString());
        for (int j = 0; j < item->childCount(); ++j)
            out << "  " + item->child(j)->text(0);
    }
    return out;
}

// Stands in for the parameter engine: records the calls; the test answers with the signals.
class FakeParamLink : public DeviceParamLink
{
public:
    QVector<DeviceSettings> activated;
    QVector<DevParamVector> written;
    void setActiveDevice(const DeviceSettings &settings) override { activated.append(settings); }
    void read() override {}
    void write(const DevParamVector &params) override { written.append(params); }
};

struct Window
{
    ScriptedPrompter prompter;
    FakeParamLink link;
    WidgetLxBusParams window{device(0xA1B2C3D4u, QStringLiteral("Rx 8")), &link, &prompter};
    bool startAndRead()
    {
        const bool ok = window.start(definitions());
        emit link.valuesLoaded(answer(link.activated.value(0).params, kHeld));
        return ok;
    }
    // The device read back after a write, holding `held`.
    void readBack(DevParam p, qint32 held)
    {
        p.value = held;
        p.loaded = true;
        p.confirmed = held == p.sent;
        emit link.writeFinished({p});
    }
    QString gain() const { return window.model()->index(1, LxBusTableModel::ValueColumn).data().toString(); }
    // The one parameter written, else a blank one.
    DevParam sent() const { return link.written.size() == 1 ? link.written[0].value(0) : DevParam(); }
};

} // namespace

class tst_DeviceExplorer : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void treeItems();
    void goneDevicesStayUntilRefreshed();
    void treeMenu();
    void tableRows_data();
    void tableRows();
    void tableEdits_data();
    void tableEdits();
    void startMessagesAndProgress();
    void refusedEditShowsTheDeviceValue();
    void exportAndImport();
};

void tst_DeviceExplorer::treeItems()
{
    WidgetDeviceTree tree;
    tree.setDefinitions(definitions());
    Device sat = device(0, "Sat");
    sat.parentIdentifier = kRx;
    sat.extensionIndex = 1;
    const Vector<Device> devices =
        table({device(kRx, "Rx 8"), sat, device(2, "Rx old", 1, 2), device(kVario, "Vario", 0, 9, 9)});
    tree.updateItems(&devices);
    QCOMPARE(tree.rootItem()->text(0), QStringLiteral("Connected devices"));
    // Firmware older than the definition asks for has its own icon; a device without definition does not.
    // Identifier 300 << 16 | 17: the low half first, five digits each, as the sensor list shows ids.
    QCOMPARE(items(tree, true), QStringList({"Rx 8|lx.png|ID: [00017:00300], Version 1.4, HW 5", "  Sat",
                                             "Rx old|li-fw16x16.png|ID: [00002:00000], Version 1.2, HW 5",
                                             "Vario|lx.png|ID: [00001:00002], Version 0.9, HW 9"}));
}

void tst_DeviceExplorer::goneDevicesStayUntilRefreshed()
{
    WidgetDeviceTree tree;
    Vector<Device> devices = table({device(kRx, "Rx 8"), device(kVario, "Vario")});
    tree.setDeviceSource([&devices] { return devices; });
    tree.updateItems(nullptr);
    QCOMPARE(items(tree), QStringList({"Rx 8|lx.png", "Vario|lx.png"}));
    devices = table({device(kVario, "Vario")});
    tree.updateItems(nullptr);
    QCOMPARE(items(tree), QStringList({"Rx 8|cancel16x16.png", "Vario|lx.png"}));
    // Back on the bus: as before, in its old place.
    devices = table({device(kVario, "Vario"), device(kRx, "Rx 8")});
    tree.updateItems(nullptr);
    QCOMPARE(items(tree), QStringList({"Rx 8|lx.png", "Vario|lx.png"}));
    devices = table({device(kVario, "Vario")});
    tree.updateItems(nullptr);
    tree.refresh();
    QCOMPARE(items(tree), QStringList({"Vario|lx.png"}));
}

void tst_DeviceExplorer::treeMenu()
{
    ScriptedPrompter prompter;
    FakeParamLink link;
    WidgetDeviceTree tree;
    tree.setPrompter(&prompter);
    tree.setParamLink(&link);
    tree.setDefinitions(definitions());
    const QList<QAction *> actions = tree.contextMenu()->actions();
    QStringList texts;
    for (QAction *a : actions)
        texts << a->text() + '|' + a->statusTip();
    QCOMPARE(texts, QStringList({"Edit properties...|Opens device properties dialog",
                                 "Show all registers|Displays all device registers",
                                 "Refresh sensors|Refresh sensor list",
                                 "Open device dialog...|Opens device dialog"}));
    const Vector<Device> devices = table({device(kRx, "Rx 8")});
    tree.updateItems(&devices);
    tree.tree()->setCurrentItem(tree.rootItem()->child(0));
    actions.at(1)->trigger();
    QVERIFY(tree.paramsWindow());
    QCOMPARE(tree.paramsWindow()->windowTitle(), QStringLiteral("LX Bus Device Properties: Rx 8"));
    QCOMPARE(link.activated.value(0).deviceId, kRx);
    tree.tree()->setCurrentItem(tree.rootItem()->child(0));
    actions.at(3)->trigger();
    QVERIFY2(prompter.only().startsWith("information|Device|") &&
                 prompter.only().contains("ID: [00017:00300]"),
             qPrintable(prompter.only()));
}

void tst_DeviceExplorer::tableRows_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<bool>("read");
    QTest::addColumn<QStringList>("texts"); // Properties, Value, Description, Size, Address
    QTest::addColumn<QString>("editor");    // limits or choices @ the value it starts from; "": not editable
    QTest::newRow("read-only") << 0 << true << QStringList{"Serial\t[0x0010]", "77", "", "4", "16"} << "";
    QTest::newRow("decimals") << 1 << true << QStringList{"Gain\t[0x0018]", "12.5", "Input gain", "2", "24"}
                              << "-10.0|50.0|@12.5";
    QTest::newRow("choice") << 2 << true << QStringList{"Mode\t[0x001A]", "Slow", "", "1", "26"}
                            << "Off|Slow|Fast|@Slow";
    QTest::newRow("plain") << 3 << true << QStringList{"Limit\t[0x001B]", "50", "", "1", "27"}
                           << "10|200|@50";
    QTest::newRow("not read") << 3 << false << QStringList{"Limit\t[0x001B]", "", "", "1", "27"} << "";
}

void tst_DeviceExplorer::tableRows()
{
    QFETCH(int, row);
    QFETCH(bool, read);
    QFETCH(QString, editor);
    LxBusTableModel model;
    model.setDefinition(7, definitions().devices().first());
    model.setValues(answer(model.params(), read ? kHeld : QMap<int, qint32>{{1, 77}, {2, 125}, {3, 1}}));
    QStringList headers, shown;
    for (int c = 0; c < model.columnCount(); ++c) {
        headers << model.headerData(c, Qt::Horizontal).toString();
        shown << model.index(row, c).data().toString();
    }
    QCOMPARE(headers, QStringList({"Properties", "Value", "Description", "Size", "Address"}));
    QTEST(shown, "texts");
    const QModelIndex index = model.index(row, LxBusTableModel::ValueColumn);
    QCOMPARE(bool(model.flags(index) & Qt::ItemIsEditable), !editor.isEmpty());
    QVERIFY(!(model.flags(model.index(row, LxBusTableModel::PropertiesColumn)) & Qt::ItemIsEditable));
    if (editor.isEmpty())
        return;
    // The editor keeps to the parameter's limits and decimals.
    LxBusValueDelegate delegate;
    QWidget parent;
    QWidget *box = delegate.createEditor(&parent, {}, index);
    delegate.setEditorData(box, index);
    QString limits;
    if (auto *choices = qobject_cast<QComboBox *>(box)) {
        for (int i = 0; i < choices->count(); ++i)
            limits += choices->itemText(i) + '|';
        limits += '@' + choices->currentText();
    } else {
        const int d = box->property("decimals").toInt(); // either number box
        auto number = [&](const char *name) {
            return QString::number(box->property(name).toDouble(), 'f', d);
        };
        limits = number("minimum") + '|' + number("maximum") + "|@" + number("value");
    }
    QCOMPARE(limits, editor);
}

void tst_DeviceExplorer::tableEdits_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<QVariant>("value"); // a whole number is a raw value, otherwise the number as shown
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<int>("written"); // raw value asked for, kNothing: nothing asked
    QTest::newRow("shown number") << 1 << QVariant(-3.5) << true << -35;
    QTest::newRow("rounded to decimals") << 1 << QVariant(13.04) << true << 130;
    QTest::newRow("raw at max") << 1 << QVariant(qint64(500)) << true << 500;
    QTest::newRow("above max") << 1 << QVariant(50.1) << false << kNothing;
    QTest::newRow("unchanged") << 1 << QVariant(12.5) << true << kNothing;
    QTest::newRow("choice out of range") << 2 << QVariant(qint64(3)) << false << kNothing;
}

void tst_DeviceExplorer::tableEdits()
{
    QFETCH(int, row);
    QFETCH(QVariant, value);
    LxBusTableModel model;
    model.setDefinition(7, definitions().devices().first());
    model.setValues(answer(model.params(), kHeld));
    QSignalSpy asked(&model, &LxBusTableModel::writeRequested);
    const int role = value.type() == QVariant::LongLong ? int(LxBusTableModel::RawRole) : int(Qt::EditRole);
    QTEST(model.setData(model.index(row, LxBusTableModel::ValueColumn), value, role), "accepted");
    QVERIFY(asked.size() <= 1);
    QTEST(asked.isEmpty() ? kNothing : int(asked.at(0).at(0).value<DevParam>().value), "written");
}

void tst_DeviceExplorer::startMessagesAndProgress()
{
    ScriptedPrompter prompter;
    FakeParamLink link;
    {
        // Older firmware than the definition asks for: said, and reading starts anyway; the bar follows it.
        WidgetLxBusParams window(device(0xA1B2C3D4u, QStringLiteral("Rx 8"), 1, 2), &link, &prompter);
        QVERIFY(window.start(definitions()));
        QCOMPARE(prompter.only(), QStringLiteral("information|Device information|Please update your device "
                                                 "<ul><li>Rx 8 Version 1.2 <i>(Required 1.3)</i></li></ul>"));
        QCOMPARE(link.activated.value(0).params.size(), 4);
        emit link.valuesLoaded(answer(link.activated.last().params, {{1, 77}, {2, 125}}));
        QCOMPARE(window.progressBar()->value(), 50);
        emit link.valuesLoaded(answer(link.activated.last().params, kHeld));
        QCOMPARE(window.progressBar()->value(), 100);
    }
    // Closing the window lets go of the device.
    QCOMPARE(link.activated.size(), 2);
    QCOMPARE(link.activated.last().deviceId, 0u);
    // Definitions that cannot be read: said, and nothing is read.
    Window w;
    QVERIFY(!w.window.start(QStringLiteral("/nonexistent/Devices.bin")));
    QCOMPARE(heads(w.prompter), QStringList{"error|Error"});
    QVERIFY(w.prompter.asked.at(0).text.startsWith("Error loading device configuration file: "));
    QVERIFY(w.link.activated.isEmpty());
}

void tst_DeviceExplorer::refusedEditShowsTheDeviceValue()
{
    Window w;
    QVERIFY(w.startAndRead());
    QVERIFY(w.window.model()->setData(w.window.model()->index(1, LxBusTableModel::ValueColumn), 20.0));
    QCOMPARE(qMakePair(w.link.written.value(0).size(), int(w.sent().value)), qMakePair(1, 200));
    QCOMPARE(w.gain(), QStringLiteral("20.0"));
    // The device kept its old value: shown again, and that alone is said (firmware 1.4 is new enough).
    w.readBack(w.sent(), 125);
    QCOMPARE(w.gain(), QStringLiteral("12.5"));
    QCOMPARE(heads(w.prompter), QStringList{"warning|Device error"});
    QVERIFY(w.prompter.asked.at(0).text.contains("Gain: the device holds 12.5, not 20.0"));
    // A confirmed write says nothing.
    w.readBack(w.sent(), 200);
    QCOMPARE(w.gain(), QStringLiteral("20.0"));
    QCOMPARE(w.prompter.asked.size(), 1);
}

void tst_DeviceExplorer::exportAndImport()
{
    Window w;
    QVERIFY(w.startAndRead());
    QCOMPARE(QStringList({w.window.exportButton()->text(), w.window.importButton()->text()}),
             QStringList({"Export settings to file...", "Import settings from file..."}));
    QTemporaryDir dir;
    w.prompter.texts.enqueue(dir.filePath(QStringLiteral("rx.jsn")));
    QVERIFY(w.window.exportSettings());
    QVERIFY(!w.window.exportTo(dir.filePath(QStringLiteral("missing/rx.jsn"))));
    QVERIFY(w.prompter.asked.at(1).text.startsWith(
        "<b>Unable to export device<br> configuration to a file:</b><ul><li>"));
    // Gain differs, Mode is the same, Limit is out of range, Serial is read-only, Ghost is unknown.
    const QString path =
        settingsFile(dir, R"({"name": "Rx 8", "identifier": "1", "hardware": 5, "firmware": "1.4"})",
                     R"({"id": 1, "address": 16, "value": 5}, {"id": 2, "address": 24, "value": -1.5},
        {"id": 3, "address": 26, "value": 1}, {"id": 4, "address": 27, "value": 201},
        {"id": 9, "name": "Ghost", "address": 40, "value": 1})");
    QStringList listed;
    w.window.setImportChooser([&](QWidget *, const Rows &rows, Rows *chosen) {
        // The real dialog as it opens: its rows, ticked (+) or not (-) if writable, else with a reason.
        DialogLxBusImport dialog(rows);
        for (int i = 0; i < dialog.list()->topLevelItemCount(); ++i) {
            const QTreeWidgetItem *item = dialog.list()->topLevelItem(i);
            QString mark = item->text(DialogLxBusImport::NoteColumn).isEmpty() ? "(no reason)" : "";
            if (item->flags() & Qt::ItemIsUserCheckable)
                mark = item->checkState(0) == Qt::Checked ? "+" : "-";
            listed << item->text(DialogLxBusImport::NameColumn) + mark;
        }
        *chosen = dialog.chosen();
        return true;
    });
    w.prompter.texts.enqueue(path);
    QVERIFY(w.window.importSettings());
    QCOMPARE(listed, QStringList({"Serial", "Gain+", "Limit", "Ghost"}));
    QCOMPARE(qMakePair(w.sent().address, int(w.sent().value)), qMakePair(quint16(24), -15));
    // The read-back says the device did not take it.
    w.readBack(w.sent(), 125);
    QVERIFY(w.prompter.asked.at(3).text.contains("Gain: the device holds 12.5, not -1.5"));
    // Nothing ticked, or the choice cancelled: nothing is written.
    for (bool ok : {true, false}) {
        w.window.setImportChooser(
            [ok](QWidget *, const Rows &, Rows *chosen) { return chosen->clear(), ok; });
        w.window.importFrom(path);
    }
    QCOMPARE(w.link.written.size(), 1);
    // Settings of another kind are refused before anything is offered.
    QVERIFY(!w.window.importFrom(
        settingsFile(dir, R"({"name": "Vario", "identifier": "1", "hardware": 9, "firmware": "1.0"})")));
    QCOMPARE(
        w.prompter.asked.last().text,
        QStringLiteral("<b>Unable to import device<br> configuration from a file:</b><ul><li>This file holds "
                       "settings of &quot;Vario&quot;, not of &quot;Rx&quot;.</li></ul>"));
    QCOMPARE(heads(w.prompter),
             QStringList({"save|Open LX Bus for export", "error|Error", "open|Open LX Bus exported data",
                          "warning|Device error", "error|Error"}));
    QCOMPARE(w.link.written.size(), 1);
}

QTEST_MAIN(tst_DeviceExplorer)
#include "tst_DeviceExplorer.moc"
