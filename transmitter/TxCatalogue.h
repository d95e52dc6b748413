#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QUrl>
#include <QVector>

// The two lists of the transmitter update service: "update.json" (system files and firmware per
// transmitter model) and "apps.json" (Lua apps). Both come from the network and are untrusted: the
// readers take only fields of the right type, cap the document's size, and leave each file's
// destination, hash and size to be checked again by FileInstaller before anything is written.
namespace TxCatalogue {

// Larger lists are refused unread.
constexpr qint64 kMaxListBytes = 8 * 1024 * 1024;

// The stored values are fixed by the service's format.
enum class FileFlag
{
    ForceRewrite = 0,      // written even when the file on the drive is up to date
    Optional = 1,          // offered with a check box, checked at first
    DownloadOnly = 2,      // fetched into the data folder, not written to the drive
    OptionalUnchecked = 3, // offered with a check box, unchecked at first
    Standard = 4,          // always installed
};

// Compared without regard to case; any other word logs "Invalid string flag, setting to standard" and
// gives Standard (with *known false).
FileFlag flagFromString(const QString &word, bool *known = nullptr);
QString flagWord(FileFlag flag);
inline bool isOptional(FileFlag flag)
{
    return flag == FileFlag::Optional || flag == FileFlag::OptionalUnchecked;
}

struct FileEntry
{
    QUrl url;
    QString hash; // SHA1 in hexadecimal, as the list gives it (checked by the installer)
    qint64 size = -1;
    QString destination; // relative to the drive root, as the list gives it (checked by the installer)
    FileFlag flags = FileFlag::Standard;
    QString description;
    // An app's Lua program file: ends in ".lua" or ".lc", or lies in the drive folder "Apps".
    bool isLuaProgram() const;
};

struct Update
{
    int id = 0;
    QDateTime releaseDate; // invalid when the text could not be read
    QString name;          // the "en" text
    QString description;   // the "en" text
    int variant = 0;
    QVector<FileEntry> files; // the "files" entries whose "idUpdate" is this update's id, in list order
};

struct UpdateList
{
    // The updates of each hardware id, in list order.
    QHash<int, QVector<Update>> byHardware;
    QVector<Update> updatesFor(int hw) const { return byHardware.value(hw); }
};

struct App
{
    int id = 0;
    QString name;
    QString description;
    QString version;
    QDateTime releaseDate;
    QString author;
    QUrl previewIcon; // empty: the Lua logo is shown
    QVector<int> hw;  // supported transmitters
    QVector<FileEntry> files;
    bool supports(int hwId) const { return hw.contains(hwId); }
};

// False (and *error set) for a document that is not a JSON object or lacks "general"/"files": the
// caller logs "Invalid json update file data.". Entries of the wrong shape are skipped.
bool parseUpdateList(const QByteArray &json, UpdateList *list, QString *error = nullptr);
// False (and *error set) for a document that is not a JSON object or lacks "applications".
bool parseAppList(const QByteArray &json, QVector<App> *apps, QString *error = nullptr);

// "releaseDate" in any of the forms a service writes: ISO 8601, "yyyy-MM-dd h:m:s", "yyyy-MM-dd", or
// seconds since 1970. Invalid when none fits.
QDateTime parseReleaseDate(const QString &text);
// The system locale's short date, with a two-digit year widened to four.
QString shortDate(const QDate &date);

} // namespace TxCatalogue
