// The simulated devices' boot loader: the frames of tools/BootLoaderProtocol, the packets behind their
// announcements, the image received, and the faults a test asks for.
#include "tests/support/BusSimulator.h"

#include "link/LxCrc.h"
#include "tools/BootLoaderProtocol.h"
#include "tools/FirmwareImage.h"

#include <QTimer>

#include <algorithm>

namespace {
quint32 readU32(const quint8 *p)
{
    return quint32(p[0]) | (quint32(p[1]) << 8) | (quint32(p[2]) << 16) | (quint32(p[3]) << 24);
}
} // namespace

bool BusSimulator::inBootLoader(quint32 identifier) const
{
    const Unit *u = unit(identifier);
    return u && u->inBootLoader;
}

void BusSimulator::setBootFault(BootFault fault, int fromPacket, int count)
{
    m_boot.fault = fault;
    m_boot.faultFrom = m_boot.received + qMax(1, fromPacket);
    m_boot.faultCount = qMax(0, count);
}

QByteArray BusSimulator::flashedImage() const
{
    if (m_boot.flashedDevice == 0)
        return QByteArray();
    QByteArray image = m_boot.flashedHeader;
    for (const QByteArray &p : m_boot.flashedPackets)
        image += p;
    image.append('\0');
    return image;
}

void BusSimulator::lineReceived(int bytes)
{
    // A packet whose bytes stopped coming is given up, as a boot loader's receive timeout would: what
    // comes next is read as frames again.
    const qint64 t = now();
    if (m_boot.pendingIndex >= 0 && t - m_boot.lastBytesMs > kBootReceiveTimeoutMs) {
        m_boot.pendingIndex = -1;
        m_boot.pendingPacket.clear();
    }
    m_boot.lastBytesMs = t;
    if (m_lineBaud <= 0)
        return;
    if (!m_lineClock.isValid())
        m_lineClock.start();
    // Ten bits a byte; what arrives while the line is still busy queues behind it.
    const qint64 now = m_lineClock.nsecsElapsed();
    m_lineFreeNs = std::max(m_lineFreeNs, now) + qint64(bytes) * 10 * 1000000000LL / m_lineBaud;
}

bool BusSimulator::bootBytes(const quint8 *b, int size, int *pos)
{
    if (m_boot.pendingIndex >= 0) {
        // Packet bytes exactly as stored: whatever they hold, they are not frames.
        const int take = std::min(size - *pos, m_boot.pendingSize - m_boot.pendingPacket.size());
        m_boot.pendingPacket.append(reinterpret_cast<const char *>(b + *pos), take);
        *pos += take;
        if (m_boot.pendingPacket.size() < m_boot.pendingSize)
            return false;
        bootPacket();
        return true;
    }
    if (size - *pos < 4)
        return false;
    const int length = b[*pos + 3];
    if (b[*pos + 2] != BootLoaderProtocol::kAddress || length < 8 || length > BootLoaderProtocol::kMaxFrame) {
        ++*pos;
        return true;
    }
    if (size - *pos < length)
        return false;
    const QByteArray frame(reinterpret_cast<const char *>(b + *pos), length);
    if (!BootLoaderProtocol::isFrame(frame)) {
        ++*pos;
        return true;
    }
    *pos += length;
    bootFrame(frame);
    return true;
}

void BusSimulator::bootAnswer(QByteArray bytes, double extraMs)
{
    if (m_lineBaud <= 0 && extraMs <= 0) {
        writeAll(bytes);
        return;
    }
    if (!m_lineClock.isValid())
        m_lineClock.start();
    // The answer starts once the request has crossed the line and the device is done; it then takes its
    // own time on the line before the program has it.
    const qint64 now = m_lineClock.nsecsElapsed();
    qint64 due = std::max(m_lineFreeNs, now) + qint64(extraMs * 1e6);
    if (m_lineBaud > 0)
        due += qint64(bytes.size()) * 10 * 1000000000LL / m_lineBaud;
    m_lineFreeNs = due;
    const int delayMs = int((due - now + 999999) / 1000000);
    QTimer::singleShot(delayMs, Qt::PreciseTimer, this, [this, bytes] {
        if (m_master >= 0)
            writeAll(bytes);
    });
}

