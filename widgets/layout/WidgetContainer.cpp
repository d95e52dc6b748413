#include "widgets/layout/WidgetContainer.h"

#include "widgets/layout/LayoutDocument.h"
#include "widgets/layout/LayoutJsonReader.h"
#include "widgets/layout/LayoutJsonValue.h"
#include "widgets/layout/LayoutJsonWriter.h"
#include "widgets/layout/WidgetManager.h"
#include "widgets/layout/WindowTypes.h"

#include <QAction>
#include <QDebug>
#include <QHBoxLayout>
#include <QLabel>
#include <QMainWindow>
#include <QMenu>
#include <QMetaMethod>
#include <QSplitter>
#include <QToolButton>
#include <QVBoxLayout>

#include <cmath>

namespace {
constexpr int kLeafMargin = 2;

SerializableWidget *serializable(QWidget *widget)
{
    return dynamic_cast<SerializableWidget *>(widget);
}

void connectFocus(QWidget *window, WidgetContainer *container)
{
    const QMetaObject *meta = window->metaObject();
    const int signal = meta->indexOfSignal("gotFocus()");
    if (signal < 0)
        return;
    const int slot = container->metaObject()->indexOfSlot("focusUpdated()");
    QObject::connect(window, meta->method(signal), container, container->metaObject()->method(slot),
                     Qt::UniqueConnection);
}
} // namespace

WidgetContainer::WidgetContainer(WidgetManager *manager, WidgetContainer *parentContainer)
    : m_parentContainer(parentContainer), m_manager(manager)
{
    build();
}

WidgetContainer::WidgetContainer(WidgetManager *manager, WidgetContainer *parentContainer, QWidget *window)
    : m_parentContainer(parentContainer), m_manager(manager)
{
    build();
    if (window) {
        const int code = m_manager ? m_manager->windowType(window) : -1;
        adoptWindow(window, code, WindowTypes::title(code));
    }
}

void WidgetContainer::build()
{
    if (m_manager)
        setPrompter(m_manager->prompter());
    m_splitter = new QSplitter(Qt::Horizontal, this);
    m_menuButton = new QToolButton(this);
    m_menuButton->setText(tr("Menu"));
    m_menuButton->setAutoRaise(true);
    m_title = new QLabel(this);
    m_titleLayout = new QHBoxLayout;
    m_titleLayout->setSpacing(4);
    m_titleLayout->addWidget(m_menuButton);
    m_titleLayout->addWidget(m_title, 1);
    m_layout = new QVBoxLayout(this);
    m_layout->setSpacing(0);
    m_layout->addLayout(m_titleLayout);
    m_layout->addWidget(m_splitter, 1);
    connect(m_menuButton, &QToolButton::clicked, this, &WidgetContainer::buttonPressed);
    setLeaf(true);
}

void WidgetContainer::setLeaf(bool leaf)
{
    m_menuButton->setVisible(leaf);
    m_title->setVisible(leaf);
    const int margin = leaf ? kLeafMargin : 0;
    m_layout->setContentsMargins(margin, margin, margin, margin);
    m_titleLayout->setContentsMargins(leaf ? kLeafMargin : 0, 0, 0, 0);
}

void WidgetContainer::setTitle(const QString &title)
{
    m_title->setText(title);
}

QString WidgetContainer::title() const
{
    return m_title->text();
}

bool WidgetContainer::isTitleBarVisible() const
{
    return !m_menuButton->isHidden();
}

bool WidgetContainer::isLeaf() const
{
    return childContainers().isEmpty();
}

QWidget *WidgetContainer::dataWindow() const
{
    for (int i = 0; i < m_splitter->count(); ++i) {
        QWidget *w = m_splitter->widget(i);
        if (!qobject_cast<WidgetContainer *>(w))
            return w;
    }
    return nullptr;
}

QList<WidgetContainer *> WidgetContainer::childContainers() const
{
    QList<WidgetContainer *> children;
    for (int i = 0; i < m_splitter->count(); ++i) {
        if (auto *c = qobject_cast<WidgetContainer *>(m_splitter->widget(i)))
            children.append(c);
    }
    return children;
}

