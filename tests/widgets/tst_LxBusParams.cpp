#include "link/DeviceSettingsFile.h"
#include "link/LinkMetaTypes.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/widgets/DeviceTestSupport.h"
#include "widgets/devices/DialogLxBusImport.h"
#include "widgets/devices/LxBusTableModel.h"
#include "widgets/devices/WidgetLxBusParams.h"

#include <QFile>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

namespace {

// What the device answers: the window's parameters with these raw values by id (others not read yet).
DevParamVector answer(const DevParamVector &asked, const QMap<int, qint32> &values)
{
    DevParamVector out = asked;
    for (DevParam &p : out) {
        p.loaded = values.contains(p.id);
        p.value = values.value(p.id);
    }
    return out;
}

constexpr int kNothing = INT_MIN;
const QMap<int, qint32> kHeld = {{1, 77}, {2, 125}, {3, 1}, {4, 50}};

struct Window
{
    ScriptedPrompter prompter;
    FakeParamLink link;
    WidgetLxBusParams window;
    explicit Window(const Device &device = testDevice(0xA1B2C3D4u, QStringLiteral("Rx 8")))
        : window(device, &link, &prompter)
    {
    }
    // Started and read completely.
    bool ready()
    {
        if (!window.start(testDefinitions()))
            return false;
        emit link.valuesLoaded(answer(link.activated.last().params, kHeld));
        return true;
    }
    QModelIndex value(int row) const { return window.model()->index(row, LxBusTableModel::ValueColumn); }
};

} // namespace

class tst_LxBusParams : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void modelTexts_data();
    void modelTexts();
    void modelEdits_data();
    void modelEdits();
    void startChecksDefinitionsAndFirmware();
    void progressFollowsReading();
    void refusedEditShowsTheDeviceValue();
    void exportWritesTheReadValues();
    void exportFailureIsReported();
    void importWritesOnlyTheChosenDifferences();
    void importOfAnotherDeviceIsRefused();
};

void tst_LxBusParams::modelTexts_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<QStringList>("texts"); // Properties, Value, Description, Size, Address
    QTest::addColumn<bool>("editable");
    QTest::newRow("read-only") << 0 << QStringList{"Serial\t[0x0010]", "77", "", "4", "16"} << false;
    QTest::newRow("decimals") << 1 << QStringList{"Gain\t[0x0018]", "12.5", "Input gain", "2", "24"} << true;
    QTest::newRow("choice") << 2 << QStringList{"Mode\t[0x001A]", "Slow", "", "1", "26"} << true;
    QTest::newRow("not read") << 3 << QStringList{"Limit\t[0x001B]", "", "", "1", "27"} << false;
}

void tst_LxBusParams::modelTexts()
{
    QFETCH(int, row);
    QFETCH(QStringList, texts);
    LxBusTableModel model;
    model.setDefinition(7, testDefinitions().devices().first());
    model.setValues(answer(model.params(), {{1, 77}, {2, 125}, {3, 1}}));
    QStringList headers;
    for (int c = 0; c < model.columnCount(); ++c)
        headers << model.headerData(c, Qt::Horizontal).toString();
    QCOMPARE(headers, QStringList({"Properties", "Value", "Description", "Size", "Address"}));
    QStringList shown;
    for (int c = 0; c < model.columnCount(); ++c)
        shown << model.index(row, c).data().toString();
    QCOMPARE(shown, texts);
    QTEST(bool(model.flags(model.index(row, LxBusTableModel::ValueColumn)) & Qt::ItemIsEditable), "editable");
    QVERIFY(!(model.flags(model.index(row, LxBusTableModel::PropertiesColumn)) & Qt::ItemIsEditable));
}

