#include "telemetry/LogFileLoader.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/TestFiles.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QByteArray kDescription = "# flight\n# about\n"
                                "000000000;0000100002;0;Rx; \n"
                                "000000000;0000100002;1;Voltage;V\n"
                                "000000000;0000100002;2;Speed;m/s\n";

TelemetryDataPackage load(const QByteArray &bytes, SensorTable *sensors = nullptr,
                          LogReadReport *report = nullptr)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    LogFileLoader loader(sensors);
    TelemetryDataPackage p;
    loader.load(&buffer, &p);
    if (report)
        *report = loader.readReport();
    return p;
}

// kDescription (5 lines) and value lines at 1 s, 2 s, ...: line 5 + i holds the i-th.
QByteArray validLog(int valueLines)
{
    QByteArray log = kDescription;
    for (int i = 1; i <= valueLines; ++i)
        log += QByteArray::number(i * 1000).rightJustified(9, '0') + ";0000100002;1;12;1;" +
               QByteArray::number(i) + ";2;12;0;" + QByteArray::number(2 * i) + "\n";
    return log;
}

const TelemetryVar *var(const TelemetryDataPackage &p, quint32 id, quint32 param)
{
    const TelemetrySensor *d = p.device(id);
    return d ? d->var(param) : nullptr;
}

constexpr quint32 kRx = 1u | (2u << 16);
} // namespace

class tst_LogFileLoader : public QObject
{
    Q_OBJECT
private slots:
    void closedDeviceReadsNothing();
    void headerLines();
    void deviceIdField_data();
    void deviceIdField();
    void narrowing_data();
    void narrowing();
    void firstTimestampRule();
    void crlfLineEnds();
    void messages();
    void alarmsCollapseWhileReading();
    void undescribedValuesAreDropped();
    void repeatedDescriptionDoesNotDuplicate();
    void sensorTableConsulted();
    void cancelFromProgress();
    void damagedLines_data();
    void damagedLines();
    void unreadableFiles_data();
    void unreadableFiles();
};

void tst_LogFileLoader::closedDeviceReadsNothing()
{
    QBuffer buffer;
    buffer.setData(kDescription);
    LogFileLoader loader;
    TelemetryDataPackage p;
    QVERIFY(!loader.load(&buffer, &p));
    QVERIFY(p.devices().isEmpty());
    QVERIFY(!loader.lastError().isEmpty());
}

void tst_LogFileLoader::headerLines()
{
    const TelemetryDataPackage p =
        load("# My flight \n#xdesc one\n# two\n000000000;0000100002;0;Rx; \n# three\n");
    QCOMPARE(p.name(), QStringLiteral("My flight"));
    // The first two characters of a "#" line go whatever they are; the pieces join without separator.
    QCOMPARE(p.description(), QStringLiteral("desc onetwothree"));

    const TelemetryDataPackage q = load("000000000;0000100002;0;Rx; \n# not a name\n");
    QCOMPARE(q.name(), QString());
    QCOMPARE(q.description(), QStringLiteral("not a name"));

    const TelemetryDataPackage u = load(QByteArray("# Let \xC5\x99\xC3\xAD\xC5\xA1\n"));
    QCOMPARE(u.name(), QStringLiteral("Let říš"));
}

void tst_LogFileLoader::deviceIdField_data()
{
    QTest::addColumn<QString>("field");
    QTest::addColumn<quint32>("id");
    QTest::newRow("low 0, high 65535") << "0000065535" << (65535u << 16);
    QTest::newRow("low and high") << "0000100002" << kRx;
    QTest::newRow("9 characters are a plain decimal") << "000100002" << 100002u;
    QTest::newRow("11 characters are a plain decimal") << "00000100002" << 100002u;
}

void tst_LogFileLoader::deviceIdField()
{
    QFETCH(QString, field);
    QFETCH(quint32, id);
    const TelemetryDataPackage p = load("000000000;" + field.toLatin1() + ";0;Dev; \n");
    QCOMPARE(p.devices().size(), 1);
    QCOMPARE(p.devices().at(0).id(), id);
}

