#include <QApplication>
#include <QQmlContext>
#include <QQuickItem>
#include <QQuickView>
#include <QtTest>

#include <memory>

// The device configuration pages scene, driven as the window drives it, against a window double that
// records every call the scene makes.
namespace {
class FakeWindow : public QObject
{
    Q_OBJECT
public:
    QStringList calls;
    QVector<bool> visibility; // per component index; missing: visible
    double exprValue = 0;

    Q_INVOKABLE void goToPage(int pageId, const QString &file, int wizardMode, int meaning)
    {
        calls << QString("goToPage(%1,%2,%3,%4)").arg(pageId).arg(file).arg(wizardMode).arg(meaning);
    }
    Q_INVOKABLE void goBackPage() { calls << "goBackPage()"; }
    Q_INVOKABLE void executeCommand(int cmd, int val, int meaning, int page, int wizard)
    {
        calls
            << QString("executeCommand(%1,%2,%3,%4,%5)").arg(cmd).arg(val).arg(meaning).arg(page).arg(wizard);
    }
    Q_INVOKABLE void writeParam(int param, int value)
    {
        calls << QString("writeParam(%1,%2)").arg(param).arg(value);
    }
    Q_INVOKABLE void writeBit(int param, int bitNo, int val)
    {
        calls << QString("writeBit(%1,%2,%3)").arg(param).arg(bitNo).arg(val);
    }
    Q_INVOKABLE bool isComponentVisible(int index)
    {
        return index >= visibility.size() || visibility.at(index);
    }
    Q_INVOKABLE double parseExpr(const QString &) { return exprValue; }
    Q_INVOKABLE QString parseExprLabel(const QString &text) { return "<" + text + ">"; }
    Q_INVOKABLE void importData() { calls << "importData()"; }
    Q_INVOKABLE void exportData() { calls << "exportData()"; }

    // What the device holds: {id, value, floatValue} per parameter.
    void deliver(const QVector<QPair<int, int>> &values)
    {
        QVariantList list;
        for (const auto &v : values)
            list << QVariantMap{{"id", v.first}, {"value", v.second}, {"floatValue", double(v.second)}};
        emit paramsReceived(list);
    }

signals:
    void paramsReceived(const QVariantList &params);
};

struct Scene
{
    FakeWindow window;
    QObject settings;
    QQuickView view;

    Scene()
    {
        view.rootContext()->setContextProperty("MainWindow", &window);
        view.rootContext()->setContextProperty("AppPath", QUrl::fromLocalFile(QDir::tempPath() + "/"));
        view.rootContext()->setContextProperty("DeviceSettings", &settings);
        view.setResizeMode(QQuickView::SizeRootObjectToView);
        view.resize(380, 600);
        view.setSource(QUrl("qrc:///Qml/Qml/LxRoot.qml"));
        view.show();
    }
    QQuickItem *root() const { return view.rootObject(); }
    QVariant call(const char *function, const QVariant &a = QVariant(), const QVariant &b = QVariant())
    {
        QVariant result;
        if (b.isValid())
            QMetaObject::invokeMethod(root(), function, Q_RETURN_ARG(QVariant, result), Q_ARG(QVariant, a),
                                      Q_ARG(QVariant, b));
        else if (a.isValid())
            QMetaObject::invokeMethod(root(), function, Q_RETURN_ARG(QVariant, result), Q_ARG(QVariant, a));
        else
            QMetaObject::invokeMethod(root(), function, Q_RETURN_ARG(QVariant, result));
        return result;
    }
    QList<QQuickItem *> components()
    {
        QList<QQuickItem *> items;
        for (const QVariant &v : call("currentComponents").toList())
            items << qobject_cast<QQuickItem *>(v.value<QObject *>());
        return items;
    }
    QQuickItem *stack() const { return root()->findChild<QQuickItem *>("pageStack"); }
    // No page transition running, and the current page laid out (layouts place their items when the window
    // polishes, which a grab does at once).
    bool settled()
    {
        if (stack()->property("busy").toBool())
            return false;
        view.grabWindow();
        return true;
    }
    void click(QQuickItem *item)
    {
        const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
        QTest::mouseClick(&view, Qt::LeftButton, {}, centre.toPoint());
    }
};

const char *const kAdders[] = {"addRow",     "addLabel",     "addLink",       "addCommand",
                               "addIntbox",  "addSelectbox", "addChannelbox", "addDatebox",
                               "addTimebox", "addChart",     "addBitmap",     "addButton"};
} // namespace

