#include "tools/FirmwareDatabase.h"

#include "telemetry/AtomicFile.h"
#include "tools/FirmwareImage.h"
#include "tools/UpdateChecker.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTemporaryDir>
#include <QVariant>

namespace {
// The language part of a column name goes into the statements as text: only plain codes get there.
bool isLanguageCode(const QString &code)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z]{2,3}(_[A-Za-z]{2})?$"));
    return pattern.match(code).hasMatch();
}

QSqlDatabase updaterConnection()
{
    return QSqlDatabase::database(QLatin1String(FirmwareDatabase::kConnectionName), false);
}

const QStringList kRequiredColumns = {
    QStringLiteral("hw_id"),   QStringLiteral("sw_id"), QStringLiteral("variant"), QStringLiteral("name"),
    QStringLiteral("desc_en"), QStringLiteral("date"),  QStringLiteral("data")};

// The "files" check as the dialog has always done it: the table names of the file, then the name.
bool hasFilesTable(QSqlDatabase &db, QString *error)
{
    QSqlQuery query(db);
    if (!query.exec(QStringLiteral("SELECT name FROM sqlite_master WHERE type = \"table\""))) {
        *error = query.lastError().text();
        return false;
    }
    while (query.next()) {
        if (query.value(0).toString() == QLatin1String("files"))
            return true;
    }
    error->clear();
    return false;
}
} // namespace

QString FirmwareDatabase::pathIn(const QString &dataFolder)
{
    return QDir(dataFolder).filePath(QLatin1String(UpdateChecker::kDeviceUpdatesFile));
}

QString FirmwareDatabase::interfaceLanguage()
{
    const QString code = QLocale().name().section(QLatin1Char('_'), 0, 0).toLower();
    return isLanguageCode(code) ? code : QStringLiteral("en");
}

QDateTime FirmwareDatabase::parseDate(const QString &text)
{
    const QString t = text.trimmed();
    for (const char *format : {"yyyy-MM-dd HH:mm:ss", "yyyy-MM-dd HH:mm", "yyyy-M-d H:m:s", "yyyy-MM-dd"}) {
        const QDateTime date = QDateTime::fromString(t, QLatin1String(format));
        if (date.isValid())
            return date;
    }
    return QDateTime::fromString(t, Qt::ISODate);
}

bool FirmwareDatabase::parseVersion(const QString &text, int *version)
{
    const QStringList parts = text.trimmed().split(QLatin1Char('.'));
    bool ok = parts.size() <= 2;
    int values[2] = {0, 0};
    for (int i = 0; ok && i < parts.size(); ++i) {
        values[i] = parts.at(i).toInt(&ok);
        ok = ok && values[i] >= 0 && values[i] <= (parts.size() == 1 ? 0xFFFF : 0xFF);
    }
    if (ok && version)
        *version = parts.size() == 1 ? values[0] : (values[0] << 8) | values[1];
    return ok;
}

QString FirmwareDatabase::displayDate(const QString &stored)
{
    const QDateTime date = parseDate(stored);
    return date.isValid() ? date.toString(QStringLiteral("yyyy-M-d hh:mm:ss")) : stored;
}

FirmwareDatabase::FirmwareDatabase(const QString &language)
    : m_requested(isLanguageCode(language) ? language : QStringLiteral("en")), m_language(m_requested)
{
}

FirmwareDatabase::~FirmwareDatabase()
{
    close();
}

bool FirmwareDatabase::fail(const QString &error)
{
    m_error = error;
    return false;
}

bool FirmwareDatabase::open(const QString &path)
{
    close();
    const QFileInfo info(path);
    if (!info.exists() || info.isDir())
        return fail(tr("Device database doesn't exist"));
    QString why;
    {
        QSqlDatabase db =
            QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QLatin1String(kConnectionName));
        db.setDatabaseName(path);
        db.setConnectOptions(QStringLiteral("QSQLITE_OPEN_READONLY"));
        if (!db.open()) {
            why = tr("%1: cannot open the device updates database: %2").arg(path, db.lastError().text());
        } else if (!hasFilesTable(db, &why)) {
            why = why.isEmpty()
                      ? tr("%1: not a device updates database (it has no \"files\" table)").arg(path)
                      : tr("%1: not a device updates database: %2").arg(path, why);
        } else {
            const QSqlRecord columns = db.record(QStringLiteral("files"));
            for (const QString &column : kRequiredColumns) {
                if (columns.indexOf(column) < 0) {
                    why = tr("%1: not a device updates database (the \"files\" table has no \"%2\" column)")
                              .arg(path, column);
                    break;
                }
            }
            // A language the file has no notes for reads the English ones.
            m_language = columns.indexOf(QStringLiteral("desc_") + m_requested) >= 0 ? m_requested
                                                                                     : QStringLiteral("en");
        }
        if (!why.isEmpty())
            db.close();
    }
    if (!why.isEmpty()) {
        QSqlDatabase::removeDatabase(QLatin1String(kConnectionName));
        return fail(why);
    }
    m_open = true;
    return true;
}

