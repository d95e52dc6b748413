#include "database/DataFolderCheck.h"
#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "tests/database/DatabaseTestSupport.h"
#include "tests/support/TestFiles.h"

#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

#include <limits>

namespace {
// The bytes of a real database of several pages: models with pictures, so the data spans pages.
QByteArray healthyDatabase()
{
    QTemporaryDir dir;
    {
        DatabaseManager db(dir.path());
        db.setConnectionName(QStringLiteral("setup"));
        if (!db.openAndInitialise())
            return QByteArray();
        for (int i = 0; i < 8; ++i) {
            ModelData m;
            m.name = QStringLiteral("Model %1").arg(i);
            m.screenshot = randomBytes(3000, i);
            if (db.insertModel(m) < 0)
                return QByteArray();
        }
    }
    return readAll(dir.filePath("data.sqlite"));
}

QByteArray overwritten(QByteArray bytes, int from, int to, quint32 seed)
{
    bytes.replace(from, to - from, randomBytes(to - from, seed));
    return bytes;
}

// Permissions stop writes only for an ordinary user: root (or a process with the capability to
// override them) writes anyway. The folder is tried, not the user id guessed.
bool folderRefusesWrites(const QString &folder)
{
    QFile probe(QDir(folder).filePath("probe"));
    if (!probe.open(QIODevice::WriteOnly))
        return true;
    probe.remove();
    return false;
}
} // namespace

class tst_DatabaseStartupCheck : public QObject
{
    Q_OBJECT
private slots:
    void startupReport_data();
    void startupReport();
    void damagedDatabaseIsMovedAside_data();
    void damagedDatabaseIsMovedAside();
    void damagedNameNeverOverwrites();
    void lockedByAnotherProgram();
    void readOnlyFolder_data();
    void readOnlyFolder();
};

void tst_DatabaseStartupCheck::startupReport_data()
{
    QTest::addColumn<QByteArray>("existing"); // empty: no database yet
    QTest::addColumn<bool>("folderInTheWay");
    QTest::addColumn<qint64>("lowSpace");
    QTest::addColumn<int>("severity");
    QTest::addColumn<QString>("says");
    const qint64 none = 0;
    const qint64 all = std::numeric_limits<qint64>::max();
    QTest::newRow("first start") << QByteArray() << false << none << int(StartupReport::Ok) << "";
    QTest::newRow("little free space")
        << healthyDatabase() << false << all << int(StartupReport::Warning) << "almost full";
    QTest::newRow("a folder named data.sqlite")
        << QByteArray() << true << none << int(StartupReport::Error) << "cannot be used";
}

void tst_DatabaseStartupCheck::startupReport()
{
    QFETCH(QByteArray, existing);
    QFETCH(bool, folderInTheWay);
    QFETCH(qint64, lowSpace);
    QFETCH(int, severity);
    QFETCH(QString, says);
    QTemporaryDir dir;
    const QString path = QDir::toNativeSeparators(dir.filePath("data.sqlite"));
    if (!existing.isEmpty())
        QVERIFY(writeFile(path, existing));
    if (folderInTheWay)
        QVERIFY(QDir(dir.path()).mkdir("data.sqlite"));
    DatabaseManager db(dir.path());
    const StartupReport report = DataFolderCheck::run(&db, lowSpace);
    QCOMPARE(int(report.severity), severity);
    QVERIFY(report.movedAsideTo.isEmpty());
    if (severity == StartupReport::Ok) {
        QVERIFY(report.message.isEmpty());
    } else {
        QVERIFY2(report.message.contains(says), qPrintable(report.message));
        QVERIFY2(report.message.contains(severity == StartupReport::Error ? path : dir.path()),
                 qPrintable(report.message));
    }
    if (severity != StartupReport::Error) {
        QCOMPARE(countOf(db, "select count(*) from models"), existing.isEmpty() ? 0 : 8);
        QVERIFY(db.insertModel(ModelData()) > 0);
    }
    // Only the database is left: the probes clean up after themselves.
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"data.sqlite"});
}

void tst_DatabaseStartupCheck::damagedDatabaseIsMovedAside_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QByteArray>("journal"); // its side files' content; empty: none
    const QByteArray healthy = healthyDatabase();
    QVERIFY(healthy.size() > 5 * 4096);
    QTest::newRow("random bytes with side files") << randomBytes(20000, 2) << randomBytes(600, 3);
    QTest::newRow("header page overwritten") << overwritten(healthy, 0, 4096, 4) << QByteArray();
    QTest::newRow("schema overwritten") << overwritten(healthy, 100, 4096, 5) << QByteArray();
    QTest::newRow("a table page overwritten") << overwritten(healthy, 4096, 8192, 6) << QByteArray();
}

