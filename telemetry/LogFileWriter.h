#pragma once

#include "telemetry/TelemetryDataPackage.h"

#include <QByteArray>
#include <QCoreApplication>

// Serialises a package as a native log. The same bytes go to files, to the database and to exports.
class LogFileWriter
{
    Q_DECLARE_TR_FUNCTIONS(LogFileWriter)
public:
    static QByteArray write(const TelemetryDataPackage &package);
    // The ten-character id field: low 16 bits then high 16 bits, five digits each.
    static QByteArray deviceIdField(quint32 id);
    // Writes the package to a file that appears only when complete; error names the file and the reason.
    static bool writeFile(const TelemetryDataPackage &package, const QString &path, QString *error);
    // A name typed without an extension gets ".log"; an empty name stays empty (a cancelled dialog).
    static QString withLogSuffix(const QString &path);
};
