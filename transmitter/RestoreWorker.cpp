#include "transmitter/RestoreWorker.h"

#include "database/ModelTableModel.h"
#include "transmitter/ArchiveCheck.h"
#include "transmitter/DriveFiles.h"
#include "transmitter/RestoreJournal.h"
#include "transmitter/WorkerText.h"
#include "transmitter/ZipEntries.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>

#include <quazip/quazip.h>
#include <quazip/unzip.h>

namespace {
const QString kNew = QStringLiteral(".jsnew");
const QString kOld = QStringLiteral(".jsold");

bool isSkipped(const QString &name)
{
    // Compared without regard to case: on the drive's file system both spellings are one file.
    return name.compare(QLatin1String("Config/Backup.jsn"), Qt::CaseInsensitive) == 0;
}

qint64 roundUp(qint64 size, qint64 block)
{
    return (size + block - 1) / block * block;
}
} // namespace

RestoreWorker::RestoreWorker(const Request &request, QObject *parent) : QObject(parent), m_request(request) {}

void RestoreWorker::setBackupData(const QByteArray &zip, bool ok)
{
    m_dbData = zip;
    m_dbOk = ok;
}

bool RestoreWorker::step(const QString &what)
{
    return !m_hook || m_hook(what);
}

bool RestoreWorker::fail(ErrorType type, const QString &text)
{
    emit error(type, text);
    emit finished();
    return false;
}

void RestoreWorker::doWork()
{
    if (m_request.archivePath.isEmpty()) {
        m_dbOk = false;
        emit requestBackupFromDb(m_request.backupId);
        if (!m_dbOk) {
            fail(DatabaseReadError, tr("There was an error during reading backup from database."));
            return;
        }
        QBuffer buffer(&m_dbData);
        buffer.open(QIODevice::ReadOnly);
        restoreFrom(&buffer);
        return;
    }
    QFile file(m_request.archivePath);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(OpenError,
             tr("Unable to open the backup. If problem persists the backup is probably corrupted."));
        return;
    }
    restoreFrom(&file);
}

