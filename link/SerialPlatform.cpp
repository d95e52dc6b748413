#include "link/SerialPlatform.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSerialPortInfo>

#ifndef Q_OS_WIN
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

bool SerialPlatform::portExists(const QString &name)
{
    if (name.isEmpty())
        return false;
    if (name.contains(QLatin1Char('/')))
        return QFileInfo::exists(name);
    for (const QSerialPortInfo &info : QSerialPortInfo::availablePorts()) {
        if (info.portName() == name || info.systemLocation() == name)
            return true;
    }
    return false;
}

QList<SerialPlatform::PortInfo> SerialPlatform::availablePorts()
{
    QList<PortInfo> ports;
    for (const QSerialPortInfo &info : QSerialPortInfo::availablePorts()) {
        PortInfo port;
        port.location = info.systemLocation();
        port.name = info.portName();
        port.description = info.description();
        port.hasUsbIds = info.hasVendorIdentifier() && info.hasProductIdentifier();
        port.vendor = info.vendorIdentifier();
        port.product = info.productIdentifier();
        ports << port;
    }
    return ports;
}

QString SerialPlatform::permissionHint(const QString &name)
{
#ifdef Q_OS_WIN
    Q_UNUSED(name);
    return QString(); // Windows has no per-group device permissions
#else
    const QString path = name.contains(QLatin1Char('/')) ? name : QStringLiteral("/dev/") + name;
    // Refused although the user may read and write it: another program holds the port locked.
    if (::access(QFile::encodeName(path).constData(), R_OK | W_OK) == 0)
        return QCoreApplication::translate("SerialPortWrapper",
                                           "%1 is in use by another program (the studio or vexo-log); close "
                                           "the port there first.")
            .arg(path);
    struct stat st;
    QString group = QStringLiteral("dialout");
    if (::stat(QFile::encodeName(path).constData(), &st) == 0) {
        if (const struct group *g = ::getgrgid(st.st_gid))
            group = QString::fromLocal8Bit(g->gr_name);
    }
    return QCoreApplication::translate(
               "SerialPortWrapper", "Permission denied: %1 belongs to the group \"%2\". Add your user to it "
                                    "(sudo usermod -aG %2 $USER) and log in again.")
        .arg(path, group);
#endif
}
