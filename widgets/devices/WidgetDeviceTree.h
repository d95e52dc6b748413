#pragma once

#include "link/Device.h"
#include "link/DeviceDefinitions.h"
#include "link/Vector.h"
#include "widgets/layout/SerializableWidget.h"

#include <QPointer>
#include <QVector>
#include <QWidget>

#include <cstdint>
#include <functional>

class DeviceParamLink;
class QAction;
class QMenu;
class QTreeWidget;
class QTreeWidgetItem;
class TelemetryData;
class WidgetLxBusConfig;
class WidgetLxBusParams;
class WindowHub;

// "Device Explorer": the devices on the LX Bus under "Connected devices", extensions under their device.
// A device that leaves the bus stays in the list, greyed and marked, until it answers again or the user
// refreshes, so a device that drops out for a moment does not vanish from under the mouse.
class WidgetDeviceTree : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    static void wire(WidgetDeviceTree *window, WindowHub *hub, TelemetryData *store);

    enum Role
    {
        IdentifierRole = Qt::UserRole, // the device's identifier (an extension's: its device's)
        ExtensionRole,                 // 0 for a device, 1..n for an extension
        GoneRole,                      // true while the device is not on the bus
        OldFirmwareRole                // true when the definitions need newer firmware
    };
    static constexpr const char *kFirmwareIcon = ":/Icons/Program/Resources/li-fw16x16.png";
    static constexpr const char *kGoneIcon = ":/Icons/Program/Resources/cancel16x16.png";
    static constexpr const char *kDeviceIcon = ":/Icons/Program/Resources/lx.png";

    explicit WidgetDeviceTree(QWidget *parent = nullptr);
    ~WidgetDeviceTree() override;

    // No settings of its own: the layout keeps only the type.
    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;

    // Where the current device table comes from (a locked copy) when the hub says only that it changed.
    void setDeviceSource(std::function<Vector<Device>()> source) { m_source = std::move(source); }
    // The parameter engine the parameter table talks to (not owned).
    void setParamLink(DeviceParamLink *link) { m_link = link; }
    // The definitions file the parameter table loads; the tree reads it too, for the firmware marks.
    void setDefinitionsPath(const QString &path);
    void setDefinitions(const DeviceDefinitions &definitions) { m_definitions = definitions; }

    QTreeWidget *tree() const { return m_tree; }
    QTreeWidgetItem *rootItem() const { return m_root; }
    QMenu *contextMenu() const { return m_menu; }
    // The parameter table or the configuration pages open now, or null.
    WidgetLxBusParams *paramsWindow() const;
    WidgetLxBusConfig *configWindow() const;

    // "ID: [low:high], Version 1.2, HW 5", as the item's tooltip shows it.
    static QString deviceText(const Device &device);
    // The device of an item, null for the root.
    const Device *deviceOf(const QTreeWidgetItem *item) const;

public slots:
    // The device table changed; null: ask the device source for it.
    void updateItems(const Vector<Device> *devices);
    // Forgets the devices that left and rebuilds from the current table.
    void refresh();
    // The context menu's actions, on the current item.
    void editProperties();
    void showAllRegisters();
    void openDeviceDialog();

signals:
    void sensorsReset();
    void deviceActivated(uint32_t deviceId, int param);

private:
    struct Entry
    {
        Device device;
        bool gone = false;
    };
    static quint64 keyOf(const Device &device);
    void rebuild();
    void customMenuRequested(const QPoint &pos);
    void itemActivated(QTreeWidgetItem *item);
    const Device *currentDevice() const;
    // The current device when it can be configured (it has answered), else null after saying why.
    const Device *configurableDevice();
    // Shows a device's table or pages after closing the one open before: the engine serves one device.
    template <typename Window> void openDeviceWindow(const Device &device);

    QTreeWidget *m_tree = nullptr;
    QTreeWidgetItem *m_root = nullptr;
    QMenu *m_menu = nullptr;
    QVector<Entry> m_entries; // in the order the devices appeared
    std::function<Vector<Device>()> m_source;
    DeviceParamLink *m_link = nullptr;
    QString m_definitionsPath;
    DeviceDefinitions m_definitions;
    QPointer<QWidget> m_deviceWindow;
};
