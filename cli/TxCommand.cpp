#include "cli/TxCommand.h"

#include "cli/CliSupport.h"
#include "cli/DbCommands.h"
#include "cli/TxAppsCommand.h"
#include "cli/TxUpdateCommand.h"
#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "database/ModelLibrary.h"
#include "database/ModelTableModel.h"
#include "link/TransmitterInfo.h"
#include "transmitter/BackupRules.h"
#include "transmitter/BackupWorker.h"
#include "transmitter/BackupsModel.h"
#include "transmitter/LogSyncStore.h"
#include "transmitter/RestoreWorker.h"
#include "transmitter/SyncWorker.h"
#include "transmitter/TransmitterConfig.h"
#include "transmitter/TransmitterLogsModel.h"
#include "transmitter/TransmitterModels.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>

#include <map>
#include <memory>

namespace {
const char kTxUsage[] =
    "usage: vexo-log tx <command> [arguments]\n"
    "\n"
    "  info ROOT              the transmitter on the drive at ROOT: model, hardware id, firmware\n"
    "  backup ROOT [--scope minimal|standard|full] (--out FILE.zip | --db [PATH]\n"
    "         [--name NAME] [--description TEXT])\n"
    "                         back the drive up into a zip file or into the database\n"
    "                         (default scope: full)\n"
    "  restore ROOT (FILE.zip | --backup ID [--db PATH])\n"
    "                         write a backup back onto the drive; the archive is checked first\n"
    "  backups [--db PATH] [--delete ID]\n"
    "                         the backups in the database, newest first; or delete one\n"
    "  sync ROOT [--db PATH] [--dry-run]\n"
    "                         file every log of the drive's Log folder under its model in the\n"
    "                         database; logs already there are skipped; --dry-run writes nothing\n"
    "  update ROOT (--list | --update ID) [--skip-backup] [--data DIR] [--db PATH]\n"
    "                         the updates offered for the drive's model, or install one after a\n"
    "                         verified backup (see `vexo-log tx update --help`)\n"
    "  apps ROOT [--list | --install ID | --uninstall ID]\n"
    "                         the Lua apps of the update service: list them, install or update\n"
    "                         one, or remove one (see tx apps --help)\n"
    "\n"
    "--db PATH: the database file, or a folder holding data.sqlite (default: the studio's own)\n"
    "exit codes: 0 done, 1 failed with nothing written, 2 bad usage, 3 failed after the drive\n"
    "            was written to (files already restored stay; none is left half written)\n";

struct Options
{
    QStringList positional;
    QString scope = QStringLiteral("full");
    QString out;
    bool toDb = false;
    QString db;
    QString name;
    QString description;
    QString backup;
    QString remove;
    bool dryRun = false;
};

using Context = CliSupport::Output;

bool parseOptions(const QStringList &args, Options *o, QString *error)
{
    const std::map<QString, QString *> valued = {
        {QStringLiteral("--scope"), &o->scope},   {QStringLiteral("--out"), &o->out},
        {QStringLiteral("--name"), &o->name},     {QStringLiteral("--description"), &o->description},
        {QStringLiteral("--backup"), &o->backup}, {QStringLiteral("--delete"), &o->remove}};
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        const auto it = valued.find(a);
        if (it != valued.end()) {
            if (i + 1 >= args.size()) {
                *error = QStringLiteral("%1 needs a value").arg(a);
                return false;
            }
            *it->second = args.at(++i);
        } else if (a == QLatin1String("--db")) {
            // The database as target, optionally with its path.
            o->toDb = true;
            if (i + 1 < args.size() && !args.at(i + 1).startsWith(QLatin1String("--")))
                o->db = args.at(++i);
        } else if (a == QLatin1String("--dry-run")) {
            o->dryRun = true;
        } else if (a.startsWith(QLatin1String("--"))) {
            *error = QStringLiteral("unknown option %1").arg(a);
            return false;
        } else {
            o->positional << a;
        }
    }
    return true;
}

