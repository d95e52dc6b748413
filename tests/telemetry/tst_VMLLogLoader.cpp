#include "telemetry/VMLLogLoader.h"

#include <QBuffer>
#include <QTextCodec>
#include <QtTest>

#include <cstring>

namespace {
constexpr quint32 kRx = 1u | (2u << 16);

struct Loaded
{
    bool ok = false;
    QString error;
    TelemetryDataPackage package;
    LogReadReport report;
};

Loaded load(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    VMLLogLoader loader;
    Loaded r;
    r.ok = loader.load(&buffer, &r.package);
    r.error = loader.lastError();
    r.report = loader.readReport();
    return r;
}

QByteArray doc(const QByteArray &body)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<vml>\n" + body + "\n</vml>\n";
}

const QByteArray kRxStorage = "<dataStorage dataStorageID=\"0000100002\" name=\"Rx\">"
                              "<attrDescription attrID=\"1\" name=\"Voltage\" units=\"V\"/>"
                              "<attrDescription attrID=\"2\" name=\"Speed\" units=\"m/s\"/>";

const TelemetryVar *var(const TelemetryDataPackage &p, quint32 id, quint32 param)
{
    const TelemetrySensor *d = p.device(id);
    return d ? d->var(param) : nullptr;
}

QString values(const TelemetryVar *v)
{
    QStringList out;
    if (v)
        for (const TelemetryValue &x : v->values())
            out << QStringLiteral("%1/%2/%3/%4").arg(x.timestamp).arg(x.type).arg(x.decimals).arg(x.value);
    return out.join(QLatin1Char(' '));
}

// Claims a size beyond the limit without holding it; as a stream it is only seen to be too large while
// reading.
class HugeDevice : public QIODevice
{
public:
    explicit HugeDevice(bool sequential) : m_sequential(sequential) {}
    qint64 size() const override { return VMLLogLoader::kMaxBytes + 1; }
    bool isSequential() const override { return m_sequential; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        std::memset(data, ' ', size_t(maxSize));
        return maxSize;
    }
    qint64 writeData(const char *, qint64) override { return -1; }
    bool m_sequential;
};

} // namespace

class tst_VMLLogLoader : public QObject
{
    Q_OBJECT
private slots:
    void entityTakesTheStorageId();
    void storageWithoutDescriptions();
    void elementsWhereverTheyStand();
    void declaredEncoding();
    void refused_data();
    void refused();
    void oversizedInput();
    void damagedEntitiesCounted();
};

// Entities go through the native reader's line parser (tested with that reader) under the storage's id.
void tst_VMLLogLoader::entityTakesTheStorageId()
{
    const Loaded r =
        load(doc(kRxStorage + "<entity plainData=\"1000;1;1;0;300\"/>"
                              "<entity plainData=\"1100;1;1;2;512;2;12;1;-35\"/>"
                              "<entity plainData=\"1200;15;16;0;Low battery;2;0\"/></dataStorage>"));
    QVERIFY2(r.ok, qPrintable(r.error));
    QCOMPARE(r.package.devices().size(), 1);
    QCOMPARE(r.package.devices().at(0).name(), QStringLiteral("Rx"));
    QCOMPARE(values(var(r.package, kRx, 1)), QStringLiteral("1000/1/0/300 1100/1/2/512"));
    QCOMPARE(values(var(r.package, kRx, 2)), QStringLiteral("1100/12/1/-35"));
    QCOMPARE(var(r.package, kRx, 1)->label() + var(r.package, kRx, 1)->unit(), QStringLiteral("VoltageV"));
    QCOMPARE(r.package.messages().size(), 1);
    QCOMPARE(r.package.messages().at(0).text, QStringLiteral("Low battery"));
    QCOMPARE(r.package.messages().at(0).deviceId, kRx);
    QCOMPARE(r.package.firstTimestamp(), 1000);
}

