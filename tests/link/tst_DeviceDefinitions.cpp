#include "link/DeviceDefinitions.h"
#include "tests/support/BusSimulator.h"
#include "tests/support/TestFiles.h"

#include <QCborMap>
#include <QCborValue>
#include <QCryptographicHash>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <algorithm>

namespace {
const QString kLoadError = QStringLiteral("Error loading device configuration file: ");

// One device; the parts a case changes are spliced in.
QByteArray
device(const QByteArray &params = R"({"id": 1, "address": 16, "size": 1, "min": 0, "max": 2, "name": "A"})",
       const QByteArray &elements = R"({"kind": "Int", "pParam": 1})", const QByteArray &extra = "")
{
    return R"({"name": "T", "hardware": [1], )" + extra + R"("parameters": [)" + params +
           R"(], "commands": [{"id": 1, "text": "Go", "flags": 4}], "pages": [{"id": 0, "title": "P", "elements": [)" +
           elements + "]}]}";
}

const QByteArray kFull = R"({
    "name": "Probe", "hardware": ["0x0A01", 2562], "firmware": "2.7",
    "parameters": [
        {"id": 7, "address": "0x0020", "size": 3, "signed": true, "decimals": 2, "min": -8388608, "max": 8388607,
         "default": -5, "readOnly": true, "name": "Offset", "description": "raw", "choices": [[-1, "minus"], [4, "four"]]},
        {"id": 8, "address": "0x0023", "size": 4, "min": 0, "max": 4294967295, "name": "Count"}
    ],
    "commands": [{"id": 3, "text": "Wipe", "flags": 4, "value": -2}],
    "pages": [{"id": 5, "title": "Main", "elements": [
        {"kind": "Row", "pItems": 1, "pWidth": -1},
        {"kind": "Select", "pParam": 7, "pKeyValues": [[0, "no"], [1, "yes"]], "visible": "P8 > 2", "enabled": false},
        {"kind": "Label", "pDynamic": 1, "pText": "{P7:%.1f} V", "pFloatValue": 1.5, "visible": true},
        {"kind": "Command", "pCommand": 3, "pPage": 5, "pFile": "x.png"}
    ]}]
})";
} // namespace

class tst_DeviceDefinitions : public QObject
{
    Q_OBJECT

private slots:
    void roundTrip()
    {
        DeviceDefinitions source;
        QString error;
        QVERIFY2(source.addSource(kFull, QStringLiteral("probe.json"), &error), qPrintable(error));
        const DeviceDefinition *d = source.find(0x0A01);
        QVERIFY(d && source.find(2562) == d && !source.find(0x0B01));
        QCOMPARE(d->firmwareMajor * 100 + d->firmwareMinor, 207);
        const DeviceParameter &p = d->parameters.at(0);
        QCOMPARE(p.address, quint16(0x20));
        QCOMPARE(p.size, 3);
        QVERIFY(p.isSigned && p.readOnly);
        QCOMPARE(p.min, qint64(-8388608));
        QCOMPARE(p.defaultValue, qint64(-5));
        QCOMPARE(p.choices.at(1), qMakePair(qint64(4), QStringLiteral("four")));
        QCOMPARE(d->parameters.at(1).max, qint64(4294967295LL));
        QCOMPARE(d->command(3)->flags & DeviceCommand::Confirm, int(DeviceCommand::Confirm));
        const DevicePageElement &select = d->page(5)->elements.at(1);
        QCOMPARE(select.kind, QStringLiteral("Select"));
        QCOMPARE(select.properties.value(QStringLiteral("pKeyValues")).toList().at(1).toList(),
                 (QVariantList{1, QStringLiteral("yes")}));
        QCOMPARE(d->expressions(), (QStringList{QStringLiteral("P8 > 2"), QStringLiteral("{P7:%.1f} V")}));

        // The documented layout: magic, version 1, payload length, SHA-256 of the payload.
        const QByteArray bin = source.toContainer();
        QCOMPARE(bin.left(8), QByteArray("VXDEVDEF"));
        QCOMPARE(qFromBigEndian<quint32>(bin.constData() + 8), 1u);
        QCOMPARE(qint64(qFromBigEndian<quint32>(bin.constData() + 12)), qint64(bin.size() - 48));
        QCOMPARE(bin.mid(16, 32), QCryptographicHash::hash(bin.mid(48), QCryptographicHash::Sha256));

        DeviceDefinitions read;
        QVERIFY2(read.readContainer(bin, &error), qPrintable(error));
        QCOMPARE(read.devices(), source.devices());
        // dump's text compiles to the same definitions.
        DeviceDefinitions again;
        QVERIFY2(again.addSource(read.toSourceText(), QStringLiteral("dump"), &error), qPrintable(error));
        QCOMPARE(again.devices(), source.devices());
    }

