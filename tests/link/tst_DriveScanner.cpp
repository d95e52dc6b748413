#include "link/DriveScanner.h"

#include <QtTest>

class tst_DriveScanner : public QObject
{
    Q_OBJECT
private slots:
    void everyTwentyFifthTick_data();
    void everyTwentyFifthTick();
};

void tst_DriveScanner::everyTwentyFifthTick_data()
{
    QTest::addColumn<bool>("withScan");
    QTest::addColumn<int>("ticks");
    QTest::addColumn<QVector<int>>("scanTicks");
    QTest::newRow("three") << true << 80 << QVector<int>{25, 50, 75};
    // Without a scan plugged in the ticks are still counted.
    QTest::newRow("nothing plugged") << false << 60 << QVector<int>{25, 50};
}

void tst_DriveScanner::everyTwentyFifthTick()
{
    QFETCH(bool, withScan);
    QFETCH(int, ticks);
    QFETCH(QVector<int>, scanTicks);
    DriveScanner scanner;
    int scans = 0;
    if (withScan)
        scanner.setScan([&scans] { ++scans; });
    QVector<int> due;
    for (int t = 1; t <= ticks; ++t) {
        if (scanner.tick())
            due << t;
    }
    QCOMPARE(due, scanTicks);
    QCOMPARE(scans, withScan ? scanTicks.size() : 0);
}

QTEST_GUILESS_MAIN(tst_DriveScanner)
#include "tst_DriveScanner.moc"
