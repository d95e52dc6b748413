#include "link/LinkClock.h"
#include "link/LxCrc.h"
#include "link/LxFrame.h"
#include "link/LxReceiver.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/BusSimulator.h"

#include <QElapsedTimer>
#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {
QByteArray bytes(std::initializer_list<int> list)
{
    QByteArray out;
    for (int b : list)
        out.append(char(b));
    return out;
}

QByteArray le32(quint32 v)
{
    return bytes({int(v & 0xFF), int((v >> 8) & 0xFF), int((v >> 16) & 0xFF), int(v >> 24)});
}

quint32 readU32(const QByteArray &b, int at)
{
    return quint32(quint8(b.at(at))) | quint32(quint8(b.at(at + 1))) << 8 |
           quint32(quint8(b.at(at + 2))) << 16 | quint32(quint8(b.at(at + 3))) << 24;
}

// A request or answer: id, type, count of the bytes behind it, then those bytes.
QByteArray packet(int id, char type, const QByteArray &data)
{
    return bytes({id, type, data.size()}) + data;
}

QByteArray keepAlive(int id, quint32 device, int extension = 0)
{
    return packet(id, 'P', le32(device) + bytes({extension}));
}

QByteArray identify(int id, quint32 device = 0, int extension = 0)
{
    return packet(id, '@', le32(device) + bytes({extension}));
}

QByteArray readRequest(int id, quint32 device, const QByteArray &groups)
{
    return packet(id, 'W', le32(device) + groups);
}

QByteArray writeRequest(int id, quint32 device, int flags, const QByteArray &groups)
{
    return packet(id, 'T', le32(device) + bytes({flags}) + groups);
}

QByteArray identity(int id, quint32 device, quint16 hardware, int kind, int extensions, const char *name,
                    int extra1 = 0)
{
    return packet(id, '@',
                  le32(device) + bytes({hardware & 0xFF, hardware >> 8, kind, extensions}) +
                      QByteArray(name).leftJustified(12, '\0') + bytes({extra1, 0}));
}

struct Collector : LxReceiver::Handler
{
    QList<QByteArray> payloads;
    int crcErrors = 0;
    void deviceFrame(const quint8 *frame, int length, const quint8 *payload, int payloadLength) override
    {
        // A good frame also checks to zero over its own CRC bytes.
        QCOMPARE(LxCrc::compute(frame, length), quint16(0));
        payloads << QByteArray(reinterpret_cast<const char *>(payload), payloadLength);
    }
    void crcError(const quint8 *, int) override { ++crcErrors; }
};

// The program's end of the line: master frames go in through the slave side, answers come out of it.
class Line
{
public:
    explicit Line(const QString &path)
    {
        m_fd = ::open(path.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    }
    ~Line()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    bool isOpen() const { return m_fd >= 0; }

    void writeRaw(const QByteArray &b)
    {
        QVERIFY(::write(m_fd, b.constData(), size_t(b.size())) == b.size());
    }
    // One master frame carrying the request (none when empty), with or without controller channels.
    static QByteArray masterFrame(const QByteArray &request, bool controller = false)
    {
        quint8 out[LxFrame::kMaxMasterFrame];
        quint16 channels[LxFrame::kControllerChannels];
        for (int i = 0; i < LxFrame::kControllerChannels; ++i)
            channels[i] = quint16(10000 + 500 * i);
        const int n =
            LxFrame::buildMasterFrame(out, controller ? channels : nullptr,
                                      reinterpret_cast<const quint8 *>(request.constData()), request.size());
        return QByteArray(reinterpret_cast<const char *>(out), n);
    }
    void send(const QByteArray &request, bool controller = false)
    {
        writeRaw(masterFrame(request, controller));
    }

    // Runs the event loop and reads until this many frames (good or spoilt) came in. The time limit
    // only keeps a broken simulator from hanging the test.
    bool waitFrames(int frames)
    {
        QElapsedTimer timer;
        timer.start();
        while (total() < frames) {
            if (timer.elapsed() > 20000)
                return false;
            QTest::qWait(2);
            readAvailable();
        }
        return true;
    }
    // Reads what is there; returns the last read() result.
    ssize_t readAvailable()
    {
        quint8 buffer[256];
        ssize_t n;
        while ((n = ::read(m_fd, buffer, sizeof buffer)) > 0)
            m_receiver.feed(buffer, n);
        return n;
    }
    int total() const { return m_collector.payloads.size() + m_collector.crcErrors; }
    const QList<QByteArray> &payloads() const { return m_collector.payloads; }
    int crcErrors() const { return m_collector.crcErrors; }
    QByteArray takeOne()
    {
        return m_collector.payloads.isEmpty() ? QByteArray() : m_collector.payloads.takeFirst();
    }

private:
    int m_fd = -1;
    Collector m_collector;
    LxReceiver m_receiver{&m_collector};
};

// A request answered by every simulator: sent last, its answer shows everything before it was handled.
QByteArray sentinel()
{
    return keepAlive(0xEE, BusSimulator::kGpsId);
}
} // namespace

