#include "telemetry/LogFileLoader.h"

#include "telemetry/ChunkedLineReader.h"
#include "telemetry/SensorTable.h"
#include "telemetry/TelemetryUnits.h"

#include <QIODevice>
#include <QTextCodec>

#include <algorithm>

namespace {
// Sample storage is sized from the density seen so far once this much has been read.
constexpr qint64 kEstimateAfterBytes = 1 << 20;

// Unparsable fields read as 0 and clear *whole; surrounding white space (a CR before the LF) is harmless.
qint64 toInt64(const QString &field, bool *whole)
{
    bool ok = false;
    const qint64 v = field.toLongLong(&ok);
    if (!ok)
        *whole = false;
    return v;
}

bool deviceIdReads(const QString &field)
{
    bool low = false;
    bool high = true;
    if (field.size() == 10) {
        field.leftRef(5).toInt(&low);
        field.midRef(5).toInt(&high);
    } else {
        field.toUInt(&low);
    }
    return low && high;
}

void applyUnitConversion(TelemetryVar *var, const QString &unitConversion)
{
    bool ok = false;
    int index = unitConversion.toInt(&ok);
    if (!ok)
        index = TelemetryUnits::targetIndex(var->unitCategory(), unitConversion);
    if (index >= 0 && index < TelemetryUnits::targetUnits(var->unitCategory()).size())
        var->setUnitTarget(quint8(index));
}
} // namespace

LogFileLoader::LogFileLoader(SensorTable *sensors) : m_sensors(sensors)
{
    m_codec = QTextCodec::codecForName("Windows-1250");
    if (!m_codec)
        m_codec = QTextCodec::codecForLocale();
}

LogFileLoader::~LogFileLoader() = default;

quint32 LogFileLoader::parseDeviceId(const QString &field)
{
    if (field.size() == 10) {
        const quint32 low = quint32(field.leftRef(5).toInt());
        const quint32 high = quint32(field.midRef(5).toInt());
        return low | (high << 16);
    }
    return field.toUInt();
}

QString LogFileLoader::damageWarning(const QString &fileName, const LogReadReport &report)
{
    QString damage;
    if (report.skippedLines == 1)
        damage = tr("1 damaged line was skipped or only partly read (line %1)").arg(report.firstSkippedLine);
    else if (report.skippedLines > 1)
        damage = tr("%1 damaged lines were skipped or only partly read (the first at line %2)")
                     .arg(report.skippedLines)
                     .arg(report.firstSkippedLine);
    if (!report.truncated)
        return damage.isEmpty() ? QString() : tr("%1: %2").arg(fileName, damage);
    if (damage.isEmpty())
        return tr("%1: the file ends in the middle of a line (cut short?)").arg(fileName);
    return tr("%1: %2; the file ends in the middle of a line (cut short?)").arg(fileName, damage);
}

bool LogFileLoader::reportProgress(qint64 done, qint64 total)
{
    if (m_progress && !m_progress(done, total)) {
        setError(tr("Loading cancelled"));
        return false;
    }
    return true;
}

void LogFileLoader::beginPackage(TelemetryDataPackage *package, qint64 total)
{
    m_package = package;
    m_total = total;
    m_consumed = 0;
    m_lastError.clear();
    m_slots.clear();
    m_slotOfDevice.clear();
    m_lastSlot = -1;
    for (int d = 0; d < package->devices().size(); ++d) {
        m_slotOfDevice.insert(package->devices().at(d).id(), int(m_slots.size()));
        m_slots.emplace_back();
        m_slots.back().deviceIndex = d;
        refreshSlot(int(m_slots.size()) - 1, package);
    }
}

void LogFileLoader::finishPackage(TelemetryDataPackage *package)
{
    for (TelemetrySensor &s : package->devices()) {
        for (TelemetryVar &v : s.vars()) {
            QVector<TelemetryValue> &values = v.values();
            const qint64 slack = qint64(values.capacity()) - values.size();
            if (slack * 16 > values.capacity() && slack * qint64(sizeof(TelemetryValue)) > 4096)
                values.squeeze();
        }
    }
    m_package = nullptr;
}