void FirmwareDatabase::close()
{
    m_error.clear();
    m_open = false;
    if (!QSqlDatabase::contains(QLatin1String(kConnectionName)))
        return;
    {
        QSqlDatabase db = updaterConnection();
        if (db.isOpen())
            db.close();
    }
    QSqlDatabase::removeDatabase(QLatin1String(kConnectionName));
}

QString FirmwareDatabase::localized(const QString &locale, const QString &fallback) const
{
    return locale.trimmed().isEmpty() ? fallback : locale;
}

QVector<FirmwareDatabase::Overview> FirmwareDatabase::overview()
{
    QVector<Overview> rows;
    if (!m_open)
        return rows;
    QSqlQuery query(updaterConnection());
    if (!query.exec(
            QStringLiteral("SELECT hw_id, name, MAX(sw_id) AS version, group_concat(desc_%1, char(10)) "
                           "AS desc_%1, group_concat(desc_en, char(10)) AS desc_default FROM (SELECT * "
                           "FROM files ORDER BY hw_id, sw_id DESC, variant) GROUP BY hw_id, variant")
                .arg(m_language))) {
        fail(query.lastError().text());
        return rows;
    }
    while (query.next()) {
        Overview row;
        row.hwId = query.value(0).toInt();
        row.name = query.value(1).toString();
        row.version = query.value(2).toInt();
        row.description = localized(query.value(3).toString(), query.value(4).toString());
        rows.append(row);
    }
    return rows;
}

QVector<FirmwareDatabase::Firmware> FirmwareDatabase::firmwares(int hwId)
{
    QVector<Firmware> rows;
    if (!m_open)
        return rows;
    QSqlQuery query(updaterConnection());
    query.prepare(
        QStringLiteral("select sw_id, variant, name,desc_en as desc_default, desc_%1 as "
                       "desc_locale,date from files where hw_id = ? order by variant asc, sw_id desc")
            .arg(m_language));
    query.addBindValue(hwId);
    if (!query.exec()) {
        fail(query.lastError().text());
        return rows;
    }
    while (query.next()) {
        Firmware row;
        row.swId = query.value(0).toInt();
        row.variant = query.value(1).toInt();
        row.name = query.value(2).toString();
        row.description = localized(query.value(4).toString(), query.value(3).toString());
        row.date = query.value(5).toString();
        rows.append(row);
    }
    return rows;
}

bool FirmwareDatabase::newest(int hwId, int variant, Firmware *out)
{
    const QVector<Firmware> all = firmwares(hwId);
    const Firmware *best = nullptr;
    for (const Firmware &f : all) {
        if ((variant < 0 || f.variant == variant) && (!best || f.swId > best->swId))
            best = &f;
    }
    if (!best)
        return fail(tr("Update not found"));
    if (out)
        *out = *best;
    return true;
}

QStringList FirmwareDatabase::releaseNotes(int hwId, int variant, int swId)
{
    QStringList notes;
    if (!m_open)
        return notes;
    QSqlQuery query(updaterConnection());
    query.prepare(
        QStringLiteral("select desc_en as desc_default, desc_%1 as desc_locale from files where hw_id = "
                       "? and variant = ? and sw_id <= ? order by sw_id desc")
            .arg(m_language));
    query.addBindValue(hwId);
    query.addBindValue(variant);
    query.addBindValue(swId);
    if (!query.exec()) {
        fail(query.lastError().text());
        return notes;
    }
    while (query.next())
        notes.append(localized(query.value(1).toString(), query.value(0).toString()));
    return notes;
}

bool FirmwareDatabase::image(int hwId, int variant, int swId, QByteArray *data)
{
    if (!m_open)
        return fail(tr("Device database doesn't exist"));
    QSqlQuery query(updaterConnection());
    query.prepare(QStringLiteral("select data from files where hw_id = ? and variant = ? and sw_id = ?"));
    query.addBindValue(hwId);
    query.addBindValue(variant);
    query.addBindValue(swId);
    if (!query.exec())
        return fail(query.lastError().text());
    if (!query.next())
        return fail(tr("Update not found"));
    if (data)
        *data = query.value(0).toByteArray();
    return true;
}

