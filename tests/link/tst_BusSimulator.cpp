// The bus simulator where the link tests do not reach it: answers at the edges of the register map, input
// that gets no answer, the port link, the telemetry framing with messages, and repeatable flights.
#include "link/LxCrc.h"
#include "link/LxFrame.h"
#include "link/LxReceiver.h"
#include "link/TelemetryDecoder.h"
#include "telemetry/TelemetryData.h"
#include "tests/support/BusSimulator.h"

#include <QSet>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <unistd.h>

namespace {
QByteArray hex(const char *text)
{
    return QByteArray::fromHex(text);
}

QByteArray le32(quint32 v)
{
    QByteArray b(4, '\0');
    qToLittleEndian(v, b.data());
    return b;
}

// A request or answer: id, type, count of the bytes behind it, then those bytes; most name a device first.
QByteArray packet(int id, char type, const QByteArray &data)
{
    return QByteArray(1, char(id)) + type + char(data.size()) + data;
}

QByteArray to(int id, char type, quint32 device, const QByteArray &rest = QByteArray())
{
    return packet(id, type, le32(device) + rest);
}

QByteArray keepAlive(int id, quint32 device)
{
    return to(id, 'P', device, hex("00"));
}

// The program's end of the line: master frames go in through the slave side, answers come out of it and
// are cut by the program's own receiver.
class Line : public LxReceiver::Handler
{
public:
    explicit Line(const QString &path)
        : m_fd(::open(path.toLocal8Bit().constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC))
    {
    }
    ~Line() override
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
        std::fill(std::begin(channels), std::end(channels), quint16(11000));
        const int n =
            LxFrame::buildMasterFrame(out, controller ? channels : nullptr,
                                      reinterpret_cast<const quint8 *>(request.constData()), request.size());
        return QByteArray(reinterpret_cast<const char *>(out), n);
    }
    // Serves events and reads until this many frames (good or spoilt) came in; the time limit only keeps a
    // broken simulator from hanging the test.
    bool waitFrames(int frames)
    {
        for (int i = 0; i < 10000 && total() < frames; ++i) {
            QTest::qWait(2);
            readAvailable();
        }
        return total() >= frames;
    }
    ssize_t readAvailable()
    {
        quint8 buffer[256];
        ssize_t n;
        while ((n = ::read(m_fd, buffer, sizeof buffer)) > 0)
            m_receiver.feed(buffer, n);
        return n;
    }
    int total() const { return payloads.size() + crcErrors; }

    QList<QByteArray> payloads;
    int crcErrors = 0;

private:
    void deviceFrame(const quint8 *frame, int length, const quint8 *payload, int payloadLength) override
    {
        QCOMPARE(LxCrc::compute(frame, length), quint16(0)); // a good frame checks to zero over its CRC
        payloads << QByteArray(reinterpret_cast<const char *>(payload), payloadLength);
    }
    void crcError(const quint8 *, int) override { ++crcErrors; }

    int m_fd;
    LxReceiver m_receiver{this};
};

// A request every simulator answers: sent last, its answer shows that everything before it was handled.
const QByteArray kSentinel = keepAlive(0xEE, BusSimulator::kGpsId);
const QByteArray kSentinelAnswer = to(0xEE, 'P', BusSimulator::kGpsId);
} // namespace

class tst_BusSimulator : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void answerAtTheEdges_data();
    void answerAtTheEdges();
    void ignored_data();
    void ignored();
    void portLink();
    void telemetryFraming();
    void sameSeedSameFlight();

private:
    QByteArray exchange(const QByteArray &request, bool controller = false)
    {
        const int before = m_line->total();
        m_line->writeRaw(Line::masterFrame(request, controller));
        return m_line->waitFrames(before + 1) && !m_line->payloads.isEmpty() ? m_line->payloads.takeFirst()
                                                                             : QByteArray();
    }

    std::unique_ptr<BusSimulator> m_sim;
    std::unique_ptr<Line> m_line;
};

void tst_BusSimulator::init()
{
    m_line.reset();
    m_sim = std::make_unique<BusSimulator>();
    QString error;
    QVERIFY2(m_sim->start(&error), qPrintable(error));
    m_line = std::make_unique<Line>(m_sim->portPath());
    QVERIFY(m_line->isOpen());
}

