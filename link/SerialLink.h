#pragma once

#include "link/SerialPortWrapper.h"

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

private:
    QThread m_thread;
    SerialPortWrapper *m_wrapper;
};
