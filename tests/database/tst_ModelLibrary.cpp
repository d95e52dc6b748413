#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"
#include "tests/database/DatabaseTestSupport.h"
#include "tests/support/TestFiles.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

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
    void findLogByFolderAndName_data();
    void findLogByFolderAndName();
    void datePathIsFoundOrCreatedLevelByLevel();
    void nothingMovesAcrossModels();
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

void tst_ModelLibrary::findLogByFolderAndName_data()
{
    // model, folder, name, which stored log is found (empty: none)
    QTest::addColumn<QStringList>("row");
    QTest::newRow("top level") << QStringList{"A", "", "12-00-00.log", "A top"};
    QTest::newRow("in a folder") << QStringList{"A", "2024/05/17", "12-00-00.log", "A folder"};
    QTest::newRow("case ignored") << QStringList{"A", "2024/05/17", "12-00-00.LOG", "A folder"};
    QTest::newRow("parent folder is not the folder") << QStringList{"A", "2024/05", "12-00-00.log", ""};
    QTest::newRow("another model's log") << QStringList{"B", "", "12-00-00.log", ""};
    QTest::newRow("another name") << QStringList{"A", "", "12-00-01.log", ""};
}

// The duplicate check of log synchronisation: same model, same folder, same name.
void tst_ModelLibrary::findLogByFolderAndName()
{
    QFETCH(QStringList, row);
    const QString model = row[0], folder = row[1], name = row[2], found = row[3];
    const int a = m_lib->createModel("A");
    const int b = m_lib->createModel("B");
    int day = -1;
    QVERIFY(m_lib->folderForPath(a, "2024/05/17", &day));
    const QHash<QString, int> logs = {
        {"A top", m_lib->storeNativeLog("x", QDateTime(), 0, a, -1, "12-00-00.log")},
        {"A folder", m_lib->storeNativeLog("x", QDateTime(), 0, a, day, "12-00-00.log")}};
    int folderId = -1;
    QVERIFY(m_lib->folderForPath(model == "A" ? a : b, folder, &folderId));
    bool ok = false;
    QCOMPARE(m_lib->findLog(model == "A" ? a : b, folderId, name, &ok),
             found.isEmpty() ? -1 : logs.value(found));
    QVERIFY(ok);
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
    ModelData m;
    QVERIFY(m_db->model(id, &m));
    QCOMPARE(m.layout, DefaultLayout::document());
    QVERIFY(m.screenshot.isEmpty() && m.data.isEmpty());
    QVERIFY(m_lib->createModel("  ") < 0);
}

void tst_ModelLibrary::findModelByName_data()
{
    QTest::addColumn<QStringList>("models");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("index"); // into models, -1: none
    // A name that differs only in case: tst_VexoLogDb::importListExportDelete.
    QTest::newRow("exact wins over case") << QStringList{"yak", "Yak"} << "Yak" << 1;
    QTest::newRow("ambiguous case") << QStringList{"yak", "YAK"} << "Yak" << -1;
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
    const TelemetryDataPackage p = flight(20, 5);
    const QByteArray native = LogFileWriter::write(p);
    const int model = m_lib->createModel("M");
    const int id = m_lib->storeLog(p, model, -1, "10-23-45.log", "calm evening");
    QVERIFY2(id > 0, qPrintable(m_lib->lastError()));
    QByteArray stored;
    QDateTime date;
    int owner = -1;
    QVERIFY(m_db->loadLog(id, &stored, &date, &owner));
    QCOMPARE(stored, native);
    QCOMPARE(std::make_tuple(date, owner), std::make_tuple(p.recordingDate(), model));
    QCOMPARE(m_db->logLengths(model).value(id), ModelLibrary::lengthOf(p));
    QVERIFY(ModelLibrary::lengthOf(p) >= 19 * 1000);

    // Opening hands the store the log and names it by its id; a missing id keeps what is open.
    TelemetryData store(m_db.get());
    QSignalSpy loaded(&store, &TelemetryData::logFileLoaded);
    QVERIFY(m_lib->openLog(id, &store));
    QCOMPARE(loaded.count(), 1);
    QCOMPARE(loaded.at(0).at(0).toInt(), id);
    QCOMPARE(store.package().sampleCount(), p.sampleCount());
    QCOMPARE(store.package().recordingDate(), p.recordingDate());
    QVERIFY(!m_lib->openLog(id + 1, &store));
    QCOMPARE(loaded.count(), 1);
    QCOMPARE(store.package().sampleCount(), p.sampleCount());
}

void tst_ModelLibrary::datePathIsFoundOrCreatedLevelByLevel()
{
    const int model = m_lib->createModel("M");
    int otherDay = -1, day = -1, again = -1, sibling = -1, top = 0;
    QVERIFY(m_lib->folderForPath(m_lib->createModel("Other"), "2024/05/17", &otherDay));
    QVERIFY(m_lib->folderForPath(model, "2024/05/17", &day));
    QVERIFY(day != otherDay); // another model's folders of the same name are not shared
    QCOMPARE(countOf(*m_db, "select count(*) from folders"), 6);
    QVERIFY(m_lib->folderForPath(model, "2024/05/17", &again));
    QVERIFY(m_lib->folderForPath(model, "2024/05/18", &sibling));
    QCOMPARE(again, day);
    QCOMPARE(countOf(*m_db, "select count(*) from folders"), 7);
    int parent = -1, dayParent = -2;
    QVERIFY(m_db->folderParent(sibling, &parent, nullptr) && m_db->folderParent(day, &dayParent, nullptr));
    QCOMPARE(parent, dayParent);
    QVERIFY(m_lib->folderForPath(model, "", &top));
    QCOMPARE(top, -1);
}

