// Storing a flight in the database and opening it again: import (load, write, compress, insert) against
// `gzip -6` of the same file, and open (select, inflate, parse). Usage: bench_database FILE.log
#include "BenchUtil.h"

#include "database/BlobCodec.h"
#include "database/DatabaseManager.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileLoader.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/TelemetryData.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <vector>

using namespace BenchUtil;

namespace {

QByteArray sha1(const QByteArray &data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha1);
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: bench_database FILE.log\n");
        return 2;
    }
    const QString path = QString::fromLocal8Bit(argv[1]);
    const qint64 size = QFileInfo(path).size();
    if (size <= 0) {
        std::fprintf(stderr, "bench_database: %s: missing or empty\n", argv[1]);
        return 1;
    }
    std::printf("file: %s, %.1f MB; %d cores\n", argv[1], size / 1e6, QThread::idealThreadCount());
    QProcess::execute(QStringLiteral("sh"), {"-c", "cat \"$0\" > /dev/null", path});
    const double gzipMs = msOf([&] {
        QProcess::execute(QStringLiteral("sh"), {"-c", "gzip -6 -c \"$0\" > /dev/null", path});
    });
    std::printf("gzip -6 FILE > /dev/null:     %8.0f ms  %6.0f MB/s\n", gzipMs, mbPerSecond(size, gzipMs));

    QTemporaryDir dir;
    DatabaseManager db(dir.path());
    if (!db.openAndInitialise()) {
        std::fprintf(stderr, "bench_database: %s\n", qPrintable(db.lastError()));
        return 1;
    }
    ModelLibrary library(&db);
    const int model = library.createModel(QStringLiteral("Bench"));

    // Import the way `vexo-log db import` does: one transaction around reading and storing.
    int logId = -1;
    qint64 samples = 0;
    const double importMs = msOf([&] {
        TelemetryDataPackage package;
        QString error;
        db.beginTransaction();
        if (!TelemetryData::readFile(path, &package, &db, &error)) {
            std::fprintf(stderr, "bench_database: %s\n", qPrintable(error));
            db.rollbackTransaction();
            return;
        }
        samples = package.sampleCount();
        logId = library.storeLog(package, model, -1);
        db.commitTransaction();
    });
    if (logId < 0) {
        std::fprintf(stderr, "bench_database: import failed: %s\n", qPrintable(library.lastError()));
        return 1;
    }
    QByteArray blob;
    db.logDataCompressed(logId, &blob);
    std::printf(
        "import (load, write, compress, insert): %8.0f ms  %6.0f MB/s  %.2fx gzip -6 (goal <= 1.25)\n",
        importMs, mbPerSecond(size, importMs), importMs / gzipMs);
    std::printf("  stored %.1f MB compressed (%.1f%%), %lld samples\n", blob.size() / 1e6,
                100.0 * double(blob.size()) / double(size), static_cast<long long>(samples));

    // Where the import time goes, each part on its own.
    TelemetryDataPackage package;
    const double loadMs = msOf([&] { TelemetryData::readFile(path, &package, nullptr, nullptr); });
    QByteArray native;
    const double writeMs = msOf([&] { native = LogFileWriter::write(package); });
    QByteArray parallel;
    const double compressMs = msOf([&] { parallel = BlobCodec::compress(native); });
    QByteArray single;
    const double qCompressMs = msOf([&] { single = qCompress(native); });
    std::printf(
        "  load %.0f ms, write %.0f ms, compress %.0f ms (%d threads; qCompress alone %.0f ms, %.1f MB)\n",
        loadMs, writeMs, compressMs, QThread::idealThreadCount(), qCompressMs, single.size() / 1e6);
    single.clear();
    parallel.clear();

    // Open: select, inflate while parsing, parse.
    std::vector<double> opens;
    qint64 reopened = 0;
    for (int i = 0; i < 3; ++i) {
        TelemetryDataPackage p;
        opens.push_back(msOf([&] {
            if (library.readLog(logId, &p))
                reopened = p.sampleCount();
        }));
    }
    const double openMs = median(opens);
    std::printf(
        "open (select, inflate, parse):          %8.0f ms  %6.0f MB/s  (median of 3: %.0f/%.0f/%.0f ms; goal "
        "<= 1500 ms)\n",
        openMs, mbPerSecond(size, openMs), opens[0], opens[1], opens[2]);
    // The same without streaming, for comparison: the whole text inflated first, then parsed.
    const double wholeMs = msOf([&] {
        QByteArray text;
        db.loadLog(logId, &text, nullptr, nullptr);
        QBuffer buffer(&text);
        buffer.open(QIODevice::ReadOnly);
        TelemetryDataPackage p;
        LogFileLoader(&db).load(&buffer, &p);
    });
    std::printf("  inflate whole, then parse:            %8.0f ms\n", wholeMs);

    const QString exported = dir.filePath(QStringLiteral("export.log"));
    const double exportMs = msOf([&] { library.exportLog(logId, exported); });
    QFile out(exported);
    out.open(QIODevice::ReadOnly);
    const bool identical = sha1(out.readAll()) == sha1(native);
    std::printf("export to file:                         %8.0f ms  byte-identical to the written log: %s\n",
                exportMs, identical ? "yes" : "NO");
    std::printf("samples after reopening: %lld (%s)\n", static_cast<long long>(reopened),
                reopened == samples ? "all" : "MISSING");
    return identical && reopened == samples ? 0 : 1;
}
