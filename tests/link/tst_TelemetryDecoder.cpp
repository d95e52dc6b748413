#include "link/TelemetryDecoder.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryMetaTypes.h"

#include <QSignalSpy>
#include <QtEndian>
#include <QtTest>

#include <limits>

namespace {
// The second byte of the identifier is 0xA4: an unscrambled body.
constexpr quint32 kId = 0x1234A401u;
constexpr qint64 kT0 = 1700000000000;

QByteArray le(quint64 v, int bytes)
{
    QByteArray out;
    for (int i = 0; i < bytes; ++i)
        out.append(char((v >> (8 * i)) & 0xFF));
    return out;
}

QByteArray record(const QByteArray &frame, qint64 time = kT0)
{
    return le(quint64(time), 8) + frame;
}

QByteArray frame(quint8 marker, quint8 typeAndLength, quint32 id, const QByteArray &body)
{
    QByteArray f;
    f.append(char(0x7E));
    f.append(char(marker));
    f.append(char(typeAndLength));
    f += le(id, 4);
    f.append('\0');
    return f + body;
}

quint8 typeAndLength(int type, int bodySize)
{
    return quint8((type << 6) | qMin(63, bodySize + 6));
}

QByteArray textRecord(quint32 id, quint8 index, const QByteArray &label, const QByteArray &unit)
{
    QByteArray body;
    body.append(char(index));
    body.append(char((label.size() << 3) | unit.size()));
    body += label + unit;
    return record(frame(0xFF, typeAndLength(0, body.size()), id, body));
}

// length < 0: a length field that covers exactly the items given.
QByteArray dataRecord(quint32 id, const QByteArray &items, int length = -1, qint64 time = kT0)
{
    const quint8 tl = length < 0 ? typeAndLength(1, items.size()) : quint8(0x40 | (length & 0x3F));
    return record(frame(0xFF, tl, id, items), time);
}

QByteArray messageRecord(quint32 id, quint8 kind, quint8 messageClass, const QByteArray &text,
                         int length = -1, qint64 time = kT0)
{
    QByteArray body;
    body.append(char(kind));
    body.append(char((messageClass << 5) | ((length < 0 ? text.size() : length) & 0x1F)));
    body += text;
    return record(frame(0xFF, typeAndLength(2, body.size()), id, body), time);
}

QByteArray alarmRecord(char alarm, quint8 marker = 0x00, qint64 time = kT0)
{
    QByteArray f;
    f.append(char(0x7E));
    f.append(char(marker));
    f.append('#');
    f.append(alarm);
    return record(f, time);
}

// A store that is recording, with a decoder that hands every record's samples over at once unless told.
struct Rig
{
    explicit Rig(SensorTable *table = nullptr, bool logging = true) : decoder(&store, table)
    {
        store.setLogging(logging);
        decoder.setSessionStart(kT0 - 1000);
    }
    QVector<TelemetryValue> values(quint32 param, quint32 id = kId) const
    {
        const TelemetrySensor *device = store.package().device(id);
        const TelemetryVar *var = device ? device->var(param) : nullptr;
        return var ? var->values() : QVector<TelemetryValue>();
    }
    int sampleCount() const { return int(store.package().sampleCount()); }

    TelemetryData store;
    TelemetryDecoder decoder;
};
} // namespace

class tst_TelemetryDecoder : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { registerTelemetryMetaTypes(); }

    void dataValues_data();
    void dataValues();
    void itemLimits_data();
    void itemLimits();
    void textFrames_data();
    void textFrames();
    void deviceNameAndRename();
    void undescribedVariable_data();
    void undescribedVariable();
    void variableBeforeDeviceTakesTableName();
    void nothingWithoutRecording();
    void ignoredRecords_data();
    void ignoredRecords();
    void alarms_data();
    void alarms();
    void messages_data();
    void messages();
    void timeOffsets_data();
    void timeOffsets();
    void sessionStartsWithFirstData();
    void batching();
    void zeroIntervalFlushesPerRecord();
};