class tst_LxScenes : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { Q_INIT_RESOURCE(lx); }
    void addWithoutPage_data();
    void addWithoutPage();
    void knownPagePopsBack();
    void rowWidths_data();
    void rowWidths();
    void channel_data();
    void channel();
    void numberBoxSendsWhatIsShown_data();
    void numberBoxSendsWhatIsShown();
    void choiceSendsItsValue_data();
    void choiceSendsItsValue();
    void shownValue_data();
    void shownValue();
    void visibilityFollowsValues();
    void escapeGoesBack();
    void statusMessage();
    void barLinksWaitForLoading();
    void clicksReachTheWindow();
};

void tst_LxScenes::addWithoutPage_data()
{
    QTest::addColumn<QString>("function");
    for (const char *adder : kAdders)
        QTest::newRow(adder) << QString(adder);
}

void tst_LxScenes::addWithoutPage()
{
    QFETCH(QString, function);
    Scene scene;
    QVERIFY(scene.root());
    const QVariantMap params{{"pText", "x"}, {"pItems", 1}, {"pParam", 1}};
    QCOMPARE(scene.call(function.toLatin1(), params), QVariant(false));
    QCOMPARE(scene.call("addPage", "Main", 0), QVariant(true));
    QCOMPARE(scene.call(function.toLatin1(), params), QVariant(true));
    QCOMPARE(scene.components().size(), 1);
}

void tst_LxScenes::knownPagePopsBack()
{
    Scene scene;
    QCOMPARE(scene.call("addPage", "Main", 0), QVariant(true));
    QVERIFY(scene.call("addLabel", QVariantMap{{"pText", "main"}}).toBool());
    QCOMPARE(scene.call("addPage", "Failsafe", 1), QVariant(true));
    QCOMPARE(scene.call("addPage", "Channels", 2), QVariant(true));
    QTRY_VERIFY(scene.settled());
    QCOMPARE(scene.stack()->property("depth").toInt(), 3);

    QCOMPARE(scene.call("addPage", "Main", 0), QVariant(false));
    QTRY_VERIFY(scene.settled());
    QCOMPARE(scene.stack()->property("depth").toInt(), 1);
    QCOMPARE(scene.root()->property("currentPageId").toInt(), 0);
    // The page is the one built before, with its components.
    QCOMPARE(scene.components().size(), 1);
    QCOMPARE(scene.components().at(0)->property("pText").toString(), QString("main"));
    // A page built before but no longer on the stack is pushed again, still not built twice.
    QCOMPARE(scene.call("addPage", "Failsafe", 1), QVariant(false));
    QTRY_VERIFY(scene.settled());
    QCOMPARE(scene.stack()->property("depth").toInt(), 2);
}

void tst_LxScenes::rowWidths_data()
{
    QTest::addColumn<int>("items");
    QTest::addColumn<QVector<int>>("requested");
    QTest::addColumn<QVector<int>>("widths");
    // Units of 310: equal shares of 310 / items, given widths capped to what is left, and the last of a row
    // taking the rest when less than 10 would be left.
    QTest::newRow("three equal shares") << 3 << QVector<int>{-1, -1, -1} << QVector<int>{103, 103, 104};
    QTest::newRow("two equal shares") << 2 << QVector<int>{-1, -1} << QVector<int>{155, 155};
    QTest::newRow("capped to what is left") << 2 << QVector<int>{200, 200} << QVector<int>{200, 110};
    QTest::newRow("sliver taken by the last")
        << 3 << QVector<int>{100, 100, 105} << QVector<int>{100, 100, 110};
    QTest::newRow("room left stays empty") << 2 << QVector<int>{100, 100} << QVector<int>{100, 100};
    QTest::newRow("share after a given width") << 3 << QVector<int>{200, -1, -1} << QVector<int>{200, 103, 7};
    QTest::newRow("outside a row") << 0 << QVector<int>{-1, 400, 120} << QVector<int>{310, 310, 120};
}

