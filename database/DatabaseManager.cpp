#include "database/DatabaseManager.h"

#include "database/BlobCodec.h"
#include "database/Logger.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QStandardPaths>

namespace {
const char kSystem[] = "System";

// SQLite's primary result codes that deserve their own explanation.
enum SqliteCode
{
    kBusy = 5,
    kLocked = 6,
    kReadOnly = 8,
    kIoError = 10,
    kCorrupt = 11,
    kFull = 13,
    kCantOpen = 14,
    kNotADatabase = 26,
};

const char *const kCreateStatements[] = {
    "create table IF NOT EXISTS sensors (id integer not null, param integer not null, label varchar (20), "
    "unit varchar (8), unitConversion varchar (8), defaultMin real, defaultMax real, defaultColor int, "
    "updated int not null default 0, primary key (id, param))",
    "create table IF NOT EXISTS layouts (id integer not null primary key, name text not null COLLATE NOCASE, "
    "description text not null, screenshot blob, data blob, dateCreated datetime)",
    "create table IF NOT EXISTS models (id integer not null primary key, filename text not null, "
    "name text not null COLLATE NOCASE, rx1 integer not null, rx2 integer not null, description text not "
    "null, "
    "screenshot blob, data blob, layout blob, dateCreated datetime, dateModified datetime)",
    "create table IF NOT EXISTS folders (id integer not null primary key, "
    "parentId integer null REFERENCES folders(id) ON DELETE CASCADE, "
    "modelId integer not null REFERENCES models(id) ON DELETE CASCADE, name text not null COLLATE NOCASE)",
    "create table IF NOT EXISTS logs (id integer not null primary key, "
    "modelId integer null REFERENCES models(id) ON DELETE CASCADE, "
    "folderId integer null REFERENCES folders(id) ON DELETE CASCADE, filename text not null COLLATE NOCASE, "
    "dateCreated datetime, lengthms integer not null, comment text not null, data blob)",
    "create table IF NOT EXISTS comments (id integer not null primary key, "
    "logId integer not null REFERENCES logs(id) ON DELETE CASCADE, timems integer not null, "
    "type integer not null, code integer not null, comment text not null)",
    "create table IF NOT EXISTS backups (id integer not null primary key, hwid integer not null, "
    "name text not null COLLATE NOCASE, description text, dateCreated datetime not null, size integer not "
    "null, "
    "fileList blob not null, data blob not null)",
};

QVariant nullable(int id)
{
    return id >= 0 ? QVariant(id) : QVariant(); // an invalid variant binds as null
}

// "not null" text columns: a null QString would bind as null.
QVariant text(const QString &s)
{
    return s.isNull() ? QVariant(QStringLiteral("")) : QVariant(s);
}

int idOrMinusOne(const QVariant &v)
{
    return v.isNull() ? -1 : v.toInt();
}
} // namespace

QStringList DatabaseManager::tableNames()
{
    return {QStringLiteral("sensors"), QStringLiteral("layouts"), QStringLiteral("models"),
            QStringLiteral("folders"), QStringLiteral("logs"),    QStringLiteral("comments"),
            QStringLiteral("backups")};
}

DatabaseManager::DatabaseManager(const QString &dataFolder, Logger *logger, QObject *parent)
    : QObject(parent), m_connection(QString::fromLatin1(QSqlDatabase::defaultConnection)), m_logger(logger)
{
    ModelData::registerMetaType();
    const QString folder = dataFolder.isEmpty()
                               ? QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
                               : dataFolder;
    m_path = QDir::toNativeSeparators(folder + QLatin1Char('/') + fileName());
}

DatabaseManager::~DatabaseManager()
{
    close();
}

void DatabaseManager::setDatabasePath(const QString &path)
{
    m_path = QDir::toNativeSeparators(path);
}

void DatabaseManager::setConnectionName(const QString &name)
{
    m_connection = name;
}

QString DatabaseManager::dateText(const QDateTime &date)
{
    return date.isValid() ? date.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")) : QString();
}

