#include "widgets/quick/SensorModel.h"

#include <QApplication>
#include <QMimeData>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickView>
#include <QtTest>

#include <memory>

// The dial and values scenes, driven through their own properties, functions and input events.
namespace {
std::unique_ptr<QQuickView> loadScene(const QString &file, SensorModel *model = nullptr)
{
    auto view = std::make_unique<QQuickView>();
    view->rootContext()->setContextProperty("dataModel", model);
    view->setResizeMode(QQuickView::SizeRootObjectToView);
    view->resize(300, 300);
    view->setSource(QUrl("qrc:///Qml/Qml/" + file)); // load errors are printed by the view
    return view;
}

// The printed values of the scale, in order.
QStringList tickLabels(QQuickItem *item, QStringList texts = {})
{
    for (QQuickItem *child : item->childItems()) {
        if (child->objectName() == "tickLabel" && child->isVisible())
            texts << child->property("text").toString();
        texts = tickLabels(child, texts);
    }
    return texts;
}

bool near(const QVariant &actual, double expected)
{
    return qAbs(actual.toDouble() - expected) < 1e-9;
}
} // namespace

class tst_QuickScenes : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(qml); }
    void dialScale_data();
    void dialScale();
    void degenerateAutoRangeKeepsScale();
    void drop_data();
    void drop();
    void hint_data();
    void hint();
    void valuesRows();
};

void tst_QuickScenes::dialScale_data()
{
    QTest::addColumn<bool>("autoRange");
    QTest::addColumn<QString>("unit");
    QTest::addColumn<double>("min");
    QTest::addColumn<double>("max");
    QTest::addColumn<double>("realMin");
    QTest::addColumn<double>("realMax");
    QTest::addColumn<double>("realStep");
    QTest::addColumn<int>("realDecimals");
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<double>("value");
    QTest::addColumn<double>("angle"); // where the needle heads: 260 degrees over the scale, from -130
    const QStringList byTen{"-50", "-40", "-30", "-20", "-10", "0", "10", "20", "30", "40", "50"};
    QTest::newRow("straddling zero") << true << "" << -3.2 << 7.5 << -10.0 << 10.0 << 1.0 << 0
                                     << QStringList{"-10", "0", "10"} << 10.2 << 132.6;
    QTest::newRow("degrees") << true << "°" << 10.0 << 200.0 << 0.0 << 360.0 << 10.0 << 0
                             << QStringList{"0", "100", "200", "300"} << 120.0 << 120.0 * 260 / 360 - 130;
    QTest::newRow("degrees straddling zero")
        << true << "°" << -10.0 << 200.0 << -200.0 << 200.0 << 10.0 << 0
        << QStringList{"-200", "-100", "0", "100", "200"} << 200.0 << 130.0;
    QTest::newRow("small positive") << true << "" << 0.12 << 0.35 << 0.0 << 0.4 << 0.01 << 1
                                    << QStringList{"0.0", "0.1", "0.2", "0.3", "0.4"} << 0.12 << -52.0;
    QTest::newRow("all negative") << true << "" << -50.0 << -20.0 << -50.0 << 0.0 << 1.0 << 0
                                  << QStringList(byTen.mid(0, 6)) << -50.0 << -130.0;
    QTest::newRow("wide, automatic, above the scale")
        << true << "" << -3.2 << 47.0 << -50.0 << 50.0 << 1.0 << 0 << byTen << 60.0 << 133.0;
    QTest::newRow("wide, manual, below the scale") << false << "" << -3.2 << 47.0 << -10.0 << 50.0 << 1.0 << 0
                                                   << QStringList(byTen.mid(4)) << -20.0 << -130.0;
    QTest::newRow("manual, narrow") << false << "" << 2.03 << 2.47 << 2.0 << 2.5 << 0.01 << 1
                                    << QStringList{"2.0", "2.1", "2.2", "2.3", "2.4", "2.5"} << 2.25 << 0.0;
    QTest::newRow("manual degrees") << false << "°" << 5.0 << 355.0 << 5.0 << 355.0 << 10.0 << 0
                                    << QStringList{"5", "105", "205", "305"} << 180.0 << 0.0;
}

