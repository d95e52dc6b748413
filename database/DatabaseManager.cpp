#include "database/DatabaseManager.h"

#include "database/InflatingDevice.h"
#include "database/Logger.h"
#include "telemetry/LogFileLoader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStandardPaths>

namespace {
const char kSystem[] = "System";

// Every group's tables, in the order they are created (a table before the ones that refer to it).
QStringList createStatements()
{
    return SensorTables::createStatements() + LayoutTables::createStatements() +
           ModelTables::createStatements() + LogTables::createStatements() + BackupTables::createStatements();
}
} // namespace

QStringList DatabaseManager::tableNames()
{
    return {QStringLiteral("sensors"), QStringLiteral("layouts"), QStringLiteral("models"),
            QStringLiteral("folders"), QStringLiteral("logs"),    QStringLiteral("comments"),
            QStringLiteral("logbook"), QStringLiteral("backups")};
}

DatabaseManager::DatabaseManager(const QString &dataFolder, Logger *logger, QObject *parent)
    : QObject(parent), m_connection(QString(), QString::fromLatin1(QSqlDatabase::defaultConnection)),
      m_logger(logger)
{
    ModelData::registerMetaType();
    const QString folder = dataFolder.isEmpty()
                               ? QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation)
                               : dataFolder;
    m_connection.setPath(QDir::toNativeSeparators(folder + QLatin1Char('/') + fileName()));
}

DatabaseManager::~DatabaseManager()
{
    close();
}

void DatabaseManager::setDatabasePath(const QString &path)
{
    m_connection.setPath(QDir::toNativeSeparators(path));
}

void DatabaseManager::setConnectionName(const QString &name)
{
    m_connection.setName(name);
}

QString DatabaseManager::dateText(const QDateTime &date)
{
    return DatabaseConnection::dateText(date);
}

QDateTime DatabaseManager::dateFromText(const QString &text, Qt::TimeSpec zone)
{
    return DatabaseConnection::dateFromText(text, zone);
}

// --- connection and schema ---

bool DatabaseManager::open()
{
    if (isOpen())
        return true;
    const QString path = m_connection.path();
    const QFileInfo info(path);
    if (!m_readOnly && !QDir().mkpath(info.absolutePath())) {
        m_connection.fail(
            tr("%1: cannot create the folder %2").arg(path, QDir::toNativeSeparators(info.absolutePath())));
        return false;
    }
    if (m_readOnly && !info.exists()) {
        m_connection.fail(tr("%1: no such database file").arg(path));
        return false;
    }
    if (info.isDir()) {
        m_connection.fail(tr("%1: is a folder, not a database file").arg(path));
        return false;
    }
    const QString name = m_connection.name();
    QSqlDatabase db = QSqlDatabase::contains(name)
                          ? QSqlDatabase::database(name, false)
                          : QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
    if (!db.isValid()) {
        m_connection.fail(tr("%1: the SQLite driver (QSQLITE) is not available").arg(path));
        return false;
    }
    db.setDatabaseName(path);
    QString options = QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(m_busyTimeoutMs);
    if (m_readOnly)
        options += QStringLiteral(";QSQLITE_OPEN_READONLY");
    db.setConnectOptions(options);
    if (!db.open()) {
        m_connection.report(db.lastError());
        return false;
    }
    m_depth = 0;
    return true;
}

bool DatabaseManager::isOpen() const
{
    return m_connection.isOpen();
}

void DatabaseManager::close()
{
    const QString name = m_connection.name();
    if (!QSqlDatabase::contains(name))
        return;
    {
        QSqlDatabase db = QSqlDatabase::database(name, false);
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(name);
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
        QSqlQuery q = m_connection.query();
        // A file that cannot even list its tables is not ours to touch: never "reinitialise" it.
        if (!m_connection.exec(q, QStringLiteral("SELECT name FROM sqlite_master WHERE type = \"table\"")))
            return false;
        while (q.next())
            missing.removeAll(q.value(0).toString());
    }
    // Read-only, a database from before the logbook is still read: without alarm counts.
    if (m_readOnly)
        missing.removeAll(QStringLiteral("logbook"));
    if (!m_connection.execSimple(QStringLiteral("PRAGMA foreign_keys = ON")))
        return false;
    // The setting only takes on a new database, and a read-only one is never new: there its refusal to
    // write the header must not keep the pilot from reading the logs.
    if (!m_connection.execSimple(QStringLiteral("PRAGMA auto_vacuum = FULL;")) &&
        m_connection.lastErrorCode() != DatabaseConnection::kReadOnly)
        return false;
    if (missing.isEmpty())
        return true;
    if (m_logger)
        m_logger->write(QLatin1String(kSystem), QStringLiteral("Database reinitialization"));
    // One transaction for all the creates: one sync to disk instead of seven, and no half-made schema.
    if (!beginTransaction())
        return false;
    for (const QString &statement : createStatements()) {
        if (!m_connection.execSimple(statement)) {
            if (m_logger)
                m_logger->write(QLatin1String(kSystem), m_connection.lastError());
            rollbackTransaction();
            return false;
        }
    }
    return commitTransaction();
}

