#pragma once

#include "link/SerialReader.h"
#include "tools/BootLoaderProtocol.h"
#include "tools/FirmwareImage.h"

#include <QAtomicInt>
#include <QByteArray>
#include <QMetaType>
#include <QMutex>
#include <QObject>
#include <QString>

#include <memory>

class SerialPortWrapper;
class QSerialPort;

// Where an update run stands, for the dialog and the command line.
struct UpdatingStatus
{
    enum Stage
    {
        Idle,
        Connecting,  // attempt: the wake attempt, 1..connectAttempts
        Connected,   // device: what the boot loader said; text: the "Connected: ID = ..." line
        InfoFailed,  // text: "Error getting device info"
        Programming, // packet (1-based) of packetCount
        Retrying,    // text: "Error while programming the device. Retrying."
        Unreachable, // text: "Please reconnect your device to the USB Adapter."
        Finished,    // text: "Update finished"
        Failed,      // text: why; the device stays in its boot loader and can be programmed again
    };
    Stage stage = Idle;
    QString text;
    int attempt = 0;
    int packet = 0;
    int packetCount = 0;
    BootLoaderProtocol::DeviceInfo device;
};
Q_DECLARE_METATYPE(UpdatingStatus)

// Programs a firmware image into a device's boot loader through the serial link. The run itself happens
// on the link's thread: the updater takes over the port in updater mode (the normal polling stops), and
// whatever happens the link is back in its normal mode when finished() arrives.
//
// Steps: connect (wake the boot loader, up to connectAttempts tries), device info, program every packet
// in order (each acknowledged within answerWindowMs, up to triesPerPacket tries), finish. A packet that
// fails every try starts the whole programming again from connect, up to programRuns times in all.
//
// Create it on any thread; signals arrive queued on that thread. Destroying it while a run goes stops
// the run and waits until the link has been given back.
class DeviceUpdater : public QObject, public SerialReader
{
    Q_OBJECT
public:
    enum Result
    {
        Succeeded,
        ConnectFailed,     // no boot loader answered: nothing was written
        DeviceInfoFailed,  // connected, but the device-info answer was wrong: nothing was written
        ProgrammingFailed, // the device stays in its boot loader, ready to be programmed again
        PortClosed,        // the adapter went away
        Busy,              // another run was still going
        BadImage,          // the file could not be read or its chain is damaged: nothing was sent
        Cancelled,         // cancel() or the updater's destruction stopped it
    };
    Q_ENUM(Result)

    struct Options
    {
        quint32 target = 0;     // device identifier; 0: the device alone on the adapter
        quint16 newVersion = 0; // told to the device at the finish (see BootLoaderProtocol); 0: unknown
        int connectAttempts = 29;
        int connectWaitMs = 100; // answer window of one wake attempt
        int answerWindowMs = 500;
        int pauseMs = 32;
        int triesPerPacket = 5;
        int programRuns = 2;
    };

    explicit DeviceUpdater(SerialPortWrapper *link, QObject *parent = nullptr);
    ~DeviceUpdater() override;

    void setOptions(const Options &options);
    Options options() const;

    // Starts a run on the link's thread; false (and nothing started) while one is going.
    bool start(const FirmwareImage &image);
    // Connect and device info only; the device goes back to its firmware untouched.
    bool startDeviceInfo();
    bool isRunning() const { return m_running->loadAcquire() != 0; }
    // Stops a run at its next step (any thread); the link goes back to normal mode as after a failure.
    void cancel() { m_cancel.storeRelease(1); }

    // After finished(): what the boot loader told, and the last status.
    BootLoaderProtocol::DeviceInfo deviceInfo() const;
    UpdatingStatus lastStatus() const;
    static QString resultText(Result result);
    // "Connected: ID = [%1:%2], Firmware ver.: <b>%3</b> <i>(HW=%4, BL=%5)</i>" for a device.
    static QString connectedText(const BootLoaderProtocol::DeviceInfo &info);

    // A whole run, blocking; on the link's thread only (start() does this for callers elsewhere).
    // Busy while another run is going.
    Result run(const FirmwareImage &image);
    Result runDeviceInfo();

public slots:
    // The dialog's entry points: a custom image file (read and checked first), and the device info.
    void requestDeviceUpdate(const QString &imagePath);
    void requestUpdateInfo();

signals:
    void updatingStatusChanged(const UpdatingStatus &status);
    void percentageChanged(int percent);
    // The "Connected: ID = ..." line after a good device-info answer.
    void detectedUpdateInfo(const QString &info);
    void finished(int result);

private:
    // SerialReader: the updater reads the port itself while it runs.
    void tick(qint64, int) override {}
    void reset() override {}
    void takeFrame(const quint8 *, int) override {}
    bool wantsRawBytes() const override { return true; }
    void readRaw(QSerialPort *port) override;

    Result updateSteps(const FirmwareImage &image);
    Result infoSteps();
    bool cancelled() const { return m_cancel.loadAcquire() != 0; }
    // The steps, on the link's thread in updater mode.
    bool enterUpdaterMode();
    void leaveUpdaterMode();
    Result connectDevice();
    Result getDeviceInfo();
    Result program(const FirmwareImage &image);
    Result finish(const FirmwareImage &image);
    // Sends bytes and waits for the answer frame of the given command; empty on timeout or port loss.
    QByteArray exchange(const QByteArray &bytes, quint8 command, int windowMs, bool *portLost);
    bool portUsable() const;
    void report(const UpdatingStatus &status);
    void setProgress(int percent);

    SerialPortWrapper *m_link;
    QSerialPort *m_port = nullptr;
    int m_previousMode = 0;
    QByteArray m_rx;
    Options m_options;
    // Shared with a run's closure, which clears it as its very last step (the object may be gone then).
    std::shared_ptr<QAtomicInt> m_running = std::make_shared<QAtomicInt>(0);
    mutable QMutex m_statusMutex; // m_info and m_status are written on the link's thread
    QAtomicInt m_cancel;
    BootLoaderProtocol::DeviceInfo m_info;
    UpdatingStatus m_status;
    int m_progress = -1;
};
