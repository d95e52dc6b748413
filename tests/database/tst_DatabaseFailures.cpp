#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogGenerator.h"
#include "tests/support/TestFiles.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

namespace {
TelemetryDataPackage flight(int seconds, int rate = 10)
{
    LogGenerator::Options o;
    o.seconds = seconds;
    o.rate = rate;
    o.devices = 3;
    return LogGenerator::generate(o);
}

// A database with one model and one stored log, closed again: the data a failure must not touch.
QString makeDatabase(const QString &folder, int *logId = nullptr)
{
    DatabaseManager db(folder);
    db.setConnectionName(QStringLiteral("setup"));
    if (!db.openAndInitialise())
        return QString();
    ModelLibrary lib(&db);
    const int id = lib.storeLog(flight(20), lib.createModel(QStringLiteral("Kept")), -1);
    if (logId)
        *logId = id;
    return id > 0 ? db.databasePath() : QString();
}

// Another program's connection to the same file.
struct OtherProgram
{
    explicit OtherProgram(const QString &path)
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=0"));
        db.open();
    }
    ~OtherProgram()
    {
        QSqlDatabase::database(QStringLiteral("other")).close();
        QSqlDatabase::removeDatabase(QStringLiteral("other"));
    }
    bool exec(const QString &sql)
    {
        return QSqlQuery(QSqlDatabase::database(QStringLiteral("other"))).exec(sql);
    }
};
} // namespace

class tst_DatabaseFailures : public QObject
{
    Q_OBJECT
private slots:
    void unusableFilesAreLeftAlone_data();
    void unusableFilesAreLeftAlone();
    void readOnlyOpenReadsButNeverWrites();
    void readOnlyFilePermissions();
    void readOnlyFolder();
    void lockedByAnotherProgram();
    void fullDiskDuringStore();
    void closedDatabaseFailsEveryOperation();
    void loggerFailureIsFlagged();
};

void tst_DatabaseFailures::unusableFilesAreLeftAlone_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("reason");
    QTest::newRow("a text file") << QByteArray("pilot's notes, not a database\n").repeated(200)
                                 << "not a database";
    QByteArray fakeHeader("SQLite format 3\0", 16);
    fakeHeader += QByteArray(4080, '\xAB');
    QTest::newRow("a database header over garbage") << fakeHeader << "";
    QTest::newRow("random bytes") << QByteArray(8192, '\x5A') << "not a database";
    // A real database whose schema page, after the file header, is overwritten.
    QTemporaryDir made;
    QByteArray schema = readAll(makeDatabase(made.path()));
    QVERIFY(schema.size() > 4096);
    schema.replace(100, 3996, QByteArray(3996, '\xEE'));
    QTest::newRow("schema overwritten") << schema << "damaged";
}

void tst_DatabaseFailures::unusableFilesAreLeftAlone()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, reason);
    QTemporaryDir dir;
    const QString path = dir.filePath("data.sqlite");
    QVERIFY(writeFile(path, content));
    Logger logger(dir.filePath("Application.log"));
    DatabaseManager db(dir.path(), &logger);
    QVERIFY(!db.openAndInitialise());
    QVERIFY2(db.lastError().contains(path), qPrintable(db.lastError()));
    QVERIFY2(db.lastError().contains(reason), qPrintable(db.lastError()));
    QCOMPARE(readAll(path), content);
    QVERIFY(!QFile::exists(dir.filePath("Application.log"))); // nothing was "reinitialised"
    // The program stays usable: everything else answers false or empty, nothing crashes.
    bool ok = true;
    QVERIFY(db.models(&ok).isEmpty());
    QVERIFY(!ok);
    QCOMPARE(db.insertModel(ModelData()), -1);
    QCOMPARE(readAll(path), content);
}

