#include "link/TelemetryDecoder.h"

#include "telemetry/SensorTable.h"

#include <QDebug>
#include <QtEndian>

#include <limits>

namespace {
constexpr int kStampBytes = 8;
constexpr int kHeaderBytes = 3; // 0x7E, marker, type and length
constexpr int kIdEnd = 7;       // the device identifier is bytes 3..6
constexpr int kBodyOffset = 8;
constexpr uchar kFrameStart = 0x7E;
constexpr int kMaxItems = 15;
constexpr int kMaxLabelLength = 14;
constexpr int kMinDataFrameLength = 7;

enum FrameType
{
    TextFrame = 0,
    DataFrame = 1,
    MessageFrame = 2
};

int valueWidth(quint32 type)
{
    if (type == 0)
        return 1;
    if (type <= 3)
        return 2;
    if (type <= 7)
        return 3;
    if (type <= 11)
        return 4;
    return 5;
}

// Each width keeps its sign in the top bit and the decimal count in the two bits below. A negative
// value forces those decimal bits to 1 before the sign extension: that is how the devices encode it.
void readValue(quint32 type, const uchar *p, qint32 *value, quint32 *decimals)
{
    if (type == 0) {
        const quint32 b = p[0];
        *decimals = (b >> 5) & 3;
        *value = (b & 0x80) ? qint32(qint8(quint8(b | 0x60))) : qint32(b & 0x1F);
    } else if (type == 1) {
        const quint32 w = qFromLittleEndian<quint16>(p);
        *decimals = (w >> 13) & 3;
        *value = (w & 0x8000) ? qint32(qint16(quint16(w | 0x6000))) : qint32(w & 0x1FFF);
    } else if (type <= 3) {
        *decimals = 0;
        *value = 0;
    } else if (type <= 7) {
        const quint32 v = quint32(p[0]) | quint32(p[1]) << 8 | quint32(p[2]) << 16;
        *decimals = (v >> 21) & 3;
        *value = (v & 0x800000) ? qint32(v | 0xFF600000u) : qint32(v & 0x1FFFFF);
    } else if (type <= 11) {
        const quint32 v = qFromLittleEndian<quint32>(p);
        *decimals = (v >> 29) & 3;
        *value = (v & 0x80000000u) ? qint32(v | 0x60000000u) : qint32(v & 0x1FFFFFFF);
    } else {
        *value = qint32(qFromLittleEndian<quint32>(p));
        *decimals = (quint32(p[4]) >> 5) & 3;
    }
}

bool isLabelChar(uchar c)
{
    return c >= 0x20 && c <= 0x7E;
}

// Units may also carry a degree sign: 0xB0 in Latin-1, 0xDF in the character set of the device displays.
bool isUnitChar(uchar c)
{
    return isLabelChar(c) || c == 0xB0 || c == 0xDF;
}
} // namespace

TelemetryDecoder::TelemetryDecoder(TelemetryData *store, SensorTable *sensors, QObject *parent)
    : QObject(parent), m_store(store), m_sensors(sensors), m_flushTimer(this)
{
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(kDefaultBatchMs);
    connect(&m_flushTimer, &QTimer::timeout, this, &TelemetryDecoder::flush);
}

void TelemetryDecoder::setSessionStart(qint64 epochMs)
{
    m_sessionStart = epochMs;
}

void TelemetryDecoder::setBatchInterval(int ms)
{
    m_flushTimer.setInterval(qMax(0, ms));
    if (m_flushTimer.interval() == 0)
        flush();
}

void TelemetryDecoder::flush()
{
    m_flushTimer.stop();
    if (m_pending.isEmpty() || !m_store)
        return;
    QVector<TelemetrySample> batch;
    batch.swap(m_pending);
    m_store->appendSamples(batch);
}

void TelemetryDecoder::decode(const QByteArray &record)
{
    if (!m_store || record.size() < kStampBytes + kHeaderBytes ||
        uchar(record.at(kStampBytes)) != kFrameStart)
        return;
    ++m_records;
    const auto *bytes = reinterpret_cast<const uchar *>(record.constData());
    const qint64 time = qFromLittleEndian<qint64>(bytes);
    const uchar *frame = bytes + kStampBytes;
    const int size = record.size() - kStampBytes;

    if ((frame[1] & 0x0F) != 0x0F) {
        if (frame[2] == '#')
            decodeAlarm(frame, size, time);
        return;
    }
    if (size < kIdEnd)
        return;
    const quint32 deviceId = qFromLittleEndian<quint32>(frame + 3);
    // Other identifiers scramble the body with a device key we do not have.
    if (((deviceId >> 8) & 0xFF) != 0xA4)
        return;

    switch (frame[2] >> 6) {
    case TextFrame:
        decodeText(frame, size, deviceId);
        break;
    case DataFrame:
        decodeData(frame, size, deviceId, time);
        break;
    case MessageFrame:
        decodeMessage(frame, size, deviceId, time);
        break;
    default:
        break;
    }

    if (!m_pending.isEmpty()) {
        if (m_flushTimer.interval() == 0)
            flush();
        else if (!m_flushTimer.isActive())
            m_flushTimer.start();
    }
}

void TelemetryDecoder::decodeAlarm(const uchar *frame, int size, qint64 time)
{
    // A zero character would make the message read as a plain one everywhere downstream.
    if (size < 4 || frame[3] == 0)
        return;
    const bool recording = m_store->isLogging();
    if (recording)
        startSessionIfNeeded(time);
    TelemetryMessage message;
    message.alarm = frame[3];
    message.text = message.displayText();
    message.type = TelemetryMessage::kAlarmType;
    message.value = frame[3];
    message.timestamp = timeOffset(time);
    qDebug().noquote() << message.text;
    if (recording)
        m_store->addMessage(message);
    announce(message);
}

