#include "tools/GPSMaps.h"

#include "tools/GuardedGet.h"
#include "tools/MapKeys.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDebug>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPainter>
#include <QTimer>

#include <algorithm>

namespace {
struct ProviderInfo
{
    const char *name;
    const char *types[4];
};
// Indexes are stored in layouts: never reorder.
constexpr ProviderInfo kProviders[GPSMaps::kProviderCount] = {
    {"Google", {"roadmap", "satellite", "terrain", "hybrid"}},
    {"Microsoft", {"Road", "AerialWithLabels", "", ""}},
    {"OpenStreetMap", {"standard", "", "", ""}},
};
constexpr int kMaxImageSide = 2048;

qint64 floorDiv(qint64 a, qint64 b)
{
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

QStringList providerNames()
{
    QStringList names;
    for (const ProviderInfo &p : kProviders)
        names << QString::fromLatin1(p.name);
    return names;
}
} // namespace

GPSMaps::GPSMaps(const QString &dataFolder, const MapEndpoints &endpoints, QObject *parent)
    : QObject(parent), m_endpoints(endpoints), m_cache(dataFolder, providerNames()),
      m_network(new QNetworkAccessManager(this))
{
    MapKeys::load(dataFolder, m_settingsKey);
}

GPSMaps::~GPSMaps()
{
    dropReplies();
}

QString GPSMaps::providerName(int provider)
{
    return provider >= 0 && provider < kProviderCount ? QString::fromLatin1(kProviders[provider].name)
                                                      : QString();
}

int GPSMaps::maxZoom(int provider)
{
    return provider == OpenStreetMap ? 19 : MapsProjection::kMaxZoom;
}

QString GPSMaps::attribution(int provider)
{
    return provider == OpenStreetMap ? tr("© OpenStreetMap contributors") : QString();
}

QString GPSMaps::mapTypeName(int provider, int type)
{
    return provider >= 0 && provider < kProviderCount && type >= 0 && type < 4
               ? QString::fromLatin1(kProviders[provider].types[type])
               : QString();
}

int GPSMaps::mapTypeCount(int provider)
{
    int count = 0;
    while (count < 4 && !mapTypeName(provider, count).isEmpty())
        ++count;
    return count;
}

QString GPSMaps::apiKey(int provider) const
{
    if (provider != Google && provider != Microsoft)
        return QString();
    return m_settingsKey[provider].isEmpty() ? m_endpoints.apiKey[provider] : m_settingsKey[provider];
}

void GPSMaps::setApiKey(int provider, const QString &key)
{
    if (provider == Google || provider == Microsoft)
        m_settingsKey[provider] = key.trimmed();
}

bool GPSMaps::isProviderAvailable(int provider) const
{
    return availabilityHint(provider).isEmpty();
}

QString GPSMaps::availabilityHint(int provider) const
{
    if (provider == Google || provider == Microsoft) {
        if (apiKey(provider).isEmpty())
            return tr("%1 needs an API key: enter it under File > Configuration... or set the environment "
                      "variable %2.")
                .arg(providerName(provider), QString::fromLatin1(MapEndpoints::keyVariable(provider)));
        return QString();
    }
    if (provider == OpenStreetMap) {
        const QString &t = m_endpoints.tilesTemplate;
        if (!t.contains(QLatin1String("{z}")) || !t.contains(QLatin1String("{x}")) ||
            !t.contains(QLatin1String("{y}")))
            return tr("The tile address %1 lacks {z}, {x} or {y}.").arg(t);
        return QString();
    }
    return tr("Unknown map provider %1.").arg(provider);
}

bool GPSMaps::setProvider(int provider, int type)
{
    if (mapTypeName(provider, type).isEmpty())
        return false;
    m_provider = provider;
    m_type = type;
    return true;
}

void GPSMaps::getProvider(int &provider, int &type) const
{
    provider = m_provider;
    type = m_type;
}

QString GPSMaps::cacheFileName(int tileX, int tileY, int zoom) const
{
    return m_cache.imagePath(providerName(m_provider), mapTypeName(m_provider, m_type), tileX, tileY, zoom);
}

int GPSMaps::clearCache(QString *error)
{
    return m_cache.clear(error);
}

QString GPSMaps::staticMapUrl() const
{
    QString base = m_endpoints.staticMapUrl[m_provider];
    while (base.endsWith('/'))
        base.chop(1);
    const QString templ =
        m_provider == Google ? QStringLiteral("/maps/api/staticmap?maptype=%1&center=%2,%3&zoom=%4&size=%5x%6"
                                              "&key=%7&format=png8")
                             : QStringLiteral("/REST/v1/Imagery/Map/%1/%2,%3/%4?mapSize=%5,%6&key=%7");
    // One multi-argument arg(): a key holding "%1" is not substituted again.
    return base + templ.arg(mapTypeName(m_provider, m_type), QString::number(m_centre.latitude, 'f', 6),
                            QString::number(m_centre.longitude, 'f', 6), QString::number(m_zoom),
                            QString::number(m_width), QString::number(m_height), apiKey(m_provider));
}

QString GPSMaps::tileUrl(int zoom, int x, int y) const
{
    QString url = m_endpoints.tilesTemplate;
    return url.replace(QLatin1String("{z}"), QString::number(zoom))
        .replace(QLatin1String("{x}"), QString::number(x))
        .replace(QLatin1String("{y}"), QString::number(y));
}

bool GPSMaps::loadMap(int width, int height, const MapsProjection::LatLon &centre, int zoom, int tileX,
                      int tileY)
{
    if (m_loading)
        return false;
    m_loading = true;
    ++m_generation;
    m_width = width;
    m_height = height;
    m_centre = centre;
    m_zoom = zoom;
    m_tileX = tileX;
    m_tileY = tileY;
    m_path = cacheFileName(tileX, tileY, zoom);
    m_staleImage = QImage();
    m_pieces.clear();
    m_pieceQueue.clear();
    qDebug().noquote() << QStringLiteral("Loading path: %1 \nPosition:").arg(m_path) << tileX << tileY;

    if (!isProviderAvailable(m_provider)) {
        failLater(availabilityHint(m_provider));
        return true;
    }
    if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide || zoom < 0 ||
        zoom > MapsProjection::kMaxZoom) {
        failLater(tr("No map image of %1 × %2 pixels at zoom %3.").arg(width).arg(height).arg(zoom));
        return true;
    }
    if (m_provider == OpenStreetMap)
        startStitching();
    else
        startStatic();
    return true;
}

