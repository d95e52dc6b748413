#include "app/AppSettings.h"
#include "app/StartupOptions.h"
#include "tests/support/TestFiles.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

class tst_AppSettings : public QObject
{
    Q_OBJECT
private slots:
    void writtenInOrder();
    void readWithoutRegardToCase();
    void damagedFiles_data();
    void damagedFiles();
    void windowBytesPercentEncoded();
    void openGlFirstSwitchWins_data();
    void openGlFirstSwitchWins();
    void firstLogArgument_data();
    void firstLogArgument();
};

void tst_AppSettings::writtenInOrder()
{
    QTemporaryDir dir;
    AppSettings s;
    s.setValue(QStringLiteral("port"), QStringLiteral("ttyUSB0"));
    const QString path = dir.filePath("config.jsn");
    QVERIFY(s.save(path));
    const QByteArray text = readAll(path);
    // Every key, in the order a file of this version is written, and nothing else.
    const QStringList order = {"Version",          "Opendir",           "Exportdir",  "Port",
                               "Win-State",        "Win-Size",          "Joy-GUID",   "Bmp-Export-Path",
                               "Bmp-Export-Width", "Bmp-Export-Height", "AutoUpdate", "Model-ID"};
    QStringList written;
    for (auto keys = QRegularExpression(R"re("([\w-]+)"\s*:)re").globalMatch(QString::fromUtf8(text));
         keys.hasNext();)
        written << keys.next().captured(1);
    QCOMPARE(written, order);
    const QJsonObject o = QJsonDocument::fromJson(text).object();
    QCOMPARE(o.value("Version").toString(), QStringLiteral("1.1.0"));
    QCOMPARE(o.value("Port").toString(), QStringLiteral("ttyUSB0"));
}

void tst_AppSettings::readWithoutRegardToCase()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("config.jsn");
    QVERIFY(
        writeFile(path, R"({"PORT": "/dev/serial/by-id/usb-x", "opendir": "/data/logs", "autoupdate": false,
               "MODEL-id": 7, "Bmp-Export-Width": "wide", "Unknown": 1})"));
    AppSettings s;
    QVERIFY(s.load(path));
    QVERIFY(s.isLoaded());
    // A value of the wrong kind keeps the default.
    QCOMPARE(std::make_tuple(s.text("Port"), s.text("Opendir"), s.flag("AutoUpdate"), s.number("Model-ID"),
                             s.number("Bmp-Export-Width")),
             std::make_tuple(QStringLiteral("/dev/serial/by-id/usb-x"), QStringLiteral("/data/logs"), false,
                             7, 1920));
}

void tst_AppSettings::damagedFiles_data()
{
    QTest::addColumn<QByteArray>("content"); // null: no file
    QTest::newRow("missing") << QByteArray();
    QTest::newRow("truncated") << QByteArray("{\"Port\": \"tty");
    QTest::newRow("not an object") << QByteArray("[1,2,3]");
}

void tst_AppSettings::damagedFiles()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    const QString path = dir.filePath("config.jsn");
    if (!content.isNull())
        QVERIFY(writeFile(path, content));
    AppSettings s;
    QVERIFY(!s.load(path));
    QVERIFY(!s.isLoaded());
    QVERIFY(!s.lastError().isEmpty());
    // Defaults stay usable, and saving replaces the damaged file with a good one.
    QCOMPARE(s.text("Version"), QStringLiteral("1.1.0"));
    QVERIFY(s.save(path));
    AppSettings again;
    QVERIFY(again.load(path));
}

void tst_AppSettings::windowBytesPercentEncoded()
{
    QTemporaryDir dir;
    AppSettings s;
    const QByteArray state("\x00\x01\xff \"%;\n", 8);
    s.setBytes("Win-State", state);
    QVERIFY(!s.text("Win-State").contains(QLatin1Char('"')));
    QVERIFY(s.save(dir.filePath("c.jsn")));
    AppSettings back;
    QVERIFY(back.load(dir.filePath("c.jsn")));
    QCOMPARE(back.bytes("win-state"), state);
}

void tst_AppSettings::openGlFirstSwitchWins_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("choice");
    using O = StartupOptions::OpenGl;
    QTest::newRow("none") << QStringList{"flight.log"} << int(O::Default);
    QTest::newRow("swrast then angle") << QStringList{"-swrast", "-angle"} << int(O::Software);
    QTest::newRow("angle then nativegl") << QStringList{"x.log", "-angle", "-nativegl"} << int(O::Es);
    QTest::newRow("nativegl") << QStringList{"-nativegl"} << int(O::Desktop);
}

void tst_AppSettings::openGlFirstSwitchWins()
{
    QFETCH(QStringList, args);
    QFETCH(int, choice);
    QCOMPARE(int(StartupOptions::openGlChoice(args)), choice);
}

void tst_AppSettings::firstLogArgument_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("expected");
    QTest::newRow("two logs: only the first")
        << QStringList{"-swrast", "/a/one.log", "/b/two.vml"} << "/a/one.log";
    QTest::newRow("each kind") << QStringList{"/x/gps.NMEA"} << "/x/gps.NMEA";
    QTest::newRow("relative to the program folder")
        << QStringList{"sub/flight.log"} << "/opt/vexo/sub/flight.log";
    QTest::newRow("none") << QStringList{"-angle", "notes.pdf"} << "";
}

void tst_AppSettings::firstLogArgument()
{
    QFETCH(QStringList, args);
    QFETCH(QString, expected);
    QCOMPARE(StartupOptions::firstLogArgument(args, QStringLiteral("/opt/vexo")), expected);
}

QTEST_GUILESS_MAIN(tst_AppSettings)
#include "tst_AppSettings.moc"