void tst_LxBusParams::modelEdits_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<int>("role");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<int>("written"); // raw value asked for, kNothing: nothing asked
    QTest::newRow("shown number") << 1 << QVariant(-3.5) << int(Qt::EditRole) << true << -35;
    QTest::newRow("rounded to decimals") << 1 << QVariant(13.04) << int(Qt::EditRole) << true << 130;
    QTest::newRow("raw") << 1 << QVariant(qint64(500)) << int(LxBusTableModel::RawRole) << true << 500;
    QTest::newRow("above max") << 1 << QVariant(50.1) << int(Qt::EditRole) << false << kNothing;
    QTest::newRow("unchanged") << 1 << QVariant(12.5) << int(Qt::EditRole) << true << kNothing;
    QTest::newRow("choice") << 2 << QVariant(qint64(2)) << int(LxBusTableModel::RawRole) << true << 2;
    QTest::newRow("choice out of range")
        << 2 << QVariant(qint64(3)) << int(LxBusTableModel::RawRole) << false << kNothing;
    QTest::newRow("read-only") << 0 << QVariant(qint64(5)) << int(LxBusTableModel::RawRole) << false
                               << kNothing;
    QTest::newRow("text") << 1 << QVariant(QStringLiteral("x")) << int(Qt::EditRole) << false << kNothing;
}

void tst_LxBusParams::modelEdits()
{
    QFETCH(int, row);
    QFETCH(QVariant, value);
    QFETCH(int, role);
    QFETCH(int, written);
    LxBusTableModel model;
    model.setDefinition(7, testDefinitions().devices().first());
    model.setValues(answer(model.params(), kHeld));
    QSignalSpy asked(&model, &LxBusTableModel::writeRequested);
    QTEST(model.setData(model.index(row, LxBusTableModel::ValueColumn), value, role), "accepted");
    QCOMPARE(asked.size(), written == kNothing ? 0 : 1);
    if (written != kNothing) {
        const DevParam p = asked.at(0).at(0).value<DevParam>();
        QCOMPARE(p.value, written);
        QCOMPARE(p.address, model.params().at(row).address);
    }
}

void tst_LxBusParams::startChecksDefinitionsAndFirmware()
{
    {
        Window w(testDevice(0xA1B2C3D4u, QStringLiteral("Rx 8"), 1, 2));
        QVERIFY(w.window.start(testDefinitions()));
        QCOMPARE(w.window.windowTitle(), QStringLiteral("LX Bus Device Properties: Rx 8"));
        QCOMPARE(
            w.prompter.only(),
            QStringLiteral("information|Device information|Please update your device <ul><li>Rx 8 Version "
                           "1.2 <i>(Required 1.3)</i></li></ul>"));
        // Reading starts anyway, for this device and all four parameters.
        QCOMPARE(w.link.activated.size(), 1);
        QCOMPARE(w.link.activated.at(0).deviceId, 0xA1B2C3D4u);
        QCOMPARE(w.link.activated.at(0).params.size(), 4);
    }
    {
        Window w;
        QTemporaryDir dir;
        QVERIFY(!w.window.start(dir.filePath(QStringLiteral("Devices.bin"))));
        QCOMPARE(w.prompter.asked.size(), 1);
        QCOMPARE(w.prompter.asked.at(0).title, QStringLiteral("Error"));
        QVERIFY(w.prompter.asked.at(0).text.startsWith(
            QStringLiteral("Error loading device configuration file: ")));
        QVERIFY(w.link.activated.isEmpty());
    }
    {
        Window w;
        QVERIFY(w.window.start(testDefinitions()));
        QVERIFY(w.prompter.asked.isEmpty());
    }
    // Closing the window lets go of the device.
    FakeParamLink link;
    {
        WidgetLxBusParams window(testDevice(3, QStringLiteral("Rx")), &link, nullptr);
        QVERIFY(window.start(testDefinitions()));
    }
    QCOMPARE(link.activated.size(), 2);
    QCOMPARE(link.activated.last().deviceId, 0u);
}

