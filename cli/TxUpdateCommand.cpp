#include "cli/TxUpdateCommand.h"

#include "cli/CliSupport.h"
#include "cli/DbCommands.h"
#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "database/ModelTableModel.h"
#include "link/TransmitterInfo.h"
#include "tools/FileDownloader.h"
#include "tools/UpdateEndpoints.h"
#include "transmitter/BackupRules.h"
#include "transmitter/BackupWorker.h"
#include "transmitter/BackupsModel.h"
#include "transmitter/TransmitterConfig.h"
#include "transmitter/TxCatalogue.h"
#include "transmitter/UpdateWorker.h"

#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <memory>

const char TxUpdateCommand::kUsage[] =
    "usage: vexo-log tx update ROOT (--list | --update ID) [--skip-backup] [--data DIR] [--db PATH]\n"
    "\n"
    "  --list         the updates offered for the drive's transmitter model: id, name, variant, date,\n"
    "                 number of files and their size\n"
    "  --update ID    installs update ID: every file except the optional ones the wizard offers\n"
    "                 unchecked (\"optionalUnchecked\"); \"downloadOnly\" files go to\n"
    "                 DIR/Downloads/ID/ instead of the drive. Each file is checked by size and SHA1\n"
    "                 before it replaces the old one; files already up to date are not fetched.\n"
    "                 First the whole drive is backed up and the backup verified: into the database\n"
    "                 when it fits its size rules, else into DIR/Backups/ as a dated zip file. The\n"
    "                 backup's name is printed; restore it with `vexo-log tx restore` to undo.\n"
    "  --skip-backup  no backup before the update\n"
    "  --data DIR     the data folder (default: the database's folder)\n"
    "  --db PATH      the database file, or a folder holding data.sqlite (default: the studio's own)\n"
    "\n"
    "The lists come from the folder named by VEXO_TX_UPDATE_URL.\n"
    "exit codes: 0 done, 1 failed with nothing written to the drive, 2 bad usage or refused,\n"
    "            3 failed after files were written (they stay; the failed file keeps its old content)\n";

namespace {
using Context = CliSupport::Output;

struct Options
{
    QString root;
    bool list = false;
    QString update;
    bool skipBackup = false;
    QString data;
    QString db;
};

bool parseOptions(const QStringList &args, Options *o, QString *error)
{
    QStringList positional;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        QString *valued = a == QLatin1String("--update") ? &o->update
                          : a == QLatin1String("--data") ? &o->data
                          : a == QLatin1String("--db")   ? &o->db
                                                         : nullptr;
        if (valued) {
            if (i + 1 >= args.size()) {
                *error = QStringLiteral("%1 needs a value").arg(a);
                return false;
            }
            *valued = args.at(++i);
        } else if (a == QLatin1String("--list")) {
            o->list = true;
        } else if (a == QLatin1String("--skip-backup")) {
            o->skipBackup = true;
        } else if (a.startsWith(QLatin1String("--"))) {
            *error = QStringLiteral("unknown option %1").arg(a);
            return false;
        } else {
            positional << a;
        }
    }
    if (positional.size() != 1) {
        *error = QStringLiteral("update takes the drive's root folder");
        return false;
    }
    o->root = positional.first();
    if (o->list == !o->update.isEmpty()) {
        *error = QStringLiteral("update needs either --list or --update ID");
        return false;
    }
    return true;
}

bool fetchUpdates(const Context &c, int hwId, QVector<TxCatalogue::Update> *updates)
{
    const QUrl folder = UpdateEndpoints::txUpdateFolder();
    if (folder.isEmpty()) {
        c.fail(QStringLiteral("no update service is configured: set %1 to the address of the folder holding "
                              "\"update.json\"")
                   .arg(QLatin1String(UpdateEndpoints::kTxUpdateUrlVariable)));
        return false;
    }
    FileDownloader downloader;
    downloader.setMaxSize(TxCatalogue::kMaxListBytes);
    if (!downloader.downloadAndWait(folder.resolved(QUrl(QStringLiteral("update.json"))))) {
        c.fail(QStringLiteral("There was an error during downloading the updates list. Try again later. (%1)")
                   .arg(downloader.errorString()));
        return false;
    }
    TxCatalogue::UpdateList list;
    QString why;
    if (!TxCatalogue::parseUpdateList(downloader.data(), &list, &why)) {
        qDebug() << "Invalid json update file data.";
        c.fail(QStringLiteral("the updates list cannot be read: %1").arg(why));
        return false;
    }
    *updates = list.updatesFor(hwId);
    return true;
}

