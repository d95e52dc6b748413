#pragma once

#include <QByteArray>
#include <QCoreApplication>
#include <QString>

// The compressed form of large blobs (log data, backup data and file lists): the framework's qCompress
// layout, a 4-byte big-endian uncompressed length followed by one zlib stream. Stored blobs are never
// trusted: a header that claims an impossible size or a stream that does not inflate to exactly that
// size is reported as damaged.
class BlobCodec
{
    Q_DECLARE_TR_FUNCTIONS(BlobCodec)
public:
    // The most a blob may claim: what one byte array can hold.
    static constexpr qint64 kMaxSize = 0x7fffffffLL - 64;
    // Inputs from this size on are deflated in parallel chunks.
    static constexpr qint64 kParallelMinimum = 1 << 20;

    // Same format and level as qCompress(data) (which gives identical bytes for small inputs); larger
    // ones are deflated by up to threads workers (0: one per core) into one valid zlib stream.
    static QByteArray compress(const QByteArray &data, int threads = 0);
    // Reads and checks the length header. False with the reason when the blob cannot be one of ours.
    static bool readHeader(const QByteArray &blob, qint64 *size, QString *error);
    // Inflates and verifies (length and checksum); false with the reason when the blob is damaged.
    static bool uncompress(const QByteArray &blob, QByteArray *out, QString *error);
};
