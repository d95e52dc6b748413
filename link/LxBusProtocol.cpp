#include "link/LxBusProtocol.h"

#include <QDateTime>
#include <QDebug>
#include <QVector>

#include <algorithm>
#include <cstring>

namespace {
quint32 readU32(const quint8 *p)
{
    return quint32(p[0]) | (quint32(p[1]) << 8) | (quint32(p[2]) << 16) | (quint32(p[3]) << 24);
}

void putU32(quint8 *p, quint32 v)
{
    p[0] = quint8(v);
    p[1] = quint8(v >> 8);
    p[2] = quint8(v >> 16);
    p[3] = quint8(v >> 24);
}

void logDump(const char *caption, const quint8 *data, int length)
{
    qDebug().noquote() << LxFrame::hexDump(caption, data, length, QDateTime::currentMSecsSinceEpoch());
}

// Keep-alive tries by device kind: kind 1 marks a sensor that answers within the frame it is asked in,
// so four tries are plenty; receivers and gateways (every other kind) may be busy forwarding and get 15.
quint8 keepAliveLimit(const Device &d)
{
    return d.kind == 1 ? 4 : 15;
}
} // namespace

LxBusProtocol::LxBusProtocol(QObject *parent) : QObject(parent) {}

void LxBusProtocol::reset()
{
    for (Slot &s : m_slots)
        freeSlot(s);
    m_writeIndex = kSlots - 1;
    m_readIndex = 0;
    m_pollToggle = false;
    m_sinceEnumeration = kEnumerationIntervalMs;
}

int LxBusProtocol::findFreeSlot()
{
    const int start = m_writeIndex;
    int i = start;
    do {
        i = (i + 1) % kSlots;
        if (m_slots[i].length == 0 || m_slots[i].state == Free)
            return i;
    } while (i != start);
    return -1;
}

int LxBusProtocol::queue(const quint8 *bytes, int count, quint8 limit)
{
    if (count < 2 || count > LxFrame::kMaxRequest)
        return -1;
    const int i = findFreeSlot();
    if (i < 0)
        return -1;
    m_writeIndex = i;
    Slot &s = m_slots[i];
    s = Slot();
    std::memcpy(s.data, bytes, size_t(count));
    s.data[0] = m_packetId++;
    s.length = quint8(count);
    s.limit = limit;
    s.state = Waiting;
    return i;
}

bool LxBusProtocol::hasOutstanding(quint8 type, quint32 deviceId) const
{
    for (const Slot &s : m_slots) {
        if (s.state == Waiting && s.length >= 7 && s.data[1] == type && readU32(s.data + 3) == deviceId)
            return true;
    }
    return false;
}

bool LxBusProtocol::hasOutstandingReadWrite(quint32 deviceId) const
{
    return hasOutstanding(LxFrame::kTypeRead, deviceId) || hasOutstanding(LxFrame::kTypeWrite, deviceId);
}

bool LxBusProtocol::queueRead(quint32 deviceId, const quint8 *data, int count, quint8 limit, int *packetId)
{
    // One read or write per device at a time: the device answers one request per frame.
    if (count < 0 || count > kMaxReadData || hasOutstandingReadWrite(deviceId))
        return false;
    quint8 request[LxFrame::kMaxRequest];
    request[0] = 0;
    request[1] = LxFrame::kTypeRead;
    request[2] = quint8(count + 4);
    putU32(request + 3, deviceId);
    if (count)
        std::memcpy(request + 7, data, size_t(count));
    const int slot = queue(request, count + 7, limit);
    if (slot < 0)
        return false;
    logDump("Read packet:  ", m_slots[slot].data, m_slots[slot].length);
    if (packetId)
        *packetId = m_slots[slot].data[0];
    return true;
}

