#include "transmitter/DriveFiles.h"

#include <QDir>
#include <QFile>
#include <QFileDevice>

#ifdef Q_OS_WIN
#include <io.h>
#include <windows.h>
#else
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>
#endif

namespace DriveFiles {

bool replace(const QString &from, const QString &to, QString *error)
{
#ifdef Q_OS_WIN
    if (MoveFileExW(reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(from).utf16()),
                    reinterpret_cast<const wchar_t *>(QDir::toNativeSeparators(to).utf16()),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return true;
    if (error)
        *error = qt_error_string(int(GetLastError()));
    return false;
#else
    if (std::rename(QFile::encodeName(from).constData(), QFile::encodeName(to).constData()) == 0)
        return true;
    if (error)
        *error = QString::fromLocal8Bit(std::strerror(errno));
    return false;
#endif
}

bool sync(QFileDevice *file)
{
    if (!file->flush())
        return false;
#ifdef Q_OS_WIN
    return FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(file->handle())));
#else
    return ::fsync(file->handle()) == 0;
#endif
}

} // namespace DriveFiles
