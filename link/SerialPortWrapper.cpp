#include "link/SerialPortWrapper.h"

#include "link/LinkMetaTypes.h"
#include "link/SerialPlatform.h"
#include "link/SerialReader.h"

#include <QDebug>
#include <QMetaEnum>
#include <QMutexLocker>
#include <QTimer>

#include <algorithm>

#ifndef Q_OS_WIN
#include <cerrno>
#include <unistd.h>
#endif

namespace {
// USB adapters the maker ships: (vendor, product).
const QPair<quint16, quint16> kAdapters[] = {{0x0483, 0x5840}, {0x0403, 0x6001}};

bool isKnownAdapter(const SerialPlatform::PortInfo &info)
{
    if (!info.hasUsbIds)
        return false;
    return std::any_of(std::begin(kAdapters), std::end(kAdapters),
                       [&](const auto &a) { return a.first == info.vendor && a.second == info.product; });
}

bool isFatal(QSerialPort::SerialPortError e)
{
    return e == QSerialPort::OpenError || e == QSerialPort::WriteError || e == QSerialPort::ReadError ||
           e == QSerialPort::ResourceError || e == QSerialPort::NotOpenError;
}

// Longest answer a device sends back, for the answer window after a request.
constexpr int kMaxAnswerFrame = LxFrame::kMaxRequest + 5;
// USB serial adapters hand received bytes over in batches, several milliseconds apart; an answer window
// shorter than that would drop answers that are merely on their way. An answer ends the wait at once.
constexpr qint64 kAdapterLatencyMs = 12;
// How long received telemetry may wait before it is handed on: well below what a window shows.
constexpr qint64 kTelemetryBatchMs = 20;
} // namespace

SerialPortWrapper::SerialPortWrapper(LinkClock *clock, QObject *parent)
    : QObject(parent), m_ownClock(clock ? nullptr : std::make_unique<SystemLinkClock>()),
      m_clock(clock ? clock : m_ownClock.get()), m_search(m_clock), m_protocol(this),
      m_engine(&m_protocol, this), m_receiver(this)
{
    registerLinkMetaTypes();
    std::fill(std::begin(m_channels), std::end(m_channels), LxFrame::kChannelCentre);
    m_readBuffer.resize(4096);
    connect(&m_protocol, &LxBusProtocol::commandConfirmed, this, &SerialPortWrapper::LxBusCommandConfirmed);
    connect(&m_protocol, &LxBusProtocol::valuesLoaded, this, &SerialPortWrapper::LxBusValuesLoaded);
    connect(&m_engine, &DeviceParameterEngine::writeFinished, this, &SerialPortWrapper::LxBusWriteFinished);
    connect(&m_engine, &DeviceParameterEngine::error, this, &SerialPortWrapper::LxBusError);
}

SerialPortWrapper::~SerialPortWrapper()
{
    stop();
}

QString SerialPortWrapper::portName() const
{
    QMutexLocker lock(&m_mutex);
    return m_port ? m_port->portName() : QString();
}

QString SerialPortWrapper::lastError() const
{
    QMutexLocker lock(&m_mutex);
    return m_lastError;
}

Vector<Device> SerialPortWrapper::devices() const
{
    QMutexLocker lock(&m_mutex);
    return m_protocol.devices();
}

int SerialPortWrapper::mode() const
{
    QMutexLocker lock(&m_mutex);
    return m_search.mode();
}

bool SerialPortWrapper::isPortOpen() const
{
    QMutexLocker lock(&m_mutex);
    return m_open;
}

int SerialPortWrapper::errorCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_errorCount;
}

int SerialPortWrapper::crcErrorCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_crcErrors;
}

SerialReader *SerialPortWrapper::currentReader() const
{
    QMutexLocker lock(&m_mutex);
    return readerFor(m_search.mode());
}

SerialReader *SerialPortWrapper::readerFor(int mode) const
{
    return (mode == UpdateReader || mode == TerminalBoxReader || mode == GpsLoggerReader) ? m_readers[mode]
                                                                                          : nullptr;
}

