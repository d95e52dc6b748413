#include "tools/NewsFeed.h"

#include "tools/GuardedGet.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QDebug>
#include <QImageReader>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QTimer>
#include <QXmlStreamReader>

namespace {
const QString kHead =
    QStringLiteral("<html><head><link rel='stylesheet' type='text/css' href='format.css'></head>");

bool isWebUrl(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return url.isValid() && (scheme == QLatin1String("http") || scheme == QLatin1String("https")) &&
           !url.host().isEmpty();
}

// Stripping tags leaves a description's entities as they are (so "&amp;" still reads "&"), but a "<"
// without its ">" must not open a tag of its own.
QString escapeText(QString text)
{
    return text.replace('<', QLatin1String("&lt;"))
        .replace('>', QLatin1String("&gt;"))
        .replace('"', QLatin1String("&quot;"));
}

QString kilobytes(qint64 bytes)
{
    return QString::number(bytes / 1024);
}

struct Item
{
    QString title;
    QString link;
    QString description;
};
} // namespace

NewsFeed::NewsFeed(QObject *parent) : QObject(parent), m_network(new QNetworkAccessManager(this)) {}

NewsFeed::~NewsFeed()
{
    dropReplies();
}

QString NewsFeed::configuredUrl()
{
    return qEnvironmentVariable(kUrlVariable).trimmed();
}

QString NewsFeed::styleSheet()
{
    return QStringLiteral(
        ".article { padding-top:10px; padding-right:10px; padding-bottom: 5px; padding-left: "
        "10px;  } a {color: #fa0103; }h1 {font-size:16px;color:#eeeeee}.odd "
        "{background-color:#eeeeee}");
}

QString NewsFeed::placeholderPage(const QString &title)
{
    return kHead + QStringLiteral("<body><table width=\"100%\"><tr><td></td> <td width=\"300\"><table><h1 "
                                  "align=\"center\">%1</h1></table></td><td></td></tr></body></html>")
                       .arg(title);
}

QString NewsFeed::page(const QString &rows)
{
    return kHead +
           QStringLiteral("<body><table width=\"100%\"><tr><td></td> <td width=\"320\"><table>%1</table>"
                          "</td><td></td></tr></body></html>")
               .arg(rows);
}

bool NewsFeed::mayOpen(const QUrl &url)
{
    return isWebUrl(url);
}

NewsFeed::Parsed NewsFeed::parse(const QByteArray &feed)
{
    static const QRegularExpression image(QStringLiteral("\\<img[^\\>]*src\\s*=\\s*\"([^\"]*)\"[^\\>]*\\>"),
                                          QRegularExpression::InvertedGreedinessOption);
    static const QRegularExpression tag(QStringLiteral("<[^>]*>"));
    const QString templ =
        tr("<tr class=\"%3\"><td class=\"article\"><b>%1</b><br><table cellpadding=\"5\"><tr><td "
           "bgcolor=\"#ffffff\" valign=\"middle\">%5</td><td  valign=\"top\"><div "
           "align=\"justify\">%4</div><div "
           "align=\"right\"><a href=\"%2\">Detail</a></td></tr></table></td></tr>");

    Parsed out;
    QXmlStreamReader xml(feed);
    bool inItem = false;
    QString *field = nullptr; // the field that text goes to, also inside markup nested in it
    QString fieldName;
    Item item;
    while (!xml.atEnd() && out.items < kMaxItems) {
        switch (xml.readNext()) {
        case QXmlStreamReader::DTD:
            // Entities are how a few hundred bytes of feed become gigabytes of text.
            if (!xml.entityDeclarations().isEmpty() || xml.text().contains(QLatin1String("<!ENTITY")))
                xml.raiseError(tr("The feed declares entities; it is not read."));
            break;
        case QXmlStreamReader::StartElement:
            if (xml.name() == QLatin1String("item") ||
                xml.attributes().hasAttribute(QLatin1String("rss:about"))) {
                inItem = true;
                item = Item();
                field = nullptr;
            } else if (inItem && !field) {
                fieldName = xml.name().toString();
                field = fieldName == QLatin1String("title")         ? &item.title
                        : fieldName == QLatin1String("link")        ? &item.link
                        : fieldName == QLatin1String("description") ? &item.description
                                                                    : nullptr;
            }
            break;
        case QXmlStreamReader::Characters:
            if (field && !xml.isWhitespace())
                field->append(xml.text());
            break;
        case QXmlStreamReader::EndElement:
            if (field && xml.name() == fieldName)
                field = nullptr;
            if (xml.name() == QLatin1String("item") && inItem) {
                inItem = false;
                field = nullptr;
                ++out.items;
                QString imageUrl = image.match(item.description).captured(1).trimmed();
                imageUrl.replace(QLatin1String("&amp;"), QLatin1String("&"));
                QString cell;
                // Only pictures from the web: the view would read a file: or relative address from disk.
                if (isWebUrl(QUrl(imageUrl)) &&
                    (out.images.contains(imageUrl) || out.images.size() < kMaxImages)) {
                    if (!out.images.contains(imageUrl))
                        out.images.append(imageUrl);
                    cell = QStringLiteral("<img  src=\"%1\" >").arg(imageUrl.toHtmlEscaped());
                }
                const QString text = escapeText(item.description.remove(tag));
                // One multi-argument arg(): a "%2" inside a title is not substituted again.
                out.rows += templ.arg(item.title.toHtmlEscaped(), item.link.toHtmlEscaped(),
                                      QLatin1String(out.items % 2 ? "odd" : "even"), text, cell);
            }
            break;
        default:
            break;
        }
    }
    if (xml.hasError())
        out.error = QStringLiteral("XML ERROR:%1: %2").arg(xml.lineNumber()).arg(xml.errorString());
    return out;
}

