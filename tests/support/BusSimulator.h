#pragma once

#include "link/LinkClock.h"
#include "tests/support/SimTelemetry.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QVector>

#include <random>

class QSocketNotifier;

// A handful of LX Bus devices behind a pseudo-terminal: the program opens portPath() as its serial
// port and finds a receiver with two extensions, a GPS, a power sensor, a vario and a temperature
// sensor. They answer enumeration, keep-alive, parameter reads and writes and telemetry polls; switches
// add line noise, corrupt CRCs, silence the bus or pull the plug. Runs on the event loop of the thread
// that owns it.
class BusSimulator : public QObject
{
    Q_OBJECT
public:
    static constexpr quint32 kReceiverId = 0x0010A401;
    static constexpr quint32 kSatelliteAId = 0x0010A481;
    static constexpr quint32 kSatelliteBId = 0x0010A482;
    static constexpr quint32 kGpsId = 0x0020A402;
    static constexpr quint32 kPowerId = 0x0030A403;
    static constexpr quint32 kVarioId = 0x0040A404;
    static constexpr quint32 kTemperatureId = 0x0050A405;

    // Every device's registers start here: identifier (4 bytes), hardware (2), kind (1), a spare byte,
    // then its own settings from 0x0018, laid out as link/definitions describes them.
    static constexpr quint16 kRegisterBase = 0x0010;
    static constexpr int kRegisterCount = 32;
    static constexpr int kSettingsOffset = 8;
    // Commands are writes to 0xF000 + the command id; the device confirms them by that address.
    static constexpr quint16 kCommandBase = 0xF000;
    // A device with 256 one-byte registers from kRegisterBase (hardware 0x01FF), added by addLargeDevice().
    static constexpr quint32 kLargeId = 0x00FFA4FF;
    // A device greeted by a keep-alive, or that introduced itself, this recently leaves enumeration
    // broadcasts to the others.
    static constexpr qint64 kKeepAliveQuietMs = 5000;
    static constexpr int kMaxAnswer = 30;
    // A packet's bytes this far apart: the boot loader gives the packet up.
    static constexpr qint64 kBootReceiveTimeoutMs = 200;

    // One device on the bus, or an extension behind one (parent set, extension index from 1).
    struct Unit
    {
        quint32 identifier = 0;
        quint32 parent = 0;
        quint8 extensionIndex = 0;
        quint8 extensionCount = 0;
        quint16 hardware = 0;
        quint8 kind = 1;
        QByteArray name; // Latin-1, at most 12 bytes
        quint8 extra1 = 0;
        quint8 extra2 = 0;
        QByteArray registers;  // from kRegisterBase; kRegisterCount bytes unless the device has more
        QByteArray factory;    // what "reset to factory settings" restores
        QVector<int> commands; // ids of the commands it runs
        qint64 lastKeepAliveMs = -1;
        qint64 lastIdentifiedMs = -1; // last answer to a broadcast identification
        bool inBootLoader = false;    // silent on the bus, answering the boot loader's frames only
        quint8 bootLoaderVersion = 3;
    };

    using SentValue = SimTelemetry::SentValue;

    explicit BusSimulator(QObject *parent = nullptr);
    ~BusSimulator() override;

    // Opens the pseudo-terminal and starts answering. False with a reason when that fails.
    bool start(QString *error = nullptr);
    bool isPlugged() const { return m_master >= 0; }
    // The slave side, e.g. /dev/pts/7: what the program opens as its serial port.
    QString portPath() const { return m_slavePath; }
    // A symbolic link to the port (replacing an older link there); removed again on unplug.
    bool linkTo(const QString &symlinkPath, QString *error = nullptr);

    // Time source for keep-alive quiet periods and the flight; set before start(). Null: system time.
    void setClock(const LinkClock *clock);
    void setSeed(quint32 seed);
    void setNoise(bool on) { m_noise = on; }
    // Every n-th answer goes out with a broken CRC; 0 turns it off.
    void setBadCrcEvery(int n) { m_badCrcEvery = qMax(0, n); }
    void setSilent(bool silent) { m_silent = silent; }
    bool isSilent() const { return m_silent; }
    // Closes every descriptor of the pseudo-terminal: the program's port sees a hang-up.
    void unplug();
    // Parameter reads are answered this many more times, then the bus falls silent; -1: always answered.
    void setReadsBeforeSilence(int n) { m_readsBeforeSilence = n; }
    // For benchmarks: one more device with 256 one-byte registers.
    void addLargeDevice();
    // Commands run so far, as (device identifier, command id, value).
    struct CommandRun
    {
        quint32 identifier;
        int command;
        int value;
    };
    const QVector<CommandRun> &commandsRun() const { return m_commandsRun; }

    // The boot loader (firmware update). A device enters it on a wake frame naming it (id 0: the first
    // device on the bus) and stays there, silent on the bus, until an update finishes or it is told to
    // leave; the packets it took survive an unplug, so it can be programmed again after reconnecting.
    enum BootFault
    {
        NoFault,
        DropAck,    // count acknowledgements are not sent
        CorruptAck, // count acknowledgements go out with a spoilt CRC
        Stall,      // nothing at all is answered any more, until the fault is cleared
        Unplug,     // the line goes away
    };
    // The fault starts at the fromPacket-th packet received from now on (1-based, repeats counted).
    void setBootFault(BootFault fault, int fromPacket = 1, int count = 1);
    // Line emulation for the boot loader's answers: every byte on the line takes 10 bits at this rate
    // (0: instant), and every packet takes writeMs to write before its acknowledgement.
    void setLineBaud(int baud) { m_lineBaud = qMax(0, baud); }
    void setPacketWriteMs(double writeMs) { m_packetWriteMs = qMax(0.0, writeMs); }
    double packetWriteMs() const { return m_packetWriteMs; }
    bool inBootLoader(quint32 identifier) const;
    int packetsReceived() const { return m_boot.received; }
    int acksSent() const { return m_boot.acks; }
    int wakesSeen() const { return m_boot.wakes; }
    // The last update that finished: which device, its packets in order, and the image as the device
    // holds it (16-byte header, the packets, the terminating zero byte).
    quint32 flashedDevice() const { return m_boot.flashedDevice; }
    const QVector<QByteArray> &flashedPackets() const { return m_boot.flashedPackets; }
    QByteArray flashedImage() const;

