#include "app/AppSettings.h"
#include "app/ConsolePrompter.h"
#include "app/MainWindow.h"
#include "app/StartupOptions.h"
#include "database/Logger.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "widgets/layout/Prompter.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/quick/SceneAnimationDriver.h"

#include <QApplication>

#include <QDebug>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QIcon>
#include <QLocale>
#include <QLoggingCategory>
#include <QTimer>
#include <QTranslator>
#include <algorithm>
#include <cstdio>

int main(int argc, char *argv[])
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i)
        arguments << QString::fromLocal8Bit(argv[i]);
    StartupOptions::applyOpenGl(StartupOptions::openGlChoice(arguments));
    StartupOptions::disableFaultDialog();

    QApplication app(argc, argv);
    StartupOptions::chooseSceneGraph(StartupOptions::openGlChoice(arguments));
    SceneAnimationDriver::installFor(30);
    QApplication::setOrganizationName(QStringLiteral("Vexo"));
    QApplication::setApplicationName(QStringLiteral("Vexo Studio"));
    QApplication::setApplicationVersion(QString::fromLatin1(AppSettings::kVersion));
    // The installed desktop entry and icon share this name: the desktop matches the window to them.
    QGuiApplication::setDesktopFileName(QStringLiteral("vexo-studio"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("vexo-studio")));
    Q_INIT_RESOURCE(resources);
    registerTelemetryMetaTypes();

    QTranslator translator;
    if (translator.load(QStringLiteral(":/Translations/VexoStudio_") + QLocale::system().name()))
        app.installTranslator(&translator);
    else
        qDebug() << "Error loading language";

    Logger logger(QDir(AppSettings::dataFolder()).filePath(QStringLiteral("Application.log")));
    logger.open();
    logger.captureWarnings();
    QLoggingCategory::setFilterRules(QStringLiteral("qt.network.ssl.warning=false"));

    QFile style(QStringLiteral(":/Data/Resources/Style.css"));
    if (style.open(QIODevice::ReadOnly))
        app.setStyleSheet(QString::fromUtf8(style.readAll()));

    AppSettings settings;
    settings.load(QDir(AppSettings::dataFolder()).filePath(AppSettings::fileName()));
    int result = 0;
    {
        ConsolePrompter console; // outlives the window that may use it
        MainWindow window(&settings, &logger);
        const QString log =
            StartupOptions::firstLogArgument(arguments, QCoreApplication::applicationDirPath());
        // "--screenshot PATH": save a picture of the window once it shows the log, then quit (for a
        // machine without a display, and for the documentation).
        const int shotArg = arguments.indexOf(QStringLiteral("--screenshot"));
        const QString shotPath = shotArg >= 0 ? arguments.value(shotArg + 1) : QString();
        // Nobody answers a box in a screenshot run: boxes go to standard error, answered with their default.
        if (!shotPath.isEmpty())
            window.setPrompter(&console);
        if (!shotPath.isEmpty()) {
            // Windows that fetch something (map images) say so by their "loading" property; the picture
            // waits for them, at most 10 s.
            const auto takeShot = [&window, shotPath] {
                auto *poll = new QTimer(&window);
                QElapsedTimer waited;
                waited.start();
                QObject::connect(poll, &QTimer::timeout, &window, [&window, shotPath, poll, waited] {
                    const QList<QWidget *> windows = window.windowManager()->widgets();
                    const bool loading = std::any_of(windows.cbegin(), windows.cend(), [](QWidget *w) {
                        return w->property("loading").toBool();
                    });
                    if (loading && waited.elapsed() < 10000)
                        return;
                    poll->stop();
                    const bool saved = window.grab().save(shotPath, "PNG");
                    std::fprintf(saved ? stdout : stderr, "%s %s\n",
                                 saved ? "Screenshot saved to" : "Could not save", qPrintable(shotPath));
                    QCoreApplication::exit(saved ? 0 : 1);
                });
                poll->start(800);
            };
            if (log.isEmpty())
                takeShot();
            else
                QObject::connect(&window, &MainWindow::logLoaded, &window, takeShot);
        }
        if (settings.isLoaded())
            window.restoreSession();
        if (!log.isEmpty())
            window.openLog(log);
        window.show();
        if (!window.startupReport().isOk()) {
            if (shotPath.isEmpty())
                window.showStartupReport();
            else
                std::fprintf(stderr, "%s\n", qPrintable(window.startupReport().message));
        }
        if (!settings.isLoaded()) {
            // Nobody can answer a box on a machine without a display: the screenshot run says it instead.
            if (!shotPath.isEmpty())
                std::fprintf(stderr, "Configuration not loaded: reinitializing\n");
            window.startWithoutSettings(shotPath.isEmpty());
        }
        // A screenshot run answers no questions, so it asks the update service nothing.
        if (shotPath.isEmpty() && settings.flag(AppSettings::kAutoUpdate))
            window.checkForUpdatesAtStart();
        // "--layout FILE.jsn": that arrangement instead of the model's, for this run.
        const int layoutArg = arguments.indexOf(QStringLiteral("--layout"));
        if (layoutArg >= 0) {
            QString error;
            const QString layoutPath = arguments.value(layoutArg + 1);
            if (!window.windowManager()->readLayoutFile(layoutPath, &error)) {
                std::fprintf(stderr, "Could not load the layout %s: %s\n", qPrintable(layoutPath),
                             qPrintable(error));
                if (shotPath.isEmpty())
                    window.prompter()->error(
                        &window, QObject::tr("Error"),
                        QObject::tr("<b>Unable to load the layout:</b><ul><li>%1</li></ul>")
                            .arg(error.toHtmlEscaped()));
            }
        }
        result = app.exec();
    }
    logger.close();
    return result;
}
