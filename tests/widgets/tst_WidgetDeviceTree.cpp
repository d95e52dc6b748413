#include "link/LinkMetaTypes.h"
#include "tests/support/ScriptedPrompter.h"
#include "tests/widgets/DeviceTestSupport.h"
#include "widgets/devices/LxBusTableModel.h"
#include "widgets/devices/WidgetDeviceTree.h"
#include "widgets/devices/WidgetLxBusParams.h"

#include <QAction>
#include <QMenu>
#include <QSignalSpy>
#include <QTreeWidget>
#include <QtTest>

namespace {

constexpr quint32 kRx = 17u | (300u << 16);
constexpr quint32 kVario = 0x00020001u;

Vector<Device> table(const QVector<Device> &devices)
{
    Vector<Device> v;
    for (const Device &d : devices)
        v.append(d);
    return v;
}

Device extension(quint32 parent, quint8 index, const QString &name)
{
    Device d;
    d.parentIdentifier = parent;
    d.extensionIndex = index;
    d.name = name;
    return d;
}

bool showsIcon(const QTreeWidgetItem *item, const char *path)
{
    return item->icon(0).pixmap(16, 16).toImage() == QIcon(QLatin1String(path)).pixmap(16, 16).toImage();
}

QTreeWidgetItem *child(const QTreeWidgetItem *parent, const QString &text)
{
    for (int i = 0; i < parent->childCount(); ++i) {
        if (parent->child(i)->text(0) == text)
            return parent->child(i);
    }
    return nullptr;
}

} // namespace

class tst_WidgetDeviceTree : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        registerLinkMetaTypes();
        qRegisterMetaType<uint32_t>("uint32_t");
    }
    void itemsFromTheDeviceTable_data();
    void itemsFromTheDeviceTable();
    void goneDevicesStayUntilRefreshed();
    void menuInOrder();
    void menuActions();
};

void tst_WidgetDeviceTree::itemsFromTheDeviceTable_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("tooltip");
    QTest::addColumn<QString>("icon");
    // Identifier 300 << 16 | 17: the low half first, five digits each, as the sensor list shows ids.
    QTest::newRow("current firmware")
        << "Rx 8"
        << "ID: [00017:00300], Version 1.4, HW 5" << WidgetDeviceTree::kDeviceIcon;
    QTest::newRow("old firmware") << "Rx old"
                                  << "ID: [00002:00000], Version 1.2, HW 5"
                                  << WidgetDeviceTree::kFirmwareIcon;
    QTest::newRow("no definition") << "Vario"
                                   << "ID: [00001:00002], Version 0.9, HW 9" << WidgetDeviceTree::kDeviceIcon;
}

void tst_WidgetDeviceTree::itemsFromTheDeviceTable()
{
    QFETCH(QString, name);
    WidgetDeviceTree tree;
    tree.setDefinitions(testDefinitions());
    const Vector<Device> devices = table({testDevice(kRx, QStringLiteral("Rx 8")), extension(kRx, 1, "Sat"),
                                          testDevice(2, QStringLiteral("Rx old"), 1, 2),
                                          testDevice(kVario, QStringLiteral("Vario"), 0, 9, 9)});
    tree.updateItems(&devices);
    QCOMPARE(tree.rootItem()->text(0), QStringLiteral("Connected devices"));
    QCOMPARE(tree.rootItem()->childCount(), 3);
    QCOMPARE(tree.rootItem()->child(0)->text(0), QStringLiteral("Rx 8"));
    // The extension hangs under its device.
    QCOMPARE(tree.rootItem()->child(0)->childCount(), 1);
    QCOMPARE(tree.rootItem()->child(0)->child(0)->text(0), QStringLiteral("Sat"));
    QTreeWidgetItem *item = child(tree.rootItem(), name);
    QVERIFY(item);
    QTEST(item->toolTip(0), "tooltip");
    QFETCH(QString, icon);
    QVERIFY(showsIcon(item, icon.toLatin1().constData()));
    QVERIFY(!QIcon(icon).isNull());
}

