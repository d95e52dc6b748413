#pragma once

#include <QMetaType>
#include <QString>
#include <QVector>

// One detected HC/HS transmitter: a removable drive holding "Config/Config.jsn". The registry keys it
// by its root path (on Linux every root starts with "/", so the drive letter alone names nothing).
struct TransmitterInfo
{
    QString rootPath;     // "/" separators, no trailing "/" (except a bare "/")
    char driveLetter = 0; // the first character of rootPath
    quint16 hwId = 0;
    int versionMajor = 0;
    int versionMinor = 0;
    QString modelName;

    bool operator==(const TransmitterInfo &o) const
    {
        return rootPath == o.rootPath && hwId == o.hwId && versionMajor == o.versionMajor &&
               versionMinor == o.versionMinor && modelName == o.modelName;
    }
    bool operator!=(const TransmitterInfo &o) const { return !(*this == o); }
};
using TransmitterInfoVector = QVector<TransmitterInfo>;

Q_DECLARE_METATYPE(TransmitterInfo)
Q_DECLARE_METATYPE(TransmitterInfoVector)
