#include "tools/AbstractDownloader.h"

#include "tools/GuardedGet.h"
#include "tools/Sha1Check.h"

#include <QDebug>
#include <QEventLoop>
#include <QMetaType>
#include <QNetworkAccessManager>
#include <QNetworkRequest>
#include <QTimer>

namespace {
// Reading in pieces keeps the memory a download needs independent of the size of the file.
constexpr qint64 ReadPiece = 4096;
// How much a reply may hold unread; bounds memory when the disk is slower than the network.
constexpr qint64 ReplyBuffer = 1 << 20;

bool isWebScheme(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return scheme == QLatin1String("http") || scheme == QLatin1String("https");
}
} // namespace

AbstractDownloader::AbstractDownloader(QObject *parent) : QObject(parent)
{
    qRegisterMetaType<QNetworkReply::NetworkError>("QNetworkReply::NetworkError");
    m_silence = new QTimer(this);
    m_silence->setSingleShot(true);
    connect(m_silence, &QTimer::timeout, this, &AbstractDownloader::onSilence);
}

AbstractDownloader::~AbstractDownloader()
{
    // A subclass has already abandoned its download; this only catches a reply still attached.
    if (m_reply) {
        m_reply->disconnect(this);
        if (!m_reply->isFinished())
            m_reply->abort();
        m_reply->deleteLater();
    }
}

void AbstractDownloader::setNetworkAccessManager(QNetworkAccessManager *network)
{
    m_network = network;
}

QNetworkAccessManager *AbstractDownloader::networkAccessManager() const
{
    return m_network;
}

void AbstractDownloader::setMaxSize(qint64 bytes)
{
    m_maxSize = qMax<qint64>(0, bytes);
}

void AbstractDownloader::setExpectedSize(qint64 bytes)
{
    m_expectedSize = bytes < 0 ? -1 : bytes;
}

void AbstractDownloader::setSilenceLimit(int ms)
{
    m_silenceLimitMs = qMax(1, ms);
}

void AbstractDownloader::setExpectedSha1(const QString &hex)
{
    m_expectedSha1 = hex.trimmed();
}

QString AbstractDownloader::sha1Hex() const
{
    // result() finishes a copy of the state: the running hash goes on.
    return m_hashing ? QString::fromLatin1(m_hash.result().toHex()) : QString();
}

bool AbstractDownloader::redirectAllowed(const QUrl &from, const QUrl &to)
{
    if (!to.isValid() || !isWebScheme(to) || to.host().isEmpty())
        return false;
    const bool fromSecure = from.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
    const bool toSecure = to.scheme().compare(QLatin1String("https"), Qt::CaseInsensitive) == 0;
    return toSecure || !fromSecure;
}

void AbstractDownloader::setError(const QString &text)
{
    m_errorString = text;
}

bool AbstractDownloader::downloadAndWait(const QUrl &url)
{
    QEventLoop loop;
    bool ok = false;
    const auto c = connect(this, &AbstractDownloader::finished, &loop, [&](bool done) {
        ok = done;
        loop.quit();
    });
    // finished() always comes from the event loop, so it cannot pass before the loop runs.
    download(url);
    loop.exec();
    disconnect(c);
    return ok;
}

