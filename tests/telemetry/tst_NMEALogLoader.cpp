#include "telemetry/MemorySensorTable.h"
#include "telemetry/NMEALogLoader.h"
#include "telemetry/NmeaInfoSourceLoader.h"

#include <QBuffer>
#include <QFile>
#include <QSet>
#include <QtTest>

namespace {
using P = NMEALogLoader::Param;

// "$<body>*hh\r\n" with the right checksum.
QByteArray s(const QByteArray &body)
{
    quint8 sum = 0;
    for (const char c : body)
        sum ^= quint8(c);
    return "$" + body + "*" + QByteArray::number(sum, 16).rightJustified(2, '0').toUpper() + "\r\n";
}

struct Loaded
{
    bool ok = false;
    QString error;
    TelemetryDataPackage package;
    int noFix = 0;
    int backward = 0;
    LogReadReport report;
};

Loaded load(const QByteArray &bytes, SensorTable *sensors = nullptr)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    NMEALogLoader loader(sensors);
    Loaded r;
    r.ok = loader.load(&buffer, &r.package);
    r.error = loader.lastError();
    r.noFix = loader.noFixEpochs();
    r.backward = loader.backwardEpochs();
    r.report = loader.readReport();
    return r;
}

const TelemetryVar *var(const TelemetryDataPackage &p, quint32 param)
{
    const TelemetrySensor *d = p.device(NMEALogLoader::kDeviceId);
    return d ? d->var(param) : nullptr;
}

int count(const TelemetryDataPackage &p, quint32 param)
{
    const TelemetryVar *v = var(p, param);
    return v ? v->count() : -1;
}

QVector<qint32> timestamps(const TelemetryDataPackage &p, quint32 param)
{
    QVector<qint32> t;
    if (const TelemetryVar *v = var(p, param))
        for (const TelemetryValue &x : v->values())
            t.append(x.timestamp);
    return t;
}

QDate dateOf(const TelemetryValue &v)
{
    const quint32 x = quint32(v.value);
    return QDate(2000 + int(x & 0xFF), int((x >> 8) & 0xFF), int((x >> 16) & 0x1F));
}

bool checksumOk(const QByteArray &sentence)
{
    const int star = sentence.indexOf('*');
    if (!sentence.startsWith('$') || star < 0 || star + 2 >= sentence.size())
        return false;
    quint8 sum = 0;
    for (int i = 1; i < star; ++i)
        sum ^= quint8(sentence.at(i));
    bool ok = false;
    return sentence.mid(star + 1, 2).toUInt(&ok, 16) == sum && ok;
}

// Seconds of the day that a capture marks as "no fix" (RMC V, GGA quality 0, GLL V) and never as a fix:
// read independently of the reader, with a plain split.
QSet<int> noFixSeconds(const QByteArray &capture)
{
    QSet<int> noFix;
    QSet<int> fix;
    for (const QByteArray &line : capture.split('\n')) {
        for (QByteArray piece : line.split('$')) {
            piece = "$" + piece.trimmed();
            if (!checksumOk(piece))
                continue;
            const QList<QByteArray> f = piece.left(piece.indexOf('*')).split(',');
            const QByteArray type = f.at(0).right(3);
            const QByteArray time = type == "GLL" ? f.value(5) : f.value(1);
            if (time.size() < 6 || (type != "RMC" && type != "GGA" && type != "GLL"))
                continue;
            const int sec =
                time.left(2).toInt() * 3600 + time.mid(2, 2).toInt() * 60 + time.mid(4, 2).toInt();
            const bool bad = (type == "RMC" && f.value(2) != "A") ||
                             (type == "GGA" && f.value(6).toInt() == 0) ||
                             (type == "GLL" && f.value(6) == "V");
            (bad ? noFix : fix).insert(sec);
        }
    }
    return noFix - fix;
}

QByteArray readData(const QString &name)
{
    QFile f(QStringLiteral(VEXO_TEST_DATA_DIR "/nmea/") + name);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}
} // namespace

