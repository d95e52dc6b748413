#include "tools/UpdateChecker.h"

#include "tools/FileDownloader.h"
#include "tools/SaveFileDownloader.h"
#include "tools/Sha1Check.h"

#include <QDebug>
#include <QDir>
#include <QDomDocument>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QThread>
#include <QVector>

#include <cstdio>

namespace {
// The document element's children in order; a document that does not parse has none.
QDomElement rootOf(const QByteArray &xml, QDomDocument &doc)
{
    // No DTD is honoured: a catalogue has no business declaring entities.
    if (xml.contains("<!DOCTYPE") || xml.contains("<!ENTITY"))
        return QDomElement();
    if (!doc.setContent(xml, false))
        return QDomElement();
    return doc.documentElement();
}
} // namespace

QString UpdateChecker::offeredVersion(const QByteArray &updateXml)
{
    QDomDocument doc;
    const QDomElement root = rootOf(updateXml, doc);
    for (QDomElement e = root.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
        if (e.tagName() != QLatin1String("PackageUpdate"))
            continue;
        const QDomElement version = e.firstChildElement(QStringLiteral("Version"));
        if (!version.isNull())
            return version.text().trimmed();
    }
    return QString();
}

UpdateChecker::DeviceCatalogue UpdateChecker::deviceCatalogue(const QByteArray &devUpdateXml)
{
    DeviceCatalogue c;
    QDomDocument doc;
    const QDomElement root = rootOf(devUpdateXml, doc);
    for (QDomElement e = root.firstChildElement(); !e.isNull(); e = e.nextSiblingElement()) {
        const QString tag = e.tagName();
        if (tag == QLatin1String("Date"))
            c.date = QDateTime::fromString(e.text().trimmed(), QLatin1String(kDateFormat));
        else if (tag == QLatin1String("Url"))
            c.url = e.text().trimmed();
        else if (tag == QLatin1String("SHA1"))
            c.sha1 = e.text().trimmed();
    }
    return c;
}

int UpdateChecker::compareVersions(const QString &a, const QString &b)
{
    const QStringList pa = a.trimmed().split(QLatin1Char('.'));
    const QStringList pb = b.trimmed().split(QLatin1Char('.'));
    for (int i = 0; i < qMax(pa.size(), pb.size()); ++i) {
        // A part that is not a number counts as 0, so garbage is never offered as newer.
        const qulonglong x = i < pa.size() ? pa.at(i).toULongLong() : 0;
        const qulonglong y = i < pb.size() ? pb.at(i).toULongLong() : 0;
        if (x != y)
            return x < y ? -1 : 1;
    }
    return 0;
}

bool UpdateChecker::needsDownload(const QString &localPath, const QDateTime &catalogueDate)
{
    const QFileInfo info(localPath);
    if (!info.exists())
        return true;
    return catalogueDate.isValid() && info.lastModified() < catalogueDate;
}

QUrl UpdateChecker::definitionsUrl(const QUrl &catalogueUrl, const QString &url)
{
    if (url.trimmed().isEmpty())
        return QUrl();
    const QUrl resolved = catalogueUrl.resolved(QUrl(url.trimmed()));
    const QString scheme = resolved.scheme().toLower();
    if (!resolved.isValid() || resolved.host().isEmpty() ||
        (scheme != QLatin1String("http") && scheme != QLatin1String("https")))
        return QUrl();
    if (catalogueUrl.scheme().toLower() == QLatin1String("https") && scheme != QLatin1String("https"))
        return QUrl();
    return resolved;
}

UpdateChecker::UpdateChecker(const QUrl &serviceFolder, const QString &dataFolder, QObject *parent)
    : QObject(parent), m_folder(serviceFolder), m_dataFolder(dataFolder)
{
}

UpdateChecker::~UpdateChecker() = default;

QString UpdateChecker::deviceUpdatesPath() const
{
    return QDir(m_dataFolder).filePath(QLatin1String(kDeviceUpdatesFile));
}

QString UpdateChecker::stagingPath() const
{
    // Verified here before it replaces the file in use.
    return deviceUpdatesPath() + QLatin1String(".new");
}

