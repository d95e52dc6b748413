#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "tests/support/TestFiles.h"
#include "transmitter/LogSyncStore.h"
#include "transmitter/SyncWorker.h"
#include "transmitter/TransmitterLogsModel.h"

#include <QDir>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <functional>
#include <memory>

namespace {
QByteArray flight(const QString &model, quint64 seed)
{
    LogGenerator::Options o;
    o.seconds = 20;
    o.rate = 5;
    o.devices = 2;
    o.seed = seed;
    TelemetryDataPackage p = LogGenerator::generate(o);
    p.setName(model);
    p.setDescription(QStringLiteral("Field day"));
    return LogFileWriter::write(p);
}

// What the database holds, read with plain SQL: "model|folder path|file name" to the inflated bytes.
QMap<QString, QByteArray> storedLogs(const QString &dbFile)
{
    QMap<QString, QByteArray> logs;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("check"));
        db.setDatabaseName(dbFile);
        if (!db.open())
            return logs;
        QMap<int, QPair<int, QString>> folders;
        QSqlQuery f(QStringLiteral("select id, parentId, name from folders"), db);
        while (f.next())
            folders.insert(f.value(0).toInt(),
                           {f.value(1).isNull() ? -1 : f.value(1).toInt(), f.value(2).toString()});
        QSqlQuery q(QStringLiteral("select m.name, l.folderId, l.filename, l.data from logs l join models m "
                                   "on m.id = l.modelId"),
                    db);
        while (q.next()) {
            QStringList path;
            for (int id = q.value(1).isNull() ? -1 : q.value(1).toInt(); id >= 0;
                 id = folders.value(id).first)
                path.prepend(folders.value(id).second);
            logs.insert(QStringList{q.value(0).toString(), path.join('/'), q.value(2).toString()}.join('|'),
                        qUncompress(q.value(3).toByteArray()));
        }
    }
    QSqlDatabase::removeDatabase(QStringLiteral("check"));
    return logs;
}

QStringList modelNames(const QString &dbFile)
{
    QStringList names;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("check"));
        db.setDatabaseName(dbFile);
        db.open();
        QSqlQuery q(QStringLiteral("select name from models order by name"), db);
        while (q.next())
            names << q.value(0).toString();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("check"));
    return names;
}

QStringList files(const QList<SyncReport::Entry> &entries)
{
    QStringList names;
    for (const SyncReport::Entry &e : entries)
        names << e.file;
    return names;
}
} // namespace

class tst_LogSync : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void treeShowsOnlyDayFoldersAndTimedLogs_data();
    void treeShowsOnlyDayFoldersAndTimedLogs();
    void checksFollowFolders();
    void modelIsReadFromTheHeaderAndCached();
    void syncFilesEachLogOnceUnderItsModel();
    void runEndsAfterTheLogInHand_data();
    void runEndsAfterTheLogInHand();

private:
    QString put(const QString &relative, const QByteArray &bytes);
    SyncReport sync(bool threaded, const std::function<void(SyncWorker *)> &afterFirstStored = {});
    QString dbFile() const { return m_dir->filePath(QStringLiteral("db/") + DatabaseManager::fileName()); }

    std::unique_ptr<QTemporaryDir> m_dir;
    QString m_drive;
    std::unique_ptr<DatabaseManager> m_db;
    std::unique_ptr<ModelLibrary> m_lib;
    QList<QPair<SyncWorker::ErrorType, QString>> m_errors;
    QStringList m_leftChecked; // the logs still checked after the last run
};

void tst_LogSync::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_drive = m_dir->filePath(QStringLiteral("drive"));
    QDir().mkpath(m_drive + QStringLiteral("/Log"));
    QDir().mkpath(m_dir->filePath(QStringLiteral("db")));
    m_db = std::make_unique<DatabaseManager>(m_dir->filePath(QStringLiteral("db")));
    QVERIFY(m_db->openAndInitialise());
    m_lib = std::make_unique<ModelLibrary>(m_db.get());
    m_errors.clear();
}

void tst_LogSync::cleanup()
{
    m_lib.reset();
    m_db.reset();
    m_dir.reset();
}

QString tst_LogSync::put(const QString &relative, const QByteArray &bytes)
{
    const QString path = m_drive + QStringLiteral("/Log/") + relative;
    QDir().mkpath(QFileInfo(path).absolutePath());
    writeFile(path, bytes);
    return path;
}

