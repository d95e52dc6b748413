// Stored blobs on arbitrary bytes: the whole-blob inflater and the streaming device agree, a blob
// either inflates to exactly the length its header claims (zlib itself agrees) or is reported damaged
// with the output left alone, and whatever inflated compresses back to the same bytes.
#include "database/BlobCodec.h"
#include "database/InflatingDevice.h"

#include <zlib.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray blob(reinterpret_cast<const char *>(data), int(size));
    QByteArray out("untouched");
    QString error;
    const bool ok = BlobCodec::uncompress(blob, &out, &error);
    if (!ok && (out != "untouched" || !error.contains(QLatin1String("damaged"))))
        std::abort();
    qint64 claimed = -1;
    QString headerError;
    if (ok && (!BlobCodec::readHeader(blob, &claimed, &headerError) || claimed != out.size()))
        std::abort();

    InflatingDevice device(blob);
    QByteArray streamed;
    bool streamOk = device.open(QIODevice::ReadOnly);
    // To the end the way readers go: until a read gives nothing (that read checks the stream ends there).
    for (qint64 n = 1; streamOk && n > 0;) {
        char piece[4093];
        n = device.read(piece, sizeof piece);
        if (n < 0)
            streamOk = false;
        else
            streamed.append(piece, int(n));
    }
    if (streamOk != ok || (ok && streamed != out))
        std::abort();

    if (ok) {
        // zlib itself, given one byte more room than claimed, must find exactly the claimed bytes.
        QByteArray plain(int(out.size()) + 1, Qt::Uninitialized);
        uLongf plainSize = uLongf(plain.size());
        if (::uncompress(reinterpret_cast<Bytef *>(plain.data()), &plainSize,
                         reinterpret_cast<const Bytef *>(blob.constData()) + 4,
                         uLong(blob.size() - 4)) != Z_OK ||
            plainSize != uLongf(out.size()) || plain.left(int(plainSize)) != out)
            std::abort();
        QByteArray back;
        if (!BlobCodec::uncompress(BlobCodec::compress(out, 1), &back, &error) || back != out)
            std::abort();
    }
    return 0;
}
