#pragma once

#include <QString>
#include <QtGlobal>

#include <functional>

class QByteArray;
class QNetworkAccessManager;
class QNetworkReply;
class QObject;
class QUrl;

// A download that can neither hang nor grow without bound, for every loader that fetches from a server
// nobody here controls: the program's User-Agent, redirects followed only when no less safe, a silence
// limit restarted by every sign of life (headers, a redirect, bytes), and a size limit checked against the
// declared length and the bytes as they arrive.
namespace GuardedGet {
enum class Stop
{
    Silence,
    TooLarge
};

// "<application name>/<version>", as a server's logs should see the program.
QString userAgent();

using Received = std::function<qint64(QNetworkReply *reply, const QByteArray &bytes)>;
using Stopped = std::function<void(QNetworkReply *reply, Stop why)>;

// Starts the GET. Each piece of data goes to received, which returns how many bytes the caller has kept
// (-1 when it no longer tracks the reply). stopped is told why, once, just before the reply is aborted
// (abort() finishes the reply at once). The connections live as long as context and the reply.
QNetworkReply *start(QNetworkAccessManager *network, const QUrl &url, QObject *context, int silenceMs,
                     qint64 limit, Received received, Stopped stopped);
} // namespace GuardedGet
