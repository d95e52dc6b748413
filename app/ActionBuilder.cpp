#include "app/ActionBuilder.h"

#include <QAction>
#include <QMenu>
#include <QMenuBar>

QAction *ActionBuilder::action(const MenuEntry &entry) const
{
    auto *a = new QAction(entry.text, m_owner);
    if (!entry.shortcut.isEmpty())
        a->setShortcut(entry.shortcut);
    if (!entry.tip.isEmpty())
        a->setStatusTip(entry.tip);
    if (entry.run)
        QObject::connect(a, &QAction::triggered, m_owner, [run = entry.run] { run(); });
    return a;
}

QMenu *ActionBuilder::menu(QMenuBar *bar, const QString &title, const QList<MenuEntry> &entries,
                           QList<QAction *> *made) const
{
    QMenu *menu = bar->addMenu(title);
    for (const MenuEntry &entry : entries) {
        if (entry.text.isEmpty()) {
            menu->addSeparator();
            continue;
        }
        QAction *a = action(entry);
        menu->addAction(a);
        if (made)
            made->append(a);
    }
    return menu;
}
