#include "transmitter/ArchiveCheck.h"
#include "transmitter/BackupRules.h"
#include "transmitter/BackupWorker.h"
#include "transmitter/RestoreJournal.h"
#include "transmitter/RestoreWorker.h"

#include "tests/support/ZipBuilder.h"

#include <QBuffer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

namespace {

using Tree = QMap<QString, QByteArray>; // relative path -> content; folders end in "/" and hold nothing

bool put(const QString &path, const QByteArray &data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(data) == data.size();
}

void makeTree(const QString &root, const Tree &tree)
{
    for (auto it = tree.begin(); it != tree.end(); ++it) {
        if (it.key().endsWith(QLatin1Char('/')))
            QDir().mkpath(root + QLatin1Char('/') + it.key());
        else
            QVERIFY(put(root + QLatin1Char('/') + it.key(), it.value()));
    }
}

Tree snapshot(const QString &root)
{
    Tree tree;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = QDir(root).relativeFilePath(path);
        if (it.fileInfo().isDir()) {
            tree.insert(relative + QLatin1Char('/'), {});
        } else {
            QFile f(path);
            f.open(QIODevice::ReadOnly);
            tree.insert(relative, f.readAll());
        }
    }
    return tree;
}

QByteArray randomBytes(int size, quint32 seed)
{
    QRandomGenerator g(seed);
    QByteArray b(size, '\0');
    for (char &c : b)
        c = char(g.generate() & 0xff);
    return b;
}

struct Outcome
{
    bool finished = false;
    int errorType = -1;
    QString errorText;
    QStringList processed;
};

Outcome restore(const QString &root, const QString &archive, RestoreWorker::StepHook hook = {},
                qint64 freeSpace = -1)
{
    RestoreWorker worker({root, archive, -1});
    worker.setStepHook(std::move(hook));
    if (freeSpace >= 0)
        worker.setFreeSpace(freeSpace);
    Outcome o;
    QObject::connect(&worker, &RestoreWorker::finished, [&] { o.finished = true; });
    QObject::connect(&worker, &RestoreWorker::processedFile, [&](const QString &f) { o.processed << f; });
    QObject::connect(&worker, &RestoreWorker::error, [&](RestoreWorker::ErrorType t, const QString &text) {
        o.errorType = t;
        o.errorText = text;
    });
    worker.doWork();
    return o;
}

Outcome backup(const BackupWorker::Request &request, QByteArray *dbBytes = nullptr, bool dbFails = false)
{
    BackupWorker worker(request);
    Outcome o;
    QObject::connect(&worker, &BackupWorker::finished, [&] { o.finished = true; });
    QObject::connect(&worker, &BackupWorker::error, [&](BackupWorker::ErrorType t, const QString &text) {
        o.errorType = t;
        o.errorText = text;
    });
    QObject::connect(&worker, &BackupWorker::insertBackupDbRequest,
                     [&](int, const QString &, const QString &, const QStringList &, const QByteArray &zip) {
                         if (dbBytes)
                             *dbBytes = zip;
                         if (dbFails)
                             worker.databaseInsertFailed();
                     });
    worker.doWork();
    return o;
}

// Drops the restore's own leftovers from a snapshot, keeping the files as the user sees them.
Tree withoutLeftovers(Tree tree)
{
    for (auto it = tree.begin(); it != tree.end();) {
        if (it.key().endsWith(QLatin1String(".jsnew")) || it.key().endsWith(QLatin1String(".jsold")))
            it = tree.erase(it);
        else
            ++it;
    }
    return tree;
}

Tree filesOnly(Tree tree)
{
    for (auto it = tree.begin(); it != tree.end();) {
        if (it.key().endsWith(QLatin1Char('/')))
            it = tree.erase(it);
        else
            ++it;
    }
    return tree;
}

void copyTree(const QString &from, const QString &to)
{
    const Tree tree = snapshot(from);
    makeTree(to, tree);
}

} // namespace

