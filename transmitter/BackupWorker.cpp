#include "transmitter/BackupWorker.h"

#include "transmitter/DriveFiles.h"
#include "transmitter/WorkerText.h"
#include "transmitter/ZipEntries.h"

#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/quazipnewinfo.h>
#include <quazip/unzip.h>

#include <memory>

namespace {
constexpr qint64 kChunk = 64 * 1024;
// Unix modes in the high 16 bits, so that unpacking tools make plain files and folders.
constexpr quint32 kFileAttr = 0100644u << 16;
constexpr quint32 kFolderAttr = (040755u << 16) | 0x10;

// A restore takes only an archive holding "config/config.jsn" spelled so. The drive's FAT file system
// ignores case, so storing the transmitter's configuration under that spelling, however the drive
// spells it, names the same file and keeps every backup made here restorable.
QStringList entryNames(const QStringList &files)
{
    static const QString config = QStringLiteral("config/config.jsn");
    QStringList names = files;
    for (QString &name : names) {
        if (name.compare(config, Qt::CaseInsensitive) == 0)
            name = config;
    }
    return names;
}
} // namespace

BackupWorker::BackupWorker(const Request &request, QObject *parent) : QObject(parent), m_request(request) {}

qint64 BackupWorker::totalSize(const QString &root, const QStringList &files)
{
    qint64 total = 0;
    for (const QString &file : files) {
        if (!file.endsWith(QLatin1Char('/')))
            total += QFileInfo(root + QLatin1Char('/') + file).size();
    }
    return total;
}

void BackupWorker::doWork()
{
    const auto fail = [this](ErrorType type, const QString &text) {
        emit error(type, text);
        emit finished();
    };
    const QString createText =
        tr("Could not create backup file, backup process will be aborted. Try again later.");
    // A file backup is made beside its target and renamed into place: the target is whole or untouched.
    const QString folder =
        m_request.toDatabase ? QDir::tempPath() : QFileInfo(m_request.targetFile).absolutePath();
    QTemporaryFile temp(folder + QStringLiteral("/.vexo-backup-XXXXXX.zip"));
    if (!temp.open())
        return fail(CreateFileError, createText);

    const QStringList &files = m_request.files;
    const QStringList names = entryNames(files);
    const QString root = QDir::cleanPath(m_request.root);
    {
        QuaZip zip(&temp);
        zip.setAutoClose(false);
        zip.setUtf8Enabled(true);
        zip.setZip64Enabled(totalSize(root, files) >= 0xffff0000LL);
        if (!zip.open(QuaZip::mdCreate))
            return fail(CreateFileError, createText);
        const std::unique_ptr<char[]> buffer(new char[kChunk]);
        const auto zipError = [&](const QString &path, const QString &why) {
            zip.close();
            fail(ZipError, WorkerText::withDetail(tr("There was an error during creating backup file"),
                                                  tr("%1: %2").arg(path, why)));
        };
        for (int i = 0; i < files.size(); ++i) {
            if (m_cancel) {
                zip.close();
                return fail(Canceled, tr("Canceled."));
            }
            const QString &relative = files.at(i);
            const QString path = root + QLatin1Char('/') + relative;
            QuaZipNewInfo info(names.at(i));
            info.dateTime = QFileInfo(path).lastModified();
            QuaZipFile entry(&zip);
            if (relative.endsWith(QLatin1Char('/'))) {
                info.externalAttr = kFolderAttr;
                if (!entry.open(QIODevice::WriteOnly, info))
                    return zipError(relative, tr("error %1").arg(entry.getZipError()));
                entry.close();
            } else {
                QFile source(path);
                if (!source.open(QIODevice::ReadOnly)) {
                    zip.close();
                    return fail(OpenFileError,
                                WorkerText::withDetail(
                                    tr("Unable to open the file"),
                                    tr("%1:\n%2").arg(QDir::toNativeSeparators(path), source.errorString())));
                }
                info.externalAttr = kFileAttr;
                if (!entry.open(QIODevice::WriteOnly, info))
                    return zipError(relative, tr("error %1").arg(entry.getZipError()));
                for (;;) {
                    const qint64 n = source.read(buffer.get(), kChunk);
                    if (n < 0)
                        return zipError(relative, source.errorString());
                    if (n == 0)
                        break;
                    if (entry.write(buffer.get(), n) != n)
                        return zipError(relative, tr("error %1").arg(entry.getZipError()));
                }
                entry.close();
            }
            if (entry.getZipError() != UNZ_OK)
                return zipError(relative, tr("error %1").arg(entry.getZipError()));
            emit processedFile(relative);
            emit progressChanged((i + 1) * 100 / files.size());
        }
        zip.close();
        if (zip.getZipError() != UNZ_OK || !temp.flush())
            return fail(ZipError,
                        WorkerText::withDetail(tr("There was an error during creating backup file"),
                                               tr("%1: %2").arg(temp.fileName(), temp.errorString())));
    }

    // The backup counts as made only when every entry reads back whole with its CRC.
    QString verifyError;
    if (!temp.seek(0)) {
        verifyError = temp.errorString();
    } else {
        QuaZip check(&temp);
        check.setAutoClose(false);
        int index = 0;
        if (!check.open(QuaZip::mdUnzip)) {
            verifyError = tr("the archive cannot be opened");
        } else {
            for (bool more = check.goToFirstFile(); more && verifyError.isEmpty();
                 more = check.goToNextFile()) {
                ZipEntries::RawEntry raw;
                if (!ZipEntries::current(&check, &raw) || index >= files.size() ||
                    raw.entry.name != names.at(index)) {
                    verifyError = tr("the list of entries differs from the files backed up");
                    break;
                }
                if (!raw.entry.isFolder &&
                    !ZipEntries::read(
                        &check, raw.entry, [](const char *, qint64) { return true; }, &verifyError))
                    break;
                ++index;
            }
            if (verifyError.isEmpty() && index != files.size())
                verifyError = tr("the list of entries differs from the files backed up");
            check.close();
        }
    }
    if (!verifyError.isEmpty())
        return fail(VerifyError,
                    WorkerText::withDetail(tr("The backup file does not read back correctly"), verifyError));
    emit processedFile(tr("Backup verified."));

    if (m_request.toDatabase) {
        if (!temp.seek(0))
            return fail(DatabaseError,
                        tr("There was an error during creating the backup in database. Database "
                           "might be corrupted. Try again later."));
        const QByteArray bytes = temp.readAll();
        m_dbFailed = false;
        emit insertBackupDbRequest(m_request.hwId, m_request.name, m_request.description, names, bytes);
        temp.close();
        if (!temp.remove())
            qWarning() << "Failed to remove temporary backup file.";
        if (m_dbFailed)
            return fail(DatabaseError,
                        tr("There was an error during creating the backup in database. Database "
                           "might be corrupted. Try again later."));
    } else {
        QString reason;
        if (!DriveFiles::sync(&temp))
            return fail(CreateFileError, createText);
        temp.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup |
                            QFileDevice::ReadOther);
        temp.close();
        if (!DriveFiles::replace(temp.fileName(), m_request.targetFile, &reason))
            return fail(CreateFileError, createText);
        temp.setAutoRemove(false);
    }
    emit progressChanged(100);
    emit finished();
}
