#include "cli/DbCommands.h"

#include "cli/CliSupport.h"
#include "database/DataFolderCheck.h"
#include "database/DatabaseManager.h"
#include "database/Logbook.h"
#include "database/Logger.h"
#include "database/ModelFolderTree.h"
#include "database/ModelLibrary.h"
#include "telemetry/TelemetryFormat.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QStandardPaths>

#include <map>

namespace {
const char kDbUsage[] = "usage: vexo-log db <command> [--db PATH] [arguments]\n"
                        "\n"
                        "  import --model NAME [--folder yyyy/MM/dd] FILE...\n"
                        "                         store logs under a model (created when missing)\n"
                        "  list                   models, their folders and logs\n"
                        "  check                  the database's integrity, whether it and its folder take\n"
                        "                         writes, and the free disk space; changes nothing\n"
                        "  export --log ID OUT    write a stored log to OUT, byte for byte\n"
                        "  delete-model --model NAME\n"
                        "                         delete a model with its folders and logs\n"
                        "  logbook [--model NAME] [--csv]\n"
                        "                         every model's flights, flight time and alarms; with\n"
                        "                         --model that model's totals and each of its flights\n"
                        "                         (--csv: comma-separated, durations also in ms)\n"
                        "\n"
                        "--db PATH: the database file, or a folder holding data.sqlite\n"
                        "           (default: the studio's own database)\n";

struct Options
{
    QString db;
    QString model;
    QString folder;
    QString log;
    QStringList positional;
    bool csv = false;
};

using Context = CliSupport::Output;

bool parseOptions(const QStringList &args, Options *o, QString *error)
{
    const std::map<QString, QString *> valued = {{QStringLiteral("--db"), &o->db},
                                                 {QStringLiteral("--model"), &o->model},
                                                 {QStringLiteral("--folder"), &o->folder},
                                                 {QStringLiteral("--log"), &o->log}};
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        const auto it = valued.find(a);
        if (a == QLatin1String("--csv")) {
            o->csv = true;
        } else if (it != valued.end()) {
            if (i + 1 >= args.size()) {
                *error = QStringLiteral("%1 needs a value").arg(a);
                return false;
            }
            *it->second = args.at(++i);
        } else if (a.startsWith(QLatin1String("--"))) {
            *error = QStringLiteral("unknown option %1").arg(a);
            return false;
        } else {
            o->positional << a;
        }
    }
    return true;
}

// The database and the application log beside it; the log file is only created if something is logged.
class Session
{
public:
    explicit Session(const QString &path)
        : m_path(path), m_logger(QFileInfo(path).absolutePath() + QStringLiteral("/Application.log")),
          m_db(QString(), &m_logger)
    {
        m_db.setDatabasePath(path);
    }
    const QString &path() const { return m_path; }
    DatabaseManager &db() { return m_db; }

private:
    QString m_path;
    Logger m_logger;
    DatabaseManager m_db;
};

// How a command reaches the database.
enum class Access
{
    Create,   // opened, and created when missing
    Existing, // opened; a path that holds none is refused
    Inspect,  // must exist, and is left to the command to open
};

// A subcommand: what is wrong with its arguments (empty when they fit), checked before anything is
// opened; how it reaches the database; and its work.
struct Command
{
    QString (*badArguments)(const Options &);
    Access access;
    int (*run)(const Context &, const Options &, Session &);
};

QString databasePath(const Options &o)
{
    if (o.db.isEmpty())
        return DbCommands::defaultDatabasePath();
    if (QFileInfo(o.db).isDir())
        return QDir(o.db).filePath(DatabaseManager::fileName());
    return o.db;
}

// What every command does first: its arguments checked, then its database found and opened.
int runCommand(const Context &c, const Options &o, const Command &command)
{
    const QString bad = command.badArguments(o);
    if (!bad.isEmpty())
        return c.usage(bad);
    const QString path = databasePath(o);
    if (command.access != Access::Create && !QFileInfo::exists(path))
        return c.fail(QStringLiteral("%1: no database there").arg(QDir::toNativeSeparators(path)));
    Session session(path);
    DatabaseManager &db = session.db();
    if (command.access != Access::Inspect && !db.openAndInitialise()) {
        // A script must not have files move under it: the studio moves a damaged database aside.
        return c.fail(DataFolderCheck::isDamage(db.lastErrorCode())
                          ? DataFolderCheck::damagedLeftAlone(path, db.lastError())
                          : db.lastError());
    }
    return command.run(c, o, session);
}

// Arguments of the commands that take none besides --db.
QString noArguments(const Options &o, const char *command)
{
    if (!o.positional.isEmpty() || !o.model.isEmpty() || !o.folder.isEmpty() || !o.log.isEmpty() || o.csv)
        return QStringLiteral("%1 takes no arguments besides --db").arg(QLatin1String(command));
    return QString();
}