class tst_BusSimulator : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void answerLayout_data();
    void answerLayout();
    void writeThenRead_data();
    void writeThenRead();
    void broadcastIdentification();
    void noAnswer_data();
    void noAnswer();
    void masterLineFaults_data();
    void masterLineFaults();
    void answerLineFaults_data();
    void answerLineFaults();
    void unplugHangsUp();
    void linkReplacesOnlyLinks();
    void telemetryDecodes_data();
    void telemetryDecodes();
    void sameSeedSameFlight();

private:
    // Sends one request and returns its single answer payload (empty on timeout).
    QByteArray exchange(const QByteArray &request, bool controller = false);

    ManualLinkClock m_clock;
    std::unique_ptr<BusSimulator> m_sim;
    std::unique_ptr<Line> m_line;
};

void tst_BusSimulator::init()
{
    m_clock = ManualLinkClock();
    m_sim = std::make_unique<BusSimulator>();
    m_sim->setClock(&m_clock);
    QString error;
    QVERIFY2(m_sim->start(&error), qPrintable(error));
    m_line = std::make_unique<Line>(m_sim->portPath());
    QVERIFY(m_line->isOpen());
}

void tst_BusSimulator::cleanup()
{
    m_line.reset();
    m_sim.reset();
}

QByteArray tst_BusSimulator::exchange(const QByteArray &request, bool controller)
{
    const int before = m_line->total();
    m_line->send(request, controller);
    if (!m_line->waitFrames(before + 1))
        return QByteArray();
    return m_line->takeOne();
}