bool DatabaseManager::hasColumn(const QString &table, const QString &column, bool *ok)
{
    QSqlQuery q = m_connection.query();
    *ok = m_connection.exec(q, QStringLiteral("PRAGMA table_info(%1)").arg(table));
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
    if (!hasColumn(QStringLiteral("sensors"), QStringLiteral("updated"), &ok)) {
        if (!ok)
            return false;
        if (m_logger)
            m_logger->write(QLatin1String(kSystem), QStringLiteral("Database update to 0.5.4"));
        if (!m_connection.execSimple(
                QStringLiteral("alter table sensors add column updated int not null default 0;")))
            return false;
    }
    // Read-only, nothing may be written: the logbook then shows no alarms (see hasLogbook()).
    return m_readOnly || fillLogbook();
}

bool DatabaseManager::hasLogbook(bool *ok)
{
    QSqlQuery q = m_connection.query();
    const bool done = m_connection.exec(
        q, QStringLiteral("select 1 from sqlite_master where type = 'table' and name = 'logbook'"));
    if (ok)
        *ok = done;
    return done && q.next();
}

// Before the logbook, logs carried no alarm count; a log stored by such a version, or by another
// program, has no logbook row. Each is counted once here, from the stored log, so the logbook never
// has to read a log again. One transaction: every row appears or none. A stored log that cannot be
// read is entered with 0 and named in the application log, rather than holding back the others or
// being read again at every start.
bool DatabaseManager::fillLogbook()
{
    bool ok = false;
    const QVector<int> ids = m_logs.logsWithoutLogbook(&ok);
    if (!ok || ids.isEmpty())
        return ok;
    if (m_logger)
        m_logger->write(QLatin1String(kSystem),
                        QStringLiteral("Database update: logbook of %1 stored logs").arg(ids.size()));
    if (!beginTransaction())
        return false;
    bool done = true;
    for (int i = 0; done && i < ids.size(); ++i) {
        QByteArray blob;
        if (!m_logs.logDataCompressed(ids[i], &blob)) {
            done = false;
            break;
        }
        InflatingDevice device(blob);
        TelemetryDataPackage package;
        LogFileLoader loader(this);
        int alarms = 0;
        if (device.open(QIODevice::ReadOnly) && loader.load(&device, &package)) {
            alarms = package.alarmCount();
        } else if (m_logger) {
            m_logger->write(QLatin1String(kSystem),
                            QStringLiteral("Log %1: alarms not counted: %2")
                                .arg(ids[i])
                                .arg(device.isOpen() ? loader.lastError() : device.errorString()));
        }
        done = m_logs.setAlarms(ids[i], alarms);
        if (m_upgradeProgress)
            m_upgradeProgress(i + 1, ids.size());
    }
    if (done && commitTransaction())
        return true;
    if (m_logger)
        m_logger->write(QLatin1String(kSystem), m_connection.lastError());
    rollbackTransaction();
    return false;
}

bool DatabaseManager::deleteDatabaseFile()
{
    close();
    QFile file(m_connection.path());
    if (!file.exists())
        return true;
    if (!file.remove()) {
        m_connection.fail(tr("%1: cannot delete: %2").arg(m_connection.path(), file.errorString()));
        return false;
    }
    return true;
}

// --- transactions ---

bool DatabaseManager::beginTransaction()
{
    if (!m_connection.execSimple(QStringLiteral("SAVEPOINT vexo_%1").arg(m_depth + 1)))
        return false;
    ++m_depth;
    return true;
}

