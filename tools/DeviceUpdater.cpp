#include "tools/DeviceUpdater.h"

#include "link/SerialPortWrapper.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFile>
#include <QMetaObject>
#include <QMutex>
#include <QSerialPort>
#include <QThread>

using namespace BootLoaderProtocol;

namespace {
struct Registrar
{
    Registrar() { qRegisterMetaType<UpdatingStatus>("UpdatingStatus"); }
};
} // namespace

DeviceUpdater::DeviceUpdater(SerialPortWrapper *link, QObject *parent) : QObject(parent), m_link(link)
{
    static Registrar registrar;
}

DeviceUpdater::~DeviceUpdater()
{
    // A run still going uses this object on the link's thread: stop it and wait for the link to be back.
    m_cancel.storeRelease(1);
    // (A link whose thread has ended will never run it; on the link's thread the run is not going on.)
    while (m_running->loadAcquire() != 0 && m_link->thread()->isRunning() &&
           QThread::currentThread() != m_link->thread())
        QThread::msleep(5);
    // The wrapper must not call a reader that is gone.
    if (m_link && m_link->currentReader() == this)
        m_link->setReader(SerialPortWrapper::UpdateReader, nullptr);
}

void DeviceUpdater::setOptions(const Options &options)
{
    m_options = options;
}

DeviceUpdater::Options DeviceUpdater::options() const
{
    return m_options;
}

BootLoaderProtocol::DeviceInfo DeviceUpdater::deviceInfo() const
{
    QMutexLocker lock(&m_statusMutex);
    return m_info;
}

UpdatingStatus DeviceUpdater::lastStatus() const
{
    QMutexLocker lock(&m_statusMutex);
    return m_status;
}

QString DeviceUpdater::resultText(Result result)
{
    switch (result) {
    case Succeeded:
        return tr("Update finished");
    case ConnectFailed:
    case PortClosed:
        return tr("Please reconnect your device to the USB Adapter.");
    case DeviceInfoFailed:
        return tr("Error getting device info");
    case ProgrammingFailed:
        return tr("The device could not be programmed. It waits in its boot loader: reconnect it and "
                  "start the update again.");
    case Busy:
        return tr("An update is already running.");
    case BadImage:
        return tr("Unable to open the update file.");
    case Cancelled:
        return tr("Update cancelled. The device waits in its boot loader: start the update again.");
    }
    return QString();
}

QString DeviceUpdater::connectedText(const DeviceInfo &info)
{
    const auto hex = [](quint16 v) { return QStringLiteral("%1").arg(v, 4, 16, QLatin1Char('0')).toUpper(); };
    return tr("Connected: ID = [%1:%2], Firmware ver.: <b>%3</b> <i>(HW=%4, BL=%5)</i>")
        .arg(hex(info.idHigh()), hex(info.idLow()), versionText(info.firmware))
        .arg(info.hardware)
        .arg(info.bootLoader);
}

bool DeviceUpdater::start(const FirmwareImage &image)
{
    if (!m_running->testAndSetAcquire(0, 1))
        return false;
    m_cancel.storeRelease(0);
    QMetaObject::invokeMethod(m_link, [this, image, running = m_running] {
        const Result r = updateSteps(image);
        emit finished(int(r)); // a slot may delete this object
        running->storeRelease(0);
    });
    return true;
}

bool DeviceUpdater::startDeviceInfo()
{
    if (!m_running->testAndSetAcquire(0, 1))
        return false;
    m_cancel.storeRelease(0);
    QMetaObject::invokeMethod(m_link, [this, running = m_running] {
        const Result r = infoSteps();
        emit finished(int(r));
        running->storeRelease(0);
    });
    return true;
}

DeviceUpdater::Result DeviceUpdater::run(const FirmwareImage &image)
{
    if (!m_running->testAndSetAcquire(0, 1))
        return Busy;
    m_cancel.storeRelease(0);
    const Result r = updateSteps(image);
    m_running->storeRelease(0);
    return r;
}

DeviceUpdater::Result DeviceUpdater::runDeviceInfo()
{
    if (!m_running->testAndSetAcquire(0, 1))
        return Busy;
    m_cancel.storeRelease(0);
    const Result r = infoSteps();
    m_running->storeRelease(0);
    return r;
}

void DeviceUpdater::requestDeviceUpdate(const QString &imagePath)
{
    QFile file(imagePath);
    FirmwareImage image;
    QString why;
    if (file.size() > FirmwareImage::kMaxImageBytes || !file.open(QIODevice::ReadOnly) ||
        !FirmwareImage::parse(file.readAll(), &image, &why)) {
        UpdatingStatus s;
        s.stage = UpdatingStatus::Failed;
        s.text = why.isEmpty() ? resultText(BadImage) : why;
        report(s);
        emit finished(int(BadImage));
        return;
    }
    if (!start(image))
        emit finished(int(Busy));
}