void tst_BusSimulator::answerAtTheEdges_data()
{
    QTest::addColumn<QByteArray>("request");
    QTest::addColumn<bool>("controller"); // the request rides behind the channel block
    QTest::addColumn<QByteArray>("answer");
    const quint32 vario = BusSimulator::kVarioId;
    const auto row = [vario](const char *name, char type, const char *asked, bool controller,
                             const char *told) {
        QTest::newRow(name) << to(0x26, type, vario, hex(asked)) << controller
                            << to(0x26, type, vario, hex(told));
    };
    // The vario's registers: identifier, hardware, kind, a spare byte, then its settings from 0x18
    // (climb threshold 5) and zeros past them.
    row("read two groups", 'W', "100004 170002", false, "100004 04a44000 170002 0005");
    row("read clipped at the end of the map", 'W', "2e0008", true, "2e0002 0000");
    row("read of a command address ends the answer", 'W', "000102 100001", false, "000100");
    row("write echoes what was stored", 'T', "00 180002 aabb", false, "00 180002 aabb");
    row("write with flag 3 only frees the slot", 'T', "03 180002 aabb", true, "");
    row("write of a command is confirmed", 'T', "01 01f000", false, "01 01f000");
    row("write clipped at the end of the map", 'T', "00 2f0003 010203", false, "00 2f0001 01");
}

void tst_BusSimulator::answerAtTheEdges()
{
    QFETCH(QByteArray, request);
    QFETCH(bool, controller);
    QFETCH(QByteArray, answer);
    QCOMPARE(exchange(request, controller).toHex(' '), answer.toHex(' '));
    QVERIFY(answer.size() <= LxFrame::kMaxRequest);
    QCOMPARE(m_sim->answersSent(request.at(1)), 1);
    QCOMPARE(m_sim->badMasterCrcs(), 0);
}

// Requests nobody answers, and garbage on the line: no answer, and the next good request is answered.
void tst_BusSimulator::ignored_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<int>("badCrcs");
    QTest::addColumn<bool>("silent");
    const quint32 unknown = 0x1234A400;
    const auto row = [](const char *name, const QByteArray &input, int badCrcs = 0, bool silent = false) {
        QTest::newRow(name) << input << badCrcs << silent;
    };
    const auto frame = [](const QByteArray &request) { return Line::masterFrame(request); };
    row("keep-alive to an unknown device", frame(keepAlive(1, unknown)));
    row("identify an extension beyond the count", frame(to(1, '@', BusSimulator::kReceiverId, hex("03"))));
    row("identify an extension of a plain sensor", frame(to(1, '@', BusSimulator::kGpsId, hex("01"))));
    row("channels only", Line::masterFrame(QByteArray(), true));
    row("keep-alive while silent", frame(keepAlive(1, BusSimulator::kGpsId)), 0, true);
    row("telemetry poll while silent", frame(packet(1, ':', QByteArray())), 0, true);
    QByteArray spoilt = frame(keepAlive(1, BusSimulator::kGpsId));
    spoilt[spoilt.size() - 1] = char(spoilt.at(spoilt.size() - 1) ^ 0x01);
    row("spoilt CRC", spoilt, 1);
    row("garbage", hex("00ff123b0131"));
    row("truncated frame", frame(keepAlive(1, BusSimulator::kGpsId)).left(7), 1);
    row("invalid kind", hex("3e070c0031"));
    row("length below minimum", hex("3e01050031"));
}

void tst_BusSimulator::ignored()
{
    QFETCH(QByteArray, input);
    QFETCH(int, badCrcs);
    QFETCH(bool, silent);
    m_sim->setSilent(silent);
    m_line->writeRaw(input);
    if (silent) {
        QTRY_VERIFY_WITH_TIMEOUT(m_sim->masterFrames() >= 1, 20000); // seen, not answered
        m_sim->setSilent(false);
    }
    QCOMPARE(exchange(kSentinel), kSentinelAnswer);
    QVERIFY(m_line->payloads.isEmpty());
    QCOMPARE(m_line->crcErrors, 0);
    QCOMPARE(m_sim->answersSent(), 1);
    QCOMPARE(m_sim->badMasterCrcs(), badCrcs);
}

