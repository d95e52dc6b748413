#include "link/TelemetryDecoder.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryMetaTypes.h"

#include <QSignalSpy>
#include <QtEndian>
#include <QtTest>

namespace {
// The second byte of the identifier is 0xA4: an unscrambled body.
constexpr quint32 kId = 0x1234A401u;
constexpr qint64 kT0 = 1700000000000;

// A record: receive time, then a telemetry frame of the given type; length < 0: the length field
// covers exactly the body given.
QByteArray record(int type, const QByteArray &body, quint32 id = kId, qint64 time = kT0, int length = -1)
{
    QByteArray r(16, '\0');
    qToLittleEndian<qint64>(time, r.data());
    r[8] = '\x7E';
    r[9] = '\xFF';
    r[10] = char((type << 6) | (length < 0 ? qMin(63, body.size() + 6) : length & 0x3F));
    qToLittleEndian<quint32>(id, r.data() + 11);
    return r + body;
}

QByteArray textRecord(quint8 index, const QByteArray &label, const QByteArray &unit = "", quint32 id = kId)
{
    return record(0, QByteArray(1, char(index)) + char((label.size() << 3) | unit.size()) + label + unit, id);
}

QByteArray messageRecord(quint8 kind, quint8 messageClass, const QByteArray &text, int length = -1,
                         quint32 id = kId)
{
    const int n = length < 0 ? text.size() : length;
    return record(2, QByteArray(1, char(kind)) + char((messageClass << 5) | (n & 0x1F)) + text, id);
}

QString describe(const TelemetryMessage &m)
{
    return QString::asprintf("%s|%d|%d|%x|%d|%d", m.text.toUtf8().constData(), m.type, m.value, m.deviceId,
                             m.alarm, m.timestamp);
}

void addRow(MemorySensorTable &table, quint32 param, const char *label, const char *unit = "",
            quint32 id = kId)
{
    SensorRow row;
    row.id = id;
    row.param = param;
    row.label = QString::fromLatin1(label);
    row.unit = QString::fromLatin1(unit);
    table.insertDefaultSensor(row);
}

// A store that is recording, with a decoder that hands every record's samples over at once unless told.
struct Rig
{
    explicit Rig(SensorTable *table = nullptr, bool logging = true) : decoder(&store, table)
    {
        store.setLogging(logging);
        decoder.setSessionStart(kT0 - 1000);
    }
    QVector<TelemetryValue> values(quint32 param) const
    {
        const TelemetrySensor *device = store.package().device(kId);
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
    void descriptions_data();
    void descriptions();
    void ignoredRecords_data();
    void ignoredRecords();
    void messages_data();
    void messages();
    void timeOffsets_data();
    void timeOffsets();
    void batching();
};

void tst_TelemetryDecoder::dataValues_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<quint32>("param");
    QTest::addColumn<QList<qint64>>("expected"); // type, decimals, value

