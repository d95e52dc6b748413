// The receive state machine and the request ring on arbitrary input. The input is a list of operations
// so that frames with correct CRCs (which random bytes almost never have) reach the answer matching:
// op 0: raw bytes; op 1: the bytes as one device frame with a good CRC; op 2: a tick; op 3: queue a
// request from the bytes; op 4: take the due request and any telemetry.
#include "link/LxBusProtocol.h"
#include "link/LxFrame.h"
#include "link/LxReceiver.h"

#include <QByteArray>

#include <cstdint>
#include <cstdlib>

namespace {
struct Sink : LxReceiver::Handler
{
    LxBusProtocol *protocol = nullptr;
    void deviceFrame(const quint8 *, int length, const quint8 *payload, int payloadLength) override
    {
        if (payloadLength > length)
            std::abort();
        protocol->processAnswer(payload, payloadLength);
    }
    void crcError(const quint8 *, int length) override
    {
        if (length > LxFrame::kMaxLength + 1)
            std::abort();
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    LxBusProtocol protocol;
    Sink sink;
    sink.protocol = &protocol;
    LxReceiver receiver(&sink);
    size_t pos = 0;
    while (pos + 2 <= size) {
        const int op = data[pos] % 5;
        const size_t len = std::min<size_t>(data[pos + 1], size - pos - 2);
        const quint8 *bytes = data + pos + 2;
        pos += 2 + len;
        switch (op) {
        case 0:
            receiver.setEchoSkipping(len % 2);
            receiver.feed(bytes, qint64(len));
            break;
        case 1: {
            const QByteArray frame = LxFrame::buildDeviceFrame(
                QByteArray(reinterpret_cast<const char *>(bytes), int(std::min<size_t>(len, 250))));
            receiver.feed(reinterpret_cast<const quint8 *>(frame.constData()), frame.size());
            break;
        }
        case 2:
            protocol.tick(len ? bytes[0] * 40 : 1);
            break;
        case 3:
            if (len >= 2)
                protocol.queueRaw(bytes, int(std::min<size_t>(len, 40)), len > 2 ? bytes[2] % 20 : 1);
            else
                protocol.queueRead(0x0102A401, bytes, int(len), 3);
            break;
        default: {
            int n = 0;
            const quint8 *request = protocol.nextDueRequest(&n);
            quint8 frame[LxFrame::kMaxMasterFrame];
            if (request) {
                if (n < 2 || n > LxFrame::kMaxRequest)
                    std::abort();
                LxFrame::buildMasterFrame(frame, nullptr, request, n);
            }
            quint8 record[LxFrame::kMaxRequest + 2];
            int recordLength = 0;
            while (protocol.takeTelemetry(record, &recordLength)) {
                if (recordLength < 1 || recordLength > LxFrame::kMaxRequest)
                    std::abort();
            }
            break;
        }
        }
    }
    return 0;
}
