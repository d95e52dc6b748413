#include "link/DeviceDefinitions.h"
#include "link/DeviceSettingsFile.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

namespace {

using Row = DeviceSettingsFile::DiffRow;

// A receiver kind: a read-only identifier, a signed value with one decimal, a choice and a plain limit.
const QByteArray kReceiver = R"({"name": "Rx", "hardware": [5, 6], "firmware": "1.3", "parameters": [
    {"id": 1, "address": 16, "size": 4, "min": 0, "max": 2147483647, "readOnly": true, "name": "Serial"},
    {"id": 2, "address": 24, "size": 2, "signed": true, "decimals": 1, "min": -100, "max": 500, "name": "Gain"},
    {"id": 3, "address": 26, "size": 1, "min": 0, "max": 2, "name": "Mode",
     "choices": [[0, "Off"], [1, "Slow"], [2, "Fast"]]},
    {"id": 4, "address": 27, "size": 1, "min": 10, "max": 200, "name": "Limit"}],
  "pages": [{"id": 0, "title": "P", "elements": [{"kind": "Int", "pParam": 2}]}]})";
const QByteArray kRx8 = R"({"name": "Rx 8", "identifier": "A1B2C3D4", "hardware": 5, "firmware": "1.4"})";

DeviceDefinition receiver()
{
    DeviceDefinitions d;
    QString error;
    if (!d.addSource(kReceiver, QStringLiteral("rx.json"), &error))
        qFatal("%s", qPrintable(error));
    return d.devices().first();
}

// The device as the engine reports it: these raw values by id, the other parameters not read yet.
DevParamVector readDevice(const QMap<int, qint32> &values)
{
    DeviceSettings s = DeviceSettings::fromDefinition(0xA1B2C3D4u, receiver());
    for (DevParam &p : s.params) {
        p.loaded = values.contains(p.id);
        p.value = values.value(p.id);
    }
    return s.params;
}

QByteArray fileText(const QByteArray &parameters, const QByteArray &device = kRx8)
{
    return R"({"format": "vexo-device-settings", "version": 1, "device": )" + device +
           R"(, "parameters": [)" + parameters + "]}";
}

// The file with these parameters compared with the device, each row as
// "side|name|device|file|differs|writable".
QStringList diff(const QByteArray &parameters, const QMap<int, qint32> &held, const QByteArray &device = kRx8)
{
    DeviceSettingsFile file;
    QVector<Row> rows;
    QString error;
    if (!DeviceSettingsFile::fromJson(fileText(parameters, device), &file, &error) ||
        !DeviceSettingsFile::diff(receiver(), readDevice(held), file, &rows, &error))
        return {error};
    QStringList out;
    for (const Row &r : rows) {
        const char *side = r.side == Row::Both ? "both" : r.side == Row::OnlyOnDevice ? "device" : "file";
        const char *differs = r.differs ? "differs" : "same";
        const char *writable = r.writable ? "writable" : r.refusal.isEmpty() ? "-" : "refused";
        out << QStringList{side, r.name, r.deviceText, r.fileText, differs, writable}.join('|');
    }
    return out;
}

} // namespace

class tst_DeviceSettingsFile : public QObject
{
    Q_OBJECT
private slots:
    void roundTrip();
    void damaged_data();
    void damaged();
    void diff_data();
    void diff();
    void oneSidedRows();
};

void tst_DeviceSettingsFile::roundTrip()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("rx.jsn"));
    // Identifier, hardware, no parent, extension or kind, name, firmware 1.4.
    const Device rx8{0xA1B2C3D4u, 5, 0, 0, 0, 0, QStringLiteral("Rx 8"), 1, 4};
    // Limit not read yet: it is left out.
    const DeviceSettingsFile built =
        DeviceSettingsFile::build(rx8, receiver(), readDevice({{1, 77}, {2, -35}, {3, 2}}));
    QString error;
    DeviceSettingsFile read;
    QVERIFY2(built.save(path, &error) && DeviceSettingsFile::load(path, &read, &error), qPrintable(error));
    QCOMPARE(read.toJson(), built.toJson());
    QCOMPARE(qMakePair(read.parameters.size(), read.parameters.value(1).value), qMakePair(3, -3.5));
    // The identifier is written as hexadecimal text, the firmware as "major.minor".
    QVERIFY(read.toJson().contains(R"("A1B2C3D4")") && read.toJson().contains(R"("1.4")"));
}

