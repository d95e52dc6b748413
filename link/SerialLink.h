#pragma once

#include "link/SerialPortWrapper.h"

#include <QDateTime>
#include <QObject>
#include <QThread>

// Runs a SerialPortWrapper on its own high-priority thread and shuts it down in order.
class SerialLink : public QObject
{
    Q_OBJECT
public:
    explicit SerialLink(QObject *parent = nullptr);
    ~SerialLink() override;

    // Valid for the life of the link, also after stop().
    SerialPortWrapper *wrapper() { return m_wrapper; }
    void start();
    // Asks the thread to end and waits 5000 ms; then terminates it, and waits 1000 ms more.
    void stop();
    bool isRunning() const { return m_thread.isRunning(); }

    // What a pilot is told when the adapter goes away mid-recording; the studio and vexo-log say the
    // same. upTo: wall-clock time of the last thing recorded; where: "under model X", "in FILE", or
    // empty when nothing had been recorded.
    static QString adapterLostText(const QDateTime &upTo, const QString &where);

private:
    QThread m_thread;
    SerialPortWrapper *m_wrapper;
};