void SerialPortWrapper::setReader(int mode, SerialReader *reader)
{
    QMutexLocker lock(&m_mutex);
    if (mode == UpdateReader || mode == TerminalBoxReader || mode == GpsLoggerReader)
        m_readers[mode] = reader;
}

void SerialPortWrapper::setDriveScan(DriveScanner::Scan scan)
{
    QMutexLocker lock(&m_mutex);
    m_driveScanner.setScan(std::move(scan));
}

TransmitterInfoVector SerialPortWrapper::transmitters() const
{
    QMutexLocker lock(&m_mutex);
    return m_transmitters;
}

void SerialPortWrapper::addTransmitter(const TransmitterInfo &info)
{
    QMutexLocker lock(&m_mutex);
    for (const TransmitterInfo &t : qAsConst(m_transmitters)) {
        if (t.rootPath == info.rootPath)
            return;
    }
    m_transmitters << info;
    qDebug().noquote() << QStringLiteral("Transmitter added: %1, HW: %2, Version: %3.%4, Model: %5")
                              .arg(info.rootPath)
                              .arg(info.hwId)
                              .arg(info.versionMajor)
                              .arg(info.versionMinor)
                              .arg(info.modelName);
    emit transmitterAdded(info);
}

void SerialPortWrapper::removeTransmitter(const QString &rootPath)
{
    QMutexLocker lock(&m_mutex);
    for (int i = 0; i < m_transmitters.size(); ++i) {
        if (m_transmitters.at(i).rootPath == rootPath) {
            m_transmitters.remove(i);
            qDebug().noquote() << "Transmitter removed:" << rootPath;
            emit transmitterRemoved(rootPath);
            return;
        }
    }
}

void SerialPortWrapper::setEchoSkipping(bool skip)
{
    QMutexLocker lock(&m_mutex);
    m_receiver.setEchoSkipping(skip);
}

bool SerialPortWrapper::queueRead(quint32 deviceId, const QByteArray &data, quint8 limit)
{
    QMutexLocker lock(&m_mutex);
    return m_protocol.queueRead(deviceId, reinterpret_cast<const quint8 *>(data.constData()), data.size(),
                                limit);
}

bool SerialPortWrapper::queueWrite(quint32 deviceId, quint8 flags, const QByteArray &data, quint8 limit)
{
    QMutexLocker lock(&m_mutex);
    return m_protocol.queueWrite(deviceId, flags, reinterpret_cast<const quint8 *>(data.constData()),
                                 data.size(), limit);
}

void SerialPortWrapper::start()
{
    QMutexLocker lock(&m_mutex);
    if (m_port)
        return;
    m_port = new QSerialPort(this);
    connect(m_port, &QSerialPort::readyRead, this, &SerialPortWrapper::readResponse);
    connect(m_port, &QSerialPort::errorOccurred, this, &SerialPortWrapper::handleError);
    m_lastRead = m_lastFrameStep = m_clock->elapsedMs();
    m_search.restart();
    if (m_timerEnabled) {
        m_timer = new QTimer(this);
        m_timer->setTimerType(Qt::PreciseTimer);
        m_timer->setInterval(1);
        connect(m_timer, &QTimer::timeout, this, &SerialPortWrapper::tick);
        m_timer->start();
    }
}

void SerialPortWrapper::stop()
{
    QMutexLocker lock(&m_mutex);
    flushTelemetry(m_clock->elapsedMs());
    if (m_timer)
        m_timer->stop();
    if (m_port && m_port->isOpen())
        m_port->close();
    m_open = false;
}

void SerialPortWrapper::setOpen(bool open)
{
    if (m_open == open)
        return;
    m_open = open;
    // Without the port nobody answers: every device is gone until the bus is found again.
    if (!open)
        m_protocol.removeAllDevices();
    emit portOpenedStatus(open);
}

