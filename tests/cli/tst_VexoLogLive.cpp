// vexo-log record and devices against the vexo-bus-sim program, as a pilot without hardware runs them.
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/VexoLogRunner.h"

#include <csignal>

using VexoLogRunner::Result;
using VexoLogRunner::run;

class tst_VexoLogLive : public QObject
{
    Q_OBJECT
private slots:
    void cleanup();
    void devicesListed();
    void recordStoppedWithCtrlC();
    void recordKeepsDataWhenUnplugged();
    void portThatCannotBeOpened();

private:
    bool startSimulator(const QStringList &extra = {});

    QTemporaryDir m_dir;
    QProcess m_sim;
    QString m_port;
};

bool tst_VexoLogLive::startSimulator(const QStringList &extra)
{
    if (!m_dir.isValid())
        return false;
    m_port = m_dir.filePath("ttyLX");
    m_sim.start(QStringLiteral(VEXO_BUS_SIM_BINARY), QStringList{"--link", m_port, "--quiet"} + extra);
    if (!m_sim.waitForStarted(10000))
        return false;
    // The first line names the pseudo-terminal; the link exists from then on.
    for (int i = 0; i < 100 && !m_sim.canReadLine(); ++i)
        m_sim.waitForReadyRead(100);
    return m_sim.canReadLine() && QFileInfo::exists(m_port);
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
    for (const char *said : {"GPS Logger", "extension 1 of 10A401", "2 extensions"})
        QVERIFY2(text.contains(QLatin1String(said)), said);
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

void tst_VexoLogLive::portThatCannotBeOpened()
{
    const QString out = m_dir.filePath("never.log");
    for (const char *port : {"/dev/vexo-none", "/dev/null"}) { // missing, and not a serial port
        const Result r = run({"record", "--port", port, "--out", out}, 20000);
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.startsWith("vexo-log: /dev/"), r.err.constData());
        QVERIFY(!QFileInfo::exists(out));
    }
}

QTEST_GUILESS_MAIN(tst_VexoLogLive)
#include "tst_VexoLogLive.moc"