SyncReport tst_LogSync::sync(bool threaded, const std::function<void(SyncWorker *)> &afterFirstStored)
{
    TransmitterLogsModel logs;
    logs.setDriveRoot(m_drive);
    logs.setAllChecked(true);
    LogSyncStore store(&logs, m_lib.get());
    auto *worker = new SyncWorker(logs.checkedLogs(), m_drive);
    connect(worker, &SyncWorker::error, this, [this](SyncWorker::ErrorType type, const QString &text) {
        m_errors.append({type, text});
    });
    if (afterFirstStored) {
        connect(&store, &LogSyncStore::logStored, &store, [worker, afterFirstStored, done = false]() mutable {
            if (!std::exchange(done, true))
                afterFirstStored(worker);
        });
    }
    SyncReport report;
    const auto leftChecked = [&] {
        m_leftChecked.clear();
        for (const QPersistentModelIndex &i : logs.checkedLogs())
            m_leftChecked << QFileInfo(i.data(TransmitterLogsModel::FilePathRole).toString()).fileName();
    };
    if (!threaded) {
        store.attach(worker, Qt::DirectConnection);
        worker->doWork();
        report = worker->report();
        delete worker;
        leftChecked();
        return report;
    }
    // As the wizard runs it: the worker on its own thread, every request answered here while it waits.
    QThread thread;
    store.attach(worker, Qt::BlockingQueuedConnection);
    worker->moveToThread(&thread);
    connect(&thread, &QThread::started, worker, &SyncWorker::doWork);
    connect(worker, &SyncWorker::completed, this, [&report](const SyncReport &r) { report = r; });
    QSignalSpy finished(worker, &SyncWorker::finished);
    thread.start();
    if (!finished.wait(60000))
        qWarning("the worker did not finish");
    thread.quit();
    thread.wait();
    delete worker;
    QCoreApplication::processEvents();
    leftChecked();
    return report;
}

void tst_LogSync::treeShowsOnlyDayFoldersAndTimedLogs_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("shown");
    QTest::addColumn<QString>("display");
    QTest::addColumn<QDate>("day");
    QTest::addColumn<QTime>("time");
    QTest::addColumn<QDateTime>("flight");

    const QDate may17(2024, 5, 17);
    QTest::newRow("log") << "20240517/12-30-05.log" << true << "12:30:05" << may17 << QTime(12, 30, 5)
                         << QDateTime(may17, QTime(12, 30, 5));
    QTest::newRow("month 13") << "20231301/12-30-00.log" << true << "12:30:00" << QDate() << QTime(12, 30)
                              << QDateTime();
    QTest::newRow("hour 25") << "20240517/25-00-00.log" << true << "25-00-00.log" << may17 << QTime()
                             << QDateTime();
    QTest::newRow("other name") << "20240517/flight.log" << false << "" << QDate() << QTime() << QDateTime();
    QTest::newRow("other extension") << "20240517/12-30-00.txt" << false << "" << QDate() << QTime()
                                     << QDateTime();
    QTest::newRow("short time") << "20240517/1-30-00.log" << false << "" << QDate() << QTime() << QDateTime();
    QTest::newRow("not a day folder")
        << "notes/12-30-00.log" << false << "" << QDate() << QTime() << QDateTime();
    QTest::newRow("seven digits") << "2024051/12-30-00.log" << false << "" << QDate() << QTime()
                                  << QDateTime();
    QTest::newRow("outside Log") << "../12-30-00.log" << false << "" << QDate() << QTime() << QDateTime();
}

void tst_LogSync::treeShowsOnlyDayFoldersAndTimedLogs()
{
    QFETCH(QString, path);
    QFETCH(bool, shown);
    QFETCH(QString, display);
    QFETCH(QDate, day);
    QFETCH(QTime, time);
    QFETCH(QDateTime, flight);
    const QString file = put(path, "# M\n");
    TransmitterLogsModel logs;
    logs.setDriveRoot(m_drive);
    const QModelIndex index = logs.indexForPath(file);
    QCOMPARE(index.isValid(), shown);
    QCOMPARE(logs.logCount(), shown ? 1 : 0);
    if (!shown)
        return;
    QCOMPARE(index.data().toString(), display);
    QCOMPARE(logs.logDateTime(index), flight);
    QCOMPARE(index.parent().data(TransmitterLogsModel::DateRole).toDate(), day);
    QCOMPARE(index.data(TransmitterLogsModel::TimeRole).toTime(), time);
}

