#include "database/BlobCodec.h"
#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/TestFiles.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {
int countOf(const QString &connection, const QString &sql)
{
    QSqlQuery q(QSqlDatabase::database(connection));
    return q.exec(sql) && q.next() ? q.value(0).toInt() : -1;
}

// A database in a fresh folder, with its application log beside it.
struct Fixture
{
    QTemporaryDir dir;
    Logger logger{dir.filePath(QStringLiteral("Application.log"))};
    DatabaseManager db{dir.path(), &logger};
    QString logText() { return QString::fromUtf8(readAll(logger.path())); }
};
} // namespace

class tst_DatabaseManager : public QObject
{
    Q_OBJECT
private slots:
    void emptyFolderCreatesAllTablesOnce();
    void missingTableIsRecreatedAlone();
    void pre054DatabaseGainsUpdatedColumn();
    void sensorsFeedAndUseLoadedLogs();
    void sensorRowsInsertOrIgnoreAndUpdate();
    void listsSortedWithoutRegardToCase_data();
    void listsSortedWithoutRegardToCase();
    void modelRoundTrip();
    void deletingModelCascades();
    void blobsStoredInQtCompressFormat();
    void logLookups();
    void nestedTransactions();
    void layoutsAndReset();
};

void tst_DatabaseManager::emptyFolderCreatesAllTablesOnce()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    QVERIFY(QFile::exists(f.dir.filePath("data.sqlite")));
    QCOMPARE(f.db.databasePath(), QDir::toNativeSeparators(f.dir.filePath("data.sqlite")));
    const QString c = f.db.connectionName();
    // Every table, in the order the groups create them (a table's references come before it).
    QSqlQuery tables(QSqlDatabase::database(c));
    QStringList created;
    QVERIFY(tables.exec("select name from sqlite_master where type = 'table' order by rowid"));
    while (tables.next())
        created << tables.value(0).toString();
    QCOMPARE(created,
             QStringList({"sensors", "layouts", "models", "folders", "logs", "comments", "backups"}));
    QCOMPARE(countOf(c, "PRAGMA foreign_keys"), 1);
    QCOMPARE(countOf(c, "PRAGMA auto_vacuum"), 1); // FULL
    QCOMPARE(f.logText().count("Database reinitialization"), 1);
    QVERIFY(f.logText().contains(QRegularExpression(
        R"(\n\d\d\.\d\d\.\d{4} \| \d\d:\d\d:\d\d \| System \.\.\. Database reinitialization\n)")));

    // A second start finds everything and writes nothing.
    f.db.close();
    const QString before = f.logText();
    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(f.logText(), before);
    QCOMPARE(countOf(c, "PRAGMA foreign_keys"), 1);
}

void tst_DatabaseManager::missingTableIsRecreatedAlone()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    ModelData m;
    m.name = "Kept";
    QVERIFY(f.db.insertModel(m) > 0);
    QVERIFY(f.db.insertLayout("L", "d", "{}", QByteArray()) > 0);
    QSqlQuery(QSqlDatabase::database(f.db.connectionName())).exec("drop table backups");
    f.db.close();

    QVERIFY(f.db.openAndInitialise());
    const QString c = f.db.connectionName();
    QCOMPARE(countOf(c, "select count(*) from sqlite_master where name = 'backups'"), 1);
    QCOMPARE(countOf(c, "select count(*) from models"), 1);
    QCOMPARE(countOf(c, "select count(*) from layouts"), 1);
    QCOMPARE(f.logText().count("Database reinitialization"), 2);
}