void tst_BusSimulator::answerLayout_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<bool>("controller");
    QTest::addColumn<QByteArray>("answer");

    const quint32 gps = BusSimulator::kGpsId;
    const quint32 vario = BusSimulator::kVarioId;
    const QByteArray varioId = le32(vario);
    QTest::newRow("keep-alive") << keepAlive(0x21, gps) << false << packet(0x21, 'P', le32(gps));
    QTest::newRow("keep-alive of an extension, with controller")
        << keepAlive(0x22, BusSimulator::kSatelliteBId, 2) << true
        << packet(0x22, 'P', le32(BusSimulator::kSatelliteBId));
    QTest::newRow("identify a device")
        << identify(0x23, gps) << false << identity(0x23, gps, 0x0110, 1, 0, "GPS Logger");
    QTest::newRow("identify the receiver")
        << identify(0x24, BusSimulator::kReceiverId) << true
        << identity(0x24, BusSimulator::kReceiverId, 0x0203, 7, 2, "RX Vexo R8", 1);
    QTest::newRow("identify extension 2")
        << identify(0x25, BusSimulator::kReceiverId, 2) << false
        << identity(0x25, BusSimulator::kSatelliteBId, 0x0101, 3, 0, "RX Sat B");
    QTest::newRow("read two groups") << readRequest(0x26, vario, bytes({0x10, 0, 4, 0x17, 0, 2})) << false
                                     << packet(0x26, 'W',
                                               varioId + bytes({0x10, 0, 4}) + varioId +
                                                   bytes({0x17, 0, 2, 7, 8}));
    QTest::newRow("read clipped at the end of the map")
        << readRequest(0x27, vario, bytes({0x2E, 0, 8})) << true
        << packet(0x27, 'W', varioId + bytes({0x2E, 0, 2, 0x1E, 0x1F}));
    QTest::newRow("read of a command address ends the answer")
        << readRequest(0x28, vario, bytes({0x00, 0x01, 2, 0x10, 0, 1})) << false
        << packet(0x28, 'W', varioId + bytes({0x00, 0x01, 0}));
    QTest::newRow("write echoes what was stored")
        << writeRequest(0x29, vario, 0, bytes({0x18, 0, 2, 0xAA, 0xBB})) << false
        << packet(0x29, 'T', varioId + bytes({0, 0x18, 0, 2, 0xAA, 0xBB}));
    QTest::newRow("write with flag 3 only frees the slot")
        << writeRequest(0x2A, vario, 3, bytes({0x18, 0, 2, 0xAA, 0xBB})) << true
        << packet(0x2A, 'T', varioId);
    QTest::newRow("write of a command is confirmed")
        << writeRequest(0x2B, vario, 1, bytes({0x01, 0xF0, 0})) << false
        << packet(0x2B, 'T', varioId + bytes({1, 0x01, 0xF0, 0}));
    QTest::newRow("write clipped at the end of the map")
        << writeRequest(0x2C, vario, 0, bytes({0x2F, 0, 3, 1, 2, 3})) << false
        << packet(0x2C, 'T', varioId + bytes({0, 0x2F, 0, 1, 1}));
}

void tst_BusSimulator::answerLayout()
{
    QFETCH(QByteArray, request);
    QFETCH(bool, controller);
    QFETCH(QByteArray, answer);

    QCOMPARE(exchange(request, controller).toHex(' '), answer.toHex(' '));
    QVERIFY(answer.size() <= LxFrame::kMaxRequest);
    QCOMPARE(m_sim->answersSent(request.at(1)), 1);
    QCOMPARE(m_sim->badMasterCrcs(), 0);
}

void tst_BusSimulator::writeThenRead_data()
{
    QTest::addColumn<int>("flags");
    QTest::newRow("flags 0") << 0;
    QTest::newRow("flags 1") << 1;
    QTest::newRow("flags 2") << 2;
    QTest::newRow("flags 3") << 3;
}

void tst_BusSimulator::writeThenRead()
{
    QFETCH(int, flags);
    const quint32 power = BusSimulator::kPowerId;
    // A 32-bit parameter at 0x14 and a byte at 0x20, in one write.
    const QByteArray groups = bytes({0x14, 0, 4, 0x78, 0x56, 0x34, 0x12, 0x20, 0, 1, 0x99});
    const QByteArray gpsMap = m_sim->registers(BusSimulator::kGpsId);
    const QByteArray written = exchange(writeRequest(0x40, power, flags, groups));
    const QByteArray echo = flags == 3 ? QByteArray() : bytes({flags}) + groups;
    QCOMPARE(written.toHex(' '), packet(0x40, 'T', le32(power) + echo).toHex(' '));

    const QByteArray read = exchange(readRequest(0x41, power, bytes({0x14, 0, 4, 0x20, 0, 1})));
    QCOMPARE(read.toHex(' '), packet(0x41, 'W', le32(power) + groups).toHex(' '));
    const QByteArray map = m_sim->registers(power);
    QCOMPARE(map.mid(0x14 - BusSimulator::kRegisterBase, 4), bytes({0x78, 0x56, 0x34, 0x12}));
    QCOMPARE(map.at(0x20 - BusSimulator::kRegisterBase), char(0x99));
    // Other devices keep their own maps.
    QCOMPARE(m_sim->registers(BusSimulator::kGpsId), gpsMap);
}

