#include "transmitter/ZipEntries.h"

#include <QCoreApplication>
#include <QTextCodec>

#include <quazip/quazip.h>
#include <quazip/quazipfile.h>
#include <quazip/unzip.h>

#include <zlib.h>

#include <memory>

namespace ZipEntries {

namespace {
constexpr qint64 kChunk = 64 * 1024;
constexpr uLong kMaxNameBytes = 4096;

QString tr(const char *text)
{
    return QCoreApplication::translate("ArchiveCheck", text);
}
} // namespace

bool current(QuaZip *zip, RawEntry *raw)
{
    unzFile handle = zip->getUnzFile();
    if (!handle)
        return false;
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(handle, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
        return false;
    const uLong nameSize = qMin<uLong>(info.size_filename, kMaxNameBytes);
    QByteArray name(int(nameSize) + 1, '\0');
    if (unzGetCurrentFileInfo64(handle, &info, name.data(), uLong(name.size()), nullptr, 0, nullptr, 0) !=
        UNZ_OK)
        return false;
    name.truncate(int(nameSize));
    raw->nameBytes = name;
    raw->flags = quint16(info.flag);
    raw->method = quint16(info.compression_method);
    raw->externalAttr = quint32(info.external_fa);
    raw->entry.crc = quint32(info.crc);
    // Sizes past what a signed 64-bit count holds are kept negative and refused by the check.
    raw->entry.size = qint64(info.uncompressed_size);
    raw->entry.compressedSize = qint64(info.compressed_size);

    QTextCodec::ConverterState state(QTextCodec::ConvertInvalidToNull);
    const QString decoded =
        QTextCodec::codecForName("UTF-8")->toUnicode(name.constData(), name.size(), &state);
    raw->nameDecoded = info.size_filename <= kMaxNameBytes && !name.contains('\0') &&
                       state.invalidChars == 0 && state.remainingChars == 0;
    raw->entry.name = decoded;
    raw->entry.isFolder = decoded.endsWith(QLatin1Char('/'));
    return true;
}

bool read(QuaZip *zip, const ArchiveCheck::Entry &entry, const Sink &sink, QString *error)
{
    QuaZipFile file(zip);
    int method = 0;
    int level = 0;
    if (!file.open(QIODevice::ReadOnly, &method, &level, true)) {
        *error = tr("The entry \"%1\" cannot be opened.").arg(entry.name);
        return false;
    }
    const std::unique_ptr<char[]> in(new char[kChunk]);
    const std::unique_ptr<char[]> out(new char[kChunk]);
    qint64 produced = 0;
    uLong crc = crc32(0, nullptr, 0);
    const QString tooLong = tr("The entry \"%1\" holds more than its declared size.").arg(entry.name);

    auto deliver = [&](const char *data, qint64 size) {
        if (produced + size > entry.size) {
            *error = tooLong;
            return false;
        }
        produced += size;
        crc = crc32(crc, reinterpret_cast<const Bytef *>(data), uInt(size));
        if (!sink(data, size)) {
            error->clear();
            return false;
        }
        return true;
    };

    bool ended = false;
    if (method == 0) {
        for (;;) {
            const qint64 n = file.read(in.get(), kChunk);
            if (n < 0) {
                *error = tr("The entry \"%1\" cannot be read.").arg(entry.name);
                return false;
            }
            if (n == 0)
                break;
            if (!deliver(in.get(), n))
                return false;
        }
        ended = true;
    } else if (method == Z_DEFLATED) {
        z_stream stream{};
        if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
            *error = tr("The entry \"%1\" cannot be read.").arg(entry.name);
            return false;
        }
        const auto release = std::unique_ptr<z_stream, int (*)(z_stream *)>(&stream, inflateEnd);
        while (!ended) {
            const qint64 n = file.read(in.get(), kChunk);
            if (n < 0) {
                *error = tr("The entry \"%1\" cannot be read.").arg(entry.name);
                return false;
            }
            if (n == 0)
                break;
            stream.next_in = reinterpret_cast<Bytef *>(in.get());
            stream.avail_in = uInt(n);
            while (stream.avail_in > 0 && !ended) {
                stream.next_out = reinterpret_cast<Bytef *>(out.get());
                stream.avail_out = uInt(kChunk);
                const int result = inflate(&stream, Z_NO_FLUSH);
                if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR) {
                    *error = tr("The entry \"%1\" is damaged.").arg(entry.name);
                    return false;
                }
                const qint64 have = kChunk - stream.avail_out;
                if (have > 0 && !deliver(out.get(), have))
                    return false;
                ended = result == Z_STREAM_END;
                if (result == Z_BUF_ERROR && have == 0)
                    break;
            }
        }
        // Output still held back by the inflater once the input is used up.
        while (!ended) {
            stream.next_out = reinterpret_cast<Bytef *>(out.get());
            stream.avail_out = uInt(kChunk);
            const int result = inflate(&stream, Z_NO_FLUSH);
            const qint64 have = kChunk - stream.avail_out;
            if (have > 0 && !deliver(out.get(), have))
                return false;
            ended = result == Z_STREAM_END;
            if (result != Z_OK || have == 0)
                break;
        }
    } else {
        *error = tr("The entry \"%1\" is compressed in a way this program does not read.").arg(entry.name);
        return false;
    }
    if (!ended || produced != entry.size) {
        *error = tr("The entry \"%1\" is shorter than its declared size.").arg(entry.name);
        return false;
    }
    if (quint32(crc) != entry.crc) {
        *error = tr("The entry \"%1\" fails its CRC check.").arg(entry.name);
        return false;
    }
    return true;
}

} // namespace ZipEntries
