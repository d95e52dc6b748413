#pragma once

#include "tests/support/LocalHttpServer.h"

#include <QObject>
#include <QThread>

#include <functional>

// The local HTTP server on a thread of its own, as a real server is another machine: it must not share
// the event loop of the downloads it serves.
class ServerThread
{
public:
    ServerThread()
    {
        m_thread.start();
        m_inThread.moveToThread(&m_thread);
        run([this] { m_server = new LocalHttpServer; });
    }
    ~ServerThread()
    {
        run([this] { delete m_server; });
        m_thread.quit();
        m_thread.wait();
    }
    ServerThread(const ServerThread &) = delete;
    ServerThread &operator=(const ServerThread &) = delete;

    // Runs work on the server's thread and waits for it (replies are set up there).
    void run(const std::function<void()> &work)
    {
        QMetaObject::invokeMethod(&m_inThread, work, Qt::BlockingQueuedConnection);
    }
    LocalHttpServer *server() const { return m_server; }

private:
    QThread m_thread;
    QObject m_inThread;
    LocalHttpServer *m_server = nullptr;
};