void AbstractDownloader::download(const QUrl &url)
{
    if (m_reply)
        abandonDownload();
    ++m_generation;
    m_url = url;
    m_currentUrl = url;
    m_hash.reset();
    m_errorString.clear();
    m_received = 0;
    m_discarded = 0;
    m_redirects = 0;
    m_networkError = QNetworkReply::NoError;
    m_failed = false;
    m_hashMismatch = false;
    // Hashing costs about as much as the transfer on a fast link: only when there is a value to check.
    m_hashing = !m_expectedSha1.isEmpty();

    bool started = false;
    if (!url.isValid() || !isWebScheme(url) || url.host().isEmpty())
        setError(tr("Cannot download from '%1': only http and https addresses are supported.")
                     .arg(url.toDisplayString()));
    else
        started = beginDownload();
    if (!started) {
        // Reported from the event loop, like every other outcome, so a caller may connect after download().
        discardDownload();
        const quint64 generation = m_generation;
        QMetaObject::invokeMethod(
            this,
            [this, generation] {
                if (generation == m_generation && !m_reply)
                    emit finished(false);
            },
            Qt::QueuedConnection);
        return;
    }

    if (!m_network) {
        if (!m_ownNetwork)
            m_ownNetwork = new QNetworkAccessManager(this);
        m_network = m_ownNetwork;
    }
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, GuardedGet::userAgent());
    // Each redirect is checked by redirectAllowed() before it is followed.
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::UserVerifiedRedirectPolicy);
    request.setMaximumRedirectsAllowed(MaxRedirects);
    QNetworkReply *reply = m_network->get(request);
    reply->setReadBufferSize(ReplyBuffer);
    m_reply = reply;
    connect(reply, &QIODevice::readyRead, this, &AbstractDownloader::dataReady);
    connect(reply, &QNetworkReply::finished, this, &AbstractDownloader::onNetworkReplyFinished);
    connect(reply, &QNetworkReply::errorOccurred, this, &AbstractDownloader::onNetworkError);
    connect(reply, &QNetworkReply::redirected, this, &AbstractDownloader::onRedirected);
    connect(reply, &QNetworkReply::metaDataChanged, this, [this] {
        m_silence->start(m_silenceLimitMs);
        // Only the file's own length counts; a redirect's page is not the file.
        const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (status < 200 || status >= 300)
            return;
        const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
        const qint64 cap = m_expectedSize >= 0 ? qMin(m_expectedSize, m_maxSize) : m_maxSize;
        if (length.isValid() && length.toLongLong() > cap && !m_failed)
            stop(tr("The server announced %1 bytes, more than the %2 expected.")
                     .arg(length.toLongLong())
                     .arg(cap));
    });
    m_silence->start(m_silenceLimitMs);
}

void AbstractDownloader::abort()
{
    if (m_reply && !m_failed)
        stop(tr("The download was cancelled."));
}

QNetworkReply *AbstractDownloader::takeReply()
{
    m_silence->stop();
    QNetworkReply *reply = m_reply;
    m_reply = nullptr;
    reply->disconnect(this);
    return reply;
}

void AbstractDownloader::abandonDownload()
{
    if (!m_reply)
        return;
    QNetworkReply *reply = takeReply();
    if (!reply->isFinished()) {
        qDebug() << "Aborting an active network reply!";
        reply->abort();
    }
    reply->deleteLater();
    discardDownload();
}

void AbstractDownloader::dataReady()
{
    if (!m_reply || m_failed)
        return;
    m_silence->start(m_silenceLimitMs);
    readAvailable();
}

bool AbstractDownloader::readAvailable()
{
    const qint64 cap = m_expectedSize >= 0 ? qMin(m_expectedSize, m_maxSize) : m_maxSize;
    const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    // An error page is counted against the cap but never handed on as the file.
    const bool keep = status == 0 || (status >= 200 && status < 300);
    char piece[ReadPiece];
    const qint64 before = m_received;
    while (m_reply && !m_failed && m_reply->bytesAvailable() > 0) {
        const qint64 n = m_reply->read(piece, ReadPiece);
        if (n <= 0)
            break;
        // The page of a redirect or an error is not part of the file, but it is capped all the same.
        qint64 &count = keep ? m_received : m_discarded;
        count += n;
        if (count > cap) {
            stop(tr("The download is larger than the %1 bytes expected.").arg(cap));
            return false;
        }
        if (!keep)
            continue;
        if (m_hashing)
            m_hash.addData(piece, int(n));
        if (!consume(piece, n)) {
            stop(m_errorString);
            return false;
        }
    }
    // Reported here rather than forwarded from the reply, which holds its progress back for 150 ms.
    if (m_reply && !m_failed && keep && m_received > before)
        emit downloadProgress(m_received, announcedSize());
    return m_reply && !m_failed;
}

