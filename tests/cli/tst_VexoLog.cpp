#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

namespace {
using VexoLogRunner::Result;
using VexoLogRunner::run;

} // namespace

class tst_VexoLog : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void info();
    void dumpShape();
    void convertIsByteIdenticalWithoutMessages();
    void badInput_data();
    void badInput();
    void damagedInput_data();
    void damagedInput();
    void bundledSample();

private:
    QTemporaryDir m_dir;
    QString m_log;
};

void tst_VexoLog::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_log = m_dir.filePath("flight.log");
    const Result r =
        run({"generate", "--seconds", "30", "--rate", "10", "--devices", "3", "--seed", "4", "--out", m_log});
    QCOMPARE(r.code, 0);
    QVERIFY(QFileInfo(m_log).size() > 1000);
}

void tst_VexoLog::info()
{
    const Result r = run({"info", m_log});
    QCOMPARE(r.code, 0);
    const QString text = QString::fromUtf8(r.out);
    QVERIFY(text.contains(QStringLiteral("Name:        Ukázkový let 4")));
    QVERIFY(text.contains(QStringLiteral("Přijímač REX 12")));
    // 30 s at 10 Hz, the first and the last moment included.
    QVERIFY(text.contains(QStringLiteral("Napětí Rx  [V]  301 samples")));
    QVERIFY(text.contains(QStringLiteral("Duration:    0:00:30.")));
    QVERIFY(text.contains(QStringLiteral("Alarms:")));
}

void tst_VexoLog::dumpShape()
{
    const QString path = m_dir.filePath("small.log");
    QVERIFY(writeFile(path,
                      "# Small \"one\"\n# d\n000000000;0000100002;0;Rx; \n000000000;0000100002;1;Lat;\xB0\n"
                      "000000000;0000100002;2;Volt;V\n000001000;0000100002;1;9;2;3306800;2;1;2;-150\n"
                      "000001001;0000100002;15;16;0;Alarm: V;7;86\n"));
    const Result r = run({"dump", path});
    QCOMPARE(r.code, 0);
    // Device 1 | 2 << 16; the coordinate reads -50.5 and the type 1 value -1.5.
    const QByteArray expected = R"({"name": "Small \"one\"", "description": "d", "first_timestamp": 1000,
        "devices": [{"id": 131073, "name": "Rx", "params": [
            {"param": 1, "label": "Lat", "unit": "°", "values": [[1000, 9, 2, 3306800]], "numbers": [-50.5]},
            {"param": 2, "label": "Volt", "unit": "V", "values": [[1000, 1, 2, -150]], "numbers": [-1.5]}]}],
        "messages": [{"ts": 1001, "device": 131073, "text": "Alarm: V", "type": 7, "value": 86}]})";
    QCOMPARE(QJsonDocument::fromJson(r.out).object(), QJsonDocument::fromJson(expected).object());
}

void tst_VexoLog::convertIsByteIdenticalWithoutMessages()
{
    // A log written elsewhere: every value line kind, Windows-1250 labels, no messages.
    const QByteArray original = "# Cizí log\n# popis\n"
                                "000000000;0000100002;0;P\xF8ij\xEDma\xE8; \n"
                                "000000000;0000100002;1;Nap\xECt\xED;V\n"
                                "000000000;0000100002;2;Signal;dB\n"
                                "000000000;0000065535;0;GPS; \n"
                                "000000000;0000065535;7;Alt;m\n"
                                "000000010;0000100002;1;1;2;-300;2;0;0;-56\n"
                                "000000010;0000065535;7;12;1;123456\n"
                                "000000020;0000100002;2;0;0;12\n";
    const QString in = m_dir.filePath("foreign.log");
    QVERIFY(writeFile(in, original));
    const QString out = m_dir.filePath("converted.log");
    QCOMPARE(run({"convert", in, out}).code, 0);
    QCOMPARE(readAll(out), original);
}

void tst_VexoLog::badInput_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("mentions");
    QTest::newRow("missing file") << QStringList({"info", "/nonexistent/x.log"}) << "/nonexistent/x.log";
    QTest::newRow("a folder") << QStringList({"info", "FOLDER"}) << "folder";
    // Permissions do not stop root (the tests run as root): a file that opens but fails every read does.
    QTest::newRow("unreadable file") << QStringList({"info", "UNREADABLE"}) << "unreadable.log";
    QTest::newRow("unknown extension") << QStringList({"dump", "FILE.xyz"}) << "xyz";
    QTest::newRow("unknown command") << QStringList({"frobnicate"}) << "frobnicate";
    QTest::newRow("missing argument") << QStringList({"convert", "a.log"}) << "convert";
    QTest::newRow("bad generator option")
        << QStringList({"generate", "--rate", "fast", "--out", "x.log"}) << "--rate";
}

