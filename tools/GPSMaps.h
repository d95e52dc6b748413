#pragma once

#include "tools/MapCache.h"
#include "tools/MapEndpoints.h"
#include "tools/MapsProjection.h"

#include <QHash>
#include <QImage>
#include <QObject>
#include <QPoint>
#include <QVector>

class QNetworkAccessManager;
class QNetworkReply;
class QTimer;

// Fetches the map image around a centre for the map window, the image export and vexo-log: from the cache
// when it is there, otherwise from the chosen provider, and keeps what arrives in the cache. One image is
// loaded at a time; the caller queues the rest. Providers 0 and 1 are keyed static-map services; provider 2
// stitches the image from keyless 256-pixel slippy tiles, so the map works without any setup.
class GPSMaps : public QObject
{
    Q_OBJECT
public:
    enum Provider
    {
        Google = 0,
        Microsoft = 1,
        OpenStreetMap = 2
    };
    static constexpr int kProviderCount = 3;
    static constexpr int kDefaultProvider = OpenStreetMap;
    static constexpr int kSlippyTileSize = 256;
    // The tile server's usage rules: a cached tile younger than this is never fetched again.
    static constexpr qint64 kTileLifetimeSeconds = 7 * 24 * 3600;
    static constexpr int kMaxTileConnections = 2;
    static constexpr int kDefaultSilenceMs = 10000;
    static constexpr qint64 kDefaultDownloadLimit = 8 * 1024 * 1024;

    // The cache is the folder "maps" inside dataFolder.
    explicit GPSMaps(const QString &dataFolder,
                     const MapEndpoints &endpoints = MapEndpoints::fromEnvironment(),
                     QObject *parent = nullptr);
    ~GPSMaps() override;

    static QString providerName(int provider);
    // The type string that goes into requests and file names; empty for a type the provider lacks.
    static QString mapTypeName(int provider, int type);
    static int mapTypeCount(int provider);
    // The deepest zoom the provider serves (the standard tile server stops at 19).
    static int maxZoom(int provider);
    // The credit line its map data asks for on every picture; empty when the images carry their own.
    static QString attribution(int provider);

    // A keyed provider without a key cannot load; the hint says where the key goes.
    bool isProviderAvailable(int provider) const;
    QString availabilityHint(int provider) const;
    // A key from the settings; an empty one falls back to the environment's.
    void setApiKey(int provider, const QString &key);

    // False, keeping the current choice, for an unknown provider or type.
    bool setProvider(int provider, int type);
    void getProvider(int &provider, int &type) const;
    int getZoom() const { return m_zoom; }

    // The cache file of a whole image of the current provider and type.
    QString cacheFileName(int tileX, int tileY, int zoom) const;
    MapCache &cache() { return m_cache; }
    // Removes the images this program cached; returns how many, or -1 with error set.
    int clearCache(QString *error = nullptr);

    // Starts loading; mapReady or mapFailed follows (never from inside this call). False while an image is
    // still loading.
    bool loadMap(int width, int height, const MapsProjection::LatLon &centre, int zoom, int tileX, int tileY);
    bool isLoading() const { return m_loading; }
    // Drops the image being loaded without a signal (the window changed zoom or closed).
    void abort();

    // A request that receives nothing for this long is abandoned.
    void setSilenceLimit(int milliseconds) { m_silenceMs = milliseconds; }
    // A reply larger than this is abandoned.
    void setDownloadLimit(qint64 bytes) { m_downloadLimit = bytes; }

signals:
    void mapReady(const QImage &image, int tileX, int tileY, int zoom);
    // reason is one short sentence for the user.
    void mapFailed(const QString &reason, int tileX, int tileY, int zoom);

private:
    struct Fetch
    {
        QByteArray data;
        QString failure;
        int piece = -1; // the slippy tile it is for; -1 for a whole image
    };
    // One slippy tile of the image being stitched.
    struct Piece
    {
        int x = 0;
        int y = 0;
        QPoint at; // its top-left inside the image
        QString path;
        QImage image;
        bool done = false;
    };

    QString staticMapUrl() const;
    QString tileUrl(int zoom, int x, int y) const;
    QString apiKey(int provider) const;

    void startStatic();
    void startStitching();
    void fetchNextPieces();
    void pieceDone(int piece, const QImage &image);
    void stitch();
    void startFetch(const QString &url, int piece);
    void onFinished(QNetworkReply *reply);
    // Why the reply is no map image, or empty with the decoded image.
    QString replyFailure(QNetworkReply *reply, const Fetch &fetch, QImage *image) const;
    void save(const QString &path, const QByteArray &bytes);
    void deliverLater(const QImage &image);
    void failLater(const QString &reason);
    void finish(const QImage &image, const QString &reason);
    void dropReplies();

    MapEndpoints m_endpoints;
    QString m_settingsKey[2];
    MapCache m_cache;
    QNetworkAccessManager *m_network;
    int m_provider = kDefaultProvider;
    int m_type = 0;
    int m_silenceMs = kDefaultSilenceMs;
    qint64 m_downloadLimit = kDefaultDownloadLimit;

    // The image being loaded.
    bool m_loading = false;
    quint64 m_generation = 0;
    int m_width = 0;
    int m_height = 0;
    MapsProjection::LatLon m_centre;
    int m_zoom = 0;
    int m_tileX = 0;
    int m_tileY = 0;
    QString m_path;
    QImage m_staleImage; // an expired stitched image, shown when the tiles cannot be fetched
    QVector<Piece> m_pieces;
    QVector<int> m_pieceQueue;
    QHash<QNetworkReply *, Fetch> m_fetches;
};