void tst_DatabaseManager::pre054DatabaseGainsUpdatedColumn()
{
    QTemporaryDir dir;
    {
        QSqlDatabase old = QSqlDatabase::addDatabase("QSQLITE", "old");
        old.setDatabaseName(dir.filePath("data.sqlite"));
        QVERIFY(old.open());
        QSqlQuery q(old);
        QVERIFY(
            q.exec("create table sensors (id integer not null, param integer not null, label varchar (20), "
                   "unit varchar (8), unitConversion varchar (8), defaultMin real, defaultMax real, "
                   "defaultColor int, primary key (id, param))"));
        QVERIFY(q.exec("insert into sensors values (1, 0, 'Rx', '', '0', 0, 0, 0)"));
        QVERIFY(q.exec("insert into sensors values (1, 2, 'Speed', 'm/s', '1', 0, 50, 255)"));
        old.close();
    }
    QSqlDatabase::removeDatabase("old");

    Logger logger(dir.filePath("Application.log"));
    DatabaseManager db(dir.path(), &logger);
    QVERIFY(db.openAndInitialise());
    const QString c = db.connectionName();
    QCOMPARE(countOf(c, "select count(*) from sensors where updated = 0"), 2);
    SensorRow row;
    QVERIFY(db.findSensor(1, 2, &row));
    QCOMPARE(row.unitConversion, QString("1"));
    QCOMPARE(row.defaultMax, 50.0);
    QVERIFY(!row.updated);
    // The 0.5.4 insert (nine values) works on the upgraded table.
    SensorRow fresh;
    fresh.id = 7;
    fresh.param = 1;
    QVERIFY(db.insertDefaultSensor(fresh));
    QCOMPARE(QString::fromUtf8(readAll(logger.path())).count("Database update to 0.5.4"), 1);

    db.close();
    QVERIFY(db.openAndInitialise());
    QCOMPARE(QString::fromUtf8(readAll(logger.path())).count("Database update to 0.5.4"), 1);
}

void tst_DatabaseManager::sensorsFeedAndUseLoadedLogs()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const QString path = f.dir.filePath("flight.log");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("# F\n# d\n000000000;0000100002;0;Rx; \n000000000;0000100002;1;Speed;m/s\n"
               "000001000;0000100002;1;12;0;10\n");
    file.close();

    TelemetryData store(&f.db);
    QCOMPARE(store.loadFile(path), 1);
    const quint32 dev = 1u | (2u << 16);
    SensorRow row;
    QVERIFY(f.db.findSensor(dev, 0, &row));
    QCOMPARE(row.label, QString("Rx"));
    QVERIFY(f.db.findSensor(dev, 1, &row));
    QCOMPARE(row.unit, QString("m/s"));

    // The user's choice, stored through the store, is applied the next time any log names the sensor.
    store.setUnit({dev, 1}, "km/h");
    QVERIFY(f.db.findSensor(dev, 1, &row));
    QVERIFY(row.updated);
    TelemetryData other(&f.db);
    QCOMPARE(other.loadFile(path), 1);
    QCOMPARE(other.package().device(dev)->var(1)->numberAt(0), 36.0);
}

void tst_DatabaseManager::sensorRowsInsertOrIgnoreAndUpdate()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    SensorRow row;
    row.id = 0xFFFF0000u; // high half set: must survive as unsigned
    row.param = 3;
    row.label = "Volt";
    row.unit = "V";
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
    QCOMPARE(found.unitConversion, QString("2"));
    QCOMPARE(found.defaultMin, -1.5);
    QCOMPARE(found.defaultMax, 9.25);
    QCOMPARE(found.defaultColor, 0x112233);
    QVERIFY(found.updated);
    QVERIFY(f.db.deleteAllSensors());
    QVERIFY(!f.db.findSensor(row.id, 3, &found));
}

void tst_DatabaseManager::listsSortedWithoutRegardToCase_data()
{
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("capitals do not sort first")
        << QStringList{"beta", "Alpha", "Gamma", "alpine"} << QStringList{"Alpha", "alpine", "beta", "Gamma"};
    QTest::newRow("names equal apart from case sort together")
        << QStringList{"b", "Extra", "a", "EXTRA", "extra"}
        << QStringList{"a", "b", "Extra", "EXTRA", "extra"};
}