bool RestoreWorker::restoreFrom(QIODevice *device)
{
    const QString openText =
        tr("Unable to open the backup. If problem persists the backup is probably corrupted.");
    ArchiveCheck::Listing listing;
    QString reason;
    if (!ArchiveCheck::check(device, -1, &listing, &reason))
        return fail(reason == openText ? OpenError : RefusedArchive, reason);
    // The pages check this before starting; a worker driven otherwise must not write a non-backup.
    if (!listing.hasConfig)
        return fail(RefusedArchive, tr("Selected file is not a valid backup. Please select a valid backup."));

    // Plan before the first byte is written: every name must fit the drive as it is, and the free
    // space must hold each new file beside the old one it replaces.
    const QString root = QDir::cleanPath(m_request.root);
    if (!QFileInfo(root).isDir())
        return fail(RefusedArchive, tr("The transmitter drive \"%1\" is not there.").arg(root));
    const QStorageInfo storage(root);
    const qint64 block = storage.blockSize() > 0 ? storage.blockSize() : 4096;
    const qint64 free = m_freeSpace >= 0 ? m_freeSpace : storage.bytesAvailable();
    qint64 running = 0;
    qint64 peak = 0;
    for (const ArchiveCheck::Entry &e : qAsConst(listing.entries)) {
        if (e.isFolder || isSkipped(e.name))
            continue;
        const QFileInfo target(root + QLatin1Char('/') + e.name);
        if (target.isDir()) {
            return fail(RefusedArchive,
                        tr("The folder \"%1\" on the transmitter is in the way of a file of the backup.")
                            .arg(e.name));
        }
        const qint64 fresh = roundUp(e.size, block);
        peak = qMax(peak, running + fresh);
        running += fresh - (target.isFile() ? roundUp(target.size(), block) : 0);
    }
    if (free >= 0 && peak > free) {
        return fail(RefusedArchive,
                    tr("There is not enough free space on the transmitter: the backup needs %1, "
                       "%2 are free.")
                        .arg(ModelTableModel::formatSize(peak), ModelTableModel::formatSize(free)));
    }

    // Leftovers of an earlier interrupted recovery go back to their previous files first, so each file
    // is again old or new and the swap below never meets a stale copy.
    for (const RestoreJournal::Leftover &l : RestoreJournal::find(root)) {
        QString why;
        if (!RestoreJournal::rollBack(root, l, &why))
            return fail(RecoverError, WorkerText::withDetail(tr("Unable to recover"), why));
        emit processedFile(tr("Rolled back the interrupted recovery of %1").arg(l.path));
    }

    QuaZip archive(device);
    archive.setAutoClose(false);
    if (!device->seek(0) || !archive.open(QuaZip::mdUnzip))
        return fail(OpenError, openText);

    const auto recoverError = [&](const QString &path, QString why) {
        archive.close();
        if (why.isEmpty())
            why = tr("The file system refused the change.");
        return fail(RecoverError,
                    WorkerText::withDetail(tr("Unable to recover"),
                                           tr("%1:\n%2").arg(QDir::toNativeSeparators(path), why)));
    };
    // A folder of the backup, and every folder above a file: a file in the way is replaced.
    const auto makeFolder = [&](const QString &relative) {
        const QStringList parts = relative.split(QLatin1Char('/'), Qt::SkipEmptyParts);
        QString path;
        for (const QString &part : parts) {
            path += (path.isEmpty() ? QString() : QStringLiteral("/")) + part;
            const QString full = root + QLatin1Char('/') + path;
            const QFileInfo info(full);
            if (info.isDir())
                continue;
            if (info.exists() || info.isSymLink()) {
                QFile f(full);
                if (!step(QStringLiteral("remove ") + path) || !f.remove())
                    return recoverError(full, f.errorString());
            }
            if (!step(QStringLiteral("mkdir ") + path) || !QDir().mkdir(full))
                return recoverError(full, tr("The folder cannot be created."));
        }
        return true;
    };

    const int count = listing.entries.size();
    int index = 0;
    for (bool more = archive.goToFirstFile(); more && index < count; more = archive.goToNextFile(), ++index) {
        if (m_cancel) {
            archive.close();
            return fail(Canceled, tr("Canceled."));
        }
        const ArchiveCheck::Entry &e = listing.entries.at(index);
        ZipEntries::RawEntry raw;
        if (!ZipEntries::current(&archive, &raw) || raw.entry.name != e.name) {
            archive.close();
            return fail(UnexpectedError, tr("An unexpected error has occurred."));
        }
        if (!isSkipped(e.name)) {
            emit processedFile(e.name);
            const int slash = e.name.lastIndexOf(QLatin1Char('/'), e.isFolder ? -2 : -1);
            if (!makeFolder(e.isFolder ? e.name : e.name.left(qMax(0, slash))))
                return false;
            if (!e.isFolder) {
                const QString target = root + QLatin1Char('/') + e.name;
                const QString fresh = target + kNew;
                const QString old = target + kOld;
                QFile out(fresh);
                if (!step(QStringLiteral("write ") + e.name + kNew) ||
                    !out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
                    archive.close();
                    return fail(CreateFileError,
                                tr("Unable to create \"%1\" file. Can't proceed to restoration.")
                                    .arg(QDir::toNativeSeparators(target)));
                }
                QString why;
                const bool written = ZipEntries::read(
                    &archive, e, [&](const char *data, qint64 size) { return out.write(data, size) == size; },
                    &why);
                if (!written || !DriveFiles::sync(&out)) {
                    if (why.isEmpty())
                        why = out.errorString();
                    out.close();
                    out.remove();
                    return recoverError(target, why);
                }
                out.close();
                // The swap: old aside, new in place, old gone; any cut leaves a pair the journal completes.
                QFile stale(old);
                if (stale.exists() && (!step(QStringLiteral("remove ") + e.name + kOld) || !stale.remove()))
                    return recoverError(old, stale.errorString());
                QString reason;
                if (QFileInfo(target).isFile()) {
                    if (!step(QStringLiteral("rename %1 -> %2").arg(e.name, e.name + kOld)) ||
                        !DriveFiles::replace(target, old, &reason))
                        return recoverError(target, reason);
                }
                if (!step(QStringLiteral("rename %1 -> %2").arg(e.name + kNew, e.name)) ||
                    !DriveFiles::replace(fresh, target, &reason))
                    return recoverError(fresh, reason);
                QFile aside(old);
                if (aside.exists() && (!step(QStringLiteral("remove ") + e.name + kOld) || !aside.remove()))
                    return recoverError(old, aside.errorString());
            }
        }
        emit progressChanged((index + 1) * 100 / count);
    }
    const bool complete = index == count && archive.getZipError() == UNZ_OK;
    archive.close();
    if (!complete)
        return fail(UnexpectedError, tr("An unexpected error has occurred."));
    emit finished();
    return true;
}
