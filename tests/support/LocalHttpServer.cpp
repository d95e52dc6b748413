#include "tests/support/LocalHttpServer.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>
#include <QUrl>

#include <memory>

namespace {
QByteArray reasonPhrase(int status)
{
    switch (status) {
    case 200:
        return "OK";
    case 301:
        return "Moved Permanently";
    case 302:
        return "Found";
    case 304:
        return "Not Modified";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 403:
        return "Forbidden";
    case 404:
        return "Not Found";
    case 500:
        return "Internal Server Error";
    case 503:
        return "Service Unavailable";
    default:
        return "Status";
    }
}
} // namespace

LocalHttpServer::Reply LocalHttpServer::Reply::ok(const QByteArray &body, const QByteArray &contentType)
{
    Reply r;
    r.body = body;
    r.contentType = contentType;
    return r;
}

LocalHttpServer::Reply LocalHttpServer::Reply::error(int status, const QByteArray &body,
                                                     const QByteArray &contentType)
{
    Reply r = ok(body, contentType);
    r.status = status;
    return r;
}

LocalHttpServer::Reply LocalHttpServer::Reply::redirect(const QByteArray &location, int status)
{
    Reply r = error(status, QByteArray(), "text/plain");
    r.headers.append({"Location", location});
    return r;
}

LocalHttpServer::LocalHttpServer(QObject *parent) : QObject(parent), m_server(new QTcpServer(this))
{
    m_default = Reply::error(404, "<html><body><h1>404 Not Found</h1></body></html>");
    m_server->listen(QHostAddress::LocalHost, 0);
    connect(m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_server->nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { onReadyRead(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                done(socket);
                m_buffers.remove(socket);
                socket->deleteLater();
            });
        }
    });
}

LocalHttpServer::~LocalHttpServer()
{
    m_server->close();
}

bool LocalHttpServer::isListening() const
{
    return m_server->isListening();
}

quint16 LocalHttpServer::port() const
{
    return m_server->serverPort();
}

QString LocalHttpServer::url(const QString &path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port()).arg(path);
}

void LocalHttpServer::setReply(const QByteArray &path, const Reply &reply)
{
    m_replies[path] = {reply};
}

void LocalHttpServer::addReply(const QByteArray &path, const Reply &reply)
{
    m_replies[path].append(reply);
}

int LocalHttpServer::requestCount(const QByteArray &path) const
{
    if (path.isEmpty())
        return m_log.size();
    int n = 0;
    for (const Request &r : m_log)
        n += r.path == path;
    return n;
}

void LocalHttpServer::clearLog()
{
    m_log.clear();
    m_maxInFlight = 0;
}

void LocalHttpServer::onReadyRead(QTcpSocket *socket)
{
    QByteArray &buffer = m_buffers[socket];
    buffer += socket->readAll();
    const int end = buffer.indexOf("\r\n\r\n");
    if (end < 0 || m_waiting.contains(socket))
        return;
    const QList<QByteArray> lines = buffer.left(end).split('\n');
    buffer.clear();
    const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
    Request request;
    request.method = first.value(0);
    const QByteArray target = first.value(1);
    const int q = target.indexOf('?');
    request.path = QUrl::fromPercentEncoding(q < 0 ? target : target.left(q)).toUtf8();
    request.query = q < 0 ? QByteArray() : target.mid(q + 1);
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(),
                                   lines[i].mid(colon + 1).trimmed());
    }
    m_log.append(request);
    m_waiting.insert(socket);
    m_maxInFlight = qMax(m_maxInFlight, m_waiting.size());

    QList<Reply> &queue = m_replies[request.path];
    const Reply reply = queue.isEmpty() ? m_default : queue.size() > 1 ? queue.takeFirst() : queue.first();
    if (queue.isEmpty())
        m_replies.remove(request.path);
    emit requestReceived(request.path);
    if (reply.delayMs > 0)
        QTimer::singleShot(reply.delayMs, socket, [this, socket, reply] { answer(socket, reply); });
    else
        answer(socket, reply);
}

void LocalHttpServer::answer(QTcpSocket *socket, const Reply &reply)
{
    QByteArray head =
        "HTTP/1.1 " + QByteArray::number(reply.status) + ' ' + reasonPhrase(reply.status) + "\r\n";
    head += "Content-Type: " + reply.contentType + "\r\n";
    const bool flooding = reply.fault == Reply::Flood || reply.fault == Reply::FloodUnsized;
    if (reply.fault != Reply::FloodUnsized)
        head +=
            "Content-Length: " + QByteArray::number(flooding ? reply.floodBytes : reply.body.size()) + "\r\n";
    head += "Connection: close\r\n";
    for (const auto &h : reply.headers)
        head += h.first + ": " + h.second + "\r\n";
    head += "\r\n";
    if (flooding) {
        socket->write(head);
        flood(socket, reply);
        return;
    }
    const bool faulty = reply.fault != Reply::None;
    socket->write(head + (faulty ? reply.body.left(reply.faultAfter) : reply.body));
    socket->flush();
    if (reply.fault == Reply::Stall)
        return;
    done(socket);
    socket->disconnectFromHost();
}

void LocalHttpServer::flood(QTcpSocket *socket, const Reply &reply)
{
    QByteArray chunk = reply.body.isEmpty() ? QByteArray(1, ' ') : reply.body;
    while (chunk.size() < 64 * 1024)
        chunk += chunk;
    auto left = std::make_shared<qint64>(reply.floodBytes);
    const auto pump = [this, socket, chunk, left] {
        while (*left > 0 && socket->bytesToWrite() < 256 * 1024) {
            const QByteArray piece = chunk.left(int(qMin<qint64>(chunk.size(), *left)));
            socket->write(piece);
            *left -= piece.size();
        }
        if (*left == 0) {
            *left = -1;
            done(socket);
            socket->disconnectFromHost();
        }
    };
    connect(socket, &QTcpSocket::bytesWritten, socket, pump);
    pump();
}

void LocalHttpServer::done(QTcpSocket *socket)
{
    m_waiting.remove(socket);
}
