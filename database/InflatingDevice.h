#pragma once

#include <QByteArray>
#include <QIODevice>

#include <zlib.h>

// Reads a compressed blob (BlobCodec's format) as the bytes it holds, inflating on read(), so a stored
// log streams into a reader without a second full-size buffer. size() is the length the header claims;
// a stream that is corrupt, shorter or longer than that fails the read with a "damaged" error.
class InflatingDevice : public QIODevice
{
    Q_OBJECT
public:
    explicit InflatingDevice(const QByteArray &blob, QObject *parent = nullptr);
    ~InflatingDevice() override;

    // Read-only; false (see errorString()) when the header cannot be right.
    bool open(OpenMode mode) override;
    void close() override;
    bool isSequential() const override { return false; }
    qint64 size() const override { return m_size; }
    bool atEnd() const override { return !isOpen() || m_produced >= m_size; }
    // Only the current position and the start are reachable.
    bool seek(qint64 pos) override;

protected:
    qint64 readData(char *data, qint64 maxSize) override;
    qint64 writeData(const char *data, qint64 size) override;

private:
    bool restart();
    qint64 fail(const QString &reason);
    // At the claimed length: true when the stream ends exactly there.
    bool confirmEnd();

    QByteArray m_blob;
    z_stream m_zs{};
    bool m_zsReady = false;
    bool m_ended = false;
    bool m_failed = false;
    qint64 m_size = 0;
    qint64 m_produced = 0;
};
