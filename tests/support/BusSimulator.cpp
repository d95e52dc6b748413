#include "tests/support/BusSimulator.h"

#include "link/LxCrc.h"
#include "link/LxFrame.h"
#include "tools/BootLoaderProtocol.h"

#include <QDebug>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {
quint32 readU32(const quint8 *p)
{
    return quint32(p[0]) | (quint32(p[1]) << 8) | (quint32(p[2]) << 16) | (quint32(p[3]) << 24);
}

void appendU16(QByteArray *out, quint16 v)
{
    out->append(char(v & 0xFF));
    out->append(char(v >> 8));
}

void appendU32(QByteArray *out, quint32 v)
{
    for (int i = 0; i < 4; ++i)
        out->append(char(v >> (8 * i)));
}

QByteArray answerHead(quint8 packetId, char type, quint32 identifier)
{
    QByteArray out;
    out.append(char(packetId));
    out.append(type);
    out.append('\0'); // count, set when the answer is complete
    appendU32(&out, identifier);
    return out;
}

void setCount(QByteArray *answer)
{
    (*answer)[2] = char(answer->size() - 3);
}

QString errnoText(const char *what)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(what), QString::fromLocal8Bit(std::strerror(errno)));
}
} // namespace

BusSimulator::BusSimulator(QObject *parent) : QObject(parent), m_noiseRng(1)
{
    addDefaultDevices();
}

BusSimulator::~BusSimulator()
{
    closeAll();
}

