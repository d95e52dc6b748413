#pragma once

#include "link/LxFrame.h"

#include <QtGlobal>

// Cuts the serial byte stream into LX Bus frames and checks their CRC. Fixed buffer, no allocation.
class LxReceiver
{
public:
    enum State : quint8
    {
        Hunting = 0,
        DeviceKind = 1,
        DeviceLength = 2,
        DeviceBody = 3,
        MasterKind = 10,
        MasterLength = 11,
        MasterBody = 12,
    };

    class Handler
    {
    public:
        virtual ~Handler() = default;
        // A device frame with a good CRC: the whole frame, and its payload within it.
        virtual void deviceFrame(const quint8 *frame, int length, const quint8 *payload,
                                 int payloadLength) = 0;
        virtual void crcError(const quint8 *frame, int length) = 0;
        // An echo of the master's own frame: dropped unchecked when skipping, else checked.
        virtual void echoSkipped() {}
        virtual void goodEcho() {}
    };

    explicit LxReceiver(Handler *handler) : m_handler(handler) {}

    void feed(const quint8 *data, qint64 length);
    void reset();
    void setEchoSkipping(bool skip) { m_echoSkipping = skip; }
    bool echoSkipping() const { return m_echoSkipping; }
    State state() const { return m_state; }

private:
    void store(quint8 byte)
    {
        if (m_length < int(sizeof m_buffer))
            m_buffer[m_length++] = byte;
    }
    void frameComplete();

    Handler *m_handler;
    quint8 m_buffer[LxFrame::kMaxLength + 1];
    int m_length = 0;
    State m_state = Hunting;
    quint16 m_remaining = 0;
    quint8 m_lengthBytes = 0;
    quint8 m_lengthIndex = 0;
    quint8 m_frameLength = 0;
    bool m_echoSkipping = false;
};
