#include "telemetry/LogFileLoader.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "tests/support/TestFiles.h"
#include "tests/support/TestSamples.h"

#include <QBuffer>
#include <QTemporaryDir>
#include <QtTest>

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

// Names, labels and units, the raw samples byte for byte, and the messages, which come back 1 ms later.
void compareData(const TelemetryDataPackage &a, const TelemetryDataPackage &b)
{
    const auto outline = [](const TelemetryDataPackage &p, int later) {
        QStringList s{p.name(), p.description()};
        for (const TelemetrySensor &d : p.devices()) {
            s << QStringLiteral("%1 %2").arg(d.id()).arg(d.name());
            for (const TelemetryVar &v : d.vars())
                s << QStringLiteral(" %1 %2 [%3] ").arg(v.param()).arg(v.label(), v.unit()) +
                         QString::fromLatin1(
                             QByteArray::fromRawData(reinterpret_cast<const char *>(v.values().constData()),
                                                     int(v.count() * sizeof(TelemetryValue)))
                                 .toHex());
        }
        for (const TelemetryMessage &m : p.messages())
            s << QStringLiteral("%1 %2 %3").arg(m.timestamp + later).arg(m.deviceId).arg(m.displayText());
        return s;
    };
    QCOMPARE(outline(a, 1), outline(b, 0));
}
} // namespace

class tst_LogFileWriter : public QObject
{
    Q_OBJECT
private slots:
    void exactBytes();
    void emptyPackage();
    void roundTrip();
    void generatedRoundTrip_data();
    void generatedRoundTrip();
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
    QCOMPARE(back.messages().at(1).alarm, quint8('V'));
}

void tst_LogFileWriter::generatedRoundTrip_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<int>("rate");
    QTest::addColumn<int>("devices");
    QTest::newRow("one device") << 30 << 5 << 1;
    QTest::newRow("six devices") << 120 << 20 << 6;
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
    QCOMPARE(back.droppedValues(), qint64(0));
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
