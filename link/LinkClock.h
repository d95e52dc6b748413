#pragma once

#include <QDateTime>
#include <QElapsedTimer>

// Time as the link sees it. The transport's timing rules (the 1 ms tick, the 3000/1500 ms speed
// search, keep-alive waits) read time only through this, so tests can step it instead of waiting.
class LinkClock
{
public:
    virtual ~LinkClock() = default;
    // Monotonic milliseconds.
    virtual qint64 elapsedMs() const = 0;
    // Wall-clock milliseconds since the epoch (telemetry receive stamps).
    virtual qint64 epochMs() const = 0;
};

class SystemLinkClock : public LinkClock
{
public:
    SystemLinkClock() { m_timer.start(); }
    qint64 elapsedMs() const override { return m_timer.elapsed(); }
    qint64 epochMs() const override { return QDateTime::currentMSecsSinceEpoch(); }

private:
    QElapsedTimer m_timer;
};

// A clock that only moves when told to.
class ManualLinkClock : public LinkClock
{
public:
    qint64 elapsedMs() const override { return m_now; }
    qint64 epochMs() const override { return m_epoch + m_now; }
    void advance(qint64 ms) { m_now += ms; }
    void setEpoch(qint64 epochMs) { m_epoch = epochMs; }

private:
    qint64 m_now = 0;
    qint64 m_epoch = 1700000000000;
};
