#include "widgets/graph/GraphTicks.h"
#include "widgets/graph/GraphTimeline.h"

#include <QtTest>

class tst_GraphTimeline : public QObject
{
    Q_OBJECT
private slots:
    void zoomKeepsTimeInPlace_data();
    void zoomKeepsTimeInPlace();
    void zoomIsBounded();
    void staysInsideTheFlight_data();
    void staysInsideTheFlight();
    void followsLiveDataUntilMovedAway();
    void resetAndAutoZoom_data();
    void resetAndAutoZoom();
    void timeText_data();
    void timeText();
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

void tst_GraphTimeline::zoomIsBounded()
{
    GraphTimeline timeline;
    for (int i = 0; i < 100; ++i)
        timeline.zoomAt(0, 0.5);
    QCOMPARE(timeline.window(), GraphTimeline::kMinWindowMs);
    for (int i = 0; i < 200; ++i)
        timeline.zoomAt(0, 2.0);
    QCOMPARE(timeline.window(), GraphTimeline::kMaxWindowMs);
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
        const qint64 n = w.size() > 1 ? w.at(1).toLongLong() : 0;
        if (w.at(0) == QLatin1String("pan"))
            timeline.panBy(n);
        else if (w.at(0) == QLatin1String("from"))
            timeline.setFrom(n);
        else if (w.at(0) == QLatin1String("window"))
            timeline.setWindow(n);
        else if (w.at(0) == QLatin1String("zoom"))
            timeline.zoomAt(n, w.at(2).toDouble());
        else if (w.at(0) == QLatin1String("data"))
            timeline.setDataRange(n, w.at(2).toLongLong());
        else if (w.at(0) == QLatin1String("live"))
            timeline.setLive(true);
        else if (w.at(0) == QLatin1String("start"))
            timeline.showStart();
        else if (w.at(0) == QLatin1String("end"))
            timeline.showEnd();
        else if (w.at(0) == QLatin1String("reset"))
            timeline.reset();
        else if (w.at(0) == QLatin1String("autozoom"))
            timeline.autoZoom();
        else if (w.at(0) == QLatin1String("fit"))
            timeline.setFitting(true);
        else
            QFAIL(qPrintable(step));
        timeline.follow();
        QVERIFY2(timeline.from() >= timeline.dataFirst() && timeline.to() <= timeline.dataLast(),
                 qPrintable(QStringLiteral("after \"%1\": %2 .. %3 shown of %4 .. %5")
                                .arg(step.trimmed())
                                .arg(timeline.from())
                                .arg(timeline.to())
                                .arg(timeline.dataFirst())
                                .arg(timeline.dataLast())));
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
    QCOMPARE(timeline.from(), qint64(60000));
    QCOMPARE(timeline.to(), qint64(90000));
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

void tst_GraphTimeline::resetAndAutoZoom_data()
{
    QTest::addColumn<bool>("live");
    QTest::addColumn<bool>("autoZoom");
    QTest::addColumn<qint64>("from");
    QTest::addColumn<qint64>("window");
    QTest::newRow("reset") << false << false << qint64(2000) << qint64(30000);
    QTest::newRow("reset while live") << true << false << qint64(602000 - 30000) << qint64(30000);
    QTest::newRow("auto zoom") << false << true << qint64(2000) << qint64(600000);
}

void tst_GraphTimeline::resetAndAutoZoom()
{
    QFETCH(bool, live);
    QFETCH(bool, autoZoom);
    QFETCH(qint64, from);
    QFETCH(qint64, window);
    GraphTimeline timeline;
    timeline.setDataRange(2000, 602000);
    timeline.setLive(live);
    timeline.setWindow(5000);
    timeline.setFrom(300000);
    if (autoZoom)
        timeline.autoZoom();
    else
        timeline.reset();
    QCOMPARE(timeline.from(), from);
    QCOMPARE(timeline.window(), window);
    QCOMPARE(timeline.isFollowing(), live);
}

void tst_GraphTimeline::timeText_data()
{
    QTest::addColumn<qint64>("ms");
    QTest::addColumn<qint64>("step");
    QTest::addColumn<QString>("text");
    QTest::newRow("minutes") << qint64(65000) << qint64(5000) << "1:05";
    QTest::newRow("hours") << qint64(3723000) << qint64(60000) << "1:02:03";
    QTest::newRow("tenths") << qint64(5250) << qint64(500) << "0:05.2";
    QTest::newRow("milliseconds") << qint64(5257) << qint64(5) << "0:05.257";
    QTest::newRow("before the start") << qint64(-5000) << qint64(1000) << "-0:05";
}

void tst_GraphTimeline::timeText()
{
    QFETCH(qint64, ms);
    QFETCH(qint64, step);
    QFETCH(QString, text);
    QCOMPARE(GraphTicks::timeText(ms, step), text);
}

void tst_GraphTimeline::autoRange_data()
{
    QTest::addColumn<double>("low");
    QTest::addColumn<double>("high");
    QTest::newRow("battery") << 10.93 << 12.61;
    QTest::newRow("flat line") << 5.0 << 5.0;
    QTest::newRow("flat zero") << 0.0 << 0.0;
    QTest::newRow("negative") << -12.5 << -3.2;
    QTest::newRow("nothing") << qQNaN() << qQNaN();
}

void tst_GraphTimeline::autoRange()
{
    QFETCH(double, low);
    QFETCH(double, high);
    double from = 0;
    double to = 0;
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