class tst_BackupRestore : public QObject
{
    Q_OBJECT

private slots:
    void dbSize_data();
    void dbSize();
    void fileNames_data();
    void fileNames();
    void names();
    void scopes_data();
    void scopes();
    void roundTrip_data();
    void roundTrip();
    void hostileArchive_data();
    void hostileArchive();
    void backupJsnSkipped();
    void folderReplacesFile();
    void interruptedRestore();
    void readOnlyDrive();
    void backupFailures_data();
    void backupFailures();
};

void tst_BackupRestore::dbSize_data()
{
    QTest::addColumn<qint64>("size");
    QTest::addColumn<int>("verdict");
    QTest::newRow("8388608") << qint64(8388608) << int(BackupRules::DbSize::Ok);
    QTest::newRow("8388609") << qint64(8388609) << int(BackupRules::DbSize::Ask);
    QTest::newRow("33554432") << qint64(33554432) << int(BackupRules::DbSize::Ask);
    QTest::newRow("33554433") << qint64(33554433) << int(BackupRules::DbSize::TooLarge);
}

void tst_BackupRestore::dbSize()
{
    QFETCH(qint64, size);
    QFETCH(int, verdict);
    QCOMPARE(int(BackupRules::dbSizeVerdict(size)), verdict);
}

void tst_BackupRestore::fileNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("valid");
    QTest::newRow("blank") << "my backup.zip" << true;
    QTest::newRow("second extension") << "backup.zip.bak" << false;
    QTest::newRow("umlaut") << QStringLiteral("zäloha.zip") << false;
    QTest::newRow("any character before zip") << "backup_zip" << true;
    QTest::newRow("no stem") << ".zip" << false;
    QTest::newRow("slash") << "a/b.zip" << false;
}

void tst_BackupRestore::fileNames()
{
    QFETCH(QString, name);
    QFETCH(bool, valid);
    QCOMPARE(BackupRules::isValidFileName(name), valid);
}

void tst_BackupRestore::names()
{
    QCOMPARE(BackupRules::archiveName(QStringLiteral(" Vexo HC-6 "), 4, 22),
             QStringLiteral("Vexo-HC-6_4.22.zip"));
    QCOMPARE(BackupRules::backupName(QStringLiteral("Vexo HS-8"), 5, 3), QStringLiteral("Vexo-HS-8_V5.3"));
    QCOMPARE(BackupRules::proposedFileName(QStringLiteral("a")), QStringLiteral("a.zip"));
    QCOMPARE(BackupRules::proposedFileName(QStringLiteral("a"), QDateTime(QDate(2024, 3, 9), QTime(7, 5, 1))),
             QStringLiteral("a_2024-03-09_07-05-01.zip"));
    QCOMPARE(BackupRules::scopeNames(), (QStringList{"Minimal", "Standard", "Full", "Custom"}));
}

void tst_BackupRestore::scopes_data()
{
    QTest::addColumn<int>("scope");
    QTest::addColumn<QStringList>("files");
    const QString config = QStringLiteral("Config/Config.jsn");
    QTest::newRow("Minimal") << int(BackupRules::Minimal)
                             << QStringList{config, "Export/a.txt", "model/B.bin", "model/c.bin"};
    QTest::newRow("Standard") << int(BackupRules::Standard)
                              << QStringList{"APPS/x.lua", config,        "Export/a.txt",
                                             "img/i.png",  "model/B.bin", "model/c.bin"};
    QTest::newRow("Full")
        << int(BackupRules::Full)
        << QStringList{"APPS/x.lua", config,        "Export/a.txt", "img/i.png",  "Log/20240101/10-00-00.log",
                       "Log/empty/", "model/B.bin", "model/c.bin",  "Config.jsn", "top.txt"};
    QTest::newRow("Custom") << int(BackupRules::Custom) << QStringList();
}

