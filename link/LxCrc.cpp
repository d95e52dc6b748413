#include "link/LxCrc.h"

quint16 LxCrc::compute(const quint8 *data, int length, quint16 crc)
{
    for (int i = 0; i < length; ++i)
        crc = update(crc, data[i]);
    return crc;
}
