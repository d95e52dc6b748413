#include "transmitter/RestoreJournal.h"

#include "transmitter/DriveFiles.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMap>

namespace RestoreJournal {

namespace {
constexpr int kMaxDepth = 16;
constexpr int kMaxVisited = 50000;
const QString kNew = QStringLiteral(".jsnew");
const QString kOld = QStringLiteral(".jsold");

QString tr(const char *text)
{
    return QCoreApplication::translate("RestoreJournal", text);
}

void scan(const QString &folder, const QString &prefix, int depth, int *visited,
          QMap<QString, Leftover> *found)
{
    if (depth > kMaxDepth)
        return;
    const QFileInfoList entries = QDir(folder).entryInfoList(
        QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System | QDir::NoSymLinks, QDir::Name);
    for (const QFileInfo &info : entries) {
        if (++*visited > kMaxVisited)
            return;
        const QString name = info.fileName();
        if (info.isDir()) {
            scan(info.filePath(), prefix + name + QLatin1Char('/'), depth + 1, visited, found);
            continue;
        }
        const bool isNew = name.endsWith(kNew, Qt::CaseInsensitive);
        const bool isOld = name.endsWith(kOld, Qt::CaseInsensitive);
        if ((!isNew && !isOld) || name.size() == kNew.size())
            continue;
        const QString target = prefix + name.left(name.size() - kNew.size());
        Leftover &l = (*found)[target];
        l.path = target;
        (isNew ? l.hasNew : l.hasOld) = true;
        l.hasTarget = QFileInfo(folder + QLatin1Char('/') + name.left(name.size() - kNew.size())).isFile();
    }
}

bool fail(QString *error, const QString &path, const QString &reason)
{
    if (error)
        *error = tr("%1:\n%2").arg(QDir::toNativeSeparators(path), reason);
    return false;
}

bool remove(const QString &path, QString *error)
{
    QFile f(path);
    return !f.exists() || f.remove() || fail(error, path, f.errorString());
}

bool move(const QString &from, const QString &to, QString *error)
{
    QString reason;
    return DriveFiles::replace(from, to, &reason) || fail(error, from, reason);
}
} // namespace

QList<Leftover> find(const QString &root)
{
    QMap<QString, Leftover> found;
    int visited = 0;
    scan(root, QString(), 0, &visited, &found);
    return found.values();
}

// Where the target and the new copy both exist, the target is still the old file (the old copy is
// made by renaming the target away); where the target and only the old copy exist, the target is
// already the new file.
bool finish(const QString &root, const Leftover &leftover, QString *error)
{
    const QString target = root + QLatin1Char('/') + leftover.path;
    const QString fresh = target + kNew;
    const QString old = target + kOld;
    if (!leftover.canFinish())
        return fail(error, fresh,
                    tr("The new copy may have been cut short while it was written. Roll back, then "
                       "recover the transmitter again."));
    if (QFileInfo(fresh).isFile())
        return move(fresh, target, error) && remove(old, error);
    if (QFileInfo(old).isFile() && !QFileInfo(target).isFile())
        return move(old, target, error); // the new copy is gone: keep what there is
    return remove(old, error);
}

bool rollBack(const QString &root, const Leftover &leftover, QString *error)
{
    const QString target = root + QLatin1Char('/') + leftover.path;
    const QString fresh = target + kNew;
    const QString old = target + kOld;
    const bool hasNew = QFileInfo(fresh).isFile();
    const bool hasOld = QFileInfo(old).isFile();
    const bool hasTarget = QFileInfo(target).isFile();
    if (hasOld && !(hasTarget && hasNew)) {
        if (!move(old, target, error))
            return false;
    } else if (!remove(old, error)) {
        return false;
    }
    return remove(fresh, error);
}

} // namespace RestoreJournal
