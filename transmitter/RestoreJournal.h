#pragma once

#include <QString>
#include <QStringList>

// Leftovers of an interrupted restore on a drive: "<file>.jsnew" and/or "<file>.jsold" beside (or
// instead of) "<file>". Found at detection; the user finishes or rolls back each.
namespace RestoreJournal {

struct Leftover
{
    QString path;           // the target, relative to the drive root, "/" separators
    bool hasNew = false;    // "<path>.jsnew" exists
    bool hasOld = false;    // "<path>.jsold" exists
    bool hasTarget = false; // "<path>" exists

    // The target is set aside as "<path>.jsold" only once the new copy is written whole and checked, so
    // only then can the new copy be trusted. A new copy without an old one may have been cut short
    // while it was written (a pulled cable leaves it behind): it can only be rolled back.
    bool canFinish() const { return hasOld && (hasNew || hasTarget); }
};

// Every leftover below root, bounded in depth and count so a huge drive does not stall the caller.
QList<Leftover> find(const QString &root);
// Finish: the new file takes the target's name and the old copy is removed. Refused, changing
// nothing, when !canFinish().
bool finish(const QString &root, const Leftover &leftover, QString *error);
// Roll back: the old file takes the target's name back and the new copy is removed.
bool rollBack(const QString &root, const Leftover &leftover, QString *error);

} // namespace RestoreJournal