void BusSimulator::bootFrame(const QByteArray &frame)
{
    using namespace BootLoaderProtocol;
    if (quint8(frame[0]) != kHostStart)
        return;
    const bool stalled = m_boot.fault == Stall && m_boot.received >= m_boot.faultFrom;
    const quint8 command = quint8(frame[1]);
    const auto u32 = [&frame](int at) {
        return readU32(reinterpret_cast<const quint8 *>(frame.constData()) + at);
    };
    Unit *device = m_boot.device ? findUnit(m_boot.device) : nullptr;
    const auto info = [](const Unit &u) {
        DeviceInfo i;
        i.identifier = u.identifier;
        i.hardware = u.hardware;
        i.firmware = versionFromBus(u.extra1, u.extra2);
        i.bootLoader = u.bootLoaderVersion;
        i.protocol = kHostProtocol;
        i.flashBytes = 512 * 1024;
        i.maxPacket = 0xFFF + 2;
        i.name = QString::fromLatin1(u.name);
        return i;
    };
    switch (command) {
    case kWake: {
        if (frame.size() != kWakeLength || quint8(frame[4]) != kWakeKey)
            return;
        ++m_boot.wakes;
        if (stalled)
            return;
        const quint32 wanted = u32(5);
        // Id 0 means the device alone on the adapter: one already in its boot loader, else the first.
        Unit *who = wanted != 0 ? findUnit(wanted) : (m_boot.device ? findUnit(m_boot.device) : nullptr);
        for (int i = 0; !who && wanted == 0 && i < m_units.size(); ++i) {
            if (m_units[i].parent == 0)
                who = &m_units[i];
        }
        if (who && who->parent != 0)
            who = nullptr;
        if (!who)
            return;
        // A wake starts a new session: what an earlier, broken one left is forgotten.
        who->inBootLoader = true;
        m_boot.device = who->identifier;
        m_boot.packets.clear();
        bootAnswer(wakeAnswer(info(*who)), 0);
        break;
    }
    case kDeviceInfo:
        if (!device || stalled || frame.size() != kInfoLength || u32(4) != device->identifier)
            return;
        bootAnswer(infoAnswer(info(*device)), 0);
        break;
    case kPacket: {
        if (frame.size() != kAnnounceLength)
            return;
        const auto *f = reinterpret_cast<const quint8 *>(frame.constData());
        m_boot.pendingIndex = f[4] | (f[5] << 8);
        m_boot.pendingSize = f[6] | (f[7] << 8);
        m_boot.pendingCrc = quint16(f[8] | (f[9] << 8));
        m_boot.pendingPacket.clear();
        // More than the longest packet cannot be one: refused at once rather than swallowing what follows.
        if (m_boot.pendingSize < 2 || m_boot.pendingSize > 0xFFF + 2) {
            m_boot.pendingSize = 0;
            bootPacket();
        }
        break;
    }
    case kFinish: {
        if (!device || stalled || frame.size() != kFinishLength)
            return;
        const auto *f = reinterpret_cast<const quint8 *>(frame.constData());
        const int count = f[4] | (f[5] << 8);
        const quint16 version = quint16(f[6] | (f[7] << 8));
        bool whole = m_boot.packets.size() == count;
        for (int i = 0; whole && i < count; ++i)
            whole = !m_boot.packets[i].isNull();
        if (!whole) {
            bootAnswer(finishAnswer(versionFromBus(device->extra1, device->extra2), kInvalid), 0);
            return;
        }
        m_boot.flashedDevice = device->identifier;
        m_boot.flashedHeader = frame.mid(8, kHeaderBytes);
        m_boot.flashedPackets = m_boot.packets;
        if (version != 0) {
            device->extra1 = quint8(version >> 8);
            device->extra2 = quint8(version);
        }
        // Running the new firmware, it introduces itself again at the next enumeration.
        device->inBootLoader = false;
        device->lastIdentifiedMs = -1;
        device->lastKeepAliveMs = -1;
        const quint16 now = versionFromBus(device->extra1, device->extra2);
        m_boot.device = 0;
        m_boot.packets.clear();
        bootAnswer(finishAnswer(now, kValid), 0);
        emit firmwareFlashed(m_boot.flashedDevice, now);
        break;
    }
    case kLeave:
        if (!device || stalled || u32(4) != device->identifier)
            return;
        device->inBootLoader = false;
        m_boot.device = 0;
        m_boot.packets.clear();
        bootAnswer(leaveAnswer(kValid), 0);
        break;
    default:
        break;
    }
}

void BusSimulator::bootPacket()
{
    using namespace BootLoaderProtocol;
    const int index = m_boot.pendingIndex;
    const QByteArray packet = m_boot.pendingPacket;
    m_boot.pendingIndex = -1;
    m_boot.pendingPacket.clear();
    const int reception = ++m_boot.received;
    const bool inFault = m_boot.fault != NoFault && reception >= m_boot.faultFrom;
    const bool counted = inFault && reception < m_boot.faultFrom + m_boot.faultCount;
    if (inFault && m_boot.fault == Unplug) {
        m_boot.fault = NoFault;
        QTimer::singleShot(0, this, &BusSimulator::unplug);
        return;
    }
    if (inFault && m_boot.fault == Stall)
        return;
    if (m_boot.device == 0)
        return; // no boot loader is listening
    const auto *p = reinterpret_cast<const quint8 *>(packet.constData());
    const bool good = packet.size() >= 2 && LxCrc::compute(p, packet.size()) == m_boot.pendingCrc &&
                      FirmwareImage::payloadLength(p[0], p[1]) + 2 == packet.size() && p[0] != 0;
    if (good) {
        // Written to its place: a packet sent again lands where it landed before.
        if (m_boot.packets.size() <= index)
            m_boot.packets.resize(index + 1);
        m_boot.packets[index] = packet;
    }
    QByteArray answer = ack(quint16(index), good ? kValid : kInvalid);
    if (counted && m_boot.fault == DropAck)
        return;
    if (counted && m_boot.fault == CorruptAck)
        answer[answer.size() - 1] = char(answer.at(answer.size() - 1) ^ 0x5A);
    ++m_boot.acks;
    bootAnswer(answer, m_packetWriteMs);
}
