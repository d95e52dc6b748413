#include "tools/SaveFileDownloader.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>

#ifdef Q_OS_WIN
#include <windows.h>
#else
#include <cstdio>
#include <unistd.h>
#endif

namespace {
// Replaces target by source in one step, so a reader sees the old file or the new one, never neither.
bool replaceFile(const QString &source, const QString &target)
{
#ifdef Q_OS_WIN
    return MoveFileExW(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(source).utf16()),
                       reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(target).utf16()),
                       MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
#else
    return std::rename(QFile::encodeName(source).constData(), QFile::encodeName(target).constData()) == 0;
#endif
}

// The data must be on the disk before the rename makes it the file: a power cut after the rename must
// not leave an empty file where the old one was.
bool syncToDisk(QFile &file)
{
#ifdef Q_OS_WIN
    return FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(file.handle()))) != 0;
#else
    return ::fsync(file.handle()) == 0;
#endif
}
} // namespace

SaveFileDownloader::SaveFileDownloader(QObject *parent) : AbstractDownloader(parent) {}

SaveFileDownloader::~SaveFileDownloader()
{
    abandonDownload();
}

void SaveFileDownloader::setFileName(const QString &finalPath)
{
    m_fileName = finalPath;
}

QString SaveFileDownloader::temporaryFileName() const
{
    return m_fileName + QLatin1String(".jsdownload");
}

bool SaveFileDownloader::beginDownload()
{
    if (m_fileName.isEmpty()) {
        setError(tr("Unable to save output file '%1'.").arg(m_fileName));
        return false;
    }
    m_file.close();
    QDir().mkpath(QFileInfo(m_fileName).absolutePath());
    m_file.setFileName(temporaryFileName());
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        qDebug() << "SaveFileDownloader:" << m_file.fileName() << m_file.errorString();
        setError(tr("Unable to save output file '%1'.").arg(m_fileName));
        return false;
    }
    return true;
}

bool SaveFileDownloader::consume(const char *data, qint64 size)
{
    if (m_file.write(data, size) == size)
        return true;
    qDebug() << "SaveFileDownloader:" << m_file.fileName() << m_file.errorString();
    setError(tr("Unable to save output file '%1'.").arg(m_fileName));
    return false;
}

bool SaveFileDownloader::completeDownload()
{
    const bool written = m_file.flush() && syncToDisk(m_file);
    m_file.close();
    if (!written || m_file.error() != QFileDevice::NoError) {
        qDebug() << "SaveFileDownloader:" << m_file.fileName() << m_file.errorString();
        setError(tr("Unable to save output file '%1'.").arg(m_fileName));
        return false;
    }
    if (!replaceFile(temporaryFileName(), m_fileName)) {
        qDebug("Unable to rename file '%s'!", qPrintable(temporaryFileName()));
        setError(tr("Unable to save output file '%1'.").arg(m_fileName));
        return false;
    }
    return true;
}

void SaveFileDownloader::discardDownload()
{
    if (m_file.fileName().isEmpty())
        return;
    m_file.close();
    QFile::remove(m_file.fileName());
}
