#include "database/DataFolderCheck.h"

#include "database/DatabaseConnection.h"
#include "database/DatabaseManager.h"
#include "database/Logger.h"
#include "database/ModelTableModel.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStorageInfo>
#include <QTemporaryFile>

#include <cerrno>

namespace {
const char kSystem[] = "System";
// Enough to show a full disk before SQLite needs the room for a journal and a few pages.
constexpr int kProbeBytes = 64 * 1024;
// SQLite's primary result codes: another program's lock, and a damaged file.
constexpr int kBusy = DatabaseConnection::kBusy;
constexpr int kLocked = DatabaseConnection::kLocked;
constexpr int kCorrupt = DatabaseConnection::kCorrupt;
constexpr int kNotADatabase = DatabaseConnection::kNotADatabase;

QString native(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

// The manager's errors begin with the file's path; the report names the file itself.
QString withoutPath(const QString &error, const QString &path)
{
    const QString prefix = path + QStringLiteral(": ");
    return error.startsWith(prefix) ? error.mid(prefix.size()) : error;
}

class Builder
{
public:
    void add(StartupReport::Severity severity, const QString &text)
    {
        report.severity = qMax(report.severity, severity);
        if (!report.message.isEmpty())
            report.message += QLatin1Char('\n');
        report.message += text;
    }
    StartupReport report;
};

enum class State
{
    Healthy,
    Damaged,
    Unusable,  // cannot be opened or read, for a reason other than damage
    Unwritable // reads, but takes no write
};

struct DatabaseState
{
    State state = State::Healthy;
    QString reason;
};

DatabaseState sqlFailure(const QSqlError &error, State otherwise)
{
    qWarning().noquote() << "SQLite error:" << error.text()
                         << ", SQLite error code:" << error.nativeErrorCode();
    const int code = error.nativeErrorCode().toInt();
    QString text = error.databaseText().isEmpty() ? error.text() : error.databaseText();
    if ((code & 0xff) == kBusy || (code & 0xff) == kLocked)
        text = DataFolderCheck::tr("another program is using it (%1)").arg(text);
    return {DataFolderCheck::isDamage(code) ? State::Damaged : otherwise, text};
}

// For a damaged file, only SQLite's own words (the manager's "the database file is damaged (...)" would
// say "damaged" twice in the report).
QString damageReason(const QString &error, const QString &path)
{
    const QString reason = withoutPath(error, path);
    const int open = reason.lastIndexOf(QLatin1Char('('));
    return open >= 0 && reason.endsWith(QLatin1Char(')')) ? reason.mid(open + 1, reason.size() - open - 2)
                                                          : reason;
}

DatabaseState managerFailure(const DatabaseManager &db, State otherwise)
{
    if (DataFolderCheck::isDamage(db.lastErrorCode()))
        return {State::Damaged, damageReason(db.lastError(), db.databasePath())};
    return {otherwise, withoutPath(db.lastError(), db.databasePath())};
}

// Opens db, asks SQLite to check every page and index, and proves that a write is taken (one rolled back,
// so nothing is left in the file).
DatabaseState checkDatabase(DatabaseManager *db, bool initialise)
{
    // A file that does not even begin like a database is judged before SQLite opens it: SQLite would
    // first try to recover it from a journal beside it and remove that journal, which belongs to what is
    // kept of the damaged file.
    QFile file(db->databasePath());
    if (file.open(QIODevice::ReadOnly)) {
        const QByteArray head = file.read(16);
        if (!head.isEmpty() && head != QByteArray("SQLite format 3\0", 16))
            return {State::Damaged, DataFolderCheck::tr("the file is not a database")};
        file.close();
    }
    if (!db->open())
        return managerFailure(*db, State::Unusable);
    QSqlQuery q(QSqlDatabase::database(db->connectionName(), false));
    q.setForwardOnly(true);
    if (!q.exec(QStringLiteral("PRAGMA quick_check")))
        return sqlFailure(q.lastError(), State::Unusable);
    QStringList findings;
    while (q.next())
        findings += q.value(0).toString().split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    q.finish();
    if (findings != QStringList{QStringLiteral("ok")}) {
        findings.removeAll(QStringLiteral("*** in database main ***"));
        // The first few findings say enough; a badly damaged file lists hundreds.
        QString text = findings.mid(0, 3).join(QStringLiteral("; "));
        if (findings.size() > 3)
            text += DataFolderCheck::tr("; and %n more", nullptr, findings.size() - 3);
        return {State::Damaged, DataFolderCheck::tr("the integrity check reports: %1").arg(text)};
    }
    if (initialise && !(db->initialise() && db->upgrade()))
        return managerFailure(*db, State::Unwritable);
    // A table created inside a transaction makes SQLite write its journal beside the file, which a
    // read-only file, a read-only folder or a full disk refuses.
    if (!q.exec(QStringLiteral("BEGIN IMMEDIATE")))
        return sqlFailure(q.lastError(), State::Unwritable);
    DatabaseState result;
    if (!q.exec(QStringLiteral("CREATE TABLE vexo_write_check (x)")) ||
        !q.exec(QStringLiteral("INSERT INTO vexo_write_check VALUES (zeroblob(4096))")))
        result = sqlFailure(q.lastError(), State::Unwritable);
    QSqlQuery(QSqlDatabase::database(db->connectionName(), false)).exec(QStringLiteral("ROLLBACK"));
    return result;
}

// Creates, writes and removes a small file: the folder takes new files and the disk has room for them.
void checkFolder(const QString &folder, qint64 lowSpaceBytes, Builder *out)
{
    // Measured before the probe takes its share.
    const QStorageInfo storage(folder);
    const qint64 available = storage.isValid() && storage.isReady() ? storage.bytesAvailable() : -1;
    bool written = false;
    bool full = false;
    QString reason;
    {
        QTemporaryFile probe(QDir(folder).filePath(QStringLiteral(".write-check-XXXXXX")));
        const QByteArray block(kProbeBytes, '\0');
        written = probe.open();
        reason = probe.errorString();
        if (written && (probe.write(block) != block.size() || !probe.flush())) {
            written = false;
            full = probe.error() == QFileDevice::ResourceError;
            reason = probe.errorString();
        }
    }
    const QString free = ModelTableModel::formatSize(qMax<qint64>(available, 0));
    if (!written && (full || (available >= 0 && available < kProbeBytes))) {
        out->add(
            StartupReport::Error,
            DataFolderCheck::tr("The disk holding %1 is full (%2 free). Nothing you change in this session "
                                "can be saved: free some space and start the studio again.")
                .arg(native(folder), free));
    } else if (!written) {
        out->add(StartupReport::Error,
                 DataFolderCheck::tr("The data folder %1 cannot be written: %2. Nothing "
                                     "you change in this session can be saved.")
                     .arg(native(folder), reason));
    } else if (available >= 0 && available < lowSpaceBytes) {
        out->add(StartupReport::Warning,
                 DataFolderCheck::tr("The disk holding %1 is almost full (%2 free). Free some space, or what "
                                     "you record may not be saved.")
                     .arg(native(folder), free));
    }
}

QString leftAlone(const QString &path, const QString &reason)
{
    return DataFolderCheck::tr(
               "%1 is damaged (%2). The studio moves it aside and starts a fresh database on its next start.")
        .arg(native(path), reason);
}

QStringList existingSideFiles(const QString &path)
{
    QStringList files;
    for (const QString &suffix : DataFolderCheck::sideSuffixes()) {
        if (QFileInfo::exists(path + suffix))
            files << suffix;
    }
    return files;
}

// Renames the database and its side files together; on any failure every rename done is undone, so the
// damaged database stays usable for whoever tries to rescue it.
bool moveAside(const QString &path, const QString &target, QString *error)
{
    const QStringList suffixes = QStringList{QString()} + existingSideFiles(path);
    for (int i = 0; i < suffixes.size(); ++i) {
        QFile file(path + suffixes.at(i));
        if (file.rename(target + suffixes.at(i)))
            continue;
        *error = file.errorString();
        for (int j = i - 1; j >= 0; --j)
            QFile::rename(target + suffixes.at(j), path + suffixes.at(j));
        return false;
    }
    return true;
}
} // namespace

bool DataFolderCheck::isDamage(int sqliteCode)
{
    const int primary = sqliteCode & 0xff;
    return primary == kCorrupt || primary == kNotADatabase;
}

QStringList DataFolderCheck::sideSuffixes()
{
    return {QStringLiteral("-wal"), QStringLiteral("-shm"), QStringLiteral("-journal")};
}

QString DataFolderCheck::damagedName(const QString &path, const QDateTime &when)
{
    const QString base =
        path + QStringLiteral(".damaged-") + when.toString(QStringLiteral("yyyy-MM-dd-hhmm"));
    QString name = base;
    for (int n = 2; QFileInfo::exists(name) || !existingSideFiles(name).isEmpty(); ++n)
        name = base + QStringLiteral("-%1").arg(n);
    return name;
}

QString DataFolderCheck::damagedLeftAlone(const QString &path, const QString &error)
{
    return leftAlone(path, damageReason(error, native(path)));
}

StartupReport DataFolderCheck::run(DatabaseManager *db, qint64 lowSpaceBytes)
{
    Builder out;
    const QString path = db->databasePath();
    const QString folder = QFileInfo(path).absolutePath();
    errno = 0;
    if (!QDir().mkpath(folder)) {
        out.add(StartupReport::Error,
                tr("The data folder %1 cannot be created: %2. Nothing you change in this "
                   "session can be saved.")
                    .arg(native(folder), qt_error_string(errno)));
        return out.report;
    }
    checkFolder(folder, lowSpaceBytes, &out);
    const bool folderWritable = out.report.severity != StartupReport::Error;

    const DatabaseState found = checkDatabase(db, true);
    if (found.state == State::Unusable || (found.state == State::Unwritable && folderWritable)) {
        // The folder's own message already explains why nothing can be written.
        out.add(StartupReport::Error, (found.state == State::Unusable
                                           ? tr("The database %1 cannot be used: %2. Nothing you change in "
                                                "this session can be saved.")
                                           : tr("The database %1 cannot be written: %2. Nothing you change "
                                                "in this session can be saved."))
                                          .arg(path, found.reason));
    } else if (found.state == State::Damaged) {
        db->close();
        const QString target = damagedName(path, QDateTime::currentDateTime());
        QString error;
        if (!moveAside(path, target, &error)) {
            out.add(StartupReport::Error,
                    tr("%1 is damaged (%2). It could not be moved aside: %3. It was left "
                       "as it is; nothing you change in this session can be saved.")
                        .arg(path, found.reason, error));
        } else {
            out.report.movedAsideTo = native(target);
            if (db->logger())
                db->logger()->write(
                    QLatin1String(kSystem),
                    QStringLiteral("Damaged database moved to %1 (%2)").arg(native(target), found.reason));
            const DatabaseState fresh = checkDatabase(db, true);
            if (fresh.state == State::Healthy)
                out.add(StartupReport::Warning, tr("%1 was damaged (%2). It was moved aside to %3 and a new, "
                                                   "empty database was started.")
                                                    .arg(path, found.reason, native(target)));
            else
                out.add(StartupReport::Error,
                        tr("%1 was damaged (%2). It was moved aside to %3, but a new database could not be "
                           "started: %4. Nothing you change in this session can be saved.")
                            .arg(path, found.reason, native(target), fresh.reason));
        }
    }
    if (!out.report.isOk() && db->logger())
        db->logger()->write(QLatin1String(kSystem), out.report.message);
    return out.report;
}

StartupReport DataFolderCheck::inspect(DatabaseManager *db, qint64 lowSpaceBytes)
{
    Builder out;
    const QString path = db->databasePath();
    if (!QFileInfo(path).isFile()) {
        out.add(StartupReport::Error, tr("%1: no database there").arg(path));
        return out.report;
    }
    checkFolder(QFileInfo(path).absolutePath(), lowSpaceBytes, &out);
    const bool folderWritable = out.report.severity != StartupReport::Error;
    const DatabaseState found = checkDatabase(db, false);
    switch (found.state) {
    case State::Healthy:
        break;
    case State::Damaged:
        out.add(StartupReport::Error, leftAlone(path, found.reason));
        break;
    case State::Unusable:
        out.add(StartupReport::Error, tr("The database %1 cannot be used: %2.").arg(path, found.reason));
        break;
    case State::Unwritable:
        if (folderWritable) // else the folder's message says it
            out.add(StartupReport::Error,
                    tr("The database %1 cannot be written: %2.").arg(path, found.reason));
        break;
    }
    return out.report;
}