void tst_VMLLogLoader::storageWithoutDescriptions()
{
    const Loaded r = load(doc("<dataStorage dataStorageID=\"0000100002\" name=\"Rx\"/>"
                              "<dataStorage dataStorageID=\"0000300004\" name=\"Vario\">"
                              "<entity plainData=\"1000;1;1;0;5\"/></dataStorage>"));
    QVERIFY(r.ok);
    QCOMPARE(r.package.devices().size(), 2);
    QVERIFY(r.package.devices().at(0).vars().isEmpty());
    QVERIFY(r.package.devices().at(1).vars().isEmpty());
    // A value of an undescribed variable has nothing to be shown by.
    QCOMPARE(r.package.droppedValues(), 1);
}

void tst_VMLLogLoader::elementsWhereverTheyStand()
{
    // Wrappers, a prefix, descriptions after the entities that use them, a storage inside another
    // (its elements are its own), and a repeated storage that adds to the first.
    const Loaded r =
        load(doc("<storages><v:dataStorage xmlns:v=\"urn:x\" dataStorageID=\"0000100002\" name=\"Rx\">"
                 "<values><entity plainData=\"1000;1;1;0;300\"/></values>"
                 "<dataStorage dataStorageID=\"0000300004\" name=\"Inner\">"
                 "<attrDescription attrID=\"1\" name=\"Alt\" units=\"m\"/>"
                 "<entity plainData=\"1500;1;12;1;1234\"/></dataStorage>"
                 "<descriptions><v:attrDescription attrID=\"1\" name=\"Voltage\" units=\"V\"/>"
                 "</descriptions></v:dataStorage></storages>"
                 "<dataStorage dataStorageID=\"0000100002\" name=\"Again\">"
                 "<entity plainData=\"2000;1;1;0;301\"/></dataStorage>"));
    QVERIFY2(r.ok, qPrintable(r.error));
    QCOMPARE(r.package.devices().size(), 2);
    QCOMPARE(r.package.device(kRx)->name(), QStringLiteral("Rx"));
    QCOMPARE(values(var(r.package, kRx, 1)), QStringLiteral("1000/1/0/300 2000/1/0/301"));
    const quint32 inner = 3u | (4u << 16);
    QCOMPARE(values(var(r.package, inner, 1)), QStringLiteral("1500/12/1/1234"));
    QCOMPARE(r.package.droppedValues(), 0);
}

void tst_VMLLogLoader::declaredEncoding()
{
    const QString text = QStringLiteral("<?xml version=\"1.0\" encoding=\"windows-1250\"?>\n"
                                        "<vml><dataStorage dataStorageID=\"0000100002\" name=\"Přijímač\">"
                                        "<attrDescription attrID=\"1\" name=\"Napětí\" units=\"V\"/>"
                                        "</dataStorage></vml>");
    const Loaded r = load(QTextCodec::codecForName("Windows-1250")->fromUnicode(text));
    QVERIFY2(r.ok, qPrintable(r.error));
    QCOMPARE(r.package.devices().at(0).name(), QStringLiteral("Přijímač"));
    QCOMPARE(var(r.package, kRx, 1)->label(), QStringLiteral("Napětí"));
}