void tst_LxScenes::rowWidths()
{
    QFETCH(int, items);
    QFETCH(QVector<int>, requested);
    QFETCH(QVector<int>, widths);
    Scene scene;
    QVERIFY(QTest::qWaitForWindowExposed(&scene.view));
    scene.call("addPage", "Main", 0);
    if (items > 0)
        QVERIFY(scene.call("addRow", QVariantMap{{"pItems", items}}).toBool());
    for (int w : requested)
        QVERIFY(scene.call("addLabel", QVariantMap{{"pText", "x"}, {"pWidth", w}}).toBool());
    // One beyond the row goes to the page at full width.
    QVERIFY(scene.call("addLabel", QVariantMap{{"pText", "after"}}).toBool());
    QList<QQuickItem *> all = scene.components();
    if (items > 0) {
        QCOMPARE(all.takeFirst()->property("pItems").toInt(), items);
        for (int i = 0; i < items; ++i)
            QCOMPARE(all.at(i)->parentItem(), all.at(0)->parentItem());
        QVERIFY(all.last()->parentItem() != all.at(0)->parentItem());
    }
    QCOMPARE(all.last()->property("pWidth").toInt(), 310);
    all.removeLast();
    QVector<int> actual;
    for (QQuickItem *item : all)
        actual << item->property("pWidth").toInt();
    QCOMPARE(actual, widths);

    // On screen the widths are shares of the page: a full-width component spans the whole row.
    QTRY_VERIFY(scene.settled());
    const QList<QQuickItem *> shown = scene.components();
    const double full = shown.last()->width();
    QVERIFY(full > 300);
    for (int i = 0; i < widths.size(); ++i)
        QVERIFY2(qAbs(shown.at(i + (items > 0))->width() - full * widths.at(i) / 310) < 1.0,
                 qPrintable(QString::number(i)));
}

void tst_LxScenes::channel_data()
{
    QTest::addColumn<int>("value");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("proportional");
    QTest::addColumn<double>("expr");
    QTest::addColumn<QString>("second");
    QTest::newRow("learning") << -1 << "..." << 1 << 42.0 << "42%";
    QTest::newRow("none") << 0 << "N/A" << 2 << 42.0 << "42";
    QTest::newRow("channel 5") << 5 << "Ch. 5" << 0 << 1.0 << QString(QChar(0x2714));
    QTest::newRow("channel 12, off") << 12 << "Ch. 12" << 0 << 0.0 << QString(QChar(0x2718));
}

void tst_LxScenes::channel()
{
    QFETCH(int, value);
    QFETCH(int, proportional);
    QFETCH(double, expr);
    Scene scene;
    scene.window.exprValue = expr;
    scene.call("addPage", "Main", 0);
    QVERIFY(scene
                .call("addChannelbox", QVariantMap{{"pParam", 15},
                                                   {"pText", "P15 > 0"},
                                                   {"pProportional", proportional},
                                                   {"pValue", 3}})
                .toBool());
    QQuickItem *box = scene.components().at(0);
    scene.window.deliver({{14, 9}, {15, value}});
    QTEST(box->property("channelText").toString(), "text");
    QTEST(box->property("secondText").toString(), "second");
    if (value < 0) {
        // The dots step: none, one, two, three, none, ... every 800 ms.
        QStringList seen{box->property("channelText").toString()};
        QElapsedTimer clock;
        clock.start();
        while (seen.size() < 3 && clock.elapsed() < 4000) {
            QTest::qWait(50);
            const QString now = box->property("channelText").toString();
            if (now != seen.last())
                seen << now;
        }
        QCOMPARE(seen, QStringList({"...", "", "."}));
    }
    QVERIFY2(scene.window.calls.isEmpty(), qPrintable(scene.window.calls.join(' ')));
}

