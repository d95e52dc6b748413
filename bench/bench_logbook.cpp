// The logbook of a model with many flights, in a database whose logs carry realistic data: the two
// logbook queries, the logbook tab shown (queried, laid out and painted offscreen), and the models
// window switching to the model (tree and logbook). Goal: the logbook shown in under 50 ms. Then the
// one-time upgrade of a database from before the logbook: every stored log read to count its alarms.
// Usage: bench_logbook [FLIGHTS=1000] [BLOB_KB=512] [OTHER_MODELS=4] [UPGRADE_LOGS=40]
#include "BenchUtil.h"

#include "database/BlobCodec.h"
#include "database/DatabaseManager.h"
#include "database/Logbook.h"
#include "database/ModelLibrary.h"
#include "telemetry/LogFileWriter.h"
#include "telemetry/LogGenerator.h"
#include "telemetry/TelemetryData.h"
#include "widgets/models/LogbookView.h"
#include "widgets/models/WidgetModel.h"

#include <QApplication>
#include <QRandomGenerator>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTabWidget>
#include <QTemporaryDir>

#include <cstdio>

using namespace BenchUtil;

namespace {
int argOr(int argc, char *argv[], int i, int fallback)
{
    return argc > i ? QByteArray(argv[i]).toInt() : fallback;
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int flights = argOr(argc, argv, 1, 1000);
    const int blobBytes = argOr(argc, argv, 2, 512) * 1024;
    const int others = argOr(argc, argv, 3, 4);

    QTemporaryDir dir;
    DatabaseManager db(dir.path());
    if (!db.openAndInitialise()) {
        std::fprintf(stderr, "bench_logbook: %s\n", qPrintable(db.lastError()));
        return 1;
    }
    ModelLibrary library(&db);
    // Stored data that does not compress, as a compressed log does not: every row's blob spills onto
    // overflow pages, as real ones do.
    QByteArray blob(blobBytes, Qt::Uninitialized);
    QRandomGenerator random(42);
    random.fillRange(reinterpret_cast<quint32 *>(blob.data()), blob.size() / 4);
    const QDateTime start(QDate(2023, 4, 1), QTime(9, 0));
    const auto fill = [&](int model, int count) {
        if (!db.beginTransaction())
            return false;
        for (int i = 0; i < count; ++i) {
            const QDateTime date = start.addSecs(qint64(i) * 3 * 3600);
            if (library.storeCompressedLog(blob, date, 60000 + (i * 7919) % 1200000, i % 4, model, -1,
                                           date.toString(QStringLiteral("hh-mm-ss.log"))) < 0)
                return false;
        }
        return db.commitTransaction();
    };
    int big = -1;
    double fillMs = msOf([&] {
        big = library.createModel(QStringLiteral("Big"));
        for (int m = 0; m < others; ++m)
            fill(library.createModel(QStringLiteral("Other %1").arg(m)), flights / 5);
        fill(big, flights);
    });
    const qint64 stored = qint64(flights + others * (flights / 5)) * blobBytes;
    std::printf(
        "database: %d flights of \"Big\" + %d other models x %d, %d KB each (%.0f MB), stored in %.0f ms "
        "(%.0f MB/s)\n",
        flights, others, flights / 5, blobBytes / 1024, stored / 1e6, fillMs, mbPerSecond(stored, fillMs));

    const int runs = 15;
    Timing query, shown, window;
    Logbook book(&db);
    for (int i = 0; i < runs; ++i)
        query.add([&] { book.setModelId(big); });
    if (book.totals().flights != flights) {
        std::fprintf(stderr, "bench_logbook: %d flights read, %d stored\n", book.totals().flights, flights);
        return 1;
    }

    LogbookView view(&db);
    view.resize(700, 500);
    view.show();
    for (int i = 0; i < runs; ++i) {
        view.setModelId(-1);
        app.processEvents();
        shown.add([&] {
            view.setModelId(big);
            view.grab(); // laid out and painted
        });
    }

    TelemetryData store;
    WidgetModel models(&db, &library, &store);
    models.resize(700, 900);
    models.findChild<QTabWidget *>()->setCurrentWidget(models.logbook());
    models.show();
    app.processEvents();
    for (int i = 0; i < runs; ++i) {
        models.selectModel(-1);
        app.processEvents();
        window.add([&] {
            models.selectModel(big);
            models.grab();
        });
    }

    std::printf("logbook of %d flights:\n", flights);
    query.print("two queries (Logbook::setModelId)");
    shown.print("logbook tab shown (queried, laid out, painted)");
    window.print("models window switching to it (tree + logbook)");
    std::printf("goal: logbook shown in under 50 ms: %s\n", median(shown.wall) < 50 ? "met" : "NOT MET");

    // The upgrade: real native logs (a 20-minute flight of six devices at 10 Hz) without logbook rows.
    const int upgradeLogs = argOr(argc, argv, 4, 40);
    QTemporaryDir oldDir;
    DatabaseManager old(oldDir.path());
    old.setConnectionName(QStringLiteral("old"));
    ModelLibrary oldLibrary(&old);
    LogGenerator::Options o;
    o.seconds = 20 * 60;
    const QByteArray native = LogFileWriter::write(LogGenerator::generate(o));
    const QByteArray compressed = BlobCodec::compress(native);
    if (!old.openAndInitialise() || !old.beginTransaction())
        return 1;
    const int oldModel = oldLibrary.createModel(QStringLiteral("Old"));
    for (int i = 0; i < upgradeLogs; ++i)
        oldLibrary.storeCompressedLog(compressed, start.addDays(i), 1200000, 0, oldModel, -1,
                                      QStringLiteral("old.log"));
    if (!old.commitTransaction() || !old.isOpen())
        return 1;
    QSqlQuery(QSqlDatabase::database(QStringLiteral("old"))).exec(QStringLiteral("drop table logbook"));
    old.close();
    bool upgraded = false;
    const double upgradeMs = msOf([&] { upgraded = old.openAndInitialise(); });
    const qint64 read = qint64(upgradeLogs) * native.size();
    std::printf(
        "upgrade of %d stored logs of %.1f MB (%.1f MB compressed): %s in %.0f ms, %.1f logs/s, %.0f MB/s "
        "of log text\n",
        upgradeLogs, native.size() / 1e6, compressed.size() / 1e6, upgraded ? "done" : "FAILED", upgradeMs,
        upgradeLogs / (upgradeMs / 1000.0), mbPerSecond(read, upgradeMs));
    return upgraded ? 0 : 1;
}
