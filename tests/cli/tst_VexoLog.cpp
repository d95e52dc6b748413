#include <QJsonArray>
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
    void failedWriteLeavesNoFile();
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
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write("# Small \"one\"\n# d\n000000000;0000100002;0;Rx; \n000000000;0000100002;1;Lat;\xB0\n"
            "000000000;0000100002;2;Volt;V\n000001000;0000100002;1;9;2;3306800;2;1;2;-150\n"
            "000001001;0000100002;15;16;0;Alarm: V;7;86\n");
    f.close();
    const Result r = run({"dump", path});
    QCOMPARE(r.code, 0);
    QJsonParseError error;
    const QJsonObject o = QJsonDocument::fromJson(r.out, &error).object();
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(o.keys(), QStringList({"description", "devices", "first_timestamp", "messages", "name"}));
    QCOMPARE(o["name"].toString(), QStringLiteral("Small \"one\""));
    QCOMPARE(o["first_timestamp"].toInt(), 1000);
    const QJsonObject dev = o["devices"].toArray().at(0).toObject();
    QCOMPARE(dev["id"].toDouble(), double(1u | (2u << 16)));
    const QJsonArray params = dev["params"].toArray();
    QCOMPARE(params.size(), 2);
    const QJsonObject lat = params.at(0).toObject();
    QCOMPARE(lat["unit"].toString(), QStringLiteral("°"));
    QCOMPARE(lat["values"].toArray().at(0).toArray(), QJsonArray({1000, 9, 2, 3306800}));
    QCOMPARE(lat["numbers"].toArray().at(0).toDouble(), -50.5);
    QCOMPARE(params.at(1).toObject()["numbers"].toArray().at(0).toDouble(), -1.5);
    const QJsonObject msg = o["messages"].toArray().at(0).toObject();
    QCOMPARE(msg["text"].toString(), QStringLiteral("Alarm: V"));
    QCOMPARE(msg["type"].toInt(), 7);
    QCOMPARE(msg["value"].toInt(), 86);
    QCOMPARE(msg["ts"].toInt(), 1001);
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
    QCOMPARE(run({"convert", m_log, out}).code, 0);
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
    row("dump of a damaged log", "dump", "damaged", 0, "1 damaged line");
    row("convert of a damaged log", "convert", "damaged", 0, "1 damaged line");
    row("convert of binary bytes", "convert", "binary", 1, "none readable");
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
    QByteArray bytes;
    if (kind == QLatin1String("valid")) {
        bytes = valid;
    } else if (kind == QLatin1String("binary")) {
        bytes = "\x7f"
                "ELF\x02\x01\x01\n\xff\xfe;\x03;\n\x1b\x02\n";
    } else if (kind == QLatin1String("cut")) {
        bytes = valid.left(valid.size() - 5);
    } else if (kind == QLatin1String("damaged")) {
        lines[damagedIndex] = "%&/ damaged";
        bytes = lines.join('\n');
    }
    const QString in = m_dir.filePath(kind + QLatin1String("-input.log"));
    QVERIFY(writeFile(in, bytes));
    const QString out = m_dir.filePath(kind + QLatin1String("-output.log"));
    QFile::remove(out);
    QStringList args = {command, in};
    if (command == QLatin1String("convert"))
        args << out;
    const Result r = run(args);
    QCOMPARE(r.code, code);
    const QString err = QString::fromUtf8(r.err);
    if (mentions.isEmpty()) {
        QVERIFY2(err.isEmpty(), qPrintable(err));
    } else {
        // One line naming the file and what is wrong with it.
        QVERIFY2(err.startsWith(QLatin1String("vexo-log: ") + in + QLatin1String(": ")), qPrintable(err));
        QVERIFY2(err.contains(mentions), qPrintable(err));
        QCOMPARE(err.count(QLatin1Char('\n')), 1);
    }
    if (kind == QLatin1String("damaged"))
        QVERIFY2(err.contains(QRegularExpression(QStringLiteral("\\bline %1\\b").arg(damagedIndex + 1))),
                 qPrintable(err));
    // The work is done all the same, or not at all.
    if (command == QLatin1String("convert")) {
        QCOMPARE(QFileInfo::exists(out), code == 0);
        if (code == 0)
            QVERIFY(run({"info", out}).err.isEmpty()); // what was read is written whole
    } else {
        QCOMPARE(r.out.isEmpty(), code != 0);
    }
}

void tst_VexoLog::failedWriteLeavesNoFile()
{
    const QString target = m_dir.filePath("no/such/folder/out.log");
    const Result r = run({"convert", m_log, target});
    QCOMPARE(r.code, 1);
    QVERIFY(r.err.contains("out.log"));
    QVERIFY(!QFileInfo::exists(target));
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