void tst_BusSimulator::broadcastIdentification()
{
    const auto answerer = [this](int id) {
        const QByteArray a = exchange(identify(id));
        return a.size() == 25 && a.at(1) == '@' ? readU32(a, 3) : 0u;
    };
    // A device that has just introduced itself leaves the next broadcasts to the others.
    QCOMPARE(answerer(1), BusSimulator::kReceiverId);
    QCOMPARE(answerer(2), BusSimulator::kGpsId);
    // A keep-alive keeps a device quiet; greeting an extension quietens nobody else.
    QVERIFY(!exchange(keepAlive(3, BusSimulator::kReceiverId)).isEmpty());
    QVERIFY(!exchange(keepAlive(5, BusSimulator::kSatelliteAId, 1)).isEmpty());
    QCOMPARE(answerer(4), BusSimulator::kPowerId);
    QCOMPARE(answerer(6), BusSimulator::kVarioId);
    QCOMPARE(answerer(8), BusSimulator::kTemperatureId);
    // Five seconds after they last spoke or were greeted they take part again, lowest identifier first.
    m_clock.advance(BusSimulator::kKeepAliveQuietMs - 1);
    QCOMPARE(answerer(9), 0u);
    m_clock.advance(1);
    QCOMPARE(answerer(10), BusSimulator::kReceiverId);

    // With every device greeted the broadcast goes unanswered; extensions never answer it.
    for (quint32 id : {BusSimulator::kReceiverId, BusSimulator::kGpsId, BusSimulator::kPowerId,
                       BusSimulator::kVarioId, BusSimulator::kTemperatureId})
        QVERIFY(!exchange(keepAlive(11, id)).isEmpty());
    m_line->send(identify(12));
    QCOMPARE(exchange(sentinel()), packet(0xEE, 'P', le32(BusSimulator::kGpsId)));
    QCOMPARE(m_sim->requestsSeen('@'), 8);
    QCOMPARE(m_sim->answersSent('@'), 6);
}

void tst_BusSimulator::noAnswer_data()
{
    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<bool>("silent");

    const quint32 unknown = 0x1234A400;
    QTest::newRow("keep-alive to an unknown device") << Line::masterFrame(keepAlive(1, unknown)) << false;
    QTest::newRow("read from an unknown device")
        << Line::masterFrame(readRequest(1, unknown, bytes({0x10, 0, 1}))) << false;
    QTest::newRow("write to an unknown device")
        << Line::masterFrame(writeRequest(1, unknown, 0, bytes({0x10, 0, 1, 5}))) << false;
    QTest::newRow("identify an unknown device") << Line::masterFrame(identify(1, unknown)) << false;
    QTest::newRow("identify an extension beyond the count")
        << Line::masterFrame(identify(1, BusSimulator::kReceiverId, 3)) << false;
    QTest::newRow("identify an extension of a plain sensor")
        << Line::masterFrame(identify(1, BusSimulator::kGpsId, 1)) << false;
    QTest::newRow("channels only") << Line::masterFrame(QByteArray(), true) << false;
    QTest::newRow("keep-alive while silent") << Line::masterFrame(keepAlive(1, BusSimulator::kGpsId)) << true;
    QTest::newRow("telemetry poll while silent") << Line::masterFrame(packet(1, ':', QByteArray())) << true;
}

