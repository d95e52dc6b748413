#include "cli/CliCommands.h"
#include "telemetry/TelemetryMetaTypes.h"

#include <QCoreApplication>
#include <QLoggingCategory>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexo-log"));
    QCoreApplication::setOrganizationName(QStringLiteral("Vexo"));
    registerTelemetryMetaTypes();
    // Diagnostics (frame traffic, device lines) are for developers: VEXO_DEBUG=1 shows them.
    if (qEnvironmentVariableIsEmpty("VEXO_DEBUG"))
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    return CliCommands::run(QCoreApplication::arguments().mid(1), stdout, stderr);
}