class tst_NMEALogLoader : public QObject
{
    Q_OBJECT
private slots:
    void realCaptures_data();
    void realCaptures();
    void fixRules_data();
    void fixRules();
    void onlyInvalidFixesYieldNoSamples();
    void coordinateEncoding_data();
    void coordinateEncoding();
    void variablesForMapAndKml();
    void optionalVariablesOnlyWhenCarried();
    void epochMergesSentences();
    void timeLine_data();
    void timeLine();
    void twoDigitYears_data();
    void twoDigitYears();
    void recordingDateIsFirstFix();
    void junkIsSkipped_data();
    void junkIsSkipped();
    void notNmeaIsAnError_data();
    void notNmeaIsAnError();
};

void tst_NMEALogLoader::realCaptures_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("fixes");
    QTest::addColumn<int>("durationMs");
    QTest::addColumn<double>("lat");
    QTest::addColumn<double>("lon");
    QTest::addColumn<int>("year"); // 0: the capture carries no date
    // Fix counts, first positions and durations worked out by hand from the sentences.
    QTest::newRow("Garmin GPSmap 76S, simulator, every RMC V")
        << "gpsd-GPSmap-76S.nmea" << 0 << 0 << 0.0 << 0.0 << 0;
    QTest::newRow("SiRF BeiDou") << "gpsd-beidou-gb.nmea" << 2 << 1000 << 31.24798 << 121.58740 << 2015;
    QTest::newRow("BU-353 GLONASS") << "gpsd-bu353-glonass.nmea" << 9 << 8000 << 55.68659 << 37.62145 << 2014;
    QTest::newRow("ET-332, escapes in a checksum")
        << "gpsd-et-332.nmea" << 19 << 18000 << 39.67831 << -75.74893 << 2010;
    QTest::newRow("Garmin 17N") << "gpsd-garmin17n.nmea" << 2 << 1000 << 52.21907 << 21.01085 << 2005;
    QTest::newRow("Garmin 25LP, no-fix start")
        << "gpsd-garmin25lp.nmea" << 10 << 9000 << 42.35645 << 13.36800 << 2005;
    QTest::newRow("GPS-320FW after week roll-over")
        << "gpsd-gp-320fw-2019-04-06-overflow.nmea" << 21 << 20000 << 48.14996 << 11.58467 << 2019;
    QTest::newRow("GPS-320FW cold boot, garbage dates")
        << "gpsd-gp-320fw-2019-04-07-coldboot.nmea" << 2 << 2000 << 48.14999 << 11.58466 << 2019;
    QTest::newRow("Haicom, south and east")
        << "gpsd-haicom-305N.nmea" << 68 << 70985 << -27.21087 << 153.05233 << 2007;
    QTest::newRow("Hemisphere, date from ZDA only")
        << "gpsd-hemi.nmea" << 21 << 10000 << 42.36373 << -71.03235 << 2018;
    QTest::newRow("Magellan, RMC only")
        << "gpsd-magellan-ec10.nmea" << 21 << 40000 << 44.09260 << -121.30663 << 2005;
    QTest::newRow("MR-350P, no RMC") << "gpsd-mr-350p.nmea" << 14 << 13000 << 47.74496 << -122.11213 << 2012;
    QTest::newRow("MT3301, 90N and 1980 while V")
        << "gpsd-mtk-3301.nmea" << 4 << 3000 << 52.21637 << 6.88502 << 2008;
    QTest::newRow("NEO-M8N") << "gpsd-neo-m8n.nmea" << 24 << 23000 << 44.06901 << -121.31425 << 2015;
    QTest::newRow("PolaRx2, 2D fix") << "gpsd-polarx2.nmea" << 5 << 4000 << 38.73734 << -9.14064 << 2012;
    QTest::newRow("Saab R4, AIS mixed in")
        << "gpsd-saab-r4.nmea" << 12 << 11000 << 50.21318 << -8.11466 << 2011;
    QTest::newRow("SkyTraq DGPS") << "gpsd-skytraq-dgps.nmea" << 96 << 95000 << 44.06883 << -121.31448
                                  << 2016;
    // One of its 187 fixes is dropped: its time goes 0.3 s back.
    QTest::newRow("Telit HE910") << "gpsd-telit-he910.nmea" << 186 << 185698 << 50.84020 << 4.34711 << 2019;
    QTest::newRow("u-blox 8, binary bytes")
        << "gpsd-ublox-8.nmea" << 72 << 71000 << 44.06890 << -121.31427 << 2017;
    QTest::newRow("ZED-F9P, south and east")
        << "gpsd-ublox-zed-f9p-nmea.nmea" << 29 << 28000 << -45.87757 << 170.50011 << 2019;
    QTest::newRow("u-blox 7, corrupted talker")
        << "pynmeagps-pygpsdata-BADHDR.nmea" << 2 << 1000 << 53.45067 << -2.24026 << 2021;
    QTest::newRow("UBX glued to NMEA")
        << "pynmeagps-pygpsdata-mixed.nmea" << 2 << 1000 << 53.45059 << -2.24037 << 0;
    QTest::newRow("empty start-up sentences")
        << "pynmeagps-pygpsdata-nmeastartup.nmea" << 0 << 0 << 0.0 << 0.0 << 0;
    QTest::newRow("long clean capture, CRLF")
        << "signalk-gps.nmea" << 1202 << 1201000 << 52.37203 << 4.90963 << 2014;
    QTest::newRow("AIS transponder") << "signalk-nais300-merrimac.nmea" << 10 << 9000 << 53.18022 << 5.42840
                                     << 2012;
}