void BusSimulator::addDefaultDevices()
{
    // settings: the bytes from 0x0018 as the device holds them; factory: what a reset restores (the
    // same unless given). firmware: major, minor (identification answer bytes 23 and 24).
    const auto unit = [](quint32 id, quint16 hardware, quint8 kind, const char *name, quint8 extensions,
                         const QByteArray &settings, QVector<int> commands, quint8 fwMajor, quint8 fwMinor,
                         const QByteArray &factory = QByteArray()) {
        Unit u;
        u.identifier = id;
        u.hardware = hardware;
        u.kind = kind;
        u.name = QByteArray(name).left(12);
        u.extensionCount = extensions;
        u.extra1 = fwMajor;
        u.extra2 = fwMinor;
        u.registers = QByteArray(kRegisterCount, '\0');
        for (int i = 0; i < 4; ++i)
            u.registers[i] = char(id >> (8 * i));
        u.registers[4] = char(hardware & 0xFF);
        u.registers[5] = char(hardware >> 8);
        u.registers[6] = char(kind);
        u.factory = u.registers;
        u.registers.replace(kSettingsOffset, settings.size(), settings);
        const QByteArray &reset = factory.isEmpty() ? settings : factory;
        u.factory.replace(kSettingsOffset, reset.size(), reset);
        u.commands = std::move(commands);
        return u;
    };
    // Settings as each device's definition lays them out (little-endian). The receiver has been set up
    // by its pilot (PPM, 14 ms frames); the GPS runs firmware older than its definition asks for.
    Unit rx = unit(kReceiverId, 0x0203, 7, "RX Vexo R8", 2, QByteArray::fromHex("010e000a0000000001a401"),
                   {1, 2}, 1, 3, QByteArray::fromHex("0014000a0000000001a401"));
    m_units << rx;
    for (quint8 e = 1; e <= 2; ++e) {
        Unit sat = unit(e == 1 ? kSatelliteAId : kSatelliteBId, 0x0101, 3, e == 1 ? "RX Sat A" : "RX Sat B",
                        0, QByteArray(), {}, 1, 0);
        sat.parent = kReceiverId;
        sat.extensionIndex = e;
        m_units << sat;
    }
    m_units << unit(kGpsId, 0x0110, 1, "GPS Logger", 0,
                    // ... and the log was cleared on 2026-04-12 (20260412 at 0x20).
                    QByteArray::fromHex("0501000000000001"
                                        "3c263501"),
                    {1, 2}, 1, 1)
            << unit(kPowerId, 0x0120, 1, "Power Sensor", 0,
                    QByteArray::fromHex("068813"
                                        "4a01"
                                        "0000"
                                        "1e03"),
                    {1, 2}, 1, 0)
            << unit(kVarioId, 0x0130, 1, "Vario Alt", 0, QByteArray::fromHex("05ec01000001070000"), {1, 2}, 1,
                    1)
            << unit(kTemperatureId, 0x0140, 1, "Temp Sensor", 0, QByteArray::fromHex("0000e8033204"), {1}, 2,
                    0);
    std::sort(m_units.begin(), m_units.end(),
              [](const Unit &a, const Unit &b) { return a.identifier < b.identifier; });

    using S = SimTelemetry;
    const auto var = [](quint8 index, const char *label, const char *unit, quint8 type, quint8 decimals,
                        S::Quantity q) {
        S::Variable v;
        v.index = index;
        v.label = label;
        v.unit = unit;
        v.type = type;
        v.decimals = decimals;
        v.quantity = q;
        return v;
    };
    const QByteArray degreesC = QByteArray("\xB0"
                                           "C");
    S::Sensor rxs{kReceiverId,
                  rx.name,
                  {var(1, "Rx Voltage", "V", 1, 2, S::RxVoltage),
                   var(2, "Quality", "%", 1, 0, S::LinkQuality),
                   var(3, "Signal", "dBm", 1, 0, S::SignalStrength)},
                  "R",
                  {"Signal weak"}};
    S::Sensor gps{kGpsId,
                  "GPS Logger",
                  {var(1, "Latitude", "", 9, 0, S::Latitude), var(2, "Longitude", "", 9, 0, S::Longitude),
                   var(3, "Altitude", "m", 4, 1, S::GpsAltitude),
                   var(4, "Speed", "km/h", 4, 1, S::GroundSpeed),
                   var(5, "Satellites", "", 1, 0, S::Satellites), var(6, "Time", "", 5, 0, S::TimeOfDay)},
                  QByteArray(),
                  {"GPS fix ok", "GPS fix lost"}};
    S::Sensor power{kPowerId,
                    "Power Sensor",
                    {var(1, "Voltage", "V", 1, 2, S::PackVoltage), var(2, "Current", "A", 4, 1, S::Current),
                     var(3, "Capacity", "mAh", 8, 0, S::Capacity)},
                    "VC",
                    {"Battery low"}};
    S::Sensor vario{kVarioId,
                    "Vario Alt",
                    {var(1, "Altitude", "m", 4, 1, S::BaroAltitude), var(2, "Climb", "m/s", 1, 2, S::Climb),
                     var(3, "Pressure", "hPa", 12, 2, S::Pressure)},
                    "H",
                    {}};
    S::Sensor temperature{kTemperatureId,
                          "Temp Sensor",
                          {var(1, "Motor", degreesC.constData(), 1, 1, S::MotorTemperature),
                           var(2, "ESC", degreesC.constData(), 1, 1, S::EscTemperature)},
                          QByteArray(),
                          {"Motor hot"}};
    for (const S::Sensor &s : {rxs, gps, power, vario, temperature})
        m_telemetry.addSensor(s);
}

void BusSimulator::setClock(const LinkClock *clock)
{
    m_clock = clock ? clock : &m_systemClock;
}

void BusSimulator::setSeed(quint32 seed)
{
    m_telemetry.setSeed(seed);
    m_noiseRng.seed(seed);
}

