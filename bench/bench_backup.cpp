// A transmitter backup and its restore on a generated drive (2000 files, 300 MB, half compressible text,
// half random bytes): the backup worker against `zip -r -6` of the same tree, the restore worker
// (check, .jsnew with CRC, swap, sync) against `unzip -o`, and the peak memory of the worker runs.
// Usage: bench_backup [FILES] [MEGABYTES] [WORK-FOLDER]
#include "BenchUtil.h"

#include "transmitter/BackupRules.h"
#include "transmitter/BackupWorker.h"
#include "transmitter/RestoreWorker.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>

using namespace BenchUtil;

namespace {

QByteArray content(int index, qint64 size, QRandomGenerator *random)
{
    QByteArray bytes;
    bytes.reserve(int(size));
    if (index % 2 == 0) {
        // Log-like text: compresses about as a transmitter's logs and settings do.
        while (bytes.size() < size)
            bytes += QByteArray::number(random->bounded(100000)) +
                     ";alt=" + QByteArray::number(random->bounded(500)) + ";volt=7." +
                     QByteArray::number(random->bounded(10)) + '\n';
        bytes.truncate(int(size));
    } else {
        bytes.resize(int(size));
        random->fillRange(reinterpret_cast<quint32 *>(bytes.data()), int(size / 4));
    }
    return bytes;
}

// Sizes summing to total: a few large files (sounds, images) and many small ones.
qint64 generate(const QString &root, int files, qint64 total)
{
    QRandomGenerator random(7);
    const QStringList folders = {"Config", "Model", "Img", "Apps", "Audio", "Log/20240101", "Log/20240102"};
    const int large = qMax(1, files / 200);
    const qint64 largeSize = total / 3 / large;
    const qint64 smallSize = (total - largeSize * large) / qMax(1, files - large);
    qint64 written = 0;
    for (int i = 0; i < files; ++i) {
        const QString folder = root + QLatin1Char('/') + folders.at(i % folders.size());
        QDir().mkpath(folder);
        QFile f(folder + QStringLiteral("/file%1.bin").arg(i, 4, 10, QLatin1Char('0')));
        const QByteArray bytes = content(i, i < large ? largeSize : smallSize, &random);
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
            return -1;
        written += bytes.size();
    }
    QFile config(root + QStringLiteral("/Config/Config.jsn"));
    config.open(QIODevice::WriteOnly);
    config.write(R"({"hw":674,"version":"4.22"})");
    return written;
}

QByteArray treeHash(const QString &root)
{
    QStringList paths;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        paths << QDir(root).relativeFilePath(it.next());
    paths.sort();
    QCryptographicHash hash(QCryptographicHash::Sha1);
    for (const QString &p : paths) {
        QFile f(root + QLatin1Char('/') + p);
        f.open(QIODevice::ReadOnly);
        hash.addData(p.toUtf8());
        hash.addData(&f);
    }
    return hash.result().toHex().left(12);
}

double childMs(const QString &command, const QStringList &args, const QString &folder)
{
    QProcess p;
    p.setWorkingDirectory(folder);
    QElapsedTimer t;
    t.start();
    p.start(command, args);
    if (!p.waitForFinished(-1) || p.exitCode() != 0) {
        std::fprintf(stderr, "bench_backup: %s failed: %s\n", qPrintable(command),
                     p.readAllStandardError().constData());
        return -1;
    }
    return double(t.nsecsElapsed()) / 1e6;
}

void printRun(const char *what, double ms, double cpu, qint64 bytes, qint64 peak, qint64 base)
{
    std::printf("  %-34s %8.0f ms  %6.1f MB/s  (CPU %6.0f ms", what, ms, mbPerSecond(bytes, ms), cpu);
    if (peak > 0)
        std::printf(", peak RSS %5.1f MB, +%5.1f MB over start", peak / 1e6, (peak - base) / 1e6);
    std::printf(")\n");
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int files = argc > 1 ? QByteArray(argv[1]).toInt() : 2000;
    const qint64 megabytes = argc > 2 ? QByteArray(argv[2]).toLongLong() : 300;
    const QString base = argc > 3 ? QString::fromLocal8Bit(argv[3]) : QDir::tempPath();
    QTemporaryDir work(base + QStringLiteral("/bench-backup-XXXXXX"));
    if (files <= 0 || megabytes <= 0 || !work.isValid()) {
        std::fprintf(stderr, "usage: bench_backup [FILES] [MEGABYTES] [WORK-FOLDER]\n");
        return 2;
    }
    const QString drive = work.filePath("drive");
    const qint64 total = generate(drive, files, megabytes * 1000 * 1000);
    if (total < 0) {
        std::fprintf(stderr, "bench_backup: cannot write the drive below %s\n", qPrintable(base));
        return 1;
    }
    const QStringList list = BackupRules::filesForScope(drive, BackupRules::Full);
    std::printf("drive: %d files, %.1f MB in %s; %d cores\n", list.size(), total / 1e6, qPrintable(base),
                QThread::idealThreadCount());
    QProcess::execute(QStringLiteral("sh"), {"-c", "cat \"$0\"/*/* \"$0\"/Log/*/* > /dev/null 2>&1", drive});
    const QByteArray original = treeHash(drive);

    // Backup.
    const QString zipPath = work.filePath("backup.zip");
    BackupWorker::Request request;
    request.root = drive;
    request.files = list;
    request.targetFile = zipPath;
    QString error;
    const qint64 startRss = procStatusBytes("VmRSS");
    resetPeakRss();
    const double backupCpu0 = cpuMs();
    const double backupMs = msOf([&] {
        BackupWorker worker(request);
        QObject::connect(&worker, &BackupWorker::error,
                         [&](BackupWorker::ErrorType, const QString &t) { error = t; });
        worker.doWork();
    });
    const double backupCpu = cpuMs() - backupCpu0;
    const qint64 backupPeak = procStatusBytes("VmHWM");
    if (!error.isEmpty()) {
        std::fprintf(stderr, "bench_backup: backup failed: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("backup (%s: %.1f MB)\n", "BackupWorker, deflate level 6, CRC re-read",
                QFileInfo(zipPath).size() / 1e6);
    printRun("BackupWorker", backupMs, backupCpu, total, backupPeak, startRss);

    const bool haveZip = !QStandardPaths::findExecutable(QStringLiteral("zip")).isEmpty();
    const bool haveUnzip = !QStandardPaths::findExecutable(QStringLiteral("unzip")).isEmpty();
    if (haveZip) {
        const double ms =
            childMs(QStringLiteral("zip"), {"-r", "-6", "-q", work.filePath("zip.zip"), "."}, drive);
        std::printf("  %-34s %8.0f ms  %6.1f MB/s  (%.1f MB)\n", "zip -r -6", ms, mbPerSecond(total, ms),
                    QFileInfo(work.filePath("zip.zip")).size() / 1e6);
    } else {
        std::printf("  zip -r -6: not installed, skipped\n");
    }

    // Restore onto an empty drive, then over the same files (every file swapped through .jsold).
    const QString empty = work.filePath("restored");
    QDir().mkpath(empty);
    for (const bool over : {false, true}) {
        const QString target = over ? drive : empty;
        resetPeakRss();
        const qint64 rss = procStatusBytes("VmRSS");
        const double cpu0 = cpuMs();
        const double ms = msOf([&] {
            RestoreWorker worker({target, zipPath, -1});
            QObject::connect(&worker, &RestoreWorker::error,
                             [&](RestoreWorker::ErrorType, const QString &t) { error = t; });
            worker.doWork();
        });
        const double cpu = cpuMs() - cpu0;
        if (!error.isEmpty()) {
            std::fprintf(stderr, "bench_backup: restore failed: %s\n", qPrintable(error));
            return 1;
        }
        const bool same = treeHash(target) == original;
        std::printf("restore %s%s\n", over ? "over the existing files" : "onto an empty drive",
                    same ? "" : " -- CONTENT DIFFERS");
        printRun("RestoreWorker", ms, cpu, total, procStatusBytes("VmHWM"), rss);
    }
    if (haveUnzip) {
        const QString target = work.filePath("unzipped");
        QDir().mkpath(target);
        const double ms = childMs(QStringLiteral("unzip"), {"-o", "-q", zipPath, "-d", target}, work.path());
        std::printf("  %-34s %8.0f ms  %6.1f MB/s  (empty folder)\n", "unzip -o", ms, mbPerSecond(total, ms));
        const double again =
            childMs(QStringLiteral("unzip"), {"-o", "-q", zipPath, "-d", target}, work.path());
        std::printf("  %-34s %8.0f ms  %6.1f MB/s  (over the files)\n", "unzip -o", again,
                    mbPerSecond(total, again));
        std::printf("  unzip's tree %s the drive\n",
                    treeHash(target) == original ? "matches" : "DIFFERS from");
    } else {
        std::printf("  unzip -o: not installed, skipped\n");
    }
    return 0;
}
