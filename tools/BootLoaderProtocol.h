#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Frames spoken with a device's boot loader over the adapter, while the link is in updater mode.
//
// Every boot-loader frame follows the LX frame code: a start byte, then fixed fields, the total length
// in byte 3, and CRC-16/KERMIT (link/LxCrc) over everything before it, low byte first, so that the whole
// frame checks to 0. Integers are little-endian.
//
//   offset 0  start: 0x35 from the program, 0x36 from the boot loader (outside the LX Bus start bytes
//             0x3B..0x3E, so a device running its application never takes bus traffic for one)
//   offset 1  command (below); an answer repeats the command of its request
//   offset 2  0xF0, the boot loader's address
//   offset 3  total length L, start byte to last CRC byte
//   4..L-3    fields of the command
//   L-2, L-1  CRC
//
// Boot request (kWake, 11 bytes): 35 3A F0 0B 64 id[4] crc[2]. 0x64 is the wake key: a device's
// application jumps to its boot loader only for a wake frame naming it (id 0: whichever device is alone
// on the adapter); a boot loader already running answers it again.
// Its answer (16 bytes): 36 3A F0 10 id[4] hw[2] fw[2] bl status crc[2].
//
// Device-info request (kDeviceInfo, 44 bytes): 35 49 F0 2C id[4] hostProtocol zero[33] crc[2]. It is as
// long as its answer so the boot loader answers in the buffer it received into.
// Its answer (44 bytes): 36 49 F0 2C id[4] hw[2] fw[2] bl protocol flash[4] maxPacket[2] name[12]
// zero[10] crc[2]; name is Latin-1, padded with zero bytes.
//
// A packet is written as its announcement (kPacket, 12 bytes: 35 50 F0 0C index[2] size[2] packetCrc[2]
// crc[2]) followed at once by the image's packet exactly as stored (size bytes, its two length bytes
// included; packetCrc is CRC-16/KERMIT over them). index counts from 0, so a packet sent again after a
// lost acknowledgement lands in the same place instead of being written twice.
// Acknowledgement (9 bytes): 36 50 F0 09 index[2] status crc[2]; status kValid when the packet was
// received whole and written, kInvalid otherwise (the program sends it again).
//
// Finish (kFinish, 26 bytes): 35 46 F0 1A count[2] version[2] header[16] crc[2]. The boot loader checks
// it holds packets 0..count-1, then starts the new firmware, which reports version on the bus (0: the
// program does not know it; the device keeps what it reported before). Answer (9 bytes):
// 36 46 F0 09 fw[2] status crc[2].
//
// Leave (kLeave, 10 bytes): 35 58 F0 0A id[4] crc[2]: back to the firmware the device holds, nothing
// written; answer 36 58 F0 08 status 00 crc[2]. Used after a device-info query alone.
//
// Firmware versions are 16 bits: the major number in the high byte, the minor in the low byte (the two
// bytes a device's identification answer carries at offsets 23 and 24). The updates database's sw_id
// holds the same number.
namespace BootLoaderProtocol {
constexpr quint8 kHostStart = 0x35;
constexpr quint8 kLoaderStart = 0x36;
constexpr quint8 kAddress = 0xF0;
constexpr quint8 kWakeKey = 0x64;
constexpr quint8 kHostProtocol = 1;

enum Command : quint8
{
    kWake = 0x3A,
    kDeviceInfo = 0x49,
    kPacket = 0x50,
    kFinish = 0x46,
    kLeave = 0x58,
};

enum Status : quint8
{
    kValid = 0x06,
    kInvalid = 0x15,
};

constexpr int kWakeLength = 11;
constexpr int kWakeAnswerLength = 16; // the least a connected boot loader answers
constexpr int kInfoLength = 44;
constexpr int kInfoAnswerLength = 44;
constexpr int kAnnounceLength = 12;
constexpr int kAckLength = 9;
constexpr int kFinishLength = 26;
constexpr int kFinishAnswerLength = 9;
constexpr int kLeaveLength = 10;
constexpr int kLeaveAnswerLength = 8;
constexpr int kHeaderBytes = 16; // the image header carried by the finish frame
constexpr int kNameBytes = 12;
constexpr int kMaxFrame = 64;

// What the boot loader tells about itself (wake answer: no name, flash or maxPacket).
struct DeviceInfo
{
    quint32 identifier = 0;
    quint16 hardware = 0;
    quint16 firmware = 0;
    quint8 bootLoader = 0;
    quint8 protocol = 0;
    quint32 flashBytes = 0;
    quint16 maxPacket = 0;
    QString name;

    quint16 idHigh() const { return quint16(identifier >> 16); }
    quint16 idLow() const { return quint16(identifier); }
};

struct Ack
{
    quint16 index = 0;
    quint8 status = kInvalid;
};

// "major.minor" of a 16-bit firmware version, and back from the two bytes a bus device reports.
QString versionText(quint16 version);
inline quint16 versionFromBus(quint8 major, quint8 minor)
{
    return quint16((major << 8) | minor);
}

// Adds length and CRC to a frame whose fields are in place (bytes 0..L-3), L = frame.size() + 2.
QByteArray seal(QByteArray frame);
// True when bytes hold a whole boot-loader frame: a known start, address, length and a CRC checking to 0.
bool isFrame(const QByteArray &bytes);

// Program side.
QByteArray wakeRequest(quint32 identifier);
QByteArray infoRequest(quint32 identifier);
// The announcement alone; the packet follows it on the line.
QByteArray packetAnnouncement(quint16 index, const QByteArray &packet);
QByteArray finishRequest(quint16 count, quint16 version, const QByteArray &header);
QByteArray leaveRequest(quint32 identifier);

// Boot-loader side (the bus simulator).
QByteArray wakeAnswer(const DeviceInfo &info);
QByteArray infoAnswer(const DeviceInfo &info);
QByteArray ack(quint16 index, quint8 status);
QByteArray finishAnswer(quint16 firmware, quint8 status);
QByteArray leaveAnswer(quint8 status);

// Decoders: false unless the frame is whole, from the boot loader, of that command and length.
bool decodeWakeAnswer(const QByteArray &frame, DeviceInfo *info);
bool decodeInfoAnswer(const QByteArray &frame, DeviceInfo *info);
bool decodeAck(const QByteArray &frame, Ack *ack);
bool decodeFinishAnswer(const QByteArray &frame, quint16 *firmware, quint8 *status);

// Cuts the next whole frame with the given start byte off the front of buffer, dropping any bytes
// before it that cannot begin one; false (buffer kept from a possible frame start on) until one is
// complete. Bad frames are dropped and the search goes on, so noise never blocks a good answer.
bool takeFrame(QByteArray *buffer, quint8 start, QByteArray *frame);
} // namespace BootLoaderProtocol