void tst_LogSync::checksFollowFolders()
{
    for (const char *p : {"20240518/09-00-00.log", "20240517/12-00-00.log", "20240517/08-00-00.log"})
        put(QString::fromLatin1(p), "# M\n");
    TransmitterLogsModel logs;
    logs.setDriveRoot(m_drive);
    const auto name = [](const QPersistentModelIndex &i) {
        return i.parent().data(TransmitterLogsModel::DateRole).toDate().toString("yyyyMMdd") + '/' +
               i.data(TransmitterLogsModel::TimeRole).toTime().toString("hh-mm-ss");
    };
    const auto checked = [&] {
        QStringList names;
        for (const QPersistentModelIndex &i : logs.checkedLogs())
            names << name(i);
        return names;
    };
    const QModelIndex day = logs.index(0, 0); // 20240517, the first by name
    QVERIFY(logs.setData(day, Qt::Checked, Qt::CheckStateRole));
    QCOMPARE(checked(), QStringList({"20240517/08-00-00", "20240517/12-00-00"}));
    QVERIFY(logs.setData(logs.index(1, 0, day), Qt::Unchecked, Qt::CheckStateRole));
    QCOMPARE(day.data(Qt::CheckStateRole).toInt(), int(Qt::PartiallyChecked));
    logs.setAllChecked(true);
    QCOMPARE(checked(), QStringList({"20240517/08-00-00", "20240517/12-00-00", "20240518/09-00-00"}));
    QCOMPARE(day.data(Qt::CheckStateRole).toInt(), int(Qt::Checked));
    logs.reload(); // marks survive a reload
    QCOMPARE(checked().size(), 3);
    logs.setAllChecked(false);
    QVERIFY(checked().isEmpty());
    QCOMPARE(logs.headerData(0, Qt::Horizontal).toString(), QStringLiteral("Date"));
    QCOMPARE(logs.headerData(1, Qt::Horizontal).toString(), QStringLiteral("Model"));
}

void tst_LogSync::modelIsReadFromTheHeaderAndCached()
{
    // The header, then far more than the header is: only the beginning may be needed.
    QByteArray bytes = QStringLiteral("# Čmelák\n# Club \n# field\n").toUtf8();
    bytes += QByteArray(3 * TransmitterLogsModel::kHeaderBytes, '\0');
    const QString file = put("20240517/12-30-00.log", bytes);
    TransmitterLogsModel logs;
    logs.setDriveRoot(m_drive);
    QModelIndex index = logs.indexForPath(file);
    const ModelData model = index.data(TransmitterLogsModel::ModelDataRole).value<ModelData>();
    QCOMPARE(model.name, QStringLiteral("Čmelák"));
    QCOMPARE(model.description, QStringLiteral("Clubfield"));
    QCOMPARE(model.layout, DefaultLayout::document());
    QVERIFY(!model.filename.isEmpty());
    QCOMPARE(index.sibling(index.row(), TransmitterLogsModel::ModelColumn).data().toString(),
             QStringLiteral("Čmelák"));
    // A log written again (another size) is read again after a reload.
    writeFile(file, "# Extra 300\n");
    logs.reload();
    index = logs.indexForPath(file);
    QCOMPARE(index.data(TransmitterLogsModel::ModelDataRole).value<ModelData>().name,
             QStringLiteral("Extra 300"));
}

