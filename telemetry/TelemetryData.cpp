#include "telemetry/TelemetryData.h"

#include "telemetry/NMEALogLoader.h"
#include "telemetry/SensorTable.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "telemetry/TelemetryUnits.h"
#include "telemetry/VMLLogLoader.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <algorithm>

namespace {
using LoaderFactory = std::unique_ptr<LogFileLoader> (*)(SensorTable *);

template <class Loader> std::unique_ptr<LogFileLoader> makeLoader(SensorTable *sensors)
{
    return std::make_unique<Loader>(sensors);
}

// One line per reader, keyed by the lower-cased extension.
const QHash<QString, LoaderFactory> &loaderTable()
{
    static const QHash<QString, LoaderFactory> table = {
        {QStringLiteral("log"), &makeLoader<LogFileLoader>},
        {QStringLiteral("vml"), &makeLoader<VMLLogLoader>},
        {QStringLiteral("nmea"), &makeLoader<NMEALogLoader>},
        {QStringLiteral("txt"), &makeLoader<NMEALogLoader>},
    };
    return table;
}
} // namespace

TelemetryData::TelemetryData(SensorTable *sensors, QObject *parent)
    : QObject(parent), m_sensors(sensors), m_live(sensors)
{
    registerTelemetryMetaTypes();
}

TelemetryData::~TelemetryData() = default;

std::unique_ptr<LogFileLoader> TelemetryData::loaderFor(const QString &fileName, SensorTable *sensors)
{
    const LoaderFactory factory = loaderTable().value(QFileInfo(fileName).suffix().toLower());
    return factory ? factory(sensors) : nullptr;
}

QStringList TelemetryData::supportedExtensions()
{
    QStringList list = loaderTable().keys();
    list.sort();
    return list;
}

bool TelemetryData::readFile(const QString &path, TelemetryDataPackage *package, SensorTable *sensors,
                             QString *error, LogFileLoader::ProgressHandler progress)
{
    const auto fail = [error](const QString &reason) {
        if (error)
            *error = reason;
        return false;
    };
    const QFileInfo info(path);
    if (!info.exists())
        return fail(tr("%1: no such file").arg(path));
    if (info.isDir())
        return fail(tr("%1: is a folder, not a log file").arg(path));
    std::unique_ptr<LogFileLoader> loader = loaderFor(path, sensors);
    if (!loader) {
        return fail(tr("%1: unknown log format \"%2\" (readable: %3)")
                        .arg(path, info.suffix(), supportedExtensions().join(QStringLiteral(", "))));
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered))
        return fail(tr("%1: cannot open: %2").arg(path, file.errorString()));
    package->setName(info.baseName());
    package->setRecordingDate(info.lastModified());
    loader->setProgressHandler(std::move(progress));
    if (!loader->load(&file, package))
        return fail(tr("%1: %2").arg(path, loader->lastError()));
    return true;
}

int TelemetryData::loadFile(const QString &path)
{
    if (!loaderFor(path, nullptr)) {
        m_lastError = tr("%1: unknown log format \"%2\"").arg(path, QFileInfo(path).suffix());
        return 0;
    }
    emit loadingStarted();
    TelemetryDataPackage package;
    const bool ok = readFile(path, &package, m_sensors, &m_lastError);
    if (ok)
        setPackage(package);
    emit loadingFinished();
    return ok ? 1 : 0;
}

void TelemetryData::setPackage(const TelemetryDataPackage &package, int logId)
{
    m_package = package;
    m_live.reset();
    emit sensorsChanged(&m_package.devices());
    emit statusChanged(tr("%1: %2 devices, %3 samples")
                           .arg(m_package.name())
                           .arg(m_package.devices().size())
                           .arg(m_package.sampleCount()));
    emit logFileLoaded(logId);
}