bool LxBusProtocol::queueWrite(quint32 deviceId, quint8 flags, const quint8 *data, int count, quint8 limit,
                               int *packetId)
{
    if (count < 0 || count > kMaxWriteData || hasOutstandingReadWrite(deviceId))
        return false;
    quint8 request[LxFrame::kMaxRequest];
    request[0] = 0;
    request[1] = LxFrame::kTypeWrite;
    request[2] = quint8(count + 5);
    putU32(request + 3, deviceId);
    request[7] = flags;
    if (count)
        std::memcpy(request + 8, data, size_t(count));
    const int slot = queue(request, count + 8, limit);
    if (slot < 0)
        return false;
    logDump("Write packet: ", m_slots[slot].data, m_slots[slot].length);
    if (packetId)
        *packetId = m_slots[slot].data[0];
    return true;
}

LxBusProtocol::RequestState LxBusProtocol::takeRequest(int packetId, quint8 type)
{
    for (Slot &s : m_slots) {
        if (s.length == 0 || s.state == Free || s.data[0] != packetId || s.data[1] != type)
            continue;
        if (s.state == Waiting)
            return RequestState::Waiting;
        freeSlot(s);
        return RequestState::Answered;
    }
    return RequestState::Gone;
}

bool LxBusProtocol::queueRaw(const quint8 *bytes, int count, quint8 limit)
{
    if (count >= 2 && bytes[1] == LxFrame::kTypeIdentify) {
        for (const Slot &s : m_slots) {
            if (s.state == Waiting && s.data[1] == LxFrame::kTypeIdentify && s.counter < s.limit)
                return false;
        }
    }
    return queue(bytes, count, limit) >= 0;
}

void LxBusProtocol::resetSilence(quint32 identifier)
{
    for (Device &d : m_devices) {
        if (d.identifier == identifier)
            d.silence = 0;
    }
}

void LxBusProtocol::processAnswer(const quint8 *payload, int length)
{
    if (length < 2)
        return;
    Slot *slot = nullptr;
    for (Slot &s : m_slots) {
        if (s.length != 0 && s.state != Free && s.data[0] == payload[0]) {
            slot = &s;
            break;
        }
    }
    if (!slot || slot->state != Waiting || length > LxFrame::kMaxRequest)
        return;
    switch (payload[1]) {
    case LxFrame::kTypeTelemetry:
        if (length > 8)
            resetSilence(readU32(payload + 5));
        break;
    case LxFrame::kTypeIdentify:
        if (length >= 12)
            identificationAnswer(*slot, payload, length);
        return;
    case LxFrame::kTypeKeepAlive:
        // Any answer frees the slot; it also shows the device is still there.
        if (slot->length >= 7)
            resetSilence(readU32(slot->data + 3));
        freeSlot(*slot);
        return;
    case LxFrame::kTypeRead:
    case LxFrame::kTypeWrite: {
        slot->data[2] = payload[2];
        if (length < 7 || std::memcmp(slot->data, payload, 7) != 0) {
            freeSlot(*slot);
            return;
        }
        resetSilence(readU32(payload + 3));
        if (payload[1] == LxFrame::kTypeWrite && (slot->data[7] & 3) == 3) {
            freeSlot(*slot);
            return;
        }
        if (readU32(payload + 3) == m_active.deviceId && m_active.deviceId != 0) {
            const int groups = groupsOffset(*slot, payload, length);
            if (length > groups)
                parameterGroups(payload + groups, length - groups, payload[1] == LxFrame::kTypeRead);
        }
        break;
    }
    case LxFrame::kTypeChannels:
        logDump("Assist received: ", payload, length);
        break;
    case 'S':
    case 'U':
    case 'V':
        return;
    default:
        freeSlot(*slot);
        return;
    }
    std::memcpy(slot->data, payload, size_t(length));
    slot->length = quint8(length);
    slot->counter = 0;
    slot->answered = 0xFF;
    slot->state = Answered;
}