bool BusSimulator::start(QString *error)
{
    const auto fail = [&](const QString &reason) {
        if (error)
            *error = reason;
        closeAll();
        return false;
    };
    if (m_master >= 0)
        return fail(QStringLiteral("already started"));
    m_master = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (m_master < 0)
        return fail(errnoText("posix_openpt"));
    char name[128] = {};
    if (::grantpt(m_master) != 0 || ::unlockpt(m_master) != 0 ||
        ::ptsname_r(m_master, name, sizeof name) != 0)
        return fail(errnoText("pseudo-terminal setup"));
    const int flags = ::fcntl(m_master, F_GETFL);
    if (flags < 0 || ::fcntl(m_master, F_SETFL, flags | O_NONBLOCK) != 0)
        return fail(errnoText("fcntl"));
    m_slavePath = QString::fromLocal8Bit(name);
    m_slave = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (m_slave < 0)
        return fail(errnoText("open slave"));
    // Raw from the start: no echo, no line editing, so the program sees exactly the bytes sent.
    termios tio;
    if (::tcgetattr(m_slave, &tio) != 0)
        return fail(errnoText("tcgetattr"));
    ::cfmakeraw(&tio);
    if (::tcsetattr(m_slave, TCSANOW, &tio) != 0)
        return fail(errnoText("tcsetattr"));
    m_notifier = new QSocketNotifier(m_master, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &BusSimulator::readMaster);
    m_startMs = now();
    return true;
}

bool BusSimulator::linkTo(const QString &symlinkPath, QString *error)
{
    if (m_slavePath.isEmpty() || m_master < 0) {
        if (error)
            *error = QStringLiteral("not started");
        return false;
    }
    const QFileInfo existing(symlinkPath);
    if (existing.isSymLink()) {
        QFile::remove(symlinkPath);
    } else if (existing.exists()) {
        if (error)
            *error = QStringLiteral("%1 exists and is not a link").arg(symlinkPath);
        return false;
    }
    if (::symlink(m_slavePath.toLocal8Bit().constData(), symlinkPath.toLocal8Bit().constData()) != 0) {
        if (error)
            *error = errnoText("symlink");
        return false;
    }
    m_linkPath = symlinkPath;
    return true;
}

void BusSimulator::closeAll()
{
    delete m_notifier;
    m_notifier = nullptr;
    if (m_master >= 0)
        ::close(m_master);
    if (m_slave >= 0)
        ::close(m_slave);
    m_master = -1;
    m_slave = -1;
    if (!m_linkPath.isEmpty() && QFileInfo(m_linkPath).symLinkTarget() == m_slavePath)
        QFile::remove(m_linkPath);
    m_linkPath.clear();
    m_input.clear();
}

void BusSimulator::unplug()
{
    if (m_master < 0)
        return;
    closeAll();
    emit pluggedOut();
}

const BusSimulator::Unit *BusSimulator::unit(quint32 identifier) const
{
    for (const Unit &u : m_units) {
        if (u.identifier == identifier)
            return &u;
    }
    return nullptr;
}

BusSimulator::Unit *BusSimulator::findUnit(quint32 identifier)
{
    for (Unit &u : m_units) {
        if (u.identifier == identifier)
            return &u;
    }
    return nullptr;
}

QByteArray BusSimulator::registers(quint32 identifier) const
{
    const Unit *u = unit(identifier);
    return u ? u->registers : QByteArray();
}

int BusSimulator::counterIndex(char type)
{
    switch (type) {
    case ':':
        return Telemetry;
    case '@':
        return Identify;
    case 'P':
        return KeepAlive;
    case 'W':
        return Read;
    case 'T':
        return Write;
    default:
        return -1;
    }
}

int BusSimulator::requestsSeen(char type) const
{
    const int i = counterIndex(type);
    return i < 0 ? 0 : m_requests[i];
}

int BusSimulator::answersSent(char type) const
{
    const int i = counterIndex(type);
    return i < 0 ? 0 : m_answers[i];
}

int BusSimulator::answersSent() const
{
    int n = 0;
    for (int a : m_answers)
        n += a;
    return n;
}

QString BusSimulator::statusLine() const
{
    return QStringLiteral("%1 frames %2 (bad CRC %3) | answers @ %4  P %5  : %6  W %7  T %8 | texts %9 "
                          "messages %10 alarms %11 | spoilt CRC %12 noise bytes %13")
        .arg(isPlugged() ? QStringLiteral("plugged") : QStringLiteral("unplugged"))
        .arg(m_masterFrames)
        .arg(m_badMasterCrcs)
        .arg(m_answers[Identify])
        .arg(m_answers[KeepAlive])
        .arg(m_answers[Telemetry])
        .arg(m_answers[Read])
        .arg(m_answers[Write])
        .arg(m_textFrames)
        .arg(m_messages)
        .arg(m_alarms)
        .arg(m_badCrcsSent)
        .arg(m_noiseBytes)
        .append(m_silent ? QStringLiteral(" | silent") : QString());
}