void TelemetryData::describeSensor(quint32 deviceId, quint32 param, const QString &label, const QString &unit)
{
    if (param == 0) {
        // A device first seen through one of its variables is named when its own description arrives.
        const int index = m_live.describeDevice(&m_package, deviceId, label);
        m_package.devices()[index].setName(label);
    } else
        m_live.describeParam(&m_package, deviceId, param, label, unit);
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::appendSamples(const QVector<TelemetrySample> &samples)
{
    if (samples.isEmpty())
        return;
    for (const TelemetrySample &s : samples) {
        m_package.noteTimestamp(s.value.timestamp);
        m_live.appendValue(s.deviceId, s.param, s.value, &m_package);
    }
    emit valueAdded(&m_package.devices());
}

void TelemetryData::addMessage(const TelemetryMessage &message)
{
    if (message.isAlarm() && !m_package.acceptAlarm(message.alarm, message.timestamp))
        return;
    m_package.messages().append(message);
}

void TelemetryData::clearSensors()
{
    m_package = TelemetryDataPackage();
    m_live.reset();
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::setLogging(bool loggingEnabled)
{
    if (m_logging == loggingEnabled)
        return;
    m_logging = loggingEnabled;
    emit loggingStatusChanged(m_logging);
}

void TelemetryData::stopLogging(bool loggingStopped)
{
    if (loggingStopped)
        setLogging(false);
}

void TelemetryData::updateTimestamps()
{
    qint32 first = 0;
    for (const TelemetrySensor &s : m_package.devices()) {
        for (const TelemetryVar &v : s.vars()) {
            for (const TelemetryValue &x : v.values()) {
                if (x.timestamp != 0) {
                    if (first <= 0 || x.timestamp < first)
                        first = x.timestamp;
                    break; // values are in time order: the first non-zero one is the smallest
                }
            }
        }
    }
    m_package.setFirstTimestamp(first);
    emit statusChanged(tr("First timestamp %1 ms").arg(first));
}

void TelemetryData::setUnit(TelemetrySimplePair sensor, const QString &unit)
{
    TelemetrySensor *device = m_package.device(sensor.deviceId);
    TelemetryVar *var = device ? device->var(sensor.param) : nullptr;
    if (!var)
        return;
    const int index = TelemetryUnits::targetIndex(var->unitCategory(), unit);
    if (index < 0)
        return;
    var->setUnitTarget(quint8(index));
    if (m_sensors) {
        SensorRow row;
        if (m_sensors->findSensor(sensor.deviceId, sensor.param, &row)) {
            row.unitConversion = QString::number(index);
            m_sensors->updateSensorSettings(row);
        }
    }
    emit sensorsChanged(&m_package.devices());
}

// Cutting keeps the remaining samples at their times, so the cursor and other windows stay aligned.
void TelemetryData::removeDataBeforeTimestamp(qint64 timestamp)
{
    for (TelemetrySensor &s : m_package.devices()) {
        for (TelemetryVar &v : s.vars()) {
            QVector<TelemetryValue> &values = v.values();
            const auto it =
                std::lower_bound(values.begin(), values.end(), timestamp,
                                 [](const TelemetryValue &x, qint64 t) { return x.timestamp < t; });
            values.erase(values.begin(), it);
            v.setCursor(0);
        }
    }
    QList<TelemetryMessage> &messages = m_package.messages();
    messages.erase(std::remove_if(messages.begin(), messages.end(),
                                  [timestamp](const TelemetryMessage &m) { return m.timestamp < timestamp; }),
                   messages.end());
    m_live.reset();
    updateTimestamps();
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::removeDataAfterTimestamp(qint64 timestamp)
{
    for (TelemetrySensor &s : m_package.devices()) {
        for (TelemetryVar &v : s.vars()) {
            QVector<TelemetryValue> &values = v.values();
            const auto it =
                std::upper_bound(values.begin(), values.end(), timestamp,
                                 [](qint64 t, const TelemetryValue &x) { return t < x.timestamp; });
            values.erase(it, values.end());
            v.setCursor(std::min(v.cursor(), std::max(0, values.size() - 1)));
        }
    }
    QList<TelemetryMessage> &messages = m_package.messages();
    messages.erase(std::remove_if(messages.begin(), messages.end(),
                                  [timestamp](const TelemetryMessage &m) { return m.timestamp > timestamp; }),
                   messages.end());
    m_live.reset();
    emit sensorsChanged(&m_package.devices());
}
