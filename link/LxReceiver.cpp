#include "link/LxReceiver.h"

#include "link/LxCrc.h"

void LxReceiver::reset()
{
    m_state = Hunting;
    m_length = 0;
    m_remaining = 0;
}

void LxReceiver::frameComplete()
{
    const bool echo = m_state == MasterBody;
    m_state = Hunting;
    if (echo && m_echoSkipping) {
        m_handler->echoSkipped();
        return;
    }
    if (LxCrc::compute(m_buffer, m_length) != 0) {
        m_handler->crcError(m_buffer, m_length);
        return;
    }
    if (echo) {
        m_handler->goodEcho();
        return;
    }
    // The payload follows start, kind and the length byte(s) and stops before the CRC.
    const int header = 2 + m_lengthBytes;
    m_handler->deviceFrame(m_buffer, m_length, m_buffer + header, quint8(m_length - header - 2));
}

void LxReceiver::feed(const quint8 *data, qint64 length)
{
    for (qint64 i = 0; i < length; ++i) {
        const quint8 b = data[i];
        // An echo is kept only when it is going to be checked.
        const bool keepEcho = !m_echoSkipping;
        switch (m_state) {
        case Hunting:
            if (b == LxFrame::kDeviceStart || b == LxFrame::kDeviceStartAlt) {
                m_length = 0;
                store(b);
                m_state = DeviceKind;
            } else if (b == LxFrame::kMasterRequestStart || b == LxFrame::kMasterStart) {
                m_length = 0;
                if (keepEcho)
                    store(b);
                m_state = MasterKind;
            }
            break;
        case DeviceKind:
        case MasterKind: {
            const bool master = m_state == MasterKind;
            if (!master || keepEcho)
                store(b);
            if (b == 1 || b == 3) {
                m_lengthBytes = 1;
            } else if (b == 2) {
                m_lengthBytes = 2;
            } else {
                m_state = Hunting;
                break;
            }
            m_lengthIndex = 0;
            m_state = master ? MasterLength : DeviceLength;
            break;
        }
        case DeviceLength:
        case MasterLength: {
            const bool master = m_state == MasterLength;
            if (!master || keepEcho)
                store(b);
            if (m_lengthIndex == 0)
                m_frameLength = b;
            if (++m_lengthIndex < m_lengthBytes)
                break;
            if (m_frameLength < LxFrame::kMinLength) {
                m_state = Hunting;
                break;
            }
            m_remaining = quint16(m_frameLength - 2 - m_lengthBytes);
            m_state = master ? MasterBody : DeviceBody;
            break;
        }
        case DeviceBody:
        case MasterBody:
            if (m_state == DeviceBody || keepEcho)
                store(b);
            if (--m_remaining == 0)
                frameComplete();
            break;
        }
    }
}
