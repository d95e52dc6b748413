#include "LayoutTestSupport.h"

#include "database/DatabaseManager.h"
#include "database/DefaultLayout.h"
#include "database/ModelData.h"
#include "widgets/layout/WindowTypes.h"

#include <QFile>
#include <QMainWindow>
#include <QTemporaryDir>
#include <QtTest>

namespace {
// Every window type with settings of its own, spelt the way other writers spell them.
const QByteArray kEveryType = layoutJson(
    R"({"Type":"Container","Vertical":1,"Items":[)"
    R"({"Type":"Container","Vertical":0,"Items":[)" +
    leafJson(R"({"Type":"Graph","TimeWindow":60,"TimeFrom":0,"ShowMessages":0,"ShowGrid":1,"Theme":2,)"
             R"("Sensors":[[16842753,3,"#ff0000",1,0,1,0,-1.5e2,250.75,0,1,)"
             "\"H\u00f6he \\\"m\\\"\\u00b0\"]]}",
             300) +
    "," +
    leafJson(R"({"Type":"Maps","Zoom":15,"Width":512,"Height":400,"posX":-12,"posY":40,"MapProvider":1,)"
             R"("MapType":0,"Sensor-Lat":[5,1],"Sensor-Lon":[5,2],"Sensor-Valid":[0,0],"Sensor-Alti":[5,3],)"
             R"("Sensor-Azim":[5,4],"RestrictRoute":1,"RestrictedTime":120,"CustomLineColor":1,)"
             R"("Colors":["#00ff00",0,"#ffff00",50,"#ff0000",100]})",
             301) +
    R"(],"Sizes":[300,301]},)"
    R"({"Type":"Container","Vertical":0,"Items":[)" +
    leafJson(R"({"Type":"Dial","Sensor":16842753,"Param":2,"Props":[0,-1000,12000,1]})", 200) + "," +
    leafJson(R"({"Type":"Values","DisplayLatest":0,"Sensors":[[16842753,1],[16842753,2]]})", 201) + "," +
    leafJson(R"({"Type":"DataTable","Sensors":[[1,2]],"Period":100,"Smooth":true,"Valid":false})", 202) +
    "," + leafJson(R"({"Type":"RSS"})", 203) + "," + leafJson(R"({"Type":"LXBusDevices"})", 204) + "," +
    leafJson(R"({"Type":"Sensors"})", 205) + "," + leafJson(R"({"Type":"Models"})", 206) +
    R"(],"Sizes":[200,201,202,203,204,205,206]}],"Sizes":[420,380]})");

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QByteArray nested(int depth)
{
    QByteArray json = leafJson(R"({"Type":"Dial"})");
    for (int i = 1; i < depth; ++i)
        json = R"({"Type":"Container","Vertical":0,"Items":[)" + json + R"(],"Sizes":[10]})";
    return json;
}

QByteArray withItems(int count, const QByteArray &item)
{
    QByteArray items;
    for (int i = 0; i < count; ++i)
        items += (i ? "," : "") + item;
    return R"({"Type":"Container","Vertical":0,"Items":[)" + items + "]}";
}
} // namespace

class tst_WidgetLayout : public QObject
{
    Q_OBJECT
private slots:
    void layoutRoundTripsByteForByte_data();
    void layoutRoundTripsByteForByte();
    void unknownItemsAreSkipped_data();
    void unknownItemsAreSkipped();
    void damagedLayoutKeepsTheCurrentOne_data();
    void damagedLayoutKeepsTheCurrentOne();
    void floatingWindowsAreSavedOnlyWhileVisible();
    void layoutFileLeavesOutVariableBindings();
    void layoutFileErrorsAreReported_data();
    void layoutFileErrorsAreReported();
    void modelLayoutIsLoadedAndSaved();
    void layoutFileDialogs_data();
    void layoutFileDialogs();
};