bool SerialPortWrapper::applySettings()
{
    if (!m_port)
        return false;
    bool ok = true;
    const int mode = m_search.mode();
    if (m_port->isOpen()) {
        const int baud = baudForMode(mode);
        if (baud)
            ok &= m_port->setBaudRate(baud);
        ok &= m_port->setDataBits(QSerialPort::Data8);
        ok &= m_port->setParity(QSerialPort::NoParity);
        ok &= m_port->setStopBits(QSerialPort::OneStop);
        ok &= m_port->setFlowControl(QSerialPort::NoFlowControl);
        if (!ok) {
            qDebug() << "Unable to set serial port parameters!";
            m_port->clearError();
        }
    }
    switch (mode) {
    case LxBus125k:
    case LxBus250k:
        m_protocol.reset();
        m_awaitedPacket = -1;
        m_lineFreeAt = 0;
        break;
    default:
        if (SerialReader *r = readerFor(mode))
            r->reset();
        break;
    }
    m_receiver.reset();
    qDebug().noquote() << QStringLiteral("Serial state: %1").arg(mode);
    return ok;
}

void SerialPortWrapper::advanceSearchMode()
{
    m_search.advance();
    applySettings();
}

// Closes the port before another is opened; the port object is made on first use. Returns whether it
// was open, so the caller announces a change only.
bool SerialPortWrapper::closeForReopen()
{
    if (!m_port)
        start();
    const bool wasOpen = m_open;
    if (m_port->isOpen())
        m_port->close();
    m_open = false;
    return wasOpen;
}

// The one way the port gets opened, by name or by the adapter search, once its name is set: for reading
// and writing, with the settings of the current mode. A port chosen by name stays open when a setting is
// refused, as the user asked for it; the search drops it and tries the next adapter. label: what the log
// line names.
SerialPortWrapper::OpenResult SerialPortWrapper::openPort(const QString &label, bool keepRefused,
                                                          QSerialPort::SerialPortError *why)
{
    if (!m_port->open(QIODevice::ReadWrite)) {
        *why = m_port->error();
        m_port->close();
        m_port->clearError();
        return OpenResult::Failed;
    }
    const bool settingsOk = applySettings();
    if (!settingsOk && !keepRefused) {
        m_port->close();
        return OpenResult::Failed;
    }
    qDebug().noquote() << QStringLiteral("Set Port : ") + label;
    m_open = true;
    m_crcErrors = 0;
    m_lastRead = m_lastFrameStep = m_clock->elapsedMs();
    m_search.restart();
    return settingsOk ? OpenResult::Opened : OpenResult::SettingsRefused;
}

int SerialPortWrapper::setSerialPort(const QString &name)
{
    QMutexLocker lock(&m_mutex);
    const bool wasOpen = closeForReopen();
    m_port->setPortName(name);
    int result = 0;
    if (!name.isEmpty()) {
        QSerialPort::SerialPortError why = QSerialPort::NoError;
        const OpenResult opened = openPort(name, true, &why);
        if (opened == OpenResult::Failed) {
            m_lastError = tr("Unable to open serial port %1").arg(name);
            if (why == QSerialPort::PermissionError) {
                const QString hint = SerialPlatform::permissionHint(name);
                if (!hint.isEmpty())
                    m_lastError += QStringLiteral(". ") + hint;
            }
            emit error();
        }
        result = opened == OpenResult::Opened ? 0 : 2;
    }
    if (m_open != wasOpen)
        emit portOpenedStatus(m_open);
    return result;
}

void SerialPortWrapper::setPortLister(PortLister lister)
{
    QMutexLocker lock(&m_mutex);
    m_portLister = std::move(lister);
}

void SerialPortWrapper::findDefaultSerialPort()
{
    QMutexLocker lock(&m_mutex);
    const bool wasOpen = closeForReopen();
    for (const SerialPlatform::PortInfo &info : m_portLister()) {
        if (!isKnownAdapter(info))
            continue;
        m_port->setPortName(info.location);
        QSerialPort::SerialPortError why = QSerialPort::NoError;
        if (openPort(QStringLiteral("%1 %2").arg(info.name, info.description), false, &why) !=
            OpenResult::Failed)
            break;
    }
    if (m_open != wasOpen)
        emit portOpenedStatus(m_open);
}

void SerialPortWrapper::fatalError(const QString &text)
{
    m_errorCount = 0;
    if (m_port && m_port->isOpen())
        m_port->close();
    m_lastError = text;
    setOpen(false);
    emit error();
}