void tst_BackupRestore::scopes()
{
    QFETCH(int, scope);
    QFETCH(QStringList, files);
    QTemporaryDir drive;
    makeTree(drive.path(), {{"Config/Config.jsn", "{}"},
                            {"Export/a.txt", "a"},
                            {"model/c.bin", "c"},
                            {"model/B.bin", "b"},
                            {"APPS/x.lua", "x"},
                            {"img/i.png", "i"},
                            {"Log/20240101/10-00-00.log", "l"},
                            {"top.txt", "t"},
                            {"Config.jsn", "not the folder"}});
    QVERIFY(QDir(drive.path()).mkpath(QStringLiteral("Log/empty")));
    QCOMPARE(BackupRules::filesForScope(drive.path(), BackupRules::Scope(scope)), files);
}

void tst_BackupRestore::roundTrip_data()
{
    QTest::addColumn<bool>("toDatabase");
    QTest::newRow("file") << false;
    QTest::newRow("database") << true;
}

void tst_BackupRestore::roundTrip()
{
    QFETCH(bool, toDatabase);
    QTemporaryDir drive, target, out;
    const Tree tree = {{"Config/Config.jsn", R"({"hw":674,"version":"4.22"})"},
                       {QStringLiteral("Model/Čmelák.bin"), randomBytes(1000, 1)},
                       {"Model/empty.bin", {}},
                       {"Img/big.bin", randomBytes(300000, 2)},
                       {"Img/text.txt", QByteArray(200000, 'a')},
                       {"Apps/empty/", {}}};
    makeTree(drive.path(), tree);
    const QStringList files = tree.keys();
    BackupWorker::Request request;
    request.root = drive.path();
    request.files = files;
    request.toDatabase = toDatabase;
    request.targetFile = out.filePath("backup.zip");
    QByteArray dbBytes;
    const Outcome made = backup(request, &dbBytes);
    QVERIFY2(made.finished && made.errorType < 0, qPrintable(made.errorText));
    QCOMPARE(QFileInfo::exists(request.targetFile), !toDatabase);
    QCOMPARE(QDir(out.path()).entryList(QDir::Files | QDir::Hidden).size(), toDatabase ? 0 : 1);
    const QByteArray zip = toDatabase ? dbBytes : [&] {
        QFile f(request.targetFile);
        f.open(QIODevice::ReadOnly);
        return f.readAll();
    }();
    // Every central directory record carries the UTF-8 flag, and the name is stored in UTF-8.
    int records = 0;
    for (int at = zip.indexOf("PK\x01\x02"); at >= 0; at = zip.indexOf("PK\x01\x02", at + 4)) {
        QVERIFY(qFromLittleEndian<quint16>(zip.constData() + at + 8) & 0x0800);
        ++records;
    }
    QCOMPARE(records, files.size());
    QVERIFY(zip.contains(QStringLiteral("Model/Čmelák.bin").toUtf8()));

    Outcome restored;
    if (toDatabase) {
        RestoreWorker worker({target.path(), QString(), 7});
        int askedFor = -1;
        QObject::connect(&worker, &RestoreWorker::requestBackupFromDb, [&](int id) {
            askedFor = id;
            worker.setBackupData(dbBytes, true);
        });
        QObject::connect(&worker, &RestoreWorker::finished, [&] { restored.finished = true; });
        QObject::connect(&worker, &RestoreWorker::error,
                         [&](RestoreWorker::ErrorType t, const QString &text) {
                             restored.errorType = t;
                             restored.errorText = text;
                         });
        worker.doWork();
        QCOMPARE(askedFor, 7);
    } else {
        restored = restore(target.path(), request.targetFile);
    }
    QVERIFY2(restored.finished && restored.errorType < 0, qPrintable(restored.errorText));
    // The configuration travels as "config/config.jsn", the one spelling a restore accepts; on the
    // transmitter's FAT drive that is the same file. This test's folders tell case apart.
    Tree expected = snapshot(drive.path());
    expected.insert("config/", {});
    expected.insert("config/config.jsn", expected.take("Config/Config.jsn"));
    expected.remove("Config/");
    QCOMPARE(snapshot(target.path()), expected);
}

