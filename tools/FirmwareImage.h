#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

// A device firmware image: a 16-byte header, then a chain of packets, each sent to the device's boot
// loader exactly as stored. A packet starts with two bytes b0, b1; its payload is
// ((b0 & 0x0F) << 8) + b1 bytes (the low nibble of b0 is the high part: 0x1F 0x40 gives 0xF40) and it
// occupies the payload plus those two bytes. The chain ends at a packet whose first byte is 0.
//
// Images come from a database or a file someone else built: the whole chain is walked and checked before
// anything is sent, so a damaged image is refused with a reason instead of leaving a device half
// programmed.
class FirmwareImage
{
public:
    static constexpr int kHeaderSize = 16;
    // Larger images are refused unread (the largest device holds far less).
    static constexpr qint64 kMaxImageBytes = 4 * 1024 * 1024;

    // False with *error set for an image over kMaxImageBytes, shorter than its header, whose chain runs
    // past the end, or that has no terminating zero byte.
    static bool parse(const QByteArray &image, FirmwareImage *out, QString *error);

    // Payload length of a packet starting with b0, b1.
    static int payloadLength(quint8 b0, quint8 b1) { return ((b0 & 0x0F) << 8) + b1; }

    const QByteArray &header() const { return m_header; }
    // Every packet with its two length bytes, in order; the terminator is not one of them.
    const QVector<QByteArray> &packets() const { return m_packets; }
    int packetCount() const { return m_packets.size(); }
    qint64 payloadBytes() const;

private:
    QByteArray m_header;
    QVector<QByteArray> m_packets;
};
