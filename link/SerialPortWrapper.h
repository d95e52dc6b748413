#pragma once

#include "link/DeviceParameterEngine.h"
#include "link/DeviceSettings.h"
#include "link/DriveScanner.h"
#include "link/JoystickReader.h"
#include "link/LinkClock.h"
#include "link/LinkProgress.h"
#include "link/LxBusProtocol.h"
#include "link/LxReceiver.h"
#include "link/PortSpeedSearch.h"
#include "link/SerialPlatform.h"
#include "link/TransmitterInfo.h"

#include <QByteArray>
#include <QObject>
#include <QRecursiveMutex>
#include <QSerialPort>

#include <functional>
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
        LxBus125k = PortSpeedSearch::LxBus125k,
        LxBus250k = PortSpeedSearch::LxBus250k,
        UpdateReader = PortSpeedSearch::UpdateReader,
        TerminalBoxReader = PortSpeedSearch::TerminalBoxReader,
        Unchanged = PortSpeedSearch::Unchanged,
        GpsLoggerReader = PortSpeedSearch::GpsLoggerReader,
    };
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
    // The port itself, for a reader that takes it over (the firmware updater); serial thread only.
    QSerialPort *serialPort() const { return m_port; }

    // Plugs the reader for mode 2, 3 or 5 (not owned).
    void setReader(int mode, SerialReader *reader);
    // Where the adapter search looks: the system's ports unless a test hands in its own list.
    using PortLister = std::function<QList<SerialPlatform::PortInfo>()>;
    void setPortLister(PortLister lister);
    // Without the 1 ms timer (tests drive tick() themselves).
    void setTimerEnabled(bool enabled) { m_timerEnabled = enabled; }
    void setEchoSkipping(bool skip);
    // Thread-safe parameter requests of the device-parameter engine.
    bool queueRead(quint32 deviceId, const QByteArray &data, quint8 limit);
    bool queueWrite(quint32 deviceId, quint8 flags, const QByteArray &data, quint8 limit);

    // The protocol object (device table signals); lives on the serial thread.
    LxBusProtocol *protocol() { return &m_protocol; }

    // The percentage of long device operations, reported on the next tick, and the request to re-apply
    // the port settings; usable from any thread for the life of the wrapper.
    LinkProgress *progress() { return &m_progress; }
    // The transmitter drive scan run every 25th tick, on the serial thread.
    void setDriveScan(DriveScanner::Scan scan);
    // The connected transmitters, keyed by root path; the drive scan adds and removes them (each change
    // is announced once). Thread-safe.
    TransmitterInfoVector transmitters() const;
    void addTransmitter(const TransmitterInfo &info);
    void removeTransmitter(const QString &rootPath);
    static int baudForMode(int mode) { return PortSpeedSearch::baudForMode(mode); }

    // One tick of the 1 ms timer.
    void tick();

signals:
    void error();
    void LxBusError(const QString &text);
    void telemetryReceived(const QByteArray &data);
    void portOpenedStatus(bool status);
    void percentageChanged(int value);
    // The active device's parameters after every read answer (the `loaded` marks show how far it got).
    void LxBusValuesLoaded(const DevParamVector &params);
    // A write has ended: the parameters written, each read back (`value`) beside what was sent (`sent`);
    // `confirmed` when the device holds what was sent, `loaded` false when it could not be read back.
    void LxBusWriteFinished(const DevParamVector &params);
    void LxBusCommandConfirmed(quint16 addr);
    void detectedUpdateInfo(const QString &info);
    void detectedJoysticks(const JoystickVector &joysticks);
    void joystickUpdated(const JoystickAxisMap &axes);
    void transmitterAdded(const TransmitterInfo &info);
    void transmitterRemoved(const QString &rootPath);

public slots:
    void handleError(QSerialPort::SerialPortError error);
    void readResponse();
    int setSerialPort(const QString &name);
    void findDefaultSerialPort();
    // The device the parameter engine works on; reading all its parameters starts at once. A device
    // identifier of 0 ends the work on the previous one.
    void setActiveDevice(const DeviceSettings &properties);
    // Reads every parameter of the active device again.
    void LxBusDeviceRead();
    // Writes these parameters (matched by address) to the active device, then reads them back. Nothing
    // is sent when any value is read-only, unknown or outside its limits: LxBusError says why.
    void LxBusDeviceWrite(const DevParamVector &params);
    // Runs a device command: the value (size bytes) written to the command's address with the given
    // flag byte. False when the device is busy with another request (the caller retries); the device's
    // confirmation arrives as LxBusCommandConfirmed.
    bool LxBusDeviceExecCommand(int address, int value, int size, int flags);
    // Asks one device by its identifier to introduce itself, for a device the enumeration has not found
    // yet (it answers broadcasts only now and then).
    void identifyDevice(quint32 identifier);
    // Hands the port to the update reader (mode 2, polling stopped) or gives it back: the bus mode that
    // was active before comes back at once.
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

    enum class OpenResult
    {
        Failed,
        SettingsRefused,
        Opened,
    };
    bool closeForReopen();
    OpenResult openPort(const QString &label, bool keepRefused, QSerialPort::SerialPortError *why);
    bool applySettings();
    void advanceSearchMode();
    void fatalError(const QString &text);
    void setOpen(bool open);
    void sendMasterFrame(qint64 now);
    bool writeFrame(int length);
    void flushTelemetry(qint64 now);
    void tickAfterAnswer();
    void runTick(int idleInterval);
    void scheduleNextTick(qint64 now, int idleInterval);
    SerialReader *readerFor(int mode) const;

    mutable QRecursiveMutex m_mutex;
    std::unique_ptr<LinkClock> m_ownClock;
    LinkClock *m_clock;
    PortLister m_portLister = SerialPlatform::availablePorts;
    QSerialPort *m_port = nullptr;
    QTimer *m_timer = nullptr;
    bool m_timerEnabled = true;
    PortSpeedSearch m_search;
    DriveScanner m_driveScanner;
    TransmitterInfoVector m_transmitters;
    LinkProgress m_progress;
    SerialReader *m_readers[6] = {};
    bool m_open = false;
    int m_modeBeforeUpdate = LxBus125k;
    static constexpr qint64 kUpdaterReadGraceMs = 500;
    qint64 m_updaterReadsUntil = -1;
    bool m_paused = false;
    quint16 m_errorCount = 0;
    int m_crcErrors = 0;
    qint64 m_lastRead = 0;
    qint64 m_lastFrameStep = 0;
    // The bus is half duplex: the next master frame waits until the line has carried the last one and,
    // after a request, until its answer came or its answer window passed.
    qint64 m_lineFreeAt = 0;
    int m_awaitedPacket = -1;
    bool m_answerFreedLine = false;
    QString m_lastError;
    LxBusProtocol m_protocol;
    DeviceParameterEngine m_engine;
    LxReceiver m_receiver;
    QByteArray m_readBuffer;
    quint8 m_frame[LxFrame::kMaxMasterFrame];
    JoystickReader m_joystick;
    JoystickAxisMap m_axes;
    quint16 m_channels[LxFrame::kControllerChannels];
    bool m_hasController = false;
    // Telemetry records wait here and cross to the interface thread together, a few dozen times a second
    // rather than once per answer: every crossing wakes that thread.
    QVector<QByteArray> m_telemetry;
    qint64 m_telemetrySentAt = 0;
};