void tst_DatabaseManager::listsSortedWithoutRegardToCase()
{
    QFETCH(QStringList, names);
    QFETCH(QStringList, expected);
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    for (const QString &n : names) {
        ModelData m;
        m.name = n;
        QVERIFY(f.db.insertModel(m) > 0);
        QVERIFY(f.db.insertLayout(n, "", "{}", QByteArray()) > 0);
    }
    QStringList models, layouts;
    for (const ModelData &m : f.db.models())
        models << m.name;
    for (const DatabaseManager::LayoutRow &l : f.db.layouts())
        layouts << l.name;
    // Names equal apart from case keep insertion order only by chance; compare them case-folded.
    QCOMPARE(QString(models.join('|')).toLower(), QString(expected.join('|')).toLower());
    QCOMPARE(QString(layouts.join('|')).toLower(), QString(expected.join('|')).toLower());
}

void tst_DatabaseManager::modelRoundTrip()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    ModelData m;
    m.name = "Extra 300";
    m.rx1 = 0xFFFFFFFFLL; // receiver ids use all 32 bits
    m.screenshot = QByteArray("\x89PNG\0\x01", 6);
    const int id = f.db.insertModel(m);
    ModelData back;
    QVERIFY(f.db.model(id, &back));
    QCOMPARE(back.rx1, m.rx1);
    QCOMPARE(back.screenshot, m.screenshot);
    QVERIFY(qAbs(back.dateCreated.secsTo(QDateTime::currentDateTimeUtc())) < 600);
    back.layout = "{}";
    QVERIFY(f.db.updateModel(back));
    QVERIFY(f.db.model(id, &back));
    QCOMPARE(back.layout, QByteArray("{}"));
    QVERIFY(!f.db.model(id + 100, &back));
    QVERIFY(QMetaType::type("ModelData") != QMetaType::UnknownType);
}

void tst_DatabaseManager::deletingModelCascades()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    ModelData a, b;
    a.name = "A";
    b.name = "B";
    const int ma = f.db.insertModel(a), mb = f.db.insertModel(b);
    const int top = f.db.insertFolder(-1, ma, "2024");
    const int sub = f.db.insertFolder(top, ma, "05");
    const int log1 = f.db.insertLog(ma, sub, "one.log", "", 10, QDateTime::currentDateTime());
    f.db.insertLog(ma, -1, "two.log", "", 10, QDateTime::currentDateTime());
    const int otherFolder = f.db.insertFolder(-1, mb, "keep");
    f.db.insertLog(mb, otherFolder, "three.log", "", 10, QDateTime::currentDateTime());
    const QString c = f.db.connectionName();
    QVERIFY(QSqlQuery(QSqlDatabase::database(c))
                .exec(QStringLiteral(
                          "insert into comments (logId,timems,type,code,comment) values (%1,1,0,0,'x')")
                          .arg(log1)));

    QVERIFY(f.db.deleteModel(ma));
    QCOMPARE(countOf(c, QStringLiteral("select count(*) from folders where modelId = %1").arg(ma)), 0);
    QCOMPARE(countOf(c, QStringLiteral("select count(*) from logs where modelId = %1").arg(ma)), 0);
    QCOMPARE(countOf(c, "select count(*) from comments"), 0);
    QCOMPARE(countOf(c, "select count(*) from folders"), 1);
    QCOMPARE(countOf(c, "select count(*) from logs"), 1);

    // Deleting a folder takes its sub-folders and logs.
    const int f1 = f.db.insertFolder(-1, mb, "x");
    const int f2 = f.db.insertFolder(f1, mb, "y");
    f.db.insertLog(mb, f2, "deep.log", "", 1, QDateTime());
    QVERIFY(f.db.deleteFolder(f1));
    QCOMPARE(countOf(c, "select count(*) from folders"), 1);
    QCOMPARE(countOf(c, "select count(*) from logs"), 1);
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
    QVERIFY(backup > 0);
    QByteArray data, list;
    QVERIFY(f.db.backupData(backup, &data));
    QVERIFY(f.db.backupFileList(backup, &list));
    QCOMPARE(data, big);
    QCOMPARE(list, small);

    // What is stored is exactly what the framework's own qUncompress reads, in every column.
    const int log = f.db.insertLog(f.db.insertModel(ModelData()), -1, "l", "", 5, QDateTime());
    QVERIFY(log > 0);
    QVERIFY(f.db.updateLog(log, "c", QDateTime(QDate(2024, 5, 17), QTime(10, 0)), big, 5));
    QSqlQuery q(QSqlDatabase::database(f.db.connectionName()));
    QVERIFY(q.exec(QStringLiteral("select data from logs where id = %1").arg(log)) && q.next());
    QVERIFY(q.value(0).toByteArray().size() < big.size() / 2);
    QCOMPARE(qUncompress(q.value(0).toByteArray()), big);
    QVERIFY(
        q.exec(QStringLiteral("select data, fileList, dateCreated from backups where id = %1").arg(backup)) &&
        q.next());
    QCOMPARE(qUncompress(q.value(0).toByteArray()), big);
    QCOMPARE(qUncompress(q.value(1).toByteArray()), small);
    QVERIFY(!q.value(2).toString().isEmpty());
    QVERIFY(f.db.deleteBackup(backup));
    QVERIFY(!f.db.backupData(backup, &data));
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
    QCOMPARE(f.db.findLogByDate(when), id);
    QCOMPARE(f.db.findLogByDate(when.addSecs(1)), -1);
    QCOMPARE(f.db.modelOfLog(id), model);
    QByteArray data;
    QDateTime date;
    int owner = -1;
    QVERIFY(f.db.loadLog(id, &data, &date, &owner));
    QCOMPARE(data, QByteArray("# a\n# b\n"));
    QCOMPARE(date, when);
    // A log row without data (never completed) is reported, not read as empty.
    const int empty = f.db.insertLog(model, -1, "empty.log", "", 0, when);
    QVERIFY(!f.db.loadLog(empty, &data, &date, &owner));
    QVERIFY(f.db.lastError().contains("no data"));
}