void tst_NMEALogLoader::realCaptures()
{
    QFETCH(QString, file);
    QFETCH(int, fixes);
    QFETCH(int, durationMs);
    QFETCH(double, lat);
    QFETCH(double, lon);
    QFETCH(int, year);
    const QByteArray capture = readData(file);
    QVERIFY2(!capture.isEmpty(), qPrintable(file));
    const Loaded r = load(capture);
    QVERIFY2(r.ok, qPrintable(r.error));
    // Damage in these captures, seen by eye: terminal escapes and status text, garbage after a cold
    // boot, proprietary sentences without a checksum, a sentence cut off, a broken talker, binary frames.
    // The others read whole.
    const QStringList damaged = {
        "gpsd-et-332.nmea",  "gpsd-gp-320fw-2019-04-07-coldboot.nmea", "gpsd-mtk-3301.nmea",
        "gpsd-ublox-8.nmea", "pynmeagps-pygpsdata-BADHDR.nmea",        "pynmeagps-pygpsdata-mixed.nmea"};
    QCOMPARE(r.report.skippedLines > 0, damaged.contains(file));
    QVERIFY(!r.report.truncated);
    const TelemetryDataPackage &p = r.package;
    QCOMPARE(p.devices().size(), 1);
    QCOMPARE(count(p, P::Latitude), fixes);
    QCOMPARE(count(p, P::Longitude), fixes);
    QCOMPARE(count(p, P::Time), fixes);

    const QVector<qint32> ts = timestamps(p, P::Latitude);
    for (int i = 1; i < ts.size(); ++i)
        QVERIFY2(ts.at(i) > ts.at(i - 1), qPrintable(QStringLiteral("sample %1").arg(i)));
    if (fixes > 0) {
        QCOMPARE(ts.first(), NMEALogLoader::kFirstFixMs);
        QCOMPARE(ts.last() - ts.first(), durationMs);
        // Type 9 keeps a thousandth of a minute: under 2 m.
        QVERIFY(qAbs(var(p, P::Latitude)->values().first().toNumber() - lat) < 2e-5);
        QVERIFY(qAbs(var(p, P::Longitude)->values().first().toNumber() - lon) < 2e-5);
    }

    // No sample at a time the receiver marked as no fix only.
    const QSet<int> noFix = noFixSeconds(capture);
    for (const TelemetryValue &t : var(p, P::Time)->values())
        QVERIFY2(!noFix.contains(int(t.toNumber())), qPrintable(QString::number(t.toNumber())));

    // Dates: the capture's year, never 20YY for a 19YY or a date from before GPS.
    const TelemetryVar *dates = var(p, P::Date);
    if (year == 0) {
        QCOMPARE(dates->count(), 0);
        QVERIFY(!p.recordingDate().isValid());
    } else {
        QVERIFY(dates->count() > 0);
        for (const TelemetryValue &d : dates->values()) {
            QVERIFY(dateOf(d).isValid());
            QCOMPARE(int(quint32(d.value) & 0xFF), year % 100);
        }
        QCOMPARE(p.recordingDate().toUTC().date().year(), year);
    }
}