void tst_BusSimulator::noAnswer()
{
    QFETCH(QByteArray, frame);
    QFETCH(bool, silent);

    m_sim->setSilent(silent);
    m_line->writeRaw(frame);
    if (silent) {
        // Seen but not answered; then the bus speaks again.
        // A broadcast travels as two frames: the channel frame (kind 3) and the request behind it.
        const int frames = frame.at(1) == 0x03 ? 2 : 1;
        QTRY_VERIFY_WITH_TIMEOUT(m_sim->masterFrames() >= frames, 20000);
        m_sim->setSilent(false);
    }
    QCOMPARE(exchange(sentinel()), packet(0xEE, 'P', le32(BusSimulator::kGpsId)));
    QVERIFY(m_line->payloads().isEmpty());
    QCOMPARE(m_line->crcErrors(), 0);
    QCOMPARE(m_sim->answersSent(), 1);
    QCOMPARE(m_sim->badMasterCrcs(), 0);
}

void tst_BusSimulator::masterLineFaults_data()
{
    QTest::addColumn<QByteArray>("garbage");
    QTest::addColumn<int>("badCrcs");

    QByteArray spoilt = Line::masterFrame(keepAlive(1, BusSimulator::kGpsId));
    spoilt[spoilt.size() - 1] = char(spoilt.at(spoilt.size() - 1) ^ 0x01);
    QTest::newRow("spoilt CRC") << spoilt << 1;
    QTest::newRow("garbage") << bytes({0x00, 0xFF, 0x12, 0x3B, 0x01, 0x31}) << 0;
    QTest::newRow("truncated frame") << Line::masterFrame(keepAlive(1, BusSimulator::kGpsId)).left(7) << 1;
    QTest::newRow("truncated broadcast") << Line::masterFrame(identify(1)).left(16) << 1;
    QTest::newRow("invalid kind") << bytes({0x3E, 0x07, 0x0C, 0x00, 0x31}) << 0;
    QTest::newRow("length below minimum") << bytes({0x3E, 0x01, 0x05, 0x00, 0x31}) << 0;
}

void tst_BusSimulator::masterLineFaults()
{
    QFETCH(QByteArray, garbage);
    QFETCH(int, badCrcs);

    m_line->writeRaw(garbage);
    // The simulator finds the next good frame after whatever came before it.
    QCOMPARE(exchange(sentinel()), packet(0xEE, 'P', le32(BusSimulator::kGpsId)));
    QCOMPARE(m_sim->badMasterCrcs(), badCrcs);
    QCOMPARE(m_sim->answersSent(), 1);
    QVERIFY(m_line->payloads().isEmpty());
}

void tst_BusSimulator::answerLineFaults_data()
{
    QTest::addColumn<bool>("noise");
    QTest::addColumn<int>("badCrcEvery");
    QTest::addColumn<int>("spoilt");

    QTest::newRow("clean") << false << 0 << 0;
    QTest::newRow("every third CRC spoilt") << false << 3 << 10;
    QTest::newRow("noise") << true << 0 << 0;
    QTest::newRow("noise and every fourth CRC spoilt") << true << 4 << 7;
}

void tst_BusSimulator::answerLineFaults()
{
    QFETCH(bool, noise);
    QFETCH(int, badCrcEvery);
    QFETCH(int, spoilt);

    m_sim->setNoise(noise);
    m_sim->setBadCrcEvery(badCrcEvery);
    const int requests = 30;
    for (int i = 0; i < requests; ++i)
        m_line->send(keepAlive(i, BusSimulator::kPowerId));
    QVERIFY(m_line->waitFrames(requests));

    QCOMPARE(m_line->crcErrors(), spoilt);
    QCOMPARE(m_sim->badCrcsSent(), spoilt);
    QCOMPARE(m_sim->answersSent('P'), requests);
    QCOMPARE(m_sim->noiseBytesSent() > 0, noise);
    // Every answer not spoilt on purpose arrives intact, in order.
    QList<int> expected;
    for (int i = 1; i <= requests; ++i) {
        if (badCrcEvery == 0 || i % badCrcEvery != 0)
            expected << i - 1;
    }
    QList<int> ids;
    for (const QByteArray &p : m_line->payloads()) {
        QCOMPARE(p.mid(1), packet(0, 'P', le32(BusSimulator::kPowerId)).mid(1));
        ids << quint8(p.at(0));
    }
    QCOMPARE(ids, expected);
}