void tst_TelemetryDecoder::dataValues_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<quint32>("param");
    QTest::addColumn<quint32>("type");
    QTest::addColumn<quint32>("decimals");
    QTest::addColumn<qint32>("value");

    QTest::newRow("t0 positive") << QByteArray("\x10\x25", 2) << 1u << 0u << 1u << 5;
    QTest::newRow("t0 BF is -0.1") << QByteArray("\x10\xBF", 2) << 1u << 0u << 1u << -1;
    QTest::newRow("t0 sign only") << QByteArray("\x10\x80", 2) << 1u << 0u << 0u << -32;
    QTest::newRow("t0 -1 no decimals") << QByteArray("\x10\x9F", 2) << 1u << 0u << 0u << -1;
    QTest::newRow("t1 3412 is 4660") << QByteArray("\x21\x34\x12", 3) << 2u << 1u << 0u << 4660;
    QTest::newRow("t1 decimals") << QByteArray("\x21\x01\x20", 3) << 2u << 1u << 1u << 1;
    QTest::newRow("t1 FFFF") << QByteArray("\x21\xFF\xFF", 3) << 2u << 1u << 3u << -1;
    QTest::newRow("t1 sign only") << QByteArray("\x21\x00\x80", 3) << 2u << 1u << 0u << -8192;
    QTest::newRow("t2 skipped") << QByteArray("\x32\xAB\xCD", 3) << 3u << 2u << 0u << 0;
    QTest::newRow("t3 skipped") << QByteArray("\x33\xFF\xFF", 3) << 3u << 3u << 0u << 0;
    QTest::newRow("t4 decimals") << QByteArray("\x44\x64\x00\x20", 4) << 4u << 4u << 1u << 100;
    QTest::newRow("t4 FFFFFF") << QByteArray("\x44\xFF\xFF\xFF", 4) << 4u << 4u << 3u << -1;
    QTest::newRow("t5 date flag") << QByteArray("\x45\x0C\x1E\x20", 4) << 4u << 5u << 1u << 0x1E0C;
    QTest::newRow("t7 sign only") << QByteArray("\x47\x00\x00\x80", 4) << 4u << 7u << 0u << -2097152;
    QTest::newRow("t8 FFFFFFFF is -0.001") << QByteArray("\x58\xFF\xFF\xFF\xFF", 5) << 5u << 8u << 3u << -1;
    QTest::newRow("t8 decimals") << QByteArray("\x58\x01\x00\x00\x40", 5) << 5u << 8u << 2u << 1;
    QTest::newRow("t9 largest") << QByteArray("\x59\xFF\xFF\xFF\x1F", 5) << 5u << 9u << 0u << 536870911;
    QTest::newRow("t9 south flag") << QByteArray("\x59\x10\x27\x2F\x40", 5) << 5u << 9u << 2u << 0x2F2710;
    QTest::newRow("t11 sign only") << QByteArray("\x5B\x00\x00\x00\x80", 5) << 5u << 11u << 0u << -536870912;
    QTest::newRow("t12 signed") << QByteArray("\x6C\xFE\xFF\xFF\xFF\x40", 6) << 6u << 12u << 2u << -2;
    QTest::newRow("t15 full") << QByteArray("\x6F\x78\x56\x34\x12\x60", 6) << 6u << 15u << 3u << 0x12345678;
    QTest::newRow("t12 fifth byte other bits")
        << QByteArray("\x6C\x07\x00\x00\x00\x9F", 6) << 6u << 12u << 0u << 7;
    QTest::newRow("index in next byte") << QByteArray("\x01\x20\x34\x12", 4) << 32u << 1u << 0u << 4660;
    QTest::newRow("index 200 in next byte") << QByteArray("\x00\xC8\x25", 3) << 200u << 0u << 1u << 5;
}

void tst_TelemetryDecoder::dataValues()
{
    QFETCH(QByteArray, item);
    QFETCH(quint32, param);
    QFETCH(quint32, type);
    QFETCH(quint32, decimals);
    QFETCH(qint32, value);

    Rig rig;
    rig.decoder.decode(textRecord(kId, quint8(param), "Var", "V"));
    rig.decoder.decode(dataRecord(kId, item));
    rig.decoder.flush();
    const QVector<TelemetryValue> values = rig.values(param);
    QCOMPARE(values.size(), 1);
    QCOMPARE(values[0].type, type);
    QCOMPARE(values[0].decimals, decimals);
    QCOMPARE(values[0].value, value);
    QCOMPARE(values[0].timestamp, 1000);
}

