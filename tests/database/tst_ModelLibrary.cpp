#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/TestFiles.h"

#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QtTest>

namespace {
int countOf(const DatabaseManager &db, const QString &sql)
{
    QSqlQuery q(QSqlDatabase::database(db.connectionName()));
    return q.exec(sql) && q.next() ? q.value(0).toInt() : -1;
}

TelemetryDataPackage flight(int seconds, int rate = 10, quint64 seed = 3)
{
    LogGenerator::Options o;
    o.seconds = seconds;
    o.rate = rate;
    o.devices = 3;
    o.seed = seed;
    TelemetryDataPackage p = LogGenerator::generate(o);
    p.setRecordingDate(QDateTime(QDate(2024, 5, 17), QTime(10, 23, 45)));
    return p;
}
} // namespace

class tst_ModelLibrary : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void newModelGetsTheDefaultLayout();
    void findModelByName_data();
    void findModelByName();
    void storedLogComesBackByteIdentical();
    void openLogFeedsTheStore();
    void datePathIsFoundOrCreatedLevelByLevel();
    void foldersNeverMoveIntoThemselves_data();
    void foldersNeverMoveIntoThemselves();
    void logsStayWithTheirModel();
    void renamingALogKeepsItsData();
    void failedStoreLeavesNothing();
    void importFileIsAllOrNothing_data();
    void importFileIsAllOrNothing();
    void exportFailures();
    void damagedStoredLogIsReported();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ModelLibrary> m_lib;
};

void tst_ModelLibrary::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_db = std::make_unique<DatabaseManager>(m_dir->path());
    QVERIFY(m_db->openAndInitialise());
    m_lib = std::make_unique<ModelLibrary>(m_db.get());
}

void tst_ModelLibrary::cleanup()
{
    m_lib.reset();
    m_db.reset();
    m_dir.reset();
}

void tst_ModelLibrary::newModelGetsTheDefaultLayout()
{
    const int id = m_lib->createModel("Extra 300");
    QVERIFY(id > 0);
    ModelData m;
    QVERIFY(m_db->model(id, &m));
    QCOMPARE(m.layout, DefaultLayout::document());
    QVERIFY(m.layout.startsWith("{\"Main-Container\":{\"Type\":\"Container\",\"Vertical\":0,"));
    QVERIFY(m.layout.endsWith("\"Sizes\":[557,1358]},\"Container\":[]}"));
    QVERIFY(m.screenshot.isEmpty());
    QVERIFY(m.data.isEmpty());
    QVERIFY(m_lib->createModel("  ") < 0);
}

void tst_ModelLibrary::findModelByName_data()
{
    QTest::addColumn<QStringList>("models");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("index"); // into models, -1: none
    QTest::newRow("exact") << QStringList{"Extra", "Yak"} << "Yak" << 1;
    QTest::newRow("other case") << QStringList{"Extra", "Yak"} << "yAK" << 1;
    QTest::newRow("exact wins over case") << QStringList{"yak", "Yak"} << "Yak" << 1;
    QTest::newRow("ambiguous case") << QStringList{"yak", "YAK"} << "Yak" << -1;
    QTest::newRow("missing") << QStringList{"Extra"} << "Yak" << -1;
}

void tst_ModelLibrary::findModelByName()
{
    QFETCH(QStringList, models);
    QFETCH(QString, name);
    QFETCH(int, index);
    QVector<int> ids;
    for (const QString &m : models)
        ids << m_lib->createModel(m);
    bool ok = false;
    QCOMPARE(m_lib->findModel(name, &ok), index < 0 ? -1 : ids.at(index));
    QVERIFY(ok);
}