void tst_WidgetLayout::layoutRoundTripsByteForByte_data()
{
    QTest::addColumn<QByteArray>("layout");
    QTest::newRow("default layout") << DefaultLayout::document();
    QTest::newRow("every window type with its settings") << kEveryType;
    QTest::newRow("keys before the type") << layoutJson(leafJson(R"({"ShowGrid":1,"Type":"Graph"})"));
    QTest::newRow("an empty leaf") << layoutJson(
        R"({"Type":"Container","Vertical":1,"Items":[],"Sizes":[]})");
    QTest::newRow("deep vertical split") << layoutJson(nested(12));
}

void tst_WidgetLayout::layoutRoundTripsByteForByte()
{
    QFETCH(QByteArray, layout);
    LayoutFixture f;
    QVERIFY2(f.load(layout), qPrintable(f.lastError));
    QCOMPARE(f.manager->saveLayout(), layout);
    // And again over a tree that already holds windows.
    QVERIFY(f.load(layout));
    QCOMPARE(f.manager->saveLayout(), layout);
}

void tst_WidgetLayout::unknownItemsAreSkipped_data()
{
    QTest::addColumn<QByteArray>("items");
    QTest::addColumn<QByteArray>("sizes");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("unknown type before") << QByteArray(R"({"Type":"Foo"},{"Type":"Graph"})")
                                         << QByteArray("[10,20]") << leafJson(R"({"Type":"Graph"})", 10);
    QTest::newRow("no type, no object, odd type")
        << QByteArray(R"(42,{"NoType":1},[1],{"Type":7},null,{"Type":"Graph"})")
        << QByteArray("[1,2,3,4,5,6]") << leafJson(R"({"Type":"Graph"})", 1);
    QTest::newRow("unknown beside containers")
        << (leafJson(R"({"Type":"Dial"})", 5) + R"(,{"Type":"Foo"},)" + leafJson(R"({"Type":"RSS"})", 6))
        << QByteArray("[5,0,6]")
        << (R"({"Type":"Container","Vertical":0,"Items":[)" + leafJson(R"({"Type":"Dial"})", 5) + "," +
            leafJson(R"({"Type":"RSS"})", 6) + R"(],"Sizes":[5,0]})");
    // Types match without regard to case; containers are written as usual, a window's object as it came.
    QTest::newRow("types in any case")
        << QByteArray(R"({"Type":"conTainer","Vertical":0,"Items":[{"Type":"dIAl","Sensor":7}],"Sizes":[5]},)"
                      R"({"Type":"container","Vertical":0,"Items":[{"Type":"rss"}],"Sizes":[6]})")
        << QByteArray("[5,6]")
        << (R"({"Type":"Container","Vertical":0,"Items":[)" + leafJson(R"({"Type":"dIAl","Sensor":7})", 5) +
            "," + leafJson(R"({"Type":"rss"})", 6) + R"(],"Sizes":[5,6]})");
}

void tst_WidgetLayout::unknownItemsAreSkipped()
{
    QFETCH(QByteArray, items);
    QFETCH(QByteArray, sizes);
    QFETCH(QByteArray, expected);
    LayoutFixture f;
    QVERIFY2(f.load(layoutJson(R"({"Type":"Container","Vertical":0,"Items":[)" + items + R"(],"Sizes":)" +
                               sizes + "}")),
             qPrintable(f.lastError));
    QCOMPARE(f.manager->saveLayout(), layoutJson(expected));
}