void tst_LxScenes::numberBoxSendsWhatIsShown_data()
{
    QTest::addColumn<int>("decimals");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<int>("sent");
    QTest::addColumn<QString>("shown");
    QTest::addColumn<int>("stepped"); // one step up from there
    // Limits 0 .. 5000 raw; the step is max(0.01, 10^-decimals) shown, i.e. one raw unit up to 2 decimals.
    QTest::newRow("12.34 with 2 decimals") << 2 << "12.34" << 1234 << "12.34" << 1235;
    QTest::newRow("0.29 with 2 decimals") << 2 << "0.29" << 29 << "0.29" << 30;
    QTest::newRow("comma") << 1 << "4,5" << 45 << "4.5" << 46;
    QTest::newRow("above the limit") << 2 << "99" << 5000 << "50.00" << 5000;
    QTest::newRow("below the limit") << 0 << "-3" << 0 << "0" << 1;
    QTest::newRow("3 decimals step 0.01") << 3 << "1.5" << 1500 << "1.500" << 1510;
}

void tst_LxScenes::numberBoxSendsWhatIsShown()
{
    QFETCH(int, decimals);
    QFETCH(QString, typed);
    QFETCH(int, sent);
    QFETCH(int, stepped);
    Scene scene;
    QVERIFY(QTest::qWaitForWindowExposed(&scene.view));
    scene.call("addPage", "Main", 0);
    QVERIFY(scene
                .call("addIntbox", QVariantMap{{"pText", "Alarm"},
                                               {"pParam", 7},
                                               {"pMin", 0},
                                               {"pMax", 5000},
                                               {"pDecimals", decimals},
                                               {"pValue", 300}})
                .toBool());
    QQuickItem *box = scene.components().at(0);
    auto *spin = box->findChild<QQuickItem *>("spinBox");
    QVERIFY(spin);

    // Values from the device are shown, never sent back.
    scene.window.deliver({{7, 2500}});
    QCOMPARE(spin->property("displayText").toString(),
             QString::number(2500 / std::pow(10.0, decimals), 'f', decimals));
    QVERIFY(scene.window.calls.isEmpty());

    QTRY_VERIFY(scene.settled());
    spin->forceActiveFocus();
    QTest::keyClick(&scene.view, Qt::Key_A, Qt::ControlModifier);
    for (const QChar c : typed)
        QTest::keyClick(&scene.view, c.toLatin1());
    QTest::keyClick(&scene.view, Qt::Key_Return);
    QCOMPARE(scene.window.calls, QStringList{QString("writeParam(7,%1)").arg(sent)});
    QTEST(spin->property("displayText").toString(), "shown");
    QTest::keyClick(&scene.view, Qt::Key_Up);
    const QString last = scene.window.calls.last();
    if (stepped == sent)
        QCOMPARE(scene.window.calls.size(), 1); // already at the limit: nothing more to send
    else
        QCOMPARE(last, QString("writeParam(7,%1)").arg(stepped));

    // The device refusing the value puts its own back in the box.
    scene.window.deliver({{7, 2500}});
    QCOMPARE(box->property("pValue").toInt(), 2500);
    QCOMPARE(spin->property("value").toInt(), 2500);
}

void tst_LxScenes::choiceSendsItsValue_data()
{
    QTest::addColumn<QString>("adder");
    QTest::addColumn<QVariantMap>("params");
    QTest::addColumn<int>("held");
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QString>("heldText");
    QTest::addColumn<int>("next"); // the choice below the held one
    QTest::addColumn<QString>("nextText");
    const QVariantList choices{QVariantList{0, "Off"}, QVariantList{1, "On"}, QVariantList{2, "Hold"}};
    const QVariantList channels{QVariantList{1, "Channel 1"}, QVariantList{2, "Channel 2"}};
    QTest::newRow("choice") << "addSelectbox" << QVariantMap{{"pParam", 3}, {"pKeyValues", choices}} << 1
                            << QByteArray("shownText") << "On" << 2 << "Hold";
    QTest::newRow("channel after N/A")
        << "addChannelbox" << QVariantMap{{"pParam", 3}, {"pKeyValues", channels}} << 0
        << QByteArray("channelText") << "N/A" << 1 << "Ch. 1";
}

