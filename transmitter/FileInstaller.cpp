#include "transmitter/FileInstaller.h"

#include "tools/SaveFileDownloader.h"
#include "tools/Sha1Check.h"
#include "transmitter/ArchiveCheck.h"

#include <QDir>
#include <QFileInfo>

// The downloader with the one extra failure point the tests need: between the verified download and the
// rename that would make it the file.
class InstallDownloader : public SaveFileDownloader
{
public:
    using SaveFileDownloader::SaveFileDownloader;
    bool failBeforeReplace = false;

protected:
    bool completeDownload() override
    {
        if (failBeforeReplace) {
            setError(tr("Unable to save output file '%1'.").arg(fileName()));
            return false;
        }
        return SaveFileDownloader::completeDownload();
    }
};

FileInstaller::FileInstaller(QObject *parent) : QObject(parent), m_downloader(new InstallDownloader(this))
{
    // finished() may cross threads and is watched by signal spies.
    qRegisterMetaType<FileInstaller::Result>("FileInstaller::Result");
    connect(m_downloader, &AbstractDownloader::finished, this, &FileInstaller::onDownloadFinished);
    connect(m_downloader, &AbstractDownloader::downloadProgress, this, &FileInstaller::downloadProgress);
}

FileInstaller::~FileInstaller() = default;

void FileInstaller::setDriveRoot(const QString &root)
{
    m_root = QDir::cleanPath(root);
}

void FileInstaller::setNetworkAccessManager(QNetworkAccessManager *network)
{
    m_downloader->setNetworkAccessManager(network);
}

void FileInstaller::setFailBeforeReplace(bool fail)
{
    m_downloader->failBeforeReplace = fail;
}

QString FileInstaller::destinationProblem() const
{
    QString why;
    if (!ArchiveCheck::isSafeRelativePath(m_item.destination, &why))
        return why;
    // A link on the drive could lead the write anywhere; the drive's own file system has none.
    QString path = m_root;
    for (const QString &part : m_item.destination.split(QLatin1Char('/'))) {
        path += QLatin1Char('/') + part;
        if (QFileInfo(path).isSymLink())
            return tr("\"%1\" leads through a link").arg(m_item.destination);
    }
    return {};
}

void FileInstaller::install(const Item &item)
{
    if (m_running)
        abort();
    ++m_generation;
    m_item = item;
    m_target.clear();
    m_aborted = false;
    m_running = true;
    const QString name = item.destination;

    if (!QFileInfo(m_root).isDir()) {
        finishLater(Failed, tr("The transmitter drive \"%1\" is not available.").arg(m_root));
        return;
    }
    const QString problem = destinationProblem();
    if (!problem.isEmpty()) {
        finishLater(Refused, tr("The file \"%1\" is not installed: %2.").arg(name, problem));
        return;
    }
    if (!Sha1Check::isValidHex(item.hash)) {
        finishLater(Refused,
                    tr("The file \"%1\" is not installed: it has no valid SHA1 to check it by.").arg(name));
        return;
    }
    m_target = m_root + QLatin1Char('/') + name;
    const QFileInfo target(m_target);
    if (target.isDir()) {
        finishLater(Failed,
                    tr("A folder with the same name as the file \"%1\" exist. This folder can't be removed "
                       "automatically. Please remove the folder manually and try again later.")
                        .arg(name));
        return;
    }
    const QString folder = target.absolutePath();
    if (!QDir().mkpath(folder)) {
        finishLater(Failed, tr("Can't create path \"%1\" on the device.").arg(folder));
        return;
    }
    if (!m_forceRewrite && target.isFile() && Sha1Check::fileMatches(m_target, item.hash)) {
        finishLater(UpToDate, tr("File \"%1\" already up-to-date and valid.").arg(name));
        return;
    }

    emit status(tr("Downloading \"%1\"").arg(name));
    m_downloader->setFileName(m_target);
    m_downloader->setExpectedSize(item.size >= 0 ? item.size : -1);
    m_downloader->setExpectedSha1(item.hash);
    m_downloader->download(item.url);
}

void FileInstaller::abort()
{
    if (!m_running)
        return;
    m_aborted = true;
    if (m_downloader->isRunning())
        m_downloader->abort();
}

void FileInstaller::onDownloadFinished(bool ok)
{
    if (!m_running)
        return;
    const QString name = m_item.destination;
    if (!ok) {
        if (m_downloader->hashMismatch()) {
            const QString text =
                m_hashText == AppManagerHashText
                    ? tr("File \"%1\" hash validation failed.").arg(name)
                    : tr("SHA1 for file \"%1\" does not match! Expected: %2, computed: %3")
                          .arg(name, m_item.hash.trimmed().toLower(), m_downloader->sha1Hex());
            finishLater(Failed, text);
        } else {
            finishLater(Failed, tr("Error downloading %1: %2").arg(name, m_downloader->errorString()));
        }
        return;
    }
    // Read back what the drive holds: a flaky card can store other bytes than it was given.
    QString error;
    const QString written = Sha1Check::fileHex(m_target, &error);
    if (!Sha1Check::matches(written, m_item.hash)) {
        const QString text = m_hashText == AppManagerHashText
                                 ? tr("File \"%1\" hash validation failed.").arg(name)
                                 : tr("SHA1 for file \"%1\" does not match! Expected: %2, computed: %3")
                                       .arg(name, m_item.hash.trimmed().toLower(), written);
        finishLater(Failed, text);
        return;
    }
    finishLater(Installed, tr("File \"%1\" installed.").arg(name));
}

void FileInstaller::finishLater(Result result, const QString &message)
{
    const quint64 generation = m_generation;
    QMetaObject::invokeMethod(
        this,
        [this, generation, result, message] {
            if (generation != m_generation || !m_running)
                return;
            m_running = false;
            emit finished(result, message);
        },
        Qt::QueuedConnection);
}