void tst_LogFileLoader::narrowing_data()
{
    QTest::addColumn<QByteArray>("group");
    QTest::addColumn<qint32>("value");
    QTest::newRow("type 0 narrows to 8 bits") << QByteArray("1;0;0;200") << -56;
    QTest::newRow("type 1 narrows to 16 bits") << QByteArray("1;1;0;40000") << -25536;
    QTest::newRow("type 12 keeps 32 bits") << QByteArray("1;12;0;-2147483648") << qint32(-2147483647 - 1);
    QTest::newRow("64-bit value wraps to 32") << QByteArray("1;12;0;4294967297") << 1;
    // A field that does not parse is not read as 0: the group is left out (the line counts as damaged).
    QTest::newRow("non-numeric value is left out") << QByteArray("1;12;0;12x") << -1;
    QTest::newRow("empty value is left out") << QByteArray("1;12;0;") << -1;
}

void tst_LogFileLoader::narrowing()
{
    QFETCH(QByteArray, group);
    QFETCH(qint32, value);
    LogReadReport report;
    const TelemetryDataPackage p =
        load(kDescription + "000001000;0000100002;" + group + "\n", nullptr, &report);
    const TelemetryVar *v = var(p, kRx, 1);
    QCOMPARE(report.skippedLines, qint64(value == -1 ? 1 : 0));
    if (value == -1) {
        QCOMPARE(v->count(), 0);
        return;
    }
    QCOMPARE(v->count(), 1);
    QCOMPARE(v->values().at(0).value, value);
}

void tst_LogFileLoader::firstTimestampRule()
{
    TelemetryDataPackage p = load(kDescription + "000002000;0000100002;1;12;0;1\n000001500;0000100002\n"
                                                 "000003000;0000100002;1;12;0;1\n");
    QCOMPARE(p.firstTimestamp(), 1500); // any line's non-zero timestamp counts, even without values
    p = load(kDescription);
    QCOMPARE(p.firstTimestamp(), 0);
    p = load(kDescription + "-20;0000100002;1;12;0;1\n000000300;0000100002;1;12;0;1\n");
    QCOMPARE(p.firstTimestamp(), 300); // a negative first timestamp is replaced by the next one
}

void tst_LogFileLoader::crlfLineEnds()
{
    QByteArray log =
        kDescription + "000001000;0000100002;1;12;1;55;2;12;0;7\n000002000;0000100002;15;16;0;Ahoj;2;0\n";
    log.replace("\n", "\r\n");
    const TelemetryDataPackage p = load(log);
    QCOMPARE(
        QStringList({p.name(), var(p, kRx, 1)->label(), var(p, kRx, 1)->unit(), p.messages().value(0).text}),
        QStringList({"flight", "Voltage", "V", "Ahoj"}));
    QCOMPARE(var(p, kRx, 1)->numberAt(0), 5.5);
    QCOMPARE(var(p, kRx, 2)->numberAt(0), 7.0);
}

void tst_LogFileLoader::messages()
{
    const QByteArray log = kDescription + "000001001;0000100002;15;16;0;Nízké napětí;2;0\n"
                                          "000001002;0000100002;15;16;0; bare text \n"
                                          "000001003;0000100002;15;16;0;typed;5;42\n";
    const TelemetryDataPackage p = load(log);
    QStringList got; // UTF-8 text inside a Windows-1250 line; a bare text is type 2, value 0
    for (const TelemetryMessage &m : p.messages())
        got << QStringLiteral("%1 %2 %3 %4 %5 %6")
                   .arg(m.timestamp)
                   .arg(m.deviceId == kRx)
                   .arg(m.text)
                   .arg(m.type)
                   .arg(m.value)
                   .arg(m.isAlarm());
    QCOMPARE(got,
             QStringList({"1001 1 Nízké napětí 2 0 0", "1002 1 bare text 2 0 0", "1003 1 typed 5 42 0"}));
}

void tst_LogFileLoader::alarmsCollapseWhileReading()
{
    const QByteArray log = "000001000;0000100002;15;16;0;Alarm: V;7;86\n"
                           "000002000;0000100002;15;16;0;Alarm: V;7;86\n"  // repeat within 1500 ms
                           "000002100;0000100002;15;16;0;Alarm: C;7;67\n"  // other character
                           "000004000;0000100002;15;16;0;Alarm: C;7;67\n"; // more than 1500 ms later
    const TelemetryDataPackage p = load(log);
    QStringList alarms;
    for (const TelemetryMessage &m : p.messages())
        alarms << QStringLiteral("%1 %2").arg(m.timestamp).arg(QChar(m.alarm));
    QCOMPARE(alarms, QStringList({"1000 V", "2100 C", "4000 C"}));
    QCOMPARE(p.alarmCount(), 3);
}