QDateTime DatabaseManager::dateFromText(const QString &text, Qt::TimeSpec zone)
{
    for (const QString &format :
         {QStringLiteral("yyyy-MM-dd hh:mm:ss"), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"),
          QStringLiteral("yyyy-MM-ddThh:mm:ss"), QStringLiteral("yyyy-MM-ddThh:mm:ss.zzz")}) {
        QDateTime d = QDateTime::fromString(text, format);
        if (d.isValid()) {
            d.setTimeSpec(zone);
            return d;
        }
    }
    return QDateTime::fromString(text, Qt::ISODateWithMs);
}

// --- connection and schema ---

bool DatabaseManager::open()
{
    if (isOpen())
        return true;
    const QFileInfo info(m_path);
    if (!m_readOnly && !QDir().mkpath(info.absolutePath())) {
        fail(
            tr("%1: cannot create the folder %2").arg(m_path, QDir::toNativeSeparators(info.absolutePath())));
        return false;
    }
    if (m_readOnly && !info.exists()) {
        fail(tr("%1: no such database file").arg(m_path));
        return false;
    }
    if (info.isDir()) {
        fail(tr("%1: is a folder, not a database file").arg(m_path));
        return false;
    }
    QSqlDatabase db = QSqlDatabase::contains(m_connection)
                          ? QSqlDatabase::database(m_connection, false)
                          : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connection);
    if (!db.isValid()) {
        fail(tr("%1: the SQLite driver (QSQLITE) is not available").arg(m_path));
        return false;
    }
    db.setDatabaseName(m_path);
    QString options = QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(m_busyTimeoutMs);
    if (m_readOnly)
        options += QStringLiteral(";QSQLITE_OPEN_READONLY");
    db.setConnectOptions(options);
    if (!db.open()) {
        report(db.lastError());
        return false;
    }
    m_depth = 0;
    return true;
}

bool DatabaseManager::isOpen() const
{
    return QSqlDatabase::contains(m_connection) && QSqlDatabase::database(m_connection, false).isOpen();
}

void DatabaseManager::close()
{
    if (!QSqlDatabase::contains(m_connection))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(m_connection, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(m_connection);
    m_depth = 0;
}

bool DatabaseManager::openAndInitialise()
{
    return open() && initialise() && upgrade();
}

bool DatabaseManager::initialise()
{
    QStringList missing = tableNames();
    {
        QSqlQuery q(QSqlDatabase::database(m_connection, false));
        // A file that cannot even list its tables is not ours to touch: never "reinitialise" it.
        if (!exec(q, QStringLiteral("SELECT name FROM sqlite_master WHERE type = \"table\"")))
            return false;
        while (q.next())
            missing.removeAll(q.value(0).toString());
    }
    if (!execSimple(QStringLiteral("PRAGMA foreign_keys = ON")))
        return false;
    // The setting only takes on a new database, and a read-only one is never new: there its refusal to
    // write the header must not keep the pilot from reading the logs.
    if (!execSimple(QStringLiteral("PRAGMA auto_vacuum = FULL;")) && m_lastErrorCode != kReadOnly)
        return false;
    if (missing.isEmpty())
        return true;
    if (m_logger)
        m_logger->write(QLatin1String(kSystem), QStringLiteral("Database reinitialization"));
    // One transaction for all the creates: one sync to disk instead of seven, and no half-made schema.
    if (!beginTransaction())
        return false;
    for (const char *statement : kCreateStatements) {
        if (!execSimple(QString::fromLatin1(statement))) {
            if (m_logger)
                m_logger->write(QLatin1String(kSystem), m_lastError);
            rollbackTransaction();
            return false;
        }
    }
    return commitTransaction();
}

bool DatabaseManager::hasColumn(const QString &table, const QString &column, bool *ok)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    *ok = exec(q, QStringLiteral("PRAGMA table_info(%1)").arg(table));
    while (*ok && q.next()) {
        if (q.value(1).toString().compare(column, Qt::CaseInsensitive) == 0)
            return true;
    }
    return false;
}

