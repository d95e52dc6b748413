#include "transmitter/DriveEnumerator.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutexLocker>

#ifdef Q_OS_WIN
#include <windows.h>
#endif

namespace {
// Mount table fields escape blanks, tabs, newlines and backslashes as "\ooo".
QString unescapeField(const QByteArray &field)
{
    QByteArray out;
    out.reserve(field.size());
    for (int i = 0; i < field.size(); ++i) {
        if (field.at(i) == '\\' && i + 3 < field.size()) {
            const QByteArray digits = field.mid(i + 1, 3);
            bool ok = true;
            for (char c : digits)
                ok = ok && c >= '0' && c <= '7';
            if (ok) {
                out.append(char(digits.toInt(nullptr, 8)));
                i += 3;
                continue;
            }
        }
        out.append(field.at(i));
    }
    return QFile::decodeName(out);
}

#ifdef Q_OS_WIN
// Windows names its removable drives itself (type 2).
QStringList windowsRemovableRoots()
{
    QStringList roots;
    for (const QFileInfo &drive : QDir::drives()) {
        const QString native = QDir::toNativeSeparators(drive.absoluteFilePath());
        if (GetDriveTypeW(reinterpret_cast<const wchar_t *>(native.utf16())) == DRIVE_REMOVABLE)
            roots << DriveEnumerator::normalizedRoot(drive.absoluteFilePath());
    }
    return roots;
}
#endif
} // namespace

QString DriveEnumerator::normalizedRoot(const QString &path)
{
    if (path.isEmpty())
        return path;
    QString r = QDir::cleanPath(QDir::fromNativeSeparators(path));
    // A bare drive letter without its "/" would name the drive's current folder, not its root.
    if (r.size() == 2 && r.at(1) == QLatin1Char(':'))
        r += QLatin1Char('/');
    return r;
}

SystemDriveEnumerator::SystemDriveEnumerator(const QString &mountTable, const QString &blockDevices)
    : m_mountTable(mountTable), m_blockDevices(blockDevices)
{
    const QString extra = qEnvironmentVariable("VEXO_TX_ROOTS");
    for (const QString &root : extra.split(QDir::listSeparator(), Qt::SkipEmptyParts))
        addRoot(root);
}

void SystemDriveEnumerator::addRoot(const QString &path)
{
    const QString root = normalizedRoot(QFileInfo(path).absoluteFilePath());
    QMutexLocker lock(&m_mutex);
    if (!m_extraRoots.contains(root))
        m_extraRoots << root;
}

QStringList SystemDriveEnumerator::removableRoots()
{
    QStringList roots = systemRoots();
    QMutexLocker lock(&m_mutex);
    for (const QString &root : qAsConst(m_extraRoots)) {
        if (!roots.contains(root) && QFileInfo(root).isDir())
            roots << root;
    }
    return roots;
}

QStringList SystemDriveEnumerator::systemRoots()
{
#ifdef Q_OS_WIN
    return windowsRemovableRoots();
#else
    // The mount table is read directly: asking every volume for its size (as a volume listing does)
    // could hang on a dead network mount, and this runs on the serial thread.
    QFile f(m_mountTable);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    const QByteArray table = f.readAll();
    if (table == m_lastTable)
        return m_lastRoots;
    QStringList roots;
    for (const QByteArray &line : table.split('\n')) {
        const QList<QByteArray> fields = line.split(' ');
        if (fields.size() < 2 || !fields.at(0).startsWith("/dev/"))
            continue;
        const QString root = normalizedRoot(unescapeField(fields.at(1)));
        if (!roots.contains(root) && isRemovableDevice(unescapeField(fields.at(0))))
            roots << root;
    }
    m_lastTable = table;
    m_lastRoots = roots;
    return roots;
#endif
}

// Linux: the block device is removable (a card reader, a stick that says so) or hangs on a USB bus (a
// transmitter usually reports itself as a fixed disk). A partition asks its disk.
bool SystemDriveEnumerator::isRemovableDevice(const QString &device) const
{
    const QFileInfo node(device);
    const QString name = node.isSymLink() ? QFileInfo(node.symLinkTarget()).fileName() : node.fileName();
    if (name.isEmpty())
        return false;
    const QString sysPath = QFileInfo(m_blockDevices + QLatin1Char('/') + name).canonicalFilePath();
    if (sysPath.isEmpty())
        return false;
    if (sysPath.contains(QLatin1String("/usb")))
        return true;
    const QString disk = QFileInfo::exists(sysPath + QLatin1String("/partition"))
                             ? QFileInfo(sysPath).absolutePath()
                             : sysPath;
    QFile removable(disk + QLatin1String("/removable"));
    return removable.open(QIODevice::ReadOnly) && removable.read(16).trimmed() == "1";
}
