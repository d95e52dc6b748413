#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/TestSamples.h"

#include <QMetaMethod>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {
constexpr quint32 kDev = 1u | (2u << 16);

QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes)
{
    const QString path = dir.filePath(name);
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
        return QString();
    return path;
}

const QByteArray kLog = "# Sample\n# desc\n"
                        "000000000;0000100002;0;Rx; \n"
                        "000000000;0000100002;1;Speed;m/s\n"
                        "000001000;0000100002;1;12;0;10\n"
                        "000002000;0000100002;1;12;0;20\n"
                        "000003000;0000100002;1;12;0;30\n"
                        "000002500;0000100002;15;16;0;Hello;2;0\n";
} // namespace

class tst_TelemetryData : public QObject
{
    Q_OBJECT
private slots:
    void metaObjectOrder();
    void loadSignalsAndNaming();
    void refusedFilesKeepTheCurrentData();
    void setUnitPersists();
    void removeBeforeAndAfter();
    void undoLastCut_data();
    void undoLastCut();
    void liveSamplesBeforeTheDeviceIsNamed();
};

void tst_TelemetryData::metaObjectOrder()
{
    const QMetaObject &mo = TelemetryData::staticMetaObject;
    QStringList names;
    for (int i = mo.methodOffset(); i < mo.methodCount(); ++i)
        names << QString::fromLatin1(mo.method(i).name());
    QCOMPARE(names.join(' '),
             QStringLiteral("sensorsChanged valueAdded loggingStatusChanged statusChanged "
                            "logFileLoaded loadingStarted loadingFinished undoCutAvailable "
                            "clearSensors setLogging stopLogging updateTimestamps setUnit "
                            "removeDataBeforeTimestamp removeDataAfterTimestamp undoCut forgetUndo"));
}

void tst_TelemetryData::loadSignalsAndNaming()
{
    QTemporaryDir dir;
    // Without a header line the file's base name names the recording.
    const QString path = writeFile(dir, "evening.flight.log", kLog.mid(kLog.indexOf("000000000")));
    const QDateTime mtime = QDateTime::currentDateTime().addDays(-3);
    {
        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadWrite));
        QVERIFY(f.setFileTime(mtime, QFileDevice::FileModificationTime));
    }
    TelemetryData store;
    QStringList order;
    connect(&store, &TelemetryData::loadingStarted, [&] { order << "started"; });
    connect(&store, &TelemetryData::sensorsChanged, [&] { order << "sensors"; });
    connect(&store, &TelemetryData::logFileLoaded, [&] { order << "loaded"; });
    connect(&store, &TelemetryData::loadingFinished, [&] { order << "finished"; });
    QCOMPARE(store.loadFile(path), 1);
    QCOMPARE(order, QStringList({"started", "sensors", "loaded", "finished"}));
    QCOMPARE(store.package().name(), QStringLiteral("evening"));
    QCOMPARE(store.package().recordingDate().toSecsSinceEpoch(), mtime.toSecsSinceEpoch());
    QCOMPARE(store.package().messages().size(), 1);
}

void tst_TelemetryData::refusedFilesKeepTheCurrentData()
{
    QTemporaryDir dir;
    TelemetryData store;
    QCOMPARE(store.loadFile(writeFile(dir, "good.log", kLog)), 1);
    QCOMPARE(store.loadFile(dir.filePath("missing.log")), 0);
    QVERIFY(store.lastError().contains(QStringLiteral("missing.log")));
    QVERIFY(QDir(dir.path()).mkdir("folder.log"));
    QCOMPARE(store.loadFile(dir.filePath("folder.log")), 0);
    QVERIFY(store.lastError().contains(QStringLiteral("folder")));
    QCOMPARE(store.package().name(), QStringLiteral("Sample"));
}

void tst_TelemetryData::setUnitPersists()
{
    QTemporaryDir dir;
    MemorySensorTable table;
    TelemetryData store(&table);
    QCOMPARE(store.loadFile(writeFile(dir, "a.log", kLog)), 1);
    QSignalSpy changed(&store, &TelemetryData::sensorsChanged);
    store.setUnit({kDev, 1}, QStringLiteral("km/h"));
    QCOMPARE(changed.count(), 1);
    const TelemetryVar *v = store.package().device(kDev)->var(1);
    QCOMPARE(v->displayUnit(), QStringLiteral("km/h"));
    QCOMPARE(v->numberAt(0), 36.0);
    store.setUnit({kDev, 1}, QStringLiteral("furlongs"));
    QCOMPARE(v->displayUnit(), QStringLiteral("km/h"));
    // The next load of any log with this variable shows it in the chosen unit again.
    TelemetryData other(&table);
    QCOMPARE(other.loadFile(writeFile(dir, "b.log", kLog)), 1);
    QCOMPARE(other.package().device(kDev)->var(1)->displayUnit(), QStringLiteral("km/h"));
}