void tst_TelemetryDecoder::itemLimits_data()
{
    QTest::addColumn<QByteArray>("items");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("expected");

    // Three 2-byte items start at body offsets 0, 2 and 4.
    const QByteArray three("\x10\x01\x20\x02\x30\x03", 6);
    QTest::newRow("length 6 is too short") << three << 6 << 0;
    QTest::newRow("length 7 reads one") << three << 7 << 1;
    QTest::newRow("length 10 reads two") << three << 10 << 2;
    QTest::newRow("length 11 reads three") << three << 11 << 3;
    QTest::newRow("record ends first") << three << 63 << 3;

    QByteArray sixteen;
    for (int i = 0; i < 16; ++i)
        sixteen += QByteArray(1, char(((i % 3) + 1) << 4)) + QByteArray(1, char(i));
    QTest::newRow("at most 15 items") << sixteen << -1 << 15;

    QTest::newRow("value cut by the record") << QByteArray("\x10\x05\x28\x01\x02", 5) << 63 << 1;
    QTest::newRow("index byte cut by the record") << QByteArray("\x10\x05\x01", 3) << 63 << 1;
    QTest::newRow("empty body") << QByteArray() << 63 << 0;
}

void tst_TelemetryDecoder::itemLimits()
{
    QFETCH(QByteArray, items);
    QFETCH(int, length);
    QFETCH(int, expected);

    Rig rig;
    for (quint8 p = 1; p <= 3; ++p)
        rig.decoder.decode(textRecord(kId, p, "Var", ""));
    rig.decoder.decode(dataRecord(kId, items, length));
    rig.decoder.flush();
    QCOMPARE(rig.sampleCount(), expected);
}

void tst_TelemetryDecoder::textFrames_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("expected"); // label and unit; empty: the frame is refused

    auto body = [](int labelLength, int unitLength, const QByteArray &text) {
        return QByteArray(1, '\x05') + QByteArray(1, char((labelLength << 3) | unitLength)) + text;
    };
    const auto latin1 = [](const char *s) { return QString::fromLatin1(s); };
    QTest::newRow("plain") << body(7, 1, "VoltageV") << QStringList{"Voltage", "V"};
    QTest::newRow("no unit") << body(4, 0, "Mode") << QStringList{"Mode", ""};
    QTest::newRow("label 15 reads 14")
        << body(15, 1, "ABCDEFGHIJKLMNV") << QStringList{"ABCDEFGHIJKLMN", "V"};
    QTest::newRow("label 31 reads 14")
        << body(31, 2, "ABCDEFGHIJKLMNkm") << QStringList{"ABCDEFGHIJKLMN", "km"};
    QTest::newRow("unit B0") << body(4, 2, "Temp\xB0\x43") << QStringList{"Temp", latin1("\xB0\x43")};
    QTest::newRow("unit DF") << body(4, 1, "Temp\xDF") << QStringList{"Temp", latin1("\xDF")};
    QTest::newRow("edges of printable") << body(2, 1, " ~~") << QStringList{" ~", "~"};
    QTest::newRow("label 7F") << body(4, 1, "Te\x7FpV") << QStringList();
    QTest::newRow("label control") << body(4, 1, "Te\x1FpV") << QStringList();
    QTest::newRow("label B0") << body(4, 1, "Te\xB0pV") << QStringList();
    QTest::newRow("unit 80") << body(4, 1, "Temp\x80") << QStringList();
    QTest::newRow("unit cut") << body(4, 3, "TempV") << QStringList();
    QTest::newRow("label cut") << body(7, 0, "Volt") << QStringList();
    QTest::newRow("no length byte") << QByteArray(1, '\x05') << QStringList();
}

void tst_TelemetryDecoder::textFrames()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, expected);

    Rig rig;
    rig.decoder.decode(record(frame(0xFF, typeAndLength(0, body.size()), kId, body)));
    const TelemetrySensor *device = rig.store.package().device(kId);
    const TelemetryVar *var = device ? device->var(5) : nullptr;
    QCOMPARE(var != nullptr, !expected.isEmpty());
    if (var)
        QCOMPARE(QStringList({var->label(), var->unit()}), expected);
}

void tst_TelemetryDecoder::deviceNameAndRename()
{
    Rig rig;
    rig.decoder.decode(textRecord(kId, 0, "Rx", ""));
    rig.decoder.decode(textRecord(kId, 1, "Volt", "V"));
    rig.decoder.decode(textRecord(kId, 1, "Voltage", "mV"));
    const TelemetrySensor *device = rig.store.package().device(kId);
    QVERIFY(device);
    QCOMPARE(device->name(), QStringLiteral("Rx"));
    QCOMPARE(device->vars().size(), 1);
    QCOMPARE(device->vars()[0].label(), QStringLiteral("Voltage"));
    QCOMPARE(device->vars()[0].unit(), QStringLiteral("mV"));
}