// Read answers carry their groups right after the identifier. Write answers of our devices echo the
// flag byte first; a device that leaves it out is understood too: the first group must then begin at
// a register the device has, or at a command address.
int LxBusProtocol::groupsOffset(const Slot &request, const quint8 *payload, int length) const
{
    if (payload[1] == LxFrame::kTypeRead)
        return 7;
    const auto knownAt = [&](int offset) {
        if (length - offset < 3)
            return false;
        const quint16 address = quint16(payload[offset] | (payload[offset + 1] << 8));
        return m_active.indexOf(address) >= 0 ||
               (request.length >= 11 && address == quint16(request.data[8] | (request.data[9] << 8)));
    };
    if (request.length >= 8 && payload[7] == request.data[7] && knownAt(8))
        return 8;
    return knownAt(7) ? 7 : 8;
}

void LxBusProtocol::parameterGroups(const quint8 *data, int length, bool isRead)
{
    int pos = 0;
    bool changed = false;
    while (length - pos >= 3) {
        const quint16 address = quint16(data[pos] | (data[pos + 1] << 8));
        const int count = data[pos + 2];
        pos += 3;
        int index = m_active.indexOf(address);
        if (index < 0) {
            emit commandConfirmed(address);
            break;
        }
        const int end = std::min(length, pos + count);
        while (pos < end && index < m_active.params.size()) {
            DevParam &p = m_active.params[index++];
            const qint32 value = pos + p.width <= end ? p.fromBytes(data + pos) : 0;
            pos += std::max<int>(1, p.width);
            if (isRead) {
                p.value = value;
                p.loaded = true;
            } else {
                p.confirmed = value == p.sent;
            }
            changed = true;
        }
        pos = std::max(pos, end);
    }
    if (changed && isRead)
        emit valuesLoaded(m_active.params);
}

bool LxBusProtocol::takeTelemetry(quint8 *out, int *outLength)
{
    for (Slot &s : m_slots) {
        if (s.state != Answered || s.data[1] != LxFrame::kTypeTelemetry)
            continue;
        if (s.length < 6) {
            freeSlot(s);
            continue;
        }
        const int count = std::min<int>(s.data[2], s.length - 3);
        out[0] = 0x7E;
        std::memcpy(out + 1, s.data + 3, size_t(count));
        *outLength = count + 1;
        freeSlot(s);
        return true;
    }
    return false;
}

void LxBusProtocol::tick(int elapsedMs)
{
    for (Slot &s : m_slots) {
        if (s.state == Answered && ++s.counter > kAnswerHoldTicks)
            freeSlot(s);
    }

    QVector<quint32> silent;
    for (Device &d : m_devices) {
        d.silence = quint16(std::min(int(d.silence) + elapsedMs, 0xFFFF));
        if (d.identifier != 0 && d.silence > kSilenceLimitMs)
            silent.append(d.identifier);
    }
    for (quint32 id : silent)
        removeDevice(id);
    for (Device &d : m_devices) {
        d.keepAliveWait = quint16(std::max(int(d.keepAliveWait) - elapsedMs, 0));
        if (d.keepAliveWait > 0 || d.identifier == 0 || hasOutstandingReadWrite(d.identifier) ||
            hasOutstanding(LxFrame::kTypeKeepAlive, d.identifier))
            continue;
        quint8 keepAlive[8] = {0, LxFrame::kTypeKeepAlive, 5, 0, 0, 0, 0, d.extensionIndex};
        putU32(keepAlive + 3, d.identifier);
        if (queueRaw(keepAlive, 8, keepAliveLimit(d)))
            d.keepAliveWait = kKeepAliveMs;
    }

    // Enumeration: an identification request to everybody (identifier 0) finds devices that have not
    // been greeted by a keep-alive yet; one addressed behind a device (its identifier and an extension
    // index) asks for the identity of that extension.
    m_sinceEnumeration += elapsedMs;
    if (m_sinceEnumeration >= kEnumerationIntervalMs) {
        quint8 identify[8] = {0, LxFrame::kTypeIdentify, 5, 0, 0, 0, 0, 0};
        for (const Device &d : m_devices) {
            if (d.identifier == 0 && d.parentIdentifier != 0) {
                putU32(identify + 3, d.parentIdentifier);
                identify[7] = d.extensionIndex;
                break;
            }
        }
        if (queueRaw(identify, 8, 2))
            m_sinceEnumeration = 0;
    }

    int waiting = 0;
    for (const Slot &s : m_slots)
        waiting += s.state == Waiting ? 1 : 0;
    if (waiting > 2)
        return;
    m_pollToggle = !m_pollToggle;
    if (m_pollToggle) {
        const quint8 poll[3] = {0, LxFrame::kTypeTelemetry, 0};
        queueRaw(poll, 3, 1);
    }
}

