#include "widgets/devices/WidgetDeviceTree.h"

#include "telemetry/TelemetrySensor.h"
#include "widgets/devices/DeviceParamLink.h"
#include "widgets/devices/WidgetLxBusConfig.h"
#include "widgets/devices/WidgetLxBusParams.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WindowHub.h"
#include "widgets/layout/WindowTypes.h"

#include <QAction>
#include <QHash>
#include <QHeaderView>
#include <QMenu>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

WidgetDeviceTree::WidgetDeviceTree(QWidget *parent) : QWidget(parent)
{
    setWindowTitle(WindowTypes::title(WindowTypes::LXBusDevices));
    m_tree = new QTreeWidget(this);
    m_tree->setObjectName(QStringLiteral("deviceTree"));
    m_tree->setColumnCount(1);
    m_tree->setHeaderHidden(true);
    m_tree->setSelectionMode(QAbstractItemView::SingleSelection);
    m_tree->setContextMenuPolicy(Qt::CustomContextMenu);
    m_root = new QTreeWidgetItem(m_tree, {tr("Connected devices")});
    m_root->setIcon(0, QIcon(QStringLiteral(":/Icons/Program/Resources/dev_explorer.png")));
    m_root->setExpanded(true);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(m_tree);

    m_menu = new QMenu(this);
    QAction *edit = m_menu->addAction(tr("Edit properties..."));
    edit->setStatusTip(tr("Opens device properties dialog"));
    QAction *registers = m_menu->addAction(tr("Show all registers"));
    registers->setStatusTip(tr("Displays all device registers"));
    QAction *reset = m_menu->addAction(tr("Refresh sensors"));
    reset->setStatusTip(tr("Refresh sensor list"));
    QAction *dialog = m_menu->addAction(tr("Open device dialog..."));
    dialog->setStatusTip(tr("Opens device dialog"));
    connect(edit, &QAction::triggered, this, &WidgetDeviceTree::editProperties);
    connect(registers, &QAction::triggered, this, &WidgetDeviceTree::showAllRegisters);
    connect(reset, &QAction::triggered, this, [this] {
        refresh();
        emit sensorsReset();
    });
    connect(dialog, &QAction::triggered, this, &WidgetDeviceTree::openDeviceDialog);
    connect(m_tree, &QTreeWidget::customContextMenuRequested, this, &WidgetDeviceTree::customMenuRequested);
    connect(m_tree, &QTreeWidget::itemActivated, this, &WidgetDeviceTree::itemActivated);
}

WidgetDeviceTree::~WidgetDeviceTree()
{
    // The table talks to the engine on this window's behalf; it goes with it.
    delete m_deviceWindow;
}

WidgetLxBusParams *WidgetDeviceTree::paramsWindow() const
{
    return qobject_cast<WidgetLxBusParams *>(m_deviceWindow.data());
}

WidgetLxBusConfig *WidgetDeviceTree::configWindow() const
{
    return qobject_cast<WidgetLxBusConfig *>(m_deviceWindow.data());
}

int WidgetDeviceTree::load(const LayoutJsonValue &)
{
    return 0;
}

int WidgetDeviceTree::save(LayoutJsonWriter &writer, quint8)
{
    writer.writeString(QStringLiteral("Type"), WindowTypes::key(WindowTypes::LXBusDevices));
    return 0;
}

void WidgetDeviceTree::setDefinitionsPath(const QString &path)
{
    m_definitionsPath = path;
    DeviceDefinitions definitions;
    // Only for the firmware marks: the parameter table reports a file it cannot read.
    if (!path.isEmpty() && definitions.load(path, nullptr))
        m_definitions = definitions;
}

QString WidgetDeviceTree::deviceText(const Device &device)
{
    return tr("%1, Version %2, HW %3")
        .arg(TelemetrySensor(device.identifier, QString()).idText())
        .arg(QStringLiteral("%1.%2").arg(device.firmwareMajor()).arg(device.firmwareMinor()))
        .arg(device.hardware);
}

quint64 WidgetDeviceTree::keyOf(const Device &device)
{
    // Extensions are recorded without an identifier of their own: their device and index name them.
    if (device.extensionIndex == 0)
        return device.identifier;
    return (quint64(1) << 40) | (quint64(device.parentIdentifier) << 8) | device.extensionIndex;
}

void WidgetDeviceTree::updateItems(const Vector<Device> *devices)
{
    Vector<Device> copy;
    if (!devices) {
        if (!m_source)
            return;
        copy = m_source();
        devices = &copy;
    }
    for (Entry &e : m_entries)
        e.gone = true;
    for (const Device &d : *devices) {
        const quint64 key = keyOf(d);
        auto it = std::find_if(m_entries.begin(), m_entries.end(),
                               [key](const Entry &e) { return keyOf(e.device) == key; });
        if (it == m_entries.end()) {
            m_entries.append({d, false});
        } else {
            it->device = d;
            it->gone = false;
        }
    }
    rebuild();
}

void WidgetDeviceTree::refresh()
{
    updateItems(nullptr);
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(), [](const Entry &e) { return e.gone; }),
                    m_entries.end());
    rebuild();
}

