#pragma once

#include "tools/AbstractDownloader.h"

#include <QByteArray>

// Keeps the whole reply in memory for the caller: for small catalogues ("Update.xml" and the like), so
// its size cap is small by default.
class FileDownloader : public AbstractDownloader
{
    Q_OBJECT
public:
    static constexpr qint64 DefaultMaxSize = qint64(16) << 20;

    explicit FileDownloader(QObject *parent = nullptr);

    // The body of the last successful download; empty after a failure.
    QByteArray data() const { return m_data; }

protected:
    bool beginDownload() override;
    bool consume(const char *data, qint64 size) override;
    void discardDownload() override;

private:
    QByteArray m_data;
};