bool DatabaseManager::upgrade()
{
    // The stored program version only stood for the schema; asking the schema itself also catches a
    // database copied in from an older installation.
    bool ok = false;
    if (hasColumn(QStringLiteral("sensors"), QStringLiteral("updated"), &ok) || !ok)
        return ok;
    if (m_logger)
        m_logger->write(QLatin1String(kSystem), QStringLiteral("Database update to 0.5.4"));
    return execSimple(QStringLiteral("alter table sensors add column updated int not null default 0;"));
}

bool DatabaseManager::deleteDatabaseFile()
{
    close();
    QFile file(m_path);
    if (!file.exists())
        return true;
    if (!file.remove()) {
        fail(tr("%1: cannot delete: %2").arg(m_path, file.errorString()));
        return false;
    }
    return true;
}

// --- statements ---

void DatabaseManager::fail(const QString &reason, int code)
{
    m_lastError = reason;
    m_lastErrorCode = code;
}

void DatabaseManager::report(const QSqlError &error)
{
    qWarning().noquote() << "SQLite error:" << error.text()
                         << ", SQLite error code:" << error.nativeErrorCode();
    const int code = error.nativeErrorCode().toInt() & 0xff;
    const QString text = error.databaseText().isEmpty() ? error.text() : error.databaseText();
    QString reason;
    switch (code) {
    case kBusy:
    case kLocked:
        reason = tr("the database is locked by another program (%1)").arg(text);
        break;
    case kReadOnly:
        reason = tr("the database is read-only (%1)").arg(text);
        break;
    case kIoError:
        reason = tr("input/output error (%1)").arg(text);
        break;
    case kCorrupt:
        reason = tr("the database file is damaged (%1)").arg(text);
        break;
    case kFull:
        reason = tr("the disk is full (%1)").arg(text);
        break;
    case kCantOpen:
        reason = tr("the database file cannot be opened (%1)").arg(text);
        break;
    case kNotADatabase:
        reason = tr("the file is not a database (%1)").arg(text);
        break;
    default:
        reason = text;
    }
    fail(tr("%1: %2").arg(m_path, reason), code);
}

bool DatabaseManager::exec(QSqlQuery &query, const QString &statement, const QVariantList &values)
{
    if (!isOpen()) {
        fail(tr("%1: the database is not open").arg(m_path));
        return false;
    }
    query.setForwardOnly(true);
    if (!query.prepare(statement)) {
        report(query.lastError());
        return false;
    }
    for (const QVariant &v : values)
        query.addBindValue(v);
    if (!query.exec()) {
        report(query.lastError());
        return false;
    }
    return true;
}

bool DatabaseManager::execSimple(const QString &statement, const QVariantList &values)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    return exec(q, statement, values);
}

int DatabaseManager::execInsert(const QString &statement, const QVariantList &values)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!exec(q, statement, values))
        return -1;
    return q.lastInsertId().toInt();
}

bool DatabaseManager::beginTransaction()
{
    if (!execSimple(QStringLiteral("SAVEPOINT vexo_%1").arg(m_depth + 1)))
        return false;
    ++m_depth;
    return true;
}

bool DatabaseManager::commitTransaction()
{
    if (m_depth <= 0)
        return false;
    if (!execSimple(QStringLiteral("RELEASE vexo_%1").arg(m_depth)))
        return false;
    --m_depth;
    return true;
}

void DatabaseManager::rollbackTransaction()
{
    if (m_depth <= 0)
        return;
    const QString error = m_lastError;
    const int code = m_lastErrorCode;
    const QString name = QStringLiteral("vexo_%1").arg(m_depth);
    if (execSimple(QStringLiteral("ROLLBACK TO ") + name) && execSimple(QStringLiteral("RELEASE ") + name)) {
        --m_depth;
    } else {
        // SQLite may already have rolled back the whole transaction itself (a full disk, an I/O error).
        execSimple(QStringLiteral("ROLLBACK"));
        m_depth = 0;
    }
    // The caller reports what went wrong, not the rollback.
    fail(error, code);
}

