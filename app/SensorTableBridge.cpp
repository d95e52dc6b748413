#include "app/SensorTableBridge.h"

#include <QThread>

SensorTableBridge::SensorTableBridge(SensorTable *target, QObject *parent) : QObject(parent), m_target(target)
{
}

template <typename F> bool SensorTableBridge::call(F f)
{
    if (!m_target)
        return false;
    if (QThread::currentThread() == thread())
        return f();
    if (m_closing)
        return false;
    bool result = false;
    QMetaObject::invokeMethod(
        this, [&] { result = f(); }, Qt::BlockingQueuedConnection);
    return result;
}

bool SensorTableBridge::findSensor(quint32 id, quint32 param, SensorRow *row)
{
    {
        QMutexLocker lock(&m_pendingLock);
        for (const SensorRow &p : m_pending) {
            if (p.id == id && p.param == param) {
                if (row)
                    *row = p;
                return true;
            }
        }
    }
    return call([&] { return m_target->findSensor(id, param, row); });
}

bool SensorTableBridge::insertDefaultSensor(const SensorRow &row)
{
    if (QThread::currentThread() == thread())
        return m_target && m_target->insertDefaultSensor(row);
    QMutexLocker lock(&m_pendingLock);
    m_pending.append(row);
    return true;
}

int SensorTableBridge::flushPending()
{
    QVector<SensorRow> rows;
    {
        QMutexLocker lock(&m_pendingLock);
        rows.swap(m_pending);
    }
    return m_target ? m_target->insertDefaultSensors(rows) : 0;
}

bool SensorTableBridge::updateSensorSettings(const SensorRow &row)
{
    return call([&] { return m_target->updateSensorSettings(row); });
}
