#include "tools/FileDownloader.h"

FileDownloader::FileDownloader(QObject *parent) : AbstractDownloader(parent)
{
    setMaxSize(DefaultMaxSize);
}

bool FileDownloader::beginDownload()
{
    m_data.clear();
    return true;
}

bool FileDownloader::consume(const char *data, qint64 size)
{
    m_data.append(data, int(size));
    return true;
}

void FileDownloader::discardDownload()
{
    m_data.clear();
}