// The link replaces only an older link, never a file; unplugging removes it and hangs up the line, once.
void tst_BusSimulator::portLink()
{
    QTemporaryDir dir;
    const QString plain = dir.filePath(QStringLiteral("plain"));
    QVERIFY(QFile(plain).open(QIODevice::WriteOnly));
    QString error;
    QVERIFY(!m_sim->linkTo(plain, &error));
    QVERIFY(!error.isEmpty() && QFileInfo(plain).isFile());
    const QString link = dir.filePath(QStringLiteral("ttyLX"));
    QVERIFY(QFile::link(dir.filePath(QStringLiteral("elsewhere")), link));
    QVERIFY(m_sim->linkTo(link));
    QCOMPARE(QFileInfo(link).symLinkTarget(), m_sim->portPath());

    QSignalSpy pluggedOut(m_sim.get(), &BusSimulator::pluggedOut);
    m_sim->unplug();
    m_sim->unplug();
    QCOMPARE(pluggedOut.count(), 1);
    QVERIFY(!QFileInfo(link).isSymLink());
    // The program's port reads end of file or an I/O error, as with a pulled USB adapter.
    QTRY_VERIFY_WITH_TIMEOUT(
        [this] {
            errno = 0;
            const ssize_t n = m_line->readAvailable();
            return n == 0 || (n < 0 && errno == EIO);
        }(),
        20000);
}

// Every sensor describes itself before its values and again later, for a listener that starts late; each
// frame fits one bus answer; the messages and alarms decode into the store.
void tst_BusSimulator::telemetryFraming()
{
    SimTelemetry sim = m_sim->telemetry();
    TelemetryData store;
    store.setLogging(true);
    TelemetryDecoder decoder(&store);
    decoder.setBatchInterval(0);
    QHash<quint32, QSet<int>> told;
    QHash<quint32, int> namesTold;
    int messages = 0;
    for (int i = 0; i < 4000; ++i) {
        const SimTelemetry::Frame f = sim.next(i * 10); // 40 s of flight
        QVERIFY(!f.bytes.isEmpty() && f.bytes.size() <= SimTelemetry::kMaxFrame);
        QByteArray record(8, '\0');
        qToLittleEndian<qint64>(1700000000000 + i * 10, record.data());
        decoder.decode(record + char(0x7E) + f.bytes);
        if (f.kind == SimTelemetry::TextFrame) {
            told[f.deviceId] << quint8(f.bytes.at(7));
            namesTold[f.deviceId] += f.bytes.at(7) == 0 ? 1 : 0;
        }
        for (const SimTelemetry::SentValue &v : f.values)
            QVERIFY(told[f.deviceId].contains(0) && told[f.deviceId].contains(v.index));
        messages += f.kind == SimTelemetry::MessageFrame ? 1 : 0;
    }
    int stored = 0;
    for (const TelemetryMessage &m : store.package().messages())
        stored += m.isAlarm() ? 0 : 1;
    QCOMPARE(stored, messages);
    QVERIFY(store.package().messages().size() > messages); // and alarms
    for (const SimTelemetry::Sensor &s : sim.sensors()) {
        QVERIFY(namesTold.value(s.identifier) >= 2);
        QCOMPARE(store.package().device(s.identifier)->vars().size(), s.variables.size());
    }
}

// The same seed flies the same flight, another seed another one.
void tst_BusSimulator::sameSeedSameFlight()
{
    const auto flight = [this](quint32 seed) {
        SimTelemetry sim = m_sim->telemetry();
        sim.setSeed(seed);
        QByteArray bytes;
        for (int i = 0; i < 600; ++i)
            bytes += sim.next(i * 100).bytes;
        return bytes;
    };
    QCOMPARE(flight(5), flight(5));
    QVERIFY(flight(5) != flight(6));
}

QTEST_GUILESS_MAIN(tst_BusSimulator)
#include "tst_BusSimulator.moc"