// --- sensors ---

bool DatabaseManager::findSensor(quint32 id, quint32 param, SensorRow *row)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!exec(q, QStringLiteral("select * from sensors where id = ? and param = ?"), {id, param}) ||
        !q.next())
        return false;
    if (row) {
        const QSqlRecord r = q.record();
        row->id = id;
        row->param = param;
        row->label = q.value(r.indexOf(QStringLiteral("label"))).toString();
        row->unit = q.value(r.indexOf(QStringLiteral("unit"))).toString();
        row->unitConversion = q.value(r.indexOf(QStringLiteral("unitConversion"))).toString();
        row->defaultMin = q.value(r.indexOf(QStringLiteral("defaultMin"))).toDouble();
        row->defaultMax = q.value(r.indexOf(QStringLiteral("defaultMax"))).toDouble();
        row->defaultColor = q.value(r.indexOf(QStringLiteral("defaultColor"))).toInt();
        const int updated = r.indexOf(QStringLiteral("updated"));
        row->updated = updated >= 0 && q.value(updated).toInt() != 0;
    }
    return true;
}

bool DatabaseManager::insertDefaultSensor(const SensorRow &row)
{
    return execSimple(QStringLiteral("insert or ignore into sensors values(?,?,?,?,?,?,?,?,0)"),
                      {row.id, row.param, row.label, row.unit, row.unitConversion, row.defaultMin,
                       row.defaultMax, row.defaultColor});
}

bool DatabaseManager::updateSensorSettings(const SensorRow &row)
{
    return execSimple(
        QStringLiteral("update sensors set unitConversion=?, defaultMin=?, defaultMax=?, "
                       "defaultColor=?, updated=1  where id = ? and param = ?"),
        {row.unitConversion, row.defaultMin, row.defaultMax, row.defaultColor, row.id, row.param});
}

bool DatabaseManager::deleteAllSensors()
{
    return execSimple(QStringLiteral("delete from sensors"));
}

// --- layouts ---

int DatabaseManager::insertLayout(const QString &name, const QString &description, const QByteArray &data,
                                  const QByteArray &screenshot)
{
    return execInsert(QStringLiteral("insert into layouts (name,description,data,screenshot,dateCreated) "
                                     "values(?,?,?,?,datetime('now'))"),
                      {text(name), text(description), data, screenshot});
}

QVector<DatabaseManager::LayoutRow> DatabaseManager::layouts(bool *ok)
{
    QVector<LayoutRow> rows;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    const bool done = exec(q, QStringLiteral("select * from layouts order by name COLLATE NOCASE"));
    if (ok)
        *ok = done;
    if (!done)
        return rows;
    const QSqlRecord r = q.record();
    const int id = r.indexOf(QStringLiteral("id")), name = r.indexOf(QStringLiteral("name")),
              description = r.indexOf(QStringLiteral("description")),
              screenshot = r.indexOf(QStringLiteral("screenshot")), data = r.indexOf(QStringLiteral("data")),
              date = r.indexOf(QStringLiteral("dateCreated"));
    while (q.next()) {
        LayoutRow row;
        row.id = q.value(id).toInt();
        row.name = q.value(name).toString();
        row.description = q.value(description).toString();
        row.screenshot = q.value(screenshot).toByteArray();
        row.data = q.value(data).toByteArray();
        row.dateCreated = dateFromText(q.value(date).toString(), Qt::UTC);
        rows.append(row);
    }
    return rows;
}

bool DatabaseManager::deleteLayout(int id)
{
    return execSimple(QStringLiteral("delete from layouts where id=?"), {id});
}

// --- models ---