// Large blobs (parallel compression) are the blob tests' business; one short log does here.
void tst_ModelLibrary::storedLogComesBackByteIdentical()
{
    const int seconds = 20;
    const TelemetryDataPackage p = flight(seconds, 5);
    const QByteArray native = LogFileWriter::write(p);
    const int model = m_lib->createModel("M");
    int folder = -1;
    QVERIFY(m_lib->folderForPath(model, "2024/05/17", &folder));
    const int id = m_lib->storeLog(p, model, folder, "10-23-45.log", "calm evening");
    QVERIFY2(id > 0, qPrintable(m_lib->lastError()));

    QByteArray stored;
    QDateTime date;
    int owner = -1;
    QVERIFY(m_db->loadLog(id, &stored, &date, &owner));
    QCOMPARE(stored, native);
    QCOMPARE(date, p.recordingDate());
    QCOMPARE(owner, model);
    QCOMPARE(m_db->logLengths(model).value(id), ModelLibrary::lengthOf(p));
    QVERIFY(ModelLibrary::lengthOf(p) >= (seconds - 1) * 1000);

    const QString out = m_dir->filePath("export.log");
    QVERIFY(m_lib->exportLog(id, out));
    QCOMPARE(readAll(out), native);

    TelemetryDataPackage back;
    QVERIFY(m_lib->readLog(id, &back));
    QCOMPARE(back.sampleCount(), p.sampleCount());
    QCOMPARE(back.devices().size(), p.devices().size());
    QCOMPARE(back.recordingDate(), p.recordingDate());
}

void tst_ModelLibrary::openLogFeedsTheStore()
{
    const TelemetryDataPackage p = flight(10);
    const int id = m_lib->storeLog(p, m_lib->createModel("M"), -1);
    TelemetryData store(m_db.get());
    QSignalSpy loaded(&store, &TelemetryData::logFileLoaded);
    QVERIFY(m_lib->openLog(id, &store));
    QCOMPARE(loaded.count(), 1);
    QCOMPARE(loaded.at(0).at(0).toInt(), id);
    QCOMPARE(store.package().sampleCount(), p.sampleCount());
    QCOMPARE(store.package().name(), p.name());
    QVERIFY(!m_lib->openLog(id + 1, &store));
    QCOMPARE(loaded.count(), 1);
    QCOMPARE(store.package().sampleCount(), p.sampleCount());
}

void tst_ModelLibrary::datePathIsFoundOrCreatedLevelByLevel()
{
    const int model = m_lib->createModel("M");
    const int other = m_lib->createModel("Other");
    int otherDay = -1;
    QVERIFY(m_lib->folderForPath(other, "2024/05/17", &otherDay));
    int day = -1;
    QVERIFY(m_lib->folderForPath(model, "2024/05/17", &day));
    QVERIFY(day != otherDay); // another model's folders of the same name are not shared
    QCOMPARE(countOf(*m_db, "select count(*) from folders"), 6);
    int again = -1;
    QVERIFY(m_lib->folderForPath(model, "2024/05/17", &again));
    QCOMPARE(again, day);
    int sibling = -1;
    QVERIFY(m_lib->folderForPath(model, "2024/05/18", &sibling));
    QCOMPARE(countOf(*m_db, "select count(*) from folders"), 7);
    int parent = -1;
    QVERIFY(m_db->folderParent(sibling, &parent, nullptr));
    int dayParent = -1;
    QVERIFY(m_db->folderParent(day, &dayParent, nullptr));
    QCOMPARE(parent, dayParent);
    int top = 0;
    QVERIFY(m_lib->folderForPath(model, "", &top));
    QCOMPARE(top, -1);
}

void tst_ModelLibrary::foldersNeverMoveIntoThemselves_data()
{
    QTest::addColumn<QString>("moved");
    QTest::addColumn<QString>("target"); // "" = top level
    QTest::addColumn<bool>("allowed");
    const auto row = [](const char *name, const char *moved, const char *target, bool allowed) {
        QTest::newRow(name) << QString(moved) << QString(target) << allowed;
    };
    row("into itself", "a", "a", false);
    row("into its child", "a", "b", false);
    row("into its grandchild", "a", "c", false);
    row("into a sibling", "c", "d", true);
    row("up to the top level", "c", "", true);
    row("into another model", "a", "foreign", false);
}