void tst_BackupRestore::hostileArchive_data()
{
    using ZipBuilder::Item;
    QTest::addColumn<QByteArray>("zip");
    QTest::addColumn<int>("error");
    QTest::addColumn<qint64>("freeSpace");
    const int refused = RestoreWorker::RefusedArchive;
    const auto one = [](const Item &item) { return ZipBuilder::build({{"config/config.jsn", "new"}, item}); };
    QTest::newRow("absolute") << one({"/etc/x", "x"}) << refused << qint64(-1);
    QTest::newRow("drive letter") << one({"C:/x", "x"}) << refused << qint64(-1);
    QTest::newRow("backslash") << one({"..\\x", "x"}) << refused << qint64(-1);
    QTest::newRow("dot dot") << one({"../x", "x"}) << refused << qint64(-1);
    QTest::newRow("inner dot dot") << one({"Model/../../x", "x"}) << refused << qint64(-1);
    QTest::newRow("dot") << one({"./x", "x"}) << refused << qint64(-1);
    QTest::newRow("empty segment") << one({"Model//x", "x"}) << refused << qint64(-1);
    QTest::newRow("empty name") << one({"", "x"}) << refused << qint64(-1);
    QTest::newRow("NUL") << one({QByteArray("x\0/../../y", 10), "x"}) << refused << qint64(-1);
    QTest::newRow("control") << one({"x\x01y", "x"}) << refused << qint64(-1);
    QTest::newRow("not UTF-8") << one({"x\xff", "x"}) << refused << qint64(-1);
    QTest::newRow("trailing dot") << one({"Model./x", "x"}) << refused << qint64(-1);
    QTest::newRow("symlink") << one({"link", "/etc/passwd", false, 0120777}) << refused << qint64(-1);
    QTest::newRow("device") << one({"dev", "", false, 0020644}) << refused << qint64(-1);
    QTest::newRow("duplicate") << ZipBuilder::build({{"config/config.jsn", "a"}, {"CONFIG/CONFIG.JSN", "b"}})
                               << refused << qint64(-1);
    QTest::newRow("file and folder") << ZipBuilder::build(
                                            {{"config/config.jsn", "a"}, {"a", "x"}, {"A/", ""}})
                                     << refused << qint64(-1);
    QTest::newRow("file as parent") << ZipBuilder::build(
                                           {{"config/config.jsn", "a"}, {"a", "x"}, {"A/b", "y"}})
                                    << refused << qint64(-1);
    QTest::newRow("stored size lie") << one({"x", "xxxx", false, 0100644, 0x0800, 2}) << refused
                                     << qint64(-1);
    QTest::newRow("ratio") << one({"x", "xxxx", true, 0100644, 0x0800, qint64(1) << 31}) << refused
                           << qint64(-1);
    QTest::newRow("encrypted") << one({"x", "xxxx", false, 0100644, 0x0801}) << refused << qint64(-1);
    QTest::newRow("beyond free space")
        << ZipBuilder::build({{"config/config.jsn", QByteArray(100000, 'n')}}) << refused << qint64(50000);
    QTest::newRow("holds more than declared")
        << ZipBuilder::build({{"config/config.jsn", QByteArray(5000, 'n'), true, 0100644, 0x0800, 10}})
        << int(RestoreWorker::RecoverError) << qint64(-1);
    QTest::newRow("wrong CRC") << ZipBuilder::build(
                                      {{"config/config.jsn", "new", true, 0100644, 0x0800, -1, 1}})
                               << int(RestoreWorker::RecoverError) << qint64(-1);
    // Sound archives that are no backup: the listing passes, the restore refuses (-2: space unknown).
    QTest::newRow("no config") << ZipBuilder::build({{"Model/m.bin", "x"}}) << refused << qint64(-2);
    QTest::newRow("config not as stored")
        << ZipBuilder::build({{"Config/Config.jsn", "x"}}) << refused << qint64(-2);
    QTest::newRow("not a zip") << QByteArray("not a zip at all") << int(RestoreWorker::OpenError)
                               << qint64(-1);
    QTest::newRow("truncated") << ZipBuilder::build({{"config/config.jsn", "new"}}).left(40)
                               << int(RestoreWorker::OpenError) << qint64(-1);
}

