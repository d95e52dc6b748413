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
                             QString *error, LogFileLoader::ProgressHandler progress, QString *warning)
{
    if (warning)
        warning->clear();
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
    if (!file.isSequential() && file.size() == 0)
        return fail(tr("%1: the file is empty").arg(path));
    package->setName(info.baseName());
    package->setRecordingDate(info.lastModified());
    loader->setProgressHandler(std::move(progress));
    if (!loader->load(&file, package))
        return fail(tr("%1: %2").arg(path, loader->lastError()));
    // A file of which nothing reads is refused rather than shown as an empty recording. What damaged
    // lines alone produced (a device numbered 0 from garbage) does not count as read.
    const LogReadReport &report = loader->readReport();
    const bool nothing = package->devices().isEmpty() && package->messages().isEmpty();
    if (nothing && report.isClean())
        return fail(tr("%1: the file holds no telemetry (no devices, values or messages)").arg(path));
    if (nothing || report.readLines == 0) {
        if (report.lines == 1)
            return fail(tr("%1: no telemetry could be read (1 line, not readable)").arg(path));
        return fail(
            tr("%1: no telemetry could be read (%2 lines, none readable)").arg(path).arg(report.lines));
    }
    if (warning)
        *warning = LogFileLoader::damageWarning(path, report);
    return true;
}

int TelemetryData::loadFile(const QString &path, QString *warning)
{
    if (warning)
        warning->clear();
    if (!loaderFor(path, nullptr)) {
        m_lastError = tr("%1: unknown log format \"%2\"").arg(path, QFileInfo(path).suffix());
        return 0;
    }
    emit loadingStarted();
    TelemetryDataPackage package;
    const bool ok = readFile(path, &package, m_sensors, &m_lastError, {}, warning);
    if (ok)
        setPackage(package);
    emit loadingFinished();
    return ok ? 1 : 0;
}

void TelemetryData::setPackage(const TelemetryDataPackage &package, int logId)
{
    m_package = package;
    m_live.reset();
    m_showingLog = true;
    m_storedLogId = logId;
    forgetUndo();
    emit sensorsChanged(&m_package.devices());
    emit statusChanged(tr("%1: %2 devices, %3 samples")
                           .arg(m_package.name())
                           .arg(m_package.devices().size())
                           .arg(m_package.sampleCount()));
    emit logFileLoaded(logId);
}

void TelemetryData::describeSensor(quint32 deviceId, quint32 param, const QString &label, const QString &unit)
{
    // The bus describes itself every few seconds; an open log must not gain its devices.
    if (m_showingLog && !m_logging)
        return;
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
    // The recording that was cut is gone from view; undoing now would throw the new samples away.
    forgetUndo();
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

void TelemetryData::beginRecording()
{
    m_storedLogId = -1;
    if (m_showingLog) {
        m_package = TelemetryDataPackage();
        m_showingLog = false;
    } else {
        for (TelemetrySensor &s : m_package.devices()) {
            for (TelemetryVar &v : s.vars()) {
                v.values().clear();
                v.setCursor(0);
            }
        }
        m_package.messages().clear();
        m_package.setFirstTimestamp(0);
    }
    m_live.reset();
    forgetUndo();
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::clearSensors()
{
    m_package = TelemetryDataPackage();
    m_live.reset();
    m_showingLog = false;
    m_storedLogId = -1;
    forgetUndo();
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

// Cutting keeps the remaining samples at their times, so the cursor and other windows stay aligned. Only
// the sample lists that lose samples are rebuilt, from their kept part: the others stay shared with the
// copy kept for undo.
void TelemetryData::removeDataBeforeTimestamp(qint64 timestamp)
{
    const TelemetryDataPackage before = m_package;
    bool cut = false;
    for (TelemetrySensor &s : m_package.devices()) {
        for (TelemetryVar &v : s.vars()) {
            const QVector<TelemetryValue> &values = qAsConst(v).values();
            const auto it =
                std::lower_bound(values.cbegin(), values.cend(), timestamp,
                                 [](const TelemetryValue &x, qint64 t) { return x.timestamp < t; });
            if (it != values.cbegin()) {
                v.values() = values.mid(int(it - values.cbegin()));
                cut = true;
            }
            v.setCursor(0);
        }
    }
    const auto early = [timestamp](const TelemetryMessage &m) { return m.timestamp < timestamp; };
    if (std::any_of(m_package.messages().cbegin(), m_package.messages().cend(), early)) {
        QList<TelemetryMessage> &messages = m_package.messages();
        messages.erase(std::remove_if(messages.begin(), messages.end(), early), messages.end());
        cut = true;
    }
    if (cut)
        keepForUndo(before);
    m_live.reset();
    updateTimestamps();
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::removeDataAfterTimestamp(qint64 timestamp)
{
    const TelemetryDataPackage before = m_package;
    bool cut = false;
    for (TelemetrySensor &s : m_package.devices()) {
        for (TelemetryVar &v : s.vars()) {
            const QVector<TelemetryValue> &values = qAsConst(v).values();
            const auto it =
                std::upper_bound(values.cbegin(), values.cend(), timestamp,
                                 [](qint64 t, const TelemetryValue &x) { return t < x.timestamp; });
            if (it != values.cend()) {
                v.values() = values.mid(0, int(it - values.cbegin()));
                cut = true;
            }
            v.setCursor(std::min(v.cursor(), std::max(0, v.values().size() - 1)));
        }
    }
    const auto late = [timestamp](const TelemetryMessage &m) { return m.timestamp > timestamp; };
    if (std::any_of(m_package.messages().cbegin(), m_package.messages().cend(), late)) {
        QList<TelemetryMessage> &messages = m_package.messages();
        messages.erase(std::remove_if(messages.begin(), messages.end(), late), messages.end());
        cut = true;
    }
    if (cut)
        keepForUndo(before);
    m_live.reset();
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::keepForUndo(const TelemetryDataPackage &before)
{
    m_beforeCut = before;
    if (!m_hasUndo) {
        m_hasUndo = true;
        emit undoCutAvailable(true);
    }
}

void TelemetryData::undoCut()
{
    if (!m_hasUndo)
        return;
    TelemetryDataPackage restored = m_beforeCut;
    // A unit chosen since the cut stays chosen.
    for (TelemetrySensor &s : restored.devices()) {
        const TelemetrySensor *now = qAsConst(m_package).device(s.id());
        for (TelemetryVar &v : s.vars()) {
            const TelemetryVar *current = now ? now->var(v.param()) : nullptr;
            if (current && current->unitTarget() != v.unitTarget())
                v.setUnitTarget(current->unitTarget());
        }
    }
    m_package = restored;
    forgetUndo();
    m_live.reset();
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::forgetUndo()
{
    m_beforeCut = TelemetryDataPackage();
    if (m_hasUndo) {
        m_hasUndo = false;
        emit undoCutAvailable(false);
    }
}
