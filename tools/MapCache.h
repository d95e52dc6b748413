#pragma once

#include <QCoreApplication>
#include <QDateTime>
#include <QSet>
#include <QString>
#include <QStringList>

class QImage;

// The folder "maps" in the data folder: whole map images named after provider, type, tile and zoom, and the
// 256-pixel slippy tiles under "osm/<z>/<x>/<y>.png". Files appear whole (temporary name, then rename); a
// file that no longer decodes is removed so it is fetched again. The folder is kept under a size limit by
// removing the oldest images first, and only files named like ours are ever removed.
class MapCache
{
    Q_DECLARE_TR_FUNCTIONS(MapCache)
public:
    static constexpr qint64 kDefaultLimit = 500LL * 1000 * 1000;

    // providerNames: the names that start image file names, so that clearing recognises them.
    MapCache(const QString &dataFolder, const QStringList &providerNames);

    QString dir() const { return m_dir; }
    QString imagePath(const QString &provider, const QString &type, int tileX, int tileY, int zoom) const;
    QString tilePath(int zoom, int x, int y) const;

    enum class Lookup
    {
        Missing, // no file, or one that did not decode (and is now removed)
        Fresh,
        Stale // decodes but is older than the age asked for: usable when the network fails
    };
    // maxAgeSeconds < 0: any age is fresh.
    Lookup read(const QString &path, QImage *image, qint64 maxAgeSeconds = -1);

    // Stores bytes under path, then trims the folder to the limit without touching the paths in keep.
    bool write(const QString &path, const QByteArray &bytes, const QSet<QString> &keep, QString *error);

    void setLimit(qint64 bytes) { m_limit = bytes; }
    qint64 limit() const { return m_limit; }
    // Bytes held by our images.
    qint64 size() const;
    // Removes every image this program wrote; returns how many, or -1 with error set when one stayed.
    int clear(QString *error = nullptr);

    // Decodes a complete PNG or JPEG of sane dimensions; why says what the bytes were otherwise.
    static bool decode(const QByteArray &bytes, QImage *image, QString *why = nullptr);

private:
    struct Entry
    {
        QString path;
        qint64 size;
        QDateTime modified;
    };
    QList<Entry> ownFiles() const;
    // Removes the oldest images until at most target bytes remain; returns the bytes left.
    qint64 trim(qint64 target, const QSet<QString> &keep);

    QString m_dir;
    QString m_namePattern;
    qint64 m_limit = kDefaultLimit;
    // Running total, -1 until the folder was first scanned.
    mutable qint64 m_size = -1;
};
