#pragma once

#include "link/TransmitterInfo.h"

#include <QString>

// Reads "Config/Config.jsn" below a drive root: "version" ("4.22") split at "." into major and minor,
// "hw" kept as 16 bits, the model name from the model table. A missing, unreadable, oversized or
// damaged file, or one without "hw", is not a transmitter.
namespace TransmitterConfig {

constexpr qint64 kMaxConfigSize = 64 * 1024;

bool read(const QString &root, TransmitterInfo *info, QString *error = nullptr);
// The fields of the file's bytes, without rootPath and driveLetter.
bool parse(const QByteArray &data, TransmitterInfo *info, QString *error = nullptr);
// root + "/Config/Config.jsn".
QString path(const QString &root);

} // namespace TransmitterConfig
