// Reading throughput of the NMEA and XML log readers on large generated inputs, through the store's
// path (TelemetryData::readFile), and how quickly hostile XML is refused.
// Usage: bench_readers [MB]   (size of the generated NMEA input, default 100; the XML input is as large
// as the XML reader accepts, up to that)
#include "BenchUtil.h"

#include "telemetry/LogGenerator.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/NMEALogLoader.h"
#include "telemetry/TelemetryData.h"
#include "telemetry/VMLLogLoader.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

using namespace BenchUtil;

namespace {
QByteArray sentence(const QByteArray &body)
{
    quint8 sum = 0;
    for (const char c : body)
        sum ^= quint8(c);
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X\r\n", sum);
    return "$" + body + QByteArray(tail);
}

QByteArray nmeaCoordinate(double degrees, int degreeDigits, char positive, char negative)
{
    const double a = std::fabs(degrees);
    const int whole = int(a);
    char buf[32];
    std::snprintf(buf, sizeof buf, "%0*d%07.4f,%c", degreeDigits, whole, (a - whole) * 60.0,
                  degrees < 0 ? negative : positive);
    return buf;
}

// A 10 Hz logger circling a field for as long as it takes to fill the size: RMC, VTG, GGA, GSA, GSV.
QByteArray makeNmea(qint64 bytes)
{
    QByteArray out;
    out.reserve(int(bytes + 4096));
    for (qint64 k = 0; out.size() < bytes; ++k) {
        const qint64 ms = 10 * 3600 * 1000 + k * 100;
        const qint64 day = ms / 86400000;
        const qint64 tod = ms % 86400000;
        char time[16];
        std::snprintf(time, sizeof time, "%02lld%02lld%02lld.%02lld", tod / 3600000, tod / 60000 % 60,
                      tod / 1000 % 60, tod % 1000 / 10);
        char date[8];
        std::snprintf(date, sizeof date, "%02lld0724", 1 + day % 28);
        const double angle = double(k) / 600.0;
        const double lat = 50.0875 + 0.002 * std::sin(angle);
        const double lon = 14.4213 + 0.003 * std::cos(angle);
        const QByteArray la = nmeaCoordinate(lat, 2, 'N', 'S');
        const QByteArray lo = nmeaCoordinate(lon, 3, 'E', 'W');
        char alt[16];
        std::snprintf(alt, sizeof alt, "%.1f", 250.0 + 40.0 * std::sin(angle * 3));
        out += sentence("GPRMC," + QByteArray(time) + ",A," + la + "," + lo + ",031.2,087.5," +
                        QByteArray(date) + ",003.1,E,A");
        out += sentence("GPVTG,087.5,T,,M,031.2,N,057.8,K,A");
        out += sentence("GPGGA," + QByteArray(time) + "," + la + "," + lo + ",1,09,0.9," + QByteArray(alt) +
                        ",M,46.9,M,,");
        out += sentence("GPGSA,A,3,04,05,09,12,17,20,24,28,31,,,,1.6,0.9,1.3");
        if (k % 10 == 0) {
            out += sentence("GPGSV,3,1,11,04,62,219,44,05,11,042,36,09,33,286,42,12,58,098,47");
            out += sentence("GPGSV,3,2,11,17,23,142,39,20,41,308,45,24,07,186,31,28,68,041,48");
            out += sentence("GPGSV,3,3,11,31,15,254,37,25,02,330,,29,05,012,");
        }
    }
    return out;
}

// The generated flight written as an XML log: one storage per device, one entity per sample.
QByteArray makeVml(qint64 bytes)
{
    LogGenerator::Options o;
    o.devices = 6;
    o.rate = 10;
    o.seed = 5;
    o.seconds = int(bytes / 9900); // about 9.9 kB of XML per second of this flight
    const TelemetryDataPackage p = LogGenerator::generate(o);
    QByteArray out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<vml>\n";
    out.reserve(int(bytes + bytes / 4));
    for (const TelemetrySensor &d : p.devices()) {
        const QByteArray id = QByteArray::number(d.id() & 0xFFFF).rightJustified(5, '0') +
                              QByteArray::number(d.id() >> 16).rightJustified(5, '0');
        out += " <dataStorage dataStorageID=\"" + id + "\" name=\"" + d.name().toUtf8() + "\">\n";
        for (const TelemetryVar &v : d.vars())
            out += "  <attrDescription attrID=\"" + QByteArray::number(v.param()) + "\" name=\"" +
                   v.label().toUtf8() + "\" units=\"" + v.unit().toUtf8() + "\"/>\n";
        for (const TelemetryVar &v : d.vars()) {
            for (const TelemetryValue &x : v.values()) {
                out += "  <entity plainData=\"" + QByteArray::number(x.timestamp).rightJustified(9, '0') +
                       ';' + QByteArray::number(v.param()) + ';' + QByteArray::number(x.type) + ';' +
                       QByteArray::number(x.decimals) + ';' + QByteArray::number(x.value) + "\"/>\n";
            }
        }
        out += " </dataStorage>\n";
    }
    out += "</vml>\n";
    return out;
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

int benchFile(const char *what, const QString &path, qint64 size)
{
    MemorySensorTable sensors;
    std::vector<double> runs;
    TelemetryDataPackage package;
    QString error;
    resetPeakRss();
    const qint64 baseline = procStatusBytes("VmRSS");
    for (int i = 0; i < 3; ++i) {
        package = TelemetryDataPackage();
        bool ok = false;
        runs.push_back(msOf([&] { ok = TelemetryData::readFile(path, &package, &sensors, &error); }));
        if (!ok) {
            std::fprintf(stderr, "bench_readers: %s\n", qPrintable(error));
            return 1;
        }
    }
    const qint64 peak = procStatusBytes("VmHWM");
    const double ms = median(runs);
    std::printf("%-5s %6.1f MB: %7.0f ms  %6.1f MB/s  (median of 3: %.0f/%.0f/%.0f ms), %lld samples, "
                "peak %.0f MB above baseline\n",
                what, size / 1e6, ms, mbPerSecond(size, ms), runs[0], runs[1], runs[2],
                static_cast<long long>(package.sampleCount()), (peak - baseline) / 1e6);
    return 0;
}

void benchRefusal(const char *what, const QByteArray &xml)
{
    QBuffer buffer;
    buffer.setData(xml);
    buffer.open(QIODevice::ReadOnly);
    VMLLogLoader loader;
    TelemetryDataPackage p;
    bool ok = true;
    const double ms = msOf([&] { ok = loader.load(&buffer, &p); });
    std::printf("  %-26s %8.1f kB: %s in %.2f ms\n", what, xml.size() / 1e3, ok ? "READ (!)" : "refused", ms);
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const qint64 megabytes = argc > 1 ? QByteArray(argv[1]).toLongLong() : 100;
    if (megabytes <= 0 || megabytes > 1000) {
        std::fprintf(stderr, "usage: bench_readers [MB, 1 to 1000]\n");
        return 2;
    }
    QTemporaryDir dir;
    const QString nmeaPath = dir.filePath(QStringLiteral("flight.nmea"));
    const QString vmlPath = dir.filePath(QStringLiteral("flight.vml"));
    qint64 nmeaSize = 0;
    qint64 vmlSize = 0;
    {
        const QByteArray nmea = makeNmea(megabytes * 1000000);
        nmeaSize = nmea.size();
        const QByteArray vml = makeVml(std::min(megabytes * 1000000, VMLLogLoader::kMaxBytes * 9 / 10));
        vmlSize = vml.size();
        if (!writeFile(nmeaPath, nmea) || !writeFile(vmlPath, vml)) {
            std::fprintf(stderr, "bench_readers: cannot write to %s\n", qPrintable(dir.path()));
            return 1;
        }
    }
    std::printf("readers through TelemetryData::readFile (generated inputs in %s)\n", qPrintable(dir.path()));
    if (benchFile("NMEA", nmeaPath, nmeaSize) || benchFile("XML", vmlPath, vmlSize))
        return 1;

    std::printf("hostile XML:\n");
    QByteArray laughs = "<?xml version=\"1.0\"?>\n<!DOCTYPE vml [\n<!ENTITY a0 \"lol\">\n";
    for (int i = 1; i <= 9; ++i)
        laughs += "<!ENTITY a" + QByteArray::number(i) + " \"" +
                  QByteArray("&a" + QByteArray::number(i - 1) + ";").repeated(10) + "\">\n";
    benchRefusal("billion laughs", laughs + "]>\n<vml>&a9;</vml>\n");
    benchRefusal("quadratic blow-up", "<?xml version=\"1.0\"?>\n<!DOCTYPE vml [<!ENTITY a \"" +
                                          QByteArray(50000, 'a') + "\">]>\n<vml>" +
                                          QByteArray("&a;").repeated(50000) + "</vml>");
    benchRefusal("100 000 nested elements", "<vml>" + QByteArray("<a>").repeated(100000) +
                                                QByteArray("</a>").repeated(100000) + "</vml>");
    return 0;
}
