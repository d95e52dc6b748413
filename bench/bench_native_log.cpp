// Native log throughput and memory: load through the store (the studio's path), write, a naive reader
// for comparison, and cat as the floor. Usage: bench_native_log FILE.log
#include "BenchUtil.h"

#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextCodec>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace BenchUtil;

namespace {
// What a straightforward reader does: line by line, decode, split, convert every field.
qint64 naiveRead(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    QTextCodec *codec = QTextCodec::codecForName("Windows-1250");
    qint64 sum = 0;
    while (!f.atEnd()) {
        const QString line = codec->toUnicode(f.readLine());
        for (const QString &field : line.split(QLatin1Char(';')))
            sum += field.toLongLong();
    }
    return sum;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_native_log FILE.log\n");
        return 2;
    }
    const QString path = QString::fromLocal8Bit(argv[1]);
    const qint64 size = QFileInfo(path).size();
    if (size <= 0) {
        std::fprintf(stderr, "bench_native_log: %s: missing or empty\n", argv[1]);
        return 1;
    }
    std::printf("file: %s, %.1f MB\n", argv[1], size / 1e6);

    // cat, twice: the first run brings the file into the page cache for everyone after it.
    const auto cat = [&] { QProcess::execute(QStringLiteral("sh"), {"-c", "cat \"$0\" > /dev/null", path}); };
    cat();
    const double catMs = msOf(cat);
    std::printf("cat FILE > /dev/null:     %8.0f ms  %7.0f MB/s\n", catMs, mbPerSecond(size, catMs));

    TelemetryData store;
    resetPeakRss();
    const qint64 baseline = procStatusBytes("VmRSS");
    int result = 0;
    std::vector<double> loads;
    loads.push_back(msOf([&] { result = store.loadFile(path); }));
    const qint64 peak = procStatusBytes("VmHWM");
    if (result != 1) {
        std::fprintf(stderr, "bench_native_log: load failed: %s\n", qPrintable(store.lastError()));
        return 1;
    }
    const qint64 samples = store.package().sampleCount();
    const double bytesPerSample = double(peak - baseline) / double(samples);
    for (int i = 0; i < 2; ++i) {
        store.clearSensors();
        loads.push_back(msOf([&] { store.loadFile(path); }));
    }
    const double loadMs = median(loads);
    std::printf("load via TelemetryData:   %8.0f ms  %7.0f MB/s  (median of %zu; runs %.0f/%.0f/%.0f ms)\n",
                loadMs, mbPerSecond(size, loadMs), loads.size(), loads[0], loads[1], loads[2]);
    std::printf("samples: %lld; memory above baseline: %.1f MB peak, %.2f bytes per sample\n",
                static_cast<long long>(samples), (peak - baseline) / 1e6, bytesPerSample);

    const TelemetryDataPackage package = [&] {
        TelemetryData s;
        s.loadFile(path);
        return s.package();
    }();
    QByteArray bytes;
    const double serialiseMs = msOf([&] { bytes = LogFileWriter::write(package); });
    QTemporaryDir dir;
    const double diskMs = msOf([&] {
        QFile out(dir.filePath(QStringLiteral("out.log")));
        if (out.open(QIODevice::WriteOnly))
            out.write(bytes);
    });
    std::printf("write (serialise):        %8.0f ms  %7.0f MB/s\n", serialiseMs,
                mbPerSecond(bytes.size(), serialiseMs));
    std::printf("write (serialise + file): %8.0f ms  %7.0f MB/s\n", serialiseMs + diskMs,
                mbPerSecond(bytes.size(), serialiseMs + diskMs));
    bytes.clear();

    qint64 checksum = 0;
    const double naiveMs = msOf([&] { checksum = naiveRead(path); });
    std::printf("naive reader:             %8.0f ms  %7.0f MB/s  (checksum %lld)\n", naiveMs,
                mbPerSecond(size, naiveMs), static_cast<long long>(checksum));
    std::printf("load speed-up over naive: %.1fx\n", naiveMs / loadMs);
    return 0;
}