void tst_ModelLibrary::foldersNeverMoveIntoThemselves()
{
    QFETCH(QString, moved);
    QFETCH(QString, target);
    QFETCH(bool, allowed);
    // a/b/c and a/d in one model, "foreign" in another.
    const int model = m_lib->createModel("M");
    QHash<QString, int> f;
    f["a"] = m_lib->createFolder(model, -1, "a");
    f["b"] = m_lib->createFolder(model, f["a"], "b");
    f["c"] = m_lib->createFolder(model, f["b"], "c");
    f["d"] = m_lib->createFolder(model, f["a"], "d");
    f["foreign"] = m_lib->createFolder(m_lib->createModel("N"), -1, "foreign");
    int before = -2;
    QVERIFY(m_db->folderParent(f[moved], &before, nullptr));
    const int targetId = target.isEmpty() ? -1 : f[target];
    QCOMPARE(m_lib->moveFolder(f[moved], targetId), allowed);
    int after = -2;
    QVERIFY(m_db->folderParent(f[moved], &after, nullptr));
    QCOMPARE(after, allowed ? targetId : before);
    if (!allowed)
        QVERIFY(!m_lib->lastError().isEmpty());
}

void tst_ModelLibrary::logsStayWithTheirModel()
{
    const int a = m_lib->createModel("A");
    const int b = m_lib->createModel("B");
    const int fa = m_lib->createFolder(a, -1, "fa");
    const int fb = m_lib->createFolder(b, -1, "fb");
    const int log = m_lib->storeLog(flight(5), a, -1);
    QVERIFY(m_lib->moveLog(log, fa));
    QVERIFY(!m_lib->moveLog(log, fb));
    QCOMPARE(countOf(*m_db, QStringLiteral("select folderId from logs where id = %1").arg(log)), fa);
    QVERIFY(m_lib->moveLog(log, -1));
    QCOMPARE(countOf(*m_db, QStringLiteral("select count(*) from logs where folderId is null")), 1);
    QVERIFY(m_lib->createFolder(a, fb, "cross") < 0);
}

void tst_ModelLibrary::renamingALogKeepsItsData()
{
    const TelemetryDataPackage p = flight(5);
    const int log = m_lib->storeLog(p, m_lib->createModel("M"), -1, "old.log");
    QVERIFY(m_lib->renameLog(log, "new name"));
    QVERIFY(m_lib->editComment(log, "gusty"));
    QVERIFY(!m_lib->renameLog(log, ""));
    QByteArray data;
    QVERIFY(m_db->logData(log, &data));
    QCOMPARE(data, LogFileWriter::write(p));
    const QVector<DatabaseManager::LogRow> rows = m_db->topLevelLogs();
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.at(0).filename, QString("new name"));
    QCOMPARE(rows.at(0).comment, QString("gusty"));
    QCOMPARE(rows.at(0).dateCreated, p.recordingDate());
}

void tst_ModelLibrary::failedStoreLeavesNothing()
{
    // No such model: the foreign key refuses the row and the half-written log goes with it.
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression("SQLite error:.*FOREIGN KEY.*SQLite error code: 19"));
    QCOMPARE(m_lib->storeLog(flight(5), 999, -1), -1);
    QVERIFY(m_lib->lastError().contains("FOREIGN KEY"));
    QVERIFY(m_lib->lastError().contains(m_db->databasePath()));
    QCOMPARE(countOf(*m_db, "select count(*) from logs"), 0);
    QCOMPARE(m_db->transactionDepth(), 0);
    QVERIFY(m_lib->storeLog(flight(5), m_lib->createModel("M"), -1) > 0);
}

void tst_ModelLibrary::importFileIsAllOrNothing_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("modelExists");
    QTest::addColumn<QString>("error"); // empty: stored
    // Messages move 1 ms later on every round trip; without them the writer's bytes come back as they were.
    TelemetryDataPackage quiet = flight(5);
    quiet.messages().clear();
    const QByteArray native = LogFileWriter::write(quiet);
    QTest::newRow("native log") << "a.log" << native << true << QString();
    QTest::newRow("empty file") << "a.log" << QByteArray() << true << "empty";
    TelemetryDataPackage silent;
    silent.addDevice(7, "Rx");
    QTest::newRow("no samples") << "a.log" << LogFileWriter::write(silent) << true << "holds no telemetry";
    QTest::newRow("unknown format") << "a.dat" << native << true << "unknown log format";
    QTest::newRow("missing file") << "" << QByteArray() << true << "no such file";
    // Read fine, refused by the database: the sensor rows the reading added go too.
    QTest::newRow("no such model") << "a.log" << native << false << "FOREIGN KEY";
}