const quint8 *LxBusProtocol::nextDueRequest(int *length)
{
    *length = 0;
    for (int step = 1; step <= kSlots; ++step) {
        const int i = (m_readIndex + step) % kSlots;
        if (m_slots[i].length != 0 && m_slots[i].state == Waiting) {
            m_readIndex = i;
            break;
        }
    }
    Slot &s = m_slots[m_readIndex];
    if (s.length == 0 || s.state != Waiting)
        return nullptr;
    if (s.counter < s.limit) {
        ++s.counter;
        *length = s.length;
        return s.data;
    }
    const Slot expired = s;
    freeSlot(s);
    if (expired.limit == 0) {
        // A request sent once without waiting for an answer: this is its only sending. The copy lives
        // in the freed slot's buffer until the ring changes.
        std::memcpy(s.data, expired.data, expired.length);
        *length = expired.length;
        return s.data;
    }
    requestExpired(expired);
    return nullptr;
}

void LxBusProtocol::requestExpired(const Slot &slot)
{
    const quint8 type = slot.data[1];
    const bool lost = (type == LxFrame::kTypeKeepAlive && slot.length >= 8 && slot.data[7] == 0) ||
                      (type == LxFrame::kTypeWrite && slot.length >= 8 && (slot.data[7] & 3) != 0) ||
                      type == LxFrame::kTypeRead;
    if (!lost || slot.length < 7)
        return;
    const quint32 id = readU32(slot.data + 3);
    qDebug().noquote() << QStringLiteral("Device disconnected: %1").arg(QString::number(id, 16).toUpper());
    for (Device &d : m_devices) {
        if (d.identifier == id)
            d.keepAliveWait = kKeepAliveMs;
    }
    emit deviceDisconnected(id);
}

void LxBusProtocol::identificationAnswer(Slot &slot, const quint8 *payload, int length)
{
    const Slot request = slot;
    freeSlot(slot);
    const quint32 id = readU32(payload + 3);
    quint32 parent = 0;
    quint8 extension = 0;
    if (request.length >= 8 && request.data[7] != 0 && id != readU32(request.data + 3)) {
        parent = readU32(request.data + 3);
        extension = request.data[7];
    }
    const quint16 hardware = quint16(payload[7] | (payload[8] << 8));
    const quint8 kind = payload[9];
    const quint8 extensions = payload[10];
    // The name runs from offset 11 up to its terminating zero, or to the two extra bytes at 23.
    const int nameEnd = std::min(length, 23);
    int n = 11;
    while (n < nameEnd && payload[n] != 0)
        ++n;
    const QString name = QString::fromLatin1(reinterpret_cast<const char *>(payload + 11), n - 11).trimmed();
    const quint8 extra1 = length >= 25 ? payload[23] : 0;
    const quint8 extra2 = length >= 25 ? payload[24] : 0;
    const int added = addOrRefresh(id, parent, hardware, extension, kind, extensions, name, extra1, extra2);
    // Someone new answered: there may be more waiting, so ask again at once rather than a second later.
    if (added == 0 || parent != 0)
        m_sinceEnumeration = kEnumerationIntervalMs;
    if (added != 0 || extensions == 0)
        return;
    for (quint8 e = 1; e <= extensions && e != 0; ++e) {
        if (addOrRefresh(0, id, 0, e, 0, 0, QString(), 0, 0) == 2)
            break;
    }
}