void SerialPortWrapper::handleError(QSerialPort::SerialPortError e)
{
    QMutexLocker lock(&m_mutex);
    if (!m_open || e == QSerialPort::NoError)
        return;
    // The firmware updater waits for bytes and clears the port's buffers itself. A wait that ran out is no
    // fault of the line, nor is a read notification that finds its bytes already taken (the read returns
    // nothing): that one can still arrive just after the updater gave the port back. A line that is really
    // gone reports a resource error.
    if (e == QSerialPort::TimeoutError ||
        (e == QSerialPort::ReadError &&
         (m_search.updateMode() || m_clock->elapsedMs() < m_updaterReadsUntil))) {
        if (m_port)
            m_port->clearError();
        return;
    }
    const QString text = m_port ? m_port->errorString() : QString();
    // The 410th error in a row is one too many: the line is not usable.
    if (isFatal(e) || m_errorCount >= kErrorLimit - 1) {
        fatalError(tr("<b>Serial port error:</b><br>%1").arg(text));
        return;
    }
    ++m_errorCount;
    qDebug().noquote() << QStringLiteral("Serial error %1 %2 %3")
                              .arg(m_errorCount)
                              .arg(QString::fromLatin1(
                                       QMetaEnum::fromType<QSerialPort::SerialPortError>().valueToKey(e)),
                                   text);
    m_receiver.reset();
    if (m_port)
        m_port->clearError();
    if (m_errorCount % kErrorsPerModeChange == 0) {
        if (m_search.mode() == GpsLoggerReader) {
            m_errorCount = 0;
            if (SerialReader *r = readerFor(GpsLoggerReader))
                r->reset();
        } else {
            advanceSearchMode();
        }
    }
}

void SerialPortWrapper::readResponse()
{
    QMutexLocker lock(&m_mutex);
    if (!m_port || !m_port->isOpen())
        return;
    SerialReader *reader = readerFor(m_search.mode());
    if (reader && reader->wantsRawBytes()) {
        reader->readRaw(m_port);
        return;
    }
    for (;;) {
        const qint64 n = m_port->read(m_readBuffer.data(), m_readBuffer.size());
        if (n <= 0)
            break;
        m_lastRead = m_clock->elapsedMs();
        m_receiver.feed(reinterpret_cast<const quint8 *>(m_readBuffer.constData()), n);
    }
    if (m_answerFreedLine) {
        m_answerFreedLine = false;
        tickAfterAnswer();
    }
}

// The tick after an answer mostly sends the master frame alone (the poll toggle skips it), so it runs now,
// while the thread is awake anyway, and the tick after it keeps its place two milliseconds on: the bus keeps
// its pace with one wake-up fewer per poll. A controller keeps the plain 1 ms pace.
void SerialPortWrapper::tickAfterAnswer()
{
    if (!m_timer)
        return; // the ticks are driven from outside
    if (m_hasController) {
        if (m_timer->interval() != 1)
            m_timer->start(1);
        return;
    }
    runTick(2);
}

void SerialPortWrapper::deviceFrame(const quint8 *frame, int length, const quint8 *payload, int payloadLength)
{
    m_errorCount = 0;
    m_search.restart();
    if (m_paused)
        return;
    if (m_search.mode() == UpdateReader) {
        if (SerialReader *r = readerFor(UpdateReader))
            r->takeFrame(frame, length);
        return;
    }
    if (payloadLength >= 1 && payload[0] == m_awaitedPacket) {
        // The answer is in: the line is free for the next frame, once the bytes read so far are handled.
        m_awaitedPacket = -1;
        m_lineFreeAt = 0;
        m_answerFreedLine = true;
    }
    m_protocol.processAnswer(payload, payloadLength);
    quint8 record[8 + LxFrame::kMaxRequest + 1];
    int recordLength = 0;
    if (m_protocol.takeTelemetry(record + 8, &recordLength)) {
        const quint64 now = quint64(m_clock->epochMs());
        for (int i = 0; i < 8; ++i)
            record[i] = quint8(now >> (8 * i));
        m_telemetry.append(QByteArray(reinterpret_cast<const char *>(record), 8 + recordLength));
    }
}