void tst_TelemetryDecoder::undescribedVariable_data()
{
    QTest::addColumn<bool>("withTable");
    QTest::addColumn<bool>("deviceRow");
    QTest::addColumn<bool>("varRow");
    QTest::addColumn<bool>("stored");

    QTest::newRow("both rows") << true << true << true << true;
    QTest::newRow("no variable row") << true << true << false << false;
    QTest::newRow("no device row") << true << false << true << false;
    QTest::newRow("no table") << false << false << false << false;
}

void tst_TelemetryDecoder::undescribedVariable()
{
    QFETCH(bool, withTable);
    QFETCH(bool, deviceRow);
    QFETCH(bool, varRow);
    QFETCH(bool, stored);

    MemorySensorTable table;
    SensorRow row;
    row.id = kId;
    if (deviceRow) {
        row.label = QStringLiteral("Gps");
        table.insertDefaultSensor(row);
    }
    if (varRow) {
        row.param = 3;
        row.label = QStringLiteral("Altitude");
        row.unit = QStringLiteral("m");
        table.insertDefaultSensor(row);
    }
    Rig rig(withTable ? &table : nullptr);
    rig.decoder.decode(dataRecord(kId, QByteArray("\x30\x05\x40\x06", 4)));
    rig.decoder.flush();

    QCOMPARE(rig.sampleCount(), stored ? 1 : 0);
    // Nothing is stored for a value that could not be placed, not even half a description.
    QCOMPARE(rig.store.package().droppedValues(), 0);
    const TelemetrySensor *device = rig.store.package().device(kId);
    QCOMPARE(device != nullptr, stored);
    if (stored) {
        QCOMPARE(device->name(), QStringLiteral("Gps"));
        QCOMPARE(device->var(3)->label(), QStringLiteral("Altitude"));
        QCOMPARE(device->var(3)->unit(), QStringLiteral("m"));
        QCOMPARE(rig.values(3)[0].value, 5);
    }
}

void tst_TelemetryDecoder::variableBeforeDeviceTakesTableName()
{
    MemorySensorTable table;
    SensorRow row;
    row.id = kId;
    row.label = QStringLiteral("Vario");
    table.insertDefaultSensor(row);
    Rig rig(&table);
    rig.decoder.decode(textRecord(kId, 2, "Climb", "m/s"));
    const TelemetrySensor *device = rig.store.package().device(kId);
    QVERIFY(device);
    QCOMPARE(device->name(), QStringLiteral("Vario"));
    QVERIFY(device->var(2));
}

void tst_TelemetryDecoder::nothingWithoutRecording()
{
    Rig rig(nullptr, false);
    rig.decoder.setSessionStart(0);
    rig.decoder.decode(textRecord(kId, 1, "Volt", "V"));
    rig.decoder.decode(dataRecord(kId, QByteArray("\x10\x05", 2)));
    QCOMPARE(rig.decoder.pendingSamples(), 0);
    rig.decoder.flush();
    QCOMPARE(rig.sampleCount(), 0);
    // Descriptions still arrive, and the session is not started by data that was not kept.
    QVERIFY(rig.store.package().device(kId));
    QCOMPARE(rig.decoder.sessionStart(), qint64(0));
}

void tst_TelemetryDecoder::ignoredRecords_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("counted");

    const QByteArray data = dataRecord(kId, QByteArray("\x10\x05", 2));
    QTest::newRow("empty") << QByteArray() << false;
    QTest::newRow("stamp and two frame bytes") << data.left(10) << false;
    QTest::newRow("no 7E") << QByteArray(data).replace(8, 1, "\x7F") << false;
    QTest::newRow("id byte A5") << dataRecord(0x1234A501u, QByteArray("\x10\x05", 2)) << true;
    QTest::newRow("id byte 00") << dataRecord(0x00000001u, QByteArray("\x10\x05", 2)) << true;
    QTest::newRow("id cut") << data.left(8 + 5) << true;
    QTest::newRow("frame type 3") << record(frame(0xFF, 0xC0 | 8, kId, QByteArray("\x10\x05", 2))) << true;
    QTest::newRow("other marker without #")
        << record(frame(0x0E, typeAndLength(1, 2), kId, "\x10\x05")) << true;
}