void tst_LogFileLoader::undescribedValuesAreDropped()
{
    const TelemetryDataPackage p = load(kDescription + "000001000;0000100002;1;12;0;5;9;12;0;6\n"
                                                       "000001000;0000300004;1;12;0;5\n");
    QCOMPARE(var(p, kRx, 1)->count(), 1);
    QCOMPARE(p.devices().size(), 1);
    QCOMPARE(p.droppedValues(), qint64(2));
}

void tst_LogFileLoader::repeatedDescriptionDoesNotDuplicate()
{
    const TelemetryDataPackage p =
        load(kDescription + "000000000;0000100002;1;Volts;V\n000000000;0000700001;3;Alone;m\n");
    QCOMPARE(p.devices().at(0).vars().size(), 2);
    QCOMPARE(var(p, kRx, 1)->label(), QStringLiteral("Volts"));
    // A parameter line for an unknown device creates it, named "Sensor".
    const TelemetrySensor *alone = p.device(7u | (1u << 16));
    QVERIFY(alone);
    QCOMPARE(alone->name(), QStringLiteral("Sensor"));
    QCOMPARE(alone->vars().size(), 1);
}

void tst_LogFileLoader::sensorTableConsulted()
{
    MemorySensorTable table;
    SensorRow speed;
    speed.id = kRx;
    speed.param = 2;
    speed.unitConversion = QStringLiteral("1"); // km/h
    table.insertDefaultSensor(speed);
    const TelemetryDataPackage p = load(kDescription + "000001000;0000100002;2;12;0;10\n", &table);
    QCOMPARE(var(p, kRx, 2)->displayUnit(), QStringLiteral("km/h"));
    QCOMPARE(var(p, kRx, 2)->numberAt(0), 36.0);
    // Missing rows are inserted with the label and unit from the file.
    SensorRow row;
    QVERIFY(table.findSensor(kRx, 1, &row));
    QCOMPARE(row.label + row.unit, QStringLiteral("VoltageV"));
    QVERIFY(table.findSensor(kRx, 0, &row));
    QCOMPARE(table.size(), 3);
    // An existing row is consulted, not overwritten by the file's label.
    QVERIFY(table.findSensor(kRx, 2, &row));
    QCOMPARE(row.label, QString());
}

void tst_LogFileLoader::cancelFromProgress()
{
    QByteArray log = kDescription;
    for (int i = 1; i <= 200000; ++i)
        log += QByteArray::number(i).rightJustified(9, '0') + ";0000100002;1;12;0;1\n";
    QBuffer buffer(&log);
    buffer.open(QIODevice::ReadOnly);
    LogFileLoader loader;
    QList<qint64> totals;
    loader.setProgressHandler([&](qint64 done, qint64 total) {
        totals << total;
        return done < total / 2;
    });
    TelemetryDataPackage p;
    QVERIFY(!loader.load(&buffer, &p));
    QVERIFY(totals.size() >= 2);
    QCOMPARE(totals.last(), qint64(log.size()));
    QVERIFY(!loader.lastError().isEmpty());
}

void tst_LogFileLoader::damagedLines_data()
{
    QTest::addColumn<QByteArray>("line");
    QTest::addColumn<bool>("damaged");
    QTest::newRow("device line without its unit field") << QByteArray("000000000;0000300004;0;GPS") << false;
    QTest::newRow("value line, CR") << QByteArray("000001500;0000100002;1;12;1;5\r") << false;
    QTest::newRow("message line") << QByteArray("000001500;0000100002;15;16;0;Hello;2;0") << false;
    QTest::newRow("message without type and value")
        << QByteArray("000001500;0000100002;15;16;0;Hello") << false;
    QTest::newRow("blank line") << QByteArray("") << false;
    QTest::newRow("partial group") << QByteArray("000001500;0000100002;1;12;1;5;2;12") << true;
    QTest::newRow("no group") << QByteArray("000001500;0000100002") << true;
    QTest::newRow("timestamp only") << QByteArray("000001500") << true;
    QTest::newRow("non-numeric timestamp") << QByteArray("00000x500;0000100002;1;12;1;5") << true;
    QTest::newRow("non-numeric device id") << QByteArray("000001500;00001x0002;1;12;1;5") << true;
    QTest::newRow("value out of range")
        << QByteArray("000001500;0000100002;1;12;1;99999999999999999999") << true;
    QTest::newRow("parameter line without unit") << QByteArray("000000000;0000100002;3;Alt") << true;
    QTest::newRow("label with a semicolon") << QByteArray("000000000;0000100002;3;Alt;i;m") << true;
    QTest::newRow("message text with a semicolon")
        << QByteArray("000001500;0000100002;15;16;0;He;llo;2;0") << true;
}