void tst_DeviceSettingsFile::damaged_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("reason");
    const QByteArray gain =
        R"({"id": 2, "name": "Gain", "address": 24, "decimals": 1, "value": 12.5, "raw": 125})";
    QTest::newRow("not json") << QByteArray("{\"format\": ") << "not a JSON document";
    QTest::newRow("array") << QByteArray("[1, 2]") << "no JSON object";
    QTest::newRow("other format") << QByteArray(R"({"format": "layout", "version": 1})") << "\"format\"";
    QTest::newRow("newer version") << QByteArray(R"({"format": "vexo-device-settings", "version": 2})")
                                   << "newer program";
    QTest::newRow("identifier") << fileText(gain, R"({"name": "R", "identifier": "XYZ", "hardware": 5,
        "firmware": "1.4"})") << "\"identifier\"";
    QTest::newRow("hardware") << fileText(gain, R"({"name": "R", "identifier": "A1", "hardware": 70000,
        "firmware": "1.4"})") << "\"hardware\"";
    QTest::newRow("firmware") << fileText(gain, R"({"name": "R", "identifier": "A1", "hardware": 5,
        "firmware": "1"})") << "\"firmware\"";
    QTest::newRow("fraction id") << fileText(R"({"id": 2.5, "address": 24, "value": 1})")
                                 << "parameter 1: \"id\"";
    QTest::newRow("twice") << fileText(gain + ", " + gain) << "parameter 2: id 2 appears twice";
    QTest::newRow("value text") << fileText(R"({"id": 2, "address": 24, "value": "12"})")
                                << "parameter 1: \"value\"";
    QTest::newRow("raw disagrees")
        << fileText(R"({"id": 2, "address": 24, "decimals": 1, "value": 12.5, "raw": 126})") << "disagree";
    QTest::newRow("too large") << QByteArray(DeviceSettingsFile::kMaxBytes + 1, ' ') << "larger than 4 MB";
}

void tst_DeviceSettingsFile::damaged()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, reason);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("bad.jsn"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size() && f.flush());
    DeviceSettingsFile out;
    out.deviceName = QStringLiteral("untouched");
    QString error;
    QVERIFY(!DeviceSettingsFile::load(path, &out, &error));
    QVERIFY2(error.startsWith(path) && error.contains(reason), qPrintable(error));
    QCOMPARE(out.deviceName, QStringLiteral("untouched"));
}

void tst_DeviceSettingsFile::diff_data()
{
    QTest::addColumn<QByteArray>("entry"); // id, value
    QTest::addColumn<QString>("row");
    QTest::newRow("equal at one decimal") << QByteArray("2, 12.54") << "both|Gain|12.5|12.5|same|writable";
    QTest::newRow("rounded up") << QByteArray("2, 12.56") << "both|Gain|12.5|12.6|differs|writable";
    QTest::newRow("choice") << QByteArray("3, 2") << "both|Mode|Slow|Fast|differs|writable";
    QTest::newRow("below min") << QByteArray("4, 9") << "both|Limit|50|9|differs|refused";
    QTest::newRow("far above max") << QByteArray("2, 4e8") << "both|Gain|12.5|400000000.0|differs|refused";
}

void tst_DeviceSettingsFile::diff()
{
    QFETCH(QByteArray, entry);
    const QStringList rows = ::diff(R"({"id": )" + entry.replace(",", R"(, "address": 0, "value":)") + "}",
                                    {{1, 77}, {2, 125}, {3, 1}, {4, 50}});
    QTEST(rows.filter(QRegularExpression("^both")).value(0), "row");
}

void tst_DeviceSettingsFile::oneSidedRows()
{
    // From the kind's second hardware, as good as the first. The device's four parameters in address order
    // (Serial and Limit not read yet), then what only the file has.
    const QByteArray rx9 = R"({"name": "Rx 9", "identifier": "B0", "hardware": 6, "firmware": "2.0"})";
    QCOMPARE(
        ::diff(
            R"({"id": 2, "address": 24, "value": 1}, {"id": 9, "name": "Ghost", "address": 40, "value": 3})",
            {{2, 10}, {3, 1}}, rx9),
        QStringList({"device|Serial|||same|-", "both|Gain|1.0|1.0|same|writable", "device|Mode|Slow||same|-",
                     "device|Limit|||same|-", "file|Ghost||3|differs|refused"}));
}

QTEST_GUILESS_MAIN(tst_DeviceSettingsFile)
#include "tst_DeviceSettingsFile.moc"
