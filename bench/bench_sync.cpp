// Log synchronisation from a generated transmitter drive: LOGS native logs of 1 to MAXMB MB over MODELS
// models, the worker on its own thread with the blocking requests answered by the interface thread, as in
// the wizard. Prints logs/s, MB/s, the longest gap of a 1 ms timer on the interface thread (its stall)
// and the longest insert handled there; then the same drive again, where every log is already present.
// Usage: bench_sync [LOGS=300] [MAXMB=20] [MODELS=5] [WORK-FOLDER]
#include "BenchUtil.h"

#include "database/DatabaseManager.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "transmitter/LogSyncStore.h"
#include "transmitter/SyncWorker.h"
#include "transmitter/TransmitterLogsModel.h"

#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

using namespace BenchUtil;

namespace {
constexpr qint64 kMB = 1000 * 1000;

// One long flight per model; a log of a given size is its beginning, cut at a line end.
QByteArray modelFlight(const QString &name, qint64 atLeast, quint64 seed)
{
    LogGenerator::Options o;
    o.seconds = 60;
    o.rate = 10;
    o.devices = 6;
    o.seed = seed;
    const qint64 perMinute = LogFileWriter::write(LogGenerator::generate(o)).size();
    o.seconds = int(60 * (atLeast / perMinute + 2));
    TelemetryDataPackage p = LogGenerator::generate(o);
    p.setName(name);
    p.setDescription(QStringLiteral("Generated for the sync benchmark"));
    return LogFileWriter::write(p);
}

struct Run
{
    double ms = 0;
    double longestGapMs = 0;
    double longestInsertMs = 0;
    int insertsOver50 = 0;
    SyncReport report;
};

Run runSync(const QString &drive, ModelLibrary *library)
{
    TransmitterLogsModel logs;
    logs.setDriveRoot(drive);
    logs.setAllChecked(true);
    LogSyncStore store(&logs, library);
    auto *worker = new SyncWorker(logs.checkedLogs(), drive);
    Run run;
    // The insert's own time: from the request's arrival here to the store's answer.
    QElapsedTimer insert;
    QObject::connect(
        worker, &SyncWorker::logCreated, &store, [&insert] { insert.start(); }, Qt::BlockingQueuedConnection);
    store.attach(worker, Qt::BlockingQueuedConnection);
    // Connected after the store's, so it runs when the store has answered.
    QObject::connect(
        worker, &SyncWorker::logCreated, &store,
        [&] {
            const double ms = insert.nsecsElapsed() / 1e6;
            run.longestInsertMs = std::max(run.longestInsertMs, ms);
            run.insertsOver50 += ms > 50 ? 1 : 0;
        },
        Qt::BlockingQueuedConnection);

    QThread thread;
    worker->moveToThread(&thread);
    QObject::connect(&thread, &QThread::started, worker, &SyncWorker::doWork);
    QEventLoop loop;
    QObject::connect(worker, &SyncWorker::completed, &loop,
                     [&](const SyncReport &report) { run.report = report; });
    QObject::connect(worker, &SyncWorker::finished, &loop, &QEventLoop::quit, Qt::QueuedConnection);

    QElapsedTimer gap;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        run.longestGapMs = std::max(run.longestGapMs, gap.nsecsElapsed() / 1e6);
        gap.restart();
    });
    QElapsedTimer wall;
    wall.start();
    gap.start();
    tick.start();
    thread.start();
    loop.exec();
    tick.stop();
    run.ms = wall.nsecsElapsed() / 1e6;
    thread.quit();
    thread.wait();
    delete worker;
    return run;
}

void print(const char *what, const Run &run, int logs, qint64 bytes)
{
    std::printf("%s: %d logs, %.0f MB in %.1f s: %.1f logs/s, %.1f MB/s; stored %d, skipped %d, failed %d\n",
                what, logs, bytes / 1e6, run.ms / 1000, logs / (run.ms / 1000), mbPerSecond(bytes, run.ms),
                int(run.report.stored.size()), int(run.report.skipped.size()), int(run.report.failed.size()));
    std::printf("  interface thread: longest stall %.1f ms (goal: under 50 ms), longest insert %.1f ms, "
                "inserts over 50 ms: %d\n",
                run.longestGapMs, run.longestInsertMs, run.insertsOver50);
}
} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int count = args.value(1, QStringLiteral("300")).toInt();
    const int maxMb = std::max(1, args.value(2, QStringLiteral("20")).toInt());
    const int models = std::max(1, args.value(3, QStringLiteral("5")).toInt());
    QTemporaryDir work(args.size() > 4 ? args.at(4) + QStringLiteral("/bench-sync-XXXXXX") : QString());
    if (count <= 0 || !work.isValid()) {
        std::fprintf(stderr, "usage: bench_sync [LOGS] [MAXMB] [MODELS] [WORK-FOLDER]\n");
        return 2;
    }
    const QString drive = work.filePath(QStringLiteral("drive"));

    std::printf("Generating %d logs of 1 to %d MB over %d models ...\n", count, maxMb, models);
    std::fflush(stdout);
    std::vector<QByteArray> flights;
    for (int m = 0; m < models; ++m)
        flights.push_back(modelFlight(QStringLiteral("Model %1").arg(m + 1), maxMb * kMB, quint64(m + 1)));
    qint64 total = 0;
    const QDate first(2024, 4, 1);
    for (int i = 0; i < count; ++i) {
        // Sizes spread evenly over 1..MAXMB MB; five flights a day.
        const qint64 size = kMB + (count > 1 ? qint64(i) * (maxMb - 1) * kMB / (count - 1) : 0);
        const QByteArray &flight = flights[size_t(i % models)];
        const int end = flight.indexOf('\n', int(std::min<qint64>(size, flight.size() - 1)));
        const QByteArray bytes = flight.left(end < 0 ? flight.size() : end + 1);
        const QString day = first.addDays(i / 5).toString(QStringLiteral("yyyyMMdd"));
        const QString name = QTime(9, 0).addSecs((i % 5) * 3600 + 17).toString(QStringLiteral("hh-mm-ss")) +
                             QStringLiteral(".log");
        QDir().mkpath(drive + QStringLiteral("/Log/") + day);
        QFile f(drive + QStringLiteral("/Log/") + day + QLatin1Char('/') + name);
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size()) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(f.fileName()));
            return 1;
        }
        total += bytes.size();
    }
    flights.clear();
    // The drive's files are on the drive before a sync starts: the page cache is flushed now rather than
    // during the timed run, where the database's own flushes would wait behind gigabytes of fixtures.
    ::sync();

    QDir().mkpath(work.filePath(QStringLiteral("db")));
    DatabaseManager db(work.filePath(QStringLiteral("db")));
    if (!db.openAndInitialise()) {
        std::fprintf(stderr, "%s\n", qPrintable(db.lastError()));
        return 1;
    }
    ModelLibrary library(&db);
    print("First sync", runSync(drive, &library), count, total);
    std::fflush(stdout);
    print("Second sync (all present)", runSync(drive, &library), count, total);
    std::printf("  database: %.0f MB\n",
                QFileInfo(work.filePath(QStringLiteral("db/") + DatabaseManager::fileName())).size() / 1e6);
    return 0;
}