void SerialPortWrapper::crcError(const quint8 *frame, int length)
{
    ++m_crcErrors;
    qDebug().noquote() << LxFrame::hexDump("CRC Error: ", frame, length, m_clock->epochMs());
}

void SerialPortWrapper::goodEcho()
{
    m_errorCount = 0;
}

// One master frame to the port. On Unix it goes straight to the descriptor: the port object's own
// buffered write costs an extra wake-up per frame, a thousand times a second.
bool SerialPortWrapper::writeFrame(int length)
{
#ifdef Q_OS_WIN
    if (m_port->write(reinterpret_cast<const char *>(m_frame), length) != length)
        return false;
    m_port->flush();
    return true;
#else
    if (m_port->bytesToWrite() == 0) {
        const ssize_t written = ::write(int(m_port->handle()), m_frame, size_t(length));
        if (written == length)
            return true;
        if (written < 0 && errno != EAGAIN && errno != EINTR)
            return false;
        if (written > 0) {
            // The driver took part of it: the rest follows through the port's own buffer.
            return m_port->write(reinterpret_cast<const char *>(m_frame) + written, length - written) ==
                   length - written;
        }
    }
    return m_port->write(reinterpret_cast<const char *>(m_frame), length) == length;
#endif
}

void SerialPortWrapper::sendMasterFrame(qint64 now)
{
    if (now < m_lineFreeAt)
        return;
    const int elapsed = int(std::min<qint64>(now - m_lastFrameStep, 60000));
    m_lastFrameStep = now;
    m_engine.tick(elapsed);
    m_protocol.tick(elapsed);
    int requestLength = 0;
    const quint8 *request = m_protocol.nextDueRequest(&requestLength);
    const int n =
        LxFrame::buildMasterFrame(m_frame, m_hasController ? m_channels : nullptr, request, requestLength);
    if (!writeFrame(n)) {
        fatalError(tr("<b>Serial port error:</b><br>%1").arg(m_port->errorString()));
        return;
    }
    const int baud = std::max(baudForMode(m_search.mode()), 9600);
    qint64 busyMs = (qint64(n) * 10 * 1000 + baud - 1) / baud;
    m_awaitedPacket = -1;
    if (request && requestLength >= 2) {
        m_awaitedPacket = request[0];
        busyMs += (qint64(kMaxAnswerFrame) * 10 * 1000 + baud - 1) / baud + kAdapterLatencyMs;
    }
    m_lineFreeAt = now + std::max<qint64>(busyMs, 1);
}

void SerialPortWrapper::tick()
{
    runTick(1);
}

// One tick; idleInterval: milliseconds to the next one when the line is free.
void SerialPortWrapper::runTick(int idleInterval)
{
    QMutexLocker lock(&m_mutex);
    const qint64 now = m_clock->elapsedMs();
    if (m_progress.takeReload()) {
        applySettings();
        m_search.restart();
    }
    if (m_joystick.hasJoystick() && m_joystick.poll(&m_axes)) {
        LxFrame::channelsFromAxes(m_axes, m_channels);
        emit joystickUpdated(m_axes);
    }
    m_hasController = m_joystick.hasJoystick();
    if (!m_open) {
        m_errorCount = 0;
    } else if (!m_port || !m_port->isOpen()) {
        m_lastError = tr("Serial port has been closed");
        setOpen(false);
        emit error();
    }
    if (m_open) {
        if (m_search.tick())
            applySettings();
        const int mode = m_search.mode();
        const qint64 elapsed = now - m_lastFrameStep;
        if (mode == UpdateReader || mode == TerminalBoxReader) {
            if (SerialReader *r = readerFor(mode))
                r->tick(elapsed, 0);
        } else if (mode == GpsLoggerReader) {
            if (SerialReader *r = readerFor(mode))
                r->tick(elapsed, 20);
        } else if (!m_paused) {
            sendMasterFrame(now);
        }
    }
    m_driveScanner.tick();
    int progress = 0;
    if (m_progress.takeChange(&progress))
        emit percentageChanged(progress);
    if (!m_telemetry.isEmpty() && now - m_telemetrySentAt >= kTelemetryBatchMs)
        flushTelemetry(now);
    scheduleNextTick(now, idleInterval);
}