void tst_DatabaseFailures::readOnlyOpenReadsButNeverWrites()
{
    QTemporaryDir dir;
    int log = -1;
    const QString path = makeDatabase(dir.path(), &log);
    const QByteArray before = readAll(path);
    DatabaseManager db(dir.path());
    db.setReadOnly(true);
    QVERIFY2(db.openAndInitialise(), qPrintable(db.lastError()));
    QCOMPARE(db.models().size(), 1);
    ModelLibrary lib(&db);
    TelemetryDataPackage p;
    QVERIFY(lib.readLog(log, &p)); // reading a log consults the sensor table but needs no write
    QCOMPARE(lib.storeLog(flight(5), db.models().at(0).id, -1), -1);
    QVERIFY2(lib.lastError().contains("read-only") && lib.lastError().contains(path),
             qPrintable(lib.lastError()));
    QVERIFY(!lib.deleteModel(db.models().at(0).id));
    QCOMPARE(db.models().size(), 1);
    db.close();
    QCOMPARE(readAll(path), before);

    // A read-only open never creates a database either.
    QTemporaryDir empty;
    DatabaseManager none(empty.path());
    none.setReadOnly(true);
    QVERIFY(!none.open());
    QVERIFY(QDir(empty.path()).isEmpty());
}

void tst_DatabaseFailures::readOnlyFilePermissions()
{
    if (geteuid() == 0)
        QSKIP("Running as root: file permissions do not stop root's writes (the read-only open is tested "
              "instead)");
    QTemporaryDir dir;
    const QString path = makeDatabase(dir.path());
    QVERIFY(QFile::setPermissions(path, QFile::ReadOwner));
    const QByteArray before = readAll(path);
    DatabaseManager db(dir.path());
    QVERIFY(db.openAndInitialise());
    ModelLibrary lib(&db);
    QCOMPARE(lib.createModel("New"), -1);
    QVERIFY2(lib.lastError().contains("read-only"), qPrintable(lib.lastError()));
    QCOMPARE(db.models().size(), 1);
    db.close();
    QCOMPARE(readAll(path), before);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner);
}

void tst_DatabaseFailures::readOnlyFolder()
{
    if (geteuid() == 0)
        QSKIP("Running as root: folder permissions do not stop root's writes");
    QTemporaryDir dir;
    const QString path = makeDatabase(dir.path());
    QVERIFY(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner));
    const QByteArray before = readAll(path);
    DatabaseManager db(dir.path());
    QVERIFY(db.openAndInitialise());
    ModelLibrary lib(&db);
    QCOMPARE(lib.createModel("New"), -1); // the journal cannot be created beside the file
    QVERIFY(lib.lastError().contains(path));
    db.close();
    QCOMPARE(readAll(path), before);
    QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

void tst_DatabaseFailures::lockedByAnotherProgram()
{
    QTemporaryDir dir;
    const QString path = makeDatabase(dir.path());
    DatabaseManager db(dir.path());
    db.setBusyTimeout(50);
    {
        OtherProgram other(path);
        QVERIFY(other.exec("BEGIN EXCLUSIVE"));
        QVERIFY(!db.openAndInitialise());
        QVERIFY2(db.lastError().contains("locked") && db.lastError().contains(path),
                 qPrintable(db.lastError()));
    }
    // Once the other program lets go, the same manager carries on.
    QVERIFY2(db.openAndInitialise(), qPrintable(db.lastError()));
    ModelLibrary lib(&db);
    const int model = db.models().at(0).id;
    {
        OtherProgram other(path);
        QVERIFY(other.exec("BEGIN IMMEDIATE"));
        QVERIFY(other.exec("insert into layouts (name, description) values ('theirs', '')"));
        QCOMPARE(db.models().size(), 1); // reading still works
        QCOMPARE(lib.storeLog(flight(5), model, -1), -1);
        QVERIFY2(lib.lastError().contains("locked"), qPrintable(lib.lastError()));
        QCOMPARE(db.transactionDepth(), 0);
        QVERIFY(other.exec("ROLLBACK"));
    }
    QCOMPARE(db.logLengths(model).size(), 1);
    QVERIFY(lib.storeLog(flight(5), model, -1) > 0);
    QCOMPARE(db.logLengths(model).size(), 2);
}