int WidgetContainer::itemCount() const
{
    return m_splitter->count();
}

Qt::Orientation WidgetContainer::orientation() const
{
    return m_splitter->orientation();
}

void WidgetContainer::adoptWindow(QWidget *window, int typeCode, const QString &title)
{
    m_splitter->addWidget(window);
    m_windowType = typeCode;
    setTitle(title);
    setLeaf(true);
    connectFocus(window, this);
    structureChanged();
}

QWidget *WidgetContainer::takeWindow()
{
    QWidget *window = dataWindow();
    if (window) {
        QObject::disconnect(window, nullptr, this, nullptr);
        window->setParent(nullptr);
    }
    m_windowType = -1;
    structureChanged();
    return window;
}

void WidgetContainer::discard(QWidget *item)
{
    if (m_manager)
        m_manager->unregisterWidgetsIn(item);
    item->hide();
    item->setParent(nullptr);
    item->deleteLater();
}

void WidgetContainer::discardItems()
{
    while (m_splitter->count() > 0)
        discard(m_splitter->widget(0));
    m_windowType = -1;
    structureChanged();
}

void WidgetContainer::createWidget(int typeCode)
{
    if (!WindowTypes::isValid(typeCode) || !m_manager)
        return;
    if (!isLeaf()) {
        qDebug() << "A window cannot replace the containers of a split window";
        return;
    }
    // Another window in the same place keeps the place's size.
    const QList<int> sizes = m_loadedSizes;
    if (QWidget *old = dataWindow())
        discard(old);
    QWidget *window = m_manager->createWindow(typeCode);
    adoptWindow(window, typeCode, WindowTypes::title(typeCode));
    m_loadedSizes = sizes;
    m_manager->registerWidget(window, typeCode);
}

int WidgetContainer::load(const LayoutJsonValue &object)
{
    discardItems();
    setLeaf(true);
    setTitle(QString());
    if (!LayoutDocument::isContainerType(object))
        return kNotAContainer;
    const LayoutJsonValue &vertical = object.value(QStringLiteral("Vertical"));
    if (!vertical.isUndefined())
        m_splitter->setOrientation(vertical.toDouble() != 0 ? Qt::Vertical : Qt::Horizontal);

    const LayoutJsonValue &items = object.value(QStringLiteral("Items"));
    for (int i = 0; i < items.size(); ++i) {
        const LayoutJsonValue &item = items.at(i);
        const LayoutJsonValue &type = item.value(QStringLiteral("Type"));
        if (!type.isString())
            continue;
        if (LayoutDocument::isContainerType(item)) {
            if (dataWindow()) {
                qDebug() << "Layout: a container beside a window is skipped";
                continue;
            }
            auto *child = new WidgetContainer(m_manager, this);
            m_splitter->addWidget(child);
            setLeaf(false);
            setTitle(QString());
            const int status = child->load(item);
            if (status != 0)
                return status;
            continue;
        }
        const int code = WindowTypes::codeOf(type.toString());
        if (code < 0)
            continue;
        if (!isLeaf()) {
            qDebug() << "Layout: a window beside containers is skipped";
            continue;
        }
        createWidget(code);
        // The models tree has no settings of its own.
        if (code == WindowTypes::Models)
            continue;
        if (SerializableWidget *window = serializable(dataWindow())) {
            const int status = window->load(item);
            if (status != 0)
                qDebug() << "Layout: window" << type.toString() << "refused its settings, status" << status;
        }
    }

    const LayoutJsonValue &sizes = object.value(QStringLiteral("Sizes"));
    if (sizes.isArray()) {
        QList<int> list;
        for (int i = 0; i < sizes.size(); ++i)
            list.append(int(std::lround(sizes.at(i).toDouble())));
        m_splitter->setSizes(list);
        m_loadedSizes = list;
    }
    return 0;
}

QList<int> WidgetContainer::sizesForSave() const
{
    const int count = m_splitter->count();
    if (!m_splitter->isVisible() && m_loadedSizes.size() >= count)
        return m_loadedSizes.mid(0, count);
    return m_splitter->sizes();
}

