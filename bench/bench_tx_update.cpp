// Installing a transmitter update of 500 files (4 kB to 200 kB) from the local HTTP server onto a drive
// folder with UpdateWorker: files/s and MB/s for a fresh install, then for a second run where every file is
// already up to date (hashed, nothing fetched).
// Usage: bench_tx_update [FILES] [WORK-FOLDER]
#include "BenchUtil.h"
#include "ServerThread.h"

#include "tests/support/LocalHttpServer.h"
#include "transmitter/UpdateWorker.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>

namespace {
struct Result
{
    double ms = 0;
    double cpu = 0;
    UpdateWorker::Summary summary;
    QString error;
};

Result install(const QString &root, const QString &data, const QVector<TxCatalogue::FileEntry> &files)
{
    UpdateWorker worker({root, data, 1, files});
    Result r;
    QObject::connect(&worker, &UpdateWorker::error,
                     [&](UpdateWorker::ErrorType, const QString &text) { r.error = text; });
    const double cpu0 = BenchUtil::cpuMs();
    r.ms = BenchUtil::msOf([&] { worker.doWork(); });
    r.cpu = BenchUtil::cpuMs() - cpu0;
    r.summary = worker.summary();
    return r;
}

void print(const char *what, const Result &r, int files, qint64 bytes)
{
    std::printf(
        "  %-28s %8.1f ms  %7.1f files/s  %7.1f MB/s  (CPU of this thread %.0f ms; %d installed, %d up "
        "to date)\n",
        what, r.ms, r.ms > 0 ? files / (r.ms / 1000.0) : 0.0, BenchUtil::mbPerSecond(bytes, r.ms), r.cpu,
        r.summary.installed, r.summary.upToDate);
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int count = argc > 1 ? QByteArray(argv[1]).toInt() : 500;
    QTemporaryDir tmp(argc > 2 ? QString::fromLocal8Bit(argv[2]) + "/bench_tx_update-XXXXXX" : QString());
    if (count <= 0 || !tmp.isValid()) {
        std::fprintf(stderr, "usage: bench_tx_update [FILES] [WORK-FOLDER]\n");
        return 2;
    }

    ServerThread serverThread;
    LocalHttpServer *server = serverThread.server();
    QVector<TxCatalogue::FileEntry> files;
    qint64 total = 0;
    serverThread.run([&] {
        QRandomGenerator rng(19);
        for (int i = 0; i < count; ++i) {
            // Mostly small files, some large, as on a transmitter: sounds, images, scripts, firmware.
            const int size = 4096 + int(rng.bounded(i % 10 == 0 ? 196 * 1024 : 28 * 1024));
            QByteArray body(size, Qt::Uninitialized);
            for (char &c : body)
                c = char(rng.generate());
            const QByteArray path = "/f/" + QByteArray::number(i) + ".bin";
            server->setReply(path, LocalHttpServer::Reply::ok(body));
            TxCatalogue::FileEntry e;
            e.url = QUrl(server->url(QString::fromLatin1(path)));
            e.hash = QString::fromLatin1(QCryptographicHash::hash(body, QCryptographicHash::Sha1).toHex());
            e.size = size;
            e.destination = QStringLiteral("Audio/set%1/file%2.bin").arg(i % 8).arg(i);
            files << e;
            total += size;
        }
    });

    const QString root = tmp.filePath("drive");
    const QString data = tmp.filePath("data");
    QDir().mkpath(root);
    std::printf("Transmitter update of %d files, %.1f MB, from the local HTTP server (127.0.0.1)\n", count,
                total / 1e6);
    BenchUtil::resetPeakRss();
    const qint64 rss0 = BenchUtil::procStatusBytes("VmRSS");
    const Result fresh = install(root, data, files);
    const Result again = install(root, data, files);
    const qint64 peak = BenchUtil::procStatusBytes("VmHWM");
    if (!fresh.error.isEmpty() || !again.error.isEmpty()) {
        std::fprintf(stderr, "update failed: %s%s\n", qPrintable(fresh.error), qPrintable(again.error));
        return 1;
    }
    print("fresh drive (all fetched)", fresh, count, total);
    print("second run (all up to date)", again, count, total);
    std::printf("  peak resident size above the start: %.1f MB\n", (peak - rss0) / 1e6);

    return 0;
}