void tst_DatabaseFailures::fullDiskDuringStore()
{
    QTemporaryDir dir;
    int kept = -1;
    makeDatabase(dir.path(), &kept);
    DatabaseManager db(dir.path());
    QVERIFY(db.openAndInitialise());
    // SQLite's own page limit fails writes exactly as a full disk does.
    QSqlQuery q(QSqlDatabase::database(db.connectionName()));
    QVERIFY(q.exec("PRAGMA page_count") && q.next());
    const int pages = q.value(0).toInt();
    QVERIFY(q.exec(QStringLiteral("PRAGMA max_page_count = %1").arg(pages + 8)));
    ModelLibrary lib(&db);
    const int model = db.models().at(0).id;
    QCOMPARE(lib.storeLog(flight(600, 20), model, -1), -1);
    QVERIFY2(lib.lastError().contains("disk is full"), qPrintable(lib.lastError()));
    QCOMPARE(db.logLengths(model).keys(), QList<int>{kept});
    QByteArray data;
    QVERIFY(db.logData(kept, &data));
    // A log that fits still goes in afterwards.
    QVERIFY2(lib.storeLog(flight(1), model, -1) > 0, qPrintable(lib.lastError()));
}

void tst_DatabaseFailures::closedDatabaseFailsEveryOperation()
{
    QTemporaryDir dir;
    DatabaseManager db(dir.path());
    SensorRow row;
    QVERIFY(!db.findSensor(1, 1, &row));
    QVERIFY(!db.insertDefaultSensor(row));
    QCOMPARE(db.insertLog(1, -1, "x", "", 0, QDateTime()), -1);
    QVERIFY(db.topLevelFolders().isEmpty());
    QVERIFY(!db.logExists(1));
    QVERIFY(db.lastError().contains("not open"));
    QVERIFY(QDir(dir.path()).isEmpty());

    // A folder where the file should be.
    QVERIFY(QDir(dir.path()).mkdir("data.sqlite"));
    QVERIFY(!db.open());
    QVERIFY(db.lastError().contains("folder"));
}

void tst_DatabaseFailures::loggerFailureIsFlagged()
{
    QTemporaryDir dir;
    Logger good(dir.filePath("Application.log"));
    QVERIFY(good.open());
    good.write("System", "Database reinitialization");
    good.write("plain");
    good.close();
    const QStringList lines =
        QString::fromUtf8(readAll(dir.filePath("Application.log"))).split('\n', Qt::SkipEmptyParts);
    QVERIFY(lines.size() >= 6);
    QVERIFY(lines.at(0).contains(QRegularExpression("^#+$")));
    for (int i = 1; i < 3; ++i)
        QVERIFY(lines.at(i).startsWith('#') && lines.at(i).endsWith('#'));
    QVERIFY(lines.at(3).contains(QRegularExpression("^#+$")));
    QVERIFY(lines.at(4).contains(QRegularExpression(
        R"(^\d\d\.\d\d\.\d{4} \| \d\d:\d\d:\d\d \| System \.\.\. Database reinitialization$)")));
    QVERIFY(
        lines.at(5).contains(QRegularExpression(R"(^\d\d\.\d\d\.\d{4} \| \d\d:\d\d:\d\d \.\.\. plain$)")));
    QVERIFY(lines.last().endsWith(" ... Application exit"));
    // Opened again, it appends.
    Logger again(dir.filePath("Application.log"));
    again.write("more");
    again.close();
    QVERIFY(QString::fromUtf8(readAll(dir.filePath("Application.log"))).startsWith(lines.join('\n')));

    // A log that cannot be written is flagged and does no harm.
    QVERIFY(QDir(dir.path()).mkdir("folder.log"));
    Logger bad(dir.filePath("folder.log"));
    QVERIFY(!bad.open());
    bad.write("System", "lost");
    QVERIFY(bad.isFailed());
    QVERIFY(!bad.lastError().isEmpty());
    if (QFile::exists("/dev/full")) {
        Logger full(QStringLiteral("/dev/full"));
        full.write("System", "nowhere to go");
        QVERIFY(full.isFailed());
    }
}

QTEST_GUILESS_MAIN(tst_DatabaseFailures)
#include "tst_DatabaseFailures.moc"