    void refused_data()
    {
        QTest::addColumn<QByteArray>("source");
        QTest::addColumn<QString>("expected");
        const QByteArray a = R"({"id": 1, "address": 16, "size": 1, "min": 0, "max": 2, "name": "A")";
        const auto row = [](const char *name, const QByteArray &source, const char *expected) {
            QTest::newRow(name) << source << QString::fromUtf8(expected);
        };
        row("json syntax", "{\n\"name\": }", "t.json: line 2: ");
        row("key twice",
            "{\"name\": \"T\",\n\"hardware\": [1], \"pages\": [{\"id\": 1}],\n\"hardware\": [2]}",
            "t.json: line 3: \"hardware\" is given twice");
        row("device key", device(a + "}", R"({"kind": "Int", "pParam": 1})", R"("colour": 1, )"),
            R"(unknown key "colour")");
        row("parameter key", device(a + R"(, "unit": "V"})"), R"(parameter 1 ("A"): unknown key "unit")");
        row("missing name", device(R"({"id": 1, "address": 16, "size": 1, "min": 0, "max": 2})"),
            R"("name" is missing)");
        row("size type", device(R"({"id": 1, "address": 16, "size": "1", "min": 0, "max": 2, "name": "A"})"),
            R"("size" must be an integer)");
        row("size 0", device(R"({"id": 1, "address": 16, "size": 0, "min": 0, "max": 2, "name": "A"})"),
            R"("size" 0 is outside 1..4)");
        row("size 5", device(R"({"id": 1, "address": 16, "size": 5, "min": 0, "max": 2, "name": "A"})"),
            R"("size" 5 is outside 1..4)");
        row("min > max", device(R"({"id": 1, "address": 16, "size": 1, "min": 3, "max": 2, "name": "A"})"),
            "min 3 > max 2");
        row("max beyond size",
            device(R"({"id": 1, "address": 16, "size": 1, "min": 0, "max": 256, "name": "A"})"),
            R"("max" 256 is outside 0..255)");
        row("signed min",
            device(
                R"({"id": 1, "address": 16, "size": 2, "signed": true, "min": -32769, "max": 0, "name": "A"})"),
            R"("min" -32769 is outside -32768..32767)");
        row("default outside", device(a + R"(, "default": 3})"), R"("default" 3 is outside 0..2)");
        row("choice outside", device(a + R"(, "choices": [[0, "x"], [3, "y"]]})"),
            "choice 3 is outside 0..2");
        row("signed type", device(a + R"(, "signed": 1})"), R"("signed" must be true or false)");
        row("duplicate id",
            device(a + R"(}, {"id": 1, "address": 20, "size": 1, "min": 0, "max": 2, "name": "B"})"),
            R"(parameter 2 ("B"): id 1 is used twice)");
        row("overlap",
            device(R"({"id": 1, "address": 16, "size": 2, "min": 0, "max": 2, "name": "A"}, )"
                   R"({"id": 2, "address": 17, "size": 1, "min": 0, "max": 2, "name": "B"})"),
            R"(parameter 2 ("B"): registers 0x0011..0x0011 overlap "A" (id 1) at 0x0010..0x0011)");
        row("into the command addresses",
            device(R"({"id": 1, "address": "0xEFFF", "size": 2, "min": 0, "max": 2, "name": "A"})"),
            "registers run into the command addresses from 0xF000");
        row("firmware", device(a + "}", R"({"kind": "Int", "pParam": 1})", R"("firmware": "1", )"),
            R"("firmware" must be)");
        row("hardware", device().replace("[1]", "[70000]"), "hardware value");
        row("element key", device(a + "}", R"({"kind": "Int", "pColour": 1})"),
            R"(page 1, element 1 (Int): unknown key "pColour")");
        row("element kind", device(a + "}", R"({"kind": "Slider"})"), R"(unknown kind "Slider")");
        row("element type", device(a + "}", R"({"kind": "Label", "pText": 5})"), R"("pText" must be a text)");
        row("visible expression", device(a + "}", R"({"kind": "Int", "pParam": 1, "visible": "P1 =="})"),
            R"(element 1 (Int): "visible": )");
        row("label expression", device(a + "}", R"({"kind": "Label", "pDynamic": 1, "pText": "{P1 +}"})"),
            R"(element 1 (Label): "pText": )");
        row("unknown param", device(a + "}", R"({"kind": "Int", "pParam": 9})"),
            R"("pParam" 9 is no parameter)");
        row("unknown page", device(a + "}", R"({"kind": "Link", "pPage": 4})"), R"("pPage" 4 is no page)");
        row("unknown command", device(a + "}", R"({"kind": "Command", "pCommand": 2})"),
            R"("pCommand" 2 is no command)");
        row("short row", device(a + "}", R"({"kind": "Row", "pItems": 2}, {"kind": "Label"})"),
            "(Row): \"pItems\"");
    }

