#include "widgets/graph/GraphTicks.h"
#include "widgets/graph/GraphTimeline.h"

#include <QtTest>

#include <functional>
#include <map>

class tst_GraphTimeline : public QObject
{
    Q_OBJECT
private slots:
    void zoomKeepsTimeInPlace_data();
    void zoomKeepsTimeInPlace();
    void staysInsideTheFlight_data();
    void staysInsideTheFlight();
    void followsLiveDataUntilMovedAway();
    void resetWhileLiveFollows();
    void autoRange_data();
    void autoRange();
};

void tst_GraphTimeline::zoomKeepsTimeInPlace_data()
{
    QTest::addColumn<qint64>("t");
    QTest::addColumn<double>("factor");
    QTest::newRow("in at the left quarter") << qint64(107500) << 0.5;
    QTest::newRow("out at the right edge") << qint64(130000) << 2.0;
    QTest::newRow("in at the start") << qint64(100000) << 0.8;
}

void tst_GraphTimeline::zoomKeepsTimeInPlace()
{
    QFETCH(qint64, t);
    QFETCH(double, factor);
    GraphTimeline timeline;
    timeline.setDataRange(0, 600000);
    timeline.setWindow(30000);
    timeline.setFrom(100000);
    const double before = double(t - timeline.from()) / timeline.span();
    timeline.zoomAt(t, factor);
    QCOMPARE(timeline.span(), qRound64(30000 * factor));
    QVERIFY(qAbs(double(t - timeline.from()) / timeline.span() - before) < 1e-3);
}

// Whatever the pilot does, the view shows no time before the first sample or after the last. Each
// script is a series of steps on a flight from 2 s to 602 s; the rule is checked after every step.
void tst_GraphTimeline::staysInsideTheFlight_data()
{
    QTest::addColumn<QString>("script");
    QTest::newRow("pan far both ways") << "pan -1000000; pan 5000000; pan -3000";
    QTest::newRow("cursor at the start, as playback puts it") << "from -13000; from 1000; start";
    QTest::newRow("zoom out past the flight, then in") << "zoom 300000 4; zoom 300000 4; zoom 2000 0.5";
    QTest::newRow("window longer than the flight") << "window 900000; pan 1000; end; start";
    QTest::newRow("flight cut shorter than the window") << "from 500000; data 2000 12000; pan 500";
    QTest::newRow("live, zoomed and moved away") << "live; data 2000 700000; zoom 650000 0.3; pan -9999999";
    QTest::newRow("reset and auto zoom")
        << "from 550000; reset; window 5000; autozoom; fit; data 2000 900000";
}

void tst_GraphTimeline::staysInsideTheFlight()
{
    QFETCH(QString, script);
    GraphTimeline timeline;
    timeline.setDataRange(2000, 602000);
    for (const QString &step : script.split(QLatin1Char(';'))) {
        const QStringList w = step.simplified().split(QLatin1Char(' '));
        const qint64 n = w.value(1).toLongLong();
        const QString verb = w.at(0);
        const std::map<QString, std::function<void()>> verbs{
            {"pan", [&] { timeline.panBy(n); }},
            {"from", [&] { timeline.setFrom(n); }},
            {"window", [&] { timeline.setWindow(n); }},
            {"zoom", [&] { timeline.zoomAt(n, w.at(2).toDouble()); }},
            {"data", [&] { timeline.setDataRange(n, w.at(2).toLongLong()); }},
            {"live", [&] { timeline.setLive(true); }},
            {"start", [&] { timeline.showStart(); }},
            {"end", [&] { timeline.showEnd(); }},
            {"reset", [&] { timeline.reset(); }},
            {"autozoom", [&] { timeline.autoZoom(); }},
            {"fit", [&] { timeline.setFitting(true); }}};
        QVERIFY2(verbs.count(verb), qPrintable(step));
        verbs.at(verb)();
        timeline.follow();
        QVERIFY2(timeline.from() >= timeline.dataFirst() && timeline.to() <= timeline.dataLast(),
                 qPrintable(step));
    }
    // A window at least as long as the flight shows all of it.
    if (timeline.window() >= timeline.dataLast() - timeline.dataFirst())
        QCOMPARE(timeline.to() - timeline.from(), timeline.dataLast() - timeline.dataFirst());
}

void tst_GraphTimeline::followsLiveDataUntilMovedAway()
{
    GraphTimeline timeline;
    timeline.setDataRange(0, 5000);
    timeline.setLive(true);
    QVERIFY(timeline.isFollowing());
    QCOMPARE(timeline.to(), qint64(5000));
    timeline.setDataRange(0, 90000);
    timeline.follow();
    QCOMPARE(std::make_pair(timeline.from(), timeline.to()), std::make_pair(60000LL, 90000LL));
    // Zooming while following keeps the newest data at the right edge.
    timeline.zoomAt(timeline.from(), 0.5);
    QCOMPARE(timeline.to(), qint64(90000));

    timeline.panBy(-3000);
    QVERIFY(!timeline.isFollowing());
    timeline.setDataRange(0, 200000);
    QVERIFY(!timeline.follow());
    // Back at the newest data: following again.
    timeline.panBy(1000000);
    QVERIFY(timeline.isFollowing());
    QCOMPARE(timeline.to(), qint64(200000));
    timeline.setLive(false);
    QVERIFY(!timeline.isFollowing());
}

// How reset and auto zoom choose the span is the window's choice; live, reset goes on following.
void tst_GraphTimeline::resetWhileLiveFollows()
{
    GraphTimeline timeline;
    timeline.setDataRange(2000, 602000);
    timeline.setLive(true);
    timeline.setWindow(5000);
    timeline.setFrom(300000);
    timeline.reset();
    QCOMPARE(std::make_pair(timeline.from(), timeline.window()), std::make_pair(572000LL, 30000LL));
    QVERIFY(timeline.isFollowing());
}

void tst_GraphTimeline::autoRange_data()
{
    QTest::addColumn<double>("low");
    QTest::addColumn<double>("high");
    QTest::newRow("battery") << 10.93 << 12.61;
    QTest::newRow("flat line") << 5.0 << 5.0;
    QTest::newRow("flat zero") << 0.0 << 0.0;
    QTest::newRow("nothing") << qQNaN() << qQNaN();
}

void tst_GraphTimeline::autoRange()
{
    QFETCH(double, low);
    QFETCH(double, high);
    double from = 0, to = 0;
    GraphTicks::autoRange(low, high, 8, &from, &to);
    QVERIFY(to > from);
    if (!qIsNaN(low)) {
        QVERIFY(from <= low && to >= high);
        // Not so wide that the line is squashed: the data spans at least a third of the axis.
        if (high > low)
            QVERIFY((high - low) / (to - from) > 0.33);
        else
            QVERIFY(from < low && to > high);
    }
}

QTEST_MAIN(tst_GraphTimeline)
#include "tst_GraphTimeline.moc"
