#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"
#include "tests/support/ZipBuilder.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QByteArray kConfig = R"({"hw":674,"version":"4.22"})";

void makeDrive(const QString &root)
{
    QDir().mkpath(root + "/Config");
    QDir().mkpath(root + "/Model");
    QDir().mkpath(root + "/Log");
    QVERIFY(writeFile(root + "/Config/Config.jsn", kConfig));
    QVERIFY(writeFile(root + "/Model/a.bin", QByteArray(5000, 'a')));
    QVERIFY(writeFile(root + "/Log/x.log", "log"));
}

QString text(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes);
}
} // namespace

class tst_VexoLogTx : public QObject
{
    Q_OBJECT

private slots:
    void backupAndRestoreThroughFile();
    void backupAndRestoreThroughDatabase();
    void refusals_data();
    void refusals();
    void syncStoresEachLogOnce();
};

void tst_VexoLogTx::backupAndRestoreThroughFile()
{
    QTemporaryDir tmp;
    const QString drive = tmp.filePath("drive");
    makeDrive(drive);
    auto r = VexoLogRunner::run({"tx", "info", drive});
    QCOMPARE(r.code, 0);
    QVERIFY2(text(r.out).contains("Vexo HC-6") && text(r.out).contains("674") &&
                 text(r.out).contains("4.22") && text(r.out).contains("update/HC6.BIN"),
             r.out);

    const QString zip = tmp.filePath("b.zip");
    r = VexoLogRunner::run({"tx", "backup", drive, "--scope", "minimal", "--out", zip});
    QVERIFY2(r.code == 0, r.err);
    const QString second = tmp.filePath("second");
    QDir().mkpath(second);
    r = VexoLogRunner::run({"tx", "restore", second, zip});
    QVERIFY2(r.code == 0, r.err);
    // Stored as "config/config.jsn", which the transmitter's FAT drive takes as the same file.
    QCOMPARE(readAll(second + "/config/config.jsn"), kConfig);
    QCOMPARE(readAll(second + "/Model/a.bin"), QByteArray(5000, 'a'));
    QVERIFY(!QFileInfo::exists(second + "/Log")); // not in the minimal scope
}

void tst_VexoLogTx::backupAndRestoreThroughDatabase()
{
    QTemporaryDir tmp;
    const QString drive = tmp.filePath("drive");
    makeDrive(drive);
    const QString db = tmp.filePath("db");
    QDir().mkpath(db);
    auto r = VexoLogRunner::run({"tx", "backup", drive, "--db", db, "--description", "before the flight"});
    QVERIFY2(r.code == 0, r.err);
    r = VexoLogRunner::run({"tx", "backups", "--db", db});
    QCOMPARE(r.code, 0);
    const QStringList fields = text(r.out).trimmed().split('\t');
    QCOMPARE(fields.size(), 6);
    QCOMPARE(fields.at(1), QStringLiteral("Vexo-HC-6_V4.22"));
    QCOMPARE(fields.at(3), QStringLiteral("Vexo HC-6"));
    QCOMPARE(fields.at(5), QStringLiteral("before the flight"));

    const QString second = tmp.filePath("second");
    QDir().mkpath(second);
    r = VexoLogRunner::run({"tx", "restore", second, "--backup", fields.at(0), "--db", db});
    QVERIFY2(r.code == 0, r.err);
    QCOMPARE(readAll(second + "/Log/x.log"), QByteArray("log"));

    r = VexoLogRunner::run({"tx", "backups", "--db", db, "--delete", fields.at(0)});
    QCOMPARE(r.code, 0);
    r = VexoLogRunner::run({"tx", "backups", "--db", db});
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out, QByteArray());
}

void tst_VexoLogTx::refusals_data()
{
    QTest::addColumn<QStringList>("args"); // DRIVE and ZIP are replaced
    QTest::addColumn<QByteArray>("zip");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    const QByteArray slip = ZipBuilder::build({{"config/config.jsn", "x"}, {"../outside", "x"}});
    QTest::newRow("leaving the drive")
        << QStringList{"restore", "DRIVE", "ZIP"} << slip << 1 << "This backup cannot be restored";
    QTest::newRow("no target") << QStringList{"backup", "DRIVE"} << QByteArray() << 2 << "either --out";
    QTest::newRow("not a transmitter")
        << QStringList{"info", "ZIP"} << QByteArray() << 1 << "not a transmitter";
    QTest::newRow("bad scope") << QStringList{"backup", "DRIVE", "--scope", "most", "--out", "ZIP"}
                               << QByteArray() << 2 << "unknown scope";
}

void tst_VexoLogTx::refusals()
{
    QFETCH(QStringList, args);
    QFETCH(QByteArray, zip);
    QFETCH(int, code);
    QFETCH(QString, message);
    QTemporaryDir tmp;
    const QString drive = tmp.filePath("drive");
    makeDrive(drive);
    const QString zipPath = tmp.filePath("b.zip");
    QVERIFY(writeFile(zipPath, zip));
    args.replaceInStrings("DRIVE", drive).replaceInStrings("ZIP", zipPath);
    const auto r = VexoLogRunner::run(QStringList{"tx"} + args);
    QCOMPARE(r.code, code);
    QVERIFY2(text(r.err).contains(message), r.err);
    QVERIFY(!QFileInfo::exists(tmp.filePath("outside")));
}

void tst_VexoLogTx::syncStoresEachLogOnce()
{
    QTemporaryDir tmp;
    const QString drive = tmp.filePath("drive");
    const QString db = tmp.filePath("db");
    QDir().mkpath(drive + "/Log/20240517");
    QDir().mkpath(db);
    LogGenerator::Options o;
    o.seconds = 10;
    TelemetryDataPackage p = LogGenerator::generate(o);
    p.setName("Alpha");
    QVERIFY(writeFile(drive + "/Log/20240517/10-00-00.log", LogFileWriter::write(p)));
    QVERIFY(writeFile(drive + "/Log/20240517/11-00-00.log", QByteArray(2000, '\x01')));

    // A dry run writes nothing: the real run after it still stores the log.
    auto r = VexoLogRunner::run({"tx", "sync", drive, "--db", db, "--dry-run"});
    QCOMPARE(r.code, 1); // the damaged log counts as a failure
    r = VexoLogRunner::run({"tx", "sync", drive, "--db", db});
    QCOMPARE(r.code, 1);
    QVERIFY2(text(r.out).contains("Stored: 1\n") && text(r.out).contains("Failed: 1\n") &&
                 text(r.out).contains("20240517/11-00-00.log"),
             r.out);
    QVERIFY(QFile::remove(drive + "/Log/20240517/11-00-00.log"));
    r = VexoLogRunner::run({"tx", "sync", drive, "--db", db});
    QVERIFY2(r.code == 0, r.err);
    QVERIFY2(text(r.out).contains("Stored: 0\n") && text(r.out).contains("Skipped as already present: 1\n"),
             r.out);
    r = VexoLogRunner::run({"tx", "sync", tmp.filePath("nowhere"), "--db", db});
    QVERIFY(r.code != 0 && !r.err.isEmpty());
}

QTEST_GUILESS_MAIN(tst_VexoLogTx)
#include "tst_VexoLogTx.moc"