void tst_DatabaseStartupCheck::damagedDatabaseIsMovedAside()
{
    QFETCH(QByteArray, content);
    QFETCH(QByteArray, journal);
    QTemporaryDir dir;
    const QString path = QDir::toNativeSeparators(dir.filePath("data.sqlite"));
    QVERIFY(writeFile(path, content));
    for (const char *side : {"-journal", "-wal"}) {
        if (!journal.isEmpty())
            QVERIFY(writeFile(path + side, journal));
    }
    Logger logger(dir.filePath("Application.log"));
    DatabaseManager db(dir.path(), &logger);
    const StartupReport report = DataFolderCheck::run(&db, 0);

    QCOMPARE(report.severity, StartupReport::Warning);
    QVERIFY2(QFileInfo(report.movedAsideTo)
                 .fileName()
                 .contains(QRegularExpression(R"(^data\.sqlite\.damaged-\d{4}-\d\d-\d\d-\d{4}$)")),
             qPrintable(report.movedAsideTo));
    QCOMPARE(QFileInfo(report.movedAsideTo).absolutePath(), QFileInfo(path).absolutePath());
    QCOMPARE(readAll(report.movedAsideTo), content);
    for (const char *side : {"-journal", "-wal"}) {
        QCOMPARE(readAll(report.movedAsideTo + side), journal);
        QVERIFY(!QFile::exists(path + side));
    }
    QVERIFY2(report.message.contains(path + " was damaged") && report.message.contains(report.movedAsideTo),
             qPrintable(report.message));
    QVERIFY(readAll(dir.filePath("Application.log")).contains("Damaged database moved to"));

    // The fresh database has every table and takes writes.
    QVERIFY(db.isOpen());
    QCOMPARE(countOf(db, "select count(*) from models"), 0);
    QVERIFY(db.insertLayout("L", "", "{}", QByteArray()) > 0);
    QVERIFY(db.insertModel(ModelData()) > 0);
}

void tst_DatabaseStartupCheck::damagedNameNeverOverwrites()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("data.sqlite");
    const QDateTime when(QDate(2026, 11, 24), QTime(14, 5, 59));
    const QString first = path + ".damaged-2026-11-24-1405";
    QCOMPARE(DataFolderCheck::damagedName(path, when), first);
    QVERIFY(writeFile(first, "earlier"));
    QCOMPARE(DataFolderCheck::damagedName(path, when), first + "-2");
    // A side file left of an earlier one takes the name as well.
    QVERIFY(writeFile(first + "-2-wal", "earlier"));
    QCOMPARE(DataFolderCheck::damagedName(path, when), first + "-3");
}

void tst_DatabaseStartupCheck::lockedByAnotherProgram()
{
    QTemporaryDir dir;
    const QString path = QDir::toNativeSeparators(dir.filePath("data.sqlite"));
    const QByteArray content = healthyDatabase();
    QVERIFY(writeFile(path, content));
    {
        // Another studio writing to the same file: reading works, writing waits for it.
        QSqlDatabase other = QSqlDatabase::addDatabase("QSQLITE", "other");
        other.setDatabaseName(path);
        QVERIFY(other.open());
        QVERIFY(QSqlQuery(other).exec("BEGIN IMMEDIATE"));
        DatabaseManager db(dir.path());
        db.setBusyTimeout(50);
        const StartupReport report = DataFolderCheck::run(&db, 0);
        QCOMPARE(report.severity, StartupReport::Error);
        QVERIFY2(report.message.contains(path + " cannot be written: ") &&
                     report.message.contains("another program"),
                 qPrintable(report.message));
        QVERIFY(report.movedAsideTo.isEmpty());
        QCOMPARE(db.models().size(), 8); // reading still works
        other.close();
    }
    QSqlDatabase::removeDatabase("other");
    QCOMPARE(readAll(path), content);
}

void tst_DatabaseStartupCheck::readOnlyFolder_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("says");
    QTest::newRow("healthy database") << healthyDatabase() << QStringList{"cannot be written"};
    QTest::newRow("damaged database")
        << randomBytes(20000, 7) << QStringList{"cannot be written", "is damaged", "could not be moved"};
}

void tst_DatabaseStartupCheck::readOnlyFolder()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, says);
    QTemporaryDir dir;
    const QString path = QDir::toNativeSeparators(dir.filePath("data.sqlite"));
    QVERIFY(writeFile(path, content));
    QVERIFY(QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::ExeOwner));
    const auto restore = qScopeGuard(
        [&] { QFile::setPermissions(dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner); });
    if (!folderRefusesWrites(dir.path()))
        QSKIP("This user writes into a read-only folder anyway (root): nothing to report");
    DatabaseManager db(dir.path());
    const StartupReport report = DataFolderCheck::run(&db, 0);
    QCOMPARE(report.severity, StartupReport::Error);
    for (const QString &text : says)
        QVERIFY2(report.message.contains(text), qPrintable(report.message));
    QVERIFY2(report.message.contains(QDir::toNativeSeparators(dir.path())), qPrintable(report.message));
    QVERIFY(report.movedAsideTo.isEmpty());
    QCOMPARE(readAll(path), content);
    QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"data.sqlite"});
}

QTEST_GUILESS_MAIN(tst_DatabaseStartupCheck)
#include "tst_DatabaseStartupCheck.moc"