QNetworkAccessManager *UpdateChecker::network()
{
    // Made on first use so it belongs to the checker's thread.
    if (!m_network)
        m_network = new QNetworkAccessManager(this);
    return m_network;
}

void UpdateChecker::run()
{
    m_cancelled = false;
    if (!m_folder.isValid() || m_folder.isEmpty()) {
        emit checkFailed(tr("no update service is configured (set %1)")
                             .arg(QLatin1String(UpdateEndpoints::kUpdateUrlVariable)));
        emit done();
        return;
    }
    if (!m_catalogueDownload) {
        m_catalogueDownload = new FileDownloader(this);
        m_catalogueDownload->setNetworkAccessManager(network());
        m_catalogueDownload->setMaxSize(kMaxCatalogueBytes);
    }
    m_catalogueDownload->setSilenceLimit(m_silenceMs);
    if (!m_checkProgram) {
        checkDevices();
        return;
    }
    m_catalogueDownload->disconnect(this);
    connect(m_catalogueDownload, &AbstractDownloader::finished, this, [this](bool ok) {
        if (catalogueMissing(ok))
            return;
        qDebug() << "UpdateChecker: Downloaded Update.xml";
        const QString version = offeredVersion(m_catalogueDownload->data());
        if (version.isEmpty()) {
            emit checkFailed(tr("Update.xml offers no version"));
        } else {
            qDebug().noquote() << "UpdateChecker: Found version:" << version;
            emit programChecked(version, compareVersions(version, QLatin1String(kProgramVersion)) > 0);
        }
        checkDevices();
    });
    m_catalogueDownload->download(m_folder.resolved(QUrl(QStringLiteral("Update.xml"))));
}

bool UpdateChecker::catalogueMissing(bool ok)
{
    if (ok)
        return false;
    qDebug() << "UpdateChecker: Error" << m_catalogueDownload->errorString();
    if (!m_cancelled)
        emit checkFailed(m_catalogueDownload->errorString());
    emit done();
    return true;
}

void UpdateChecker::checkDevices()
{
    if (m_cancelled) {
        emit done();
        return;
    }
    const QUrl catalogueUrl = m_folder.resolved(QUrl(QStringLiteral("DevUpdate.xml")));
    m_catalogueDownload->disconnect(this);
    connect(m_catalogueDownload, &AbstractDownloader::finished, this, [this, catalogueUrl](bool ok) {
        if (catalogueMissing(ok))
            return;
        qDebug() << "UpdateChecker: Downloaded DevUpdate.xml";
        m_catalogue = deviceCatalogue(m_catalogueDownload->data());
        if (!m_catalogue.date.isValid()) {
            emit checkFailed(tr("DevUpdate.xml has no valid date"));
            emit done();
            return;
        }
        qDebug().noquote() << "UpdateChecker: Found device definition:"
                           << m_catalogue.date.toString(QLatin1String(kDateFormat));
        if (!needsDownload(deviceUpdatesPath(), m_catalogue.date)) {
            emit done();
            return;
        }
        m_definitionsUrl = definitionsUrl(catalogueUrl, m_catalogue.url);
        emit deviceUpdateAvailable(m_catalogue.date);
        if (m_autoDownload)
            downloadDeviceUpdates();
    });
    m_catalogueDownload->download(catalogueUrl);
}

void UpdateChecker::downloadDeviceUpdates()
{
    m_cancelled = false;
    m_retries = 0;
    if (!m_definitionsUrl.isValid()) {
        qDebug() << "UpdateDownload: Error"
                 << "refused address" << m_catalogue.url;
        emit checkFailed(tr("DevUpdate.xml names no usable address"));
        emit progress(-1);
        emit done();
        return;
    }
    if (!QDir().mkpath(m_dataFolder)) {
        qDebug() << "UpdateDownload: Error"
                 << "cannot create" << m_dataFolder;
        emit progress(-1);
        emit done();
        return;
    }
    startDefinitionsDownload();
}