// A refused archive writes nothing: not on the drive, not beside it.
void tst_BackupRestore::hostileArchive()
{
    QFETCH(QByteArray, zip);
    QFETCH(int, error);
    QFETCH(qint64, freeSpace);
    QTemporaryDir area;
    const QString drive = area.filePath("drive/inner");
    makeTree(drive, {{"config/config.jsn", "old"}, {"Model/m.bin", "model"}});
    const QString archive = area.filePath("backup.zip");
    QVERIFY(put(archive, zip));
    const Tree before = snapshot(area.path());
    const Outcome o = restore(drive, archive, {}, freeSpace);
    QVERIFY(o.finished);
    QCOMPARE(o.errorType, error);
    QVERIFY(!o.errorText.isEmpty());
    QCOMPARE(snapshot(area.path()), before);

    QBuffer buffer(&zip);
    buffer.open(QIODevice::ReadOnly);
    QString reason;
    if (error == RestoreWorker::RefusedArchive && freeSpace == -1)
        QVERIFY(!ArchiveCheck::check(&buffer, -1, nullptr, &reason));
}

void tst_BackupRestore::backupJsnSkipped()
{
    QTemporaryDir area;
    const QString drive = area.filePath("drive");
    makeTree(drive, {{"Config/Backup.jsn", "the drive's own"}});
    const QString archive = area.filePath("b.zip");
    QVERIFY(put(archive, ZipBuilder::build({{"Config/", ""},
                                            {"Config/Backup.jsn", "from the backup"},
                                            {"config/config.jsn", "cfg"},
                                            {"Model/m.bin", "m"}})));
    QBuffer buffer;
    buffer.setData(ZipBuilder::build({{"config/config.jsn", "x"}}));
    buffer.open(QIODevice::ReadOnly);
    ArchiveCheck::Listing listing;
    QVERIFY(ArchiveCheck::check(&buffer, -1, &listing, nullptr));
    QVERIFY(listing.hasConfig);
    const Outcome o = restore(drive, archive);
    QVERIFY2(o.errorType < 0, qPrintable(o.errorText));
    QCOMPARE(o.processed, (QStringList{"Config/", "config/config.jsn", "Model/m.bin"}));
    // On a case-sensitive test file system "config" and "Config" are two folders; the drive's FAT is not.
    QCOMPARE(snapshot(drive).value("Config/Backup.jsn"), QByteArray("the drive's own"));
    QCOMPARE(snapshot(drive).value("Model/m.bin"), QByteArray("m"));
}

void tst_BackupRestore::folderReplacesFile()
{
    QTemporaryDir area;
    const QString drive = area.filePath("drive");
    makeTree(drive, {{"Img", "a file in the way"}, {"Apps", "another"}});
    const QString archive = area.filePath("b.zip");
    QVERIFY(put(archive, ZipBuilder::build({{"config/config.jsn", "c"}, {"Img/", ""}, {"Apps/a.lua", "a"}})));
    const Outcome o = restore(drive, archive);
    QVERIFY2(o.errorType < 0, qPrintable(o.errorText));
    const Tree after = snapshot(drive);
    QVERIFY(after.contains("Img/"));
    QVERIFY(!after.contains("Img"));
    QCOMPARE(after.value("Apps/a.lua"), QByteArray("a"));
}

