// The generated flights obey physics: each figure is checked against another one it must agree with,
// computed here independently (haversine distances, trapezoid integrals).
#include "telemetry/LogGenerator.h"
#include "tests/support/BusSimulator.h"

#include <QtTest>

#include <cmath>

namespace {
constexpr double kEarthRadius = 6371000;

struct Series
{
    QVector<double> t; // s
    QVector<double> x;
    int size() const { return t.size(); }
};

Series series(const TelemetryDataPackage &p, quint32 product, quint32 param)
{
    Series s;
    const TelemetrySensor *d = p.device(product | (1u << 16));
    const TelemetryVar *v = d ? d->var(param) : nullptr;
    if (!v)
        return s;
    for (const TelemetryValue &raw : v->values()) {
        s.t << raw.timestamp / 1000.0;
        s.x << raw.toNumber();
    }
    return s;
}

double radians(double degrees)
{
    return degrees * M_PI / 180;
}

double haversine(double lat1, double lon1, double lat2, double lon2)
{
    const double a =
        std::pow(std::sin(radians(lat2 - lat1) / 2), 2) +
        std::cos(radians(lat1)) * std::cos(radians(lat2)) * std::pow(std::sin(radians(lon2 - lon1) / 2), 2);
    return 2 * kEarthRadius * std::asin(std::sqrt(a));
}

double bearing(double lat1, double lon1, double lat2, double lon2)
{
    const double y = std::sin(radians(lon2 - lon1)) * std::cos(radians(lat2));
    const double x = std::cos(radians(lat1)) * std::sin(radians(lat2)) -
                     std::sin(radians(lat1)) * std::cos(radians(lat2)) * std::cos(radians(lon2 - lon1));
    return std::fmod(std::atan2(y, x) * 180 / M_PI + 360, 360);
}

double angleBetween(double a, double b)
{
    const double d = std::fmod(std::fabs(a - b), 360);
    return std::min(d, 360 - d);
}

// Positions of one second apart or more against the speeds reported between them: each stretch, and the
// whole track. Coordinates carry a thousandth of a minute (under 2 m), so short stretches get slack.
// An empty course is not checked. Returns the number of stretches checked, or -1 on a mismatch.
int checkTrack(const Series &lat, const Series &lon, const Series &speed, const Series &course)
{
    double track = 0;
    double flown = 0;
    int checked = 0;
    for (int i = 0, j = 0; i < lat.size(); i = j) {
        while (j < lat.size() && lat.t[j] - lat.t[i] < 1)
            ++j;
        if (j >= lat.size())
            break;
        double mean = 0;
        for (int k = i; k <= j; ++k)
            mean += speed.x[k] / (j - i + 1);
        const double dt = lat.t[j] - lat.t[i];
        const double d = haversine(lat.x[i], lon.x[i], lat.x[j], lon.x[j]);
        track += d;
        flown += mean * dt;
        if (mean < 3)
            continue;
        ++checked;
        const double slack = 3.0 / dt + 0.12 * mean;
        if (std::fabs(d / dt - mean) > slack) {
            qWarning("at %.1f s: %.1f m in %.2f s, speed %.1f m/s", lat.t[i], d, dt, mean);
            return -1;
        }
        if (!course.t.isEmpty() && d > 8) {
            // The chord of a turn points half way between the courses at its ends.
            const double a = radians(course.x[i]);
            const double b = radians(course.x[j]);
            const double between =
                std::atan2(std::sin(a) + std::sin(b), std::cos(a) + std::cos(b)) * 180 / M_PI;
            const double off = angleBetween(bearing(lat.x[i], lon.x[i], lat.x[j], lon.x[j]), between);
            if (off > 12 + std::atan(3 / d) * 180 / M_PI) {
                qWarning("at %.1f s: course %.0f to %.0f, flown towards %.0f", lat.t[i], course.x[i],
                         course.x[j], bearing(lat.x[i], lon.x[i], lat.x[j], lon.x[j]));
                return -1;
            }
        }
    }
    return std::fabs(track - flown) <= 0.06 * flown + 10 ? checked : -1;
}

// The change of a quantity over each stretch of about two seconds, and over the whole flight, against the
// trapezoid integral of its rate sampled at the same moments.
bool integralMatches(const Series &level, const Series &rate, double tolerance, double relative)
{
    double total = 0;
    double totalMagnitude = 0;
    for (int i = 0; i + 1 < level.size();) {
        double integral = 0;
        double magnitude = 0;
        int j = i;
        while (j + 1 < level.size() && level.t[j] - level.t[i] < 2) {
            const double step = (rate.x[j + 1] + rate.x[j]) / 2 * (level.t[j + 1] - level.t[j]);
            integral += step;
            magnitude += std::fabs(step);
            ++j;
        }
        if (std::fabs(level.x[j] - level.x[i] - integral) > tolerance + relative * magnitude) {
            qWarning("from %.1f s to %.1f s: change %.2f, integral %.2f", level.t[i], level.t[j],
                     level.x[j] - level.x[i], integral);
            return false;
        }
        total += integral;
        totalMagnitude += magnitude;
        i = j;
    }
    // Over the whole flight, where small errors per stretch would add up.
    return std::fabs(level.x.last() - level.x.first() - total) <= tolerance + 0.01 * totalMagnitude;
}

bool within(const Series &s, double low, double high)
{
    for (int i = 0; i < s.size(); ++i) {
        if (!(s.x[i] >= low && s.x[i] <= high)) {
            qWarning("%.3f at %.1f s is outside [%g, %g]", s.x[i], s.t[i], low, high);
            return false;
        }
    }
    return !s.t.isEmpty();
}

bool nonDecreasing(const Series &s)
{
    return std::is_sorted(s.x.begin(), s.x.end());
}

double valueNear(const Series &s, double t)
{
    const auto it = std::lower_bound(s.t.begin(), s.t.end(), t);
    return s.x[std::min(int(it - s.t.begin()), s.size() - 1)];
}
} // namespace

