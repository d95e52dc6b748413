#include "telemetry/NMEALogLoader.h"
#include "telemetry/NmeaInfoSourceLoader.h"

#include <QBuffer>
#include <QFile>
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

Loaded load(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    NMEALogLoader loader;
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
    QTest::newRow("ET-332, escapes in a checksum")
        << "gpsd-et-332.nmea" << 19 << 18000 << 39.67831 << -75.74893 << 2010;
    QTest::newRow("Garmin 17N") << "gpsd-garmin17n.nmea" << 2 << 1000 << 52.21907 << 21.01085 << 2005;
    QTest::newRow("GPS-320FW after week roll-over")
        << "gpsd-gp-320fw-2019-04-06-overflow.nmea" << 21 << 20000 << 48.14996 << 11.58467 << 2019;
    QTest::newRow("GPS-320FW cold boot, garbage dates")
        << "gpsd-gp-320fw-2019-04-07-coldboot.nmea" << 2 << 2000 << 48.14999 << 11.58466 << 2019;
    QTest::newRow("Hemisphere, date from ZDA only")
        << "gpsd-hemi.nmea" << 21 << 10000 << 42.36373 << -71.03235 << 2018;
    QTest::newRow("MT3301, 90N and 1980 while V")
        << "gpsd-mtk-3301.nmea" << 4 << 3000 << 52.21637 << 6.88502 << 2008;
    QTest::newRow("Saab R4, AIS mixed in")
        << "gpsd-saab-r4.nmea" << 12 << 11000 << 50.21318 << -8.11466 << 2011;
    QTest::newRow("AIS transponder") << "signalk-nais300-merrimac.nmea" << 10 << 9000 << 53.18022 << 5.42840
                                     << 2012;
    QTest::newRow("PolaRx2, 2D fix") << "gpsd-polarx2.nmea" << 5 << 4000 << 38.73734 << -9.14064 << 2012;
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
    QTest::newRow("long clean capture, CRLF")
        << "signalk-gps.nmea" << 1202 << 1201000 << 52.37203 << 4.90963 << 2014;
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
    QCOMPARE(QList<int>({count(p, P::Latitude), count(p, P::Longitude), count(p, P::Time)}),
             QList<int>({fixes, fixes, fixes}));

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

    // Dates: the capture's year, never 20YY for a 19YY or a date from before GPS.
    const TelemetryVar *dates = var(p, P::Date);
    if (year == 0) {
        QCOMPARE(dates->count(), 0);
        QVERIFY(!p.recordingDate().isValid());
    } else {
        QVERIFY(dates->count() > 0);
        for (const TelemetryValue &d : dates->values())
            QCOMPARE(int(quint32(d.value) & 0xFF), year % 100);
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
    QTest::newRow("RMC A") << rmcA << 1;
    QTest::newRow("RMC V") << rmcV << 0;
    QTest::newRow("RMC A, mode N") << s("GPRMC,120000,A,4807.038,N,01131.000,E,0,0,230394,,,N") << 0;
    QTest::newRow("GGA 1 but RMC V in the same epoch") << gga1 + rmcV << 0;
    QTest::newRow("GSA no fix after GGA 1") << gga1 + s("GPGSA,A,1,,,,,,,,,,,,,,,") << 0;
    QTest::newRow("GSA 2D fix") << gga1 + s("GPGSA,A,2,04,05,09,,,,,,,,,,2.5,1.3,2.1") << 1;
    QTest::newRow("GSA per constellation, one with a fix")
        << gga1 + s("GNGSA,A,1,,,,,,,,,,,,,,,") + s("GNGSA,A,3,65,66,,,,,,,,,,,2.5,1.3,2.1") << 1;
    QTest::newRow("GLL A") << s("GPGLL,4807.038,N,01131.000,E,120000,A,A") << 1;
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
    QTest::addColumn<QByteArray>("position");
    QTest::addColumn<QList<qint64>>("raw"); // latitude value and flags, longitude value and flags
    QTest::newRow("north east") << QByteArray("4807.038,N,01131.000,E")
                                << QList<qint64>{(48 << 16) | 7038, 0, (11 << 16) | 31000, 1};
    QTest::newRow("south west") << QByteArray("3351.2346,S,15112.9876,W")
                                << QList<qint64>{(33 << 16) | 51235, 2, (151 << 16) | 12988, 3};
    // 59.9996 minutes round up into the next degree rather than to 60.000.
    QTest::newRow("minutes round into a degree")
        << QByteArray("4959.9996,N,17959.9999,W") << QList<qint64>{50 << 16, 0, 180 << 16, 3};
    QTest::newRow("equator, meridian") << QByteArray("0000.000,N,00000.000,E") << QList<qint64>{0, 0, 0, 1};
}

void tst_NMEALogLoader::coordinateEncoding()
{
    QFETCH(QByteArray, position);
    QFETCH(QList<qint64>, raw);
    const Loaded r = load(s("GPGGA,120000," + position + ",1,08,0.9,545.4,M,46.9,M,,"));
    QCOMPARE(count(r.package, P::Latitude), 1);
    const TelemetryValue la = var(r.package, P::Latitude)->values().at(0);
    const TelemetryValue lo = var(r.package, P::Longitude)->values().at(0);
    QCOMPARE(la.type, TelemetryTypes::GpsCoordinate);
    QCOMPARE(lo.type, TelemetryTypes::GpsCoordinate);
    QCOMPARE(QList<qint64>({la.value, la.decimals, lo.value, lo.decimals}), raw);
}

// What the map, the KML export and the graphs look for: type 9 with the longitude flag, an altitude
// in "m" whose label says so, speeds in "m/s" so that km/h and knots are offered.
void tst_NMEALogLoader::variablesForMapAndKml()
{
    const Loaded r = load(s("GPRMC,120000,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W") +
                          s("GPGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,") +
                          s("GPGSA,A,3,04,05,09,12,,,,,,,,,2.5,1.3,2.1"));
    QVERIFY(r.ok);
    QVERIFY(!r.package.device(NMEALogLoader::kDeviceId)->name().isEmpty());
    QCOMPARE(var(r.package, P::Latitude)->values().at(0).decimals & 1, 0u);
    QCOMPARE(var(r.package, P::Longitude)->values().at(0).decimals & 1, 1u);
    const TelemetryVar *alt = var(r.package, P::Altitude);
    QCOMPARE(alt->unit(), QStringLiteral("m"));
    QVERIFY(alt->label().contains(QLatin1String("alti"), Qt::CaseInsensitive));
    QCOMPARE(var(r.package, P::GroundSpeed)->unit(), QStringLiteral("m/s"));
    QVERIFY(qAbs(var(r.package, P::GroundSpeed)->numberAt(0) - 22.4 * 1852 / 3600) < 0.01); // knots
    const double expected[] = {545.4, 84.4, -3.1, 8.0, 12.0 * 3600};
    int i = 0;
    for (const quint32 param : {P::Altitude, P::Direction, P::MagneticVariation, P::Satellites, P::Time})
        QCOMPARE(var(r.package, param)->numberAt(0), expected[i++]);
    QCOMPARE(var(r.package, P::Date)->values().at(0).value, (23 << 16) | (3 << 8) | 94);
    QCOMPARE(var(r.package, P::Date)->values().at(0).decimals & 1, 1u);
    // 2 x DOP x UERE.
    QCOMPARE(var(r.package, P::HorizontalAccuracy)->numberAt(0),
             2 * 1.3 * NmeaInfoSourceLoader::kUserEquivalentRangeError);
    QCOMPARE(var(r.package, P::VerticalAccuracy)->numberAt(0),
             2 * 2.1 * NmeaInfoSourceLoader::kUserEquivalentRangeError);
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
    QCOMPARE(QList<int>({count(m.package, P::GroundSpeed), count(m.package, P::Altitude),
                         count(m.package, P::Satellites), count(m.package, P::MagneticVariation)}),
             QList<int>({1, 0, 0, -1})); // -1: no such variable
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
