#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPair>
#include <QSet>
#include <QString>

class QTcpServer;
class QTcpSocket;

// A small HTTP/1.1 server on 127.0.0.1 for tests that download: scripted replies per path (with status,
// headers, a delay, or a body that stalls or is cut short), and a log of every request received.
// Each answer closes its connection.
class LocalHttpServer : public QObject
{
    Q_OBJECT
public:
    struct Reply
    {
        enum Fault
        {
            None,
            Stall, // send the headers and faultAfter body bytes, then nothing while the connection stays open
            Cut,   // send the headers and faultAfter body bytes, then close (Content-Length still says all)
            // body repeated until floodBytes are sent, written only as fast as the client reads, so a test
            // can send far more than it holds; Flood declares the length, FloodUnsized ends by closing
            Flood,
            FloodUnsized
        };
        int status = 200;
        QByteArray contentType = "application/octet-stream";
        QByteArray body;
        QList<QPair<QByteArray, QByteArray>> headers;
        int delayMs = 0;
        Fault fault = None;
        int faultAfter = 0;
        qint64 floodBytes = 0;

        static Reply ok(const QByteArray &body, const QByteArray &contentType = "application/octet-stream");
        static Reply error(int status, const QByteArray &body, const QByteArray &contentType = "text/html");
        static Reply redirect(const QByteArray &location, int status = 302);
    };

    struct Request
    {
        QByteArray method;
        QByteArray path; // without the query
        QByteArray query;
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray header(const QByteArray &name) const { return headers.value(name.toLower()); }
    };

    explicit LocalHttpServer(QObject *parent = nullptr);
    ~LocalHttpServer() override;

    bool isListening() const;
    quint16 port() const;
    // "http://127.0.0.1:<port>" followed by path.
    QString url(const QString &path = QString()) const;

    // The reply for every request to path (exact match, query ignored).
    void setReply(const QByteArray &path, const Reply &reply);
    // Appends to the replies of path: each request takes the next one, the last one stays.
    void addReply(const QByteArray &path, const Reply &reply);
    // For paths without a reply; a 404 page unless set.
    void setDefaultReply(const Reply &reply) { m_default = reply; }

    QList<Request> requests() const { return m_log; }
    int requestCount(const QByteArray &path = QByteArray()) const;
    void clearLog();
    // The most requests that were waiting for their answer at the same time.
    int maxInFlight() const { return m_maxInFlight; }

signals:
    void requestReceived(const QByteArray &path);

private:
    void onReadyRead(QTcpSocket *socket);
    void answer(QTcpSocket *socket, const Reply &reply);
    void flood(QTcpSocket *socket, const Reply &reply);
    void done(QTcpSocket *socket);

    QTcpServer *m_server;
    QHash<QByteArray, QList<Reply>> m_replies;
    Reply m_default;
    QList<Request> m_log;
    QHash<QTcpSocket *, QByteArray> m_buffers;
    QSet<QTcpSocket *> m_waiting;
    int m_maxInFlight = 0;
};