int list(const Context &c, const QVector<TxCatalogue::Update> &updates)
{
    QString text;
    for (const TxCatalogue::Update &u : updates) {
        qint64 size = 0;
        for (const TxCatalogue::FileEntry &f : u.files)
            size += qMax<qint64>(f.size, 0);
        text += QStringLiteral("%1\t%2\tvariant %3\t%4\t%5\t%6\n")
                    .arg(u.id)
                    .arg(u.name)
                    .arg(u.variant)
                    .arg(u.releaseDate.isValid() ? u.releaseDate.date().toString(Qt::ISODate)
                                                 : QStringLiteral("-"))
                    .arg(u.files.size() == 1 ? QStringLiteral("1 file")
                                             : QStringLiteral("%1 files").arg(u.files.size()))
                    .arg(ModelTableModel::formatSize(size));
    }
    if (updates.isEmpty())
        text = QStringLiteral("No updates found for your device.\n");
    c.print(text);
    return 0;
}

// The whole drive, verified, into the database when it fits, else into a dated zip in the data folder.
// Returns the backup's name for the pilot, or an empty text (with the failure reported).
QString backUp(const Context &c, const TransmitterInfo &t, const Options &o, const QString &dbPath,
               const QString &dataFolder)
{
    BackupWorker::Request request;
    request.root = o.root;
    request.files = BackupRules::filesForScope(o.root, BackupRules::Full);
    request.hwId = t.hwId;
    request.name = BackupRules::backupName(t.modelName, t.versionMajor, t.versionMinor);
    request.description = QStringLiteral("Before update %1").arg(o.update);
    if (request.files.isEmpty()) {
        c.fail(QStringLiteral("the drive holds no files to back up"));
        return {};
    }
    std::unique_ptr<Logger> logger;
    std::unique_ptr<DatabaseManager> db;
    if (BackupRules::dbSizeVerdict(BackupWorker::totalSize(o.root, request.files)) ==
        BackupRules::DbSize::Ok) {
        logger =
            std::make_unique<Logger>(QFileInfo(dbPath).absolutePath() + QStringLiteral("/Application.log"));
        db = std::make_unique<DatabaseManager>(QString(), logger.get());
        db->setDatabasePath(dbPath);
        if (!db->openAndInitialise())
            db.reset(); // a file backup instead
    }
    request.toDatabase = db != nullptr;
    if (!db) {
        const QString folder = QDir(dataFolder).filePath(QStringLiteral("Backups"));
        if (!QDir().mkpath(folder)) {
            c.fail(QStringLiteral("cannot create the folder %1").arg(QDir::toNativeSeparators(folder)));
            return {};
        }
        request.targetFile =
            QDir(folder).filePath(BackupRules::proposedFileName(request.name, QDateTime::currentDateTime()));
    }
    BackupWorker worker(request);
    QString error;
    int newId = -1;
    QObject::connect(&worker, &BackupWorker::error, [&](BackupWorker::ErrorType, const QString &text) {
        error = CliSupport::plainText(text);
    });
    QObject::connect(&worker, &BackupWorker::insertBackupDbRequest,
                     [&](int hwId, const QString &name, const QString &description, const QStringList &files,
                         const QByteArray &zip) {
                         newId = db->insertBackup(quint32(hwId), name, description, zip.size(),
                                                  BackupsModel::encodeFileList(files), zip);
                         if (newId < 0)
                             worker.databaseInsertFailed();
                     });
    worker.doWork();
    if (!error.isEmpty()) {
        c.fail(QStringLiteral("the backup before the update failed, nothing was updated: %1").arg(error));
        return {};
    }
    return db ? QStringLiteral(
                    "backup %1 \"%2\" in the database %3 (restore: vexo-log tx restore ROOT --backup "
                    "%1 --db %4)")
                    .arg(newId)
                    .arg(request.name, QDir::toNativeSeparators(dbPath), QDir::toNativeSeparators(dbPath))
              : QStringLiteral("backup file %1 (restore: vexo-log tx restore ROOT %1)")
                    .arg(QDir::toNativeSeparators(request.targetFile));
}

