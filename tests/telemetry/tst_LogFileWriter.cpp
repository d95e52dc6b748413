#include "telemetry/LogFileLoader.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "tests/support/TestFiles.h"
#include "tests/support/TestSamples.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <QtTest>
#include <cstring>

namespace {
constexpr quint32 kA = 1u | (2u << 16);
constexpr quint32 kB = 65535u << 16;

TelemetryVar makeVar(quint32 id, quint32 param, const QString &label, const QString &unit,
                     const QVector<TelemetryValue> &values)
{
    TelemetryVar v(id, param, label, unit);
    v.values() = values;
    return v;
}

// Two devices, two parameters each, values at shared and distinct milliseconds, messages and an alarm.
TelemetryDataPackage twoDevices()
{
    TelemetryDataPackage p;
    p.setName(QStringLiteral("Večerní let"));
    p.setDescription(QStringLiteral("vítr 3 m/s"));
    int a = p.addDevice(kA, QStringLiteral("Přijímač"));
    p.devices()[a].vars() << makeVar(kA, 1, QStringLiteral("Napětí"), QStringLiteral("V"),
                                     {raw(12, 2, 500, 100), raw(12, 2, 510, 200)})
                          << makeVar(kA, 2, QStringLiteral("Teplota"), QStringLiteral("°C"),
                                     {raw(1, 1, 215, 100), raw(1, 1, 220, 150)});
    int b = p.addDevice(kB, QStringLiteral("GPS"));
    p.devices()[b].vars() << makeVar(kB, 1, QStringLiteral("Výška"), QStringLiteral("m"),
                                     {raw(12, 0, 10, 100), raw(12, 0, 11, 200)})
                          << makeVar(kB, 4, QStringLiteral("Šířka"), QStringLiteral("°"),
                                     {raw(9, 2, (50 << 16) | 30000, 120)});
    TelemetryMessage m;
    m.timestamp = 150;
    m.deviceId = kA;
    m.text = QStringLiteral("Nízké napětí – přistát");
    p.messages() << m;
    TelemetryMessage alarm;
    alarm.timestamp = 180;
    alarm.deviceId = kB;
    alarm.alarm = 'V';
    p.messages() << alarm;
    return p;
}

TelemetryDataPackage read(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    LogFileLoader loader;
    TelemetryDataPackage p;
    loader.load(&buffer, &p);
    return p;
}

void compareData(const TelemetryDataPackage &a, const TelemetryDataPackage &b)
{
    QCOMPARE(a.name(), b.name());
    QCOMPARE(a.description(), b.description());
    QCOMPARE(a.devices().size(), b.devices().size());
    for (int d = 0; d < a.devices().size(); ++d) {
        const TelemetrySensor &x = a.devices().at(d);
        const TelemetrySensor &y = b.devices().at(d);
        QCOMPARE(x.id(), y.id());
        QCOMPARE(x.name(), y.name());
        QCOMPARE(x.vars().size(), y.vars().size());
        for (int i = 0; i < x.vars().size(); ++i) {
            const TelemetryVar &u = x.vars().at(i);
            const TelemetryVar &v = y.vars().at(i);
            QCOMPARE(u.param(), v.param());
            QCOMPARE(u.label(), v.label());
            QCOMPARE(u.unit(), v.unit());
            QCOMPARE(u.count(), v.count());
            QVERIFY(std::memcmp(u.values().constData(), v.values().constData(),
                                size_t(u.count()) * sizeof(TelemetryValue)) == 0);
        }
    }
}
} // namespace

class tst_LogFileWriter : public QObject
{
    Q_OBJECT
private slots:
    void exactBytes();
    void emptyPackage();
    void roundTrip();
    void messagesMoveOneMillisecondPerRewrite();
    void generatedRoundTrip_data();
    void generatedRoundTrip();
    void generatorIsDeterministic();
    void manyVariablesFewSamples();
    void exportedFileName_data();
    void exportedFileName();
    void writeFileIsWholeOrNothing();
};

void tst_LogFileWriter::exactBytes()
{
    const QByteArray out = LogFileWriter::write(twoDevices());
    QByteArray expected;
    expected += "# Večerní let\n# vítr 3 m/s\n";
    // Description lines are Windows-1250.
    expected += "000000000;0000100002;0;P\xF8ij\xEDma\xE8; \n";
    expected += "000000000;0000100002;1;Nap\xECt\xED;V\n";
    expected += "000000000;0000100002;2;Teplota;\xB0"
                "C\n";
    expected += "000000000;0000065535;0;GPS; \n";
    expected += "000000000;0000065535;1;V\xFD\x9Aka;m\n";
    expected += "000000000;0000065535;4;\x8A\xED\xF8ka;\xB0\n";
    // One line per device and millisecond; same millisecond of another device on its own line.
    expected += "000000100;0000100002;1;12;2;500;2;1;1;215\n";
    expected += "000000100;0000065535;1;12;0;10\n";
    expected += "000000120;0000065535;4;9;2;3306800\n";
    expected += "000000150;0000100002;2;1;1;220\n";
    expected += "000000200;0000100002;1;12;2;510\n";
    expected += "000000200;0000065535;1;12;0;11\n";
    // Messages in UTF-8, 1 ms later; alarms as "Alarm: X" with type 7 and the character's code.
    expected += "000000151;0000100002;15;16;0;Nízké napětí – přistát;2;0\n";
    expected += "000000181;0000065535;15;16;0;Alarm: V;7;86\n";
    QCOMPARE(out, expected);
}

