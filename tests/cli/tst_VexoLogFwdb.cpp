#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

#include <QTemporaryDir>
#include <QtTest>

// Building a device updates database as a maker would, and listing it back.
class tst_VexoLogFwdb : public QObject
{
    Q_OBJECT

    QTemporaryDir m_dir;

    QString path(const char *name) const { return m_dir.filePath(QLatin1String(name)); }
    // A header, packets of the given payload sizes (low nibble of the first byte as the high part of the
    // length), then the terminating zero byte.
    QString imageFile(const char *name, const QVector<int> &payloads, bool terminated = true)
    {
        QByteArray bytes(16, 'H');
        for (int size : payloads) {
            bytes.append(char(0x40 | (size >> 8))).append(char(size & 0xFF));
            bytes.append(QByteArray(size, 'p'));
        }
        if (terminated)
            bytes.append('\0');
        writeFile(path(name), bytes);
        return path(name);
    }
    static QStringList row(const QString &hw, const QString &sw, const QString &date)
    {
        return {"--hw", hw, "--sw", sw, "--name", "Vario", "--desc-en", "English " + sw, "--date", date};
    }

private slots:
    void makeAndList()
    {
        const QString fwdb = path("DeviceUpdates.sqlite");
        const QString a = imageFile("a.bin", {0x100, 3});
        const QString b = imageFile("b.bin", {0xF40});
        // Two versions in one run: options stay in force, the German text only for the second image.
        auto r = VexoLogRunner::run(QStringList{"fwdb", "make", fwdb} + row("10", "258", "2024-03-01") +
                                    QStringList{a} +
                                    QStringList{"--sw", "1.5", "--desc-en", "English 261", "--desc-de",
                                                "Deutsch 261", "--date", "2024-05-06 07:08:09", b});
        QVERIFY2(r.code == 0, r.err.constData());
        // Extending the file adds a device.
        r = VexoLogRunner::run(QStringList{"fwdb", "make", fwdb} + row("20", "512", "2023-12-31") +
                               QStringList{"--variant", "1", a});
        QVERIFY2(r.code == 0, r.err.constData());

        r = VexoLogRunner::run({"fwdb", "list", fwdb, "--lang", "de"});
        QVERIFY2(r.code == 0, r.err.constData());
        const QString listed = QString::fromUtf8(r.out);
        QVERIFY2(
            listed.contains(
                "hw 10  variant 0  version 1.5 (261)  Vario  2024-5-6 07:08:09  3904 bytes in 1 packets\n"
                "    Deutsch 261\n"),
            r.out.constData());
        // No German text for this row: the English one.
        QVERIFY2(listed.contains(
                     "hw 10  variant 0  version 1.2 (258)  Vario  2024-3-1 00:00:00  259 bytes in 2 packets\n"
                     "    English 258\n"),
                 r.out.constData());
        QVERIFY2(listed.contains("hw 20  variant 1  version 2.0 (512)"), r.out.constData());
        QVERIFY(listed.indexOf("(261)") < listed.indexOf("(258)"));

        // A language the file has no column for lists English.
        r = VexoLogRunner::run({"fwdb", "list", fwdb, "--lang", "cs"});
        QCOMPARE(r.code, 0);
        QVERIFY2(r.out.contains("(notes in \"en\")") && r.out.contains("    English 261\n"),
                 r.out.constData());
    }

    void refusals_data()
    {
        QTest::addColumn<QStringList>("args"); // after "fwdb make OUT"
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("reason");
        const QString good = path("good.bin");
        QTest::newRow("chain past the end") << row("10", "300", "2024-01-01") + QStringList{path("cut.bin")}
                                            << 1 << "cut.bin: The firmware image is damaged";
        QTest::newRow("no terminator") << row("10", "300", "2024-01-01") + QStringList{path("open.bin")} << 1
                                       << "no terminating zero byte";
        QTest::newRow("already there") << row("10", "258", "2024-01-01") + QStringList{good} << 1
                                       << "already holds hardware 10, variant 0, version 258";
        QTest::newRow("unreadable date")
            << row("10", "300", "May 2024") + QStringList{good} << 1 << "unreadable date";
        QTest::newRow("no English notes")
            << QStringList{"--hw",      "1", "--sw",   "2",          "--name", "N",
                           "--desc-de", "D", "--date", "2024-01-01", good}
            << 1 << "English release notes are missing";
        QTest::newRow("image before its options")
            << QStringList{"--hw", "1", good} << 2 << "must come before";
        QTest::newRow("negative version")
            << row("10", "-1", "2024-01-01") + QStringList{good} << 2 << "bad value for --sw";
    }

    void refusals()
    {
        QFETCH(QStringList, args);
        QFETCH(int, code);
        QFETCH(QString, reason);
        imageFile("good.bin", {5});
        QByteArray cut = QByteArray(16, 'H') + "\x01\x00" + QByteArray(0xFF, 'p') + '\0';
        writeFile(path("cut.bin"), cut);
        imageFile("open.bin", {5}, false);
        const QString fwdb = path("refusals.sqlite");
        if (!QFile::exists(fwdb))
            QCOMPARE(VexoLogRunner::run(QStringList{"fwdb", "make", fwdb} + row("10", "258", "2024-01-01") +
                                        QStringList{path("good.bin")})
                         .code,
                     0);
        const QByteArray before = readAll(fwdb);
        const auto r = VexoLogRunner::run(QStringList{"fwdb", "make", fwdb} + args);
        QCOMPARE(r.code, code);
        QVERIFY2(QString::fromUtf8(r.err).contains(reason), r.err.constData());
        QCOMPARE(readAll(fwdb), before); // a refused run changes nothing
    }
};

QTEST_GUILESS_MAIN(tst_VexoLogFwdb)
#include "tst_VexoLogFwdb.moc"