    void refused()
    {
        QFETCH(QByteArray, source);
        QFETCH(QString, expected);
        DeviceDefinitions d;
        QString error;
        QVERIFY(!d.addSource(source, QStringLiteral("t.json"), &error));
        QVERIFY2(error.startsWith(QLatin1String("t.json: ")) && error.contains(expected), qPrintable(error));
        QVERIFY(d.isEmpty());
    }

    void hardwareClaimedTwice()
    {
        DeviceDefinitions d;
        QString error;
        QVERIFY(d.addSource(device(), QStringLiteral("a.json"), &error));
        QVERIFY(!d.addSource(device(), QStringLiteral("b.json"), &error));
        QVERIFY2(error.startsWith(QLatin1String("b.json: ")) && error.contains(QLatin1String("a.json")),
                 qPrintable(error));
    }

    void damaged_data()
    {
        DeviceDefinitions good;
        QString error;
        QVERIFY(good.addSource(device(), QStringLiteral("t.json"), &error));
        const QByteArray bin = good.toContainer();
        const auto patched = [&](int at, const QByteArray &bytes) {
            return QByteArray(bin).replace(at, bytes.size(), bytes);
        };
        // A payload with a good checksum but content no source would pass.
        QByteArray bad = device(R"({"id": 1, "address": 16, "size": 1, "min": 3, "max": 2, "name": "A"})");
        QCborMap root;
        root.insert(QStringLiteral("devices"),
                    QCborValue::fromJsonValue(QJsonDocument::fromJson("[" + bad + "]").array()));
        const QByteArray payload = QCborValue(root).toCbor();
        QByteArray rehashed = bin.left(12);
        rehashed += QByteArray::fromHex(QByteArray::number(payload.size(), 16).rightJustified(8, '0'));
        rehashed += QCryptographicHash::hash(payload, QCryptographicHash::Sha256) + payload;
        QByteArray notCbor = QByteArray(bin).left(48) + QByteArray(bin.size() - 48, '\xff');
        notCbor.replace(16, 32, QCryptographicHash::hash(notCbor.mid(48), QCryptographicHash::Sha256));

        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("reason");
        QTest::newRow("empty") << QByteArray() << "empty";
        QTest::newRow("foreign") << QByteArray("PK\x03\x04 some zip file") << "not a device definitions file";
        QTest::newRow("short header") << bin.left(30) << "truncated";
        QTest::newRow("version 2") << patched(8, QByteArray("\0\0\0\2", 4)) << "format version 2";
        QTest::newRow("truncated") << bin.left(bin.size() - 1) << "truncated";
        QTest::newRow("trailing") << bin + 'x' << "unexpected bytes";
        QTest::newRow("flipped") << patched(bin.size() - 3,
                                            QByteArray(1, char(bin.at(bin.size() - 3) ^ 0x10)))
                                 << "checksum mismatch";
        QTest::newRow("oversized") << patched(12, QByteArray("\x01\0\0\x01", 4)) << "exceeds the limit";
        QTest::newRow("not cbor") << notCbor << "damaged payload";
        QTest::newRow("rehashed")
            << rehashed << "damaged payload: payload: device \"T\", parameter 1 (\"A\"): min 3 > max 2";
    }

