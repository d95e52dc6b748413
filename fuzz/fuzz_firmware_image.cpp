// The firmware image reader on arbitrary bytes: nothing crashes, a refused image always says why, and an
// accepted one is exactly its header, its packets as stored and the terminating zero byte, in that order,
// so nothing is ever sent that the image did not hold.
#include "tools/FirmwareImage.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), int(size));
    FirmwareImage image;
    QString error;
    if (!FirmwareImage::parse(bytes, &image, &error)) {
        if (error.isEmpty())
            std::abort();
        return 0;
    }
    QByteArray rebuilt = image.header();
    qint64 payload = 0;
    for (const QByteArray &packet : image.packets()) {
        if (packet.size() < 2 || packet.at(0) == 0 ||
            packet.size() != FirmwareImage::payloadLength(quint8(packet.at(0)), quint8(packet.at(1))) + 2)
            std::abort();
        payload += packet.size() - 2;
        rebuilt += packet;
    }
    rebuilt += '\0';
    if (image.header().size() != FirmwareImage::kHeaderSize || payload != image.payloadBytes() ||
        !bytes.startsWith(rebuilt))
        std::abort();
    return 0;
}
