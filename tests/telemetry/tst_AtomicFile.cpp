#include "telemetry/AtomicFile.h"
#include "tests/support/TestFiles.h"

#include <QFile>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <sys/resource.h>

class tst_AtomicFile : public QObject
{
    Q_OBJECT
private slots:
    void writesWhole();
    void failedBufferedWriteKeepsTheOldFile_data();
    void failedBufferedWriteKeepsTheOldFile();
};

void tst_AtomicFile::writesWhole()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("config.jsn"));
    QString error;
    QVERIFY(AtomicFile::write(path, "{\"Version\":\"1.1.0\"}", &error));
    QCOMPARE(readAll(path), QByteArray("{\"Version\":\"1.1.0\"}"));
}

// A disk that fills up while the last buffered bytes go out: the write fails only when the buffer is
// flushed at commit. A file-size limit makes the kernel refuse those bytes the same way.
void tst_AtomicFile::failedBufferedWriteKeepsTheOldFile_data()
{
    QTest::addColumn<bool>("streamed");
    QTest::newRow("whole buffer") << false;
    QTest::newRow("streamed through QSaveFile") << true;
}

void tst_AtomicFile::failedBufferedWriteKeepsTheOldFile()
{
    QFETCH(bool, streamed);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("data.log"));
    const QByteArray old("the flight the pilot kept\n");
    QVERIFY(writeFile(path, old));
    const QByteArray replacement(4000, 'x'); // fits the write buffer, exceeds the limit below
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved{};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit small = saved;
    small.rlim_cur = 1000;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &small), 0);
    bool written = false;
    if (streamed) {
        QSaveFile file(path);
        written = file.open(QIODevice::WriteOnly) && file.write(replacement) == replacement.size() &&
                  AtomicFile::commit(file);
    } else {
        QString error;
        written = AtomicFile::write(path, replacement, &error);
    }
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &saved), 0);
    QVERIFY(!written);
    QCOMPARE(readAll(path), old);
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files).size(), 1); // no temporary file left behind
}

QTEST_GUILESS_MAIN(tst_AtomicFile)
#include "tst_AtomicFile.moc"
