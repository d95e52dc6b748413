#pragma once

#include "link/DeviceDefinitions.h"

#include <QJsonObject>

// The readable JSON form of one device definition (described in link/definitions/README.md): read strictly,
// and written back in a normalised form that reads to the same definition.
class DeviceDefinitionSource
{
public:
    // False with "file: item: reason" on the first fault.
    static bool read(const QJsonObject &object, const QString &file, DeviceDefinition *definition,
                     QString *error);
    static QJsonObject write(const DeviceDefinition &definition);
    // The first key given twice in one object of a JSON text (the parser would silently keep one of the
    // two), with its line; empty when there is none. Meant for text that may not even be valid JSON.
    static QString duplicateKey(const QByteArray &json, int *line);
    // "0x0110": how register addresses and hardware values are written.
    static QString hexText(qint64 value, int digits);
};
