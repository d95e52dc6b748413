#include "LayoutTestSupport.h"

#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/SerializableWidget.h"
#include "widgets/layout/WidgetPlaceholder.h"
#include "widgets/layout/WindowTypes.h"

#include <QMainWindow>
#include <QSignalSpy>
#include <QtTest>

// A data window that records what reaches it, with wiring of its own as a graph and as a table, so the
// manager's part can be watched: which wiring runs for which type, and what a replaced window no longer
// hears.
class FakeWindow : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    int load(const LayoutJsonValue &object) override
    {
        loaded = object.text();
        return 0;
    }
    int save(LayoutJsonWriter &writer, quint8) override
    {
        writer.writeString(QStringLiteral("Type"), QStringLiteral("Graph"));
        return 0;
    }
    bool addVariable(const TelemetryVar *variable) override
    {
        addData(variable);
        return true;
    }

    static inline QList<FakeWindow *> made; // by the factory below, in order
    static QWidget *make(WidgetManager *)
    {
        made << new FakeWindow;
        return made.last();
    }

    QStringList calls;
    QByteArray loaded;
    const TelemetryVar *added = nullptr;

    void addData(const TelemetryVar *variable)
    {
        added = variable;
        calls << "addData";
    }
    void logFileLoaded() { calls << "logFileLoaded"; }
    void externalTimestampMoved(long time, bool flag)
    {
        calls << QStringLiteral("externalTimestampMoved %1 %2").arg(time).arg(flag);
    }

    static void wireAsGraph(FakeWindow *w, WindowHub *hub, TelemetryData *store)
    {
        connect(hub, &WindowHub::addSensorRequest, w, &FakeWindow::addData);
        connect(hub, &WindowHub::logFileLoadedRequest, w, &FakeWindow::logFileLoaded);
        connect(hub, &WindowHub::mouseOverTimestampRequest, w, &FakeWindow::externalTimestampMoved);
        w->calls << QStringLiteral("wired as a graph, logging %1").arg(store->isLogging());
    }
    static void wireAsTable(FakeWindow *w, WindowHub *hub, TelemetryData *)
    {
        connect(hub, &WindowHub::addSensorRequest, w, &FakeWindow::addData);
    }

signals:
    void gotFocus();
};

namespace {
QAction *typeEntry(QMenu *menu, const QString &submenu, int code)
{
    QAction *sub = menuEntry(menu, submenu);
    return sub && sub->menu() ? sub->menu()->actions().value(code) : nullptr;
}

const QByteArray kGraph = R"({"Type":"Graph","ShowGrid":1})";
const QByteArray kDial = R"({"Type":"Dial","Sensor":5,"Param":2,"Props":[1,0,100,1]})";

QByteArray splitJson(const QByteArray &orientation, const QList<QByteArray> &items)
{
    QByteArray json = R"({"Type":"Container","Vertical":)" + orientation + R"(,"Items":[)";
    for (int i = 0; i < items.size(); ++i)
        json += (i ? "," : "") + items.at(i);
    return json + "]}";
}
} // namespace

class tst_WidgetContainer : public QObject
{
    Q_OBJECT
private slots:
    void menuHasItsEntries();
    void menuEnabledRules_data();
    void menuEnabledRules();
    void splittingALeaf_data();
    void splittingALeaf();
    void removeRules_data();
    void removeRules();
    void undockMovesTheLeafIntoAFloatingWindow();
    void setWindowTypeReplacesTheWindow();
    void copyAndPasteProperties();
    void registeredTypesAreConnectedByType();
    void focusAndDoubleClickReachTheActiveWindow();
    void unsaveableFactoryFallsBackToAPlaceholder();
};

