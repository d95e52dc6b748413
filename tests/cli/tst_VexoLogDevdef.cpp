#include "tests/support/TestFiles.h"
#include "tests/support/VexoLogRunner.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

// The definitions compiler as the build runs it: exit codes, nothing written on a fault, and a dump that
// compiles back to the same file.
class tst_VexoLogDevdef : public QObject
{
    Q_OBJECT

private slots:
    void compileAndDump()
    {
        QTemporaryDir dir;
        const QString out = dir.filePath(QStringLiteral("Devices.bin"));
        const QDir sources(QStringLiteral(VEXO_SOURCE_DIR "/link/definitions"));
        QStringList args{QStringLiteral("devdef"), QStringLiteral("compile")};
        for (const QString &name : sources.entryList({QStringLiteral("*.json")}, QDir::Files))
            args << sources.filePath(name);
        auto r = VexoLogRunner::run(args + QStringList{out});
        QVERIFY2(r.code == 0, r.err.constData());
        const QByteArray compiled = readAll(out);

        r = VexoLogRunner::run({QStringLiteral("devdef"), QStringLiteral("dump"), out});
        QCOMPARE(r.code, 0);
        const QString dumped = dir.filePath(QStringLiteral("dump.json"));
        QVERIFY(writeFile(dumped, r.out));
        const QString again = dir.filePath(QStringLiteral("again.bin"));
        QCOMPARE(
            VexoLogRunner::run({QStringLiteral("devdef"), QStringLiteral("compile"), dumped, again}).code, 0);
        QCOMPARE(readAll(again), compiled);

        // A faulty source leaves the old file as it was.
        const QString bad = dir.filePath(QStringLiteral("bad.json"));
        QVERIFY(
            writeFile(bad, R"({"name": "X", "hardware": [1], "parameters": [{"id": 1, "address": 0, "size": 7,
                                   "min": 0, "max": 1, "name": "A"}]})"));
        r = VexoLogRunner::run({QStringLiteral("devdef"), QStringLiteral("compile"), bad, out});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("bad.json: ") && r.err.contains("\"size\" 7 is outside 1..4"),
                 r.err.constData());
        QCOMPARE(readAll(out), compiled);

        r = VexoLogRunner::run({QStringLiteral("devdef"), QStringLiteral("dump"), bad});
        QCOMPARE(r.code, 1);
        QVERIFY2(r.err.contains("Error loading device configuration file: "), r.err.constData());
        QCOMPARE(VexoLogRunner::run({QStringLiteral("devdef"), QStringLiteral("compile"), out}).code, 2);
    }
};

QTEST_GUILESS_MAIN(tst_VexoLogDevdef)
#include "tst_VexoLogDevdef.moc"
