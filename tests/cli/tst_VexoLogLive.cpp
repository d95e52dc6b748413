// vexo-log record and devices against the vexo-bus-sim program, as a pilot without hardware runs them.
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/VexoLogRunner.h"

#include <csignal>

namespace {
using VexoLogRunner::Result;

Result run(const QStringList &args, int timeoutMs = 60000)
{
    return VexoLogRunner::run(args, timeoutMs);
}
} // namespace

class tst_VexoLogLive : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void devicesListed();
    void recordForSomeSeconds();
    void recordStoppedWithCtrlC();
    void recordKeepsDataWhenUnplugged();
    void portThatCannotBeOpened_data();
    void portThatCannotBeOpened();

private:
    bool startSimulator(const QStringList &extra = {});

    QTemporaryDir m_dir;
    QProcess m_sim;
    QString m_port;
};

bool tst_VexoLogLive::startSimulator(const QStringList &extra)
{
    m_port = m_dir.filePath("ttyLX");
    m_sim.start(QStringLiteral(VEXO_BUS_SIM_BINARY), QStringList{"--link", m_port, "--quiet"} + extra);
    if (!m_sim.waitForStarted(10000))
        return false;
    // The first line names the pseudo-terminal; the link exists from then on.
    for (int i = 0; i < 100 && !m_sim.canReadLine(); ++i)
        m_sim.waitForReadyRead(100);
    return m_sim.canReadLine() && QFileInfo::exists(m_port);
}

void tst_VexoLogLive::init()
{
    QVERIFY(m_dir.isValid());
}

void tst_VexoLogLive::cleanup()
{
    if (m_sim.state() != QProcess::NotRunning) {
        m_sim.terminate();
        if (!m_sim.waitForFinished(5000))
            m_sim.kill();
        m_sim.waitForFinished();
    }
}

void tst_VexoLogLive::devicesListed()
{
    QVERIFY(startSimulator());
    const Result r = run({"devices", "--port", m_port, "--seconds", "4"});
    QCOMPARE(r.code, 0);
    const QString text = QString::fromUtf8(r.out);
    QVERIFY2(text.startsWith(QStringLiteral("7 devices on ")), r.out.constData());
    // Identifiers in upper-case hexadecimal, with name and hardware; extensions name their device.
    QVERIFY2(text.contains(QStringLiteral("10A401")), r.out.constData());
    QVERIFY(text.contains(QStringLiteral("GPS Logger")));
    QVERIFY(text.contains(QStringLiteral("extension 1 of 10A401")));
    QVERIFY(text.contains(QStringLiteral("2 extensions")));
}

void tst_VexoLogLive::recordForSomeSeconds()
{
    QVERIFY(startSimulator());
    const QString log = m_dir.filePath("flight.log");
    const Result r = run({"record", "--port", m_port, "--seconds", "4", "--out", log});
    QVERIFY2(r.code == 0, r.err.constData());
    QVERIFY(r.out.contains("device 10A401"));
    QVERIFY(r.out.contains("records"));
    QVERIFY(r.out.contains("wrote "));
    const Result info = run({"info", log});
    QCOMPARE(info.code, 0);
    QVERIFY2(info.out.contains("GPS Logger"), info.out.constData());
    const QByteArray samples = info.out.mid(info.out.indexOf("Samples:") + 8).split('\n').value(0).trimmed();
    QVERIFY2(samples.toLongLong() > 100, info.out.constData());
}

void tst_VexoLogLive::recordStoppedWithCtrlC()
{
    QVERIFY(startSimulator());
    const QString log = m_dir.filePath("interrupted.log");
    QProcess rec;
    rec.start(QStringLiteral(VEXO_LOG_BINARY), {"record", "--port", m_port, "--out", log});
    QVERIFY(rec.waitForStarted());
    QByteArray out;
    // Wait for a status line with samples in it, then interrupt as Ctrl+C would.
    for (int i = 0; i < 200 && !out.contains("samples 1") && !out.contains("samples 2"); ++i) {
        rec.waitForReadyRead(100);
        out += rec.readAllStandardOutput();
    }
    QVERIFY2(out.contains("samples"), out.constData());
    ::kill(pid_t(rec.processId()), SIGINT);
    QVERIFY(rec.waitForFinished(20000));
    out += rec.readAllStandardOutput();
    QCOMPARE(rec.exitCode(), 0);
    QVERIFY2(out.contains("(interrupted)"), out.constData());
    QVERIFY(QFileInfo(log).size() > 100);
    QCOMPARE(run({"info", log}).code, 0);
}

void tst_VexoLogLive::recordKeepsDataWhenUnplugged()
{
    QVERIFY(startSimulator({"--unplug-after", "3"}));
    const QString log = m_dir.filePath("unplugged.log");
    const Result r = run({"record", "--port", m_port, "--seconds", "30", "--out", log});
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.contains("ttyLX"), r.err.constData());
    // The pilot's words first, the system's detail after them.
    const QRegularExpression said(QStringLiteral("The USB adapter was disconnected; the recording up to "
                                                 "\\d\\d:\\d\\d:\\d\\d is stored in .*unplugged\\.log\\."));
    QVERIFY2(said.match(QString::fromUtf8(r.err)).hasMatch(), r.err.constData());
    QVERIFY(r.out.contains("wrote "));
    const Result info = run({"info", log});
    QCOMPARE(info.code, 0);
    QVERIFY(!info.out.contains("Samples:     0\n"));
}

void tst_VexoLogLive::portThatCannotBeOpened_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("devices, missing port")
        << QStringList{"devices", "--port", "/dev/vexo-none", "--seconds", "1"};
    QTest::newRow("record, missing port")
        << QStringList{"record", "--port", "/dev/vexo-none", "--out", "OUT"};
    QTest::newRow("record, not a serial port")
        << QStringList{"record", "--port", "/dev/null", "--out", "OUT"};
}

void tst_VexoLogLive::portThatCannotBeOpened()
{
    QFETCH(QStringList, args);
    const QString out = m_dir.filePath("never.log");
    args.replaceInStrings("OUT", out);
    const Result r = run(args, 20000);
    QCOMPARE(r.code, 1);
    QVERIFY2(r.err.startsWith("vexo-log: /dev/"), r.err.constData());
    QVERIFY(!QFileInfo::exists(out));
}

QTEST_GUILESS_MAIN(tst_VexoLogLive)
#include "tst_VexoLogLive.moc"
