#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "tests/database/DatabaseTestSupport.h"
#include "tests/support/TestFiles.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {
// A database in a fresh folder, with its application log beside it.
struct Fixture
{
    QTemporaryDir dir;
    Logger logger{dir.filePath(QStringLiteral("Application.log"))};
    DatabaseManager db{dir.path(), &logger};
    QString logText() { return QString::fromUtf8(readAll(logger.path())); }
    int count(const char *table) { return countOf(db, QStringLiteral("select count(*) from %1").arg(table)); }
};

ModelData named(const QString &name)
{
    ModelData m;
    m.name = name;
    return m;
}
} // namespace

class tst_DatabaseManager : public QObject
{
    Q_OBJECT
private slots:
    void emptyFolderCreatesAllTablesOnce();
    void missingTableIsRecreatedAlone();
    void pre054DatabaseGainsUpdatedColumn();
    void sensorRowsInsertOrIgnoreAndUpdate();
    void listsSortedWithoutRegardToCase();
    void modelRoundTrip();
    void deletingModelCascades();
    void blobsStoredInQtCompressFormat();
    void backupListing();
    void logLookups();
    void nestedTransactions();
    void layoutsAndReset();
};

void tst_DatabaseManager::emptyFolderCreatesAllTablesOnce()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(f.db.databasePath(), QDir::toNativeSeparators(f.dir.filePath("data.sqlite")));
    // Every table, in the order the groups create them (a table's references come before it).
    QSqlQuery tables(QSqlDatabase::database(f.db.connectionName()));
    QStringList created;
    QVERIFY(tables.exec("select name from sqlite_master where type = 'table' order by rowid"));
    while (tables.next())
        created << tables.value(0).toString();
    QCOMPARE(created, QStringList({"sensors", "layouts", "models", "folders", "logs", "comments", "logbook",
                                   "backups"}));
    QCOMPARE(countOf(f.db, "PRAGMA auto_vacuum"), 1); // FULL
    QVERIFY(f.logText().contains(" | System ... Database reinitialization\n"));

    // A second start finds everything and writes nothing; foreign keys are on for every connection.
    f.db.close();
    const QString before = f.logText();
    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(f.logText(), before);
    QCOMPARE(countOf(f.db, "PRAGMA foreign_keys"), 1);
}

void tst_DatabaseManager::missingTableIsRecreatedAlone()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    QVERIFY(f.db.insertModel(named("Kept")) > 0);
    QVERIFY(f.db.insertLayout("L", "d", "{}", QByteArray()) > 0);
    QVERIFY(execOn(f.db, "drop table backups"));
    f.db.close();
    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(countOf(f.db, "select count(*) from sqlite_master where name = 'backups'"), 1);
    QCOMPARE(std::make_pair(f.count("models"), f.count("layouts")), std::make_pair(1, 1));
    QCOMPARE(f.logText().count("Database reinitialization"), 2);
}

void tst_DatabaseManager::pre054DatabaseGainsUpdatedColumn()
{
    Fixture f;
    f.db.setConnectionName("old");
    QVERIFY(f.db.open());
    QVERIFY(execOn(f.db,
                   "create table sensors (id integer not null, param integer not null, label varchar (20), "
                   "unit varchar (8), unitConversion varchar (8), defaultMin real, defaultMax real, "
                   "defaultColor int, primary key (id, param))"));
    QVERIFY(execOn(f.db, "insert into sensors values (1, 0, 'Rx', '', '0', 0, 0, 0), "
                         "(1, 2, 'Speed', 'm/s', '1', 0, 50, 255)"));
    f.db.close();

    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(countOf(f.db, "select count(*) from sensors where updated = 0"), 2);
    SensorRow row;
    QVERIFY(f.db.findSensor(1, 2, &row));
    QCOMPARE(std::make_tuple(row.unitConversion, row.defaultMax, row.updated),
             std::make_tuple(QString("1"), 50.0, false));
    // The 0.5.4 insert (nine values) works on the upgraded table.
    SensorRow fresh;
    fresh.id = 7;
    QVERIFY(f.db.insertDefaultSensor(fresh));
    f.db.close();
    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(f.logText().count("Database update to 0.5.4"), 1);
}