void tst_NMEALogLoader::fixRules_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("fixes");
    const QByteArray gga1 = s("GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
    const QByteArray gga0 = s("GPGGA,120000,4807.038,N,01131.000,E,0,00,,,M,,M,,");
    const QByteArray rmcA = s("GPRMC,120000,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");
    const QByteArray rmcV = s("GPRMC,120000,V,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");
    QTest::newRow("GGA quality 1") << gga1 << 1;
    QTest::newRow("GGA quality 0") << gga0 << 0;
    QTest::newRow("GGA quality empty") << s("GPGGA,120000,4807.038,N,01131.000,E,,08,0.9,545.4,M,,M,,") << 0;
    QTest::newRow("RMC A") << rmcA << 1;
    QTest::newRow("RMC V") << rmcV << 0;
    QTest::newRow("RMC A, mode N") << s("GPRMC,120000,A,4807.038,N,01131.000,E,0,0,230394,,,N") << 0;
    QTest::newRow("GGA 1 but RMC V in the same epoch") << gga1 + rmcV << 0;
    QTest::newRow("GSA no fix after GGA 1") << gga1 + s("GPGSA,A,1,,,,,,,,,,,,,,,") << 0;
    QTest::newRow("GSA 2D fix") << gga1 + s("GPGSA,A,2,04,05,09,,,,,,,,,,2.5,1.3,2.1") << 1;
    QTest::newRow("GSA per constellation, one with a fix")
        << gga1 + s("GNGSA,A,1,,,,,,,,,,,,,,,") + s("GNGSA,A,3,65,66,,,,,,,,,,,2.5,1.3,2.1") << 1;
    QTest::newRow("GLL A") << s("GPGLL,4807.038,N,01131.000,E,120000,A,A") << 1;
    QTest::newRow("GLL V") << s("GPGLL,4807.038,N,01131.000,E,120000,V,N") << 0;
    QTest::newRow("GGA 1 without a position") << s("GPGGA,120000,,,,,1,08,0.9,545.4,M,46.9,M,,") << 0;
    QTest::newRow("minutes past 59") << s("GPGGA,120000,4899.999,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,")
                                     << 0;
    QTest::newRow("latitude past 90") << s("GPRMC,120000,A,9160.000,N,01131.000,E,0,0,230394,,") << 0;
    QTest::newRow("GSA and VTG alone")
        << s("GPGSA,A,3,04,05,,,,,,,,,,,2.5,1.3,2.1") + s("GPVTG,054.7,T,,M,005.5,N,010.2,K") << 0;
}

void tst_NMEALogLoader::fixRules()
{
    QFETCH(QByteArray, input);
    QFETCH(int, fixes);
    const Loaded r = load(input);
    QVERIFY(r.ok);
    QCOMPARE(count(r.package, P::Latitude), fixes);
    QCOMPARE(count(r.package, P::Time), fixes);
}

void tst_NMEALogLoader::onlyInvalidFixesYieldNoSamples()
{
    QByteArray input;
    for (int i = 0; i < 5; ++i) {
        const QByteArray t = "12000" + QByteArray::number(i);
        input += s("GPRMC," + t + ",V,0000.0000,N,00000.0000,E,,,220899,,,N");
        input += s("GPGGA," + t + ",0000.0000,N,00000.0000,E,0,00,0.0,,M,,M,,");
        input += s("GPGSA,A,1,,,,,,,,,,,,,,,");
    }
    const Loaded r = load(input);
    QVERIFY(r.ok);
    QCOMPARE(r.package.sampleCount(), 0);
    QCOMPARE(r.noFix, 5);
    // The GPS device and its basic variables are there, empty: the file was a GPS recording.
    QCOMPARE(r.package.devices().size(), 1);
    QVERIFY(var(r.package, P::Latitude));
    QCOMPARE(r.package.firstTimestamp(), 0);
}