// A cut at every step in turn: each file is then old, new, or a pair the journal reports, and both
// finishing and rolling back the pairs give a consistent drive.
void tst_BackupRestore::interruptedRestore()
{
    const Tree oldTree = {
        {"config/config.jsn", "old config"}, {"Model/a.bin", "old a"}, {"Model/b.bin", "old b"}};
    const Tree newTree = {{"config/config.jsn", "new config"},
                          {"Model/a.bin", "new a"},
                          {"Model/b.bin", "new b"},
                          {"Model/c.bin", "new c"}};
    QTemporaryDir area;
    const QString archive = area.filePath("b.zip");
    QList<ZipBuilder::Item> items;
    for (auto it = newTree.begin(); it != newTree.end(); ++it)
        items.append({it.key().toUtf8(), it.value(), true});
    QVERIFY(put(archive, ZipBuilder::build(items)));
    const QStringList paths = newTree.keys();

    bool completed = false;
    for (int n = 0; !completed && n < 100; ++n) {
        QTemporaryDir run;
        const QString drive = run.filePath("drive");
        makeTree(drive, oldTree);
        int steps = 0;
        const Outcome o = restore(drive, archive, [&](const QString &) { return steps++ != n; });
        completed = o.errorType < 0;
        if (completed) {
            QCOMPARE(filesOnly(snapshot(drive)), newTree);
            break;
        }
        const QList<RestoreJournal::Leftover> leftovers = RestoreJournal::find(drive);
        QStringList pending;
        for (const RestoreJournal::Leftover &l : leftovers)
            pending << l.path;
        const Tree cut = snapshot(drive);
        for (const QString &path : paths) {
            if (pending.contains(path))
                continue;
            const QByteArray now = cut.value(path, "<missing>");
            QVERIFY2(
                now == newTree.value(path) || now == oldTree.value(path, "<missing>"),
                qPrintable(QStringLiteral("step %1: %2 is %3").arg(n).arg(path, QString::fromUtf8(now))));
        }
        {
            // Recovering again over what the cut left ends with the backup's tree and no leftovers.
            QTemporaryDir copy;
            copyTree(drive, copy.path());
            const Outcome again = restore(copy.path(), archive);
            QVERIFY2(again.errorType < 0, qPrintable(again.errorText));
            QCOMPARE(filesOnly(snapshot(copy.path())), newTree);
        }
        for (const bool forward : {true, false}) {
            QTemporaryDir copy;
            copyTree(drive, copy.path());
            QStringList unfinished;
            for (const RestoreJournal::Leftover &l : leftovers) {
                QString error;
                const QString fresh = copy.filePath(l.path + ".jsnew");
                if (forward && QFileInfo::exists(fresh) &&
                    !QFileInfo::exists(copy.filePath(l.path + ".jsold"))) {
                    // A new copy without an old one may have been cut short by a pulled cable (shorten
                    // it as one would): finishing must refuse and change nothing; rolling back keeps
                    // the old file.
                    QVERIFY(QFile::resize(fresh, QFileInfo(fresh).size() / 2));
                    const Tree before = snapshot(copy.path());
                    QVERIFY(!RestoreJournal::finish(copy.path(), l, &error));
                    QVERIFY(!error.isEmpty());
                    QCOMPARE(snapshot(copy.path()), before);
                    unfinished << l.path;
                }
                QVERIFY2(forward && !unfinished.contains(l.path)
                             ? RestoreJournal::finish(copy.path(), l, &error)
                             : RestoreJournal::rollBack(copy.path(), l, &error),
                         qPrintable(error));
            }
            QVERIFY(RestoreJournal::find(copy.path()).isEmpty());
            const Tree resolved = snapshot(copy.path());
            QCOMPARE(withoutLeftovers(resolved), resolved);
            for (const QString &path : pending) {
                const QByteArray expected = forward && !unfinished.contains(path)
                                                ? newTree.value(path)
                                                : oldTree.value(path, "<missing>");
                QCOMPARE(resolved.value(path, "<missing>"), expected);
            }
        }
    }
    QVERIFY(completed);
}

