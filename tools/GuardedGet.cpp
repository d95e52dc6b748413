#include "tools/GuardedGet.h"

#include <QCoreApplication>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <memory>

QString GuardedGet::userAgent()
{
    QString name = QCoreApplication::applicationName().simplified().replace(' ', '-');
    if (name.isEmpty())
        name = QStringLiteral("Vexo-Studio");
    const QString version = QCoreApplication::applicationVersion();
    return version.isEmpty() ? name : name + '/' + version;
}

QNetworkReply *GuardedGet::start(QNetworkAccessManager *network, const QUrl &url, QObject *context,
                                 int silenceMs, qint64 limit, Received received, Stopped stopped)
{
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::UserAgentHeader, userAgent());
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(5);
    QNetworkReply *reply = network->get(request);

    auto done = std::make_shared<bool>(false);
    const auto stop = [reply, stopped, done](Stop why) {
        if (*done)
            return;
        *done = true;
        stopped(reply, why);
        reply->abort();
    };
    auto *silence = new QTimer(reply);
    silence->setSingleShot(true);
    silence->start(silenceMs);
    QObject::connect(silence, &QTimer::timeout, context, [stop] { stop(Stop::Silence); });
    const auto alive = [silence, silenceMs] { silence->start(silenceMs); };
    QObject::connect(reply, &QNetworkReply::metaDataChanged, context, [reply, alive, stop, limit] {
        alive();
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > limit)
            stop(Stop::TooLarge);
    });
    QObject::connect(reply, &QNetworkReply::redirected, context, [alive](const QUrl &) { alive(); });
    QObject::connect(reply, &QIODevice::readyRead, context, [reply, alive, stop, received, limit] {
        alive();
        if (received(reply, reply->readAll()) > limit)
            stop(Stop::TooLarge);
    });
    return reply;
}