void tst_DatabaseManager::sensorRowsInsertOrIgnoreAndUpdate()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    SensorRow row;
    row.id = 0xFFFF0000u; // high half set: must survive as unsigned
    row.param = 3;
    row.label = "Volt";
    QVERIFY(f.db.insertDefaultSensor(row));
    SensorRow second = row;
    second.label = "Other";
    QVERIFY(f.db.insertDefaultSensor(second)); // ignored: the first row stays
    SensorRow found;
    QVERIFY(f.db.findSensor(row.id, 3, &found));
    QCOMPARE(found.label, QString("Volt"));
    QVERIFY(!f.db.findSensor(row.id, 4, &found));

    row.unitConversion = "2";
    row.defaultMin = -1.5;
    row.defaultMax = 9.25;
    row.defaultColor = 0x112233;
    QVERIFY(f.db.updateSensorSettings(row));
    QVERIFY(f.db.findSensor(row.id, 3, &found));
    QCOMPARE(std::make_tuple(found.unitConversion, found.defaultMin, found.defaultMax, found.defaultColor,
                             found.updated),
             std::make_tuple(QString("2"), -1.5, 9.25, 0x112233, true));
    QVERIFY(f.db.deleteAllSensors());
    QVERIFY(!f.db.findSensor(row.id, 3, &found));
}

void tst_DatabaseManager::listsSortedWithoutRegardToCase()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    for (const char *n : {"b", "Extra", "alpine", "EXTRA", "Alpha", "extra"}) {
        QVERIFY(f.db.insertModel(named(n)) > 0);
        QVERIFY(f.db.insertLayout(n, "", "{}", QByteArray()) > 0);
    }
    QStringList models, layouts;
    for (const ModelData &m : f.db.models())
        models << m.name.toLower();
    for (const DatabaseManager::LayoutRow &l : f.db.layouts())
        layouts << l.name.toLower();
    // Capitals do not sort first; names equal apart from case sort together (in no fixed order).
    const QStringList expected{"alpha", "alpine", "b", "extra", "extra", "extra"};
    QCOMPARE(models, expected);
    QCOMPARE(layouts, expected);
}

void tst_DatabaseManager::modelRoundTrip()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    ModelData m = named("Extra 300");
    m.rx1 = 0xFFFFFFFFLL; // receiver ids use all 32 bits
    m.screenshot = QByteArray("\x89PNG\0\x01", 6);
    const int id = f.db.insertModel(m);
    ModelData back;
    QVERIFY(f.db.model(id, &back));
    QCOMPARE(std::make_tuple(back.rx1, back.screenshot), std::make_tuple(m.rx1, m.screenshot));
    QVERIFY(qAbs(back.dateCreated.secsTo(QDateTime::currentDateTimeUtc())) < 600);
    back.layout = "{}";
    QVERIFY(f.db.updateModel(back));
    QVERIFY(f.db.model(id, &back));
    QCOMPARE(back.layout, QByteArray("{}"));
    QVERIFY(!f.db.model(id + 100, &back));
}

// Deleting a folder takes its contents too: tst_ModelFolderTree::newFolderAndRemove.
void tst_DatabaseManager::deletingModelCascades()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const int ma = f.db.insertModel(named("A")), mb = f.db.insertModel(named("B"));
    const int sub = f.db.insertFolder(f.db.insertFolder(-1, ma, "2024"), ma, "05");
    const int log1 = f.db.insertLog(ma, sub, "one.log", "", 10, QDateTime::currentDateTime());
    f.db.insertLog(ma, -1, "two.log", "", 10, QDateTime::currentDateTime());
    f.db.insertLog(mb, f.db.insertFolder(-1, mb, "keep"), "three.log", "", 10, QDateTime::currentDateTime());
    QVERIFY(execOn(f.db, QStringLiteral("insert into comments (logId,timems,type,code,comment) "
                                        "values (%1,1,0,0,'x')")
                             .arg(log1)));
    QVERIFY(f.db.deleteModel(ma));
    QCOMPARE(std::make_tuple(f.count("folders"), f.count("logs"), f.count("comments")),
             std::make_tuple(1, 1, 0));
    QCOMPARE(countOf(f.db, "select modelId from logs"), mb);
}

void tst_DatabaseManager::blobsStoredInQtCompressFormat()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    QByteArray big;
    for (int i = 0; i < 300000; ++i)
        big += QByteArray::number(i) + ';';
    const QByteArray small = "file list\n";
    const int backup = f.db.insertBackup(0xABCDu, "Backup", "desc", big.size(), small, big);
    QByteArray data, list;
    QVERIFY(f.db.backupData(backup, &data) && f.db.backupFileList(backup, &list));
    QCOMPARE(std::make_pair(data, list), std::make_pair(big, small));

    // What is stored is exactly what the framework's own qUncompress reads, in every column.
    const int log = f.db.insertLog(f.db.insertModel(ModelData()), -1, "l", "", 5, QDateTime());
    QVERIFY(f.db.updateLog(log, "c", QDateTime(QDate(2024, 5, 17), QTime(10, 0)), big, 5));
    QSqlQuery q(QSqlDatabase::database(f.db.connectionName()));
    QVERIFY(q.exec(QStringLiteral("select l.data, b.data, b.fileList, b.dateCreated from logs l, backups b "
                                  "where l.id = %1 and b.id = %2")
                       .arg(log)
                       .arg(backup)) &&
            q.next());
    QVERIFY(q.value(0).toByteArray().size() < big.size() / 2);
    QCOMPARE(qUncompress(q.value(0).toByteArray()), big);
    QCOMPARE(qUncompress(q.value(1).toByteArray()), big);
    QCOMPARE(qUncompress(q.value(2).toByteArray()), small);
    QVERIFY(!q.value(3).toString().isEmpty());
    QVERIFY(f.db.deleteBackup(backup));
    QVERIFY(!f.db.backupData(backup, &data));
}