class Database
{
public:
    explicit Database(const QString &option)
        : m_path(option.isEmpty()            ? DbCommands::defaultDatabasePath()
                 : QFileInfo(option).isDir() ? QDir(option).filePath(DatabaseManager::fileName())
                                             : option),
          m_logger(QFileInfo(m_path).absolutePath() + QStringLiteral("/Application.log")),
          m_db(QString(), &m_logger)
    {
        m_db.setDatabasePath(m_path);
    }
    bool open() { return m_db.openAndInitialise(); }
    DatabaseManager &db() { return m_db; }

private:
    QString m_path;
    Logger m_logger;
    DatabaseManager m_db;
};

bool readTransmitter(const Context &c, const QString &root, TransmitterInfo *info)
{
    QString error;
    if (TransmitterConfig::read(root, info, &error))
        return true;
    c.fail(QStringLiteral("%1: not a transmitter drive: %2").arg(QDir::toNativeSeparators(root), error));
    return false;
}

int info(const Context &c, const Options &o)
{
    if (o.positional.size() != 1)
        return c.usage(QStringLiteral("info takes the drive's root folder"));
    TransmitterInfo t;
    if (!readTransmitter(c, o.positional.at(0), &t))
        return 1;
    const QString image = TransmitterModels::firmwareImage(t.hwId);
    c.print(QStringLiteral("Root:        %1\nModel:       %2\nHardware id: %3\nFirmware:    %4.%5\n"
                           "Image:       %6\n")
                .arg(QDir::toNativeSeparators(o.positional.at(0)), t.modelName)
                .arg(t.hwId)
                .arg(t.versionMajor)
                .arg(t.versionMinor)
                .arg(image.isEmpty() ? QStringLiteral("-") : QStringLiteral("update/") + image));
    return 0;
}

int backup(const Context &c, const Options &o)
{
    if (o.positional.size() != 1)
        return c.usage(QStringLiteral("backup takes the drive's root folder"));
    if (o.toDb == !o.out.isEmpty())
        return c.usage(QStringLiteral("backup needs either --out FILE.zip or --db"));
    const std::map<QString, BackupRules::Scope> scopes = {{QStringLiteral("minimal"), BackupRules::Minimal},
                                                          {QStringLiteral("standard"), BackupRules::Standard},
                                                          {QStringLiteral("full"), BackupRules::Full}};
    const auto scope = scopes.find(o.scope.toLower());
    if (scope == scopes.end())
        return c.usage(QStringLiteral("unknown scope %1").arg(o.scope));
    const QString root = o.positional.at(0);
    TransmitterInfo t;
    if (!readTransmitter(c, root, &t))
        return 1;

    BackupWorker::Request request;
    request.root = root;
    request.files = BackupRules::filesForScope(root, scope->second);
    request.hwId = t.hwId;
    request.name =
        o.name.isEmpty() ? BackupRules::backupName(t.modelName, t.versionMajor, t.versionMinor) : o.name;
    request.description = o.description;
    request.toDatabase = o.toDb;
    request.targetFile = o.out;
    if (request.files.isEmpty())
        return c.fail(QStringLiteral("the scope %1 takes no files on this drive").arg(o.scope));

    std::unique_ptr<Database> database;
    if (o.toDb) {
        const qint64 size = BackupWorker::totalSize(root, request.files);
        switch (BackupRules::dbSizeVerdict(size)) {
        case BackupRules::DbSize::TooLarge:
            return c.fail(
                QStringLiteral("Size of selected files is more than %1. Maximum allowed backup size for "
                               "a database storage is %2. Deselect unnecessary files or save backup "
                               "to a file.")
                    .arg(ModelTableModel::formatSize(BackupRules::kMaxDbSize),
                         ModelTableModel::formatSize(BackupRules::kMaxDbSize)));
        case BackupRules::DbSize::Ask:
            std::fputs(QStringLiteral("vexo-log: note: the backup is %1, above the %2 recommended for the "
                                      "database\n")
                           .arg(ModelTableModel::formatSize(size),
                                ModelTableModel::formatSize(BackupRules::kRecommendedDbSize))
                           .toUtf8()
                           .constData(),
                       c.err);
            break;
        case BackupRules::DbSize::Ok:
            break;
        }
        database.reset(new Database(o.db));
        if (!database->open())
            return c.fail(database->db().lastError());
    } else if (!QFileInfo(QFileInfo(o.out).absolutePath()).isDir()) {
        return c.fail(QStringLiteral("Invalid file location entered."));
    }

    BackupWorker worker(request);
    QString error;
    int newId = -1;
    QObject::connect(&worker, &BackupWorker::processedFile, [&](const QString &f) { c.print(f + '\n'); });
    QObject::connect(&worker, &BackupWorker::error, [&](BackupWorker::ErrorType, const QString &text) {
        error = CliSupport::plainText(text);
    });
    QObject::connect(&worker, &BackupWorker::insertBackupDbRequest,
                     [&](int hwId, const QString &name, const QString &description, const QStringList &files,
                         const QByteArray &zip) {
                         newId = database->db().insertBackup(quint32(hwId), name, description, zip.size(),
                                                             BackupsModel::encodeFileList(files), zip);
                         if (newId < 0)
                             worker.databaseInsertFailed();
                     });
    worker.doWork();
    if (!error.isEmpty())
        return c.fail(error);
    if (o.toDb)
        c.print(QStringLiteral("Backup %1 stored in the database as \"%2\".\n").arg(newId).arg(request.name));
    return 0;
}

