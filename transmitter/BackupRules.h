#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QtGlobal>

// The rules a backup is made by, shared by the wizard pages and vexo-log: scopes, database size
// limits, proposed names and the file-name check.
namespace BackupRules {

// In the order of the "Select backup type:" combo box.
enum Scope
{
    Minimal,
    Standard,
    Full,
    Custom
};

constexpr qint64 kRecommendedDbSize = 8388608; // above it the user is asked
constexpr qint64 kMaxDbSize = 33554432;        // above it the database refuses

enum class DbSize
{
    Ok,
    Ask,      // above the recommended size: the user is asked
    TooLarge, // above the maximum: refused
};
// What a database backup of `size` bytes (the selected files' total) meets.
DbSize dbSizeVerdict(qint64 size);

// Scope names, translated in the context "BackupScope", in combo order.
QStringList scopeNames();
// Whether a scope takes the drive's top-level folder (or top-level file) `topLevelName`, compared
// without regard to case. Custom takes nothing by itself.
bool scopeTakes(Scope scope, const QString &topLevelName);
// Every file below root the scope takes, as paths relative to root with "/" separators, in the order
// the file tree shows them (folders before files, each level sorted by name without regard to case).
QStringList filesForScope(const QString &root, Scope scope);

// The model name trimmed, every blank replaced by "-".
QString preparedModelName(const QString &modelName);
// "%1_%2.%3.zip"
QString archiveName(const QString &modelName, int major, int minor);
// "%1_V%2.%3"
QString backupName(const QString &modelName, int major, int minor);
// "%1.zip", or "%1_%2.zip" with the date and time when `when` is valid ("yyyy-MM-dd_HH-mm-ss").
QString proposedFileName(const QString &base, const QDateTime &when = QDateTime());
// The file-name expression "^[0-9a-zA-Z_\-. ]+.zip$", kept as it is (its "." before "zip" matches any
// character).
bool isValidFileName(const QString &fileName);

} // namespace BackupRules