void WidgetDeviceTree::rebuild()
{
    const Device *current = currentDevice();
    const quint64 currentKey = current ? keyOf(*current) : 0;
    const bool hadCurrent = current != nullptr;
    qDeleteAll(m_root->takeChildren());
    QHash<quint32, QTreeWidgetItem *> byIdentifier;
    QTreeWidgetItem *select = nullptr;
    for (int i = 0; i < m_entries.size(); ++i) {
        const Entry &e = m_entries.at(i);
        const Device &d = e.device;
        QTreeWidgetItem *parent =
            d.extensionIndex != 0 ? byIdentifier.value(d.parentIdentifier, m_root) : m_root;
        auto *item = new QTreeWidgetItem(parent);
        QString name = d.name;
        if (name.isEmpty())
            name = d.extensionIndex != 0 ? tr("Extension %1").arg(d.extensionIndex) : tr("Unnamed device");
        item->setText(0, name);
        item->setToolTip(0, deviceText(d));
        item->setStatusTip(0, deviceText(d));
        item->setData(0, IdentifierRole, d.extensionIndex != 0 ? d.parentIdentifier : d.identifier);
        item->setData(0, ExtensionRole, int(d.extensionIndex));
        item->setData(0, GoneRole, e.gone);
        const DeviceDefinition *definition = m_definitions.find(d);
        const bool old = definition && definition->needsNewerFirmware(d.firmwareMajor(), d.firmwareMinor());
        item->setData(0, OldFirmwareRole, old);
        const char *icon = e.gone ? kGoneIcon : old ? kFirmwareIcon : kDeviceIcon;
        item->setIcon(0, QIcon(QLatin1String(icon)));
        if (e.gone)
            item->setForeground(0, palette().color(QPalette::Disabled, QPalette::Text));
        if (d.extensionIndex == 0)
            byIdentifier.insert(d.identifier, item);
        if (hadCurrent && keyOf(d) == currentKey)
            select = item;
        item->setData(0, Qt::UserRole + 10, i);
    }
    m_root->setExpanded(true);
    m_tree->expandAll();
    if (select)
        m_tree->setCurrentItem(select);
}

const Device *WidgetDeviceTree::deviceOf(const QTreeWidgetItem *item) const
{
    if (!item || item == m_root)
        return nullptr;
    const int i = item->data(0, Qt::UserRole + 10).toInt();
    return i >= 0 && i < m_entries.size() ? &m_entries.at(i).device : nullptr;
}

const Device *WidgetDeviceTree::currentDevice() const
{
    return deviceOf(m_tree->currentItem());
}

void WidgetDeviceTree::customMenuRequested(const QPoint &pos)
{
    QTreeWidgetItem *item = m_tree->itemAt(pos);
    if (!deviceOf(item))
        return;
    m_tree->setCurrentItem(item);
    m_menu->exec(m_tree->viewport()->mapToGlobal(pos));
}

void WidgetDeviceTree::itemActivated(QTreeWidgetItem *item)
{
    if (const Device *d = deviceOf(item))
        emit deviceActivated(item->data(0, IdentifierRole).toUInt(), d->extensionIndex);
}

void WidgetDeviceTree::editProperties()
{
    if (const Device *d = configurableDevice())
        openDeviceWindow<WidgetLxBusConfig>(*d);
}

void WidgetDeviceTree::showAllRegisters()
{
    if (const Device *d = configurableDevice())
        openDeviceWindow<WidgetLxBusParams>(*d);
}

const Device *WidgetDeviceTree::configurableDevice()
{
    const Device *d = currentDevice();
    // An extension is known by its place behind its device until it answers with an identifier of its own.
    if (d && d->identifier == 0) {
        prompter()->information(this, tr("Device"),
                                tr("%1 has not answered yet.")
                                    .arg(d->name.isEmpty() ? tr("The extension") : d->name.toHtmlEscaped()));
        return nullptr;
    }
    return d;
}

template <typename Window> void WidgetDeviceTree::openDeviceWindow(const Device &device)
{
    delete m_deviceWindow;
    auto *window = new Window(device, m_link, prompter(), this);
    window->setWindowFlag(Qt::Window);
    window->setAttribute(Qt::WA_DeleteOnClose);
    const bool started = m_definitionsPath.isEmpty() && !m_definitions.isEmpty()
                             ? window->start(m_definitions)
                             : window->start(m_definitionsPath);
    if (!started) {
        delete window;
        return;
    }
    m_deviceWindow = window;
    window->show();
}

void WidgetDeviceTree::openDeviceDialog()
{
    const Device *d = currentDevice();
    if (!d)
        return;
    QString text = QStringLiteral("<b>%1</b><br>%2<br>%3")
                       .arg(d->name.toHtmlEscaped(), deviceText(*d).toHtmlEscaped(),
                            tr("Identifier %1").arg(d->identifierText()));
    if (d->extensionIndex != 0)
        text += QStringLiteral("<br>") + tr("Extension %1 of %2")
                                             .arg(d->extensionIndex)
                                             .arg(QString::number(d->parentIdentifier, 16).toUpper());
    prompter()->information(this, tr("Device"), text);
}

void WidgetDeviceTree::wire(WidgetDeviceTree *window, WindowHub *hub, TelemetryData *)
{
    if (!hub)
        return;
    connect(hub, &WindowHub::deviceAddedRequest, window, &WidgetDeviceTree::updateItems);
    // Like the sensor list's own reset: the telemetry that arrives next fills the list again.
    connect(window, &WidgetDeviceTree::sensorsReset, hub, &WindowHub::sensorsCleared);
    connect(window, &WidgetDeviceTree::deviceActivated, hub, &WindowHub::deviceActivated);
    // A new window starts from the devices on the bus now.
    window->updateItems(nullptr);
}
