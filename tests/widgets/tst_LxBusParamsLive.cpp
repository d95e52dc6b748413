// The parameter table against the bus simulator: the serial transport on its own thread, the real engine.
#include "link/DeviceDefinitions.h"
#include "link/LinkMetaTypes.h"
#include "tests/support/LinkRig.h"
#include "tests/support/ScriptedPrompter.h"
#include "widgets/devices/LxBusTableModel.h"
#include "widgets/devices/SerialParamLink.h"
#include "widgets/devices/WidgetLxBusParams.h"

#include <QProgressBar>
#include <QtTest>

namespace {

// A register of the simulated device, little-endian as the bus carries it.
qint64 simRegister(const QByteArray &registers, quint16 address, int size)
{
    qint64 v = 0;
    for (int b = size - 1; b >= 0; --b)
        v = (v << 8) | quint8(registers.at(address - BusSimulator::kRegisterBase + b));
    return v;
}

int rowOf(const LxBusTableModel *model, quint16 address)
{
    return model->settings().indexOf(address);
}

} // namespace

class tst_LxBusParamsLive : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void readsAndWritesTheReceiver();
};

void tst_LxBusParamsLive::readsAndWritesTheReceiver()
{
    DeviceDefinitions definitions;
    QString error;
    QVERIFY2(
        definitions.addSourceFile(QStringLiteral(VEXO_SOURCE_DIR "/link/definitions/receiver.json"), &error),
        qPrintable(error));
    Rig rig;
    QVERIFY(rig.ok);
    Device receiver;
    QVERIFY(waitFor(
        [&] {
            for (const Device &d : rig.link.wrapper()->devices()) {
                if (d.identifier == BusSimulator::kReceiverId && !d.name.isEmpty())
                    receiver = d;
            }
            return receiver.identifier != 0;
        },
        20000));

    ScriptedPrompter prompter;
    SerialParamLink link(rig.link.wrapper());
    WidgetLxBusParams window(receiver, &link, &prompter);
    QVERIFY(window.start(definitions));
    QVERIFY(waitFor([&] { return window.progressBar()->value() == 100; }, 20000));
    LxBusTableModel *model = window.model();

    // Frame period (0x0019, one byte) and failsafe delay (0x001B, two bytes, one decimal).
    const QByteArray registers = rig.sim.registers(BusSimulator::kReceiverId);
    const int period = rowOf(model, 0x19);
    const int delay = rowOf(model, 0x1B);
    QVERIFY(period >= 0 && delay >= 0);
    QCOMPARE(model->index(period, LxBusTableModel::ValueColumn).data().toString(),
             QString::number(simRegister(registers, 0x19, 1)));
    QCOMPARE(model->index(delay, LxBusTableModel::ValueColumn).data().toString(),
             QString::number(simRegister(registers, 0x1B, 2) / 10.0, 'f', 1));

    const qint64 next = simRegister(registers, 0x19, 1) == 25 ? 26 : 25;
    QVERIFY(model->setData(model->index(period, LxBusTableModel::ValueColumn), double(next)));
    QVERIFY(waitFor(
        [&] { return simRegister(rig.sim.registers(BusSimulator::kReceiverId), 0x19, 1) == next; }, 10000));
    // The read-back confirms it: the cell keeps the value and nobody is told of an error.
    QVERIFY(waitFor(
        [&] {
            return model->index(period, LxBusTableModel::ValueColumn).data().toString() ==
                   QString::number(next);
        },
        10000));
    QTest::qWait(200);
    QVERIFY2(prompter.asked.isEmpty(), qPrintable(prompter.asked.value(0).text));
}

QTEST_MAIN(tst_LxBusParamsLive)
#include "tst_LxBusParamsLive.moc"