int DatabaseManager::insertModel(const ModelData &m)
{
    return execInsert(
        QStringLiteral("insert into models (rx1,rx2,name,filename,description,data,layout,screenshot,"
                       "dateCreated,dateModified) "
                       "values(?,?,?,?,?,?,?,?,datetime('now'),datetime('now'))"),
        {m.rx1, m.rx2, text(m.name), text(m.filename), text(m.description), m.data, m.layout, m.screenshot});
}

namespace {
ModelData modelFrom(const QSqlQuery &q, const QSqlRecord &r)
{
    const auto value = [&](const char *name) { return q.value(r.indexOf(QLatin1String(name))); };
    ModelData m;
    m.id = value("id").toInt();
    m.filename = value("filename").toString();
    m.name = value("name").toString();
    m.rx1 = value("rx1").toLongLong();
    m.rx2 = value("rx2").toLongLong();
    m.description = value("description").toString();
    m.screenshot = value("screenshot").toByteArray();
    m.data = value("data").toByteArray();
    m.layout = value("layout").toByteArray();
    m.dateCreated = DatabaseManager::dateFromText(value("dateCreated").toString(), Qt::UTC);
    m.dateModified = DatabaseManager::dateFromText(value("dateModified").toString(), Qt::UTC);
    return m;
}
} // namespace

QVector<ModelData> DatabaseManager::models(bool *ok)
{
    QVector<ModelData> rows;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    const bool done = exec(q, QStringLiteral("select * from models order by name COLLATE NOCASE"));
    if (ok)
        *ok = done;
    while (done && q.next())
        rows.append(modelFrom(q, q.record()));
    return rows;
}

bool DatabaseManager::model(int id, ModelData *model)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!exec(q, QStringLiteral("select * from models where id = ?"), {id}))
        return false;
    if (!q.next()) {
        fail(tr("%1: there is no model %2").arg(m_path).arg(id));
        return false;
    }
    if (model)
        *model = modelFrom(q, q.record());
    return true;
}

bool DatabaseManager::updateModel(const ModelData &m)
{
    return execSimple(QStringLiteral("update models set rx1=?, rx2=?, data=?, layout=?, "
                                     "screenshot=?,dateModified=datetime('now') where id=?"),
                      {m.rx1, m.rx2, m.data, m.layout, m.screenshot, m.id});
}

bool DatabaseManager::renameModel(int id, const QString &name, const QString &description)
{
    return execSimple(QStringLiteral("update models set name = ?, description = ?, "
                                     "dateModified=datetime('now') where id = ?"),
                      {name, text(description), id});
}

bool DatabaseManager::deleteModel(int id)
{
    return execSimple(QStringLiteral("delete from models where id = %1").arg(id));
}

// --- logs ---

bool DatabaseManager::updateLog(int id, const QString &comment, const QDateTime &dateCreated,
                                const QByteArray &nativeLog, qint64 lengthms)
{
    return updateLogCompressed(id, comment, dateCreated, BlobCodec::compress(nativeLog), lengthms);
}

bool DatabaseManager::updateLogCompressed(int id, const QString &comment, const QDateTime &dateCreated,
                                          const QByteArray &blob, qint64 lengthms)
{
    return execSimple(
        QStringLiteral("update logs set comment = ?, dateCreated = ?, data = ?, lengthms = ? where id = ?"),
        {text(comment), dateText(dateCreated), blob, lengthms, id});
}

bool DatabaseManager::uncompressed(const QByteArray &blob, QByteArray *out)
{
    QString error;
    if (!BlobCodec::uncompress(blob, out, &error)) {
        fail(tr("%1: %2").arg(m_path, error));
        return false;
    }
    return true;
}

bool DatabaseManager::loadLogCompressed(int id, QByteArray *blob, QDateTime *dateCreated, int *modelId)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!exec(q, QStringLiteral("select data, dateCreated, modelId from logs where id = ?"), {id}))
        return false;
    if (!q.next()) {
        fail(tr("%1: there is no log %2").arg(m_path).arg(id));
        return false;
    }
    if (q.value(0).isNull()) {
        fail(tr("%1: log %2 holds no data").arg(m_path).arg(id));
        return false;
    }
    if (blob)
        *blob = q.value(0).toByteArray();
    if (dateCreated)
        *dateCreated = dateFromText(q.value(1).toString());
    if (modelId)
        *modelId = idOrMinusOne(q.value(2));
    return true;
}