    const auto row = [](const char *name, const QByteArray &item, quint32 param, QList<qint64> expected) {
        QTest::newRow(name) << item << param << expected;
    };
    row("t0 positive", QByteArray("\x10\x25", 2), 1, {0, 1, 5});
    row("t0 BF is -0.1", QByteArray("\x10\xBF", 2), 1, {0, 1, -1});
    row("t0 sign only", QByteArray("\x10\x80", 2), 1, {0, 0, -32});
    row("t1 3412 is 4660", QByteArray("\x21\x34\x12", 3), 2, {1, 0, 4660});
    row("t1 sign only", QByteArray("\x21\x00\x80", 3), 2, {1, 0, -8192});
    row("t2 skipped", QByteArray("\x32\xAB\xCD", 3), 3, {2, 0, 0});
    row("t4 decimals", QByteArray("\x44\x64\x00\x20", 4), 4, {4, 1, 100});
    row("t7 sign only", QByteArray("\x47\x00\x00\x80", 4), 4, {7, 0, -2097152});
    row("t8 FFFFFFFF is -0.001", QByteArray("\x58\xFF\xFF\xFF\xFF", 5), 5, {8, 3, -1});
    row("t9 largest", QByteArray("\x59\xFF\xFF\xFF\x1F", 5), 5, {9, 0, 536870911});
    row("t11 sign only", QByteArray("\x5B\x00\x00\x00\x80", 5), 5, {11, 0, -536870912});
    row("t12 signed", QByteArray("\x6C\xFE\xFF\xFF\xFF\x40", 6), 6, {12, 2, -2});
    row("t12 fifth byte other bits", QByteArray("\x6C\x07\x00\x00\x00\x9F", 6), 6, {12, 0, 7});
    row("index 200 in next byte", QByteArray("\x00\xC8\x25", 3), 200, {0, 1, 5});
}

void tst_TelemetryDecoder::dataValues()
{
    QFETCH(QByteArray, item);
    QFETCH(quint32, param);
    QFETCH(QList<qint64>, expected);

    Rig rig;
    rig.decoder.decode(textRecord(quint8(param), "Var", "V"));
    rig.decoder.decode(record(1, item));
    rig.decoder.flush();
    const QVector<TelemetryValue> values = rig.values(param);
    QCOMPARE(values.size(), 1);
    QCOMPARE(QList<qint64>({values[0].type, values[0].decimals, values[0].value, values[0].timestamp}),
             expected + QList<qint64>{1000});
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

    QByteArray sixteen;
    for (int i = 0; i < 16; ++i)
        sixteen += QByteArray(1, char(((i % 3) + 1) << 4)) + char(i);
    QTest::newRow("at most 15 items") << sixteen << -1 << 15;

    QTest::newRow("value cut by the record") << QByteArray("\x10\x05\x28\x01\x02", 5) << 63 << 1;
    QTest::newRow("index byte cut by the record") << QByteArray("\x10\x05\x01", 3) << 63 << 1;
}

void tst_TelemetryDecoder::itemLimits()
{
    QFETCH(QByteArray, items);
    QFETCH(int, length);
    QFETCH(int, expected);

    Rig rig;
    for (quint8 p = 1; p <= 3; ++p)
        rig.decoder.decode(textRecord(p, "Var"));
    rig.decoder.decode(record(1, items, kId, kT0, length));
    rig.decoder.flush();
    QCOMPARE(rig.sampleCount(), expected);
}

void tst_TelemetryDecoder::textFrames_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("expected"); // label and unit; empty: the frame is refused

    auto body = [](int labelLength, int unitLength, const QByteArray &text) {
        return QByteArray(1, '\x05') + char((labelLength << 3) | unitLength) + text;
    };
    const auto latin1 = [](const char *s) { return QString::fromLatin1(s); };
    QTest::newRow("plain") << body(7, 1, "VoltageV") << QStringList{"Voltage", "V"};
    QTest::newRow("no unit") << body(4, 0, "Mode") << QStringList{"Mode", ""};
    QTest::newRow("label 15 reads 14")
        << body(15, 1, "ABCDEFGHIJKLMNV") << QStringList{"ABCDEFGHIJKLMN", "V"};
    QTest::newRow("unit B0") << body(4, 2, "Temp\xB0\x43") << QStringList{"Temp", latin1("\xB0\x43")};
    QTest::newRow("unit DF") << body(4, 1, "Temp\xDF") << QStringList{"Temp", latin1("\xDF")};
    QTest::newRow("edges of printable") << body(2, 1, " ~~") << QStringList{" ~", "~"};
    QTest::newRow("label 7F") << body(4, 1, "Te\x7FpV") << QStringList();
    QTest::newRow("label control") << body(4, 1, "Te\x1FpV") << QStringList();
    QTest::newRow("label B0") << body(4, 1, "Te\xB0pV") << QStringList();
    QTest::newRow("unit 80") << body(4, 1, "Temp\x80") << QStringList();
    QTest::newRow("unit cut") << body(4, 3, "TempV") << QStringList();
    QTest::newRow("no length byte") << QByteArray(1, '\x05') << QStringList();
}

void tst_TelemetryDecoder::textFrames()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, expected);

    Rig rig;
    rig.decoder.decode(record(0, body));
    const TelemetrySensor *device = rig.store.package().device(kId);
    const TelemetryVar *var = device ? device->var(5) : nullptr;
    QCOMPARE(var ? QStringList({var->label(), var->unit()}) : QStringList(), expected);
}

