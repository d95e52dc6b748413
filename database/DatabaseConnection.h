#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <QString>
#include <QVariant>
#include <QVariantList>

class QSqlDatabase;
class QSqlError;
class QSqlQuery;

// The one connection that DatabaseManager and its table groups run their statements through: prepares,
// binds positionally and runs, and keeps the reason of the last failure (naming the file), so every
// group reports the same way. Interface thread only.
class DatabaseConnection
{
    // To the pilot it is one database: its messages read (and translate) as the manager's.
    Q_DECLARE_TR_FUNCTIONS(DatabaseManager)
public:
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

    DatabaseConnection(const QString &path, const QString &name);

    QString path() const { return m_path; }
    void setPath(const QString &path) { m_path = path; }
    QString name() const { return m_name; }
    void setName(const QString &name) { m_name = name; }

    QSqlDatabase database() const;
    QSqlQuery query() const;
    bool isOpen() const;

    // Prepares, binds positionally and runs one statement; reports and returns false on failure.
    bool exec(QSqlQuery &query, const QString &statement, const QVariantList &values = {});
    bool execSimple(const QString &statement, const QVariantList &values = {});
    // The new row's id, or -1.
    int execInsert(const QString &statement, const QVariantList &values);
    // The one blob a statement with one "?" selects; a missing row or a null blob is a failure.
    bool selectBlob(const QString &statement, int id, QByteArray *blob);
    bool uncompressed(const QByteArray &blob, QByteArray *out);

    // Writes the driver's error to the debug output and keeps it, explained, as the last error.
    void report(const QSqlError &error);
    void fail(const QString &reason, int code = 0);
    QString lastError() const { return m_lastError; }
    int lastErrorCode() const { return m_lastErrorCode; }

    // "not null" text columns: a null QString would bind as null.
    static QVariant text(const QString &s);
    // -1 binds as null (a model's top level).
    static QVariant nullable(int id);
    static int idOrMinusOne(const QVariant &v);
    // How dates are written to and read from the datetime columns.
    static QString dateText(const QDateTime &date);
    static QDateTime dateFromText(const QString &text, Qt::TimeSpec zone = Qt::LocalTime);

private:
    QString m_path;
    QString m_name;
    QString m_lastError;
    int m_lastErrorCode = 0;
};
