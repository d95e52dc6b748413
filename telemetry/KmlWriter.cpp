#include "telemetry/KmlWriter.h"
#include "telemetry/AtomicFile.h"

#include <QFileInfo>
#include <QLocale>
#include <QSaveFile>

#include <cmath>

const char KmlWriter::kNamespace[] = "http://earth.google.com/kml/2.0";
const char KmlWriter::kStartIcon[] = "http://maps.google.com/mapfiles/kml/paddle/go.png";
const char KmlWriter::kLandingIcon[] = "http://maps.google.com/mapfiles/kml/paddle/red-square.png";

namespace {
// Bit 0 of a coordinate's flags tells latitude (clear) from longitude (set).
constexpr quint32 kLongitudeFlag = 1;

bool isCoordinate(const TelemetryVar &var, bool longitude)
{
    if (var.values().isEmpty())
        return false;
    const TelemetryValue &v = var.values().constFirst();
    return v.type == TelemetryTypes::GpsCoordinate && ((v.decimals & kLongitudeFlag) != 0) == longitude;
}

// Longitude and latitude to 7 decimals (about a centimetre); the altitude in the shortest form that
// reads back exactly, so 12.3 stays "12.3" and none is "0".
QString coordinateText(const KmlWriter::Point &p)
{
    return QStringLiteral("%1,%2,%3")
        .arg(p.longitude, 0, 'f', 7)
        .arg(p.latitude, 0, 'f', 7)
        .arg(QString::number(p.altitude, 'g', QLocale::FloatingPointShortest));
}

void appendPin(QString &out, const QString &name, const char *icon, const QString &coordinate)
{
    out += QLatin1String("  <Placemark>\n");
    out += QStringLiteral("    <name>%1</name>\n").arg(name);
    out += QLatin1String("    <Style>\n"
                         "      <IconStyle>\n"
                         "        <Icon>\n");
    out += QStringLiteral("          <href>%1</href>\n").arg(QLatin1String(icon));
    out += QLatin1String("        </Icon>\n"
                         "      </IconStyle>\n"
                         "    </Style>\n"
                         "    <Point>\n"
                         "      <altitudeMode>absolute</altitudeMode>\n"
                         "      <coordinates>");
    out += coordinate;
    out += QLatin1String("</coordinates>\n"
                         "    </Point>\n"
                         "  </Placemark>\n");
}
} // namespace

QVector<KmlWriter::Point> KmlWriter::points(const TelemetryVar &latitude, const TelemetryVar &longitude,
                                            const TelemetryVar *altitude)
{
    QVector<Point> result;
    const QVector<TelemetryValue> &lat = latitude.values();
    result.reserve(lat.size());
    int lonHint = 0;
    int altIndex = -1; // last altitude sample at or before the current time
    const QVector<TelemetryValue> *alt = altitude ? &altitude->values() : nullptr;
    for (const TelemetryValue &sample : lat) {
        Point p;
        p.latitude = sample.toNumber();
        p.longitude = longitude.valueAtTime(sample.timestamp / 1000.0, TelemetryVar::Linear, &lonHint);
        // Zero means the receiver had no fix yet; no longitude at all is no position either.
        if (p.latitude == 0.0 || p.longitude == 0.0 || std::isnan(p.longitude))
            continue;
        if (alt) {
            while (altIndex + 1 < alt->size() && alt->at(altIndex + 1).timestamp <= sample.timestamp)
                ++altIndex;
            // Raw metres: a display unit chosen for the graph must not change the file.
            p.altitude = altIndex >= 0 ? alt->at(altIndex).toNumber() : 0.0;
        }
        result.append(p);
    }
    return result;
}

QByteArray KmlWriter::document(const QVector<Point> &points)
{
    QString out;
    out.reserve(1024 + points.size() * 40);
    out += QLatin1String("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
    out += QStringLiteral("<kml xmlns=\"%1\">\n").arg(QLatin1String(kNamespace));
    out += QLatin1String("  <Folder>");
    out += QLatin1String("   <Placemark>\n"
                         "     <name>GPS tracklog</name>\n"
                         "     <description></description>\n"
                         "     <visibility>1</visibility>\n"
                         "     <open>0</open>\n"
                         "     <Style>\n"
                         "       <LineStyle>\n"
                         "         <color>ff00a5ff</color>\n"
                         "         <width>3</width>\n"
                         "       </LineStyle>\n"
                         "     </Style>\n"
                         "     <LineString>\n"
                         "     <altitudeMode>absolute</altitudeMode>\n"
                         "     <coordinates>\n");
    for (const Point &p : points) {
        out += coordinateText(p);
        out += QLatin1String(" \n");
    }
    out += QLatin1String("     </coordinates>\n"
                         "   </LineString>\n"
                         " </Placemark>\n");
    const QString first = points.isEmpty() ? QString() : coordinateText(points.constFirst());
    const QString last = points.isEmpty() ? QString() : coordinateText(points.constLast());
    appendPin(out, QStringLiteral("Start"), kStartIcon, first);
    appendPin(out, QStringLiteral("Landing"), kLandingIcon, last);
    out += QLatin1String("  </Folder>\n"
                         "</kml>\n");
    return out.toUtf8();
}

QByteArray KmlWriter::document(const TelemetryVar &latitude, const TelemetryVar &longitude,
                               const TelemetryVar *altitude)
{
    return document(points(latitude, longitude, altitude));
}

bool KmlWriter::save(const QString &path, const QByteArray &document, QString *error)
{
    auto fail = [&](const QString &reason) {
        if (error)
            *error = tr("%1: %2").arg(path, reason);
        return false;
    };
    if (QFileInfo(path).isDir())
        return fail(tr("is a folder"));
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return fail(tr("cannot write: %1").arg(file.errorString()));
    if (file.write(document) != document.size() || !AtomicFile::commit(file))
        return fail(tr("cannot write: %1").arg(file.errorString()));
    return true;
}

bool KmlWriter::isLatitude(const TelemetryVar &var)
{
    return isCoordinate(var, false);
}

bool KmlWriter::isLongitude(const TelemetryVar &var)
{
    return isCoordinate(var, true);
}

bool KmlWriter::isAltitude(const TelemetryVar &var)
{
    if (var.unit() != QLatin1String("m"))
        return false;
    // The label forms the devices use in their languages; accented spellings are deliberately not
    // matched, devices send the plain forms.
    static const char *const kForms[] = {"alti", "hoehe", "vyska", "alt."};
    for (const char *form : kForms) {
        if (var.label().contains(QLatin1String(form), Qt::CaseInsensitive))
            return true;
    }
    return false;
}

bool KmlWriter::hasGpsPosition(const TelemetrySensor &sensor)
{
    bool lat = false;
    bool lon = false;
    for (const TelemetryVar &v : sensor.vars()) {
        lat = lat || isLatitude(v);
        lon = lon || isLongitude(v);
    }
    return lat && lon;
}