void tst_WidgetLayout::damagedLayoutKeepsTheCurrentOne_data()
{
    QTest::addColumn<QByteArray>("layout");
    const QByteArray dial = leafJson(R"({"Type":"Dial"})");
    QTest::newRow("not JSON") << QByteArray("Main-Container");
    QTest::newRow("no main container") << QByteArray(R"({"Container":[]})");
    QTest::newRow("main container is a window") << layoutJson(R"({"Type":"Graph"})");
    QTest::newRow("items not a list") << layoutJson(R"({"Type":"Container","Items":{"Type":"Dial"}})");
    QTest::newRow("sizes not a list") << layoutJson(R"({"Type":"Container","Items":[],"Sizes":5})");
    QTest::newRow("size not a number") << layoutJson(R"({"Type":"Container","Items":[],"Sizes":["wide"]})");
    QTest::newRow("absurd size") << layoutJson(R"({"Type":"Container","Items":[],"Sizes":[1e9]})");
    QTest::newRow("damage deep inside")
        << layoutJson(R"({"Type":"Container","Items":[)" + dial + R"(,{"Type":"Container","Items":[)" + dial +
                      R"(,{"Type":"container","Items":"x"}]}]})");
    QTest::newRow("floating windows not a list") << layoutJson(dial, "{}");
    QTest::newRow("floating window without tree") << layoutJson(dial, R"([{"Width":10,"Height":10}])");
    QTest::newRow("absurd floating width")
        << layoutJson(dial, R"([{"Width":1e7,"Container-Data":)" + dial + "}]");
    QTest::newRow("floating height as text")
        << layoutJson(dial, R"([{"Height":"9","Container-Data":)" + dial + "}]");
    QTest::newRow("containers nested too deep") << layoutJson(nested(33));
    QTest::newRow("too many items") << layoutJson(withItems(65, dial));
    QTest::newRow("too many sizes") << layoutJson(R"({"Type":"Container","Items":[],"Sizes":[)" +
                                                  QByteArray("1,").repeated(64) + "1]}");
    QTest::newRow("too many containers") << layoutJson(withItems(64, withItems(32, dial)));
    QByteArray floating;
    for (int i = 0; i < 33; ++i)
        floating += QByteArray(i ? "," : "") + R"({"Container-Data":)" + dial + "}";
    QTest::newRow("too many floating windows") << layoutJson(dial, "[" + floating + "]");
    QTest::newRow("window settings nested too deep") << layoutJson(
        leafJson(R"({"Type":"Graph","Sensors":)" + QByteArray(100, '[') + QByteArray(100, ']') + "}"));
    QTest::newRow("too large") << layoutJson(
        leafJson(R"({"Type":"Graph","Note":")" + QByteArray(5 * 1024 * 1024, 'x') + "\"}"));
}

void tst_WidgetLayout::damagedLayoutKeepsTheCurrentOne()
{
    QFETCH(QByteArray, layout);
    LayoutFixture f;
    QVERIFY(f.load(DefaultLayout::document()));
    const QByteArray before = f.manager->saveLayout();
    const QList<QWidget *> windows = f.manager->widgets();

    QVERIFY(!f.load(layout));
    QVERIFY(!f.lastError.isEmpty());
    QCOMPARE(f.manager->saveLayout(), before);
    QCOMPARE(f.manager->widgets(), windows);
    QVERIFY(f.manager->dataWindows().isEmpty());
}

void tst_WidgetLayout::floatingWindowsAreSavedOnlyWhileVisible()
{
    LayoutFixture f;
    const QByteArray dial = leafJson(R"({"Type":"Dial","Sensor":3})");
    QVERIFY2(
        f.load(layoutJson(leafJson(R"({"Type":"Graph"})"),
                          R"([{"Width":400,"Height":300,"X":50,"Y":60,"Container-Data":)" + dial + "}]")),
        qPrintable(f.lastError));
    const QList<QMainWindow *> windows = f.manager->dataWindows();
    QCOMPARE(windows.size(), 1);
    QMainWindow *window = windows.at(0);
    QVERIFY(window->isVisible());

    const LayoutJsonValue saved = parsed(f.manager->saveLayout());
    const LayoutJsonValue &entry = saved.value("Container").at(0);
    QCOMPARE(saved.value("Container").size(), 1);
    QCOMPARE((QStringList{entry.keyAt(0), entry.keyAt(1), entry.keyAt(2), entry.keyAt(3), entry.keyAt(4)}),
             (QStringList{"Width", "Height", "X", "Y", "Container-Data"}));
    QCOMPARE(QSize(entry.value("Width").toInt(), entry.value("Height").toInt()), QSize(400, 300));
    QCOMPARE(entry.value("Container-Data").value("Items").at(0).text(),
             QByteArray(R"({"Type":"Dial","Sensor":3})"));

    window->hide();
    QCOMPARE(parsed(f.manager->saveLayout()).value("Container").size(), 0);

    // A new layout replaces the floating windows too.
    window->show();
    QVERIFY(f.load(DefaultLayout::document()));
    QVERIFY(f.manager->dataWindows().isEmpty());
    QCOMPARE(f.manager->widgets().size(), 6);
}