QImage NewsFeed::thumbnail(const QByteArray &bytes, QString *why)
{
    const auto refuse = [why](const QString &reason) {
        if (why)
            *why = reason;
        return QImage();
    };
    if (bytes.size() > kMaxImageBytes)
        return refuse(tr("The picture is larger than %1 kB.").arg(kilobytes(kMaxImageBytes)));
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    const QSize size = reader.size();
    if (!size.isValid())
        return refuse(tr("The picture declares no size (%1).").arg(reader.errorString()));
    if (size.width() > kMaxImageSide || size.height() > kMaxImageSide ||
        qint64(size.width()) * size.height() > kMaxImagePixels)
        return refuse(tr("The picture declares %1 × %2 pixels.").arg(size.width()).arg(size.height()));
    const QImage image = reader.read();
    if (image.isNull())
        return refuse(tr("The picture does not decode (%1).").arg(reader.errorString()));
    return image.scaled(kThumbnailWidth, kThumbnailHeight, Qt::KeepAspectRatio, Qt::SmoothTransformation);
}

bool NewsFeed::fetch(const QUrl &url)
{
    abort();
    if (!isWebUrl(url)) {
        qWarning().noquote()
            << "error retrieving RSS feed"
            << QStringLiteral("(%1 is no web address)").arg(url.toString(QUrl::RemoveUserInfo));
        return false;
    }
    m_loading = true;
    get(url, kMaxFeedBytes, QUrl());
    return true;
}

QNetworkReply *NewsFeed::get(const QUrl &url, qint64 limit, const QUrl &image)
{
    QNetworkReply *reply = GuardedGet::start(
        m_network, url, this, m_silenceMs, limit,
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
                    ? tr("The server sent nothing for %1 s.").arg(QString::number(m_silenceMs / 1000.0))
                    : tr("The reply is larger than %1 kB.").arg(kilobytes(it->limit));
        });
    Fetch fetch;
    fetch.limit = limit;
    fetch.image = image;
    m_fetches.insert(reply, fetch);
    connect(reply, &QNetworkReply::errorOccurred, this, [reply](QNetworkReply::NetworkError code) {
        qDebug() << "news reply error" << code << reply->url().toString(QUrl::RemoveUserInfo);
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { onFinished(reply); });
    return reply;
}

QString NewsFeed::replyFailure(QNetworkReply *reply, const Fetch &fetch) const
{
    if (!fetch.failure.isEmpty())
        return fetch.failure;
    if (fetch.data.size() > fetch.limit)
        return tr("The reply is larger than %1 kB.").arg(kilobytes(fetch.limit));
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status != 0 && status != 200)
        return tr("The server answered %1 %2.")
            .arg(status)
            .arg(reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString());
    if (reply->error() != QNetworkReply::NoError)
        return reply->errorString();
    const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
    if (length.isValid() && fetch.data.size() < length.toLongLong())
        return tr("The reply arrived incomplete (%1 of %2 bytes).")
            .arg(fetch.data.size())
            .arg(length.toLongLong());
    return QString();
}

void NewsFeed::onFinished(QNetworkReply *reply)
{
    reply->deleteLater();
    if (!m_fetches.contains(reply))
        return;
    Fetch fetch = m_fetches.take(reply);
    if (reply->isOpen() && fetch.failure.isEmpty())
        fetch.data += reply->readAll();
    const QString failure = replyFailure(reply, fetch);
    if (fetch.image.isEmpty()) {
        if (failure.isEmpty()) {
            feedArrived(fetch.data);
        } else {
            qWarning().noquote() << "error retrieving RSS feed" << QStringLiteral("(%1)").arg(failure);
            emit feedFailed(failure);
        }
    } else if (failure.isEmpty()) {
        imageArrived(fetch.image, fetch.data);
    } else {
        qDebug().noquote() << "Error in" << fetch.image.toString(QUrl::RemoveUserInfo) << failure;
    }
    settle();
}

void NewsFeed::feedArrived(const QByteArray &bytes)
{
    const Parsed parsed = parse(bytes);
    if (!parsed.error.isEmpty())
        qWarning().noquote() << parsed.error;
    emit feedReady(page(parsed.rows));
    for (const QString &image : parsed.images) {
        qDebug().noquote() << QStringLiteral("Loading Image: %1").arg(image);
        get(QUrl(image), kMaxImageBytes, QUrl(image));
    }
}

void NewsFeed::imageArrived(const QUrl &url, const QByteArray &bytes)
{
    QString why;
    const QImage image = thumbnail(bytes, &why);
    if (image.isNull()) {
        qDebug().noquote() << "Picture refused:" << url.toString(QUrl::RemoveUserInfo) << why;
        return;
    }
    emit imageReady(url, image);
}

void NewsFeed::settle()
{
    if (!m_loading || !m_fetches.isEmpty())
        return;
    m_loading = false;
    emit finished();
}

void NewsFeed::dropReplies()
{
    const auto replies = m_fetches.keys();
    m_fetches.clear();
    for (QNetworkReply *reply : replies) {
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

void NewsFeed::abort()
{
    dropReplies();
    m_loading = false;
}