    void damaged()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, reason);
        DeviceDefinitions d;
        QString error;
        QVERIFY(!d.readContainer(bytes, &error));
        QVERIFY2(error.startsWith(kLoadError) && error.contains(reason) && !error.contains('\n'),
                 qPrintable(error));
        QVERIFY(d.isEmpty());

        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("Devices.bin"));
        QVERIFY(writeFile(path, bytes));
        QVERIFY(!d.load(path, &error));
        QVERIFY2(error.startsWith(kLoadError + path + ": ") && error.contains(reason), qPrintable(error));
    }

    // Every source in the repository compiles, and each device the simulator plays finds its definition.
    void repositorySources()
    {
        DeviceDefinitions d;
        QString error;
        const QDir dir(QStringLiteral(VEXO_SOURCE_DIR "/link/definitions"));
        for (const QString &name : dir.entryList({QStringLiteral("*.json")}, QDir::Files))
            QVERIFY2(d.addSourceFile(dir.filePath(name), &error), qPrintable(error));
        BusSimulator sim;
        int found = 0;
        for (const BusSimulator::Unit &u : sim.units()) {
            if (u.parent != 0)
                continue; // satellites are configured through their receiver
            Device device;
            device.hardware = u.hardware;
            const DeviceDefinition *def = d.find(device);
            QVERIFY2(def, qPrintable(QString::fromLatin1(u.name)));
            QCOMPARE(def->name, QString::fromLatin1(u.name));
            QVERIFY(!def->pages.isEmpty() && !def->expressions().isEmpty());
            QVERIFY(std::any_of(def->commands.begin(), def->commands.end(),
                                [](const DeviceCommand &c) { return c.flags & DeviceCommand::Confirm; }));
            ++found;
        }
        QCOMPARE(found, 5);
        QCOMPARE(d.devices().size(), 5);
    }

    void searchOrder()
    {
        QTemporaryDir root;
        const QString app = root.filePath(QStringLiteral("bin"));
        const QString beside = app + QStringLiteral("/Devices/Devices.bin");
        const QString shared = root.filePath(QStringLiteral("share/vexo-studio/Devices/Devices.bin"));
        QCOMPARE(DeviceDefinitions::searchPaths(app), (QStringList{beside, shared}));
        QVERIFY(DeviceDefinitions::locate(app).isEmpty());
        QVERIFY(QDir().mkpath(QFileInfo(shared).path()) && writeFile(shared, "x"));
        QCOMPARE(DeviceDefinitions::locate(app), shared);
        QVERIFY(QDir().mkpath(QFileInfo(beside).path()) && writeFile(beside, "x"));
        QCOMPARE(DeviceDefinitions::locate(app), beside);
    }
};

QTEST_GUILESS_MAIN(tst_DeviceDefinitions)
#include "tst_DeviceDefinitions.moc"