void tst_BusSimulator::unplugHangsUp()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString link = dir.filePath(QStringLiteral("ttyLX"));
    QVERIFY(m_sim->linkTo(link));
    QCOMPARE(QFileInfo(link).symLinkTarget(), m_sim->portPath());
    QVERIFY(!exchange(keepAlive(1, BusSimulator::kGpsId)).isEmpty());

    QSignalSpy pluggedOut(m_sim.get(), &BusSimulator::pluggedOut);
    m_sim->unplug();
    QCOMPARE(pluggedOut.count(), 1);
    QVERIFY(!m_sim->isPlugged());
    QVERIFY(!QFileInfo(link).isSymLink());
    // The program's port reads end of file or an I/O error, as with a pulled USB adapter.
    QTRY_VERIFY_WITH_TIMEOUT(
        [this] {
            errno = 0;
            const ssize_t n = m_line->readAvailable();
            return n == 0 || (n < 0 && errno == EIO);
        }(),
        20000);
    m_sim->unplug();
    QCOMPARE(pluggedOut.count(), 1);
}

void tst_BusSimulator::linkReplacesOnlyLinks()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString link = dir.filePath(QStringLiteral("ttyLX"));
    QVERIFY(QFile::link(dir.filePath(QStringLiteral("elsewhere")), link));
    QVERIFY(m_sim->linkTo(link));
    QCOMPARE(QFileInfo(link).symLinkTarget(), m_sim->portPath());

    const QString plain = dir.filePath(QStringLiteral("plain"));
    QFile file(plain);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    QString error;
    QVERIFY(!m_sim->linkTo(plain, &error));
    QVERIFY(!error.isEmpty());
    QVERIFY(QFileInfo(plain).isFile());
}

void tst_BusSimulator::telemetryDecodes_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<bool>("controller");
    QTest::newRow("seed 1") << 1u << false;
    QTest::newRow("seed 7, with controller") << 7u << true;
}