void tst_TelemetryDecoder::ignoredRecords()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, counted);

    MemorySensorTable table;
    for (quint32 id : {kId, 0x1234A501u, 0x00000001u}) {
        SensorRow row;
        row.id = id;
        row.label = QStringLiteral("Dev");
        table.insertDefaultSensor(row);
        row.param = 1;
        table.insertDefaultSensor(row);
    }
    Rig rig(&table);
    QSignalSpy messages(&rig.decoder, &TelemetryDecoder::messageReceived);
    rig.decoder.decode(bytes);
    rig.decoder.flush();
    QCOMPARE(rig.decoder.decodedRecords(), counted ? 1 : 0);
    QVERIFY(rig.store.package().isEmpty());
    QCOMPARE(messages.count(), 0);
}

void tst_TelemetryDecoder::alarms_data()
{
    QTest::addColumn<bool>("logging");
    QTest::addColumn<bool>("muted");

    QTest::newRow("recording") << true << false;
    QTest::newRow("not recording") << false << false;
    QTest::newRow("recording muted") << true << true;
}

void tst_TelemetryDecoder::alarms()
{
    QFETCH(bool, logging);
    QFETCH(bool, muted);

    Rig rig(nullptr, logging);
    rig.decoder.setMuted(muted);
    QSignalSpy spy(&rig.decoder, &TelemetryDecoder::messageReceived);
    rig.decoder.decode(alarmRecord('A', 0x00, kT0 + 500));

    QCOMPARE(spy.count(), muted ? 0 : 1);
    if (!muted) {
        const auto message = spy.at(0).at(0).value<TelemetryMessage>();
        QCOMPARE(message.text, QStringLiteral("Alarm: A"));
        QCOMPARE(message.alarm, quint8('A'));
    }
    const QList<TelemetryMessage> &stored = rig.store.package().messages();
    QCOMPARE(stored.size(), logging ? 1 : 0);
    if (logging) {
        QVERIFY(stored[0].isAlarm());
        QCOMPARE(stored[0].alarm, quint8('A'));
        QCOMPARE(stored[0].type, TelemetryMessage::kAlarmType);
        QCOMPARE(stored[0].value, qint32('A'));
        QCOMPARE(stored[0].timestamp, 1500);
    }
}

void tst_TelemetryDecoder::messages_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("logging");
    QTest::addColumn<bool>("delivered");
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint32>("type");
    QTest::addColumn<qint32>("value");

    const QByteArray hello = QStringLiteral("  Hello \u00FC ").toUtf8();
    QTest::newRow("recording") << messageRecord(kId, 3, 5, hello) << true << true
                               << QStringLiteral("Hello \u00FC") << 3 << 5;
    QTest::newRow("not recording") << messageRecord(kId, 3, 5, hello) << false << true
                                   << QStringLiteral("Hello \u00FC") << 3 << 5;
    QTest::newRow("kind 7 stays a plain message")
        << messageRecord(kId, 7, 1, "Low") << true << true << "Low" << 2 << 1;
    QTest::newRow("text cut") << messageRecord(kId, 3, 5, "Hello", 9) << true << false << "" << 0 << 0;
    QTest::newRow("only spaces") << messageRecord(kId, 3, 5, "   ") << true << false << "" << 0 << 0;
    QTest::newRow("id byte A5") << messageRecord(0x1234A501u, 3, 5, "Hello") << true << false << "" << 0 << 0;
}

void tst_TelemetryDecoder::messages()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, logging);
    QFETCH(bool, delivered);
    QFETCH(QString, text);
    QFETCH(qint32, type);
    QFETCH(qint32, value);

    Rig rig(nullptr, logging);
    QSignalSpy spy(&rig.decoder, &TelemetryDecoder::messageReceived);
    rig.decoder.decode(bytes);
    QCOMPARE(spy.count(), delivered ? 1 : 0);
    const QList<TelemetryMessage> &stored = rig.store.package().messages();
    QCOMPARE(stored.size(), delivered && logging ? 1 : 0);
    if (!delivered)
        return;
    const auto message = spy.at(0).at(0).value<TelemetryMessage>();
    QList<TelemetryMessage> seen{message};
    if (logging)
        seen.append(stored[0]);
    for (const TelemetryMessage &m : seen) {
        QCOMPARE(m.text, text);
        QCOMPARE(m.type, type);
        QCOMPARE(m.value, value);
        QCOMPARE(m.deviceId, kId);
        QVERIFY(!m.isAlarm());
        QCOMPARE(m.timestamp, 1000);
    }
}