QString importArguments(const Options &o)
{
    if (o.csv)
        return QStringLiteral("import takes no --csv");
    if (o.model.trimmed().isEmpty())
        return QStringLiteral("import needs --model NAME");
    if (o.positional.isEmpty())
        return QStringLiteral("import needs at least one log file");
    return QString();
}

int import(const Context &c, const Options &o, Session &session)
{
    DatabaseManager &db = session.db();
    ModelLibrary library(&db);
    bool ok = false;
    int modelId = library.findModel(o.model, &ok);
    if (!ok)
        return c.fail(library.lastError());

    QStringList failures;
    int imported = 0;
    const int total = o.positional.size();
    for (int i = 0; i < total; ++i) {
        const QString &file = o.positional.at(i);
        const QString step = QStringLiteral("[%1/%2] %3: ").arg(i + 1).arg(total).arg(file);
        // One transaction per log: a model or folders it needs go in with the log (and the sensor rows
        // its reading adds), or not at all.
        QString error;
        QString warning;
        int logId = -1;
        int folderId = -1;
        const bool createdModel = modelId < 0;
        TelemetryDataPackage package;
        if (!db.beginTransaction()) {
            error = db.lastError();
        } else if ((createdModel && (modelId = library.createModel(o.model)) < 0) ||
                   !library.folderForPath(modelId, o.folder, &folderId) ||
                   (logId = library.importFile(file, modelId, folderId, &warning, &package)) < 0) {
            error = library.lastError();
            db.rollbackTransaction();
        } else if (!db.commitTransaction()) {
            error = db.lastError();
            db.rollbackTransaction();
        }
        if (!error.isEmpty()) {
            if (createdModel)
                modelId = -1;
            // The error begins with the file, which the line already names.
            if (error.startsWith(file + QStringLiteral(": ")))
                error = error.mid(file.size() + 2);
            failures << QStringLiteral("  %1: %2").arg(file, error);
            c.print(step + QStringLiteral("failed: %1\n").arg(error));
            continue;
        }
        ++imported;
        c.print(step + QStringLiteral("stored as log %1 (%2, %3 samples)%4\n")
                           .arg(logId)
                           .arg(TelemetryFormat::duration(ModelLibrary::lengthOf(package)))
                           .arg(package.sampleCount())
                           .arg(warning.isEmpty() ? QString() : QStringLiteral("; ") + warning));
    }
    c.print(QStringLiteral("imported %1, failed %2\n").arg(imported).arg(failures.size()));
    if (!failures.isEmpty())
        std::fprintf(c.err, "vexo-log: failed:\n%s\n", failures.join(QLatin1Char('\n')).toUtf8().constData());
    return failures.isEmpty() ? 0 : 1;
}

void listFolder(const Context &c, const ModelFolderTree &tree, const QModelIndex &parent,
                const QHash<int, qint64> &lengths, int depth)
{
    const QString indent(2 * depth, QLatin1Char(' '));
    for (int row = 0; row < tree.rowCount(parent); ++row) {
        const QModelIndex item = tree.index(row, ModelFolderTree::FileColumn, parent);
        const QString name = item.data().toString();
        const int id = tree.itemId(item);
        if (tree.itemKind(item) == ModelFolderTree::FolderItem) {
            c.print(QStringLiteral("%1%2/  (folder %3, %4 folders, %5 logs)\n")
                        .arg(indent, name)
                        .arg(id)
                        .arg(tree.folderCount(item))
                        .arg(tree.logCount(item)));
            listFolder(c, tree, item, lengths, depth + 1);
        } else {
            const QString date = tree.index(row, ModelFolderTree::DateColumn, parent).data().toString();
            const QString comment = tree.index(row, ModelFolderTree::DetailsColumn, parent).data().toString();
            c.print(QStringLiteral("%1log %2  %3  %4  %5%6\n")
                        .arg(indent)
                        .arg(id)
                        .arg(name, date, TelemetryFormat::duration(lengths.value(id)),
                             comment.isEmpty() ? QString() : QStringLiteral("  \"%1\"").arg(comment)));
        }
    }
}