void tst_BusSimulator::telemetryDecodes()
{
    QFETCH(quint32, seed);
    QFETCH(bool, controller);

    m_sim->setSeed(seed);
    TelemetryData store;
    store.setLogging(true);
    TelemetryDecoder decoder(&store);
    decoder.setBatchInterval(0);

    const QVector<SimTelemetry::Sensor> &sensors = m_sim->telemetry().sensors();
    QHash<quint32, QSet<int>> told;
    QHash<quint32, int> namesTold;
    QList<quint32> firstSpeakers;
    const int polls = 500;
    for (int i = 0; i < polls; ++i) {
        // 50 ms of flight per poll: long enough for the ten-second text repeat to come round.
        m_clock.advance(50);
        const QByteArray a = exchange(packet(i & 0xFF, ':', QByteArray()), controller);
        QVERIFY2(!a.isEmpty(), "every poll is answered by one device");
        QCOMPARE(quint8(a.at(0)), quint8(i & 0xFF));
        QCOMPARE(a.at(1), ':');
        QCOMPARE(quint8(a.at(2)), quint8(a.size() - 3));
        QVERIFY(a.size() >= 6 && a.size() <= LxFrame::kMaxRequest);
        const QByteArray frame = a.mid(3);
        const quint8 marker = quint8(frame.at(0));

        QByteArray record(8, '\0');
        qToLittleEndian<qint64>(1700000000000 + i, record.data());
        record += char(0x7E) + frame;
        decoder.decode(record);

        if ((marker & 0x0F) != 0x0F) {
            QCOMPARE(frame.at(1), '#');
            continue;
        }
        QVERIFY(frame.size() >= 8);
        const quint32 id = readU32(frame, 2);
        QCOMPARE((id >> 8) & 0xFF, 0xA4u);
        QCOMPARE(quint8(frame.at(1)) & 0x3F, frame.size() - 1);
        if (firstSpeakers.size() < sensors.size())
            firstSpeakers << id;
        const int frameType = quint8(frame.at(1)) >> 6;
        if (frameType == 0) {
            told[id] << quint8(frame.at(7));
            if (frame.at(7) == 0)
                ++namesTold[id];
        } else if (frameType == 1) {
            // Values only after the device and all its variables were described.
            for (const SimTelemetry::Sensor &s : sensors) {
                if (s.identifier != id)
                    continue;
                QVERIFY(told[id].contains(0));
                for (const SimTelemetry::Variable &v : s.variables)
                    QVERIFY2(told[id].contains(v.index), qPrintable(QString::fromLatin1(v.label)));
            }
        } else {
            QCOMPARE(frameType, 2);
        }
    }
    // Round robin: the first polls go to every sensor once.
    QCOMPARE(QSet<quint32>(firstSpeakers.begin(), firstSpeakers.end()).size(), sensors.size());

    // The store holds exactly what was sent, described as the devices described it.
    QHash<QPair<quint32, quint32>, QVector<SimTelemetry::SentValue>> sent;
    for (const SimTelemetry::SentValue &v : m_sim->sentValues())
        sent[qMakePair(v.deviceId, quint32(v.index))] << v;
    QVERIFY(!sent.isEmpty());
    bool negative = false;
    for (const SimTelemetry::Sensor &s : sensors) {
        QVERIFY(namesTold.value(s.identifier) >= 2);
        const TelemetrySensor *device = store.package().device(s.identifier);
        QVERIFY(device);
        QCOMPARE(device->name(), QString::fromLatin1(s.name));
        for (const SimTelemetry::Variable &v : s.variables) {
            const TelemetryVar *var = device->var(v.index);
            QVERIFY(var);
            QCOMPARE(var->label(), QString::fromLatin1(v.label));
            QCOMPARE(var->unit(), QString::fromLatin1(v.unit));
            const QVector<SimTelemetry::SentValue> values =
                sent.value(qMakePair(s.identifier, quint32(v.index)));
            QVERIFY2(!values.isEmpty(), qPrintable(QString::fromLatin1(v.label)));
            QCOMPARE(var->values().size(), values.size());
            for (int i = 0; i < values.size(); ++i) {
                const TelemetryValue &got = var->values().at(i);
                QCOMPARE(got.type, quint32(values.at(i).type));
                QCOMPARE(got.value, values.at(i).value);
                QCOMPARE(got.decimals, quint32(values.at(i).decimals));
                negative = negative || got.value < 0;
            }
        }
    }
    QVERIFY2(negative, "the flight exercises negative values");
    int messages = 0;
    for (const TelemetryMessage &m : store.package().messages())
        messages += m.isAlarm() ? 0 : 1;
    QCOMPARE(messages, m_sim->messagesSent());
    QVERIFY(m_sim->messagesSent() + m_sim->alarmsSent() > 0);
}

void tst_BusSimulator::sameSeedSameFlight()
{
    // Two runs with the same seed and the same clock send the same bytes; another seed does not.
    const auto flight = [](quint32 seed) {
        ManualLinkClock clock;
        BusSimulator sim;
        sim.setClock(&clock);
        sim.setSeed(seed);
        QList<QByteArray> answers;
        if (!sim.start())
            return answers;
        Line line(sim.portPath());
        for (int i = 0; i < 120 && line.isOpen(); ++i) {
            clock.advance(100);
            line.send(packet(i, ':', QByteArray()));
            if (!line.waitFrames(i + 1))
                break;
        }
        return line.payloads();
    };
    const QList<QByteArray> first = flight(5);
    QCOMPARE(first.size(), 120);
    QCOMPARE(flight(5), first);
    QVERIFY(flight(6) != first);
}

QTEST_GUILESS_MAIN(tst_BusSimulator)
#include "tst_BusSimulator.moc"
