#include "transmitter/AppInstaller.h"

#include "tools/Sha1Check.h"
#include "transmitter/ArchiveCheck.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
bool isEmptyFolder(const QString &path)
{
    return QDir(path).isEmpty(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
}
} // namespace

AppInstaller::AppInstaller(Operation operation, const QString &driveRoot, const TxCatalogue::App &app,
                           QObject *parent)
    : QObject(parent), m_operation(operation), m_root(QDir::cleanPath(driveRoot)), m_app(app)
{
}

AppInstaller::~AppInstaller() = default;

void AppInstaller::cancel()
{
    m_cancel = true;
    // The installer belongs to the worker's thread: it is told there.
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (m_installer)
                m_installer->abort();
        },
        Qt::QueuedConnection);
}

void AppInstaller::resolveUrls(QVector<TxCatalogue::App> *apps, const QUrl &listUrl)
{
    for (TxCatalogue::App &app : *apps) {
        if (!app.previewIcon.isEmpty() && app.previewIcon.isRelative())
            app.previewIcon = listUrl.resolved(app.previewIcon);
        for (TxCatalogue::FileEntry &file : app.files) {
            if (file.url.isRelative())
                file.url = listUrl.resolved(file.url);
        }
    }
}

QString AppInstaller::absolute(const QString &relative) const
{
    return m_root + QLatin1Char('/') + relative;
}

void AppInstaller::doWork()
{
    m_done = false;
    m_succeeded = false;
    if (m_operation == Uninstall) {
        uninstall();
        return;
    }
    QString error;
    m_updating = AppManifest::read(m_root, m_app.id, &m_old, &error);
    m_new = AppManifest();
    m_new.id = m_app.id;
    m_new.name = m_app.name;
    m_new.version = m_app.version;
    m_index = 0;
    emit status(m_updating ? tr("Updating: %1.").arg(m_app.name) : tr("Installing: %1.").arg(m_app.name));
    emit logLine(m_updating ? tr("Update: %1.").arg(m_app.name) : tr("Install: %1.").arg(m_app.name));
    emit progressChanged(0);
    if (!QFileInfo(m_root).isDir()) {
        failInstall(
            tr("The transmitter drive \"%1\" is not available.").arg(QDir::toNativeSeparators(m_root)));
        return;
    }
    if (m_app.files.isEmpty()) {
        failInstall(tr("The app lists no files."));
        return;
    }
    m_installer = new FileInstaller(this);
    m_installer->setDriveRoot(m_root);
    m_installer->setHashText(FileInstaller::AppManagerHashText);
    connect(m_installer, &FileInstaller::status, this, &AppInstaller::logLine);
    connect(m_installer, &FileInstaller::finished, this, &AppInstaller::onFileFinished);
    installNext();
}

bool AppInstaller::leadsThroughLink(const QString &destination) const
{
    QString step = m_root;
    for (const QString &part : destination.split(QLatin1Char('/'))) {
        step += QLatin1Char('/') + part;
        if (QFileInfo(step).isSymLink())
            return true;
    }
    return false;
}

bool AppInstaller::makeFolder(const QString &destination)
{
    QStringList missing;
    for (QFileInfo dir(QFileInfo(absolute(destination)).absolutePath());
         !dir.exists() && QDir::cleanPath(dir.absoluteFilePath()) != m_root;
         dir = QFileInfo(dir.absolutePath()))
        missing.prepend(dir.absoluteFilePath());
    if (missing.isEmpty())
        return true;
    if (!QDir().mkpath(missing.last())) {
        emit logLine(tr("Unable to create folder %1.").arg(QDir::toNativeSeparators(missing.last())));
        return false;
    }
    // Not yet a change that counts: a failed install removes them again.
    m_createdFolders << missing;
    return true;
}

void AppInstaller::installNext()
{
    if (m_cancel) {
        failInstall(QString());
        return;
    }
    if (m_index >= m_app.files.size()) {
        completeInstall();
        return;
    }
    const TxCatalogue::FileEntry &file = m_app.files.at(m_index);
    // An unsafe destination is left to the installer to refuse: no folder is made for it.
    if (ArchiveCheck::isSafeRelativePath(file.destination) && !leadsThroughLink(file.destination) &&
        !makeFolder(file.destination)) {
        failInstall(tr("Unable to create folder %1.")
                        .arg(QDir::toNativeSeparators(QFileInfo(absolute(file.destination)).absolutePath())));
        return;
    }
    m_installer->setForceRewrite(file.flags == TxCatalogue::FileFlag::ForceRewrite);
    m_installer->setFailBeforeReplace(m_index == m_failBeforeReplace);
    m_installer->install({file.url, file.hash, file.size, file.destination});
}

