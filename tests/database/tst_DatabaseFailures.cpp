#include "database/DatabaseManager.h"
#include "database/ModelLibrary.h"
#include "tests/database/DatabaseTestSupport.h"
#include "tests/support/TestFiles.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {
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
} // namespace

// Unusable, damaged, locked at start-up and read-only folders: tst_DatabaseStartupCheck and
// tst_VexoLogDb. A file without write permission opens read-only just as setReadOnly() does.
class tst_DatabaseFailures : public QObject
{
    Q_OBJECT
private slots:
    void readOnlyOpenReadsButNeverWrites();
    void lockedWhileStoring();
    void fullDiskDuringStore();
};

void tst_DatabaseFailures::readOnlyOpenReadsButNeverWrites()
{
    QTemporaryDir dir;
    int log = -1;
    const QString path = makeDatabase(dir.path(), &log);
    const QByteArray before = readAll(path);
    DatabaseManager db(dir.path());
    db.setReadOnly(true);
    QVERIFY2(db.openAndInitialise(), qPrintable(db.lastError()));
    ModelLibrary lib(&db);
    TelemetryDataPackage p;
    QVERIFY(lib.readLog(log, &p)); // reading a log consults the sensor table but needs no write
    const int model = db.models().at(0).id;
    QCOMPARE(lib.storeLog(flight(5), model, -1), -1);
    QVERIFY2(lib.lastError().contains("read-only") && lib.lastError().contains(path),
             qPrintable(lib.lastError()));
    QVERIFY(!lib.deleteModel(model));
    db.close();
    QCOMPARE(readAll(path), before);

    // A read-only open never creates a database either.
    QTemporaryDir empty;
    DatabaseManager none(empty.path());
    none.setReadOnly(true);
    QVERIFY(!none.open());
    QVERIFY(QDir(empty.path()).isEmpty());
}

// Another program holds the write lock: reading goes on, a store fails whole, and works once it lets go.
void tst_DatabaseFailures::lockedWhileStoring()
{
    QTemporaryDir dir;
    const QString path = makeDatabase(dir.path());
    DatabaseManager db(dir.path());
    db.setBusyTimeout(50);
    QVERIFY2(db.openAndInitialise(), qPrintable(db.lastError()));
    ModelLibrary lib(&db);
    const int model = db.models().at(0).id;
    {
        QSqlDatabase other = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("other"));
        other.setDatabaseName(path);
        other.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=0"));
        QVERIFY(other.open());
        QSqlQuery q(other);
        QVERIFY(q.exec("BEGIN IMMEDIATE"));
        QVERIFY(q.exec("insert into layouts (name, description) values ('theirs', '')"));
        QCOMPARE(db.models().size(), 1);
        QCOMPARE(lib.storeLog(flight(5), model, -1), -1);
        QVERIFY2(lib.lastError().contains("locked") && lib.lastError().contains(path),
                 qPrintable(lib.lastError()));
        QCOMPARE(db.transactionDepth(), 0);
        QVERIFY(q.exec("ROLLBACK"));
        other.close();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("other"));
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
    const int pages = countOf(db, "PRAGMA page_count");
    QVERIFY(execOn(db, QStringLiteral("PRAGMA max_page_count = %1").arg(pages + 8)));
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

QTEST_GUILESS_MAIN(tst_DatabaseFailures)
#include "tst_DatabaseFailures.moc"