int WidgetContainer::save(LayoutJsonWriter &writer, quint8 flag)
{
    writer.writeString(QStringLiteral("Type"), QStringLiteral("Container"));
    writer.writeInt(QStringLiteral("Vertical"), m_splitter->orientation() == Qt::Vertical ? 1 : 0);
    writer.key(QStringLiteral("Items"));
    writer.beginArray();
    QList<int> sizes = sizesForSave();
    QList<int> written;
    for (int i = 0; i < m_splitter->count(); ++i) {
        SerializableWidget *item = serializable(m_splitter->widget(i));
        // Only serialisable items are part of a layout; their sizes go with them.
        if (!item)
            continue;
        writer.beginObject();
        item->save(writer, flag);
        writer.endObject();
        written.append(i < sizes.size() ? sizes.at(i) : 0);
    }
    writer.endArray();
    writer.key(QStringLiteral("Sizes"));
    writer.beginArray();
    for (int size : written)
        writer.writeInt(size);
    writer.endArray();
    return 0;
}

bool WidgetContainer::removeItem(WidgetContainer *child)
{
    if (m_splitter->count() != 2 || m_splitter->indexOf(child) < 0) {
        qDebug() << "Unable to remove window";
        return false;
    }
    auto *sibling = qobject_cast<WidgetContainer *>(m_splitter->widget(1 - m_splitter->indexOf(child)));
    if (!sibling) {
        qDebug() << "Unable to remove window";
        return false;
    }
    child->setParent(nullptr);
    child->setParentContainer(nullptr);
    sibling->setParent(nullptr);

    // The sibling's contents take its place in this container.
    const QList<int> sizes = sibling->sizesForSave();
    const Qt::Orientation orientation = sibling->orientation();
    const QList<WidgetContainer *> grandChildren = sibling->childContainers();
    if (grandChildren.isEmpty()) {
        const QString title = sibling->title();
        const int code = sibling->m_windowType;
        QWidget *window = sibling->takeWindow();
        m_splitter->setOrientation(orientation);
        if (window) {
            adoptWindow(window, code, title);
        } else {
            m_windowType = -1;
            setTitle(title);
            setLeaf(true);
        }
    } else {
        for (WidgetContainer *c : grandChildren) {
            m_splitter->addWidget(c);
            c->setParentContainer(this);
        }
        m_splitter->setOrientation(orientation);
        m_splitter->setSizes(sizes);
    }
    sibling->deleteLater();
    structureChanged();
    m_loadedSizes = sizes;
    return true;
}

void WidgetContainer::setWindowType(int typeCode)
{
    createWidget(typeCode);
}

void WidgetContainer::addWindow(Qt::Orientation orientation, int typeCode)
{
    if (!WindowTypes::isValid(typeCode) || !m_manager)
        return;
    if (isLeaf()) {
        m_splitter->setOrientation(orientation);
        const QString title = this->title();
        const int code = m_windowType;
        QWidget *window = takeWindow();
        auto *first = new WidgetContainer(m_manager, this);
        if (window)
            first->adoptWindow(window, code, title);
        else
            first->setTitle(title);
        m_splitter->addWidget(first);
        setLeaf(false);
        setTitle(QString());
    }
    auto *added = new WidgetContainer(m_manager, this);
    m_splitter->addWidget(added);
    added->createWidget(typeCode);
    structureChanged();
}

bool WidgetContainer::removeWindow()
{
    if (!m_parentContainer || !m_parentContainer->removeItem(this))
        return false;
    if (m_manager)
        m_manager->unregisterWidgetsIn(this);
    hide();
    deleteLater();
    return true;
}

QMainWindow *WidgetContainer::undock()
{
    if (!m_parentContainer || !m_manager)
        return nullptr;
    const QSize size = this->size();
    if (!m_parentContainer->removeItem(this))
        return nullptr;
    QMainWindow *window = m_manager->createDataWindow(this);
    window->resize(size);
    window->showNormal();
    show();
    return window;
}

bool WidgetContainer::copyWindowProperties()
{
    SerializableWidget *window = serializable(dataWindow());
    if (!window || !m_manager)
        return false;
    LayoutJsonWriter writer;
    writer.beginObject();
    window->save(writer, kForDatabase);
    writer.endObject();
    m_manager->setClipboard(writer.data());
    return true;
}