void LogFileLoader::refreshSlot(int slot, TelemetryDataPackage *package)
{
    DeviceSlot &s = m_slots[size_t(slot)];
    // Non-const access detaches the package's containers once, so the pointer stays valid for the load.
    QVector<TelemetryVar> &vars = package->devices()[s.deviceIndex].vars();
    s.vars = vars.data();
    s.directParam.assign(kDirectParams, -1);
    s.otherParams.clear();
    for (int i = 0; i < vars.size(); ++i) {
        const quint32 p = vars.at(i).param();
        if (p < kDirectParams)
            s.directParam[p] = i;
        else
            s.otherParams.insert(p, i);
    }
}

LogFileLoader::DeviceSlot *LogFileLoader::slotFor(quint32 id)
{
    if (m_lastSlot >= 0 && m_lastDeviceId == id)
        return &m_slots[size_t(m_lastSlot)];
    const auto it = m_slotOfDevice.constFind(id);
    if (it == m_slotOfDevice.constEnd())
        return nullptr;
    m_lastDeviceId = id;
    m_lastSlot = it.value();
    return &m_slots[size_t(m_lastSlot)];
}

int LogFileLoader::describeDevice(TelemetryDataPackage *package, quint32 id, const QString &name)
{
    if (m_package != package)
        beginPackage(package, -1);
    const int existing = package->indexOfDevice(id);
    if (existing >= 0)
        return existing;
    const int index = package->addDevice(id, name);
    m_slotOfDevice.insert(id, int(m_slots.size()));
    m_slots.emplace_back();
    m_slots.back().deviceIndex = index;
    // Adding a device may move the device array; every slot re-takes its variables.
    for (size_t i = 0; i < m_slots.size(); ++i)
        m_slots[i].vars = package->devices()[m_slots[i].deviceIndex].vars().data();
    refreshSlot(int(m_slots.size()) - 1, package);
    if (m_sensors) {
        SensorRow row;
        if (!m_sensors->findSensor(id, 0, &row)) {
            row = SensorRow();
            row.id = id;
            row.label = name;
            m_sensors->insertDefaultSensor(row);
        }
    }
    return index;
}

void LogFileLoader::describeParam(TelemetryDataPackage *package, quint32 id, quint32 param,
                                  const QString &label, const QString &unit)
{
    if (m_package != package)
        beginPackage(package, -1);
    int d = package->indexOfDevice(id);
    if (d < 0)
        d = describeDevice(package, id, tr("Sensor"));
    TelemetrySensor &sensor = package->devices()[d];
    if (TelemetryVar *existing = sensor.var(param)) {
        // A repeated description renames rather than duplicating the variable.
        existing->setLabel(label);
        if (existing->unit() != unit)
            existing->setUnit(unit);
        return;
    }
    TelemetryVar var(id, param, label, unit);
    if (m_sensors) {
        SensorRow row;
        if (m_sensors->findSensor(id, param, &row)) {
            applyUnitConversion(&var, row.unitConversion);
        } else {
            row = SensorRow();
            row.id = id;
            row.param = param;
            row.label = label;
            row.unit = unit;
            m_sensors->insertDefaultSensor(row);
        }
    }
    sensor.vars().append(var);
    refreshSlot(m_slotOfDevice.value(id), package);
}

void LogFileLoader::growValues(QVector<TelemetryValue> &values)
{
    const qint64 n = values.size();
    qint64 target;
    if (m_total > 0 && m_consumed >= kEstimateAfterBytes) {
        // Samples are spread evenly through a log, so the count so far predicts the final count well;
        // sizing from it once avoids the doubling that would leave up to half the storage unused.
        target = n * m_total / m_consumed;
        target += target / 64 + 64;
    } else {
        target = 2 * n;
    }
    target = std::max(target, n + n / 16 + 64);
    target = std::min<qint64>(target, kMaxSamplesPerVar);
    values.reserve(int(target));
}

void LogFileLoader::appendValue(quint32 id, quint32 param, const TelemetryValue &v,
                                TelemetryDataPackage *package)
{
    if (Q_UNLIKELY(m_package != package))
        beginPackage(package, -1);
    DeviceSlot *slot = slotFor(id);
    int index = -1;
    if (slot) {
        if (param < kDirectParams)
            index = slot->directParam[param];
        else
            index = slot->otherParams.value(param, -1);
    }
    if (index < 0) {
        // Values of a variable that was never described have no label or unit to show them by.
        package->addDroppedValues(1);
        return;
    }
    QVector<TelemetryValue> &values = slot->vars[index].values();
    if (Q_UNLIKELY(values.size() == values.capacity())) {
        if (values.size() >= kMaxSamplesPerVar) {
            package->addDroppedValues(1);
            return;
        }
        growValues(values);
    }
    values.append(v);
}