void tst_WidgetDeviceTree::goneDevicesStayUntilRefreshed()
{
    WidgetDeviceTree tree;
    Vector<Device> devices = table({testDevice(kRx, QStringLiteral("Rx 8")), testDevice(kVario, "Vario")});
    tree.setDeviceSource([&devices] { return devices; });
    tree.updateItems(nullptr);
    QCOMPARE(tree.rootItem()->childCount(), 2);

    devices = table({testDevice(kVario, "Vario")});
    tree.updateItems(nullptr);
    QTreeWidgetItem *rx = child(tree.rootItem(), QStringLiteral("Rx 8"));
    QVERIFY(rx);
    QVERIFY(rx->data(0, WidgetDeviceTree::GoneRole).toBool());
    QVERIFY(showsIcon(rx, WidgetDeviceTree::kGoneIcon));
    QVERIFY(!child(tree.rootItem(), QStringLiteral("Vario"))->data(0, WidgetDeviceTree::GoneRole).toBool());

    // Back on the bus: as before, in its old place.
    devices = table({testDevice(kVario, "Vario"), testDevice(kRx, QStringLiteral("Rx 8"))});
    tree.updateItems(nullptr);
    QCOMPARE(tree.rootItem()->child(0)->text(0), QStringLiteral("Rx 8"));
    QVERIFY(!tree.rootItem()->child(0)->data(0, WidgetDeviceTree::GoneRole).toBool());

    devices = table({testDevice(kVario, "Vario")});
    tree.updateItems(nullptr);
    tree.refresh();
    QCOMPARE(tree.rootItem()->childCount(), 1);
    QCOMPARE(tree.rootItem()->child(0)->text(0), QStringLiteral("Vario"));
}

void tst_WidgetDeviceTree::menuInOrder()
{
    WidgetDeviceTree tree;
    QStringList texts;
    QStringList tips;
    for (QAction *a : tree.contextMenu()->actions()) {
        texts << a->text();
        tips << a->statusTip();
    }
    QCOMPARE(texts, QStringList({"Edit properties...", "Show all registers", "Refresh sensors",
                                 "Open device dialog..."}));
    QCOMPARE(tips, QStringList({"Opens device properties dialog", "Displays all device registers",
                                "Refresh sensor list", "Opens device dialog"}));
}

void tst_WidgetDeviceTree::menuActions()
{
    ScriptedPrompter prompter;
    FakeParamLink link;
    WidgetDeviceTree tree;
    tree.setPrompter(&prompter);
    tree.setParamLink(&link);
    tree.setDefinitions(testDefinitions());
    const Vector<Device> devices = table({testDevice(kRx, QStringLiteral("Rx 8"))});
    tree.updateItems(&devices);
    tree.tree()->setCurrentItem(tree.rootItem()->child(0));
    const QList<QAction *> actions = tree.contextMenu()->actions();

    actions.at(0)->trigger();
    QCOMPARE(prompter.asked.size(), 1);
    QCOMPARE(prompter.asked.at(0).title, QStringLiteral("Info"));

    actions.at(1)->trigger();
    QVERIFY(tree.paramsWindow());
    QCOMPARE(tree.paramsWindow()->windowTitle(), QStringLiteral("LX Bus Device Properties: Rx 8"));
    QCOMPARE(tree.paramsWindow()->model()->rowCount(), 4);
    QCOMPARE(link.activated.size(), 1);
    QCOMPARE(link.activated.at(0).deviceId, kRx);

    QSignalSpy reset(&tree, &WidgetDeviceTree::sensorsReset);
    actions.at(2)->trigger();
    QCOMPARE(reset.size(), 1);

    tree.tree()->setCurrentItem(tree.rootItem()->child(0));
    actions.at(3)->trigger();
    QCOMPARE(prompter.asked.size(), 2);
    QCOMPARE(prompter.asked.at(1).title, QStringLiteral("Device"));
    QVERIFY(prompter.asked.at(1).text.contains(QStringLiteral("ID: [00017:00300]")));

    QSignalSpy activated(&tree, &WidgetDeviceTree::deviceActivated);
    emit tree.tree()->itemActivated(tree.rootItem()->child(0), 0);
    QCOMPARE(activated.size(), 1);
    QCOMPARE(activated.at(0).at(0).value<uint32_t>(), kRx);
}

QTEST_MAIN(tst_WidgetDeviceTree)
#include "tst_WidgetDeviceTree.moc"