int restore(const Context &c, const Options &o)
{
    if (o.positional.isEmpty() || o.positional.size() != (o.backup.isEmpty() ? 2 : 1))
        return c.usage(QStringLiteral("restore takes the drive's root folder and FILE.zip or --backup ID"));
    RestoreWorker::Request request;
    request.root = o.positional.at(0);
    std::unique_ptr<Database> database;
    if (o.backup.isEmpty()) {
        request.archivePath = o.positional.at(1);
    } else {
        bool ok = false;
        request.backupId = o.backup.toInt(&ok);
        if (!ok || request.backupId < 0)
            return c.usage(QStringLiteral("bad backup id %1").arg(o.backup));
        database.reset(new Database(o.db));
        if (!database->open())
            return c.fail(database->db().lastError());
    }
    RestoreWorker worker(request);
    QString error;
    bool written = false;
    QObject::connect(&worker, &RestoreWorker::processedFile, [&](const QString &f) { c.print(f + '\n'); });
    QObject::connect(&worker, &RestoreWorker::progressChanged, [&] { written = true; });
    // A failed swap may have left the first file as a pair: counted as written, to be safe.
    QObject::connect(&worker, &RestoreWorker::error, [&](RestoreWorker::ErrorType type, const QString &text) {
        error = CliSupport::plainText(text);
        written = written || type == RestoreWorker::RecoverError;
    });
    QObject::connect(&worker, &RestoreWorker::requestBackupFromDb, [&](int id) {
        QByteArray zip;
        const bool ok = database->db().backupData(id, &zip);
        worker.setBackupData(zip, ok);
    });
    worker.doWork();
    if (!error.isEmpty()) {
        c.fail(error);
        return written ? 3 : 1;
    }
    return 0;
}