class tst_FlightPhysics : public QObject
{
    Q_OBJECT
private slots:
    void generatedFlight_data();
    void generatedFlight();
    void simulatorFliesTheSameWay();
};

void tst_FlightPhysics::generatedFlight_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<int>("rate");
    QTest::addColumn<quint64>("seed");
    QTest::newRow("a 10 s hop") << 10 << 10 << quint64(3);
    QTest::newRow("a minute at 50 Hz") << 60 << 50 << quint64(7);
    QTest::newRow("the sample flight") << 600 << 5 << quint64(2026);
    QTest::newRow("an hour at 2 Hz") << 3600 << 2 << quint64(1);
    QTest::newRow("twenty minutes, another seed") << 1200 << 10 << quint64(123456789);
}

void tst_FlightPhysics::generatedFlight()
{
    QFETCH(int, seconds);
    QFETCH(int, rate);
    QFETCH(quint64, seed);
    const TelemetryDataPackage p = LogGenerator::generate({seconds, rate, 6, seed});

    const Series rxVolts = series(p, 0x0A01, 1), signal = series(p, 0x0A01, 2),
                 quality = series(p, 0x0A01, 3);
    const Series lat = series(p, 0x0A10, 1), lon = series(p, 0x0A10, 2), gpsSpeed = series(p, 0x0A10, 4);
    const Series satellites = series(p, 0x0A10, 5), time = series(p, 0x0A10, 6),
                 course = series(p, 0x0A10, 8);
    const Series pack = series(p, 0x0A20, 1), current = series(p, 0x0A20, 2), used = series(p, 0x0A20, 3);
    const Series cell = series(p, 0x0A20, 4);
    const Series altitude = series(p, 0x0A30, 1), vario = series(p, 0x0A30, 2),
                 pressure = series(p, 0x0A30, 3);
    const Series airSpeed = series(p, 0x0A40, 1), motor = series(p, 0x0A50, 1), esc = series(p, 0x0A50, 2);

    QVERIFY(within(rxVolts, 5, 8.4));
    QVERIFY(within(signal, -110, -20));
    QVERIFY(within(quality, 0, 100));
    QVERIFY(within(satellites, 8, 16));
    QVERIFY(within(gpsSpeed, 0, 50));
    QVERIFY(within(airSpeed, 0, 50));
    QVERIFY(within(course, 0, 359.5));
    QVERIFY(within(current, 0, 100));
    QVERIFY(within(cell, 3.0, 4.21));
    QVERIFY(within(altitude, -1, 300));
    QVERIFY(within(vario, -8, 8));
    QVERIFY(within(pressure, 85, 105));
    QVERIFY(within(motor, -10, 110));
    QVERIFY(within(esc, -10, 90));
    // An afternoon: the clock starts after noon and runs with the flight.
    QVERIFY(within(time, 12 * 3600, 24 * 3600));
    QVERIFY(std::fabs((time.x.last() - time.x.first()) - (time.t.last() - time.t.first())) <= 1.001);

    // On the ground at both ends, near where it started.
    QVERIFY(altitude.x.first() < 1 && altitude.x.last() < 1);
    QVERIFY(gpsSpeed.x.first() < 0.5 && gpsSpeed.x.last() < 0.5);
    QVERIFY2(haversine(lat.x.first(), lon.x.first(), lat.x.last(), lon.x.last()) < 15,
             "lands where it took off");
    double farthest = 0;
    for (int i = 0; i < lat.size(); ++i)
        farthest = std::max(farthest, haversine(lat.x.first(), lon.x.first(), lat.x[i], lon.x[i]));
    QVERIFY(farthest > std::min(100.0, seconds * 1.5));
    const double highest = *std::max_element(altitude.x.begin(), altitude.x.end());
    QVERIFY(highest > std::min(50.0, seconds * 0.2));

    const int stretches = checkTrack(lat, lon, gpsSpeed, course);
    QVERIFY2(stretches > seconds / 3, qPrintable(QString::number(stretches)));
    QVERIFY(integralMatches(altitude, vario, 0.25, 0.05));

    // The counter only grows, by the charge the current took.
    QVERIFY(nonDecreasing(used));
    Series charge = current;
    for (double &a : charge.x)
        a /= 3.6; // A to mAh per second
    QVERIFY(integralMatches(used, charge, 3, 0.03));

    // The lowest cell is the pack shared by a whole number of cells, less a little imbalance.
    const int cells = int(std::lround(pack.x.first() / cell.x.first()));
    QVERIFY(cells >= 2 && cells <= 12);
    for (int i = 0; i < pack.size(); ++i)
        QVERIFY(std::fabs(pack.x[i] / cells - cell.x[i]) < 0.04);

    // Alarms come when there is something to warn about.
    for (const TelemetryMessage &m : p.messages()) {
        QVERIFY(m.timestamp >= 0 && m.timestamp <= seconds * 1000);
        const double t = (m.timestamp + 100) / 1000.0;
        if (m.alarm == 'V')
            QVERIFY(valueNear(cell, t) < 3.55);
        if (m.alarm == 'S')
            QVERIFY(valueNear(quality, t + 0.5) < 10);
        if (m.alarm == 'C')
            QVERIFY(valueNear(used, t) >= 0.75 * used.x.last());
    }
}

