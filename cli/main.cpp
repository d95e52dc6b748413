#include "cli/CliCommands.h"
#include "telemetry/TelemetryMetaTypes.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("vexo-log"));
    QCoreApplication::setOrganizationName(QStringLiteral("Vexo"));
    registerTelemetryMetaTypes();
    return CliCommands::run(QCoreApplication::arguments().mid(1), stdout, stderr);
}