void DeviceUpdater::requestUpdateInfo()
{
    if (!startDeviceInfo())
        emit finished(int(Busy));
}

void DeviceUpdater::readRaw(QSerialPort *port)
{
    m_rx.append(port->readAll());
}

void DeviceUpdater::report(const UpdatingStatus &status)
{
    {
        QMutexLocker lock(&m_statusMutex);
        m_status = status;
    }
    emit updatingStatusChanged(status);
}

void DeviceUpdater::setProgress(int percent)
{
    if (percent == m_progress)
        return;
    m_progress = percent;
    emit percentageChanged(percent);
}

bool DeviceUpdater::portUsable() const
{
    return m_port && m_port->isOpen() && m_link->isPortOpen();
}

bool DeviceUpdater::enterUpdaterMode()
{
    m_link->setReader(SerialPortWrapper::UpdateReader, this);
    m_link->setUpdateMode(true);
    m_port = m_link->serialPort();
    m_rx.clear();
    m_progress = -1;
    return portUsable();
}

void DeviceUpdater::leaveUpdaterMode()
{
    m_link->setUpdateMode(false);
    m_link->setReader(SerialPortWrapper::UpdateReader, nullptr);
    m_port = nullptr;
}

DeviceUpdater::Result DeviceUpdater::updateSteps(const FirmwareImage &image)
{
    Result result = PortClosed;
    if (enterUpdaterMode()) {
        for (int round = 1; round <= qMax(1, m_options.programRuns); ++round) {
            result = connectDevice();
            if (result == Succeeded)
                result = getDeviceInfo();
            if (result == Succeeded)
                result = program(image);
            if (result == Succeeded)
                result = finish(image);
            if (result != Succeeded && cancelled())
                result = Cancelled;
            if (result != ProgrammingFailed || round >= m_options.programRuns)
                break;
            UpdatingStatus s;
            s.stage = UpdatingStatus::Retrying;
            s.text = tr("Error while programming the device. Retrying.");
            s.device = m_info;
            qDebug().noquote() << s.text;
            report(s);
        }
    }
    UpdatingStatus s;
    s.device = m_info;
    s.text = resultText(result);
    if (result == Succeeded) {
        s.stage = UpdatingStatus::Finished;
        setProgress(100);
    } else if (result == ConnectFailed || result == PortClosed) {
        s.stage = UpdatingStatus::Unreachable;
    } else if (result == DeviceInfoFailed) {
        s.stage = UpdatingStatus::InfoFailed;
    } else {
        s.stage = UpdatingStatus::Failed;
    }
    qDebug().noquote() << s.text;
    leaveUpdaterMode();
    report(s);
    return result;
}

DeviceUpdater::Result DeviceUpdater::infoSteps()
{
    Result result = PortClosed;
    if (enterUpdaterMode()) {
        result = connectDevice();
        if (result == Succeeded)
            result = getDeviceInfo();
        if (result != PortClosed && result != ConnectFailed) {
            bool lost = false;
            exchange(leaveRequest(m_info.identifier), kLeave, m_options.answerWindowMs, &lost);
        }
    }
    leaveUpdaterMode();
    if (result == ConnectFailed || result == PortClosed) {
        UpdatingStatus s;
        s.stage = UpdatingStatus::Unreachable;
        s.text = resultText(result);
        report(s);
    }
    return result;
}

QByteArray DeviceUpdater::exchange(const QByteArray &bytes, quint8 command, int windowMs, bool *portLost)
{
    *portLost = false;
    if (!portUsable()) {
        *portLost = true;
        return QByteArray();
    }
    // Whatever is still on its way belongs to an earlier try.
    m_port->clear();
    m_rx.clear();
    if (!portUsable()) { // a line that went away says so here
        *portLost = true;
        return QByteArray();
    }
    if (m_port->write(bytes) != bytes.size()) {
        *portLost = !portUsable();
        return QByteArray();
    }
    // Out on the line before the answer window opens: a long packet takes its time at the line's rate.
    while (m_port->bytesToWrite() > 0) {
        if (!m_port->waitForBytesWritten(windowMs) || !portUsable()) {
            *portLost = !portUsable();
            return QByteArray();
        }
    }
    m_port->flush();
    QElapsedTimer clock;
    clock.start();
    bool anything = false;
    QByteArray frame;
    for (;;) {
        if (cancelled())
            return QByteArray();
        if (!portUsable()) {
            *portLost = true;
            return QByteArray();
        }
        m_rx.append(m_port->readAll());
        anything = anything || !m_rx.isEmpty();
        while (BootLoaderProtocol::takeFrame(&m_rx, kLoaderStart, &frame)) {
            if (quint8(frame[1]) == command)
                return frame;
        }
        const qint64 left = windowMs - clock.elapsed();
        if (left <= 0)
            break;
        // A pause of at most pauseMs, over as soon as bytes come in.
        m_port->waitForReadyRead(int(qMin<qint64>(left, m_options.pauseMs)));
    }
    if (!anything)
        qDebug() << "No data";
    return QByteArray();
}