void tst_LogFileWriter::emptyPackage()
{
    QCOMPARE(LogFileWriter::write(TelemetryDataPackage()), QByteArray("# \n# \n"));
}

void tst_LogFileWriter::roundTrip()
{
    const TelemetryDataPackage original = twoDevices();
    const TelemetryDataPackage back = read(LogFileWriter::write(original));
    compareData(original, back);
    QCOMPARE(back.firstTimestamp(), 100);
    QCOMPARE(back.messages().size(), 2);
    QCOMPARE(back.messages().at(0).text, original.messages().at(0).text);
    QCOMPARE(back.messages().at(0).timestamp, 151);
    QCOMPARE(back.messages().at(1).alarm, quint8('V'));
    QCOMPARE(back.messages().at(1).displayText(), QStringLiteral("Alarm: V"));
    QCOMPARE(back.messages().at(1).timestamp, 181);
}

void tst_LogFileWriter::messagesMoveOneMillisecondPerRewrite()
{
    const QByteArray once = LogFileWriter::write(twoDevices());
    const QByteArray twice = LogFileWriter::write(read(once));
    const QByteArray thrice = LogFileWriter::write(read(twice));
    QVERIFY(twice.contains("000000152;0000100002;15;16;0;"));
    QVERIFY(thrice.contains("000000153;0000100002;15;16;0;"));
    // Everything but the message lines is byte-identical.
    const auto withoutMessages = [](const QByteArray &b) { return b.left(b.indexOf("000000151;")); };
    QCOMPARE(withoutMessages(once).size(), twice.indexOf("000000152;"));
    QVERIFY(twice.startsWith(withoutMessages(once)));
}

void tst_LogFileWriter::generatedRoundTrip_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("devices");
    QTest::newRow("one device") << 30 << 5 << 1;
    QTest::newRow("six devices") << 120 << 20 << 6;
    QTest::newRow("more devices than kinds") << 20 << 50 << 9;
    QTest::newRow("1 kHz, every millisecond") << 5 << 1000 << 3;
    QTest::newRow("no time at all") << 0 << 10 << 2;
}

void tst_LogFileWriter::generatedRoundTrip()
{
    QFETCH(int, seconds);
    QFETCH(int, rate);
    QFETCH(int, devices);
    const TelemetryDataPackage p = LogGenerator::generate({seconds, rate, devices, 99});
    const QByteArray bytes = LogFileWriter::write(p);
    const TelemetryDataPackage back = read(bytes);
    compareData(p, back);
    QCOMPARE(back.messages().size(), p.messages().size());
    for (int i = 0; i < p.messages().size(); ++i) {
        QCOMPARE(back.messages().at(i).timestamp, p.messages().at(i).timestamp + 1);
        QCOMPARE(back.messages().at(i).displayText(), p.messages().at(i).displayText());
    }
    QCOMPARE(back.droppedValues(), qint64(0));
}

void tst_LogFileWriter::generatorIsDeterministic()
{
    const QByteArray a = LogFileWriter::write(LogGenerator::generate({60, 10, 6, 5}));
    QCOMPARE(LogFileWriter::write(LogGenerator::generate({60, 10, 6, 5})), a);
    QVERIFY(LogFileWriter::write(LogGenerator::generate({60, 10, 6, 6})) != a);
}

void tst_LogFileWriter::manyVariablesFewSamples()
{
    // Hundreds of variables with one sample each: the output is mostly line openings.
    TelemetryDataPackage p;
    const int d = p.addDevice(kA, QStringLiteral("Wide"));
    for (quint32 param = 1; param <= 400; ++param)
        p.devices()[d].vars() << makeVar(kA, param, QStringLiteral("p%1").arg(param), QStringLiteral("V"),
                                         {raw(12, 0, -2147483647 - 1, qint32(param))});
    const TelemetryDataPackage back = read(LogFileWriter::write(p));
    compareData(p, back);
}

// The save dialog hands over what the pilot typed; a name without an extension gets ".log".
void tst_LogFileWriter::exportedFileName_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("written");
    const auto row = [](const char *name, const char *typed, const char *written) {
        QTest::newRow(name) << QString(typed) << QString(written);
    };
    row("no extension", "/tmp/flights/sunday", "/tmp/flights/sunday.log");
    row("log", "/tmp/flights/sunday.log", "/tmp/flights/sunday.log");
    row("other extension kept", "/tmp/flights/sunday.txt", "/tmp/flights/sunday.txt");
    row("dotted folder, bare name", "/tmp/v1.2/sunday", "/tmp/v1.2/sunday.log");
    row("cancelled", "", "");
}

void tst_LogFileWriter::exportedFileName()
{
    QFETCH(QString, typed);
    QFETCH(QString, written);
    QCOMPARE(LogFileWriter::withLogSuffix(typed), written);
}

void tst_LogFileWriter::writeFileIsWholeOrNothing()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.log"));
    QString error;
    QVERIFY(LogFileWriter::writeFile(twoDevices(), path, &error));
    QCOMPARE(readAll(path), LogFileWriter::write(twoDevices()));
    const QString missing = dir.filePath(QStringLiteral("no/such/folder/out.log"));
    QVERIFY(!LogFileWriter::writeFile(twoDevices(), missing, &error));
    QVERIFY2(error.contains(QStringLiteral("out.log")), qPrintable(error));
    QVERIFY(!QFileInfo::exists(missing));
}

QTEST_APPLESS_MAIN(tst_LogFileWriter)
#include "tst_LogFileWriter.moc"