void tst_VexoLog::badInput()
{
    QFETCH(QStringList, args);
    QFETCH(QString, mentions);
    const QString folder = m_dir.filePath("dir.log");
    QDir().mkpath(folder);
    const QString xyz = m_dir.filePath("data.xyz");
    QFile(m_log).copy(xyz);
    args.replaceInStrings("FOLDER", folder);
    args.replaceInStrings("FILE.xyz", xyz);
    if (args.contains("UNREADABLE")) {
        if (!QFile::exists("/proc/self/mem"))
            QSKIP("No /proc here to give a file that fails every read");
        // The program's own memory: reading at offset 0 fails with an I/O error, for root too.
        const QString unreadable = m_dir.filePath("unreadable.log");
        QFile::remove(unreadable);
        QVERIFY(QFile::link("/proc/self/mem", unreadable));
        args.replaceInStrings("UNREADABLE", unreadable);
    }
    const Result r = run(args);
    QVERIFY2(r.code == 1 || r.code == 2, r.err.constData()); // bad file or bad usage, never a crash
    QVERIFY(r.out.isEmpty());
    QVERIFY2(r.err.startsWith("vexo-log: "), r.err.constData());
    QVERIFY2(QString::fromUtf8(r.err).contains(mentions), r.err.constData());
}

void tst_VexoLog::damagedInput_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("mentions"); // on standard error after the file name; empty: nothing there
    const auto row = [](const char *name, const char *command, const char *kind, int code,
                        const char *mentions) {
        QTest::newRow(name) << QString(command) << QString(kind) << code << QString(mentions);
    };
    row("valid", "info", "valid", 0, "");
    row("empty", "info", "empty", 1, "empty");
    row("binary", "info", "binary", 1, "none readable");
    row("cut off", "info", "cut", 0, "middle of a line");
    row("one damaged line", "info", "damaged", 0, "1 damaged line");
    row("convert of a damaged log", "convert", "damaged", 0, "1 damaged line");
}

void tst_VexoLog::damagedInput()
{
    QFETCH(QString, command);
    QFETCH(QString, kind);
    QFETCH(int, code);
    QFETCH(QString, mentions);
    const QByteArray valid = readAll(m_log);
    QList<QByteArray> lines = valid.split('\n');
    const int damagedIndex = lines.size() / 2; // a value line: descriptions are at the start
    lines[damagedIndex] = "%&/ damaged";
    const QMap<QString, QByteArray> inputs{{"valid", valid},
                                           {"binary", "\x7f"
                                                      "ELF\x02\x01\x01\n\xff\xfe;\x03;\n\x1b\x02\n"},
                                           {"cut", valid.left(valid.size() - 5)},
                                           {"damaged", lines.join('\n')}};
    const QString in = m_dir.filePath(kind + QLatin1String("-input.log"));
    QVERIFY(writeFile(in, inputs.value(kind))); // "empty": none
    const QString out = m_dir.filePath(kind + QLatin1String("-output.log"));
    QFile::remove(out);
    const Result r =
        run(command == QLatin1String("convert") ? QStringList{command, in, out} : QStringList{command, in});
    QCOMPARE(r.code, code);
    // One line naming the file and what is wrong with it, or nothing.
    const QString err = QString::fromUtf8(r.err);
    QVERIFY2(mentions.isEmpty() ? err.isEmpty()
                                : err.startsWith("vexo-log: " + in + ": ") && err.contains(mentions) &&
                                      err.count(QLatin1Char('\n')) == 1,
             qPrintable(err));
    if (kind == QLatin1String("damaged"))
        QVERIFY2(err.contains(QRegularExpression(QStringLiteral("\\bline %1\\b").arg(damagedIndex + 1))),
                 qPrintable(err));
    // The work is done all the same (what was read is written whole), or not at all.
    if (command == QLatin1String("convert"))
        QVERIFY(QFileInfo::exists(out) && run({"info", out}).err.isEmpty());
    else
        QCOMPARE(r.out.isEmpty(), code != 0);
}

void tst_VexoLog::bundledSample()
{
    const QString sample = QStringLiteral(VEXO_SOURCE_DIR "/samples/sample-flight.log");
    const Result r = run({"info", sample});
    QCOMPARE(r.code, 0);
    QVERIFY(r.out.contains("Devices:     6"));
    // The sample is what the generator makes; regenerate it with scripts/make-sample.sh after changes.
    const QString fresh = m_dir.filePath("sample.log");
    QCOMPARE(run({"generate", "--seconds", "600", "--rate", "5", "--devices", "6", "--seed", "2026", "--out",
                  fresh})
                 .code,
             0);
    QCOMPARE(readAll(fresh), readAll(sample));
}

QTEST_GUILESS_MAIN(tst_VexoLog)
#include "tst_VexoLog.moc"