bool WidgetContainer::pasteWindowProperties()
{
    SerializableWidget *window = serializable(dataWindow());
    if (!window || !m_manager || !m_manager->hasClipboard())
        return false;
    LayoutJsonReader reader;
    LayoutJsonValue object;
    if (!reader.parse(m_manager->clipboard(), &object) || !object.isObject()) {
        qDebug().noquote() << "Unable to paste window properties:" << reader.errorString();
        return false;
    }
    // Another type's settings would turn this window into something else when the layout is saved.
    const QString type = object.value(QStringLiteral("Type")).toString();
    if (WindowTypes::codeOf(type) != m_windowType) {
        qDebug().noquote() << "Unable to paste window properties of" << type << "into"
                           << WindowTypes::key(m_windowType);
        return false;
    }
    return window->load(object) == 0;
}

int WidgetContainer::senderCode() const
{
    const auto *action = qobject_cast<const QAction *>(sender());
    bool ok = false;
    const int code = action ? action->data().toInt(&ok) : -1;
    return ok ? code : -1;
}

void WidgetContainer::setWidgetType()
{
    setWindowType(senderCode());
}

void WidgetContainer::addHorizontalPressed()
{
    addWindow(Qt::Horizontal, senderCode());
}

void WidgetContainer::addVerticalPressed()
{
    addWindow(Qt::Vertical, senderCode());
}

void WidgetContainer::undockWindow()
{
    undock();
}

void WidgetContainer::copyProperties()
{
    copyWindowProperties();
}

void WidgetContainer::pasteProperties()
{
    pasteWindowProperties();
}

void WidgetContainer::removePressed()
{
    removeWindow();
}

QMenu *WidgetContainer::createMenu(QWidget *parent)
{
    auto *menu = new QMenu(parent);
    const auto typeMenu = [this, menu](const QString &title, void (WidgetContainer::*slot)()) {
        QMenu *sub = menu->addMenu(title);
        for (int code = 0; code < WindowTypes::Count; ++code) {
            QAction *action = sub->addAction(WindowTypes::icon(code), WindowTypes::title(code));
            action->setData(code);
            connect(action, &QAction::triggered, this, slot);
        }
    };
    typeMenu(tr("Set window type"), &WidgetContainer::setWidgetType);
    typeMenu(tr("Add window horizontally"), &WidgetContainer::addHorizontalPressed);
    typeMenu(tr("Add window vertically"), &WidgetContainer::addVerticalPressed);
    QAction *undock = menu->addAction(tr("Undock window"), this, &WidgetContainer::undockWindow);
    undock->setEnabled(m_parentContainer != nullptr);
    menu->addSeparator();
    const QString icons = QStringLiteral(":/Icons/Program/Resources/");
    menu->addAction(QIcon(icons + QStringLiteral("copy16x16.png")), tr("Copy window properties"), this,
                    &WidgetContainer::copyProperties);
    QAction *paste = menu->addAction(QIcon(icons + QStringLiteral("edit_paste16x16.png")),
                                     tr("Paste window properties"), this, &WidgetContainer::pasteProperties);
    paste->setEnabled(m_manager && m_manager->hasClipboard());
    menu->addSeparator();
    QAction *remove = menu->addAction(tr("Remove window"), this, &WidgetContainer::removePressed);
    remove->setEnabled(m_parentContainer != nullptr);
    return menu;
}

void WidgetContainer::buttonPressed()
{
    QMenu *menu = createMenu(m_menuButton);
    // The menu may end with this container deleted (remove) or moved (undock): nothing runs after it.
    menu->setAttribute(Qt::WA_DeleteOnClose);
    menu->popup(m_menuButton->mapToGlobal(QPoint(0, m_menuButton->height())));
}

void WidgetContainer::showEvent(QShowEvent *event)
{
    // From now on the splitter's own sizes are the truth.
    m_loadedSizes.clear();
    QWidget::showEvent(event);
}

void WidgetContainer::focusUpdated()
{
    if (m_manager)
        m_manager->windowFocused(dataWindow());
    emit focusUpdateRequest();
}