void tst_WidgetLayout::layoutFileLeavesOutVariableBindings()
{
    LayoutFixture f;
    QVERIFY(f.load(kEveryType));
    QTemporaryDir dir;
    const QString path = dir.filePath("layout.jsn");
    QVERIFY(f.manager->exportLayoutFile(path, nullptr));
    const QByteArray file = readFile(path);
    QCOMPARE(file, f.manager->saveLayout(SerializableWidget::kForFile));

    // The graph keeps its variables; the map, dial, values window and data table lose their bindings.
    QVERIFY(file.contains(R"("Items":[{"Type":"Graph","TimeWindow":60,)") &&
            file.contains(R"("Sensors":[[16842753,3,)"));
    for (const char *object :
         {R"({"Type":"Maps","Zoom":15,"Width":512,"Height":400,"posX":-12,"posY":40,)"
          R"("MapProvider":1,"MapType":0})",
          R"({"Type":"Dial"})", R"({"Type":"Values","DisplayLatest":0})", R"({"Type":"DataTable"})"})
        QVERIFY2(file.contains(QByteArray(R"("Items":[)") + object + "]"), object);

    // The file loads back as it was written.
    QVERIFY(f.manager->importLayoutFile(path, nullptr));
    QCOMPARE(f.manager->saveLayout(), file);
    QVERIFY(f.prompter.asked.isEmpty());
}

void tst_WidgetLayout::layoutFileErrorsAreReported_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("exporting");
    QTest::newRow("missing file") << "missing.jsn" << QByteArray() << false;
    QTest::newRow("a folder") << "folder" << QByteArray() << false;
    QTest::newRow("oversize file") << "huge.jsn" << QByteArray(5 * 1024 * 1024, ' ') << false;
    QTest::newRow("damaged file") << "damaged.jsn" << QByteArray(R"({"Main-Container":[]})") << false;
    QTest::newRow("export into a missing folder") << "no/such/folder/layout.jsn" << QByteArray() << true;
    QTest::newRow("export over a folder") << "folder" << QByteArray() << true;
}

void tst_WidgetLayout::layoutFileErrorsAreReported()
{
    QFETCH(QString, file);
    QFETCH(QByteArray, content);
    QFETCH(bool, exporting);
    QTemporaryDir dir;
    QVERIFY(QDir(dir.path()).mkdir("folder"));
    const QString path = dir.filePath(file);
    if (!content.isEmpty())
        QVERIFY(writeFile(path, content));

    LayoutFixture f;
    QVERIFY(f.load(DefaultLayout::document()));
    const QByteArray before = f.manager->saveLayout();
    const bool ok =
        exporting ? f.manager->exportLayoutFile(path, nullptr) : f.manager->importLayoutFile(path, nullptr);
    QVERIFY(!ok);
    const QString box = exporting ? "error|Error|<b>Unable to save layout file:</b><ul><li>"
                                  : "error|Layout error|<b>Unable to import layout file:</b><ul><li>";
    QVERIFY2(f.prompter.only().startsWith(box) && f.prompter.only().endsWith("</ul>"),
             qPrintable(f.prompter.only()));
    QCOMPARE(f.manager->saveLayout(), before);
    if (!content.isEmpty())
        QCOMPARE(readFile(path), content);
}