    const QVector<Unit> &units() const { return m_units; }
    const Unit *unit(quint32 identifier) const;
    QByteArray registers(quint32 identifier) const;
    const SimTelemetry &telemetry() const { return m_telemetry; }
    // Every telemetry value sent in an answer with a good CRC, in sending order.
    const QVector<SentValue> &sentValues() const { return m_sentValues; }

    int masterFrames() const { return m_masterFrames; }
    int badMasterCrcs() const { return m_badMasterCrcs; }
    int requestsSeen(char type) const;
    int answersSent(char type) const;
    int answersSent() const;
    int badCrcsSent() const { return m_badCrcsSent; }
    int noiseBytesSent() const { return m_noiseBytes; }
    int textFramesSent() const { return m_textFrames; }
    int messagesSent() const { return m_messages; }
    int alarmsSent() const { return m_alarms; }
    QString statusLine() const;

signals:
    void pluggedOut();
    // A write a device took: its registers from address on now hold these bytes.
    void registersWritten(quint32 identifier, quint16 address, const QByteArray &bytes);
    void commandExecuted(quint32 identifier, int command, int value);
    // An update finished: the device runs the new firmware and reports this version on the bus.
    void firmwareFlashed(quint32 identifier, quint16 version);

private slots:
    void readMaster();

private:
    enum Counter
    {
        Telemetry,
        Identify,
        KeepAlive,
        Read,
        Write,
        CounterCount
    };
    static int counterIndex(char type);

    void addDefaultDevices();
    void parseInput();
    void masterFrame(const quint8 *frame, int length);
    void request(const quint8 *req, int length);
    void answerTelemetry(quint8 packetId);
    void answerIdentify(quint8 packetId, quint32 identifier, quint8 extension, bool addressed);
    void answerKeepAlive(quint8 packetId, quint32 identifier);
    void answerRead(quint8 packetId, quint32 identifier, const quint8 *data, int length);
    void answerWrite(quint8 packetId, quint32 identifier, quint8 flags, const quint8 *data, int length);
    // Runs a command written to the device; false when it has no such command.
    bool runCommand(Unit *u, int command, int value);
    // Sends one answer frame (with noise before it when on); false when its CRC was spoilt on purpose.
    bool send(const QByteArray &payload);
    void writeAll(const QByteArray &bytes);
    void closeAll();
    // Boot-loader frames and the packet bytes behind an announcement; false when more bytes are needed.
    bool bootBytes(const quint8 *b, int size, int *pos);
    void bootFrame(const QByteArray &frame);
    void bootPacket();
    void bootAnswer(QByteArray bytes, double extraMs);
    void lineReceived(int bytes);
    Unit *findUnit(quint32 identifier);
    qint64 now() const { return m_clock->elapsedMs(); }

    int m_master = -1;
    int m_slave = -1; // held so the line does not hang up before the program opens it
    QString m_slavePath;
    QString m_linkPath;
    QSocketNotifier *m_notifier = nullptr;
    QByteArray m_input;

    SystemLinkClock m_systemClock;
    const LinkClock *m_clock = &m_systemClock;
    qint64 m_startMs = 0;
    QVector<Unit> m_units; // ordered by identifier: enumeration answers lowest first
    SimTelemetry m_telemetry;
    std::mt19937 m_noiseRng;
    QVector<SentValue> m_sentValues;

    QVector<CommandRun> m_commandsRun;
    int m_readsBeforeSilence = -1;
    bool m_noise = false;
    bool m_silent = false;
    int m_badCrcEvery = 0;
    int m_answerSequence = 0;

    struct BootState
    {
        quint32 device = 0; // in its boot loader and talking to us
        int pendingIndex = -1;
        qint64 lastBytesMs = 0;
        int pendingSize = 0;
        quint16 pendingCrc = 0;
        QByteArray pendingPacket;
        QVector<QByteArray> packets; // by index, this session
        BootFault fault = NoFault;
        int faultFrom = 0; // reception number where the fault starts
        int faultCount = 0;
        int received = 0;
        int acks = 0;
        int wakes = 0;
        quint32 flashedDevice = 0;
        QByteArray flashedHeader;
        QVector<QByteArray> flashedPackets;
    } m_boot;
    int m_lineBaud = 0;
    double m_packetWriteMs = 0;
    qint64 m_lineFreeNs = 0; // when the line has carried everything received so far
    QElapsedTimer m_lineClock;

    int m_masterFrames = 0;
    int m_badMasterCrcs = 0;
    int m_requests[CounterCount] = {};
    int m_answers[CounterCount] = {};
    int m_badCrcsSent = 0;
    int m_noiseBytes = 0;
    int m_textFrames = 0;
    int m_messages = 0;
    int m_alarms = 0;
};
