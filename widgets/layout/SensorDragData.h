#pragma once

#include "telemetry/TelemetrySimplePair.h"

#include <QString>

class QMimeData;

// The drag payloads every data window accepts: one variable, or a GPS device whose position
// variables the receiver looks up in the telemetry store.
class SensorDragData
{
public:
    static QString sensorMimeType() { return QStringLiteral("application/x-vexostudiosensor"); }
    static QString gpsMimeType() { return QStringLiteral("application/x-vexostudio-gps"); }
    static QString jsonMimeType() { return QStringLiteral("text/json"); }

    // One variable: the application type for the widget windows and the JSON text for the QML ones
    // (also as plain text, so a drop into any text field shows what was dragged).
    static QMimeData *forVariable(const TelemetrySimplePair &variable);
    // A GPS device (the pair's param is 0: the device itself).
    static QMimeData *forGpsDevice(quint32 deviceId);

    // The variable a drop carries; false when it carries none.
    static bool variable(const QMimeData *data, TelemetrySimplePair *variable);
    // The GPS device a drop carries; false when it carries none.
    static bool gpsDevice(const QMimeData *data, quint32 *deviceId);
    // Parses the {"Sensor":id,"Param":n} text.
    static bool parseJsonText(const QByteArray &text, TelemetrySimplePair *pair);
};
