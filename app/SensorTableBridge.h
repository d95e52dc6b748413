#pragma once

#include "telemetry/SensorTable.h"

#include <QMutex>
#include <QObject>
#include <QVector>

#include <atomic>

// Lets a reader on a worker thread consult the sensor table that belongs to the interface thread (the
// database connection may only be used there): calls from other threads are carried over and waited for.
class SensorTableBridge : public QObject, public SensorTable
{
    Q_OBJECT
public:
    explicit SensorTableBridge(SensorTable *target, QObject *parent = nullptr);

    bool findSensor(quint32 id, quint32 param, SensorRow *row) override;
    bool insertDefaultSensor(const SensorRow &row) override;
    bool updateSensorSettings(const SensorRow &row) override;

    // While closing, the interface thread may be waiting for the worker: answer without asking it.
    void setClosing(bool closing) { m_closing = closing; }
    // Rows that readers on other threads added, stored now (on the interface thread) in one go.
    // Returns the number stored.
    int flushPending();

private:
    template <typename F> bool call(F f);

    SensorTable *m_target;
    std::atomic<bool> m_closing{false};
    QMutex m_pendingLock;
    QVector<SensorRow> m_pending;
};