void SerialPortWrapper::flushTelemetry(qint64 now)
{
    m_telemetrySentAt = now;
    for (const QByteArray &record : qAsConst(m_telemetry))
        emit telemetryReceived(record);
    m_telemetry.resize(0);
}

// The timer runs every millisecond while there is something to do. While the line is known to be busy
// (a frame still on the wire, an answer window open) a tick could only return, so the timer sleeps until
// the line is free; an answer that frees it early runs the next tick at once (tickAfterAnswer). A controller
// keeps the 1 ms pace.
void SerialPortWrapper::scheduleNextTick(qint64 now, int idleInterval)
{
    if (!m_timer)
        return;
    const int mode = m_search.mode();
    const bool busBusy = m_open && !m_paused && (mode == LxBus125k || mode == LxBus250k) &&
                         !m_hasController && m_lineFreeAt > now + 1;
    const int interval = busBusy ? int(std::min<qint64>(m_lineFreeAt - now, 50)) : idleInterval;
    if (m_timer->interval() != interval)
        m_timer->start(interval);
}

void SerialPortWrapper::selectMode(int mode)
{
    QMutexLocker lock(&m_mutex);
    if (mode < LxBus125k || mode > GpsLoggerReader || mode == Unchanged)
        return;
    if (m_search.select(mode))
        applySettings();
}

void SerialPortWrapper::setActiveDevice(const DeviceSettings &properties)
{
    QMutexLocker lock(&m_mutex);
    m_engine.setActive(properties);
}

void SerialPortWrapper::LxBusDeviceRead()
{
    QMutexLocker lock(&m_mutex);
    m_engine.readAll();
}

void SerialPortWrapper::LxBusDeviceWrite(const DevParamVector &params)
{
    QMutexLocker lock(&m_mutex);
    const QString refused = m_engine.write(params);
    if (!refused.isEmpty())
        emit LxBusError(refused);
}

bool SerialPortWrapper::LxBusDeviceExecCommand(int address, int value, int size, int flags)
{
    QMutexLocker lock(&m_mutex);
    return m_engine.command(address, value, size, flags);
}

void SerialPortWrapper::identifyDevice(quint32 identifier)
{
    QMutexLocker lock(&m_mutex);
    quint8 identify[8] = {0,
                          LxFrame::kTypeIdentify,
                          5,
                          quint8(identifier),
                          quint8(identifier >> 8),
                          quint8(identifier >> 16),
                          quint8(identifier >> 24),
                          0};
    m_protocol.queueRaw(identify, 8, 2);
}

void SerialPortWrapper::setUpdateMode(bool enabled)
{
    QMutexLocker lock(&m_mutex);
    qDebug() << "Setting updater mode" << enabled;
    if (enabled == m_search.updateMode())
        return;
    m_search.setUpdateMode(enabled);
    if (enabled) {
        if (m_search.mode() != UpdateReader)
            m_modeBeforeUpdate = m_search.mode();
        m_search.select(UpdateReader);
    } else {
        // Whatever the updater left half read is not bus traffic; the receiver hunts past the rest.
        m_receiver.reset();
        m_search.select(m_modeBeforeUpdate);
        m_updaterReadsUntil = m_clock->elapsedMs() + kUpdaterReadGraceMs;
    }
    applySettings();
}

void SerialPortWrapper::setVBMMode(bool enabled)
{
    QMutexLocker lock(&m_mutex);
    m_search.setTerminalBoxMode(enabled);
}

void SerialPortWrapper::setRGPSMode(bool enabled)
{
    QMutexLocker lock(&m_mutex);
    m_search.setGpsLoggerMode(enabled);
}

void SerialPortWrapper::detectJoysticks()
{
    QMutexLocker lock(&m_mutex);
    emit detectedJoysticks(m_joystick.detect());
}

void SerialPortWrapper::setJoystick(const QString &guid)
{
    QMutexLocker lock(&m_mutex);
    m_joystick.select(guid);
    m_hasController = m_joystick.hasJoystick();
    std::fill(std::begin(m_channels), std::end(m_channels), LxFrame::kChannelCentre);
}
