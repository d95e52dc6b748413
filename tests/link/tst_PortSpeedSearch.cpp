#include "link/LinkClock.h"
#include "link/PortSpeedSearch.h"

#include <QtTest>

using Transitions = QVector<int>; // pairs: millisecond of the tick, mode entered

class tst_PortSpeedSearch : public QObject
{
    Q_OBJECT
private slots:
    void silenceWalksTheSpeeds_data();
    void silenceWalksTheSpeeds();
    void errorRuleStep_data();
    void errorRuleStep();
};

void tst_PortSpeedSearch::silenceWalksTheSpeeds_data()
{
    QTest::addColumn<int>("startMode");
    QTest::addColumn<QString>("flags"); // g: GPS logger, u: update, t: terminal box
    QTest::addColumn<int>("clearFlagsAt");
    QTest::addColumn<int>("goodFrameEvery");
    QTest::addColumn<Transitions>("expected");
    // The wait must be exceeded: 3000 ms at 125000 (t = 3001), 1500 ms in the update mode, 3000 ms at
    // 38400, each counted from the previous change.
    QTest::newRow("silent at 250000 from outside")
        << 1 << "" << 0 << 0 << Transitions{3001, 2, 4502, 3, 7503, 0};
    QTest::newRow("silent in the update mode") << 2 << "" << 0 << 0 << Transitions{1501, 3, 4502, 0, 7503, 2};
    QTest::newRow("good frames hold the speed") << 0 << "" << 0 << 2999 << Transitions{};
    QTest::newRow("terminal box held") << 0 << "t" << 0 << 0 << Transitions{1, 3};
    QTest::newRow("GPS logger first") << 0 << "ugt" << 0 << 0 << Transitions{1, 5};
    QTest::newRow("update before terminal box") << 0 << "tu" << 0 << 0 << Transitions{1, 2};
    // Leaving the GPS logger restarts the wait; a reader's flag switched off does not.
    QTest::newRow("GPS logger gone") << 0 << "g" << 100 << 0
                                     << Transitions{1, 5, 100, 0, 3101, 2, 4602, 3, 7603, 0};
    QTest::newRow("update flag off") << 0 << "u" << 100 << 0 << Transitions{1, 2, 1501, 3, 4502, 0, 7503, 2};
}

void tst_PortSpeedSearch::silenceWalksTheSpeeds()
{
    QFETCH(int, startMode);
    QFETCH(QString, flags);
    QFETCH(int, clearFlagsAt);
    QFETCH(int, goodFrameEvery);
    QFETCH(Transitions, expected);
    ManualLinkClock clock;
    PortSpeedSearch search(&clock);
    search.select(startMode);
    const auto setFlags = [&](bool on) {
        search.setGpsLoggerMode(on && flags.contains('g'));
        search.setUpdateMode(on && flags.contains('u'));
        search.setTerminalBoxMode(on && flags.contains('t'));
    };
    setFlags(true);
    Transitions seen;
    for (int t = 1; t <= 9000; ++t) {
        clock.advance(1);
        if (t == clearFlagsAt)
            setFlags(false);
        if (goodFrameEvery && t % goodFrameEvery == 0)
            search.restart();
        const int before = search.mode();
        const bool changed = search.tick();
        // The caller re-applies the port settings exactly when the mode moved.
        QCOMPARE(changed, search.mode() != before);
        if (changed)
            seen << t << search.mode();
    }
    QCOMPARE(seen, expected);
}

void tst_PortSpeedSearch::errorRuleStep_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<int>("next");
    QTest::addColumn<int>("baud");
    QTest::newRow("250000") << 1 << 2 << 250000;
    QTest::newRow("unchanged speed") << 4 << 2 << 0;
    QTest::newRow("GPS logger") << 5 << 2 << 38400;
}

void tst_PortSpeedSearch::errorRuleStep()
{
    QFETCH(int, mode);
    QFETCH(int, next);
    QFETCH(int, baud);
    QCOMPARE(PortSpeedSearch::baudForMode(mode), baud);
    ManualLinkClock clock;
    PortSpeedSearch search(&clock);
    search.select(mode);
    clock.advance(5000);
    // The step leaves the wait alone: a search overdue before it is still overdue after it.
    search.advance();
    QCOMPARE(search.mode(), next);
    QVERIFY(search.tick());
}

QTEST_GUILESS_MAIN(tst_PortSpeedSearch)
#include "tst_PortSpeedSearch.moc"