bool DatabaseManager::commitTransaction()
{
    if (m_depth <= 0)
        return false;
    if (!m_connection.execSimple(QStringLiteral("RELEASE vexo_%1").arg(m_depth)))
        return false;
    --m_depth;
    return true;
}

void DatabaseManager::rollbackTransaction()
{
    if (m_depth <= 0)
        return;
    const QString error = m_connection.lastError();
    const int code = m_connection.lastErrorCode();
    const QString name = QStringLiteral("vexo_%1").arg(m_depth);
    if (m_connection.execSimple(QStringLiteral("ROLLBACK TO ") + name) &&
        m_connection.execSimple(QStringLiteral("RELEASE ") + name)) {
        --m_depth;
    } else {
        // SQLite may already have rolled back the whole transaction itself (a full disk, an I/O error).
        m_connection.execSimple(QStringLiteral("ROLLBACK"));
        m_depth = 0;
    }
    // The caller reports what went wrong, not the rollback.
    m_connection.fail(error, code);
}

// --- sensors ---

bool DatabaseManager::findSensor(quint32 id, quint32 param, SensorRow *row)
{
    return m_sensors.findSensor(id, param, row);
}

int DatabaseManager::insertDefaultSensors(const QVector<SensorRow> &rows)
{
    if (rows.isEmpty() || !beginTransaction())
        return 0;
    const int stored = SensorTable::insertDefaultSensors(rows);
    if (commitTransaction())
        return stored;
    rollbackTransaction();
    return 0;
}

bool DatabaseManager::insertDefaultSensor(const SensorRow &row)
{
    return m_sensors.insertDefaultSensor(row);
}

bool DatabaseManager::updateSensorSettings(const SensorRow &row)
{
    return m_sensors.updateSensorSettings(row);
}

bool DatabaseManager::deleteAllSensors()
{
    return m_sensors.deleteAllSensors();
}

// --- layouts ---

int DatabaseManager::insertLayout(const QString &name, const QString &description, const QByteArray &data,
                                  const QByteArray &screenshot)
{
    return m_layouts.insertLayout(name, description, data, screenshot);
}

QVector<DatabaseManager::LayoutRow> DatabaseManager::layouts(bool *ok)
{
    return m_layouts.layouts(ok);
}

bool DatabaseManager::deleteLayout(int id)
{
    return m_layouts.deleteLayout(id);
}

// --- models ---

int DatabaseManager::insertModel(const ModelData &model)
{
    return m_models.insertModel(model);
}

QVector<ModelData> DatabaseManager::models(bool *ok)
{
    return m_models.models(ok);
}

bool DatabaseManager::model(int id, ModelData *model)
{
    return m_models.model(id, model);
}

bool DatabaseManager::updateModel(const ModelData &model)
{
    return m_models.updateModel(model);
}

bool DatabaseManager::renameModel(int id, const QString &name, const QString &description)
{
    return m_models.renameModel(id, name, description);
}

bool DatabaseManager::deleteModel(int id)
{
    return m_models.deleteModel(id);
}

// --- logs ---

bool DatabaseManager::updateLog(int id, const QString &comment, const QDateTime &dateCreated,
                                const QByteArray &nativeLog, qint64 lengthms)
{
    return m_logs.updateLog(id, comment, dateCreated, nativeLog, lengthms);
}

bool DatabaseManager::updateLogCompressed(int id, const QString &comment, const QDateTime &dateCreated,
                                          const QByteArray &blob, qint64 lengthms)
{
    return m_logs.updateLogCompressed(id, comment, dateCreated, blob, lengthms);
}

bool DatabaseManager::loadLog(int id, QByteArray *nativeLog, QDateTime *dateCreated, int *modelId)
{
    return m_logs.loadLog(id, nativeLog, dateCreated, modelId);
}

bool DatabaseManager::loadLogCompressed(int id, QByteArray *blob, QDateTime *dateCreated, int *modelId)
{
    return m_logs.loadLogCompressed(id, blob, dateCreated, modelId);
}

bool DatabaseManager::logExists(int id, bool *ok)
{
    return m_logs.logExists(id, ok);
}

int DatabaseManager::modelOfLog(int id, bool *ok)
{
    return m_logs.modelOfLog(id, ok);
}

