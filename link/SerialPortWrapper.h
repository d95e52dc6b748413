#pragma once

#include "link/DeviceSettings.h"
#include "link/JoystickReader.h"
#include "link/LinkClock.h"
#include "link/LxBusProtocol.h"
#include "link/LxReceiver.h"

#include <QByteArray>
#include <QObject>
#include <QRecursiveMutex>
#include <QSerialPort>

#include <atomic>
#include <memory>

class QTimer;
class SerialReader;

// Owns the serial port and everything that runs on it, on its own thread: opening and configuring,
// the line speed and protocol search, the LX Bus master frame every tick, and the hand-over of the port
// to the special readers. Other threads use queued signals and the few locked getters.
class SerialPortWrapper : public QObject, private LxReceiver::Handler
{
    Q_OBJECT
public:
    enum Mode
    {
        LxBus125k = 0,
        LxBus250k = 1,
        UpdateReader = 2,
        TerminalBoxReader = 3,
        Unchanged = 4,
        GpsLoggerReader = 5,
    };
    // Without a good frame for this long the next line speed is tried (the update reader gets less).
    static constexpr qint64 kSearchMs = 3000;
    static constexpr qint64 kSearchUpdateMs = 1500;
    static constexpr int kErrorLimit = 410;
    static constexpr int kErrorsPerModeChange = 50;

    explicit SerialPortWrapper(LinkClock *clock = nullptr, QObject *parent = nullptr);
    ~SerialPortWrapper() override;

    // Locked getters for other threads.
    QString portName() const;
    QString lastError() const;
    Vector<Device> devices() const;
    int mode() const;
    bool isPortOpen() const;
    int errorCount() const;
    // Frames dropped for a bad CRC since the port was opened.
    int crcErrorCount() const;
    SerialReader *currentReader() const;

    // Plugs the reader for mode 2, 3 or 5 (not owned).
    void setReader(int mode, SerialReader *reader);
    // Without the 1 ms timer (tests drive tick() themselves).
    void setTimerEnabled(bool enabled) { m_timerEnabled = enabled; }
    void setEchoSkipping(bool skip);
    // Thread-safe parameter requests of the device-parameter engine.
    bool queueRead(quint32 deviceId, const QByteArray &data, quint8 limit);
    bool queueWrite(quint32 deviceId, quint8 flags, const QByteArray &data, quint8 limit);

    // The protocol object (device table signals); lives on the serial thread.
    LxBusProtocol *protocol() { return &m_protocol; }

    // Process-wide: a percentage set by long device operations from any thread, reported on the next
    // tick; and a flag that makes the next tick re-apply the port settings.
    static std::atomic<int> &progressValue();
    static std::atomic<bool> &reloadFlag();
    static int baudForMode(int mode);

    // One tick of the 1 ms timer.
    void tick();

signals:
    void error();
    void LxBusError(const QString &text);
    void telemetryReceived(const QByteArray &data);
    void portOpenedStatus(bool status);
    void percentageChanged(int value);
    void LxBusValuesLoaded(const DevParamVector &params);
    void LxBusCommandConfirmed(quint16 addr);
    void detectedUpdateInfo(const QString &info);
    void detectedJoysticks(const JoystickVector &joysticks);
    void joystickUpdated(const JoystickAxisMap &axes);

public slots:
    void handleError(QSerialPort::SerialPortError error);
    void readResponse();
    int setSerialPort(const QString &name);
    void findDefaultSerialPort();
    void setActiveDevice(const DeviceSettings &properties);
    void LxBusDeviceWrite();
    void LxBusDeviceExecCommand(quint16 paramAddr, quint8 size);
    void setUpdateMode(bool enabled);
    void setVBMMode(bool enabled);
    void setRGPSMode(bool enabled);
    void detectJoysticks();
    void setJoystick(const QString &guid);
    void start();
    // Puts the transport into a mode from outside (250000 baud LX Bus is reached only this way).
    void selectMode(int mode);
    // Closes the port and stops the timer; runs on the serial thread before it ends.
    void stop();

private:
    void deviceFrame(const quint8 *frame, int length, const quint8 *payload, int payloadLength) override;
    void crcError(const quint8 *frame, int length) override;
    void goodEcho() override;

    bool applySettings();
    void setMode(int mode);
    void advanceSearchMode();
    void fatalError(const QString &text);
    void setOpen(bool open);
    void sendMasterFrame(qint64 now);
    bool writeFrame(int length);
    void scheduleNextTick(qint64 now);
    SerialReader *readerFor(int mode) const;

    mutable QRecursiveMutex m_mutex;
    LinkClock *m_clock;
    std::unique_ptr<LinkClock> m_ownClock;
    QSerialPort *m_port = nullptr;
    QTimer *m_timer = nullptr;
    bool m_timerEnabled = true;
    int m_mode = LxBus125k;
    SerialReader *m_readers[6] = {};
    bool m_updateMode = false;
    bool m_vbmMode = false;
    bool m_rgpsMode = false;
    bool m_open = false;
    bool m_paused = false;
    quint16 m_errorCount = 0;
    int m_crcErrors = 0;
    qint64 m_lastRead = 0;
    qint64 m_lastGoodFrame = 0;
    qint64 m_lastFrameStep = 0;
    // The bus is half duplex: the next master frame waits until the line has carried the last one and,
    // after a request, until its answer came or its answer window passed.
    qint64 m_lineFreeAt = 0;
    int m_awaitedPacket = -1;
    QString m_lastError;
    int m_lastProgress = 0;
    LxBusProtocol m_protocol;
    LxReceiver m_receiver;
    QByteArray m_readBuffer;
    quint8 m_frame[LxFrame::kMaxMasterFrame];
    JoystickReader m_joystick;
    JoystickAxisMap m_axes;
    quint16 m_channels[LxFrame::kControllerChannels];
    bool m_hasController = false;
};