void tst_TelemetryDecoder::timeOffsets_data()
{
    QTest::addColumn<qint64>("start");
    QTest::addColumn<qint64>("time");
    QTest::addColumn<qint32>("offset");

    QTest::newRow("after start") << kT0 << kT0 + 1234 << 1234;
    QTest::newRow("at start is clamped") << kT0 << kT0 << 1;
    QTest::newRow("before start is clamped") << kT0 << kT0 - 5000 << 1;
    QTest::newRow("no start: just after") << qint64(0) << kT0 << 1;
    QTest::newRow("far future") << qint64(1) << kT0 << std::numeric_limits<qint32>::max();
    QTest::newRow("far past") << kT0 << std::numeric_limits<qint64>::min() << 1;
    QTest::newRow("negative start") << qint64(-5) << std::numeric_limits<qint64>::max()
                                    << std::numeric_limits<qint32>::max();
}

void tst_TelemetryDecoder::timeOffsets()
{
    QFETCH(qint64, start);
    QFETCH(qint64, time);
    QFETCH(qint32, offset);

    Rig rig;
    rig.decoder.setSessionStart(start);
    rig.decoder.decode(textRecord(kId, 1, "Volt", "V"));
    rig.decoder.decode(dataRecord(kId, QByteArray("\x10\x05", 2), -1, time));
    rig.decoder.flush();
    const QVector<TelemetryValue> values = rig.values(1);
    QCOMPARE(values.size(), 1);
    QCOMPARE(values[0].timestamp, offset);
}

void tst_TelemetryDecoder::sessionStartsWithFirstData()
{
    Rig rig;
    rig.decoder.setSessionStart(0);
    rig.decoder.decode(textRecord(kId, 1, "Volt", "V"));
    QCOMPARE(rig.decoder.sessionStart(), qint64(0));
    rig.decoder.decode(dataRecord(kId, QByteArray("\x10\x05", 2), -1, kT0));
    QCOMPARE(rig.decoder.sessionStart(), kT0 - 1);
    rig.decoder.decode(dataRecord(kId, QByteArray("\x10\x06", 2), -1, kT0 + 250));
    rig.decoder.flush();
    const QVector<TelemetryValue> values = rig.values(1);
    QCOMPARE(values.size(), 2);
    QCOMPARE(values[0].timestamp, 1);
    QCOMPARE(values[1].timestamp, 251);
}

void tst_TelemetryDecoder::batching()
{
    Rig rig;
    rig.decoder.decode(textRecord(kId, 1, "Volt", "V"));
    rig.decoder.decode(textRecord(kId, 2, "Amp", "A"));
    QSignalSpy spy(&rig.store, &TelemetryData::valueAdded);
    for (int i = 0; i < 5; ++i)
        rig.decoder.decode(dataRecord(kId, QByteArray("\x10\x05\x20\x06", 4), -1, kT0 + i));
    QCOMPARE(spy.count(), 0);
    QCOMPARE(rig.sampleCount(), 0);
    QCOMPARE(rig.decoder.pendingSamples(), 10);
    rig.decoder.flush();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(rig.sampleCount(), 10);
    QCOMPARE(rig.decoder.pendingSamples(), 0);
    rig.decoder.flush();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(rig.decoder.decodedRecords(), qint64(7));
}

void tst_TelemetryDecoder::zeroIntervalFlushesPerRecord()
{
    Rig rig;
    rig.decoder.decode(textRecord(kId, 1, "Volt", "V"));
    rig.decoder.decode(dataRecord(kId, QByteArray("\x10\x05", 2)));
    QSignalSpy spy(&rig.store, &TelemetryData::valueAdded);
    // Switching to 0 hands over what was gathered.
    rig.decoder.setBatchInterval(0);
    QCOMPARE(spy.count(), 1);
    for (int i = 0; i < 3; ++i)
        rig.decoder.decode(dataRecord(kId, QByteArray("\x10\x05\x10\x06", 4)));
    QCOMPARE(spy.count(), 4);
    QCOMPARE(rig.sampleCount(), 7);
}

QTEST_GUILESS_MAIN(tst_TelemetryDecoder)
#include "tst_TelemetryDecoder.moc"