int DatabaseManager::findLogByDate(const QDateTime &dateCreated)
{
    return m_logs.findLogByDate(dateCreated);
}

bool DatabaseManager::logData(int id, QByteArray *nativeLog)
{
    return m_logs.logData(id, nativeLog);
}

bool DatabaseManager::logDataCompressed(int id, QByteArray *blob)
{
    return m_logs.logDataCompressed(id, blob);
}

QHash<int, qint64> DatabaseManager::logLengths(int modelId, bool *ok)
{
    return m_logs.logLengths(modelId, ok);
}

QVector<LogTables::FlightRow> DatabaseManager::flights(int modelId, bool *ok)
{
    bool done = false;
    const bool withAlarms = hasLogbook(&done);
    if (ok)
        *ok = done;
    return done ? m_logs.flights(modelId, withAlarms, ok) : QVector<LogTables::FlightRow>();
}

QVector<LogTables::TotalsRow> DatabaseManager::logTotals(int modelId, bool *ok)
{
    bool done = false;
    const bool withAlarms = hasLogbook(&done);
    if (ok)
        *ok = done;
    return done ? m_logs.totals(modelId, withAlarms, ok) : QVector<LogTables::TotalsRow>();
}

// --- backups ---

int DatabaseManager::insertBackup(quint32 hwid, const QString &name, const QString &description, qint64 size,
                                  const QByteArray &fileList, const QByteArray &data)
{
    return m_backups.insertBackup(hwid, name, description, size, fileList, data);
}

bool DatabaseManager::deleteBackup(int id)
{
    return m_backups.deleteBackup(id);
}

bool DatabaseManager::backupData(int id, QByteArray *data)
{
    return m_backups.backupData(id, data);
}

bool DatabaseManager::backupFileList(int id, QByteArray *fileList)
{
    return m_backups.backupFileList(id, fileList);
}

QVector<BackupRow> DatabaseManager::listBackups(bool *ok)
{
    return m_backups.listBackups(ok);
}

// --- the models tree ---

QVector<DatabaseManager::FolderRow> DatabaseManager::topLevelFolders(bool *ok)
{
    return m_models.topLevelFolders(ok);
}

QVector<DatabaseManager::FolderRow> DatabaseManager::subFolders(int parentId, bool *ok)
{
    return m_models.subFolders(parentId, ok);
}

QVector<DatabaseManager::LogRow> DatabaseManager::logsInFolder(int folderId, bool *ok)
{
    return m_models.logsInFolder(folderId, ok);
}

QVector<DatabaseManager::LogRow> DatabaseManager::topLevelLogs(bool *ok)
{
    return m_models.topLevelLogs(ok);
}

int DatabaseManager::insertFolder(int parentId, int modelId, const QString &name)
{
    return m_models.insertFolder(parentId, modelId, name);
}

int DatabaseManager::insertLog(int modelId, int folderId, const QString &filename, const QString &comment,
                               qint64 lengthms, const QDateTime &dateCreated)
{
    return m_models.insertLog(modelId, folderId, filename, comment, lengthms, dateCreated);
}

bool DatabaseManager::setLogAlarms(int logId, int alarms)
{
    return m_logs.setAlarms(logId, alarms);
}

int DatabaseManager::findLog(int modelId, int folderId, const QString &filename, bool *ok)
{
    return m_models.findLog(modelId, folderId, filename, ok);
}

bool DatabaseManager::editLogComment(int id, const QString &comment)
{
    return m_models.editLogComment(id, comment);
}

bool DatabaseManager::deleteFolder(int id)
{
    return m_models.deleteFolder(id);
}

bool DatabaseManager::deleteLog(int id)
{
    return m_models.deleteLog(id);
}

bool DatabaseManager::renameFolder(int id, const QString &name)
{
    return m_models.renameFolder(id, name);
}

bool DatabaseManager::renameLog(int id, const QString &filename)
{
    return m_models.renameLog(id, filename);
}

bool DatabaseManager::moveFolder(int id, int parentId)
{
    return m_models.moveFolder(id, parentId);
}

bool DatabaseManager::moveLog(int id, int folderId)
{
    return m_models.moveLog(id, folderId);
}

bool DatabaseManager::folderParent(int id, int *parentId, int *modelId)
{
    return m_models.folderParent(id, parentId, modelId);
}