int list(const Context &c, const Options &, Session &session)
{
    DatabaseManager &db = session.db();
    bool ok = false;
    const QVector<ModelData> models = db.models(&ok);
    if (!ok)
        return c.fail(db.lastError());
    ModelLibrary library(&db);
    ModelFolderTree tree(&library);
    c.print(
        QStringLiteral("%1: %2 models\n").arg(QDir::toNativeSeparators(session.path())).arg(models.size()));
    for (const ModelData &m : models) {
        const QHash<int, qint64> lengths = db.logLengths(m.id, &ok);
        if (!ok || !tree.setModelId(m.id))
            return c.fail(db.lastError());
        c.print(QStringLiteral("model %1  %2  (%3 folders, %4 logs)\n")
                    .arg(m.id)
                    .arg(m.name)
                    .arg(tree.folderCount(QModelIndex()))
                    .arg(tree.logCount(QModelIndex())));
        listFolder(c, tree, QModelIndex(), lengths, 1);
    }
    return 0;
}

// Exit 0 when the studio could work with the database (a warning such as little free space included).
int check(const Context &c, const Options &, Session &session)
{
    const StartupReport report = DataFolderCheck::inspect(&session.db());
    for (const QString &line : report.message.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        std::fprintf(c.err, "vexo-log: %s\n", line.toUtf8().constData());
    if (report.severity == StartupReport::Error)
        return 1;
    c.print(QStringLiteral("%1: ok\n").arg(QDir::toNativeSeparators(session.path())));
    return 0;
}

QString exportArguments(const Options &o)
{
    bool isNumber = false;
    o.log.toInt(&isNumber);
    if (!isNumber || o.positional.size() != 1 || !o.model.isEmpty() || !o.folder.isEmpty() || o.csv)
        return QStringLiteral("export takes --log ID and one output file");
    return QString();
}

int exportLog(const Context &c, const Options &o, Session &session)
{
    const int id = o.log.toInt();
    ModelLibrary library(&session.db());
    if (!library.exportLog(id, o.positional.at(0)))
        return c.fail(library.lastError());
    c.print(QStringLiteral("exported log %1 to %2 (%3 bytes)\n")
                .arg(id)
                .arg(o.positional.at(0))
                .arg(QFileInfo(o.positional.at(0)).size()));
    return 0;
}

QString deleteModelArguments(const Options &o)
{
    if (o.model.isEmpty() || !o.positional.isEmpty() || !o.folder.isEmpty() || !o.log.isEmpty() || o.csv)
        return QStringLiteral("delete-model takes --model NAME");
    return QString();
}

int deleteModel(const Context &c, const Options &o, Session &session)
{
    ModelLibrary library(&session.db());
    const int id = library.findModel(o.model);
    if (id < 0)
        return c.fail(library.lastError());
    ModelFolderTree tree(&library);
    if (!tree.setModelId(id))
        return c.fail(tree.lastError());
    const int folders = tree.folderCount(QModelIndex());
    const int logs = tree.logCount(QModelIndex());
    if (!library.deleteModel(id))
        return c.fail(library.lastError());
    c.print(QStringLiteral("deleted model %1 \"%2\" with %3 folders and %4 logs\n")
                .arg(id)
                .arg(o.model)
                .arg(folders)
                .arg(logs));
    return 0;
}
QString logbookArguments(const Options &o)
{
    if (!o.positional.isEmpty() || !o.folder.isEmpty() || !o.log.isEmpty())
        return QStringLiteral("logbook takes only --model NAME and --csv");
    return QString();
}

// RFC 4180: a field with a comma, a quote or a line break is quoted, its quotes doubled.
QString csvField(const QString &text)
{
    static const QRegularExpression special(QStringLiteral("[\",\r\n]"));
    if (!text.contains(special))
        return text;
    QString quoted = text;
    return QLatin1Char('"') + quoted.replace(QLatin1Char('"'), QStringLiteral("\"\"")) + QLatin1Char('"');
}

QString csvLine(const QStringList &fields)
{
    QStringList quoted;
    for (const QString &f : fields)
        quoted << csvField(f);
    return quoted.join(QLatin1Char(',')) + QLatin1Char('\n');
}

QString counted(int n, const char *one, const char *many)
{
    return QStringLiteral("%1 %2").arg(n).arg(QLatin1String(n == 1 ? one : many));
}

QString totalsLine(const Logbook::Totals &t)
{
    return QStringLiteral("%1, total %2, longest %3, first %4, last %5, %6")
        .arg(counted(t.flights, "flight", "flights"), Logbook::durationText(t.totalms),
             Logbook::durationText(t.longestms),
             t.first.isValid() ? Logbook::dateText(t.first) : QStringLiteral("-"),
             t.last.isValid() ? Logbook::dateText(t.last) : QStringLiteral("-"),
             counted(t.alarms, "alarm", "alarms"));
}

// The same figures as the models window's logbook. Without --model one line per model; with it, that
// model's totals and every flight by date.
int logbook(const Context &c, const Options &o, Session &session)
{
    DatabaseManager &db = session.db();
    int modelId = -1;
    if (!o.model.isEmpty()) {
        ModelLibrary library(&db);
        // A missing model and a failed database both leave the reason in lastError().
        if ((modelId = library.findModel(o.model)) < 0)
            return c.fail(library.lastError());
    }
    bool ok = false;
    const QVector<Logbook::Totals> totals = db.logTotals(modelId, &ok);
    if (!ok)
        return c.fail(db.lastError());
    if (modelId < 0) {
        if (o.csv) {
            c.print(csvLine({QStringLiteral("model_id"), QStringLiteral("model"), QStringLiteral("flights"),
                             QStringLiteral("total"), QStringLiteral("total_ms"), QStringLiteral("longest"),
                             QStringLiteral("longest_ms"), QStringLiteral("first"), QStringLiteral("last"),
                             QStringLiteral("alarms")}));
        }
        for (const Logbook::Totals &t : totals) {
            if (o.csv) {
                c.print(csvLine({QString::number(t.modelId), t.modelName, QString::number(t.flights),
                                 Logbook::durationText(t.totalms), QString::number(t.totalms),
                                 Logbook::durationText(t.longestms), QString::number(t.longestms),
                                 Logbook::dateText(t.first), Logbook::dateText(t.last),
                                 QString::number(t.alarms)}));
            } else {
                c.print(QStringLiteral("model %1  %2: %3\n").arg(t.modelId).arg(t.modelName, totalsLine(t)));
            }
        }
        return 0;
    }
    Logbook book(&db);
    if (!book.setModelId(modelId))
        return c.fail(book.lastError());
    if (o.csv) {
        c.print(csvLine({QStringLiteral("log_id"), QStringLiteral("date"), QStringLiteral("duration"),
                         QStringLiteral("duration_ms"), QStringLiteral("alarms"), QStringLiteral("file")}));
    } else {
        const Logbook::Totals &t = book.totals();
        c.print(QStringLiteral("model %1  %2: %3\n").arg(t.modelId).arg(t.modelName, totalsLine(t)));
    }
    for (const Logbook::Flight &f : book.flights()) {
        if (o.csv) {
            c.print(csvLine({QString::number(f.logId), Logbook::dateText(f.date),
                             Logbook::durationText(f.lengthms), QString::number(f.lengthms),
                             QString::number(f.alarms), f.name}));
        } else {
            c.print(QStringLiteral("  log %1  %2  %3  %4  %5\n")
                        .arg(f.logId)
                        .arg(f.date.isValid() ? Logbook::dateText(f.date) : QStringLiteral("-"),
                             Logbook::durationText(f.lengthms).rightJustified(8),
                             counted(f.alarms, "alarm", "alarms"), f.name));
        }
    }
    return 0;
}
} // namespace

