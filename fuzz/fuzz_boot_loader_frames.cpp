// What a device's boot loader answers, on arbitrary bytes fed in arbitrary pieces: nothing crashes, every
// frame cut out is whole and checks, the buffer only ever shrinks by what was read, and the decoders take
// any frame without reading past it.
#include "tools/BootLoaderProtocol.h"

#include <cstdint>
#include <cstdlib>

using namespace BootLoaderProtocol;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 1)
        return 0;
    // The first byte sets the piece size, as the adapter hands bytes over in batches.
    const int piece = 1 + data[0] % 64;
    const QByteArray bytes = QByteArray(reinterpret_cast<const char *>(data + 1), int(size - 1));
    QByteArray buffer;
    QByteArray frame;
    for (int at = 0; at < bytes.size(); at += piece) {
        buffer += bytes.mid(at, piece);
        while (takeFrame(&buffer, kLoaderStart, &frame)) {
            if (!isFrame(frame) || quint8(frame[0]) != kLoaderStart || !bytes.contains(frame))
                std::abort();
            DeviceInfo info;
            Ack ack;
            quint16 firmware = 0;
            quint8 status = 0;
            decodeWakeAnswer(frame, &info);
            decodeInfoAnswer(frame, &info);
            decodeAck(frame, &ack);
            decodeFinishAnswer(frame, &firmware, &status);
        }
        if (buffer.size() > bytes.size())
            std::abort();
    }
    return 0;
}
