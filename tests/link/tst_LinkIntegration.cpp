// The transport on its own thread against the bus simulator over a pseudo-terminal.
#include "link/LinkMetaTypes.h"
#include "link/SerialLink.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/LinkRig.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

class tst_LinkIntegration : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerLinkMetaTypes(); }
    void devicesAndExtensionsFound();
    void telemetryMatchesWhatWasSent();
    void noiseAndBadCrcSurvived();
    void unplugReportedOnce();
};

void tst_LinkIntegration::devicesAndExtensionsFound()
{
    Rig rig;
    QVERIFY(rig.ok);
    QVERIFY(waitFor([&] { return rig.namedDevices() == rig.sim.units().size(); }, 20000));
    const Vector<Device> devices = rig.link.wrapper()->devices();
    for (const BusSimulator::Unit &u : rig.sim.units()) {
        const Device *found = nullptr;
        for (const Device &d : devices) {
            if (d.identifier == u.identifier)
                found = &d;
        }
        QVERIFY2(found, qPrintable(QString::number(u.identifier, 16)));
        QCOMPARE(QVariantList({found->name, found->hardware, found->parentIdentifier, found->extensionIndex}),
                 QVariantList({QString::fromLatin1(u.name), u.hardware, u.parent, u.extensionIndex}));
    }
    // Known devices are kept alive.
    QVERIFY(waitFor([&] { return rig.sim.answersSent('P') > 0; }, 10000));
}

void tst_LinkIntegration::telemetryMatchesWhatWasSent()
{
    Rig rig;
    QVERIFY(rig.ok);
    QVERIFY(waitFor([&] { return rig.store.package().sampleCount() > 3000; }, 30000));
    rig.link.stop();
    waitFor([] { return false; }, 50);
    rig.decoder.flush();
    // Every sample in the store was sent, in order, with its type, decimals and value.
    QHash<quint64, QVector<BusSimulator::SentValue>> sent;
    for (const BusSimulator::SentValue &v : rig.sim.sentValues())
        sent[(quint64(v.deviceId) << 8) | v.index].append(v);
    qint64 stored = 0;
    qint64 offered = 0;
    for (const TelemetrySensor &d : rig.store.package().devices()) {
        for (const TelemetryVar &var : d.vars()) {
            const QVector<BusSimulator::SentValue> &s = sent.value((quint64(d.id()) << 8) | var.param());
            int j = 0;
            // Values sent before the variable's description came through cannot be stored; count from the
            // first one that was.
            if (!var.values().isEmpty()) {
                const TelemetryValue &first = var.values().constFirst();
                while (j < s.size() && s[j].value != first.value)
                    ++j;
                offered += s.size() - j;
            }
            for (const TelemetryValue &x : var.values()) {
                while (j < s.size() &&
                       !(s[j].value == x.value && s[j].type == x.type && s[j].decimals == x.decimals))
                    ++j;
                QVERIFY2(j < s.size(), qPrintable(QStringLiteral("%1/%2 value %3 was never sent")
                                                      .arg(d.id(), 0, 16)
                                                      .arg(var.param())
                                                      .arg(x.value)));
                ++j;
                ++stored;
            }
        }
    }
    // Nothing goes missing on a clean line.
    QVERIFY2(stored * 100 >= offered * 95, qPrintable(QStringLiteral("%1 of %2").arg(stored).arg(offered)));
}

void tst_LinkIntegration::noiseAndBadCrcSurvived()
{
    Rig rig;
    QVERIFY(rig.ok);
    rig.sim.setNoise(true);
    rig.sim.setBadCrcEvery(7);
    QVERIFY(waitFor([&] { return rig.store.package().sampleCount() > 100; }, 30000));
    QVERIFY(waitFor([&] { return rig.link.wrapper()->crcErrorCount() > 0; }, 10000));
    QVERIFY(rig.sim.badCrcsSent() > 0);
    QVERIFY(rig.sim.noiseBytesSent() > 0);
    QVERIFY(rig.link.wrapper()->isPortOpen());
    QVERIFY(rig.namedDevices() > 0);
}

void tst_LinkIntegration::unplugReportedOnce()
{
    Rig rig;
    QVERIFY(rig.ok);
    QSignalSpy status(rig.link.wrapper(), &SerialPortWrapper::portOpenedStatus);
    QVERIFY(waitFor([&] { return rig.namedDevices() > 0; }, 20000));
    rig.sim.unplug();
    QVERIFY(waitFor([&] { return status.count() == 1; }, 10000));
    QCOMPARE(status.at(0).at(0).toBool(), false);
    waitFor([] { return false; }, 300);
    QCOMPARE(status.count(), 1);
    QVERIFY(!rig.link.wrapper()->lastError().isEmpty());
    // With the adapter gone no device is left on the bus.
    QCOMPARE(rig.link.wrapper()->devices().count(), quint16(0));
}

QTEST_GUILESS_MAIN(tst_LinkIntegration)
#include "tst_LinkIntegration.moc"