// Newest first, ties by id; the viewer's columns without the blobs.
void tst_DatabaseManager::backupListing()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const int a = f.db.insertBackup(674u, "first", "one", 10, "l", "d");
    const int b = f.db.insertBackup(65535u, "second", "", 20, "l", "d");
    const int c = f.db.insertBackup(679u, "third", "three", 30, "l", "d");
    QVERIFY(execOn(
        f.db, QStringLiteral("update backups set dateCreated = '2020-01-02 03:04:05' where id = %1").arg(b)));
    bool ok = false;
    const QVector<BackupRow> rows = f.db.listBackups(&ok);
    QVERIFY(ok);
    QCOMPARE(rows.size(), 3);
    QCOMPARE(std::make_tuple(rows.at(0).id, rows.at(1).id, rows.at(2).id), std::make_tuple(c, a, b));
    QCOMPARE(std::make_tuple(rows.at(2).hwid, rows.at(2).name, rows.at(2).description, rows.at(2).size),
             std::make_tuple(65535u, QString("second"), QString(), qint64(20)));
    QCOMPARE(rows.at(2).dateCreated, QDateTime(QDate(2020, 1, 2), QTime(3, 4, 5), Qt::UTC));
    QCOMPARE(rows.at(0).description, QStringLiteral("three"));
}

void tst_DatabaseManager::logLookups()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const int model = f.db.insertModel(ModelData());
    const QDateTime when(QDate(2024, 5, 17), QTime(10, 23, 45));
    const int id = f.db.insertLog(model, -1, "10-23-45.log", "", 1000, when);
    QVERIFY(f.db.updateLog(id, "first", when, "# a\n# b\n", 1000));
    // The recording date is the duplicate key of log synchronisation.
    QCOMPARE(
        std::make_tuple(f.db.findLogByDate(when), f.db.findLogByDate(when.addSecs(1)), f.db.modelOfLog(id)),
        std::make_tuple(id, -1, model));
    QByteArray data;
    QDateTime date;
    QVERIFY(f.db.loadLog(id, &data, &date, nullptr));
    QCOMPARE(std::make_pair(data, date), std::make_pair(QByteArray("# a\n# b\n"), when));
    // A log row without data (never completed) is reported, not read as empty.
    QVERIFY(!f.db.loadLog(f.db.insertLog(model, -1, "empty.log", "", 0, when), &data, &date, nullptr));
    QVERIFY(f.db.lastError().contains("no data"));
}

void tst_DatabaseManager::nestedTransactions()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    QVERIFY(f.db.beginTransaction());
    f.db.insertModel(ModelData());
    QVERIFY(f.db.beginTransaction());
    f.db.insertModel(ModelData());
    f.db.rollbackTransaction(); // only the inner part goes
    QCOMPARE(f.db.transactionDepth(), 1);
    QVERIFY(f.db.commitTransaction());
    QCOMPARE(f.count("models"), 1);
    QVERIFY(f.db.beginTransaction());
    f.db.insertModel(ModelData());
    f.db.rollbackTransaction();
    QCOMPARE(f.count("models"), 1);
    QVERIFY(!f.db.commitTransaction()); // nothing open
}

void tst_DatabaseManager::layoutsAndReset()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const int id = f.db.insertLayout("Mine", "for gliders", "{\"Main-Container\":{}}", QByteArray("png", 3));
    QCOMPARE(f.db.layouts().size(), 1);
    const DatabaseManager::LayoutRow row = f.db.layouts().at(0);
    QCOMPARE(std::make_tuple(row.id, row.description, row.data, row.screenshot),
             std::make_tuple(id, QString("for gliders"), QByteArray("{\"Main-Container\":{}}"),
                             QByteArray("png")));
    QVERIFY(row.dateCreated.isValid());
    QVERIFY(f.db.deleteLayout(id));
    QVERIFY(f.db.layouts().isEmpty());

    // The user's reset removes the file; the next start builds a fresh one.
    QVERIFY(f.db.deleteDatabaseFile());
    QVERIFY(!f.db.isOpen() && !QFile::exists(f.db.databasePath()));
    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(f.logText().count("Database reinitialization"), 2);
}

QTEST_GUILESS_MAIN(tst_DatabaseManager)
#include "tst_DatabaseManager.moc"
