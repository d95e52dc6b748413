#include "database/InflatingDevice.h"

#include "database/BlobCodec.h"

#include <algorithm>
#include <limits>

InflatingDevice::InflatingDevice(const QByteArray &blob, QObject *parent) : QIODevice(parent), m_blob(blob) {}

InflatingDevice::~InflatingDevice()
{
    if (m_zsReady)
        inflateEnd(&m_zs);
}

bool InflatingDevice::open(OpenMode mode)
{
    if ((mode & ReadWrite) != ReadOnly) {
        setErrorString(BlobCodec::tr("A stored blob can only be read"));
        return false;
    }
    QString error;
    if (!BlobCodec::readHeader(m_blob, &m_size, &error)) {
        setErrorString(error);
        return false;
    }
    if (!restart())
        return false;
    return QIODevice::open(mode | Unbuffered);
}

void InflatingDevice::close()
{
    if (m_zsReady) {
        inflateEnd(&m_zs);
        m_zsReady = false;
    }
    QIODevice::close();
}

bool InflatingDevice::restart()
{
    if (m_zsReady)
        inflateEnd(&m_zs);
    m_zs = z_stream{};
    m_zsReady = false;
    m_ended = false;
    m_failed = false;
    m_produced = 0;
    // The empty blob of qCompress: the header alone.
    if (m_blob.size() == 4 && m_size == 0) {
        m_ended = true;
        return true;
    }
    if (inflateInit(&m_zs) != Z_OK) {
        setErrorString(BlobCodec::tr("Out of memory while opening stored data"));
        return false;
    }
    m_zsReady = true;
    m_zs.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(m_blob.constData() + 4));
    m_zs.avail_in = uInt(m_blob.size() - 4);
    return true;
}

bool InflatingDevice::seek(qint64 pos)
{
    if (pos == m_produced)
        return QIODevice::seek(pos);
    if (pos != 0 || !restart())
        return false;
    return QIODevice::seek(0);
}

qint64 InflatingDevice::fail(const QString &reason)
{
    m_failed = true;
    setErrorString(BlobCodec::tr("The stored data is damaged: %1").arg(reason));
    return -1;
}

bool InflatingDevice::confirmEnd()
{
    if (m_ended)
        return true;
    char scratch;
    m_zs.next_out = reinterpret_cast<Bytef *>(&scratch);
    m_zs.avail_out = 1;
    const int rc = inflate(&m_zs, Z_NO_FLUSH);
    if (rc == Z_STREAM_END && m_zs.avail_out == 1) {
        m_ended = true;
        return true;
    }
    if (m_zs.avail_out == 0)
        fail(BlobCodec::tr("it holds more than the %1 bytes it claims").arg(m_size));
    else if (rc == Z_OK || rc == Z_BUF_ERROR)
        fail(BlobCodec::tr("it is cut short"));
    else
        fail(QString::fromLatin1(m_zs.msg ? m_zs.msg : "inflate error"));
    return false;
}

qint64 InflatingDevice::readData(char *data, qint64 maxSize)
{
    if (m_failed)
        return -1;
    const qint64 remaining = m_size - m_produced;
    if (remaining == 0)
        return confirmEnd() ? 0 : -1;
    const qint64 want = std::min({maxSize, remaining, qint64(std::numeric_limits<uInt>::max())});
    if (m_ended)
        return fail(BlobCodec::tr("it ends after %1 of the %2 bytes it claims").arg(m_produced).arg(m_size));
    m_zs.next_out = reinterpret_cast<Bytef *>(data);
    m_zs.avail_out = uInt(want);
    while (m_zs.avail_out > 0) {
        const int rc = inflate(&m_zs, Z_NO_FLUSH);
        if (rc == Z_STREAM_END) {
            m_ended = true;
            break;
        }
        if (rc == Z_BUF_ERROR)
            return fail(BlobCodec::tr("it is cut short"));
        if (rc != Z_OK)
            return fail(QString::fromLatin1(m_zs.msg ? m_zs.msg : "inflate error"));
    }
    const qint64 got = want - m_zs.avail_out;
    m_produced += got;
    if (m_ended && m_produced < m_size)
        return fail(BlobCodec::tr("it ends after %1 of the %2 bytes it claims").arg(m_produced).arg(m_size));
    return got;
}

qint64 InflatingDevice::writeData(const char *, qint64)
{
    return -1;
}
