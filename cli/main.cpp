#include "cli/CliCommands.h"
#include "telemetry/TelemetryMetaTypes.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>

#include <cstring>
#include <memory>

#ifdef Q_OS_UNIX
#include <unistd.h>
#endif

int main(int argc, char *argv[])
{
    // Drawing a map writes text (the credit line, why an image is missing), which needs the GUI classes;
    // they draw without a display.
    std::unique_ptr<QCoreApplication> app;
    if (argc > 1 && std::strcmp(argv[1], "map") == 0) {
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
            qputenv("QT_QPA_PLATFORM", "offscreen");
#ifdef Q_OS_UNIX
        // Without a desktop session the GUI classes would complain about the missing runtime folder
        // and then use this one themselves.
        if (qEnvironmentVariableIsEmpty("XDG_RUNTIME_DIR")) {
            const QString runtime = QStringLiteral("/tmp/runtime-%1").arg(getuid());
            QDir().mkpath(runtime);
            QFile::setPermissions(runtime, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
            qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
        }
#endif
        app = std::make_unique<QGuiApplication>(argc, argv);
    } else {
        app = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName(QStringLiteral("vexo-log"));
    QCoreApplication::setOrganizationName(QStringLiteral("Vexo"));
    registerTelemetryMetaTypes();
    // Diagnostics (frame traffic, device lines) are for developers: VEXO_DEBUG=1 shows them.
    if (qEnvironmentVariableIsEmpty("VEXO_DEBUG"))
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    return CliCommands::run(QCoreApplication::arguments().mid(1), stdout, stderr);
}