void tst_TelemetryData::removeBeforeAndAfter()
{
    QTemporaryDir dir;
    TelemetryData store;
    QCOMPARE(store.loadFile(writeFile(dir, "a.log", kLog)), 1);
    store.removeDataBeforeTimestamp(2000);
    const TelemetryVar *v = store.package().device(kDev)->var(1);
    QCOMPARE(v->count(), 2);
    QCOMPARE(v->values().at(0).timestamp, 2000);
    QCOMPARE(store.package().firstTimestamp(), 2000);
    store.removeDataAfterTimestamp(2400);
    v = store.package().device(kDev)->var(1);
    QCOMPARE(v->count(), 1);
    QVERIFY(store.package().messages().isEmpty());
}

void tst_TelemetryData::undoLastCut_data()
{
    QTest::addColumn<QString>("then");
    // The timestamps left after "then", after undoing, and whether undoing could still happen.
    QTest::addColumn<QVector<qint32>>("afterUndo");
    QTest::addColumn<bool>("undoable");
    const QVector<qint32> whole{1000, 2000, 3000, 4000, 5000};
    const QVector<qint32> firstCut{1000, 2000};
    QTest::newRow("nothing else") << "" << whole << true;
    QTest::newRow("a second cut: one step back") << "cut" << firstCut << true;
    QTest::newRow("another package") << "package" << whole << false;
    QTest::newRow("sensors cleared") << "clear" << QVector<qint32>{} << false;
    QTest::newRow("live samples") << "live" << QVector<qint32>{1000, 2000, 6000} << false;
    QTest::newRow("recording begins") << "record" << QVector<qint32>{} << false;
    QTest::newRow("log stored") << "stored" << firstCut << false;
}

void tst_TelemetryData::undoLastCut()
{
    QFETCH(QString, then);
    QFETCH(QVector<qint32>, afterUndo);
    QFETCH(bool, undoable);
    TelemetryDataPackage p;
    p.addDevice(kDev, QStringLiteral("Rx"));
    TelemetryVar speed(kDev, 1, QStringLiteral("Speed"), QStringLiteral("m/s"));
    for (qint32 t = 1000; t <= 5000; t += 1000)
        speed.append(raw(1, 0, t / 100, t));
    p.devices()[0].vars() << speed;
    TelemetryMessage late;
    late.text = QStringLiteral("Late");
    late.timestamp = 4500;
    p.messages() << late;
    TelemetryData store;
    store.setPackage(p);
    QSignalSpy available(&store, &TelemetryData::undoCutAvailable);
    const auto times = [&store] {
        QVector<qint32> list;
        const TelemetrySensor *device = store.package().device(kDev);
        for (const TelemetryValue &v :
             device && device->var(1) ? device->var(1)->values() : QVector<TelemetryValue>())
            list << v.timestamp;
        return list;
    };

    QVERIFY(!store.canUndoCut());
    store.removeDataAfterTimestamp(2500);
    QCOMPARE(times(), (QVector<qint32>{1000, 2000}));
    QVERIFY(store.canUndoCut());
    QCOMPARE(available.count(), 1);
    QCOMPARE(available.at(0).at(0).toBool(), true);

    if (then == QLatin1String("cut")) {
        store.removeDataBeforeTimestamp(1500);
        QCOMPARE(times(), QVector<qint32>{2000});
    } else if (then == QLatin1String("package")) {
        store.setPackage(p);
    } else if (then == QLatin1String("clear")) {
        store.clearSensors();
    } else if (then == QLatin1String("live")) {
        store.appendSamples({TelemetrySample{kDev, 1, raw(1, 0, 0, 6000)}});
    } else if (then == QLatin1String("record")) {
        store.beginRecording();
    } else if (then == QLatin1String("stored")) {
        store.forgetUndo();
    }
    QCOMPARE(store.canUndoCut(), undoable);
    QCOMPARE(available.last().at(0).toBool(), undoable);

    QSignalSpy changed(&store, &TelemetryData::sensorsChanged);
    store.undoCut();
    QCOMPARE(times(), afterUndo);
    QVERIFY(!store.canUndoCut());
    QCOMPARE(changed.count(), undoable ? 1 : 0);
    if (then.isEmpty())
        QCOMPARE(store.package().messages().size(), 1);
}

void tst_TelemetryData::liveSamplesBeforeTheDeviceIsNamed()
{
    TelemetryData store;
    store.describeSensor(kDev, 0, QStringLiteral("Rx"), QString());
    store.clearSensors();
    // A parameter described before its device: the device is named later.
    store.describeSensor(kDev, 3, QStringLiteral("Volt"), QStringLiteral("V"));
    store.appendSamples(
        {TelemetrySample{kDev, 3, raw(1, 0, 7, 10)}, TelemetrySample{kDev, 3, raw(1, 0, 8, 20)}});
    QCOMPARE(store.package().device(kDev)->var(3)->count(), 2);
    QCOMPARE(store.package().firstTimestamp(), 10);
    QCOMPARE(store.package().device(kDev)->name(), QStringLiteral("Sensor"));
    store.describeSensor(kDev, 0, QStringLiteral("Receiver"), QString());
    QCOMPARE(store.package().device(kDev)->name(), QStringLiteral("Receiver"));
    QCOMPARE(store.package().device(kDev)->vars().size(), 1);
}

QTEST_GUILESS_MAIN(tst_TelemetryData)
#include "tst_TelemetryData.moc"