void tst_WidgetContainer::menuHasItsEntries()
{
    LayoutFixture f;
    f.root()->createWidget(WindowTypes::Graph);
    std::unique_ptr<QMenu> menu(f.root()->createMenu(nullptr));
    QCOMPARE(
        menuTexts(menu.get()),
        QStringList({"Set window type", "Add window horizontally", "Add window vertically", "Undock window",
                     "-", "Copy window properties", "Paste window properties", "-", "Remove window"}));
    const QStringList titles = {"Model selection",     "Chart",           "GPS map",
                                "Available telemetry", "Device Explorer", "Vexo RSS reader",
                                "Actual values",       "Data table",      "Dial"};
    for (const char *sub : {"Set window type", "Add window horizontally", "Add window vertically"}) {
        const QList<QAction *> types = menuEntry(menu.get(), sub)->menu()->actions();
        QCOMPARE(types.size(), 9);
        int withIcon = 0;
        for (int code = 0; code < 9; ++code) {
            QCOMPARE(types.at(code)->text(), titles.at(code));
            QCOMPARE(types.at(code)->data().toInt(), code);
            // Icons come from the compiled resources.
            withIcon += types.at(code)->icon().pixmap(16, 16).isNull() ? 0 : 1;
        }
        QCOMPARE(withIcon, 8);
    }
    QVERIFY(!menuEntry(menu.get(), "Copy window properties")->icon().pixmap(16, 16).isNull());
    QVERIFY(!menuEntry(menu.get(), "Paste window properties")->icon().pixmap(16, 16).isNull());
}

void tst_WidgetContainer::menuEnabledRules_data()
{
    QTest::addColumn<bool>("child");
    QTest::addColumn<bool>("clipboard");
    QTest::addColumn<bool>("undock");
    QTest::addColumn<bool>("paste");
    QTest::addColumn<bool>("remove");
    QTest::newRow("single root leaf") << false << false << false << false << false;
    QTest::newRow("child leaf, clipboard filled") << true << true << true << true << true;
}

void tst_WidgetContainer::menuEnabledRules()
{
    QFETCH(bool, child);
    QFETCH(bool, clipboard);
    QFETCH(bool, undock);
    QFETCH(bool, paste);
    QFETCH(bool, remove);
    LayoutFixture f;
    QVERIFY(
        f.load(layoutJson(child ? splitJson("0", {leafJson(kGraph), leafJson(kDial)}) : leafJson(kGraph))));
    if (clipboard)
        leavesOf(f.root()).at(0)->copyWindowProperties();
    std::unique_ptr<QMenu> menu(leavesOf(f.root()).at(0)->createMenu(nullptr));
    QCOMPARE(menuEntry(menu.get(), "Undock window")->isEnabled(), undock);
    QCOMPARE(menuEntry(menu.get(), "Paste window properties")->isEnabled(), paste);
    QCOMPARE(menuEntry(menu.get(), "Remove window")->isEnabled(), remove);
}

void tst_WidgetContainer::splittingALeaf_data()
{
    QTest::addColumn<QString>("submenu");
    QTest::addColumn<Qt::Orientation>("orientation");
    QTest::newRow("horizontally") << "Add window horizontally" << Qt::Horizontal;
    QTest::newRow("vertically") << "Add window vertically" << Qt::Vertical;
}

