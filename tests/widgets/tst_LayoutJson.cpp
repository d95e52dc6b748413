#include "widgets/layout/LayoutJsonReader.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"

#include <QtTest>

class tst_LayoutJson : public QObject
{
    Q_OBJECT
private slots:
    void compactTextKeepsOrderAndTokens_data();
    void compactTextKeepsOrderAndTokens();
    void malformedInputIsRefused_data();
    void malformedInputIsRefused();
    void boundsAreEnforced_data();
    void boundsAreEnforced();
    void lookupsAndConversions();
    void writerOutputReadsBack();
};

void tst_LayoutJson::compactTextKeepsOrderAndTokens_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("compact");
    QTest::newRow("key order") << QByteArray(R"({"Type":"Graph","ShowMessages":1,"ShowGrid":1})")
                               << QByteArray(R"({"Type":"Graph","ShowMessages":1,"ShowGrid":1})");
    QTest::newRow("white space dropped")
        << QByteArray("{ \"b\" : [ 1 ,\n 2 ] ,\r\n\t\"a\" : { } }") << QByteArray(R"({"b":[1,2],"a":{}})");
    QTest::newRow("numbers as written")
        << QByteArray(R"([1.50,-0,2E+3,1e400,-12])") << QByteArray(R"([1.50,-0,2E+3,1e400,-12])");
    QTest::newRow("escapes as written") << QByteArray(R"(["a\u00e9\/\"\n","\ud83d\ude00"])")
                                        << QByteArray(R"(["a\u00e9\/\"\n","\ud83d\ude00"])");
    QTest::newRow("raw UTF-8") << QByteArray("[\"\xc3\xa9t\xc3\xa9\"]")
                               << QByteArray("[\"\xc3\xa9t\xc3\xa9\"]");
    QTest::newRow("byte order mark") << QByteArray("\xEF\xBB\xBF{\"a\":true}") << QByteArray(R"({"a":true})");
    QTest::newRow("literals") << QByteArray("[true,false,null]") << QByteArray("[true,false,null]");
}

void tst_LayoutJson::compactTextKeepsOrderAndTokens()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, compact);
    LayoutJsonReader reader;
    LayoutJsonValue value;
    QVERIFY2(reader.parse(input, &value), qPrintable(reader.errorString()));
    QCOMPARE(value.text(), compact);
    // Inner values carry their own slice of the text.
    if (value.size() > 0)
        QVERIFY(compact.contains(value.at(0).text()));
}

void tst_LayoutJson::malformedInputIsRefused_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("truncated object") << QByteArray(R"({"Type":"Container","Items":[)");
    QTest::newRow("unterminated string") << QByteArray(R"({"Type":"Contai)");
    QTest::newRow("trailing garbage") << QByteArray(R"({"a":1} x)");
    QTest::newRow("trailing comma") << QByteArray(R"({"a":1,})");
    QTest::newRow("missing colon") << QByteArray(R"({"a" 1})");
    QTest::newRow("unquoted key") << QByteArray(R"({a:1})");
    QTest::newRow("leading zero") << QByteArray(R"([01])");
    QTest::newRow("bare decimal point") << QByteArray(R"([1.])");
    QTest::newRow("empty exponent") << QByteArray(R"([1e])");
    QTest::newRow("plus sign") << QByteArray(R"([+1])");
    QTest::newRow("bad escape") << QByteArray(R"(["\x41"])");
    QTest::newRow("short unicode escape") << QByteArray(R"(["\u12"])");
    QTest::newRow("control character") << QByteArray("[\"a\tb\"]");
    QTest::newRow("misspelt literal") << QByteArray("[tru]");
    QTest::newRow("binary") << QByteArray("\x00\x01\x02", 3);
}

void tst_LayoutJson::malformedInputIsRefused()
{
    QFETCH(QByteArray, input);
    LayoutJsonReader reader;
    LayoutJsonValue value;
    QVERIFY(!reader.parse(input, &value));
    QVERIFY(value.isUndefined());
    QVERIFY(reader.errorString().contains(QLatin1String("byte")));
}

void tst_LayoutJson::boundsAreEnforced_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("depth at the bound") << (QByteArray(96, '[') + QByteArray(96, ']')) << true;
    QTest::newRow("depth beyond the bound") << (QByteArray(97, '[') + QByteArray(97, ']')) << false;
    // Far deeper than any stack would allow if the parser did not stop early.
    QTest::newRow("absurd depth") << (QByteArray(1000000, '[') + QByteArray(1000000, ']')) << false;
    QByteArray many = "[";
    for (int i = 0; i < 200000; ++i)
        many += "0,";
    many += "0]";
    QTest::newRow("too many values") << many << false;
    QTest::newRow("too large") << (QByteArray("[\"") + QByteArray(4 * 1024 * 1024, 'a') + "\"]") << false;
}

void tst_LayoutJson::boundsAreEnforced()
{
    QFETCH(QByteArray, input);
    QFETCH(bool, accepted);
    LayoutJsonReader reader;
    LayoutJsonValue value;
    QCOMPARE(reader.parse(input, &value), accepted);
}

void tst_LayoutJson::lookupsAndConversions()
{
    LayoutJsonReader reader;
    LayoutJsonValue v;
    QVERIFY(
        reader.parse(R"({"Width":640,"width":1,"Half":1.5,"Big":3e10,"Neg":-7,"Text":"x","Flag":true})", &v));
    // An exact key wins over one differing in case; a key in another case is still found.
    QCOMPARE((QList<int>{v.value("Width").toInt(), v.value("width").toInt(), v.value("Neg").toInt()}),
             (QList<int>{640, 1, -7}));
    QCOMPARE(v.value("HALF").toDouble(), 1.5);
    // What is no int gives the fallback.
    QCOMPARE((QList<int>{v.value("Half").toInt(-1), v.value("Big").toInt(-1), v.value("Text").toInt(-1)}),
             (QList<int>{-1, -1, -1}));
    QCOMPARE(v.value("Text").toString(), QStringLiteral("x"));
    QVERIFY(v.value("Flag").toBool());
    QVERIFY(v.value("Missing").isUndefined());
    QVERIFY(v.value("Missing").value("Deeper").at(3).isUndefined());
    QCOMPARE(v.keyAt(1), QStringLiteral("width"));
    QCOMPARE(v.toJsonObject().value("Width").toInt(), 640);
}

void tst_LayoutJson::writerOutputReadsBack()
{
    const QString awkward = QStringLiteral("quote\" back\\ tab\t nl\n bell\x07 é €");
    LayoutJsonWriter w;
    w.beginObject();
    w.writeString("Type", "Container");
    w.key("Items");
    w.beginArray();
    w.beginObject();
    w.writeRawMembers(R"("Type":"Dial","Sensor":5)");
    w.endObject();
    w.beginArray();
    w.endArray();
    w.writeDouble(0.1);
    w.writeDouble(qInf());
    w.endArray();
    w.writeString("Name", awkward);
    w.writeBool("On", false);
    w.endObject();
    QVERIFY(w.data().startsWith(R"({"Type":"Container","Items":[{"Type":"Dial","Sensor":5},[],0.1,null],)"));

    LayoutJsonReader reader;
    LayoutJsonValue v;
    QVERIFY2(reader.parse(w.data(), &v), qPrintable(reader.errorString()));
    QCOMPARE(v.value("Name").toString(), awkward);
    QVERIFY(v.value("Items").at(3).kind() == LayoutJsonValue::Null);
    QCOMPARE(v.keyAt(2), QStringLiteral("Name"));
}

QTEST_GUILESS_MAIN(tst_LayoutJson)
#include "tst_LayoutJson.moc"
