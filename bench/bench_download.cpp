// A large download from the local HTTP server with SaveFileDownloader, beside `curl -o` of the same URL in
// the same run: MB/s and peak memory. Two sizes show whether memory depends on the size of the file.
// Usage: bench_download [MEGABYTES] [WORK-FOLDER]
#include "BenchUtil.h"
#include "ServerThread.h"

#include "tests/support/LocalHttpServer.h"
#include "tools/SaveFileDownloader.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QEventLoop>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>

#include <sys/resource.h>

#include <cstdio>

namespace {
struct Result
{
    double ms = 0;
    qint64 bytes = 0;
    qint64 peakBytes = 0; // peak resident size above the resident size before the download
    bool ok = false;
};

Result ours(const QString &url, const QString &target, const QString &sha1 = QString())
{
    SaveFileDownloader downloader;
    downloader.setFileName(target);
    downloader.setExpectedSha1(sha1);
    downloader.setMaxSize(qint64(4) << 30);
    QEventLoop loop;
    bool ok = false;
    QObject::connect(&downloader, &AbstractDownloader::finished, &loop, [&](bool done) {
        ok = done;
        loop.quit();
    });
    BenchUtil::resetPeakRss();
    const qint64 before = BenchUtil::procStatusBytes("VmRSS");
    Result r;
    r.ms = BenchUtil::msOf([&] {
        downloader.download(QUrl(url));
        loop.exec();
    });
    r.ok = ok;
    r.bytes = QFileInfo(target).size();
    r.peakBytes = BenchUtil::procStatusBytes("VmHWM") - before;
    if (!ok)
        std::fprintf(stderr, "download failed: %s\n", qPrintable(downloader.errorString()));
    return r;
}

// curl in its own process; its peak is the largest child's, so it is only exact for the first call.
Result curl(const QString &url, const QString &target)
{
    Result r;
    QProcess process;
    r.ms = BenchUtil::msOf([&] {
        process.start(QStringLiteral("curl"), {"-s", "-S", "-o", target, url});
        process.waitForFinished(-1);
    });
    r.ok = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    r.bytes = QFileInfo(target).size();
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    r.peakBytes = qint64(usage.ru_maxrss) * 1024;
    if (!r.ok)
        std::fprintf(stderr, "curl failed: %s\n", process.readAllStandardError().constData());
    return r;
}

void print(const char *what, qint64 megabytes, const Result &r)
{
    std::printf("  %-34s %5lld MB  %8.1f ms  %8.1f MB/s  peak %6.1f MB%s\n", what, (long long)megabytes, r.ms,
                BenchUtil::mbPerSecond(r.bytes, r.ms), double(r.peakBytes) / 1e6, r.ok ? "" : "  FAILED");
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const qint64 megabytes = argc > 1 ? QByteArray(argv[1]).toLongLong() : 200;
    QTemporaryDir tmp(argc > 2 ? QString::fromLocal8Bit(argv[2]) + "/bench_download-XXXXXX" : QString());
    if (megabytes <= 0 || !tmp.isValid()) {
        std::fprintf(stderr, "usage: bench_download [MEGABYTES] [WORK-FOLDER]\n");
        return 2;
    }

    ServerThread serverThread;
    LocalHttpServer *server = serverThread.server();
    QString base;
    QByteArray noiseBlock;
    serverThread.run([&] {
        QByteArray noise(64 * 1024, Qt::Uninitialized);
        QRandomGenerator rng(1);
        for (char &c : noise)
            c = char(rng.generate());
        for (const qint64 mb : {megabytes / 10, megabytes}) {
            LocalHttpServer::Reply reply = LocalHttpServer::Reply::ok(noise);
            reply.fault = LocalHttpServer::Reply::Flood;
            reply.floodBytes = mb * 1000 * 1000;
            // Every request gets the same reply: each one is served afresh.
            server->setReply("/" + QByteArray::number(mb) + ".bin", reply);
        }
        base = server->url();
        noiseBlock = noise;
    });

    std::printf("Download from the local HTTP server (127.0.0.1), %lld MB\n", (long long)megabytes);
    // curl first, so its peak is its own; then alternating rounds, best of two each.
    for (const qint64 mb : {megabytes / 10, megabytes}) {
        if (mb <= 0)
            continue;
        const QString url = base + "/" + QString::number(mb) + ".bin";
        const QString curlFile = tmp.filePath("curl.bin");
        const QString ourFile = tmp.filePath("ours.bin");
        // The body is the block repeated: its SHA1 computed here, apart from the downloader.
        QCryptographicHash hash(QCryptographicHash::Sha1);
        for (qint64 left = mb * 1000 * 1000; left > 0; left -= noiseBlock.size())
            hash.addData(noiseBlock.constData(), int(qMin<qint64>(left, noiseBlock.size())));
        const QString sha1 = QString::fromLatin1(hash.result().toHex());
        Result bestCurl, bestOurs, bestVerified;
        const auto keepBest = [](Result &best, const Result &r, int round) {
            if (round == 0 || r.ms < best.ms)
                best = r;
        };
        for (int round = 0; round < 2; ++round) {
            keepBest(bestCurl, curl(url, curlFile), round);
            keepBest(bestOurs, ours(url, ourFile), round);
            keepBest(bestVerified, ours(url, ourFile, sha1), round);
            QFile::remove(curlFile);
            QFile::remove(ourFile);
        }
        print("curl -o", mb, bestCurl);
        print("SaveFileDownloader", mb, bestOurs);
        print("SaveFileDownloader + SHA1 check", mb, bestVerified);
        std::printf("  %-34s %5.2fx curl (%.2fx with the SHA1 check)\n", "speed",
                    bestOurs.ms > 0 ? bestCurl.ms / bestOurs.ms : 0.0,
                    bestVerified.ms > 0 ? bestCurl.ms / bestVerified.ms : 0.0);
    }
    std::printf("  (peak: resident size above the process before the download; curl: its whole process)\n");

    return 0;
}