void tst_LxBusParams::progressFollowsReading()
{
    Window w;
    QVERIFY(w.window.start(testDefinitions()));
    QCOMPARE(w.window.progressBar()->value(), 0);
    emit w.link.valuesLoaded(answer(w.link.activated.last().params, {{1, 77}, {2, 125}}));
    QCOMPARE(w.window.progressBar()->value(), 50);
    QCOMPARE(w.value(1).data().toString(), QStringLiteral("12.5"));
    emit w.link.valuesLoaded(answer(w.link.activated.last().params, kHeld));
    QCOMPARE(w.window.progressBar()->value(), 100);
}

void tst_LxBusParams::refusedEditShowsTheDeviceValue()
{
    Window w;
    QVERIFY(w.ready());
    QVERIFY(w.window.model()->setData(w.value(1), 20.0));
    QCOMPARE(w.link.written.size(), 1);
    QCOMPARE(w.link.written.at(0).size(), 1);
    DevParam back = w.link.written.at(0).at(0);
    QCOMPARE(back.value, 200);
    QCOMPARE(w.value(1).data().toString(), QStringLiteral("20.0"));

    // The device kept its old value.
    back.sent = back.value;
    back.value = 125;
    back.loaded = true;
    back.confirmed = false;
    emit w.link.writeFinished({back});
    QCOMPARE(w.value(1).data().toString(), QStringLiteral("12.5"));
    QCOMPARE(w.prompter.asked.size(), 1);
    QCOMPARE(w.prompter.asked.at(0).title, QStringLiteral("Device error"));
    QVERIFY2(w.prompter.asked.at(0).text.contains(QStringLiteral("Gain: the device holds 12.5, not 20.0")),
             qPrintable(w.prompter.asked.at(0).text));

    // A confirmed write says nothing.
    back.value = back.sent;
    back.confirmed = true;
    emit w.link.writeFinished({back});
    QCOMPARE(w.value(1).data().toString(), QStringLiteral("20.0"));
    QCOMPARE(w.prompter.asked.size(), 1);
}

void tst_LxBusParams::exportWritesTheReadValues()
{
    Window w;
    QVERIFY(w.ready());
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("rx.jsn"));
    w.prompter.texts.enqueue(path);
    QVERIFY(w.window.exportSettings());
    QCOMPARE(w.prompter.asked.size(), 1);
    QCOMPARE(w.prompter.asked.at(0).kind, QStringLiteral("save"));
    QCOMPARE(w.prompter.asked.at(0).title, QStringLiteral("Open LX Bus for export"));
    DeviceSettingsFile file;
    QString error;
    QVERIFY2(DeviceSettingsFile::load(path, &file, &error), qPrintable(error));
    QCOMPARE(file.parameters.size(), 4);
    QCOMPARE(file.parameters.at(1).value, 12.5);
    QCOMPARE(file.hardware, quint16(5));
    QCOMPARE(w.window.exportButton()->text(), QStringLiteral("Export settings to file..."));
    QCOMPARE(w.window.importButton()->text(), QStringLiteral("Import settings from file..."));
}

void tst_LxBusParams::exportFailureIsReported()
{
    Window w;
    QVERIFY(w.ready());
    QTemporaryDir dir;
    QVERIFY(!w.window.exportTo(dir.filePath(QStringLiteral("missing/rx.jsn"))));
    QCOMPARE(w.prompter.asked.size(), 1);
    QCOMPARE(w.prompter.asked.at(0).title, QStringLiteral("Error"));
    const QString text = w.prompter.asked.at(0).text;
    QVERIFY2(text.startsWith(
                 QStringLiteral("<b>Unable to export device<br> configuration to a file:</b><ul><li>")),
             qPrintable(text));
    QVERIFY(text.endsWith(QStringLiteral("</li></ul>")));
}

