#include "tools/MapCache.h"

#include "telemetry/AtomicFile.h"

#include <QBuffer>
#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QImageReader>
#include <QRegularExpression>
#include <QStorageInfo>

#include <algorithm>

namespace {
// Map images are 512 pixels square and tiles 256; anything much larger is not one of ours, or a
// decompression bomb.
constexpr int kMaxSide = 4096;
constexpr qint64 kMaxFileSize = 32LL * 1024 * 1024;
// Room left on the disk beyond the file itself before a write is attempted again.
constexpr qint64 kHeadroom = 1024 * 1024;
const QByteArray kPngEnd = QByteArray::fromHex("49454e44ae426082"); // "IEND" and its CRC
const QByteArray kJpegEnd = QByteArray::fromHex("ffd9");
// QSaveFile falls back to a named temporary "<name>.XXXXXX" where unnamed ones are not available.
const QString kTempSuffix = QStringLiteral(R"((\.[A-Za-z0-9]{6})?)");
const QRegularExpression kTilePattern(QStringLiteral(R"(^osm/\d+/\d+/\d+\.png)") + kTempSuffix + "$");
const QRegularExpression kDigits(QStringLiteral(R"(^\d+$)"));

QString describeNonImage(const QByteArray &bytes)
{
    const QByteArray head = bytes.left(400).trimmed();
    if (head.startsWith('<'))
        return MapCache::tr("an HTML page");
    const bool text = std::all_of(head.begin(), head.end(), [](char c) {
        const auto u = static_cast<unsigned char>(c);
        return u >= 0x20 || u == '\t' || u == '\r' || u == '\n';
    });
    if (text && !head.isEmpty()) {
        QString quoted = QString::fromUtf8(head).simplified();
        if (quoted.size() > 60)
            quoted = quoted.left(60) + QChar(0x2026);
        return MapCache::tr("the text \"%1\"").arg(quoted);
    }
    return MapCache::tr("%n bytes that are not an image", nullptr, bytes.size());
}
} // namespace

MapCache::MapCache(const QString &dataFolder, const QStringList &providerNames)
    : m_dir(QDir::cleanPath(dataFolder + QStringLiteral("/maps")))
{
    QStringList names;
    for (const QString &name : providerNames)
        names << QRegularExpression::escape(name);
    m_namePattern =
        QStringLiteral(R"(^(%1)-[A-Za-z0-9]+--?\d+--?\d+-\d+\.png)").arg(names.join('|')) + kTempSuffix + "$";
    QDir().mkpath(m_dir);
}

QString MapCache::imagePath(const QString &provider, const QString &type, int tileX, int tileY,
                            int zoom) const
{
    return QStringLiteral("%6/%4-%5-%1-%2-%3.png")
        .arg(tileX)
        .arg(tileY)
        .arg(zoom)
        .arg(provider)
        .arg(type)
        .arg(m_dir);
}

QString MapCache::tilePath(int zoom, int x, int y) const
{
    return QStringLiteral("%1/osm/%2/%3/%4.png").arg(m_dir).arg(zoom).arg(x).arg(y);
}

MapCache::Lookup MapCache::read(const QString &path, QImage *image, qint64 maxAgeSeconds)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return Lookup::Missing;
    const QDateTime modified = QFileInfo(file).lastModified();
    const QByteArray bytes = file.size() <= kMaxFileSize ? file.readAll() : QByteArray();
    file.close();
    if (!decode(bytes, image)) {
        // Left by a crash or a foreign program: fetch it again rather than show a broken map forever.
        qDebug() << "Removing undecodable map cache file" << path;
        QFile::remove(path);
        m_size = -1;
        return Lookup::Missing;
    }
    if (maxAgeSeconds >= 0 && modified.secsTo(QDateTime::currentDateTime()) > maxAgeSeconds)
        return Lookup::Stale;
    return Lookup::Fresh;
}

