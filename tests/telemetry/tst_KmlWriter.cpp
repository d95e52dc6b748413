#include "telemetry/KmlWriter.h"
#include "tests/support/TestSamples.h"

#include <QtTest>

namespace {
// A GPS coordinate the way the devices send it: degrees above bit 16, thousandths of minutes below.
TelemetryValue coord(int degrees, int milliMinutes, quint32 flags, qint32 ts)
{
    return raw(9, flags, (degrees << 16) | milliMinutes, ts);
}

// A plain number with 7 decimals, for coordinates a device could not encode exactly.
TelemetryValue fixed7(qint32 value, qint32 ts)
{
    return raw(4, 7, value, ts);
}

TelemetryVar makeVar(quint32 param, const QString &label, const QString &unit,
                     const QVector<TelemetryValue> &values)
{
    TelemetryVar v(7, param, label, unit);
    v.values() = values;
    return v;
}

QStringList trackLines(const QVector<KmlWriter::Point> &points)
{
    // The track lines, through the document so the formatting is what is checked.
    const QString text = QString::fromUtf8(KmlWriter::document(points));
    const int from = text.indexOf(QLatin1String("<coordinates>\n")) + 14;
    const int to = text.indexOf(QLatin1String("     </coordinates>"));
    QStringList lines = text.mid(from, to - from).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    for (QString &line : lines) {
        if (!line.endsWith(QLatin1Char(' ')))
            return {QStringLiteral("line without its trailing blank: ") + line};
        line.chop(1);
    }
    return lines;
}
} // namespace

using Samples = QVector<TelemetryValue>;
Q_DECLARE_METATYPE(Samples)

class tst_KmlWriter : public QObject
{
    Q_OBJECT
private slots:
    void wholeDocument();
    void points_data();
    void points();
    void candidates_data();
    void candidates();
};

void tst_KmlWriter::wholeDocument()
{
    const TelemetryVar lat = makeVar(1, QStringLiteral("Latitude"), QStringLiteral("°"),
                                     {coord(50, 7500, 0, 1000), coord(50, 7560, 0, 2000)});
    const TelemetryVar lon = makeVar(2, QStringLiteral("Longitude"), QStringLiteral("°"),
                                     {coord(14, 25200, 1, 1000), coord(14, 25260, 1, 2000)});
    const TelemetryVar alt = makeVar(3, QStringLiteral("Altitude"), QStringLiteral("m"),
                                     {raw(1, 1, 3005, 500), raw(1, 1, 3100, 1500)});
    const QByteArray expected =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<kml xmlns=\"http://earth.google.com/kml/2.0\">\n"
        "  <Folder>   <Placemark>\n"
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
        "     <coordinates>\n"
        "14.4200000,50.1250000,300.5 \n"
        "14.4210000,50.1260000,310 \n"
        "     </coordinates>\n"
        "   </LineString>\n"
        " </Placemark>\n"
        "  <Placemark>\n"
        "    <name>Start</name>\n"
        "    <Style>\n"
        "      <IconStyle>\n"
        "        <Icon>\n"
        "          <href>http://maps.google.com/mapfiles/kml/paddle/go.png</href>\n"
        "        </Icon>\n"
        "      </IconStyle>\n"
        "    </Style>\n"
        "    <Point>\n"
        "      <altitudeMode>absolute</altitudeMode>\n"
        "      <coordinates>14.4200000,50.1250000,300.5</coordinates>\n"
        "    </Point>\n"
        "  </Placemark>\n"
        "  <Placemark>\n"
        "    <name>Landing</name>\n"
        "    <Style>\n"
        "      <IconStyle>\n"
        "        <Icon>\n"
        "          <href>http://maps.google.com/mapfiles/kml/paddle/red-square.png</href>\n"
        "        </Icon>\n"
        "      </IconStyle>\n"
        "    </Style>\n"
        "    <Point>\n"
        "      <altitudeMode>absolute</altitudeMode>\n"
        "      <coordinates>14.4210000,50.1260000,310</coordinates>\n"
        "    </Point>\n"
        "  </Placemark>\n"
        "  </Folder>\n"
        "</kml>\n";
    // Line by line, so a failure names the first differing line.
    QCOMPARE(KmlWriter::document(lat, lon, &alt).split('\n'), expected.split('\n'));
}