int update(const Context &c, const TransmitterInfo &t, const Options &o,
           const QVector<TxCatalogue::Update> &updates)
{
    bool ok = false;
    const int id = o.update.toInt(&ok);
    if (!ok)
        return c.usage(QStringLiteral("bad update id %1").arg(o.update));
    const auto found = std::find_if(updates.begin(), updates.end(),
                                    [id](const TxCatalogue::Update &u) { return u.id == id; });
    if (found == updates.end()) {
        CliSupport::fail(c.err, QStringLiteral("no update %1 for %2 (see --list)").arg(id).arg(t.modelName));
        return 2;
    }
    const QVector<TxCatalogue::FileEntry> files = UpdateWorker::defaultSelection(found->files);
    if (files.isEmpty()) {
        CliSupport::fail(c.err,
                         QStringLiteral("update %1 installs nothing unless chosen in the wizard").arg(id));
        return 2;
    }
    // Refused before the backup, so that a bad list costs the pilot nothing.
    for (const TxCatalogue::FileEntry &file : files) {
        const QString problem = UpdateWorker::problemOf(file);
        if (!problem.isEmpty()) {
            c.fail(QStringLiteral("update %1 refused, nothing was written: %2").arg(id).arg(problem));
            return 1;
        }
    }
    const QString dbPath = o.db.isEmpty()            ? DbCommands::defaultDatabasePath()
                           : QFileInfo(o.db).isDir() ? QDir(o.db).filePath(DatabaseManager::fileName())
                                                     : o.db;
    const QString dataFolder = o.data.isEmpty() ? QFileInfo(dbPath).absolutePath() : o.data;

    if (o.skipBackup) {
        c.print(QStringLiteral("No backup was made (skipped).\n"));
    } else {
        const QString backup = backUp(c, t, o, dbPath, dataFolder);
        if (backup.isEmpty())
            return 1;
        c.print(QStringLiteral("Backup made: %1\n").arg(backup));
    }

    UpdateWorker worker({o.root, dataFolder, id, files});
    QString error;
    QObject::connect(&worker, &UpdateWorker::processedFile,
                     [&](const QString &line) { c.print(line + '\n'); });
    QObject::connect(&worker, &UpdateWorker::error, [&](UpdateWorker::ErrorType, const QString &text) {
        error = CliSupport::plainText(text);
    });
    worker.doWork();
    const UpdateWorker::Summary s = worker.summary();
    c.print(QStringLiteral("%1 installed, %2 already up to date, %3 downloaded to the data folder\n")
                .arg(s.installed)
                .arg(s.upToDate)
                .arg(s.downloaded));
    if (!error.isEmpty()) {
        c.fail(error);
        return s.installed > 0 ? 3 : 1;
    }
    c.print(QStringLiteral("Update finished.\n"));
    return 0;
}
} // namespace

int TxUpdateCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    const Context c{out, err, "tx update", kUsage};
    if (args.contains(QLatin1String("--help")) || args.contains(QLatin1String("-h"))) {
        std::fputs(kUsage, out);
        return 0;
    }
    Options o;
    QString error;
    if (!parseOptions(args, &o, &error))
        return c.usage(error);
    TransmitterInfo t;
    if (!TransmitterConfig::read(o.root, &t, &error)) {
        c.fail(
            QStringLiteral("%1: not a transmitter drive: %2").arg(QDir::toNativeSeparators(o.root), error));
        return 2;
    }
    QVector<TxCatalogue::Update> updates;
    if (!fetchUpdates(c, t.hwId, &updates))
        return 1;
    return o.list ? list(c, updates) : update(c, t, o, updates);
}
