#pragma once

#include "tools/AbstractDownloader.h"

#include <QFile>
#include <QString>

// Streams the reply into "<final name>.jsdownload" and renames it to the final name only when the whole
// body has arrived and passed every check (size, SHA1), replacing an old file in one step. On any failure
// or abort the temporary file is removed and the old file stays as it was.
class SaveFileDownloader : public AbstractDownloader
{
    Q_OBJECT
public:
    static constexpr qint64 PieceSize = 4096;

    explicit SaveFileDownloader(QObject *parent = nullptr);
    ~SaveFileDownloader() override;

    // Where the file ends up; set before download().
    void setFileName(const QString &finalPath);
    QString fileName() const { return m_fileName; }
    // "<final name>.jsdownload"
    QString temporaryFileName() const;

protected:
    bool beginDownload() override;
    bool consume(const char *data, qint64 size) override;
    bool completeDownload() override;
    void discardDownload() override;

private:
    QString m_fileName;
    QFile m_file;
};
