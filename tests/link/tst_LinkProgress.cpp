#include "link/LinkProgress.h"

#include <QtTest>

#include <thread>

class tst_LinkProgress : public QObject
{
    Q_OBJECT
private slots:
    void changesReportedOnce_data();
    void changesReportedOnce();
    void reloadTakenOnce();
};

void tst_LinkProgress::changesReportedOnce_data()
{
    // Each event sets a value, or (-1) is a tick that takes what changed since the last one it reported.
    QTest::addColumn<QVector<int>>("events");
    QTest::addColumn<QVector<int>>("reported");
    QTest::newRow("nothing set") << QVector<int>{-1, -1} << QVector<int>{};
    QTest::newRow("starts at zero") << QVector<int>{0, -1} << QVector<int>{};
    QTest::newRow("once per change") << QVector<int>{40, -1, -1, 0, -1} << QVector<int>{40, 0};
    QTest::newRow("last value between ticks") << QVector<int>{10, 20, -1, 30, -1} << QVector<int>{20, 30};
    QTest::newRow("back before the tick") << QVector<int>{40, -1, 55, 40, -1} << QVector<int>{40};
}

void tst_LinkProgress::changesReportedOnce()
{
    QFETCH(QVector<int>, events);
    QFETCH(QVector<int>, reported);
    LinkProgress progress;
    QVector<int> seen;
    for (int e : events) {
        int value = -1;
        if (e >= 0)
            progress.setValue(e);
        else if (progress.takeChange(&value))
            seen << value;
    }
    QCOMPARE(seen, reported);
}

void tst_LinkProgress::reloadTakenOnce()
{
    LinkProgress progress;
    QVERIFY(!progress.takeReload());
    // Requested from another thread, as the interface does.
    std::thread([&progress] { progress.requestReload(); }).join();
    QVERIFY(progress.takeReload());
    QVERIFY(!progress.takeReload());
}

QTEST_GUILESS_MAIN(tst_LinkProgress)
#include "tst_LinkProgress.moc"