void tst_VMLLogLoader::refused_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QString>("mentions");

    QByteArray laughs = "<?xml version=\"1.0\"?>\n<!DOCTYPE vml [\n<!ENTITY lol0 \"lol\">\n";
    for (int i = 1; i <= 9; ++i)
        laughs += "<!ENTITY lol" + QByteArray::number(i) + " \"" +
                  QByteArray("&lol" + QByteArray::number(i - 1) + ";").repeated(10) + "\">\n";
    laughs += "]>\n<vml><dataStorage dataStorageID=\"1\" name=\"&lol9;\"/></vml>\n";
    QTest::newRow("billion laughs") << laughs << "entities";

    const QByteArray quadratic = "<?xml version=\"1.0\"?>\n<!DOCTYPE vml [<!ENTITY a \"" +
                                 QByteArray(50000, 'a') +
                                 "\">]>\n<vml><dataStorage dataStorageID=\"1\" name=\"x\">" +
                                 QByteArray("&a;").repeated(50000) + "</dataStorage></vml>";
    QTest::newRow("quadratic blow-up") << quadratic << "entities";

    QTest::newRow("100 000 nested elements")
        << doc(QByteArray("<a>").repeated(100000) + QByteArray("</a>").repeated(100000)) << "nested";
    QTest::newRow("external entity") << QByteArray(
                                            "<?xml version=\"1.0\"?>\n<!DOCTYPE vml [<!ENTITY x SYSTEM "
                                            "\"file:///etc/passwd\">]>\n<vml>&x;</vml>")
                                     << "entities";
    QTest::newRow("parameter entity")
        << QByteArray("<!DOCTYPE vml [<!ENTITY % p \"<!ENTITY q 'x'>\"> %p;]><vml/>") << "";
    QTest::newRow("undeclared entity") << doc("<dataStorage dataStorageID=\"1\" name=\"&nope;\"/>") << "nope";
    QTest::newRow("not well-formed") << doc("<dataStorage dataStorageID=\"1\"></entity>") << "line";
    QTest::newRow("not XML") << QByteArray("000000000;0000100002;0;Rx; \n") << "XML";
    QTest::newRow("empty") << QByteArray() << "empty";
    QTest::newRow("no dataStorage") << doc("<something/>") << "dataStorage";
}

void tst_VMLLogLoader::refused()
{
    QFETCH(QByteArray, input);
    QFETCH(QString, mentions);
    const Loaded r = load(input);
    QVERIFY(!r.ok);
    QVERIFY(r.package.devices().isEmpty());
    QVERIFY(r.package.messages().isEmpty());
    QVERIFY2(r.error.contains(mentions, Qt::CaseInsensitive), qPrintable(r.error));
}

void tst_VMLLogLoader::oversizedInput()
{
    for (const bool sequential : {false, true}) {
        TelemetryDataPackage p;
        HugeDevice huge(sequential);
        huge.open(QIODevice::ReadOnly);
        VMLLogLoader loader;
        QVERIFY(!loader.load(&huge, &p));
        QVERIFY2(loader.lastError().contains(QLatin1String("too large")), qPrintable(loader.lastError()));
        QVERIFY(p.devices().isEmpty());
    }
}

void tst_VMLLogLoader::damagedEntitiesCounted()
{
    // doc() puts the body on line 3: here one element a line, from line 3 to line 10.
    const Loaded r = load(doc("<dataStorage dataStorageID=\"0000100002\" name=\"Rx\">\n"
                              "<attrDescription attrID=\"1\" name=\"Voltage\" units=\"V\"/>\n"
                              "<attrDescription attrID=\"one\" name=\"Speed\" units=\"m/s\"/>\n"
                              "<entity plainData=\"1000;1;1;0;300\"/>\n"
                              "<entity plainData=\"2000;1;1;0\"/>\n"
                              "<entity plainData=\"3000;1;1;0;310\"/>\n"
                              "<entity plainData=\"4x00;1;1;0;320\"/>\n"
                              "</dataStorage>"));
    QVERIFY2(r.ok, qPrintable(r.error));
    QCOMPARE(values(var(r.package, kRx, 1)), QStringLiteral("1000/1/0/300 3000/1/0/310"));
    QCOMPARE(r.report.skippedLines, qint64(3));
    QCOMPARE(r.report.firstSkippedLine, qint64(5));
    QCOMPARE(r.report.readLines, qint64(4));
    QVERIFY(!r.report.truncated);
    QVERIFY(load(doc(kRxStorage + "<entity plainData=\"1000;1;1;0;300\"/></dataStorage>")).report.isClean());
}

QTEST_GUILESS_MAIN(tst_VMLLogLoader)
#include "tst_VMLLogLoader.moc"