void tst_ModelLibrary::importFileIsAllOrNothing()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, modelExists);
    QFETCH(QString, error);
    const QString path = m_dir->filePath(name.isEmpty() ? QStringLiteral("missing.log") : name);
    if (!name.isEmpty()) {
        QVERIFY(writeFile(path, bytes));
    }
    const int model = modelExists ? m_lib->createModel("M") : 999;
    if (!modelExists)
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("SQLite error:.*FOREIGN KEY"));
    QString warning = "stale";
    TelemetryDataPackage read;
    const int id = m_lib->importFile(path, model, -1, &warning, &read);
    QCOMPARE(m_db->transactionDepth(), 0);
    QVERIFY(warning.isEmpty());
    if (!error.isEmpty()) {
        QCOMPARE(id, -1);
        QVERIFY2(m_lib->lastError().startsWith(path + ": "), qPrintable(m_lib->lastError()));
        QVERIFY2(m_lib->lastError().contains(error), qPrintable(m_lib->lastError()));
        QCOMPARE(countOf(*m_db, "select count(*) from logs"), 0);
        QCOMPARE(countOf(*m_db, "select count(*) from sensors"), 0);
        return;
    }
    QVERIFY2(id > 0, qPrintable(m_lib->lastError()));
    QByteArray stored;
    QVERIFY(m_db->loadLog(id, &stored, nullptr, nullptr));
    QCOMPARE(stored, bytes); // the writer's own output comes back unchanged
    QCOMPARE(m_db->topLevelLogs().at(0).filename, QStringLiteral("a.log"));
    QCOMPARE(read.sampleCount(), flight(5).sampleCount());
    QVERIFY(countOf(*m_db, "select count(*) from sensors") > 0);
}

void tst_ModelLibrary::exportFailures()
{
    const int log = m_lib->storeLog(flight(5), m_lib->createModel("M"), -1);
    QVERIFY(!m_lib->exportLog(log + 1, m_dir->filePath("x.log")));
    QVERIFY(m_lib->lastError().contains("doesn't exist"));
    QVERIFY(!QFile::exists(m_dir->filePath("x.log")));
    QVERIFY(!m_lib->exportLog(log, m_dir->path()));
    QVERIFY(!m_lib->exportLog(log, m_dir->filePath("no/such/folder/x.log")));
    QVERIFY(m_lib->lastError().contains("Error writing to disk"));
    // An existing file is replaced only by a complete export.
    const QString target = m_dir->filePath("keep.log");
    QVERIFY(writeFile(target, "precious"));
    QSqlQuery(QSqlDatabase::database(m_db->connectionName()))
        .exec(QStringLiteral("update logs set data = x'00000100789c' where id = %1").arg(log));
    QVERIFY(!m_lib->exportLog(log, target));
    QCOMPARE(readAll(target), QByteArray("precious"));
}

void tst_ModelLibrary::damagedStoredLogIsReported()
{
    const int log = m_lib->storeLog(flight(30), m_lib->createModel("M"), -1);
    QByteArray blob;
    QVERIFY(m_db->logDataCompressed(log, &blob));
    // A header that claims ~2 GB over a small body: refused before any allocation.
    blob[0] = char(0x7f);
    QSqlQuery q(QSqlDatabase::database(m_db->connectionName()));
    QVERIFY(q.prepare("update logs set data = ? where id = ?"));
    q.addBindValue(blob);
    q.addBindValue(log);
    QVERIFY(q.exec());
    TelemetryDataPackage p;
    QVERIFY(!m_lib->readLog(log, &p));
    QVERIFY2(m_lib->lastError().contains("damaged"), qPrintable(m_lib->lastError()));
    QByteArray data;
    QVERIFY(!m_db->loadLog(log, &data, nullptr, nullptr));
    QVERIFY(m_db->lastError().contains("damaged"));
    QVERIFY(!m_lib->exportLog(log, m_dir->filePath("d.log")));
    QVERIFY(!QFile::exists(m_dir->filePath("d.log")));
}

QTEST_GUILESS_MAIN(tst_ModelLibrary)
#include "tst_ModelLibrary.moc"
