#include "link/SerialLink.h"

#include <QDebug>

SerialLink::SerialLink(QObject *parent) : QObject(parent), m_wrapper(new SerialPortWrapper)
{
    m_thread.setObjectName(QStringLiteral("serial"));
    m_wrapper->moveToThread(&m_thread);
    connect(&m_thread, &QThread::started, m_wrapper, &SerialPortWrapper::start);
}

SerialLink::~SerialLink()
{
    stop();
    // Kept until now, not deleted when the thread ends: its last error and device table are still
    // asked for after the link has stopped.
    if (!m_thread.isRunning())
        delete m_wrapper;
}

void SerialLink::start()
{
    m_thread.start(QThread::HighPriority);
}

void SerialLink::stop()
{
    if (!m_thread.isRunning())
        return;
    QMetaObject::invokeMethod(m_wrapper, &SerialPortWrapper::stop, Qt::BlockingQueuedConnection);
    m_thread.quit();
    if (!m_thread.wait(5000)) {
        qWarning() << "Terminating serial thread by force!!!";
        m_thread.terminate();
        if (!m_thread.wait(1000))
            qWarning() << "Serial thread still running!!!";
    }
}

QString SerialLink::adapterLostText(const QDateTime &upTo, const QString &where)
{
    if (where.isEmpty())
        return tr("The USB adapter was disconnected; nothing had been recorded yet.");
    return tr("The USB adapter was disconnected; the recording up to %1 is stored %2.")
        .arg(upTo.toString(QStringLiteral("hh:mm:ss")), where);
}