void tst_LxScenes::choiceSendsItsValue()
{
    QFETCH(QString, adder);
    QFETCH(QVariantMap, params);
    QFETCH(int, held);
    QFETCH(QByteArray, property);
    QFETCH(int, next);
    Scene scene;
    QVERIFY(QTest::qWaitForWindowExposed(&scene.view));
    scene.call("addPage", "Main", 0);
    QVERIFY(scene.call(adder.toLatin1(), params).toBool());
    QTRY_VERIFY(scene.settled());
    QQuickItem *box = scene.components().at(0);
    scene.window.deliver({{3, held}});
    QTEST(box->property(property).toString(), "heldText");

    box->findChild<QQuickItem *>("comboBox")->forceActiveFocus();
    QTest::keyClick(&scene.view, Qt::Key_Down);
    QCOMPARE(scene.window.calls, QStringList{QString("writeParam(3,%1)").arg(next)});
    QTEST(box->property(property).toString(), "nextText");
    // Refused: the device's value comes back and is shown again.
    scene.window.deliver({{3, held}});
    QTEST(box->property(property).toString(), "heldText");
    QCOMPARE(scene.window.calls.size(), 1);
}

void tst_LxScenes::shownValue_data()
{
    QTest::addColumn<QString>("adder");
    QTest::addColumn<QVariantMap>("params");
    QTest::addColumn<int>("value"); // of parameter 3, from the device
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QString>("shown");
    const QVariantList choices{QVariantList{0, "Off"}, QVariantList{1, "On"}, QVariantList{2, "Hold"}};
    QTest::newRow("choice") << "addSelectbox" << QVariantMap{{"pParam", 3}, {"pKeyValues", choices}} << 2
                            << QByteArray("shownText") << "Hold";
    QTest::newRow("value without a choice")
        << "addSelectbox" << QVariantMap{{"pParam", 3}, {"pKeyValues", choices}} << 7
        << QByteArray("shownText") << "7";
    QTest::newRow("time with hours") << "addTimebox" << QVariantMap{{"pParam", 3}, {"pAllowHour", 1}} << 3725
                                     << QByteArray("shownText") << "1:02:05";
    QTest::newRow("time in minutes") << "addTimebox" << QVariantMap{{"pParam", 3}} << 3725
                                     << QByteArray("shownText") << "62:05";
    QTest::newRow("date") << "addDatebox" << QVariantMap{{"pParam", 3}} << 20240517 << QByteArray("shownText")
                          << "2024-05-17";
    QTest::newRow("no date") << "addDatebox" << QVariantMap{{"pParam", 3}} << 0 << QByteArray("shownText")
                             << "Not set";
    QTest::newRow("read-only number")
        << "addIntbox" << QVariantMap{{"pParam", 3}, {"pDecimals", 1}, {"pReadOnly", 1}} << -55
        << QByteArray("shownText") << "-5.5";
    // The decimals arrive after the box was made: the number shows them all the same.
    QTest::newRow("editable number at zero")
        << "addIntbox" << QVariantMap{{"pParam", 3}, {"pDecimals", 1}, {"pMin", -1000}, {"pMax", 1000}} << 0
        << QByteArray("spinBox.displayText") << "0.0";
    QTest::newRow("dynamic label") << "addLabel" << QVariantMap{{"pText", "{P3}"}, {"pDynamic", 1}} << 1
                                   << QByteArray("text") << "<{P3}>";
    QTest::newRow("static label") << "addLabel" << QVariantMap{{"pText", "{P3}"}} << 1 << QByteArray("text")
                                  << "{P3}";
    QTest::newRow("bit set") << "addButton" << QVariantMap{{"pParam", 3}, {"pBitNo", 2}} << 4
                             << QByteArray("isSet") << "true";
    QTest::newRow("bit clear") << "addButton" << QVariantMap{{"pParam", 3}, {"pBitNo", 2}} << 11
                               << QByteArray("isSet") << "false";
    QTest::newRow("image beside the program")
        << "addBitmap" << QVariantMap{{"pText", "thermometer"}, {"pExt", "png"}} << 0 << QByteArray("source")
        << QUrl::fromLocalFile(QDir::tempPath() + "/Devices/thermometer.png").toString();
    QTest::newRow("image outside the folder")
        << "addBitmap" << QVariantMap{{"pText", "../../etc/x"}, {"pExt", "png"}} << 0 << QByteArray("source")
        << "";
}