// As root the file system ignores permissions, so the drive's refusal is given through the step hook.
void tst_BackupRestore::readOnlyDrive()
{
    QTemporaryDir area;
    const QString drive = area.filePath("drive");
    makeTree(drive, {{"config/config.jsn", "old"}});
    const QString archive = area.filePath("b.zip");
    QVERIFY(put(archive, ZipBuilder::build({{"config/config.jsn", "new"}})));
    const Tree before = snapshot(drive);
    const Outcome o = restore(drive, archive, [](const QString &step) { return !step.startsWith("write "); });
    QCOMPARE(o.errorType, int(RestoreWorker::CreateFileError));
    QCOMPARE(o.errorText, QStringLiteral("Unable to create \"%1\" file. Can't proceed to restoration.")
                              .arg(QDir::toNativeSeparators(QDir::cleanPath(drive) + "/config/config.jsn")));
    QCOMPARE(snapshot(drive), before);

    // Where permissions hold, the file system itself refuses.
    if (::geteuid() == 0)
        return;
    QFile::setPermissions(drive + "/config", QFile::ReadOwner | QFile::ExeOwner);
    const Outcome real = restore(drive, archive);
    QFile::setPermissions(drive + "/config", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QCOMPARE(real.errorType, int(RestoreWorker::CreateFileError));
    QCOMPARE(snapshot(drive), before);
}

void tst_BackupRestore::backupFailures_data()
{
    QTest::addColumn<QString>("missing");
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<bool>("dbFails");
    QTest::addColumn<int>("error");
    QTest::addColumn<QString>("textStart");
    QTest::newRow("missing file") << "Model/gone.bin" << false << false << int(BackupWorker::OpenFileError)
                                  << "<b>Unable to open the file</b><ul><li>";
    QTest::newRow("cancel") << "" << true << false << int(BackupWorker::Canceled) << "Canceled.";
    QTest::newRow("database")
        << "" << false << true << int(BackupWorker::DatabaseError)
        << "There was an error during creating the backup in database. Database might be "
           "corrupted. Try again later.";
}

// A failed backup leaves an earlier backup file where it was, and no temporary file behind.
void tst_BackupRestore::backupFailures()
{
    QFETCH(QString, missing);
    QFETCH(bool, cancel);
    QFETCH(bool, dbFails);
    QFETCH(int, error);
    QFETCH(QString, textStart);
    QTemporaryDir drive, out;
    makeTree(drive.path(), {{"config/config.jsn", "c"}, {"Model/m.bin", "m"}});
    QVERIFY(put(out.filePath("backup.zip"), "earlier backup"));
    BackupWorker::Request request;
    request.root = drive.path();
    request.files = QStringList{"config/config.jsn", "Model/m.bin"};
    if (!missing.isEmpty())
        request.files << missing;
    request.toDatabase = dbFails;
    request.targetFile = out.filePath("backup.zip");
    BackupWorker worker(request);
    Outcome o;
    QObject::connect(&worker, &BackupWorker::finished, [&] { o.finished = true; });
    QObject::connect(&worker, &BackupWorker::error, [&](BackupWorker::ErrorType t, const QString &text) {
        o.errorType = t;
        o.errorText = text;
    });
    QObject::connect(&worker, &BackupWorker::insertBackupDbRequest, [&] { worker.databaseInsertFailed(); });
    if (cancel)
        QObject::connect(&worker, &BackupWorker::processedFile, [&] { worker.cancel(); });
    worker.doWork();
    QVERIFY(o.finished);
    QCOMPARE(o.errorType, error);
    QVERIFY2(o.errorText.startsWith(textStart), qPrintable(o.errorText));
    QCOMPARE(snapshot(out.path()), (Tree{{"backup.zip", "earlier backup"}}));
}

QTEST_GUILESS_MAIN(tst_BackupRestore)
#include "tst_BackupRestore.moc"