void tst_NMEALogLoader::coordinateEncoding_data()
{
    QTest::addColumn<QByteArray>("lat");
    QTest::addColumn<QByteArray>("lon");
    QTest::addColumn<qint32>("latRaw");
    QTest::addColumn<quint32>("latFlags");
    QTest::addColumn<qint32>("lonRaw");
    QTest::addColumn<quint32>("lonFlags");
    QTest::newRow("north east") << QByteArray("4807.038,N") << QByteArray("01131.000,E")
                                << ((48 << 16) | 7038) << 0u << ((11 << 16) | 31000) << 1u;
    QTest::newRow("south west") << QByteArray("3351.2346,S") << QByteArray("15112.9876,W")
                                << ((33 << 16) | 51235) << 2u << ((151 << 16) | 12988) << 3u;
    // 59.9996 minutes round up into the next degree rather than to 60.000.
    QTest::newRow("minutes round into a degree")
        << QByteArray("4959.9996,N") << QByteArray("17959.9999,W") << (50 << 16) << 0u << (180 << 16) << 3u;
    QTest::newRow("equator, meridian")
        << QByteArray("0000.000,N") << QByteArray("00000.000,E") << 0 << 0u << 0 << 1u;
}

void tst_NMEALogLoader::coordinateEncoding()
{
    QFETCH(QByteArray, lat);
    QFETCH(QByteArray, lon);
    QFETCH(qint32, latRaw);
    QFETCH(quint32, latFlags);
    QFETCH(qint32, lonRaw);
    QFETCH(quint32, lonFlags);
    const Loaded r = load(s("GPGGA,120000," + lat + "," + lon + ",1,08,0.9,545.4,M,46.9,M,,"));
    QCOMPARE(count(r.package, P::Latitude), 1);
    const TelemetryValue la = var(r.package, P::Latitude)->values().at(0);
    const TelemetryValue lo = var(r.package, P::Longitude)->values().at(0);
    QCOMPARE(la.type, TelemetryTypes::GpsCoordinate);
    QCOMPARE(lo.type, TelemetryTypes::GpsCoordinate);
    QCOMPARE(la.value, latRaw);
    QCOMPARE(la.decimals, latFlags);
    QCOMPARE(lo.value, lonRaw);
    QCOMPARE(lo.decimals, lonFlags);
}