void tst_LxScenes::shownValue()
{
    QFETCH(QString, adder);
    QFETCH(QVariantMap, params);
    QFETCH(int, value);
    QFETCH(QByteArray, property);
    Scene scene;
    scene.call("addPage", "Main", 0);
    QVERIFY(scene.call(adder.toLatin1(), params).toBool());
    scene.window.deliver({{2, 99}, {3, value}});
    QObject *shown = scene.components().at(0);
    if (property.startsWith("spinBox.")) {
        shown = shown->findChild<QObject *>(QStringLiteral("spinBox"));
        property = property.mid(8);
    }
    QTEST(shown->property(property).toString(), "shown");
    QVERIFY(scene.window.calls.isEmpty());
}

void tst_LxScenes::visibilityFollowsValues()
{
    Scene scene;
    scene.call("addPage", "Main", 0);
    scene.call("addRow", QVariantMap{{"pItems", 2}});
    scene.call("addLabel", QVariantMap{{"pText", "a"}});
    scene.call("addIntbox", QVariantMap{{"pParam", 3}});
    scene.call("addCommand", QVariantMap{{"pText", "Reset"}, {"pCommand", 1}});
    QTRY_VERIFY(scene.settled());
    const QList<QQuickItem *> items = scene.components();
    QCOMPARE(items.size(), 4); // the row counts: indices follow creation order

    auto shown = [&] {
        QVector<bool> v;
        for (QQuickItem *item : items)
            v << item->isVisible();
        return v;
    };
    scene.window.visibility = {true, true, false, true};
    scene.window.deliver({{3, 1}});
    QCOMPARE(shown(), QVector<bool>({true, true, false, true}));
    scene.window.visibility = {true, false, true, false};
    scene.window.deliver({{3, 2}});
    QCOMPARE(shown(), QVector<bool>({true, false, true, false}));
    // A hidden row hides what is in it.
    scene.window.visibility = {false, true, true, true};
    scene.window.deliver({{3, 2}});
    QCOMPARE(shown(), QVector<bool>({false, false, false, true}));
}

void tst_LxScenes::escapeGoesBack()
{
    Scene scene;
    QVERIFY(QTest::qWaitForWindowExposed(&scene.view));
    scene.call("addPage", "Main", 0);
    scene.call("addLabel", QVariantMap{{"pText", "main"}});
    scene.call("addPage", "Failsafe", 4);
    scene.call("addIntbox", QVariantMap{{"pParam", 3}});
    QTRY_VERIFY(scene.settled());
    QCOMPARE(scene.stack()->property("depth").toInt(), 2);

    // Also while a number box has the keyboard.
    scene.components().at(0)->findChild<QQuickItem *>("spinBox")->forceActiveFocus();
    QTest::keyClick(&scene.view, Qt::Key_Escape);
    QCOMPARE(scene.window.calls, QStringList{"goBackPage()"});
    QTRY_VERIFY(scene.settled());
    QCOMPARE(scene.stack()->property("depth").toInt(), 1);
    QCOMPARE(scene.root()->property("currentPageId").toInt(), 0);
    QCOMPARE(scene.components().at(0)->property("pText").toString(), QString("main"));
    // Nothing below the first page.
    QTest::keyClick(&scene.view, Qt::Key_Escape);
    QCOMPARE(scene.window.calls.size(), 1);
    QCOMPARE(scene.stack()->property("depth").toInt(), 1);
}