void tst_LxBusParams::importWritesOnlyTheChosenDifferences()
{
    Window w;
    QVERIFY(w.ready());
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("in.jsn"));
    // Gain differs, Mode is the same, Limit is out of range, Serial is read-only, Ghost is unknown.
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(R"({"format": "vexo-device-settings", "version": 1,
        "device": {"name": "Rx 8", "identifier": "1", "hardware": 5, "firmware": "1.4"},
        "parameters": [{"id": 1, "address": 16, "value": 5}, {"id": 2, "address": 24, "value": -1.5},
                       {"id": 3, "address": 26, "value": 1}, {"id": 4, "address": 27, "value": 201},
                       {"id": 9, "name": "Ghost", "address": 40, "value": 1}]})");
    f.close();

    QStringList listed;
    QStringList ticked;
    w.window.setImportChooser([&](QWidget *, const QVector<DeviceSettingsFile::DiffRow> &rows,
                                  QVector<DeviceSettingsFile::DiffRow> *chosen) -> bool {
        // The real dialog, as it would open: what it lists and ticks by itself.
        DialogLxBusImport dialog(rows);
        for (int i = 0; i < dialog.list()->topLevelItemCount(); ++i) {
            const QTreeWidgetItem *item = dialog.list()->topLevelItem(i);
            listed << item->text(DialogLxBusImport::NameColumn);
            if (item->flags() & Qt::ItemIsUserCheckable)
                ticked << item->text(DialogLxBusImport::NameColumn) +
                              (item->checkState(0) == Qt::Checked ? "+" : "-");
            else if (item->text(DialogLxBusImport::NoteColumn).isEmpty())
                listed << QStringLiteral("(no reason)");
        }
        *chosen = dialog.chosen();
        return true;
    });
    w.prompter.texts.enqueue(path);
    QVERIFY(w.window.importSettings());
    QCOMPARE(w.prompter.asked.at(0).kind, QStringLiteral("open"));
    QCOMPARE(w.prompter.asked.at(0).title, QStringLiteral("Open LX Bus exported data"));
    QCOMPARE(listed, QStringList({"Serial", "Gain", "Limit", "Ghost"}));
    QCOMPARE(ticked, QStringList({"Gain+"}));
    QCOMPARE(w.link.written.size(), 1);
    QCOMPARE(w.link.written.at(0).size(), 1);
    QCOMPARE(w.link.written.at(0).at(0).address, quint16(24));
    QCOMPARE(w.link.written.at(0).at(0).value, -15);

    // The read-back says the device did not take it.
    DevParam back = w.link.written.at(0).at(0);
    back.value = 125;
    back.loaded = true;
    back.confirmed = false;
    emit w.link.writeFinished({back});
    QCOMPARE(w.prompter.asked.size(), 2);
    QCOMPARE(w.prompter.asked.at(1).title, QStringLiteral("Device error"));
    QVERIFY(w.prompter.asked.at(1).text.contains(QStringLiteral("Gain: the device holds 12.5, not -1.5")));

    // Cancelling the choice writes nothing.
    w.window.setImportChooser([](QWidget *, const QVector<DeviceSettingsFile::DiffRow> &,
                                 QVector<DeviceSettingsFile::DiffRow> *) { return false; });
    QVERIFY(!w.window.importFrom(path));
    QCOMPARE(w.link.written.size(), 1);
}

void tst_LxBusParams::importOfAnotherDeviceIsRefused()
{
    Window w;
    QVERIFY(w.ready());
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("vario.jsn"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(R"({"format": "vexo-device-settings", "version": 1,
        "device": {"name": "Vario", "identifier": "1", "hardware": 9, "firmware": "1.0"}, "parameters": []})");
    f.close();
    bool asked = false;
    w.window.setImportChooser([&](QWidget *, const QVector<DeviceSettingsFile::DiffRow> &,
                                  QVector<DeviceSettingsFile::DiffRow> *) { return asked = true; });
    QVERIFY(!w.window.importFrom(path));
    QVERIFY(!asked);
    QCOMPARE(w.prompter.only(),
             QStringLiteral(
                 "error|Error|<b>Unable to import device<br> configuration from a file:</b><ul><li>This "
                 "file holds settings of &quot;Vario&quot;, not of &quot;Rx&quot;.</li></ul>"));
    QVERIFY(w.link.written.isEmpty());
}

QTEST_MAIN(tst_LxBusParams)
#include "tst_LxBusParams.moc"