DeviceUpdater::Result DeviceUpdater::connectDevice()
{
    const QByteArray wake = wakeRequest(m_options.target);
    for (int attempt = 1; attempt <= m_options.connectAttempts; ++attempt) {
        qDebug() << "Update connect attempt:" << attempt;
        UpdatingStatus s;
        s.stage = UpdatingStatus::Connecting;
        s.attempt = attempt;
        report(s);
        bool lost = false;
        const QByteArray answer = exchange(wake, kWake, m_options.connectWaitMs, &lost);
        if (lost)
            return PortClosed;
        if (cancelled())
            return Cancelled;
        DeviceInfo info;
        if (answer.size() >= kWakeAnswerLength && decodeWakeAnswer(answer, &info) &&
            (m_options.target == 0 || info.identifier == m_options.target)) {
            QMutexLocker lock(&m_statusMutex);
            m_info = info;
            return Succeeded;
        }
    }
    return ConnectFailed;
}

DeviceUpdater::Result DeviceUpdater::getDeviceInfo()
{
    bool lost = false;
    const QByteArray answer =
        exchange(infoRequest(m_info.identifier), kDeviceInfo, m_options.answerWindowMs, &lost);
    if (lost)
        return PortClosed;
    DeviceInfo info;
    const bool ok = decodeInfoAnswer(answer, &info) && info.identifier == m_info.identifier;
    qDebug() << "Get device info:" << (ok ? "OK" : "NOT OK");
    if (!ok)
        return DeviceInfoFailed;
    {
        QMutexLocker lock(&m_statusMutex);
        m_info = info;
    }
    UpdatingStatus s;
    s.stage = UpdatingStatus::Connected;
    s.device = info;
    s.text = connectedText(info);
    report(s);
    emit detectedUpdateInfo(s.text);
    return Succeeded;
}

DeviceUpdater::Result DeviceUpdater::program(const FirmwareImage &image)
{
    const QVector<QByteArray> &packets = image.packets();
    const int count = packets.size();
    setProgress(0);
    for (int i = 0; i < count; ++i) {
        qDebug().noquote() << QStringLiteral("Packet %1 of %2").arg(i + 1).arg(count);
        UpdatingStatus s;
        s.stage = UpdatingStatus::Programming;
        s.packet = i + 1;
        s.packetCount = count;
        s.device = m_info;
        report(s);
        setProgress(i * 100 / count);
        // The announcement and the packet as stored go out in one write: one pass over the line.
        const QByteArray bytes = packetAnnouncement(quint16(i), packets[i]) + packets[i];
        bool done = false;
        for (int attempt = 1; attempt <= m_options.triesPerPacket && !done; ++attempt) {
            bool lost = false;
            const QByteArray answer = exchange(bytes, kPacket, m_options.answerWindowMs, &lost);
            if (lost)
                return PortClosed;
            if (cancelled())
                return Cancelled;
            Ack a;
            done = decodeAck(answer, &a) && a.index == quint16(i) && a.status == kValid;
        }
        if (!done)
            return ProgrammingFailed;
    }
    return Succeeded;
}

DeviceUpdater::Result DeviceUpdater::finish(const FirmwareImage &image)
{
    const QByteArray request =
        finishRequest(quint16(image.packetCount()), m_options.newVersion, image.header());
    for (int attempt = 1; attempt <= m_options.triesPerPacket; ++attempt) {
        bool lost = false;
        const QByteArray answer = exchange(request, kFinish, m_options.answerWindowMs, &lost);
        if (lost)
            return PortClosed;
        quint16 firmware = 0;
        quint8 status = kInvalid;
        if (decodeFinishAnswer(answer, &firmware, &status)) {
            if (status != kValid)
                return ProgrammingFailed; // the device misses packets: programme it again
            QMutexLocker lock(&m_statusMutex);
            m_info.firmware = firmware;
            return Succeeded;
        }
    }
    return ProgrammingFailed;
}
