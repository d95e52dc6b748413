#pragma once

#include <QByteArray>
#include <QList>
#include <QtEndian>

// Builds zip archives byte by byte, so that tests can hand the program archives no well-behaved tool
// would write: any name bytes, modes, flags and declared sizes. Independent of the code under test.
namespace ZipBuilder {

struct Item
{
    QByteArray name;
    QByteArray data;
    bool deflate = false;
    quint32 mode = 0100644;   // unix mode, high 16 bits of the external attributes
    quint16 flags = 0x0800;   // names in UTF-8
    qint64 declaredSize = -1; // -1: the data's real size
    quint32 crcXor = 0;       // non-zero: a wrong CRC
};

inline quint32 crc32(const QByteArray &data)
{
    quint32 crc = 0xffffffffu;
    for (const char c : data) {
        crc ^= quint8(c);
        for (int k = 0; k < 8; ++k)
            crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

inline void put16(QByteArray *out, quint16 v)
{
    char b[2];
    qToLittleEndian(v, b);
    out->append(b, 2);
}

inline void put32(QByteArray *out, quint32 v)
{
    char b[4];
    qToLittleEndian(v, b);
    out->append(b, 4);
}

inline QByteArray build(const QList<Item> &items)
{
    QByteArray zip;
    QByteArray central;
    for (const Item &item : items) {
        // qCompress: 4 bytes of length, a 2-byte zlib header, the raw deflate stream, 4 bytes of Adler-32.
        const QByteArray z = qCompress(item.data, 6);
        const QByteArray stored = item.deflate ? z.mid(6, z.size() - 10) : item.data;
        const quint16 method = item.deflate ? 8 : 0;
        const quint32 crc = crc32(item.data) ^ item.crcXor;
        const quint32 size = quint32(item.declaredSize >= 0 ? item.declaredSize : item.data.size());
        const quint32 offset = quint32(zip.size());
        const auto common = [&](QByteArray *out) {
            put16(out, 20);
            put16(out, item.flags);
            put16(out, method);
            put16(out, 0);    // time
            put16(out, 0x21); // 1980-01-01
            put32(out, crc);
            put32(out, quint32(stored.size()));
            put32(out, size);
            put16(out, quint16(item.name.size()));
            put16(out, 0); // extra
        };
        put32(&zip, 0x04034b50);
        common(&zip);
        zip += item.name;
        zip += stored;
        put32(&central, 0x02014b50);
        put16(&central, 0x031e); // made on unix
        common(&central);
        put16(&central, 0); // comment
        put16(&central, 0); // disk
        put16(&central, 0); // internal attributes
        put32(&central, item.mode << 16);
        put32(&central, offset);
        central += item.name;
    }
    const quint32 centralOffset = quint32(zip.size());
    zip += central;
    put32(&zip, 0x06054b50);
    put16(&zip, 0);
    put16(&zip, 0);
    put16(&zip, quint16(items.size()));
    put16(&zip, quint16(items.size()));
    put32(&zip, quint32(central.size()));
    put32(&zip, centralOffset);
    put16(&zip, 0);
    return zip;
}

} // namespace ZipBuilder