void tst_LogFileLoader::damagedLines()
{
    QFETCH(QByteArray, line);
    QFETCH(bool, damaged);
    // The line under test is line 7.
    const QByteArray before = kDescription + "000001000;0000100002;1;12;1;4\n";
    LogReadReport r;
    const TelemetryDataPackage p = load(before + line + "\n000002000;0000100002;1;12;1;6\n", nullptr, &r);
    QCOMPARE(r.skippedLines, qint64(damaged ? 1 : 0));
    QCOMPARE(r.firstSkippedLine, qint64(damaged ? 7 : 0));
    QVERIFY(!r.truncated);
    QCOMPARE(r.lines, qint64(8));
    // What does not read is not applied as zeros: no device 0 appears, no variable is renamed.
    if (damaged && line != "000000000;0000100002;3;Alt" && !line.contains("Alt;i"))
        QVERIFY(!p.device(0));
    QCOMPARE(var(p, kRx, 1)->label(), var(load(before), kRx, 1)->label());
}

void tst_LogFileLoader::unreadableFiles_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<qint64>("skipped");
    QTest::addColumn<qint64>("firstSkipped"); // 0: none
    QTest::addColumn<bool>("truncated");
    QTest::addColumn<QString>("message"); // in the error, or in the warning when ok; empty: no warning

    QTest::newRow("valid") << validLog(20) << true << qint64(0) << qint64(0) << false << QString();
    QTest::newRow("headers only") << QByteArray("# name\n# description\n") << false << qint64(0) << qint64(0)
                                  << false << "no telemetry";

    // Binary bytes: both whole lines are damaged, the unfinished last one is the cut.
    QTest::newRow("binary") << QByteArray("\x7f"
                                          "ELF\x02\x01\n\xff\xfe;;\x01\n\x1b\x02")
                            << false << qint64(2) << qint64(1) << true << "none readable";

    // Cut inside the last line's second group.
    const QByteArray full = validLog(20);
    QTest::newRow("cut in a value group")
        << full.left(full.lastIndexOf(';')) << true << qint64(0) << qint64(0) << true << "middle of a line";

    // Line 5 + 10 replaced by garbage, line 5 + 12 by a value line with a partial group.
    QList<QByteArray> lines = full.split('\n');
    lines[14] = "%&/ not a log line";
    QTest::newRow("one damaged line")
        << lines.join('\n') << true << qint64(1) << qint64(15) << false << "line 15";
    lines[16] = "000012000;0000100002;1;12;1;12;2;12";
    QTest::newRow("two damaged lines")
        << lines.join('\n') << true << qint64(2) << qint64(15) << false << "2 damaged lines";
}

void tst_LogFileLoader::unreadableFiles()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, ok);
    QFETCH(qint64, skipped);
    QFETCH(qint64, firstSkipped);
    QFETCH(bool, truncated);
    QFETCH(QString, message);

    LogReadReport r;
    load(bytes, nullptr, &r);
    QCOMPARE(r.skippedLines, skipped);
    QCOMPARE(r.firstSkippedLine, firstSkipped);
    QCOMPARE(r.truncated, truncated);

    // Through the store's reader: refused with the reason, or read with a warning naming the file.
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("flight.log"));
    QVERIFY(writeFile(path, bytes));
    TelemetryDataPackage p;
    QString error;
    QString warning = QStringLiteral("stale");
    QCOMPARE(TelemetryData::readFile(path, &p, nullptr, &error, {}, &warning), ok);
    if (!ok)
        QVERIFY(warning.isEmpty());
    const QString said = ok ? warning : error;
    QVERIFY2(message.isEmpty() ? said.isEmpty() : said.startsWith(path + ": ") && said.contains(message),
             qPrintable(said));
}

QTEST_MAIN(tst_LogFileLoader)
#include "tst_LogFileLoader.moc"