void tst_WidgetContainer::splittingALeaf()
{
    QFETCH(QString, submenu);
    QFETCH(Qt::Orientation, orientation);
    LayoutFixture f;
    QVERIFY(f.load(layoutJson(leafJson(kGraph))));
    QWidget *graph = f.root()->dataWindow();
    std::unique_ptr<QMenu> menu(f.root()->createMenu(nullptr));
    typeEntry(menu.get(), submenu, WindowTypes::Dial)->trigger();

    QVERIFY(!f.root()->isLeaf());
    QVERIFY(!f.root()->isTitleBarVisible());
    QCOMPARE(f.root()->orientation(), orientation);
    const QList<WidgetContainer *> children = f.root()->childContainers();
    QCOMPARE(children.size(), 2);
    // The existing window moves, settings and all, into the first child; the new one fills the second.
    QCOMPARE(children.at(0)->dataWindow(), graph);
    QCOMPARE(children.at(0)->parentContainer(), f.root());
    QCOMPARE((QStringList{children.at(0)->title(), children.at(1)->title()}), (QStringList{"Chart", "Dial"}));
    QVERIFY(children.at(1)->isTitleBarVisible());
    QCOMPARE(f.manager->activeWidget(), children.at(1)->dataWindow());
    QCOMPARE(f.manager->widgets().size(), 2);

    const LayoutJsonValue saved = parsed(f.manager->saveLayout()).value("Main-Container");
    QCOMPARE(saved.value("Vertical").toInt(), orientation == Qt::Vertical ? 1 : 0);
    QCOMPARE(saved.value("Sizes").size(), 2);
    QCOMPARE(saved.value("Items").at(0).value("Items").at(0).text(), kGraph);
    QCOMPARE(saved.value("Items").at(1).value("Items").at(0).text(), QByteArray(R"({"Type":"Dial"})"));
}

void tst_WidgetContainer::removeRules_data()
{
    QTest::addColumn<QByteArray>("layout");
    QTest::addColumn<bool>("removed");
    QTest::addColumn<QByteArray>("after");
    const QByteArray rss = leafJson(R"({"Type":"RSS"})", 30);
    QTest::newRow("sibling is a leaf")
        << splitJson("0", {leafJson(kGraph, 10), leafJson(kDial, 20)}) << true << leafJson(kDial, 20);
    QTest::newRow("sibling is split")
        << splitJson("0", {leafJson(kGraph, 10), R"({"Type":"Container","Vertical":1,"Items":[)" +
                                                     leafJson(kDial, 20) + "," + rss + R"(],"Sizes":[7,8]})"})
        << true
        << (R"({"Type":"Container","Vertical":1,"Items":[)" + leafJson(kDial, 20) + "," + rss +
            R"(],"Sizes":[7,8]})");
    QTest::newRow("parent holds three")
        << splitJson("0", {leafJson(kGraph), leafJson(kDial), rss}) << false << QByteArray();
    QTest::newRow("parent holds one") << splitJson("0", {leafJson(kGraph)}) << false << QByteArray();
    QTest::newRow("single root leaf") << leafJson(kGraph) << false << QByteArray();
}

void tst_WidgetContainer::removeRules()
{
    QFETCH(QByteArray, layout);
    QFETCH(bool, removed);
    QFETCH(QByteArray, after);
    LayoutFixture f;
    QVERIFY2(f.load(layoutJson(layout)), qPrintable(f.lastError));
    const QByteArray before = f.manager->saveLayout();
    WidgetContainer *leaf = leavesOf(f.root()).at(0);
    QPointer<QWidget> window = leaf->dataWindow();
    const int windows = f.manager->widgets().size();

    std::unique_ptr<QMenu> menu(leaf->createMenu(nullptr));
    if (QAction *remove = menuEntry(menu.get(), "Remove window"); remove->isEnabled())
        remove->trigger();
    else
        QCOMPARE(leaf->removeWindow(), false);
    LayoutFixture::flush();

    if (!removed) {
        QCOMPARE(f.manager->saveLayout(), before);
        QCOMPARE(f.manager->widgets().size(), windows);
        return;
    }
    QVERIFY(!window);
    QCOMPARE(f.manager->widgets().size(), windows - 1);
    QCOMPARE(f.manager->saveLayout(), layoutJson(after));
    for (WidgetContainer *child : f.root()->childContainers())
        QCOMPARE(child->parentContainer(), f.root());
    if (f.root()->isLeaf())
        QVERIFY(f.root()->isTitleBarVisible() && f.root()->title() == QStringLiteral("Dial"));
}