bool LogFileLoader::parseMessage(const QStringList &fields, int textIndex, qint32 ts, quint32 id,
                                 TelemetryDataPackage *package)
{
    // The text, then either nothing or the message type and value: anything else is a text with ";"
    // in it, which cut the line apart.
    bool whole = fields.size() == textIndex + 1 || fields.size() == textIndex + 3;
    // The writer encodes message text as UTF-8 inside an otherwise Windows-1250 line: undo that.
    TelemetryMessage message;
    message.timestamp = ts;
    message.deviceId = id;
    message.text = QString::fromUtf8(m_codec->fromUnicode(fields.at(textIndex))).trimmed();
    if (fields.size() >= textIndex + 3) {
        message.type = qint32(toInt64(fields.at(textIndex + 1), &whole));
        message.value = qint32(toInt64(fields.at(textIndex + 2), &whole));
    }
    if (message.type == TelemetryMessage::kAlarmType && message.value > 0 && message.value < 256) {
        message.alarm = quint8(message.value);
        if (!package->acceptAlarm(message.alarm, ts))
            return whole;
    }
    package->messages().append(message);
    return whole;
}

bool LogFileLoader::parseLine(const QStringList &fields, TelemetryDataPackage *package)
{
    if (fields.isEmpty())
        return false;
    if (m_package != package)
        beginPackage(package, -1);
    // A line whose time, sender or param does not read is ignored rather than read as zeros: a
    // damaged time of 0 would make it a description line renaming a variable of device 0.
    bool whole = true;
    const qint64 ts64 = toInt64(fields.at(0), &whole);
    if (!whole || fields.size() < 2 || !deviceIdReads(fields.at(1)))
        return false;
    const qint32 ts = qint32(ts64);
    if (ts64 != 0)
        package->noteTimestamp(ts);
    const quint32 id = parseDeviceId(fields.at(1));
    if (ts64 == 0) {
        if (fields.size() < 3)
            return false;
        const quint32 param = quint32(toInt64(fields.at(2), &whole));
        if (!whole)
            return false;
        const QString label = fields.value(3).trimmed();
        // Id, param, label and unit (a device's unit field may be missing); more fields mean a label
        // or unit with ";" in it.
        whole = whole && fields.size() <= 5 && fields.size() >= (param == 0 ? 4 : 5);
        if (param == 0)
            describeDevice(package, id, label);
        else
            describeParam(package, id, param, label, fields.value(4).trimmed());
        return whole;
    }
    for (int i = 2; i + 3 < fields.size(); i += 4) {
        bool groupReads = true;
        const quint32 param = quint32(toInt64(fields.at(i), &groupReads));
        const quint32 type = quint32(toInt64(fields.at(i + 1), &groupReads));
        if (groupReads && type == TelemetryTypes::Text)
            return parseMessage(fields, i + 3, ts, id, package) && whole;
        TelemetryValue v;
        v.type = type;
        v.decimals = quint32(toInt64(fields.at(i + 2), &groupReads));
        const qint64 raw = toInt64(fields.at(i + 3), &groupReads);
        // A group that does not read is left out; the others of the line still count.
        whole = whole && groupReads;
        if (!groupReads)
            continue;
        v.value = type == 0 ? qint8(raw) : type == 1 ? qint16(raw) : qint32(raw);
        v.timestamp = ts;
        appendValue(id, param, v, package);
    }
    // At least one group, and no partial group at the end.
    return whole && fields.size() >= 6 && (fields.size() - 2) % 4 == 0;
}

