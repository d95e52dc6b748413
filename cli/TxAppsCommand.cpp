#include "cli/TxAppsCommand.h"

#include "cli/CliSupport.h"
#include "link/TransmitterInfo.h"
#include "tools/FileDownloader.h"
#include "tools/UpdateEndpoints.h"
#include "transmitter/AppInstaller.h"
#include "transmitter/AppManifest.h"
#include "transmitter/TransmitterConfig.h"
#include "transmitter/TxCatalogue.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>

const char TxAppsCommand::kUsage[] =
    "usage: vexo-log tx apps ROOT [--list | --install ID | --uninstall ID]\n"
    "\n"
    "  --list          the Lua apps of the update service's \"apps.json\" (the default):\n"
    "                  id, name, version, installed version, compatible, updatable\n"
    "  --install ID    install the app, or update it when an older version is installed\n"
    "  --uninstall ID  remove the app's files that are unchanged since they were installed;\n"
    "                  works without the update service\n"
    "\n"
    "The list is read from VEXO_TX_UPDATE_URL. An installed app is recognised by its manifest,\n"
    "Apps/.vexo/<id>.json on the drive, written by the installer with each file's SHA1.\n"
    "exit codes: 0 done, 1 failed with nothing written, 2 bad usage, 3 failed after the drive\n"
    "            was written to (files already installed stay; none is left half written)\n";

namespace {
using Context = CliSupport::Output;

bool fetchList(const Context &c, QVector<TxCatalogue::App> *apps)
{
    const QUrl folder = UpdateEndpoints::txUpdateFolder();
    if (folder.isEmpty()) {
        c.fail(QStringLiteral("no update service is configured: set %1 to the folder holding apps.json")
                   .arg(QLatin1String(UpdateEndpoints::kTxUpdateUrlVariable)));
        return false;
    }
    const QUrl url = folder.resolved(QUrl(QStringLiteral("apps.json")));
    FileDownloader download;
    download.setMaxSize(TxCatalogue::kMaxListBytes);
    QString error;
    if (!download.downloadAndWait(url)) {
        c.fail(QStringLiteral("An error occurred while downloading Lua-apps list. Try again later. (%1)")
                   .arg(download.errorString()));
        return false;
    }
    if (!TxCatalogue::parseAppList(download.data(), apps, &error)) {
        c.fail(QStringLiteral("An error occurred while downloading Lua-apps list. Try again later. (%1)")
                   .arg(error));
        return false;
    }
    AppInstaller::resolveUrls(apps, url);
    return true;
}

int list(const Context &c, const QString &root, const TransmitterInfo &t)
{
    QVector<TxCatalogue::App> apps;
    if (!fetchList(c, &apps))
        return 1;
    const QHash<int, AppManifest> installed = AppManifest::readAll(root);
    QString text = QStringLiteral("id\tname\tversion\tinstalled\tcompatible\tupdatable\n");
    for (const TxCatalogue::App &app : apps) {
        const bool isInstalled = installed.contains(app.id);
        const AppManifest m = installed.value(app.id);
        const bool updatable = isInstalled && (m.version != app.version || !m.complete);
        text += QStringLiteral("%1\t%2\t%3\t%4\t%5\t%6\n")
                    .arg(app.id)
                    .arg(app.name, app.version,
                         isInstalled ? (m.version.isEmpty() ? QStringLiteral("?") : m.version)
                                     : QStringLiteral("-"),
                         app.supports(t.hwId) ? QStringLiteral("yes") : QStringLiteral("no"),
                         updatable ? QStringLiteral("yes") : QStringLiteral("no"));
    }
    c.print(text);
    return 0;
}

int runInstaller(const Context &c, AppInstaller &installer)
{
    QEventLoop loop;
    QString error;
    QObject::connect(&installer, &AppInstaller::logLine, [&c](const QString &line) { c.print(line + '\n'); });
    QObject::connect(&installer, &AppInstaller::error,
                     [&error](const QString &, const QString &text) { error = text; });
    QObject::connect(&installer, &AppInstaller::finished, &loop, &QEventLoop::quit);
    bool done = false;
    QObject::connect(&installer, &AppInstaller::finished, [&done] { done = true; });
    installer.doWork();
    if (!done)
        loop.exec();
    if (installer.succeeded())
        return 0;
    c.fail(QString(error).replace(QLatin1Char('\n'), QLatin1String(": ")));
    return installer.driveChanged() ? 3 : 1;
}

int install(const Context &c, const QString &root, const TransmitterInfo &t, int id)
{
    QVector<TxCatalogue::App> apps;
    if (!fetchList(c, &apps))
        return 1;
    for (const TxCatalogue::App &app : apps) {
        if (app.id != id)
            continue;
        if (!app.supports(t.hwId))
            return c.fail(
                QStringLiteral("app %1 (%2) does not support the %3").arg(id).arg(app.name, t.modelName));
        AppManifest m;
        if (AppManifest::read(root, id, &m) && m.complete && m.version == app.version) {
            c.print(QStringLiteral("%1 %2 is already installed.\n").arg(app.name, app.version));
            return 0;
        }
        AppInstaller installer(AppInstaller::Install, root, app);
        return runInstaller(c, installer);
    }
    return c.fail(QStringLiteral("no app with id %1 in the list").arg(id));
}

int uninstall(const Context &c, const QString &root, int id)
{
    AppManifest m;
    QString error;
    if (!AppManifest::read(root, id, &m, &error))
        return c.fail(error);
    TxCatalogue::App app;
    app.id = id;
    app.name = m.name.isEmpty() ? QString::number(id) : m.name;
    AppInstaller installer(AppInstaller::Uninstall, root, app);
    const int code = runInstaller(c, installer);
    for (const QString &kept : installer.keptFiles())
        c.print(QStringLiteral("kept (changed on the transmitter): %1\n").arg(kept));
    return code;
}
} // namespace

int TxAppsCommand::run(const QStringList &args, std::FILE *out, std::FILE *err)
{
    const Context c{out, err, "tx apps", kUsage};
    QStringList positional;
    QString action;
    int id = -1;
    for (int i = 0; i < args.size(); ++i) {
        const QString &a = args.at(i);
        if (a == QLatin1String("--help") || a == QLatin1String("-h")) {
            std::fputs(kUsage, out);
            return 0;
        }
        if (a == QLatin1String("--list") || a == QLatin1String("--install") ||
            a == QLatin1String("--uninstall")) {
            if (!action.isEmpty())
                return c.usage(QStringLiteral("give one of --list, --install and --uninstall"));
            action = a;
            if (a == QLatin1String("--list"))
                continue;
            bool ok = false;
            if (i + 1 < args.size())
                id = args.at(++i).toInt(&ok);
            if (!ok)
                return c.usage(QStringLiteral("%1 needs an app id").arg(a));
        } else if (a.startsWith(QLatin1String("--"))) {
            return c.usage(QStringLiteral("unknown option %1").arg(a));
        } else {
            positional << a;
        }
    }
    if (positional.size() != 1)
        return c.usage(QStringLiteral("apps takes the drive's root folder"));
    const QString root = QDir::cleanPath(QFileInfo(positional.at(0)).absoluteFilePath());
    TransmitterInfo t;
    QString error;
    if (!TransmitterConfig::read(root, &t, &error))
        return c.fail(
            QStringLiteral("%1: not a transmitter drive: %2").arg(QDir::toNativeSeparators(root), error));
    if (action == QLatin1String("--install"))
        return install(c, root, t, id);
    if (action == QLatin1String("--uninstall"))
        return uninstall(c, root, id);
    return list(c, root, t);
}