void GPSMaps::startStatic()
{
    QImage image;
    if (m_cache.read(m_path, &image) == MapCache::Lookup::Fresh) {
        deliverLater(image);
        return;
    }
    startFetch(staticMapUrl(), -1);
}

void GPSMaps::startStitching()
{
    QImage image;
    switch (m_cache.read(m_path, &image, kTileLifetimeSeconds)) {
    case MapCache::Lookup::Fresh:
        deliverLater(image);
        return;
    case MapCache::Lookup::Stale:
        m_staleImage = image;
        break;
    case MapCache::Lookup::Missing:
        break;
    }
    // The image's top-left world pixel, and the slippy tiles that cover it.
    const QPoint centre = MapsProjection(m_zoom).fromLatLngToPoint(m_centre.latitude, m_centre.longitude);
    const qint64 left = qint64(centre.x()) - m_width / 2;
    const qint64 top = qint64(centre.y()) - m_height / 2;
    const qint64 tilesPerSide = qint64(1) << m_zoom;
    for (qint64 ty = floorDiv(top, kSlippyTileSize); ty <= floorDiv(top + m_height - 1, kSlippyTileSize);
         ++ty) {
        if (ty < 0 || ty >= tilesPerSide)
            continue; // beyond the poles: left white
        for (qint64 tx = floorDiv(left, kSlippyTileSize); tx <= floorDiv(left + m_width - 1, kSlippyTileSize);
             ++tx) {
            Piece piece;
            piece.x = int(((tx % tilesPerSide) + tilesPerSide) % tilesPerSide); // the date line wraps
            piece.y = int(ty);
            piece.at = QPoint(int(tx * kSlippyTileSize - left), int(ty * kSlippyTileSize - top));
            piece.path = m_cache.tilePath(m_zoom, piece.x, piece.y);
            // At the lowest zooms the image wraps round the world and holds a tile more than once.
            const auto same = std::find_if(m_pieces.cbegin(), m_pieces.cend(),
                                           [&piece](const Piece &p) { return p.path == piece.path; });
            if (same != m_pieces.cend()) {
                piece.image = same->image;
                piece.done = same->done;
            } else {
                const MapCache::Lookup found = m_cache.read(piece.path, &piece.image, kTileLifetimeSeconds);
                piece.done = found == MapCache::Lookup::Fresh;
                if (!piece.done)
                    m_pieceQueue.append(m_pieces.size());
            }
            m_pieces.append(piece);
        }
    }
    if (m_pieceQueue.isEmpty()) {
        // Everything was in the cache: still answer after this call returns.
        const quint64 generation = m_generation;
        QTimer::singleShot(0, this, [this, generation] {
            if (generation == m_generation && m_loading)
                stitch();
        });
        return;
    }
    fetchNextPieces();
}

void GPSMaps::fetchNextPieces()
{
    while (m_fetches.size() < kMaxTileConnections && !m_pieceQueue.isEmpty()) {
        const int index = m_pieceQueue.takeFirst();
        const Piece &piece = m_pieces.at(index);
        startFetch(tileUrl(m_zoom, piece.x, piece.y), index);
    }
}

void GPSMaps::pieceDone(int index, const QImage &image)
{
    const QString path = m_pieces.at(index).path;
    for (Piece &piece : m_pieces) {
        if (piece.path == path) {
            piece.image = image;
            piece.done = true;
        }
    }
    for (const Piece &piece : qAsConst(m_pieces)) {
        if (!piece.done) {
            fetchNextPieces();
            return;
        }
    }
    stitch();
}