void UpdateChecker::startDefinitionsDownload()
{
    if (!m_fileDownload) {
        m_fileDownload = new SaveFileDownloader(this);
        m_fileDownload->setNetworkAccessManager(network());
        m_fileDownload->setMaxSize(kMaxDefinitionsBytes);
        connect(m_fileDownload, &AbstractDownloader::finished, this, &UpdateChecker::definitionsDownloaded);
        connect(m_fileDownload, &AbstractDownloader::downloadProgress, this,
                [this](qint64 got, qint64 total) {
                    if (total > 0)
                        emit progress(int(qBound<qint64>(0, got * 99 / total, 99)));
                });
    }
    m_fileDownload->setSilenceLimit(m_silenceMs);
    m_fileDownload->setFileName(stagingPath());
    emit progress(0);
    m_fileDownload->download(m_definitionsUrl);
}

void UpdateChecker::definitionsDownloaded(bool ok)
{
    const QString staged = stagingPath();
    if (m_cancelled) {
        QFile::remove(staged);
        emit done();
        return;
    }
    if (!ok) {
        qDebug() << "UpdateDownload: Error" << m_fileDownload->errorString();
        QFile::remove(staged);
        emit progress(-1);
        emit done();
        return;
    }
    emit progress(100);
    QString readError;
    const QString hex = Sha1Check::fileHex(staged, &readError);
    if (hex.isEmpty())
        qDebug().noquote() << QStringLiteral("Device updates file \"") + staged +
                                  QStringLiteral("\" read error.");
    if (hex.isEmpty() || !Sha1Check::matches(hex, m_catalogue.sha1)) {
        qDebug() << "Downloaded device updates file hash does not match.";
        qDebug() << "Retry";
        ++m_retries;
        if (m_retries <= kMaxRetries) {
            startDefinitionsDownload();
            return;
        }
        QFile::remove(staged);
        emit progress(-1);
        emit done();
        return;
    }
    // Replaces the file in use in one step; a reader sees the old file or the new one.
    const QString target = deviceUpdatesPath();
    if (std::rename(QFile::encodeName(staged).constData(), QFile::encodeName(target).constData()) != 0) {
        qDebug("Unable to rename file '%s'!", qPrintable(staged));
        QFile::remove(staged);
        emit progress(-1);
        emit done();
        return;
    }
    // Dated as the catalogue, so the next check knows this file is current.
    QFile file(target);
    if (file.open(QIODevice::ReadWrite))
        file.setFileTime(m_catalogue.date, QFileDevice::FileModificationTime);
    emit done();
}

void UpdateChecker::cancel()
{
    m_cancelled = true;
    if (m_fileDownload && m_fileDownload->isRunning())
        m_fileDownload->abort();
    else if (m_catalogueDownload && m_catalogueDownload->isRunning())
        m_catalogueDownload->abort();
    else
        emit done();
}

UpdateCheckerThread::UpdateCheckerThread(UpdateChecker *checker, QObject *parent)
    : QObject(parent), m_thread(new QThread(this)), m_checker(checker)
{
    m_thread->setObjectName(QStringLiteral("UpdateChecker"));
    m_checker->moveToThread(m_thread);
    connect(m_thread, &QThread::started, m_checker, &UpdateChecker::run);
    connect(m_checker, &UpdateChecker::done, m_thread, &QThread::quit);
    connect(m_thread, &QThread::finished, m_checker, &QObject::deleteLater);
}

UpdateCheckerThread::~UpdateCheckerThread()
{
    stop();
}

void UpdateCheckerThread::start()
{
    m_thread->start();
}

bool UpdateCheckerThread::isRunning() const
{
    return m_thread->isRunning();
}

void UpdateCheckerThread::stop()
{
    if (!m_thread->isRunning())
        return;
    if (m_checker)
        QMetaObject::invokeMethod(m_checker, &UpdateChecker::cancel, Qt::QueuedConnection);
    m_thread->quit();
    if (!m_thread->wait(kStopWaitMs)) {
        qDebug() << "Terminating update checker!";
        m_thread->terminate();
        m_thread->wait();
    }
}
