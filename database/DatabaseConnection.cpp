#include "database/DatabaseConnection.h"

#include "database/BlobCodec.h"

#include <QDebug>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

DatabaseConnection::DatabaseConnection(const QString &path, const QString &name) : m_path(path), m_name(name)
{
}

QSqlDatabase DatabaseConnection::database() const
{
    return QSqlDatabase::database(m_name, false);
}

QSqlQuery DatabaseConnection::query() const
{
    return QSqlQuery(database());
}

bool DatabaseConnection::isOpen() const
{
    return QSqlDatabase::contains(m_name) && database().isOpen();
}

QVariant DatabaseConnection::text(const QString &s)
{
    return s.isNull() ? QVariant(QStringLiteral("")) : QVariant(s);
}

QVariant DatabaseConnection::nullable(int id)
{
    return id >= 0 ? QVariant(id) : QVariant(); // an invalid variant binds as null
}

int DatabaseConnection::idOrMinusOne(const QVariant &v)
{
    return v.isNull() ? -1 : v.toInt();
}

QString DatabaseConnection::dateText(const QDateTime &date)
{
    return date.isValid() ? date.toString(QStringLiteral("yyyy-MM-dd hh:mm:ss")) : QString();
}

QDateTime DatabaseConnection::dateFromText(const QString &text, Qt::TimeSpec zone)
{
    // The form dateText() writes, read field by field: parsing by format string costs ten times as
    // much, and a logbook reads a date per stored log.
    if (text.size() == 19 && text.at(4) == QLatin1Char('-') && text.at(7) == QLatin1Char('-') &&
        text.at(10) == QLatin1Char(' ') && text.at(13) == QLatin1Char(':') &&
        text.at(16) == QLatin1Char(':')) {
        const auto field = [&text](int from, int length, bool *ok) {
            int value = 0;
            for (int i = from; i < from + length; ++i) {
                const QChar c = text.at(i);
                if (c < QLatin1Char('0') || c > QLatin1Char('9'))
                    *ok = false;
                value = value * 10 + (c.unicode() - '0');
            }
            return value;
        };
        bool ok = true;
        const QDate date(field(0, 4, &ok), field(5, 2, &ok), field(8, 2, &ok));
        const QTime time(field(11, 2, &ok), field(14, 2, &ok), field(17, 2, &ok));
        if (ok && date.isValid() && time.isValid())
            return QDateTime(date, time, zone);
    }
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

void DatabaseConnection::fail(const QString &reason, int code)
{
    m_lastError = reason;
    m_lastErrorCode = code;
}

void DatabaseConnection::report(const QSqlError &error)
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

bool DatabaseConnection::exec(QSqlQuery &query, const QString &statement, const QVariantList &values)
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

bool DatabaseConnection::execSimple(const QString &statement, const QVariantList &values)
{
    QSqlQuery q = query();
    return exec(q, statement, values);
}

int DatabaseConnection::execInsert(const QString &statement, const QVariantList &values)
{
    QSqlQuery q = query();
    if (!exec(q, statement, values))
        return -1;
    return q.lastInsertId().toInt();
}

bool DatabaseConnection::selectBlob(const QString &statement, int id, QByteArray *blob)
{
    QSqlQuery q = query();
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

bool DatabaseConnection::uncompressed(const QByteArray &blob, QByteArray *out)
{
    QString error;
    if (!BlobCodec::uncompress(blob, out, &error)) {
        fail(tr("%1: %2").arg(m_path, error));
        return false;
    }
    return true;
}
