#include "tools/FirmwareImage.h"

#include <QCoreApplication>

namespace {
QString tr(const char *text)
{
    return QCoreApplication::translate("FirmwareImage", text);
}
} // namespace

bool FirmwareImage::parse(const QByteArray &image, FirmwareImage *out, QString *error)
{
    auto fail = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    if (image.size() > kMaxImageBytes)
        return fail(tr("The firmware image is too large: %1 bytes, at most %2 are accepted.")
                        .arg(image.size())
                        .arg(kMaxImageBytes));
    if (image.size() < kHeaderSize)
        return fail(tr("The firmware image is too short: %1 bytes, shorter than its %2-byte header.")
                        .arg(image.size())
                        .arg(kHeaderSize));

    FirmwareImage parsed;
    parsed.m_header = image.left(kHeaderSize);
    const auto *bytes = reinterpret_cast<const quint8 *>(image.constData());
    const int size = image.size();
    int pos = kHeaderSize;
    for (;;) {
        if (pos >= size)
            return fail(tr("The firmware image is damaged: its packet chain has no terminating zero byte "
                           "(the image ends at offset %1).")
                            .arg(size));
        if (bytes[pos] == 0)
            break;
        const int number = parsed.m_packets.size() + 1;
        if (pos + 1 >= size)
            return fail(tr("The firmware image is damaged: packet %1 at offset %2 is cut off inside its "
                           "length bytes.")
                            .arg(number)
                            .arg(pos));
        const int length = payloadLength(bytes[pos], bytes[pos + 1]) + 2;
        if (length > size - pos)
            return fail(tr("The firmware image is damaged: packet %1 at offset %2 needs %3 bytes but only "
                           "%4 remain.")
                            .arg(number)
                            .arg(pos)
                            .arg(length)
                            .arg(size - pos));
        parsed.m_packets.append(image.mid(pos, length));
        pos += length;
    }
    // Padding after a real chain is tolerated; a chain that ends at once with data behind it is some other
    // kind of file (a picture, an archive) that would program nothing.
    if (parsed.m_packets.isEmpty() && pos + 1 < size)
        return fail(tr("This is not a firmware image: its packet chain ends at once, yet %1 bytes follow.")
                        .arg(size - pos - 1));
    if (out)
        *out = std::move(parsed);
    if (error)
        error->clear();
    return true;
}

qint64 FirmwareImage::payloadBytes() const
{
    qint64 total = 0;
    for (const QByteArray &packet : m_packets)
        total += packet.size() - 2;
    return total;
}
