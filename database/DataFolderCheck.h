#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <QString>

class DatabaseManager;

// What the start-up check found, in words a pilot can act on.
struct StartupReport
{
    enum Severity
    {
        Ok,
        Warning, // the session works, but something needs attention (little disk space, a database moved
                 // aside)
        Error,   // what is changed in this session cannot be saved
    };
    Severity severity = Ok;
    QString message;      // plain text, one paragraph per problem; empty when Ok
    QString movedAsideTo; // where a damaged database now lies; empty when none was moved

    bool isOk() const { return severity == Ok; }
};

// The data folder and its database checked before the pilot starts working, so that a damaged
// "data.sqlite", a folder that cannot be written or a full disk shows at start, not when the session is
// lost at close. GUI-free: the caller shows the report.
class DataFolderCheck
{
    Q_DECLARE_TR_FUNCTIONS(DataFolderCheck)
public:
    // Below this much free space the report warns.
    static constexpr qint64 kLowSpaceBytes = 20 * 1000 * 1000;

    // The studio's start: checks that the folder can be written, opens, checks and initialises db and
    // proves that it takes a write. A damaged database is moved aside under a dated name (never deleted)
    // with its side files, and a fresh one is started. db is left open when it can be used.
    static StartupReport run(DatabaseManager *db, qint64 lowSpaceBytes = kLowSpaceBytes);
    // The same checks for scripts: nothing is moved, created or initialised; a damaged database is only
    // reported. The database file must exist.
    static StartupReport inspect(DatabaseManager *db, qint64 lowSpaceBytes = kLowSpaceBytes);

    // SQLite result codes (of DatabaseManager::lastErrorCode()) that mean the file itself is damaged.
    static bool isDamage(int sqliteCode);
    // The one line for a damaged database found by a tool that must leave it where it is. error is the
    // manager's lastError(), which names the file.
    static QString damagedLeftAlone(const QString &path, const QString &error);
    // Where a damaged database is moved: "<file>.damaged-yyyy-MM-dd-hhmm", then "-2", "-3"... while that
    // name or one of its side files is taken.
    static QString damagedName(const QString &path, const QDateTime &when);
    // The side files SQLite keeps beside a database, by their suffix.
    static QStringList sideSuffixes();
};