void tst_WidgetContainer::undockMovesTheLeafIntoAFloatingWindow()
{
    LayoutFixture f;
    QVERIFY(f.load(layoutJson(splitJson("0", {leafJson(kGraph), leafJson(kDial)}))));
    WidgetContainer *leaf = leavesOf(f.root()).at(1);
    QWidget *dial = leaf->dataWindow();
    std::unique_ptr<QMenu> menu(leaf->createMenu(nullptr));
    menuEntry(menu.get(), "Undock window")->trigger();
    LayoutFixture::flush();

    const QList<QMainWindow *> floating = f.manager->dataWindows();
    QCOMPARE(floating.size(), 1);
    QCOMPARE(floating.at(0)->objectName() + '|' + floating.at(0)->windowTitle(),
             QStringLiteral("DataWindow|Vexo Studio: Data Window"));
    QVERIFY(floating.at(0)->centralWidget() == leaf && floating.at(0)->isVisible() &&
            !leaf->parentContainer());
    QVERIFY(leaf->dataWindow() == dial && f.manager->widgets().contains(dial));
    QVERIFY(f.root()->isLeaf() && f.root()->title() == QStringLiteral("Chart"));

    // The floating root can be neither undocked nor removed.
    std::unique_ptr<QMenu> floatingMenu(leaf->createMenu(nullptr));
    QVERIFY(!menuEntry(floatingMenu.get(), "Undock window")->isEnabled());
    QVERIFY(!menuEntry(floatingMenu.get(), "Remove window")->isEnabled());

    const LayoutJsonValue saved = parsed(f.manager->saveLayout());
    QCOMPARE(saved.value("Container").size(), 1);
    QCOMPARE(saved.value("Container").at(0).value("Container-Data").value("Items").at(0).text(), kDial);
}

void tst_WidgetContainer::setWindowTypeReplacesTheWindow()
{
    LayoutFixture f;
    QVERIFY(f.load(layoutJson(leafJson(kGraph))));
    QPointer<QWidget> old = f.root()->dataWindow();
    std::unique_ptr<QMenu> menu(f.root()->createMenu(nullptr));
    typeEntry(menu.get(), "Set window type", WindowTypes::Maps)->trigger();
    LayoutFixture::flush();
    QVERIFY(!old);
    QCOMPARE(f.root()->title(), QStringLiteral("GPS map"));
    QCOMPARE(f.manager->widgets(), QList<QWidget *>({f.root()->dataWindow()}));
    QCOMPARE(f.manager->saveLayout(), layoutJson(leafJson(R"({"Type":"Maps"})")));
}

void tst_WidgetContainer::copyAndPasteProperties()
{
    LayoutFixture f;
    QVERIFY(f.load(
        layoutJson(splitJson("0", {leafJson(kDial), leafJson(R"({"Type":"Dial"})"), leafJson(kGraph)}))));
    const QList<WidgetContainer *> leaves = leavesOf(f.root());
    const auto text = [&](int i) {
        return qobject_cast<WidgetPlaceholder *>(leaves.at(i)->dataWindow())->objectText();
    };
    QVERIFY(!f.manager->hasClipboard());
    std::unique_ptr<QMenu> menu(leaves.at(0)->createMenu(nullptr));
    menuEntry(menu.get(), "Copy window properties")->trigger();
    QCOMPARE(f.manager->clipboard(), kDial);

    std::unique_ptr<QMenu> second(leaves.at(1)->createMenu(nullptr));
    menuEntry(second.get(), "Paste window properties")->trigger();
    QCOMPARE(text(1), kDial);

    // A dial's settings would turn a graph into a dial: refused.
    QVERIFY(!leaves.at(2)->pasteWindowProperties());
    QCOMPARE(text(2), kGraph);
    // So is a clipboard that is not an object.
    f.manager->setClipboard("{\"Type\":");
    QVERIFY(!leaves.at(1)->pasteWindowProperties());
    QCOMPARE(text(1), kDial);
}

