#include "transmitter/UpdateWorker.h"

#include "tools/SaveFileDownloader.h"
#include "tools/Sha1Check.h"
#include "transmitter/ArchiveCheck.h"
#include "transmitter/FileInstaller.h"
#include "transmitter/WorkerText.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QNetworkAccessManager>

UpdateWorker::UpdateWorker(const Request &request, QObject *parent) : QObject(parent), m_request(request)
{
    qRegisterMetaType<UpdateWorker::ErrorType>("UpdateWorker::ErrorType");
}

UpdateWorker::~UpdateWorker() = default;

QString UpdateWorker::downloadPath(const QString &dataFolder, int updateId,
                                   const TxCatalogue::FileEntry &file)
{
    return QDir(dataFolder)
        .filePath(QStringLiteral("Downloads/%1/%2")
                      .arg(updateId)
                      .arg(file.destination.section(QLatin1Char('/'), -1)));
}

QVector<TxCatalogue::FileEntry> UpdateWorker::defaultSelection(const QVector<TxCatalogue::FileEntry> &files)
{
    QVector<TxCatalogue::FileEntry> chosen;
    for (const TxCatalogue::FileEntry &file : files) {
        if (file.flags != TxCatalogue::FileFlag::OptionalUnchecked)
            chosen << file;
    }
    return chosen;
}

QString UpdateWorker::problemOf(const TxCatalogue::FileEntry &file)
{
    QString why;
    if (!ArchiveCheck::isSafeRelativePath(file.destination, &why))
        return tr("The file \"%1\" is not installed: %2.").arg(file.destination, why);
    if (!Sha1Check::isValidHex(file.hash))
        return tr("The file \"%1\" is not installed: it has no valid SHA1 to check it by.")
            .arg(file.destination);
    return {};
}

void UpdateWorker::cancel()
{
    m_cancel = true;
    // The running download belongs to the worker's thread: it is stopped there.
    QMetaObject::invokeMethod(
        this, [this] { abortRunning(); }, Qt::QueuedConnection);
}

void UpdateWorker::abortRunning()
{
    if (m_installer && m_installer->isRunning())
        m_installer->abort();
    if (m_downloader && m_downloader->isRunning())
        m_downloader->abort();
}

void UpdateWorker::doWork()
{
    m_summary = {};
    const auto fail = [this](ErrorType type, const QString &text) {
        emit error(type, text);
        emit finished();
    };
    const QString canceled = tr("Update canceled.");
    const QString root = QDir::cleanPath(m_request.root);
    if (!QFileInfo(root).isDir())
        return fail(
            DriveError,
            WorkerText::withDetail(
                tr("Updater error."),
                tr("The transmitter drive \"%1\" is not available.").arg(QDir::toNativeSeparators(root))));

    // Made here so that they live on the worker's thread.
    QNetworkAccessManager network;
    FileInstaller installer;
    installer.setDriveRoot(root);
    installer.setNetworkAccessManager(&network);
    installer.setHashText(FileInstaller::UpdaterHashText);
    connect(&installer, &FileInstaller::status, this, &UpdateWorker::processedFile);
    SaveFileDownloader downloader;
    downloader.setNetworkAccessManager(&network);
    m_installer = &installer;
    m_downloader = &downloader;
    struct Detach
    {
        UpdateWorker *w;
        ~Detach() { w->m_installer = nullptr, w->m_downloader = nullptr; }
    } detach{this};

    // A list that names one unusable file is not trusted with the others: it is refused before anything
    // is fetched or written.
    const QVector<TxCatalogue::FileEntry> &files = m_request.files;
    for (const TxCatalogue::FileEntry &file : files) {
        const QString problem = problemOf(file);
        if (!problem.isEmpty())
            return fail(InstallError,
                        WorkerText::withDetail(
                            tr("Updater error."),
                            tr("The update was refused before anything was written. %1").arg(problem)));
    }
    for (int i = 0; i < files.size(); ++i) {
        if (m_cancel)
            return fail(Canceled, canceled);
        QString message;
        const bool ok = files.at(i).flags == TxCatalogue::FileFlag::DownloadOnly
                            ? downloadOne(files.at(i), &message)
                            : installOne(files.at(i), &message);
        if (m_cancel)
            return fail(Canceled, canceled);
        if (!ok)
            return fail(InstallError, WorkerText::withDetail(tr("Updater error."), message));
        emit processedFile(message);
        emit progressChanged((i + 1) * 100 / files.size());
    }
    emit progressChanged(100);
    emit finished();
}

bool UpdateWorker::installOne(const TxCatalogue::FileEntry &file, QString *message)
{
    FileInstaller::Result result = FileInstaller::Failed;
    QEventLoop loop;
    const auto c = connect(m_installer, &FileInstaller::finished, &loop,
                           [&](FileInstaller::Result r, const QString &text) {
                               result = r;
                               *message = text;
                               loop.quit();
                           });
    m_installer->setForceRewrite(file.flags == TxCatalogue::FileFlag::ForceRewrite);
    m_installer->install({file.url, file.hash, file.size, file.destination});
    loop.exec();
    disconnect(c);
    if (result == FileInstaller::Installed)
        ++m_summary.installed;
    else if (result == FileInstaller::UpToDate)
        ++m_summary.upToDate;
    return result == FileInstaller::Installed || result == FileInstaller::UpToDate;
}

bool UpdateWorker::downloadOne(const TxCatalogue::FileEntry &file, QString *message)
{
    // problemOf() has checked the name, which becomes a file in the data folder.
    const QString target = downloadPath(m_request.dataFolder, m_request.updateId, file);
    if (QFileInfo(target).isDir()) {
        *message = tr("A folder with the same name as the file \"%1\" exist. This folder can't be removed "
                      "automatically. Please remove the folder manually and try again later.")
                       .arg(QDir::toNativeSeparators(target));
        return false;
    }
    if (!QDir().mkpath(QFileInfo(target).absolutePath())) {
        *message = tr("Can't create the folder \"%1\".")
                       .arg(QDir::toNativeSeparators(QFileInfo(target).absolutePath()));
        return false;
    }
    if (QFileInfo(target).isFile() && Sha1Check::fileMatches(target, file.hash)) {
        ++m_summary.upToDate;
        *message = tr("File \"%1\" already up-to-date and valid.").arg(QDir::toNativeSeparators(target));
        return true;
    }
    emit processedFile(tr("Downloading \"%1\"").arg(file.destination));
    m_downloader->setFileName(target);
    m_downloader->setExpectedSize(file.size >= 0 ? file.size : -1);
    m_downloader->setExpectedSha1(file.hash);
    if (!m_downloader->downloadAndWait(file.url)) {
        *message = m_downloader->hashMismatch()
                       ? tr("SHA1 for file \"%1\" does not match! Expected: %2, computed: %3")
                             .arg(file.destination, file.hash.trimmed().toLower(), m_downloader->sha1Hex())
                       : tr("Error downloading %1: %2").arg(file.destination, m_downloader->errorString());
        return false;
    }
    ++m_summary.downloaded;
    *message = tr("File \"%1\" saved as \"%2\" (not written to the transmitter).")
                   .arg(file.destination, QDir::toNativeSeparators(target));
    return true;
}