// What the map, the KML export and the graphs look for: type 9 with the longitude flag, an altitude
// in "m" whose label says so, speeds in "m/s" so that km/h and knots are offered.
void tst_NMEALogLoader::variablesForMapAndKml()
{
    // The pilot chose km/h for the ground speed earlier: the sensor table says so.
    MemorySensorTable sensors;
    SensorRow chosen;
    chosen.id = NMEALogLoader::kDeviceId;
    chosen.param = P::GroundSpeed;
    chosen.unitConversion = QStringLiteral("1");
    sensors.insertDefaultSensor(chosen);
    const Loaded r = load(s("GPRMC,120000,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W") +
                              s("GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,") +
                              s("GPGSA,A,3,04,05,09,12,,,,,,,,,2.5,1.3,2.1"),
                          &sensors);
    QVERIFY(r.ok);
    const TelemetrySensor *gps = r.package.device(NMEALogLoader::kDeviceId);
    QVERIFY(gps);
    QVERIFY(!gps->name().isEmpty());
    QCOMPARE(var(r.package, P::Latitude)->values().at(0).decimals & 1, 0u);
    QCOMPARE(var(r.package, P::Longitude)->values().at(0).decimals & 1, 1u);
    const TelemetryVar *alt = var(r.package, P::Altitude);
    QCOMPARE(alt->unit(), QStringLiteral("m"));
    QVERIFY(alt->label().contains(QLatin1String("alti"), Qt::CaseInsensitive));
    QCOMPARE(alt->numberAt(0), 545.4);
    const TelemetryVar *speed = var(r.package, P::GroundSpeed);
    QCOMPARE(speed->unit(), QStringLiteral("m/s"));
    QCOMPARE(speed->displayUnit(), QStringLiteral("km/h"));
    QVERIFY(qAbs(speed->numberAt(0) - 22.4 * 1.852) < 0.02); // knots read as m/s, shown in km/h
    QCOMPARE(var(r.package, P::Direction)->numberAt(0), 84.4);
    QCOMPARE(var(r.package, P::MagneticVariation)->numberAt(0), -3.1);
    QCOMPARE(var(r.package, P::Satellites)->numberAt(0), 8.0);
    QCOMPARE(var(r.package, P::Time)->numberAt(0), 12.0 * 3600);
    QCOMPARE(var(r.package, P::Date)->values().at(0).value, (23 << 16) | (3 << 8) | 94);
    QCOMPARE(var(r.package, P::Date)->values().at(0).decimals & 1, 1u);
    // 2 x DOP x UERE.
    QCOMPARE(var(r.package, P::HorizontalAccuracy)->numberAt(0),
             2 * 1.3 * NmeaInfoSourceLoader::kUserEquivalentRangeError);
    QCOMPARE(var(r.package, P::VerticalAccuracy)->numberAt(0),
             2 * 2.1 * NmeaInfoSourceLoader::kUserEquivalentRangeError);
    // Table rows for the device and every variable it got.
    for (const quint32 param :
         {0u, quint32(P::Latitude), quint32(P::Direction), quint32(P::VerticalAccuracy)})
        QVERIFY(sensors.findSensor(NMEALogLoader::kDeviceId, param, nullptr));
}

void tst_NMEALogLoader::optionalVariablesOnlyWhenCarried()
{
    // GGA alone: no speed, direction, variation; the basic six are always there.
    const Loaded r = load(s("GPGGA,120000,4807.038,N,01131.000,E,1,08,,545.4,M,46.9,M,,"));
    QList<quint32> params;
    for (const TelemetryVar &v : r.package.devices().at(0).vars())
        params << v.param();
    QCOMPARE(params,
             QList<quint32>({P::Latitude, P::Longitude, P::Altitude, P::Satellites, P::Time, P::Date}));
    QCOMPARE(count(r.package, P::Date), 0);

    // RMC alone: speed and direction, no altitude or satellites samples.
    const Loaded m = load(s("GPRMC,120000,A,4807.038,N,01131.000,E,022.4,084.4,230394,,"));
    QCOMPARE(count(m.package, P::GroundSpeed), 1);
    QCOMPARE(count(m.package, P::Altitude), 0);
    QCOMPARE(count(m.package, P::Satellites), 0);
    QCOMPARE(count(m.package, P::MagneticVariation), -1);
}

void tst_NMEALogLoader::epochMergesSentences()
{
    // One epoch, sentences in the order a Garmin sends them (VTG before RMC, GLL last), and a second
    // epoch with "hhmmss.ss" in one sentence and "hhmmss" in another.
    const QByteArray input = s("GPVTG,054.7,T,,M,005.5,N,010.2,K") +
                             s("GPRMC,120000,A,4807.038,N,01131.000,E,005.5,054.7,230394,,") +
                             s("GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,") +
                             s("GPGLL,4807.038,N,01131.000,E,120000,A") +
                             s("GPGGA,120001.00,4807.039,N,01131.001,E,1,08,0.9,546.0,M,46.9,M,,") +
                             s("GPRMC,120001,A,4807.039,N,01131.001,E,006.0,055.0,230394,,");
    const Loaded r = load(input);
    QCOMPARE(count(r.package, P::Latitude), 2);
    QCOMPARE(timestamps(r.package, P::Altitude), QVector<qint32>({1, 1001}));
    QCOMPARE(count(r.package, P::GroundSpeed), 2);
}

