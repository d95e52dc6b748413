#include "cli/UpdateCommand.h"

#include "cli/CliSupport.h"
#include "cli/DbCommands.h"
#include "cli/SignalWatcher.h"
#include "tools/UpdateChecker.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>

namespace {
const char kUpdateUsage[] =
    "usage: vexo-log check-updates [--download] [--data DIR]\n"
    "\n"
    "  asks the update service (the folder in VEXO_UPDATE_URL) for a newer program and newer\n"
    "  device definitions\n"
    "  --download   fetch newer device definitions into the data folder; the file is replaced\n"
    "               only once its SHA1 matches the catalogue\n"
    "  --data DIR   the data folder (default: the studio's own)\n"
    "\n"
    "exit codes: 0 checked (and downloaded when asked), 1 the check could not run or the download\n"
    "            failed (the old definitions file is kept), 2 bad usage\n";
} // namespace

int UpdateCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    bool download = false;
    QString data;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            std::fputs(kUpdateUsage, out);
            return 0;
        }
        if (a == QLatin1String("--download")) {
            download = true;
        } else if (a == QLatin1String("--data") && i + 1 < args.size()) {
            data = args.at(++i);
        } else {
            return CliSupport::usage(err, "check-updates", QStringLiteral("unknown argument \"%1\"").arg(a),
                                     kUpdateUsage);
        }
    }
    if (data.isEmpty())
        data = QFileInfo(DbCommands::defaultDatabasePath()).path();

    const QUrl folder = UpdateEndpoints::updateFolder();
    if (folder.isEmpty()) {
        std::fprintf(err,
                     "vexo-log: no update service is configured: set %s to the folder holding "
                     "Update.xml and DevUpdate.xml\n",
                     UpdateEndpoints::kUpdateUrlVariable);
        return 1;
    }
    UpdateChecker checker(folder, data);
    checker.setAutoDownload(download);
    bool failed = false;
    int lastProgress = -2;
    QEventLoop loop;
    QObject::connect(&checker, &UpdateChecker::programChecked, [&](const QString &offered, bool newer) {
        if (newer)
            std::fprintf(out, "program: version %s is available (this is %s)\n", qPrintable(offered),
                         UpdateChecker::kProgramVersion);
        else
            std::fprintf(out, "program: up to date (%s; the service offers %s)\n",
                         UpdateChecker::kProgramVersion, qPrintable(offered));
    });
    QObject::connect(&checker, &UpdateChecker::checkFailed, [&](const QString &why) {
        failed = true;
        std::fprintf(err, "vexo-log: update check failed: %s\n", qPrintable(why));
    });
    bool offered = false;
    bool finished = false;
    QObject::connect(&checker, &UpdateChecker::deviceUpdateAvailable, [&](const QDateTime &date) {
        offered = true;
        std::fprintf(out, "device definitions: a newer file from %s is available%s\n",
                     qPrintable(date.toString(QLatin1String(UpdateChecker::kDateFormat))),
                     download ? "" : " (--download fetches it)");
        // Without --download the checker would wait for an answer: there is nothing more to do.
        if (!download) {
            finished = true;
            loop.quit();
        }
    });
    QObject::connect(&checker, &UpdateChecker::progress, [&](int percent) { lastProgress = percent; });
    QObject::connect(&checker, &UpdateChecker::done, &loop, [&] {
        finished = true;
        loop.quit();
    });
    SignalWatcher::onInterrupt(&loop, [&] { checker.cancel(); });
    checker.run();
    if (!finished)
        loop.exec();
    if (failed)
        return 1;
    if (!offered) {
        std::fprintf(out, "device definitions: up to date (%s)\n", qPrintable(checker.deviceUpdatesPath()));
        return 0;
    }
    if (!download)
        return 0;
    if (lastProgress != 100 || !QFileInfo::exists(checker.deviceUpdatesPath())) {
        std::fprintf(err, "vexo-log: the device definitions could not be fetched and verified; "
                          "the old file is kept\n");
        return 1;
    }
    std::fprintf(out, "device definitions: saved to %s\n", qPrintable(checker.deviceUpdatesPath()));
    return 0;
}
