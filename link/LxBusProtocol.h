#pragma once

#include "link/Device.h"
#include "link/DeviceSettings.h"
#include "link/LxFrame.h"
#include "link/Vector.h"

#include <QObject>

// The master's side of the LX Bus: the ring of ten request slots that pairs requests with answers,
// the device table, keep-alives, enumeration and telemetry polls. Not thread-safe by itself: the
// transport calls it under its mutex.
class LxBusProtocol : public QObject
{
    Q_OBJECT
public:
    static constexpr int kSlots = 10;
    enum SlotState : quint8
    {
        Free = 0,
        Waiting = 1,
        Answered = 2
    };
    struct Slot
    {
        quint8 data[LxFrame::kMaxRequest] = {};
        quint8 length = 0;
        quint8 counter = 0; // times sent; after an answer, ticks the answer has waited
        quint8 limit = 0;   // times the request may be sent
        quint8 state = Free;
        quint8 answered = 0; // 0xFF once the buffer holds the answer
    };

    // An answer nobody took is dropped after this many ticks.
    static constexpr int kAnswerHoldTicks = 250;
    // A device that sent nothing carrying its identifier for this long is removed from the table.
    // Ten seconds covers three missed keep-alive rounds, so one lost frame never drops a device.
    static constexpr int kSilenceLimitMs = 10000;
    static constexpr quint16 kKeepAliveMs = 3000;
    // How often an enumeration request looks for devices not yet known.
    static constexpr int kEnumerationIntervalMs = 1000;
    static constexpr int kMaxReadData = 23;
    static constexpr int kMaxWriteData = 22;

    explicit LxBusProtocol(QObject *parent = nullptr);

    // Forgets every request in flight (the line speed or mode changed); the device table stays.
    void reset();

    // packetId, when given, receives the id the request goes out with.
    bool queueRead(quint32 deviceId, const quint8 *data, int count, quint8 limit, int *packetId = nullptr);
    bool queueWrite(quint32 deviceId, quint8 flags, const quint8 *data, int count, quint8 limit,
                    int *packetId = nullptr);
    // Where a queued read or write stands: still waiting, answered (its values are in the active device's
    // parameters; the slot is freed by this call), or gone (sent as often as allowed without an answer,
    // or answered by the wrong device).
    enum class RequestState
    {
        Waiting,
        Answered,
        Gone
    };
    RequestState takeRequest(int packetId, quint8 type);
    // For @, : and P requests; byte 0 (the packet id) is assigned here.
    bool queueRaw(const quint8 *bytes, int count, quint8 limit);

    void processAnswer(const quint8 *payload, int length);
    // A telemetry record (0x7E, then the answer's data) when one is waiting.
    bool takeTelemetry(quint8 *out, int *outLength);
    void tick(int elapsedMs);
    // The request for the coming master frame, or null; valid until the ring changes.
    const quint8 *nextDueRequest(int *length);

    // The device table (Part of the protocol state).
    const Vector<Device> &devices() const { return m_devices; }
    // 0 when a record was appended (and announced), 1 when refreshed, 2 when refused.
    int addOrRefresh(quint32 identifier, quint32 parent, quint16 hardware, quint8 extensionIndex, quint8 kind,
                     quint8 extensionCount, const QString &name, quint8 extra1, quint8 extra2);
    void removeDevice(quint32 identifier);
    void removeAllDevices();

    void setActiveDevice(const DeviceSettings &settings) { m_active = settings; }
    const DeviceSettings &activeDevice() const { return m_active; }
    DeviceSettings &activeDevice() { return m_active; }

    const Slot &slotAt(int i) const { return m_slots[i]; }
    quint8 packetCounter() const { return m_packetId; }

signals:
    void deviceAdded(const Vector<Device> *devices);
    void deviceRemoved(const Vector<Device> *devices);
    void deviceDisconnected(quint32 identifier);
    void commandConfirmed(quint16 address);
    void valuesLoaded(const DevParamVector &params);

private:
    int findFreeSlot();
    int queue(const quint8 *bytes, int count, quint8 limit);
    bool hasOutstandingReadWrite(quint32 deviceId) const;
    bool hasOutstanding(quint8 type, quint32 deviceId) const;
    void freeSlot(Slot &slot) { slot = Slot(); }
    void identificationAnswer(Slot &slot, const quint8 *payload, int length);
    int groupsOffset(const Slot &request, const quint8 *payload, int length) const;
    void parameterGroups(const quint8 *data, int length, bool isRead);
    void resetSilence(quint32 identifier);
    void requestExpired(const Slot &slot);
    QString deviceLine(const Device &d) const;
    int indexOfDevice(quint32 identifier, quint32 parent, quint8 extensionIndex) const;

    Slot m_slots[kSlots];
    int m_writeIndex = kSlots - 1;
    int m_readIndex = 0;
    quint8 m_packetId = 0;
    bool m_pollToggle = false;
    int m_sinceEnumeration = kEnumerationIntervalMs;
    Vector<Device> m_devices;
    DeviceSettings m_active;
};
