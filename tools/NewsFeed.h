#pragma once

#include <QByteArray>
#include <QHash>
#include <QImage>
#include <QObject>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;

// Fetches the maker's news feed and the items' pictures for the news window, which only shows what
// arrives. Everything in a feed is untrusted: texts are escaped before they go into the page, a DTD that
// declares entities refuses the feed, only http and https pictures are fetched and only http and https
// links may be opened, and every reply and picture is capped in bytes (a picture also in pixels).
class NewsFeed : public QObject
{
    Q_OBJECT
public:
    static constexpr const char *kUrlVariable = "VEXO_NEWS_URL";
    // A feed is text: even a busy one is a few hundred kB.
    static constexpr qint64 kMaxFeedBytes = 4 * 1024 * 1024;
    // The newest items only: the page's nested tables cost about 1.4 ms each to lay out, so a feed of
    // hundreds of items would hold up the window for a noticeable moment (bench_news).
    static constexpr int kMaxItems = 50;
    // Pictures fetched per feed, and each one's limits (checked before it is decoded).
    static constexpr int kMaxImages = 20;
    static constexpr qint64 kMaxImageBytes = 2 * 1024 * 1024;
    static constexpr int kMaxImageSide = 8000;
    static constexpr qint64 kMaxImagePixels = 16 * 1000 * 1000;
    static constexpr int kThumbnailWidth = 80;
    static constexpr int kThumbnailHeight = 60;
    static constexpr int kDefaultSilenceMs = 15000;

    // A feed's rows as HTML, the addresses of the pictures to fetch (in feed order, each once, at most
    // kMaxImages) and the XML error line (empty when the feed read to its end).
    struct Parsed
    {
        QString rows;
        QStringList images;
        QString error;
        int items = 0;
    };

    explicit NewsFeed(QObject *parent = nullptr);
    ~NewsFeed() override;

    // The feed's address from the environment; empty when none is configured.
    static QString configuredUrl();
    // Reads a whole feed; never fails, rows read before an error are kept. Rows alternate the classes
    // "odd" and "even", counted from 1: the first row is "odd" and takes the style sheet's shading.
    static Parsed parse(const QByteArray &feed);
    // The page around the rows, the page shown before the feed arrives, and their style sheet.
    static QString page(const QString &rows);
    static QString placeholderPage(const QString &title);
    static QString styleSheet();
    // Whether a link from the feed may be handed to the desktop: http and https only.
    static bool mayOpen(const QUrl &url);
    // A picture's bytes as a thumbnail fitting 80×60; null with why set when the bytes are too many,
    // declare too many pixels or do not decode.
    static QImage thumbnail(const QByteArray &bytes, QString *why = nullptr);

    // Starts fetching the feed, then its pictures. False (nothing fetched) for an address that is not
    // http or https.
    bool fetch(const QUrl &url);
    // True until the feed and all its pictures have arrived or failed.
    bool isLoading() const { return m_loading; }
    void abort();
    // A request that receives nothing for this long is abandoned.
    void setSilenceLimit(int milliseconds) { m_silenceMs = milliseconds; }

signals:
    // The page with the feed's rows, to be shown instead of the placeholder.
    void feedReady(const QString &html);
    // The placeholder stays; reason is one short sentence.
    void feedFailed(const QString &reason);
    // A picture of the page, keyed by the address its img element names.
    void imageReady(const QUrl &url, const QImage &image);
    // Nothing more will arrive.
    void finished();

private:
    struct Fetch
    {
        QByteArray data;
        QString failure;
        qint64 limit = 0;
        QUrl image; // empty for the feed itself
    };

    QNetworkReply *get(const QUrl &url, qint64 limit, const QUrl &image);
    void onFinished(QNetworkReply *reply);
    QString replyFailure(QNetworkReply *reply, const Fetch &fetch) const;
    void feedArrived(const QByteArray &bytes);
    void imageArrived(const QUrl &url, const QByteArray &bytes);
    void settle();
    void dropReplies();

    QNetworkAccessManager *m_network;
    QHash<QNetworkReply *, Fetch> m_fetches;
    int m_silenceMs = kDefaultSilenceMs;
    bool m_loading = false;
};
