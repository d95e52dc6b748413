// The configuration pages' window: commands with their confirmation and retries, writes that never send a
// value outside its limits, and visibility following the device's values.
#include "link/LinkMetaTypes.h"
#include "tests/support/LinkRig.h"
#include "tests/support/ScriptedPrompter.h"
#include "widgets/devices/DeviceParamLink.h"
#include "widgets/devices/DeviceSession.h"
#include "widgets/devices/SerialParamLink.h"
#include "widgets/devices/WidgetLxBusConfig.h"

#include <QtTest>

namespace {
DeviceDefinitions definitions()
{
    const QByteArray source = R"({"name": "Rx", "hardware": [5], "parameters": [
    {"id": 3, "address": 24, "size": 1, "min": 0, "max": 2, "name": "Mode"},
    {"id": 4, "address": 25, "size": 1, "min": 10, "max": 200, "name": "Limit"},
    {"id": 5, "address": 26, "size": 1, "min": 0, "max": 255, "name": "Alarms"}],
  "commands": [{"id": 1, "text": "Reset", "flags": 4, "value": 0}, {"id": 2, "text": "Bind", "value": 7}],
  "pages": [{"id": 0, "title": "P", "elements": [{"kind": "Int", "pParam": 4},
            {"kind": "Int", "pParam": 3, "visible": "P3 == 2"}, {"kind": "Button", "pParam": 5, "pBitNo": 1}]}]})";
    DeviceDefinitions d;
    QString error;
    if (!d.addSource(source, QStringLiteral("rx.json"), &error))
        qFatal("%s", qPrintable(error));
    return d;
}

// The engine's place: takes commands after a number of refusals, records writes.
class Link : public DeviceParamLink
{
public:
    int refuseCommands = 0;
    QVector<QVector<int>> commands;
    QVector<DevParamVector> written;
    DeviceSettings active;

    void setActiveDevice(const DeviceSettings &settings) override { active = settings; }
    void read() override {}
    void write(const DevParamVector &params) override { written.append(params); }
    bool command(int address, int value, int size, int flags) override
    {
        commands.append({address, value, size, flags});
        return commands.size() > refuseCommands;
    }
    // The device answers a read: Mode, Limit and Alarms.
    void answer(int mode, int limit, int alarms)
    {
        DevParamVector v = active.params;
        const int values[3] = {mode, limit, alarms};
        for (int i = 0; i < 3; ++i) {
            v[i].value = values[i];
            v[i].loaded = true;
        }
        emit valuesLoaded(v);
    }
};

struct Pages
{
    Link link;
    ScriptedPrompter prompter;
    WidgetLxBusConfig window;
    Pages() : window(device(), &link, &prompter) { window.start(definitions()); }
    static Device device()
    {
        Device d;
        d.identifier = 0x0010A401;
        d.hardware = 5;
        d.name = QStringLiteral("Rx");
        return d;
    }
};
} // namespace

class tst_LxBusConfig : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void commands_data();
    void commands();
    void writesWithinLimits();
    void visibilityFollowsValues();
    void receiverOverTheBus();
};

void tst_LxBusConfig::commands_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<int>("answer"); // to the confirmation
    QTest::addColumn<int>("refusals");
    QTest::addColumn<int>("sent");
    QTest::addColumn<int>("questions");
    QTest::addColumn<bool>("failed");
    QTest::newRow("confirmed") << 1 << int(QMessageBox::Yes) << 0 << 1 << 1 << false;
    QTest::newRow("declined: nothing sent") << 1 << int(QMessageBox::No) << 0 << 0 << 1 << false;
    QTest::newRow("no confirmation asked") << 2 << int(QMessageBox::Yes) << 0 << 1 << 0 << false;
    // Retries ask nothing again.
    QTest::newRow("busy twice") << 1 << int(QMessageBox::Yes) << 2 << 3 << 1 << false;
    // The first try and ten retries, then the error.
    QTest::newRow("never taken") << 2 << int(QMessageBox::Yes) << 100 << 11 << 0 << true;
}

void tst_LxBusConfig::commands()
{
    QFETCH(int, command);
    QFETCH(int, answer);
    QFETCH(int, refusals);
    QFETCH(int, sent);
    QFETCH(int, questions);
    QFETCH(bool, failed);
    Pages rig;
    rig.link.refuseCommands = refusals;
    rig.prompter.buttons.enqueue(QMessageBox::StandardButton(answer));
    rig.window.executeCommand(command, command == 1 ? 0 : 7, 3, 4, 5);
    QTRY_COMPARE_WITH_TIMEOUT(rig.link.commands.size(), sent, 3000);
    QTest::qWait(250); // no further try comes
    QCOMPARE(rig.link.commands.size(), sent);
    const QStringList asked = rig.prompter.textsOf(QStringLiteral("question"));
    QCOMPARE(asked.size(), questions);
    if (questions)
        QCOMPARE(asked.first(), QStringLiteral("<b>Execude command?</b><p>- Reset</p>"));
    if (sent)
        QCOMPARE(rig.link.commands.last(), (QVector<int>{0xF000 + command, command == 1 ? 0 : 7, 2, 1}));
    QCOMPARE(rig.prompter.textsOf(QStringLiteral("warning")),
             failed ? QStringList{QStringLiteral("Error executing command")} : QStringList());
    const bool taken = sent > 0 && !failed;
    QCOMPARE(rig.window.pendingCommand().command, taken ? command : -1);
    if (taken)
        QCOMPARE(rig.window.pendingCommand().page, 4);
}