void tst_QuickScenes::dialScale()
{
    QFETCH(bool, autoRange);
    QFETCH(QString, unit);
    QFETCH(double, min);
    QFETCH(double, max);
    QFETCH(double, value);
    auto view = loadScene("Dial.qml");
    QObject *dial = view->rootObject();
    QVERIFY(dial);
    dial->setProperty("autoRange", autoRange);
    dial->setProperty("unit", unit);
    dial->setProperty("min", min);
    dial->setProperty("max", max);
    dial->setProperty("value", value);
    dial->setProperty("sensorLoaded", true);
    QFETCH(double, realMin);
    QFETCH(double, realMax);
    QFETCH(double, realStep);
    QFETCH(double, angle);
    QVERIFY(near(dial->property("realMin"), realMin));
    QVERIFY(near(dial->property("realMax"), realMax));
    QVERIFY(near(dial->property("realStep"), realStep));
    QTEST(dial->property("realDecimals").toInt(), "realDecimals");
    QTEST(tickLabels(view->rootObject()), "labels");
    QVERIFY2(near(dial->property("needleAngle"), angle),
             qPrintable(dial->property("needleAngle").toString()));
}

void tst_QuickScenes::degenerateAutoRangeKeepsScale()
{
    auto view = loadScene("Dial.qml");
    QObject *dial = view->rootObject();
    dial->setProperty("sensorLoaded", true);
    dial->setProperty("min", 0.12);
    dial->setProperty("max", 0.35);
    dial->setProperty("value", 0.3);
    dial->setProperty("max", 0.12); // a single sample: min = max
    QVERIFY(near(dial->property("realMin"), 0.0));
    QVERIFY(near(dial->property("realMax"), 0.4));
    QVERIFY(near(dial->property("needleAngle"), 0.0));
    QVERIFY2(tickLabels(view->rootObject()).isEmpty(), "nothing is drawn on the scale while min = max");
    dial->setProperty("max", 0.35);
    QCOMPARE(tickLabels(view->rootObject()).size(), 5);
    dial->setProperty("sensorLoaded", false);
    QVERIFY2(tickLabels(view->rootObject()).isEmpty(), "nothing is drawn on the scale without a variable");
}

void tst_QuickScenes::drop_data()
{
    QTest::addColumn<QString>("format");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<bool>("emitted");
    QTest::addColumn<double>("id");
    QTest::addColumn<double>("param");
    QTest::newRow("both keys") << "text/json" << QByteArray(R"({"Sensor":4294967295,"Param":3})") << true
                               << 4294967295.0 << 3.0;
    QTest::newRow("id past 2^31") << "text/json" << QByteArray(R"({"Sensor":2147483648,"Param":12})") << true
                                  << 2147483648.0 << 12.0;
    QTest::newRow("no Param") << "text/json" << QByteArray(R"({"Sensor":5})") << false << 0.0 << 0.0;
    QTest::newRow("no Sensor") << "text/json" << QByteArray(R"({"Param":5})") << false << 0.0 << 0.0;
    QTest::newRow("malformed") << "text/json" << QByteArray(R"({"Sensor":5,"Param")") << false << 0.0 << 0.0;
    QTest::newRow("not an object") << "text/json" << QByteArray("[5, 3]") << false << 0.0 << 0.0;
    QTest::newRow("other format") << "text/plain" << QByteArray(R"({"Sensor":1,"Param":2})") << false << 0.0
                                  << 0.0;
}

