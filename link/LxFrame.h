#pragma once

#include "link/JoystickReader.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Byte layout of LX Bus frames.
namespace LxFrame {
constexpr quint8 kDeviceStart = 0x3B;
constexpr quint8 kDeviceStartAlt = 0x3C;
constexpr quint8 kMasterRequestStart = 0x3D;
constexpr quint8 kMasterStart = 0x3E;
constexpr int kMinLength = 8;
constexpr int kMaxLength = 255;
constexpr int kMaxRequest = 30;

constexpr quint8 kTypeTelemetry = ':';
constexpr quint8 kTypeIdentify = '@';
constexpr quint8 kTypeKeepAlive = 'P';
constexpr quint8 kTypeRead = 'W';
constexpr quint8 kTypeWrite = 'T';
constexpr quint8 kTypeChannels = '1';

constexpr quint16 kChannelCentre = 12000;
constexpr int kControllerChannels = 8;
// Room for the channel frame with a controller plus the longest request frame behind it.
constexpr int kMaxMasterFrame = 3 + 3 + 2 * kControllerChannels + kMaxRequest + 2 + 5 + kMaxRequest + 2;

// The servo value of one controller axis: 12000 ± 4000, in integers.
inline quint16 channelValue(qint16 axis)
{
    return quint16(kChannelCentre + (int(axis) * 4000 / 32767));
}
// Eight channel values from the axes in the map's key order; missing ones stay centred.
void channelsFromAxes(const JoystickAxisMap &axes, quint16 channels[kControllerChannels]);

// Builds the master frame into out (at least kMaxMasterFrame bytes) and returns its length.
// channels: kControllerChannels values with a controller, or null without one. request: the due
// request (id, type, count, data) or null.
int buildMasterFrame(quint8 *out, const quint16 *channels, const quint8 *request, int requestLength);

// A device frame around a payload (kind 1), as a device would send it; for the simulator and tests.
QByteArray buildDeviceFrame(const QByteArray &payload, quint8 start = kDeviceStart);

// The hex-dump line used for frame traffic: caption, time and length, then the bytes.
QString hexDump(const char *caption, const quint8 *data, int length, qint64 timestamp);
} // namespace LxFrame