void TelemetryDecoder::decodeText(const uchar *frame, int size, quint32 deviceId)
{
    if (size < kBodyOffset + 2)
        return;
    const quint32 index = frame[8];
    const int labelLength = qMin(int(frame[9] >> 3), kMaxLabelLength);
    const int unitLength = frame[9] & 0x07;
    const int labelStart = kBodyOffset + 2;
    const int unitStart = labelStart + labelLength;
    if (unitStart + unitLength > size)
        return;
    for (int i = labelStart; i < unitStart; ++i) {
        if (!isLabelChar(frame[i]))
            return;
    }
    for (int i = unitStart; i < unitStart + unitLength; ++i) {
        if (!isUnitChar(frame[i]))
            return;
    }
    const QString label =
        QString::fromLatin1(reinterpret_cast<const char *>(frame + labelStart), labelLength);
    const QString unit = QString::fromLatin1(reinterpret_cast<const char *>(frame + unitStart), unitLength);

    if (index != 0 && !m_store->package().device(deviceId) && m_sensors) {
        // A variable may be told before its device: name the device from what we know of it.
        SensorRow row;
        if (m_sensors->findSensor(deviceId, 0, &row))
            m_store->describeSensor(deviceId, 0, row.label, QString());
    }
    m_store->describeSensor(deviceId, index, label, index == 0 ? QString() : unit);
}

void TelemetryDecoder::decodeData(const uchar *frame, int size, quint32 deviceId, qint64 time)
{
    const int frameLength = frame[2] & 0x3F;
    if (!m_store->isLogging() || frameLength < kMinDataFrameLength)
        return;
    startSessionIfNeeded(time);
    const qint32 offset = timeOffset(time);

    int next = 0; // counted from the body start, as the length rule counts it
    for (int items = 0; next + 6 < frameLength && items < kMaxItems; ++items) {
        int pos = kBodyOffset + next;
        if (pos >= size)
            return;
        const quint32 header = frame[pos++];
        const quint32 type = header & 0x0F;
        quint32 param = header >> 4;
        if (param == 0) {
            if (pos >= size)
                return;
            param = frame[pos++];
        }
        const int width = valueWidth(type);
        if (pos + width > size)
            return;
        TelemetrySample sample;
        sample.deviceId = deviceId;
        sample.param = param;
        sample.value.type = type;
        sample.value.timestamp = offset;
        readValue(type, frame + pos, &sample.value.value, &sample.value.decimals);
        next = pos + width - kBodyOffset;
        // Index 0 is the device itself and carries no values.
        if (param != 0 && ensureDescribed(deviceId, param))
            m_pending.append(sample);
    }
}

void TelemetryDecoder::decodeMessage(const uchar *frame, int size, quint32 deviceId, qint64 time)
{
    if (size < kBodyOffset + 2)
        return;
    const int kind = frame[8];
    const int messageClass = frame[9] >> 5;
    const int length = frame[9] & 0x1F;
    if (kBodyOffset + 2 + length > size)
        return;
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(frame + 10), length).trimmed();
    if (text.isEmpty())
        return;
    const bool recording = m_store->isLogging();
    if (recording)
        startSessionIfNeeded(time);
    TelemetryMessage message;
    message.deviceId = deviceId;
    message.text = text;
    // Kind and class travel as the message's type and value. A kind equal to the alarm type would
    // read back from a log as an alarm, so such a message is stored as a plain one.
    message.type = kind == TelemetryMessage::kAlarmType ? TelemetryMessage::kPlainType : kind;
    message.value = messageClass;
    message.timestamp = timeOffset(time);
    qDebug().noquote() << "Telemetry message:" << text;
    if (recording)
        m_store->addMessage(message);
    announce(message);
}

bool TelemetryDecoder::ensureDescribed(quint32 deviceId, quint32 param)
{
    const TelemetrySensor *device = m_store->package().device(deviceId);
    if (device && device->var(param))
        return true;
    if (!m_sensors)
        return false;
    SensorRow deviceRow;
    SensorRow varRow;
    if (!device && !m_sensors->findSensor(deviceId, 0, &deviceRow))
        return false;
    if (!m_sensors->findSensor(deviceId, param, &varRow))
        return false;
    if (!device)
        m_store->describeSensor(deviceId, 0, deviceRow.label, QString());
    m_store->describeSensor(deviceId, param, varRow.label, varRow.unit);
    return true;
}

qint32 TelemetryDecoder::timeOffset(qint64 time) const
{
    constexpr qint64 kMin = std::numeric_limits<qint64>::min();
    constexpr qint64 kMax = std::numeric_limits<qint64>::max();
    qint64 diff;
    if (m_sessionStart > 0 && time < kMin + m_sessionStart)
        diff = kMin;
    else if (m_sessionStart < 0 && time > kMax + m_sessionStart)
        diff = kMax;
    else
        diff = time - m_sessionStart;
    // Never 0: the native log writer would print such a sample as a line starting "000000000",
    // which its reader takes for a description line.
    return qint32(qBound<qint64>(1, diff, std::numeric_limits<qint32>::max()));
}

void TelemetryDecoder::startSessionIfNeeded(qint64 time)
{
    if (m_sessionStart == 0)
        m_sessionStart = time > std::numeric_limits<qint64>::min() ? time - 1 : time;
}

void TelemetryDecoder::announce(const TelemetryMessage &message)
{
    if (!m_muted)
        emit messageReceived(message);
}