bool DatabaseManager::loadLog(int id, QByteArray *nativeLog, QDateTime *dateCreated, int *modelId)
{
    QByteArray blob;
    return loadLogCompressed(id, &blob, dateCreated, modelId) && uncompressed(blob, nativeLog);
}

bool DatabaseManager::logExists(int id, bool *ok)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    const bool done = exec(q, QStringLiteral("select id from logs where id = ?"), {id});
    if (ok)
        *ok = done;
    return done && q.next();
}

int DatabaseManager::modelOfLog(int id, bool *ok)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    const bool done = exec(q, QStringLiteral("select modelId from logs where id = ?"), {id});
    if (ok)
        *ok = done;
    if (!done || !q.next())
        return -1;
    return idOrMinusOne(q.value(0));
}

int DatabaseManager::findLogByDate(const QDateTime &dateCreated)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!exec(q, QStringLiteral("select id from logs where dateCreated = ?"), {dateText(dateCreated)}) ||
        !q.next())
        return -1;
    return q.value(0).toInt();
}

bool DatabaseManager::selectBlob(const QString &statement, int id, QByteArray *blob)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!exec(q, statement, {id}))
        return false;
    if (!q.next() || q.value(0).isNull()) {
        fail(tr("%1: no stored data for %2").arg(m_path).arg(id));
        return false;
    }
    if (blob)
        *blob = q.value(0).toByteArray();
    return true;
}

bool DatabaseManager::logDataCompressed(int id, QByteArray *blob)
{
    return selectBlob(QStringLiteral("select data from logs where id = ?"), id, blob);
}

bool DatabaseManager::logData(int id, QByteArray *nativeLog)
{
    QByteArray blob;
    return logDataCompressed(id, &blob) && uncompressed(blob, nativeLog);
}

QHash<int, qint64> DatabaseManager::logLengths(int modelId, bool *ok)
{
    QHash<int, qint64> lengths;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    const bool done = exec(q, QStringLiteral("select id, lengthms from logs where modelId = ?"), {modelId});
    if (ok)
        *ok = done;
    while (done && q.next())
        lengths.insert(q.value(0).toInt(), q.value(1).toLongLong());
    return lengths;
}

// --- backups ---

int DatabaseManager::insertBackup(quint32 hwid, const QString &name, const QString &description, qint64 size,
                                  const QByteArray &fileList, const QByteArray &data)
{
    return execInsert(
        QStringLiteral("insert into backups (hwid,name,description,dateCreated,size,fileList,data) "
                       "values(?,?,?,datetime('now'),?,?,?)"),
        {hwid, text(name), description, size, BlobCodec::compress(fileList), BlobCodec::compress(data)});
}

bool DatabaseManager::deleteBackup(int id)
{
    return execSimple(QStringLiteral("delete from backups where id=?"), {id});
}

bool DatabaseManager::backupData(int id, QByteArray *data)
{
    QByteArray blob;
    return selectBlob(QStringLiteral("select data from backups where id = ?"), id, &blob) &&
           uncompressed(blob, data);
}

bool DatabaseManager::backupFileList(int id, QByteArray *fileList)
{
    QByteArray blob;
    return selectBlob(QStringLiteral("select fileList from backups where id = ?"), id, &blob) &&
           uncompressed(blob, fileList);
}

// --- the models tree ---

QVector<DatabaseManager::FolderRow> DatabaseManager::folderRows(const QString &statement, bool *ok)
{
    QVector<FolderRow> rows;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    const bool done = exec(q, statement);
    if (ok)
        *ok = done;
    while (done && q.next())
        rows.append({q.value(0).toInt(), q.value(1).toInt(), q.value(2).toString()});
    return rows;
}

