#pragma once

#include <QtGlobal>

class QSerialPort;

// A special reader that takes over the port in modes 2 (firmware update), 3 (terminal box) and
// 5 (GPS logger). Called on the serial thread under the transport's lock.
class SerialReader
{
public:
    virtual ~SerialReader() = default;
    virtual void tick(qint64 elapsedMs, int extra) = 0;
    virtual void reset() = 0;
    // A whole frame with a good CRC (update mode).
    virtual void takeFrame(const quint8 *bytes, int length) = 0;
    // True when it reads the port itself, bypassing the frame receiver.
    virtual bool wantsRawBytes() const = 0;
    virtual void readRaw(QSerialPort *) {}
};