void BusSimulator::readMaster()
{
    char buffer[512];
    for (;;) {
        const ssize_t n = ::read(m_master, buffer, sizeof buffer);
        if (n > 0) {
            m_input.append(buffer, int(n));
            lineReceived(int(n));
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        // The line is gone (cannot happen while we hold the slave); stop watching rather than spin.
        qWarning() << "bus simulator: reading the pseudo-terminal failed:" << std::strerror(errno);
        if (m_notifier)
            m_notifier->setEnabled(false);
        break;
    }
    parseInput();
}

void BusSimulator::parseInput()
{
    const auto *b = reinterpret_cast<const quint8 *>(m_input.constData());
    const int size = m_input.size();
    int pos = 0;
    // Requests are answered at once, so a frame may close the line (unplug) while we are still here.
    while (m_master >= 0) {
        while (pos < size && b[pos] != LxFrame::kMasterStart && b[pos] != LxFrame::kMasterRequestStart &&
               b[pos] != BootLoaderProtocol::kHostStart && m_boot.pendingIndex < 0)
            ++pos;
        if (m_boot.pendingIndex >= 0 || (pos < size && b[pos] == BootLoaderProtocol::kHostStart)) {
            if (!bootBytes(b, size, &pos))
                break;
            continue;
        }
        if (size - pos < 3)
            break;
        const quint8 kind = b[pos + 1];
        const int length = b[pos + 2];
        if ((kind != 0x01 && kind != 0x03) || length < LxFrame::kMinLength) {
            ++pos;
            continue;
        }
        if (size - pos < length)
            break;
        if (LxCrc::compute(b + pos, length) != 0) {
            // Resume hunting one byte on: a good frame may start inside the bad one.
            ++m_badMasterCrcs;
            ++pos;
            continue;
        }
        masterFrame(b + pos, length);
        pos += length;
    }
    if (m_master >= 0)
        m_input.remove(0, pos);
}

void BusSimulator::masterFrame(const quint8 *frame, int length)
{
    ++m_masterFrames;
    const quint8 *payload = frame + 3;
    const int payloadLength = length - 5;
    if (frame[0] == LxFrame::kMasterRequestStart) {
        // The broadcast behind a kind-3 channel frame: a whole request, id first.
        request(payload, payloadLength);
        return;
    }
    if (payloadLength < 3 || payload[1] != LxFrame::kTypeChannels)
        return;
    const int rest = 3 + payload[2];
    if (frame[1] != 0x01 || payloadLength - rest < 2)
        return;
    // An addressed request rides behind the channel block; its id is the frame's packet id.
    QByteArray req;
    req.append(char(payload[0]));
    req.append(reinterpret_cast<const char *>(payload + rest), payloadLength - rest);
    request(reinterpret_cast<const quint8 *>(req.constData()), req.size());
}

void BusSimulator::request(const quint8 *req, int length)
{
    if (length < 3)
        return;
    const char type = char(req[1]);
    const int counter = counterIndex(type);
    if (counter >= 0)
        ++m_requests[counter];
    if (m_silent)
        return;
    const int dataLength = std::min<int>(req[2], length - 3);
    const quint8 *data = req + 3;
    const quint32 identifier = dataLength >= 4 ? readU32(data) : 0;
    if (identifier != 0 && inBootLoader(identifier))
        return; // its application is not running
    switch (type) {
    case ':':
        answerTelemetry(req[0]);
        break;
    case '@':
        answerIdentify(req[0], identifier, dataLength >= 5 ? data[4] : 0, identifier != 0);
        break;
    case 'P':
        if (dataLength >= 4)
            answerKeepAlive(req[0], identifier);
        break;
    case 'W':
        if (m_readsBeforeSilence == 0) {
            m_silent = true;
            return;
        }
        if (m_readsBeforeSilence > 0)
            --m_readsBeforeSilence;
        if (dataLength >= 4)
            answerRead(req[0], identifier, data + 4, dataLength - 4);
        break;
    case 'T':
        if (dataLength >= 5)
            answerWrite(req[0], identifier, data[4], data + 5, dataLength - 5);
        break;
    default:
        break;
    }
}

void BusSimulator::answerTelemetry(quint8 packetId)
{
    const SimTelemetry::Frame frame = m_telemetry.next(now() - m_startMs);
    if (frame.bytes.isEmpty())
        return;
    QByteArray payload;
    payload.append(char(packetId));
    payload.append(':');
    payload.append(char(frame.bytes.size()));
    payload.append(frame.bytes);
    if (!send(payload))
        return;
    switch (frame.kind) {
    case SimTelemetry::TextFrame:
        ++m_textFrames;
        break;
    case SimTelemetry::DataFrame:
        m_sentValues += frame.values;
        break;
    case SimTelemetry::MessageFrame:
        ++m_messages;
        break;
    case SimTelemetry::AlarmFrame:
        ++m_alarms;
        break;
    }
}

void BusSimulator::answerIdentify(quint8 packetId, quint32 identifier, quint8 extension, bool addressed)
{
    const Unit *who = nullptr;
    if (!addressed) {
        // Everybody is asked; the first device that has neither introduced itself nor been greeted by a
        // keep-alive lately speaks up. Having just answered, it leaves the next broadcasts to the others.
        const qint64 t = now();
        for (Unit &u : m_units) {
            const qint64 last = std::max(u.lastKeepAliveMs, u.lastIdentifiedMs);
            if (u.parent == 0 && !u.inBootLoader && (last < 0 || t - last >= kKeepAliveQuietMs)) {
                u.lastIdentifiedMs = t;
                who = &u;
                break;
            }
        }
    } else if (extension == 0) {
        who = unit(identifier);
    } else {
        for (const Unit &u : m_units) {
            if (u.parent == identifier && u.extensionIndex == extension)
                who = &u;
        }
    }
    if (!who)
        return;
    QByteArray payload = answerHead(packetId, '@', who->identifier);
    appendU16(&payload, who->hardware);
    payload.append(char(who->kind));
    payload.append(char(who->extensionCount));
    payload.append(who->name.left(12).leftJustified(12, '\0'));
    payload.append(char(who->extra1));
    payload.append(char(who->extra2));
    setCount(&payload);
    send(payload);
}

void BusSimulator::answerKeepAlive(quint8 packetId, quint32 identifier)
{
    Unit *u = findUnit(identifier);
    if (!u)
        return;
    u->lastKeepAliveMs = now();
    QByteArray payload = answerHead(packetId, 'P', identifier);
    setCount(&payload);
    send(payload);
}

void BusSimulator::answerRead(quint8 packetId, quint32 identifier, const quint8 *data, int length)
{
    const Unit *u = unit(identifier);
    if (!u)
        return;
    QByteArray payload = answerHead(packetId, 'W', identifier);
    for (int pos = 0; length - pos >= 3; pos += 3) {
        const quint16 address = quint16(data[pos] | (data[pos + 1] << 8));
        const int offset = address - kRegisterBase;
        const int room = kMaxAnswer - payload.size() - 3;
        if (room < 0)
            break;
        appendU16(&payload, address);
        if (offset < 0 || offset >= u->registers.size()) {
            // Not a register: the device confirms it as a command, and that ends the answer.
            payload.append('\0');
            break;
        }
        const int count = std::min({int(data[pos + 2]), int(u->registers.size()) - offset, room});
        payload.append(char(count));
        payload.append(u->registers.mid(offset, count));
    }
    setCount(&payload);
    send(payload);
}

void BusSimulator::answerWrite(quint8 packetId, quint32 identifier, quint8 flags, const quint8 *data,
                               int length)
{
    Unit *u = findUnit(identifier);
    if (!u)
        return;
    QByteArray payload = answerHead(packetId, 'T', identifier);
    payload.append(char(flags));
    int pos = 0;
    while (length - pos >= 3) {
        const quint16 address = quint16(data[pos] | (data[pos + 1] << 8));
        const int offset = address - kRegisterBase;
        const int count = std::min(int(data[pos + 2]), length - pos - 3);
        const quint8 *values = data + pos + 3;
        pos += 3 + count;
        appendU16(&payload, address);
        if (offset < 0 || offset >= u->registers.size()) {
            // A command (or a register it does not have): confirmed by its address alone, ending the answer.
            int value = 0;
            for (int i = count - 1; i >= 0; --i)
                value = (value << 8) | values[i];
            if (address >= kCommandBase)
                runCommand(u, address - kCommandBase, value);
            payload.append('\0');
            break;
        }
        // Registers 0x10..0x17 (identity) are read-only: the echo shows the device kept its own values.
        const int stored = std::min(count, int(u->registers.size()) - offset);
        for (int i = 0; i < stored; ++i) {
            if (offset + i >= kSettingsOffset)
                u->registers[offset + i] = char(values[i]);
        }
        if (stored > 0)
            emit registersWritten(u->identifier, address, u->registers.mid(offset, stored));
        payload.append(char(stored));
        payload.append(u->registers.mid(offset, stored));
    }
    // With both low flag bits set the master only wants its slot freed: identifier, no echo.
    if ((flags & 3) == 3)
        payload = answerHead(packetId, 'T', identifier);
    setCount(&payload);
    send(payload);
}

bool BusSimulator::runCommand(Unit *u, int command, int value)
{
    if (!u->commands.contains(command))
        return false;
    m_commandsRun.append({u->identifier, command, value});
    emit commandExecuted(u->identifier, command, value);
    // Command 1 of the receiver and the temperature sensor is their factory reset.
    if (command == 1 && (u->identifier == kReceiverId || u->identifier == kTemperatureId))
        u->registers = u->factory;
    return true;
}

void BusSimulator::addLargeDevice()
{
    Unit u;
    u.identifier = kLargeId;
    u.hardware = 0x01FF;
    u.kind = 1;
    u.name = "Large Test";
    u.registers.resize(256);
    for (int i = 0; i < u.registers.size(); ++i)
        u.registers[i] = char(i);
    u.factory = u.registers;
    m_units.append(u);
    std::sort(m_units.begin(), m_units.end(),
              [](const Unit &a, const Unit &b) { return a.identifier < b.identifier; });
}

bool BusSimulator::send(const QByteArray &payload)
{
    QByteArray out;
    if (m_noise) {
        // Line noise never holds a frame start, so it costs the receiver no frame, only hunting.
        const int n = 1 + int(m_noiseRng() % 6);
        for (int i = 0; i < n; ++i) {
            quint8 b = quint8(m_noiseRng());
            if (b >= LxFrame::kDeviceStart && b <= LxFrame::kMasterStart)
                b = quint8(b + 4);
            out.append(char(b));
        }
        m_noiseBytes += n;
    }
    QByteArray frame = LxFrame::buildDeviceFrame(payload);
    const bool spoil = m_badCrcEvery > 0 && ++m_answerSequence % m_badCrcEvery == 0;
    if (spoil) {
        frame[frame.size() - 1] = char(frame.at(frame.size() - 1) ^ 0x5A);
        ++m_badCrcsSent;
    }
    out.append(frame);
    writeAll(out);
    const int counter = counterIndex(payload.size() > 1 ? payload.at(1) : 0);
    if (counter >= 0)
        ++m_answers[counter];
    return !spoil;
}

void BusSimulator::writeAll(const QByteArray &bytes)
{
    const char *p = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0 && m_master >= 0) {
        const ssize_t n = ::write(m_master, p, size_t(left));
        if (n > 0) {
            p += n;
            left -= n;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else {
            // Nobody reads the line and its buffer is full: the rest is lost, as on a real bus.
            break;
        }
    }
}
