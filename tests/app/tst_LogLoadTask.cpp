#include "app/LogLoadTask.h"
#include "telemetry/TelemetryMetaTypes.h"
#include "tests/support/TestFiles.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class tst_LogLoadTask : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { registerTelemetryMetaTypes(); }
    void warningReachesTheCaller_data();
    void warningReachesTheCaller();
};

void tst_LogLoadTask::warningReachesTheCaller_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<bool>("warned");
    const QByteArray log = "# flight\n000000000;0000100002;0;Rx; \n000000000;0000100002;1;Volt;V\n"
                           "000001000;0000100002;1;12;1;50\n";
    QTest::newRow("whole") << log << true << false;
    QTest::newRow("damaged line") << log + "%&/ damaged\n000002000;0000100002;1;12;1;51\n" << true << true;
    QTest::newRow("cut off") << log + "000002000;0000100002;1;1" << true << true;
    QTest::newRow("empty") << QByteArray() << false << false;
}

void tst_LogLoadTask::warningReachesTheCaller()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, ok);
    QFETCH(bool, warned);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("flight.log"));
    QVERIFY(writeFile(path, bytes));

    LogLoadTask task(nullptr);
    QSignalSpy finished(&task, &LogLoadTask::finished);
    task.start(path);
    QVERIFY(finished.wait(20000));
    const QList<QVariant> args = finished.takeFirst();
    QCOMPARE(args.at(0).toBool(), ok);
    QCOMPARE(args.at(2).toString().isEmpty(), ok); // the error
    QCOMPARE(args.at(3).toString(), path);
    const QString warning = args.at(4).toString();
    QCOMPARE(!warning.isEmpty(), warned);
    if (warned)
        QVERIFY2(warning.startsWith(path + QLatin1String(": ")), qPrintable(warning));
}

QTEST_GUILESS_MAIN(tst_LogLoadTask)
#include "tst_LogLoadTask.moc"
