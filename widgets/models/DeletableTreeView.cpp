#include "widgets/models/DeletableTreeView.h"

#include <QKeyEvent>

void DeletableTreeView::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Delete && currentIndex().isValid()) {
        emit deleteRequested(currentIndex());
        return;
    }
    QTreeView::keyPressEvent(event);
}

void DeletableTreeView::startDrag(Qt::DropActions supportedActions)
{
    // One item at a time, and only a real one.
    const QModelIndexList selected = selectionModel()->selectedRows();
    if (selected.size() != 1 || !selected.first().isValid())
        return;
    QTreeView::startDrag(supportedActions);
}
