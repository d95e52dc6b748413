#include "link/LxFrame.h"

#include "link/LxCrc.h"

#include <cstring>

namespace LxFrame {

void channelsFromAxes(const JoystickAxisMap &axes, quint16 channels[kControllerChannels])
{
    int i = 0;
    for (auto it = axes.cbegin(); it != axes.cend() && i < kControllerChannels; ++it, ++i)
        channels[i] = channelValue(it.value());
    for (; i < kControllerChannels; ++i)
        channels[i] = kChannelCentre;
}

namespace {
void putCrc(quint8 *frame, int lengthWithoutCrc)
{
    const quint16 crc = LxCrc::compute(frame, lengthWithoutCrc);
    frame[lengthWithoutCrc] = quint8(crc & 0xFF);
    frame[lengthWithoutCrc + 1] = quint8(crc >> 8);
}

// Start, kind, length placeholder, packet id, channel type, then the channel block; returns the length.
int putChannelBlock(quint8 *out, quint8 kind, quint8 packetId, const quint16 *channels)
{
    int n = 0;
    out[n++] = kMasterStart;
    out[n++] = kind;
    out[n++] = 0; // length, filled in by the caller
    out[n++] = packetId;
    out[n++] = kTypeChannels;
    if (channels) {
        out[n++] = 2 * kControllerChannels;
        for (int i = 0; i < kControllerChannels; ++i) {
            out[n++] = quint8(channels[i] & 0xFF);
            out[n++] = quint8(channels[i] >> 8);
        }
    } else {
        out[n++] = 4;
        for (int i = 0; i < 2; ++i) {
            out[n++] = quint8(kChannelCentre & 0xFF);
            out[n++] = quint8(kChannelCentre >> 8);
        }
    }
    return n;
}
} // namespace

int buildMasterFrame(quint8 *out, const quint16 *channels, const quint8 *request, int requestLength)
{
    if (!request || requestLength < 2 || requestLength > kMaxRequest) {
        const int n = putChannelBlock(out, 0x01, 0, channels);
        out[2] = quint8(n + 2);
        putCrc(out, n);
        return n + 2;
    }
    const quint8 type = request[1];
    if (type == kTypeIdentify || type == kTypeTelemetry) {
        // Broadcast requests travel in a second frame behind the channel frame, in the same write.
        int n = putChannelBlock(out, 0x03, 0, channels);
        out[2] = quint8(n + 2);
        putCrc(out, n);
        n += 2;
        quint8 *second = out + n;
        second[0] = kMasterRequestStart;
        second[1] = 0x01;
        second[2] = quint8(requestLength + 5);
        std::memcpy(second + 3, request, size_t(requestLength));
        putCrc(second, requestLength + 3);
        return n + requestLength + 5;
    }
    // Addressed requests ride in the channel frame itself: their id is the frame's packet id and the
    // request from its type byte on follows the channel block.
    int n = putChannelBlock(out, 0x01, request[0], channels);
    std::memcpy(out + n, request + 1, size_t(requestLength - 1));
    n += requestLength - 1;
    out[2] = quint8(n + 2);
    putCrc(out, n);
    return n + 2;
}

QByteArray buildDeviceFrame(const QByteArray &payload, quint8 start)
{
    QByteArray frame;
    frame.reserve(payload.size() + 5);
    frame.append(char(start));
    frame.append(char(0x01));
    frame.append(char(payload.size() + 5));
    frame.append(payload);
    const quint16 crc = LxCrc::compute(reinterpret_cast<const quint8 *>(frame.constData()), frame.size());
    frame.append(char(crc & 0xFF));
    frame.append(char(crc >> 8));
    return frame;
}

QString hexDump(const char *caption, const quint8 *data, int length, qint64 timestamp)
{
    QString line = QString::fromLatin1(caption);
    line += QStringLiteral("%1 | \t %2 | ").arg(timestamp).arg(length);
    for (int i = 0; i < length; ++i)
        line += QString::asprintf("%02X ", data[i]);
    return line;
}

} // namespace LxFrame
