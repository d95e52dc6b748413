#include "database/Logger.h"

#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

class tst_Logger : public QObject
{
    Q_OBJECT
private slots:
    void warningsReachTheApplicationLog();
};

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
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(file.readAll());
    QVERIFY2(text.contains(QStringLiteral("| WARNING ... Serial error 3 on the interface thread")),
             qPrintable(text));
    QVERIFY(text.contains(QStringLiteral("| ERROR ... Worker failed while writing")));
    QVERIFY(!text.contains(QStringLiteral("chatter")));
    QVERIFY(!text.contains(QStringLiteral("after the logger")));
}

QTEST_GUILESS_MAIN(tst_Logger)
#include "tst_Logger.moc"
