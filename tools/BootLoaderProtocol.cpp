#include "tools/BootLoaderProtocol.h"

#include "link/LxCrc.h"

namespace BootLoaderProtocol {
namespace {

void put16(QByteArray *out, quint16 v)
{
    out->append(char(v & 0xFF));
    out->append(char(v >> 8));
}

void put32(QByteArray *out, quint32 v)
{
    put16(out, quint16(v));
    put16(out, quint16(v >> 16));
}

quint16 get16(const QByteArray &b, int at)
{
    return quint16(quint8(b[at]) | (quint8(b[at + 1]) << 8));
}

quint32 get32(const QByteArray &b, int at)
{
    return quint32(get16(b, at)) | (quint32(get16(b, at + 2)) << 16);
}

QByteArray begin(quint8 start, quint8 command)
{
    QByteArray f;
    f.reserve(kMaxFrame);
    f.append(char(start));
    f.append(char(command));
    f.append(char(kAddress));
    f.append(char(0)); // length, set by seal()
    return f;
}

bool isAnswer(const QByteArray &frame, quint8 command, int length)
{
    return frame.size() == length && quint8(frame[0]) == kLoaderStart && quint8(frame[1]) == command &&
           isFrame(frame);
}

} // namespace

QString versionText(quint16 version)
{
    return QStringLiteral("%1.%2").arg(version >> 8).arg(version & 0xFF);
}

QByteArray seal(QByteArray frame)
{
    const int length = frame.size() + 2;
    frame[3] = char(length);
    put16(&frame, LxCrc::compute(reinterpret_cast<const quint8 *>(frame.constData()), frame.size()));
    return frame;
}

bool isFrame(const QByteArray &bytes)
{
    if (bytes.size() < 8 || bytes.size() > kMaxFrame)
        return false;
    const quint8 start = quint8(bytes[0]);
    if ((start != kHostStart && start != kLoaderStart) || quint8(bytes[2]) != kAddress ||
        quint8(bytes[3]) != bytes.size())
        return false;
    return LxCrc::compute(reinterpret_cast<const quint8 *>(bytes.constData()), bytes.size()) == 0;
}

QByteArray wakeRequest(quint32 identifier)
{
    QByteArray f = begin(kHostStart, kWake);
    f.append(char(kWakeKey));
    put32(&f, identifier);
    return seal(f);
}

QByteArray infoRequest(quint32 identifier)
{
    QByteArray f = begin(kHostStart, kDeviceInfo);
    put32(&f, identifier);
    f.append(char(kHostProtocol));
    f.append(QByteArray(kInfoLength - 2 - f.size(), '\0'));
    return seal(f);
}

QByteArray packetAnnouncement(quint16 index, const QByteArray &packet)
{
    QByteArray f = begin(kHostStart, kPacket);
    put16(&f, index);
    put16(&f, quint16(packet.size()));
    put16(&f, LxCrc::compute(reinterpret_cast<const quint8 *>(packet.constData()), packet.size()));
    return seal(f);
}

QByteArray finishRequest(quint16 count, quint16 version, const QByteArray &header)
{
    QByteArray f = begin(kHostStart, kFinish);
    put16(&f, count);
    put16(&f, version);
    QByteArray h = header.left(kHeaderBytes);
    h.append(QByteArray(kHeaderBytes - h.size(), '\0'));
    f.append(h);
    return seal(f);
}

QByteArray leaveRequest(quint32 identifier)
{
    QByteArray f = begin(kHostStart, kLeave);
    put32(&f, identifier);
    return seal(f);
}

QByteArray wakeAnswer(const DeviceInfo &info)
{
    QByteArray f = begin(kLoaderStart, kWake);
    put32(&f, info.identifier);
    put16(&f, info.hardware);
    put16(&f, info.firmware);
    f.append(char(info.bootLoader));
    f.append(char(kValid));
    return seal(f);
}

QByteArray infoAnswer(const DeviceInfo &info)
{
    QByteArray f = begin(kLoaderStart, kDeviceInfo);
    put32(&f, info.identifier);
    put16(&f, info.hardware);
    put16(&f, info.firmware);
    f.append(char(info.bootLoader));
    f.append(char(info.protocol));
    put32(&f, info.flashBytes);
    put16(&f, info.maxPacket);
    QByteArray name = info.name.toLatin1().left(kNameBytes);
    name.append(QByteArray(kNameBytes - name.size(), '\0'));
    f.append(name);
    f.append(QByteArray(kInfoAnswerLength - 2 - f.size(), '\0'));
    return seal(f);
}

QByteArray ack(quint16 index, quint8 status)
{
    QByteArray f = begin(kLoaderStart, kPacket);
    put16(&f, index);
    f.append(char(status));
    return seal(f);
}

QByteArray finishAnswer(quint16 firmware, quint8 status)
{
    QByteArray f = begin(kLoaderStart, kFinish);
    put16(&f, firmware);
    f.append(char(status));
    return seal(f);
}

QByteArray leaveAnswer(quint8 status)
{
    QByteArray f = begin(kLoaderStart, kLeave);
    f.append(char(status));
    f.append('\0');
    return seal(f);
}

bool decodeWakeAnswer(const QByteArray &frame, DeviceInfo *info)
{
    if (!isAnswer(frame, kWake, kWakeAnswerLength) || quint8(frame[13]) != kValid)
        return false;
    info->identifier = get32(frame, 4);
    info->hardware = get16(frame, 8);
    info->firmware = get16(frame, 10);
    info->bootLoader = quint8(frame[12]);
    return true;
}

bool decodeInfoAnswer(const QByteArray &frame, DeviceInfo *info)
{
    if (!isAnswer(frame, kDeviceInfo, kInfoAnswerLength))
        return false;
    info->identifier = get32(frame, 4);
    info->hardware = get16(frame, 8);
    info->firmware = get16(frame, 10);
    info->bootLoader = quint8(frame[12]);
    info->protocol = quint8(frame[13]);
    info->flashBytes = get32(frame, 14);
    info->maxPacket = get16(frame, 18);
    QByteArray name = frame.mid(20, kNameBytes);
    const int end = name.indexOf('\0');
    if (end >= 0)
        name.truncate(end);
    info->name = QString::fromLatin1(name);
    return true;
}

bool decodeAck(const QByteArray &frame, Ack *out)
{
    if (!isAnswer(frame, kPacket, kAckLength))
        return false;
    out->index = get16(frame, 4);
    out->status = quint8(frame[6]);
    return true;
}

bool decodeFinishAnswer(const QByteArray &frame, quint16 *firmware, quint8 *status)
{
    if (!isAnswer(frame, kFinish, kFinishAnswerLength))
        return false;
    *firmware = get16(frame, 4);
    *status = quint8(frame[6]);
    return true;
}

bool takeFrame(QByteArray *buffer, quint8 start, QByteArray *frame)
{
    // A start byte in noise may claim a length that has not arrived yet; a whole good frame behind it
    // must not wait for that, so every candidate is looked at and the first incomplete one only kept.
    int keepFrom = -1;
    for (int at = buffer->indexOf(char(start)); at >= 0; at = buffer->indexOf(char(start), at + 1)) {
        if (buffer->size() - at < 4) {
            if (keepFrom < 0)
                keepFrom = at;
            continue;
        }
        const int length = quint8(buffer->at(at + 3));
        if (quint8(buffer->at(at + 2)) != kAddress || length < 8 || length > kMaxFrame)
            continue;
        if (buffer->size() - at < length) {
            if (keepFrom < 0)
                keepFrom = at;
            continue;
        }
        const QByteArray candidate = buffer->mid(at, length);
        if (isFrame(candidate)) {
            *frame = candidate;
            buffer->remove(0, at + length);
            return true;
        }
    }
    if (keepFrom < 0)
        buffer->clear();
    else
        buffer->remove(0, keepFrom);
    return false;
}

} // namespace BootLoaderProtocol
