#pragma once

#include <QKeySequence>
#include <QList>
#include <QString>

#include <functional>

class QAction;
class QMenu;
class QMenuBar;
class QObject;

// Menus written as tables: one line per entry, in menu order. An entry with an empty text is a separator.
struct MenuEntry
{
    QString text;
    QKeySequence shortcut = {};
    QString tip = {};
    std::function<void()> run = {};
};

class ActionBuilder
{
public:
    // Actions are owned by owner, and run in its context.
    explicit ActionBuilder(QObject *owner) : m_owner(owner) {}

    QAction *action(const MenuEntry &entry) const;
    // Adds a menu with the entries; made (optional) receives the actions in entry order, separators
    // left out.
    QMenu *menu(QMenuBar *bar, const QString &title, const QList<MenuEntry> &entries,
                QList<QAction *> *made = nullptr) const;

private:
    QObject *m_owner;
};
