#pragma once

#include <QCryptographicHash>
#include <QNetworkReply>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

class QNetworkAccessManager;
class QTimer;

// Base of the downloaders: one GET at a time that can neither hang nor grow without bound. A silence limit
// (restarted whenever the server shows life) replaces a fixed timeout so long downloads on slow links
// finish; a size cap stops replies larger than the caller expects; redirects are followed only when they
// are no less safe. An optional expected SHA1 is checked over the bytes as they arrive, so a wrong file is
// never handed on. finished(false) on any failure or abort, with the reason in errorString().
class AbstractDownloader : public QObject
{
    Q_OBJECT
public:
    static constexpr int DefaultSilenceLimitMs = 10000;
    static constexpr qint64 DefaultMaxSize = qint64(1) << 30;
    static constexpr int MaxRedirects = 5;

    explicit AbstractDownloader(QObject *parent = nullptr);
    ~AbstractDownloader() override;

    // Optional; without one the downloader makes its own (in its own thread, at the first download).
    void setNetworkAccessManager(QNetworkAccessManager *network);
    QNetworkAccessManager *networkAccessManager() const;

    // Largest reply accepted, in bytes: checked against the announced length and the bytes as they arrive.
    void setMaxSize(qint64 bytes);
    qint64 maxSize() const { return m_maxSize; }
    // Exact size the caller expects (-1: unknown, the default); anything else fails. Also caps the reply.
    void setExpectedSize(qint64 bytes);
    qint64 expectedSize() const { return m_expectedSize; }
    // Longest time without a sign of life (headers, redirect, bytes) before the reply is aborted.
    void setSilenceLimit(int ms);
    int silenceLimit() const { return m_silenceLimitMs; }
    // Hexadecimal SHA1 the whole body must have (empty: not checked, the default). Case and surrounding
    // blanks are ignored; a value that is not 40 hex digits never matches.
    void setExpectedSha1(const QString &hex);
    QString expectedSha1() const { return m_expectedSha1; }

    // Starts a download; a running one is aborted first (without its finished signal).
    void download(const QUrl &url);
    // Stops the running download; finished(false) follows when one was running.
    void abort();
    // download(), then a local event loop until finished(): for command-line tools and workers on a thread
    // of their own, never the interface thread. Queued calls (an abort()) are served meanwhile.
    bool downloadAndWait(const QUrl &url);

    bool isRunning() const { return !m_reply.isNull(); }
    QUrl url() const { return m_url; }
    qint64 bytesReceived() const { return m_received; }
    // Lower-case hexadecimal SHA1 of the body received so far; empty when no expected SHA1 was set.
    QString sha1Hex() const;
    // True when the last download failed only because its SHA1 differed from the expected one.
    bool hashMismatch() const { return m_hashMismatch; }
    QNetworkReply::NetworkError networkError() const { return m_networkError; }
    QString errorString() const { return m_errorString; }

    // The redirect rule: http and https only, and never from https to http. Kept public so the rule can be
    // checked with plain URLs.
    static bool redirectAllowed(const QUrl &from, const QUrl &to);

signals:
    void downloadProgress(qint64 bytesReceived, qint64 bytesTotal);
    void finished(bool ok);

public slots:
    void dataReady();
    void onNetworkReplyFinished();
    void onNetworkError(QNetworkReply::NetworkError code);

protected:
    // Called before the request is sent; false (with setError) refuses the download.
    virtual bool beginDownload() { return true; }
    // Takes the bytes; false (with setError) stops the download.
    virtual bool consume(const char *data, qint64 size) = 0;
    // Called once the whole body has arrived and passed every check; false (with setError) fails it.
    virtual bool completeDownload() { return true; }
    // Called after a failure or an abort: undo whatever beginDownload and consume left behind.
    virtual void discardDownload() {}

    void setError(const QString &text);
    // Drops a running download without a finished signal (for a subclass destructor, where the base
    // cannot reach the subclass's discardDownload any more).
    void abandonDownload();

private:
    void onRedirected(const QUrl &to);
    void onSilence();
    void stop(const QString &reason);
    void finish(bool ok);
    // The running reply, detached from this downloader and its silence limit; the caller disposes of it.
    QNetworkReply *takeReply();
    void releaseReply();
    // Reads what has arrived; false once the download has stopped.
    bool readAvailable();
    // The body's length as the server announced it, else the expected size, else -1.
    qint64 announcedSize() const;

    QPointer<QNetworkAccessManager> m_network;
    QNetworkAccessManager *m_ownNetwork = nullptr;
    QPointer<QNetworkReply> m_reply;
    QTimer *m_silence = nullptr;
    QUrl m_url;
    QUrl m_currentUrl;
    QCryptographicHash m_hash{QCryptographicHash::Sha1};
    QString m_expectedSha1;
    QString m_errorString;
    qint64 m_maxSize = DefaultMaxSize;
    qint64 m_expectedSize = -1;
    qint64 m_received = 0;
    qint64 m_discarded = 0;
    int m_silenceLimitMs = DefaultSilenceLimitMs;
    int m_redirects = 0;
    quint64 m_generation = 0;
    QNetworkReply::NetworkError m_networkError = QNetworkReply::NoError;
    bool m_failed = false;
    bool m_hashMismatch = false;
    bool m_hashing = false;
};