int LxBusProtocol::indexOfDevice(quint32 identifier, quint32 parent, quint8 extensionIndex) const
{
    for (int i = 0; i < m_devices.count(); ++i) {
        const Device &d = m_devices.at(i);
        if (parent != 0) {
            if (d.parentIdentifier == parent && d.extensionIndex == extensionIndex)
                return i;
        } else if (d.parentIdentifier == 0 && d.identifier == identifier) {
            return i;
        }
    }
    return -1;
}

QString LxBusProtocol::deviceLine(const Device &d) const
{
    return QStringLiteral("%1, Num Ext: %2, HW: %3, Parent:[%4,%5], Name: %6")
        .arg(QString::number(d.identifier, 16))
        .arg(d.extensionCount)
        .arg(d.hardware)
        .arg(QString::number(d.parentIdentifier, 16))
        .arg(d.extensionIndex)
        .arg(d.name);
}

int LxBusProtocol::addOrRefresh(quint32 identifier, quint32 parent, quint16 hardware, quint8 extensionIndex,
                                quint8 kind, quint8 extensionCount, const QString &name, quint8 extra1,
                                quint8 extra2)
{
    const int existing = indexOfDevice(identifier, parent, extensionIndex);
    if (existing >= 0) {
        Device &d = m_devices[existing];
        d.silence = 0;
        d.keepAliveWait = kKeepAliveMs;
        if (identifier != 0 && d.identifier == 0) {
            // An extension answering for the first time fills in its placeholder record.
            d.identifier = identifier;
            d.hardware = hardware;
            d.kind = kind;
            d.name = name;
            d.extra1 = extra1;
            d.extra2 = extra2;
            emit deviceAdded(&m_devices);
        } else if (identifier != 0 && d.identifier == identifier &&
                   (d.extra1 != extra1 || d.extra2 != extra2)) {
            // Introducing itself again after a firmware update, a device reports its new version.
            d.extra1 = extra1;
            d.extra2 = extra2;
            emit deviceAdded(&m_devices);
        }
        return 1;
    }
    Device d;
    d.identifier = identifier;
    d.parentIdentifier = parent;
    d.hardware = hardware;
    d.extensionIndex = extensionIndex;
    d.kind = kind;
    d.extensionCount = extensionCount;
    d.name = name;
    d.extra1 = extra1;
    d.extra2 = extra2;
    d.keepAliveWait = kKeepAliveMs;
    if (!m_devices.append(d))
        return 2;
    qDebug().noquote() << QStringLiteral("Device added: ") + deviceLine(d);
    emit deviceAdded(&m_devices);
    return 0;
}

void LxBusProtocol::removeDevice(quint32 identifier)
{
    bool removed = false;
    for (int i = m_devices.count() - 1; i >= 0; --i) {
        const Device &d = m_devices.at(i);
        // A device's extensions sit behind it on the bus and go with it.
        if ((d.identifier == identifier && identifier != 0) ||
            (d.parentIdentifier == identifier && identifier != 0)) {
            qDebug().noquote() << QStringLiteral("Device removed: ") + deviceLine(d);
            m_devices.removeAt(i);
            removed = true;
        }
    }
    if (removed)
        emit deviceRemoved(&m_devices);
}

void LxBusProtocol::removeAllDevices()
{
    if (m_devices.count() == 0)
        return;
    for (const Device &d : m_devices)
        qDebug().noquote() << QStringLiteral("Device removed: ") + deviceLine(d);
    m_devices.clear();
    emit deviceRemoved(&m_devices);
}