// The bus simulator's five-minute loop: the same character, read from the values it sends.
void tst_FlightPhysics::simulatorFliesTheSameWay()
{
    BusSimulator bus;
    SimTelemetry sim = bus.telemetry();
    QHash<quint32, Series> sent; // (device id low byte << 8 | index)
    for (qint64 ms = 0; ms < SimTelemetry::kFlightMs; ms += 4) {
        for (const SimTelemetry::SentValue &v : sim.next(ms).values) {
            double x = v.value;
            if (v.type == 9) {
                x = ((quint32(v.value) >> 16) & 0xFF) + (v.value & 0xFFFF) / 60000.0;
                x = v.decimals & 2 ? -x : x;
            } else if (v.type != 5) {
                x /= std::pow(10.0, v.decimals);
            }
            Series &s = sent[((v.deviceId & 0xFF) << 8) | v.index];
            s.t << ms / 1000.0;
            s.x << x;
        }
    }
    const Series lat = sent.value(0x0201), lon = sent.value(0x0202);
    Series speed = sent.value(0x0204);
    for (double &v : speed.x)
        v /= 3.6; // km/h
    QVERIFY(checkTrack(lat, lon, speed, Series()) > 100);
    QVERIFY(haversine(lat.x.first(), lon.x.first(), lat.x.last(), lon.x.last()) < 15);
    QVERIFY(nonDecreasing(sent.value(0x0303)));
    QVERIFY(integralMatches(sent.value(0x0401), sent.value(0x0402), 1.0, 0.05));
    QVERIFY(within(sent.value(0x0101), 5, 8.4));
    QVERIFY(within(sent.value(0x0102), 0, 100));
    QVERIFY(within(sent.value(0x0205), 8, 16));
}

QTEST_GUILESS_MAIN(tst_FlightPhysics)
#include "tst_FlightPhysics.moc"