QVector<DatabaseManager::LogRow> DatabaseManager::logRows(const QString &statement, bool *ok)
{
    QVector<LogRow> rows;
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    const bool done = exec(q, statement);
    if (ok)
        *ok = done;
    while (done && q.next()) {
        rows.append({q.value(0).toInt(), idOrMinusOne(q.value(1)), q.value(2).toString(),
                     dateFromText(q.value(3).toString()), q.value(4).toString()});
    }
    return rows;
}

QVector<DatabaseManager::FolderRow> DatabaseManager::topLevelFolders(bool *ok)
{
    return folderRows(QStringLiteral("select id, modelId, name from folders where parentId is null"), ok);
}

QVector<DatabaseManager::FolderRow> DatabaseManager::subFolders(int parentId, bool *ok)
{
    return folderRows(
        QStringLiteral("select id, modelId, name from folders where parentId = %1").arg(parentId), ok);
}

QVector<DatabaseManager::LogRow> DatabaseManager::logsInFolder(int folderId, bool *ok)
{
    return logRows(
        QStringLiteral("select id, modelId, filename,dateCreated,comment from logs where folderId = %1")
            .arg(folderId),
        ok);
}

QVector<DatabaseManager::LogRow> DatabaseManager::topLevelLogs(bool *ok)
{
    return logRows(
        QStringLiteral("select id, modelId, filename,dateCreated,comment from logs where folderId is null"),
        ok);
}

int DatabaseManager::insertFolder(int parentId, int modelId, const QString &name)
{
    return execInsert(QStringLiteral("insert into folders (parentId,modelId,name) values (?,?,?)"),
                      {nullable(parentId), modelId, text(name)});
}

int DatabaseManager::insertLog(int modelId, int folderId, const QString &filename, const QString &comment,
                               qint64 lengthms, const QDateTime &dateCreated)
{
    return execInsert(
        QStringLiteral("insert into logs (modelId,folderId,filename,comment,lengthms,dateCreated) "
                       "values (?,?,?,?,?,?)"),
        {modelId, nullable(folderId), text(filename), text(comment), lengthms, dateText(dateCreated)});
}

bool DatabaseManager::editLogComment(int id, const QString &comment)
{
    return execSimple(QStringLiteral("update logs set comment = ? where id = ?"), {text(comment), id});
}

bool DatabaseManager::deleteFolder(int id)
{
    return execSimple(QStringLiteral("delete from folders where id = %1").arg(id));
}

bool DatabaseManager::deleteLog(int id)
{
    return execSimple(QStringLiteral("delete from logs where id = %1").arg(id));
}

bool DatabaseManager::renameOrMove(const QString &target, const QVariant &value, int id)
{
    return execSimple(QStringLiteral("update %1  = ? where id = ?").arg(target), {value, id});
}

bool DatabaseManager::renameFolder(int id, const QString &name)
{
    return renameOrMove(QStringLiteral("folders set name"), text(name), id);
}

bool DatabaseManager::renameLog(int id, const QString &filename)
{
    return renameOrMove(QStringLiteral("logs set filename"), text(filename), id);
}

bool DatabaseManager::moveFolder(int id, int parentId)
{
    return renameOrMove(QStringLiteral("folders set parentId"), nullable(parentId), id);
}

bool DatabaseManager::moveLog(int id, int folderId)
{
    return renameOrMove(QStringLiteral("logs set folderId"), nullable(folderId), id);
}

bool DatabaseManager::folderParent(int id, int *parentId, int *modelId)
{
    QSqlQuery q(QSqlDatabase::database(m_connection, false));
    if (!exec(q, QStringLiteral("select parentId, modelId from folders where id = ?"), {id}))
        return false;
    if (!q.next()) {
        fail(tr("%1: there is no folder %2").arg(m_path).arg(id));
        return false;
    }
    if (parentId)
        *parentId = idOrMinusOne(q.value(0));
    if (modelId)
        *modelId = q.value(1).toInt();
    return true;
}