QString DbCommands::defaultDatabasePath()
{
    // The studio's names pick its folder; vexo-log's own would give a folder of its own.
    const QString organisation = QCoreApplication::organizationName();
    const QString application = QCoreApplication::applicationName();
    QCoreApplication::setOrganizationName(QStringLiteral("Vexo"));
    QCoreApplication::setApplicationName(QStringLiteral("Vexo Studio"));
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(application);
    return QDir(folder).filePath(DatabaseManager::fileName());
}

int DbCommands::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    const Context c{out, err, "db", kDbUsage};
    if (args.isEmpty())
        return c.usage(QStringLiteral("which db command?"));
    if (args.at(0) == QLatin1String("--help") || args.at(0) == QLatin1String("-h")) {
        std::fputs(kDbUsage, out);
        return 0;
    }
    const std::map<QString, Command> commands = {
        {QStringLiteral("import"), {&importArguments, Access::Create, &import}},
        {QStringLiteral("list"),
         {[](const Options &o) { return noArguments(o, "list"); }, Access::Existing, &list}},
        {QStringLiteral("check"),
         {[](const Options &o) { return noArguments(o, "check"); }, Access::Inspect, &check}},
        {QStringLiteral("export"), {&exportArguments, Access::Existing, &exportLog}},
        {QStringLiteral("delete-model"), {&deleteModelArguments, Access::Existing, &deleteModel}},
        {QStringLiteral("logbook"), {&logbookArguments, Access::Existing, &logbook}},
    };
    const auto it = commands.find(args.at(0));
    if (it == commands.end())
        return c.usage(QStringLiteral("unknown command \"%1\"").arg(args.at(0)));
    Options o;
    QString error;
    if (!parseOptions(args.mid(1), &o, &error))
        return c.usage(error);
    // The database's "SQLite error:" diagnostics repeat what the command says in its one line on standard
    // error; VEXO_DEBUG=1 shows them.
    if (qEnvironmentVariableIsEmpty("VEXO_DEBUG"))
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\ndefault.warning=false"));
    return runCommand(c, o, it->second);
}
