#pragma once

#include "telemetry/TelemetryDataPackage.h"

#include <QObject>
#include <QThread>

#include <atomic>

class SensorTable;

// Reads a log file on a thread of its own so the window stays responsive; reports progress, can be
// cancelled, and hands the finished package back on the interface thread.
class LogLoadTask : public QObject
{
    Q_OBJECT
public:
    explicit LogLoadTask(SensorTable *sensors, QObject *parent = nullptr);
    ~LogLoadTask() override;

    bool isRunning() const { return m_thread && m_thread->isRunning(); }
    QString path() const { return m_path; }

public slots:
    // Starts reading; a load already running is cancelled first.
    void start(const QString &path);
    void cancel();
    // Cancels and waits for the thread (used when closing).
    void stop();

signals:
    void progress(int percent);
    // ok false with an empty error: cancelled. warning: with ok, what of the file could not be read
    // (damaged lines, cut off); empty when it read whole.
    void finished(bool ok, const TelemetryDataPackage &package, const QString &error, const QString &path,
                  const QString &warning);

private:
    SensorTable *m_sensors;
    QThread *m_thread = nullptr;
    std::atomic<bool> m_cancel{false};
    QString m_path;
};
