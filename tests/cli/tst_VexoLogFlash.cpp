#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

// `vexo-log flash` as a pilot runs it against the simulated bus: the list before, the updates, the versions
// read back after, a failing boot loader, and images refused before anything is sent.
class tst_VexoLogFlash : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;
    QString m_image; // 20 packets of 256 bytes
    QString m_fwdb;  // the simulated vario (hardware 304, running 1.1) gets 1.2; the temperature sensor
                     // (320) already runs the newest, 2.0

    QString path(const char *name) const { return m_dir.filePath(QLatin1String(name)); }

    // A simulator of its own for each case, so no case sees what an earlier one left on the bus.
    struct Sim
    {
        QProcess process;
        QString port;
        ~Sim()
        {
            process.terminate();
            if (!process.waitForFinished(5000))
                process.kill();
        }
    };
    std::unique_ptr<Sim> startSim(const QStringList &extra)
    {
        auto sim = std::make_unique<Sim>();
        QFile::remove(path("dump.bin"));
        sim->process.start(QStringLiteral(VEXO_BUS_SIM_BINARY),
                           QStringList{"--quiet", "--flash-dump", path("dump.bin")} + extra);
        if (!sim->process.waitForStarted(10000))
            return nullptr;
        for (int i = 0; i < 100 && !sim->process.canReadLine(); ++i)
            sim->process.waitForReadyRead(100);
        sim->port = QString::fromLocal8Bit(sim->process.readLine()).trimmed();
        return sim;
    }

    static QString text(const VexoLogRunner::Result &r) { return QString::fromUtf8(r.out + r.err); }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        QByteArray image(16, 'H');
        for (int i = 0; i < 20; ++i) {
            image += QByteArray("\x01\x00", 2);
            for (int j = 0; j < 256; ++j)
                image += char(i * 7 + j);
        }
        image += '\0';
        m_image = path("vario.bin");
        QVERIFY(writeFile(m_image, image));
        m_fwdb = path("DeviceUpdates.sqlite");
        const auto r =
            VexoLogRunner::run({"fwdb",   "make",  m_fwdb,      "--hw",   "304",    "--sw",       "1.2",
                                "--name", "Vario", "--desc-en", "Faster", "--date", "2025-01-01", m_image,
                                "--hw",   "320",   "--sw",      "2.0",    "--name", "Temp",       m_image});
        QVERIFY2(r.code == 0, r.err.constData());
    }

    void listThenUpdateAll()
    {
        auto sim = startSim({});
        QVERIFY(sim);
        auto r = VexoLogRunner::run(
            {"flash", "--port", sim->port, "--all", "--fwdb", m_fwdb, "--dry-run", "--seconds", "2"});
        QVERIFY2(r.code == 0, r.err.constData());
        QVERIFY2(text(r).contains(
                     QRegularExpression("Vario Alt .* current 1\\.1 +newest 1\\.2 +update \\(20 packets\\)")),
                 r.out.constData());
        QVERIFY2(
            text(r).contains(QRegularExpression("Temp Sensor .* current 2\\.0 +newest 2\\.0 +up to date")),
            r.out.constData());
        QVERIFY(text(r).contains("dry run: nothing sent"));
        QVERIFY(!QFile::exists(path("dump.bin")));

        sim = startSim({});
        QVERIFY(sim);
        r = VexoLogRunner::run({"flash", "--port", sim->port, "--all", "--fwdb", m_fwdb, "--seconds", "2"});
        QVERIFY2(r.code == 0, text(r).toUtf8().constData());
        QVERIFY2(text(r).contains("40A404 Vario Alt (hardware 304)  1.1 -> 1.2  now reports 1.2\n"
                                  "1 of 1 updated and confirmed."),
                 r.out.constData());
        QCOMPARE(readAll(path("dump.bin")), readAll(m_image));
    }

    // Every acknowledgement from the third packet on lost, for both programming runs: the update fails,
    // the device waits in its boot loader and the same command programs it.
    void failedThenProgrammedAgain()
    {
        auto sim = startSim({"--boot-fault", "drop", "--boot-fault-at", "3", "--boot-fault-count", "10"});
        QVERIFY(sim);
        const QStringList args{"flash",  "--port", sim->port,   "--hw", "304",
                               "--fwdb", m_fwdb,   "--seconds", "2"};
        auto r = VexoLogRunner::run(args);
        QCOMPARE(r.code, 1);
        QVERIFY2(text(r).contains("Error while programming the device. Retrying.") &&
                     text(r).contains("update failed") && text(r).contains("run the same command again"),
                 r.out.constData());
        QVERIFY(!QFile::exists(path("dump.bin")));

        r = VexoLogRunner::run(args);
        QVERIFY2(r.code == 0, text(r).toUtf8().constData());
        QVERIFY2(text(r).contains("No device of hardware 304 answers on the bus") &&
                     text(r).contains("40A404 Vario Alt (hardware 304): now reports 1.2"),
                 r.out.constData());
        QCOMPARE(readAll(path("dump.bin")), readAll(m_image));
    }

    // One device of two fails: the other is still updated, and the list after says which is which.
    void allWithOneFailing()
    {
        const QString fwdb = path("two.sqlite");
        auto r = VexoLogRunner::run({"fwdb", "make", fwdb, "--hw", "304", "--sw", "1.2", "--name", "Vario",
                                     "--desc-en", "Faster", "--date", "2025-01-01", m_image, "--hw", "272",
                                     "--name", "GPS", m_image});
        QVERIFY2(r.code == 0, r.err.constData());
        // The GPS logger (20A402) comes first; both of its programming runs lose their acknowledgements.
        auto sim = startSim({"--boot-fault", "drop", "--boot-fault-at", "3", "--boot-fault-count", "10"});
        QVERIFY(sim);
        r = VexoLogRunner::run({"flash", "--port", sim->port, "--all", "--fwdb", fwdb, "--seconds", "2"});
        QCOMPARE(r.code, 1);
        QVERIFY2(
            text(r).contains(QRegularExpression(
                "20A402 GPS Logger \\(hardware 272\\)  1\\.1 -> 1\\.2  update failed: ")) &&
                text(r).contains("40A404 Vario Alt (hardware 304)  1.1 -> 1.2  now reports 1.2\n"
                                 "1 of 2 updated and confirmed.\n"
                                 "20A402 waits in its boot loader; program it with: vexo-log flash --port " +
                                 sim->port + " --hw 272 --fwdb " + fwdb),
            r.out.constData());
        QCOMPARE(readAll(path("dump.bin")), readAll(m_image));
    }

    // Refused before the port is even opened: the port named does not exist.
    void refusedBeforeSending_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("reason");
        const QByteArray damaged = QByteArray(16, 'H') + QByteArray("\x01\x00", 2) + QByteArray(200, 'x');
        writeFile(path("damaged.bin"), damaged);
        QTest::newRow("chain past the end") << QStringList{"--image", path("damaged.bin")}
                                            << "packet 1 at offset 16 needs 258 bytes but only 202 remain";
        QTest::newRow("unreadable file")
            << QStringList{"--image", path("none.bin")} << "Unable to open the update file.";
        QTest::newRow("no such version") << QStringList{"--hw", "304", "--version", "9.9", "--fwdb", m_fwdb}
                                         << "Update not found (hardware 304, variant 0, version 9.9)";
        QTest::newRow("no firmware") << QStringList{"--hw", "999", "--fwdb", m_fwdb}
                                     << "no firmware for hardware 999";
        QTest::newRow("no database") << QStringList{"--hw", "304", "--fwdb", path("none.sqlite")}
                                     << "Device database doesn't exist";
        QTest::newRow("no database, all")
            << QStringList{"--all", "--fwdb", path("none.sqlite")} << "Device database doesn't exist";
    }

    void refusedBeforeSending()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, reason);
        const auto r = VexoLogRunner::run(QStringList{"flash", "--port", path("no-such-tty")} + args);
        QCOMPARE(r.code, 1);
        QVERIFY2(text(r).contains(reason), r.err.constData());
        QVERIFY(!text(r).contains("no such serial port"));
    }
};

QTEST_GUILESS_MAIN(tst_VexoLogFlash)
#include "tst_VexoLogFlash.moc"