int backups(const Context &c, const Options &o)
{
    if (!o.positional.isEmpty())
        return c.usage(QStringLiteral("backups takes no arguments besides --db and --delete"));
    Database database(o.db);
    if (!database.open())
        return c.fail(database.db().lastError());
    if (!o.remove.isEmpty()) {
        bool ok = false;
        const int id = o.remove.toInt(&ok);
        if (!ok)
            return c.usage(QStringLiteral("bad backup id %1").arg(o.remove));
        QByteArray list;
        if (!database.db().backupFileList(id, &list))
            return c.fail(QStringLiteral("no backup %1").arg(id));
        if (!database.db().deleteBackup(id))
            return c.fail(QStringLiteral("There was an error while removing the backup."));
        return 0;
    }
    bool ok = false;
    const QVector<BackupRow> rows = database.db().listBackups(&ok);
    if (!ok)
        return c.fail(database.db().lastError());
    QString text;
    for (const BackupRow &r : rows) {
        text += QStringLiteral("%1\t%2\t%3\t%4\t%5\t%6\n")
                    .arg(r.id)
                    .arg(r.name, r.dateCreated.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")),
                         TransmitterModels::modelName(quint16(r.hwid)), ModelTableModel::formatSize(r.size),
                         QString(r.description).replace(QLatin1Char('\n'), QLatin1Char(' ')));
    }
    c.print(text);
    return 0;
}
int sync(const Context &c, const Options &o)
{
    if (o.positional.size() != 1)
        return c.usage(QStringLiteral("sync takes the drive's root folder"));
    const QString root = o.positional.at(0);
    if (!QFileInfo(QDir(root).filePath(QStringLiteral("Log"))).isDir())
        return c.fail(QStringLiteral("%1: no Log folder on this drive").arg(QDir::toNativeSeparators(root)));
    Database database(o.db);
    if (!database.open())
        return c.fail(database.db().lastError());
    ModelLibrary library(&database.db());
    TransmitterLogsModel logs;
    logs.setDriveRoot(root);
    logs.setAllChecked(true);
    LogSyncStore store(&logs, &library);
    store.setDryRun(o.dryRun);
    SyncWorker worker(logs.checkedLogs(), root);
    store.attach(&worker, Qt::DirectConnection);
    if (o.dryRun)
        c.print(QStringLiteral("Dry run: nothing is written.\n"));
    QString error;
    QObject::connect(&worker, &SyncWorker::processedFile, [&](QString line) {
        if (o.dryRun)
            line.replace(QLatin1String(": stored under "), QLatin1String(": would be stored under "));
        c.print(line + '\n');
    });
    QObject::connect(&worker, &SyncWorker::error, [&](SyncWorker::ErrorType, const QString &text) {
        error = CliSupport::plainText(text);
    });
    worker.doWork();
    const SyncReport report = worker.report();
    c.print(report.summary() + '\n');
    if (!error.isEmpty())
        return c.fail(error);
    return report.failed.isEmpty() ? 0 : 1;
}
} // namespace

int TxCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    const Context c{out, err, "tx", kTxUsage};
    if (args.isEmpty())
        return c.usage(QStringLiteral("which tx command?"));
    if (args.at(0) == QLatin1String("--help") || args.at(0) == QLatin1String("-h")) {
        std::fputs(kTxUsage, out);
        return 0;
    }
    // The app manager has options of its own.
    if (args.at(0) == QLatin1String("apps"))
        return TxAppsCommand::run(args.mid(1), out, err);
    // Options of its own; its help is its own too.
    if (args.at(0) == QLatin1String("update"))
        return TxUpdateCommand::run(args.mid(1), out, err);
    const std::map<QString, int (*)(const Context &, const Options &)> commands = {
        {QStringLiteral("info"), &info},
        {QStringLiteral("backup"), &backup},
        {QStringLiteral("restore"), &restore},
        {QStringLiteral("backups"), &backups},
        {QStringLiteral("sync"), &sync}};
    const auto it = commands.find(args.at(0));
    if (it == commands.end())
        return c.usage(QStringLiteral("unknown tx command %1").arg(args.at(0)));
    Options o;
    QString error;
    if (!parseOptions(args.mid(1), &o, &error))
        return c.usage(error);
    return it->second(c, o);
}