void tst_NMEALogLoader::timeLine_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QVector<qint32>>("ts");
    QTest::addColumn<int>("backward");
    const auto gga = [](const QByteArray &t) {
        return s("GPGGA," + t + ",4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
    };
    const auto rmc = [](const QByteArray &t, const QByteArray &d) {
        return s("GPRMC," + t + ",A,4807.038,N,01131.000,E,0,0," + d + ",,");
    };
    QTest::newRow("relative to the first fix")
        << gga("120000.50") + gga("120001.50") + gga("120003.00") << QVector<qint32>({1, 1001, 2501}) << 0;
    QTest::newRow("midnight without dates")
        << gga("235959") + gga("000000") + gga("000001") << QVector<qint32>({1, 1001, 2001}) << 0;
    QTest::newRow("midnight with dates")
        << rmc("235959", "311299") + rmc("000001", "010100") << QVector<qint32>({1, 2001}) << 0;
    QTest::newRow("two days apart by date") << rmc("120000", "010124") + rmc("130000", "030124")
                                            << QVector<qint32>({1, 1 + (2 * 24 + 1) * 3600000}) << 0;
    QTest::newRow("time going back is dropped")
        << gga("120002") + gga("120001") + gga("120003") << QVector<qint32>({1, 1001}) << 1;
    QTest::newRow("a garbage date does not move the clock")
        << rmc("120000", "070419") + rmc("120001", "220899") + rmc("120002", "070419")
        << QVector<qint32>({1, 1001, 2001}) << 0;
    // 32-bit milliseconds end after 24 days: a larger jump by date is not trusted, the clock goes on.
    QTest::newRow("a month apart by date")
        << rmc("120000", "010124") + rmc("120001", "010224") << QVector<qint32>({1, 1001}) << 0;
}

void tst_NMEALogLoader::timeLine()
{
    QFETCH(QByteArray, input);
    QFETCH(QVector<qint32>, ts);
    QFETCH(int, backward);
    const Loaded r = load(input);
    QCOMPARE(timestamps(r.package, P::Latitude), ts);
    QCOMPARE(r.backward, backward);
    QCOMPARE(r.package.firstTimestamp(), 1);
}

void tst_NMEALogLoader::twoDigitYears_data()
{
    QTest::addColumn<QByteArray>("date");
    QTest::addColumn<QDate>("expected");
    QTest::newRow("1999 after the week roll-over") << QByteArray("220899") << QDate(1999, 8, 22);
    QTest::newRow("2024") << QByteArray("010124") << QDate(2024, 1, 1);
    QTest::newRow("2000") << QByteArray("010100") << QDate(2000, 1, 1);
    QTest::newRow("GPS epoch") << QByteArray("060180") << QDate(1980, 1, 6);
    QTest::newRow("before GPS: no date") << QByteArray("050180") << QDate();
    QTest::newRow("31 February: no date") << QByteArray("310224") << QDate();
    QTest::newRow("five digits: no date") << QByteArray("01012") << QDate();
}

void tst_NMEALogLoader::twoDigitYears()
{
    QFETCH(QByteArray, date);
    QFETCH(QDate, expected);
    const Loaded r = load(s("GPRMC,120000,A,4807.038,N,01131.000,E,0,0," + date + ",,"));
    QCOMPARE(count(r.package, P::Latitude), 1);
    const TelemetryVar *d = var(r.package, P::Date);
    if (!expected.isValid()) {
        QCOMPARE(d->count(), 0);
        return;
    }
    QCOMPARE(d->count(), 1);
    QCOMPARE(d->values().at(0).value,
             (expected.day() << 16) | (expected.month() << 8) | (expected.year() % 100));
    QCOMPARE(r.package.recordingDate().toUTC(), QDateTime(expected, QTime(12, 0), Qt::UTC));
}