// A folder or log under another model's folder would vanish from both trees.
void tst_ModelLibrary::nothingMovesAcrossModels()
{
    const int a = m_lib->createModel("A");
    const int b = m_lib->createModel("B");
    const int fa = m_lib->createFolder(a, -1, "fa");
    const int fb = m_lib->createFolder(b, -1, "fb");
    const int log = m_lib->storeLog(flight(5), a, -1);
    QVERIFY(!m_lib->moveFolder(fa, fb));
    QVERIFY(!m_lib->lastError().isEmpty());
    QVERIFY(!m_lib->moveLog(log, fb));
    QVERIFY(m_lib->createFolder(a, fb, "cross") < 0);
    QVERIFY(m_lib->moveLog(log, fa));
    QCOMPARE(countOf(*m_db, "select count(*) from folders where parentId is null"), 2);
    QCOMPARE(countOf(*m_db, QStringLiteral("select folderId from logs where id = %1").arg(log)), fa);
}

void tst_ModelLibrary::importFileIsAllOrNothing_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("modelExists");
    QTest::addColumn<QString>("error"); // empty: stored
    // Messages move 1 ms later on every round trip; without them the writer's bytes come back as they were.
    TelemetryDataPackage quiet = flight(5);
    quiet.messages().clear();
    const QByteArray native = LogFileWriter::write(quiet);
    TelemetryDataPackage silent;
    silent.addDevice(7, "Rx");
    QTest::newRow("native log") << native << true << QString();
    QTest::newRow("empty file") << QByteArray() << true << "empty";
    QTest::newRow("no samples") << LogFileWriter::write(silent) << true << "holds no telemetry";
    // Read fine, refused by the database: the sensor rows the reading added go too.
    QTest::newRow("no such model") << native << false << "FOREIGN KEY";
}

void tst_ModelLibrary::importFileIsAllOrNothing()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, modelExists);
    QFETCH(QString, error);
    const QString path = m_dir->filePath("a.log");
    QVERIFY(writeFile(path, bytes));
    const int model = modelExists ? m_lib->createModel("M") : 999;
    if (!modelExists)
        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression("SQLite error:.*FOREIGN KEY.*SQLite error code: 19"));
    QString warning = "stale";
    TelemetryDataPackage read;
    const int id = m_lib->importFile(path, model, -1, &warning, &read);
    QCOMPARE(m_db->transactionDepth(), 0);
    QVERIFY(warning.isEmpty());
    if (!error.isEmpty()) {
        QCOMPARE(id, -1);
        QVERIFY2(m_lib->lastError().startsWith(path + ": ") && m_lib->lastError().contains(error),
                 qPrintable(m_lib->lastError()));
        QCOMPARE(countOf(*m_db, "select count(*) from logs"), 0);
        QCOMPARE(countOf(*m_db, "select count(*) from sensors"), 0);
        return;
    }
    QByteArray stored;
    QVERIFY(m_db->loadLog(id, &stored, nullptr, nullptr));
    QCOMPARE(stored, bytes);
    QCOMPARE(m_db->topLevelLogs().at(0).filename, QStringLiteral("a.log"));
    QCOMPARE(read.sampleCount(), flight(5).sampleCount());
    QVERIFY(countOf(*m_db, "select count(*) from sensors") > 0);
}

void tst_ModelLibrary::exportFailures()
{
    const int log = m_lib->storeLog(flight(5), m_lib->createModel("M"), -1);
    QVERIFY(!m_lib->exportLog(log, m_dir->filePath("no/such/folder/x.log")));
    QVERIFY(m_lib->lastError().contains("Error writing to disk"));
    // An existing file is replaced only by a complete export.
    const QString target = m_dir->filePath("keep.log");
    QVERIFY(writeFile(target, "precious"));
    QVERIFY(execOn(*m_db, QStringLiteral("update logs set data = x'00000100789c' where id = %1").arg(log)));
    QVERIFY(!m_lib->exportLog(log, target));
    QCOMPARE(readAll(target), QByteArray("precious"));
}

void tst_ModelLibrary::damagedStoredLogIsReported()
{
    const int log = m_lib->storeLog(flight(30), m_lib->createModel("M"), -1);
    QByteArray blob;
    QVERIFY(m_db->logDataCompressed(log, &blob));
    blob[0] = char(0x7f); // a header that claims ~2 GB over a small body: refused before any allocation
    QVERIFY(m_db->updateLogCompressed(log, QString(), QDateTime(), blob, 1));
    TelemetryDataPackage p;
    QVERIFY(!m_lib->readLog(log, &p));
    QVERIFY2(m_lib->lastError().contains("damaged"), qPrintable(m_lib->lastError()));
    QVERIFY(!m_lib->exportLog(log, m_dir->filePath("d.log")));
    QVERIFY(!QFile::exists(m_dir->filePath("d.log")));
}

QTEST_GUILESS_MAIN(tst_ModelLibrary)
#include "tst_ModelLibrary.moc"