void tst_TelemetryDecoder::descriptions_data()
{
    // d: the table names the device, v: it describes variable 3, -: no table; n: not recording
    QTest::addColumn<QString>("table");
    QTest::addColumn<QList<QByteArray>>("records");
    QTest::addColumn<QString>("expected"); // device name, then label and unit of each variable
    QTest::addColumn<int>("samples");

    // Values for variables 3 and 4 without any description.
    const QList<QByteArray> data{record(1, QByteArray("\x30\x05\x40\x06", 4))};
    QTest::newRow("data: both from the table") << "dv" << data << "Gps/Altitude/m" << 1;
    // Nothing is stored for a value that could not be placed, not even half a description.
    QTest::newRow("data: no variable row") << "d" << data << "" << 0;
    QTest::newRow("data: no device row") << "v" << data << "" << 0;
    QTest::newRow("data: no table") << "-" << data << "" << 0;
    QTest::newRow("text: device named from the table")
        << "d" << QList<QByteArray>{textRecord(3, "Climb", "m/s")} << "Gps/Climb/m/s" << 0;
    QTest::newRow("text: named, then renamed")
        << "-"
        << QList<QByteArray>{textRecord(0, "Rx"), textRecord(3, "Volt", "V"), textRecord(3, "Altitude", "m")}
        << "Rx/Altitude/m" << 0;
    // Descriptions still arrive; values are not kept.
    QTest::newRow("not recording") << "n" << QList<QByteArray>{textRecord(3, "Climb", "m/s"), data[0]}
                                   << "Sensor/Climb/m/s" << 0;
}

void tst_TelemetryDecoder::descriptions()
{
    QFETCH(QString, table);
    QFETCH(QList<QByteArray>, records);
    QFETCH(QString, expected);
    QFETCH(int, samples);

    MemorySensorTable sensors;
    if (table.contains('d'))
        addRow(sensors, 0, "Gps");
    if (table.contains('v'))
        addRow(sensors, 3, "Altitude", "m");
    Rig rig(table == "-" ? nullptr : &sensors, !table.contains('n'));
    rig.decoder.setSessionStart(0);
    for (const QByteArray &r : records)
        rig.decoder.decode(r);
    QCOMPARE(rig.decoder.pendingSamples(), samples);
    rig.decoder.flush();
    QCOMPARE(rig.sampleCount(), samples);
    // A data frame while recording starts the session; descriptions, and data not kept, do not.
    bool data = false;
    for (const QByteArray &r : records)
        data = data || quint8(r.at(10)) >> 6 == 1;
    QCOMPARE(rig.decoder.sessionStart() != 0, data && !table.contains('n'));
    QCOMPARE(rig.store.package().droppedValues(), 0);
    QStringList seen;
    if (const TelemetrySensor *device = rig.store.package().device(kId)) {
        seen << device->name();
        for (const TelemetryVar &var : device->vars())
            seen << var.label() << var.unit();
    }
    QCOMPARE(seen.join('/'), expected);
}

void tst_TelemetryDecoder::ignoredRecords_data()
{
    QTest::addColumn<QByteArray>("bytes");

    const QByteArray item("\x10\x05", 2);
    const QByteArray data = record(1, item);
    QTest::newRow("no 7E") << QByteArray(data).replace(8, 1, "\x7F");
    QTest::newRow("id byte A5") << record(1, item, 0x1234A501u);
    QTest::newRow("id cut") << data.left(8 + 5);
    QTest::newRow("frame type 3") << record(3, item);
    QTest::newRow("other marker without #") << QByteArray(data).replace(9, 1, "\x0E");
}

void tst_TelemetryDecoder::ignoredRecords()
{
    QFETCH(QByteArray, bytes);

    MemorySensorTable table;
    for (quint32 id : {kId, 0x1234A501u}) {
        addRow(table, 0, "Dev", "", id);
        addRow(table, 1, "Dev", "", id);
    }
    Rig rig(&table);
    QSignalSpy messages(&rig.decoder, &TelemetryDecoder::messageReceived);
    rig.decoder.decode(bytes);
    rig.decoder.flush();
    QVERIFY(rig.store.package().isEmpty());
    QCOMPARE(messages.count(), 0);
}

void tst_TelemetryDecoder::messages_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("logging");
    QTest::addColumn<bool>("muted");
    QTest::addColumn<QString>("expected"); // text|type|value|device|alarm|time; empty: not delivered

    const QByteArray alarm = record(0, "", kId, kT0 + 500).left(8) + QByteArray("\x7E\x00#A", 4);
    const QString alarmSaid = QStringLiteral("Alarm: A|7|65|0|65|1500");
    QTest::newRow("alarm recording") << alarm << true << false << alarmSaid;
    QTest::newRow("alarm not recording") << alarm << false << false << alarmSaid;
    QTest::newRow("alarm recording muted") << alarm << true << true << alarmSaid;
    const QByteArray hello = QStringLiteral("  Hello \u00FC ").toUtf8();
    const QString said = QStringLiteral("Hello \u00FC|3|5|1234a401|0|1000");
    QTest::newRow("recording") << messageRecord(3, 5, hello) << true << false << said;
    QTest::newRow("not recording") << messageRecord(3, 5, hello) << false << false << said;
    QTest::newRow("kind 7 stays a plain message")
        << messageRecord(7, 1, "Low") << true << false << QStringLiteral("Low|2|1|1234a401|0|1000");
    QTest::newRow("text cut") << messageRecord(3, 5, "Hello", 9) << true << false << QString();
    QTest::newRow("only spaces") << messageRecord(3, 5, "   ") << true << false << QString();
    QTest::newRow("id byte A5") << messageRecord(3, 5, "Hello", -1, 0x1234A501u) << true << false
                                << QString();
}