void tst_LxBusConfig::writesWithinLimits()
{
    Pages rig;
    rig.link.answer(1, 50, 0x05);
    rig.window.writeParam(4, 201); // Limit runs from 10 to 200
    rig.window.writeParam(4, 9);
    QVERIFY(rig.link.written.isEmpty());
    rig.window.writeParam(4, 200);
    // Setting bit 1 of 0b101, handed as the bit's state or as the whole new value, writes 0b111.
    rig.window.writeBit(5, 1, 1);
    rig.window.writeBit(5, 1, 0x07);
    // A button without a bit switches the whole value.
    rig.window.writeBit(5, -1, 0);
    QCOMPARE(rig.link.written.size(), 4);
    QCOMPARE(rig.link.written.at(3).at(0).value, 0);
    QCOMPARE(rig.link.written.at(0).at(0).value, 200);
    QCOMPARE(rig.link.written.at(1).at(0).value, 0x07);
    QCOMPARE(rig.link.written.at(2).at(0).value, 0x07);
}

void tst_LxBusConfig::visibilityFollowsValues()
{
    Pages rig;
    QSignalSpy received(&rig.window, &WidgetLxBusConfig::paramsReceived);
    rig.link.answer(2, 50, 0);
    QVERIFY(rig.window.isComponentVisible(0));
    QVERIFY(rig.window.isComponentVisible(1));
    rig.link.answer(1, 50, 0);
    QVERIFY(!rig.window.isComponentVisible(1));
    QCOMPARE(rig.window.parseExpr(QStringLiteral("P4 / 10")), 5.0);
    QCOMPARE(rig.window.parseExprLabel(QStringLiteral("Limit {P4:%d}")), QStringLiteral("Limit 50"));
    // What the scene receives: id, value, floatValue of every parameter read.
    const QVariantList last = received.last().at(0).toList();
    QCOMPARE(last.size(), 3);
    QCOMPARE(last.at(1).toMap().value(QStringLiteral("id")).toInt(), 4);
    QCOMPARE(last.at(1).toMap().value(QStringLiteral("value")).toInt(), 50);
}

// The pages of the simulated receiver through the real engine on the serial thread: a value changed on a
// page lands in the device's register, and the factory reset (confirmed first) brings back its settings.
void tst_LxBusConfig::receiverOverTheBus()
{
    DeviceDefinitions definitions;
    QString error;
    QVERIFY2(
        definitions.addSourceFile(QStringLiteral(VEXO_SOURCE_DIR "/link/definitions/receiver.json"), &error),
        qPrintable(error));
    ::Rig bus;
    QVERIFY(bus.ok);
    Device receiver;
    QVERIFY(waitFor(
        [&] {
            for (const Device &d : bus.link.wrapper()->devices())
                if (d.identifier == BusSimulator::kReceiverId && !d.name.isEmpty())
                    receiver = d;
            return receiver.identifier != 0;
        },
        20000));
    ScriptedPrompter prompter;
    SerialParamLink link(bus.link.wrapper());
    WidgetLxBusConfig window(receiver, &link, &prompter);
    QSignalSpy received(&window, &WidgetLxBusConfig::paramsReceived);
    QVERIFY(window.start(definitions));
    QCOMPARE(window.windowTitle(), QStringLiteral("RX Vexo R8 :: LX Bus"));
    const auto valueOf = [&](int id) {
        for (const QVariant &v : received.isEmpty() ? QVariantList() : received.last().at(0).toList())
            if (v.toMap().value(QStringLiteral("id")).toInt() == id)
                return v.toMap().value(QStringLiteral("value")).toInt();
        return -1;
    };
    // Frame period (id 11, register 0x19): 14 ms as the pilot left it.
    QVERIFY(waitFor([&] { return valueOf(11) == 14 && valueOf(17) == 420; }, 10000));
    window.writeParam(11, 23);
    QVERIFY(waitFor([&] { return quint8(bus.sim.registers(BusSimulator::kReceiverId).at(9)) == 23; }, 10000));
    QVERIFY(waitFor([&] { return valueOf(11) == 23; }, 10000));
    prompter.buttons.enqueue(QMessageBox::Yes);
    window.executeCommand(1, 0, 0, 0, 0);
    QVERIFY(waitFor([&] { return valueOf(11) == 20; }, 10000));
    QCOMPARE(bus.sim.commandsRun().size(), 1);
    QVERIFY2(prompter.textsOf(QStringLiteral("warning")).isEmpty(),
             qPrintable(prompter.textsOf(QStringLiteral("warning")).join(' ')));
}

QTEST_MAIN(tst_LxBusConfig)
#include "tst_LxBusConfig.moc"
