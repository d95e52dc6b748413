#pragma once

#include "telemetry/TelemetrySensor.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QVector>

// The flight path of a recording as a KML document: one track line and the "Start" and "Landing"
// pins. The studio's export dialog and `vexo-log kml` both write through here, so they give the same
// bytes.
class KmlWriter
{
    Q_DECLARE_TR_FUNCTIONS(KmlWriter)
public:
    // The KML 2.0 namespace: the document uses no element of a later version.
    static const char kNamespace[];
    // Pins of the public map icon set that globe viewers already know, so the file needs no images of
    // its own.
    static const char kStartIcon[];
    static const char kLandingIcon[];

    struct Point
    {
        double longitude = 0;
        double latitude = 0;
        double altitude = 0;
    };

    // One point per latitude sample with a fix; altitude is optional (null gives 0 everywhere).
    static QVector<Point> points(const TelemetryVar &latitude, const TelemetryVar &longitude,
                                 const TelemetryVar *altitude);
    // The whole document, UTF-8.
    static QByteArray document(const QVector<Point> &points);
    static QByteArray document(const TelemetryVar &latitude, const TelemetryVar &longitude,
                               const TelemetryVar *altitude);
    // Replaces path as a whole or leaves it untouched; false with the reason in error.
    static bool save(const QString &path, const QByteArray &document, QString *error);

    // What the export offers per coordinate: GPS coordinates by their latitude/longitude flag, and
    // altitudes by unit and label.
    static bool isLatitude(const TelemetryVar &var);
    static bool isLongitude(const TelemetryVar &var);
    static bool isAltitude(const TelemetryVar &var);
    // A device with both a latitude and a longitude variable.
    static bool hasGpsPosition(const TelemetrySensor &sensor);
};
