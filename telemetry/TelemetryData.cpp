#include "telemetry/TelemetryData.h"

#include "telemetry/InputFile.h"
#include "telemetry/NMEALogLoader.h"
#include "telemetry/SensorTable.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "telemetry/TelemetryUnits.h"
#include "telemetry/VMLLogLoader.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>

#include <algorithm>
#include <limits>

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

// Cutting keeps the remaining samples at their times, so the cursor and other windows stay aligned. Only
// the sample lists that lose samples are rebuilt, from their kept part: the others stay shared with the
// copy kept for undo. Drops what lies before the time (front) or after it; cursors go back to the start
// after a cut at the front and stay on a sample after one at the end. True when anything went.
bool cutPackage(TelemetryDataPackage *package, qint64 timestamp, bool front)
{
    const qint64 from = front ? timestamp : std::numeric_limits<qint64>::min();
    const qint64 to = front ? std::numeric_limits<qint64>::max() : timestamp;
    bool cut = false;
    for (TelemetrySensor &s : package->devices()) {
        for (TelemetryVar &v : s.vars()) {
            const QVector<TelemetryValue> &values = qAsConst(v).values();
            const auto first =
                std::lower_bound(values.cbegin(), values.cend(), from,
                                 [](const TelemetryValue &x, qint64 t) { return x.timestamp < t; });
            const auto last = std::upper_bound(
                first, values.cend(), to, [](qint64 t, const TelemetryValue &x) { return t < x.timestamp; });
            if (first != values.cbegin() || last != values.cend()) {
                v.values() = values.mid(int(first - values.cbegin()), int(last - first));
                cut = true;
            }
            v.setCursor(front ? 0 : std::min(v.cursor(), std::max(0, v.values().size() - 1)));
        }
    }
    const auto gone = [from, to](const TelemetryMessage &m) {
        return m.timestamp < from || m.timestamp > to;
    };
    if (std::any_of(package->messages().cbegin(), package->messages().cend(), gone)) {
        QList<TelemetryMessage> &messages = package->messages();
        messages.erase(std::remove_if(messages.begin(), messages.end(), gone), messages.end());
        cut = true;
    }
    return cut;
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
    QFile file(path);
    if (!InputFile::open(&file, error, QIODevice::Unbuffered, supportedExtensions()))
        return false;
    std::unique_ptr<LogFileLoader> loader = loaderFor(path, sensors);
    if (!file.isSequential() && file.size() == 0)
        return fail(tr("%1: the file is empty").arg(path));
    const QFileInfo info(path);
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
        m_lastError = InputFile::unknownFormat(path);
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

void TelemetryData::removeDataBeforeTimestamp(qint64 timestamp)
{
    const TelemetryDataPackage before = m_package;
    if (cutPackage(&m_package, timestamp, true))
        keepForUndo(before);
    m_live.reset();
    updateTimestamps();
    emit sensorsChanged(&m_package.devices());
}

void TelemetryData::removeDataAfterTimestamp(qint64 timestamp)
{
    const TelemetryDataPackage before = m_package;
    if (cutPackage(&m_package, timestamp, false))
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
