#include "transmitter/TxCatalogue.h"

#include <QtTest>

using namespace TxCatalogue;

class tst_TxCatalogue : public QObject
{
    Q_OBJECT
private slots:
    void flags_data();
    void flags();
    void rejected_data();
    void rejected();
    void updateList();
    void appList();
    void releaseDate_data();
    void releaseDate();
};

void tst_TxCatalogue::flags_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<int>("value");
    QTest::addColumn<bool>("known");
    QTest::newRow("forceRewrite") << "forceRewrite" << 0 << true;
    QTest::newRow("capitals") << "FORCEREWRITE" << 0 << true;
    QTest::newRow("optional") << "Optional" << 1 << true;
    QTest::newRow("downloadOnly") << "downloadonly" << 2 << true;
    QTest::newRow("optionalUnchecked") << "OPTIONALUNCHECKED" << 3 << true;
    QTest::newRow("standard") << "standard" << 4 << true;
    QTest::newRow("unknown") << "sometimes" << 4 << false;
    QTest::newRow("empty") << "" << 4 << false;
}

void tst_TxCatalogue::flags()
{
    QFETCH(QString, word);
    QFETCH(int, value);
    QFETCH(bool, known);
    if (!known)
        QTest::ignoreMessage(QtWarningMsg, "Invalid string flag, setting to standard");
    bool wasKnown = !known;
    QCOMPARE(static_cast<int>(flagFromString(word, &wasKnown)), value);
    QCOMPARE(wasKnown, known);
}

void tst_TxCatalogue::rejected_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::newRow("array") << QByteArray("[{\"general\":[],\"files\":[]}]");
    QTest::newRow("no files") << QByteArray("{\"general\":[]}");
    QTest::newRow("general an object") << QByteArray("{\"general\":{},\"files\":[]}");
    QTest::newRow("truncated") << QByteArray("{\"general\":[],\"files\":[");
    QTest::newRow("not json") << QByteArray("\x89PNG\r\n");
    QTest::newRow("too large") << QByteArray("{\"general\":[],\"files\":[]}" +
                                             QByteArray(kMaxListBytes, ' '));
}

void tst_TxCatalogue::rejected()
{
    QFETCH(QByteArray, json);
    UpdateList list;
    QString error;
    QVERIFY(!parseUpdateList(json, &list, &error));
    QVERIFY(!error.isEmpty());
    QVector<App> apps;
    QVERIFY(!parseAppList(json, &apps, &error));
}

void tst_TxCatalogue::updateList()
{
    const QByteArray json = R"({"general":[
        {"hw":678,"update":[{"id":7,"releaseDate":"2026-03-01 9:5:0","name":{"de":"D","en":"System"},
                             "description":{"en":"All"},"variant":2},
                            {"id":8,"name":"Beta"}]},
        {"hw":"674","update":[{"id":9}]},
        {"hw":1.5,"update":[{"id":10}]}],
      "files":[{"idUpdate":8,"url":"https://h/b","destination":"B"},
               {"idUpdate":7,"url":"https://h/a","hash":"ab","size":12,"destination":"Audio/a.wav","flags":"OPTIONAL"},
               {"idUpdate":7,"url":"https://h/c","size":"30","destination":"c"},
               {"idUpdate":7,"destination":"no url"},
               {"idUpdate":77,"url":"https://h/x","destination":"orphan"}]})";
    UpdateList list;
    QVERIFY(parseUpdateList(json, &list));
    QCOMPARE(list.byHardware.keys().size(), 2); // the fractional hardware id is no id
    const QVector<Update> updates = list.updatesFor(678);
    QCOMPARE(updates.size(), 2);
    QCOMPARE(updates.at(0).name, QStringLiteral("System"));
    QCOMPARE(updates.at(0).variant, 2);
    QCOMPARE(updates.at(0).releaseDate, QDateTime(QDate(2026, 3, 1), QTime(9, 5)));
    QCOMPARE(updates.at(0).files.size(), 2);
    QCOMPARE(updates.at(0).files.at(0).destination, QStringLiteral("Audio/a.wav"));
    QCOMPARE(updates.at(0).files.at(0).flags, FileFlag::Optional);
    QCOMPARE(updates.at(0).files.at(1).size, 30);
    QCOMPARE(updates.at(1).files.size(), 1);
    QCOMPARE(list.updatesFor(674).size(), 1);
    QVERIFY(list.updatesFor(679).isEmpty());
}

void tst_TxCatalogue::appList()
{
    const QByteArray json = R"({"applications":[
        {"id":3,"name":{"en":"Timer"},"version":"1.2","author":"Pilot","previewIcon":"https://h/t.png",
         "hw":[678,679,678],"files":[{"url":"https://h/m.lua","destination":"Apps/Timer/main.lua","size":-4}]},
        {"id":4,"name":"Bare","version":2,"hw":"674, 675"},
        {"name":"no id"}]})";
    QVector<App> apps;
    QVERIFY(parseAppList(json, &apps));
    QCOMPARE(apps.size(), 2);
    QCOMPARE(apps.at(0).hw, (QVector<int>{678, 679}));
    QCOMPARE(apps.at(0).files.at(0).size, -1);
    QVERIFY(apps.at(0).files.at(0).isLuaProgram());
    QVERIFY(apps.at(1).previewIcon.isEmpty()); // shown with the Lua logo
    QCOMPARE(apps.at(1).version, QStringLiteral("2"));
    QCOMPARE(apps.at(1).hw, (QVector<int>{674, 675}));
    QVERIFY(apps.at(1).supports(675) && !apps.at(1).supports(678));
}

void tst_TxCatalogue::releaseDate_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QDateTime>("expected");
    const QDateTime noon(QDate(2026, 3, 1), QTime(12, 0));
    QTest::newRow("iso") << "2026-03-01T12:00:00" << noon;
    QTest::newRow("short time") << "2026-03-01 12:0:0" << noon;
    QTest::newRow("date only") << "2026-03-01" << QDateTime(QDate(2026, 3, 1), QTime(0, 0));
    QTest::newRow("epoch") << "1772366400" << QDateTime(QDate(2026, 3, 1), QTime(12, 0), Qt::UTC);
    QTest::newRow("garbage") << "soon" << QDateTime();
    QTest::newRow("empty") << "" << QDateTime();
}

void tst_TxCatalogue::releaseDate()
{
    QFETCH(QString, text);
    QFETCH(QDateTime, expected);
    QCOMPARE(parseReleaseDate(text), expected);
    if (expected.isValid())
        QVERIFY(shortDate(expected.date()).contains(QLatin1String("2026")));
}

QTEST_GUILESS_MAIN(tst_TxCatalogue)
#include "tst_TxCatalogue.moc"