void tst_QuickScenes::drop()
{
    QFETCH(QString, format);
    QFETCH(QByteArray, payload);
    QFETCH(bool, emitted);
    QMimeData data;
    data.setData(format, payload);
    const bool json = format == "text/json";
    SensorModel model;
    for (const QString scene : {"Dial.qml", "Values.qml"}) {
        auto view = loadScene(scene, &model);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
        QObject *root = view->rootObject();
        QSignalSpy dropped(root, SIGNAL(sensorDropped(QVariant, QVariant)));
        const QPoint centre(150, 150);
        QDragEnterEvent enter(centre, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(view.get(), &enter);
        QCOMPARE(enter.isAccepted(), json);
        QCOMPARE(enter.dropAction(), Qt::CopyAction);
        QCOMPARE(root->property("color").value<QColor>(), QColor(json ? "#d8d8d8" : "white"));
        QDropEvent drop(centre, Qt::CopyAction | Qt::MoveAction, &data, Qt::LeftButton, Qt::NoModifier);
        QCoreApplication::sendEvent(view.get(), &drop);
        QCOMPARE(root->property("color").value<QColor>(), QColor("white"));
        QCOMPARE(dropped.count(), emitted ? 1 : 0);
        if (emitted) {
            QTEST(dropped.at(0).at(0).toDouble(), "id");
            QTEST(dropped.at(0).at(1).toDouble(), "param");
        }
    }
}

void tst_QuickScenes::hint_data()
{
    QTest::addColumn<bool>("firstLoad");
    QTest::newRow("first load: at once") << true;
    QTest::newRow("later: fades") << false;
}

void tst_QuickScenes::hint()
{
    QFETCH(bool, firstLoad);
    SensorModel model;
    for (const QString scene : {"Dial.qml", "Values.qml"}) {
        auto view = loadScene(scene, &model);
        view->show();
        QVERIFY(QTest::qWaitForWindowExposed(view.get()));
        QObject *root = view->rootObject();
        auto *band = root->findChild<QQuickItem *>("hintBand");
        QVERIFY(band);
        QVERIFY(band->isVisible());
        QCOMPARE(band->height(), 30.0); // 10 % of 300
        // A fade passes through partial opacities; going at once does not.
        int partial = 0;
        connect(band, &QQuickItem::opacityChanged, this,
                [&] { partial += band->opacity() > 0 && band->opacity() < 1; });
        root->setProperty("firstLoad", firstLoad);
        if (scene == "Dial.qml")
            root->setProperty("sensorLoaded", true);
        else
            model.append({{7, 1}, "Speed", "km/h", "12", "0", "30", 0, "GPS"});
        QCOMPARE(band->isVisible(), !firstLoad);
        QTRY_VERIFY_WITH_TIMEOUT(!band->isVisible(), 1000);
        QCOMPARE(partial > 0, !firstLoad);
        model.clear();
    }
}

void tst_QuickScenes::valuesRows()
{
    SensorModel model;
    for (const char *label : {"A", "B", "C"})
        model.append(
            {{0x80000001u, quint32(model.rowCount() + 1)}, label, "V", "1.0", "0.5", "2.0", 1, "Rx"});
    auto view = loadScene("Values.qml", &model);
    view->show();
    QVERIFY(QTest::qWaitForWindowExposed(view.get()));
    QObject *root = view->rootObject();
    QCOMPARE(root->findChild<QObject *>("rows")->property("count").toInt(), 3);

    // Rows are 62 high, 5 apart, 8 from the edge: row i spans 8 + 67 i … 70 + 67 i.
    QSignalSpy menu(root, SIGNAL(popupMenu(int)));
    QSignalSpy focus(root, SIGNAL(setFocus()));
    const QVector<QPair<int, int>> rightPresses{{39, 0}, {106, 1}, {72, -1}, {280, -1}};
    for (const auto &press : rightPresses)
        QTest::mouseClick(view.get(), Qt::RightButton, {}, QPoint(150, press.first));
    QCOMPARE(menu.count(), rightPresses.size());
    for (int i = 0; i < rightPresses.size(); ++i)
        QCOMPARE(menu.at(i).at(0).toInt(), rightPresses.at(i).second);

    // Drag the first row onto the third.
    QTest::mousePress(view.get(), Qt::LeftButton, {}, QPoint(150, 39));
    for (int y = 49; y <= 173; y += 10)
        QTest::mouseMove(view.get(), QPoint(150, y));
    QTest::mouseRelease(view.get(), Qt::LeftButton, {}, QPoint(150, 173));
    QStringList order;
    for (const SensorModel::Row &row : model.rows())
        order << row.label;
    QCOMPARE(order, QStringList({"B", "C", "A"}));
    QCOMPARE(focus.count(), rightPresses.size() + 1);
}

int main(int argc, char **argv)
{
    qputenv("QT_QUICK_BACKEND", "software");
    // A widgets application, as in the studio (the test helpers for mouse events expect one).
    QApplication app(argc, argv);
    tst_QuickScenes test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_QuickScenes.moc"
