#include "app/LogLoadTask.h"

#include "telemetry/TelemetryData.h"

LogLoadTask::LogLoadTask(SensorTable *sensors, QObject *parent) : QObject(parent), m_sensors(sensors) {}

LogLoadTask::~LogLoadTask()
{
    stop();
}

void LogLoadTask::cancel()
{
    m_cancel = true;
}

void LogLoadTask::stop()
{
    if (!m_thread)
        return;
    m_cancel = true;
    m_thread->wait();
    delete m_thread;
    m_thread = nullptr;
}

void LogLoadTask::start(const QString &path)
{
    stop();
    m_cancel = false;
    m_path = path;
    SensorTable *sensors = m_sensors;
    m_thread = QThread::create([this, path, sensors] {
        TelemetryDataPackage package;
        QString error;
        QString warning;
        int lastPercent = -1;
        const auto onProgress = [&](qint64 done, qint64 total) {
            const int percent = total > 0 ? int(done * 100 / total) : 0;
            if (percent != lastPercent) {
                lastPercent = percent;
                emit progress(percent);
            }
            return !m_cancel.load();
        };
        const bool ok = TelemetryData::readFile(path, &package, sensors, &error, onProgress, &warning);
        if (m_cancel)
            emit finished(false, TelemetryDataPackage(), QString(), path, QString());
        else
            emit finished(ok, ok ? package : TelemetryDataPackage(), ok ? QString() : error, path,
                          ok ? warning : QString());
    });
    m_thread->setObjectName(QStringLiteral("log-load"));
    m_thread->start();
}