void tst_DatabaseManager::nestedTransactions()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const QString c = f.db.connectionName();
    QVERIFY(f.db.beginTransaction());
    f.db.insertModel(ModelData());
    QVERIFY(f.db.beginTransaction());
    f.db.insertModel(ModelData());
    f.db.rollbackTransaction(); // only the inner part goes
    QCOMPARE(f.db.transactionDepth(), 1);
    QVERIFY(f.db.commitTransaction());
    QCOMPARE(countOf(c, "select count(*) from models"), 1);
    QVERIFY(f.db.beginTransaction());
    f.db.insertModel(ModelData());
    f.db.rollbackTransaction();
    QCOMPARE(countOf(c, "select count(*) from models"), 1);
    QVERIFY(!f.db.commitTransaction()); // nothing open
}

void tst_DatabaseManager::layoutsAndReset()
{
    Fixture f;
    QVERIFY(f.db.openAndInitialise());
    const int id = f.db.insertLayout("Mine", "for gliders", "{\"Main-Container\":{}}", QByteArray("png", 3));
    QVERIFY(id > 0);
    QCOMPARE(f.db.layouts().size(), 1);
    const DatabaseManager::LayoutRow row = f.db.layouts().at(0);
    QCOMPARE(row.description, QString("for gliders"));
    QCOMPARE(row.data, QByteArray("{\"Main-Container\":{}}"));
    QCOMPARE(row.screenshot, QByteArray("png"));
    QVERIFY(row.dateCreated.isValid());
    QVERIFY(f.db.deleteLayout(id));
    QVERIFY(f.db.layouts().isEmpty());

    // The user's reset removes the file; the next start builds a fresh one.
    QVERIFY(f.db.deleteDatabaseFile());
    QVERIFY(!f.db.isOpen());
    QVERIFY(!QFile::exists(f.db.databasePath()));
    QVERIFY(f.db.openAndInitialise());
    QCOMPARE(f.logText().count("Database reinitialization"), 2);
}

QTEST_GUILESS_MAIN(tst_DatabaseManager)
#include "tst_DatabaseManager.moc"