void tst_TelemetryDecoder::messages()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, logging);
    QFETCH(bool, muted);
    QFETCH(QString, expected);

    Rig rig(nullptr, logging);
    rig.decoder.setMuted(muted);
    QSignalSpy spy(&rig.decoder, &TelemetryDecoder::messageReceived);
    rig.decoder.decode(bytes);
    QStringList seen;
    for (const QList<QVariant> &signal : spy)
        seen << describe(signal.at(0).value<TelemetryMessage>());
    for (const TelemetryMessage &m : rig.store.package().messages())
        seen << describe(m);
    // Muting silences the announcement only; the store keeps what it records.
    QStringList want;
    for (bool kept : {!muted, logging})
        want << (kept && !expected.isEmpty() ? QStringList{expected} : QStringList());
    QCOMPARE(seen, want);
}

void tst_TelemetryDecoder::timeOffsets_data()
{
    QTest::addColumn<qint64>("start");
    QTest::addColumn<QList<qint64>>("times");
    QTest::addColumn<QList<qint32>>("offsets");

    QTest::newRow("after start") << kT0 << QList<qint64>{kT0 + 1234} << QList<qint32>{1234};
    QTest::newRow("at start is clamped") << kT0 << QList<qint64>{kT0} << QList<qint32>{1};
    // The session starts just before the first data, not with the description that came earlier.
    QTest::newRow("no start: first data")
        << qint64(0) << QList<qint64>{kT0, kT0 + 250} << QList<qint32>{1, 251};
    QTest::newRow("far future") << qint64(1) << QList<qint64>{kT0} << QList<qint32>{INT_MAX};
    QTest::newRow("far past") << kT0 << QList<qint64>{LLONG_MIN} << QList<qint32>{1};
    QTest::newRow("negative start") << qint64(-5) << QList<qint64>{LLONG_MAX} << QList<qint32>{INT_MAX};
}

void tst_TelemetryDecoder::timeOffsets()
{
    QFETCH(qint64, start);
    QFETCH(QList<qint64>, times);
    QFETCH(QList<qint32>, offsets);

    Rig rig;
    rig.decoder.setSessionStart(start);
    rig.decoder.decode(record(0, QByteArray("\x01\x20Volt", 6), kId, kT0 - 5000));
    for (qint64 time : times)
        rig.decoder.decode(record(1, QByteArray("\x10\x05", 2), kId, time));
    rig.decoder.flush();
    QList<qint32> seen;
    for (const TelemetryValue &v : rig.values(1))
        seen << v.timestamp;
    QCOMPARE(seen, offsets);
}

void tst_TelemetryDecoder::batching()
{
    Rig rig;
    rig.decoder.decode(textRecord(1, "Volt", "V"));
    rig.decoder.decode(textRecord(2, "Amp", "A"));
    QSignalSpy spy(&rig.store, &TelemetryData::valueAdded);
    for (int i = 0; i < 5; ++i)
        rig.decoder.decode(record(1, QByteArray("\x10\x05\x20\x06", 4), kId, kT0 + i));
    QCOMPARE(spy.count(), 0);
    rig.decoder.flush();
    rig.decoder.flush(); // nothing left: no second announcement
    QCOMPARE(QList<int>({spy.count(), rig.sampleCount()}), QList<int>({1, 10}));
    // Switching to 0 hands over what was gathered, then every record on its own.
    rig.decoder.decode(record(1, QByteArray("\x10\x05", 2)));
    rig.decoder.setBatchInterval(0);
    rig.decoder.decode(record(1, QByteArray("\x10\x05", 2)));
    QCOMPARE(QList<int>({spy.count(), rig.sampleCount()}), QList<int>({3, 12}));
}

QTEST_GUILESS_MAIN(tst_TelemetryDecoder)
#include "tst_TelemetryDecoder.moc"