void AppInstaller::onFileFinished(FileInstaller::Result result, const QString &message)
{
    emit logLine(message);
    if (result == FileInstaller::Refused || result == FileInstaller::Failed) {
        failInstall(m_cancel ? QString() : message);
        return;
    }
    const TxCatalogue::FileEntry &file = m_app.files.at(m_index);
    AppManifest::File entry;
    entry.destination = file.destination;
    entry.sha1 = file.hash.trimmed().toLower();
    const int old = m_old.indexOf(file.destination);
    // A file the pilot already had, identical, stays the pilot's.
    entry.preexisting = result == FileInstaller::UpToDate && (old < 0 || m_old.files.at(old).preexisting);
    if (result == FileInstaller::Installed)
        m_driveChanged = true;
    const int known = m_new.indexOf(entry.destination);
    if (known >= 0)
        m_new.files[known] = entry;
    else
        m_new.files.append(entry);
    ++m_index;
    emit progressChanged(m_index * 100 / m_app.files.size());
    installNext();
}

void AppInstaller::completeInstall()
{
    bool ok = true;
    if (m_updating) {
        // What the installed version had and this one no longer lists.
        for (const AppManifest::File &f : qAsConst(m_old.files)) {
            if (m_new.indexOf(f.destination) >= 0)
                continue;
            if (f.preexisting) {
                continue;
            }
            if (removeFile(f) == Removal::Failed) {
                ok = false;
                m_new.files.append(f); // still the app's, still on the drive
            }
        }
        ok = removeResiduals() && ok;
    }
    m_new.installed = QDateTime::currentDateTimeUtc();
    m_new.complete = ok;
    QString error;
    if (!m_new.write(m_root, &error)) {
        emit logLine(error);
        failInstall(error);
        return;
    }
    m_driveChanged = true;
    if (!ok) {
        failInstall(tr("Files the new version no longer uses could not be removed."));
        return;
    }
    const QString done = tr("%1 has been successfully installed.").arg(m_app.name);
    emit logLine(done);
    emit status(done);
    emit progressChanged(100);
    m_succeeded = true;
    finish(true);
}

void AppInstaller::failInstall(const QString &reason)
{
    if (m_done)
        return;
    // The files written so far belong to the app: listed, so an uninstall or a new try finds them.
    bool wrote = false;
    for (const AppManifest::File &f : qAsConst(m_new.files))
        wrote = wrote || !f.preexisting;
    if (wrote) {
        AppManifest partial = m_new;
        for (const AppManifest::File &f : qAsConst(m_old.files)) {
            if (partial.indexOf(f.destination) < 0)
                partial.files.append(f);
        }
        partial.version = m_updating ? m_old.version : QString();
        partial.complete = false;
        partial.installed = QDateTime::currentDateTimeUtc();
        QString error;
        if (!partial.write(m_root, &error))
            emit logLine(error);
    }
    // Folders made for files that never came.
    for (int i = m_createdFolders.size() - 1; i >= 0; --i) {
        if (!isEmptyFolder(m_createdFolders.at(i)) || !QDir().rmdir(m_createdFolders.at(i)))
            m_driveChanged = true;
    }
    const QString failed = tr("Failed to install %1.").arg(m_app.name);
    emit logLine(m_cancel ? tr("Canceled.") : failed);
    emit status(m_cancel ? tr("Canceled.") : failed);
    if (!m_cancel)
        emit error(tr("Error"), reason.isEmpty() ? failed : failed + QLatin1Char('\n') + reason);
    finish(false);
}

