#pragma once

#include <QtGlobal>

// CRC-16/KERMIT (reflected CCITT 0x8408, initial 0, no final XOR), table-free. A frame whose own CRC
// bytes (low first) are included checks to 0.
class LxCrc
{
public:
    static quint16 update(quint16 crc, quint8 byte)
    {
        quint8 t = quint8(crc ^ byte);
        t = quint8(t ^ (t << 4));
        return quint16(((crc >> 8) | (quint16(t) << 8)) ^ (t >> 4) ^ (quint16(t) << 3));
    }
    static quint16 compute(const quint8 *data, int length, quint16 crc = 0);
};
