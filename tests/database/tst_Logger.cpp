#include "database/Logger.h"
#include "tests/support/TestFiles.h"

#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

class tst_Logger : public QObject
{
    Q_OBJECT
private slots:
    void bannerEntriesAndAppending();
    void unwritableLogIsFlagged();
    void warningsReachTheApplicationLog();
};

void tst_Logger::bannerEntriesAndAppending()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("Application.log");
    Logger good(path);
    QVERIFY(good.open());
    good.write("System", "Database reinitialization");
    good.write("plain");
    good.close();
    const QString text = QString::fromUtf8(readAll(path));
    const QString stamp = R"(\d\d\.\d\d\.\d{4} \| \d\d:\d\d:\d\d)";
    QVERIFY2(text.contains(QRegularExpression(
                 "^#+\n(#.*#\n){2}#+\n" + stamp + R"( \| System \.\.\. Database reinitialization\n)" + stamp +
                 R"( \.\.\. plain\n)" + stamp + R"( \.\.\. Application exit\n$)")),
             qPrintable(text));
    Logger again(path);
    again.write("more");
    again.close();
    QVERIFY(QString::fromUtf8(readAll(path)).startsWith(text));
}

void tst_Logger::unwritableLogIsFlagged()
{
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir("folder.log"));
    Logger bad(dir.filePath("folder.log"));
    QVERIFY(!bad.open());
    bad.write("System", "lost");
    QVERIFY(bad.isFailed());
    QVERIFY(!bad.lastError().isEmpty());
    if (QFile::exists("/dev/full")) {
        Logger full(QStringLiteral("/dev/full"));
        full.write("System", "nowhere to go");
        QVERIFY(full.isFailed());
    }
}

// The program's own warnings belong in the application log beside standard error; debug chatter does not.
void tst_Logger::warningsReachTheApplicationLog()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Application.log"));
    {
        Logger logger(path);
        QVERIFY(logger.open());
        logger.captureWarnings();
        qDebug("chatter that stays out");
        qWarning("Serial error 3 on the interface thread");
        QThread *worker = QThread::create([] { qCritical("Worker failed while writing"); });
        worker->start();
        QVERIFY(worker->wait(5000));
        delete worker;
    }
    qWarning("after the logger is gone"); // must not reach a destroyed logger
    const QString text = QString::fromUtf8(readAll(path));
    QVERIFY2(text.contains(QStringLiteral("| WARNING ... Serial error 3 on the interface thread")),
             qPrintable(text));
    QVERIFY(text.contains(QStringLiteral("| ERROR ... Worker failed while writing")));
    QVERIFY(!text.contains(QStringLiteral("chatter")));
    QVERIFY(!text.contains(QStringLiteral("after the logger")));
}

QTEST_GUILESS_MAIN(tst_Logger)
#include "tst_Logger.moc"