bool MapCache::write(const QString &path, const QByteArray &bytes, const QSet<QString> &keep, QString *error)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QFileInfo old(path);
    const qint64 oldSize = old.exists() ? old.size() : 0;
    QString reason;
    bool saved = AtomicFile::write(path, bytes, &reason);
    if (!saved) {
        // A full disk: make room from the oldest images once, then try again.
        const QStorageInfo storage(m_dir);
        const qint64 needed = bytes.size() + kHeadroom;
        if (storage.isValid() && storage.bytesAvailable() >= 0 && storage.bytesAvailable() < needed) {
            QSet<QString> kept = keep;
            kept.insert(path);
            trim(size() - (needed - storage.bytesAvailable()), kept);
            saved = AtomicFile::write(path, bytes, &reason);
        }
    }
    if (!saved) {
        if (error)
            *error = reason;
        return false;
    }
    if (m_size >= 0)
        m_size += bytes.size() - oldSize;
    if (m_limit >= 0 && size() > m_limit) {
        QSet<QString> kept = keep;
        kept.insert(path);
        // Down to nine tenths, so the folder is not scanned again on every following write.
        trim(m_limit / 10 * 9, kept);
    }
    return true;
}

QList<MapCache::Entry> MapCache::ownFiles() const
{
    QList<Entry> entries;
    const QRegularExpression namePattern(m_namePattern);
    const QDir dir(m_dir);
    for (const QFileInfo &info : dir.entryInfoList(QDir::Files | QDir::Hidden)) {
        if (namePattern.match(info.fileName()).hasMatch())
            entries.append({info.filePath(), info.size(), info.lastModified()});
    }
    QDirIterator it(m_dir + QStringLiteral("/osm"), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        if (kTilePattern.match(dir.relativeFilePath(info.filePath())).hasMatch())
            entries.append({info.filePath(), info.size(), info.lastModified()});
    }
    return entries;
}

qint64 MapCache::size() const
{
    if (m_size < 0) {
        qint64 total = 0;
        for (const Entry &e : ownFiles())
            total += e.size;
        m_size = total;
    }
    return m_size;
}

qint64 MapCache::trim(qint64 target, const QSet<QString> &keep)
{
    QList<Entry> entries = ownFiles();
    qint64 total = 0;
    for (const Entry &e : entries)
        total += e.size;
    std::sort(entries.begin(), entries.end(),
              [](const Entry &a, const Entry &b) { return a.modified < b.modified; });
    for (const Entry &e : entries) {
        if (total <= target)
            break;
        if (keep.contains(e.path) || !QFile::remove(e.path))
            continue;
        total -= e.size;
    }
    m_size = total;
    return total;
}

int MapCache::clear(QString *error)
{
    int removed = 0;
    QString failed;
    for (const Entry &e : ownFiles()) {
        if (QFile::remove(e.path))
            ++removed;
        else if (failed.isEmpty())
            failed = e.path;
    }
    // Tile folders we made, deepest first; rmdir leaves any that still hold something.
    const QString osm = m_dir + QStringLiteral("/osm");
    for (const QString &z : QDir(osm).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (!kDigits.match(z).hasMatch())
            continue;
        for (const QString &x : QDir(osm + '/' + z).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
            if (kDigits.match(x).hasMatch())
                QDir(osm + '/' + z).rmdir(x);
        }
        QDir(osm).rmdir(z);
    }
    QDir(m_dir).rmdir(QStringLiteral("osm"));
    m_size = -1;
    if (!failed.isEmpty()) {
        if (error)
            *error = tr("Unable to remove %1").arg(QDir::toNativeSeparators(failed));
        return -1;
    }
    return removed;
}

bool MapCache::decode(const QByteArray &bytes, QImage *image, QString *why)
{
    auto fail = [why](const QString &reason) {
        if (why)
            *why = reason;
        return false;
    };
    if (bytes.isEmpty())
        return fail(tr("an empty reply"));
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QByteArray format = reader.format();
    if (format != "png" && format != "jpeg")
        return fail(describeNonImage(bytes));
    // The decoders accept a cut-off body and fill the missing rows; the end marker says it is all there.
    const bool complete =
        format == "png" ? bytes.contains(kPngEnd)
                        : bytes.size() - bytes.lastIndexOf(kJpegEnd) <= 64 && bytes.lastIndexOf(kJpegEnd) > 0;
    if (!complete)
        return fail(tr("an incomplete image"));
    const QSize size = reader.size();
    if (!size.isValid() || size.width() > kMaxSide || size.height() > kMaxSide)
        return fail(tr("an image of %1 × %2 pixels").arg(size.width()).arg(size.height()));
    QImage decoded;
    if (!reader.read(&decoded) || decoded.isNull())
        return fail(tr("an image that does not decode"));
    if (image)
        *image = decoded;
    return true;
}