// Value lines are most of a log and pure ASCII numbers: parse them straight from the bytes. Anything
// unusual (a message, white space, a sign other than "-", an empty or huge field, a non-ASCII byte)
// returns false and goes the general way, so both ways give the same result.
bool LogFileLoader::parseValueLineFast(const char *begin, const char *end, TelemetryDataPackage *package,
                                       bool *whole)
{
    qint64 f[kMaxFastFields];
    int nf = 0;
    int idLength = 0;
    bool idNegative = false;
    const char *p = begin;
    const bool hadCr = end > begin && end[-1] == '\r';
    if (hadCr)
        --end;
    for (;;) {
        if (nf == kMaxFastFields)
            return false;
        const bool negative = p < end && *p == '-';
        if (negative)
            ++p;
        const char *digits = p;
        quint64 acc = 0;
        while (p < end) {
            const unsigned d = unsigned(static_cast<unsigned char>(*p)) - unsigned('0');
            if (d > 9)
                break;
            acc = acc * 10 + d;
            ++p;
        }
        const qint64 nd = p - digits;
        if (nd == 0 || nd > 18)
            return false;
        if (nf == 1) {
            idLength = int(nd) + (negative ? 1 : 0);
            idNegative = negative;
        }
        f[nf++] = negative ? -qint64(acc) : qint64(acc);
        if (p == end)
            break;
        if (*p != ';')
            return false;
        ++p;
    }
    // A CR right after the id would lengthen the id field in the general way.
    if (nf < 3 || f[0] == 0 || idNegative || (hadCr && nf == 2))
        return false;
    const int groups = (nf - 2) / 4;
    for (int g = 0; g < groups; ++g) {
        if (quint32(f[3 + 4 * g]) == TelemetryTypes::Text)
            return false;
    }
    *whole = groups > 0 && (nf - 2) % 4 == 0;
    const qint32 ts = qint32(f[0]);
    package->noteTimestamp(ts);
    quint32 id;
    if (idLength == 10)
        id = quint32(f[1] / 100000) | (quint32(f[1] % 100000) << 16);
    else
        id = f[1] <= 0xFFFFFFFFLL ? quint32(f[1]) : 0;
    for (int g = 0; g < groups; ++g) {
        const qint64 *grp = f + 2 + 4 * g;
        TelemetryValue v;
        v.type = quint32(grp[1]);
        v.decimals = quint32(grp[2]);
        const qint64 raw = grp[3];
        v.value = v.type == 0 ? qint8(raw) : v.type == 1 ? qint16(raw) : qint32(raw);
        v.timestamp = ts;
        appendValue(id, quint32(grp[0]), v, package);
    }
    return true;
}

int LogFileLoader::processLine(const char *begin, const char *end, qint64 lineNumber,
                               TelemetryDataPackage *package)
{
    if (begin < end && *begin == '#') {
        // Header: the first two characters ("# ") are dropped whatever they are.
        const QString text = QString::fromUtf8(begin, int(end - begin)).mid(2).trimmed();
        if (lineNumber == 1)
            package->setName(text);
        else
            package->setDescription(package->description() + text);
        return ChunkedLineReader::Ignored;
    }
    bool whole = false;
    if (!parseValueLineFast(begin, end, package, &whole)) {
        // White space only (a CR left of a CRLF, indentation): no line at all rather than a damaged one.
        if (ChunkedLineReader::isBlank(begin, end))
            return ChunkedLineReader::Ignored;
        whole = parseLine(m_codec->toUnicode(begin, int(end - begin)).split(QLatin1Char(';')), package);
    }
    return Q_LIKELY(whole) ? ChunkedLineReader::Read : ChunkedLineReader::Damaged;
}

bool LogFileLoader::load(QIODevice *device, TelemetryDataPackage *package)
{
    if (!device || !device->isOpen() || !package) {
        setError(tr("The input is not open"));
        return false;
    }
    beginPackage(package, ChunkedLineReader::bytesLeft(device));
    // The writer ends every line: a last line without its line feed was cut, however well it reads.
    ChunkedLineReader reader(ChunkedLineReader::LongLines::Skip, ChunkedLineReader::LastLine::CutShort);
    reader.setProgressHandler([this](qint64 done, qint64 total) { return reportProgress(done, total); });
    const bool ok = reader.read(device, [this, package](const ChunkedLineReader::Line &line) {
        if (line.terminated)
            m_consumed = line.offset;
        return processLine(line.begin, line.end, line.number, package);
    });
    if (!ok && !reader.errorString().isEmpty())
        setError(reader.errorString());
    m_report = reader.report();
    finishPackage(package);
    return ok;
}
