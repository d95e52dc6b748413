#pragma once

#include "widgets/layout/SerializableWidget.h"

#include <QList>
#include <QPointer>
#include <QWidget>

class QHBoxLayout;
class QLabel;
class QMainWindow;
class QMenu;
class QSplitter;
class QToolButton;
class QVBoxLayout;
class WidgetManager;

// One node of the window tree. A leaf shows a title bar ("Menu" button and title) and holds exactly one
// data window; an inner node hides its title bar and holds two or more child containers in a splitter.
class WidgetContainer : public QWidget, public SerializableWidget
{
    Q_OBJECT
public:
    // load() status of an object whose "Type" is not "Container".
    static constexpr int kNotAContainer = 6;

    // An empty leaf.
    WidgetContainer(WidgetManager *manager, WidgetContainer *parentContainer);
    // A leaf adopting an existing data window.
    WidgetContainer(WidgetManager *manager, WidgetContainer *parentContainer, QWidget *window);

    // The factory: a new window of this type replaces the leaf's window, connected and registered.
    void createWidget(int typeCode);

    int load(const LayoutJsonValue &object) override;
    int save(LayoutJsonWriter &writer, quint8 flag) override;

    // Takes a child out of this container, which must hold exactly two items: the other child is
    // dissolved into this one. The child is neither deleted nor hidden. False when refused.
    bool removeItem(WidgetContainer *child);

    WidgetContainer *parentContainer() const { return m_parentContainer; }
    void setParentContainer(WidgetContainer *parentContainer) { m_parentContainer = parentContainer; }
    WidgetManager *manager() const { return m_manager; }
    bool isLeaf() const;
    // The leaf's data window; null for an inner or empty container.
    QWidget *dataWindow() const;
    // Type code of the leaf's window, -1 without one.
    int windowType() const { return m_windowType; }
    QList<WidgetContainer *> childContainers() const;
    int itemCount() const;
    Qt::Orientation orientation() const;
    QString title() const;
    bool isTitleBarVisible() const;
    QSplitter *splitter() const { return m_splitter; }

    // The container menu as "Menu" opens it.
    QMenu *createMenu(QWidget *parent);

    // What the menu entries do, callable directly.
    void setWindowType(int typeCode);
    void addWindow(Qt::Orientation orientation, int typeCode);
    bool removeWindow();
    QMainWindow *undock();
    bool copyWindowProperties();
    bool pasteWindowProperties();

public slots:
    void setWidgetType();
    void addHorizontalPressed();
    void addVerticalPressed();
    void undockWindow();
    void copyProperties();
    void pasteProperties();
    void removePressed();
    void buttonPressed();
    void focusUpdated();

signals:
    void focusUpdateRequest();

protected:
    void showEvent(QShowEvent *event) override;

private:
    void build();
    void setLeaf(bool leaf);
    void setTitle(const QString &title);
    void adoptWindow(QWidget *window, int typeCode, const QString &title);
    // Takes the leaf's window out of the splitter without deleting it.
    QWidget *takeWindow();
    // Removes and deletes (later) everything in the splitter.
    void discardItems();
    void discard(QWidget *item);
    void structureChanged() { m_loadedSizes.clear(); }
    QList<int> sizesForSave() const;
    int senderCode() const;

    QSplitter *m_splitter = nullptr;
    QToolButton *m_menuButton = nullptr;
    QLabel *m_title = nullptr;
    QVBoxLayout *m_layout = nullptr;
    QHBoxLayout *m_titleLayout = nullptr;
    WidgetContainer *m_parentContainer = nullptr;
    QPointer<WidgetManager> m_manager;
    int m_windowType = -1;
    // Sizes read from the layout, written back until the container is shown or changes shape, so a
    // layout that was never displayed is saved exactly as it was read.
    QList<int> m_loadedSizes;
};