bool FirmwareDatabase::addFirmware(const QString &path, const QVector<Entry> &entries, QString *error)
{
    auto refuse = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    QVector<Entry> rows = entries;
    QStringList languages;
    for (Entry &e : rows) {
        const QString row = tr("hardware %1, variant %2, version %3").arg(e.hwId).arg(e.variant).arg(e.swId);
        if (e.hwId < 0 || e.swId < 0 || e.variant < 0)
            return refuse(tr("%1: ids and versions are not negative").arg(row));
        if (e.name.trimmed().isEmpty())
            return refuse(tr("%1: the name is empty").arg(row));
        bool english = false;
        for (const auto &d : e.descriptions) {
            if (!isLanguageCode(d.first))
                return refuse(tr("%1: \"%2\" is not a language code").arg(row, d.first));
            english = english || d.first == QLatin1String("en");
            if (!languages.contains(d.first))
                languages.append(d.first);
        }
        if (!english)
            return refuse(tr("%1: the English release notes are missing").arg(row));
        const QDateTime date = parseDate(e.date);
        if (!date.isValid())
            return refuse(
                tr("%1: unreadable date \"%2\" (use yyyy-MM-dd or yyyy-MM-dd hh:mm:ss)").arg(row, e.date));
        e.date = date.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
        QString why;
        if (!FirmwareImage::parse(e.data, nullptr, &why))
            return refuse(tr("%1: %2").arg(row, why));
    }

    const QFileInfo target(path);
    if (target.isDir())
        return refuse(tr("%1: is a folder").arg(path));
    QTemporaryDir work;
    if (!work.isValid())
        return refuse(tr("cannot create a temporary folder: %1").arg(work.errorString()));
    const QString copy = work.filePath(QStringLiteral("build.sqlite"));
    const bool extend = target.exists();
    if (extend && !QFile::copy(path, copy))
        return refuse(tr("%1: cannot read").arg(path));

    const QString connection = QStringLiteral("FirmwareDatabaseBuild");
    QString why;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connection);
        db.setDatabaseName(copy);
        auto run = [&](QSqlQuery &q) {
            if (q.exec())
                return true;
            why = q.lastError().text();
            return false;
        };
        if (!db.open()) {
            why = db.lastError().text();
        } else if (extend && !hasFilesTable(db, &why)) {
            why = why.isEmpty()
                      ? tr("%1 exists and is not a device updates database; nothing was changed").arg(path)
                      : tr("%1: not a device updates database: %2").arg(path, why);
        } else {
            db.transaction();
            QSqlQuery q(db);
            if (!extend) {
                q.prepare(
                    QStringLiteral("CREATE TABLE files (hw_id INTEGER NOT NULL, sw_id INTEGER NOT NULL, "
                                   "variant INTEGER NOT NULL DEFAULT 0, name TEXT NOT NULL, desc_en TEXT "
                                   "NOT NULL DEFAULT '', date TEXT, data BLOB NOT NULL)"));
                run(q);
            }
            const QSqlRecord columns = db.record(QStringLiteral("files"));
            for (const QString &language : languages) {
                const QString column = QStringLiteral("desc_") + language;
                if (why.isEmpty() && columns.indexOf(column) < 0) {
                    q.prepare(QStringLiteral("ALTER TABLE files ADD COLUMN %1 TEXT").arg(column));
                    run(q);
                }
            }
            for (const Entry &e : rows) {
                if (!why.isEmpty())
                    break;
                q.prepare(QStringLiteral(
                    "SELECT COUNT(*) FROM files WHERE hw_id = ? AND variant = ? AND sw_id = ?"));
                q.addBindValue(e.hwId);
                q.addBindValue(e.variant);
                q.addBindValue(e.swId);
                if (!run(q))
                    break;
                if (q.next() && q.value(0).toInt() > 0) {
                    why = tr("%1 already holds hardware %2, variant %3, version %4; nothing was changed")
                              .arg(path)
                              .arg(e.hwId)
                              .arg(e.variant)
                              .arg(e.swId);
                    break;
                }
                QStringList names = {QStringLiteral("hw_id"),   QStringLiteral("sw_id"),
                                     QStringLiteral("variant"), QStringLiteral("name"),
                                     QStringLiteral("date"),    QStringLiteral("data")};
                QVariantList values = {e.hwId, e.swId, e.variant, e.name, e.date, e.data};
                for (const auto &d : e.descriptions) {
                    names.append(QStringLiteral("desc_") + d.first);
                    values.append(d.second);
                }
                q.prepare(QStringLiteral("INSERT INTO files (%1) VALUES (%2)")
                              .arg(names.join(QLatin1String(", ")),
                                   QStringLiteral(", ?").repeated(names.size()).mid(2)));
                for (const QVariant &v : values)
                    q.addBindValue(v);
                run(q);
            }
            if (why.isEmpty() && !db.commit())
                why = db.lastError().text();
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(connection);
    if (!why.isEmpty())
        return refuse(why.contains(path) ? why : tr("%1: %2").arg(path, why));

    QFile built(copy);
    if (!built.open(QIODevice::ReadOnly))
        return refuse(tr("%1: cannot read the built database back").arg(copy));
    return AtomicFile::write(path, built.readAll(), error);
}