void tst_WidgetLayout::modelLayoutIsLoadedAndSaved()
{
    QTemporaryDir dir;
    DatabaseManager db(dir.path());
    QVERIFY(db.openAndInitialise());
    ModelData model;
    model.name = QStringLiteral("Glider");
    model.description = QStringLiteral("two metres");
    model.layout = layoutJson(leafJson(R"({"Type":"Dial","Sensor":9})"));
    const int id = db.insertModel(model);
    QVERIFY(id >= 0);
    ModelData bare;
    bare.name = QStringLiteral("Old model");
    const int bareId = db.insertModel(bare);

    LayoutFixture f(&db);
    QVERIFY(f.manager->activateModel(id, nullptr));
    QCOMPARE(f.manager->saveLayout(), model.layout);

    // The user splits the window; closing stores the new arrangement and nothing else.
    f.root()->addWindow(Qt::Vertical, WindowTypes::Graph);
    QVERIFY(f.manager->saveSessionForModel(id, nullptr));
    ModelData stored;
    QVERIFY(db.model(id, &stored));
    QCOMPARE(stored.layout, f.manager->saveLayout());
    QCOMPARE(stored.name + stored.description, model.name + model.description);
    QCOMPARE(leavesOf(f.root()).size(), 2);

    // A model stored without a layout starts with the default one, without complaint.
    QVERIFY(f.manager->activateModel(bareId, nullptr));
    QCOMPARE(f.manager->saveLayout(), DefaultLayout::document());
    QVERIFY(f.manager->saveSessionForModel(-1, nullptr));
    QVERIFY(f.prompter.asked.isEmpty());

    // A damaged stored layout, or a model that is gone, is reported and the default layout loaded.
    ModelData damaged;
    damaged.layout = R"({"Main-Container":{"Type":"Dial"}})";
    for (int broken : {db.insertModel(damaged), 4711}) {
        QVERIFY(f.load(layoutJson(leafJson(R"({"Type":"RSS"})"))));
        f.prompter.asked.clear();
        QVERIFY(!f.manager->activateModel(broken, nullptr));
        LayoutFixture::flush();
        QVERIFY2(f.prompter.only().startsWith(
                     "warning|Layout error|<b>Unable to load layout for model:</b><ul><li>") &&
                     f.prompter.only().endsWith("</li></ul>Loading default layout now..."),
                 qPrintable(f.prompter.only()));
        QCOMPARE(f.manager->saveLayout(), DefaultLayout::document());
    }
    f.prompter.asked.clear();

    // With the database gone the session cannot be saved, and the pilot is told why.
    db.close();
    QVERIFY(!f.manager->saveSessionForModel(id, nullptr));
    QVERIFY2(f.prompter.only().startsWith(
                 "error|Error|<b>Unable to save session for the current model:</b><ul><li>") &&
                 !f.prompter.only().contains("<li></li>"),
             qPrintable(f.prompter.only()));
}

void tst_WidgetLayout::layoutFileDialogs_data()
{
    QTest::addColumn<QString>("answer"); // the file chosen, "" for cancel
    QTest::addColumn<QString>("written");
    QTest::newRow("cancelled") << ""
                               << "";
    QTest::newRow("suffix added") << "mine"
                                  << "mine.jsn";
}

void tst_WidgetLayout::layoutFileDialogs()
{
    QFETCH(QString, answer);
    QFETCH(QString, written);
    QTemporaryDir dir;
    LayoutFixture f;
    QVERIFY(f.load(DefaultLayout::document()));
    const QByteArray expected = f.manager->saveLayout(SerializableWidget::kForFile);
    if (!answer.isEmpty())
        f.prompter.texts.enqueue(dir.filePath(answer));
    QCOMPARE(f.manager->exportLayoutToFile(nullptr, dir.path()), !answer.isEmpty());
    QCOMPARE(f.prompter.only(), "save|Save layout as|" + dir.path()); // the folder it starts in
    QCOMPARE(QDir(dir.path()).entryList(QDir::Files),
             written.isEmpty() ? QStringList() : QStringList{written});
    if (written.isEmpty())
        return;
    QCOMPARE(readFile(dir.filePath(written)), expected);
    QCOMPARE(f.manager->lastFolder(), dir.path());

    f.prompter.texts.enqueue(dir.filePath(written));
    QVERIFY(f.manager->importLayoutFromFile(nullptr, dir.path()));
    LayoutFixture::flush();
    QCOMPARE(f.prompter.asked.at(1).kind + '|' + f.prompter.asked.at(1).title,
             QStringLiteral("open|Import layout"));
}

QTEST_MAIN(tst_WidgetLayout)
#include "tst_WidgetLayout.moc"
