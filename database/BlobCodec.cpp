#include "database/BlobCodec.h"

#include "database/InflatingDevice.h"

#include <QThread>

#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace {
constexpr qint64 kChunk = 512 * 1024;
// Each chunk is primed with the end of the previous one, so the ratio hardly differs from one stream.
constexpr qint64 kDictionary = 32 * 1024;
// Deflate cannot expand data by more than about 1032 to 1.
constexpr qint64 kMaxRatio = 1032;

void putBigEndian(char *out, quint32 v)
{
    out[0] = char(v >> 24);
    out[1] = char(v >> 16);
    out[2] = char(v >> 8);
    out[3] = char(v);
}

struct Chunk
{
    QByteArray deflated;
    uLong adler = 0;
    qint64 length = 0;
};

bool deflateChunk(z_stream *zs, const QByteArray &data, qint64 offset, bool last, Chunk *chunk)
{
    const char *begin = data.constData() + offset;
    chunk->length = std::min(kChunk, qint64(data.size()) - offset);
    if (deflateReset(zs) != Z_OK)
        return false;
    if (offset > 0) {
        const qint64 dict = std::min(kDictionary, offset);
        if (deflateSetDictionary(zs, reinterpret_cast<const Bytef *>(begin - dict), uInt(dict)) != Z_OK)
            return false;
    }
    chunk->deflated.resize(int(deflateBound(zs, uLong(chunk->length)) + 64));
    zs->next_in = reinterpret_cast<Bytef *>(const_cast<char *>(begin));
    zs->avail_in = uInt(chunk->length);
    qint64 produced = 0;
    for (;;) {
        zs->next_out = reinterpret_cast<Bytef *>(chunk->deflated.data() + produced);
        zs->avail_out = uInt(chunk->deflated.size() - produced);
        // A sync flush ends a middle chunk on a byte boundary without closing the stream.
        const int rc = deflate(zs, last ? Z_FINISH : Z_SYNC_FLUSH);
        produced = chunk->deflated.size() - zs->avail_out;
        if (rc == Z_STREAM_ERROR)
            return false;
        if ((last && rc == Z_STREAM_END) || (!last && zs->avail_in == 0 && zs->avail_out > 0))
            break;
        chunk->deflated.resize(chunk->deflated.size() * 2);
    }
    chunk->deflated.resize(int(produced));
    chunk->adler =
        adler32(adler32(0, nullptr, 0), reinterpret_cast<const Bytef *>(begin), uInt(chunk->length));
    return true;
}
} // namespace

QByteArray BlobCodec::compress(const QByteArray &data, int threads)
{
    if (threads <= 0)
        threads = std::max(1, QThread::idealThreadCount());
    if (data.size() < kParallelMinimum || threads < 2)
        return qCompress(data);

    const qint64 n = data.size();
    const int count = int((n + kChunk - 1) / kChunk);
    std::vector<Chunk> chunks(static_cast<size_t>(count));
    std::atomic<int> next{0};
    std::atomic<bool> failed{false};
    const auto work = [&] {
        z_stream zs{};
        if (deflateInit2(&zs, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
            failed = true;
            return;
        }
        for (int i = next++; i < count && !failed; i = next++) {
            if (!deflateChunk(&zs, data, i * kChunk, i == count - 1, &chunks[size_t(i)]))
                failed = true;
        }
        deflateEnd(&zs);
    };
    std::vector<std::thread> helpers;
    for (int t = 1; t < std::min(threads, count); ++t)
        helpers.emplace_back(work);
    work();
    for (std::thread &t : helpers)
        t.join();
    if (failed)
        return qCompress(data);

    qint64 total = 4 + 2 + 4;
    uLong adler = chunks[0].adler;
    for (size_t i = 0; i < chunks.size(); ++i) {
        total += chunks[i].deflated.size();
        if (i > 0)
            adler = adler32_combine(adler, chunks[i].adler, z_off_t(chunks[i].length));
    }
    QByteArray out(int(total), Qt::Uninitialized);
    char *w = out.data();
    putBigEndian(w, quint32(n));
    w += 4;
    // The zlib header of the default level, as compress2() writes it.
    *w++ = char(0x78);
    *w++ = char(0x9c);
    for (Chunk &c : chunks) {
        std::copy(c.deflated.constBegin(), c.deflated.constEnd(), w);
        w += c.deflated.size();
        c.deflated.clear();
    }
    putBigEndian(w, quint32(adler));
    return out;
}

bool BlobCodec::readHeader(const QByteArray &blob, qint64 *size, QString *error)
{
    const auto fail = [error](const QString &reason) {
        if (error)
            *error = reason;
        return false;
    };
    if (blob.size() < 4)
        return fail(tr("The stored data is damaged: %1 bytes, too short for its header").arg(blob.size()));
    const auto *b = reinterpret_cast<const uchar *>(blob.constData());
    const qint64 claimed = (qint64(b[0]) << 24) | (qint64(b[1]) << 16) | (qint64(b[2]) << 8) | qint64(b[3]);
    const qint64 body = blob.size() - 4;
    if (claimed > kMaxSize)
        return fail(tr("The stored data is damaged: it claims %1 bytes, more than can be held").arg(claimed));
    if (claimed > body * kMaxRatio + 64)
        return fail(tr("The stored data is damaged: it claims %1 bytes from only %2 compressed bytes")
                        .arg(claimed)
                        .arg(body));
    if (size)
        *size = claimed;
    return true;
}

bool BlobCodec::uncompress(const QByteArray &blob, QByteArray *out, QString *error)
{
    InflatingDevice device(blob);
    if (!device.open(QIODevice::ReadOnly)) {
        if (error)
            *error = device.errorString();
        return false;
    }
    const qint64 size = device.size();
    // Grown as bytes really arrive, so a lying header costs no more than the data it holds.
    QByteArray result(int(std::min<qint64>(size, 4 * qint64(blob.size()) + (1 << 20))), Qt::Uninitialized);
    qint64 done = 0;
    for (;;) {
        if (done == result.size() && done < size)
            result.resize(int(std::min(size, 2 * done)));
        // Once full, a one-byte probe lets the device confirm that the stream really ends there.
        char probe;
        const bool full = done == result.size();
        const qint64 n =
            full ? device.read(&probe, 1) : device.read(result.data() + done, result.size() - done);
        if (n < 0) {
            if (error)
                *error = device.errorString();
            return false;
        }
        if (n == 0)
            break;
        done += n;
    }
    result.resize(int(done));
    if (out)
        *out = result;
    return true;
}