void GPSMaps::stitch()
{
    QImage image(m_width, m_height, QImage::Format_RGB32);
    image.fill(Qt::white);
    {
        QPainter painter(&image);
        for (const Piece &piece : qAsConst(m_pieces))
            painter.drawImage(QRect(piece.at, QSize(kSlippyTileSize, kSlippyTileSize)), piece.image);
    }
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (image.save(&buffer, "PNG"))
        save(m_path, png);
    finish(image, QString());
}

void GPSMaps::startFetch(const QString &url, int piece)
{
    QNetworkReply *reply = GuardedGet::start(
        m_network, QUrl(url), this, m_silenceMs, m_downloadLimit,
        [this](QNetworkReply *r, const QByteArray &bytes) -> qint64 {
            const auto it = m_fetches.find(r);
            if (it == m_fetches.end())
                return -1;
            it->data += bytes;
            return it->data.size();
        },
        [this](QNetworkReply *r, GuardedGet::Stop why) {
            const auto it = m_fetches.find(r);
            if (it == m_fetches.end() || !it->failure.isEmpty())
                return;
            it->failure =
                why == GuardedGet::Stop::Silence
                    ? tr("The map server sent nothing for %1 s.").arg(QString::number(m_silenceMs / 1000.0))
                    : tr("The map image is larger than %1 kB.").arg(m_downloadLimit / 1024);
        });
    Fetch fetch;
    fetch.piece = piece;
    m_fetches.insert(reply, fetch);
    connect(reply, &QNetworkReply::redirected, this,
            [](const QUrl &to) { qDebug() << "must go to:" << to.toString(QUrl::RemoveQuery); });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { onFinished(reply); });
}

QString GPSMaps::replyFailure(QNetworkReply *reply, const Fetch &fetch, QImage *image) const
{
    if (!fetch.failure.isEmpty())
        return fetch.failure;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    QString what;
    const bool decodes = MapCache::decode(fetch.data, image, &what);
    if (status != 0 && status != 200) {
        const QString phrase = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
        return tr("The map server answered %1 %2 (%3)").arg(status).arg(phrase, what);
    }
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (status == 200 && length.isValid() && fetch.data.size() < length.toLongLong())
        return tr("The map image arrived incomplete (%1 of %2 bytes).")
            .arg(fetch.data.size())
            .arg(length.toLongLong());
    if (reply->error() != QNetworkReply::NoError)
        return tr("No map image: %1.").arg(reply->errorString());
    if (!decodes)
        return tr("No map image: the server sent %1.").arg(what);
    return QString();
}

void GPSMaps::onFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (!m_fetches.contains(reply))
        return;
    Fetch fetch = m_fetches.take(reply);
    if (reply->isOpen())
        fetch.data += reply->readAll();
    QImage image;
    const QString failure = replyFailure(reply, fetch, &image);
    if (!failure.isEmpty()) {
        image = QImage(); // an error page may well be a picture
        qDebug() << "Error in" << reply->url().toString(QUrl::RemoveQuery) << failure;
    }

    if (fetch.piece < 0) {
        if (failure.isEmpty())
            save(m_path, fetch.data);
        finish(image, failure);
        return;
    }
    if (failure.isEmpty()) {
        save(m_pieces.at(fetch.piece).path, fetch.data);
        pieceDone(fetch.piece, image);
        return;
    }
    // Offline at the field: an expired tile beats none.
    if (!m_pieces.at(fetch.piece).image.isNull()) {
        pieceDone(fetch.piece, m_pieces.at(fetch.piece).image);
        return;
    }
    dropReplies();
    if (!m_staleImage.isNull())
        finish(m_staleImage, QString());
    else
        finish(QImage(), failure);
}

void GPSMaps::save(const QString &path, const QByteArray &bytes)
{
    // The image being loaded is kept, whatever the limit says.
    QSet<QString> keep{m_path};
    for (const Piece &piece : qAsConst(m_pieces))
        keep.insert(piece.path);
    QString error;
    if (!m_cache.write(path, bytes, keep, &error))
        qDebug() << "Error saving maps cache" << error;
}

void GPSMaps::deliverLater(const QImage &image)
{
    const quint64 generation = m_generation;
    QTimer::singleShot(0, this, [this, generation, image] {
        if (generation == m_generation && m_loading)
            finish(image, QString());
    });
}

void GPSMaps::failLater(const QString &reason)
{
    const quint64 generation = m_generation;
    QTimer::singleShot(0, this, [this, generation, reason] {
        if (generation == m_generation && m_loading)
            finish(QImage(), reason);
    });
}

void GPSMaps::finish(const QImage &image, const QString &reason)
{
    m_loading = false;
    m_pieces.clear();
    m_pieceQueue.clear();
    m_staleImage = QImage();
    const int x = m_tileX;
    const int y = m_tileY;
    const int zoom = m_zoom;
    if (image.isNull())
        emit mapFailed(reason, x, y, zoom);
    else
        emit mapReady(image, x, y, zoom);
}

void GPSMaps::dropReplies()
{
    const auto replies = m_fetches.keys();
    m_fetches.clear();
    for (QNetworkReply *reply : replies) {
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

void GPSMaps::abort()
{
    dropReplies();
    m_loading = false;
    ++m_generation;
    m_pieces.clear();
    m_pieceQueue.clear();
    m_staleImage = QImage();
}