void tst_LxScenes::statusMessage()
{
    Scene scene;
    auto *box = scene.root()->findChild<QQuickItem *>("statusBox");
    auto *text = scene.root()->findChild<QQuickItem *>("statusText");
    QVERIFY(box && text);
    QVERIFY(!box->isVisible());
    scene.call("setStatusMessage", "Not written: above 4.20");
    QCOMPARE(text->property("text").toString(), QString("Not written: above 4.20"));
    QVERIFY(box->isVisible());
    QVERIFY(box->opacity() > 0.9);
    QCOMPARE(box->height(), 35.0);
    QCOMPARE(scene.root()->height() - (box->y() + box->height()), 70.0);
    // Fades out within its 3 s.
    QTRY_VERIFY_WITH_TIMEOUT(!box->isVisible(), 4000);
}

void tst_LxScenes::barLinksWaitForLoading()
{
    Scene scene;
    QVERIFY(QTest::qWaitForWindowExposed(&scene.view));
    auto *importLink = scene.root()->findChild<QQuickItem *>("importLink");
    auto *exportLink = scene.root()->findChild<QQuickItem *>("exportLink");
    QVERIFY(importLink && exportLink);
    QCOMPARE(importLink->property("text").toString(), QString("<< Import settings"));
    QCOMPARE(exportLink->property("text").toString(), QString("Export settings >>"));

    scene.call("addPage", "Main", 0);
    scene.call("pageLoaded", 40);
    QTRY_VERIFY(scene.settled());
    QVERIFY(scene.root()->property("loading").toBool());
    QVERIFY(!importLink->isEnabled());
    QVERIFY(!exportLink->isEnabled());
    scene.click(importLink);
    scene.click(exportLink);
    QVERIFY(scene.window.calls.isEmpty());

    scene.call("pageLoaded", 100);
    QTRY_VERIFY(!scene.root()->property("loading").toBool());
    scene.click(importLink);
    scene.click(exportLink);
    QCOMPARE(scene.window.calls, QStringList({"importData()", "exportData()"}));

    // A new page loads again.
    scene.call("addPage", "Failsafe", 1);
    QVERIFY(scene.root()->property("loading").toBool());
    QVERIFY(!importLink->isEnabled());
}

void tst_LxScenes::clicksReachTheWindow()
{
    Scene scene;
    QVERIFY(QTest::qWaitForWindowExposed(&scene.view));
    scene.call("addPage", "Main", 0);
    scene.call("addLink", QVariantMap{{"pText", "Failsafe >>"}, {"pPage", 4}});
    scene.call(
        "addLink",
        QVariantMap{
            {"pText", "Wizard"}, {"pPage", 2}, {"pFile", "w.bin"}, {"pWizardMode", 1}, {"pMeaning", 3}});
    scene.call("addCommand", QVariantMap{{"pText", "Bind"},
                                         {"pCommand", 2},
                                         {"pValue", 7},
                                         {"pMeaning", 1},
                                         {"pPage", 5},
                                         {"pWizard", 6}});
    scene.call("addButton",
               QVariantMap{{"pText", "Weak signal"}, {"pParam", 16}, {"pBitNo", 1}, {"pValue", 5}});
    scene.call("addButton",
               QVariantMap{{"pText", "Low voltage"}, {"pParam", 16}, {"pBitNo", 0}, {"pValue", 5}});
    QTRY_VERIFY(scene.settled());
    auto *busy = scene.root()->findChild<QQuickItem *>("busyIndicator");
    QVERIFY(busy);
    QVERIFY(!busy->property("running").toBool());
    for (QQuickItem *item : scene.components())
        scene.click(item);
    // Each button holds 5 = 0b101: setting bit 1 gives 7, clearing bit 0 gives 4.
    QCOMPARE(scene.window.calls,
             QStringList({"goToPage(4,,-1,0)", "goToPage(2,w.bin,1,3)", "executeCommand(2,7,1,5,6)",
                          "writeBit(16,1,7)", "writeBit(16,0,4)"}));
    QVERIFY(busy->property("running").toBool());
    QTRY_VERIFY_WITH_TIMEOUT(!busy->property("running").toBool(), 1500);
}

int main(int argc, char **argv)
{
    qputenv("QT_QUICK_BACKEND", "software");
    QApplication app(argc, argv);
    tst_LxScenes test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_LxScenes.moc"
