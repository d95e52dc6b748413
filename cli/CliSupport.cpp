#include "cli/CliSupport.h"

#include "telemetry/CSVLogLoader.h"
#include "telemetry/MemorySensorTable.h"
#include "telemetry/TelemetryData.h"

#include <QRegularExpression>

int CliSupport::fail(std::FILE *err, const QString &message)
{
    std::fprintf(err, "vexo-log: %s\n", message.toUtf8().constData());
    return 1;
}

int CliSupport::usage(std::FILE *err, const char *command, const QString &message, const char *usageText)
{
    const QString line = command ? QStringLiteral("%1: %2").arg(QLatin1String(command), message) : message;
    std::fprintf(err, "vexo-log: %s\n\n%s", line.toUtf8().constData(), usageText);
    return 2;
}

bool CliSupport::readLog(std::FILE *err, const QString &path, TelemetryDataPackage *package, Damage damage,
                         bool csv)
{
    MemorySensorTable sensors;
    QString error;
    QString warning;
    QString *said = damage == Damage::Say ? &warning : nullptr;
    const bool ok = csv ? CSVLogLoader::readFile(path, package, &sensors, &error, said)
                        : TelemetryData::readFile(path, package, &sensors, &error, {}, said);
    if (!ok) {
        fail(err, error);
        return false;
    }
    if (!warning.isEmpty())
        fail(err, warning);
    return true;
}

bool CliSupport::parseVariable(const QString &text, TelemetrySimplePair *pair)
{
    const QStringList parts = text.split(QLatin1Char(':'));
    if (parts.size() != 2)
        return false;
    bool okId = false;
    bool okParam = false;
    pair->deviceId = parts.at(0).toUInt(&okId);
    pair->param = parts.at(1).toUInt(&okParam);
    return okId && okParam;
}

const TelemetryVar *CliSupport::findVariable(const TelemetryDataPackage &package,
                                             const TelemetrySimplePair &pair)
{
    const TelemetrySensor *device = package.device(pair.deviceId);
    return device ? device->var(pair.param) : nullptr;
}

void CliSupport::Output::print(const QString &text) const
{
    std::fputs(text.toUtf8().constData(), out);
    std::fflush(out);
}

QString CliSupport::plainText(const QString &rich)
{
    QString text = rich;
    text.replace(QLatin1String("<li>"), QLatin1String(": "))
        .replace(QLatin1String("<br>"), QLatin1String(" "));
    static const QRegularExpression tags(QStringLiteral("<[^>]*>"));
    text.remove(tags);
    text.replace(QLatin1String("&lt;"), QLatin1String("<"))
        .replace(QLatin1String("&gt;"), QLatin1String(">"))
        .replace(QLatin1String("&quot;"), QLatin1String("\""))
        .replace(QLatin1String("&amp;"), QLatin1String("&"));
    return text.simplified();
}