AppInstaller::Removal AppInstaller::removeFile(const AppManifest::File &file)
{
    const QString path = absolute(file.destination);
    const QFileInfo info(path);
    if (!info.exists() && !info.isSymLink())
        return Removal::Absent;
    m_touchedFolders.insert(info.absolutePath());
    // A link on the way could lead the removal off the drive; the drive's own file system has none.
    if (leadsThroughLink(file.destination)) {
        m_kept << file.destination;
        emit logLine(tr("Kept \"%1\": it leads through a link.").arg(file.destination));
        return Removal::Kept;
    }
    if (!info.isFile() || !Sha1Check::fileMatches(path, file.sha1)) {
        m_kept << file.destination;
        emit logLine(tr("Kept \"%1\": it was changed on the transmitter after it was installed.")
                         .arg(file.destination));
        return Removal::Kept;
    }
    if (!QFile::remove(path)) {
        emit logLine(tr("Failed to remove file:") + QLatin1Char(' ') + QDir::toNativeSeparators(path));
        return Removal::Failed;
    }
    m_driveChanged = true;
    return Removal::Removed;
}

bool AppInstaller::isProtectedFolder(const QString &absolutePath) const
{
    const QString path = QDir::cleanPath(absolutePath);
    if (path.compare(m_root, Qt::CaseInsensitive) == 0 || !path.startsWith(m_root + QLatin1Char('/')))
        return true;
    return path.mid(m_root.size() + 1).compare(QLatin1String("Apps"), Qt::CaseInsensitive) == 0;
}

bool AppInstaller::removeResiduals()
{
    if (m_touchedFolders.isEmpty())
        return true;
    emit logLine(tr("Removing residuals..."));
    bool ok = true;
    // Deepest first, so a parent is looked at once its children are gone.
    QStringList folders = m_touchedFolders.values();
    std::sort(folders.begin(), folders.end(), [](const QString &a, const QString &b) {
        return a.count(QLatin1Char('/')) > b.count(QLatin1Char('/'));
    });
    for (QString folder : qAsConst(folders)) {
        while (!isProtectedFolder(folder) && QFileInfo(folder).isDir() && isEmptyFolder(folder)) {
            if (!QDir().rmdir(folder)) {
                emit logLine(tr("Failed to remove folder:") + QLatin1Char(' ') +
                             QDir::toNativeSeparators(folder));
                ok = false;
                break;
            }
            m_driveChanged = true;
            folder = QFileInfo(folder).absolutePath();
        }
    }
    m_touchedFolders.clear();
    return ok;
}

void AppInstaller::uninstall()
{
    emit status(tr("Removing: %1.").arg(m_app.name));
    emit logLine(tr("Uninstall: %1.").arg(m_app.name));
    emit progressChanged(0);
    const QString failed = tr("Failed to uninstall %1.").arg(m_app.name);
    AppManifest manifest;
    QString problem;
    if (!QFileInfo(m_root).isDir()) {
        problem = tr("The transmitter drive \"%1\" is not available.").arg(QDir::toNativeSeparators(m_root));
    } else if (AppManifest::read(m_root, m_app.id, &manifest, &problem)) {
        AppManifest left = manifest;
        left.files.clear();
        for (int i = 0; i < manifest.files.size(); ++i) {
            const AppManifest::File &f = manifest.files.at(i);
            if (f.preexisting) {
                emit logLine(tr("Kept \"%1\": it was on the transmitter before the app was installed.")
                                 .arg(f.destination));
            } else if (removeFile(f) == Removal::Failed) {
                left.files.append(f);
            }
            emit progressChanged((i + 1) * 100 / manifest.files.size());
        }
        const bool residualsOk = removeResiduals();
        if (left.files.isEmpty()) {
            if (!AppManifest::remove(m_root, m_app.id, &problem))
                problem = tr("Failed to remove file:") + QLatin1Char(' ') + problem;
        } else {
            // What could not be removed stays listed, for another try.
            left.complete = false;
            if (!left.write(m_root, &problem))
                emit logLine(problem);
            problem = tr("%n file(s) could not be removed.", nullptr, left.files.size());
        }
        if (problem.isEmpty() && !residualsOk)
            problem = tr("Some folders left empty could not be removed.");
        if (problem.isEmpty()) {
            const QString done = tr("%1 has been successfully uninstalled.").arg(m_app.name);
            emit logLine(done);
            emit status(done);
            emit progressChanged(100);
            m_succeeded = true;
            finish(true);
            return;
        }
    }
    emit logLine(problem);
    emit logLine(failed);
    emit status(failed);
    emit error(tr("Failed to remove app"), failed + QLatin1Char('\n') + problem);
    finish(false);
}

void AppInstaller::finish(bool ok)
{
    if (m_done)
        return;
    m_done = true;
    emit finished(ok);
}