void tst_KmlWriter::points_data()
{
    QTest::addColumn<Samples>("lat");
    QTest::addColumn<Samples>("lon");
    QTest::addColumn<Samples>("alt");
    QTest::addColumn<bool>("withAltitude");
    QTest::addColumn<QStringList>("expected");

    const Samples lon75 = {raw(4, 1, 75, 0), raw(4, 1, 75, 10000)};
    QTest::newRow("7 decimals, kept and padded") << Samples{fixed7(501234567, 1000)} << lon75 << Samples()
                                                 << false << QStringList{"7.5000000,50.1234567,0"};
    QTest::newRow("latitude 0 is no fix") << Samples{fixed7(0, 1000), fixed7(501234567, 2000)} << lon75
                                          << Samples() << false << QStringList{"7.5000000,50.1234567,0"};
    QTest::newRow("longitude 0 is no fix")
        << Samples{fixed7(500000000, 1000), fixed7(500000000, 2000)}
        << Samples{raw(4, 0, 0, 0), raw(4, 0, 0, 1000), raw(4, 0, 10, 2000)} << Samples() << false
        << QStringList{"10.0000000,50.0000000,0"};
    QTest::newRow("longitude interpolated at the latitude's time")
        << Samples{fixed7(500000000, 500), fixed7(500000000, 1500)}
        << Samples{raw(4, 0, 10, 0), raw(4, 0, 20, 2000)} << Samples() << false
        << QStringList{"12.5000000,50.0000000,0", "17.5000000,50.0000000,0"};
    QTest::newRow("south and west from the sign flag")
        << Samples{coord(33, 30000, 2, 1000)} << Samples{coord(70, 15000, 3, 1000)} << Samples() << false
        << QStringList{"-70.2500000,-33.5000000,0"};
    QTest::newRow("altitude: last sample at or before, 0 before the first")
        << Samples{fixed7(500000000, 999), fixed7(500000000, 1000), fixed7(500000000, 1999),
                   fixed7(500000000, 2500)}
        << lon75 << Samples{raw(1, 0, 100, 1000), raw(1, 0, 200, 2000)} << true
        << QStringList{"7.5000000,50.0000000,0", "7.5000000,50.0000000,100", "7.5000000,50.0000000,100",
                       "7.5000000,50.0000000,200"};
    QTest::newRow("altitude in its shortest form")
        << Samples{fixed7(500000000, 1000), fixed7(500000000, 2000)} << lon75
        << Samples{raw(1, 1, 123, 0), raw(1, 2, -550, 2000)} << true
        << QStringList{"7.5000000,50.0000000,12.3", "7.5000000,50.0000000,-5.5"};
}

void tst_KmlWriter::points()
{
    QFETCH(Samples, lat);
    QFETCH(Samples, lon);
    QFETCH(Samples, alt);
    QFETCH(bool, withAltitude);
    QFETCH(QStringList, expected);

    const TelemetryVar latVar = makeVar(1, QStringLiteral("Latitude"), QString(), lat);
    const TelemetryVar lonVar = makeVar(2, QStringLiteral("Longitude"), QString(), lon);
    TelemetryVar altVar = makeVar(3, QStringLiteral("Altitude"), QStringLiteral("m"), alt);
    // A display unit chosen for the graphs must not turn the file's metres into feet.
    altVar.setUnitTarget(2);
    QCOMPARE(trackLines(KmlWriter::points(latVar, lonVar, withAltitude ? &altVar : nullptr)), expected);
}

void tst_KmlWriter::candidates_data()
{
    QTest::addColumn<quint32>("type");
    QTest::addColumn<quint32>("flags");
    QTest::addColumn<QString>("label");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<bool>("hasSamples");
    QTest::addColumn<bool>("latitude");
    QTest::addColumn<bool>("longitude");
    QTest::addColumn<bool>("altitude");

    const auto row = [](const char *name, quint32 type, quint32 flags, const char *label, const char *unit,
                        bool hasSamples, bool latitude, bool longitude, bool altitude) {
        QTest::newRow(name) << type << flags << QString::fromUtf8(label) << QString::fromUtf8(unit)
                            << hasSamples << latitude << longitude << altitude;
    };
    row("latitude: flag bit 0 clear", 9, 0, "Lat", "", true, true, false, false);
    row("longitude: flag bit 0 set", 9, 1, "Lon", "", true, false, true, false);
    row("a coordinate without samples is not known", 9, 0, "Lat", "", false, false, false, false);
    row("a number labelled latitude", 4, 0, "Latitude", "°", true, false, false, false);
    row("GPS Altitude in m", 1, 1, "GPS Altitude", "m", true, false, false, true);
    row("ALTITUDE, any case", 12, 1, "ALTITUDE", "m", true, false, false, true);
    row("Hoehe", 12, 1, "Hoehe", "m", true, false, false, true);
    row("Höhe is not matched", 12, 1, "Höhe", "m", true, false, false, false);
    row("Alt. baro", 12, 1, "Alt. baro", "m", true, false, false, true);
    row("Alt without the point", 12, 1, "Rel Alt", "m", true, false, false, false);
    row("unit must be exactly m", 12, 1, "Altitude", "m ", true, false, false, false);
}

void tst_KmlWriter::candidates()
{
    QFETCH(quint32, type);
    QFETCH(quint32, flags);
    QFETCH(QString, label);
    QFETCH(QString, unit);
    QFETCH(bool, hasSamples);
    QFETCH(bool, latitude);
    QFETCH(bool, longitude);
    QFETCH(bool, altitude);

    const TelemetryVar var =
        makeVar(1, label, unit, hasSamples ? Samples{raw(type, flags, 1, 0)} : Samples());
    QCOMPARE(KmlWriter::isLatitude(var), latitude);
    QCOMPARE(KmlWriter::isLongitude(var), longitude);
    QCOMPARE(KmlWriter::isAltitude(var), altitude);
}

QTEST_APPLESS_MAIN(tst_KmlWriter)
#include "tst_KmlWriter.moc"