void tst_WidgetContainer::registeredTypesAreConnectedByType()
{
    LayoutFixture f;
    QList<FakeWindow *> &made = FakeWindow::made;
    made.clear();
    // The same class stands for a graph and a data table, each type with its own wiring.
    f.manager->registerWindow(QStringLiteral("graph"), &FakeWindow::make, &FakeWindow::wireAsGraph);
    f.manager->registerWindow(QStringLiteral("DATATABLE"), &FakeWindow::make, &FakeWindow::wireAsTable);
    QVERIFY(f.load(layoutJson(
        splitJson("0", {leafJson(kGraph), leafJson(R"({"Type":"DataTable"})"), leafJson(kDial)}))));
    QCOMPARE(made.size(), 2);
    FakeWindow *graph = made.at(0);
    FakeWindow *table = made.at(1);
    QCOMPARE(graph->loaded, kGraph);
    QCOMPARE(graph->calls, QStringList({"wired as a graph, logging 0"}));
    QCOMPARE(table->calls, QStringList());

    // The playback position moves the shared cursor.
    graph->calls.clear();
    f.manager->setPlaybackTime(4200);
    emit f.hub->addSensorRequest(nullptr);
    QCOMPARE(graph->calls, QStringList({"externalTimestampMoved 4200 1", "addData"}));
    QCOMPARE(table->calls, QStringList({"addData"}));

    // A replaced window hears nothing more, even before it is deleted.
    leavesOf(f.root()).at(0)->setWindowType(WindowTypes::RSS);
    graph->calls.clear();
    emit f.hub->logFileLoadedRequest();
    QCOMPARE(graph->calls, QStringList());
    LayoutFixture::flush();
}

void tst_WidgetContainer::focusAndDoubleClickReachTheActiveWindow()
{
    LayoutFixture f;
    QList<FakeWindow *> &made = FakeWindow::made;
    made.clear();
    f.manager->registerWindow(QStringLiteral("Graph"), &FakeWindow::make, &FakeWindow::wireAsGraph);
    QVERIFY(f.load(layoutJson(splitJson("0", {leafJson(kGraph), leafJson(kGraph), leafJson(kDial)}))));
    QCOMPARE(made.size(), 2);
    // The last window created is the active one until the user focuses another.
    QCOMPARE(f.manager->activeWidget(), leavesOf(f.root()).at(2)->dataWindow());

    QSignalSpy focus(f.hub.get(), &WindowHub::focusUpdated);
    QSignalSpy request(leavesOf(f.root()).at(0), &WidgetContainer::focusUpdateRequest);
    emit made.at(0)->gotFocus();
    QCOMPARE(f.manager->activeWidget(), made.at(0));
    QVERIFY(focus.size() == 1 && request.size() == 1);

    TelemetryVar variable;
    emit f.hub->addSensorToActiveWidget(&variable);
    QCOMPARE(made.at(0)->added, &variable);
    QCOMPARE(made.at(1)->added, nullptr);

    // Focus follows a window into the container it moves to when its leaf is split.
    leavesOf(f.root()).at(1)->addWindow(Qt::Vertical, WindowTypes::Dial);
    emit made.at(1)->gotFocus();
    QCOMPARE(f.manager->activeWidget(), made.at(1));
    QCOMPARE(focus.size(), 2);
}

void tst_WidgetContainer::unsaveableFactoryFallsBackToAPlaceholder()
{
    LayoutFixture f;
    f.manager->registerType(QStringLiteral("Graph"), [](WidgetManager *) { return new QWidget; });
    QVERIFY(f.load(layoutJson(leafJson(kGraph))));
    QVERIFY(qobject_cast<WidgetPlaceholder *>(f.root()->dataWindow()));
    QCOMPARE(f.manager->saveLayout(), layoutJson(leafJson(kGraph)));
}

QTEST_MAIN(tst_WidgetContainer)
#include "tst_WidgetContainer.moc"
