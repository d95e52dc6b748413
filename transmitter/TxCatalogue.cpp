#include "transmitter/TxCatalogue.h"

#include <QDebug>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QRegExp>

#include <limits>

namespace TxCatalogue {

namespace {

struct FlagName
{
    const char *word;
    FileFlag flag;
};

constexpr FlagName kFlags[] = {
    {"forceRewrite", FileFlag::ForceRewrite}, {"optional", FileFlag::Optional},
    {"downloadOnly", FileFlag::DownloadOnly}, {"optionalUnchecked", FileFlag::OptionalUnchecked},
    {"standard", FileFlag::Standard},
};

// Language objects are read in English; a plain text is taken as it stands.
QString languageText(const QJsonValue &value)
{
    if (value.isString())
        return value.toString();
    return value.toObject().value(QLatin1String("en")).toString();
}

// An integer field: a JSON number with no fraction, or a text holding one.
bool intValue(const QJsonValue &value, int *out)
{
    if (value.isDouble()) {
        const double d = value.toDouble();
        // Checked before the cast: a double out of int's range does not convert.
        if (!(d >= std::numeric_limits<int>::min() && d <= std::numeric_limits<int>::max()) ||
            d != static_cast<double>(static_cast<int>(d)))
            return false;
        *out = static_cast<int>(d);
        return true;
    }
    if (value.isString()) {
        bool ok = false;
        *out = value.toString().trimmed().toInt(&ok);
        return ok;
    }
    return false;
}

bool readFile(const QJsonObject &object, FileEntry *file)
{
    const QString url = object.value(QLatin1String("url")).toString();
    if (url.isEmpty())
        return false;
    file->url = QUrl(url);
    file->hash = object.value(QLatin1String("hash")).toString();
    const QJsonValue size = object.value(QLatin1String("size"));
    // A size that is not a whole number of bytes is unknown: the hash still decides.
    file->size = size.isDouble() && size.toDouble() >= 0 && size.toDouble() < 9.0e15
                     ? static_cast<qint64>(size.toDouble())
                     : -1;
    if (size.isString()) {
        bool ok = false;
        const qint64 value = size.toString().trimmed().toLongLong(&ok);
        file->size = ok && value >= 0 ? value : -1;
    }
    file->destination = object.value(QLatin1String("destination")).toString();
    // A file without flags is a standard one; only a word nobody knows is worth the warning.
    const QJsonValue flags = object.value(QLatin1String("flags"));
    file->flags = flags.isUndefined() ? FileFlag::Standard : flagFromString(flags.toString());
    file->description = object.value(QLatin1String("description")).toString();
    return true;
}

QVector<FileEntry> readFiles(const QJsonArray &array)
{
    QVector<FileEntry> files;
    for (const QJsonValue &value : array) {
        FileEntry file;
        if (readFile(value.toObject(), &file))
            files.append(file);
    }
    return files;
}

QVector<int> readHardware(const QJsonValue &value)
{
    QVector<int> ids;
    auto add = [&ids](const QJsonValue &item) {
        int id = 0;
        if (intValue(item, &id) && !ids.contains(id))
            ids.append(id);
    };
    if (value.isArray()) {
        for (const QJsonValue &item : value.toArray())
            add(item);
    } else if (value.isString()) {
        // "678, 679" or "678 679"
        for (const QString &part :
             value.toString().split(QRegExp(QStringLiteral("[,;\\s]+")), Qt::SkipEmptyParts))
            add(QJsonValue(part));
    } else {
        add(value);
    }
    return ids;
}

bool readDocument(const QByteArray &json, QJsonObject *object, QString *error)
{
    auto fail = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    if (json.size() > kMaxListBytes)
        return fail(QStringLiteral("the list is larger than %1 bytes").arg(kMaxListBytes));
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return fail(parseError.errorString());
    if (!document.isObject())
        return fail(QStringLiteral("the document is not a JSON object"));
    *object = document.object();
    return true;
}

} // namespace

FileFlag flagFromString(const QString &word, bool *known)
{
    for (const FlagName &name : kFlags) {
        if (word.compare(QLatin1String(name.word), Qt::CaseInsensitive) == 0) {
            if (known)
                *known = true;
            return name.flag;
        }
    }
    qWarning() << "Invalid string flag, setting to standard";
    if (known)
        *known = false;
    return FileFlag::Standard;
}

QString flagWord(FileFlag flag)
{
    for (const FlagName &name : kFlags) {
        if (name.flag == flag)
            return QLatin1String(name.word);
    }
    return QStringLiteral("standard");
}

bool FileEntry::isLuaProgram() const
{
    const QString path = destination.toLower();
    return path.endsWith(QLatin1String(".lua")) || path.endsWith(QLatin1String(".lc")) ||
           path.startsWith(QLatin1String("apps/"));
}

bool parseUpdateList(const QByteArray &json, UpdateList *list, QString *error)
{
    *list = UpdateList();
    QJsonObject root;
    if (!readDocument(json, &root, error))
        return false;
    const QJsonValue general = root.value(QLatin1String("general"));
    const QJsonValue files = root.value(QLatin1String("files"));
    if (!general.isArray() || !files.isArray()) {
        if (error)
            *error = QStringLiteral("the list lacks \"general\" or \"files\"");
        return false;
    }

    // Files first, by the update they belong to; an update's files keep the list's order.
    QHash<int, QVector<FileEntry>> filesByUpdate;
    for (const QJsonValue &value : files.toArray()) {
        const QJsonObject object = value.toObject();
        int idUpdate = 0;
        FileEntry file;
        if (intValue(object.value(QLatin1String("idUpdate")), &idUpdate) && readFile(object, &file))
            filesByUpdate[idUpdate].append(file);
    }

    for (const QJsonValue &deviceValue : general.toArray()) {
        const QJsonObject device = deviceValue.toObject();
        int hw = 0;
        if (!intValue(device.value(QLatin1String("hw")), &hw))
            continue;
        QVector<Update> &updates = list->byHardware[hw];
        for (const QJsonValue &updateValue : device.value(QLatin1String("update")).toArray()) {
            const QJsonObject object = updateValue.toObject();
            Update update;
            if (!intValue(object.value(QLatin1String("id")), &update.id))
                continue;
            update.releaseDate = parseReleaseDate(object.value(QLatin1String("releaseDate")).toString());
            update.name = languageText(object.value(QLatin1String("name")));
            update.description = languageText(object.value(QLatin1String("description")));
            intValue(object.value(QLatin1String("variant")), &update.variant);
            update.files = filesByUpdate.value(update.id);
            updates.append(update);
        }
        if (updates.isEmpty())
            list->byHardware.remove(hw);
    }
    return true;
}

bool parseAppList(const QByteArray &json, QVector<App> *apps, QString *error)
{
    apps->clear();
    QJsonObject root;
    if (!readDocument(json, &root, error))
        return false;
    const QJsonValue applications = root.value(QLatin1String("applications"));
    if (!applications.isArray()) {
        if (error)
            *error = QStringLiteral("the list lacks \"applications\"");
        return false;
    }
    for (const QJsonValue &value : applications.toArray()) {
        const QJsonObject object = value.toObject();
        App app;
        if (!intValue(object.value(QLatin1String("id")), &app.id))
            continue;
        app.name = languageText(object.value(QLatin1String("name")));
        app.description = languageText(object.value(QLatin1String("description")));
        const QJsonValue version = object.value(QLatin1String("version"));
        app.version = version.isDouble() ? QString::number(version.toDouble()) : version.toString();
        app.releaseDate = parseReleaseDate(object.value(QLatin1String("releaseDate")).toString());
        app.author = object.value(QLatin1String("author")).toString();
        const QString icon = object.value(QLatin1String("previewIcon")).toString().trimmed();
        if (!icon.isEmpty())
            app.previewIcon = QUrl(icon);
        app.hw = readHardware(object.value(QLatin1String("hw")));
        app.files = readFiles(object.value(QLatin1String("files")).toArray());
        apps->append(app);
    }
    return true;
}

QDateTime parseReleaseDate(const QString &text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty())
        return {};
    QDateTime date = QDateTime::fromString(trimmed, Qt::ISODate);
    if (date.isValid())
        return date;
    for (const char *format :
         {"yyyy-MM-dd h:m:s", "yyyy-MM-dd h:m", "yyyy-MM-dd", "d.M.yyyy", "d.M.yyyy h:m:s"}) {
        date = QDateTime::fromString(trimmed, QLatin1String(format));
        if (date.isValid())
            return date;
    }
    bool ok = false;
    const qint64 seconds = trimmed.toLongLong(&ok);
    // Seconds since 1970, within years a service could mean.
    if (ok && seconds > 0 && seconds < 32503680000LL)
        return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
    return {};
}

QString shortDate(const QDate &date)
{
    QString format = QLocale::system().dateFormat(QLocale::ShortFormat);
    if (!format.contains(QLatin1String("yyyy")))
        format.replace(QLatin1String("yy"), QLatin1String("yyyy"));
    return date.toString(format);
}

} // namespace TxCatalogue
