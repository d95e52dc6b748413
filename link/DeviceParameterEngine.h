#pragma once

#include "link/DeviceSettings.h"

#include <QByteArray>
#include <QObject>
#include <QQueue>
#include <QVector>

class LxBusProtocol;

// Reads and writes the parameters of the active device over the request ring, on the serial thread
// (the transport calls every method under its mutex).
//
// Requests (all integers little-endian):
//   read  `W`: data = groups of (16-bit address, 8-bit byte count); the answer carries, per group, the
//              address, the count and that many register bytes.
//   write `T`: data = flag byte, then groups of (address, count, bytes); the answer echoes the flag and
//              the groups as the device now holds them.
// A request and its answer are at most 30 bytes, so a read answer has 23 bytes for its groups and a
// write request 22: the parameters are packed in address order, contiguous ones into one group, as many
// whole parameters as fit. Every write is followed by a read of the same parameters, so what is reported
// is what the device really holds.
//
// A request goes out in up to kSendsPerTry master frames until answered; after that it is queued again,
// kTries times in all, before the job fails with "LX Bus: Error reading device" or "... writing device".
// A request the ring keeps refusing (the device is busy with a command) fails after kQueueWaitMs.
class DeviceParameterEngine : public QObject
{
    Q_OBJECT
public:
    static constexpr quint8 kSendsPerTry = 4;
    static constexpr int kTries = 3;
    static constexpr int kQueueWaitMs = 2000;
    // A request that stays unanswered this long (the bus stopped) is given up even before its sends run out.
    static constexpr int kAnswerWaitMs = 1500;
    static constexpr int kReadBudget = 23;  // group bytes in a read answer
    static constexpr int kWriteBudget = 22; // group bytes in a write request

    struct Request
    {
        bool write = false;
        QByteArray data;     // the request data after the device identifier (for writes without the flag)
        QVector<int> params; // indexes into the active device's parameters
    };

    explicit DeviceParameterEngine(LxBusProtocol *protocol, QObject *parent = nullptr);

    // Replaces the active device (the protocol keeps its parameters) and starts reading all of them.
    void setActive(const DeviceSettings &settings);
    void readAll();
    // Refuses (returns why, writes nothing) when any value is unknown, read-only or out of its limits.
    QString write(const DevParamVector &params);
    // Queues a command write; false when the ring refuses it now.
    bool command(int address, int value, int size, int flags);
    bool isBusy() const { return !m_jobs.isEmpty(); }
    // Work of one master frame: follow the request in flight, queue the next one, watch the device.
    void tick(int elapsedMs);

    // Requests for these parameters (indexes, any order) of the given vector.
    static QVector<Request> planReads(const DevParamVector &params, QVector<int> indexes);
    static QVector<Request> planWrites(const DevParamVector &params, QVector<int> indexes);
    // The fewest read requests any packing could use for these parameters.
    static int minimumReads(const DevParamVector &params, QVector<int> indexes);

signals:
    void writeFinished(const DevParamVector &params);
    void error(const QString &text);

private:
    struct Job
    {
        bool write = false;
        QVector<Request> requests;
        QVector<int> written; // for writes: the parameters to report
        int next = 0;
        int packetId = -1;
        int tries = 0;
        int waitedMs = 0;
    };
    static QVector<Request> plan(const DevParamVector &params, QVector<int> indexes, bool write);
    bool deviceGone(int elapsedMs);
    void finish(Job &job);
    void fail(const QString &text);
    void clear();

    LxBusProtocol *m_protocol;
    QQueue<Job> m_jobs;
    bool m_seen = false; // the active device has been in the device table
    int m_missingMs = 0; // for how long it has not been
};