void tst_LogSync::syncFilesEachLogOnceUnderItsModel()
{
    const QByteArray a1 = flight("Alpha", 1), a2 = flight("Alpha", 2), beta = flight("Beta", 3);
    const QByteArray gamma = flight("Gamma", 4);
    put("20240517/10-00-00.log", a1);
    put("20240517/11-00-00.log", a2);
    put("20240517/12-00-00.log", gamma);
    put("20240517/13-00-00.log", QByteArray(3000, '\x07') + "\n;;\n"); // damaged
    const QString odd = put("20231301/12-30-00.log", beta);
    QFile f(odd);
    QVERIFY(f.open(QIODevice::ReadWrite));
    QVERIFY(f.setFileTime(QDateTime(QDate(2023, 6, 2), QTime(10, 0)), QFileDevice::FileModificationTime));
    f.close();
    QVERIFY(m_lib->createModel("GAMMA") >= 0); // known already, under another spelling

    QTest::ignoreMessage(QtDebugMsg, "Unexpected log datetime.");
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^Unable to load log: .*13-00-00.log"));
    SyncReport report = sync(true);
    QVERIFY2(m_errors.isEmpty(), qPrintable(m_errors.value(0).second));
    QCOMPARE(files(report.stored), QStringList({"20231301/12-30-00.log", "20240517/10-00-00.log",
                                                "20240517/11-00-00.log", "20240517/12-00-00.log"}));
    QCOMPARE(files(report.failed), QStringList({"20240517/13-00-00.log"}));
    QVERIFY(report.failed.value(0).reason.startsWith("Unable to load the log file"));
    QCOMPARE(report.dateReplaced, QStringList({"20231301/12-30-00.log"}));
    QCOMPARE(m_leftChecked, QStringList({"13-00-00.log"})); // what is filed is unchecked
    QCOMPARE(modelNames(dbFile()), QStringList({"Alpha", "Beta", "GAMMA"}));
    QMap<QString, QByteArray> expected{{"Alpha|2024/05/17|10-00-00.log", a1},
                                       {"Alpha|2024/05/17|11-00-00.log", a2},
                                       {"Beta|2023/06/02|12-30-00.log", beta},
                                       {"GAMMA|2024/05/17|12-00-00.log", gamma}};
    QCOMPARE(storedLogs(dbFile()), expected);

    // Again: nothing new. Then one log of the same name with other bytes is a new flight.
    report = sync(false);
    QCOMPARE(report.stored.size(), 0);
    QCOMPARE(report.skipped.size(), 4);
    QCOMPARE(storedLogs(dbFile()), expected);
    const QByteArray a1b = flight("Alpha", 9);
    put("20240517/10-00-00.log", a1b);
    report = sync(false);
    QCOMPARE(files(report.stored), QStringList({"20240517/10-00-00.log"}));
    QCOMPARE(report.skipped.size(), 3);
    QCOMPARE(storedLogs(dbFile()).size(), 4); // two logs of one name in one folder: a map keeps one
    QCOMPARE(modelNames(dbFile()).size(), 3);
}

void tst_LogSync::runEndsAfterTheLogInHand_data()
{
    QTest::addColumn<bool>("pullDrive");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("text");
    QTest::newRow("drive pulled") << true << int(SyncWorker::DisconnectedError)
                                  << "Transmitter disconnected. Aborting synchronization.";
    QTest::newRow("canceled") << false << int(SyncWorker::Canceled) << "Canceled.";
}

void tst_LogSync::runEndsAfterTheLogInHand()
{
    QFETCH(bool, pullDrive);
    QFETCH(int, error);
    QFETCH(QString, text);
    const QByteArray first = flight("Alpha", 1);
    put("20240517/10-00-00.log", first);
    put("20240517/11-00-00.log", flight("Alpha", 2));
    put("20240517/12-00-00.log", flight("Beta", 3));
    if (pullDrive)
        QTest::ignoreMessage(QtDebugMsg, "Transmitter removed!");
    const SyncReport report = sync(true, [this, pullDrive](SyncWorker *worker) {
        if (pullDrive)
            QDir(m_drive).removeRecursively();
        else
            worker->cancel();
    });
    QCOMPARE(m_errors.size(), 1);
    QCOMPARE(int(m_errors.at(0).first), error);
    QCOMPARE(m_errors.at(0).second, text);
    QCOMPARE(files(report.stored), QStringList({"20240517/10-00-00.log"}));
    QCOMPARE(report.canceled, !pullDrive);
    if (!pullDrive)
        QCOMPARE(m_leftChecked, QStringList({"11-00-00.log", "12-00-00.log"}));
    QCOMPARE(storedLogs(dbFile()), (QMap<QString, QByteArray>{{"Alpha|2024/05/17|10-00-00.log", first}}));
    QCOMPARE(modelNames(dbFile()), QStringList({"Alpha"}));
}

QTEST_GUILESS_MAIN(tst_LogSync)
#include "tst_LogSync.moc"
