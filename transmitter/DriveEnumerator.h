#pragma once

#include <QByteArray>
#include <QMutex>
#include <QString>
#include <QStringList>

// Lists the mounted drives a transmitter can be: removable ones only, never fixed disks. Behind an
// interface so that tests and the detection can work on folders standing in for drives.
class DriveEnumerator
{
public:
    virtual ~DriveEnumerator() = default;
    // Root paths with "/" separators, without a trailing "/" (except "/" and "X:/").
    virtual QStringList removableRoots() = 0;

    static QString normalizedRoot(const QString &path);
};

// The system's removable volumes, plus folders named in VEXO_TX_ROOTS (list-separated: ":" here) or
// added with addRoot(), which count as removable drives while they exist.
class SystemDriveEnumerator : public DriveEnumerator
{
public:
    // The mount table and the block-device folder can be replaced by files of a test.
    explicit SystemDriveEnumerator(const QString &mountTable = QStringLiteral("/proc/self/mounts"),
                                   const QString &blockDevices = QStringLiteral("/sys/class/block"));

    QStringList removableRoots() override;
    // Thread-safe.
    void addRoot(const QString &path);

private:
    QStringList systemRoots();
    bool isRemovableDevice(const QString &device) const;

    QString m_mountTable;
    QString m_blockDevices;
    QMutex m_mutex;
    QStringList m_extraRoots;
    // The scan runs 40 times a second; the mount table rarely changes, so its verdict is kept.
    QByteArray m_lastTable;
    QStringList m_lastRoots;
};