void tst_NMEALogLoader::recordingDateIsFirstFix()
{
    // The first fix has no date; a later RMC dates the recording back to it.
    const Loaded r = load(s("GPGGA,235958,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,") +
                          s("GPRMC,000003,A,4807.038,N,01131.000,E,0,0,010124,,"));
    QCOMPARE(timestamps(r.package, P::Latitude), QVector<qint32>({1, 5001}));
    QCOMPARE(r.package.recordingDate().toUTC(), QDateTime(QDate(2023, 12, 31), QTime(23, 59, 58), Qt::UTC));
    // The fix before the first date has no date sample, the one after has it.
    QCOMPARE(count(r.package, P::Date), 1);
}

void tst_NMEALogLoader::junkIsSkipped_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<bool>("damaged"); // counted as a damaged line when it stands alone
    const QByteArray good = s("GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
    QByteArray badSum = good;
    badSum[badSum.indexOf('*') + 2] = badSum.at(badSum.indexOf('*') + 2) == '0' ? '1' : '0';
    QTest::newRow("bad checksum") << badSum << true;
    QTest::newRow("no checksum") << QByteArray(
                                        "$GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,\n")
                                 << true;
    QTest::newRow("comment") << QByteArray("# GPS: $GPGGA,120000,4807.038,N,01131.000,E,1,08,,,,,,,*00\n")
                             << false;
    QTest::newRow("binary") << QByteArray("\xB5\x62\x01\x07\x5C\x00$\x00\xFF\n", 11) << true;
    QTest::newRow("AIS") << QByteArray("!AIVDM,1,1,,B,13aGhtw0R<OJf=6LgQ?Ad1FF05`L,0*24\n") << false;
    QTest::newRow("cut short") << QByteArray("$GPGGA,120000,4807.0") << true;
    QTest::newRow("proprietary") << s("PGRME,15.0,M,45.0,M,25.0,M") << false;
    QTest::newRow("overlong line") << QByteArray(300000, '$') << true;
    QTest::newRow("text") << QByteArray("receiver restarted\n") << true;
    QTest::newRow("blank") << QByteArray(" \t\r\n") << false;
}

void tst_NMEALogLoader::junkIsSkipped()
{
    QFETCH(QByteArray, input);
    const QByteArray fix1 = s("GPGGA,120001,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
    const QByteArray fix2 = s("GPGGA,120002,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
    // Before, between and glued onto real sentences.
    const Loaded r = load(fix1 + input + "\n" + fix2 + input + fix1.left(fix1.size() - 2) + "\n");
    QVERIFY(r.ok);
    QCOMPARE(timestamps(r.package, P::Latitude), QVector<qint32>({1, 1001}));
    // A sentence right after junk on the same line still counts.
    const Loaded glued = load(input.trimmed() + fix1);
    QCOMPARE(count(glued.package, P::Latitude), 1);

    // Alone on line 2, between two good lines.
    QFETCH(bool, damaged);
    const QByteArray line = input.left(input.contains('\n') ? input.indexOf('\n') : input.size());
    const Loaded alone = load(fix1 + line + "\n" + fix2);
    QCOMPARE(alone.report.skippedLines, qint64(damaged ? 1 : 0));
    QCOMPARE(alone.report.firstSkippedLine, qint64(damaged ? 2 : 0));
    QVERIFY(!alone.report.truncated);
    // As the last line, without its line end: a sentence cut off there is the file's end cut off.
    const Loaded last = load(fix1 + fix2 + line);
    QCOMPARE(last.report.truncated, damaged);
    QCOMPARE(last.report.skippedLines, qint64(0));
}

void tst_NMEALogLoader::notNmeaIsAnError_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("prose") << QByteArray("Shopping list:\nmilk\n$5 for bread\n");
    QTest::newRow("only bad checksums")
        << QByteArray("$GPGGA,120000,4807.038,N,01131.000,E,1,08,,,,,,,*00\n");
}

void tst_NMEALogLoader::notNmeaIsAnError()
{
    QFETCH(QByteArray, input);
    const Loaded r = load(input);
    QVERIFY(!r.ok);
    QVERIFY(r.error.contains(QLatin1String("NMEA")));
    QVERIFY(r.package.devices().isEmpty());
}

QTEST_GUILESS_MAIN(tst_NMEALogLoader)
#include "tst_NMEALogLoader.moc"