qint64 AbstractDownloader::announcedSize() const
{
    const QVariant length = m_reply->header(QNetworkRequest::ContentLengthHeader);
    const QByteArray encoding = m_reply->rawHeader("Content-Encoding").trimmed().toLower();
    if (length.isValid() && (encoding.isEmpty() || encoding == "identity"))
        return length.toLongLong();
    return m_expectedSize;
}

void AbstractDownloader::onRedirected(const QUrl &to)
{
    if (!m_reply || m_failed)
        return;
    const QUrl target = m_currentUrl.resolved(to);
    if (++m_redirects > MaxRedirects) {
        stop(tr("Too many redirects from '%1'.").arg(m_url.toDisplayString()));
        return;
    }
    if (!redirectAllowed(m_currentUrl, target)) {
        stop(tr("Refused the redirect from '%1' to '%2'.")
                 .arg(m_currentUrl.toDisplayString(), target.toDisplayString()));
        return;
    }
    m_currentUrl = target;
    m_discarded = 0;
    m_silence->start(m_silenceLimitMs);
    emit m_reply->redirectAllowed();
}

void AbstractDownloader::onSilence()
{
    if (m_reply && !m_failed)
        stop(tr("The server sent nothing for %1 ms; the download was stopped.").arg(m_silenceLimitMs));
}

void AbstractDownloader::onNetworkError(QNetworkReply::NetworkError code)
{
    if (m_networkError == QNetworkReply::NoError)
        m_networkError = code;
    if (m_reply && !m_failed) {
        m_failed = true;
        setError(m_reply->errorString());
    }
}

void AbstractDownloader::stop(const QString &reason)
{
    if (!m_failed) {
        m_failed = true;
        setError(reason);
    }
    // abort() finishes the reply at once, so onNetworkReplyFinished() usually reports the failure; a slot
    // of finished() may already have started the next download, which must be left alone.
    QNetworkReply *reply = m_reply;
    if (reply && !reply->isFinished()) {
        qDebug() << "Aborting an active network reply!";
        reply->abort();
    }
    if (reply && m_reply == reply)
        finish(false);
}

void AbstractDownloader::onNetworkReplyFinished()
{
    if (!m_reply)
        return;
    m_silence->stop();
    // stop() inside readAvailable() has already reported (and a slot may have started the next download).
    if (!m_failed && !readAvailable())
        return;
    if (m_failed) {
        finish(false);
        return;
    }
    QNetworkReply *reply = m_reply;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    // A compressed body is unpacked on the way in, so its announced length is not the length received.
    const QByteArray encoding = reply->rawHeader("Content-Encoding").trimmed().toLower();
    const bool plain = encoding.isEmpty() || encoding == "identity";
    if (reply->error() != QNetworkReply::NoError) {
        if (m_networkError == QNetworkReply::NoError)
            m_networkError = reply->error();
        setError(reply->errorString());
    } else if (status != 0 && (status < 200 || status >= 300)) {
        setError(tr("The server answered %1 %2.")
                     .arg(status)
                     .arg(reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString()));
    } else if (plain && length.isValid() && length.toLongLong() != m_received) {
        setError(tr("The download is incomplete: %1 of %2 bytes arrived.")
                     .arg(m_received)
                     .arg(length.toLongLong()));
    } else if (m_expectedSize >= 0 && m_received != m_expectedSize) {
        setError(
            tr("The download has %1 bytes instead of the %2 expected.").arg(m_received).arg(m_expectedSize));
    } else if (!m_expectedSha1.isEmpty() && !Sha1Check::matches(sha1Hex(), m_expectedSha1)) {
        m_hashMismatch = true;
        setError(tr("The SHA1 of the download (%1) is not the expected %2.").arg(sha1Hex(), m_expectedSha1));
    } else if (completeDownload()) {
        finish(true);
        return;
    }
    m_failed = true;
    finish(false);
}

void AbstractDownloader::finish(bool ok)
{
    if (!m_reply)
        return;
    takeReply()->deleteLater();
    if (!ok)
        discardDownload();
    emit finished(ok);
}
